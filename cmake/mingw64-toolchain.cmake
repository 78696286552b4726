# Cross-builds for 64-bit Windows with Debian's mingw-w64 compilers.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(VELCAN_MINGW_TRIPLE x86_64-w64-mingw32)
set(VELCAN_WINE_ARCH win64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
