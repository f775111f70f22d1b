#!/usr/bin/env bash
# Builds the library and runs its tests. On a fresh Debian 12 it installs what that needs first.
# usage: test.sh [ARGUMENT OF CTEST...]      e.g. test.sh -R Mutex
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build test
cmake --preset release
cmake --build --preset release --parallel "$(nproc)"
ctest --preset release --parallel "$(nproc)" "$@"
