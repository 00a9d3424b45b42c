#!/usr/bin/env bash
# Frame times of the viewer drawing a big sphere shaded, in each of its four
# configurations (one Scene Context or two, -p 1 and -p 2; display lists off,
# the start-up default, and on, key d at frame 2), against two others drawing
# the same picture: floor_draw (bench/floor_draw.cpp), the same strips from one
# display list with nothing else a frame, the rasteriser's floor for that
# picture; and osgviewer (Debian's openscenegraph) drawing the same mesh as an
# OBJ file. One Xvfb of 1024x768x24 for every run, Mesa's software
# rasteriser, the programs alternating within each round, each program's
# frames timed by Mesa's own frame-time dump (GALLIUM_HUD=frametime with
# GALLIUM_HUD_DUMP_DIR), which needs no hook in the program measured.
#
# Usage: bench/draw_compare.sh [--tree DIR] [--out DIR] [--pairs N] [--frames N]
#                              [--warmup N] [--sizes "200000 1000000"] [--idle-wait S]
#                              [--configs "p1_off p1_on p2_off p2_on floor osgviewer"]
#   --tree    build tree, relative to the source tree (default build-release, the tree of demo.sh);
#             configured as a release tree without sanitizers when missing
#   --out     where bwbig writes the database and the OBJ files (default TREE/draw_compare)
#   --pairs   rounds per size (default 5)
#   --frames  frames timed per run, after the warm-up (default 150)
#   --warmup  first frames of each run left out: load, preprocess, list build (default 20)
#   --sizes   triangle counts (default "200000 1000000")
#   --idle-wait  seconds a run may wait for the other processes of the machine
#             to leave its cores idle (default 120; 0: never wait)
#   --configs the programs run, in this order within a round (default all six);
#             a ratio whose reference was left out is not printed
#
# Prints per size the median milliseconds a frame of each program over the
# rounds, with the range of the rounds; for each of our configurations our
# frame rate over osgviewer's and over the floor's (the median of the rounds'
# ratios, each round's runs taken together); and a verdict line per
# configuration against the targets: at least 1.00 of osgviewer's frame rate
# and at least 0.95 of the floor's. Every run's figure goes to OUT/runs.csv.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/bench/bench_common.sh"

tree=build-release
out=""
pairs=5
frames=150
warmup=20
sizes="200000 1000000"
idle_wait=120
all_configs="p1_off p1_on p2_off p2_on floor osgviewer"
configs=$all_configs
while [ $# -gt 0 ]; do
  case "$1" in
    --tree) tree=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    --pairs) pairs=$2; shift 2 ;;
    --frames) frames=$2; shift 2 ;;
    --warmup) warmup=$2; shift 2 ;;
    --sizes) sizes=$2; shift 2 ;;
    --idle-wait) idle_wait=$2; shift 2 ;;
    --configs) configs=$2; shift 2 ;;
    -h|--help) sed -n '2,33p' "$0"; exit 0 ;;
    *) echo "draw_compare: unknown argument $1" >&2; exit 2 ;;
  esac
