#!/usr/bin/env bash
# Builds the Debian packages libqiv1, libqiv-dev and qiv-tools into build/packages. Installs what
# that needs first.
# usage: package.sh
#
# The same sources give the same bytes: times are those of the last commit, or SOURCE_DATE_EPOCH.
set -euo pipefail
cd "$(dirname "$0")/.."

out=$PWD/build/packages
tree=$out/tree

quietly() {
  "$@" >"$out/log" 2>&1 || { cat "$out/log" >&2; echo "package: failed: $*" >&2; exit 1; }
}

scripts/setup.sh build packages
mkdir -p "$out"
rm -f "$out"/*.deb
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null ||
  stat -c %Y CHANGELOG.md)}
export SOURCE_DATE_EPOCH LC_ALL=C
umask 022

quietly cmake --fresh -S . -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" \
  -DCMAKE_SKIP_RPATH=ON -DQIV_DEBIAN_PACKAGES=ON -DQIV_BUILD_STATIC=ON -DBUILD_TESTING=OFF
quietly cmake --build "$tree" --parallel "$(nproc)" --target qiv qiv-static qiv_sysmon
quietly cpack --config "$tree/CPackConfig.cmake" -B "$out"
rm -rf "$out/_CPack_Packages"
ls "$out"/*.deb
