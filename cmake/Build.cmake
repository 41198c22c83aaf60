# What every target is compiled with.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN:$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

set(ZEMA_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")

# Inode numbers of 64 bits come on every machine: without this a 32-bit process cannot read some directories.
add_compile_definitions(_FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wconversion -Wshadow -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)

# All that is linked here is bound when it is loaded, so that calls into other objects need no stub that could bind them
# later; they can be interposed as before. (On ARM nothing changes.)
add_compile_options(-fno-plt)
if(ZEMA_SANITIZE)
  add_compile_options(-fsanitize=${ZEMA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZEMA_SANITIZE})
endif()

# A shared object with a C interface: C++ inside, but neither exceptions nor the C++ runtime. The linker is called as
# for C so that nothing of that runtime can creep in, and `map` names what is exported.
function(zema_shared_library target map)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti
                                           -fno-threadsafe-statics>)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${map}" LINKER:-z,relro,-z,now)
  if(NOT ZEMA_SANITIZE) # whose runtime is the program's
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE C
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS "${map}")
endfunction()

# A room of libzema.so: objects that see the public headers, the platform's and the private ones from the root.
function(zema_room target)
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics)
  target_include_directories(${target} PRIVATE "${CMAKE_SOURCE_DIR}" "${CMAKE_SOURCE_DIR}/include"
                                               "${CMAKE_SOURCE_DIR}/platform/include")
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
