#!/usr/bin/env bash
# Installs a build tree into a scratch prefix (or takes a prefix already installed), starts the
# installed tool with an empty environment, builds and runs a core-only consumer two ways (CMake
# and pkg-config), checking that it loads no Qt Widgets, and a widgets consumer through pkg-config.
# usage: check-install.sh BUILD_DIR CONSUMER_SOURCE CMAKE [INSTALLED_PREFIX]
set -euo pipefail
build=$1 source=$2 cmake=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ -n "${4:-}" ]; then
  prefix=$(realpath "$4")
else
  prefix=$work/prefix
  "$cmake" --install "$build" --prefix "$prefix" >/dev/null
fi
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

# core_only PROGRAM: runs it and fails when the loader brought in Qt Widgets or the widgets library.
core_only() {
  local loaded
  loaded=$(LD_LIBRARY_PATH=$libdir LD_DEBUG=libs "$1" 2>&1 >/dev/null | sed -n 's/.*calling init: //p')
  if grep -Eq 'Qt6Widgets|vantabase-widgets' <<<"$loaded"; then
    echo "$1 links only the core but loaded:" >&2
    grep -E 'Qt6Widgets|vantabase-widgets' <<<"$loaded" >&2
    exit 1
  fi
  echo "$(basename "$1"): $(wc -l <<<"$loaded") shared objects, no Qt Widgets"
}

echo "== find_package(VantaBase)"
"$cmake" -S "$source" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
"$cmake" --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/cmake-build/consumer"
core_only "$work/cmake-build/consumer"

echo "== pkg-config vantabase"
export PKG_CONFIG_PATH=$libdir/pkgconfig
[ "$(pkg-config --variable=prefix vantabase)" = "$prefix" ] ||
  { echo "vantabase.pc names the prefix '$(pkg-config --variable=prefix vantabase)'" >&2; exit 1; }
requires=$(pkg-config --print-requires vantabase | tr '\n' ' ')
[ "$requires" = "Qt6Core Qt6Gui " ] || { echo "vantabase.pc requires '$requires'" >&2; exit 1; }
for lib in -lexpat -lminizip -lz; do
  pkg-config --static --libs vantabase | grep -qw -- "$lib" ||
    { echo "pkg-config --static --libs vantabase lacks $lib" >&2; exit 1; }
done
g++ -std=c++17 -fPIC "$source/main.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs vantabase)
LD_LIBRARY_PATH=$libdir "$work/consumer-pc"
core_only "$work/consumer-pc"

echo "== pkg-config vantabase-widgets"
cat >"$work/dialog.cpp" <<'CPP'
#include <vanta/ui/memorywindow.h>
#include <cstdio>
int main() { std::printf("widgets consumer ok: %d\n", vanta::MemoryWindow::bInitialized ? 1 : 0); }
CPP
g++ -std=c++17 -fPIC "$work/dialog.cpp" -o "$work/consumer-widgets" $(pkg-config --cflags --libs vantabase-widgets)
LD_LIBRARY_PATH=$libdir "$work/consumer-widgets"
