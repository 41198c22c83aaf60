# libzema.so: every family's objects in one shared object.

add_library(zema SHARED)
add_library(zema::zema ALIAS zema)
target_link_libraries(zema PRIVATE zema_common zema_cmdagent zema_util PUBLIC qxplatform)
# Needs DataSync_SyncData, which platform/linux/sync.cpp defines; ZEMA_DATA_SYNC names another library that does.
if(ZEMA_DATA_SYNC OR EXISTS "${PROJECT_SOURCE_DIR}/platform/linux/sync.cpp")
  target_link_libraries(zema PRIVATE zema_netdevice PUBLIC ${ZEMA_DATA_SYNC})
endif()
target_include_directories(zema PUBLIC $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
                                       $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
zema_shared_library(zema "${CMAKE_SOURCE_DIR}/cmake/zema.map")
