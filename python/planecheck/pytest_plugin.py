"""pytest collects scenario files as tests: one item per file, all run by one long-lived
`planecheck run --files-from -` per pytest process (or xdist worker)."""
from __future__ import annotations

import json
import os
import re
import shutil
import subprocess
import tempfile
from fnmatch import fnmatch
from pathlib import Path

import pytest

try:
    from _pytest.junitxml import xml_key
except ImportError:  # a pytest that keeps its report elsewhere names the cases by their node ids
    xml_key = None

from .command import PlanecheckError, find_command
from .model import FileResult, Step
from .scenario_name import node_id_part, scenario_name
from .session import Session

DEFAULT_FILES = ["test_*.yaml", "test_*.json", "test_*.jsonl", "*_test.yaml"]
COVERAGE_PARTS = "planecheck_coverage_parts"
SESSION = "planecheck_session"
SCENARIO = "planecheck_scenario"


def pytest_addoption(parser):
    parser.addini("planecheck_files", type="args", default=DEFAULT_FILES,
                  help="glob patterns of the scenario files to collect")
    parser.addini("planecheck_args", type="args", default=[],
                  help="extra options for every `planecheck run`")
    # pytest's own -x, -k and --lf stay pytest's: the run's limits have names of their own
    parser.addini("planecheck_timeout", default=None,
                  help="seconds a scenario file may run before it is ended as timed out")
    parser.addini("planecheck_retries", default=None,
                  help="how often a failed scenario file runs again (passing then, it is flaky)")
    group = parser.getgroup("planecheck", "planecheck scenario files")
    group.addoption("--planecheck-command", metavar="PATH",
                    help="the planecheck command to run (default: $PLANECHECK_COMMAND, then the "
                         "one installed with this package, then planecheck on PATH)")
    group.addoption("--planecheck-recorder", metavar="DIR",
                    help="write one recorder file per scenario file into DIR")
    group.addoption("--planecheck-strict", action="store_true",
                    help="run with --strict: a file that planecheck check fails is refused")
    group.addoption("--planecheck-timeout", metavar="SECONDS", type=float,
                    help="end a scenario file that runs longer than SECONDS as timed out "
                         "(default: the planecheck_timeout ini option)")
    group.addoption("--planecheck-retries", metavar="N", type=int,
                    help="run a failed scenario file again, up to N times, on a fresh worker; one that "
                         "then passes is flaky (default: the planecheck_retries ini option)")
    group.addoption("--planecheck-coverage", metavar="FILE",
                    help="write the coverage of the whole session, merged, to FILE")


def pytest_configure(config):
    config.pluginmanager.register(JUnitScenarioNames(config), "planecheck-junitxml")
    if config.pluginmanager.hasplugin("xdist"):
        config.pluginmanager.register(CoverageToWorkers(), "planecheck-xdist")
    if config.getoption("planecheck_coverage") and not hasattr(config, "workerinput"):
        # The controller (or a serial session) owns the folder the parts are written to.
        setattr(config, COVERAGE_PARTS, tempfile.mkdtemp(prefix="planecheck-coverage-"))


class CoverageToWorkers:
    @pytest.hookimpl(optionalhook=True)
    def pytest_configure_node(self, node):
        parts = getattr(node.config, COVERAGE_PARTS, None)
        if parts:
            node.workerinput[COVERAGE_PARTS] = parts


class JUnitScenarioNames:
    """--junitxml names a case by the last part of its node id, which escapes the scenario's name;
    the case is named by the name itself where the report is written (the xdist controller)."""
    def __init__(self, config):
        self.config = config

    @pytest.hookimpl(tryfirst=True)  # before the report's own hook closes the case at teardown
    def pytest_runtest_logreport(self, report):
        scenario = getattr(report, SCENARIO, None)
        xml = self.config.stash.get(xml_key, None) if xml_key else None
        if scenario is not None and xml is not None:
            xml.node_reporter(report).add_attribute("name", scenario)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    outcome = yield
    if isinstance(item, ScenarioItem):
        # a report's own attributes travel with it from an xdist worker
        setattr(outcome.get_result(), SCENARIO, item.scenario)


def coverage_parts(config):
    workerinput = getattr(config, "workerinput", None)
    if workerinput is not None:
        return workerinput.get(COVERAGE_PARTS)
    return getattr(config, COVERAGE_PARTS, None)


def run_limit(config, name, kind):
    """--planecheck-NAME, else the planecheck_NAME ini option, else None (the command's default)."""
    given = config.getoption(f"planecheck_{name}")
    if given is None:
        given = config.getini(f"planecheck_{name}") or None
    try:
        return None if given is None else kind(given)
    except ValueError:
        raise pytest.UsageError(f"planecheck_{name}: not a number: {given!r}") from None


def scenario_session(config) -> Session:
    """The process's one run, started by the first item that needs it."""
    if getattr(config, SESSION, None) is None:
        parts = coverage_parts(config)
        coverage = None
        if parts:
            os.makedirs(parts, exist_ok=True)
            coverage = os.path.join(parts, f"session-{os.getpid()}.json")
        recorders = config.getoption("planecheck_recorder")
        if recorders:  # the run's own names, in a folder of this process; each is renamed for its test
            os.makedirs(recorders, exist_ok=True)
            recorders = tempfile.mkdtemp(prefix=".planecheck-recorders-", dir=recorders)
        setattr(config, SESSION, Session(strict=config.getoption("planecheck_strict"),
                                         timeout=run_limit(config, "timeout", float),
                                         retries=run_limit(config, "retries", int),
                                         extra_args=config.getini("planecheck_args"),
                                         command=config.getoption("planecheck_command"),
                                         coverage=coverage, recorder_dir=recorders))
    return getattr(config, SESSION)


