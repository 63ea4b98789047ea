#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmarks need. Idempotent:
# packages already present are skipped without touching the network.
set -euo pipefail
PACKAGES=(
  cmake ninja-build ccache g++ clang libclang-rt-14-dev pkg-config
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  zlib1g-dev libsqlite3-dev libsystemd-dev libjemalloc-dev
  g++-mingw-w64-x86-64-posix mingw-w64-tools binutils-mingw-w64-x86-64 libz-mingw-w64-dev
  wine wine64
  python3 bsdutils rsyslog
  # event log monitor: backup files and journal files made by the tests
  libevt-dev libbfio-dev libevt-utils systemd-journal-remote
  # SNMP trap receiver and its real senders
  libsnmp-dev snmp rsyslog-openssl lintian
  # database output and the databases it is tested against
  unixodbc unixodbc-dev libsqliteodbc odbc-postgresql postgresql
  # send mail, network probes: the real servers the tests start on loopback
  libssl-dev openssl python3-aiosmtpd nginx vsftpd dovecot-imapd dovecot-pop3d
  # play-sound action
  libasound2-dev
)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "install_deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  # The servers above are only ever started by the tests, in temporary directories: keep the
  # package scripts from starting them as system services on port 80, 21, 143 ...
  own_policy=0
  if [[ ! -e /usr/sbin/policy-rc.d ]]; then
    printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d && chmod +x /usr/sbin/policy-rc.d && own_policy=1
  fi
  apt-get install -y -q --no-install-recommends "${missing[@]}"
  if ((own_policy)); then rm -f /usr/sbin/policy-rc.d; fi
fi
