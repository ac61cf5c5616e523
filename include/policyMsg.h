// CLI requests about routing-policy lists: the blocks that follow the front of a CLI message at
// byte 220. They are shared with the shell and are kept by the stores as they came.
#pragma once

#include "include/cliMsg.h"

enum aclPolicyCliCode : uint32_t {
    CLI_ASPATH_LIST_DELETE = 1008,
    CLI_ASPATH_ENTRY_DELETE = 1009,
    CLI_ASPATH_LIST_CREATE = 1010,
    CLI_ASPATH_ENTRY_ADD = 1011,
    CLI_COMM_LIST_DELETE = 1012,
    CLI_COMM_ENTRY_DELETE = 1013,
    CLI_COMM_LIST_CREATE = 1014,
    CLI_COMM_ENTRY_ADD = 1015,
    CLI_EXTCOMM_LIST_CREATE = 1016,
    CLI_EXTCOMM_ENTRY_ADD = 1017,
    CLI_EXTCOMM_ENTRY_DELETE = 1018,
    CLI_EXTCOMM_LIST_DELETE = 1019,
    CLI_RMAP_DELETE = 1020,
    CLI_RMAP_CREATE = 1021,
    CLI_RMAP_ENTRY = 1022,  // add or delete, by the request's operation word
    CLI_RMAP_V6_ENTRY = 1023,
    CLI_RMAP_ENTRY_DELETE = 1024,  // IPv4 clauses; 1160 and 1161 IPv6
    CLI_RMAP_ENTRY_ADD = 1025,
    CLI_PREFIX_LIST_CREATE = 1042,
    CLI_PREFIX_LIST_DELETE = 1043,
    CLI_PREFIX_ENTRY_ADD = 1044,
    CLI_PREFIX_ENTRY_DELETE = 1045,
    CLI_PREFIX_CLEAR = 1046,
    CLI_PREFIX_CLEAR_ALL = 1047,
    CLI_SHOW_PREFIX_ALL_DETAIL = 1083,
    CLI_SHOW_PREFIX_ALL = 1084,
    CLI_SHOW_PREFIX_DETAIL = 1085,
    CLI_SHOW_PREFIX = 1086,
    CLI_SHOW_RMAP = 1087,
    CLI_SHOW_RMAP_ALL = 1088,
    CLI_SHOW_RMAP_CONFIG = 1090,
    CLI_SHOW_ASPATH_ALL = 1091,
    CLI_SHOW_ASPATH = 1092,
    CLI_SHOW_COMM_ALL = 1093,
    CLI_SHOW_COMM = 1094,
    CLI_SHOW_EXTCOMM_ALL = 1095,
    CLI_SHOW_EXTCOMM = 1096,
    CLI_V6_PREFIX_LIST_CREATE = 1147,  // 1147-1152 are the IPv6 forms of 1042-1047
    CLI_V6_PREFIX_LIST_DELETE = 1148,
    CLI_V6_PREFIX_ENTRY_ADD = 1149,
    CLI_V6_PREFIX_ENTRY_DELETE = 1150,
    CLI_V6_PREFIX_CLEAR = 1151,
    CLI_V6_PREFIX_CLEAR_ALL = 1152,
    CLI_SHOW_V6_PREFIX_ALL_DETAIL = 1154,
    CLI_SHOW_V6_PREFIX_ALL = 1155,
    CLI_SHOW_V6_PREFIX_DETAIL = 1156,
    CLI_SHOW_V6_PREFIX = 1157,
    CLI_RMAP_INSTANCE_DELETE = 1158,
    CLI_RMAP_V6_ENTRY_DELETE = 1160,
    CLI_RMAP_V6_ENTRY_ADD = 1161,
    CLI_PREFIX_RESEQUENCE = 1185,
    CLI_RMAP_ENTRY_DELETE_2 = 1187,  // as 1024 and 1025
    CLI_RMAP_ENTRY_ADD_2 = 1188,
    CLI_AS_NOTATION = 13607,
};

constexpr uint32_t AF_IPV4 = 1;  // of prefix lists, route maps and client registrations
constexpr uint32_t AF_IPV6 = 2;
constexpr uint32_t AF_MAC = 3;  // of MAC lists, inside the manager

