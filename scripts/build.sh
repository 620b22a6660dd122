#!/usr/bin/env bash
# Configures and builds one build tree.
#   scripts/build.sh release   -> build/        (RelWithDebInfo)
#   scripts/build.sh asan      -> build-asan/   (AddressSanitizer + UBSan)
set -euo pipefail
cd "$(dirname "$0")/.."
kind=${1:-release}
case "$kind" in
  release) dir=build; flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DQB_BUILD_BENCH=ON) ;;
  asan) dir=build-asan; flags=(-DCMAKE_BUILD_TYPE=Debug -DQB_SANITIZE=ON -DQB_BUILD_BENCH=OFF) ;;
  *) echo "usage: $0 release|asan" >&2; exit 2 ;;
esac
cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir"
