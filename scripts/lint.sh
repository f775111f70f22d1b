#!/usr/bin/env bash
# Runs clang-tidy over one source file; prints only what it finds.
# usage: lint.sh BUILD_DIRECTORY FILE      the directory holds compile_commands.json
set -euo pipefail
clang-tidy --quiet -p "$1" "$2" 2>/dev/null
