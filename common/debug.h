// Debug output and system errors, the two roads by which the manager talks about itself.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "include/sysErr.h"

// Areas of DEBUG_ACL_MGR. The duplicate handler's "bit 2" is the value 2.
enum aclDebugArea : uint32_t {
    DEBUG_ACL_GENERAL = 0x1,
    DEBUG_ACL_DUP = 0x2,
    DEBUG_ACL_PROT = 0x2,  // the protocol manager has the duplicate handler's bit: meant
    DEBUG_ACL_IPC = 0x4,
    DEBUG_ACL_CFG = 0x8,
    DEBUG_ACL_TRIGGER = 0x10,
    DEBUG_ACL_GROUP = 0x20,
    DEBUG_ACL_L2IPC = 0x40,
    DEBUG_ACL_ALL = 0xFFFFFFFF,
};
extern uint32_t DEBUG_ACL_MGR;

// Formats into the task's one static buffer and prints "function line " in front, unless the text
// begins with them itself ("%s %d", "%s:%d" or "%s, %d"). Nothing is formatted while no area of the
// mask is on; mask 0 prints always.
#define aclDebug(mask, ...)                                 \
    do {                                                    \
        if ((mask) == 0 || (DEBUG_ACL_MGR & (mask)) != 0)   \
            aclDebugPrint(__func__, __LINE__, __VA_ARGS__); \
    } while (0)
void aclDebugPrint(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// A system error: zekSysErr on the event log "ACL". `code` is one of include/sysErr.h.
void aclSysErr(uint32_t code, const char* format, ...) __attribute__((format(printf, 2, 3)));
