// The copies of access lists that management tasks keep: one message is a header, the list's image
// and the images of some or all of its entries. Pointers and handles are zero in images.
#pragma once

#include "include/agentMsg.h"

struct mgmtListImage {
    uint8_t link[16];
    char name[LIST_NAME_LEN + 1];  //  16
    uint8_t reserved157[11];
    be32 bindings;     // 168  zero
    be32 spare;        // 172
    be32 lastEntryId;  // 176  entries in this message
    be32 kind;         // 180
    be32 placeholder;  // 184
    be32 count;        // 188  entries in this message
    be32 highestSeq;   // 192
    bindingBlock block;
    uint8_t reserved716[20];
};
WIRE_SIZE(mgmtListImage, 736);
WIRE_AT(mgmtListImage, bindings, 168);
WIRE_AT(mgmtListImage, highestSeq, 192);
WIRE_AT(mgmtListImage, block, 196);

struct mgmtEntryImage {
    uint8_t links[8];
    ipEntryBlock block;  //   8
    be32 id;             // 164
    be32 matchCount;     // 168
    be32 log;            // 172
    be32 monitor;        // 176
    uint8_t reserved180[4];
};
WIRE_SIZE(mgmtEntryImage, 184);
WIRE_AT(mgmtEntryImage, id, 164);

struct mgmtEntryImage6 {
    agentEntry6 entry;
    uint8_t reserved140[44];
};
WIRE_SIZE(mgmtEntryImage6, 184);

struct mgmtMsg {
    ipcHdr ipc;
    uint8_t reserved60[64];
    mgmtListImage list;  // 124
    // entry images from 860 on
};
WIRE_SIZE(mgmtMsg, 860);
WIRE_AT(mgmtMsg, list, 124);

// A list of fewer than MGMT_WHOLE entries goes as one message; a longer one in chunks, of which the
// last carries what is left, nothing when the chunks come out even.
constexpr uint32_t MGMT_WHOLE = 40;
constexpr uint32_t MGMT_CHUNK = 39;

// 8402 (SNMP traps) and 20417 (sFlow): the agent asks from which address it is to send.
struct agentAddressMsg {
    ipcHdr ipc;
    be32 address;  // 60  in the answer; 0: none
};
WIRE_SIZE(agentAddressMsg, 64);
