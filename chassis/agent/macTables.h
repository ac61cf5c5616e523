// What a card's MAC agent holds: the addresses whose frames are trapped, and the ports that are
// members of VLANs and LAGs.
//
// A trap is known by its interface and its address, a member by its port and its VLAN (0: its
// LAG's group). What comes again replaces what is there. A protocol without an address of its own
// comes with one of zeros: that row traps no frame, it says that such a protocol is on, and it is
// kept like any other, so that what the manager means and what the card holds can be compared row
// by row.
//
// A replay is built beside what is in force and exchanged with it at its end, as the lists are.
// Where nothing is in force its rows come into force one by one. When something of it was refused,
// what came is put into force and nothing else goes.
#pragma once

#include <array>
#include <compare>
#include <map>
#include <span>

#include "chassis/agent/counts.h"
#include "include/protMsg.h"

struct macTrapKey {
    uint32_t ifindex;
    std::array<uint8_t, 6> mac;
    auto operator<=>(const macTrapKey&) const = default;
};
struct macTrap {
    uint32_t vlan, egressPort;  // of a VLAN; else 0
    uint32_t mode;              // of the interface
    uint32_t lda;               // not 0: the interface's own address is meant
    uint32_t cpus;              // that receive the frames: bits 1, 2, 4
    bool operator==(const macTrap&) const = default;
};
struct macMemberKey {
    uint32_t port, vlan;  // VLAN 0: the port's LAG
    auto operator<=>(const macMemberKey&) const = default;
};
struct macRows {
    std::map<macTrapKey, macTrap> traps;
    std::map<macMemberKey, uint32_t> members;  // the id of the multicast group
    size_t size() const { return traps.size() + members.size(); }
};

// A card with 96 ports that are members of every VLAN, and as many traps as its VLANs and ports can
// have, fit. Each set has room for so many.
constexpr size_t MAC_ROWS_MAX = 600'000;

struct macTables : agentCounts {
    size_t capacity = MAC_ROWS_MAX;
    macRows inForce, staged;
    agentReplay replay = agentReplay::none;
    uint64_t refusedBefore = 0;  // the replay
};

// Applies one message as it came. Never keeps a pointer into it.
agentVerdict macTablesApply(macTables* tables, std::span<const uint8_t> message);
// A replay begins; one that was under way is void.
void macTablesReplayBegin(macTables* tables);
// It has ended. True when nothing of it was refused, so that nothing else is in force.
bool macTablesReplayEnd(macTables* tables);
// It will not end. What came into force by then stays.
void macTablesReplayDrop(macTables* tables);
