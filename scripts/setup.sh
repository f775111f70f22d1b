#!/usr/bin/env bash
# Installs what building, testing and the documentation need on Debian 12, as far as it is missing.
# usage: setup.sh GROUP...      groups: build test ci arm uclibc coverage docs
#
# With everything in place it changes nothing and needs neither network nor root.
set -euo pipefail
cd "$(dirname "$0")/.."

build_packages=(g++ cmake ninja-build libboost-dev uuid-dev)
test_packages=(libgtest-dev libspdlog-dev pkgconf python3)
ci_packages=(git clang clang-format clang-tidy libclang-rt-14-dev)
coverage_packages=(gcovr)
docs_packages=(doxygen python3)
arm_packages=(g++-arm-linux-gnueabihf qemu-user googletest)
uclibc_packages=("${arm_packages[@]}" libboost-dev uclibc-source gcc-12-source
  linux-libc-dev-armhf-cross gcc make xz-utils)

# libuuid for ARM, unpacked beside the build instead of installed: a full second architecture on
# the host asks for the very same version of many packages on both.
arm_root=build/arm-root
arm_library_packages=(uuid-dev:armhf libuuid1:armhf)

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# An index that is just being replaced on the mirror fails for a moment. What is there already is
# often enough, so only a failing install ends the script.
update_index() {
  local attempt
  for attempt in 1 2 3; do
    if as_root apt-get update -qq; then return 0; fi
    sleep $((attempt * 2))
  done
  echo "setup: apt-get update failed; going on with the index at hand" >&2
}

index_is_fresh=no

install_missing() {
  local package missing=()
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  if ! command -v apt-get >/dev/null; then
    echo "setup: not a Debian system; these packages or their like are needed: ${missing[*]}" >&2
    return 0
  fi
  echo "setup: installing ${missing[*]}"
  [ $index_is_fresh = yes ] || update_index
  index_is_fresh=yes
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

download_arm_libraries() {
  (cd "$1" && apt-get download "${arm_library_packages[@]}")
}

make_arm_root() {
  [ ! -e $arm_root/complete ] || return 0
  if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    as_root dpkg --add-architecture armhf
    update_index
  fi
  rm -rf $arm_root
  mkdir -p $arm_root/packages
  if ! download_arm_libraries $arm_root/packages; then
    update_index
    download_arm_libraries $arm_root/packages
  fi
  local archive
  for archive in $arm_root/packages/*.deb; do
    dpkg-deb -x "$archive" $arm_root
  done
  if [ ! -e $arm_root/usr/lib/arm-linux-gnueabihf/libuuid.so ]; then
    echo "setup: the packages hold no libuuid.so for ARM where it is expected" >&2
    return 1
  fi
  ln -s /usr/include/boost $arm_root/usr/include/boost
  touch $arm_root/complete
}

for group in "$@"; do
  case $group in
    build) install_missing "${build_packages[@]}" ;;
    test) install_missing "${test_packages[@]}" ;;
    ci) install_missing "${ci_packages[@]}" ;;
    coverage) install_missing "${coverage_packages[@]}" ;;
    arm)
      install_missing "${arm_packages[@]}"
      make_arm_root
      ;;
    uclibc)
      install_missing "${uclibc_packages[@]}"
      scripts/toolchains/arm-uclibc.sh
      ;;
    docs) install_missing "${docs_packages[@]}" ;;
    *)
      echo "usage: setup.sh GROUP...   groups: build test ci arm uclibc coverage docs" >&2
      exit 2
      ;;
  esac
done
