// velcan: everything the library exports, in one include.
//
//   expatpp                   an event-driven XML reader over expat; derive from it
//   VelcanParseUpdateFile     reads the product's version-history file into a record
//   VelcanParseUpdateBuffer   reads a version history held in memory into the same record
//   VelcanIsVersionNumber     whether a text is a version number
//   VelcanCompareVersions     orders version numbers as people read them
//   VelcanVersionsNewerThan   the versions of a history newer than a given one
//   VelcanNewestVersion       the newest version of a history
//   LaunchBlockingProcess     runs a command line, streaming its output to an observer (an
//                             IBlockingProcessObserver); returns its exit code
//   VelcanCommand             runs a command with a time limit, a cancel (VelcanCancel), a
//                             directory, an environment and input; Run() says how it ended
#ifndef VELCAN_VELCAN_H
#define VELCAN_VELCAN_H

#include "velcan/export.h"
#include "velcan/version.h"
#include "xml/expatpp.h"
#include "history/update_file.h"
#include "history/version_number.h"
#include "process/blocking_process.h"
#include "process/command.h"

#endif
