// The configuration manager: at start it types the saved configuration into the task again.
//
// The source is what was running when the process went down, else the startup configuration. The
// manager is a thread of the task's process; the typing is done by the shell, as a child.
#pragma once

#include <cstdint>
#include <string>

#include "platform/host/cfgdb.h"

struct cfgMgrPlace {
    std::string runDir;
    std::string chassisFile;
    std::string programDir;  // where the shell is
    uint32_t rp;
    uint32_t address;  // of the task
};

// What `write memory` saves and a manager without a running configuration starts with. The route
// processors of a chassis share it.
std::string cfgMgrStartupFile(const std::string& runDir);

enum class cfgMgrSource { none, previous, startup };

// Readies a database that has just been opened for what follows: puts the lines of the last run
// away and says what is to be restored. With nothing to restore the configuration is complete. 0 or
// -1.
int cfgMgrPrepare(zekCfgDb* db, const cfgMgrPlace& place, bool cold, cfgMgrSource* source);

// Restores the source into the task, which has said that it is ready, between the notifications of
// a block configuration. Requests of others are held until the end. Returns when all is done; false
// when the source could not be restored (it is kept for the next start, and that is logged).
bool cfgMgrRestore(zekCfgDb* db, const cfgMgrPlace& place, cfgMgrSource source);
