# The compiler warns where a reader is copied, with the header's reason.
#   -DCXX=compiler -DSOURCE=copy_warning.cpp -DINCLUDE=include-dir
execute_process(COMMAND ${CXX} -std=c++17 -fsyntax-only -I${INCLUDE} ${SOURCE}
                ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the copy did not compile:\n${err}")
endif()
if(NOT err MATCHES "deprecated[^\n]*copies share one parser")
  message(FATAL_ERROR "no warning of the copy:\n${err}")
endif()
