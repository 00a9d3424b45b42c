#!/usr/bin/env bash
# Installs what is missing, builds, writes the demo database into build/demo and
# plays it: in a window when DISPLAY is set, otherwise under Xvfb, writing PNG
# snapshots into build/demo/snapshots.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"

demo="$top/build/demo"
rm -rf "$demo"
"$top/build/bin/bwdemo" "$demo"
cd "$demo"
export ASAN_OPTIONS=detect_leaks=0

# The animation as numbers: each model's place every 25 frames.
echo
echo "The demo scene's animation (build/bin/bweval -R rsrc demo --frames 1:100:25):"
"$top/build/bin/bweval" -R "$top/rsrc" demo --frames 1:100:25

viewer=("$top/build/bin/viewer" -R "$top/rsrc" -z "TEXT=Brackwood demo,COLOR=yellow,X=30,Y=900")

if [ -n "${DISPLAY:-}" ]; then
  echo
  echo "Running: build/bin/viewer -R rsrc   (in $demo). Press Esc in the window to leave."
  echo
  "${viewer[@]}" </dev/null
else
  mkdir -p snapshots
  cat > demo-script.txt <<'SCRIPT'
# Frames of the demo written as pictures, then the end.
at 2
key i
at 5
snapshot snapshots/frame-0005.png
key Right
at 60
snapshot snapshots/frame-0060.png
at 120
snapshot snapshots/frame-0120.png
at 121
key Escape
SCRIPT
  echo
  echo "No DISPLAY: running the viewer under Xvfb with a script (build/demo/demo-script.txt)."
  echo
  BW_VIEWER_SCRIPT=demo-script.txt LIBGL_ALWAYS_SOFTWARE=1 \
    xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" "${viewer[@]}" </dev/null
  echo
  echo "Snapshots written to $demo/snapshots:"
  ls -1 "$demo/snapshots"
fi
