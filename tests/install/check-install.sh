#!/usr/bin/env bash
# Installs a build tree into a scratch prefix, starts the installed tool with an empty environment,
# and builds and runs a consumer two ways.
# usage: check-install.sh BUILD_DIR CONSUMER_SOURCE CMAKE
set -euo pipefail
build=$1 source=$2 cmake=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

"$cmake" --install "$build" --prefix "$prefix" >/dev/null
libdir=$(find "$prefix" -name 'libvantabase.so' -printf '%h\n' | head -n 1)

# No LD_LIBRARY_PATH, no ldconfig: the tool must find the library through its own run path, and
# its resources under the prefix's data folder.
if [ -x "$prefix/bin/vanta" ]; then
  echo "== env -i vanta --help / demo / sysinfo"
  env -i "$prefix/bin/vanta" --help >/dev/null
  env -i "$prefix/bin/vanta" demo >/dev/null
  folder=$(env -i "$prefix/bin/vanta" sysinfo | sed -n 's/^resource folder: //p')
  if [ "$folder" != "$prefix/share/vanta/Resources" ] || [ ! -f "$folder/dglogo.png" ]; then
    echo "resource folder '$folder' is not $prefix/share/vanta/Resources with the images" >&2
    exit 1
  fi
fi

echo "== find_package(VantaBase)"
"$cmake" -S "$source" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
"$cmake" --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/cmake-build/consumer"

echo "== pkg-config vantabase"
export PKG_CONFIG_PATH=$libdir/pkgconfig
g++ -std=c++17 -fPIC "$source/main.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs vantabase)
LD_LIBRARY_PATH=$libdir "$work/consumer-pc"
