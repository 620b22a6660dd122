#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the demo conversion
# (scripts/run-demo.sh: the SQL Server stand-in into a dump file, then into a
# throwaway MariaDB).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
./scripts/build.sh release
exec ./scripts/run-demo.sh "$@"
