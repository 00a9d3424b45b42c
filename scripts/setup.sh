#!/usr/bin/env bash
# Shared set-up of demo.sh and test.sh: install what is missing, configure, build.
# Usage: scripts/setup.sh [--release | --tree DIR] [extra cmake args...]
#   (no flag)    build/: Debug with AddressSanitizer and UBSan, tests on (test.sh)
#   --release    build-release/: optimised, no sanitizers, no tests (demo.sh, benchmarks)
#   --tree DIR   the sanitizer configuration in DIR, changed by the extra cmake args
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

packages=(g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libx11-dev libgl1-mesa-dev libglu1-mesa-dev libpng-dev libtinygltf-dev libosmesa6-dev libegl-dev
          xvfb xauth xdotool clang libclang-rt-14-dev
          libevdev-dev liblo-dev liblo-tools libasound2-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing missing packages: ${missing[*]}"
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${missing[@]}"
fi

tree=build
config=(-DCMAKE_BUILD_TYPE=Debug -DBW_SANITIZE=ON -DBW_WERROR=ON)
case "${1:-}" in
  --release)
    tree=build-release
    config=(-DCMAKE_BUILD_TYPE=Release -DBW_SANITIZE=OFF -DBW_TSAN=OFF -DBW_WERROR=OFF -DBW_TESTS=OFF)
    shift ;;
  --tree) tree=$2; shift 2 ;;
esac
cmake -S "$top" -B "$top/$tree" -G Ninja "${config[@]}" "$@"
cmake --build "$top/$tree" -j "$(nproc)"
