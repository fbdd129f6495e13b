"""The Python API on the examples and the test suite's scenarios, through the real command."""
import pytest

import planecheck
from conftest import EXAMPLES, SCENARIOS


@pytest.fixture(autouse=True)
def started_in_a_scratch_folder(tmp_path, monkeypatch):
    """A run keeps the files that failed in .planecheck/ of the folder it starts in: not the source tree."""
    monkeypatch.chdir(tmp_path)


def test_the_examples_pass_file_by_file_and_step_by_step():
    paths = sorted(str(path) for path in EXAMPLES.glob("*.yaml"))
    run = planecheck.run(paths)
    assert run.passed and run.exit_status == 0, run.stderr
    assert [result.path for result in run.files] == paths
    hello = run.file(str(EXAMPLES / "hello.yaml"))
    assert hello.name == "hello" and hello.passed and len(hello.steps) == 5
    assert run.totals["files"] == len(paths)


def test_recorder_ranges_slice_each_steps_records_out_of_the_recorder_file(tmp_path):
    recorder = tmp_path / "hello.rec"
    run = planecheck.run(EXAMPLES / "hello.yaml", recorder=recorder)
    data = recorder.read_bytes()
    ranges = [step.records for step in run.files[0].steps]
    assert ranges[0][0] == 0 and ranges[-1][1] == len(data)
    assert all(earlier[1] == later[0] for earlier, later in zip(ranges, ranges[1:]))
    assert b"nhgroup" in data[ranges[2][0]:ranges[2][1]] and b"nhgroup" not in data[:ranges[1][1]]


@pytest.mark.parametrize("jobs", [None, 1])
def test_a_file_the_library_ends_is_reported_as_ended_with_or_without_jobs(jobs):
    run = planecheck.run(SCENARIOS / "unknown_table.yaml", jobs=jobs)
    [result] = run.files
    assert result.status == "ended" and run.exit_status == 1
    assert result.ended.step == 2 and result.ended.at.endswith("unknown_table.yaml:4")
    assert "unknown table test_iff" in result.ended.last_error


def test_retries_and_the_time_limit_reach_the_command_and_come_back_in_each_file(tmp_path):
    creates = ", ".join(f"{{ op: create, key_a: {i} }}" for i in range(1000))
    long = tmp_path / "long.yaml"
    long.write_text("steps:\n" + f"  - send: {{ test_if: [ {creates} ] }}\n" * 2000)
    run = planecheck.run([SCENARIOS / "mismatch.yaml", EXAMPLES / "hello.yaml", long], retries=1, timeout=0.5)
    mismatch, hello, timed_out = run.files
    assert (mismatch.status, mismatch.attempts, len(mismatch.failed_attempts)) == ("failed", 2, 1)
    assert (hello.status, hello.attempts, hello.passed) == ("passed", 1, True)
    assert (timed_out.status, timed_out.attempts) == ("timed_out", 2) and not timed_out.passed
    assert timed_out.ended.how == "timeout of 0.5 s" and run.exit_status == 1


def test_check_lists_its_findings_at_their_lines_without_running():
    run = planecheck.check(SCENARIOS / "unknown_keys.yaml")
    assert run.exit_status == 1 and run.findings
    assert all(f.kind == "check" and f.line > 0 for f in run.findings)
    assert planecheck.check(SCENARIOS / "clean.yaml").findings == []


def test_usage_errors_and_a_missing_command_raise_with_the_commands_own_message(tmp_path):
    with pytest.raises(planecheck.UsageError, match="--no-such-option"):
        planecheck.run(EXAMPLES / "hello.yaml", extra_args=["--no-such-option"])
    with pytest.raises(planecheck.UsageError, match="cannot write the recorder"):
        planecheck.run(EXAMPLES / "hello.yaml", recorder=tmp_path / "missing" / "dir" / "x.rec")
    with pytest.raises(planecheck.CommandNotFound, match="not an executable: .*nothing-here"):
        planecheck.run(EXAMPLES / "hello.yaml", command=tmp_path / "nothing-here")
