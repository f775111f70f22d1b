#!/usr/bin/env bash
# Compares the names that a libqiv.so exports with the list in tests/abi/exported_symbols.txt.
# usage: check-exports.sh [--update] PATH/TO/libqiv.so
#
# --update writes the list anew, for a change of the interface that is meant.
set -euo pipefail

update=no
if [ "${1:-}" = --update ]; then
  update=yes
  shift
fi
if [ $# -ne 1 ] || [ ! -f "$1" ]; then
  echo "usage: check-exports.sh [--update] PATH/TO/libqiv.so" >&2
  exit 2
fi
list=$(dirname "$0")/../tests/abi/exported_symbols.txt

# A name a line: "address type name" without the first two. The base and the complete variant of a
# constructor are one name.
exported_names() {
  "${NM:-nm}" -D -C --defined-only "$1" | cut -d ' ' -f 3- | LC_ALL=C sort -u
}

if [ $update = yes ]; then
  exported_names "$1" >"$list"
elif exported_names "$1" | diff -u --label expected --label exported "$list" -; then
  echo "all $(wc -l <"$list") exported names are as expected"
else
  echo "the exported names have changed; if that is meant: $0 --update $1" >&2
  exit 1
fi
