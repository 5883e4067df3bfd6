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

for preset in "${presets[@]}"; do
  echo "=== preset: $preset ==="
  cmake --preset "$preset" -DKPZ_WERROR=ON -DKPZ_REQUIRE_JNI=ON >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done

if [ "$run_stages" -eq 1 ]; then
  for stage in scripts/stage-*.sh; do
    [ -e "$stage" ] || continue
    echo "=== stage: $(basename "$stage" .sh) ==="
    bash "$stage"
  done
fi
