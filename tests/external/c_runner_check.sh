#!/usr/bin/env bash
# Builds examples/c_runner/runner.c against an installed planecheck under PREFIX, runs SCENARIO
# through it and through the installed command, and compares: the recorder byte for byte (times
# aside, which differ from run to run), the exit status, and the events (times and durations aside).
# usage: c_runner_check.sh PREFIX WORK SCENARIO
set -euo pipefail
prefix=$(realpath "$1")
work=$(realpath -m "$2")
scenario=$(realpath "$3")
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work" && mkdir -p "$work"
fail() { echo "c_runner: $*" >&2; exit 1; }

libdir=$(dirname "$(find "$prefix" -name libplanecheck_runner.so | head -1)")
cc -std=c11 -Wall -Wextra -Werror "$here/../../examples/c_runner/runner.c" -I"$prefix/include" -L"$libdir" \
   -lplanecheck_runner -Wl,-rpath,"$libdir" -o "$work/runner"

set +e
"$work/runner" --recorder "$work/runner.rec" --events "$work/runner.events" "$scenario" >"$work/runner.out" 2>&1
runner_status=$?
"$prefix/bin/planecheck" run --recorder "$work/command.rec" --events "$work/command.events" "$scenario" >"$work/command.out" 2>&1
command_status=$?
set -e
[ "$runner_status" = "$command_status" ] || fail "exit status $runner_status, the command's $command_status"
grep -q "send test_if" "$work/runner.out" || { cat "$work/runner.out"; fail "no step lines"; }
grep -q "sdk_side.yaml: passed (0 mismatches, 0 value errors)" "$work/runner.out" || { cat "$work/runner.out"; fail "no verdict from the callback"; }

without_times() { sed -E 's/("tv_n?sec": )[0-9]+/\1T/' "$1"; }
cmp <(without_times "$work/runner.rec") <(without_times "$work/command.rec") || fail "the recorders differ"
[ -s "$work/runner.rec" ] || fail "the recorder is empty"

/usr/bin/python3 - "$work/runner.events" "$work/command.events" "$work/runner.rec" <<'PY' || fail "the events differ"
import json, sys
def events(path):
    out = []
    for line in open(path):
        e = json.loads(line)
        for varying in ("time", "duration", "command", "options", "files", "run_id"):
            e.pop(varying, None)
        out.append(e)
    return out
runner, command = events(sys.argv[1]), events(sys.argv[2])
# the byte ranges hold the records: they follow each other up to the end of the recorder
ranges = [e.pop("records") for e in runner if "records" in e]
assert ranges and ranges[0]["start"] == 0, ranges
assert all(a["end"] == b["start"] for a, b in zip(ranges, ranges[1:])), ranges
with open(sys.argv[3], "rb") as f:
    assert ranges[-1]["end"] == len(f.read()), ranges
for e in command:
    e.pop("records", None)
kinds = {e["event"] for e in runner}
assert {"run_start", "file_start", "step", "file_end", "run_end"} <= kinds, kinds
step_kinds = {e["kind"] for e in runner if e["event"] == "step"}
assert {"send", "dump", "expect"} <= step_kinds, step_kinds
if runner != command:
    for a, b in zip(runner, command):
        if a != b:
            print("runner: ", a, "\ncommand:", b, sep="")
            break
    sys.exit(1)
PY
# A file the library ends among others: in a worker the run goes on; in this process the files
# after it are reported as not run. Either way the library's exit status stands.
three=("$here/../../examples/sdk_side.yaml" "$here/../scenarios/unknown_table.yaml" "$here/../../examples/hello.yaml")
for where in workers in-process; do
  set +e
  "$work/runner" -q $([ "$where" = in-process ] && echo --in-process) "${three[@]}" >"$work/three.$where" 2>&1
  status=$?
  set -e
  [ "$status" = 1 ] || { cat "$work/three.$where"; fail "$where: exit status $status, not 1"; }
  grep -q "unknown_table.yaml: ended" "$work/three.$where" || { cat "$work/three.$where"; fail "$where: the ended file is not reported"; }
done
grep -q "hello.yaml: passed" "$work/three.workers" || { cat "$work/three.workers"; fail "workers: the file after the ended one did not run"; }
grep -q "hello.yaml: not_run (not run: the run ended in .*unknown_table.yaml:4)" "$work/three.in-process" ||
  { cat "$work/three.in-process"; fail "in-process: the file after the ended one is not reported as not run"; }

echo "c_runner: $(grep -c '"event":"step"' "$work/runner.events") steps of $(basename "$scenario") ran as the command runs them"
