#!/usr/bin/env bash
# Sets up the Windows cross build: installs Debian's MinGW-w64 (POSIX threads
# variant), then builds jsoncpp for Windows from Debian's own source package,
# as a static library installed under build/mingw-deps. Safe to run again:
# every step that is already done is skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"

toolchain="$root/cmake/mingw-w64-x86_64.cmake"
sources_dir="$root/build/third_party"
jsoncpp_build="$sources_dir/jsoncpp-mingw-build"
prefix="$root/build/mingw-deps"
jsoncpp_config="$prefix/lib/cmake/jsoncpp/jsoncppConfig.cmake"

packages=(
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix
  binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
  cmake ninja-build dpkg-dev
)
debian_sources=/etc/apt/sources.list.d/debian.sources
debian_src_sources=/etc/apt/sources.list.d/debian-src.sources

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo)
fi

apt_updated=false
apt_update() {
  if [ "$apt_updated" = false ]; then
    "${as_root[@]}" apt-get update -qq
    apt_updated=true
  fi
}

install_missing_packages() {
  bash "$(dirname "$0")/install-missing-packages.sh" "${packages[@]}"
}

# The source entries mirror the binary ones of debian.sources (same URIs,
# suites, components and key), so the sources match the packages in use.
enable_debian_sources() {
  if [ -z "$(apt-cache showsrc libjsoncpp 2>/dev/null)" ]; then
    if [ ! -f "$debian_src_sources" ]; then
      echo "Adding $debian_src_sources"
      sed 's/^Types:.*/Types: deb-src/' "$debian_sources" | "${as_root[@]}" tee "$debian_src_sources" >/dev/null
    fi
    apt_update
  fi
}

# Unpacks Debian's jsoncpp source package, with Debian's patches applied,
# once; the unpacked folder is reused afterwards.
jsoncpp_source_dir() {
  find "$sources_dir" -maxdepth 1 -type d -name 'libjsoncpp-*' 2>/dev/null | head -n 1
}

fetch_jsoncpp_source() {
  [ -n "$(jsoncpp_source_dir)" ] && return
  enable_debian_sources
  mkdir -p "$sources_dir"
  (cd "$sources_dir" && apt-get source -qq libjsoncpp)
}

build_jsoncpp() {
  fetch_jsoncpp_source
  local source
  source=$(jsoncpp_source_dir)
  echo "Building jsoncpp for Windows from $source"
  cmake -S "$source" -B "$jsoncpp_build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_INSTALL_LIBDIR=lib \
    -DBUILD_SHARED_LIBS=OFF \
    -DBUILD_STATIC_LIBS=ON \
    -DBUILD_OBJECT_LIBS=OFF \
    -DJSONCPP_WITH_TESTS=OFF \
    -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF \
    -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF \
    -DJSONCPP_WITH_CMAKE_PACKAGE=ON >/dev/null
  cmake --build "$jsoncpp_build"
  cmake --install "$jsoncpp_build" >/dev/null
}

install_missing_packages
if [ -f "$jsoncpp_config" ]; then
  echo "jsoncpp for Windows already in $prefix"
else
  build_jsoncpp
fi
