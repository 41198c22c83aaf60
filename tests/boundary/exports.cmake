# The names that LIBRARY exports are those of the version script MAP, no more and no fewer.

execute_process(COMMAND "${NM}" -D --defined-only "${LIBRARY}" OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[0-9a-f]+ [TDBRVW] [A-Za-z_0-9]+" exported "${symbols}")
list(TRANSFORM exported REPLACE ".* " "")

file(READ "${MAP}" map)
string(REGEX REPLACE ".*global:(.*)local:.*" "\\1" map "${map}")
string(REGEX MATCHALL "[A-Za-z_0-9]+" wanted "${map}")
if(NOT wanted)
  message(FATAL_ERROR "no names in ${MAP}")
endif()

set(missing ${wanted})
list(REMOVE_ITEM missing ${exported})
set(surplus ${exported})
list(REMOVE_ITEM surplus ${wanted})
if(missing OR surplus)
  message(FATAL_ERROR "not exported: ${missing}\nexported without leave: ${surplus}")
endif()
