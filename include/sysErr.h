// The codes of system errors: the manager raises them, the log of the platform says what each is
// about.
#pragma once

#include <cstdint>

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
