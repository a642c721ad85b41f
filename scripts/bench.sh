#!/usr/bin/env bash
# The benchmark report: builds the optimised build, runs every benchmark
# program of the project in one go and prints one table, each figure beside
# a reference measured in the same run and their ratio (these machines are
# shared and noisy: the ratio is the figure to compare between runs). The
# raw outputs stay in build/release/bench-results. It holds the command port
# 127.0.3.1:5555 for a while: run nothing else that uses it meanwhile.
# With --quick each program runs briefly, to check the report itself.
set -euo pipefail
cd "$(dirname "$0")/.."

quick=false
[ "${1:-}" = "--quick" ] && quick=true

bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
bench=build/release/bench
results=build/release/bench-results
rm -rf "$results"
mkdir -p "$results"

run() {
  local name="$1"; shift
  echo "running $name" >&2
  "$@" >"$results/$name.txt"
}

if $quick; then
  run command_load "$bench/command_load" 2 50
  run command_load_ports "$bench/command_load" ports 20
  run command_load_printers "$bench/command_load" printers 1 2
  run driver_selection "$bench/driver_selection_bench" --smoke
  gb_time=(--benchmark_min_time=0.01)
  catalogue_filter='/1/'
else
  run command_load "$bench/command_load" 8 500
  run command_load_ports "$bench/command_load" ports 1000
  run command_load_printers "$bench/command_load" printers 4 25
  run driver_selection "$bench/driver_selection_bench"
  gb_time=()
  catalogue_filter='.'
fi
run driver_catalogue "$bench/driver_catalogue_bench" --benchmark_filter="BM_CatalogueBuild$catalogue_filter" \
  --benchmark_format=json
run reaper "$bench/reaper_bench" "${gb_time[@]}" --benchmark_format=json
run spooler_enumeration "$bench/spooler_enumeration_bench" "${gb_time[@]}" --benchmark_format=json
run make_and_model "$bench/make_and_model_bench" "${gb_time[@]}" --benchmark_format=json

python3 scripts/bench_table.py "$results"
