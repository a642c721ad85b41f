#!/usr/bin/env bash
# Builds the optimised build and runs the soak: the service on a simulated
# host under 63 plugins of three sessions that create, print to and delete
# printers while others leave and come back. Arguments go to vexor-soak
# (--operations N, default 10000; --plugins N; --seed N). See docs/soak.md.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target vexor-soak
build/release/soak/vexor-soak "$@"
