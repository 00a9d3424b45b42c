#!/usr/bin/env bash
# Installs what is missing, builds with the sanitizers, and runs every test.
#   scripts/test.sh          AddressSanitizer and UBSan build in build/, every test
#   scripts/test.sh --tsan   ThreadSanitizer build in build-tsan/, every test program that
#                            starts a thread or a child process (CTest label "threads")
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

if [ "${1:-}" = "--tsan" ]; then
  "$top/scripts/setup.sh" --tree build-tsan -DBW_SANITIZE=OFF -DBW_TSAN=ON
  export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$top/tests/tsan.supp}
  cd "$top/build-tsan"
  ctest --output-on-failure -L '^threads$'
  exit
fi

"$top/scripts/setup.sh"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
cd "$top/build"
ctest --output-on-failure -j "$(nproc)"
