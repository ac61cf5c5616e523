// Event log and system errors.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/api/zekIpc.h"

typedef uint32_t zekEvtLog;  // 0: none

// Opens the log of a task. Returns its handle, or 0.
[[nodiscard]] zekEvtLog zekEvtOpenlog(const char* name, uint32_t facility, uint32_t app,
                                      uint32_t instance);
void zekEvtCloselog(zekEvtLog log);
void zekEvtSetSeverityLevel(zekEvtLog log, uint32_t mask);

// A system error: kept in the ring that `show logging` reads and written to syslog or the log file.
// `argc` and the argument after it are the text's; only one text is ever passed.
void zekSysErr(zekEvtLog log, uint32_t severity, uint32_t code, uint32_t argc, const char* text);
// An ordinary log line.
void zekEvtLogPrint(zekEvtLog log, uint32_t severity, const char* text);

// Debug text: to standard error when the process was started with --debug, and to the debug ring.
void zekDebugPrint(std::string_view text);

struct zekEvtLine {
    uint64_t number;  // counts from 1
    uint64_t timeMs;  // since the epoch
    uint32_t code;    // 0 for ordinary lines
    std::string text;
};
// Calls fn with the lines still in the ring, oldest first.
void zekEvtRing(const std::function<void(const zekEvtLine&)>& fn);

// Subscribes to an event of the event handler; notifications come as IPC messages of type 2009.
// Returns 0, or -1 when the event handler cannot be reached.
int zekEvhSubscribeEvt(uint32_t ipcKey, uint32_t event, uint32_t type);
