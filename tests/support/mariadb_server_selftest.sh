#!/usr/bin/env bash
# Checks scripts/mariadb-test-server.sh itself: a server left behind by an
# interrupted run is stopped by the next start, a port that is taken is
# retried, stop removes everything, and a second stop is harmless.
set -euo pipefail
script=$(cd "$(dirname "$0")/../.." && pwd)/scripts/mariadb-test-server.sh
work=$(mktemp -d "${TMPDIR:-/tmp}/qb-selftest-XXXXXX")
holder=""
cleanup() {
  [[ -n "$holder" ]] && kill "$holder" 2>/dev/null || true
  "$script" stop "$work/state" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
value() { sed -n "s/^$1=//p" "$work/state/server.state"; }
alive() { [[ -r /proc/$1/cmdline ]] && tr '\0' '\n' </proc/$1/cmdline | grep -q '^mariadbd\|/mariadbd$'; }

# A first server; then a second start on the same state, as after a run that
# was killed before its clean-up.
"$script" start "$work/state" >/dev/null
first_pid=$(value pid)
first_base=$(value base_dir)
alive "$first_pid" || fail "first server is not running"
"$script" start "$work/state" >/dev/null
second_pid=$(value pid)
[[ "$second_pid" != "$first_pid" ]] || fail "second start reused the first server"
alive "$first_pid" && fail "the stale server $first_pid still runs"
[[ ! -e "$first_base" ]] || fail "the stale server's directory $first_base is left"
mariadb --no-defaults --protocol=TCP -h127.0.0.1 -P"$(value port)" -u"$(value user)" -p"$(value password)" \
  -e 'SELECT 1' >/dev/null || fail "the account of the second server cannot log in"
"$script" stop "$work/state" >/dev/null

# A port somebody else listens on is given up for another one.
python3 -c 'import socket,sys,time
s=socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", 0)); s.listen(1); print(s.getsockname()[1], flush=True); time.sleep(600)' >"$work/port" &
holder=$!
for _ in $(seq 100); do [[ -s "$work/port" ]] && break; sleep 0.1; done
taken=$(cat "$work/port")
QB_MARIADB_PORT=$taken "$script" start "$work/state" >"$work/out" 2>&1 || { cat "$work/out"; fail "start with a taken port"; }
grep -q "port $taken was taken" "$work/out" || fail "no retry reported for port $taken"
[[ "$(value port)" != "$taken" ]] || fail "the server claims the taken port"
base=$(value base_dir)
pid=$(value pid)
"$script" status "$work/state" >/dev/null || fail "status does not see the server"

# Stop ends the server and removes its files; a second stop does nothing.
"$script" stop "$work/state" >/dev/null
alive "$pid" && fail "server $pid still runs after stop"
[[ ! -e "$base" && ! -e "$work/state/server.state" ]] || fail "stop left files behind"
"$script" stop "$work/state" >/dev/null || fail "a second stop failed"
"$script" status "$work/state" >/dev/null && fail "status reports a stopped server"
echo "mariadb-test-server self-test passed"
