// What the interface manager tells: interfaces, their addresses, and the members of VLANs and LAGs.
// VLANs, LAGs and ports are interface indexes everywhere.
#pragma once

#include "include/ipc.h"

// The records of an event message. Each says its own length, by which the walk steps.
enum ifmSvcType : uint16_t {
    IFM_SVC_ADD_IF = 1,
    IFM_SVC_DEL_IF = 2,
    IFM_SVC_PORT_MODE = 11,
    IFM_SVC_ADD_IP = 30,
    IFM_SVC_DEL_IP = 31,
    IFM_SVC_IGNORED = 35,
    IFM_SVC_DEL_IP6 = 36,
    IFM_SVC_ADD_IP6 = 37,
    IFM_SVC_DEL_IP6_UNLESS_KEPT = 38,  // nothing when IFM_IP6_KEEP is set
    IFM_TYP_ADD_VLAN_PORT = 41,
    IFM_TYP_DEL_VLAN_PORT = 42,
    IFM_SVC_ADD_VLAN_PORTS = 43,
    IFM_SVC_VLAN_PORT_OTHER = 45,  // changes no membership
    IFM_SVC_ADD_LAG_PORT = 47,
    IFM_SVC_DEL_LAG_PORT = 48,
    IFM_SVC_ADD_VLAN_MGID = 49,
    IFM_SVC_DEL_VLAN_MGID = 50,
    IFM_SVC_ADD_LAG_MGID = 51,
    IFM_SVC_DEL_LAG_MGID = 52,
};

struct ifmSvcHdr {
    be16 type;    // 0  ifmSvcType
    be16 length;  // 2  of the record, this front included
};
WIRE_SIZE(ifmSvcHdr, 4);

// Types 1, 2, 11, 41, 42, 45, 47, 48 and 49 to 52. How many words a type has is its row's to know:
//   1 interface, value          2 interface              11 interface, mode
//   41, 42, 45 port, VLAN       47, 48 LAG, port         49-52 VLAN or LAG, group id, 0, 0
struct ifmSvcWords {
    ifmSvcHdr hdr;
    be32 word[4];  // 4
};
WIRE_SIZE(ifmSvcWords, 20);

struct ifmSvcAddIp {
    ifmSvcHdr hdr;
    be32 ifindex;     //  4
    be32 address;     //  8
    be32 mask;        // 12
    be32 type;        // 16
    be32 flags;       // 20
    be32 carried[3];  // 24
};
WIRE_SIZE(ifmSvcAddIp, 36);
struct ifmSvcDelIp {
    ifmSvcHdr hdr;
    be32 ifindex;  // 4
    be32 address;  // 8
};
WIRE_SIZE(ifmSvcDelIp, 12);

constexpr uint32_t IFM_IP6_KEEP = 4;
struct ifmSvcIp6 {
    ifmSvcHdr hdr;
    be32 ifindex;         //  4
    uint8_t address[16];  //  8
    uint8_t carried[32];  // 24
    be32 prefixLength;    // 56
    be32 flags;           // 60
};
WIRE_SIZE(ifmSvcIp6, 64);
WIRE_AT(ifmSvcIp6, prefixLength, 56);

// Type 43: `count` members behind it, as many as its length has room for.
struct ifmSvcVlanPorts {
    ifmSvcHdr hdr;
    be32 vlan;   // 4
    be32 count;  // 8
};
WIRE_SIZE(ifmSvcVlanPorts, 12);

// Type 10896: `count` records from the end of this front on.
struct ifmEventMsg {
    ipcHdr ipc;
    uint8_t reserved60[120];
    be32 count;  // 180
    uint8_t reserved184[8];
};
WIRE_SIZE(ifmEventMsg, 192);
WIRE_AT(ifmEventMsg, count, 180);

// Types 10873 (the ports leave the VLAN) and 10878 (the port is a member of exactly these VLANs):
// `count` indexes behind it.
struct ifmListMsg {
    ipcHdr ipc;
    be32 ifindex;  // 60  the VLAN; the port
    be32 count;    // 64
};
WIRE_SIZE(ifmListMsg, 68);
constexpr size_t IFM_PORTS_LEAVE_BYTES = 1200;  // of 10873, no more is looked at
constexpr size_t IFM_PORTS_LEAVE_MAX = (IFM_PORTS_LEAVE_BYTES - sizeof(ifmListMsg)) / sizeof(be32);
static_assert(IFM_PORTS_LEAVE_MAX == 283);

// Type 10880.
struct ifmMirrorMsg {
    ipcHdr ipc;
    be32 word[4];  // 60
};
WIRE_SIZE(ifmMirrorMsg, 76);
