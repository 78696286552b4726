# Configures velcan afresh as a user would, and checks what the configure step says or sets.
#   -DSOURCE=... -DWORK=... -DCASE=default_build_type|missing_expat|missing_ace
file(REMOVE_RECURSE ${WORK})
set(args -S ${SOURCE} -B ${WORK} -DVELCAN_BUILD_TESTS=OFF -DVELCAN_BUILD_TOOLS=OFF)
if(CASE STREQUAL "missing_expat")
  list(APPEND args -DCMAKE_DISABLE_FIND_PACKAGE_EXPAT=ON)
  set(package libexpat1-dev)
elseif(CASE STREQUAL "missing_ace")
  # pkg-config looks only where ACE is not.
  set(ENV{PKG_CONFIG_LIBDIR} ${WORK}/no-pkgconfig)
  set(package libace-dev)
endif()
execute_process(COMMAND ${CMAKE_COMMAND} ${args} RESULT_VARIABLE rc OUTPUT_VARIABLE out
                ERROR_VARIABLE err)
if(CASE STREQUAL "default_build_type")
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "configure failed:\n${out}\n${err}")
  endif()
  file(STRINGS ${WORK}/CMakeCache.txt type REGEX "^CMAKE_BUILD_TYPE:")
  if(NOT type STREQUAL "CMAKE_BUILD_TYPE:STRING=RelWithDebInfo")
    message(FATAL_ERROR "a plain configure gave '${type}', not an optimising build type")
  endif()
  return()
endif()
string(REGEX REPLACE "[ \n]+" " " said "${err}")
if(rc EQUAL 0 OR NOT said MATCHES "${package}" OR NOT said MATCHES "scripts/install-deps")
  message(FATAL_ERROR "configure without ${package} (exit ${rc}) did not name it and "
                      "scripts/install-deps:\n${err}")
endif()
