# LIBRARY needs libc, the libraries WANTED and at most the dynamic linker: no C++ runtime.

execute_process(COMMAND "${READELF}" -d "${LIBRARY}" OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[][]" "" dynamic "${dynamic}") # brackets would join the items of a list
string(REGEX MATCHALL "Shared library: [^\n]+" needed "${dynamic}")
list(TRANSFORM needed REPLACE "Shared library: " "")

set(missing libc.so.6 ${WANTED})
list(REMOVE_ITEM missing ${needed})
set(surplus ${needed})
list(REMOVE_ITEM surplus libc.so.6 ${WANTED})
list(FILTER surplus EXCLUDE REGEX "^ld-linux")
if(missing OR surplus)
  message(FATAL_ERROR "not needed: ${missing}\nneeded without leave: ${surplus}")
endif()
