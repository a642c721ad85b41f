#!/usr/bin/env bash
# Installs what the Windows smoke test (tests/windows/wine_smoke.sh) needs
# from Debian's packages: 64-bit Wine with its command wrappers (wine,
# wineboot, wineserver) and ss. Safe to run again: it installs only what is
# missing.
set -euo pipefail

bash "$(dirname "$0")/install-missing-packages.sh" wine64 wine iproute2
