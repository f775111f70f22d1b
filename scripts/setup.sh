#!/usr/bin/env bash
# Installs what building, testing and the documentation need on Debian 12, as far as it is missing.
# usage: setup.sh GROUP...
# groups: build test ci arm aarch64 uclibc abi musl coverage docs packages
#
# With everything in place it changes nothing and needs neither network nor root.
set -euo pipefail
cd "$(dirname "$0")/.."

build_packages=(g++ cmake ninja-build libboost-dev uuid-dev)
test_packages=(libgtest-dev libspdlog-dev pkgconf python3)
ci_packages=(git clang clang-format clang-tidy libclang-rt-14-dev)
coverage_packages=(gcovr)
docs_packages=(doxygen python3)
packages_packages=(dpkg-dev file mmdebstrap)
arm_packages=(g++-arm-linux-gnueabihf qemu-user googletest)
aarch64_packages=(g++-aarch64-linux-gnu qemu-user googletest)
abi_packages=(abigail-tools)
musl_packages=(musl-tools)
uclibc_packages=("${arm_packages[@]}" libboost-dev uclibc-source gcc-12-source
  linux-libc-dev-armhf-cross gcc make xz-utils)

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

download_libuuid() {
  (cd "$1" && apt-get download "uuid-dev:$2" "libuuid1:$2")
}

# make_target_root ROOT DEBIAN_ARCHITECTURE TRIPLET: libuuid for another processor and Boost's
# headers. They are unpacked beside the build instead of installed: a full second architecture on
# the host asks for the very same version of many packages on both.
make_target_root() {
  local root=$1 architecture=$2 triplet=$3 archive
  [ ! -e "$root/complete" ] || return 0
  if ! dpkg --print-foreign-architectures | grep -qx "$architecture"; then
    as_root dpkg --add-architecture "$architecture"
    update_index
  fi
  rm -rf "$root"
  mkdir -p "$root/packages"
  if ! download_libuuid "$root/packages" "$architecture"; then
    update_index
    download_libuuid "$root/packages" "$architecture"
  fi
  for archive in "$root"/packages/*.deb; do
    dpkg-deb -x "$archive" "$root"
  done
  if [ ! -e "$root/usr/lib/$triplet/libuuid.so" ]; then
    echo "setup: the packages hold no libuuid.so for $architecture where it is expected" >&2
    return 1
  fi
  ln -s /usr/include/boost "$root/usr/include/boost"
  touch "$root/complete"
}

for group in "$@"; do
  case $group in
    build) install_missing "${build_packages[@]}" ;;
    test) install_missing "${test_packages[@]}" ;;
    ci) install_missing "${ci_packages[@]}" ;;
    coverage) install_missing "${coverage_packages[@]}" ;;
    arm)
      install_missing "${arm_packages[@]}"
      make_target_root build/arm-root armhf arm-linux-gnueabihf
      ;;
    aarch64)
      install_missing "${aarch64_packages[@]}"
      make_target_root build/aarch64-root arm64 aarch64-linux-gnu
      ;;
    abi) install_missing "${abi_packages[@]}" ;;
    musl) install_missing "${musl_packages[@]}" ;;
    uclibc)
      install_missing "${uclibc_packages[@]}"
      scripts/toolchains/arm-uclibc.sh
      ;;
    docs) install_missing "${docs_packages[@]}" ;;
    packages) install_missing "${packages_packages[@]}" ;;
    *)
      echo "setup: unknown group $group; the first lines of this script name them" >&2
      exit 2
      ;;
  esac
done
