#!/usr/bin/env bash
# SIGINT and SIGTERM end both programs cleanly, idle or in the middle of a transfer.
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh"

# Byte by byte this takes minutes, so that the signals come in its middle.
head -c 30000000 /dev/zero >"$work/zeros"

for signal in INT TERM; do
  start_server idle "${server[@]}" --port 0
  kill -$signal "$pid"
  end "$pid"
  expect_status 0 "an idle server and SIG$signal"

  start_server busy "${server[@]}" --port 0
  server_pid=$pid
  start client "${client[@]}" --port "$port" --message-size 1 --connections 3 "$work/zeros"
  await busy AcceptEx 4  # one for each client, and the one that follows them
  kill -$signal "$pid"
  end "$pid"
  expect_status 130 "a busy client and SIG$signal"
  expect_text client.err interrupted
  kill -$signal "$server_pid"
  end "$server_pid"
  expect_status 0 "the server after the client was interrupted"
  expect_text busy.out 'stopped after 3 clients'

  start_server busy "${server[@]}" --port 0
  server_pid=$pid
  start client "${client[@]}" --port "$port" --message-size 1 --connections 3 "$work/zeros"
  await busy AcceptEx 4
  kill -$signal "$server_pid"
  end "$server_pid"
  expect_status 0 "a busy server and SIG$signal"
  end "$pid"
  expect_status 1 "a client whose server was stopped"
  expect_text client.err 'of 10000000 bytes were back'

  # Ctrl-C in a terminal that runs both.
  start_server busy "${server[@]}" --port 0
  server_pid=$pid
  start client "${client[@]}" --port "$port" --message-size 1 --connections 3 "$work/zeros"
  await busy AcceptEx 4
  kill -$signal "$pid" "$server_pid"
  end "$pid"
  expect_status 130 "a client and a server that get SIG$signal at once"
  expect_text client.out 'connection 2: not finished'
  end "$server_pid"
  expect_status 0 "a server and a client that get SIG$signal at once"

  start_server silent "${wrong_server[@]}" silent 0
  server_pid=$pid
  start client "${client[@]}" --port "$port" --connections 1 "$work/zeros"
  await silent received
  kill -$signal "$pid"
  end "$pid"
  expect_status 130 "a client without an echo and SIG$signal"
  kill -TERM "$server_pid"
  end "$server_pid"
done
