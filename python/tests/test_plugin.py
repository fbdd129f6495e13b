"""The pytest plugin as a user meets it: collection, reports and pytest's own options."""
import json
import os
import re
import shutil
import xml.etree.ElementTree as ElementTree

import pytest

import planecheck
from conftest import SCENARIOS

# In-process runs import the plugin once; later runs would warn that it cannot be rewritten.
PLUGIN = ("-p", "planecheck.pytest_plugin", "-W", "ignore::pytest.PytestAssertRewriteWarning")


def run_pytest(pytester, *args):
    return pytester.runpytest(*PLUGIN, *args)


def test_default_patterns_collect_one_item_per_file_named_by_its_scenario(pytester, scenarios):
    scenarios(mismatch="test_a.yaml", clean="b_test.yaml", inject="other.yaml")
    pytester.makefile(".json", test_c='{"name": "from json", "steps": []}')
    pytester.makefile(".jsonl", test_d='\n{"name": "from json lines"}\n')
    pytester.makefile(".yaml", test_e="# no name\nsteps: []\n")
    pytester.makefile(".yml", test_f="steps: []\n")
    result = run_pytest(pytester, "--collect-only", "-q")
    assert sorted(line for line in result.outlines if "::" in line) == [
        "b_test.yaml::what the check looks at, used as it should be",
        "test_a.yaml::mismatch",
        "test_c.json::from json",
        "test_d.jsonl::from json lines",
        "test_e.yaml::test_e.yaml",
    ]


def test_the_ini_option_chooses_which_files_are_scenarios(pytester, scenarios):
    scenarios(clean="first.yaml", inject="second.yaml", mismatch="test_third.yaml")
    pytester.makeini("[pytest]\nplanecheck_files = f*.yaml s*.yaml\n")
    result = run_pytest(pytester, "--collect-only", "-q")
    assert sorted(line.split("::")[0] for line in result.outlines if "::" in line) == \
           ["first.yaml", "second.yaml"]


def test_passing_failing_invalid_and_ended_files_report_in_the_users_terms(pytester, scenarios):
    scenarios(expected_mismatch="test_pass.yaml", mismatch="test_failing.yaml",
              bad_yaml="test_invalid.yaml", unknown_table="test_ended.yaml")
    pytester.makefile(".yaml", test_idle="steps:\n  - send: { l3intf: [ { op: create, intf: 1 } ] }\n")
    result = run_pytest(pytester, "-rfEs")
    result.assert_outcomes(passed=1, failed=3, skipped=1)  # a file in which nothing ran is no pass
    result.stdout.fnmatch_lines(["SKIPPED *planecheck tested nothing in test_idle.yaml: step 1 send l3intf: *nothing ran"])
    result.stdout.fnmatch_lines([
        # the failing step at its line, its finding at the record's line, expected beside received
        "test_failing.yaml:7: step 3 send test_if: failed (1 mismatch, 0 value errors)",
        "    test_failing.yaml:9: *",
        "        *expected 6*received 5*",
    ])
    result.stdout.fnmatch_lines(["test_invalid.yaml:6:9: did not find expected ',' or '}' *"])
    result.stdout.fnmatch_lines([
        "test_ended.yaml: the library ended the run with exit status 1 in step 2 at test_ended.yaml:4",
        "test_ended.yaml:4: step 2 send test_iff: ended (0 mismatches, 0 value errors)",
        "    test_ended.yaml:4: unknown table test_iff",
        "test_ended.yaml: ENDED: 1 of 2 steps failed, 0 mismatches, 0 value errors",
    ])
    result.stdout.fnmatch_lines(["FAILED test_failing.yaml::mismatch*"])
    assert "def runtest" not in result.stdout.str(), "a scenario's failure is no Python traceback"


def test_x_stops_at_the_first_failing_file(pytester, scenarios):
    scenarios(mismatch="test_1.yaml", unknown_table="test_2.yaml", clean="test_3.yaml")
    run_pytest(pytester, "-x").assert_outcomes(failed=1)
    run_pytest(pytester).assert_outcomes(failed=2, passed=1)


