#!/usr/bin/env bash
# Builds the libFuzzer harnesses (preset fuzz: clang with address and undefined-behaviour sanitizers) and runs each
# for a bounded time, starting from its corpus in tests/fuzz/corpus/<name>/: scripts/fuzz.sh [seconds per harness]
#
# Harnesses run side by side, one per core (FUZZ_JOBS overrides). Inputs found along the way go to a scratch folder,
# not into the checked-in corpus. An input that crashes, hangs, leaks or breaks a checked property is kept in
# build/fuzz/findings/ and the script fails; once it is fixed, add the input to the corpus, where the regular test
# suite replays it.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
jobs=${FUZZ_JOBS:-$(nproc)}
harnesses=(themejson settings evdev updaterfeed keyhelper)

scripts/install-deps.sh
scripts/build.sh fuzz

# The harnesses write settings files all the time; in memory (/dev/shm) that costs no disk syncs.
if [ -d /dev/shm ] && [ -w /dev/shm ]; then scratch=$(mktemp -d -p /dev/shm); else scratch=$(mktemp -d); fi
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/runtime" "$scratch/tmp" build/fuzz/findings
export TMPDIR=$scratch/tmp XDG_RUNTIME_DIR=$scratch/runtime XDG_CONFIG_HOME=$scratch/config
export QT_QPA_PLATFORM=offscreen LANG=C.UTF-8
sanitizers=$PWD/tests/sanitizers
# A smaller quarantine and no filling of new blocks: half as many runs again, at the cost of missing more uses of
# memory freed long before.
export ASAN_OPTIONS=detect_leaks=1:quarantine_size_mb=32:max_malloc_fill_size=0
export LSAN_OPTIONS=suppressions=$sanitizers/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:suppressions=$sanitizers/ubsan.supp

# Runs one harness; its log goes to build/fuzz/fuzz_<name>.log, its exit status to the scratch folder.
run() {
    local name=$1 status=0 options=()
    mkdir -p "$scratch/corpus-$name"
    [ -f "tests/fuzz/$name.dict" ] && options+=("-dict=tests/fuzz/$name.dict")
    build/fuzz/tests/fuzz_$name -max_total_time="$seconds" -max_len=8192 -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="build/fuzz/findings/$name-" "${options[@]}" \
        "$scratch/corpus-$name" "tests/fuzz/corpus/$name" >"build/fuzz/fuzz_$name.log" 2>&1 || status=$?
    echo "$status" >"$scratch/status-$name"
}

echo "== ${#harnesses[@]} harnesses, $seconds s each, $jobs at a time"
running=0
for name in "${harnesses[@]}"; do
    if [ "$running" -ge "$jobs" ]; then
        wait -n || true
        running=$((running - 1))
    fi
    run "$name" &
    running=$((running + 1))
done
wait

failed=0
for name in "${harnesses[@]}"; do
    log=build/fuzz/fuzz_$name.log
    status=$(cat "$scratch/status-$name")
    # libFuzzer ends with "#<runs> DONE ..." when time is up; on a finding, the final statistics still count the runs.
    runs=$(sed -n 's/^#\([0-9]*\)[[:space:]]*DONE.*/\1/p' "$log" | tail -n 1)
    [ -n "$runs" ] || runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    if [ "$status" -ne 0 ]; then
        failed=1
        echo "== fuzz_$name failed (exit $status), from $log:"
        tail -n 60 "$log"
        echo "fuzz_$name: FAILED after ${runs:-?} runs; the input is in build/fuzz/findings/" >>"$scratch/summary"
    else
        echo "fuzz_$name: ${runs:-?} runs in $seconds s, no findings" >>"$scratch/summary"
    fi
done
cat "$scratch/summary"
exit "$failed"
