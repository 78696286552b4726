# Where velcan's scripts and builds keep what they make once: ${XDG_CACHE_HOME:-~/.cache}/velcan
# (private roots, Wine prefixes, qemu), and in it win32-deps/TRIPLE/current, the static expat
# and ACE for each Windows target. The Windows toolchains include this file; run with -P it
# prints both as shell assignments, which scripts/lib/facts.sh reads.
if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(VELCAN_CACHE $ENV{XDG_CACHE_HOME}/velcan)
else()
  set(VELCAN_CACHE $ENV{HOME}/.cache/velcan)
endif()
set(VELCAN_WIN32_DEPS_CACHE ${VELCAN_CACHE}/win32-deps)
if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  execute_process(COMMAND ${CMAKE_COMMAND} -E echo
    "velcan_cache='${VELCAN_CACHE}'; velcan_win32_deps_cache='${VELCAN_WIN32_DEPS_CACHE}'")
endif()
