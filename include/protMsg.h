// Protocols of the control plane on interfaces: what their tasks ask for, and what the cards' MAC
// agents are told of traps and of members.
#pragma once

#include "include/agentMsg.h"
#include "include/ipc.h"
#include "include/listName.h"

enum protocolId : uint32_t {
    PROT_OSPF = 4,
    PROT_ISIS = 5,
    PROT_BGP = 7,
    PROT_RIP = 8,
    PROT_VRRP = 20480,
    PROT_HSRP = 20481,
    PROT_NTP = 20482,
    PROT_PIMSM = 20483,
    PROT_IGMP = 20484,
    PROT_FEFD = 20485,
    PROT_IGMPSNOOPING = 20486,
    PROT_OSPF_V3 = 20487,
    PROT_PIM_V6 = 20488,
    PROT_MLDSNOOPING = 20489,
    PROT_GVRP = 65534,
};

// What a task asks for when it enables a protocol on an interface (1110), or disables it (1111).
constexpr uint8_t PROT_RECORD_V6 = 16;  // in `protocol`: an IPv6 record
struct protRecord {
    listName name;     //   0  of the list for the entry
    be32 ifindex;      // 140
    be32 id;           // 144  protocolId, or any other
    be32 vmac[3];      // 148  16 bits of a virtual MAC address in each word's low half; 0: none
    uint8_t lda;       // 160  1: the interface's own address is meant
    uint8_t protocol;  // 161  IP protocol; PROT_RECORD_V6
    uint8_t reserved162[2];
    uint8_t address[16];  // 164  an IPv4 address in the first word
    uint8_t mask[16];     // 180
    be32 port;            // 196  destination port
    be32 option;          // 200
    be32 reserved204;
};
WIRE_SIZE(protRecord, 208);
WIRE_AT(protRecord, ifindex, 140);
WIRE_AT(protRecord, lda, 160);
WIRE_AT(protRecord, address, 164);
WIRE_AT(protRecord, port, 196);

// A place keeps so many records: of each protocol one for IPv4 and one for IPv6, and one for each
// virtual router's address.
constexpr size_t PROT_RECORDS_MAX = 256;

// Types 1110 and 1111; 1112 and 1113 are the same through a reliable queue, the record further
// back.
struct protEnableMsg {
    ipcHdr ipc;
    protRecord record;  // 60
};
WIRE_SIZE(protEnableMsg, 268);
struct protEnableSwpMsg {
    ipcHdr ipc;
    uint8_t reserved60[64];
    protRecord record;  // 124
};
WIRE_SIZE(protEnableSwpMsg, 332);

// --- to a card's MAC agent: 132 bytes in front as of a download, the words at fixed offsets ------
// The length word of each says its size and a header's.

// Frames to an address are trapped, or not any more.
constexpr uint32_t MT_MAC_TRAP = 18841;
struct macTrapMsg {
    ipcHdr ipc;
    uint8_t reserved60[64];
    be32 one;         // 124  1
    be32 zero;        // 128
    be32 ifindex;     // 132
    uint8_t mac[6];   // 136
    be16 egressPort;  // 142  of a VLAN
    be32 enable;      // 144
    be16 vlan;        // 148  of a VLAN: its id
    uint8_t reserved150[2];
    be32 mode;  // 152  of the interface
    be32 lda;   // 156
    be32 cpus;  // 160  the CPUs that receive them: bits 1, 2, 4
};
WIRE_SIZE(macTrapMsg, 164);
WIRE_AT(macTrapMsg, mac, 136);
WIRE_AT(macTrapMsg, enable, 144);
WIRE_AT(macTrapMsg, cpus, 160);

// A port is a member of a VLAN, or of a LAG (VLAN id 0), whose multicast group has an id.
constexpr uint32_t MT_MAC_MEMBER = 30005;
struct macMemberMsg {
    ipcHdr ipc;
    uint8_t reserved60[64];
    be32 add;      // 124  0: not any more
    be32 port;     // 128  interface index
    be32 vlan;     // 132  id
    be32 mcastId;  // 136
};
WIRE_SIZE(macMemberMsg, 140);
WIRE_AT(macMemberMsg, mcastId, 136);
