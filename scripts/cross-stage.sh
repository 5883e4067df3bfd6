#!/usr/bin/env bash
# A cross stage: cross-builds the library and every unit test for one ARM
# Linux machine (warnings as errors) and runs the whole suite as that
# machine's code under qemu-user, so that behaviour depending on the widths
# of long, off_t, time_t and pointers is tested where they differ from the
# build machine. scripts/stage-armhf.sh and scripts/stage-arm64.sh call it.
#
#   armhf  arm-linux-gnueabihf, qemu-arm      32-bit (ILP32), as armeabi-v7a
#   arm64  aarch64-linux-gnu,   qemu-aarch64  64-bit (LP64), as arm64-v8a
#
# Steps:
#  1. installs the cross compiler and the emulator when missing
#     (scripts/install-deps.sh, as root);
#  2. builds GoogleTest for the machine from Debian's sources
#     (/usr/src/googletest) into build/<arch>-gtest, once; the preset of the
#     same name finds it there;
#  3. checks that the library's sources compile as strict C++17 against
#     POSIX/XSI (no GNU extensions), as the Android C library expects, with
#     -Wconversion at the machine's own widths;
#  4. configures, builds and tests the preset (CTest runs each test
#     executable through the emulator, see cmake/KpzCrossLinux.cmake);
#  5. (arm64 only, after the build) checks that every loadable segment of
#     libKpzInterface.so is aligned to at least 16 KB, for 64-bit Android
#     devices with 16 KB pages (scripts/check-elf-align.sh), and that the
#     same check refuses a library aligned to 4 KB.
#
# The JNI entry and the kpz tool are not part of this build (no Android log
# library or argument parser for the target here).
#
# Usage: scripts/cross-stage.sh armhf|arm64
set -euo pipefail
cd "$(dirname "$0")/.."

arch=${1:-}
case "$arch" in
  armhf) triple=arm-linux-gnueabihf; qemu=qemu-arm; gtest_build=build/arm-gtest ;;
  arm64) triple=aarch64-linux-gnu; qemu=qemu-aarch64; gtest_build=build/arm64-gtest ;;
  *) echo "usage: scripts/cross-stage.sh armhf|arm64" >&2; exit 2 ;;
esac
sysroot=/usr/$triple
toolchain=$PWD/cmake/toolchain-$arch.cmake
scripts/install-deps.sh "g++-$triple" qemu-user googletest

jobs=$(nproc 2>/dev/null || echo 2)

# --- 2. GoogleTest for the machine -------------------------------------------
gtest_prefix=$PWD/$gtest_build/install
if [ ! -f "$gtest_prefix/lib/cmake/GTest/GTestConfig.cmake" ]; then
  echo "=== stage-$arch: building GoogleTest for $arch ==="
  cmake -S /usr/src/googletest -B "$gtest_build" \
    --toolchain "$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DBUILD_GMOCK=OFF \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON \
    -DCMAKE_INSTALL_PREFIX="$gtest_prefix" >/dev/null
  cmake --build "$gtest_build" -j "$jobs" >/dev/null
  cmake --install "$gtest_build" >/dev/null
fi

# --- 3. strict C++17, no GNU extensions -------------------------------------
echo "=== stage-$arch: strict C++17 / POSIX check of the library sources ==="
strict=(-std=c++17 -U_GNU_SOURCE -D_XOPEN_SOURCE=700 -D_LARGEFILE64_SOURCE
        -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-qual
        -Wformat=2 -Wno-format-zero-length -Werror -fsyntax-only -Ijni)
find jni/util jni/raw -name '*.cpp' -print0 | sort -z |
  xargs -0 -n 1 -P "$jobs" "$triple-g++" "${strict[@]}"

# --- 4. build and test under the emulator ------------------------------------
echo "=== stage-$arch: build ==="
cmake --preset "$arch" -DKPZ_WERROR=ON >/dev/null
cmake --build --preset "$arch" -j "$jobs"

