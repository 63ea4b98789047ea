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
)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "install_deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
