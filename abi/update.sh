#!/usr/bin/env bash
# Writes the ABI baseline from a build's shared libraries (with debug info). Refuses to record an
# incompatible change under the SONAME of the old baseline: raise the SONAME first (the project
# version's major or minor number in CMakeLists.txt), rebuild, then run this again.
#
#   abi/update.sh [BUILD_DIR]     (default: build-package)
# CONFLINK_ABI_DIR writes the baseline elsewhere than abi/ (CI tries the script on a copy).
set -euo pipefail
scripts=$(cd "$(dirname "$0")" && pwd)
here=${CONFLINK_ABI_DIR:-$scripts}
suppressions=(--suppressions "$scripts/internal.suppr")
# shellcheck source=abi/common.sh
. "$scripts/common.sh"
build=${1:-build-package}
for name in libconflink libconflink_platform; do
  lib=$(find "$build" -maxdepth 3 -name "$name.so.*.*.*" -type f | head -n 1)
  [ -n "$lib" ] || { echo "$name: not found under $build" >&2; exit 1; }
  baseline=$here/$name.abi
  new=$(mktemp)
  abidw --no-show-locs --no-corpus-path --no-comp-dir-path --type-id-style hash "${suppressions[@]}" "$lib" >"$new"
  chmod 644 "$new"
  if [ -f "$baseline" ]; then
    rc=0
    report=$(abidiff --no-show-locs "${suppressions[@]}" "$baseline" "$new") || rc=$?
    same_soname=$(cmp -s <(grep -o 'soname=.[^"'"'"']*' "$baseline" | head -n 1) \
      <(grep -o 'soname=.[^"'"'"']*' "$new" | head -n 1) && echo yes || echo no)
    if abi_breaks "$report" "$rc" && [ "$same_soname" = yes ]; then
      echo "$report" >&2
      echo "$name: incompatible with the baseline under the same SONAME; raise the SONAME first" >&2
      rm -f "$new"
      exit 1
    fi
  fi
  mv "$new" "$baseline"
  echo "wrote $baseline"
done
