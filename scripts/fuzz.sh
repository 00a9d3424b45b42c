#!/usr/bin/env bash
# Builds the fuzz targets with clang in build-fuzz/ and runs each for a while.
#   scripts/fuzz.sh [SECONDS] [TARGET...]     default: 600 seconds, every target
# The corpus grows in build-fuzz/corpus/<target>; crashes land in build-fuzz/crashes.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(fuzz_frame fuzz_model fuzz_anim fuzz_scene fuzz_picture fuzz_camera fuzz_channel fuzz_take fuzz_expr fuzz_shape fuzz_setup fuzz_wave)

tree="$top/build-fuzz"
cmake -S "$top" -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DBW_FUZZ=ON -DBW_TESTS=OFF >/dev/null
cmake --build "$tree" --target fuzz_seeds "${targets[@]}"

seeds="$tree/seeds"
mkdir -p "$seeds" "$tree/crashes"
"$tree/bin/fuzz_seeds" "$seeds"

status=0
for target in "${targets[@]}"; do
  corpus="$tree/corpus/$target"
  mkdir -p "$corpus"
  echo "== $target: $seconds seconds"
  "$tree/bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$tree/crashes/$target-" -print_final_stats=1 \
      "$corpus" "$seeds" 2>&1 | tail -15 || status=1
done
exit $status
