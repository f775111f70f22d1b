#!/usr/bin/env bash
# Run in a clean Debian that has a compiler, CMake and pkg-config, with the packages and the project
# `consumer` beside this file: installs the packages, uses them in every way that they promise, and
# removes them again without a trace.
# usage: inside.sh
set -euo pipefail
cd "$(dirname "$0")"
export LC_ALL=C DEBIAN_FRONTEND=noninteractive

fail() {
  echo "packages check: $*" >&2
  exit 1
}

quietly() {
  "$@" >log 2>&1 || { cat log >&2; fail "failed: $*"; }
}

# check PROGRAM: one that prints the library's version.
check() {
  local printed
  printed=$("./$1" 2>log) || { cat log >&2; fail "$1 ended with $?"; }
  [[ $printed == "version: 1.1."* ]] || fail "$1 printed: $printed"
  grep -q 'qiv tls index{[0-9]*}' log || fail "$1 does not build the load-time objects"
  echo "  ok: $1"
}

# The names of all files but those that any installation of any package may leave.
files() {
  find / -xdev \( -path /mnt -o -path /tmp -o -path /proc -o -path /sys -o -path /dev \
    -o -path /var/log -o -path /var/cache -o -path /var/lib/apt \
    -o -path '/var/lib/dpkg/*-old' \) -prune -o -print | sort
}

use_with_cmake() {
  local language target
  for language in C CXX; do
    for target in qiv::qiv qiv::qiv-static; do
      quietly cmake -S consumer -B "cmake-$language-${target#qiv::}" \
        -DLANGUAGE=$language -DTARGET=$target
      quietly cmake --build "cmake-$language-${target#qiv::}"
      check "cmake-$language-${target#qiv::}/program"
    done
  done
}

# use_with NAME FLAG...
use_with() {
  local name=$1
  shift
  quietly cc -std=c99 -Wall -Wextra -Werror -o "$name-c" consumer/program.c "$@"
  quietly c++ -std=c++11 -Wall -Wextra -Werror -o "$name-cxx" consumer/program.cpp "$@"
  check "$name-c"
  check "$name-cxx"
}

# The programs that libqiv-dev brings, as its users would try them.
use_examples() {
  local source compiler ran=0
  for source in /usr/share/doc/libqiv-dev/examples/*; do
    case $source in
      *.c) compiler=cc ;;
      *.cpp) compiler=c++ ;;
    esac
    quietly $compiler -o example "$source" -lqiv
    quietly timeout 60 ./example
    ran=$((ran + 1))
  done
  echo "  ok: $ran examples"
}

files >before

quietly apt-get install -y --no-install-recommends ./libqiv1_*.deb ./qiv-tools_*.deb
quietly qiv-sysmon --once
total=$(awk '$1 == "MemTotal:" { printf "%.0f", $2 * 1024 }' /proc/meminfo)
grep -qx "memory total $total" log || fail "qiv-sysmon does not tell the memory of /proc/meminfo"
echo "  ok: qiv-sysmon"

quietly apt-get install -y --no-install-recommends ./libqiv-dev_*.deb
use_with_cmake
read -ra flags <<<"$(pkg-config --cflags --libs qiv)"
use_with pkg-config "${flags[@]}"
read -ra flags <<<"$(pkg-config --cflags --libs --static qiv)"
use_with pkg-config-static -static "${flags[@]}"
use_with plain -lqiv
use_examples

quietly dpkg --purge qiv-tools libqiv-dev libqiv1
! ldconfig -p | grep -i qiv || fail "the loader still knows the library"
quietly apt-get purge -y --autoremove # what they have pulled in
files | diff before - || fail "the packages leave files, or take some with them"
echo "  ok: nothing is left"
