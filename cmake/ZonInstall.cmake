include(CMakePackageConfigHelpers)

# Consumers see the same names as the tree: Zon::Common and Zon::Logger.
set_target_properties(ZonCommon PROPERTIES EXPORT_NAME Common)
set_target_properties(ZonLogger PROPERTIES EXPORT_NAME Logger)

# Installed binaries find the libraries beside them, wherever the prefix is.
file(RELATIVE_PATH zon_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(ZonCommon ZonLogger PROPERTIES INSTALL_RPATH "$ORIGIN")
if(TARGET zon)
  set_target_properties(zon PROPERTIES INSTALL_RPATH "$ORIGIN/${zon_bin_to_lib}")
endif()

install(TARGETS ZonCommon ZonLogger EXPORT ZonCommonTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES Sources/ZonCommon.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZonCommon)
# The library's own bundle: its information dictionary and string tables.
install(DIRECTORY Resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ZonCommon)
install(EXPORT ZonCommonTargets NAMESPACE Zon:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZonCommon)

configure_package_config_file(cmake/ZonCommonConfig.cmake.in
  ${CMAKE_BINARY_DIR}/ZonCommonConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZonCommon)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZonCommonConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ZonCommonConfig.cmake ${CMAKE_BINARY_DIR}/ZonCommonConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZonCommon)

# The pkg-config file names its prefix relative to its own folder, so that an install moved to
# another prefix (cmake --install --prefix) stays usable.
file(RELATIVE_PATH ZON_PC_PREFIX_FROM_PCFILEDIR ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ZON_PC_PREFIX_FROM_PCFILEDIR "${ZON_PC_PREFIX_FROM_PCFILEDIR}")
configure_file(cmake/zoncommon.pc.in ${CMAKE_BINARY_DIR}/zoncommon.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zoncommon.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
