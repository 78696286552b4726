// velcan: everything the library exports, in one include.
//
//   expatpp                 an event-driven XML reader over expat; derive from it
//   VelcanParseUpdateFile   reads the product's version-history file into a record
//   VelcanCompareVersions   orders version numbers as people read them; with
//                           VelcanVersionsNewerThan and VelcanNewestVersion, what's new
//   LaunchBlockingProcess   runs a command, streaming its output to an observer
//                           (an IBlockingProcessObserver)
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
