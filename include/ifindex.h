// The 32-bit interface index.
//   bits 0-13 port number (a VLAN's or LAG's id); 14-17 type; 18-24 user port id plus one;
//   25-29 slot plus one; 30 set when bits 18-24 hold the card's internal port id already.
// A value below 20 stands for a bare slot.
#pragma once

#include <cstdint>

constexpr uint32_t SLOT_COUNT = 20;
constexpr int SLOT_NONE = -1;

enum ifType : uint32_t { IF_TYPE_PORT = 0, IF_TYPE_CP = 10, IF_TYPE_LAG = 12, IF_TYPE_VLAN = 14 };

constexpr uint32_t ifindexPort(uint32_t ifindex) {
    return ifindex & 0x3FFF;
}
constexpr uint32_t ifindexType(uint32_t ifindex) {
    return (ifindex >> 14) & 15;
}
constexpr int ifindexUserPort(uint32_t ifindex) {
    return static_cast<int>((ifindex >> 18) & 127) - 1;
}
constexpr bool ifindexHasPortId(uint32_t ifindex) {
    return (ifindex >> 30 & 1) != 0;
}

// The slot, or SLOT_NONE for LAGs, VLANs and indexes whose slot field is empty or out of range.
constexpr int ifindexSlot(uint32_t ifindex) {
    if (ifindex < SLOT_COUNT) return static_cast<int>(ifindex);
    uint32_t type = ifindexType(ifindex);
    if (type == IF_TYPE_LAG || type == IF_TYPE_VLAN) return SLOT_NONE;
    int slot = static_cast<int>((ifindex >> 25) & 31) - 1;
    return slot < static_cast<int>(SLOT_COUNT) ? slot : SLOT_NONE;
}

constexpr uint32_t ifindexMake(uint32_t type, uint32_t port) {
    return (type << 14) | (port & 0x3FFF);
}
// The pseudo-interface of a card's control port.
constexpr uint32_t ifindexControlPort(uint32_t slot) {
    return 0x40040000u + (((slot + 1) << 25) & 0x3E000000u);
}
// The control processor's own pseudo-interface; it decodes to port 1 of slot 0.
constexpr uint32_t IFINDEX_CP = 0x42040000;
// The control-processor interface that lists are bound to (type 10, port 0).
constexpr uint32_t IFINDEX_CP_BIND = 0x42068000;
static_assert(ifindexControlPort(0) == IFINDEX_CP);
static_assert(ifindexType(IFINDEX_CP_BIND) == IF_TYPE_CP);
