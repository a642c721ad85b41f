#!/usr/bin/env bash
# Fuzzes one target for a while and keeps what it learnt:
#   scripts/fuzz.sh TARGET [SECONDS]    (TARGET: a file name of fuzz/*.cpp)
# Builds the `fuzz` preset (clang), runs TARGET's libFuzzer program on one
# job at the lowest priority, starting from fuzz/corpus/TARGET, then merges
# that corpus and the new inputs into a minimal one that replaces it. Inputs
# that crash, leak or time out are left in build/fuzz/runs/TARGET/artifacts/;
# a line per run goes to build/fuzz/runs/executions.log.
set -euo pipefail
cd "$(dirname "$0")/.."

target="${1:?usage: scripts/fuzz.sh TARGET [SECONDS]}"
seconds="${2:-60}"
[[ -f "fuzz/$target.cpp" ]] || { echo "no fuzz target $target" >&2; exit 2; }

# Only fuzzing needs clang (with its libFuzzer); the suite's replays build
# with the default compiler, so scripts/setup.sh does not install it.
bash scripts/install-missing-packages.sh clang
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${target}_fuzzer"

program="$PWD/build/fuzz/fuzz/${target}_fuzzer"
kept="$PWD/fuzz/corpus/$target"
runs="$PWD/build/fuzz/runs"
work="$runs/$target"
mkdir -p "$kept" "$work/new" "$work/artifacts"

# One job (a child process that restarts after a finding is written down),
# a 10-second limit per input, the engine's final counters in its log.
# SECONDS is wall-clock time; the processor time the run really had (user
# plus system, of the engine and its job) is measured and logged beside it.
exec 3>&2
cpu_times="$work/cpu-times"
{
    TIMEFORMAT='%U %S'
    time (cd "$work" && nice -n 19 "$program" -jobs=1 -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$work/artifacts/" "$work/new" "$kept" 2>&3) || true
} 2>"$cpu_times"
cpu_seconds=$(awk '{ printf "%d", $1 + $2 }' "$cpu_times")

log="$work/fuzz-0.log"
executions=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1 || true)
echo "$(date -u +%FT%TZ) $target ${seconds}s cpu=${cpu_seconds}s executions=${executions:-unknown}" | tee -a "$runs/executions.log"
grep -E '^==[0-9]+==ERROR|^SUMMARY|ALARM|DEATH|Test unit written' "$log" || true

# A minimal corpus with the coverage of the kept and the new inputs.
merged="$work/merged"
rm -rf "$merged" && mkdir -p "$merged"
nice -n 19 "$program" -merge=1 -timeout=10 -rss_limit_mb=2048 "$merged" "$kept" "$work/new" >"$work/merge.log" 2>&1
rm -rf "$kept" && cp -r "$merged" "$kept"
echo "fuzz/corpus/$target: $(ls "$kept" | wc -l) inputs, $(du -sb "$kept" | cut -f1) bytes"
ls "$work/artifacts"
