#!/usr/bin/env bash
# Compares the shared libraries of a build (with debug info: the 'package' or 'default' preset)
# with the ABI baseline committed beside this script. Prints abidiff's report always; fails only
# on a change that breaks programs built against the baseline (see abi_breaks in common.sh), or
# when abidiff itself fails. Added functions and symbols are compatible and pass.
#
#   abi/check.sh [BUILD_DIR]     (default: build-package)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=abi/common.sh
. "$here/common.sh"
build=${1:-build-package}
status=0
for name in libconflink libconflink_platform; do
  lib=$(find "$build" -maxdepth 3 -name "$name.so.*.*.*" -type f | head -n 1)
  if [ -z "$lib" ]; then
    echo "$name: not found under $build" >&2
    exit 1
  fi
  baseline=$here/$name.abi
  built=$(objdump -p "$lib" | awk '$1 == "SONAME" { print $2 }')
  recorded=$(sed -n 's/.*<abi-corpus [^>]*soname=.\([^"'"'"']*\).*/\1/p' "$baseline" | head -n 1)
  echo "== $name: $lib (SONAME $built) against abi/$name.abi (SONAME $recorded)"
  if [ "$built" != "$recorded" ]; then
    echo "$name: the SONAME changed without the baseline; run abi/update.sh" >&2
    status=1
    continue
  fi
  rc=0
  report=$(abidiff --no-show-locs --suppressions "$here/internal.suppr" "$baseline" "$lib") || rc=$?
  [ -z "$report" ] || echo "$report"
  if ((rc & 3)); then
    echo "$name: abidiff failed (status $rc)" >&2
    status=1
  elif abi_breaks "$report" "$rc"; then
    echo "$name: INCOMPATIBLE change. Undo it, or raise the SONAME (the project version's major" >&2
    echo "or minor number) and run abi/update.sh" >&2
    status=1
  elif ((rc & 4)); then
    echo "$name: compatible change (additions only)"
  else
    echo "$name: no change"
  fi
done
exit $status
