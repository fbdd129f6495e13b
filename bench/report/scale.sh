#!/usr/bin/env bash
# The HTML report at scale: writes FILES scenario files of STEPS steps each (every 40th file has
# a mismatch), runs them with --events and --html, and loads the report in headless Chromium.
# Prints the report's size and, from the page itself, when its first paint came and when its
# first render was done (milliseconds from navigation), for ROUNDS loads.
#   bench/report/scale.sh [BUILD_DIR] [FILES] [STEPS] [ROUNDS]
set -euo pipefail
build=${1:-build}
files=${2:-2000}
steps=${3:-50}
rounds=${4:-5}
planecheck=$(realpath "$build/planecheck")
dir=$(realpath -m "$build/report-scale")
rm -rf "$dir" && mkdir -p "$dir/scenarios"

for ((f = 1; f <= files; f++)); do
  {
    echo "name: scale file $f"
    echo "config: { mode: server }"
    echo "steps:"
    for ((s = 1; s <= steps; s += 2)); do
      echo "  - send: { test_if: [ { op: create, key_a: $s, attr_a1: 5 } ] }"
      want=5
      if ((f % 40 == 0 && s == 1)); then want=6; fi
      echo "  - send: { test_if: [ { op: get, key_a: $s, attr_a1: $want } ] }"
    done
  } > "$dir/scenarios/f$(printf %04d "$f").yaml"
done

cd "$dir"
set +e
"$planecheck" run -q -j 2 --events run.events --html report.html scenarios/*.yaml > run.out 2>&1
set -e
tail -1 run.out
echo "events: $(stat -c %s run.events) bytes; report: $(stat -c %s report.html) bytes ($(gzip -c report.html | wc -c) gzipped)"

# A copy of the page that logs, to the browser's console, when its first contentful paint came and
# when its load ended (its scripts had run), in milliseconds from navigation.
sed 's|<head>|<head><script>new PerformanceObserver(function (l) { l.getEntries().forEach(function (e) { console.log("planecheck-timing " + e.name + " " + Math.round(e.startTime)); }); }).observe({ type: "paint", buffered: true }); addEventListener("load", function () { setTimeout(function () { console.log("planecheck-timing load " + Math.round(performance.getEntriesByType("navigation")[0].loadEventEnd)); }, 0); });</script>|' report.html > timed.html
for ((r = 1; r <= rounds; r++)); do
  rm -rf profile
  chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
    --disable-component-update --disable-sync --user-data-dir="$dir/profile" --enable-logging=stderr --v=0 \
    --window-size=1280,1000 --screenshot="$dir/shot.png" "file://$dir/timed.html" 2>&1 >/dev/null |
    grep -o 'planecheck-timing [a-z-]* [0-9]*' | sed 's/planecheck-timing //' | tr '\n' ' '
  echo
done
rm -rf profile timed.html
