#!/usr/bin/env bash
# Runs every test: installs what a fresh machine lacks, then configures, builds
# and runs the CTest suite under each preset (default: RelWithDebInfo; asan:
# AddressSanitizer + UndefinedBehaviorSanitizer), warnings as errors.
# Usage: scripts/test.sh [preset ...]      (default: default asan)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(default asan)
jobs=$(nproc 2>/dev/null || echo 2)

for preset in "${presets[@]}"; do
  echo "=== preset: $preset ==="
  cmake --preset "$preset" -DKPZ_WERROR=ON >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
