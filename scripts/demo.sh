#!/usr/bin/env bash
# Installs what is missing, builds the optimised tree build-release/ (no
# sanitizers, no tests), writes the demo database into build-release/demo and
# plays it textured: in a window when DISPLAY is set, otherwise under Xvfb,
# writing PNG snapshots into build-release/demo/snapshots.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh" --release

bin="$top/build-release/bin"
demo="$top/build-release/demo"
rm -rf "$demo"
"$bin/bwdemo" "$demo"
cd "$demo"

# The animation as numbers: each model's place every 25 frames.
echo
echo "The demo scene's animation (build-release/bin/bweval -R rsrc demo --frames 1:100:25):"
"$bin/bweval" -R "$top/rsrc" demo --frames 1:100:25

# Textured (-d 3): the demo's models carry pictures.
viewer=("$bin/viewer" -R "$top/rsrc" -d 3 -z "TEXT=Brackwood demo,COLOR=yellow,X=30,Y=900")

if [ -n "${DISPLAY:-}" ]; then
  echo
  echo "Running: build-release/bin/viewer -R rsrc -d 3   (in $demo). Press Esc in the window to leave."
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
  echo "No DISPLAY: running the viewer under Xvfb with a script (build-release/demo/demo-script.txt)."
  echo
  BW_VIEWER_SCRIPT=demo-script.txt LIBGL_ALWAYS_SOFTWARE=1 \
    xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" "${viewer[@]}" </dev/null
  echo
  echo "Snapshots written to $demo/snapshots:"
  ls -1 "$demo/snapshots"
fi
