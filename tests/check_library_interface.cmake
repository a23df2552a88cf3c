# Compares the dynamic symbols libTarvo.so defines with the interface list
# and checks that the C library is its only NEEDED entry and that its
# SONAME is libTarvo.so.1.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(exported "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-fA-F]* *[A-Za-z] " "" name "${line}")
  list(APPEND exported ${name})
endforeach()
list(SORT exported)

file(STRINGS ${EXPECTED} expected REGEX "^[^#]")
list(SORT expected)
if(NOT exported STREQUAL expected)
  set(extra ${exported})
  list(REMOVE_ITEM extra ${expected})
  set(missing ${expected})
  list(REMOVE_ITEM missing ${exported})
  message(FATAL_ERROR "exported symbols differ\n  not in the interface: ${extra}\n  missing: ${missing}")
endif()

execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" needed "${dynamic}")
foreach(entry IN LISTS needed)
  if(NOT entry MATCHES "\\[libc\\.so\\.6\\]")
    message(FATAL_ERROR "unexpected dependency: ${entry}")
  endif()
endforeach()
if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[libTarvo\\.so\\.1\\]")
  message(FATAL_ERROR "SONAME is not libTarvo.so.1")
endif()
message(STATUS "${LIBRARY}: interface and dependencies as expected")
