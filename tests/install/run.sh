#!/usr/bin/env bash
# Installs the library, shared and static, and uses it from outside: with find_package, with
# pkg-config and with a plain -lqiv, from C and from C++.
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

# check PROGRAM...: runs it with the prefix's libraries and looks at what it prints.
check() {
  local printed
  printed=$(LD_LIBRARY_PATH=$prefix/lib "$@" 2>"$work/stderr") ||
    { cat "$work/stderr" >&2; fail "$* ended with $?"; }
  [[ $printed == "version: 1.1."* ]] || fail "$* printed: $printed"
  echo "  ok: ${1##*/} ($kind)"
}

install_library() {
  prefix=$work/$kind
  rm -rf "$prefix" "$work/out-$kind"
  mkdir -p "$work/out-$kind"
  quietly cmake -S "$source_directory" -B "$work/build-$kind" -G Ninja \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_LIBDIR=lib -DBUILD_SHARED_LIBS="$1" \
    -DBUILD_TESTING=OFF -DQIV_BUILD_EXAMPLES=OFF -DQIV_BUILD_BENCH=OFF -DQIV_BUILD_FUZZ=OFF \
    -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON
  quietly cmake --build "$work/build-$kind" --parallel "$(nproc)"
  quietly cmake --install "$work/build-$kind" --prefix "$prefix"
}

with_find_package() {
  local build=$work/out-$kind/cmake
  quietly cmake -S "$here/consumer" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
  quietly cmake --build "$build"
  check "$build/c_program"
  check "$build/cxx_program"
}

# compile NAME LINK_FLAGS...: builds both programs into out-KIND/NAME-c and NAME-cxx, and runs them.
compile() {
  local out=$work/out-$kind/$1
  shift
  quietly cc -std=c99 -Wall -Wextra -Werror -I"$prefix/include" -o "$out-c" \
    "$here/consumer/program.c" "$@"
  quietly c++ -std=c++11 -Wall -Wextra -Werror -I"$prefix/include" -o "$out-cxx" \
    "$here/consumer/program.cpp" "$@"
  check "$out-c"
  check "$out-cxx"
}

with_pkg_config() {
  local flags
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  pkg-config --exact-version=1.1.15 qiv || fail "pkg-config finds no qiv 1.1.15"
  read -ra flags <<<"$(pkg-config --cflags --libs "$@" qiv)"
  compile pkg-config "${flags[@]}"
}

# A static program has the load-time objects too, though it refers to none of them.
has_load_time_objects() {
  LD_LIBRARY_PATH=$prefix/lib "$1" 2>&1 >/dev/null | grep -q 'qiv tls index{[0-9]*}' ||
    fail "$1 does not build the library's load-time objects"
}

command -v pkg-config >/dev/null || fail "pkg-config is needed"

kind=shared
install_library ON
[ -L "$work/$kind/lib/libqiv.so.1" ] || fail "no libqiv.so.1 link"
with_find_package
with_pkg_config
compile plain -L"$prefix/lib" -lqiv
compile by-path "$prefix/lib/libqiv.so"
has_load_time_objects "$work/out-$kind/plain-c"
if readelf -d "$work/out-$kind/plain-cxx" | grep -q 'NEEDED.*libuuid'; then
  fail "a program that calls nothing of libuuid is linked to it"
fi

kind=static
install_library OFF
[ ! -e "$prefix/lib/libqiv.so" ] || fail "a static installation holds a libqiv.so"
with_find_package
with_pkg_config --static
has_load_time_objects "$work/out-$kind/pkg-config-c"

echo "install check: passed"
