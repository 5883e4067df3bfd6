# The part that the Linux cross toolchain files share (toolchain-armhf.cmake,
# toolchain-arm64.cmake): Debian's cross compiler for the triple, the target's
# root for headers, libraries and packages, and qemu-user to run what was
# built. The including file sets first:
#   KPZ_CROSS_TRIPLE     arm-linux-gnueabihf, aarch64-linux-gnu
#   KPZ_CROSS_PROCESSOR  CMAKE_SYSTEM_PROCESSOR: arm, aarch64
#   KPZ_CROSS_QEMU       the emulator's name: qemu-arm, qemu-aarch64
#
# The target's C and C++ runtime live in /usr/<triple>, which is both the
# root that headers, libraries and CMake packages are searched in and the
# prefix the emulator loads the dynamic linker and shared libraries from.
# CTest runs every test executable (and gtest_discover_tests lists the tests)
# through CMAKE_CROSSCOMPILING_EMULATOR, so the whole suite runs as target code.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${KPZ_CROSS_PROCESSOR})

set(KPZ_CROSS_SYSROOT /usr/${KPZ_CROSS_TRIPLE})

set(CMAKE_C_COMPILER ${KPZ_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${KPZ_CROSS_TRIPLE}-g++)

# Programs come from the build machine; headers, libraries and packages only
# from the target's root (never the build machine's /usr/include or /usr/lib).
# A package prepared for the target elsewhere (GoogleTest, built by
# scripts/cross-stage.sh) is named by its <Package>_DIR, which CMake takes as is.
set(CMAKE_FIND_ROOT_PATH ${KPZ_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The emulator from qemu-user, or the static build from qemu-user-static. -L
# makes it take the target's dynamic linker and shared libraries from the
# target's root (the same as QEMU_LD_PREFIX).
find_program(KPZ_QEMU NAMES ${KPZ_CROSS_QEMU} ${KPZ_CROSS_QEMU}-static)
if(KPZ_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KPZ_QEMU} -L ${KPZ_CROSS_SYSROOT})
endif()
