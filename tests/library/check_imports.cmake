# The DLL needs nothing beside it: every DLL it imports is one of Windows' own, as ALLOWED
# lists them.
cmake_policy(SET CMP0057 NEW)
execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot read the import table of ${LIBRARY}")
endif()
string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${out}")
file(STRINGS ${ALLOWED} system) # Windows' own DLLs, one a line
string(TOLOWER "${system}" system)
foreach(entry IN LISTS imports)
  string(REPLACE "DLL Name: " "" dll "${entry}")
  string(TOLOWER "${dll}" lower)
  if(NOT lower IN_LIST system)
    message(FATAL_ERROR "${LIBRARY} imports ${dll}, which is not a Windows system DLL")
  endif()
endforeach()
list(LENGTH imports n)
message(STATUS "${n} DLLs imported, all Windows' own")
