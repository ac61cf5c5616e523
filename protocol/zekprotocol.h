// Protocols of the control plane: which frames the cards trap for them, and which packets they let
// through to the control processor. The caller holds the write lock.
#pragma once

#include <span>
#include <string_view>

#include "include/protMsg.h"
#include "interface/interface.h"
#include "protocol/systemEntries.h"

// A protocol and its constants; others than these have the row of "UNKNOWN_PROTOCOL".
struct aclProtocolRow {
    uint32_t id;
    const char* name;  // as debug output prints it: " OSPF "
    const char* word;  // as shows and the shell call it: "ospf"
    uint32_t cpus;     // that receive what is trapped: bits 1, 2, 4
    bool entry;        // has an entry in "Global Acl"
    bool trap;         // is told to the MAC agents
};
std::span<const aclProtocolRow> aclProtocols();
const aclProtocolRow& aclProtocolOf(uint32_t id);

// Messages 1110 and 1111, and 1112 and 1113 of a reliable queue, which are long enough.
void AclProtEnable(const uint8_t* message, uint32_t type);

// The entries that a protocol asks of each port behind its place (systemEntries.cpp asks).
void aclProtocolEntries(uint32_t place, const aclProtocolUse& use, aclSystemEntries* out);

// A member has joined, or is about to leave: the entries and the traps of the VLAN's or LAG's
// protocols for its ports.
void aclProtocolVlanMember(uint32_t vlanIfindex, uint32_t member, bool add);
void aclProtocolLagMember(uint32_t lagIfindex, uint32_t port, bool add);
// The interface is no more: its protocols are disabled.
void aclProtocolInterfaceGone(uint32_t ifindex);

// Every trap of the slot's interfaces to its MAC agent, in a replay.
void AclUpdateMacAgentForProtocols(uint32_t slot);
