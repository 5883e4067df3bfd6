# Cross toolchain for 64-bit ARM Linux (arm64, AArch64), with the unit tests
# run under user-mode emulation. Used by the `arm64` preset; it stands in for
# arm64-v8a Android: `long`, `off_t`, `time_t` and pointers are 64 bits wide
# (LP64, as on x86-64), on an ARM core whose `char` is unsigned.
#
#   cmake --preset arm64          # after scripts/stage-arm64.sh built GoogleTest
#   cmake -S . -B build/x --toolchain cmake/toolchain-arm64.cmake
#
# Needs Debian's cross compiler (g++-aarch64-linux-gnu) and qemu-user
# (qemu-aarch64); scripts/stage-arm64.sh installs both. See KpzCrossLinux.cmake.
set(KPZ_CROSS_TRIPLE aarch64-linux-gnu)
set(KPZ_CROSS_PROCESSOR aarch64)
set(KPZ_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/KpzCrossLinux.cmake)
