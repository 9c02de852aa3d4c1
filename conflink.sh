#!/usr/bin/env bash
# Builds conflink on a fresh Debian or Ubuntu machine: installs what the build needs and is
# missing (with sudo when not root), then works through the CMake presets.
#
#   ./conflink.sh demo    build the example PS, CC and CGI and run the demo
#   ./conflink.sh test    build everything and run the test suite
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  sed -n '5,6s/^#   //p' "$0" >&2
  exit 2
}

# Installs the Debian packages among "$@" that are not installed yet.
install_missing() {
  local need=() p
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || need+=("$p")
  done
  ((${#need[@]})) || return 0
  echo "== installing: ${need[*]}"
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${need[@]}"
}

[ $# -eq 1 ] || usage
install_missing cmake make g++ pkg-config libgtest-dev
case "$1" in
  demo)
    cmake --preset default
    cmake --build --preset default --target conflink_demo
    ./build/examples/conflink_demo
    ;;
  test)
    cmake --preset default
    cmake --build --preset default
    ctest --preset default
    ;;
  *) usage ;;
esac
