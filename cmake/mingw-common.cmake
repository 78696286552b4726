# What the 32- and 64-bit Windows toolchain files share; they set CMAKE_SYSTEM_PROCESSOR,
# VELCAN_MINGW_TRIPLE and VELCAN_WINE_ARCH first. Debian's -posix compilers are used: their
# thread model has std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)

set(CMAKE_C_COMPILER ${VELCAN_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VELCAN_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VELCAN_MINGW_TRIPLE}-windres)

# The static expat and ACE built for this target (scripts/build-win32-deps).
if(NOT VELCAN_WIN32_DEPS AND DEFINED ENV{VELCAN_WIN32_DEPS})
  set(VELCAN_WIN32_DEPS $ENV{VELCAN_WIN32_DEPS})
endif()
if(NOT VELCAN_WIN32_DEPS)
  include(${CMAKE_CURRENT_LIST_DIR}/cache.cmake)
  set(VELCAN_WIN32_DEPS ${VELCAN_WIN32_DEPS_CACHE}/${VELCAN_MINGW_TRIPLE}/current)
endif()
get_filename_component(VELCAN_WIN32_DEPS "${VELCAN_WIN32_DEPS}" ABSOLUTE)
set(VELCAN_WIN32_DEPS ${VELCAN_WIN32_DEPS} CACHE PATH "Prefix of the Windows expat and ACE")

set(CMAKE_FIND_ROOT_PATH /usr/${VELCAN_MINGW_TRIPLE} ${VELCAN_WIN32_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# libgcc, libstdc++ and winpthread go inside each binary: applications ship one DLL.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

# Test programs run under Wine, in a prefix of the matching kind (scripts/wine-run makes it).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run --${VELCAN_WINE_ARCH})
