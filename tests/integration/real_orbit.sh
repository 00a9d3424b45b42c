#!/usr/bin/env bash
# Orbits the camera through the X server, the o key held during a left drag,
# and judges the pictures in the server's frame buffer file (Xvfb -fbdir): a
# drag without o leaves the picture, the drag with o changes it, and then the
# picture stands still.
set -u
viewer=$1 bwdemo=$2 rsrc=$3 framebuffer=$4
dir=$(mktemp -d)
pid=
trap '[ -n "$pid" ] && kill "$pid" 2>/dev/null; rm -rf "$dir"' EXIT
fail() { echo "$*"; cat "$dir/out"; exit 1; }
"$bwdemo" "$dir" >/dev/null || exit 1
cd "$dir"
unset BW_VIEWER_SCRIPT BW_DBDIR BW_RSRC
"$viewer" -R "$rsrc" </dev/null >"$dir/out" 2>&1 &
pid=$!
wid=$(timeout 60 xdotool search --sync --name 'demo.1-0' | head -1)
[ -n "$wid" ] || fail "no viewer window appeared"
[ -f "$framebuffer" ] || fail "no frame buffer file at $framebuffer"

# The screen once it has settled: two reads in a row that agree.
dump() {
  sleep 0.5
  cp "$framebuffer" "$dir/settle"
  for _ in $(seq 1 20); do
    sleep 0.2
    cp "$framebuffer" "$1"
    cmp -s "$dir/settle" "$1" && return 0
    cp "$1" "$dir/settle"
  done
  fail "the picture did not settle"
}

# A left drag from (300, 200) and back there, the cursor in one place for every picture.
drag() {
  xdotool mousemove --window "$wid" 300 200 mousedown 1
  for i in $(seq 1 10); do
    xdotool mousemove --window "$wid" $((300 + i * 12)) $((200 - i * 4))
    sleep 0.05
  done
  xdotool mouseup 1 mousemove --window "$wid" 300 200
}

xdotool mousemove --window "$wid" 300 200
dump "$dir/start"
drag
dump "$dir/plain"
cmp -s "$dir/start" "$dir/plain" || fail "a drag without a mode changed the picture"
xdotool keydown --window "$wid" o 2>/dev/null
drag
xdotool keyup --window "$wid" o 2>/dev/null
dump "$dir/orbit"
cmp -s "$dir/plain" "$dir/orbit" && fail "the orbit drag left the picture as it was"
dump "$dir/after"
cmp -s "$dir/orbit" "$dir/after" || fail "the picture went on changing after the drag"

xdotool key --window "$wid" Escape 2>/dev/null
for _ in $(seq 1 100); do
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
kill -0 "$pid" 2>/dev/null && fail "the viewer did not end on Escape"
wait "$pid"
status=$?
pid=
echo "viewer exit status: $status"
[ "$status" -eq 0 ]
