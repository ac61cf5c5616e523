// Route maps as the manager keeps them and as their evaluation reads them (never on the wire: a
// request is rmapClauseBlock of include/policyMsg.h).
//
//   rmapList --first--> rmapInstance <-> rmapInstance ...     ascending sequence numbers
//            --bySeq: tree of the instances
//   rmapInstance --first/last--> rmapEntry <-> rmapEntry ...  the header first, then the clauses in
//                                                             the order in which they came
//   rmapEntry --names or numbers--> values, oldest first; --payload
//
// An instance exists while it has records; its header may be missing. The store owns every record;
// all come from the platform's pools. Readers hold the read lock.
#pragma once

#include "common/lists/namedList.h"
#include "include/policyMsg.h"
#include "include/routeMapNames.h"

struct rmapNameValue {
    rmapNameValue* next;
    // The record of the named list, set by its store; of which kind, the clause's code says. It
    // stays valid as long as the value stands, also while the list is a placeholder. Null for the
    // clauses that no store takes (access lists matched by next hop or route source,
    // RTMAP_MATCH_ACC): those are looked up by name.
    namedList* list;
    listName name;
    uint16_t index;  // place among the configuration lines of the clause, from 1
};

struct rmapNumberValue {
    rmapNumberValue* next;
    uint32_t value;
    uint16_t subValue;  // rmapMetricOperator of RTMAP_SET_MET
    uint16_t index;
};

// What a clause of kind RMAP_KIND_PAYLOAD or RMAP_KIND_NEXT_HOP sets, by its code. Counts are in
// range.
union rmapPayload {
    rmapCommunity community;        // RTMAP_SET_COMM
    be32 dampening[4];              // RTMAP_SET_DAMP
    rmapPrepend prepend;            // RTMAP_SET_PREPEND
    rmapExtCommunity extCommunity;  // RTMAP_SET_EXT_COMM
    uint8_t ipv6NextHop[16];        // RTMAP_SET_V6_NHOP
};

struct rmapInstance;
struct rmapProgram;

// An instance's header or one of its clauses. Code and class are 0 in a header.
struct rmapEntry {
    rmapEntry* next;  // of the same instance
    rmapEntry* prev;
    uint32_t code;  // rmapCode
    uint32_t kind;  // rmapKind
    union {
        rmapNameValue* names;      // RMAP_KIND_LIST
        rmapNumberValue* numbers;  // RMAP_KIND_NUMBER; one of a set or continue clause
        rmapPayload* payload;      // the other kinds; null where the code has none
    };
    rmapInstance* instance;
    uint16_t cls;            // rmapClass
    uint16_t valueIndex;     // last index given to a value
    uint32_t header;         // 1: the instance itself
    int32_t seq;             // the instance's
    uint32_t action;         // 0 permit, 1 deny; the instance's
    uint32_t valueCount;     // names or numbers
    uint32_t entryId;        // from the map's counter
    uint32_t continueFlag;   // non-zero in a continue clause
    int32_t continueTarget;  // 0: the next instance
};

struct rmapInstance {
    rmapInstance* next;
    rmapInstance* prev;
    rmapEntry* first;
    rmapEntry* last;
    int32_t seq;      // 1 or more
    uint32_t action;  // the header's; of an instance without one its clauses'
    uint32_t hits;    // how often it decided (include/hitCount.h)
    be32 key;         // seq, as the tree orders it
    zekRadixNode link;
    // Which form the matches of a place use, and how many values do; by rmapFormPairs.
    struct {
        uint32_t code, count;
    } forms[RMAP_FORM_PAIRS];
};

struct rmapList : namedList {
    rmapInstance* first;
    rmapInstance* last;
    zekRadix* bySeq;
    int32_t firstSeq;  // 0 in a placeholder
    uint32_t firstAction;
    rmapProgram* program;  // what evaluation made of the records; match/zekRmap.h
};
