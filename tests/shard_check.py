#!/usr/bin/python3
"""A suite fanned out across CI executors: each executor's variables choose one shard, every file
runs in exactly one, the merged report equals the run of the whole suite, a missing shard is named
with its files, and hash partitions keep files in place as the suite grows. The recipes in docs/
are run as their jobs would run them.

usage: shard_check.py PLANECHECK SOURCE_DIR SCRATCH_DIR
"""
import glob
import json
import os
import re
import shutil
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ET

import yaml

PLANECHECK, SOURCE, SCRATCH = map(os.path.abspath, sys.argv[1:4])
del sys.argv[1:4]

PASSING = "steps:\n  - send: {{ test_if: [ {{ op: create, key_a: {} }} ] }}\n"
FAILING = "steps:\n  - send: {{ test_if: [ {{ op: delete, key_a: {} }} ] }}\n"  # nothing to delete: ENOENT
ENDED = "steps:\n  - send: { test_iff: [ { op: create, key_a: 1 } ] }\n"        # the library ends the run

# Each executor's variables for shard i (from 0) of n; Kubernetes gives the total through PLANECHECK_SHARDS.
EXECUTORS = {
    "Bazel": lambda i, n: {"TEST_SHARD_INDEX": str(i), "TEST_TOTAL_SHARDS": str(n)},
    "GoogleTest": lambda i, n: {"GTEST_SHARD_INDEX": str(i), "GTEST_TOTAL_SHARDS": str(n)},
    "GitLab": lambda i, n: {"CI_NODE_INDEX": str(i + 1), "CI_NODE_TOTAL": str(n)},
    "CircleCI": lambda i, n: {"CIRCLE_NODE_INDEX": str(i), "CIRCLE_NODE_TOTAL": str(n)},
    "Buildkite": lambda i, n: {"BUILDKITE_PARALLEL_JOB": str(i), "BUILDKITE_PARALLEL_JOB_COUNT": str(n)},
    "Kubernetes": lambda i, n: {"JOB_COMPLETION_INDEX": str(i), "PLANECHECK_SHARDS": str(n)},
}
EXECUTOR_VARIABLES = {name for make in EXECUTORS.values() for name in make(0, 1)} | {
    "TEST_SHARD_STATUS_FILE", "XML_OUTPUT_FILE", "PLANECHECK_RUN_ID"}


def scratch(*parts):
    path = os.path.join(SCRATCH, *parts)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    return path


def clean_env(**extra):
    """This process's environment without any executor's say, and `extra`: a test must not inherit a CI job's shard."""
    env = {k: v for k, v in os.environ.items() if k not in EXECUTOR_VARIABLES}
    env["PATH"] = os.path.dirname(PLANECHECK) + os.pathsep + env.get("PATH", "")
    env.update(extra)
    return env


def run(*args, env=None, cwd=None):
    return subprocess.run([PLANECHECK, *args], capture_output=True, text=True, timeout=300, env=env or clean_env(), cwd=cwd)


def make_suite(root, count):
    """`count` files in folders, every seventh failing and one the library ends; their paths below `root`."""
    shutil.rmtree(root, ignore_errors=True)
    names = []
    for k in range(count):
        name = os.path.join(f"area{k % 3}", f"case{k:02}.yaml")
        text = ENDED if k == 11 else (FAILING if k % 7 == 3 else PASSING).format(k + 1)
        with open(scratch(root, name), "w") as f:
            f.write(text)
        names.append(name)
    return sorted(names)


def events_of(path):
    with open(path) as f:
        return [json.loads(line) for line in f if line.strip()]


def ended_files(events):
    return [e["file"] for e in events if e["event"] == "file_end"]


def junit_cases(path):
    """Each test case of a JUnit file as (name, what it holds), times left out: two runs of one suite compare equal."""
    cases = []
    for case in ET.parse(path).getroot().iter("testcase"):
        parts = tuple((child.tag, child.get("message"), re.sub(r"\d+\.\d+ s\b", "T s", child.text or "")) for child in case)
        cases.append((case.get("name"), parts))
    return cases


