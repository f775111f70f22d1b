#!/usr/bin/env bash
# Compares the binary interface of the library with that of the last release: functions, variables,
# records, classes and their layouts, on x86-64 and on 32-bit ARM. Fails when a program that was
# built with the release could break; what was added is listed. Installs what that needs first.
# usage: check-abi.sh [--update]
#
# --update records the interface as that of the version in CMakeLists.txt, in place of the release
# before. docs/abi.md tells when.
set -euo pipefail
cd "$(dirname "$0")/.."

update=no
if [ $# -eq 1 ] && [ "$1" = --update ]; then
  update=yes
elif [ $# -ne 0 ]; then
  echo "usage: check-abi.sh [--update]" >&2
  exit 2
fi

folder=build/abi
version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)

# The interface is read from the debug information, which tells the same of it whether the compiler
# optimises or not.
build() {
  local platform=$1
  shift
  cmake -S . -B "$folder/$platform" -G Ninja --no-warn-unused-cli -DBUILD_TESTING=OFF \
    -DQIV_BUILD_EXAMPLES=OFF -DCMAKE_CXX_FLAGS="-g -O0" "$@" >/dev/null
  cmake --build "$folder/$platform" --target qiv --parallel "$(nproc)" -- --quiet
}

# Without what depends on the machine and without what is no interface.
dump() {
  abidw --suppressions tests/abi/abidw.ini --exported-interfaces-only --drop-undefined-syms \
    --no-elf-needed --no-parameter-names --no-write-default-sizes \
    --no-corpus-path --no-comp-dir-path --short-locs --no-show-locs \
    --out-file "$folder/$1.abi" "$folder/$1/libqiv.so"
}

# changes PLATFORM RELEASE [ARGUMENT OF ABIDIFF...]: writes them to PLATFORM.report; false if any
changes() {
  local platform=$1 release=$2
  shift 2
  abidiff --suppressions tests/abi/abidiff.ini "$@" "$release" "$folder/$platform.abi" \
    >"$folder/$platform.report"
}

# compare PLATFORM RELEASE
compare() {
  if ! changes "$1" "$2" --no-added-syms; then
    cat "$folder/$1.report"
    echo "abi: on $1, programs that were built with the release in $2 could break" >&2
    return 1
  fi
  changes "$1" "$2" || sed -n "s/^ *\[A\] /added on $1: /p" "$folder/$1.report"
  echo "on $1, programs that were built with $(basename "$2" "-$1.abi") still work"
}

# check PLATFORM [ARGUMENT OF CMAKE...]
check() {
  local platform=$1 release
  build "$@"
  dump "$platform"
  release=$(echo tests/abi/libqiv-*-"$platform".abi)
  if [ $update = yes ]; then
    rm -f "$release"
    cp "$folder/$platform.abi" "tests/abi/libqiv-$version-$platform.abi"
  else
    compare "$platform" "$release"
  fi
}

scripts/setup.sh build arm abi
check x86_64 -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++
check arm --toolchain cmake/toolchains/arm-linux-gnueabihf.cmake
