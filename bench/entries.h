// The entries that the measuring programs add.
#pragma once

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
