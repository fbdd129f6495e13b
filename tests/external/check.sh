#!/usr/bin/env bash
# Builds the two user projects against an installed planecheck under PREFIX (one with
# find_package, one with pkg-config) in WORK, and runs scenarios through them.
# usage: check.sh PREFIX WORK
set -euo pipefail
prefix=$(realpath "$1")
work=$(realpath -m "$2")
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work" && mkdir -p "$work"
fail() { echo "external: $*" >&2; exit 1; }

cmake -S "$here/find_package" -B "$work/find_package" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/find_package"
ctest --test-dir "$work/find_package" --output-on-failure | tee "$work/ctest.log"
grep -q "100% tests passed, 0 tests failed out of 3" "$work/ctest.log" || fail "the find_package project's tests did not all run"
grep -q "$prefix/bin/planecheck" "$work/find_package/CTestTestfile.cmake" || fail "the scenario tests do not run the installed planecheck"

libdir=$(dirname "$(find "$prefix" -name planecheck.pc | head -1)")
PKG_CONFIG_PATH="$libdir" make -s -C "$here/pkg_config" OUT="$work" CC="${CC:-cc}"
"$work/c_runner" "$here/find_package/scenarios/pass.yaml" || fail "the pkg-config runner failed a passing scenario"
if "$work/c_runner" "$here/find_package/scenarios/fail.yaml" >"$work/fail.log" 2>&1; then
    fail "the pkg-config runner passed a scenario with a mismatch"
fi
grep -q "fail.yaml:3: attr_a1: received 1 expected 2" "$work/fail.log" || { cat "$work/fail.log"; fail "the mismatch was not reported at its line"; }
echo "external: find_package and pkg-config projects built and ran against $prefix"
