# libzema.so: every family's objects in one shared object.

add_library(zema SHARED)
add_library(zema::zema ALIAS zema)
target_link_libraries(zema PRIVATE zema_common zema_cmdagent zema_netdevice zema_table zema_transfer zema_util
                           PUBLIC qxplatform)
target_include_directories(zema PUBLIC $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
                                       $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
zema_shared_library(zema "${CMAKE_SOURCE_DIR}/cmake/zema.map")
# What each family adds to it: ./dev size reads the map.
target_link_options(zema PRIVATE "LINKER:-Map=${CMAKE_BINARY_DIR}/libzema.link-map")