class EveryExecutorsShards(unittest.TestCase):
    """N = 1..5 processes with each executor's variables: every file runs in exactly one shard, the merge equals the
    whole run, and with a shard's events left out the merge fails naming that shard and its files."""

    @classmethod
    def setUpClass(cls):
        cls.root = scratch("suite40")
        cls.names = make_suite(cls.root, 40)
        cls.whole_junit = scratch("whole.xml")
        cls.whole = run("run", "-q", "--junit", cls.whole_junit, cls.root)

    def run_shards(self, executor, n, *options):
        outputs = []
        for i in range(n):
            events = scratch("shards", f"{executor}-{n}-{i}.jsonl")
            env = clean_env(PLANECHECK_RUN_ID=f"{executor}-{n}", **EXECUTORS[executor](i, n))
            # in workers, as the whole run with --junit: a file the library ends leaves the rest of its shard to run
            out = run("run", "-q", "-j", "1", "--events", events, *options, self.root, env=env)
            self.assertIn(out.returncode, (0, 1), out.stderr)
            shard = f"{'hash:' if 'hash' in options else ''}{i + 1}/{n}"
            self.assertIn(f"(shard {shard} by {executor} (", out.stdout.splitlines()[-1])
            outputs.append(events)
        return outputs

    def test_each_file_runs_in_one_shard_and_the_merge_is_the_whole_run(self):
        expected_cases = junit_cases(self.whole_junit)
        for executor in EXECUTORS:
            for n in range(1, 6):
                with self.subTest(executor=executor, n=n):
                    streams = self.run_shards(executor, n)
                    ran = [f for s in streams for f in ended_files(events_of(s))]
                    self.assertEqual(sorted(ran), sorted(os.path.join(self.root, name) for name in self.names))
                    starts = [events_of(s)[0] for s in streams]
                    self.assertEqual({(s["shard"]["index"], s["shard"]["total"]) for s in starts}, {(i, n) for i in range(1, n + 1)})
                    self.assertEqual({s["suite"]["digest"] for s in starts}.__len__(), 1)
                    merged = scratch("shards", f"{executor}-{n}.xml")
                    report = run("report", "--junit", merged, *streams)
                    self.assertEqual(report.returncode, self.whole.returncode, report.stderr)
                    self.assertEqual(junit_cases(merged), expected_cases)

    def test_a_missing_shard_is_named_with_its_files_and_fails_the_merge(self):
        streams = self.run_shards("GitLab", 4, "--shard", "hash")
        lost = events_of(streams[2])
        lost_files = ", ".join(ended_files(lost))
        complete = run("report", "--html", scratch("complete.html"), *streams)
        self.assertNotIn("incomplete", complete.stderr)
        # the suite has a failing file: the verdict is failed either way; a passing selection shows the difference
        kept = streams[:2] + streams[3:]
        report = run("report", "--html", scratch("missing.html"), "--junit", scratch("missing.xml"), *kept)
        self.assertEqual(report.returncode, 1, report.stderr)
        self.assertIn(f"planecheck: the merge is incomplete: shard 3/4 is missing: its {len(ended_files(lost))} files never ran here: "
                      f"{lost_files}\n", report.stderr)
        with open(scratch("missing.html")) as f:
            self.assertIn("shard 3/4 is missing", f.read())
        passing = scratch("passing")
        for k in range(6):
            with open(scratch("passing", f"p{k}.yaml"), "w") as f:
                f.write(PASSING.format(k + 1))
        parts = [scratch("shards", f"passing-{i}.jsonl") for i in range(3)]
        for i, part in enumerate(parts):
            self.assertEqual(run("run", "-q", "--shard", f"{i + 1}/3", "--events", part, passing).returncode, 0)
        self.assertEqual(run("report", "--html", scratch("p.html"), *parts).returncode, 0)
        without = run("report", "--html", scratch("p.html"), parts[0], parts[2])
        self.assertEqual(without.returncode, 1, without.stderr)
        self.assertIn("shard 2/3 is missing: its 2 files never ran here", without.stderr)

    def test_shards_of_two_suites_or_a_shard_given_twice_do_not_merge(self):
        a = self.run_shards("CircleCI", 2)
        other = scratch("other")
        make_suite(other, 5)
        b = scratch("shards", "other-2.jsonl")
        run("run", "-q", "--shard", "2/2", "--events", b, other)
        mixed = run("report", "--html", scratch("mixed.html"), a[0], b)
        self.assertEqual(mixed.returncode, 1)
        self.assertIn(f"the events file {b} is shard 2/2 of another suite (5 files", mixed.stderr)
        self.assertIn("shard 2/2 is missing", mixed.stderr)
        again = scratch("shards", "again.jsonl")
        env = clean_env(PLANECHECK_RUN_ID="another", **EXECUTORS["CircleCI"](0, 2))
        run("run", "-q", "--events", again, self.root, env=env)
        twice = run("report", "--html", scratch("twice.html"), *a, again)
        self.assertEqual(twice.returncode, 1)
        self.assertIn(f"shard 1/2 is in two events files: {a[0]} and {again}", twice.stderr)
        self.assertRegex(twice.stderr, r"area\S+ was reported 2 times")


