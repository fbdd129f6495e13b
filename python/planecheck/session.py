"""One long-lived `planecheck run --files-from - --events -`, given file after file.

Starting the command costs far more than running a small scenario, so a test runner keeps one
run open and writes it one path at a time: the command runs the file at once and writes its
events through its `file_end` before it reads the next path. Files run in the command's worker
processes, so a file that the library ends is reported and the run goes on.
"""
from __future__ import annotations

import os
import re
import subprocess
import tempfile
from typing import Optional, Sequence

from .command import (PathLike, PlanecheckError, UsageError, close_unfinished, find_command, limit_options,
                      status_text)
from .events import EventError, RunBuilder, parse_line
from .model import Ended, FileResult, Run


def recorder_file_name(path: str) -> str:
    """The name `run --recorder-dir` gives a file's recorder: each byte of its path other than a
    letter, a digit, '.', '-' or '_' made '_', and ".rec"."""
    return os.fsdecode(re.sub(rb"[^A-Za-z0-9._-]", b"_", os.fsencode(path))) + ".rec"


class Session:
    """`with Session(strict=True) as session: result, output = session.run_file("a.yaml")`"""

    def __init__(self, *, strict: bool = False, coverage: Optional[PathLike] = None,
                 recorder_dir: Optional[PathLike] = None, timeout: Optional[float] = None,
                 retries: Optional[int] = None, extra_args: Sequence[str] = (),
                 command: Optional[PathLike] = None):
        options = (["--strict"] if strict else []) + limit_options(timeout, retries)
        if coverage is not None:
            options += ["--coverage", os.fspath(coverage)]
        self.recorder_dir = os.fspath(recorder_dir) if recorder_dir is not None else None
        if self.recorder_dir is not None:
            options += ["--recorder-dir", self.recorder_dir]
        self._command = command
        self._options = [*options, *extra_args]
        self._process: Optional[subprocess.Popen] = None
        self._argv: list[str] = []
        self._errors = None  # the command's standard error: each file's lines are read back from it
        self._errors_read = 0
        self._refusal: Optional[UsageError] = None
        self.exit_status: Optional[int] = None
        self.starts = 0

    def __enter__(self) -> "Session":
        return self

    def __exit__(self, *_) -> None:
        self.close()

    @property
    def argv(self) -> list[str]:
        return [find_command(self._command), "run", "--files-from", "-", "--events", "-",
                *self._options]

    def run_file(self, path: PathLike) -> tuple[FileResult, str]:
        """Runs one file; returns its result and the step and log lines it printed."""
        path = os.fspath(path)
        if "\n" in path or not path.strip():
            raise PlanecheckError(f"planecheck: a path for --files-from cannot be blank or hold a "
                                  f"line break: {path!r}")
        self._start()
        run = Run(command=self._argv, exit_status=0)
        builder = RunBuilder(run)
        try:
            self._process.stdin.write(path + "\n")
            self._process.stdin.flush()
        except BrokenPipeError:
            pass  # the command is gone: what it wrote is read below, then it is started again
        reported = self._read_until_file_end(builder, path)
        if not reported:
            run.exit_status = self._end_process()
        output = self._new_errors()
        if not reported:  # the command itself ended while the file ran
            run.stderr = output
            close_unfinished(run)
        result = run.files[0] if run.files else None
        return result or self._never_reported(path, run), output

    def recorder_of(self, path: PathLike) -> Optional[str]:
        """Where a file's recorder is, once run_file has returned (with recorder_dir)."""
        if self.recorder_dir is None:
            return None
        return os.path.join(self.recorder_dir, recorder_file_name(os.fspath(path)))

    def close(self) -> Optional[int]:
        """Ends the run (the command writes its coverage and its run_end then); its exit status."""
        status = self._end_process()
        if self._errors is not None:
            self._errors.close()
            self._errors = None
        return status

    def _end_process(self) -> Optional[int]:
        process, self._process = self._process, None
        if process is None:
            return self.exit_status
        try:
            process.stdin.close()
        except BrokenPipeError:
            pass
        process.stdout.read()
        self.exit_status = process.wait()
        process.stdout.close()
        return self.exit_status

    def _start(self) -> None:
        if self._refusal:
            raise self._refusal
        if self._process is not None:
            return
        self._argv = argv = self.argv
        if self._errors is not None:
            self._errors.close()
        self._errors = tempfile.TemporaryFile(prefix="planecheck-output-")
        self._errors_read = 0
        self._process = subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=self._errors, text=True, errors="replace", bufsize=1)
        self.starts += 1
        first = self._process.stdout.readline()
        if not first:
            self._end_process()
            message = self._new_errors().strip() or \
                f"planecheck run ended with {status_text(self.exit_status)}"
            self._refusal = UsageError(message)
            raise self._refusal

    def _read_until_file_end(self, builder: RunBuilder, path: str) -> bool:
        for text in self._process.stdout:
            if not text.strip():
                continue
            try:
                event = parse_line(text)
                # an earlier file's events that an interrupted caller left unread are not this file's
                if event.get("file", path) != path:
                    continue
                builder.add(event)
            except (EventError, KeyError) as error:
                raise PlanecheckError(f"planecheck: {error}") from None
            if event["event"] == "file_end":
                return True
        return False

    def _new_errors(self) -> str:
        """What the command wrote to standard error since the last call: it writes a file's lines
        before the file's events, so they are all there once its file_end has been read."""
        fd = self._errors.fileno()
        # pread: the command writes at the offset it shares with this descriptor; moving it would
        # make the command write over its earlier lines
        data = os.pread(fd, max(os.fstat(fd).st_size - self._errors_read, 0), self._errors_read)
        self._errors_read += len(data)
        return data.decode("utf-8", errors="replace")

    def _never_reported(self, path: str, run: Run) -> FileResult:
        how = status_text(run.exit_status)
        return FileResult(path=path, index=0, status="ended",
                          ended=Ended(how=how, at=path),
                          error=f"{path}: planecheck run ended ({how}) before it reported the file")
