// List evaluation shared with client tasks. The caller holds the read lock.
#pragma once

#include <cstdint>

#include "include/list.h"

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

// First match in sequence order; no match is deny. *decided is the entry that decided, null for
// the implicit deny; may be null. A null or empty list denies.
ipVerdict ipFilterCheck(const aclList* list, const ipPacket& packet, const aclEntry** decided);
