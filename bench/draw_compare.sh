#!/usr/bin/env bash
# Frame times of the viewer drawing a big sphere shaded, with display lists off
# and on, against osgviewer (Debian's openscenegraph) drawing the same mesh as
# an OBJ file: one Xvfb of 1024x768x24 for every run, Mesa's software
# rasteriser, runs alternating (ours with lists on, osgviewer, ours with lists
# off, again), each program's frames timed by Mesa's own frame-time dump
# (GALLIUM_HUD=frametime with GALLIUM_HUD_DUMP_DIR), which needs no hook in the
# program measured.
#
# Usage: bench/draw_compare.sh [--tree DIR] [--out DIR] [--pairs N] [--frames N]
#                              [--warmup N] [--sizes "200000 1000000"]
#   --tree    build tree, relative to the source tree (default build-release, the tree of demo.sh);
#             configured as a release tree without sanitizers when missing
#   --out     where bwbig writes the database and the OBJ files (default TREE/draw_compare)
#   --pairs   rounds per size (default 5)
#   --frames  frames timed per run, after the warm-up (default 150)
#   --warmup  first frames of each run left out: load, preprocess, list build (default 20)
#   --sizes   triangle counts (default "200000 1000000")
#   --idle-wait  seconds a run may wait for the other processes of the machine
#             to leave its cores idle (default 120; 0: never wait)
#
# Prints per size the median milliseconds a frame of each program over the
# rounds, with the range of the rounds, and our frame rate over osgviewer's.
# Every run's figure goes to OUT/runs.csv.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

tree=build-release
out=""
pairs=5
frames=150
warmup=20
sizes="200000 1000000"
idle_wait=120
while [ $# -gt 0 ]; do
  case "$1" in
    --tree) tree=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    --pairs) pairs=$2; shift 2 ;;
    --frames) frames=$2; shift 2 ;;
    --warmup) warmup=$2; shift 2 ;;
    --sizes) sizes=$2; shift 2 ;;
    --idle-wait) idle_wait=$2; shift 2 ;;
    -h|--help) sed -n '2,24p' "$0"; exit 0 ;;
    *) echo "draw_compare: unknown argument $1" >&2; exit 2 ;;
  esac
