// What passes between the manager and the tasks that use lists: registrations and triggers.
#pragma once

#include "include/ipc.h"
#include "include/listName.h"

// Registers a client or takes it back (types 14442 to 14457). Pairs follow from byte 220 on; what
// has none is as long as the record.
struct clientRegReq {
    ipcHdr ipc;
    be32 pairCount;    //  60
    be32 application;  //  64  aclApp of the client
    be32 instance;     //  68
    listName name;     //  72
    be32 reserved212;
    be32 callback;        // 216  the client's own word
    uint8_t reserved[8];  // 220
};
WIRE_SIZE(clientRegReq, 228);
WIRE_AT(clientRegReq, name, 72);
WIRE_AT(clientRegReq, callback, 216);

struct clientRegPair {
    be32 first, second;
    uint8_t reserved8[56];
};
WIRE_SIZE(clientRegPair, 64);
constexpr uint32_t CLIENT_PAIRS_AT = 220;
// Header word 16 of the answer: 0, or all ones on a failure.
constexpr uint32_t CLIENT_REG_FAILED = 0xFFFFFFFF;

// Tells a client that a list has changed. The stated length is 292 and 8 a pair: it ends 8 bytes
// behind the last pair.
constexpr uint32_t TRIGGER_BODY_LEN = 148;
constexpr uint32_t TRIGGER_PAIRS_MAX = 92;
constexpr uint32_t TRIGGER_LEN = 292;  // without pairs
struct triggerPair {
    be32 first, second;
};
struct triggerMsg {
    ipcHdr ipc;
    uint8_t reserved60[64];
    be32 pairCount;                        // 124
    be32 application;                      // 128  of the client
    be32 instance;                         // 132
    uint8_t body[TRIGGER_BODY_LEN];        // 136
    triggerPair pairs[TRIGGER_PAIRS_MAX];  // 284
    uint8_t reserved1020[8];
};
WIRE_SIZE(triggerMsg, 1028);
WIRE_AT(triggerMsg, pairCount, 124);
WIRE_AT(triggerMsg, body, 136);
WIRE_AT(triggerMsg, pairs, 284);
