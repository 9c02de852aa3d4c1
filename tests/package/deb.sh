#!/usr/bin/env bash
# The Debian packages as a Debian user meets them.
#
#   tests/package/deb.sh host   build the packages, install them with apt-get (into /usr), build
#                               the consumers through the CMake package and through pkg-config,
#                               run them and the tools, then purge the packages again
#   tests/package/deb.sh ppc    make the powerpc packages from the ppc build and check their
#                               architecture and contents (no install: no emulation needed)
# Needs root (or sudo) for the host check: it installs and removes packages.
set -euo pipefail
cd "$(dirname "$0")/../.."
packages=(libconflink0 libconflink-dev conflink-tools)

# Checks that every package was made, with the architecture `$2`, and holds what it should.
check_debs() {
  local dir=$1 arch=$2 deb
  for p in "${packages[@]}"; do
    deb=$(ls "$dir/${p}_"*"_$arch.deb")
    echo "-- $deb ($(du -k "$deb" | cut -f1) KiB)"
    dpkg-deb --info "$deb" | grep -E '^ (Package|Version|Architecture|Depends):'
    [ "$(dpkg-deb --field "$deb" Architecture)" = "$arch" ]
  done
  # Each package's list is read whole first: grep -q stops reading early, which would kill
  # dpkg-deb with a broken pipe.
  local runtime dev tools
  runtime=$(dpkg-deb --contents "$dir/libconflink0_"*"_$arch.deb")
  dev=$(dpkg-deb --contents "$dir/libconflink-dev_"*"_$arch.deb")
  tools=$(dpkg-deb --contents "$dir/conflink-tools_"*"_$arch.deb")
  has() {
    grep -q -- "$2" <<<"$1" || { echo "missing from the package: $2" >&2; return 1; }
  }
  has "$runtime" '/usr/lib/.*/libconflink\.so\.[0-9]'
  has "$runtime" '/usr/lib/.*/libconflink_platform\.so\.[0-9]'
  has "$dev" '/usr/include/conflink/conflink\.h'
  has "$dev" '/usr/lib/.*/cmake/conflink/conflinkConfig\.cmake'
  has "$dev" '/usr/lib/.*/pkgconfig/conflink\.pc'
  has "$dev" '/usr/lib/.*/libconflink_testing\.so'
  has "$dev" '/usr/lib/.*/libconflink\.so -> '
  has "$tools" '/usr/bin/conflink_decode'
  has "$tools" '/usr/bin/conflink_queue'
  has "$tools" '/usr/share/doc/conflink/protocol\.md'
  if grep -q '/usr/include/' <<<"$runtime"; then
    echo "headers in the runtime package" >&2
    return 1
  fi
}

case "${1:-}" in
  host)
    sudo=()
    if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
    cmake --preset package >/dev/null
    cmake --build --preset package
    rm -rf build-package/deb
    cpack --preset package >/dev/null
    check_debs build-package/deb "$(dpkg --print-architecture)"

    work=$(mktemp -d)
    purge() {
      "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq "${packages[@]}" \
        >/dev/null || true
      rm -rf "$work"
    }
    trap purge EXIT
    echo "-- apt-get install"
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq ./build-package/deb/*.deb
    unset LD_LIBRARY_PATH

    echo "-- through the CMake package in /usr"
    cmake -S tests/package -B "$work/consumer" >/dev/null
    cmake --build "$work/consumer" >/dev/null
    "$work/consumer/consumer"
    "$work/consumer/pair_consumer"

    echo "-- through pkg-config"
    # shellcheck disable=SC2046
    g++ -std=c++17 tests/package/main.cpp -o "$work/by-pkg-config" \
      $(pkg-config --cflags --libs conflink)
    "$work/by-pkg-config"

    echo "-- the installed tools"
    conflink_decode --link cgi 3 0000000000000001 00000002 3432 0000000000000007 00000002
    conflink_queue --help >/dev/null
    conflink_queue list
    grep -q '^| 278 | PS | CC or CGI | SendConferenceParam |' /usr/share/doc/conflink/protocol.md

    echo "-- apt-get purge"
    purge
    trap - EXIT
    if dpkg-query -W "${packages[@]}" 2>/dev/null | grep -q .; then
      dpkg-query -W -f='${Package} ${Status}\n' "${packages[@]}" | grep -v not-installed && exit 1
    fi
    echo "Debian packages installed, used and removed"
    ;;
  ppc)
    rm -rf build-ppc/deb
    cpack --preset ppc >/dev/null
    check_debs build-ppc/deb powerpc
    echo "powerpc packages made"
    ;;
  *)
    sed -n '4,8s/^#//p' "$0" >&2
    exit 2
    ;;
esac
