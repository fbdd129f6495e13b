#!/usr/bin/python3
"""The event stream of `planecheck run --events` against its schema, and every other report of the
same run (JUnit, TAP, the summary line, the recorder) against the events.

usage: events_check.py PLANECHECK SOURCE_DIR SCRATCH_DIR
"""
import glob
import json
import os
import re
import select
import signal
import subprocess
import sys
import threading
import time
import unittest
import xml.etree.ElementTree as ET

import jsonschema

PLANECHECK, SOURCE, SCRATCH = sys.argv[1:4]
del sys.argv[1:4]
SCENARIOS = os.path.join(SOURCE, "tests", "scenarios")
EXAMPLES = sorted(glob.glob(os.path.join(SOURCE, "examples", "*.yaml")))
FAILING = [os.path.join(SCENARIOS, n) for n in ("mismatch.yaml", "wrong_expectation.yaml", "bad_values.yaml")]
INVALID = [os.path.join(SCENARIOS, n) for n in ("bad_yaml.yaml", "bad_step.yaml")]
ENDED_BY_EXIT = os.path.join(SCENARIOS, "unknown_table.yaml")
ENDED_BY_ASSERTION = os.path.join(SCENARIOS, "empty_batch.yaml")
SUITE = EXAMPLES + FAILING + INVALID + [ENDED_BY_EXIT, ENDED_BY_ASSERTION]

with open(os.path.join(SOURCE, "schema", "events.schema.json")) as f:
    VALIDATOR = jsonschema.Draft7Validator(json.load(f))


def scratch(name):
    os.makedirs(SCRATCH, exist_ok=True)
    return os.path.join(SCRATCH, name)


def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    return path


def text_of(path):
    """The file's text, "" while it does not exist."""
    try:
        with open(path) as f:
            return f.read()
    except FileNotFoundError:
        return ""


def run(*args):
    return subprocess.run([PLANECHECK, *args], capture_output=True, text=True, timeout=300)


def events_of(text):
    """Every line is one event that the schema accepts."""
    events = []
    for number, line in enumerate(text.splitlines(), 1):
        event = json.loads(line)
        errors = [e.message for e in VALIDATOR.iter_errors(event)]
        if errors:
            raise AssertionError(f"event {number} does not fit the schema: {errors}\n{line}")
        events.append(event)
    return events


def masked(records):
    """Records with their timestamps left out."""
    return re.sub(rb'("tv_n?sec": )\d+', rb"\1T", records)


def by_file(events):
    """The events of each file, in order, checked to be well nested."""
    files, current = {}, None
    for e in events[1:-1]:
        if e["event"] == "file_start":
            assert current is None, f"{e['file']} starts inside {current}"
            current = e["file"]
            files[current] = [e]
        else:
            assert e.get("file") == current, f"{e['event']} of {e.get('file')} inside {current}"
            files[current].append(e)
            if e["event"] == "file_end":
                current = None
    assert current is None, f"{current} has no file_end"
    return files


class EventChecks(unittest.TestCase):
    def check_run(self, events, exit_status):
        self.assertEqual(events[0]["event"], "run_start")
        self.assertEqual(events[-1]["event"], "run_end")
        self.assertEqual(events[-1]["exit_status"], exit_status)
        files = by_file(events)
        totals = {k: 0 for k in ("steps", "not_run", "mismatches", "value_errors")}
        for name, file_events in files.items():
            end = self.check_file(name, file_events)
            for k in totals:
                totals[k] += end[k]
        for k, v in totals.items():
            self.assertEqual(events[-1][k], v, k)
        self.assertEqual(events[-1]["files"], len(files))
        self.assertEqual(events[-1]["failed_files"], sum(f[-1]["status"] not in ("passed", "skipped", "flaky", "not_run") for f in files.values()))
        return files

    def check_file(self, name, file_events):
        """Steps in order, each after its own findings, adding up to the file's counts."""
        end = file_events[-1]
        steps = [e for e in file_events if e["event"] == "step"]
        self.assertEqual([s["step"] for s in steps], list(range(1, len(steps) + 1)), name)
        seen_step = 0
        for e in file_events[1:-1]:
            if e["event"] == "step":
                seen_step = e["step"]
            elif e["step"]:
                self.assertGreater(e["step"], seen_step, f"{name}: a finding after its step: {e}")
        self.assertEqual(end["steps"], len(steps), name)  # an ended step is a step
        self.assertEqual(end["mismatches"], sum(s["mismatches"] for s in steps), name)
        self.assertEqual(end["value_errors"], sum(s["value_errors"] for s in steps), name)
        self.assertEqual(end["not_run"], sum(s["status"] == "not_run" for s in steps), name)
        # a step whose mismatches a later expect: accounts for is still failed
        self.assertEqual(end["failed_steps"], sum(s["status"] in ("failed", "ended") for s in steps), name)
        mismatch_findings = [e for e in file_events if e["event"] == "finding" and e["kind"] == "mismatch"]
        self.assertEqual(len(mismatch_findings), end["mismatches"], name)
        if end["status"] == "ended" and end["ended"]["step"]:  # else it ended between two steps
            self.assertEqual(steps[-1]["status"], "ended", name)
            self.assertEqual(end["ended"]["step"], steps[-1]["step"], name)
        if end["status"] == "invalid":
            self.assertIn("error", end)
        return end

    def whole_records(self, recorded):
        """The number of records in a recorder, each checked to be whole: a record cut short leaves an opening unclosed."""
        records = ("\n" + recorded).count("\n{\n")
        self.assertEqual(recorded.count("\n},\n"), records)
        self.assertTrue(recorded.endswith("},\n"), recorded[-200:])
        return records


