#!/usr/bin/env bash
# Builds the example programs, streams a file through a server on a free loopback port, compares what
# comes back, and shows what the server has logged and the network adapters that it ran on. On a fresh
# Debian 12 it installs what the build needs first.
# usage: demo.sh [FILE]      default: the compiler's own binary
#
# Ends with the client's exit status: 0 when every byte came back, 1 when one did not, 130 after
# Ctrl-C. QIV_DEMO_CLIENT_OPTIONS, QIV_DEMO_SERVER_OPTIONS: further options of the two programs.
set -euo pipefail

usage='usage: demo.sh [FILE]'
if [ "${1:-}" = --help ]; then
  echo "$usage"
  exit 0
fi
if [ $# -gt 1 ] || [[ "${1:-}" == -* ]]; then
  echo "$usage" >&2
  exit 2
fi
file=${1:+$(realpath -m -- "$1")}
cd "$(dirname "$0")/.."

# A directory of its own: the release build that the tests use keeps its settings.
build=build/demo
work=
server_pid=
client_pid=

# stop PID: asks a program of ours to end and waits for it; its exit status is the result.
stop() {
  [ -n "$1" ] || return 0
  kill -TERM "$1" 2>/dev/null || true
  wait "$1"
}

# shellcheck disable=SC2317  # called by the trap
clean_up() {
  trap '' INT TERM
  stop "$client_pid" || true
  stop "$server_pid" || true
  [ -z "$work" ] || rm -rf "$work"
}

build_programs() {
  scripts/setup.sh build &&
    cmake --preset release -B $build -DBUILD_TESTING=OFF -DQIV_BUILD_BENCH=OFF >"$work/build.log" &&
    cmake --build $build --parallel "$(nproc)" --target echo_server echo_client adapters \
      >>"$work/build.log"
}

# The compiler's binary is about 30 MB and there wherever the demonstration can be built.
default_file() {
  local candidate
  for candidate in "$(g++ -print-prog-name=cc1plus)" "$(command -v cmake)" "$(command -v bash)"; do
    if [ -f "$candidate" ] && [ -r "$candidate" ]; then
      realpath -- "$candidate"
      return
    fi
  done
  echo "demo: no large file found; name one: demo.sh FILE" >&2
  return 1
}

# Sets port once the server has told it.
await_port() {
  local _
  for _ in $(seq 100); do
    port=$(sed -n 's/^listening on .* port \([0-9]*\)$/\1/p' "$work/server.out")
    if [ -n "$port" ]; then return 0; fi
    kill -0 "$server_pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "demo: the server did not start:" >&2
  cat "$work/server.err" >&2
  return 1
}

trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
work=$(mktemp -d)

show_log() {
  local files
  mapfile -t files < <(ls -rt "$work"/log/*.log)
  echo "== the server's log: ${#files[@]} files of up to 16 KiB; its last lines:"
  cat "${files[@]}" | tail -n 5
}

echo "== building the library and the example programs (Release, in $build)"
if ! build_programs; then
  cat "$work/build.log" >&2
  exit 1
fi
file=${file:-$(default_file)}

read -ra server_options <<<"${QIV_DEMO_SERVER_OPTIONS:-}"
read -ra client_options <<<"${QIV_DEMO_CLIENT_OPTIONS:-}"
echo "== starting the server"
$build/examples/echo_server --port 0 --log "$work/log" "${server_options[@]}" >"$work/server.out" \
  2>"$work/server.err" &
server_pid=$!
await_port
cat "$work/server.out"

echo "== running the client"
# In the background, so that a signal to this script is seen while the client runs.
status=0
$build/examples/echo_client --port "$port" "${client_options[@]}" -- "$file" &
client_pid=$!
# A signal ends the first wait early: its handler then ends the script.
wait "$client_pid" || status=$?
client_pid=

echo "== stopping the server"
server_status=0
stop "$server_pid" || server_status=$?
server_pid=
tail -n 1 "$work/server.out"
show_log

echo "== the adapters of this machine, and its preferred address families"
adapters_status=0
$build/examples/adapters 2>"$work/adapters.err" || adapters_status=$?

if [ $status -eq 0 ] && [ $server_status -eq 0 ] && [ $adapters_status -eq 0 ]; then
  echo "== success: every byte of $file came back"
else
  echo "== failed: exit status $status of the client, $server_status of the server," \
    "$adapters_status of the list of adapters" >&2
  grep -v '^QIV_AsyncIO_AcceptEx ' "$work/server.err" >&2 || true
fi
if [ $status -eq 0 ]; then status=$server_status; fi
if [ $status -eq 0 ]; then status=$adapters_status; fi
exit $status
