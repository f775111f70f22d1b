#!/usr/bin/env bash
# Builds the documentation site from the headers' comments and docs/, and checks its links. Every
# warning is an error: an undocumented name, an unknown reference, a broken link. Installs what that
# needs first.
# usage: docs.sh      the site begins at build/docs/html/index.html
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh docs
rm -rf build/docs # a page that is made no more must not satisfy a link
mkdir -p build/docs
version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
if ! QIV_VERSION=$version doxygen docs/Doxyfile; then
  echo "docs: the site cannot be built without warnings" >&2
  exit 1
fi
cp -r examples build/docs/html/
scripts/check-links.py build/docs/html
echo "the site begins at build/docs/html/index.html"