@pytest.mark.parametrize("expression, selected", [
    ("test_1", ["test_1.yaml::mismatch"]),                          # by file name
    ("misspelled", ["test_2.yaml::a misspelled table stops the run"]),  # by the scenario's name:
    ("not mismatch and not misspelled", ["test_3.yaml::what the check looks at, used as it should be"]),
])
def test_k_selects_by_file_name_and_by_scenario_name(pytester, scenarios, expression, selected):
    scenarios(mismatch="test_1.yaml", unknown_table="test_2.yaml", clean="test_3.yaml")
    result = run_pytest(pytester, "-k", expression, "--collect-only", "-q")
    assert [line for line in result.outlines if "::" in line] == selected


def test_lf_runs_again_only_the_files_that_failed(pytester, scenarios):
    scenarios(mismatch="test_1.yaml", clean="test_2.yaml", inject="test_3.yaml")
    run_pytest(pytester).assert_outcomes(failed=1, passed=2)
    result = run_pytest(pytester, "--lf", "-v")
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines(["*test_1.yaml::mismatch FAILED*"])


def test_junitxml_holds_one_case_per_file_with_the_failure_text(pytester, scenarios):
    scenarios(mismatch="test_failing.yaml", clean="test_passing.yaml")
    record_dir = pytester.path / "records"
    run_pytest(pytester, "--junitxml=report.xml", f"--planecheck-recorder={record_dir}")
    suite = ElementTree.parse(pytester.path / "report.xml").getroot().find("testsuite")
    assert (suite.get("tests"), suite.get("failures")) == ("2", "1")
    cases = {case.get("name"): case for case in suite.iter("testcase")}
    assert set(cases) == {"mismatch", "what the check looks at, used as it should be"}
    failure = cases["mismatch"].find("failure")
    assert "test_failing.yaml:7: step 3 send test_if" in failure.text
    assert cases["what the check looks at, used as it should be"].find("failure") is None
    properties = {p.get("name"): p.get("value") for p in cases["mismatch"].iter("property")}
    assert properties["planecheck_recorder"] == str(record_dir / "test_failing.yaml_mismatch.rec")


def test_the_run_s_time_limit_and_retries_pass_through_options_and_ini(pytester, scenarios):
    scenarios(mismatch="test_failing.yaml", clean="test_passing.yaml")
    creates = ", ".join(f"{{ op: create, key_a: {i} }}" for i in range(1000))
    pytester.makefile(".yaml", test_long="steps:\n" + f"  - send: {{ test_if: [ {creates} ] }}\n" * 2000)
    pytester.makeini("[pytest]\nplanecheck_retries = 2\n")
    result = run_pytest(pytester, "--planecheck-timeout=0.5", "--junitxml=report.xml")
    result.assert_outcomes(passed=1, failed=2)
    result.stdout.fnmatch_lines(["test_long.yaml: timed out (timeout of 0.5 s)* at test_long.yaml:*"])
    cases = {case.get("name"): case for case in ElementTree.parse(pytester.path / "report.xml").iter("testcase")}
    attempts = {name: {p.get("name"): p.get("value") for p in case.iter("property")}.get("planecheck_attempts")
                for name, case in cases.items()}
    # every failing file ran three times; the one that passed, once
    assert attempts == {"mismatch": "3", "test_long.yaml": "3", "what the check looks at, used as it should be": None}
    # pytest's own -x stays pytest's: the run takes no --max-fail from it
    assert "--max-fail" not in " ".join(planecheck.Session(retries=1, timeout=2).argv)
    assert planecheck.Session(retries=1, timeout=2).argv[-4:] == ["--timeout", "2.0", "--retries", "1"]


# Names that pytest's node ids, its command line or the JUnit report treat specially.
HOSTILE_NAMES = [
    "a::b",                         # pytest's own separator
    "::edges:::",                   # the separator at both ends, and a run of three colons
    "sub/dir name",                 # a path separator, a space
    "case[1]::x",                   # pytest's parameter brackets before a separator
    "x::[y]",                       # and after one
    "#1 'single' \"double\"",
    "réseau 路由 ü",
    "first line\nsecond line",
    "C:\\dir\\::tab\there",
]


