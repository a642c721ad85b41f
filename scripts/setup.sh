#!/usr/bin/env bash
# Installs every build and test dependency from Debian's packages. Safe to run
# again: it installs only what is missing.
set -euo pipefail

packages=(
  build-essential g++ cmake ninja-build pkg-config
  libjsoncpp-dev libgtest-dev libgmock-dev libbenchmark-dev
  python3
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo)
fi

echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
