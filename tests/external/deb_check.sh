#!/usr/bin/env bash
# Unpacks the Debian package into a scratch root (no container, no root rights needed), checks
# what it holds, and builds the user projects against it.
# usage: deb_check.sh PACKAGE.deb WORK
set -euo pipefail
deb=$1
work=$(realpath -m "$2")
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work" && mkdir -p "$work"
fail() { echo "deb: $*" >&2; exit 1; }

dpkg-deb --field "$deb" Depends | grep -q libyaml-0-2 || fail "the package does not depend on libyaml"
dpkg -x "$deb" "$work/root"
usr=$work/root/usr
for file in bin/planecheck share/man/man1/planecheck.1 share/bash-completion/completions/planecheck \
            include/planecheck/loader.h include/planecheck/dpa_api.h lib/pkgconfig/planecheck.pc \
            lib/cmake/planecheck/planecheckConfig.cmake lib/libplanecheck.so.0 share/planecheck/scenario.schema.json; do
    [ -e "$usr/$file" ] || fail "no /usr/$file in the package"
done
# The Bazel rules, and the offline fragment naming the stand-ins where the package puts them.
bazel_dir=/usr/share/planecheck/bazel
for file in WORKSPACE BUILD planecheck.bzl offline/rules_cc/cc/defs.bzl offline/rules_java/java/defs.bzl \
            offline/remote_coverage_tools/BUILD; do
    [ -e "$work/root$bazel_dir/$file" ] || fail "no $bazel_dir/$file in the package"
done
[ -x "$work/root$bazel_dir/offline/remote_coverage_tools/unsupported.sh" ] || fail "the coverage stand-in is not executable"
for name in rules_cc rules_java remote_coverage_tools; do
    grep -qx "build --override_repository=$name=$bazel_dir/offline/$name" "$work/root$bazel_dir/offline.bazelrc" ||
        fail "offline.bazelrc does not point $name at $bazel_dir/offline/$name"
done
"$usr/bin/planecheck" --version | grep -q "^planecheck " || fail "the packaged command does not run"
"$usr/bin/planecheck" catalogue --schema | cmp -s - "$usr/share/planecheck/scenario.schema.json" ||
    fail "catalogue --schema differs from the packaged schema file"
grep -q "TEST_SHARD_INDEX" "$usr/share/man/man1/planecheck.1" || fail "the man page lacks its ENVIRONMENT section"
grep -qF -- '\-\-describe' "$usr/share/man/man1/planecheck.1" || fail "the man page lacks the subcommands' options"
for file in README.md catalogue/README.md catalogue/objects.yaml catalogue/value_types.yaml examples/hello.yaml; do
    [ -e "$usr/share/doc/planecheck/$file" ] || fail "no /usr/share/doc/planecheck/$file in the package"
done
grep -q "/usr/share/doc/planecheck" "$usr/share/man/man1/planecheck.1" || fail "the man page does not say where the manual is"

# completion: subcommands, and object type names after --describe
completions=$(PATH="$usr/bin:$PATH" bash -c '
    source "$1"
    COMP_WORDS=(planecheck ch); COMP_CWORD=1; _planecheck; echo "${COMPREPLY[*]}"
    COMP_WORDS=(planecheck catalogue --describe nhgro); COMP_CWORD=3; _planecheck; echo "${COMPREPLY[*]}"' _ \
    "$usr/share/bash-completion/completions/planecheck")
[ "$(echo "$completions" | sed -n 1p)" = check ] || fail "completion of 'ch' gave: $completions"
echo "$completions" | sed -n 2p | grep -qw nhgroup || fail "completion of --describe nhgro gave: $completions"

# The Python package: Debian's python3 imports it and it finds the packaged command; pytest loads
# the plugin through its entry point and passes the examples.
python_dir=$usr/lib/python3/dist-packages
env -u PLANECHECK_COMMAND PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$python_dir /usr/bin/python3 -c '
import os, sys, planecheck, planecheck.pytest_plugin
found = planecheck.find_command()
assert os.path.samefile(found, sys.argv[1]), found' "$usr/bin/planecheck" \
    || fail "the Python package does not import or does not find the packaged command"
(cd "$here/../../examples" && env -u PLANECHECK_COMMAND PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$python_dir PATH=/usr/bin:/bin \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider .) || fail "pytest with the packaged plugin fails the examples"

bash "$here/check.sh" "$usr" "$work/projects"
# the README's CMake snippet and pkg-config lines, as written, against the package
/usr/bin/python3 "$here/../readme_check.py" snippets "$usr" "$here/../.." "$work/readme-snippets" ||
    fail "the README's build snippets do not build or run against the package"
echo "deb: $(basename "$deb") unpacked and used by the user projects"
