#!/usr/bin/env bash
# Checks what the documents and the headers' comments promise.
# usage: check-docs.sh
#
# - a link between documents leads to a file that exists, and no heading of docs/ holds a code span;
# - a block of C or C++ in a document compiles;
# - every public header is in qiv.h and in the README, and begins with a comment for its page;
# - every family has a page in docs/guide/, which shows its program of examples/guide/; the index
#   leads to every page, and the README to the index;
# - the comment of every exported C function tells its arguments, result, errors, thread safety and
#   system interface.
set -euo pipefail
cd "$(dirname "$0")/.."

shopt -s nullglob
documents=(*.md docs/*.md docs/guide/*.md)
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

# Doxygen would show the tags of a code span in a heading.
check_headings() {
  ! grep -nE '^#+ .*`' docs/*.md docs/guide/*.md >&2 || complain "headings hold code spans"
}

# Writes the blocks of one language, "c" or "cpp", to WORK/FOLDER-NAME-LINE.LANGUAGE.
extract_blocks() {
  local name=${1%.md}
  awk -v language="$2" -v prefix="$work/${name//\//-}" '
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
    blocks=$((blocks + 1))
    cc -std=c99 -pedantic-errors -Wall -Wextra -Werror -Iinclude -fsyntax-only "$block" ||
      complain "a block of C does not compile: $(basename "$block")"
  done
  for block in "$work"/*.cpp; do
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
    # Without it, doxygen leaves the header's functions out and does not say so.
    grep -qF " * @file" "$header" || complain "$header: the first comment lacks @file"
  done
}

# Prints the family that a public header belongs to, which is a header's name; nothing for qiv.h.
family_of() {
  case $1 in
    qiv) ;;
    types) echo library ;;
    async_io_legacy) echo async_io ;;
    *) echo "$1" ;;
  esac
}

check_guide() {
  local header family page program
  for header in include/qiv/*.h; do
    family=$(family_of "$(basename "$header" .h)")
    [ -n "$family" ] || continue
    page=docs/guide/$family.md
    [ -e "$page" ] || complain "$header: there is no $page"
  done
  for page in docs/guide/*.md; do
    family=$(basename "$page" .md)
    program=$(grep -m 1 -oE "^[\\@]include guide/$family\.(c|cpp)\$" "$page" | cut -d ' ' -f 2) ||
      complain "$page does not include guide/$family.c or .cpp"
    [ -z "$program" ] || [ -e "examples/$program" ] || complain "$page: no such file: $program"
    grep -qF "](guide/$family.md)" docs/index.md || complain "docs/index.md does not lead to $page"
  done
  grep -qF "](docs/index.md)" README.md || complain "README.md does not lead to docs/index.md"
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
      if (!/\((void|\.\.\.|QIV_ANY_ARGUMENTS)?\)/ && index(comment, "@param") == 0) {
        print FILENAME ":" FNR ": the comment lacks @param"
        bad = 1
      }
      # The C and the C++ form of a declaration share a comment.
      if (depth == 1) comment = ""
      next
    }
    END { exit bad }' include/qiv/*.h >&2 || complain "comments of exported functions are incomplete"
}

check_links
check_headings
check_blocks
check_headers_are_listed
check_guide
check_comments
[ $failed = no ] || exit 1
echo "documents and comments are in order"
