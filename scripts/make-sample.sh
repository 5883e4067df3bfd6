#!/usr/bin/env bash
# Regenerates the bundled sample, samples/sample.kpz, with its generator
# (tests/tools/make_sample.cpp, built on the test-data builder), then checks
# with `file` that its preview and thumbnail are baseline JPEGs. The generator
# is built in build/sample, or in $KPZ_BUILD_DIR when set. The output is the
# same on every run: commit samples/sample.kpz only when it changed.
#
#   scripts/make-sample.sh
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${KPZ_BUILD_DIR:-$root/build/sample}"

"$root/scripts/install-deps.sh"
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DKPZ_BUILD_JNI=OFF >/dev/null
fi
cmake --build "$build" --target kpz_make_sample -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
"$build/tests/tools/kpz_make_sample" "$work/sample.kpz" "$work/preview.jpg" "$work/thumb.jpg"
if command -v file >/dev/null 2>&1; then
  for j in preview thumb; do
    description="$(file -b "$work/$j.jpg")"
    echo "$j.jpg: $description"
    case "$description" in
      *"JPEG image data"*baseline*) ;;
      *) echo "make-sample.sh: $j.jpg is not a baseline JPEG" >&2; exit 1 ;;
    esac
  done
fi
cp "$work/sample.kpz" "$root/samples/sample.kpz"
echo "wrote samples/sample.kpz ($(wc -c <"$root/samples/sample.kpz") bytes)"
