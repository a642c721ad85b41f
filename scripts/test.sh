#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite. With a preset name as its
# argument (asan, tsan) it runs the suite of that build instead of the default.
# Tests run in parallel, one per core; the ones that use the command port
# hold a lock and run one at a time.
set -euo pipefail
cd "$(dirname "$0")/.."

preset="${1:-default}"
bash scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" --timeout 300 --parallel "$(nproc)"