class StablePartitions(unittest.TestCase):
    """Under hash:I/N a file's shard depends on its name within the suite only: adding a file moves no other, and a
    suite run from another folder is partitioned the same."""

    def plan(self, root, mode="hash:1/4", cwd=None):
        out = run("run", "--list", "--json", "--shard", mode, root, cwd=cwd)
        self.assertEqual(out.returncode, 0, out.stderr)
        listed = json.loads(out.stdout)
        return {p["name"]: p["shard"] for p in listed["suite"]["plan"]}, listed

    def test_adding_a_file_to_a_thousand_moves_no_other(self):
        root = scratch("big")
        shutil.rmtree(root, ignore_errors=True)
        for k in range(1000):
            open(scratch("big", f"d{k % 10}", f"f{k:04}.yaml"), "w").close()
        before, listed = self.plan(root)
        self.assertEqual(listed["suite"]["size"], 1000)
        self.assertTrue(all(150 < list(before.values()).count(i) < 350 for i in range(1, 5)), before)
        self.assertEqual(listed["files"], [os.path.join(root, name) for name in sorted(before) if before[name] == 1])
        open(scratch("big", "d3", "f0500a.yaml"), "w").close()
        after, _ = self.plan(root)
        del after["d3/f0500a.yaml"]
        self.assertEqual(after, before)
        # by position, the same new file moves most of the files after it
        by_position, _ = self.plan(root, "1/4")
        os.remove(scratch("big", "d3", "f0500a.yaml"))
        before_position, _ = self.plan(root, "1/4")
        moved = sum(by_position[name] != before_position[name] for name in before_position)
        self.assertGreater(moved, 100)
        # the same suite from its parent folder: the same names, so the same shards and digest
        from_parent, listed_there = self.plan("big", cwd=SCRATCH)
        self.assertEqual(from_parent, before)
        self.assertEqual(listed_there["suite"]["digest"], listed["suite"]["digest"])

    def test_list_prints_the_shard_s_files_and_runs_none(self):
        root = scratch("listed")
        names = make_suite(root, 7)
        out = run("run", "--list", "--shard", "2/3", "--recorder", scratch("never.rec"), root)
        self.assertEqual(out.stdout.splitlines(), [os.path.join(root, n) for n in names[1::3]])
        self.assertFalse(os.path.exists(scratch("never.rec")))
        self.assertEqual(run("run", "--json", root).returncode, 2)  # --json is --list's


class RecipesInDocs(unittest.TestCase):
    """The GitLab and Kubernetes recipes of docs/, run as N jobs or pods would run them, then merged."""

    def code_blocks(self, doc, language):
        with open(os.path.join(SOURCE, "docs", doc)) as f:
            return re.findall(rf"```{language}\n(.*?)```", f.read(), re.S)

    def prepare(self, name):
        work = scratch("recipes", name)
        shutil.rmtree(work, ignore_errors=True)
        make_suite(os.path.join(work, "suite"), 12)
        os.makedirs(os.path.join(work, "results"))
        return work

    def shell(self, line, work, env):
        return subprocess.run(["bash", "-c", line], cwd=work, env=env, capture_output=True, text=True, timeout=300)

    def check_merged(self, work, report, n):
        self.assertEqual(report.returncode, 1, report.stderr)  # the suite has failing files
        self.assertNotIn("incomplete", report.stderr)
        merged = [c for c in ET.parse(glob.glob(os.path.join(work, "**", "merged.xml"), recursive=True)[0]).getroot().iter("testcase")]
        self.assertEqual(len(merged), 12, n)

    def test_a_gitlab_parallel_job(self):
        jobs = yaml.safe_load(self.code_blocks("gitlab.md", "yaml")[0])
        shard_script, = jobs["planecheck"]["script"]
        merge_script, = jobs["planecheck-report"]["script"]
        for n in range(1, 6):
            with self.subTest(n=n):
                work = self.prepare(f"gitlab-{n}")
                for index in range(1, n + 1):
                    env = clean_env(CI_NODE_INDEX=str(index), CI_NODE_TOTAL=str(n), CI_PIPELINE_ID=f"p{n}")
                    self.assertIn(self.shell(shard_script, work, env).returncode, (0, 1))
                self.check_merged(work, self.shell(merge_script, work, clean_env(CI_NODE_TOTAL="1")), n)

    def test_a_kubernetes_indexed_job(self):
        job = yaml.safe_load(self.code_blocks("kubernetes.md", "yaml")[0])
        container, = job["spec"]["template"]["spec"]["containers"]
        merge_line, = self.code_blocks("kubernetes.md", "sh")
        self.assertEqual(container["command"][:2], ["sh", "-c"])
        for n in range(1, 6):
            with self.subTest(n=n):
                work = self.prepare(f"kubernetes-{n}")
                for index in range(n):
                    env = clean_env(**{e["name"]: str(e["value"]) for e in container["env"]})
                    env.update(PLANECHECK_SHARDS=str(n), JOB_COMPLETION_INDEX=str(index))  # completions: n
                    self.assertIn(self.shell(container["command"][2], work, env).returncode, (0, 1))
                self.check_merged(work, self.shell(merge_line.strip(), work, clean_env()), n)


if __name__ == "__main__":
    unittest.main(verbosity=2)
