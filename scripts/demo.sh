#!/usr/bin/env bash
# Installs what is missing, builds, writes the demo database into build/demo and
# runs the viewer on it.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"

demo="$top/build/demo"
rm -rf "$demo"
"$top/build/bin/bwdemo" "$demo"

echo
echo "Running: build/bin/viewer -R rsrc   (in $demo)"
echo
cd "$demo"
export ASAN_OPTIONS=detect_leaks=0
status=0
"$top/build/bin/viewer" -R "$top/rsrc" </dev/null || status=$?
echo
if [ "$status" -ne 0 ]; then
  echo "The viewer stopped with status $status: the window arrives in a later version;"
  echo "what you see above is the start-up up to that point."
fi
