#!/usr/bin/env bash
# Every pattern that leaves tests out names a test.
# usage: check_exclusions.sh PATH/TO/qiv_tests
set -euo pipefail
program=$(realpath "$1")
cd "$(dirname "$0")"

patterns() {
  grep -v -e '^#' -e '^$' emulation_exclusions.txt
  sed -n 's/.*"QIV_TEST_EXCLUDE": "\(.*\)".*/\1/p' ../CMakePresets.json | tr ':' '\n'
}

status=0
while read -r pattern; do
  if ! "$program" --gtest_list_tests --gtest_filter="$pattern" 2>/dev/null | grep -q '^  '; then
    echo "no test is called $pattern" >&2
    status=1
  fi
done < <(patterns)
exit $status