// --- prefix lists ------------------------------------------------------------------------------

constexpr uint8_t PREFIX_LEN_BITMASK = 255;
constexpr uint32_t PREFIX_SEQ_MAX = 65534;

// L is 4 for IPv4, 16 for IPv6: 32 and 56 bytes.
template <size_t L>
struct prefixEntryBlock {
    be32 seq;     //  0  0: assign one
    be32 action;  //  4  1 deny, any other value permits
    be32 ge;      //  8  signed; 0 or -1: not given
    be32 le;      // 12
    be32 reserved16;
    uint8_t len;  // 20  bits; 255: address and an arbitrary mask
    uint8_t reserved21[3];
    uint8_t address[L];  // 24
    uint8_t mask[L];
};
using prefix4EntryBlock = prefixEntryBlock<4>;
using prefix6EntryBlock = prefixEntryBlock<16>;
WIRE_SIZE(prefix4EntryBlock, 32);
WIRE_SIZE(prefix6EntryBlock, 56);
WIRE_AT(prefix4EntryBlock, address, 24);

struct cliPrefix4Req {
    cliHdr cli;
    prefix4EntryBlock entry;  // 220
};
WIRE_SIZE(cliPrefix4Req, 252);
struct cliPrefix6Req {
    cliHdr cli;
    prefix6EntryBlock entry;  // 220
};
WIRE_SIZE(cliPrefix6Req, 276);

struct cliPrefixReseqReq {
    cliHdr cli;
    be32 start;   // 220
    be32 step;    // 224
    be32 family;  // 228  AF_IPV4 or AF_IPV6
};
WIRE_SIZE(cliPrefixReseqReq, 232);

// --- AS-path lists -----------------------------------------------------------------------------

constexpr size_t ASPATH_TEXT_LEN = 230;  // with its NUL
struct cliAspathReq {
    cliHdr cli;
    be32 action;                 // 220  1 deny, any other value permits
    char text[ASPATH_TEXT_LEN];  // 224
    uint8_t reserved454[2];
    be32 option;  // 456  part of the entry's identity
};
WIRE_SIZE(cliAspathReq, 460);
WIRE_AT(cliAspathReq, option, 456);

// --- community lists ---------------------------------------------------------------------------

enum commEntryKind : uint32_t { COMM_VALUES = 1, COMM_REGEXP = 2 };
constexpr size_t COMM_LIST_VALUES = 9;

struct commEntryBlock {
    be32 action;                  //  0  1 deny, any other value permits
    be32 kind;                    //  4  commEntryKind
    be32 handle;                  //  8  0 on the wire, never compared
    be32 number;                  // 12  signed, shown when it is not 0
    be32 high[COMM_LIST_VALUES];  // 16
    be32 low[COMM_LIST_VALUES];   // 52
    be32 count;                   // 88  values
    be32 localAs;                 // 92
    be32 noAdvertise;             // 96
    be32 noExport;                // 100
    char text[696];               // 104  expression, NUL-terminated
};
WIRE_SIZE(commEntryBlock, 800);
WIRE_AT(commEntryBlock, count, 88);
WIRE_AT(commEntryBlock, text, 104);

enum extCommSelector : uint32_t { EXTCOMM_RT = 2, EXTCOMM_SOO = 3 };
constexpr size_t EXTCOMM_LIST_VALUES = 29;
struct extCommValue {
    uint8_t b[8];
};
struct extCommBody {
    be32 selector;  // 0
    be32 count;     // 4
    union {
        extCommValue values[EXTCOMM_LIST_VALUES];
        char text[EXTCOMM_LIST_VALUES * 8];
    };
};
WIRE_SIZE(extCommBody, 240);
struct extCommEntryBlock {
    be32 action;       //  0
    be32 kind;         //  4  commEntryKind
    be32 handle;       //  8
    extCommBody body;  // 12  what two entries are compared by
    uint8_t reserved252[548];
};
WIRE_SIZE(extCommEntryBlock, 800);

