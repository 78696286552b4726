// Case-insensitive ASCII comparison, as the platform's runtime offers it.
#ifndef VELCAN_HISTORY_ASCII_H
#define VELCAN_HISTORY_ASCII_H

#if defined(_WIN32)
#include <string.h>
inline bool equalsIgnoringCase(const char* a, const char* b) { return _stricmp(a, b) == 0; }
#else
#include <strings.h>
inline bool equalsIgnoringCase(const char* a, const char* b) { return strcasecmp(a, b) == 0; }
#endif

#endif
