"""Reads planecheck's event stream (JSON Lines, schema 1) into the run model."""
from __future__ import annotations

import json
import re
from typing import Iterable

from .model import Ended, FileResult, Finding, Run, Step

SCHEMA = 1
FILE_COUNTS = ("steps", "failed_steps", "not_run", "mismatches", "value_errors", "expected",
               "problems", "warnings")
RUN_TOTALS = ("files", "failed_files", "skipped_files", "steps", "not_run", "mismatches", "value_errors",
              "expected", "problems", "warnings", "duration")


class EventError(ValueError):
    """An event line this package cannot read."""


# A byte of a name or value that JSON cannot carry (not UTF-8) travels as U+EF00 + the byte, and a
# character of those ranges travels byte by byte the same way (see the README, "Text in reports").
_CARRIED_BYTES = re.compile("[\uef00-\uef1f\uef80-\uefff]+")


def from_wire(text: str) -> str:
    """The text as the file system and the scenario had it: bytes that are not UTF-8 come back as
    Python keeps them in file names (surrogate escapes), so a path reads as os.listdir gives it."""
    if not _CARRIED_BYTES.search(text):
        return text
    raw = bytearray()
    at = 0
    for match in _CARRIED_BYTES.finditer(text):
        raw += text[at:match.start()].encode("utf-8", "surrogateescape")
        raw += bytes(ord(c) - 0xEF00 for c in match.group())
        at = match.end()
    raw += text[at:].encode("utf-8", "surrogateescape")
    return raw.decode("utf-8", "surrogateescape")


def _unwired(value):
    if isinstance(value, str):
        return from_wire(value)
    if isinstance(value, list):
        return [_unwired(v) for v in value]
    if isinstance(value, dict):
        return {k: _unwired(v) for k, v in value.items()}
    return value


def parse_line(text: str, number: int = 0) -> dict:
    try:
        event = json.loads(text)
    except json.JSONDecodeError as error:
        raise EventError(f"event line {number}: not JSON: {error}") from None
    if not isinstance(event, dict) or "event" not in event:
        raise EventError(f"event line {number}: not an event object")
    if event.get("schema") != SCHEMA:
        raise EventError(f"event line {number}: schema {event.get('schema')!r}; "
                         f"this package reads schema {SCHEMA}")
    return _unwired(event) if _CARRIED_BYTES.search(text) else event


class RunBuilder:
    """Folds events, in the order they were written, into a Run."""

    def __init__(self, run: Run):
        self.run = run
        self.by_path: dict[str, FileResult] = {}
        # Findings come before the step they belong to.
        self.pending: dict[str, list[Finding]] = {}

    def add(self, event: dict) -> None:
        handler = getattr(self, "on_" + str(event["event"]), None)
        if handler is not None:  # a kind added later is passed over, as the schema asks
            handler(event)

    def file(self, path: str) -> FileResult:
        if path not in self.by_path:
            result = FileResult(path=path, index=len(self.run.files))
            self.by_path[path] = result
            self.run.files.append(result)
        return self.by_path[path]

    def on_run_start(self, event: dict) -> None:
        self.run.version = event.get("version")
        self.run.run_id = event.get("run_id")

    def on_file_start(self, event: dict) -> None:
        result = self.file(event["file"])
        result.index = event.get("index", result.index)
        result.name = event.get("name")

    def on_finding(self, event: dict) -> None:
        finding = Finding(file=event["file"], line=event["line"], step=event["step"],
                          level=event["level"], kind=event["kind"], text=event["text"],
                          column=event.get("column"), attribute=event.get("attribute"),
                          expected=event.get("expected"), received=event.get("received"),
                          expected_status=event.get("expected_status_text"), received_status=event.get("received_status_text"))
        if finding.step == 0:
            self.file(finding.file).findings.append(finding)
        else:
            self.pending.setdefault(finding.file, []).append(finding)

    def on_step(self, event: dict) -> None:
        records = event.get("records")
        step = Step(file=event["file"], number=event["step"], line=event["line"],
                    kind=event["kind"], label=event["label"], status=event["status"],
                    mismatches=event["mismatches"], value_errors=event["value_errors"],
                    duration=event["duration"], table=event.get("table"),
                    records=(records["start"], records["end"]) if records else None)
        pending = self.pending.pop(step.file, [])
        step.findings = [f for f in pending if f.step == step.number]
        # A finding of another step number stays for that step.
        rest = [f for f in pending if f.step != step.number]
        if rest:
            self.pending[step.file] = rest
        self.file(step.file).steps.append(step)

    def on_file_end(self, event: dict) -> None:
        result = self.file(event["file"])
        result.status = event["status"]
        result.duration = event.get("duration", 0.0)
        result.counts = {name: event[name] for name in FILE_COUNTS if name in event}
        result.error = event.get("error")
        result.reason = event.get("reason")
        result.attempts = event.get("attempts", 1)
        result.failed_attempts = list(event.get("failed_attempts", []))
        result.slow = event.get("slow", False)
        ended = event.get("ended")
        if ended:
            result.ended = Ended(how=ended["how"], at=ended["at"], step=ended.get("step"),
                                 last_error=ended.get("last_error"))
        # Findings of a step that never got its own event (the library ended it) stay visible.
        result.findings.extend(self.pending.pop(result.path, []))

    def on_run_end(self, event: dict) -> None:
        self.run.verdict = event["verdict"]
        self.run.totals = {name: event[name] for name in RUN_TOTALS if name in event}


def read_events(lines: Iterable[str], run: Run) -> Run:
    builder = RunBuilder(run)
    for number, text in enumerate(lines, start=1):
        if text.strip():
            try:
                builder.add(parse_line(text, number))
            except KeyError as missing:
                raise EventError(f"event line {number}: no member {missing}") from None
    return run
