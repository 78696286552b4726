# expat and ACE: ${VELCAN_EXPAT_TARGET} (public: the headers bring <expat.h>) and velcan_ace
# (private to the library). VELCAN_EXPAT_PACKAGE is how a user of the installed package
# finds that same expat.
# On Linux they are the system's shared libraries; on Windows the static ones built for the
# target (scripts/build-win32-deps), linked into the DLL.

# Stops configuring with a line that names the Debian package to install.
function(velcan_missing what debian_packages)
  message(FATAL_ERROR "velcan needs ${what}, which was not found: install the Debian "
                      "package(s) ${debian_packages}, or run scripts/install-deps, which "
                      "installs everything velcan needs.")
endfunction()

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
  find_package(EXPAT)
  if(NOT EXPAT_FOUND)
    velcan_missing("expat (expat.h and libexpat)" libexpat1-dev)
  endif()
  set(VELCAN_EXPAT_TARGET EXPAT::EXPAT)
  set(VELCAN_EXPAT_PACKAGE "EXPAT")

  find_package(PkgConfig)
  if(NOT PKG_CONFIG_FOUND)
    velcan_missing("pkg-config (to find ACE)" pkg-config)
  endif()
  pkg_check_modules(ACE IMPORTED_TARGET ACE)
  if(NOT ACE_FOUND)
    velcan_missing("ACE (its ACE.pc)" libace-dev)
  endif()
  add_library(velcan_ace INTERFACE IMPORTED)
  target_link_libraries(velcan_ace INTERFACE PkgConfig::ACE)
endif()

# expat's reparse deferral (expat 2.6, and Debian 12's security updates of 2.5.0) keeps a
# token that spans many pieces linear to read rather than quadratic. The tests of huge tokens
# need it; where it is missing they are skipped and say why.
include(CheckCXXSourceCompiles)
unset(VELCAN_EXPAT_HAS_REPARSE_DEFERRAL CACHE) # checked again: expat may have been upgraded
set(CMAKE_REQUIRED_LIBRARIES ${VELCAN_EXPAT_TARGET})
check_cxx_source_compiles("#include <expat.h>
int main() { return XML_SetReparseDeferralEnabled(nullptr, XML_TRUE) ? 0 : 1; }"
  VELCAN_EXPAT_HAS_REPARSE_DEFERRAL)
unset(CMAKE_REQUIRED_LIBRARIES)
