#!/usr/bin/env bash
# Every job's result is printed, in the order of the jobs, and is right. usage: work_queue.sh PROGRAM
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh" "$1" - -

run work_queue "${emulator[@]}" "$1"
expect_status 0 work_queue
[ -z "$(own_lines work_queue)" ] || fail 'work_queue writes to standard error'

cat >"$work/expected" <<'END'
41538 primes up to 500000
4 primes up to 10
25 primes up to 100
168 primes up to 1000
1229 primes up to 10000
9592 primes up to 100000
17984 primes up to 200000
0 primes up to 1
END
diff -u "$work/expected" "$work/work_queue.out" || fail 'work_queue prints something else'
