#!/usr/bin/env bash
# Installs the library - shared, static, and both beside each other - and uses it from outside: with
# find_package, with pkg-config and with a plain -lqiv, from C and from C++.
# usage: run.sh [BUILD_DIRECTORY]      default: build/install-check
#
# Nothing but the library is built, so this also shows that the tests' needs are not the library's.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source_directory=$(cd "$here/../.." && pwd)
mkdir -p "${1:-$source_directory/build/install-check}"
work=$(cd "${1:-$source_directory/build/install-check}" && pwd)
export LC_ALL=C

fail() {
  echo "install check: $*" >&2
  exit 1
}

quietly() {
  "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "failed: $*"; }
}

# The libraries that a program loads, one a line; none for a program that is static all through.
loaded_by() {
  readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'
}

# check SHARED|ARCHIVE|ALL-STATIC PROGRAM: runs the program with the prefix's libraries, and looks
# at what it prints and at what it was linked to. A line about the thread-local keys tells that the
# load-time objects are there, though the program refers to none of them.
check() {
  local linked=$1 program=$2 printed libraries
  printed=$(LD_LIBRARY_PATH=$prefix/lib "$program" 2>"$work/stderr") ||
    { cat "$work/stderr" >&2; fail "$program ended with $?"; }
  [[ $printed == "version: 1.1."* ]] || fail "$program printed: $printed"
  grep -q 'qiv tls index{[0-9]*}' "$work/stderr" ||
    fail "$program does not build the library's load-time objects"
  libraries=$(loaded_by "$program")
  case $linked in
    shared) grep -qx 'libqiv\.so\.1' <<<"$libraries" ;;
    archive) grep -q libuuid <<<"$libraries" && ! grep -q libqiv <<<"$libraries" ;;
    all-static) [ -z "$libraries" ] ;;
  esac || fail "$program is not linked as $linked; it loads:" "$libraries"
  echo "  ok: ${program#"$work"/}"
}

# One build directory serves all kinds: the objects are the same.
# install_library KIND OPTION...
install_library() {
  kind=$1
  shift
  prefix=$work/$kind
  rm -rf "$prefix" "$work/out-$kind"
  mkdir -p "$work/out-$kind"
  quietly cmake -S "$source_directory" -B "$work/build" -G Ninja \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_LIBDIR=lib \
    -DBUILD_TESTING=OFF -DQIV_BUILD_EXAMPLES=OFF -DQIV_BUILD_BENCH=OFF -DQIV_BUILD_FUZZ=OFF \
    -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON "$@"
  quietly cmake --build "$work/build" --parallel "$(nproc)"
  quietly cmake --install "$work/build" --prefix "$prefix"
}

# with_find_package LINKED TARGET [OPTION...]: a C project without C++, and the other way round.
with_find_package() {
  local linked=$1 target=$2 language build
  shift 2
  for language in C CXX; do
    build=$work/out-$kind/cmake-$linked-${target#qiv::}-$language
    quietly cmake -S "$here/consumer" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
      -DLANGUAGE=$language -DTARGET="$target" "$@"
    quietly cmake --build "$build"
    check "$linked" "$build/program"
  done
}

# compile LINKED NAME FLAG...: builds both programs into out-KIND/NAME-c and NAME-cxx, and runs them.
compile() {
  local linked=$1 out=$work/out-$kind/$2
  shift 2
  quietly cc -std=c99 -Wall -Wextra -Werror -I"$prefix/include" -o "$out-c" \
    "$here/consumer/program.c" "$@"
  quietly c++ -std=c++11 -Wall -Wextra -Werror -I"$prefix/include" -o "$out-cxx" \
    "$here/consumer/program.cpp" "$@"
  check "$linked" "$out-c"
  check "$linked" "$out-cxx"
}

# with_pkg_config LINKED FLAGS_OF_PKG_CONFIG [FLAG OF THE COMPILER...]
with_pkg_config() {
  local linked=$1 asked flags
  read -ra asked <<<"$2"
  shift 2
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  pkg-config --exact-version=1.1.15 qiv || fail "pkg-config finds no qiv 1.1.15"
  read -ra flags <<<"$(pkg-config "${asked[@]}" qiv)"
  compile "$linked" "pkg-config-$linked" "$@" "${flags[@]}"
}

command -v pkg-config >/dev/null || fail "pkg-config is needed"

install_library shared -DBUILD_SHARED_LIBS=ON -DQIV_BUILD_STATIC=OFF
[ -L "$prefix/lib/libqiv.so.1" ] || fail "no libqiv.so.1 link"
[ ! -e "$prefix/lib/libqiv.a" ] || fail "a shared installation holds a libqiv.a"
with_find_package shared qiv::qiv
with_pkg_config shared "--cflags --libs"
compile shared plain -L"$prefix/lib" -lqiv
compile shared by-path "$prefix/lib/libqiv.so"
if loaded_by "$work/out-$kind/plain-cxx" | grep -q libuuid; then
  fail "a program that calls nothing of libuuid is linked to it"
fi

install_library both -DBUILD_SHARED_LIBS=ON -DQIV_BUILD_STATIC=ON
with_find_package shared qiv::qiv
with_find_package archive qiv::qiv-static
# A program that is static all through needs an archive of libuuid, too.
with_find_package all-static qiv::qiv-static -DCMAKE_EXE_LINKER_FLAGS=-static \
  -DLibUuid_LIBRARY="$(cc -print-file-name=libuuid.a)"
with_pkg_config shared "--cflags --libs"
with_pkg_config all-static "--cflags --libs --static" -static

install_library static -DBUILD_SHARED_LIBS=OFF -DQIV_BUILD_STATIC=OFF
[ ! -e "$prefix/lib/libqiv.so" ] || fail "a static installation holds a libqiv.so"
with_find_package archive qiv::qiv
with_find_package archive qiv::qiv-static
with_pkg_config archive "--cflags --libs --static"

echo "install check: passed"
