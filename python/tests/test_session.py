"""One long-lived `planecheck run --files-from -` per pytest process, fed file after file."""
import os
import stat

import pytest

import planecheck
from conftest import SCENARIOS
from planecheck.pytest_plugin import safe_file_name
from planecheck.session import Session

FILES = dict(clean="test_1.yaml", mismatch="test_2.yaml", unknown_table="test_3.yaml",
             inject="test_4.yaml", expected_mismatch="test_5.yaml")


@pytest.fixture
def logged_command(pytester):
    """A command that logs each of its invocations to a file, then runs the real one."""
    log = pytester.path / "invocations.log"
    wrapper = pytester.path / "logged-planecheck"
    wrapper.write_text(f'#!/bin/sh\necho "$*" >> "{log}"\nexec "{planecheck.find_command()}" "$@"\n')
    wrapper.chmod(wrapper.stat().st_mode | stat.S_IXUSR)
    return wrapper, log


@pytest.mark.parametrize("workers, commands", [([], 1), (["-n", "2"], 2)])
def test_each_pytest_process_starts_exactly_one_command(pytester, scenarios, logged_command,
                                                        workers, commands):
    scenarios(**FILES)
    wrapper, log = logged_command
    # a recorder per file too: the run writes them, not a command per file
    result = pytester.runpytest_subprocess("-p", "planecheck.pytest_plugin", "-p", "no:cacheprovider",
                                           "--planecheck-command", str(wrapper),
                                           "--planecheck-recorder", "records", *workers)
    result.assert_outcomes(passed=3, failed=2)
    invocations = log.read_text().splitlines()
    assert len(invocations) == commands, invocations
    assert all(line.startswith("run --files-from - --events -") for line in invocations)
    records = sorted(path.name for path in (pytester.path / "records").iterdir())
    assert records == sorted(safe_file_name(f"{name}::{scenario}") + ".rec" for name, scenario in [
        ("test_1.yaml", "what the check looks at, used as it should be"), ("test_2.yaml", "mismatch"),
        ("test_3.yaml", "a misspelled table stops the run"), ("test_4.yaml", "injected errors are retried"),
        ("test_5.yaml", "a negative test accounts for the mismatches it provokes")]), "one per file, and the run's own folder is gone"
    # each holds what its own file ran: only test_1.yaml (clean) creates an ipvrf
    assert ["ipvrf" in (pytester.path / "records" / name).read_text() for name in records] == \
           [name.startswith("test_1") for name in records]


def test_a_session_reports_each_file_with_its_own_output_and_outlives_an_ended_one():
    paths = [str(SCENARIOS / f"{name}.yaml") for name in ("clean", "unknown_table", "mismatch")]
    with Session() as session:
        results = [session.run_file(path) for path in paths]
        assert session.starts == 1
    assert session.exit_status == 1
    (clean, clean_output), (ended, ended_output), (failed, failed_output) = results
    assert (clean.status, ended.status, failed.status) == ("passed", "ended", "failed")
    assert ended.ended.how == "exit status 1" and ended.ended.last_error.endswith("unknown table test_iff; did you mean test_if?")
    # each file's step and log lines, and only its own
    assert "clean.yaml:" in clean_output and "unknown_table.yaml" not in clean_output
    assert "unknown table test_iff" in ended_output and "mismatch.yaml" not in ended_output
    assert "mismatch.yaml:6: dpa_test_if_create: EEXIST" in failed_output
    assert "clean.yaml" not in failed_output + ended_output
    assert [f.attribute for f in failed.steps[2].findings] == ["attr_a1"]


def test_a_refused_session_raises_the_commands_message_without_starting_again():
    session = Session(extra_args=["--no-such-option"])
    for _ in range(2):
        with pytest.raises(planecheck.UsageError, match="--no-such-option"):
            session.run_file(SCENARIOS / "clean.yaml")
    assert session.starts == 1


def test_recorder_names_match_the_commands_byte_for_byte(tmp_path):
    path = SCENARIOS / "clean.yaml"
    odd = tmp_path / "a dir é" / "clean.yaml"
    odd.parent.mkdir()
    odd.write_bytes(path.read_bytes())
    with Session(recorder_dir=tmp_path / "records") as session:
        result, _ = session.run_file(odd)
        recorder = session.recorder_of(odd)
    assert result.passed and os.path.basename(recorder).endswith("_a_dir____clean.yaml.rec")
    # the ranges of a file's steps are in its own recorder
    assert result.steps[0].records[0] == 0
    assert result.steps[-1].records[1] == os.path.getsize(recorder) > 0
    assert os.listdir(tmp_path / "records") == [os.path.basename(recorder)]


def test_a_path_with_a_line_break_is_refused_before_it_reaches_the_command():
    with Session() as session:
        with pytest.raises(planecheck.PlanecheckError, match="line break"):
            session.run_file("a.yaml\nb.yaml")
        assert session.starts == 0
