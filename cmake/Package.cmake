# `cpack -G DEB` in the build tree makes a Debian package of what `cmake --install` installs:
# the tool, its manual page, the library, the headers, the CMake package, tqdb.pc, the license.
set(CPACK_PACKAGE_NAME tqdb)
set(CPACK_PACKAGE_VENDOR "The TQDB developers")
set(CPACK_PACKAGE_CONTACT "The TQDB developers <tqdb@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "TQDB, an embedded table engine, and its command-line tool")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)  # the dependencies, from the binaries' libraries
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_GENERATOR DEB)
include(CPack)