# --- 5. (arm64) 16 KB pages ----------------------------------------------------
# 64-bit Android devices may use 16 KB pages: every loadable segment of the
# 64-bit library must be aligned to at least 16 KB (0x4000). The check reads
# the program headers; a library built here with 4 KB alignment must be
# refused by it, so that a check that cannot fail is noticed too.
if [ "$arch" = arm64 ]; then
  echo "=== stage-$arch: loadable segments aligned to 16 KB ==="
  readelf_prog=readelf
  command -v "$triple-readelf" >/dev/null && readelf_prog=$triple-readelf
  library=$(readlink -f "build/$arch/lib/libKpzInterface.so")
  scripts/check-elf-align.sh --readelf "$readelf_prog" --min 16384 "$library"
  control_dir=$(mktemp -d "/tmp/kpz-$arch-align-XXXXXX")
  echo 'int kpz_align_control(void) { return 1; }' >"$control_dir/control.c"
  "$triple-gcc" -shared -fPIC -Wl,-z,max-page-size=4096 -Wl,-z,common-page-size=4096 \
    -o "$control_dir/libcontrol4k.so" "$control_dir/control.c"
  if scripts/check-elf-align.sh --readelf "$readelf_prog" --min 16384 \
      "$control_dir/libcontrol4k.so" >/dev/null; then
    echo "stage-$arch: the alignment check passed a library aligned to 4 KB" >&2
    rm -rf "$control_dir"
    exit 1
  fi
  rm -rf "$control_dir"
  echo "stage-$arch: a library aligned to 4 KB is refused by the same check, as it must be"
fi

# Under qemu-user on a 64-bit host the kernel hands directory cookies of 64
# bits to the emulated 32-bit readdir, which fails with EOVERFLOW on ext4 and
# similar file systems (a real 32-bit kernel gives 32-bit cookies; 64-bit
# code is not affected, and the probe finds so). Probe
# /tmp, where the tests make their directories; when listing fails there,
# leave out the tests that list a directory, and afterwards remove the
# temporary directories that the tests' own cleanup could not list.
probe_dir=$(mktemp -d "/tmp/kpz-$arch-probe-XXXXXX")
trap 'rm -rf "$probe_dir"' EXIT
cat >"$probe_dir/probe.c" <<'EOF'
#include <dirent.h>
#include <errno.h>
#include <stdio.h>
int main(int argc, char** argv) {
  DIR* dir = opendir(argc > 1 ? argv[1] : ".");
  if (dir == NULL) return 2;
  int entries = 0;
  errno = 0;
  while (readdir(dir) != NULL) ++entries;
  const int err = errno;
  closedir(dir);
  printf("%d entries, errno %d\n", entries, err);
  return (err == 0 && entries >= 3) ? 0 : 1;
}
EOF
"$triple-gcc" -O1 -o "$probe_dir/probe" "$probe_dir/probe.c"
mkdir "$probe_dir/list" && touch "$probe_dir/list/a"
listing_fails=0
if ! "$qemu" -L "$sysroot" "$probe_dir/probe" "$probe_dir/list"; then
  listing_fails=1
  echo "stage-$arch: readdir fails under the emulator in /tmp; directory-listing tests left out" >&2
  export GTEST_FILTER='-DtNlFileIteratorTest.*:DtNlFileFs.GetListOpensTheListing:KpzFileBuilder.TempDirWritesFilesAndRemovesThemAfterwards'
fi
touch "$probe_dir/tests-start"

echo "=== stage-$arch: tests under $qemu ==="
status=0
ctest --preset "$arch" -j "$jobs" || status=$?

if [ "$listing_fails" -eq 1 ]; then
  # Only the test builder's directories made since the tests started.
  find /tmp -maxdepth 1 -type d -name 'kpztest-*' -newer "$probe_dir/tests-start" \
    -exec rm -rf {} +
fi
exit "$status"
