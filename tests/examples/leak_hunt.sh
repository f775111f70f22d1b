#!/usr/bin/env bash
# The forgotten record is reported at the pool's end, once, and nothing else is.
# usage: leak_hunt.sh PATH/TO/leak_hunt
# shellcheck source-path=SCRIPTDIR source=common.sh
program=$1
source "$(dirname "$0")/common.sh" "$program" "$program" "$program"

run hunt "${emulator[@]}" "$program"
expect_status 0 'leak_hunt'
head -n 6 "$work/hunt.out" | diff - <(
  cat <<'END'
bolts 200 3: 600
nuts 180 2: 360
washers many 1: 0
screws 40 5: 200
total: 1160
still lent: 40 bytes
END
) || fail 'not the orders'

[ "$(wc -l <"$work/hunt.out")" -eq 7 ] || fail 'not one report'
time='[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9:]{8} [0-9]{4}'
guard=' 0x16 0x16 0x16 0x16'
report='^memory_pool\[[^]]+\] check memory leaked, Block: \{ "BlockSize": 40, '
report+='"Alloc": "0x[^"]+", "User": "0x[^"]+", "Used": true, "LastThreadId": "0x[^"]+", '
report+="\"CreateTime\": \"$time\", \"LastTime\": \"$time\", "
report+="\"HeaderBoundary\": \"$guard\", \"TailBoundary\": \"$guard\" \}\$"
tail -n 1 "$work/hunt.out" | grep -Eq "$report" || fail 'not the report of the lost record'
