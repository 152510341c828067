# Installs the library, the public headers and a package config, so that an outside
# project can write find_package(tqdb REQUIRED) and link tqdb::tqdb.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS tqdb EXPORT tqdbTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES src/table/TQFile.h src/table/Variant.h src/table/TQError.h
              src/table/tqdb_c.h src/table/tqdb_export.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tqdb/table)
install(EXPORT tqdbTargets NAMESPACE tqdb:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqdb)
configure_package_config_file(cmake/tqdbConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/tqdbConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqdb)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tqdbConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tqdbConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/tqdbConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqdb)
