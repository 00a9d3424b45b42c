#!/usr/bin/env bash
# Shared set-up of demo.sh and test.sh: install what is missing, configure, build.
# Usage: scripts/setup.sh [extra cmake args...]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

packages=(g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libx11-dev libgl1-mesa-dev libglu1-mesa-dev libpng-dev)
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

cmake -S "$top" -B "$top/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
      -DBW_SANITIZE=ON -DBW_WERROR=ON "$@"
cmake --build "$top/build" -j "$(nproc)"
