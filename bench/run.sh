#!/usr/bin/env bash
# The published benchmark: how fast quillbridge-cli moves a large table, next
# to the baselines it can be held against, all measured in one run on the same
# rows.
#
#   bench/run.sh [--rows N] [--small-rows N] [--rounds N] [--build DIR] [--keep DIR]
#
#   --rows N        rows of the large table (default 1000000)
#   --small-rows N  rows of the small table, for the memory figures (default 100000)
#   --rounds N      rounds of a and c, alternating; their medians count (default 3)
#   --build DIR     the release build tree (default build/; ./scripts/build.sh release)
#   --keep DIR      keep the dumps and logs in DIR (default: a temporary directory, removed)
#
# The source is the SQL Server stand-in (tests/mss_standin, TDS 7.4 over
# unixODBC + FreeTDS) with two generated tables in database qbbench,
# dbo.bulk_rows (N rows) and dbo.bulk_small: int key, nvarchar(100),
# decimal(12,2), datetime2(7), nvarchar(max) of 96 characters. The target is
# a private MariaDB (scripts/mariadb-test-server.sh). Measured:
#
#   a  bare ODBC fetch loop: SQLFetch + SQLGetData of every column as text,
#      keeping nothing (bench/odbc_fetch_loop.cpp)
#   b  the mariadb client replaying the INSERT statements of the dump of c
#      into a fresh database
#   c  quillbridge-cli, the table into a dump file
#   d  quillbridge-cli, the table straight into MariaDB
#
# and prints rows/s of each (a and c: the median of the rounds, since the
# machine may be shared and noisy; b and d take long and run once), the
# ratios c/a and d/min(a,b), and the peak resident memory of c and d at both
# sizes (wait4 rusage, /usr/bin/time). The
# rates of c and d are the tool's own ("Elapsed time" of its report: the
# conversion, without start-up and connections); a and b are timed the same
# way, from the statement to the last row.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

rows=1000000
small=100000
rounds=3
build=build
keep=""
while (($#)); do
  case "$1" in
    --rows) rows=$2; shift 2 ;;
    --rows=*) rows=${1#--rows=}; shift ;;
    --small-rows) small=$2; shift 2 ;;
    --small-rows=*) small=${1#--small-rows=}; shift ;;
    --rounds) rounds=$2; shift 2 ;;
    --rounds=*) rounds=${1#--rounds=}; shift ;;
    --build) build=$2; shift 2 ;;
    --build=*) build=${1#--build=}; shift ;;
    --keep) keep=$2; shift 2 ;;
    --keep=*) keep=${1#--keep=}; shift ;;
    -h|--help) sed -n '2,33p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "bench/run.sh: unknown argument '$1' (--help)" >&2; exit 2 ;;
  esac
done
[[ "$rows" =~ ^[0-9]+$ && "$rows" -gt 0 ]] || { echo "bench/run.sh: --rows needs a positive number" >&2; exit 2; }
[[ "$rounds" =~ ^[0-9]+$ && "$rounds" -gt 0 ]] || { echo "bench/run.sh: --rounds needs a positive number" >&2; exit 2; }
[[ "$small" =~ ^[0-9]+$ && "$small" -gt 0 ]] || { echo "bench/run.sh: --small-rows needs a positive number" >&2; exit 2; }

cli=$repo/$build/src/app/programs/quillbridge-cli
fetch=$repo/$build/bench/qb_odbc_fetch_loop
for f in "$cli" "$fetch"; do
  [[ -x "$f" ]] || { echo "bench/run.sh: $f is missing; run ./scripts/build.sh release" >&2; exit 1; }
done
[[ -x /usr/bin/time ]] || { echo "bench/run.sh: /usr/bin/time is missing (apt-get install time)" >&2; exit 1; }
PATH=$PATH:/usr/sbin

if [[ -n "$keep" ]]; then
  mkdir -p "$keep"
  work=$(cd "$keep" && pwd)
  rm -rf -- "$work/standin" "$work/mariadb" "$work/home"
else
  work=$(mktemp -d "${TMPDIR:-/tmp}/qb-bench-XXXXXX")
