# Cross-builds for 32-bit Windows with Debian's mingw-w64 compilers.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(VELCAN_MINGW_TRIPLE i686-w64-mingw32)
set(VELCAN_WINE_ARCH win32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
