#!/usr/bin/env bash
# The entries are listed in the order of their names, and the files arrive in the target.
# usage: directory_copy.sh PATH/TO/directory_copy
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh" "$1" - -
copy=("${emulator[@]}" "$1")

umask 022
mkdir "$work/from"
printf 'one line\n' >"$work/from/small"
head -c 300000 /dev/urandom >"$work/from/large"
: >"$work/from/empty"
mkdir "$work/from/below"
mkfifo "$work/from/pipe"
ln -s nowhere "$work/from/dangling"
touch -d '2009-02-13 23:31:30 UTC' "$work/from"/{small,large,empty,below,pipe}

run listing "${copy[@]}" "$work/from"
expect_status 0 listing
cat >"$work/expected" <<'END_OF_LIST'
unknown   0000            0  1970-01-01 00:00:00  dangling
file      0644            0  2009-02-13 23:31:30  empty
file      0644       300000  2009-02-13 23:31:30  large
pipe      0644            0  2009-02-13 23:31:30  pipe
file      0644            9  2009-02-13 23:31:30  small
END_OF_LIST
grep -v '^directory' "$work/listing.out" | diff -u "$work/expected" - || fail 'another listing'
expect_text listing.out '^directory 0755 .* 2009-02-13 23:31:30  below$'
expect_text listing.out '^directory .*  \.$'

run first "${copy[@]}" "$work/from" "$work/to"
expect_status 0 first
cmp "$work/from/large" "$work/to/large" || fail 'large is not copied'
cmp "$work/from/small" "$work/to/small" || fail 'small is not copied'
[ "$(ls "$work/to")" = $'large\nsmall' ] || fail 'something else is in the target'

printf 'changed\n' >"$work/to/small"
run second "${copy[@]}" "$work/from" "$work/to"
expect_status 0 second
[ "$(cat "$work/to/small")" = changed ] || fail 'an existing file is overwritten'

run nowhere "${copy[@]}" "$work/from" "$work/missing/to"
expect_status 1 nowhere
expect_text nowhere.err "cannot make the directory '.*/missing/to'"

: >"$work/plain"
run plain "${copy[@]}" "$work/from/below" "$work/plain"
expect_status 1 plain
expect_text plain.err "cannot make the directory '.*/plain'"

mkdir "$work/taken"
ln -s nowhere "$work/taken/large"
run taken "${copy[@]}" "$work/from" "$work/taken"
expect_status 1 taken
expect_text taken.err "cannot copy '.*/from/large'"
cmp "$work/from/small" "$work/taken/small" || fail 'one failure keeps the others from being copied'

run missing "${copy[@]}" "$work/missing"
expect_status 1 missing
expect_text missing.err "cannot read '.*/missing'"

run wrong "${copy[@]}"
expect_status 2 wrong
expect_text wrong.err '^usage:'
