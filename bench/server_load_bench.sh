#!/usr/bin/env bash
# Starts a private MariaDB (scripts/mariadb-test-server.sh), runs
# qb_server_load_bench against it, and stops it again.
#   bench/server_load_bench.sh [BUILD_DIR] [ROWS]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
rows=${2:-1000000}
state=$(mktemp -d)
trap './scripts/mariadb-test-server.sh stop "$state" >/dev/null 2>&1 || true; rm -rf "$state"' EXIT
./scripts/mariadb-test-server.sh start "$state" >/dev/null
get() { sed -n "s/^$1=//p" "$state/server.state"; }
"$build/bench/qb_server_load_bench" "$(get host)" "$(get port)" "$(get user)" "$(get password)" "$rows"
