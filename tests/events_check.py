#!/usr/bin/python3
"""The event stream of `planecheck run --events` against its schema, and every other report of the
same run (JUnit, TAP, the summary line, the recorder) against the events.

usage: events_check.py PLANECHECK SOURCE_DIR SCRATCH_DIR
"""
import glob
import json
import os
import re
import signal
import subprocess
import sys
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
        self.assertEqual(events[-1]["failed_files"], sum(f[-1]["status"] != "passed" for f in files.values()))
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
        # a step whose mismatches a later expect: accounts for still failed; --strict adds the steps that
        # ran nothing, an ended file one for its end
        self.assertGreaterEqual(end["failed_steps"], sum(s["status"] == "failed" for s in steps), name)
        ran_short = sum(s["status"] in ("failed", "not_run") for s in steps) + (end["status"] == "ended")
        self.assertLessEqual(end["failed_steps"], ran_short, name)
        mismatch_findings = [e for e in file_events if e["event"] == "finding" and e["kind"] == "mismatch"]
        self.assertEqual(len(mismatch_findings), end["mismatches"], name)
        if end["status"] == "ended" and end["ended"]["step"]:  # else it ended between two steps
            self.assertEqual(steps[-1]["status"], "ended", name)
            self.assertEqual(end["ended"]["step"], steps[-1]["step"], name)
        if end["status"] == "invalid":
            self.assertIn("error", end)
        return end


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

    def test_the_library_s_exit_ends_the_file_and_the_run_in_the_events(self):
        out = run("run", "--events", "-", ENDED_BY_EXIT)
        events = events_of(out.stdout)
        self.assertEqual(out.returncode, 1)
        files = self.check_run(events, 1)
        end = files[ENDED_BY_EXIT][-1]
        self.assertEqual(end["status"], "ended")
        self.assertEqual(end["ended"]["how"], "exit status 1")
        self.assertIn("unknown table test_iff", end["ended"]["last_error"])
        self.assertEqual(end["ended"]["at"], f"{ENDED_BY_EXIT}:4")

    def test_an_assertion_ends_the_file_and_the_run_in_the_events(self):
        path = scratch("assert.events")
        out = run("run", "--events", path, ENDED_BY_ASSERTION)
        with open(path) as f:
            events = events_of(f.read())
        self.assertEqual(out.returncode, -6)
        files = self.check_run(events, 134)
        self.assertEqual(files[ENDED_BY_ASSERTION][-1]["ended"]["how"], "signal 6 (Aborted)")

    def test_a_stop_signal_ends_the_running_file_and_the_run_in_the_events(self):
        long_file, path = scratch("long.yaml"), scratch("long.events")
        with open(long_file, "w") as f:
            f.write("steps:\n" + "  - send: { test_if: [ { op: create, key_a: 1 }, { op: delete, key_a: 1 } ] }\n" * 200000)
        if os.path.exists(path):
            os.unlink(path)
        process = subprocess.Popen([PLANECHECK, "run", "--events", path, long_file], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and (not os.path.exists(path) or os.path.getsize(path) < 4000):
            time.sleep(0.05)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=60), -signal.SIGTERM)
        with open(path) as f:
            events = events_of(f.read())
        files = self.check_run(events, 128 + signal.SIGTERM)
        end = files[long_file][-1]
        self.assertEqual(end["ended"]["step"], 0)  # without a recorder, a stop comes between two steps
        self.assertEqual(end["status"], "ended")
        self.assertEqual(end["ended"]["how"], "signal 15 (Terminated)")
        self.assertGreater(end["steps"], 0)

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
        with open(cls.ev) as f:
            cls.events = events_of(f.read())
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
            self.assertEqual(case.find("failure") is not None, end["status"] != "passed", case.get("name"))
            self.assertAlmostEqual(float(case.get("time")), end["duration"] / 1000, delta=0.0015)

    def test_tap_agrees(self):
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


