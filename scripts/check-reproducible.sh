#!/usr/bin/env bash
# Builds and installs the library twice, shared and static, and compares the two trees byte for byte:
# whoever builds the same source with the same tools gets the same files.
# usage: check-reproducible.sh [CMAKE_ARGUMENT...]      e.g. -DCMAKE_BUILD_TYPE=RelWithDebInfo
#
# Between the two differ the folders of source and build, the date and the time zone, locale, umask,
# user name and home, and the number of parallel jobs. The trees are left in build/reproducible.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake_arguments=(-DCMAKE_BUILD_TYPE=Release "$@")
work=$PWD/build/reproducible

# What the folder holds now, committed or not.
copy_source() {
  mkdir -p "$1"
  git ls-files -z --cached --others --exclude-standard |
    tar --create --null --files-from=- --ignore-failed-read | tar --extract --directory="$1"
}

# Runs a command in the build's environment; no object may come from a compiler cache.
run() {
  env -u CMAKE_C_COMPILER_LAUNCHER -u CMAKE_CXX_COMPILER_LAUNCHER CCACHE_DISABLE=1 \
    "${environment[@]}" "$@" >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
  }
}

# build SOURCE BUILD TREE JOBS: into TREE/shared and TREE/static, from the same objects.
build() {
  local kind shared=ON
  copy_source "$1"
  for kind in shared static; do
    run cmake -S "$1" -B "$2" -G Ninja "${cmake_arguments[@]}" -DBUILD_SHARED_LIBS=$shared \
      -DBUILD_TESTING=OFF -DQIV_BUILD_EXAMPLES=OFF
    run cmake --build "$2" --parallel "$4"
    run cmake --install "$2" --prefix "$3/$kind"
    shared=OFF
  done
}

rm -rf "$work"
mkdir -p "$work"

# Compilers take the date from SOURCE_DATE_EPOCH: here it stands for a clock that has moved on.
umask 022
environment=(SOURCE_DATE_EPOCH=1000000000 TZ=UTC LC_ALL=C)
build "$work/qiv" "$work/qiv/build" "$work/first" "$(nproc)"

umask 027
environment=(SOURCE_DATE_EPOCH=1500000000 TZ=Asia/Kolkata LC_ALL=C.UTF-8
  USER=someone LOGNAME=someone HOME="$work/home")
build "$work/at another place/deeper/source" "$work/out" "$work/second" $(($(nproc) + 1))

if ! diff --recursive --no-dereference --brief "$work/first" "$work/second" >&2; then
  echo "check-reproducible: the trees differ; diffoscope or 'cmp -l' tell where" >&2
  exit 1
fi
echo "$(find "$work/first" -type f | wc -l) files are the same byte for byte"
