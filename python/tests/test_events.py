"""Reading the event stream into files, steps and findings, from literal event lines."""
import json

import pytest

from planecheck import EventError, Run, read_events
from planecheck.command import close_unfinished


def line(event, **members):
    return json.dumps({"schema": 1, "event": event, "time": "2026-11-24T01:02:03.456Z", **members})


RUN_START = line("run_start", version="0.1.0", catalogue="0123456789abcdef", platform="simplane",
                 command=["planecheck", "run"], host="h", files=1,
                 options={"check_only": False, "strict": False, "jobs": 1})


def step(file, number, status="passed", mismatches=0, **more):
    return line("step", file=file, step=number, line=3 + number, kind="send", table="test_if",
                label="send test_if", status=status, mismatches=mismatches, value_errors=0,
                duration=0.1, **more)


def finding(file, number, text, kind="mismatch", **more):
    return line("finding", file=file, line=10 + number, step=number, level="error",
                kind=kind, text=text, **more)


def file_end(file, status, **more):
    counts = dict(steps=2, failed_steps=1, not_run=0, mismatches=1, value_errors=0, expected=0)
    return line("file_end", file=file, status=status, duration=1.5, **{**counts, **more})


def read(*lines):
    return read_events(lines, Run(command=["planecheck"], exit_status=1))


def test_findings_belong_to_the_step_after_them_and_file_findings_to_the_file():
    run = read(RUN_START,
               line("file_start", file="a.yaml", index=0, name="first"),
               finding("a.yaml", 0, "about the whole file"),
               step("a.yaml", 1),
               finding("a.yaml", 2, "attr_a1: expected 5, received 6",
                       attribute="attr_a1", expected="5", received="6"),
               step("a.yaml", 2, status="failed", mismatches=1, records={"start": 10, "end": 99}),
               file_end("a.yaml", "failed"),
               line("run_end", files=1, failed_files=1, steps=2, not_run=0, mismatches=1,
                    value_errors=0, duration=2.0, exit_status=1, verdict="failed"))
    [result] = run.files
    assert (result.name, result.status, result.counts["mismatches"]) == ("first", "failed", 1)
    assert [f.text for f in result.findings] == ["about the whole file"]
    first, second = result.steps
    assert first.findings == [] and second.records == (10, 99)
    [mismatch] = second.findings
    assert (mismatch.location, mismatch.attribute, mismatch.expected, mismatch.received) == \
           ("a.yaml:12", "attr_a1", "5", "6")
    assert result.failed_steps == [second]
    assert run.verdict == "failed" and not run.passed and run.version == "0.1.0"
    assert [f.text for f in run.findings] == ["about the whole file", "attr_a1: expected 5, received 6"]


def test_interleaved_files_of_a_parallel_run_keep_their_own_steps_in_file_order():
    run = read(RUN_START,
               line("file_start", file="a.yaml", index=0),
               line("file_start", file="b.yaml", index=1, name=None),
               finding("b.yaml", 1, "b's finding"),
               finding("a.yaml", 1, "a's finding"),
               step("a.yaml", 1, status="failed"),
               step("b.yaml", 1, status="failed"),
               file_end("b.yaml", "failed"),
               file_end("a.yaml", "failed"))
    assert [r.path for r in run.files] == ["a.yaml", "b.yaml"]
    assert [[f.text for f in r.steps[0].findings] for r in run.files] == [["a's finding"], ["b's finding"]]
    assert run.file("b.yaml").name is None
    with pytest.raises(KeyError):
        run.file("c.yaml")


def test_invalid_and_ended_files_carry_their_error_and_how_they_ended():
    run = read(RUN_START,
               file_end("bad.yaml", "invalid", error="bad.yaml:5:9: a mapping value is not allowed here"),
               finding("ended.yaml", 2, "unknown table test_iff", kind="log"),
               file_end("ended.yaml", "ended",
                        ended={"how": "exit status 1", "at": "ended.yaml:4", "step": 2,
                               "last_error": "ended.yaml:4: unknown table test_iff"}))
    invalid, ended = run.files
    assert invalid.error == "bad.yaml:5:9: a mapping value is not allowed here"
    assert (ended.ended.how, ended.ended.at, ended.ended.step) == ("exit status 1", "ended.yaml:4", 2)
    # The step the library ended never had its own event: its finding stays with the file.
    assert [f.text for f in ended.findings] == ["unknown table test_iff"]


def test_members_and_kinds_added_later_are_passed_over():
    run = read(RUN_START.replace('"files": 1', '"files": 1, "new_member": {"x": [1]}'),
               line("progress", file="a.yaml", done=0.5),
               step("a.yaml", 1, colour="green"))
    assert [s.number for s in run.files[0].steps] == [1]


@pytest.mark.parametrize("text, message", [
    ('{"schema": 2, "event": "run_start"}', "event line 1: schema 2; this package reads schema 1"),
    ('{"schema": 1, "event": "step"', "event line 1: not JSON"),
    ('[1, 2]', "event line 1: not an event object"),
    (line("step", file="a.yaml", step=1), "event line 1: no member 'line'"),
    (RUN_START + "\n\ngarbage", "event line 3: not JSON"),  # a blank line is skipped, and counted
])
def test_a_line_that_cannot_be_read_names_its_number_and_what_is_wrong(text, message):
    with pytest.raises(EventError, match=message.replace("(", r"\(")):
        read(*text.split("\n"))


@pytest.mark.parametrize("exit_status, how", [(1, "exit status 1"), (-6, "signal 6 (SIGABRT)")])
def test_a_file_without_its_end_is_marked_ended_by_the_command_status(exit_status, how):
    run = Run(command=[], exit_status=exit_status,
              stderr="a.yaml:6: first error\na.yaml:6: Assertion `entry' failed.\n\n")
    read_events([RUN_START, line("file_start", file="a.yaml", index=0), step("a.yaml", 1)], run)
    close_unfinished(run)
    ended = run.files[0].ended
    assert run.files[0].status == "ended"
    assert (ended.how, ended.at, ended.step) == (how, "a.yaml:4", 1)
    assert ended.last_error == "a.yaml:6: Assertion `entry' failed."
