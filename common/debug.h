// Debug output and system errors, the two roads by which the manager talks about itself.
#pragma once

#include <cstdarg>
#include <cstdint>

// Areas of DEBUG_ACL_MGR. The duplicate handler's "bit 2" is the value 2.
enum aclDebugArea : uint32_t {
    DEBUG_ACL_GENERAL = 0x1,
    DEBUG_ACL_DUP = 0x2,
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

// System errors: zekSysErr on the event log "ACL".
enum aclSysErrCode : uint32_t {
    SYSERR_STARTUP = 0x50001,
    SYSERR_SHOW = 0x50002,
    SYSERR_SYSLIST = 0x50003,
    SYSERR_RMAP_CLIENT = 0x50004,
    SYSERR_TRIGGER = 0x50005,
    SYSERR_LIST = 0x50006,
    SYSERR_ADDRESS = 0x5000B,
    SYSERR_MEMORY = 0x5000C,
    SYSERR_EVH = 0x5000D,
    SYSERR_SWP = 0x5000E,
    SYSERR_ENTRY_SEND = 0x5000F,
    SYSERR_IFM = 0x50010,
    SYSERR_VLAN_GROUP = 0x50011,
    SYSERR_PEER = 0x50012,
    SYSERR_UDP_HELPER = 0x50013,
};
// What a code is about: some texts are one word ("failed"), and operators read only these.
struct aclSysErrRow {
    uint32_t code;
    const char* about;
};
inline constexpr aclSysErrRow aclSysErrTable[] = {
    {SYSERR_STARTUP, "start-up, queue creation"},
    {SYSERR_SHOW, "show reply"},
    {SYSERR_SYSLIST, "system list"},
    {SYSERR_RMAP_CLIENT, "route-map client"},
    {SYSERR_TRIGGER, "change trigger"},
    {SYSERR_LIST, "access list"},
    {SYSERR_ADDRESS, "agent or peer address"},
    {SYSERR_MEMORY, "no memory"},
    {SYSERR_EVH, "event-handler registration"},
    {SYSERR_SWP, "queue to another task"},
    {SYSERR_ENTRY_SEND, "entry download"},
    {SYSERR_IFM, "interface-manager registration"},
    {SYSERR_VLAN_GROUP, "VLAN group"},
    {SYSERR_PEER, "peer registration"},
    {SYSERR_UDP_HELPER, "UDP-helper registration"},
};

void aclSysErr(uint32_t code, const char* format, ...) __attribute__((format(printf, 2, 3)));
