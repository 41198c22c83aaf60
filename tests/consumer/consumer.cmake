# Installs the build under BUILD into SCRATCH, moves the installation, and builds and runs the consumer against it.
function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE "${SCRATCH}")
foreach(component runtime development)
  run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${SCRATCH}/installed" --component ${component})
endforeach()
file(RENAME "${SCRATCH}/installed" "${SCRATCH}/moved")

set(ENV{PKG_CONFIG_PATH} "${SCRATCH}/moved/${LIBDIR}/pkgconfig")
run("${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}" -B "${SCRATCH}/build" "-DZEMA_BY=${BY}"
    "-Dzema_DIR=${SCRATCH}/moved/${LIBDIR}/cmake/zema" "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}"
    "-DCMAKE_FIND_ROOT_PATH=${SCRATCH}/moved")
run("${CMAKE_COMMAND}" --build "${SCRATCH}/build")
run("${CMAKE_CTEST_COMMAND}" --test-dir "${SCRATCH}/build" --output-on-failure)
