#!/usr/bin/env bash
# Prints what libqiv.so takes, as tables in Markdown: the sizes of the stripped library and of each
# family's code, the memory and the time that it costs a process to load, start, stop and unload it.
# Fails when a size is over its limit, below. Installs what that needs first.
# usage: footprint.sh [PRESET...]      default: release arm
#
# Memory and times are medians of fresh processes (bench/footprint/load_cost.c). Where an emulator
# runs them, memory is that of the program and not the emulator's; times include the emulator's work.
set -euo pipefail
cd "$(dirname "$0")/.."

runs=31
failed=no

# What a preset's library may take: bytes of text, bytes of data, and KiB of private memory that
# loading and starting it adds to a process. About 15 % above what it took when they were set.
limits_of() {
  case $1 in
    release) echo 308000 8200 64 ;;
    arm | arm-tests) echo 177000 4400 52 ;;
  esac
}

cached() {
  sed -n "s/^$1:[A-Z]*=//p" "build/$preset/CMakeCache.txt"
}

quietly() {
  "$@" >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
  }
}

build() {
  quietly cmake --preset "$preset"
  quietly cmake --build --preset "$preset" --target qiv load_cost --parallel "$(nproc)"
  strip=$(cached CMAKE_STRIP)
  size=${strip%strip}size
  "$strip" -o "$work/libqiv.so" "build/$preset/libqiv.so"
  mapfile -t load_cost <"build/$preset/bench/footprint/emulator"
  if [ ${#load_cost[@]} -gt 0 ]; then clock="emulated us"; else clock=us; fi
  load_cost+=("build/$preset/bench/footprint/load_cost")
}

needed() {
  "$(cached CMAKE_READELF)" -d "$work/libqiv.so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'
}

print_sizes() {
  read -r text data bss _ < <("$size" "$work/libqiv.so" | tail -n 1)
  echo "| File, stripped | text | data | bss |"
  echo "|---|---|---|---|"
  echo "| $(stat -c %s "$work/libqiv.so") | $text | $data | $bss |"
  echo
  echo "It needs $(needed | paste -sd , | sed 's/,/, /g')."
}

print_families() {
  echo "| Family | text | data | bss |"
  echo "|---|---|---|---|"
  find "build/$preset/src" -path '*/qiv_objects.dir/*.o' -exec "$size" {} + | awk '
    $1 != "text" {
      family = $6
      sub("/[^/]*$", "", family)
      sub(".*/", "", family)
      text[family] += $1; data[family] += $2; bss[family] += $3
    }
    END { for (family in text) print "|", family, "|", text[family], "|", data[family], "|", bss[family], "|" }' |
    sort -t '|' -k 3,3nr
}

measure() {
  local run runtime
  runtime=$(needed | grep '++')
  for ((run = 0; run < runs; ++run)); do
    "${load_cost[@]}" "$runtime" "$work/libqiv.so" 2>"$work/log" || {
      cat "$work/log" >&2
      exit 1
    }
  done >"$work/steps"
}

# Prints the figures of a column of a step, "start" to "unload", in their order.
figures() {
  awk -v step="$1" -v column="$2" '$1 == step { print $column }' "$work/steps" | sort -n
}

median() {
  figures "$@" | sed -n "$((runs / 2 + 1))p"
}

time_of() {
  local all
  if [ "$1" = start ]; then
    echo -
    return
  fi
  mapfile -t all < <(figures "$1" 5)
  printf '%.0f (%.0f to %.0f)\n' "${all[runs / 2]}" "${all[0]}" "${all[runs - 1]}"
}

print_step() {
  echo "| $2 | $(median "$1" 2) | $(median "$1" 3) | $(median "$1" 4) | $(time_of "$1") |"
}

print_steps() {
  echo "| Process | resident KiB | private KiB | of which libqiv.so | step in $clock (min to max) |"
  echo "|---|---|---|---|---|"
  print_step start "C program, before"
  print_step runtime "with the C++ library"
  print_step load "libqiv.so loaded"
  print_step init "QIV_Init() called"
  print_step fini "QIV_Fini() called"
  print_step unload "libqiv.so unloaded"
}

# check WHAT TAKEN LIMIT
check() {
  [ "$2" -gt "$3" ] || return 0
  echo "footprint: $preset: $2 $1 are over the limit of $3" >&2
  failed=yes
}

check_limits() {
  local limits
  read -ra limits <<<"$(limits_of "$preset")"
  [ ${#limits[@]} -gt 0 ] || return 0
  check "bytes of text" "$text" "${limits[0]}"
  check "bytes of data" "$data" "${limits[1]}"
  check "KiB of private memory" $(($(median init 3) - $(median runtime 3))) "${limits[2]}"
}

[ $# -gt 0 ] || set -- release arm
scripts/setup.sh build test arm
for preset in "$@"; do
  work=build/$preset/footprint
  mkdir -p "$work"
  build
  measure
  printf '%s\n\n' "## $preset"
  print_sizes
  echo
  print_steps
  echo
  print_families
  echo
  check_limits
done
[ $failed = no ]