done
case "$tree" in /*) ;; *) tree="$top/$tree" ;; esac
[ -n "$out" ] || out="$tree/draw_compare"

# What the build and the runs need.
packages=(g++ cmake ninja-build pkg-config libbenchmark-dev libx11-dev libgl1-mesa-dev
          libglu1-mesa-dev libpng-dev libgl1-mesa-dri xvfb openscenegraph)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing missing packages: ${missing[*]}   (openscenegraph brings osgviewer)"
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${missing[@]}"
fi

if [ ! -f "$tree/CMakeCache.txt" ]; then
  cmake -S "$top" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBW_SANITIZE=OFF -DBW_TESTS=OFF
fi
cmake --build "$tree" --target viewer bwbig -j "$(nproc)"

# The database and the OBJ files, written again when bwbig changed.
need_data=0
for n in $sizes; do
  [ -f "$out/sphere$n.obj" ] && [ ! "$tree/bin/bwbig" -nt "$out/sphere$n.obj" ] || need_data=1
done
if [ $need_data = 1 ]; then
  rm -rf "$out/big" "$out/DatabaseDir.rsrc" "$out"/sphere*.obj
  BW_RSRC="$top/rsrc" "$tree/bin/bwbig" "$out" $sizes
fi

work=$(mktemp -d)
xvfb_pid=""
cleanup() {
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

# One X server for every run; it tells the display it took.
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
xvfb_pid=$!
for _ in $(seq 100); do
  [ -s "$work/display" ] && break
  sleep 0.1
done
[ -s "$work/display" ] || { echo "draw_compare: Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$work/display")"
export LIBGL_ALWAYS_SOFTWARE=1

total=$((warmup + frames))
# The viewer plays no sequence: its loop draws a frame every turn whatever
# the input; the script only switches the lists and leaves.
printf 'at %d\nkey Escape\n' "$total" >"$work/lists_off.txt"
printf 'at 2\nkey d\nat %d\nkey Escape\n' "$total" >"$work/lists_on.txt"

median() { sort -g | awk '{v[NR] = $1} END {if (NR == 0) print "nan"; else if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

# Share of the cores left idle over two seconds, in percent.
idle_percent() {
  local a b
  a=($(head -n1 /proc/stat)); sleep 2; b=($(head -n1 /proc/stat))
  local total=0 i
  for i in 1 2 3 4 5 6 7 8; do total=$((total + b[i] - a[i])); done
  echo $(( total > 0 ? 100 * (b[4] - a[4] + b[5] - a[5]) / total : 100 ))
}

# Waits, up to idle_wait seconds, for the machine to be 90% idle: the frame
# times of a run that shares the cores with other work mean little.
wait_idle() {
  local waited=0 idle
  while [ "$waited" -lt "$idle_wait" ]; do
    idle=$(idle_percent)
    [ "$idle" -ge 90 ] && return 0
    waited=$((waited + 2))
  done
  [ "$idle_wait" -gt 0 ] && echo "  (machine still busy after ${idle_wait} s: ${idle}% idle; measuring anyway)" >&2
  return 0
}

# run NAME COMMAND...: one run with Mesa's frame-time dump; prints the median
# milliseconds of its frames after the warm-up.
run() {
  local name=$1; shift
  local dump="$work/hud-$name"
  rm -rf "$dump"; mkdir -p "$dump"
  wait_idle
  if ! (cd "$out" && GALLIUM_HUD=frametime GALLIUM_HUD_VISIBLE=false GALLIUM_HUD_PERIOD=0 \
        GALLIUM_HUD_DUMP_DIR="$dump" timeout 600 "$@" </dev/null >"$work/$name.log" 2>&1); then
    echo "draw_compare: $name failed; its output:" >&2
    tail -n 20 "$work/$name.log" >&2
    exit 1
  fi
  local file
  file=$(ls "$dump"/frametime* 2>/dev/null | head -n1)
  local count=0
  [ -n "$file" ] && count=$(wc -l <"$file")
  # One line a frame: fewer lines than frames asked means the frames stopped.
  if [ "$count" -lt $((total - 5)) ]; then
    echo "draw_compare: $name dumped $count frame times for $total frames" >&2
    exit 1
  fi
  tail -n +"$((warmup + 1))" "$file" | median
}

printf 'size,round,program,ms_per_frame\n' >"$out/runs.csv"
summary=()
for n in $sizes; do
  echo "sphere of $n triangles: $pairs rounds of (ours with lists on, osgviewer, ours with lists off)," \
       "$frames frames a run after $warmup"
  viewer=("$tree/bin/viewer" -R "$top/rsrc" -D big -S "sphere$n" -s 1024x768)
  for round in $(seq "$pairs"); do
    on=$(BW_DBDIR="$out" BW_VIEWER_SCRIPT="$work/lists_on.txt" run "on-$n-$round" "${viewer[@]}")
    osg=$(OSG_WINDOW="0 0 1024 768" OSG_RUN_FRAME_COUNT=$total run "osg-$n-$round" osgviewer "sphere$n.obj")
    off=$(BW_DBDIR="$out" BW_VIEWER_SCRIPT="$work/lists_off.txt" run "off-$n-$round" "${viewer[@]}")
    printf '%s,%s,lists_on,%s\n%s,%s,osgviewer,%s\n%s,%s,lists_off,%s\n' \
      "$n" "$round" "$on" "$n" "$round" "$osg" "$n" "$round" "$off" >>"$out/runs.csv"
    printf '  round %d: lists on %.1f ms, osgviewer %.1f ms, lists off %.1f ms\n' "$round" "$on" "$osg" "$off"
  done
  summary+=("$(awk -F, -v n="$n" '
    function med(a, k,   i, j, t) {
      for (i = 2; i <= k; ++i) for (j = i; j > 1 && a[j - 1] > a[j]; --j) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
      return k % 2 ? a[(k + 1) / 2] : (a[k / 2] + a[k / 2 + 1]) / 2
    }
    $1 == n { v[$3, ++c[$3]] = $4; if (!($3 in lo) || $4 < lo[$3]) lo[$3] = $4; if ($4 > hi[$3]) hi[$3] = $4 }
    END {
      split("lists_off lists_on osgviewer", names, " ")
      for (p = 1; p <= 3; ++p) {
        name = names[p]; k = c[name]
        for (i = 1; i <= k; ++i) a[i] = v[name, i]
        m[name] = med(a, k)
      }
      printf "%d triangles:\n", n
      printf "  ours, lists off   %7.1f ms a frame (rounds %.1f to %.1f), %5.1f frames/s\n", m["lists_off"], lo["lists_off"], hi["lists_off"], 1000 / m["lists_off"]
      printf "  ours, lists on    %7.1f ms a frame (rounds %.1f to %.1f), %5.1f frames/s\n", m["lists_on"], lo["lists_on"], hi["lists_on"], 1000 / m["lists_on"]
      printf "  osgviewer         %7.1f ms a frame (rounds %.1f to %.1f), %5.1f frames/s\n", m["osgviewer"], lo["osgviewer"], hi["osgviewer"], 1000 / m["osgviewer"]
      # Each round pairs our runs with the osgviewer run between them: the
      # ratio is the median of the rounds'"'"' ratios.
      for (p = 1; p <= 2; ++p) {
        name = names[p]; k = c[name]
        for (i = 1; i <= k; ++i) a[i] = v["osgviewer", i] / v[name, i]
        rmin = a[1]; rmax = a[1]
        for (i = 2; i <= k; ++i) { if (a[i] < rmin) rmin = a[i]; if (a[i] > rmax) rmax = a[i] }
        printf "  ratio, our frame rate over osgviewer'"'"'s, %s: %.2f (rounds %.2f to %.2f)\n", (p == 1 ? "lists off" : "lists on "), med(a, k), rmin, rmax
      }
    }' "$out/runs.csv")")
done

echo
echo "Medians over the rounds (Mesa llvmpipe under Xvfb, 1024 x 768; target: ratio with lists on at least 1.5):"
for s in "${summary[@]}"; do echo "$s"; done
echo "Runs: $out/runs.csv"
