#!/usr/bin/env bash
# Installs what the Windows smoke test (tests/windows/wine_smoke.sh) needs
# from Debian's packages: 64-bit Wine with its command wrappers (wine,
# wineboot, wineserver) and ss. Safe to run again: it installs only what is
# missing.
set -euo pipefail

packages=(wine64 wine iproute2)

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
