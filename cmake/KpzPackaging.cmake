# Debian packages of libKpzInterface, made by CPack from the install
# components (cmake/KpzInstall.cmake):
#
#   libkpzinterface1     runtime      the shared library and its Java class
#   libkpzinterface-dev  development  headers, CMake package, pkg-config file,
#                                     the linker's libKpzInterface.so
#   kpz                  tool         the command-line tool, its manual page,
#                                     the JSON key reference and the sample
#
#   cmake --preset release && cmake --build --preset release
#   (cd build/release && cpack -G DEB)
#   # -> build/release/packages/{libkpzinterface1,libkpzinterface-dev,kpz}_1.0.0-1_amd64.deb
#
# The packages install under /usr, the library and its CMake and pkg-config
# packages in the multiarch directory /usr/lib/<triplet> (KPZ_INSTALL_LIBDIR,
# /usr/lib/x86_64-linux-gnu on x86-64). Their dependencies on other packages
# are worked out by dpkg-shlibdeps (Debian's dpkg-dev) from the libraries each
# binary needs: libc6 and libstdc++6 for the library, and android-liblog for
# its JNI entry's log. The -dev package depends on the library package of the
# same version; kpz links the library's code in and needs only what its own
# binary names. tests/package checks all of it on the built packages.
include_guard(GLOBAL)

set(CPACK_PACKAGE_NAME kpzinterface)
set(CPACK_PACKAGE_VENDOR "libKpzInterface developers")
set(CPACK_PACKAGE_CONTACT "libKpzInterface developers <kpzinterface@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "reads KPZ camera raw files")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tool)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://localhost/kpzinterface")
# dpkg-shlibdeps states each package's library dependencies.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Debian ships binaries without their debugging sections.
set(CPACK_STRIP_FILES ON)
# The library package records its shared library for ldconfig and for the
# packages that link it (shlibs: libKpzInterface 1 libkpzinterface1 (>= 1.0.0)).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkpzinterface${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "reads KPZ camera raw files (shared library)\nlibKpzInterface returns the preview JPEG stored in a KPZ camera raw file\nto a Java application through JNI, and answers metadata queries\n(preview and thumbnail, orientation, date-time, exposure, maker and model)\nfor native callers. This package holds the shared library and the Java\nclass kpzinterface.jar.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkpzinterface-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libkpzinterface${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "reads KPZ camera raw files (development files)\nHeaders, the CMake package (find_package(KpzInterface)) and the pkg-config\nfile (kpzinterface) for building programs against libKpzInterface.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kpz)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "shows and takes out the pictures and metadata of KPZ raw files\nkpz prints the metadata of KPZ camera raw files as a table or JSON, writes\ntheir preview and thumbnail JPEGs, and sets their orientation in place.")

include(CPack)
