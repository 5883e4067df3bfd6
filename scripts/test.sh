#!/usr/bin/env bash
# Runs every test: installs what a fresh machine lacks, then configures, builds
# and runs the CTest suite under each preset (default: RelWithDebInfo; asan:
# AddressSanitizer + UndefinedBehaviorSanitizer), warnings as errors, and then
# the further stages (scripts/stage-*.sh: other targets, sanitizers, fuzzing).
# Usage: scripts/test.sh [preset ...]      (with presets: only those, no stages)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

presets=("$@")
run_stages=0
if [ ${#presets[@]} -eq 0 ]; then
  presets=(default asan)
  run_stages=1
fi
jobs=$(nproc 2>/dev/null || echo 2)

# The time each preset and stage took, printed at the end (and after a failure).
times=()
started=$SECONDS
timed() {
  local name=$1 t0=$SECONDS
  shift
  "$@"
  times+=("$(printf '%-14s %3d min %02d s' "$name" $(((SECONDS - t0) / 60)) $(((SECONDS - t0) % 60)))")
}
report_times() {
  local status=$?
  echo "=== times ==="
  if [ ${#times[@]} -gt 0 ]; then printf '%s\n' "${times[@]}"; fi
  printf '%-14s %3d min %02d s\n' total $(((SECONDS - started) / 60)) $(((SECONDS - started) % 60))
  exit "$status"
}
trap report_times EXIT

run_preset() {
  cmake --preset "$1" -DKPZ_WERROR=ON -DKPZ_REQUIRE_JNI=ON >/dev/null
  cmake --build --preset "$1" -j "$jobs"
  ctest --preset "$1" -j "$jobs"
}

for preset in "${presets[@]}"; do
  echo "=== preset: $preset ==="
  timed "$preset" run_preset "$preset"
done

if [ "$run_stages" -eq 1 ]; then
  for stage in scripts/stage-*.sh; do
    [ -e "$stage" ] || continue
    name=$(basename "$stage" .sh)
    echo "=== stage: $name ==="
    timed "$name" bash "$stage"
  done
fi
