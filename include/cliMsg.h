// CLI request messages (types 6001 and 6002): command codes and the record of each kind of
// request. The shell fills them, the manager reads them; both see bytes behind the received length
// as zero.
#pragma once

#include "include/entry.h"
#include "include/ipc.h"
#include "include/listName.h"

enum aclCliCode : uint32_t {
    CLI_IP_LIST_CREATE = 1000,
    CLI_IP_LIST_DELETE = 1001,
    CLI_IP_ENTRY_ADD = 1002,
    CLI_IP_ENTRY_DELETE = 1003,
    CLI_DOS_LIST_DELETE = 1004,
    CLI_DOS_LIST_CREATE = 1005,
    CLI_DOS_ENTRY_DELETE = 1006,
    CLI_DOS_ENTRY_ADD = 1007,
    CLI_CLEAR_IP_ACL = 1030,
    CLI_CLEAR_IP_ACL_ALL = 1031,
    CLI_IP_UNBIND = 1038,
    CLI_IP_BIND = 1039,
    CLI_DOS_DISABLE = 1040,
    CLI_DOS_ENABLE = 1041,
    CLI_LAG_MEMBERS = 1055,
    CLI_SHOW_IP_ACL = 1059,
    CLI_SHOW_IP_ACL_ALL = 1060,
    CLI_SHOW_MAC = 1066,
    CLI_SHOW_MAC_ALL = 1067,
    CLI_MAC_ENTRY_DELETE = 1098,
    CLI_MAC_ENTRY_ADD = 1099,
    CLI_MAC_EGRESS_ENABLE = 1100,
    CLI_MAC_EGRESS_DISABLE = 1101,
    CLI_MAC_LIST_DELETE = 1102,
    CLI_MAC_LIST_CREATE = 1103,
    CLI_MAC_BIND = 1104,
    CLI_MAC_UNBIND = 1105,
    CLI_TRAP_A = 1106,     // protocol trapping, to the cards' agents
    CLI_DHCP_TRAP = 1108,  // packets to the DHCP port of the router's addresses
    CLI_DHCP_NO_TRAP = 1109,
    CLI_TELNET_VALUE = 1114,
    CLI_TRAP_B = 1115,
    CLI_TRAP_C = 1120,
    CLI_GROUP_CREATE = 1132,  // groups of VLANs that share a list
    CLI_GROUP_DELETE = 1133,
    CLI_GROUP_MEMBER_ADD = 1134,
    CLI_GROUP_MEMBER_DELETE = 1135,
    CLI_GROUP_APPLY = 1136,
    CLI_GROUP_REMOVE = 1137,
    CLI_SHOW_GROUP_ALL = 1139,
    CLI_SHOW_GROUP = 1140,
    CLI_REMARK_ADD = 1142,
    CLI_REMARK_DELETE = 1143,
    CLI_MAC_REMARK_ADD = 1144,
    CLI_MAC_REMARK_DELETE = 1145,
    CLI_MAC_TELNET_VALUE = 1146,
    CLI_DESCRIPTION = 1153,
    CLI_V6_LIST_CREATE = 1162,
    CLI_V6_LIST_DELETE = 1163,
    CLI_V6_BIND = 1164,
    CLI_V6_UNBIND = 1165,
    CLI_V6_ENTRY_ADD = 1166,
    CLI_V6_ENTRY_DELETE = 1167,
    CLI_V6_REMARK_ADD = 1169,
    CLI_V6_REMARK_DELETE = 1170,
    CLI_V6_TELNET_VALUE = 1181,
    CLI_IP_RESEQUENCE = 1182,
    CLI_V6_RESEQUENCE = 1183,
    CLI_MAC_RESEQUENCE = 1184,
    CLI_SHOW_GROUP_2 = 1190,
    CLI_SHOW_GROUP_ALL_2 = 1191,
    CLI_SHOW_V6_ACL = 30011,  // from here to 30020: numbers of our own
    CLI_SHOW_V6_ACL_ALL = 30012,
    CLI_CLEAR_V6_ACL = 30013,
    CLI_CLEAR_V6_ACL_ALL = 30014,
    CLI_CLEAR_MAC = 30015,
    CLI_CLEAR_MAC_ALL = 30016,
    CLI_SOURCE_GUARD_ADD = 30017,
    CLI_SOURCE_GUARD_DELETE = 30018,
    CLI_SHOW_SOURCE_GUARD = 30019,
    CLI_SHOW_SOURCE_GUARD_ALL = 30020,
    CLI_PIM_TO_CARDS = 14519,
    CLI_V6_TO_CARDS = 14521,
    CLI_PBR_TO_CARDS = 18908,
};

