#!/usr/bin/env bash
# Runs the kpz command-line tool, building it first when needed. On a fresh
# Debian machine it installs what the build needs (scripts/install-deps.sh,
# needs root). The tool is built in its own directory, build/kpz (Release,
# without tests and without the JNI entry), or in $KPZ_BUILD_DIR when set; the
# build's output goes to <build dir>/kpz-build.log and is shown only when the
# build fails, so that standard output carries only what the tool writes. The
# first build (a few minutes) is announced in one line on standard error.
#
#   scripts/kpz.sh preview                  # bundled sample -> ./sample.preview.jpg
#   scripts/kpz.sh thumbnail a.kpz -o -     # thumbnail of a.kpz on standard output
#   scripts/kpz.sh --help
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${KPZ_BUILD_DIR:-$root/build/kpz}"

missing=0
command -v cmake >/dev/null 2>&1 || missing=1
command -v c++ >/dev/null 2>&1 || missing=1
command -v make >/dev/null 2>&1 || missing=1
[ -f /usr/include/CLI/CLI.hpp ] || [ -f /usr/local/include/CLI/CLI.hpp ] || missing=1
[ -f /usr/include/nlohmann/json.hpp ] || [ -f /usr/local/include/nlohmann/json.hpp ] || missing=1
if [ "$missing" -ne 0 ]; then
  "$root/scripts/install-deps.sh"
fi

mkdir -p "$build"
log="$build/kpz-build.log"
if [ ! -x "$build/bin/kpz" ]; then
  echo "kpz.sh: building the kpz tool into $build, once: a few minutes on 2 cores (log: $log)" >&2
fi
if [ ! -f "$build/CMakeCache.txt" ]; then
  if ! cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release \
      -DKPZ_BUILD_TESTS=OFF -DKPZ_BUILD_JNI=OFF -DKPZ_BUILD_TOOLS=ON -DKPZ_BUILD_PYTHON=OFF \
      -DKPZ_INSTALL=OFF >"$log" 2>&1; then
    cat "$log" >&2
    echo "kpz.sh: configuring the build failed (log: $log)" >&2
    exit 1
  fi
fi
if ! cmake --build "$build" --target kpz -j "$(nproc 2>/dev/null || echo 2)" >"$log" 2>&1; then
  cat "$log" >&2
  echo "kpz.sh: building the kpz tool failed (log: $log)" >&2
  exit 1
fi
exec "$build/bin/kpz" "$@"
