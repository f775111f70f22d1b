#!/usr/bin/env bash
# A wrong echo, a connection that breaks and a server that is not there end with status 1 and a
# message that tells them apart.
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh"

head -c 300000 /dev/zero >"$work/zeros"

# expect_failure TEXT MODE POSITION CONNECTIONS
expect_failure() {
  start_server wrong "${wrong_server[@]}" "$2" "$3"
  run client "${client[@]}" --port "$port" --connections "$4" "$work/zeros"
  expect_status 1 "a server that does '$2'"
  expect_text client.err "$1"
  kill -TERM "$pid"
  end "$pid"
}

expect_failure 'connection 0: the byte at file offset 0 differs: expected 0x00, got 0xff' corrupt 0 1
expect_failure 'connection 0: the byte at file offset 299999 differs: expected 0x00, got 0xff' \
  corrupt 299999 1
# The connections after the first are echoed rightly, whichever of them comes first.
expect_failure 'differs: expected 0x00, got 0xff' corrupt 12345 3
[ "$(grep -c 'bytes equal in' "$work/client.out")" -eq 2 ] || fail 'the other connections suffered'
expect_failure 'connection 0: closed by the server when 123456 of 300000 bytes were back' \
  close 123456 1
expect_failure 'connection 0: the server sent more than it was sent' surplus 300000 1

free_port
run client "${client[@]}" --port "$port" --connections 2 "$work/zeros"
expect_status 1 'a port without a server'
expect_text client.err 'connection 0: cannot connect: Connection refused'
expect_text client.err 'connection 1: cannot connect: Connection refused'

start_server taken "${server[@]}" --port 0
run second "${server[@]}" --port "$port"
expect_status 1 'a port that is taken'
expect_text second.err "cannot listen on port $port: Address already in use"
kill -INT "$pid"
end "$pid"
