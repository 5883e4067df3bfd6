#!/usr/bin/env bash
# ThreadSanitizer stage: builds the `tsan` preset (Debug, -fsanitize=thread,
# warnings as errors) and runs every unit-test executable once, whole. The
# library promises that separate DtRaw objects may be used on separate
# threads; tests/raw/DtRawThreadTest.cpp drives eight at once, and every other
# suite runs under the sanitizer as well. Any report fails the stage.
#
# The executables are run directly rather than through CTest: CTest would
# start one sanitized process per test case (thousands), which costs minutes;
# one process per executable costs seconds and runs the same tests. The JVM
# test (java/KaviKPZInterface) is left out: a sanitized library cannot run
# inside an uninstrumented JVM.
#
# Usage: scripts/stage-tsan.sh            (run by scripts/test.sh after the presets)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset tsan -DKPZ_WERROR=ON >/dev/null
cmake --build --preset tsan -j "$jobs"

logdir=$(mktemp -d /tmp/kpz-tsan-XXXXXX)
trap 'rm -rf "$logdir"' EXIT
# Every report also goes to a file, so that one written while a test had
# standard error captured is not lost.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:log_path=$logdir/report"

# The sanitizer's fixed memory layout fails on kernels with much address-space
# randomisation; run without it where the kernel allows.
norandom=()
if setarch "$(uname -m)" -R true 2>/dev/null; then
  norandom=(setarch "$(uname -m)" -R)
fi

testdir=build/tsan/tests
mapfile -t executables < <(find "$testdir" -maxdepth 1 -type f -name '*Test' -perm -u+x | sort)
if [ ${#executables[@]} -eq 0 ]; then
  echo "stage-tsan: no test executables in $testdir" >&2
  exit 1
fi

failed=()
for exe in "${executables[@]}"; do
  name=$(basename "$exe")
  # Same working directory as under CTest.
  if (cd "$testdir" && "${norandom[@]}" "./$name" --gtest_brief=1) >"$logdir/$name.out" 2>&1; then
    echo "stage-tsan: $name passed"
  else
    echo "stage-tsan: $name FAILED" >&2
    tail -n 60 "$logdir/$name.out" >&2
    failed+=("$name")
  fi
done

reports=("$logdir"/report.*)
if [ -e "${reports[0]}" ]; then
  echo "stage-tsan: ThreadSanitizer reports:" >&2
  cat "${reports[@]}" >&2
  exit 1
fi
if [ ${#failed[@]} -ne 0 ]; then
  echo "stage-tsan: failed: ${failed[*]}" >&2
  exit 1
fi
echo "stage-tsan: ${#executables[@]} test executables passed, no ThreadSanitizer reports"
