# Shell functions that run the SQL Server stand-in (tests/mss_standin/server.py)
# for the scripts; sourced, not run. The caller's working directory must be
# the repository.
#
#   standin_start STATE-DIR [server.py arguments...]
#       starts the stand-in on a free port of 127.0.0.1 with the given
#       arguments (e.g. --fixture FILE), its output in STATE-DIR/server.log,
#       and returns once it listens; sets standin_port and standin_pid. A
#       stand-in that exits or does not listen within a minute prints its log
#       and fails with status 1.
#   standin_stop
#       SIGTERM, then SIGKILL after ten seconds; does nothing when none runs.

standin_pid=""
standin_port=""

standin_start() {
  local state=$1
  shift
  mkdir -p "$state"
  rm -f -- "$state/port"
  python3 tests/mss_standin/server.py --port 0 --port-file "$state/port" "$@" >"$state/server.log" 2>&1 &
  standin_pid=$!
  for _ in $(seq 600); do
    [[ -s "$state/port" ]] && break
    if ! kill -0 "$standin_pid" 2>/dev/null; then
      cat "$state/server.log" >&2
      echo "the SQL Server stand-in did not start" >&2
      return 1
    fi
    sleep 0.1
  done
  if [[ ! -s "$state/port" ]]; then
    echo "the SQL Server stand-in did not listen within a minute" >&2
    return 1
  fi
  standin_port=$(cat "$state/port")
}

standin_stop() {
  if [[ -n "$standin_pid" ]] && kill -0 "$standin_pid" 2>/dev/null; then
    kill -TERM "$standin_pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$standin_pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$standin_pid" 2>/dev/null || true
    wait "$standin_pid" 2>/dev/null || true
  fi
  standin_pid=""
}
