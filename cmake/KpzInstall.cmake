# Install rules and the CMake and pkg-config packages of libKpzInterface.
#
#   cmake --install build/release --prefix /opt/kpz
#
# installs, under the prefix (each file in the component named after it;
# LIBDIR is KPZ_INSTALL_LIBDIR: lib/<multiarch> on Debian, lib/x86_64-linux-gnu
# there on x86-64, whatever the prefix; else GNUInstallDirs' lib or lib64):
#   LIBDIR/libKpzInterface.so.1.0.0, .so.1 the library                 runtime
#     (on Android the single unversioned libKpzInterface.so)
#   share/java/kpzinterface.jar            the Java class              runtime
#   LIBDIR/libKpzInterface.so              the name the linker takes   development
#   include/KpzInterface/{util,util/io,raw,raw/parser}/*.h            development
#   LIBDIR/cmake/KpzInterface/             KpzInterfaceConfig.cmake,   development
#                                          its version file, the exported target
#   LIBDIR/pkgconfig/kpzinterface.pc                                   development
#   bin/kpz, share/man/man1/kpz.1.gz,      the command-line tool       tool
#   libexec/kpz/kpz-serve (kpz serve),
#   share/doc/kpz/KPZ-JSON.md, share/kpz/sample.kpz
#
# Every header of jni/util and jni/raw is public: callers use DtRaw and every
# class of the utility layer, and DtRaw holds its parse engine by value, which
# holds its parsers and their tag lists by value, so a caller's compiler must
# see all of them to lay out a DtRaw. The JNI entry has no header (a JVM finds
# it by its symbol name). Nothing of tests/ is installed.
#
# The packages are relocatable: the exported target and kpzinterface.pc name
# their files relative to where they were installed, so an installed tree can
# be moved or unpacked under another root (a Debian package extracted with
# dpkg-deb -x) and still be used.
include_guard(GLOBAL)
include(CMakePackageConfigHelpers)

set(KPZ_INSTALL_CMAKEDIR ${KPZ_INSTALL_LIBDIR}/cmake/KpzInterface)

# --- the library ---------------------------------------------------------------
install(TARGETS KpzInterface EXPORT KpzInterfaceTargets
  LIBRARY DESTINATION ${KPZ_INSTALL_LIBDIR}
    COMPONENT runtime
    NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/jni/util ${PROJECT_SOURCE_DIR}/jni/raw
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/KpzInterface
  COMPONENT development
  FILES_MATCHING PATTERN "*.h")

if(TARGET kpzinterface_jar)
  get_target_property(kpz_jar_file kpzinterface_jar JAR_FILE)
  install(FILES ${kpz_jar_file} DESTINATION ${CMAKE_INSTALL_DATADIR}/java COMPONENT runtime)
endif()

# --- the CMake package -----------------------------------------------------------
install(EXPORT KpzInterfaceTargets
  NAMESPACE KpzInterface::
  DESTINATION ${KPZ_INSTALL_CMAKEDIR}
  COMPONENT development)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/KpzInterfaceConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/KpzInterfaceConfig.cmake
  INSTALL_DESTINATION ${KPZ_INSTALL_CMAKEDIR})
# A caller asking for 1.x takes any 1.y >= x: the SONAME's promise.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/package/KpzInterfaceConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/KpzInterfaceConfig.cmake
  ${PROJECT_BINARY_DIR}/package/KpzInterfaceConfigVersion.cmake
  DESTINATION ${KPZ_INSTALL_CMAKEDIR}
  COMPONENT development)

# --- the pkg-config file ------------------------------------------------------------
# prefix is found from the .pc file's own directory (${pcfiledir}), so that the
# file stays true wherever the tree is installed or unpacked.
set(KPZ_PC_DIR ${KPZ_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KPZ_PC_TO_PREFIX "/root/${KPZ_PC_DIR}" "/root")
string(REGEX REPLACE "/$" "" KPZ_PC_TO_PREFIX "${KPZ_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kpzinterface.pc.in
  ${PROJECT_BINARY_DIR}/package/kpzinterface.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/kpzinterface.pc
  DESTINATION ${KPZ_PC_DIR}
  COMPONENT development)

# --- the command-line tool ---------------------------------------------------------------
if(TARGET kpz)
  install(TARGETS kpz RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  # kpz serve runs this program, found from kpz's own path.
  install(TARGETS kpz-serve RUNTIME DESTINATION ${KPZ_SERVE_PROGRAM_DIR} COMPONENT tool)
  # kpz reads this sample when it is given no file (found beside its own
  # binary, ../share/kpz/sample.kpz).
  install(FILES ${PROJECT_SOURCE_DIR}/samples/sample.kpz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/kpz COMPONENT tool)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/KPZ-JSON.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kpz COMPONENT tool)
  # The manual page is kpz --help-all (the rules and every subcommand's
  # options) and --version, laid out by help2man when it
  # is at hand (Debian: help2man) and the tool can run on this machine.
  find_program(KPZ_HELP2MAN help2man)
  find_program(KPZ_GZIP gzip)
  if(KPZ_HELP2MAN AND KPZ_GZIP AND NOT CMAKE_CROSSCOMPILING)
    set(kpz_man ${PROJECT_BINARY_DIR}/man/kpz.1)
    add_custom_command(OUTPUT ${kpz_man}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND ${KPZ_HELP2MAN} --no-info --no-discard-stderr
              --name "show and take out the pictures and metadata of KPZ raw files"
              --help-option=--help-all --output ${kpz_man} $<TARGET_FILE:kpz>
      COMMAND ${KPZ_GZIP} -9nf ${kpz_man}
      DEPENDS kpz
      COMMENT "Writing the kpz manual page"
      VERBATIM)
    add_custom_target(kpz_man ALL DEPENDS ${kpz_man}.gz)
    install(FILES ${kpz_man}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  else()
    message(STATUS "KpzInterface: help2man not found; no manual page for kpz (kpz --help tells the same)")
  endif()
endif()
