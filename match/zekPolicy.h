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

// One IPv6 packet. The protocol is the one behind the extension headers.
struct ip6Packet {
    uint8_t src[16], dst[16];
    uint8_t protocol;
    uint8_t tcpFlags;
    uint8_t icmpType, icmpCode;
    uint16_t srcPort, dstPort;
    bool laterFragment;
};

// One frame.
struct macFrame {
    uint8_t src[6], dst[6];
    uint32_t encapsulation;  // macEncapsulation
    uint16_t etherType;      // of a frame with a bare LLC header its service access points
};

enum ipVerdict : int { FILTER_PERMIT = 0, FILTER_DENY = 1 };

// --- access lists (ipfilter.cpp, ip6filter.cpp, macfilter.cpp; filterIndex.h) ------------------

// First match in sequence order; no match is deny. Counts the match. *decided is the entry that
// decided, null for the implicit deny; may be null. A null or empty list denies.
ipVerdict ipFilterCheck(const aclList* list, const ipPacket& packet, const aclEntry** decided);
ipVerdict ip6FilterCheck(const aclList* list, const ip6Packet& packet, const acl6Entry** decided);
ipVerdict macFilterCheck(const aclList* list, const macFrame& frame, const l2AclEntry** decided);
// The entry that would decide, or null; counts nothing.
aclEntry* ipFilterFind(const aclList* list, const ipPacket& packet);
acl6Entry* ip6FilterFind(const aclList* list, const ip6Packet& packet);
l2AclEntry* macFilterFind(const aclList* list, const macFrame& frame);

// The index beside an ordinary list's chain, kept by the store that owns the list, under the write
// lock. A short list has none, nor has one whose index found no memory or whose chain is not in
// ascending numbers: such a list is walked. It is tried again when the count has doubled.
constexpr int32_t FILTER_INDEX_FROM = 8;  // entries
// After an entry was linked and counted.
void ipFilterIndexAdd(aclList* list, listEntry* entry);
void ip6FilterIndexAdd(aclList* list, listEntry* entry);
void macFilterIndexAdd(aclList* list, listEntry* entry);
// Before it is unlinked.
void ipFilterIndexRemove(aclList* list, const listEntry* entry);
void ip6FilterIndexRemove(aclList* list, const listEntry* entry);
void macFilterIndexRemove(aclList* list, const listEntry* entry);
// After numbers changed in the chain's order.
void ipFilterIndexRenumber(aclList* list);
void ip6FilterIndexRenumber(aclList* list);
void macFilterIndexRenumber(aclList* list);
// Of any family.
void ipFilterIndexDrop(aclList* list);
