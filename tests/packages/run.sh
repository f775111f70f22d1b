#!/usr/bin/env bash
# Builds the Debian packages, and installs, uses and removes them in a clean Debian 12: inside.sh
# tells what is done there. Needs root, a Debian mirror, and 1 GB of memory for the clean root.
# usage: run.sh
set -euo pipefail
cd "$(dirname "$0")/../.."

fail() {
  echo "packages check: $*" >&2
  exit 1
}

[ "$(id -u)" -eq 0 ] || fail "the clean root can only be made by root"

# The root lies in memory, where it is made in a third of the time. It is mounted in a namespace of
# this script's own, and so gone with the script, however it ends.
if [ "${1:-}" != --in-namespace ]; then
  scripts/package.sh
  exec unshare --mount tests/packages/run.sh --in-namespace
fi
work=$PWD/build/packages/check
mkdir -p "$work"
mount -t tmpfs -o size=2g tmpfs "$work"

# mmdebstrap mounts /proc and the like, and runs the hooks with the root as $1.
# shellcheck disable=SC2016  # $1 is the hook's
TMPDIR=$work mmdebstrap --quiet --variant=apt --include=g++,cmake,make,pkgconf \
  --dpkgopt=force-unsafe-io \
  --customize-hook='cp -r build/packages/*.deb tests/packages/inside.sh tests/install/consumer "$1/mnt"' \
  --customize-hook='chroot "$1" /mnt/inside.sh' \
  bookworm /dev/null || fail "failed in the clean root"
echo "packages check: passed"
