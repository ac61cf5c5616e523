// Messages between the manager and the ACL agents of the line cards.
//
// A download is one SWP message: header, list header, entries. A list that does not fit one message
// is split; every chunk repeats the list header, and all but the last say that more follows.
#pragma once

#include "include/entry.h"
#include "include/ipc.h"
#include "include/listName.h"

// What a download is: lists and entries by kind and direction.
enum agentMsgId : uint32_t {
    MT_LINECARD_INFO = 14408,  // to the MAC manager
    MT_ACL_ADDLIST = 14409,
    MT_ACL_ADDENT = 14410,
    MT_ACL_DELENT = 14411,
    MT_ACL_DELLIST = 14412,
    MT_ACL_SYS_ADDLIST = 14413,
    MT_ACL_SYS_ADDENT = 14414,
    MT_ACL_SYS_DEL = 14415,  // an entry, or, header only, a list
    MT_ACL_EGR_ADDLIST = 14416,
    MT_ACL_EGR_ADDENT = 14417,
    MT_ACL_EGR_DELENT = 14418,
    MT_ACL_EGR_DELLIST = 14419,
    MT_DOS_ADDLIST = 14420,
    MT_DOS_ADDENT = 14421,
    MT_DOS_DELLIST = 14422,
    MT_DOS_DELENT = 14423,
    MT_ACL_RESEQUENCE = 14429,  // old and new numbers of a list's entries
    MT_L2ACL_ADDLIST = 14484,
    MT_L2ACL_ADDENT = 14485,
    MT_L2ACL_DELLIST = 14486,
    MT_L2ACL_DELENT = 14487,
    MT_L2ACL_EGR_ADDLIST = 14496,
    MT_L2ACL_EGR_ADDENT = 14497,
    MT_L2ACL_EGR_DELLIST = 14498,
    MT_L2ACL_EGR_DELENT = 14499,
    MT_ACL_V6_SYS_ADDLIST = 14530,
    MT_ACL_V6_SYS_ADDENT = 14531,
    MT_ACL_V6_SYS_DEL = 14532,  // as MT_ACL_SYS_DEL
    MT_ACL_V6_ADDLIST = 14533,
    MT_ACL_V6_ADDENT = 14534,
    MT_ACL_V6_DELENT = 14535,
    MT_ACL_V6_DELLIST = 14536,
    MT_ACL_V6_EGR_ADDLIST = 14537,
    MT_ACL_V6_EGR_ADDENT = 14538,
    MT_ACL_V6_EGR_DELENT = 14539,
    MT_ACL_V6_EGR_DELLIST = 14540,
    MT_IPMAC_ACL_NEWLIST = 14541,  // the pairs of addresses that may send on an interface
    MT_IPMAC_ACL_DELIST = 14542,
    MT_IPMAC_ACL_ADDENTRIES = 14543,
    MT_IPMAC_ACL_DELENTRIES = 14544,
};

// The 132-byte header of a download: the IPC header, padded, and two words of its own.
struct agentHdr {
    ipcHdr ipc;  //   0  word 32 (sequence) holds the sender's task id
    uint8_t reserved60[64];
    be32 more;     // 124  1 on every chunk but the last
    be32 bodyLen;  // 128  bytes that follow
};
WIRE_SIZE(agentHdr, 132);
WIRE_AT(agentHdr, more, 124);
WIRE_AT(agentHdr, bodyLen, 128);

// In front of the entries of an IPv4 (or IPv6) list.
struct agentListHdr {
    uint8_t reserved0[169];
    listName name;  // 169
    uint8_t reserved309[3];
    be32 count;  // 312  entries of the whole list; of the last chunk: its own
    be32 kind;   // 316  the list's kind word
    uint8_t reserved320[32];
    be32 ifindex;  // 352  what the list is bound to; 0 for a VLAN group
    uint8_t reserved356[8];
    be32 option;  // 364  implicit-permit word
    uint8_t reserved368[4];
    bindingBlock block;  // 372
    uint8_t reserved892[4];
    be32 runCfgCount;  // 896  the entry count that the caller gave
    uint8_t reserved900[4];
    be32 onBehalfOfVlan;  // 904  1: ifindex is a VLAN interface
    uint8_t groupId;      // 908  VLAN group 1-8, or 0
    uint8_t portPipe;     // 909
    listName groupName;   // 910  VLAN groups only
    uint8_t reserved1050[6];
};
WIRE_SIZE(agentListHdr, 1056);
WIRE_AT(agentListHdr, name, 169);
WIRE_AT(agentListHdr, count, 312);
WIRE_AT(agentListHdr, kind, 316);
WIRE_AT(agentListHdr, ifindex, 352);
WIRE_AT(agentListHdr, option, 364);
WIRE_AT(agentListHdr, block, 372);
WIRE_AT(agentListHdr, runCfgCount, 896);
WIRE_AT(agentListHdr, onBehalfOfVlan, 904);
WIRE_AT(agentListHdr, groupId, 908);
WIRE_AT(agentListHdr, groupName, 910);

