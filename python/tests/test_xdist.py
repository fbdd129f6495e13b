"""pytest-xdist spreads scenario files over workers with the results of a serial run."""
import json

from conftest import SCENARIOS

FILES = dict(clean="test_1.yaml", inject="test_2.yaml", mismatch="test_3.yaml",
             expected_mismatch="test_4.yaml", sdk_server="test_5.yaml")


def outcomes(result):
    return sorted(line for line in result.outlines if line.startswith(("PASSED ", "FAILED ")))


def test_two_workers_give_the_outcomes_and_the_merged_coverage_of_a_serial_run(pytester, scenarios):
    scenarios(**FILES)
    serial = pytester.runpytest_subprocess("-p", "planecheck.pytest_plugin", "-rA",
                                           "--planecheck-coverage", "serial.json")
    parallel = pytester.runpytest_subprocess("-p", "planecheck.pytest_plugin", "-rA", "-n", "2",
                                             "--planecheck-coverage", "parallel.json")
    parallel.stdout.fnmatch_lines(["gw0 [[]5[]] / gw1 [[]5[]]"])
    assert outcomes(parallel) == outcomes(serial) and len(outcomes(serial)) == len(FILES)
    assert serial.ret == parallel.ret == 1
    serial_report = json.loads((pytester.path / "serial.json").read_text())
    assert serial_report["planecheck_coverage"] == 1 and serial_report["files"] == len(FILES)
    assert {"ipvrf", "test_if"} <= set(serial_report["types"])
    assert json.loads((pytester.path / "parallel.json").read_text()) == serial_report
