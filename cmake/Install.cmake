# Installs the library, the public headers, a CMake package and a pkg-config file, so that an
# outside project can write find_package(tqdb REQUIRED) and link tqdb::tqdb, or compile with
# `pkg-config --cflags --libs tqdb`; and the license. The tool and its manual page are
# installed by tools/.
include(CMakePackageConfigHelpers)

install(TARGETS tqdb EXPORT tqdbTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${TQDB_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tqdb/table)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# A static libtqdb brings its own dependencies to the client's link; a shared one does not.
get_target_property(TQDB_LIBRARY_TYPE tqdb TYPE)
if(TQDB_LIBRARY_TYPE STREQUAL "SHARED_LIBRARY")
  set(TQDB_SHARED ON)
else()
  set(TQDB_SHARED OFF)
endif()

install(EXPORT tqdbTargets NAMESPACE tqdb:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqdb)
configure_package_config_file(cmake/tqdbConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/tqdbConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqdb)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tqdbConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tqdbConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/tqdbConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqdb)

# tqdb.pc finds the prefix from its own place (${pcfiledir}), so the installed tree can be
# moved, as long as the library and include directories are given relative to the prefix.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(TQDB_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(TQDB_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(TQDB_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH TQDB_PC_UP "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" TQDB_PC_UP "${TQDB_PC_UP}")
  set(TQDB_PC_PREFIX "\${pcfiledir}/${TQDB_PC_UP}")
  set(TQDB_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(TQDB_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
if(TQDB_SHARED)
  set(TQDB_PC_REQUIRES "Requires.private: libzip libisal")
  set(TQDB_PC_LIBS_PRIVATE "-pthread")
else()
  set(TQDB_PC_REQUIRES "Requires: libzip libisal")
  set(TQDB_PC_LIBS " -pthread")
endif()
configure_file(cmake/tqdb.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tqdb.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tqdb.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
