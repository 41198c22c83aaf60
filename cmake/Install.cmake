# Installation, for consumers by find_package(zema) and by pkg-config, in components: runtime, development, tools,
# documentation.

include(CMakePackageConfigHelpers)

install(TARGETS zema qxplatform EXPORT zema-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/zema platform/include/qx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT zema-targets NAMESPACE zema:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zema COMPONENT development)

configure_package_config_file(cmake/zema-config.cmake.in "${CMAKE_BINARY_DIR}/zema-config.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zema)
write_basic_package_version_file("${CMAKE_BINARY_DIR}/zema-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/zema-config.cmake" "${CMAKE_BINARY_DIR}/zema-config-version.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zema COMPONENT development)

# From the place of the files, so that an installation can be moved.
file(RELATIVE_PATH ZEMA_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
if(NOT CMAKE_CROSSCOMPILING)
  set(ZEMA_PC_LZ4 "Requires.private: liblz4")
endif()
foreach(module zema qxplatform)
  configure_file(cmake/${module}.pc.in "${CMAKE_BINARY_DIR}/${module}.pc" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/${module}.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endforeach()

if(ZEMA_BUILD_TOOLS)
  install(TARGETS zemad zemash RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  configure_file(packaging/zemad.service.in "${CMAKE_BINARY_DIR}/zemad.service" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/zemad.service" DESTINATION lib/systemd/system COMPONENT tools)
  install(FILES packaging/zemash.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME zemash COMPONENT tools)
  install(FILES docs/man/zemad.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT tools)
  install(FILES docs/man/zemash.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()

# In the places that the texts name when they point at one another.
install(FILES README.md CHANGELOG.md SECURITY.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN man EXCLUDE)
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT documentation
  USE_SOURCE_PERMISSIONS PATTERN CMakeLists.txt EXCLUDE)
