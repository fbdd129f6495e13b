"""One long-lived `planecheck run --files-from -` per pytest process, fed file after file."""
import os
import stat

import pytest

import planecheck
from conftest import SCENARIOS
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
    result = pytester.runpytest_subprocess("-p", "planecheck.pytest_plugin", "-p", "no:cacheprovider",
                                           "--planecheck-command", str(wrapper), *workers)
    result.assert_outcomes(passed=3, failed=2)
    invocations = log.read_text().splitlines()
    assert len(invocations) == commands, invocations
    assert all(line.startswith("run --files-from - --events -") for line in invocations)


def test_a_session_reports_each_file_with_its_own_output_and_outlives_an_ended_one():
    paths = [str(SCENARIOS / f"{name}.yaml") for name in ("clean", "unknown_table", "mismatch")]
    with Session() as session:
        results = [session.run_file(path) for path in paths]
        assert session.starts == 1
    assert session.exit_status == 1
    (clean, clean_output), (ended, ended_output), (failed, failed_output) = results
    assert (clean.status, ended.status, failed.status) == ("passed", "ended", "failed")
    assert ended.ended.how == "exit status 1" and ended.ended.last_error.endswith("unknown table test_iff")
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


def test_a_path_with_a_line_break_is_refused_before_it_reaches_the_command():
    with Session() as session:
        with pytest.raises(planecheck.PlanecheckError, match="line break"):
            session.run_file("a.yaml\nb.yaml")
        assert session.starts == 0
