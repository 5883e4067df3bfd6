# Cross toolchain for 32-bit ARM hard-float Linux (armhf), with the unit tests
# run under user-mode emulation. Used by the `armhf` preset; it stands in for
# the library's real target (32-bit ARM Android): `long`, `off_t` and pointers
# are 32 bits wide here as there.
#
#   cmake --preset armhf          # after scripts/stage-armhf.sh built GoogleTest
#   cmake -S . -B build/x --toolchain cmake/toolchain-armhf.cmake
#
# Needs Debian's cross compiler (g++-arm-linux-gnueabihf) and qemu-user
# (qemu-arm); scripts/stage-armhf.sh installs both. The target's C and C++
# runtime live in /usr/arm-linux-gnueabihf, which is both the root that
# headers, libraries and CMake packages are searched in and the prefix the
# emulator loads the dynamic linker and shared libraries from.
#
# CTest runs every test executable (and gtest_discover_tests lists the tests)
# through CMAKE_CROSSCOMPILING_EMULATOR, so the whole suite runs as ARM code.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(KPZ_ARMHF_TRIPLE arm-linux-gnueabihf)
set(KPZ_ARMHF_SYSROOT /usr/${KPZ_ARMHF_TRIPLE})

set(CMAKE_C_COMPILER ${KPZ_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${KPZ_ARMHF_TRIPLE}-g++)

# Programs come from the build machine; headers, libraries and packages only
# from the target's root (never the build machine's /usr/include or /usr/lib).
# A package prepared for the target elsewhere (GoogleTest, built by
# scripts/stage-armhf.sh) is named by its <Package>_DIR, which CMake takes as is.
set(CMAKE_FIND_ROOT_PATH ${KPZ_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The emulator: qemu-arm from qemu-user, or the static build from
# qemu-user-static. -L makes it take the ARM dynamic linker and shared
# libraries from the target's root (the same as QEMU_LD_PREFIX).
find_program(KPZ_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(KPZ_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KPZ_QEMU_ARM} -L ${KPZ_ARMHF_SYSROOT})
endif()
