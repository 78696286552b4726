# Installs the build into a fresh prefix, then builds and runs the consumer against it,
# once through find_package and once through pkg-config.
#   -DBUILD_DIR=... -DWORK=... -DCONSUMER=... -DSAMPLE=... -DCXX=...
# Cross-built (-DTOOLCHAIN=... -DEMULATOR=a|b|...): find_package only, the consumer run by the
# emulator with the DLL beside it.
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(f include/velcan/velcan.h include/velcan/xml/expatpp.h include/velcan/history/update_file.h
         include/velcan/process/blocking_process.h include/velcan/process/command.h)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()

# find_package
if(TOOLCHAIN)
  run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/cmake -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}
      -DVELCAN_WIN32_DEPS=${DEPS} -Dvelcan_DIR=${prefix}/lib/cmake/velcan)
  run(${CMAKE_COMMAND} --build ${WORK}/cmake)
  file(COPY ${prefix}/bin/velcan.dll DESTINATION ${WORK}/cmake)
  string(REPLACE "|" ";" EMULATOR "${EMULATOR}")
  run(${EMULATOR} ${WORK}/cmake/consumer.exe ${SAMPLE})
  message(STATUS "find_package: ${last_output}")
  return()
endif()
# The installed tool reads the sample installed beside it, wherever the prefix is: a
# history put in its place is what `velcan history` prints.
if(EXISTS ${prefix}/bin/velcan)
  foreach(f share/man/man1/velcan.1 share/doc/velcan/README.md share/doc/velcan/docs/tool.md
            share/bash-completion/completions/velcan)
    if(NOT EXISTS ${prefix}/${f})
      message(FATAL_ERROR "the tool's ${f} is not installed")
    endif()
  endforeach()
  file(WRITE ${prefix}/share/velcan/version-history.xml
       "<h><Version number=\"9.9.9\" date=\"installed\"/></h>\n")
  run(${prefix}/bin/velcan history)
  if(NOT last_output STREQUAL "Version 9.9.9 (installed)\n")
    message(FATAL_ERROR "the installed tool did not read the installed sample:\n${last_output}")
  endif()
endif()

run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/cmake -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK}/cmake)
run(${WORK}/cmake/consumer ${SAMPLE})
message(STATUS "find_package: ${last_output}")

# pkg-config, with only expat's and velcan's .pc files where it looks: a consumer needs no
# more (ACE is the library's own business).
file(GLOB_RECURSE pc ${prefix}/velcan.pc)
get_filename_component(pcdir "${pc}" DIRECTORY)
run(pkg-config --variable=pcfiledir expat)
string(STRIP "${last_output}" expat_pcdir)
file(REMOVE_RECURSE ${WORK}/pc-only)
file(COPY ${expat_pcdir}/expat.pc DESTINATION ${WORK}/pc-only)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
set(ENV{PKG_CONFIG_LIBDIR} ${WORK}/pc-only)
run(pkg-config --cflags --libs velcan)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -o ${WORK}/pkgconfig-consumer ${CONSUMER}/main.cpp ${flags})
get_filename_component(libdir "${pcdir}" DIRECTORY)
set(ENV{LD_LIBRARY_PATH} ${libdir})
run(${WORK}/pkgconfig-consumer ${SAMPLE})
message(STATUS "pkg-config: ${last_output}")

# A component velcan does not have is named in the error.
file(MAKE_DIRECTORY ${WORK}/component)
file(WRITE ${WORK}/component/CMakeLists.txt "cmake_minimum_required(VERSION 3.16)
project(component LANGUAGES CXX)
find_package(velcan CONFIG REQUIRED COMPONENTS frobnicate)
")
execute_process(COMMAND ${CMAKE_COMMAND} -S ${WORK}/component -B ${WORK}/component/build
                        -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(REGEX REPLACE "[ \n]+" " " said "${err}")
if(rc EQUAL 0 OR NOT said MATCHES "velcan has no component frobnicate")
  message(FATAL_ERROR "an unknown component was not named (${rc}):\n${out}\n${err}")
endif()
message(STATUS "find_package with an unknown component: named")
