#!/usr/bin/env bash
# A throwaway MariaDB server for the tests.
#
#   mariadb-test-server.sh start  <state-dir> [--server-version=TEXT] [--server-option=OPTION]...
#   mariadb-test-server.sh stop   <state-dir>
#   mariadb-test-server.sh status <state-dir>
#
# start: creates a data directory in a fresh temporary directory, starts
#   mariadbd on 127.0.0.1 on a free port (no systemd, no option files), waits
#   until it answers, creates a password account for the tests and writes
#   <state-dir>/server.state (format in doc/mariadb-test-server.md). A server
#   left behind by an interrupted run of the same state directory is stopped
#   first. A port taken between choosing it and binding it is retried.
#   --server-version makes the server announce TEXT as its version (mariadbd
#   --version=TEXT), so that the client sees an older or odd version string.
#   --server-option passes one more option to mariadbd (such as
#   --sql-mode=...), for a server set up the way a DBA might have it.
#   QB_MARIADB_PORT, when set, is the port of the first attempt.
# stop: SIGTERM to the recorded server, waits for it to end (SIGKILL after a
#   minute), removes its temporary directory and the state. Does nothing
#   when no server is recorded.
# status: exit 0 when the recorded server is running.
#
# Must run as root or as the user who owns the data directory.
set -euo pipefail

die() { echo "mariadb-test-server: $*" >&2; exit 1; }

usage() { die "usage: $0 start|stop|status <state-dir> [--server-version=TEXT] [--server-option=OPTION]..."; }

(($# >= 2)) || usage
action=$1
state_dir=$2
shift 2
server_version=""
server_options=()
for arg in "$@"; do
  case "$arg" in
    --server-version=*) server_version=${arg#--server-version=} ;;
    --server-option=*) server_options+=("${arg#--server-option=}") ;;
    *) usage ;;
  esac
done

state_file=$state_dir/server.state
base_file=$state_dir/base_dir

for tool in mariadbd mariadb-install-db mariadb mariadb-admin; do
  command -v "$tool" >/dev/null 2>&1 ||
    [[ -x /usr/sbin/$tool ]] ||
    die "$tool not found; run scripts/setup.sh (packages mariadb-server mariadb-client)"
done
PATH=$PATH:/usr/sbin

run_user=$(id -un)

# True when pid is a mariadbd whose data directory is base/data.
is_our_server() {
  local pid=$1 base=$2
  [[ "$pid" =~ ^[0-9]+$ ]] || return 1
  [[ -r /proc/$pid/cmdline ]] || return 1
  tr '\0' '\n' </proc/$pid/cmdline | grep -qxF -- "--datadir=$base/data"
}

# Stops the server living in base (if any) and removes base.
stop_base() {
  local base=$1 pid
  [[ -n "$base" ]] || return 0
  case "$base" in */qb-mariadb-*) ;; *) die "refusing to remove unexpected directory '$base'" ;; esac
  for pid in $(cat "$base/pid" "$base/launch.pid" 2>/dev/null | sort -u); do
    if is_our_server "$pid" "$base"; then
      kill -TERM "$pid" 2>/dev/null || true
      for _ in $(seq 600); do
        is_our_server "$pid" "$base" || break
        sleep 0.1
      done
      if is_our_server "$pid" "$base"; then
        echo "mariadb-test-server: server $pid did not stop in a minute; killing it" >&2
        kill -KILL "$pid" 2>/dev/null || true
        sleep 0.5
      fi
    fi
  done
  rm -rf -- "$base"
}

do_stop() {
  local base=""
  [[ -r "$base_file" ]] && base=$(cat "$base_file")
  stop_base "$base"
  rm -f -- "$state_file" "$base_file"
}

pid_namespace() { readlink /proc/self/ns/pid 2>/dev/null || echo unknown; }

# Temporary directories of earlier runs whose server is gone (a run that was
# killed before its clean-up). A directory whose server still runs belongs to
# somebody else's run and is left alone, and so is one made in another pid
# namespace (a container sharing /tmp), whose processes cannot be seen here.
sweep_dead() {
  local tmp=$1 dir pid alive ns owner
  ns=$(pid_namespace)
  for dir in "$tmp"/qb-mariadb-*; do
    [[ -d "$dir" && -f "$dir/launch.pid" ]] || continue
    [[ "$(cat "$dir/pidns" 2>/dev/null)" == "$ns" ]] || continue
    # A directory whose starting script still runs is in use, even between
    # two attempts when no server process exists.
    owner=$(cat "$dir/owner.pid" 2>/dev/null || true)
    [[ -n "$owner" ]] && kill -0 "$owner" 2>/dev/null && continue
    alive=0
    for pid in $(cat "$dir/pid" "$dir/launch.pid" 2>/dev/null | sort -u); do
      is_our_server "$pid" "$dir" && alive=1
    done
    ((alive)) || rm -rf -- "$dir"
  done
}

free_port() {
  python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1]); s.close()'
}

root_sql() {
  mariadb --no-defaults --protocol=TCP -h127.0.0.1 -P"$port" -uroot --batch --skip-column-names -e "$1"
}

