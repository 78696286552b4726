# Builds an application that adds velcan with add_subdirectory: it builds and runs, its own
# (empty) build type is left alone, and an internal header of the library is out of its reach.
#   -DSOURCE=<velcan> -DWORK=... -DSUBPROJECT=... -DSAMPLE=... -DCXX=...
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SUBPROJECT} -B ${WORK} -DVELCAN_SOURCE=${SOURCE}
                        -DCMAKE_CXX_COMPILER=${CXX}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "configure failed:\n${out}\n${err}")
endif()
file(STRINGS ${WORK}/CMakeCache.txt type REGEX "^CMAKE_BUILD_TYPE:")
if(NOT type STREQUAL "CMAKE_BUILD_TYPE:STRING=")
  message(FATAL_ERROR "velcan set the parent's build type: ${type}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK} --target consumer
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the consumer did not build:\n${out}\n${err}")
endif()
execute_process(COMMAND ${WORK}/consumer ${SAMPLE} RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the consumer failed: ${out}")
endif()
message(STATUS "add_subdirectory: ${out}")
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK} --target reaches_internal
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(rc EQUAL 0 OR NOT "${out}${err}" MATCHES "process/pipe.h")
  message(FATAL_ERROR "an internal header was reachable (${rc}):\n${out}\n${err}")
endif()
message(STATUS "internal header out of reach, as it should be")
