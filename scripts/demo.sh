#!/usr/bin/env bash
# The main job on the simulated host. For now it builds everything and shows
# what exists: the logger writing its lines into a simulated ProgramData.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
./build/default/tools/vexor_log_demo
