execute_process(COMMAND objdump -p ${LIBRARY} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR NOT out MATCHES "SONAME +${SONAME}\n")
  message(FATAL_ERROR "${LIBRARY} lacks the SONAME ${SONAME}")
endif()
