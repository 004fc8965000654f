# The Debian package of the library: `cpack -G DEB` in a build configured
# with CMAKE_INSTALL_PREFIX=/usr (the package preset) gives
# tsutil_<version>_<arch>.deb with the headers, the libraries, tsreg, tssc,
# the service manager daemon in the libexec folder, the CMake package and
# the pkg-config file, all below /usr. The daemon is found relative to the
# library's folder, so the layout of the build's install rules is the
# package's layout.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  message(STATUS "Packaging: the Debian package installs below /usr; configure with "
                 "CMAKE_INSTALL_PREFIX=/usr (the package preset) for its library folder")
endif()

set(CPACK_PACKAGE_NAME tsutil)
set(CPACK_PACKAGE_VENDOR "TSUtil developers")
set(CPACK_PACKAGE_CONTACT "TSUtil developers <tsutil@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Utility library for programs that run as Windows services and as ordinary applications")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "Locks, threads, interlocks, a blocking queue, diagnostics switched from the registry, typed registry access, "
    "hosting of a program as a service or on a console, log files, paths, text conversion and network shares, "
    "over a Win32 platform layer of its own with a registry in SQLite and a service manager daemon (tsscm); "
    "with the tools tsreg and tssc.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# What the binaries need, from dpkg-shlibdeps where it is installed
# (dpkg-dev); the package's own libraries are found in its library folder.
find_program(TSUTIL_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(TSUTIL_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6, libsqlite3-0")
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")
include(CPack)
