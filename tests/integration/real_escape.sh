#!/usr/bin/env bash
# Sends a real Escape key to the viewer's window through the X server and checks
# that the viewer ends with status 0.
set -u
viewer=$1 bwdemo=$2 rsrc=$3
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
"$bwdemo" "$dir" >/dev/null || exit 1
cd "$dir"
unset BW_VIEWER_SCRIPT BW_DBDIR BW_RSRC
"$viewer" -R "$rsrc" </dev/null >"$dir/out" 2>&1 &
pid=$!
wid=$(timeout 60 xdotool search --sync --name 'demo.1-0' | head -1)
if [ -z "$wid" ]; then
  echo "no viewer window appeared"; cat "$dir/out"; kill $pid 2>/dev/null; exit 1
fi
sleep 0.5
xdotool key --window "$wid" Escape
for _ in $(seq 1 100); do
  kill -0 $pid 2>/dev/null || break
  sleep 0.1
done
if kill -0 $pid 2>/dev/null; then
  echo "the viewer did not end on Escape"; kill $pid; exit 1
fi
wait $pid
status=$?
echo "viewer exit status: $status"
[ "$status" -eq 0 ]
