# Headers, library, CMake package and pkg-config file of the installed SDK.
include(CMakePackageConfigHelpers)

install(TARGETS korvane_jitreader EXPORT korvane_jitreaderTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/korvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT korvane_jitreaderTargets NAMESPACE korvane::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane_jitreader)

configure_package_config_file(cmake/korvane_jitreaderConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/korvane_jitreaderConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane_jitreader)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/korvane_jitreaderConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/korvane_jitreaderConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/korvane_jitreaderConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane_jitreader)

# The .pc file finds the prefix from its own place, so that an SDK installed
# with --prefix elsewhere, or moved, still gives the right flags.
file(RELATIVE_PATH KORVANE_PC_PREFIX_FROM_PCDIR
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/korvane-jitreader.pc.in ${CMAKE_CURRENT_BINARY_DIR}/korvane-jitreader.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korvane-jitreader.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
