// The entries of the system lists that a port itself holds: what the protocols on it and the
// addresses and protocols of its LAG and VLANs ask for.
//
// Several places may ask for the same entry at a port; the card has it once. So adds are always
// sent, and of a removal only what no other place of the port asks for. The caller holds
// acl_rwlock.
#pragma once

#include <vector>

#include "interface/interface.h"

struct aclSystemEntries {
    std::vector<ipEntryBlock> v4;   // of "Global Acl"
    std::vector<ip6EntryBlock> v6;  // of "v6 Global Acl"
    bool empty() const { return v4.empty() && v6.empty(); }
};

// Appends what a place asks of each port behind it: its protocols' entries and, of a LAG or a VLAN,
// those of its addresses.
void aclPlaceEntries(uint32_t place, aclSystemEntries* out);
// What the port is to hold, nothing twice.
aclSystemEntries aclPortEntries(uint32_t port);

// Whether the place is the port, its LAG or a VLAN of either.
bool aclPortIsBehind(uint32_t port, uint32_t place);

// Adds entries at every port behind a place (a port itself, a VLAN's in the order of its members),
// or removes those of them that a port is not to hold: call it when the records have changed.
void aclSendPlaceEntries(uint32_t place, const aclSystemEntries& entries, bool add);
// Every port's entries to a card that has lost them all.
void aclReplayPortEntries(uint32_t slot);
