// AS-path, community and extended-community lists as the manager keeps them and as the policy
// library reads them: one frame, three kinds of entry.
//
//   bgpList --head/tail--> bgpEntry <-> bgpEntry ...   in the order in which they were added
//           --same-------> content tree: the same entries under their content
//           --index------> what makes matching and paging fast (match/zekBgp.h)
//
// The store that made a record owns it (policy/zekbgp_plcy.h). An entry's expression is compiled
// when it is added and lives as long as the entry.
#pragma once

#include "common/lists/namedList.h"
#include "include/policyMsg.h"

struct zekbgp_regex;
struct bgpIndex;

enum bgpListKind : uint32_t { BGP_ASPATH, BGP_COMM, BGP_EXTCOMM };
constexpr size_t BGP_LIST_KINDS = 3;

constexpr uint32_t BGP_DENY = 1;  // any other action permits

// The body that follows depends on the list's kind. It is what two entries are compared by, byte by
// byte, and the key of the content tree.
struct bgpEntry {
    bgpEntry* next;
    bgpEntry* prev;
    zekRadixNode same;    // content tree
    uint32_t id;          // the list's counter at insertion, ascending along the chain
    uint32_t action;      // BGP_DENY, or permit
    uint32_t kind;        // commEntryKind; COMM_REGEXP on AS-path lists
    zekbgp_regex* regex;  // COMM_REGEXP only
};

struct aspathEntry : bgpEntry {
    be32 ruleAction;  // `action` as a part of the content
    be32 option;      // the request's match-option word
    char text[];      // the expression as it was typed; the NUL behind it is not compared
};

struct commEntry : bgpEntry {
    commEntryBlock block;  // as it came, but the handle is 0, the count at most its limit, the text
                           // zero behind its NUL
};

struct extCommRule {
    be32 action;
    extCommBody body;  // the count is at most its limit, an expression zero behind its NUL
};
struct extCommEntry : bgpEntry {
    extCommRule rule;
};

struct bgpList : namedList {
    bgpListKind kind;
    bgpEntry* head;
    bgpEntry* tail;
    zekRadix* same;  // content tree
    bgpIndex* index;
};
