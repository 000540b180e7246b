#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (in build-fuzz, AddressSanitizer and
# UndefinedBehaviorSanitizer on), gathers each target's seeds and runs it.
#
#   scripts/fuzz.sh [TARGET|all] [SECONDS] [libFuzzer options ...]
#
# Each target runs for SECONDS (default 1200) or 10 million inputs, whichever comes first;
# the test command runs every target for a few seconds. What a target learns stays in
# build-fuzz/corpus/TARGET and is the start of its next run. A crash, a hang (an input
# running longer than 30 s of wall time: every input here takes milliseconds, but a run at
# low priority on a busy machine can stall for seconds) or a leak is kept in
# build-fuzz/findings/TARGET/ and makes the script fail; turn it into a regression test
# with the input under tests/data/fuzz/TARGET/, from which later runs also start.
#
# Environment: KESTROVA_FUZZ_BUILD (build folder), KESTROVA_FUZZ_JOBS (build jobs, 2),
# KESTROVA_FUZZ_NICE (niceness of the runs, 10).
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD

target=${1:-all}
seconds=${2:-1200}
shift $(($# < 2 ? $# : 2))
build=${KESTROVA_FUZZ_BUILD:-build-fuzz}
jobs=${KESTROVA_FUZZ_JOBS:-2}
niceness=${KESTROVA_FUZZ_NICE:-10}

all_targets=(fuzz_portfolio_file fuzz_servers_dat fuzz_server_dat fuzz_news_dat fuzz_news_page fuzz_quote_page
             fuzz_market_summary fuzz_pop_replies fuzz_modem_tap fuzz_ini_migration fuzz_numbers fuzz_source_csv
             fuzz_source_json fuzz_sources_json fuzz_daily_csv)

# Seeds from the project's own files; fuzz/seeds/TARGET and tests/data/fuzz/TARGET are added
# to every target's list.
seeds_for() {
    case $1 in
    fuzz_portfolio_file) echo data/demo.pgr tests/data/portfolio ;;
    fuzz_servers_dat) echo data/servers.dat tests/data/quotes/servers_*.dat ;;
    fuzz_server_dat) echo data/server.dat ;;
    fuzz_news_page) echo tests/data/news ;;
    fuzz_quote_page | fuzz_market_summary) echo tests/data/quotes/*.html tests/data/news ;;
    fuzz_sources_json) echo data/sources.json ;;
    esac
}

if [ "$target" = all ]; then
    targets=("${all_targets[@]}")
else
    targets=("$target")
fi

if [ ! -f "$build/CMakeCache.txt" ]; then
    launcher=()
    if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
    CXX=${CXX_FUZZ:-clang++} cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTROVA_FUZZ=ON \
        -DKESTROVA_BUILD_TESTS=OFF -DKESTROVA_BUILD_BENCH=OFF "${launcher[@]}" >/dev/null
fi
if [ "$target" = all ]; then
    cmake --build "$build" --target fuzz_all -j "$jobs"
else
    cmake --build "$build" --target "$target" -j "$jobs"
fi

failed=()
summary=()
for t in "${targets[@]}"; do
    corpus=$build/corpus/$t
    seeds=$build/seeds/$t
    findings=$build/findings/$t
    log=$build/logs/$t.log
    mkdir -p "$corpus" "$findings" "$(dirname "$log")"
    rm -rf "$seeds"
    mkdir -p "$seeds"
    for s in $(seeds_for "$t") fuzz/seeds/$t tests/data/fuzz/$t; do
        if [ -d "$s" ]; then
            find "$s" -maxdepth 1 -type f -exec cp -t "$seeds" {} +
        elif [ -f "$s" ]; then
            cp "$s" "$seeds/"
        fi
    done
    dict=()
    if [ -f "fuzz/$t.dict" ]; then dict=(-dict="$src/fuzz/$t.dict"); fi
    echo "== $t: up to $seconds s or 10000000 runs"
    status=0
    nice -n "$niceness" "$build/fuzz/$t" -max_total_time="$seconds" -runs=10000000 -timeout=30 -rss_limit_mb=2048 \
        -max_len=4096 -print_final_stats=1 -artifact_prefix="$findings/" "${dict[@]}" "$@" "$corpus" "$seeds" \
        >"$log" 2>&1 || status=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    secs=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -1)
    if [ "$status" -ne 0 ]; then
        failed+=("$t")
        summary+=("$t: FINDING after ${runs:-?} runs, see $log and $findings/")
        grep -m3 -E 'ERROR|runtime error|fuzz check failed|Timeout|leak' "$log" || true
    else
        summary+=("$t: ${runs:-?} runs in ${secs:-$seconds} s, no findings")
    fi
done

echo
printf '%s\n' "${summary[@]}"
if [ "${#failed[@]}" -gt 0 ]; then
    echo "findings in: ${failed[*]}" >&2
    exit 1
fi
