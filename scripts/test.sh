#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds the release tree and
# the sanitizer tree, and runs every test in both. Fails when no test ran.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/lsan.supp}

jobs=$(nproc)
for kind in release asan; do
  ./scripts/build.sh "$kind"
  dir=build; [[ $kind == asan ]] && dir=build-asan
  echo "== tests ($kind) =="
  ctest --test-dir "$dir" --output-on-failure --no-tests=error -j "$jobs" --timeout 900
done
