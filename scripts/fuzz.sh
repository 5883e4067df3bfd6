#!/usr/bin/env bash
# Runs one libFuzzer target for a long time (default one hour), building the
# fuzz preset and the seed corpus first when needed.
#
# Usage: scripts/fuzz.sh TARGET [SECONDS] [libFuzzer options ...]
#   TARGET   RawBufferFuzzer | RawFileFuzzer | ScreennailEntryFuzzer | UtilFuzzer |
#            GalleryReaderFuzzer
#   SECONDS  total time; 0 runs until stopped (Ctrl-C). Default 3600.
#
#   scripts/fuzz.sh RawBufferFuzzer 28800 -jobs=4 -workers=2   # 8 hours, 4 jobs on 2 cores
#   scripts/fuzz.sh UtilFuzzer 600
#
# Directories (all under build/fuzz):
#   seeds/raw, seeds/util    the generated seed corpus (read only for the runs)
#   corpus/TARGET            the growing corpus of TARGET; new inputs go here
#   artifacts/TARGET/        crash-*, leak-*, timeout-*, oom-* inputs
#   logs/TARGET.log          the run's output (also fuzz-N.log files with -jobs)
# The library's diagnostic lines are suppressed (-close_fd_mask=2); to see
# them for one input, run the target on that file: build/fuzz/fuzz/TARGET FILE.
# KPZ_FUZZ_VERBOSE=1 keeps standard error open.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"

if [ $# -lt 1 ]; then
  sed -n '2,19p' "$0" | sed 's/^# \{0,1\}//'
  exit 2
fi
target="$1"
shift
seconds=3600
if [ $# -gt 0 ] && [[ "$1" =~ ^[0-9]+$ ]]; then
  seconds="$1"
  shift
fi

case "$target" in
  RawBufferFuzzer|RawFileFuzzer|ScreennailEntryFuzzer|GalleryReaderFuzzer) seeds=raw ;;
  UtilFuzzer) seeds=util ;;
  *) echo "fuzz.sh: unknown target '$target'" >&2; exit 2 ;;
esac

build="$root/build/fuzz"
if [ ! -x "$build/fuzz/$target" ] || [ ! -d "$build/seeds/$seeds" ]; then
  scripts/install-deps.sh clang libclang-rt-14-dev
  cmake --preset fuzz -DKPZ_WERROR=ON >/dev/null
  cmake --build --preset fuzz --target kpz_fuzzers -j 2
  "$build/fuzz/kpz_fuzz_seeds" "$build/seeds" >/dev/null
  cp samples/*.kpz "$build/seeds/raw/" 2>/dev/null || true
fi

mkdir -p "$build/corpus/$target" "$build/artifacts/$target" "$build/logs"
quiet=(-close_fd_mask=2)
if [ "${KPZ_FUZZ_VERBOSE:-0}" = "1" ]; then
  quiet=()
fi

cd "$build/logs"  # -jobs writes its fuzz-N.log files into the working directory
"$build/fuzz/$target" \
  -max_total_time="$seconds" \
  -timeout=10 -malloc_limit_mb=64 -rss_limit_mb=2048 \
  -dict="$root/fuzz/kpz.dict" \
  -artifact_prefix="$build/artifacts/$target/" \
  -print_final_stats=1 \
  "${quiet[@]}" "$@" \
  "$build/corpus/$target" "$build/seeds/$seeds" 2>&1 | tee "$build/logs/$target.log"
