// The manager's own voice: debug text and system errors.
#include "common/debug.h"

#include <cstdio>
#include <string_view>

#include "common/node.h"

uint32_t DEBUG_ACL_MGR = 0;

void aclDebugPrint(const char* function, int line, const char* format, ...) {
    static char buffer[2048];  // one for the task: only its thread prints
    std::string_view text = format;
    bool namesThem =
        text.starts_with("%s %d") || text.starts_with("%s:%d") || text.starts_with("%s, %d");
    int used = namesThem ? 0 : std::snprintf(buffer, sizeof buffer, "%s %d ", function, line);
    if (used < 0) return;
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer + used, sizeof buffer - static_cast<size_t>(used), format, args);
    va_end(args);
    zekDebugPrint(buffer);
}

void aclSysErr(uint32_t code, const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    zekSysErr(aclNode != nullptr ? aclNode->evtLogKey : 0, 0, code, 1, text);
}