fi
mkdir -p "$work/standin" "$work/mariadb" "$work/home"

# shellcheck source=../scripts/standin-lib.sh
source scripts/standin-lib.sh
mariadb_started=0
cleanup() {
  local rc=$?
  trap - EXIT INT TERM
  standin_stop
  ((mariadb_started)) && ./scripts/mariadb-test-server.sh stop "$work/mariadb" >/dev/null 2>&1
  [[ -z "$keep" ]] && rm -rf -- "$work"
  exit "$rc"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

say() { printf '%s\n' "$*" >&2; }

# --- servers ---------------------------------------------------------------
cat >"$work/standin/bench.json" <<EOF
{"databases": [{"name": "qbbench", "schemas": [{"name": "dbo", "tables": [
  {"name": "bulk_rows", "generated": {"rows": $rows}},
  {"name": "bulk_small", "generated": {"rows": $small}}]}]}]}
EOF
standin_start "$work/standin" --fixture tests/fixtures/mss/minimal.json --fixture "$work/standin/bench.json"
sport=$standin_port
./scripts/mariadb-test-server.sh start "$work/mariadb" >/dev/null
mariadb_started=1
get() { sed -n "s/^$1=//p" "$work/mariadb/server.state"; }
mport=$(get port)
muser=$(get user)
mpass=$(get password)
sql() { mariadb --no-defaults --protocol=TCP -h127.0.0.1 -P"$mport" -u"$muser" -p"$mpass" --batch --skip-column-names "$@"; }

# --- helpers -----------------------------------------------------------------
# profile FILE TABLE DEST MYSQL-LINES
profile() {
  {
    printf '[Generic settings]\nsrc=qbbench\ndest=%s\n' "$3"
    printf '[MS SQL Server settings]\nserver=127.0.0.1,%s\nlogin=sa\npassword=Secret#1\nwindows authentication=0\nschema=dbo\n' "$sport"
    printf '[MySQL settings]\n%s\n' "$4"
    printf '[Selected Tables]\ndbo.%s\n' "$2"
  } >"$1"
}

# run_cli NAME PROFILE: runs the tool; sets rate (rows/s of its report) and rss (KiB).
run_cli() {
  local name=$1 status=0 line
  env HOME="$work/home" XDG_CONFIG_HOME="$work/home/config" XDG_DOCUMENTS_DIR="$work/home" \
    /usr/bin/time -f '%M %e %U %S' -o "$work/$name.time" \
    "$cli" --log "$work/$name.log" "$2" >"$work/$name.out" 2>&1 || status=$?
  if ((status != 0)); then
    cat "$work/$name.out" >&2
    say "bench/run.sh: quillbridge-cli ended with status $status in run $name (log $work/$name.log)"
    exit 1
  fi
  line=$(grep '^Elapsed time:' "$work/$name.out")
  rate=$(sed -E 's/.* ([0-9,]+) rows\/s.*/\1/' <<<"$line" | tr -d ,)
  read -r rss wall user sys <"$work/$name.time"
  cpu=$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.1f", u + s }')
  say "  $name${round:+ ($round)}: $line (process: $wall s wall, $cpu s CPU, peak RSS $((rss / 1024)) MiB)"
}

count() { sql -e "SELECT COUNT(*) FROM \`$1\`.\`$2\`"; }

ms() { date +%s%N; }

say "bench: $rows rows (and $small for the memory figures); stand-in on 127.0.0.1:$sport, MariaDB $(get version) on 127.0.0.1:$mport"

median() { tr ' ' '\n' | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# (a) the bare fetch loop and (c) the tool into a dump file, in alternating
# rounds; a warm-up read of the small table first.
"$fetch" 127.0.0.1 "$sport" sa 'Secret#1' qbbench bulk_small >/dev/null
profile "$work/c.qbr" bulk_rows "$work/bulk_rows.sql" $'direct mode=0\ndump create database=0\ndump create table=1'
rates_a="" rates_c="" rss_c=0
for round in $(seq "$rounds"); do
  out=$("$fetch" 127.0.0.1 "$sport" sa 'Secret#1' qbbench bulk_rows)
  read -r got secs <<<"$(sed -E 's/rows=([0-9]+) seconds=([0-9.]+) .*/\1 \2/' <<<"$out")"
  ((got == rows)) || { say "bench/run.sh: the fetch loop read $got rows, not $rows"; exit 1; }
  rates_a+=" $(awk -v n="$rows" -v s="$secs" 'BEGIN { printf "%.0f", n / s }')"
  say "  a ($round): $out"
  run_cli c "$work/c.qbr"
  rates_c+=" $rate"
  ((rss > rss_c)) && rss_c=$rss
done
rate_a=$(median <<<"${rates_a# }")
rate_c=$(median <<<"${rates_c# }")

# (b) the mariadb client replaying that dump
sql -e "CREATE DATABASE qb_replay"
t0=$(ms)
sql -D qb_replay <"$work/bulk_rows.sql"
t1=$(ms)
got=$(count qb_replay bulk_rows)
((got == rows)) || { say "bench/run.sh: the replay stored $got rows, not $rows"; exit 1; }
rate_b=$(awk -v n="$rows" -v t="$((t1 - t0))" 'BEGIN { printf "%.0f", n / (t / 1e9) }')
say "  b: $rows rows replayed in $(awk -v t="$((t1 - t0))" 'BEGIN { printf "%.2f", t / 1e9 }') s"
sql -e "DROP DATABASE qb_replay"

# (d) straight into MariaDB
direct="direct mode=1"$'\n'"host=127.0.0.1"$'\n'"port=$mport"$'\n'"user=$muser"$'\n'"password=$mpass"
profile "$work/d.qbr" bulk_rows qb_direct "$direct"
round=""
run_cli d "$work/d.qbr"
rate_d=$rate rss_d=$rss
got=$(count qb_direct bulk_rows)
((got == rows)) || { say "bench/run.sh: the direct run stored $got rows, not $rows"; exit 1; }
sql -e "DROP DATABASE qb_direct"

# memory at the small size
profile "$work/c-small.qbr" bulk_small "$work/bulk_small.sql" $'direct mode=0\ndump create database=0\ndump create table=1'
run_cli c-small "$work/c-small.qbr"
rss_c_small=$rss
profile "$work/d-small.qbr" bulk_small qb_direct_small "$direct"
run_cli d-small "$work/d-small.qbr"
rss_d_small=$rss
got=$(count qb_direct_small bulk_small)
((got == small)) || { say "bench/run.sh: the small direct run stored $got rows, not $small"; exit 1; }
rm -f -- "$work/bulk_rows.sql" "$work/bulk_small.sql"

# --- the figures ---------------------------------------------------------------
awk -v rows="$rows" -v small="$small" -v a="$rate_a" -v b="$rate_b" -v c="$rate_c" -v d="$rate_d" \
    -v rc="$rss_c" -v rd="$rss_d" -v rcs="$rss_c_small" -v rds="$rss_d_small" 'BEGIN {
  printf "\n%d rows (int, nvarchar(100), decimal(12,2), datetime2(7), nvarchar(max) of 96 characters)\n\n", rows
  printf "  %-44s %12s\n", "run", "rows/s"
  printf "  %-44s %12.0f\n", "a  bare ODBC fetch loop (median)", a
  printf "  %-44s %12.0f\n", "b  mariadb client replaying the dump", b
  printf "  %-44s %12.0f\n", "c  quillbridge-cli into a dump file (median)", c
  printf "  %-44s %12.0f\n", "d  quillbridge-cli into MariaDB", d
  m = a < b ? a : b
  printf "\n  c / a        %5.2f\n", c / a
  printf "  d / min(a,b) %5.2f   (min is %s)\n", d / m, a < b ? "a" : "b"
  printf "\n  peak RSS     %10s %10s\n", small " rows", rows " rows"
  printf "  c            %7.1f MiB %7.1f MiB\n", rcs / 1024, rc / 1024
  printf "  d            %7.1f MiB %7.1f MiB\n", rds / 1024, rd / 1024
}'
