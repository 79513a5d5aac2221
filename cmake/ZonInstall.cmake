include(CMakePackageConfigHelpers)

install(TARGETS ZonCommon ZonLogger EXPORT ZonCommonTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${CMAKE_INSTALL_INCLUDEDIR}/ZonCommon)
install(FILES Sources/ZonCommon.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZonCommon)
install(EXPORT ZonCommonTargets NAMESPACE Zon:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZonCommon)

configure_package_config_file(cmake/ZonCommonConfig.cmake.in
  ${CMAKE_BINARY_DIR}/ZonCommonConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZonCommon)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZonCommonConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ZonCommonConfig.cmake ${CMAKE_BINARY_DIR}/ZonCommonConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZonCommon)

configure_file(cmake/zoncommon.pc.in ${CMAKE_BINARY_DIR}/zoncommon.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zoncommon.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
