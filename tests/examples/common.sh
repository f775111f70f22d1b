#!/usr/bin/env bash
# shellcheck disable=SC2034  # the tests use the variables
#
# Sourced by the tests of the example programs, with their arguments: the paths of echo_server,
# echo_client and wrong_server. A failed check ends the test.
set -euo pipefail

read -ra emulator <<<"${QIV_EMULATOR:-}"
server=("${emulator[@]}" "$1")
client=("${emulator[@]}" "$2")
wrong_server=("${emulator[@]}" "$3")

work=$(mktemp -d)

# Only what still runs: the number of a process that has been waited for may be another's by now.
clean_up() {
  local pid
  for pid in $(jobs -pr); do
    kill -KILL "$pid" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  echo "FAILED: $*" >&2
  tail -n 20 "$work"/*.out "$work"/*.err >&2 || true
  exit 1
}

# The library's own lines, which say nothing about the programs.
library_lines='^qiv tls index{[0-9]*}\|^loop\[2\] find [0-9]* mac and [0-9]* ip$\|^QIV_AsyncIO_AcceptEx '

# own_lines NAME: the lines that the program itself has written to standard error.
own_lines() {
  sed "/$library_lines/d; s/\r$//; /^$/d" "$work/$1.err"
}

# run NAME COMMAND...: runs it to its end; its output lands in $work/NAME.out and .err and its exit
# status in $status.
run() {
  local name=$1
  shift
  status=0
  "$@" >"$work/$name.out" 2>"$work/$name.err" </dev/null || status=$?
}

# start NAME COMMAND...: the same in the background, with the process in $pid. What an earlier program
# of the name has printed is gone when start returns, not only once the new one runs.
start() {
  local name=$1
  shift
  : >"$work/$name.out"
  : >"$work/$name.err"
  "$@" >"$work/$name.out" 2>"$work/$name.err" </dev/null &
  pid=$!
}

# await NAME PATTERN [TIMES]: waits until the program's output holds that many such lines.
await() {
  local look
  for look in $(seq 600); do
    if [ "$(cat "$work/$1".{out,err} | grep -c "$2")" -ge "${3:-1}" ]; then return 0; fi
    sleep 0.05
  done
  fail "$1 has not printed '$2' after $look looks"
}

# end PID: waits for it; its exit status lands in $status.
end() {
  status=0
  wait "$1" || status=$?
}

expect_status() {
  [ "$status" -eq "$1" ] || fail "$2: exit status $status instead of $1"
}

expect_text() {
  grep -q -- "$2" "$work/$1" || fail "$1 does not say '$2'"
}

# start_server NAME COMMAND...: $port and $pid are those of the server.
start_server() {
  start "$@"
  await "$1" 'port [0-9]'
  port=$(sed -n 's/.* port \([0-9]*\)$/\1/p' "$work/$1.out")
}

# A port that nothing listens on: the server had it a moment ago.
free_port() {
  start_server gone "${server[@]}" --port 0
  kill -INT "$pid"
  end "$pid"
}