// What an entry matches: 144 bytes that stand twice in the agent entry; the agent reads both.
struct agentMatch {
    be32 src;           //   0
    be32 srcMask;       //   4
    be32 dst;           //   8
    uint8_t words[28];  //  12  entry block bytes 36-63: destination mask to the reserved word
    be32 protocol;      //  40
    be32 protoMarker;   //  44
    be32 tcpFlags;      //  48  protocol 6 only
    be32 order;         //  52
    be32 kind;          //  56
    be32 srcOperator;   //  60  protocols 6 and 17 only
    be32 dstOperator;   //  64
    be16 ports[4];      //  68  source low, high, destination low, high
    uint8_t icmp[4];    //  76  protocol 1 only: type, type given, code, code given
    uint8_t l2[56];     //  80  entry block bytes 72-127: ARP and ether-type fields
    be32 fragments;     // 136
    uint8_t dscp[4];    // 140
};
WIRE_SIZE(agentMatch, 144);
WIRE_AT(agentMatch, words, 12);
WIRE_AT(agentMatch, protocol, 40);
WIRE_AT(agentMatch, icmp, 76);
WIRE_AT(agentMatch, l2, 80);
WIRE_AT(agentMatch, fragments, 136);

// One IPv4 entry.
struct agentEntry {
    be32 reserved0;
    be32 seq;             //   4
    be32 action;          //   8  low byte of the entry's action
    be32 counterOptions;  //  12
    be32 carried[3];      //  16
    uint8_t reserved28[8];
    be32 log;  //  36  low byte of the log word
    uint8_t reserved40[16];
    agentMatch match;  //  56
    be32 reserved200;
    agentMatch matchCopy;  // 204  the same again
    uint8_t reserved348[32];
    be32 owner;  // 380
    be32 reserved384;
    be32 monitor;  // 388
};
WIRE_SIZE(agentEntry, 392);
WIRE_AT(agentEntry, carried, 16);
WIRE_AT(agentEntry, log, 36);
WIRE_AT(agentEntry, match, 56);
WIRE_AT(agentEntry, matchCopy, 204);
WIRE_AT(agentEntry, owner, 380);
WIRE_AT(agentEntry, monitor, 388);

// One IPv6 entry. IPv6 lists have the list header of IPv4 lists.
struct agentEntry6 {
    uint8_t reserved0[8];
    ip6EntryBlock block;  //   8
    be32 log;             // 116
    be32 monitor;         // 120
    be32 id;              // 124
    be32 matchCount;      // 128
    uint8_t reserved132[8];
};
WIRE_SIZE(agentEntry6, 140);
WIRE_AT(agentEntry6, block, 8);
WIRE_AT(agentEntry6, id, 124);

// In front of the entries of a MAC list: the list as its store keeps it, without what only means
// something there.
struct agentMacListHdr {
    uint8_t reserved0[16];
    listName name;  //  16
    uint8_t reserved156[8];
    be32 clients;      // 164  zero
    be32 lastEntryId;  // 168
    be32 type;         // 172
    be32 placeholder;  // 176
    be32 count;        // 180  entries of the whole list; of the last chunk: its own
    be32 ifindex;      // 184  what the list is bound to
    bindingBlock block;
    uint8_t reserved708[76];
};
WIRE_SIZE(agentMacListHdr, 784);
WIRE_AT(agentMacListHdr, clients, 164);
WIRE_AT(agentMacListHdr, count, 180);
WIRE_AT(agentMacListHdr, block, 188);

// One MAC entry: the body stands twice.
struct agentMacEntry {
    uint8_t reserved0[8];
    macEntryBlock block;      //   8
    macEntryBlock blockCopy;  //  64
    be32 id;                  // 120
    be32 counterOptions;      // 124
    be32 log;                 // 128
    be32 monitor;             // 132
    uint8_t reserved136[48];
};
WIRE_SIZE(agentMacEntry, 184);
WIRE_AT(agentMacEntry, blockCopy, 64);
WIRE_AT(agentMacEntry, monitor, 132);

