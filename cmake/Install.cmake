# Installation, for consumers by find_package(zema) and by pkg-config.

include(CMakePackageConfigHelpers)

install(TARGETS zema qxplatform EXPORT zema-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/zema platform/include/qx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT zema-targets NAMESPACE zema:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zema)

configure_package_config_file(cmake/zema-config.cmake.in "${CMAKE_BINARY_DIR}/zema-config.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zema)
write_basic_package_version_file("${CMAKE_BINARY_DIR}/zema-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/zema-config.cmake" "${CMAKE_BINARY_DIR}/zema-config-version.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zema)

# From the place of the files, so that an installation can be moved.
file(RELATIVE_PATH ZEMA_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
foreach(module zema qxplatform)
  configure_file(cmake/${module}.pc.in "${CMAKE_BINARY_DIR}/${module}.pc" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/${module}.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