# Starts mariadbd on $port; 0 when it answers, 2 when the port was taken,
# 1 on any other failure.
launch() {
  local base=$1
  local args=(--no-defaults --user="$run_user" --datadir="$base/data" --socket="$base/sock"
    --port="$port" --bind-address=127.0.0.1 --skip-name-resolve --pid-file="$base/pid" --tmpdir="$base/tmp"
    --log-error="$base/err.log" --innodb-log-file-size=48M --innodb-buffer-pool-size=64M
    --max-connections=200)
  [[ -n "$server_version" ]] && args+=(--version="$server_version")
  ((${#server_options[@]} == 0)) || args+=("${server_options[@]}")
  rm -f "$base/pid"
  # A session of its own and no inherited descriptors: ctest waits for the
  # output pipes of a test to close, and must not wait for the server.
  setsid mariadbd "${args[@]}" </dev/null >>"$base/mariadbd.out" 2>&1 &
  local pid=$!
  echo "$pid" >"$base/launch.pid"
  for _ in $(seq 1200); do
    if ! kill -0 "$pid" 2>/dev/null; then
      grep -qiE "address already in use|another server running on port" "$base/err.log" 2>/dev/null && return 2
      return 1
    fi
    if mariadb-admin --no-defaults --protocol=TCP -h127.0.0.1 -P"$port" -uroot \
         --connect-timeout=2 ping >/dev/null 2>&1; then
      # Something answers on the port; make sure it is this server.
      [[ "$(root_sql 'SELECT @@datadir' 2>/dev/null)" == "$base/data/" ]] && return 0
    fi
    sleep 0.1
  done
  return 1
}

do_start() {
  mkdir -p "$state_dir"
  state_dir=$(cd "$state_dir" && pwd)
  state_file=$state_dir/server.state
  base_file=$state_dir/base_dir
  do_stop
  local tmp=${TMPDIR:-/tmp}
  sweep_dead "$tmp"
  local base
  base=$(mktemp -d "$tmp/qb-mariadb-XXXXXX")
  base=$(cd "$base" && pwd -P)
  echo $$ >"$base/owner.pid"
  pid_namespace >"$base/pidns"
  echo "$base" >"$base_file"
  ((${#base} < 90)) || die "temporary directory '$base' is too long for a socket path; set TMPDIR"

  # A temporary directory of its own: servers of other runs (in other pid
  # namespaces too) would otherwise share /tmp and the names of their
  # temporary tables.
  mkdir -p "$base/tmp"
  if ! mariadb-install-db --no-defaults --user="$run_user" --datadir="$base/data" --tmpdir="$base/tmp" \
       --auth-root-authentication-method=normal --skip-test-db \
       --innodb-log-file-size=48M >"$base/install.log" 2>&1; then
    cat "$base/install.log" >&2
    do_stop
    die "mariadb-install-db failed"
  fi

  local attempt rc=1
  for attempt in 1 2 3 4 5; do
    if ((attempt == 1)) && [[ -n "${QB_MARIADB_PORT:-}" ]]; then port=$QB_MARIADB_PORT; else port=$(free_port); fi
    rc=0; launch "$base" || rc=$?
    ((rc == 2)) || break
    echo "mariadb-test-server: port $port was taken, trying another (attempt $attempt)" >&2
  done
  if ((rc != 0)); then
    tail -n 30 "$base/err.log" >&2 2>/dev/null || true
    do_stop
    die "the server did not start"
  fi

  local pid password version
  pid=$(cat "$base/pid")
  password="qb-$(head -c 12 /dev/urandom | od -An -tx1 | tr -d ' \n')"
  # A migration account: every object privilege on every database, but no
  # SUPER and no administration privileges, like the account a DBA hands out.
  root_sql "CREATE USER 'qb_test'@'127.0.0.1' IDENTIFIED BY '$password';
    GRANT SELECT, INSERT, UPDATE, DELETE, CREATE, DROP, INDEX, ALTER, CREATE TEMPORARY TABLES,
      LOCK TABLES, REFERENCES, CREATE VIEW, SHOW VIEW, TRIGGER, EXECUTE, CREATE ROUTINE,
      ALTER ROUTINE, EVENT ON *.* TO 'qb_test'@'127.0.0.1';" ||
    { do_stop; die "could not create the test account"; }
  version=$(root_sql 'SELECT VERSION()')

  local tmp_state
  tmp_state=$(mktemp "$state_dir/.server.state.XXXXXX")
  cat >"$tmp_state" <<EOF
# Throwaway MariaDB server of the tests; written by scripts/mariadb-test-server.sh
host=127.0.0.1
port=$port
socket=$base/sock
pid=$pid
user=qb_test
password=$password
root_user=root
root_password=
version=$version
base_dir=$base
EOF
  mv -f "$tmp_state" "$state_file"
  echo "mariadb-test-server: MariaDB $version (pid $pid) on 127.0.0.1:$port; state in $state_file"
}

do_status() {
  [[ -r "$state_file" ]] || { echo "no server recorded in $state_dir"; return 1; }
  local base pid
  base=$(sed -n 's/^base_dir=//p' "$state_file")
  pid=$(sed -n 's/^pid=//p' "$state_file")
  if is_our_server "$pid" "$base"; then
    echo "running: pid $pid"
  else
    echo "recorded server (pid $pid) is not running"
    return 1
  fi
}

case "$action" in
  start) do_start ;;
  stop) do_stop ;;
  status) do_status ;;
  *) usage ;;
esac
