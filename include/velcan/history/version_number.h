// Version numbers compared as people read them, and the versions of a history newer than the
// one installed: what an update's "What's new" shows.
#ifndef VELCAN_HISTORY_VERSION_NUMBER_H
#define VELCAN_HISTORY_VERSION_NUMBER_H

#include "velcan/export.h"
#include "velcan/history/update_file.h"

// The rules. A version number is, blanks (spaces) around it ignored:
//
//   [v|V] RELEASE [-PRERELEASE] [+BUILD]
//
// where the "-" may be left out before a PRERELEASE that starts with a letter ("3.1b10" is
// "3.1-b10").
//
// - RELEASE: numbers separated by dots ("2", "2.10", "4.1.0"), each compared as a number,
//   however long ("2.10" > "2.9", "1.18446744073709551616" > "1.18446744073709551615") and
//   whatever its leading zeros ("2.01" = "2.1"). Missing trailing numbers are zero
//   ("2.1" = "2.1.0" = "v2.1.0.0").
// - PRERELEASE, after "-": parts of letters, digits and "-", separated by dots. A pre-release
//   comes before its release ("2.0-rc.1" < "2.0", "3.1b10" < "3.1"). Parts are compared left
//   to right: two numbers as numbers ("2.0-rc.9" < "2.0-rc.10"), a number before a text
//   ("2.0-1" < "2.0-alpha"), and two texts run by run, each run of digits as a number and
//   each run of other bytes in ASCII byte order, digits first ("2.0-alpha" < "2.0-beta" <
//   "2.0-rc", "1.0-rc9" < "1.0-rc10", "2.0.0-beta2" < "2.0.0-beta11"); when all parts (or
//   runs) agree, fewer come first ("2.0-rc" < "2.0-rc.1").
// - BUILD, after "+": parts of letters, digits and "-", separated by dots; ignored
//   ("2.0+build.7" = "2.0").
//
// Anything else is not a version number: an empty text, "build 2024", "2.", "2..1", "v",
// "2.0-", "2.0-rc..1", "2.0 beta". Such texts come before every version number, and among
// themselves in the order of their bytes (so "" comes first), which makes the order total:
// for any a, b and c, exactly one of a < b, a = b, a > b holds, and a < b and b < c give
// a < c. Two different texts can be equal versions ("2.1" and "v2.1.0+x").
//
// These calls allocate no memory and keep nothing; a null text is taken as an empty one.

// Whether text is a version number by the rules above.
VELCAN_API bool VelcanIsVersionNumber(const char* text);

// Compares two texts by the rules above: negative when a comes before b (is older), zero when
// they are the same version (or the same bytes, for texts that are not version numbers),
// positive when a comes after b (is newer).
VELCAN_API int VelcanCompareVersions(const char* a, const char* b);

// The versions of info whose number is newer than installed, in the record's own order, as a
// record of their own (a copy; extraText is info's). With an installed text that is not a
// version number every version number is newer, and a number that is not one is never newer
// than a version number: check installed with VelcanIsVersionNumber first.
VELCAN_API TUpdateVersionInfo VelcanVersionsNewerThan(const TUpdateVersionInfo& info,
                                                      const char* installed);

// The index in info.versions of the newest version (the first of them, when several are
// equal), or -1 for a record with no versions. Files list versions newest first as a rule,
// but nothing makes them: this looks at every number, not at the first or at the dates.
VELCAN_API int VelcanNewestVersion(const TUpdateVersionInfo& info);

#endif
