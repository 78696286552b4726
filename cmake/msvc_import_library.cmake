# Writes the MSVC import library of velcan.dll for its C interface: the DLL's exports whose
# names start with velcan_ (the C calls; MSVC cannot use the C++ ones), listed in a .def file
# that llvm-dlltool turns into a .lib as Microsoft's lib.exe would (on 32-bit Windows, each
# name is the C name of a __cdecl function, with MSVC's leading underscore).
#   cmake -DDLL=... -DOBJDUMP=... -DDLLTOOL=... -DMACHINE=i386|i386:x86-64 -DOUT=... -P this
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot list the exports of ${DLL}")
endif()
string(REGEX MATCHALL "\t\\[ *[0-9]+\\] velcan_[a-z_]+" exports "${out}")
set(def "LIBRARY velcan.dll\nEXPORTS\n")
foreach(entry IN LISTS exports)
  string(REGEX REPLACE "^.*\\] " "" name "${entry}")
  string(APPEND def "  ${name}\n")
endforeach()
list(LENGTH exports n)
if(n EQUAL 0)
  message(FATAL_ERROR "${DLL} exports no C call")
endif()
get_filename_component(stem ${OUT} NAME_WE)
get_filename_component(dir ${OUT} DIRECTORY)
file(WRITE ${dir}/${stem}.def "${def}")
execute_process(COMMAND ${DLLTOOL} -m ${MACHINE} -d ${dir}/${stem}.def -l ${OUT}
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "llvm-dlltool could not write ${OUT}")
endif()
