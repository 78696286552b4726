# expat and ACE: ${VELCAN_EXPAT_TARGET} (public: the headers bring <expat.h>) and velcan_ace
# (private to the library). VELCAN_EXPAT_PACKAGE is how a user of the installed package
# finds that same expat.
# On Linux they are the system's shared libraries; on Windows the static ones built for the
# target (scripts/build-win32-deps), linked into the DLL.
if(WIN32)
  find_package(expat CONFIG REQUIRED)
  set(VELCAN_EXPAT_TARGET expat::expat)
  set(VELCAN_EXPAT_PACKAGE "expat CONFIG")

  find_path(VELCAN_ACE_INCLUDE_DIR ace/ACE.h REQUIRED)
  find_library(VELCAN_ACE_LIBRARY NAMES libACE.a ACE REQUIRED)
  add_library(velcan_ace STATIC IMPORTED)
  set_target_properties(velcan_ace PROPERTIES
    IMPORTED_LOCATION ${VELCAN_ACE_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${VELCAN_ACE_INCLUDE_DIR}
    INTERFACE_COMPILE_DEFINITIONS "ACE_AS_STATIC_LIBS;__ACE_INLINE__"
    INTERFACE_LINK_LIBRARIES "ws2_32;mswsock;iphlpapi;wsock32;netapi32")
else()
  find_package(EXPAT REQUIRED)
  set(VELCAN_EXPAT_TARGET EXPAT::EXPAT)
  set(VELCAN_EXPAT_PACKAGE "EXPAT")

  find_package(PkgConfig REQUIRED)
  pkg_check_modules(ACE REQUIRED IMPORTED_TARGET ACE)
  add_library(velcan_ace INTERFACE IMPORTED)
  target_link_libraries(velcan_ace INTERFACE PkgConfig::ACE)
endif()
