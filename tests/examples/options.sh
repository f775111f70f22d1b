#!/usr/bin/env bash
# --help succeeds; whatever cannot be understood ends with status 2 and one line that names it.
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh"

expect_help() {
  local program=$1 option
  shift
  run help "$@" --help
  expect_status 0 "$program --help"
  for option in --port --connections --message-size --workers; do
    expect_text help.out "$option"
  done
  [ -z "$(own_lines help)" ] || fail "$program --help writes to standard error"
}

# expect_refused TEXT COMMAND...
expect_refused() {
  local text=$1
  shift
  run refused "$@"
  expect_status 2 "$*"
  expect_text refused.err "$text"
  [ "$(own_lines refused | wc -l)" -eq 1 ] || fail "$*: not one line on standard error"
  [ ! -s "$work/refused.out" ] || fail "$*: something on standard output"
}

expect_help echo_server "${server[@]}"
expect_help echo_client "${client[@]}"

for value in '' x 1x ' 1' 1.5 0x10 +1 -1 65536 99999999999999999999; do
  expect_refused "'--port'.*not '$value'" "${server[@]}" --port "$value"
  expect_refused "'--port'.*not '$value'" "${client[@]}" --port "$value" file
  expect_refused "'--port'.*not '$value'" "${server[@]}" "--port=$value"
done
expect_refused "'--port'.*from 1" "${client[@]}" --port 0 file
for option in --connections --message-size --workers; do
  for value in 0 -1 many 2147483648; do
    expect_refused "'$option'.*not '$value'" "${server[@]}" "$option" "$value"
    expect_refused "'$option'.*not '$value'" "${client[@]}" "$option" "$value" file
  done
  expect_refused "'$option' needs a value" "${server[@]}" "$option"
  expect_refused "'$option' needs a value" "${client[@]}" file "$option"
done
expect_refused "'--log' needs a value" "${server[@]}" --log
expect_refused "'--log' needs a value" "${server[@]}" --log=
expect_refused "unknown option '--log'" "${client[@]}" --log "$work" file
expect_refused "'--message-size'.*262144" "${client[@]}" --message-size 262145 file
expect_refused "unknown option '--speed'" "${server[@]}" --speed 1
expect_refused "unknown option '-p'" "${client[@]}" -p 1 file
expect_refused "unexpected operand 'file'" "${server[@]}" file
expect_refused "unexpected operand 'other'" "${client[@]}" file other
expect_refused "FILE is missing" "${client[@]}"
expect_refused "FILE is missing" "${client[@]}" --

# After "--" a word is an operand, whatever it looks like.
run dashes "${client[@]}" -- --no-such-file
expect_status 1 'a file that does not exist'
expect_text dashes.err "cannot open '--no-such-file'"
run directory "${client[@]}" "$work"
expect_status 1 'a directory'
expect_text directory.err 'not a regular file'
