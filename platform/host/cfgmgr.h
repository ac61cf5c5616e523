// The configuration manager: at start it sends the saved configuration to the task again.
//
//   running.db: lines with a record     each request again, in the order of the lines; the rows
//   stay
//                                       where they are, so an interrupted restart has lost nothing
//   running.db: unresolved              what was refused then or earlier, tried after them and each
//                                       time something changes in the chassis
//   startup-config (text)               of a first or a cold start: the shell turns it into
//   records,
//                                       which begin as unresolved ones
//
// Requests are handed to the task inside the process, one at a time: their answers cannot be lost.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/base/cfgdb.h"

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

// Restores into the task, from its next look for messages on, between the notifications of a block
// configuration; requests of others are held until the end. Any thread.
void cfgMgrRestore(zekCfgDb* db, const cfgMgrPlace& place);
bool cfgMgrIsRestoring();  // the task's thread

// Turns a file of configuration lines into rows with records, by the shell. False, and logged, when
// that could not be done; lines that are no configuration become rows without a record.
bool cfgMgrCompile(const cfgMgrPlace& place, const std::string& file,
                   std::vector<cfgStoredRow>* rows);
// Does what the database says that is to be imported. False when it has to be tried again.
bool cfgMgrImport(zekCfgDb* db, const cfgMgrPlace& place);
