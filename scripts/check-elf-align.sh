#!/usr/bin/env bash
# Checks that every loadable segment (PT_LOAD) of each ELF file given is
# aligned to at least MIN bytes, from its program headers (`readelf -lW`).
# 64-bit Android devices may run with 16 KB pages; a shared library whose
# segments are aligned to less cannot be loaded there, and Google Play
# requires 16 KB alignment of apps that target Android 15 or later.
#
# Usage: scripts/check-elf-align.sh [--min BYTES] [--readelf PROGRAM] FILE...
#   --min      smallest acceptable alignment (default 16384, 0x4000)
#   --readelf  the readelf to use (default: readelf; any binutils or LLVM
#              readelf reads every machine's ELF files)
# Prints one line per file: "<file>: PT_LOAD align 0x10000 0x10000 (>= 0x4000): ok"
# Exit status: 0 when every file passes, 1 when one is aligned to less or has
# no loadable segment, 2 on wrong arguments or a file readelf cannot read.
set -euo pipefail

min=16384
readelf=readelf
files=()
while [ $# -gt 0 ]; do
  case "$1" in
    --min) min=${2:?--min needs a number}; shift 2 ;;
    --readelf) readelf=${2:?--readelf needs a program}; shift 2 ;;
    -h|--help) sed -n '2,14p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    -*) echo "check-elf-align: unknown option $1" >&2; exit 2 ;;
    *) files+=("$1"); shift ;;
  esac
done
if [ ${#files[@]} -eq 0 ]; then
  echo "usage: scripts/check-elf-align.sh [--min BYTES] [--readelf PROGRAM] FILE..." >&2
  exit 2
fi
case "$min" in
  ''|*[!0-9]*) echo "check-elf-align: --min takes a number of bytes, not '$min'" >&2; exit 2 ;;
esac

status=0
for f in "${files[@]}"; do
  if ! headers=$("$readelf" -lW "$f" 2>&1); then
    echo "$f: readelf cannot read the program headers: $headers" >&2
    exit 2
  fi
  # A LOAD line: Type Offset VirtAddr PhysAddr FileSiz MemSiz Flg Align, where
  # the flags may hold spaces ("R E"): the alignment is the last field.
  aligns=$(awk '$1 == "LOAD" { print $NF }' <<<"$headers")
  if [ -z "$aligns" ]; then
    echo "$f: no loadable segment (PT_LOAD) in the program headers: FAILED"
    status=1
    continue
  fi
  bad=0
  for a in $aligns; do
    if [ $((a)) -lt "$min" ]; then
      bad=1
    fi
  done
  list=$(tr '\n' ' ' <<<"$aligns" | sed 's/ $//')
  if [ "$bad" -eq 0 ]; then
    printf '%s: PT_LOAD align %s (>= 0x%x): ok\n' "$f" "$list" "$min"
  else
    printf '%s: PT_LOAD align %s: a segment is aligned to less than 0x%x: FAILED\n' "$f" "$list" "$min"
    status=1
  fi
done
exit "$status"
