#!/usr/bin/env bash
# Builds the Linux agent and runs it in console mode on the bundled default configuration
# (config/*.reg imported into a hive under build/run). Stop it with Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
export CCACHE_DIR=${CCACHE_DIR:-$HOME/.ccache} CCACHE_BASEDIR=$ROOT
bash scripts/install_deps.sh
cmake -S "$ROOT" -B "$ROOT/build/linux" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$ROOT/build/linux" -j "$(nproc)" --target vtagent vtreg
RUN=$ROOT/build/run
mkdir -p "$RUN"
export VTAGENT_REGISTRY=${VTAGENT_REGISTRY:-$RUN/registry.db}
export VTAGENT_EVENTLOG_SOCKET=${VTAGENT_EVENTLOG_SOCKET:-/dev/log}
for f in "$ROOT"/config/*.reg; do
  if [ -e "$f" ]; then "$ROOT/build/linux/vtreg" import "$f"; fi
done
cd "$RUN"
exec "$ROOT/build/linux/vtagent" -r
