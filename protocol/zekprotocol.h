// Protocols of the control plane: which frames the cards trap for them, and which packets they let
// through to the control processor.
//
// A protocol is enabled on a port, a LAG or a VLAN by the task that runs it. What it asked for is
// kept with the place (aclPlaceUse::protocols), and everything that cards hold follows from what is
// kept: a replay and the changes before it end alike. Indexes are canonical (aclCanonicalIndex).
// The caller holds the write lock; for replays and questions the read lock.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "include/protMsg.h"
#include "interface/interface.h"
#include "protocol/systemEntries.h"

typedef std::array<uint8_t, 6> macAddress;

// --- the protocols (protocols.cpp) ---------------------------------------------------------------

// What the MAC address in a protocol's record is.
enum class aclCarriedMac : uint8_t {
    ignored,
    instead,  // trapped in the place of the protocol's own
    router,   // one of a virtual router: it stands for itself, beside what else is enabled
};
// A protocol and its constants; others than these have the row of "UNKNOWN_PROTOCOL", the last.
struct aclProtocolRow {
    uint32_t id;
    const char* name;                   // as debug output prints it: " OSPF "
    const char* word;                   // as shows and the shell call it: "ospf"
    uint32_t cpus;                      // that receive what is trapped: bits 1, 2, 4
    bool entry;                         // has an entry in "Global Acl"
    uint32_t entryTemplate;             // aclGetProtAcclistFromId, for a record without a match
    std::span<const macAddress> traps;  // a message each, in this order; none: the MAC agents are
                                        // not told
    aclCarriedMac carried;
};
std::span<const aclProtocolRow> aclProtocols();
const aclProtocolRow& aclProtocolOf(uint32_t id);

// The virtual router's address that the record is about, if it is.
std::optional<macAddress> aclVirtualMac(const protRecord& record);
// The addresses to trap for a record, a message each: one that is carried, or the protocol's own.
std::span<const macAddress> aclSetMacAddrFromProt(const protRecord& record, macAddress* carried);
// The permit entry of a template at a place: nothing is given but its match. Templates that there
// are not match every IP packet, as do those without a match.
ipEntryBlock aclGetProtAcclistFromId(uint32_t index, uint32_t place);
// The one destination port of an entry; 0: every port.
void aclSetEntryPort(ipEntryBlock* block, uint16_t port);

// --- enable and disable (protEnable.cpp) ---------------------------------------------------------

// Messages 1110 and 1111, and 1112 and 1113 of a reliable queue, which are long enough. ACL_OK; or
// what was not done: ACL_E_SYSTEM for a place that cannot be one or that keeps too many records,
// ACL_E_ENTRY_MEMORY without memory. A system error is raised for the latter two, and nothing has
// changed.
uint32_t AclProtEnable(const uint8_t* message, uint32_t type);
// The same for a record whose index is canonical; the type is 1110 or 1111. Null: nothing.
uint32_t AclProtEnableCore(uint32_t type, const protRecord* record);

// 1108 and 1109: packets to the DHCP port are trapped, or not any more. 0, also for every other
// code; -1 without memory.
int AclUpdateAclAgentForProtocols(uint32_t code);

// The entries that a protocol asks of each port behind its place (systemEntries.cpp asks).
void aclProtocolEntries(uint32_t place, const aclProtocolUse& use, aclSystemEntries* out);

// A member has joined, or is a member no more (also the port of a LAG that is one): the entries and
// the traps of the VLAN's or LAG's protocols for its ports.
void aclProtocolVlanMember(uint32_t vlanIfindex, uint32_t member, bool add);
void aclProtocolLagMember(uint32_t lagIfindex, uint32_t port, bool add);
// The interface is no more: its protocols are disabled.
void aclProtocolInterfaceGone(uint32_t ifindex);

// --- traps, to the cards' MAC agents (macTrap.cpp) -----------------------------------------------
//
// A card knows a trap by index and address. A port's traps go to its card; a LAG's to the card of
// each member, under the member's own index; a VLAN's once to each card that has a member, under
// the VLAN's. Where several ask for the same address under the same index, the last word has the
// port before its LAG, and of one place the record that stands last: whatever was sent in between,
// its message is the last to go out.

// A message's block, which one call fills again and again; the sends copy it. Empty without memory
// (a system error has been raised).
struct aclTrapBlockFree {
    void operator()(macTrapMsg* block) const;
};
typedef std::unique_ptr<macTrapMsg, aclTrapBlockFree> aclTrapBlock;
aclTrapBlock aclTrapBlockMake();

// The record's traps to everyone behind the place.
void AclProtEnablePopulateMacAgent(macTrapMsg* message, uint32_t place, const protRecord& record,
                                   bool enable);
// To the cards of a VLAN's member that had none before, or have none any more.
void aclTrapVlanMember(uint32_t vlanIfindex, uint32_t member, bool add);
// To the card of a LAG's port.
void aclTrapLagMember(uint32_t lagIfindex, uint32_t port, bool add);
// The mode of an interface is another (aclPlaceUse::mode): its traps go out with it.
void aclProtocolModeChanged(uint32_t ifindex);
// Calls fn for every trap of the slot's interfaces. Where an address comes again under an index,
// the later one counts.
void aclForTrapsOf(uint32_t slot, const std::function<void(const macTrapMsg& trap)>& fn);
// All of them to its MAC agent, in a replay.
void AclUpdateMacAgentForProtocols(uint32_t slot);
