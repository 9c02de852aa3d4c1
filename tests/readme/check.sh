#!/usr/bin/env bash
# Every command that README shows in a `sh` block must be run by CI or by a test, so that the
# README cannot drift from what works: each such line must appear, as written, in .ci/run or in a
# script that it or a test runs (conflink.sh, tests/, abi/).
#
#   tests/readme/check.sh [README]     (default: README.md of the tree)
set -euo pipefail
cd "$(dirname "$0")/../.."
readme=${1:-README.md}
missing=0
checked=0
while IFS= read -r line; do
  checked=$((checked + 1))
  if ! grep -rqF --exclude-dir=readme -- "$line" .ci/run conflink.sh abi tests; then
    echo "README command not run by CI or a test: $line" >&2
    missing=$((missing + 1))
  fi
done < <(awk '/^```sh$/ { inside = 1; next } /^```/ { inside = 0 } inside && NF && !/^#/' "$readme")
if ((checked == 0)); then
  echo "no sh blocks found in $readme" >&2
  exit 1
fi
if ((missing)); then exit 1; fi
echo "all $checked README commands are run by CI or a test"
