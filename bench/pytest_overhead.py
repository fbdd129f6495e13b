#!/usr/bin/python3
"""What a scenario file costs under pytest beside a plain Python test.

Writes N small scenario files and N files of `def test(): pass` into a scratch folder, runs pytest
over each suite serially and with `-n 2`, interleaved round by round, and prints the medians and
the ratio scenario/Python for each mode (target: at most 2).
"""
import argparse
import os
import statistics
import subprocess
import sys
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
TARGET = 2.0

SCENARIO = """name: small {n}
steps:
  - send: {{ test_if: [ {{ op: create, key_a: {key}, attr_a1: 5 }} ] }}
  - send: {{ test_if: [ {{ op: get, key_a: {key}, attr_a1: 5 }} ] }}
  - send: {{ test_if: [ {{ op: delete, key_a: {key} }} ] }}
"""


def write_suites(folder: Path, files: int) -> dict:
    suites = {"scenarios": folder / "scenarios", "python": folder / "python"}
    for suite in suites.values():
        suite.mkdir(parents=True, exist_ok=True)
        for old in suite.iterdir():
            old.unlink()
    for n in range(files):
        (suites["scenarios"] / f"test_{n:05}.yaml").write_text(SCENARIO.format(n=n, key=n % 100 + 1))
        (suites["python"] / f"test_{n:05}.py").write_text("def test():\n    pass\n")
    return suites


def time_pytest(suite: Path, mode: list, env: dict) -> float:
    argv = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider",
            "-p", "planecheck.pytest_plugin", *mode, str(suite)]
    start = time.perf_counter()
    done = subprocess.run(argv, cwd=suite, env=env, capture_output=True, text=True)
    seconds = time.perf_counter() - start
    if done.returncode != 0:
        sys.exit(f"pytest failed on {suite}:\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return seconds


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--planecheck", default=str(SOURCE / "build" / "planecheck"))
    parser.add_argument("--dir", default=str(SOURCE / "build" / "bench-pytest"))
    parser.add_argument("--files", type=int, default=2000)
    parser.add_argument("--runs", type=int, default=3)
    args = parser.parse_args()

    suites = write_suites(Path(args.dir).resolve(), args.files)
    env = dict(os.environ, PYTHONPATH=str(SOURCE / "python"),
               PLANECHECK_COMMAND=os.path.abspath(args.planecheck))
    modes = {"serial": [], "-n 2": ["-n", "2"]}
    seconds = {(mode, suite): [] for mode in modes for suite in suites}
    for _ in range(args.runs):
        for mode, options in modes.items():
            for suite, folder in suites.items():  # side by side in each round: the load is shared
                seconds[(mode, suite)].append(time_pytest(folder, options, env))

    print(f"{args.files} files, medians of {args.runs}, load average {os.getloadavg()[0]:.1f}")
    print(f"{'mode':8} {'python s':>9} {'scenarios s':>12} {'ratio':>6}  target")
    for mode in modes:
        python = statistics.median(seconds[(mode, "python")])
        scenarios = statistics.median(seconds[(mode, "scenarios")])
        ratio = scenarios / python
        verdict = "met" if ratio <= TARGET else "MISSED"
        print(f"{mode:8} {python:9.2f} {scenarios:12.2f} {ratio:6.2f}  <= {TARGET} {verdict}")


if __name__ == "__main__":
    main()
