#!/usr/bin/env bash
# Time from process start to the viewer's first buffer swap, on bwbig's sphere
# of 1,000,000 triangles (and any other size asked for): the scene read, the
# tessellation, the strips, the window and the first draw, all of it. The
# page cache is warmed before each run (the model file read once), so that
# the figure is the program's and not the disk's. The swap is timed by a
# preload library (swap_clock) that needs no hook in the viewer; the run ends
# at that swap.
#
# Usage: bench/first_frame.sh [--tree DIR] [--out DIR] [--runs N] [--sizes "1000000"]
#                             [--p N] [--idle-wait S]
#   --tree   build tree (default build-release, configured as in draw_compare.sh when missing)
#   --out    where bwbig writes the database (default TREE/draw_compare, shared with draw_compare.sh)
#   --runs   runs per size (default 7)
#   --p      process count the viewer gets with -p (default 1)
#   --idle-wait  seconds a run may wait for the machine to be idle (default 60; 0: never)
#
# Prints per size the median, the lowest and the highest time to the first
# swap, against the target of 0.25 s.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/bench/bench_common.sh"

tree=build-release
out=""
runs=7
sizes="1000000"
processes=1
idle_wait=60
while [ $# -gt 0 ]; do
  case "$1" in
    --tree) tree=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --sizes) sizes=$2; shift 2 ;;
    --p) processes=$2; shift 2 ;;
    --idle-wait) idle_wait=$2; shift 2 ;;
    -h|--help) sed -n '2,20p' "$0"; exit 0 ;;
    *) echo "first_frame: unknown argument $1" >&2; exit 2 ;;
  esac
done
case "$tree" in /*) ;; *) tree="$top/$tree" ;; esac
[ -n "$out" ] || out="$tree/draw_compare"

bench_build "$tree" viewer bwbig swap_clock
bench_spheres "$tree" "$out" "$sizes"
bench_xvfb first_frame

for n in $sizes; do
  times=()
  for r in $(seq "$runs"); do
    wait_idle
    cat "$out"/big/MODELS/* >/dev/null 2>&1 || true
    log="$work/run-$n-$r.log"
    (cd "$out" && BW_DBDIR="$out" BW_SWAP_EXIT=1 LD_PRELOAD="$tree/lib/swap_clock.so" \
       BW_SWAP_T0="$(date +%s%N)" timeout 120 "$tree/bin/viewer" -R "$top/rsrc" -D big \
       -S "sphere$n" -s 1024x768 -p "$processes" </dev/null >"$log" 2>&1) || true
    t=$(awk '/^swap 1 at/ {print $4}' "$log")
    if [ -z "$t" ]; then
      echo "first_frame: the viewer drew no frame; its output:" >&2
      tail -n 20 "$log" >&2
      exit 1
    fi
    times+=("$t")
    printf '  sphere of %d triangles, run %d: first swap at %.3f s\n' "$n" "$r" "$t"
  done
  med=$(printf '%s\n' "${times[@]}" | median)
  lo=$(printf '%s\n' "${times[@]}" | sort -g | head -n1)
  hi=$(printf '%s\n' "${times[@]}" | sort -g | tail -n1)
  verdict=$(awk -v m="$med" 'BEGIN {print (m < 0.25 ? "met" : "missed")}')
  printf 'sphere of %d triangles, -p %d: first frame at %.3f s (median of %d; %.3f to %.3f); target 0.25 s: %s\n' \
    "$n" "$processes" "$med" "$runs" "$lo" "$hi" "$verdict"
done