def close_scenario_session(config) -> None:
    # its coverage part is written as the command ends, before the parts are merged
    running = getattr(config, SESSION, None)
    if running is not None:
        running.close()
        if running.recorder_dir:
            shutil.rmtree(running.recorder_dir, ignore_errors=True)


def pytest_sessionfinish(session):
    config = session.config
    close_scenario_session(config)
    target = config.getoption("planecheck_coverage")
    parts = getattr(config, COVERAGE_PARTS, None)
    if not target or not parts or hasattr(config, "workerinput"):
        return
    try:
        reports = sorted(str(part) for part in Path(parts).glob("*.json"))
        if reports:
            merge_coverage(config, reports, target)
    finally:
        shutil.rmtree(parts, ignore_errors=True)


def merge_coverage(config, reports, target):
    command = find_command(config.getoption("planecheck_command"))
    done = subprocess.run([command, "coverage", "--json", *reports], capture_output=True, text=True)
    if done.returncode != 0:
        raise pytest.UsageError(f"planecheck coverage could not merge the session's coverage: "
                                f"{done.stderr.strip()}")
    with open(target, "w", encoding="utf-8") as out:
        json.dump(json.loads(done.stdout)["report"], out, indent=1)
        out.write("\n")


def pytest_collect_file(file_path, parent):
    patterns = parent.config.getini("planecheck_files")
    if any(fnmatch(file_path.name, pattern) for pattern in patterns):
        return ScenarioFile.from_parent(parent, path=file_path)
    return None


class ScenarioFile(pytest.File):
    def collect(self):
        # Named by the scenario's name: so that -k selects by it as well as by the file's path.
        scenario = scenario_name(self.path) or self.path.name
        yield ScenarioItem.from_parent(self, name=node_id_part(scenario), scenario=scenario)


def safe_file_name(nodeid: str) -> str:
    return re.sub(r"[^A-Za-z0-9_.-]+", "_", nodeid).strip("_")


class ScenarioFailed(Exception):
    def __init__(self, result: FileResult):
        super().__init__(result.path)
        self.result = result


class ScenarioItem(pytest.Item):
    def __init__(self, *, scenario: str, **kwargs):
        super().__init__(**kwargs)
        self.scenario = scenario

    def runtest(self):
        config = self.config
        path = os.path.relpath(self.path, config.invocation_params.dir)
        session = scenario_session(config)
        result, output = session.run_file(path)
        self.keep_recorder(session.recorder_of(path))
        self.add_report_section("call", "planecheck", output)
        if result.attempts > 1:
            self.user_properties.append(("planecheck_attempts", result.attempts))
        if result.status == "skipped":
            pytest.skip(f"planecheck tested nothing in {path}: {result.reason}")
        if not result.passed:
            raise ScenarioFailed(result)

    def keep_recorder(self, written):
        if written is None:
            return
        named = self.output_path(self.config.getoption("planecheck_recorder"), ".rec")
        if os.path.exists(written):
            os.replace(written, named)
        self.user_properties.append(("planecheck_recorder", named))

    def output_path(self, folder, suffix):
        if not folder:
            return None
        os.makedirs(folder, exist_ok=True)
        return os.path.join(folder, safe_file_name(self.nodeid) + suffix)

    def repr_failure(self, excinfo):
        if isinstance(excinfo.value, ScenarioFailed):
            return describe_failure(excinfo.value.result)
        if isinstance(excinfo.value, PlanecheckError):
            return str(excinfo.value)
        return super().repr_failure(excinfo)

    def reportinfo(self):
        return self.path, 0, f"scenario {self.name}"


def plural(count: int, noun: str) -> str:
    return f"{count} {noun}" if count == 1 else f"{count} {noun}{'es' if noun.endswith('h') else 's'}"


def describe_step(step: Step) -> list[str]:
    counts = f"{plural(step.mismatches, 'mismatch')}, {plural(step.value_errors, 'value error')}"
    lines = [f"{step.location}: step {step.number} {step.label}: {step.status} ({counts})"]
    for finding in step.findings:
        lines.append(f"    {finding.location}: {finding.text}")
        if finding.expected is not None or finding.received is not None:
            about = f"{finding.attribute}: " if finding.attribute else ""
            expected = finding.expected_status or finding.expected
            received = finding.received_status or finding.received
            lines.append(f"        {about}expected {expected}  received {received}")
    return lines


def describe_ending(result: FileResult, shown: set) -> list[str]:
    ended = result.ended
    step = f" in step {ended.step}" if ended.step else ""
    how = f"timed out ({ended.how})" if result.status == "timed_out" else f"the library ended the run with {ended.how}"
    lines = [f"{result.path}: {how}{step} at {ended.at}"]
    # The last error line is usually the ended step's own finding, listed below it already.
    if ended.last_error and ended.last_error not in shown:
        lines.append(f"    {ended.last_error}")
    return lines


def describe_failure(result: FileResult) -> str:
    if result.status == "invalid":
        return result.error or f"{result.path}: invalid"
    failed = result.failed_steps
    shown = {f"{f.location}: {f.text}" for step in failed for f in step.findings}
    lines = describe_ending(result, shown) if result.ended else []
    lines += [f"{finding.location}: {finding.text}" for finding in result.findings]
    for step in failed:
        lines += describe_step(step)
    counts = result.counts
    lines.append(f"{result.path}: {str(result.status).upper()}: {len(failed)} of "
                 f"{plural(len(result.steps), 'step')} failed, "
                 f"{plural(counts.get('mismatches', 0), 'mismatch')}, "
                 f"{plural(counts.get('value_errors', 0), 'value error')}")
    return "\n".join(lines)
