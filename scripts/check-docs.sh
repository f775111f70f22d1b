#!/usr/bin/env bash
# Checks what the documents and the headers' comments promise.
# usage: check-docs.sh
#
# - a link between documents leads to a file that exists;
# - a block of C or C++ in a document compiles;
# - every public header is in qiv.h and in the README;
# - the comment of every exported C function tells its result, errors, thread safety and system
#   interface.
set -euo pipefail
cd "$(dirname "$0")/.."

documents=(*.md docs/*.md)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=no

complain() {
  echo "check-docs: $*" >&2
  failed=yes
}

check_links() {
  local document target
  for document in "${documents[@]}"; do
    while read -r target; do
      [ -e "$(dirname "$document")/${target%%#*}" ] || complain "$document: no such file: $target"
    done < <(grep -oE '\]\([^)]+\)' "$document" | sed 's/^](//; s/)$//' | grep -vE '^(https?:|#)')
  done
}

# Writes the blocks of one language, "c" or "cpp", to WORK/NAME-LINE.LANGUAGE.
extract_blocks() {
  awk -v language="$2" -v prefix="$work/$(basename "$1" .md)" '
    $0 == "```" language { out = prefix "-" NR "." language; next }
    /^```/ { out = "" }
    out != "" { print > out }' "$1"
}

check_blocks() {
  local document block blocks=0
  for document in "${documents[@]}"; do
    extract_blocks "$document" c
    extract_blocks "$document" cpp
  done
  for block in "$work"/*.c; do
    [ -e "$block" ] || continue
    blocks=$((blocks + 1))
    cc -std=c99 -pedantic-errors -Wall -Wextra -Werror -Iinclude -fsyntax-only "$block" ||
      complain "a block of C does not compile: $(basename "$block")"
  done
  for block in "$work"/*.cpp; do
    [ -e "$block" ] || continue
    blocks=$((blocks + 1))
    c++ -std=c++11 -pedantic-errors -Wall -Wextra -Werror -Iinclude -fsyntax-only "$block" ||
      complain "a block of C++ does not compile: $(basename "$block")"
  done
  echo "$blocks code blocks compile"
}

check_headers_are_listed() {
  local header name
  for header in include/qiv/*.h; do
    name=$(basename "$header")
    [ "$name" != qiv.h ] || continue
    grep -qF "#include <qiv/$name>" include/qiv/qiv.h ||
      complain "qiv.h does not bring $name"
    grep -qF "\`$name\`" README.md || complain "README.md does not name $name"
  done
}

check_comments() {
  awk '
    FNR == 1 { comment = ""; exported = 0; depth = 0 }
    /^#if/ { ++depth }
    /^#endif/ { --depth }
    /^QIV_EXTERN_C_BEGIN/ { exported = 1 }
    /^QIV_EXTERN_C_END/ { exported = 0 }
    /^\/\*\*/ { comment = "" }
    /^(\/\*\*| \*)/ { comment = comment $0 "\n"; next }
    exported && /^QIV_API .*\(/ {
      split("Errors,Thread safety,System", required, ",")
      for (i = 1; i <= 3; ++i) {
        if (index(comment, "@par " required[i]) == 0) {
          print FILENAME ":" FNR ": the comment lacks @par " required[i]
          bad = 1
        }
      }
      if ($2 != "void" && index(comment, "@return") == 0) {
        print FILENAME ":" FNR ": the comment lacks @return"
        bad = 1
      }
      # The C and the C++ form of a declaration share a comment.
      if (depth == 1) comment = ""
      next
    }
    END { exit bad }' include/qiv/*.h >&2 || complain "comments of exported functions are incomplete"
}

check_links
check_blocks
check_headers_are_listed
check_comments
[ $failed = no ] || exit 1
echo "documents and comments are in order"
