#!/usr/bin/env bash
# Runs the write-file benchmark and dd on the same disk, one after the other, and prints the
# action's rates as a fraction of dd's. dd runs twice: with 1 MiB blocks (what the disk takes in
# big writes) and with 122-byte blocks (one write call per line, as the action makes).
# Neither side syncs: both measure writing into the page cache and what the disk keeps up with.
#   bench/write_file_vs_dd.sh [BUILD_DIR] [TARGET_DIR]
set -euo pipefail
build=${1:-build/linux}
target=${2:-$(mktemp -d "${TMPDIR:-/tmp}/vtagent-wf-vs-dd.XXXXXX")}
mkdir -p "$target"
bench="$build/bench/write_file_bench"
[ -x "$bench" ] || { echo "no $bench: build with -DVT_BENCH=ON first" >&2; exit 1; }

dd_rate() {  # block size, count -> bytes per second
  local out
  out=$(LC_ALL=C dd if=/dev/zero of="$target/dd.bin" bs="$1" count="$2" 2>&1 >/dev/null | tail -1)
  rm -f "$target/dd.bin"
  # "... bytes (...) copied, 0.5 s, 400 MB/s": bytes / seconds
  awk '{ for (i = 1; i <= NF; i++) if ($i == "s,") secs = $(i-1); print $1 / secs }' <<<"$out"
}

dd_big=$(dd_rate 1M 200)
dd_line=$(dd_rate 122 1000000)
json=$(VT_BENCH_DIR="$target" "$bench" --benchmark_format=json 2>/dev/null)
rm -rf "$target"

python3 - "$dd_big" "$dd_line" <<PY
import json, sys
dd_big, dd_line = float(sys.argv[1]), float(sys.argv[2])
data = json.loads('''$json''')
print(f"dd 1 MiB blocks:  {dd_big / 1e6:9.1f} MB/s")
print(f"dd 122-byte blocks: {dd_line / 1e6:7.1f} MB/s ({dd_line / 122:,.0f} writes/s)")
for b in data["benchmarks"]:
    rate, units = b["bytes_per_second"], b["units_per_s"]
    print(f"{b['name'].split('/')[0]}: {units:,.0f} units/s, {rate / 1e6:.1f} MB/s = "
          f"{rate / dd_big:.1%} of dd 1 MiB, {rate / dd_line:.1%} of dd 122 B")
PY
