# The DLL holds expat's version string of the expected release, and no other.
#   -DLIBRARY=velcan.dll -DVERSION=2.8.3
file(STRINGS ${LIBRARY} found REGEX "^expat_[0-9]+\\.[0-9]+\\.[0-9]+$")
list(REMOVE_DUPLICATES found)
if(NOT found STREQUAL "expat_${VERSION}")
  message(FATAL_ERROR "${LIBRARY} embeds '${found}', expected expat_${VERSION}")
endif()
message(STATUS "${LIBRARY} embeds ${found}")