done
case "$tree" in /*) ;; *) tree="$top/$tree" ;; esac
[ -n "$out" ] || out="$tree/draw_compare"
for c in $configs; do
  case " $all_configs " in *" $c "*) ;; *) echo "draw_compare: unknown configuration $c (of: $all_configs)" >&2; exit 2 ;; esac
done

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

bench_build "$tree" viewer bwbig floor_draw
bench_spheres "$tree" "$out" "$sizes"
bench_xvfb draw_compare

total=$((warmup + frames))
# The viewer plays no sequence: its loop draws a frame every turn whatever
# the input; the script only switches the lists and leaves.
printf 'at %d\nkey Escape\n' "$total" >"$work/lists_off.txt"
printf 'at 2\nkey d\nat %d\nkey Escape\n' "$total" >"$work/lists_on.txt"

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
  echo "sphere of $n triangles: $pairs rounds of ($configs), $frames frames a run after $warmup"
  viewer=("$tree/bin/viewer" -R "$top/rsrc" -D big -S "sphere$n" -s 1024x768)
  for round in $(seq "$pairs"); do
    line="  round $round:"
    for c in $configs; do
      case $c in
        p1_off) ms=$(BW_DBDIR="$out" BW_VIEWER_SCRIPT="$work/lists_off.txt" run "$c-$n-$round" "${viewer[@]}" -p 1) ;;
        p1_on) ms=$(BW_DBDIR="$out" BW_VIEWER_SCRIPT="$work/lists_on.txt" run "$c-$n-$round" "${viewer[@]}" -p 1) ;;
        p2_off) ms=$(BW_DBDIR="$out" BW_VIEWER_SCRIPT="$work/lists_off.txt" run "$c-$n-$round" "${viewer[@]}" -p 2) ;;
        p2_on) ms=$(BW_DBDIR="$out" BW_VIEWER_SCRIPT="$work/lists_on.txt" run "$c-$n-$round" "${viewer[@]}" -p 2) ;;
        floor) ms=$(BW_DBDIR="$out" run "$c-$n-$round" "$tree/bin/floor_draw" -R "$top/rsrc" -D big \
                      -S "sphere$n" -s 1024x768 -n "$total") ;;
        osgviewer) ms=$(OSG_WINDOW="0 0 1024 768" OSG_RUN_FRAME_COUNT=$total run "$c-$n-$round" osgviewer "sphere$n.obj") ;;
      esac
      printf '%s,%s,%s,%s\n' "$n" "$round" "$c" "$ms" >>"$out/runs.csv"
      line="$line $c $(printf '%.1f' "$ms") ms,"
    done
    echo "${line%,}"
  done
  summary+=("$(awk -F, -v n="$n" -v configs="$configs" '
    function med(a, k,   i, j, t) {
      for (i = 2; i <= k; ++i) for (j = i; j > 1 && a[j - 1] > a[j]; --j) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
      return k % 2 ? a[(k + 1) / 2] : (a[k / 2] + a[k / 2 + 1]) / 2
    }
    # Our frame rate over that of the reference, the median of the rounds, with
    # their range; 0 when the reference was not run.
    function ratio(name, ref,   i, k, a, lo, hi) {
      k = c[name]
      if (!c[ref] || !k) return 0
      for (i = 1; i <= k; ++i) a[i] = v[ref, i] / v[name, i]
      lo = a[1]; hi = a[1]
      for (i = 2; i <= k; ++i) { if (a[i] < lo) lo = a[i]; if (a[i] > hi) hi = a[i] }
      rlo[name, ref] = lo; rhi[name, ref] = hi
      return med(a, k)
    }
    $1 == n { v[$3, $2] = $4; c[$3]++; if (!($3 in lo) || $4 < lo[$3]) lo[$3] = $4; if ($4 > hi[$3]) hi[$3] = $4 }
    END {
      label["p1_off"] = "ours -p 1, lists off"; label["p1_on"] = "ours -p 1, lists on"
      label["p2_off"] = "ours -p 2, lists off"; label["p2_on"] = "ours -p 2, lists on"
      label["floor"] = "floor_draw"; label["osgviewer"] = "osgviewer"
      count = split(configs, names, " ")
      printf "%d triangles:\n", n
      for (p = 1; p <= count; ++p) {
        name = names[p]; k = c[name]
        for (i = 1; i <= k; ++i) a[i] = v[name, i]
        m = med(a, k)
        printf "  %-22s %7.1f ms a frame (rounds %.1f to %.1f), %6.1f frames/s\n", label[name], m, lo[name], hi[name], 1000 / m
      }
      for (p = 1; p <= count; ++p) ran[names[p]] = 1
      target["osgviewer"] = 1.00; target["floor"] = 0.95
      refname["osgviewer"] = "osgviewer'"'"'s"; refname["floor"] = "the floor'"'"'s"
      split("osgviewer floor", refs, " ")
      for (p = 1; p <= count; ++p) {
        name = names[p]
        if (name == "floor" || name == "osgviewer") continue
        text = sprintf("  %-22s our frame rate over", label[name]); sep = ""
        verdict[p] = ""; missed = 0
        for (q = 1; q <= 2; ++q) {
          ref = refs[q]
          if (!(ref in ran)) continue
          r = ratio(name, ref)
          text = text sprintf("%s %s %.2f (rounds %.2f to %.2f)", sep, refname[ref], r, rlo[name, ref], rhi[name, ref])
          verdict[p] = verdict[p] sprintf("%s %.2f of %s frame rate (target %.2f)", sep, r, refname[ref], target[ref])
          if (r < target[ref]) missed = 1
          sep = ","
        }
        if (sep == "") { verdict[p] = sprintf("  %-22s no reference was run", label[name]); continue }
        print text
        verdict[p] = sprintf("  %-22s %s:%s", label[name], missed ? "MISSES" : "meets", verdict[p])
      }
      for (p = 1; p <= count; ++p) if (p in verdict) print verdict[p]
    }' "$out/runs.csv")")
done

echo
echo "Medians over the rounds (Mesa llvmpipe under Xvfb, 1024 x 768); ratios are frame rates, ours over the other's;"
echo "target for every configuration: at least 1.00 over osgviewer and at least 0.95 over the floor:"
for s in "${summary[@]}"; do echo "$s"; done
echo "Runs: $out/runs.csv"
