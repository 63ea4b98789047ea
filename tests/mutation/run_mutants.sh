#!/usr/bin/env bash
# Mutation check: applies each mutant of mutants.txt to its source file, rebuilds build/linux and
# runs the tests; a mutant no test fails on shows a gap in the tests. Not part of the default
# test command: each mutant costs a rebuild and a test run (about 1-2 minutes).
#
#   bash tests/mutation/run_mutants.sh [-o RESULTS] [-l MUTANTS] [-t SECONDS] [--check] [ID...]
#
# -o results file (default tests/mutation/results.txt), -l mutant list (default
# tests/mutation/mutants.txt), -t timeout per test (default 300), --check only verifies that
# every `find` occurs exactly once. With IDs, only those mutants run.
set -euo pipefail
root=$(git rev-parse --show-toplevel)
cd "$root"
results=tests/mutation/results.txt
list=tests/mutation/mutants.txt
timeout=300
check_only=0
ids=()
while (($#)); do
    case "$1" in
        -o) results=$2; shift 2 ;;
        -l) list=$2; shift 2 ;;
        -t) timeout=$2; shift 2 ;;
        --check) check_only=1; shift ;;
        *) ids+=("$1"); shift ;;
    esac
done
export CCACHE_DIR=${CCACHE_DIR:-$HOME/.ccache} CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root}
export CCACHE_MAXSIZE=${CCACHE_MAXSIZE:-5G}
work=$(mktemp -d)
backup="" target=""

# Prints "id<TAB>file" per mutant; with `apply ID`, rewrites that mutant's file in place.
mutants() {
    python3 - "$list" "$@" <<'PY'
import sys
path, args = sys.argv[1], sys.argv[2:]
blocks, cur = [], {}
for line in open(path, encoding="utf-8").read().split("\n") + [""]:
    if line.startswith("#"):
        continue
    if not line.strip():
        if cur: blocks.append(cur)
        cur = {}
        continue
    key, _, value = line.partition(":")
    cur[key.strip()] = value[1:] if value.startswith(" ") else value
for b in blocks:
    missing = {"id", "file", "find", "replace"} - b.keys()
    if missing: sys.exit(f"mutant {b.get('id', '?')}: missing {', '.join(sorted(missing))}")
    text = open(b["file"], encoding="utf-8").read()
    n = text.count(b["find"])
    if n != 1: sys.exit(f"mutant {b['id']}: 'find' occurs {n} times in {b['file']}, not once")
    if args and args[0] == "apply":
        if b["id"] == args[1]:
            open(b["file"], "w", encoding="utf-8").write(text.replace(b["find"], b["replace"]))
            sys.exit(0)
    else:
        print(f"{b['id']}\t{b['file']}")
if args: sys.exit(f"no mutant {args[1]}")
PY
}

restore() {
    if [[ -n $backup ]]; then cp "$backup" "$target"; fi
    backup=""
}
trap 'restore; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

mutants >"$work/list"
((check_only)) && { echo "all $(wc -l <"$work/list") mutants apply"; exit 0; }
if ((${#ids[@]})); then
    for id in "${ids[@]}"; do grep -q "^$id	" "$work/list" || { echo "no mutant $id" >&2; exit 2; }; done
fi
[[ -f build/linux/build.ninja ]] ||
    cmake -S . -B build/linux -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/linux -j2 >"$work/build.log" 2>&1 || { cat "$work/build.log"; echo "the unmutated tree does not build" >&2; exit 2; }

# Runs the tests matched by the ctest arguments; on a failure prints the failing test. An
# integration test that fails is run once more: timing under a loaded machine can fail one, and a
# flake taken for a catch would hide a gap.
failing_test() {
    local log=$work/ctest.log
    if (cd build/linux && ctest -j2 --timeout "$timeout" --output-on-failure "$@") >"$log" 2>&1; then
        return 0
    fi
    # Ctrl-C ends ctest normally, so bash would run no trap and count the break as a catch.
    grep -q "(INTERRUPT)" "$log" && kill -TERM $$
    local test gtest
    test=$(sed -n '/The following tests FAILED/{n;p;q}' "$log" | sed -E 's/^[[:space:]]*[0-9]+ - //')
    gtest=$(grep -m1 -oE '\[  FAILED  \] [A-Za-z0-9_/.]+' "$log" | sed 's/.*\] //' || true)
    echo "${test:-ctest failed}${gtest:+: $gtest}"
}

: >"$results"
while IFS=$'\t' read -r id file; do
    if ((${#ids[@]})) && [[ " ${ids[*]} " != *" $id "* ]]; then continue; fi
    git diff --quiet HEAD -- "$file" || { echo "$file has local changes: refusing to mutate it" >&2; exit 2; }
    target=$file backup=$work/original
    cp "$file" "$backup"
    mutants apply "$id"
    folder=$(cut -d/ -f2 <<<"$file")
    if ! cmake --build build/linux -j2 >"$work/build.log" 2>&1; then
        # Ctrl-C stops ninja, which ends normally, so bash runs no trap; no compile error means
        # the build was interrupted (or broke otherwise), not that the mutant is stillborn.
        grep -q "error:" "$work/build.log" || { tail "$work/build.log" >&2; exit 2; }
        line="stillborn $id"
    elif failed=$(failing_test -R "^${folder}_tests\$") && [[ -z $failed ]] &&
        failed=$(failing_test -E "integration|^${folder}_tests\$") && [[ -z $failed ]] &&
        failed=$(failing_test -R integration) &&
        { [[ -z $failed ]] || failed=$(failing_test -R "^${failed%% *}\$"); } && [[ -z $failed ]]; then
        line="survived $id"
    else
        line="caught $id ($failed)"
    fi
    restore
    echo "$line" | tee -a "$results"
done <"$work/list"
# The build is left matching the restored sources.
cmake --build build/linux -j2 >"$work/build.log" 2>&1 || echo "rebuild after restoring failed" >&2
