#!/usr/bin/env bash
# The installed package as its users meet it: installed from BUILD_DIR, then moved elsewhere, and
# every program run with no LD_LIBRARY_PATH. Builds the consumer through the CMake package,
# through pkg-config, and against libconflink alone (so that libconflink must find
# libconflink_platform by itself), and runs the installed tools.
#
#   tests/package/run.sh [BUILD_DIR]     (default: build)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH

cmake --install "$build" --prefix "$work/staged" >/dev/null
mv "$work/staged" "$work/moved"
prefix=$work/moved
lib=$prefix/$(cd "$prefix" && ls -d lib* | head -n 1)

echo "-- through the CMake package"
cmake -S tests/package -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/consumer"
"$work/consumer/pair_consumer"

echo "-- through pkg-config"
g++ -std=c++17 tests/package/main.cpp -o "$work/by-pkg-config" -Wl,-rpath,"$lib" \
  $(PKG_CONFIG_PATH="$lib/pkgconfig" pkg-config --cflags --libs conflink)
"$work/by-pkg-config"

echo "-- against libconflink alone"
# Uses nothing of the platform library directly, so only libconflink is named at link time and
# the loader must find libconflink_platform through libconflink's own run path.
cat >"$work/only.cpp" <<'PROGRAM'
#include <conflink/conflink.h>
#include <cstdio>
int main() {
  CGIToPSMessenger cgi(1);
  const int result = cgi.GetActiveConfList(1);
  std::printf("libconflink alone: send while unconnected gives %d\n", result);
  return result == -1 ? 0 : 1;
}
PROGRAM
g++ -std=c++17 "$work/only.cpp" -o "$work/conflink-only" -I"$prefix/include" \
  -L"$lib" -Wl,-rpath,"$lib" -Wl,--as-needed -lconflink
"$work/conflink-only"

echo "-- the installed tools"
"$prefix/bin/conflink_decode" --link cgi 3 0000000000000001 00000002 3432 0000000000000007 00000002
"$prefix/bin/conflink_queue" --help >/dev/null
grep -q '^| 278 | PS | CC or CGI | SendConferenceParam |' "$prefix/share/doc/conflink/protocol.md"
echo "package test passed"