def long_second_step(path):
    """Step 1 logs a mismatch (the last error before the end); step 2 runs long enough for a signal to land in it."""
    creates = ", ".join(f"{{ op: create, key_a: {i} }}" for i in range(1, 200001))
    with open(path, "w") as f:
        f.write("steps:\n  - send: { test_if: [ { op: delete, key_a: 424242 } ] }\n"
                f"  - send: {{ test_if: [ {creates} ] }}\n  - send: {{ test_if: [ {{ op: get, key_a: 1 }} ] }}\n")


class EndingsAgreeSeriallyAndInWorkers(EventChecks):
    """However a file's run ends, the events count its ended step once, the totals add up, and the
    ending reads the same whether the file ran in the command's process or in a worker."""

    @classmethod
    def setUpClass(cls):
        cls.outside = scratch("outside.yaml")
        long_second_step(cls.outside)

    def run_ending(self, scenario, jobs, signal_number=None):
        events, rec = scratch("ending.events"), scratch("ending.rec")
        if os.path.exists(events):
            os.unlink(events)
        args = [PLANECHECK, "run", *(["-j", str(jobs)] if jobs else []), "--recorder", rec, "--events", events, scenario]
        process = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if signal_number:
            self.signal_in_step_2(process, jobs, signal_number)
        output = process.communicate(timeout=300)[0]
        with open(events) as f:
            return events_of(f.read()), output

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
        if jobs:
            return records_so_far(runner)
        try:
            with open(scratch("ending.events")) as f:
                return f.read()
        except FileNotFoundError:
            return ""

    def ending_of(self, events, output, scenario, jobs):
        files = self.check_run(events, events[-1]["exit_status"])
        file_events = files[scenario]
        end = file_events[-1]
        steps = [e for e in file_events if e["event"] == "step"]
        self.assertEqual(end["status"], "ended")
        self.assertEqual(end["steps"], len(steps))
        self.assertEqual(steps[-1]["status"], "ended")
        self.assertEqual(end["ended"]["step"], steps[-1]["step"])
        self.assertEqual(end["ended"]["at"], f"{scenario}:{steps[-1]['line']}")
        self.assertNotRegex(end["ended"].get("last_error", ""), r"step \d+ .*: ok$")
        self.assertGreater(end["duration"], 0)
        # serially the summary is told as the process ends, under -j when the run does: alike
        summary = [l for l in output.splitlines() if l.startswith("planecheck: FAILED")]
        self.assertRegex(summary[-1], rf", {events[-1]['steps']} steps?, ")
        return {"how": end["ended"]["how"], "at": end["ended"]["at"], "last_error": end["ended"].get("last_error"),
                "steps": [(s["step"], s["status"], s["label"]) for s in steps]}

    def test_each_ending_reads_the_same_in_both(self):
        cases = [("library exit", ENDED_BY_EXIT, None), ("assertion", ENDED_BY_ASSERTION, None),
                 ("signal from outside", self.outside, signal.SIGTERM)]
        for name, scenario, signal_number in cases:
            with self.subTest(name):
                endings = {}
                for jobs in (None, 2):
                    events, output = self.run_ending(scenario, jobs, signal_number)
                    endings[jobs] = self.ending_of(events, output, scenario, jobs)
                self.assertEqual(endings[None], endings[2])
                self.assertTrue(endings[None]["last_error"])

    def test_a_worker_killed_outright_ends_where_a_stopped_run_ends(self):
        stopped = self.ending_of(*self.run_ending(self.outside, None, signal.SIGTERM), self.outside, None)
        killed = self.ending_of(*self.run_ending(self.outside, 2, signal.SIGKILL), self.outside, 2)
        self.assertEqual(killed["how"], "signal 9 (Killed)")
        self.assertEqual({**killed, "how": stopped["how"]}, stopped)


if __name__ == "__main__":
    unittest.main(verbosity=2)
