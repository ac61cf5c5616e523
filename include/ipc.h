// The 60-byte header in front of every IPC message, and the message types that the manager
// receives.
#pragma once

#include "include/wire.h"

// The first triple of a message names its SENDER and the second its ADDRESSEE; "target" and
// "source" are the names that every task of the system uses for them, and they stay.
struct ipcTriple {
    be32 slot;
    be32 card;  // card address
    be32 svce;  // service number, see service.h
};

struct ipcHdr {
    be32 session;      //  0  SWP session, 0 for plain IPC
    be32 swpSeq;       //  4  SWP sequence number, from 1
    be32 length;       //  8  bytes, header included
    be32 mtype;        // 12  message type
    be32 result;       // 16  sub-code of a request; result of a client registration
    be32 delivery;     // 20  delivery status in replies to triggers
    be32 ramCode;      // 24  42 / 43 in RAM data sync notifications; IPC_REPEATED
    be32 status;       // 28  error code of a show request's reply
    be32 sequence;     // 32  of the request; an answer carries the same
    ipcTriple target;  // 36  sender
    ipcTriple source;  // 48  addressee
};
WIRE_SIZE(ipcHdr, 60);
WIRE_AT(ipcHdr, length, 8);
WIRE_AT(ipcHdr, status, 28);
WIRE_AT(ipcHdr, target, 36);
WIRE_AT(ipcHdr, source, 48);

// In an operator's request: it was sent before under the same sequence number, and is not to be
// executed twice.
constexpr uint32_t IPC_REPEATED = 0x41474E21;

constexpr uint32_t IPC_BUFFER_SIZE = 8192;     // the manager's receive buffer
constexpr uint32_t IPC_TRANSPORT_MAX = 65536;  // the largest plain datagram

// A reply is the request with the two triples exchanged.
inline void ipcExchangeTriples(ipcHdr* hdr) {
    ipcTriple sender = hdr->target;
    hdr->target = hdr->source;
    hdr->source = sender;
}

enum aclMsgType : uint32_t {
    MT_RAM_DATA_SYNC = 8,
    MT_SWP_TIMEOUT = 401,
    MT_SWP_ACK = 402,
    MT_IGNORED = 801,
    MT_PROT_FIRST = 1110,
    MT_PROT_LAST = 1111,
    MT_PROT_VRRP_FIRST = 1112,
    MT_PROT_VRRP_LAST = 1113,
    MT_EVENT_NOTIF = 2009,
    MT_CFG_START_BLK_CFG_NOTIF = 2804,
    MT_CFG_END_BLK_CFG_NOTIF = 2805,
    MT_CFG_INIT_CFG_COMPLETE = 2806,
    MT_CLI_COMMAND = 6001,
    MT_CLI_COMMAND_2 = 6002,
    MT_SNMP_TRAP_AGENT_IP = 8402,
    MT_IFM_REGISTER = 10802,
    MT_IFM_PORTS_LEAVE = 10873,
    MT_IFM_NOTIF_A = 10874,
    MT_IFM_NOTIF_B = 10876,
    MT_IFM_PORTVL_EVT_NOTIF = 10878,
    MT_IFM_MIRROR_RELAY = 10880,
    MT_IFM_EVT_NOTIF = 10896,
    MT_ACL0_REGISTER = 14401,
    MT_AGENT_REGISTER = 14403,
    MT_AGENT_QUEUE = 14404,
    MT_SNMP_REGISTER = 14405,
    MT_IPM_REGISTER = 14406,
    MT_SYSADM_REGISTER = 14407,
    MT_DAI_NOTIF = 14435,
    MT_DHCP_SNOOP_NOTIF = 14436,
    MT_DHCP_SAV = 14437,
    // Clients register with even types and are taken back with the next odd ones.
    MT_CLIENT_FIRST = 14442,
    MT_ACL_CLIENT_ADD = 14442,
    MT_ACL_CLIENT_DEL = 14443,
    MT_V6_ACL_CLIENT_ADD = 14444,
    MT_V6_ACL_CLIENT_DEL = 14445,
    MT_PREFIX_CLIENT_ADD = 14446,
    MT_PREFIX_CLIENT_DEL = 14447,
    MT_V6_PREFIX_CLIENT_ADD = 14448,
    MT_V6_PREFIX_CLIENT_DEL = 14449,
    MT_ASPATH_CLIENT_ADD = 14450,
    MT_ASPATH_CLIENT_DEL = 14451,
    MT_COMM_CLIENT_ADD = 14452,
    MT_COMM_CLIENT_DEL = 14453,
    MT_RMAP_CLIENT_ADD = 14454,
    MT_RMAP_CLIENT_DEL = 14455,
    MT_MAC_CLIENT_ADD = 14456,
    MT_MAC_CLIENT_DEL = 14457,
    MT_CLIENT_LAST = 14457,
    // Triggers, which tell clients of a change; their answers bear the same types.
    MT_ACL_TRIGGER = 14460,
    MT_RMAP_TRIGGER = 14462,
    MT_MAC_TRIGGER = 14463,
    MT_ASPATH_TRIGGER = 14464,
    MT_COMM_TRIGGER = 14465,
    MT_SHOW_IP_ACL = 14466,
    MT_SHOW_IP_ACL_ALL = 14467,
    MT_PREFIX_TRIGGER = 14468,
    MT_SHOW_PREFIX = 14469,  // with the detail; the types behind these without it
    MT_SHOW_PREFIX_BRIEF = 14470,
    MT_SHOW_PREFIX_ALL = 14471,
    MT_SHOW_PREFIX_ALL_BRIEF = 14472,
    MT_UDP_HELPER_NOTIF = 14474,
    MT_SHOW_V6_PREFIX = 14480,
    MT_SHOW_V6_PREFIX_BRIEF = 14481,
    MT_SHOW_V6_PREFIX_ALL = 14482,
    MT_SHOW_V6_PREFIX_ALL_BRIEF = 14483,
    MT_ACLMAC_NEW = 14490,  // MAC-limit lists, from the MAC manager and on to the cards
    MT_ACLMAC_ADD = 14491,
    MT_ACLMAC_DELENTRY = 14492,
    MT_ACLMAC_DELALLENTRY = 14493,
    MT_ACLMAC_DELLIST = 14494,
    MT_ACLMAC_PROTOCOL_FILTER = 14495,
    MT_STP_ENABLE = 14502,
    MT_GVRP_FIRST = 14504,
    MT_GVRP_LAST = 14505,
    MT_ACL_INVERSEMASK_ENABLE = 14517,
    MT_ACL_INVERSEMASK_DISABLE = 14518,
    MT_PEER_INFO = 14522,
    MT_PEER_UPDATE = 14523,
    MT_PEER_REGISTER = 14524,
    MT_V6_ACL_TRIGGER = 14529,
    MT_ACL2_REGISTER = 14552,
    MT_SFLOW_AGENT_IP = 20417,
};

constexpr uint32_t AGENT_QUEUE_FLUSH = 1129;  // sub-code of MT_AGENT_REGISTER

// Event ids of MT_EVENT_NOTIF.
constexpr uint32_t EVT_CARD_DOWN = 0xF0012;
constexpr uint32_t EVT_CARD_SHUTDOWN = 0xF0013;
constexpr uint32_t EVT_CAM_PROFILE = 0xF0065;