// The front of every CLI message.
struct cliHdr {
    ipcHdr ipc;
    be32 cookie;    // 60  the client's own, echoed when no display buffer answers
    be32 result;    // 64  written by the manager
    be32 notShown;  // 68  written by the manager: 1, the line that the request makes is one that
                    // cannot be shown
    be32 code;      // 72  aclCliCode
    be32 reserved76;
    listName name;  // 80
};
WIRE_SIZE(cliHdr, 220);
WIRE_AT(cliHdr, result, 64);
WIRE_AT(cliHdr, code, 72);
WIRE_AT(cliHdr, name, 80);

// Create or delete a list: kind of an IP or MAC list, flags word of a DoS list. An IPv6 list is
// made and deleted by its name alone.
struct cliListReq {
    cliHdr cli;
    be32 kind;  // 220
};
WIRE_SIZE(cliListReq, 224);

// Add or delete an IPv4 or DoS entry. The manager writes the assigned sequence number back.
struct cliIpEntryReq {
    cliHdr cli;
    be32 log;            // 220
    be32 monitor;        // 224
    ipEntryBlock block;  // 228
};
WIRE_SIZE(cliIpEntryReq, 384);
WIRE_AT(cliIpEntryReq, block, 228);
static_assert(offsetof(cliIpEntryReq, block) + offsetof(ipEntryBlock, seq) == 292);

// Add or delete an IPv6 entry.
struct cliIp6EntryReq {
    cliHdr cli;
    be32 log;             // 220
    ip6EntryBlock block;  // 224
    be32 monitor;         // 332
};
WIRE_SIZE(cliIp6EntryReq, 336);
WIRE_AT(cliIp6EntryReq, block, 224);

// Add or delete a MAC entry. The order here replaces the body's.
struct cliMacEntryReq {
    cliHdr cli;
    be32 log;             // 220
    macEntryBlock block;  // 224
    be32 counterOptions;  // 280
    be32 order;           // 284
    be32 monitor;         // 288
};
WIRE_SIZE(cliMacEntryReq, 292);
WIRE_AT(cliMacEntryReq, counterOptions, 280);

// Add or delete a remark; which family's list it is in stands in the code. Deleting reads no text.
constexpr size_t REMARK_LEN = 80;
struct cliRemarkReq {
    cliHdr cli;
    uint8_t nul;                // 220  behind a name of 140 characters
    char text[REMARK_LEN + 1];  // 221  NUL-padded
    uint8_t reserved302[2];
    be32 seq;  // 304
};
WIRE_SIZE(cliRemarkReq, 308);
WIRE_AT(cliRemarkReq, text, 221);
WIRE_AT(cliRemarkReq, seq, 304);

// Renumber an access list; see policyMsg.h for prefix lists.
struct cliReseqReq {
    cliHdr cli;
    be32 start;  // 220
    be32 step;   // 224
};
WIRE_SIZE(cliReseqReq, 228);

// Describe a list of any kind. `kind` is the code that creates such a list, but for two: prefix
// lists have DESCRIPTION_PREFIX and DESCRIPTION_V6_PREFIX.
constexpr uint32_t DESCRIPTION_PREFIX = 1051, DESCRIPTION_V6_PREFIX = 1153;
constexpr size_t DESCRIPTION_LEN = 80;
struct cliDescriptionReq {
    cliHdr cli;
    be32 kind;                       // 220
    be32 remove;                     // 224  1: the list has no description any more
    be32 seq;                        // 228  of a route map's instance
    char text[DESCRIPTION_LEN + 1];  // 232  NUL-padded
    uint8_t reserved313[3];
};
WIRE_SIZE(cliDescriptionReq, 316);
WIRE_AT(cliDescriptionReq, text, 232);