// A list's entries have new numbers (type 14429). A list of more entries than one message has pairs
// comes in several, which are one change: it is done when there were as many pairs as entries.
// Entries that keep their number have a pair, too. The words stand at the offsets of the whole
// message; its length word says 8324.
constexpr uint32_t RESEQ_PAIRS = 989;
struct reseqPair {
    be32 from, to;
};
enum reseqFamily : uint32_t { RESEQ_V4 = 0, RESEQ_V6 = 1, RESEQ_MAC = 2 };
struct agentReseqMsg {
    ipcHdr ipc;
    uint8_t reserved60[64];
    listName name;                 // 124
    be32 family;                   // 264  reseqFamily
    be32 pairCount;                // 268
    be32 entryCount;               // 272  of the list
    be32 flag;                     // 276  1 when there is a pair
    reseqPair pairs[RESEQ_PAIRS];  // 280
};
WIRE_SIZE(agentReseqMsg, 8192);
WIRE_AT(agentReseqMsg, name, 124);
WIRE_AT(agentReseqMsg, pairCount, 268);
WIRE_AT(agentReseqMsg, pairs, 280);
constexpr uint32_t RESEQ_LENGTH_WORD = 8324;

// Chunking: a body of at most AGENT_BODY_MAX_SINGLE goes as one message, longer ones as chunks of
// AGENT_CHUNK_ENTRIES.
constexpr size_t AGENT_BODY_MAX_SINGLE = 7891;
constexpr size_t AGENT_CHUNK_ENTRIES = 17;      // IPv4
constexpr size_t AGENT_CHUNK_ENTRIES_6 = 48;    // IPv6
constexpr size_t AGENT_CHUNK_ENTRIES_MAC = 38;  // MAC

// What a registration says of replays: bit 0 set, the agent takes the marks below; the bits above
// it are the number of the agent's need. An agent that lacks something counts up to a number that
// is not 0 and names it until a whole replay has come, else it says 0. A number that is new brings
// a replay, the same one again does not.
constexpr uint32_t AGENT_TAKES_MARKS = 1;
constexpr uint32_t agentNeed(uint32_t replayWord) {
    return replayWord >> 1;
}
constexpr uint32_t agentReplayWord(uint32_t need) {
    return need << 1 | AGENT_TAKES_MARKS;
}

// A line card's agent registers (type 14403; a sub-code of AGENT_QUEUE_FLUSH asks for a flush).
// The sender's slot and card address stand in the first triple.
struct agentRegisterReq {
    ipcHdr ipc;
    be32 replay;            // 60
    be32 isUp;              // 64
    be32 isVortan;          // 68  takes egress lists
    be32 isIpv6Enabled;     // 72
    be32 word5;             // 76
    be32 v6EgAclSupported;  // 80
    be32 type;              // 84
};
WIRE_SIZE(agentRegisterReq, 88);
WIRE_AT(agentRegisterReq, replay, 60);
WIRE_AT(agentRegisterReq, isUp, 64);

// The control processor's agent registers (type 14401). The last word may be left out.
struct acl0RegisterReq {
    ipcHdr ipc;
    be32 supportAclOnCP;  // 60
    be32 replay;          // 64
};
WIRE_SIZE(acl0RegisterReq, 68);
constexpr size_t ACL0_REGISTER_MIN = 64;

// Where a replay begins and ends in the queue to an ACL agent that takes marks. The first message
// of a session is a begin; what the agent holds is what the manager means when the end has come.
constexpr uint32_t MT_AGENT_REPLAY = 30003;
enum agentReplayMark : uint32_t { AGENT_REPLAY_BEGIN = 1, AGENT_REPLAY_END = 2 };
struct agentReplayBody {
    be32 mark;    // agentReplayMark
    be32 number;  // of the replay: an end has its begin's
    be32 need;    // the agent's, from its newest registration
};
WIRE_SIZE(agentReplayBody, 12);

// Whether the card filters by its egress MAC lists: those that it holds are out of force while it
// does not. A card that was told nothing does not.
constexpr uint32_t MT_AGENT_MAC_EGRESS = 30004;
struct agentMacEgressBody {
    be32 enable;  // 0 or 1
};
WIRE_SIZE(agentMacEgressBody, 4);

// What the MAC manager is told of a card whose agent has registered (type 14408).
struct linecardInfoMsg {
    ipcHdr ipc;
    be32 slot;  // 60
};
WIRE_SIZE(linecardInfoMsg, 64);
