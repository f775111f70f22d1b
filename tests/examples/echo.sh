#!/usr/bin/env bash
# Files of any size come back equal, over any number of connections and with any message size.
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh"

head -c 1000003 /dev/urandom >"$work/some"
head -c 5 /dev/urandom >"$work/few"
: >"$work/none"

# expect_equal CONNECTIONS MESSAGE_SIZE WORKERS FILE
expect_equal() {
  local bytes
  bytes=$(wc -c <"$work/$4")
  run client "${client[@]}" --port "$port" --connections "$1" --message-size "$2" --workers "$3" \
    "$work/$4"
  expect_status 0 "$4 over $1 connections, messages of $2 bytes"
  expect_text client.out "sent $bytes bytes over $1 connections"
  [ "$(grep -c '^connection [0-9]*: [0-9]* bytes equal' "$work/client.out")" -eq "$1" ] ||
    fail "not one result per connection"
  [ -z "$(own_lines client)" ] || fail 'something on standard error'
}

start_server server "${server[@]}" --port 0 --message-size 50001 --workers 3
for connections in 1 8; do
  for message_size in 997 16384 16385 100003; do
    expect_equal "$connections" "$message_size" 2 some
  done
done
expect_equal 3 1 1 few
expect_equal 8 7 1 few
expect_equal 1 100 1 none
expect_equal 4 100 1 none
kill -INT "$pid"
end "$pid"
expect_status 0 'the server'
expect_text server.out "stopped after $((4 * 1 + 4 * 8 + 3 + 8 + 1 + 4)) clients and $((8 * 1000003 + 10)) bytes"

# With a log every client and every message is in its files, the last lines included.
start_server logged "${server[@]}" --port 0 --message-size 1000 --log "$work/log"
expect_equal 3 1000 2 some
kill -INT "$pid"
end "$pid"
expect_status 0 'the server with a log'
[ "$(find "$work/log" -name "qiv_log_*.log" | wc -l)" -gt 2 ] || fail 'the log has not filled a file'
cat "$work"/log/*.log >"$work/all.log"
[ "$(grep -c 'client accepted' "$work/all.log")" -eq 3 ] || fail 'the log lacks a client'
logged=$(sed -n 's/.*: \([0-9]*\) bytes\r$/\1/p' "$work/all.log" | awk '{ sum += $1 } END { print sum }')
[ "$logged" -eq 1000003 ] || fail "the log tells of $logged bytes"
expect_text all.log '\[INF\]\[FILE:echo_server.cpp\]\[LINE:[0-9]*\] stopped'

# More clients than are served at once take turns.
start_server narrow "${server[@]}" --port 0 --connections 1 --message-size 4096
expect_equal 5 4096 2 some
kill -TERM "$pid"
end "$pid"
expect_status 0 'the server with room for one client'

# Without descriptors for more clients the server waits until one leaves, and goes on.
# shellcheck disable=SC2016  # expanded by the inner shell
start_server poor bash -c 'ulimit -n 14 && exec "$@"' poor "${server[@]}" --port 0 --workers 1
idle=()
for _ in $(seq 20); do
  exec {connection}<>"/dev/tcp/127.0.0.1/$port"
  idle+=("$connection")
done
await poor 'Too many open files; waiting for a client to leave'
for connection in "${idle[@]}"; do
  exec {connection}>&-
done
expect_equal 20 4096 2 some
kill -INT "$pid"
end "$pid"
expect_status 0 'the server without descriptors'