struct cliCommReq {
    cliHdr cli;
    commEntryBlock entry;  // 220
};
WIRE_SIZE(cliCommReq, 1020);
struct cliExtCommReq {
    cliHdr cli;
    extCommEntryBlock entry;  // 220
};
WIRE_SIZE(cliExtCommReq, 1020);

// --- route maps --------------------------------------------------------------------------------

constexpr size_t RMAP_COMMUNITIES = 33, RMAP_PREPENDS = 8, RMAP_EXTCOMMS = 32;
constexpr uint32_t RMAP_SEQ_NOT_GIVEN = 0xFFFFFFFF;

struct rmapCommunity {
    be32 number;
    be32 high[RMAP_COMMUNITIES];
    be32 low[RMAP_COMMUNITIES];
    be32 localAs, noAdvertise, noExport, additive, none, count;
};
WIRE_SIZE(rmapCommunity, 292);
struct rmapPrepend {
    be32 as[RMAP_PREPENDS];
    be32 count;
};
WIRE_SIZE(rmapPrepend, 36);
struct rmapExtCommunity {
    extCommValue values[RMAP_EXTCOMMS];
    be32 additive, count;
};
WIRE_SIZE(rmapExtCommunity, 264);
struct rmapFormUse {
    be32 code, count;
};

struct rmapClauseBlock {
    be32 links[2];  //   0  0 on the wire
    be16 cls;       //   8  rmapClass
    uint8_t reserved10[2];
    be32 code;                      //  12
    listName list;                  //  16
    be32 value;                     // 156
    rmapCommunity community;        // 160
    be32 dampening[4];              // 452
    rmapPrepend prepend;            // 468
    rmapExtCommunity extCommunity;  // 504
    be32 seq;                       // 768  signed; -1: not given
    be32 action;                    // 772  0 permit, 1 deny
    be32 header;                    // 776  1: the instance itself
    be32 kind;                      // 780  1 list, 2 number, 3 IPv6 next hop, 4 fixed payload
    be32 valueCount;                // 784
    be32 nameList[2];               // 788
    be32 numberList[2];             // 796
    be16 valueIndex;                // 804
    be16 subValue;                  // 806  of set metric: 0, 1 "+", 2 "-"
    be32 entryId;                   // 808
    rmapFormUse forms[3];           // 812
    be32 continueFlag;              // 836
    be32 continueTarget;            // 840
    uint8_t ipv6NextHop[16];        // 844
    be32 reserved860;
};
WIRE_SIZE(rmapClauseBlock, 864);
WIRE_AT(rmapClauseBlock, community, 160);
WIRE_AT(rmapClauseBlock, extCommunity, 504);
WIRE_AT(rmapClauseBlock, seq, 768);
WIRE_AT(rmapClauseBlock, subValue, 806);
WIRE_AT(rmapClauseBlock, continueTarget, 840);
WIRE_AT(rmapClauseBlock, ipv6NextHop, 844);

// Create a map and an instance of it; the number that was chosen is written back.
struct cliRmapReq {
    cliHdr cli;
    be32 action;  // 220  0 permit, 1 deny
    be32 seq;     // 224  RMAP_SEQ_NOT_GIVEN
};
WIRE_SIZE(cliRmapReq, 228);
// Delete an instance; CLI_RMAP_DELETE takes 0 for the whole map, and reads `named`.
enum rmapNamed : uint32_t { RMAP_NAMED_NONE = 0, RMAP_NAMED_PERMIT = 1, RMAP_NAMED_DENY = 2 };
struct cliRmapDeleteReq {
    cliHdr cli;
    be32 seq;    // 220
    be32 named;  // 224  rmapNamed: only an instance of this action; need not be sent
};
WIRE_SIZE(cliRmapDeleteReq, 228);
WIRE_AT(cliRmapDeleteReq, named, 224);
struct cliRmapClauseReq {
    cliHdr cli;
    rmapClauseBlock clause;  // 220
    be32 operation;          // 1084  read by 1022 and 1023 only: 0 add, 1 delete
};
WIRE_SIZE(cliRmapClauseReq, 1088);
WIRE_AT(cliRmapClauseReq, operation, 1084);