class SerialRun(EventChecks):
    def test_passing_failing_and_invalid_files_give_valid_events_that_add_up(self):
        out = run("run", "--events", "-", *EXAMPLES, *FAILING, *INVALID)
        events = events_of(out.stdout)
        files = self.check_run(events, out.returncode)
        self.assertEqual(out.returncode, 2)
        statuses = {os.path.basename(f): e[-1]["status"] for f, e in files.items()}
        self.assertEqual(statuses["hello.yaml"], "passed")
        self.assertEqual(statuses["mismatch.yaml"], "failed")
        self.assertEqual(statuses["bad_yaml.yaml"], "invalid")
        summary = out.stderr.strip().splitlines()[-1]
        self.assertRegex(summary, r"^planecheck: INVALID: ")
        self.assertIn(f"{events[-1]['mismatches']} mismatch", summary)

    def test_a_mismatch_finding_names_attribute_and_values(self):
        events = events_of(run("run", "--events", "-", os.path.join(SCENARIOS, "mismatch.yaml")).stdout)
        mismatches = [e for e in events if e["event"] == "finding" and e["kind"] == "mismatch"]
        self.assertTrue(mismatches)
        for m in mismatches:
            self.assertTrue(m["attribute"] and m["expected"] and m["received"], m)
            self.assertIn(m["received"], m["text"])
            self.assertEqual(m["type"], "test_if")
        (status,) = [m for m in mismatches if "expected_status" in m]
        self.assertEqual((status["op"], status["attribute"], status["expected_status"], status["received_status"]),
                         ("create", "rc", 0, 17))
        # what people read names each status beside its number; the don't-care status keeps all its bits
        self.assertEqual((status["expected_status_text"], status["received_status_text"]), ("EOK (0)", "EEXIST (17)"))

    def test_check_writes_events_of_its_findings(self):
        out = run("check", "--events", "-", os.path.join(SCENARIOS, "traps.yaml"), EXAMPLES[0])
        events = events_of(out.stdout)
        self.check_run(events, out.returncode)
        self.assertTrue(events[0]["options"]["check_only"])
        checks = [e for e in events if e["event"] == "finding" and e["kind"] == "check"]
        self.assertTrue(checks)
        self.assertTrue(all(c["line"] > 0 for c in checks))

    def test_strict_refusal_is_an_invalid_file_without_steps(self):
        events = events_of(run("run", "--strict", "--events", "-", os.path.join(SCENARIOS, "traps.yaml")).stdout)
        files = self.check_run(events, 2)
        (file_events,) = files.values()
        self.assertEqual(file_events[-1]["status"], "invalid")
        self.assertFalse([e for e in file_events if e["event"] == "step"])


class ParallelRunAgreesWithEveryReport(EventChecks):
    @classmethod
    def setUpClass(cls):
        cls.junit, cls.rec, cls.ev = scratch("j.xml"), scratch("j.rec"), scratch("j.events")
        cls.out = run("run", "-j", "2", "--tap", "--junit", cls.junit, "--recorder", cls.rec, "--events", cls.ev, *SUITE)
        cls.events = events_of(text_of(cls.ev))
        cls.files = by_file(cls.events)

    def test_events_are_valid_and_add_up_with_ended_files_among_them(self):
        self.check_run(self.events, self.out.returncode)
        ended = {f: e[-1]["ended"]["how"] for f, e in self.files.items() if e[-1]["status"] == "ended"}
        self.assertEqual(ended, {ENDED_BY_EXIT: "exit status 1", ENDED_BY_ASSERTION: "signal 6 (Aborted)"})
        self.assertEqual(list(self.files), SUITE)

    def test_a_worker_s_findings_are_the_serial_run_s(self):
        untimed = lambda events: [{k: v for k, v in e.items() if k != "time"} for e in events if e["event"] == "finding"]
        for path in FAILING:
            serial = untimed(events_of(run("run", "--events", "-", path).stdout))
            self.assertTrue(serial, path)
            self.assertEqual(untimed(self.files[path]), serial, path)

    def test_junit_agrees(self):
        suite = ET.parse(self.junit).getroot().find("testsuite")
        cases = suite.findall("testcase")
        self.assertEqual([c.get("name") for c in cases], SUITE)
        self.assertEqual(int(suite.get("failures")), self.events[-1]["failed_files"])
        for case in cases:
            end = self.files[case.get("name")][-1]
            failure = case.find("failure")
            self.assertEqual(failure is not None, end["status"] != "passed", case.get("name"))
            for finding in (e for e in self.files[case.get("name")] if e["event"] == "finding" and failure is not None):
                self.assertIn(finding["text"], failure.text)
            self.assertAlmostEqual(float(case.get("time")), end["duration"] / 1000, delta=0.0015)

    def test_tap_agrees(self):
        self.assertTrue(self.out.stdout.startswith(f"TAP version 13\n1..{len(SUITE)}\n"), self.out.stdout[:100])
        points = re.findall(r"^(ok|not ok) (\d+) - (\S+) \((\d+) steps?", self.out.stdout, re.M)
        self.assertEqual(len(points), len(SUITE))
        for verdict, _, name, steps in points:
            end = self.files[name][-1]
            self.assertEqual(verdict == "ok", end["status"] == "passed", name)
            self.assertEqual(int(steps), end["steps"], name)

    def test_summary_agrees(self):
        summary = [l for l in self.out.stdout.splitlines() if l.startswith("# planecheck:")][-1]
        end = self.events[-1]
        self.assertIn(f"{end['files']} files", summary)
        self.assertIn(f"{end['mismatches']} mismatch", summary)
        self.assertIn(f"{end['value_errors']} value error", summary)
        self.assertIn(end["verdict"].upper(), summary)
        self.assertIn(f"2 files ended early ({ENDED_BY_EXIT}:4: unknown table test_iff; did you mean test_if?; {ENDED_BY_ASSERTION}:5: ",
                      summary)

    def test_record_ranges_hold_the_steps_records_as_a_serial_run_writes_them(self):
        with open(self.rec, "rb") as f:
            joined = f.read()
        serial_rec = scratch("s.rec")
        serial = events_of(run("run", "--recorder", serial_rec, "--events", "-", *EXAMPLES).stdout)
        with open(serial_rec, "rb") as f:
            alone = f.read()
        ranges = [(e["file"], e["step"], e["records"]) for e in serial if e["event"] == "step" and "records" in e]
        self.assertTrue(any(r["end"] > r["start"] for _, _, r in ranges))
        for file, step, r in ranges:
            twin = [e for e in self.files[file] if e["event"] == "step" and e["step"] == step][0]["records"]
            self.assertEqual(masked(joined[twin["start"]:twin["end"]]), masked(alone[r["start"]:r["end"]]), f"{file} step {step}")
        placed = [e["records"] for f in self.files.values() for e in f if "records" in e]
        for before, after in zip(placed, placed[1:]):
            self.assertLessEqual(before["end"], after["start"])
        self.assertLessEqual(placed[-1]["end"], len(joined))


