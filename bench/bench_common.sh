# Shared by the scripts that time the viewer under Xvfb (draw_compare.sh,
# first_frame.sh); sourced, with `top` set to the source tree.

# bench_build TREE TARGET...: configures TREE as a release tree without
# sanitizers when it is missing (through ccache when there is one), then
# builds the targets.
bench_build() {
  local tree=$1; shift
  if [ ! -f "$tree/CMakeCache.txt" ]; then
    local launcher=()
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
    cmake -S "$top" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBW_SANITIZE=OFF -DBW_TESTS=OFF "${launcher[@]}"
  fi
  cmake --build "$tree" --target "$@" -j "$(nproc)"
}

# bench_spheres TREE OUT SIZES: bwbig's database and OBJ files in OUT, written
# again when bwbig changed or a size is missing.
bench_spheres() {
  local tree=$1 out=$2 sizes=$3 n need=0
  for n in $sizes; do
    [ -f "$out/sphere$n.obj" ] && [ ! "$tree/bin/bwbig" -nt "$out/sphere$n.obj" ] || need=1
  done
  if [ $need = 1 ]; then
    rm -rf "$out/big" "$out/DatabaseDir.rsrc" "$out"/sphere*.obj
    BW_RSRC="$top/rsrc" "$tree/bin/bwbig" "$out" $sizes
  fi
}

# bench_xvfb NAME: one Xvfb of 1024x768x24 for every run, Mesa's software
# rasteriser; sets `work` (a directory removed at exit) and DISPLAY.
bench_xvfb() {
  local name=$1
  work=$(mktemp -d)
  xvfb_pid=""
  trap '[ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null; rm -rf "$work"' EXIT
  # The server tells the display it took.
  Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
  xvfb_pid=$!
  local i
  for i in $(seq 100); do
    [ -s "$work/display" ] && break
    sleep 0.1
  done
  [ -s "$work/display" ] || { echo "$name: Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
  export DISPLAY=":$(head -n1 "$work/display")"
  export LIBGL_ALWAYS_SOFTWARE=1
}

median() { sort -g | awk '{v[NR] = $1} END {if (NR == 0) print "nan"; else if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

# Share of the cores left idle over two seconds, in percent.
idle_percent() {
  local a b
  a=($(head -n1 /proc/stat)); sleep 2; b=($(head -n1 /proc/stat))
  local total=0 i
  for i in 1 2 3 4 5 6 7 8; do total=$((total + b[i] - a[i])); done
  echo $(( total > 0 ? 100 * (b[4] - a[4] + b[5] - a[5]) / total : 100 ))
}

# Waits, up to idle_wait seconds, for the machine to be 90% idle: the times
# of a run that shares the cores with other work mean little.
wait_idle() {
  local waited=0 idle=100
  while [ "$waited" -lt "$idle_wait" ]; do
    idle=$(idle_percent)
    [ "$idle" -ge 90 ] && return 0
    waited=$((waited + 2))
  done
  [ "$idle_wait" -gt 0 ] && echo "  (machine still busy after ${idle_wait} s: ${idle}% idle; measuring anyway)" >&2
  return 0
}
