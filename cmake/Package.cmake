# Debian packages by `cpack`, split as Debian splits a library. The two libraries are one installation component but
# two packages, since each has a SONAME of its own.

install(TARGETS zema LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP COMPONENT libzema1 EXCLUDE_FROM_ALL)
install(TARGETS qxplatform LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP COMPONENT libqxplatform1
  EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zema)
set(CPACK_PACKAGE_CONTACT "The zema team <zema@localhost>")
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libqxplatform1 libzema1 development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(version "(= ${PROJECT_VERSION})")
function(zema_package component name section depends description)
  string(TOUPPER "${component}" key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_COMPONENT_${key}_DESCRIPTION "${description}" PARENT_SCOPE)
endfunction()
zema_package(libqxplatform1 libqxplatform1 libs "" "Linux platform layer of the zema service")
zema_package(libzema1 libzema1 libs "libqxplatform1 ${version}"
  "Common utility library of the zema service")
zema_package(development libzema-dev libdevel "libzema1 ${version}, libqxplatform1 ${version}, liblz4-dev"
  "Headers, CMake and pkg-config files of the zema libraries")
zema_package(tools zema-tools admin
  "libzema1 ${version}, libqxplatform1 ${version}"
  "Main process and operator's console of the zema service")

include(CPack)
