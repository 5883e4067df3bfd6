#!/usr/bin/env bash
# CI smoke stage for the libFuzzer targets (run by scripts/test.sh after the
# default and asan presets): installs clang and its runtime when missing
# (needs root), builds the `fuzz` preset's targets, writes the seed corpus into
# build/fuzz/seeds, then runs every target for a bounded time and fails on any
# finding (crash, sanitizer report, leak, timeout, out-of-memory, failed check).
#
# Usage: scripts/stage-fuzz.sh
#   KPZ_FUZZ_SECONDS  seconds per target (default 60; four targets)
# Findings are kept in build/fuzz/artifacts/TARGET/, the output in
# build/fuzz/logs/stage-TARGET.log; reproduce one with
#   build/fuzz/fuzz/TARGET build/fuzz/artifacts/TARGET/crash-...
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"

seconds="${KPZ_FUZZ_SECONDS:-60}"
targets=(RawBufferFuzzer RawFileFuzzer ScreennailEntryFuzzer UtilFuzzer)
build="$root/build/fuzz"
jobs=$(nproc 2>/dev/null || echo 2)

scripts/install-deps.sh clang libclang-rt-14-dev

cmake --preset fuzz -DKPZ_WERROR=ON >/dev/null
cmake --build --preset fuzz --target kpz_fuzzers -j "$jobs"

rm -rf "$build/seeds"
"$build/fuzz/kpz_fuzz_seeds" "$build/seeds"
cp samples/*.kpz "$build/seeds/raw/" 2>/dev/null || true

mkdir -p "$build/logs"
failed=()
for target in "${targets[@]}"; do
  seeds=raw
  [ "$target" = UtilFuzzer ] && seeds=util
  corpus="$build/corpus/$target"
  artifacts="$build/artifacts/$target"
  mkdir -p "$corpus" "$artifacts"
  log="$build/logs/stage-$target.log"
  echo "--- $target: ${seconds}s"
  if "$build/fuzz/$target" \
      -max_total_time="$seconds" -timeout=10 -malloc_limit_mb=64 -rss_limit_mb=2048 \
      -dict="$root/fuzz/kpz.dict" -artifact_prefix="$artifacts/" \
      -print_final_stats=1 -close_fd_mask=2 \
      "$corpus" "$build/seeds/$seeds" >"$log" 2>&1; then
    grep -E '^stat::(number_of_executed_units|peak_rss_mb|new_units_added)|DONE' "$log" |
      sed 's/^/    /' || true
  else
    echo "    FINDING in $target (output: $log):"
    tail -n 40 "$log" | sed 's/^/    /'
    failed+=("$target")
  fi
done

if [ ${#failed[@]} -ne 0 ]; then
  echo "stage-fuzz: findings in: ${failed[*]}" >&2
  exit 1
fi
echo "stage-fuzz: no findings"
