#!/usr/bin/env bash
# Plain readings hold what /proc says, no more of them come than asked for, nothing but text goes
# into a pipe, and what cannot be understood ends with status 2.
# usage: qiv_sysmon.sh PATH/TO/qiv-sysmon
# shellcheck source-path=SCRIPTDIR source=common.sh
program=$1
source "$(dirname "$0")/common.sh" "$program" "$program" "$program"
sysmon=("${emulator[@]}" "$program")

# figure NAME SUBJECT...: the value of a line of the reading
figure() {
  local name=$1
  shift
  sed -n "s/^$* //p" "$work/$name.out"
}

# expect_between LEAST VALUE MOST WHAT
expect_between() {
  awk -v least="$1" -v value="$2" -v most="$3" \
    'BEGIN { exit !(value ~ /^[0-9.]+$/ && value + 0 >= least + 0 && value + 0 <= most + 0) }' ||
    fail "$4: $2 is not between $1 and $3"
}

loopback_bytes() {
  awk '$1 == "lo:" { print $2 }' /proc/net/dev
}

bytes_before=$(loopback_bytes)
run once "${sysmon[@]}" --once
bytes_after=$(loopback_bytes)
expect_status 0 '--once'
[ -z "$(own_lines once)" ] || fail '--once writes to standard error'
[ "$(grep -c '^time ' "$work/once.out")" -eq 1 ] || fail '--once gives not one reading'
now=$(date +%s)
expect_between $((now - 60)) "$(date -d "$(figure once time)" +%s)" $((now + 1)) 'the time'
expect_between 950 "$(figure once interval_ms)" 30000 'the interval'
for subject in 'cpu all' 'cpu 0' memory swap; do
  expect_between 0 "$(figure once "$subject" used_percent)" 100 "$subject"
done
[ "$(grep -c '^cpu [0-9]* used_percent ' "$work/once.out")" -eq "$(grep -c '^cpu[0-9]' /proc/stat)" ] ||
  fail 'not the processors of /proc/stat'
total=$(awk '$1 == "MemTotal:" { printf "%.0f", $2 * 1024 }' /proc/meminfo)
[ "$(figure once memory total)" = "$total" ] || fail 'not the memory of /proc/meminfo'
expect_between 1 "$(figure once memory available)" "$total" 'the available memory'
[ "$(figure once net lo address | head -n 1)" = 127.0.0.1 ] || fail 'the loopback has no address'
expect_between "$bytes_before" "$(figure once net lo received_bytes)" "$bytes_after" 'loopback bytes'

# Without a terminal the readings follow one another, with an empty line between them.
run two "${sysmon[@]}" --interval 100 --count 2
expect_status 0 '--count 2'
[ "$(grep -c '^time ' "$work/two.out")" -eq 2 ] || fail '--count 2 gives not two readings'
[ "$(grep -c '^$' "$work/two.out")" -eq 1 ] || fail 'not one empty line between two readings'
run lines "${sysmon[@]}" --interval 100 --count 3 --json
expect_status 0 '--count 3 --json'
[ "$(grep -c '^{"time":.*}$' "$work/lines.out")" -eq 3 ] || fail 'not three lines of JSON'
[ "$(wc -l <"$work/lines.out")" -eq 3 ] || fail 'more than the lines of JSON'
if grep -q $'\x1b' "$work"/*.out; then fail 'codes of a terminal in a file'; fi

run help "${sysmon[@]}" --help
expect_status 0 '--help'
for option in --interval --count --once --json; do expect_text help.out "$option"; done

# expect_refused TEXT ARGUMENT...
expect_refused() {
  local text=$1
  shift
  run refused "${sysmon[@]}" "$@"
  expect_status 2 "$*"
  expect_text refused.err "$text"
  [ "$(own_lines refused | wc -l)" -eq 1 ] || fail "$*: not one line on standard error"
  [ ! -s "$work/refused.out" ] || fail "$*: something on standard output"
}
expect_refused "unknown option '--speed'" --speed
expect_refused "unknown option '-1'" -1
expect_refused "unexpected operand 'eth0'" eth0
expect_refused "'--interval' needs a value" --interval
expect_refused "'--json' takes no value" --json=yes
for value in 99 3600001 1s ''; do expect_refused "'--interval'.*not '$value'" --interval "$value"; done
for value in -1 x 2147483648; do expect_refused "'--count'.*not '$value'" --count "$value"; done

# A reader that has seen enough ends the program without a word; a full disk gives one.
statuses=$("${sysmon[@]}" --json --interval 100 2>"$work/pipe.err" |
  head -n 1 >"$work/pipe.out"; echo "${PIPESTATUS[0]}")
[ "$statuses" -eq 1 ] || fail "status $statuses without a reader"
[ -z "$(own_lines pipe)" ] || fail 'something on standard error without a reader'
run full bash -c '"$@" >/dev/full' full "${sysmon[@]}" --json --interval 100
expect_status 1 'a full disk'
expect_text full.err 'cannot write'

# Without an end of its own, a signal is the end; otherwise it cuts the program short.
start endless "${sysmon[@]}" --interval 100
await endless '^net lo ' 2
kill -TERM "$pid"
end "$pid"
expect_status 0 'SIGTERM'
start counted "${sysmon[@]}" --interval 100 --count 100000
await counted '^net lo ' 2
kill -TERM "$pid"
end "$pid"
expect_status 130 'SIGTERM before the last reading'