// Bind a list to an interface.
constexpr size_t CLI_BINDING_BLOCK_LEN = 520;
constexpr size_t CLI_VLAN_TEXT_LEN = 256;
// The block of a binding to certain VLANs; of others it is zero.
struct bindingVlans {
    be32 given;         // 1
    be32 count;         // of VLANs
    uint8_t bits[512];  // VLAN v: bits[v / 8], 0x80 >> v % 8
};
WIRE_SIZE(bindingVlans, CLI_BINDING_BLOCK_LEN);
struct cliBindReq {
    cliHdr cli;
    be32 ifindex;                          // 220
    be32 direction;                        // 224  0 in, 1 out
    be32 implicitPermit;                   // 228
    be32 writeConfig;                      // 232  read when nothing was bound there before
    be32 vlanOption;                       // 236  non-zero: vlanText is given
    uint8_t block[CLI_BINDING_BLOCK_LEN];  // 240  what the agents need beside the list
    char vlanText[CLI_VLAN_TEXT_LEN];      // 760  NUL-padded, without NUL when it fills the field
};
WIRE_SIZE(cliBindReq, 1016);
WIRE_AT(cliBindReq, block, 240);
WIRE_AT(cliBindReq, vlanText, 760);

// Remove it again.
struct cliUnbindReq {
    cliHdr cli;
    be32 ifindex;    // 220
    be32 direction;  // 224
};
WIRE_SIZE(cliUnbindReq, 228);

// ACL VLAN groups: create, delete, members, the one egress list. The group's name is the front's.
struct cliGroupReq {
    cliHdr cli;
    be32 id;                           // 220  of a create: 1-8, or 0 for the first that is free
    listName list;                     // 224  of apply and remove
    be32 implicitPermit;               // 364  of apply
    bindingVlans vlans;                // 368  of members that come or go
    char vlanText[CLI_VLAN_TEXT_LEN];  // 888  the same as it was typed
};
WIRE_SIZE(cliGroupReq, 1144);
WIRE_AT(cliGroupReq, list, 224);
WIRE_AT(cliGroupReq, vlans, 368);

// A pair of IPv4 and MAC address that may send on an interface; the front's name is empty.
struct cliSourceGuardReq {
    cliHdr cli;
    be32 ifindex;    // 220
    be32 address;    // 224
    uint8_t mac[6];  // 228
    be16 vlan;       // 234  0: any
};
WIRE_SIZE(cliSourceGuardReq, 236);

// The ports of a LAG in the order in which they joined; the answer is as long as its members need.
constexpr size_t CLI_LAG_MEMBERS_MAX = 1024;
struct cliLagMembersReq {
    cliHdr cli;
    be32 ifindex;                       // 220
    be32 count;                         // 224  answer
    be32 members[CLI_LAG_MEMBERS_MAX];  // 228  answer
};
WIRE_SIZE(cliLagMembersReq, 228 + 4 * CLI_LAG_MEMBERS_MAX);
WIRE_AT(cliLagMembersReq, members, 228);

// One word behind the front: 220.
struct cliWordReq {
    cliHdr cli;
    be32 word;
};
WIRE_SIZE(cliWordReq, 224);

// Show requests.
struct cliShowReq {
    cliHdr cli;
    uint8_t reserved220[648];
    listName name;  // 868  name, or cursor of a show of all
    be32 detail;    // 1008
    be32 resume;    // 1012
};
WIRE_SIZE(cliShowReq, 1016);
WIRE_AT(cliShowReq, name, 868);
WIRE_AT(cliShowReq, detail, 1008);

// The front of a show's reply buffer; NUL-terminated text follows at 204. The manager answers a
// show with either this, or, when there is nothing to show, the request itself: that one carries
// the request's cookie, so a client that sets a cookie other than 0 and SHOW_MARKER can tell.
struct showReplyHdr {
    ipcHdr ipc;
    be32 marker;    // 60  SHOW_MARKER when a walk over all has shown a list, else 0
    listName name;  // 64  the list that was shown: the cursor of the next request
};
WIRE_SIZE(showReplyHdr, 204);
constexpr size_t SHOW_TEXT_OFFSET = 204;
constexpr uint32_t SHOW_MARKER = 0x01010101;
