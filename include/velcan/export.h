// VELCAN_API marks what the library exports; everything else stays hidden.
#ifndef VELCAN_EXPORT_H
#define VELCAN_EXPORT_H

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(VELCAN_BUILDING)
#define VELCAN_API __declspec(dllexport)
#else
#define VELCAN_API __declspec(dllimport)
#endif
#else
#define VELCAN_API __attribute__((visibility("default")))
#endif

#endif