def children_of(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as f:
        return [int(c) for c in f.read().split()]


def records_so_far(pid):
    """What a worker has written of its file's events so far, from its temporary records file."""
    for fd in os.listdir(f"/proc/{pid}/fd"):
        try:
            if "-records-" in os.readlink(f"/proc/{pid}/fd/{fd}"):
                with open(f"/proc/{pid}/fd/{fd}") as f:
                    return f.read()
        except OSError:
            pass
    return ""


def long_second_step(path, creates=200000):
    """Step 1 logs a mismatch (the last error before the end); step 2 runs long enough for a signal to land in it."""
    creates = ", ".join(f"{{ op: create, key_a: {i} }}" for i in range(1, creates + 1))
    return write(path, "steps:\n  - send: { test_if: [ { op: delete, key_a: 424242 } ] }\n"
                 f"  - send: {{ test_if: [ {creates} ] }}\n  - send: {{ test_if: [ {{ op: get, key_a: 1 }} ] }}\n")


def plural(n, word):
    return f"{n} {word}{'' if n == 1 else 's'}"


class EndingsInEveryOutput(EventChecks):
    """However a file's run ends, every output of the run tells it as the model does: in the command's process, where
    the files after it are then not run, and in a worker, replaced to run them. The events count the ended step once and
    add up, the step lines before the end are kept, the recorder holds whole records, what ran is in the coverage, and
    the ending reads the same in both."""

    @classmethod
    def setUpClass(cls):
        cls.outside = long_second_step(scratch("outside.yaml"))
        # a name JUnit must escape
        cls.after = write(scratch("after & <after>.yaml"), "steps:\n  - send: { nhgroup: [ { op: create, nhgroup_id: 7 } ] }\n")
        cls.rows = [  # scenario, signal sent in step 2, how it ended, run_end's exit status, the ended step's line
            (ENDED_BY_EXIT, None, "exit status 1", 1,
             "the library ended the run with exit status 1 (1 step ran before it): unknown table test_iff; did you mean test_if?"),
            (ENDED_BY_ASSERTION, None, "signal 6 (Aborted)", 134, "the library ended the run by an assertion (2 steps ran before it)"),
            (cls.outside, signal.SIGTERM, "signal 15 (Terminated)", 143, None),
        ]

    def run_ending(self, scenario, jobs, signal_number=None):
        paths = {k: scratch(f"ending.{k}") for k in ("events", "rec", "xml", "coverage")}
        for path in paths.values():
            if os.path.exists(path):
                os.unlink(path)
        reports = ["-j", str(jobs), "--tap", "--junit", paths["xml"]] if jobs else []
        args = [PLANECHECK, "run", *reports, "--recorder", paths["rec"], "--coverage", paths["coverage"], "--events", paths["events"],
                scenario, self.after]
        process = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if signal_number:
            self.signal_in_step_2(process, jobs, signal_number)
        stdout, stderr = process.communicate(timeout=300)
        return process.returncode, stdout, stderr, events_of(text_of(paths["events"])), paths

    def signal_in_step_2(self, process, jobs, signal_number):
        """The signal goes to the process that runs the file (the worker under -j) once step 1's event is out."""
        deadline = time.monotonic() + 120
        while time.monotonic() < deadline:
            runner = (children_of(process.pid) or [None])[0] if jobs else process.pid
            if runner and '"event":"step"' in self.events_so_far(runner, jobs) and '"step":1,' in self.events_so_far(runner, jobs):
                os.kill(runner, signal_number)
                return
            time.sleep(0.01)
        self.fail("step 1 never ended")

    @staticmethod
    def events_so_far(runner, jobs):
        return records_so_far(runner) if jobs else text_of(scratch("ending.events"))

    def ending_of(self, scenario, jobs, signal_number, how, exit_status, step_line):
        returncode, stdout, stderr, events, paths = self.run_ending(scenario, jobs, signal_number)
        files = self.check_run(events, 1 if jobs else exit_status)
        self.assertEqual(list(files), [scenario, self.after])
        end = files[scenario][-1]
        steps = [e for e in files[scenario] if e["event"] == "step"]
        ended = end["ended"]
        self.assertEqual((end["status"], ended["how"], steps[-1]["status"]), ("ended", how, "ended"))
        self.assertEqual(ended["step"], steps[-1]["step"])
        self.assertEqual(ended["at"], f"{scenario}:{steps[-1]['line']}")
        self.assertNotRegex(ended.get("last_error", ""), r"step \d+ .*: ok$")
        self.assertGreater(end["duration"], 0)
        self.assertEqual(files[self.after][-1]["status"], "passed" if jobs else "not_run")
        self.assertGreater(self.whole_records(text_of(paths["rec"])), 0)
        if not signal_number:  # the library's own endings keep the coverage of what ran before them
            covered = run("coverage", paths["coverage"]).stdout
            self.assertIn("\n  test_if ", covered)
            self.assertEqual("\n  nhgroup " in covered, bool(jobs))
        ending = (f"{scenario}: the run ended early with {how} in step {ended['step']} ({steps[-1]['label']}) at line "
                  f"{steps[-1]['line']}, after {plural(ended['step'] - 1, 'step')} ran")
        if jobs:
            self.check_reports_of_a_worker_s_end(returncode, stdout, stderr, paths["xml"], ending, ended)
            summary = stdout
        else:
            self.assertEqual(returncode, exit_status if exit_status < 128 else 128 - exit_status)
            self.assertEqual(stdout.count(": ok\n"), sum(s["status"] == "passed" for s in steps))  # none lost at the end
            if step_line:
                self.assertIn(f"{ended['at']}: step {ended['step']} {steps[-1]['label']}: {step_line}\n", stdout)
            summary = stdout + stderr
        summary = [l for l in summary.splitlines() if "planecheck: FAILED" in l][-1]
        self.assertIn(f", {plural(events[-1]['steps'], 'step')}, ", summary)
        last_error = re.sub(f"^{re.escape(scenario)}:[0-9]+: ", "", ended["last_error"])  # the summary names the ended step's line
        self.assertIn(f", 1 file ended early ({ended['at']}: {last_error})", summary)
        return {"how": ended["how"], "at": ended["at"], "last_error": ended.get("last_error"),
                "steps": [(s["step"], s["status"], s["label"]) for s in steps]}

    def check_reports_of_a_worker_s_end(self, returncode, stdout, stderr, junit, ending, ended):
        self.assertEqual(returncode, 1)
        self.assertNotIn(": ok\n", stderr)  # --tap leaves standard output to TAP and prints only the steps that did not pass
        self.assertIn(f"\n# {ending}\n", stdout)
        self.assertIn(f"\n# {ended['last_error']}\n", stdout)
        suites = ET.parse(junit).getroot()
        self.assertEqual(suites.get("failures"), "1")  # files, not steps
        (case, after) = suites.iter("testcase")
        self.assertIn(f"{ending}\n", case.find("failure").text)
        self.assertIn(ended["last_error"], case.find("failure").text)
        self.assertIn(f", ended early at {ended['at']}", case.find("system-out").text)
        self.assertEqual(after.get("name"), self.after)

    def test_each_ending_reads_the_same_in_the_process_and_in_a_worker(self):
        for scenario, signal_number, how, exit_status, step_line in self.rows:
            with self.subTest(how):
                endings = [self.ending_of(scenario, jobs, signal_number, how, exit_status, step_line) for jobs in (None, 2)]
                self.assertEqual(endings[0], endings[1])
                self.assertTrue(endings[0]["last_error"])

    def test_a_worker_killed_outright_ends_where_a_stopped_run_ends(self):
        stopped = self.ending_of(self.outside, None, signal.SIGTERM, "signal 15 (Terminated)", 143, None)
        killed = self.ending_of(self.outside, 2, signal.SIGKILL, "signal 9 (Killed)", 1, None)
        self.assertEqual({**killed, "how": stopped["how"]}, stopped)


class AStopSignal(EventChecks):
    def test_ends_the_running_file_after_whole_records_and_writes_every_output(self):
        """A small file is done while a long one runs; the stop ends the long one at its next safe point,
        serially and in the workers, and the run's outputs count what ran."""
        small, long_file, rec, path, junit, coverage = (
            scratch(n) for n in ("small.yaml", "long.yaml", "long.rec", "long.events", "long.xml", "long.cov"))
        create = "  - send: {{ test_if: [ {{ op: create, key_a: {} }} ] }}\n".format
        write(small, "steps:\n" + create(999999))
        write(long_file, "steps:\n" + "".join(create(i) for i in range(1, 300001)))
        for jobs in (["-j", "2"], []):
            with self.subTest(jobs=jobs):
                for stale in (path, junit, coverage):
                    if os.path.exists(stale):
                        os.unlink(stale)
                process = subprocess.Popen([PLANECHECK, "run", *jobs, "--recorder", rec, "--events", path, "--junit", junit,
                                            "--coverage", coverage, small, long_file],
                                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                deadline = time.monotonic() + 60
                while time.monotonic() < deadline and f'"file":"{small}","status"' not in text_of(path):
                    time.sleep(0.05)
                time.sleep(0.1)
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(timeout=60), -signal.SIGTERM)
                end = self.check_run(events_of(text_of(path)), 128 + signal.SIGTERM)[long_file][-1]  # run_end adds up the files
                self.assertEqual((end["status"], end["ended"]["how"]), ("ended", "signal 15 (Terminated)"))
                self.assertGreater(end["steps"], 0)
                self.assertEqual(ET.parse(junit).getroot().get("failures"), "1")
                self.assertIn('"test_if"', text_of(coverage))
                recorded = text_of(rec)
                self.assertTrue(1 < self.whole_records(recorded) < 300001)
                self.assertEqual(recorded.find('"key_a": 999999,'), recorded.find('"key_a"'))  # the small file's record first

    def test_that_breaks_off_opening_a_file_ends_the_run_not_the_file(self):
        """A file that blocks on open (a pipe nobody writes): the stop's interrupted open is no file error."""
        first, fifo, last, path = scratch("before.yaml"), scratch("blocked.yaml"), scratch("after.yaml"), scratch("fifo.events")
        write(first, "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n")
        write(last, "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n")
        if os.path.exists(fifo):
            os.unlink(fifo)
        os.mkfifo(fifo)
        for jobs in ([], ["-j", "1"]):
            with self.subTest(jobs=jobs):
                process = subprocess.Popen([PLANECHECK, "run", *jobs, "--events", path, first, fifo, last],
                                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                deadline = time.monotonic() + 60
                while time.monotonic() < deadline and f'"file":"{first}","status"' not in text_of(path):
                    time.sleep(0.05)
                time.sleep(0.5)  # the next file's open now waits for a writer
                process.send_signal(signal.SIGTERM)
                output = process.communicate(timeout=60)[0]
                self.assertEqual(process.returncode, -signal.SIGTERM, output)
                self.assertNotIn("Interrupted system call", output)
                files = self.check_run(events_of(text_of(path)), 128 + signal.SIGTERM)
                self.assertEqual([files[f][-1]["status"] for f in (first, fifo, last)], ["passed", "ended", "not_run"])


TAP_COUNTS = ('local $/; my $p = TAP::Parser->new({tap => <STDIN>}); 1 while $p->next; '
              'printf "%d %d %d %d %d %d\\n", $p->tests_run, scalar($p->passed), scalar($p->failed), scalar($p->todo), '
              'scalar($p->skipped), scalar($p->parse_errors); print "$_\\n" for $p->parse_errors;')


def tap_counts(tap):
    """tests run, passed, failed, todo, skipped and parse errors, as Perl's TAP::Parser reads the stream."""
    stream = tap if isinstance(tap, bytes) else tap.encode()  # TAP is bytes: a file name need not be UTF-8
    read = subprocess.run(["perl", "-MTAP::Parser", "-e", TAP_COUNTS], input=stream, capture_output=True)
    return read.stdout.decode().splitlines()[0]


class SkippedIsNotPassed(EventChecks):
    IDLE = "steps:\n  - send: { l3intf: [ { op: create, intf: 1 } ] }\n"
    MIXED = "steps:\n  - send: { l3intf: [ { op: create, intf: 1 } ] }\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"

    def run_with_reports(self, name, files, *options):
        events, junit = scratch(name + ".jsonl"), scratch(name + ".xml")
        out = run("run", "--events", events, "--junit", junit, "--tap", *options, *files)
        return out, events_of(text_of(events)), ET.parse(junit).getroot()

    def test_a_file_that_ran_nothing_is_skipped_in_every_output_beside_files_that_ran(self):
        idle, mixed = write(scratch("idle.yaml"), self.IDLE), write(scratch("mixed.yaml"), self.MIXED)
        for jobs in ("0", "2"):
            with self.subTest(jobs=jobs):
                out, events, junit = self.run_with_reports("skipped" + jobs, [idle, mixed, EXAMPLES[0]], "-j", jobs) \
                    if jobs != "0" else self.run_with_reports("skipped0", [idle, mixed, EXAMPLES[0]])
                self.assertEqual(out.returncode, 0, out.stderr)
                files = self.check_run(events, 0)
                self.assertEqual(files[idle][-1]["status"], "skipped")
                self.assertIn("step 1 send l3intf: inactive while object_set is 0: nothing ran", files[idle][-1]["reason"])
                self.assertEqual(files[mixed][-1]["status"], "passed")
                self.assertEqual((events[-1]["skipped_files"], events[-1]["verdict"]), (1, "passed"))
                cases = {c.get("name"): c for c in junit.iter("testcase")}
                self.assertEqual(junit.find("testsuite").get("skipped"), "1")
                self.assertIn("nothing ran", cases[idle].find("skipped").get("message"))
                self.assertIsNone(cases[mixed].find("skipped"))
                self.assertIn("step 1 (line 2) send l3intf: not run", cases[mixed].find("system-out").text)
                self.assertEqual(tap_counts(out.stdout), "3 3 0 0 1 0", out.stdout)
                self.assertIn("1 file skipped (nothing ran)", out.stdout)

    def test_a_run_of_only_skipped_files_fails_unless_allowed_and_an_empty_shard_passes(self):
        idle = write(scratch("idle.yaml"), self.IDLE)
        page = scratch("skipped.html")
        for allowed, status in (((), 1), (("--allow-skipped",), 0)):
            with self.subTest(allowed=allowed):
                out, events, _ = self.run_with_reports("only_skipped", [idle], *allowed)
                self.assertEqual(out.returncode, status, out.stdout + out.stderr)
                self.assertEqual((events[-1]["verdict"], events[-1]["exit_status"]), ("skipped", status))
                self.assertIn("planecheck: SKIPPED: 1 file", out.stdout)
                self.assertEqual(run("report", scratch("only_skipped.jsonl"), "--html", page).returncode, status)
        empty = run("run", "--shard", "3/3", idle, EXAMPLES[0])
        self.assertEqual(empty.returncode, 0, empty.stderr)
        self.assertIn("shard 3/3 has no files: the run has 2 files", empty.stderr)
        self.assertIn("PASSED: 0 files", empty.stdout)


def subtests(tap):
    """Each "# Subtest: NAME" block of a TAP stream, its lines taken out of their indent."""
    blocks, current = {}, None
    for line in tap.splitlines():
        if line.startswith("    # Subtest: "):
            current = blocks.setdefault(line[len("    # Subtest: "):], [])
        elif line.startswith("    ") and current is not None:
            current.append(line[4:])
        else:
            current = None
    return {name: "\n".join(lines) + "\n" for name, lines in blocks.items()}


class StepsAsTestCases(EventChecks):
    """--junit-steps and --tap-steps: a test case per step, with the step's own findings."""
    MISMATCH = os.path.join(SCENARIOS, "mismatch.yaml")
    ACCOUNTED = os.path.join(SCENARIOS, "expected_mismatch.yaml")
    INACTIVE = os.path.join(SCENARIOS, "inactive.yaml")
    FILES = [os.path.join(SOURCE, "examples", "hello.yaml"), MISMATCH, ACCOUNTED, INACTIVE, INVALID[0], ENDED_BY_EXIT]

    @classmethod
    def setUpClass(cls):
        cls.junit, ev = scratch("steps.xml"), scratch("steps.jsonl")
        cls.out = run("run", "--junit", cls.junit, "--junit-steps", "--tap-steps", "--events", ev, *cls.FILES)
        cls.files = by_file(events_of(text_of(ev)))
        cls.steps = {f: [e for e in events if e["event"] == "step"] for f, events in cls.files.items()}

    def test_junit_has_a_suite_per_file_and_a_case_per_step(self):
        self.assertEqual(self.out.returncode, 2, self.out.stderr)
        root = ET.parse(self.junit).getroot()
        suites = root.findall("testsuite")
        self.assertEqual([s.get("name") for s in suites], self.FILES)
        for suite in suites:
            path, cases = suite.get("name"), suite.findall("testcase")
            steps = self.steps[path]
            names = [f"step {s['step']} {s['label']} (line {s['line']})" for s in steps]
            self.assertEqual([c.get("name") for c in cases[:len(steps)]], names, path)
            self.assertTrue(all(c.get("classname") == path for c in cases), path)
            self.assertEqual(int(suite.get("tests")), len(cases), path)
            self.assertEqual(int(suite.get("failures")), sum(c.find("failure") is not None for c in cases), path)
        self.assertEqual(int(root.get("tests")), sum(len(s.findall("testcase")) for s in suites))

        cases = {(c.get("classname"), c.get("name")): c for c in root.iter("testcase")}
        failed = cases[(self.MISMATCH, "step 2 send test_if (line 5)")].find("failure")
        self.assertEqual(failed.get("message"), f"{self.MISMATCH}:6: dpa_test_if_create: EEXIST, received 17 expected 0")
        self.assertIsNone(cases[(self.MISMATCH, "step 1 send test_if (line 4)")].find("failure"))
        third = cases[(self.MISMATCH, "step 3 send test_if (line 7)")].find("failure").text
        self.assertNotIn("EEXIST", third, "each step carries its own findings only")
        self.assertIn("attr_a1", third)
        # the file passes, so do the steps whose mismatches the expect: accounted for
        accounted = cases[(self.ACCOUNTED, "step 1 send test_if (line 3)")]
        self.assertIsNone(accounted.find("failure"))
        self.assertIn("accounted for by the next expect: step", accounted.find("system-out").text)
        self.assertIsNotNone(cases[(self.INACTIVE, "step 2 send ipnh (line 4)")].find("skipped"))
        # no step tells why an invalid file failed: the file's own case does
        self.assertIn("bad_yaml.yaml", cases[(INVALID[0], INVALID[0])].find("failure").get("message"))
        ended = cases[(ENDED_BY_EXIT, "step 2 send test_iff (line 4)")].find("failure")
        self.assertIn("the run ended early with exit status 1", ended.get("message"))

    def test_tap_subtests_are_read_as_tap_with_the_step_counts(self):
        self.assertEqual(tap_counts(self.out.stdout), f"{len(self.FILES)} 2 4 0 0 0", self.out.stdout)
        blocks = subtests(self.out.stdout)
        self.assertEqual(set(blocks), {f for f in self.FILES if self.steps[f]})
        for path, block in blocks.items():
            steps = self.steps[path]
            failed = sum(s["status"] in ("failed", "ended", "invalid") for s in steps)
            accounted = failed if path == self.ACCOUNTED else 0
            skipped = sum(s["status"] == "not_run" for s in steps)
            expected = f"{len(steps)} {len(steps) - failed + accounted} {failed - accounted} {accounted} {skipped} 0"
            self.assertEqual(tap_counts(block), expected, block)
        self.assertIn("    not ok 2 - step 2 send test_if (line 5)\n    # " + self.MISMATCH + ":6: dpa_test_if_create: EEXIST",
                      self.out.stdout)


class HostileText(EventChecks):
    def test_names_and_findings_cannot_break_the_tap_stream(self):
        """A "#" in a file name is no TODO, and a line break in a name or a finding starts no test point."""
        with open(FAILING[0]) as f:
            failing = f.read()
        hashed = write(scratch("a # TODO b.yaml"), failing)
        broken = write(scratch("line\nok 7 - break.yaml"), "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n")
        injected = write(scratch("injected.yaml"), 'steps:\n  - send: { "x\\nnot ok 9 - injected\\nBail out!": [ {} ] }\n')
        out = run("run", "-j", "2", "--tap", hashed, broken, injected)
        self.assertEqual(out.returncode, 1, out.stderr)
        self.assertEqual(tap_counts(out.stdout), "3 1 2 0 0 0", out.stdout)
        self.assertIn("a \\# TODO b.yaml", out.stdout)
        self.assertIn(":2: unknown table x\\nnot ok 9 - injected\\nBail out!\n", out.stdout)


CARRIED = re.compile("[\uef00-\uef1f\uef80-\uefff]")


def original_bytes(text):
    """The bytes a JSON or XML text stands for: U+EF00 + a byte carries a byte the form cannot."""
    return b"".join(bytes([ord(c) - 0xEF00]) if CARRIED.match(c) else c.encode("utf-8", "surrogateescape") for c in text)


def chromium():
    for path in (os.environ.get("PC_CHROMIUM"), "/usr/bin/chromium", "/usr/bin/chromium-browser"):
        if path and os.access(path, os.X_OK):
            return path
    return None


def browser_dom(page):
    """The page's DOM after its scripts ran in headless Chromium, and the script errors it logged."""
    profile = scratch("chromium-profile")
    out = subprocess.run([chromium(), "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                          "--disable-background-networking", "--disable-component-update", "--disable-sync",
                          "--user-data-dir=" + profile, "--enable-logging=stderr", "--v=0", "--virtual-time-budget=5000",
                          "--dump-dom", "file://" + page], capture_output=True, text=True, timeout=120)
    errors = [line for line in out.stderr.splitlines() if "ERROR:CONSOLE" in line or "Uncaught" in line]
    return out.stdout, errors


class HostileNamesInEveryOutput(EventChecks):
    """Names and values no format may be broken by, through --tap, --junit, --events and --html, read
    back whole by the readers CI uses: Perl's TAP::Parser, Python's XML and JSON, the page in Chromium."""
    NAMES = [b"line\nbreak # TODO <b>.yaml", b"latin1 \xe9\xff.yaml", "rtl \u202egnp.yaml".encode(),
             b"ctl \x01\x1b.yaml", "genuine \uef80.yaml".encode()]
    SCENARIO_NAME = "evil\\nname # SKIP </script><!-- \u202e bidi"
    LONG_TEXT = "k" * 100_000 + "</script># \n not ok 9 \u202e"

    def scenarios(self):
        folder = os.fsencode(scratch("hostile"))
        os.makedirs(folder, exist_ok=True)
        paths = []
        for number, name in enumerate(self.NAMES):
            failing = number % 2 == 0  # every other file fails, with a 100 kB finding that names what it expected
            path = os.path.join(folder, name)
            with open(path, "w", encoding="utf-8") as f:
                f.write('name: "%s"\nsteps:\n  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 } ] }\n' % self.SCENARIO_NAME)
                if failing:
                    f.write("  - expect: { findings: [ { attribute: %s } ] }\n" % json.dumps(self.LONG_TEXT))
            paths.append(path)
        return paths

    def test_every_output_reads_back_whole(self):
        paths = self.scenarios()
        events, junit, page = scratch("hostile.jsonl"), scratch("hostile.xml"), scratch("hostile.html")
        out = subprocess.run([os.fsencode(PLANECHECK), b"run", b"-j", b"2", b"--tap", b"--events", os.fsencode(events),
                              b"--junit", os.fsencode(junit), b"--html", os.fsencode(page), *paths], capture_output=True, timeout=300)
        self.assertEqual(out.returncode, 1, out.stderr[-2000:])
        failing = (len(paths) + 1) // 2
        self.assertEqual(tap_counts(out.stdout), f"{len(paths)} {len(paths) - failing} {failing} 0 0 0")

        with open(events, encoding="utf-8") as f:  # valid UTF-8 JSON throughout
            stream = events_of(f.read())
        files = by_file(stream)
        self.assertEqual(sorted(original_bytes(name) for name in files), sorted(paths))
        starts = [e for e in stream if e["event"] == "file_start"]
        self.assertEqual({e["name"] for e in starts}, {self.SCENARIO_NAME.replace("\\n", "\n")})
        long_findings = [e["text"] for e in stream if e["event"] == "finding" and self.LONG_TEXT in e["text"]]
        self.assertEqual(len(long_findings), failing)

        cases = ET.parse(junit).getroot().findall(".//testcase")
        self.assertEqual(sorted(original_bytes(c.get("name")) for c in cases), sorted(paths))
        failures = [c.find("failure") for c in cases if c.find("failure") is not None]
        self.assertEqual(len(failures), failing)
        self.assertTrue(all(self.LONG_TEXT in f.text for f in failures))

        if not chromium():
            self.skipTest("no Chromium: the page is not read back")
        dom, errors = browser_dom(page)
        self.assertEqual(errors, [])
        self.assertIn('data-ready="true"', dom)
        self.assertEqual(dom.count('data-file="'), len(paths))
        self.assertIn("latin1 \\xe9\\xff.yaml", dom)  # bytes that are not UTF-8 shown as \xNN
        self.assertIn("ctl \\x01\\x1b.yaml", dom)
        self.assertIn("rtl \u202egnp.yaml", dom)
        self.assertIn("&lt;/script&gt;", dom)  # text, never markup
        self.assertGreaterEqual(dom.count(self.LONG_TEXT.replace("<", "&lt;").replace(">", "&gt;")), failing)


GRACE = 2  # seconds a worker stopped by the time limit has before it is killed


def holds(pid, path):
    """Whether process `pid` has `path` open."""
    try:
        return any(os.readlink(f"/proc/{pid}/fd/{fd}") == os.path.abspath(path) for fd in os.listdir(f"/proc/{pid}/fd"))
    except OSError:
        return False


def fresh_fifo(path):
    if os.path.exists(path):
        os.unlink(path)
    os.mkfifo(path)
    return path


def hold_until_reader_gone(fd):
    """Keeps the write end open, writing nothing, until the reader (a worker) is gone."""
    poller = select.poll()
    poller.register(fd, select.POLLERR)
    poller.poll(120_000)
    os.close(fd)


def feed(fifo, attempts):
    """A writer for each reader that opens `fifo` in turn: None holds it open with nothing (the run hangs there until
    the reader is gone), a text is written whole. Each opening waits for the reader before it is gone, so attempts
    never share a reader."""
    def writer():
        for text in attempts:
            fd = os.open(fifo, os.O_WRONLY)
            if text is None:
                hold_until_reader_gone(fd)
            else:
                os.write(fd, text.encode())
                os.close(fd)
    thread = threading.Thread(target=writer, daemon=True)
    thread.start()
    return thread


def slow_steps(path, count, config=""):
    """`count` steps of 100 ms each, a line each, whatever the machine's speed: an update of the ACL statistics
    type waits that long when the config's wait is 1. Each update finds no entry: a mismatch a step.
    Returns the path and the line of step 1."""
    header = f"config:\n  wait: 1\n{config}steps:\n"
    steps = "".join(f"  - send: {{ ingaclstats: [ {{ op: update, acl_id: {s}, seq_num: 1 }} ] }}\n" for s in range(count))
    return write(path, header + steps), header.count("\n") + 1


PASSING = "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
FAILING_STEP = "steps:\n  - send: { test_if: [ { op: delete, key_a: 424242 } ] }\n"


class LimitsOfARun(EventChecks):
    """Against a device a platform call may hang and devices flake: a file that outruns its time is ended as timed out
    while the others run, a failed file runs again and passes as flaky, and --max-fail starts no file once enough
    failed; every output tells the same."""

    def run_with_reports(self, name, files, *options):
        events, junit = scratch(name + ".jsonl"), scratch(name + ".xml")
        started = time.monotonic()
        out = run("run", "--events", events, "--junit", junit, "--tap", *options, *files)
        return out, time.monotonic() - started, self.check_run(events_of(text_of(events)), out.returncode), ET.parse(junit).getroot()

    @staticmethod
    def case(junit, path):
        return next(c for c in junit.iter("testcase") if c.get("name") == path)

    def test_a_file_that_outruns_its_time_is_timed_out_at_its_line_and_the_others_run(self):
        first, last = write(scratch("limit-first.yaml"), PASSING), write(scratch("limit-last.yaml"), PASSING)
        long, step_1 = slow_steps(scratch("limit-long.yaml"), 100)  # ten seconds of steps
        for jobs in ([], ["-j", "2"]):
            with self.subTest(jobs=jobs):
                hung = fresh_fifo(scratch("limit-hung.yaml"))
                feed(hung, [None])
                out, took, files, junit = self.run_with_reports("limit", [first, long, hung, last], "-q", "--timeout", "1.5", *jobs)
                self.assertEqual(out.returncode, 1, out.stderr)
                ends = {f: files[f][-1] for f in files}
                self.assertEqual([ends[f]["status"] for f in (first, long, hung, last)], ["passed", "timed_out", "timed_out", "passed"])
                # the step running (or the last begun) when the limit came
                self.assertGreater(ends[long]["steps"], 1)
                at_line = step_1 + ends[long]["steps"] - 1
                self.assertEqual(ends[long]["ended"]["at"], f"{long}:{at_line}")
                self.assertEqual(ends[long]["ended"]["how"], "timeout of 1.5 s")
                self.assertEqual(ends[hung]["ended"]["at"], hung)  # it never got to a step
                for f in (long, hung):
                    self.assertLess(ends[f]["duration"], (1.5 + GRACE + 1) * 1000, f)
                    self.assertGreaterEqual(ends[f]["duration"], 1500, f)
                self.assertLess(took, 2 * (1.5 + GRACE) + 10)
                self.assertNotIn("attempts", ends[long])
                summary = out.stdout.strip().splitlines()[-1]
                self.assertIn(f"2 files timed out ({ends[long]['ended']['at']} after ", summary)
                message = self.case(junit, long).find("failure").get("message")
                self.assertRegex(message, rf"^{re.escape(long)}: timed out after \d+\.\d s \(timeout of 1.5 s\) "
                                          rf"(in step \d+ \(send ingaclstats\) at|after \d+ steps ran, at) line {at_line}")
                self.assertEqual(tap_counts(out.stdout), "4 2 2 0 0 0")

    def test_a_scenario_s_own_timeout_wins_over_the_run_s(self):
        unlimited, _ = slow_steps(scratch("limit-unlimited.yaml"), 5, "  timeout: 0\n")
        limited, _ = slow_steps(scratch("limit-limited.yaml"), 100, "  timeout: 0.3\n")
        out, _, files, _ = self.run_with_reports("limit-own", [unlimited, limited], "-q", "--timeout", "0.001", "--slow", "0.001")
        ends = {f: files[f][-1] for f in files}
        self.assertEqual(ends[unlimited]["status"], "failed", out.stderr)  # its mismatches: it ran to its end
        self.assertEqual(ends[unlimited]["steps"], 5)
        self.assertEqual((ends[limited]["status"], ends[limited]["ended"]["how"]), ("timed_out", "timeout of 0.3 s"))
        # --slow marks both in the events and the summary
        self.assertTrue(ends[unlimited]["slow"] and ends[limited]["slow"])
        self.assertIn(f"2 files slow ({unlimited} ", out.stdout.strip().splitlines()[-1])
        self.assertEqual(run("check", unlimited).returncode, 0)  # a config key check knows
        bad = write(scratch("limit-bad.yaml"), "config:\n  timeout: soon\n" + PASSING)
        self.assertIn("timeout: is a number of seconds", run("run", bad).stderr)

    def test_a_file_that_fails_then_passes_on_a_retry_is_flaky_in_every_output(self):
        always = write(scratch("retry-always.yaml"), FAILING_STEP)
        invalid = write(scratch("retry-invalid.yaml"), "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ]\n")
        for no_flaky in (False, True):
            with self.subTest(no_flaky=no_flaky):
                flaky = fresh_fifo(scratch("retry-flaky.yaml"))
                writer = feed(flaky, [None, PASSING])  # the first attempt hangs, the second passes
                options = ["--retries", "2", "--timeout", "0.5"] + (["--no-flaky"] if no_flaky else [])
                out, _, files, junit = self.run_with_reports("retry", [flaky, always, invalid], *options)
                writer.join(timeout=60)
                ends = {f: files[f][-1] for f in files}
                self.assertEqual(ends[flaky]["status"], "failed" if no_flaky else "flaky", out.stderr)
                self.assertEqual(ends[flaky]["attempts"], 2)
                self.assertEqual(len(ends[flaky]["failed_attempts"]), 1)
                self.assertIn("timed out after", ends[flaky]["failed_attempts"][0])
                # every attempt fails: three of them; an invalid file would only fail again
                self.assertEqual((ends[always]["status"], ends[always]["attempts"]), ("failed", 3))
                self.assertEqual(ends[invalid]["status"], "invalid")
                self.assertNotIn("attempts", ends[invalid])
                case = self.case(junit, flaky)
                self.assertEqual(len(case.findall("flakyFailure")), 0 if no_flaky else 1)
                self.assertEqual(case.find("failure") is not None, no_flaky)
                self.assertEqual(len(self.case(junit, always).findall("rerunFailure")), 2)
                summary = out.stderr.strip().splitlines()[-1] if not out.stdout else out.stdout.strip().splitlines()[-1]
                self.assertEqual("1 file flaky (passed on a retry)" in summary, not no_flaky, summary)
                self.assertEqual(files and json.loads(text_of(scratch("retry.jsonl")).splitlines()[-1]).get("flaky_files"),
                                 None if no_flaky else 1)
                self.assertIn(f"{flaky}: attempt 1 of 3 failed: ", out.stderr)

    def test_a_retry_runs_on_a_worker_that_ran_nothing_before(self):
        """Attempt 1 fails with a mismatch and attempt 2 passes; each attempt's reader of the pipe is its worker."""
        fifo = fresh_fifo(scratch("retry-fresh.yaml"))
        events = scratch("retry-fresh.jsonl")
        process = subprocess.Popen([PLANECHECK, "run", "--retries", "1", "--events", events, fifo],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        readers = []

        def reader():
            deadline = time.monotonic() + 60
            while time.monotonic() < deadline:
                for child in children_of(process.pid):
                    if holds(child, fifo):
                        return child
                time.sleep(0.01)
            raise AssertionError("no worker opened the pipe")

        def writer():
            for text in (FAILING_STEP, PASSING):
                fd = os.open(fifo, os.O_WRONLY)
                readers.append(reader())
                os.write(fd, text.encode())
                os.close(fd)
                while holds(readers[-1], fifo):  # the next opening is the next attempt's
                    time.sleep(0.01)
        thread = threading.Thread(target=writer, daemon=True)
        thread.start()
        out, err = process.communicate(timeout=120)
        thread.join(timeout=10)
        self.assertEqual(process.returncode, 0, err)
        end = events_of(text_of(events))[-2]
        self.assertEqual((end["status"], end["attempts"], end["failed_attempts"]),
                         ("flaky", 2, ["1 step, 1 mismatch, 0 value errors"]))
        self.assertEqual(len(readers), 2)
        self.assertNotEqual(readers[0], readers[1])
        self.assertIn("1 file flaky (passed on a retry)", out)

    def test_max_fail_starts_no_file_once_enough_failed_and_the_rest_are_not_run(self):
        # the first file runs long, so that under -j 2 the second fails while the first still runs
        long = ", ".join(f"{{ op: create, key_a: {i} }}" for i in range(1, 50001))
        files = [write(scratch(f"max-fail-{i}.yaml"), f"steps:\n  - send: {{ test_if: [ {long} ] }}\n" if i == 0 else
                       FAILING_STEP if i == 1 else PASSING)
                 for i in range(10)]
        for options in (["--max-fail", "1"], ["-x"], ["--max-fail", "1", "-j", "2"]):
            with self.subTest(options=options):
                out, _, told, junit = self.run_with_reports("max-fail", files, "-q", *options)
                self.assertEqual(out.returncode, 1, out.stderr)
                statuses = [told[f][-1]["status"] for f in files]
                self.assertEqual(statuses[:2], ["passed", "failed"])
                self.assertEqual(statuses[2:], ["not_run"] * 8, statuses)
                not_run = 8
                for f in files[2:]:
                    self.assertEqual(told[f][-1]["reason"], "not run: --max-fail 1 reached")
                self.assertEqual(int(junit.find("testsuite").get("skipped")), not_run)
                self.assertEqual(tap_counts(out.stdout), f"10 9 1 0 {not_run} 0")
                self.assertIn(f"{plural(not_run, 'file')} not run", out.stdout.strip().splitlines()[-1])


if __name__ == "__main__":
    unittest.main(verbosity=2)
