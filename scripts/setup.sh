#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need.
# Idempotent: when everything is present it only asks dpkg and returns.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config ccache
  libgtest-dev libgmock-dev libbenchmark-dev libicu-dev
  libmariadb-dev libmariadb-dev-compat mariadb-server mariadb-client
  unixodbc unixodbc-dev odbcinst tdsodbc freetds-bin
  python3 procps locales
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]} > 0)); then
  echo "setup: installing ${missing[*]}"
  SUDO=""
  if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Installing tdsodbc registers the FreeTDS driver; make sure it is there.
if ! odbcinst -q -d 2>/dev/null | grep -q '^\[FreeTDS\]'; then
  lib=$(find /usr/lib -name libtdsodbc.so 2>/dev/null | head -n 1)
  if [[ -n "$lib" ]]; then
    printf '[FreeTDS]\nDescription=FreeTDS ODBC driver\nDriver=%s\n' "$lib" > /tmp/qb-freetds.ini
    odbcinst -i -d -f /tmp/qb-freetds.ini >/dev/null
  fi
fi
