#!/usr/bin/env bash
# Every datagram, every item of work and the stop are seen, each once and in its order; nothing is
# written to standard error.
# usage: multi_wait.sh PATH/TO/multi_wait
# shellcheck source-path=SCRIPTDIR source=common.sh
program=$1
source "$(dirname "$0")/common.sh" "$program" "$program" "$program"

run waits "${emulator[@]}" "$program"
expect_status 0 'multi_wait'
seq 5 | sed 's/^/received: datagram /' >"$work/datagrams"
seq 5 | sed 's/^/work: item /' >"$work/items"
grep '^received' "$work/waits.out" | diff "$work/datagrams" - || fail 'not the datagrams'
grep '^work' "$work/waits.out" | diff "$work/items" - || fail 'not the items of work'
[ "$(tail -n 1 "$work/waits.out")" = 'stopped after 5 datagrams and 5 items of work' ] ||
  fail 'the stop is not the last thing that was seen'
[ "$(wc -l <"$work/waits.out")" -eq 11 ] || fail 'something else on standard output'
[ -z "$(own_lines waits)" ] || fail 'something on standard error'

# Without descriptors it fails instead of waiting.
run poor bash -c 'ulimit -n 8 && exec "$@"' poor "${emulator[@]}" "$program"
[ "$status" -ne 0 ] || fail 'succeeds without descriptors'
expect_text poor.err 'QIV_CreateEvent return error 24 0'
