#!/usr/bin/env bash
# Compiles the public headers (C99, C++11) and the library's sources with the headers of the musl C
# library, as far as the syntax goes: what only glibc has is an error. Nothing is linked or run.
# Installs what that needs first.
# usage: check-musl.sh
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build musl

folder=build/musl
musl=/usr/include/$(uname -m)-linux-musl
definitions=(-D_GNU_SOURCE -D_FILE_OFFSET_BITS=64)
warnings=(-Wall -Wextra -Wshadow -Wconversion -Werror)

# Debian's musl comes with a compiler for C only. For C++, g++'s own headers stand around those of
# musl, in the order in which g++ itself has them.
own_headers() {
  g++ -E -v -x c++ /dev/null 2>&1 | sed -n "s|^ \(/.*$1.*\)|\1|p"
}
mapfile -t search < <(own_headers '/c++/' && echo "$musl" && own_headers '/lib/gcc/.*/include$')
compiler=(g++ -fsyntax-only -nostdinc "${search[@]/#/-isystem}" "-isystem$folder/system"
  -include tests/abi/musl.h -Iinclude -Isrc)

# The kernel's headers and the two libraries, without the C library's headers beside them.
make_system_headers() {
  local header
  rm -rf $folder
  mkdir -p $folder/system
  for header in linux asm-generic "$(g++ -print-multiarch)/asm" boost uuid; do
    ln -s "/usr/include/$header" "$folder/system/${header##*/}"
  done
}

# check_each COMMAND...: runs the command on each file that standard input names.
check_each() {
  xargs -n 1 -P "$(nproc)" "$@"
}

make_system_headers
git ls-files 'include/*.h' |
  check_each musl-gcc -x c -std=c99 -fsyntax-only -Iinclude -pedantic-errors -Wstrict-prototypes \
    "${warnings[@]}"
git ls-files 'include/*.h' |
  check_each "${compiler[@]}" -x c++ -std=c++11 -pedantic-errors "${warnings[@]}"
git ls-files 'src/*.cpp' |
  check_each "${compiler[@]}" -std=c++17 "${definitions[@]}" "${warnings[@]}"
