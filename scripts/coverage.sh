#!/usr/bin/env bash
# Runs all tests on a library that counts its lines and branches, and reports what they reach of
# src/. Fails below 97 % of the lines or 90 % of the branches.
# usage: coverage.sh
#
# Branches that only an exception takes are left out: the compiler puts one behind every call that
# could throw. The page with each line's counts is build/coverage/report/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build test coverage
cmake --preset coverage
cmake --build --preset coverage --parallel "$(nproc)"
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel "$(nproc)" --progress

report=build/coverage/report
mkdir -p $report
# A process that ends while its threads run leaves counters that do not add up; gcov then derives a
# count below 0 for a branch, which gcovr leaves out.
gcovr --root . --filter src/ --object-directory build/coverage \
  --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors \
  --html-details $report/index.html --json $report/counts.json build/coverage/src \
  2>$report/warnings.txt
gcovr --root . --add-tracefile $report/counts.json --txt $report/lines.txt
echo "Lines that no test reaches:"
awk '$4 ~ /%$/ && $4 != "100%" && $1 != "TOTAL" { print "  " $1 ": " $5 }' $report/lines.txt
gcovr --root . --add-tracefile $report/counts.json --txt $report/lines.txt --print-summary \
  --fail-under-line 97 --fail-under-branch 90
