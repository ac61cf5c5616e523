// MAC-limit lists as the MAC manager tells them (types 14490 to 14495): which addresses the
// stations behind an interface may have. They are sent on to the cards and kept by the MAC manager.
#pragma once

#include "include/ipc.h"
#include "include/listName.h"

// Types 14490 to 14494. Behind the record stand the interface indexes, 4 bytes each, and behind
// them the entries. 14490 (a new list) and 14494 (a list goes) are about one interface, and their
// entries say nothing.
struct macLimitMsg {
    ipcHdr ipc;
    listName name;        //  60
    be32 interfaceCount;  // 200
    be32 entryCount;      // 204
};
WIRE_SIZE(macLimitMsg, 208);
WIRE_AT(macLimitMsg, interfaceCount, 200);

struct macLimitEntry {
    uint8_t mac[6];   // 0
    uint8_t mask[6];  // 6  a wildcard: bits set are not compared
    be32 action;      // 12  1 denies
};
WIRE_SIZE(macLimitEntry, 16);

// Type 14495: a filter of protocols, for the slots that it names; each gets what stands behind the
// header.
constexpr uint32_t PROTOCOL_FILTER_SLOTS = 8;
struct protocolFilterMsg {
    ipcHdr ipc;
    be32 reserved60[2];
    be32 slots[PROTOCOL_FILTER_SLOTS];  //  68
    be32 count;                         // 100  of slots
};
WIRE_SIZE(protocolFilterMsg, 104);
WIRE_AT(protocolFilterMsg, slots, 68);
WIRE_AT(protocolFilterMsg, count, 100);
