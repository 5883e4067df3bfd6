# Cross toolchain for 32-bit ARM hard-float Linux (armhf), with the unit tests
# run under user-mode emulation. Used by the `armhf` preset; it stands in for
# the library's first target, armeabi-v7a Android: `long`, `off_t`, `time_t`
# and pointers are 32 bits wide here as there.
#
#   cmake --preset armhf          # after scripts/stage-armhf.sh built GoogleTest
#   cmake -S . -B build/x --toolchain cmake/toolchain-armhf.cmake
#
# Needs Debian's cross compiler (g++-arm-linux-gnueabihf) and qemu-user
# (qemu-arm); scripts/stage-armhf.sh installs both. See KpzCrossLinux.cmake.
set(KPZ_CROSS_TRIPLE arm-linux-gnueabihf)
set(KPZ_CROSS_PROCESSOR arm)
set(KPZ_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/KpzCrossLinux.cmake)
