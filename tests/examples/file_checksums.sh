#!/usr/bin/env bash
# The checksums are those of cksum(1), in the order of the files; what cannot be read is named.
# usage: checksums.sh PATH/TO/file_checksums
set -euo pipefail

read -ra program <<<"${QIV_EMULATOR:-} $1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

: >empty
printf 'one line\n' >small
head -c 300000 /dev/urandom >large
for i in $(seq 40); do head -c $((i * 997)) /dev/urandom >"file$i"; done

cksum empty small large file* >expected
"${program[@]}" empty small large file* >found 2>errors
diff -u expected found

status=0
"${program[@]}" small missing large >found 2>errors || status=$?
[ $status -eq 1 ]
grep -q "cannot read 'missing'" errors
cksum small large | diff -u - found

status=0
"${program[@]}" 2>errors || status=$?
[ $status -eq 2 ]
grep -q '^usage:' errors
