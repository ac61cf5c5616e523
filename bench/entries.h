// The entries that the measuring programs add.
#pragma once

#include <cstring>

#include "include/entry.h"

// An extended entry: one TCP source to one web server. `value` makes its content its own.
inline ipEntryBlock blockOf(uint32_t seq, uint32_t value) {
    ipEntryBlock b{};
    b.kind = IP_KIND_EXTENDED;
    b.seq = seq;
    b.order = ORDER_NOT_GIVEN;
    b.precedence = b.tos = FIELD_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    b.protocol = IP_PROTO_TCP;
    b.src = value;
    b.srcMask = 0xFFFFFFFF;
    b.dst = 0xC0000201;
    b.dstMask = 0xFFFFFFFF;
    b.dstOperator = PORT_EQ;
    b.dstLow = b.dstHigh = 80;
    return b;
}

// The same rule over IPv6, and a frame's with as many fields.
inline ip6EntryBlock block6Of(uint32_t seq, uint32_t value) {
    ip6EntryBlock b{};
    b.seq = seq;
    b.protocol = IP_PROTO_TCP;
    b.src[0] = 0x20, b.src[1] = 0x01, b.src[2] = 0x0d, b.src[3] = 0xb8;
    be32 low;
    low = value;
    std::memcpy(b.src + 12, &low, sizeof low);
    std::memset(b.srcMask, 0xFF, sizeof b.srcMask);
    b.dst[0] = 0x20, b.dst[15] = 1;
    std::memset(b.dstMask, 0xFF, sizeof b.dstMask);
    b.dstOperator = PORT_EQ;
    b.dstLow = b.dstHigh = 80;
    return b;
}
inline macEntryBlock macBlockOf(uint32_t seq, uint32_t value) {
    macEntryBlock b{};
    b.seq = seq;
    b.type = IP_KIND_EXTENDED;
    b.order = ORDER_NOT_GIVEN;
    be32 low;
    low = value;
    std::memcpy(b.src + 2, &low, sizeof low);
    b.dst[0] = 2;
    b.encapsulation = MAC_EV2;
    b.etherTypeOperator = PORT_EQ;
    b.etherType = 0x800;
    return b;
}
