// The router's own addresses: records per interface and of the whole box, and the permit entries
// that lead packets to them to the control processor.
//
//   aclPlaceUse::addresses                 of one interface, in the order added
//   aclLinecardInfo[LINECARD_CP].ipAddHead the global list: a chain of aclIpaddInfo in the order
//                                          added, and a tree by address and interface
//
// Each address has its entries once in "Global Acl" ("v6 Global Acl") of the control processor and
// of every card, on however many interfaces it is, and at each member port of a LAG or VLAN that
// has it. The system list itself is the memory of what the cards have: what an add finds there is
// not sent again, and only what a removal finds there is taken away.
//
// Without memory an add stops (a system error is raised): what is installed stays, and the same add
// again, or the same removal, takes it from there. The caller holds the write lock; for the walks
// and dumps the read lock.
#pragma once

#include <string>

#include "include/mgmtMsg.h"
#include "interface/interface.h"
#include "protocol/systemEntries.h"

// --- from the interface manager (addresses.cpp) --------------------------------------------------
// Adding what is there already changes nothing; nor does removing what is not. A bare slot has no
// addresses.
void aclAddIpAddrFromIFM(uint32_t ifindex, uint32_t address);
void aclDelIpAddrFromIFM(uint32_t ifindex, uint32_t address);
void aclAddIPV6AddFromIFM(uint32_t ifindex, const uint8_t address[16], uint32_t prefixLength);
void aclDelIPV6AddFromIFM(uint32_t ifindex, const uint8_t address[16], uint32_t prefixLength);
// Every address of an interface that is no more.
void aclDelAllAddressesOf(uint32_t ifindex);

// --- members of LAGs and VLANs (addresses.cpp) ---------------------------------------------------
// After the member has joined, and after it has left: what the ports behind it get or lose. A
// member's first joining of a VLAN is told by aclVlanHasMembers before.
void aclL3VlanUpdateAgentForIpAddress(uint32_t vlanIfindex, uint32_t member, bool add);
void aclL3LagUpdateAgentForIpAddr(uint32_t lagIfindex, uint32_t port, bool add);
// Whether a member that leaves the LAG or VLAN has entries of its addresses to lose.
bool aclCheckIfDelIpAddNotifToBeSent(uint32_t place);
// A VLAN without members does not use its addresses: the last member's leaving withdraws them, the
// first one's joining brings them back.
void aclVlanHasMembers(uint32_t vlanIfindex, bool any);

// Packets to UDP port 67 of every address are trapped, or not any more (`acl_dhcp`). 0; -1 without
// memory (a system error is raised): some addresses lack it, and the same call again finishes.
int aclTrapDhcp(bool enable);

// --- records (addressRecords.cpp) ----------------------------------------------------------------

// An address on an interface, in the global list.
struct aclIpaddInfo {
    zekRadixNode link;
    struct {
        uint8_t isV6;
        be32 word[4];
        be32 ifindex;
    } key;
    bool listed;  // in the chain: false once a protocol's disable forgot it
    aclIpaddInfo *next, *prev;
    uint32_t ifindex() const { return key.ifindex; }
};

aclAddress aclAddressOf(uint32_t address);
aclAddress aclAddressOf(const uint8_t address[16], uint32_t prefixLength);
aclAddress aclAddressOf(const aclIpaddInfo& info);

// Finds the record of the interface's address or makes it, in both lists; null without memory (a
// system error is raised): nothing has changed then.
aclAddress* aclAddIpaddInfoToTree(uint32_t ifindex, const aclAddress& address);
// A protocol's disable forgets an address: the record only, not its entries. The interface
// manager's add takes it up again, its removal still withdraws the entries.
void aclDelIpaddInfoToTree(uint32_t ifindex, uint32_t address);
// The record of the interface's address, or null.
aclAddress* aclAddressFind(uint32_t ifindex, const aclAddress& address);
void aclAddressDrop(uint32_t ifindex, const aclAddress& address);

// The global half of the records. Add: 0, also when it was forgotten and is listed again; -1
// without memory, and nothing has changed.
int aclAddIpAddrToLineCardDbase(uint32_t ifindex, const aclAddress& address);
void aclDelIpAddrToLineCardDbase(uint32_t ifindex, const aclAddress& address);

// The global list, in the order added; what is forgotten is not in it.
aclIpaddInfo* aclIpaddInfoFind(uint32_t ifindex, const aclAddress& address);
aclIpaddInfo* aclIpaddInfoFindFirst();
aclIpaddInfo* aclIpaddInfoFindNext(const aclIpaddInfo* info);
// Of every address one record (forgotten or not), in the order of the addresses; null first.
const aclIpaddInfo* aclAddressNext(const aclIpaddInfo* after);
// Whether the address is in use on any interface, by the index.
bool aclAddressIsInstalled(const aclAddress& address);
// Whether it is so on the port's LAG or on a VLAN of either.
bool aclAddressIsInstalledFor(uint32_t port, const aclAddress& address);

// The source address of an agent: the lowest on the control processor's interfaces, else the lowest
// of all; 0 when there is none.
uint32_t aclAgentSourceAddress();
// Messages 20417 and 8402 are answered with it.
void AclSflowAgentIpfill(uint8_t* message);
void AclSnmpTrapAgentIpfill(uint8_t* message);

// Text: the addresses by interface; the global list; the interfaces of one address.
std::string aclPrintIPAddInterfaceDB();
std::string aclPrintLinecardDB();
std::string aclDumpIp(const aclAddress& address);

// --- entries (addressEntries.cpp) ----------------------------------------------------------------

// Cards of type 1 do not know it.
constexpr uint32_t ENTRY_OPTION_BIT = 0x20;  // in the word at 40 of an IPv4 block

// Adds (deletes) 1 to 2 entries in the global system list, under their kind code, and sends those
// that this changed to every card. 0 whatever becomes of the sends; -1 when an add found no memory.
int AclSendEntriesToAllLinecards(ipEntryBlock* entries, uint32_t count, uint32_t kind, bool add);
int AclSendEntriesToAllLinecards(ip6EntryBlock* entries, uint32_t count, uint32_t kind, bool add);
// Every step of an address, in order. Add: the steps whose condition holds, until memory is short
// (-1). Delete: whatever there is.
int aclAddressInstall(const aclAddress& address, bool add);
// Its DHCP step alone.
int aclAddressInstallDhcp(const aclAddress& address, bool add);
// The entries of one address, in their order, as the conditions are now.
void aclAddressEntries(const aclAddress& address, aclSystemEntries* out);
// That of its DHCP step, trapped or not.
aclSystemEntries aclAddressDhcpEntries(const aclAddress& address);

// Which entries of "Global Acl" a card takes, as a whole and at its ports: one of type 1 lacks
// those with the option bit, but in slot 0.
bool (*aclEntriesTakenBy(uint32_t slot))(const ipEntryBlock& block);
// What a new card is to hold: "Global Acl" with the entries of all addresses as the card takes
// them, and the entries of its ports. ("v6 Global Acl" comes whole with SysListRegistration.) A
// read lock is enough.
void aclSendGlobalAclToNewLineCard(uint32_t slot);
