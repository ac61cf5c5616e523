// Applications, their print names, and the service numbers that address their queues.
#pragma once

#include <cstdint>

enum aclApp : uint32_t {
    APP_SNMP = 18,
    APP_SYSADM = 33,
    APP_ACL = 61,  // this task
    APP_ACL_AGENT = 62,
    APP_MPLS = 63,
    APP_OSPF = 64,
    APP_BGP = 65,
    APP_ISIS = 72,
    APP_RIP = 74,
    APP_IFA = 75,
    APP_RTM = 80,
    APP_IPM = 87,
    APP_DSMGR = 94,
    APP_EVH = 99,
    APP_MAC_AGENT_1 = 99,  // in cards of type 1; a card has no event handler
    APP_MACMGR = 100,
    APP_IGMP = 140,
    APP_PIM = 141,
    APP_IFM = 142,
    APP_MAC_AGENT = 148,
    APP_TELNET = 156,
    APP_ACL_AGENT_CP = 165,
    APP_ACL2 = 166,
    APP_LDP = 185,
    APP_MCAST = 190,  // a further multicast task
};

enum aclQueueKind : uint32_t { QUEUE_REQUEST = 1, QUEUE_RESPONSE = 2 };

// (application << 7) + 4 x instance-or-slot + queue kind: 61 gives 7809 and 7810, agent 62 in slot
// s gives 7937 + 4 x s.
constexpr uint32_t aclServicePort(uint32_t app, uint32_t instance, uint32_t kind) {
    return ((app << 7) & 0xFF80u) + ((instance * 4) & 124u) + kind;
}
static_assert(aclServicePort(APP_ACL, 0, QUEUE_REQUEST) == 7809);
static_assert(aclServicePort(APP_ACL, 0, QUEUE_RESPONSE) == 7810);
static_assert(aclServicePort(APP_ACL_AGENT_CP, 0, QUEUE_REQUEST) == 21121);
static_assert(aclServicePort(APP_MACMGR, 0, QUEUE_REQUEST) == 12801);
static_assert(aclServicePort(APP_MAC_AGENT, 0, QUEUE_REQUEST) == 0x4A01);
static_assert(aclServicePort(APP_MAC_AGENT_1, 0, QUEUE_REQUEST) == 0x3181);

// Services above the 16-bit range belong to processes without an application number (shells): the
// base plus the process id.
constexpr uint32_t SERVICE_DYNAMIC_BASE = 0x10000;

// An address that nobody has told us yet; 0 counts as unknown too.
constexpr uint32_t ADDRESS_UNKNOWN = 0xFFFFFFFF;
constexpr bool addressIsKnown(uint32_t a) {
    return a != 0 && a != ADDRESS_UNKNOWN;
}
