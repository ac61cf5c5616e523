// List evaluation shared with client tasks. The caller holds the read lock.
#pragma once

#include <cstdint>

#include "common/lists/list.h"

// One IPv4 packet as a filter sees it. Ports are 0 when the protocol has none.
struct ipPacket {
    uint32_t src, dst;
    uint8_t protocol;
    uint8_t tos;       // the whole byte: DSCP is its upper six bits, precedence the upper three
    uint8_t tcpFlags;  // tcpFlag bits without TCP_ESTABLISHED
    uint8_t icmpType, icmpCode;
    uint16_t srcPort, dstPort;
    bool laterFragment;  // offset not 0: carries no ports, flags or ICMP type
};

enum ipVerdict : int { FILTER_PERMIT = 0, FILTER_DENY = 1 };

// --- IPv4 access lists (ipfilter.cpp) --------------------------------------------------------

// First match in sequence order; no match is deny. Counts the match. *decided is the entry that
// decided, null for the implicit deny; may be null. A null or empty list denies.
ipVerdict ipFilterCheck(const aclList* list, const ipPacket& packet, const aclEntry** decided);
// The entry that would decide, or null; counts nothing.
aclEntry* ipFilterFind(const aclList* list, const ipPacket& packet);

// The index beside an ordinary list's chain, kept by the store that owns the list, under the write
// lock. A short list has none, nor has one whose index found no memory or whose chain is not in
// ascending numbers: such a list is walked. It is tried again when the count has doubled.
constexpr int32_t FILTER_INDEX_FROM = 8;                         // entries
void ipFilterIndexAdd(aclList* list, aclEntry* entry);           // after it was linked and counted
void ipFilterIndexRemove(aclList* list, const aclEntry* entry);  // before it is unlinked
void ipFilterIndexRenumber(aclList* list);  // after numbers changed in the chain's order
void ipFilterIndexDrop(aclList* list);
