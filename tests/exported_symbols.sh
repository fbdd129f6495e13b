#!/usr/bin/env bash
# The shared libraries export exactly the C interface their installed headers declare: no C++
# symbol, nothing undeclared, and every declared function is defined by one of the libraries.
# usage: exported_symbols.sh INCLUDE_DIR LIBRARY...
set -euo pipefail
include_dir=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Function names the headers declare: an identifier right before "(" on a line that is not a
# comment, a macro or a function-pointer typedef.
cat "$include_dir"/planecheck/*.h | grep -v '^\s*\(/\*\|\*\|#\|typedef\)' |
    grep -o '\b[A-Za-z_][A-Za-z0-9_]*(' | tr -d '(' |
    grep -vx '__attribute__\|format\|printf\|sizeof' | sort -u >"$work/declared"

status=0
: >"$work/all"
for library in "$@"; do
    nm -D --defined-only "$library" | awk '$2 ~ /^[TW]$/ {print $3}' | sort >"$work/exported"
    count=$(wc -l <"$work/exported")
    cxx=$(grep -c '^_Z' "$work/exported" || true)
    undeclared=$(comm -23 "$work/exported" "$work/declared")
    echo "$(basename "$library"): $count exported functions, $cxx C++"
    if [ "$cxx" != 0 ] || [ -n "$undeclared" ]; then
        echo "  exported but not declared in the headers:" $(echo "$undeclared" | head -20)
        status=1
    fi
    cat "$work/exported" >>"$work/all"
done
duplicates=$(sort "$work/all" | uniq -d)
missing=$(comm -23 "$work/declared" <(sort -u "$work/all"))
if [ -n "$duplicates" ]; then echo "defined by more than one library:" $(echo "$duplicates" | head -20); status=1; fi
if [ -n "$missing" ]; then echo "declared but defined by no library:" $(echo "$missing" | head -20); status=1; fi
echo "declared: $(wc -l <"$work/declared"), exported in all: $(wc -l <"$work/all")"
exit $status
