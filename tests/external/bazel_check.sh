#!/usr/bin/env bash
# One offline `bazel test` of a planecheck_test with shard_count = 3, with the rules and stand-ins
# installed under PREFIX, the example workspace's WORKSPACE and the build tree's command: which
# shards fail, and which files each shard's JUnit report holds. Exits 77 (skipped) without bazel.
# usage: bazel_check.sh PREFIX PLANECHECK SOURCE_DIR WORK
set -euo pipefail
command -v bazel >/dev/null || { echo "bazel is not installed (make test installs bazel-bootstrap): skipped"; exit 77; }
rules=$(realpath "$1")/share/planecheck/bazel
planecheck=$(realpath "$2")
source_dir=$(realpath "$3")
work=$(realpath -m "$4")
workspace=$work/workspace
fail() { echo "bazel: $*" >&2; exit 1; }

[ -e "$rules/offline.bazelrc" ] || fail "no offline.bazelrc in $rules"
rm -rf "$workspace" && mkdir -p "$workspace/suite"
# The example's WORKSPACE finds the command on PATH; the suite names it by its path.
cp "$source_dir/examples/bazel/WORKSPACE" "$workspace/"
printf 'planecheck_command(name = "planecheck_by_path", path = "%s")\n' "$planecheck" >>"$workspace/WORKSPACE"
mkdir -p "$work/bin" && ln -sf "$planecheck" "$work/bin/planecheck"
echo "import $rules/offline.bazelrc" >"$workspace/.bazelrc"

# Shard I of 3 (from 0) takes positions I, I+3, ...: shard 0 passes, shard 1 holds a mismatch,
# shard 2 a file that the library ends (the file after it in the shard still runs). The srcs are
# not in name order, so a rule that sorted them would put files in other shards. The last file
# would fail shard 0, but the rule's args deselect it.
scenarios=$source_dir/tests/scenarios
cp "$scenarios/inject.yaml" "$workspace/suite/f_inject.yaml"
cp "$scenarios/mismatch.yaml" "$workspace/suite/b_mismatch.yaml"
cp "$scenarios/unknown_table.yaml" "$workspace/suite/a_unknown_table.yaml"
cp "$scenarios/clean.yaml" "$workspace/suite/e_clean.yaml"
cp "$scenarios/crud_client.yaml" "$workspace/suite/d_crud_client.yaml"
cp "$scenarios/crud_server.yaml" "$workspace/suite/c_crud_server.yaml"
cp "$scenarios/mismatch.yaml" "$workspace/suite/g_deselected.yaml"
# The example workspace's package beside it: its files all pass, in three shards.
mkdir -p "$workspace/example"
cp -r "$source_dir/examples/bazel/BUILD" "$source_dir/examples/bazel/scenarios" "$workspace/example/"
cat >"$workspace/BUILD" <<'EOF'
load("@planecheck_rules//:planecheck.bzl", "planecheck_test")

planecheck_test(
    name = "suite",
    size = "small",
    srcs = [
        "suite/f_inject.yaml",
        "suite/b_mismatch.yaml",
        "suite/a_unknown_table.yaml",
        "suite/e_clean.yaml",
        "suite/d_crud_client.yaml",
        "suite/c_crud_server.yaml",
        "suite/g_deselected.yaml",
    ],
    # Bazel splits each of args into words as a shell would: the quotes keep the expression one
    args = ["-k", "'not deselected'"],
    planecheck = "@planecheck_by_path//:planecheck",
    shard_count = 3,
)
EOF

# --batch: no server is left running. The user's rc file is not read; the machine's is, as Debian's
# names Bazel's install base. The output root under WORK keeps the fetched repositories.
status=0
(cd "$workspace" && unset PLANECHECK_COMMAND && PATH="$work/bin:$PATH" &&
    bazel --batch --nohome_rc --output_user_root="$work/root" test //:suite //example:scenarios \
        --nocache_test_results --override_repository=planecheck_rules="$rules") >"$work/bazel.log" 2>&1 || status=$?
[ "$status" = 3 ] || { tail -40 "$work/bazel.log" >&2; fail "bazel test exited $status, not 3 (some tests failed)"; }
grep -Eq '^//:suite +FAILED in 2 out of 3' "$work/bazel.log" ||
    { tail -20 "$work/bazel.log" >&2; fail "bazel does not report 2 of 3 shards of //:suite failed"; }
grep -Eq '^//example:scenarios +PASSED' "$work/bazel.log" ||
    { tail -20 "$work/bazel.log" >&2; fail "bazel does not report the example passed"; }
for shard in 1 2 3; do
    grep -q "^planecheck: PASSED: [12] files\?," "$workspace/bazel-testlogs/example/scenarios/shard_${shard}_of_3/test.log" ||
        fail "the example's shard $shard did not run its files"
done

# Each testcase of a JUnit report as "NAME passed" or "NAME failed", in order.
junit_cases() {
    /usr/bin/python3 -c '
import sys, xml.etree.ElementTree as ET
for case in ET.parse(sys.argv[1]).iter("testcase"):
    failed = case.find("failure") is not None or case.find("error") is not None
    print(case.get("name"), "failed" if failed else "passed")' "$1"
}

# check_shard K SUMMARY CASE...: Bazel's shard K (from 1) logged planecheck's SUMMARY line and its
# test.xml holds exactly the CASEs, in order.
check_shard() {
    local shard=$1 summary=$2 logs=$workspace/bazel-testlogs/suite/shard_$1_of_3
    shift 2
    [ -e "$logs/test.xml" ] || fail "no $logs/test.xml"
    grep -q "^planecheck: $summary" "$logs/test.log" ||
        { cat "$logs/test.log" >&2; fail "shard $shard: no 'planecheck: $summary' in test.log"; }
    local expected actual
    expected=$(printf '%s\n' "$@")
    actual=$(junit_cases "$logs/test.xml")
    [ "$actual" = "$expected" ] || fail "shard $shard: test.xml holds
$actual
not
$expected"
}
check_shard 1 "PASSED: 2 files" "suite/f_inject.yaml passed" "suite/e_clean.yaml passed"
check_shard 2 "FAILED: 2 files" "suite/b_mismatch.yaml failed" "suite/d_crud_client.yaml passed"
check_shard 3 "FAILED: 2 files" "suite/a_unknown_table.yaml failed" "suite/c_crud_server.yaml passed"
grep -q "unknown table test_iff" "$workspace/bazel-testlogs/suite/shard_3_of_3/test.log" ||
    fail "shard 3's test.log does not say why the library ended the file"
echo "bazel: 3 shards ran offline, shards 2 and 3 failed with the expected files"
