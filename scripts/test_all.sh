#!/usr/bin/env bash
# Builds and runs every test: the Linux build natively, the Windows build under Wine, the
# fuzz targets (ASan and UBSan, fixed time budgets) and the ThreadSanitizer build of the
# engine tests. Ends with one summary line.
set -uo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
BUILD=${VT_BUILD_DIR:-$ROOT/build}
FUZZ_SECONDS=${VT_FUZZ_SECONDS:-60}
export CCACHE_DIR=${CCACHE_DIR:-$HOME/.ccache} CCACHE_BASEDIR=$ROOT CCACHE_MAXSIZE=5G
JOBS=$(nproc)

bash scripts/install_deps.sh || { echo "test_all: dependency installation failed"; exit 1; }

failed=()
STAGES=${VT_STAGES:-linux windows fuzz tsan}  # e.g. VT_STAGES=windows for one stage
step() {  # step NAME COMMAND...: runs one stage, remembers failures, goes on with the next
  local name=$1; shift
  [[ " $STAGES " == *" $1 "* ]] || return 0
  echo "=== $name"
  if ! "$@"; then failed+=("$name"); echo "=== $name FAILED"; fi
}

configure_build() {  # configure_build DIR [cmake args...]
  local dir=$1; shift
  cmake -S "$ROOT" -B "$dir" -G Ninja "$@" >/dev/null && cmake --build "$dir" -j "$JOBS"
}

linux() {
  bash scripts/check_layers.sh || return 1
  configure_build "$BUILD/linux" -DCMAKE_BUILD_TYPE=RelWithDebInfo &&
    (cd "$BUILD/linux" && ctest --output-on-failure -j "$JOBS")
}

windows() {
  export WINEPREFIX=$BUILD/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  configure_build "$BUILD/windows" -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/mingw-w64.cmake" || return 1
  [ -d "$WINEPREFIX" ] || wineboot --init >/dev/null 2>&1
  (cd "$BUILD/windows" && ctest --output-on-failure -j 1)
  local rc=$?
  wineserver -k >/dev/null 2>&1 || true
  # The agent as a real service under Wine's service control manager (own prefix, bounded).
  timeout 900 bash scripts/wine_service_test.sh "$BUILD/windows" || rc=1
  # The probes of the Windows build against the Linux tests' real servers.
  timeout 600 python3 tests/integration/wine_probes.py "$BUILD/windows" || rc=1
  wineserver -k >/dev/null 2>&1 || true
  return $rc
}

fuzz() {
  CC=clang CXX=clang++ configure_build "$BUILD/fuzz" -DVT_FUZZ=ON -DCMAKE_BUILD_TYPE=Debug || return 1
  local rc=0 src
  for src in "$ROOT"/tests/fuzz/*_fuzz.cpp; do
    local name; name=$(basename "$src" .cpp)
    local target="$BUILD/fuzz/tests/$name"
    [ -x "$target" ] || { echo "--- $name: not built"; rc=1; continue; }
    local corpus="$BUILD/fuzz/corpus/$name"; mkdir -p "$corpus"
    local seeds="$ROOT/tests/fuzz/seeds/${name%_fuzz}"
    echo "--- $name for ${FUZZ_SECONDS}s"
    "$target" -max_total_time="$FUZZ_SECONDS" -rss_limit_mb=2048 -print_final_stats=0 \
        "$corpus" $( [ -d "$seeds" ] && echo "$seeds" ) >"$BUILD/fuzz/$name.log" 2>&1 ||
        { rc=1; tail -40 "$BUILD/fuzz/$name.log"; }
  done
  return $rc
}

tsan() {
  CC=clang CXX=clang++ configure_build "$BUILD/tsan" -DVT_TSAN=ON -DVT_BENCH=OFF \
      -DCMAKE_BUILD_TYPE=Debug || return 1
  local rc=0 t
  for t in base_tests engine_tests sources_tests actions_tests service_tests; do
    [ -x "$BUILD/tsan/tests/$t" ] || { echo "--- $t: not built"; rc=1; continue; }
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" "$BUILD/tsan/tests/$t" || rc=1
  done
  return $rc
}

step "Linux build and tests" linux
step "Windows build and tests under Wine" windows
step "Fuzzers (ASan, UBSan)" fuzz
step "ThreadSanitizer" tsan

if ((${#failed[@]})); then
  echo "test_all: FAILED: ${failed[*]}"
  exit 1
fi
echo "test_all: all stages passed ($STAGES)"
