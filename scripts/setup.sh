#!/usr/bin/env bash
# Installs every build and test dependency from Debian's packages. Safe to run
# again: it installs only what is missing.
set -euo pipefail

bash "$(dirname "$0")/install-missing-packages.sh" \
  build-essential g++ cmake ninja-build pkg-config \
  libjsoncpp-dev libgtest-dev libgmock-dev libbenchmark-dev \
  python3
