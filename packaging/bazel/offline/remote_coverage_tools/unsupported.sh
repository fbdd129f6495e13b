#!/bin/sh
echo "bazel coverage is not supported offline: use planecheck run --coverage" >&2
exit 1