def write_hostile_scenarios(pytester):
    """One passing scenario file per name: {file name: scenario name}."""
    clean = (SCENARIOS / "clean.yaml").read_text(encoding="utf-8")
    files = {}
    for index, name in enumerate(HOSTILE_NAMES):
        quoted = json.dumps(name, ensure_ascii=False)  # a YAML double-quoted scalar as well
        text = re.sub(r"^name: .*$", lambda _: f"name: {quoted}", clean, count=1, flags=re.M)
        (pytester.path / f"test_{index}.yaml").write_text(text, encoding="utf-8")
        files[f"test_{index}.yaml"] = name
    return files


@pytest.mark.parametrize("index", range(len(HOSTILE_NAMES)))
def test_the_node_id_shown_for_any_scenario_name_selects_that_scenario_alone(pytester, index):
    write_hostile_scenarios(pytester)
    listed = run_pytest(pytester, "--collect-only", "-q").outlines
    node_id = next(line for line in listed if line.startswith(f"test_{index}.yaml::"))
    result = run_pytest(pytester, "-v", node_id)
    result.assert_outcomes(passed=1)
    passed = [line for line in result.outlines if " PASSED" in line]
    assert len(passed) == 1 and passed[0].startswith(f"{node_id} PASSED"), result.stdout.str()


@pytest.mark.parametrize("workers", [[], ["-n", "2"]])
def test_junitxml_names_each_case_by_its_file_and_scenario_whatever_the_name(pytester, workers):
    files = write_hostile_scenarios(pytester)
    result = pytester.runpytest_subprocess("-p", "planecheck.pytest_plugin", "--junitxml=report.xml",
                                           *workers)
    assert result.ret == 0, result.stdout.str()
    cases = ElementTree.parse(pytester.path / "report.xml").getroot().iter("testcase")
    assert sorted((case.get("classname"), case.get("name")) for case in cases) == \
           sorted(files.items())


@pytest.mark.parametrize("how", [["--planecheck-strict"], ["-o", "planecheck_args=--strict"]])
def test_strict_refuses_a_file_that_the_check_fails(pytester, scenarios, how):
    scenarios(unknown_keys="test_unchecked.yaml")
    run_pytest(pytester).assert_outcomes(failed=1)
    result = run_pytest(pytester, *how)
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines(["test_unchecked.yaml:*"])


def test_a_missing_command_fails_the_items_with_its_reason(pytester, scenarios, monkeypatch):
    scenarios(clean="test_1.yaml")
    monkeypatch.setenv("PLANECHECK_COMMAND", str(pytester.path / "no-such-planecheck"))
    result = run_pytest(pytester)
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines(["planecheck: the command named by PLANECHECK_COMMAND is not an executable: *"])
    result = run_pytest(pytester, "--planecheck-command", "no-such-planecheck")
    result.stdout.fnmatch_lines(["planecheck: the command given is not an executable: no-such-planecheck"])


@pytest.mark.skipif("PC_DIST_INFO" not in os.environ, reason="needs the build tree's .dist-info")
@pytest.mark.parametrize("plugin_args, collected", [
    ((), 1),                                       # found through its entry point
    (("-p", "planecheck.pytest_plugin"), 1),       # named as well: loaded once, no conflict
    (("-p", "no:planecheck.pytest_plugin"), 0),    # turned off
])
def test_the_installed_entry_point_loads_the_plugin_once(pytester, scenarios, monkeypatch,
                                                         plugin_args, collected):
    site = pytester.path / "site"
    shutil.copytree(os.path.dirname(planecheck.__file__), site / "planecheck")
    dist_info = os.environ["PC_DIST_INFO"]
    shutil.copytree(dist_info, site / os.path.basename(dist_info))
    monkeypatch.setenv("PYTHONPATH", str(site))
    scenarios(clean="test_1.yaml")
    result = pytester.runpytest_subprocess(*plugin_args, "--collect-only", "-q")
    assert result.ret == (0 if collected else 5), result.stderr.str()
    assert len([line for line in result.outlines if "::" in line]) == collected
