// The router's own addresses: records per interface and of the whole box, and the permit entries
// that lead packets to them to the control processor.
//
// Each address has its entries once in "Global Acl" ("v6 Global Acl") of the control processor and
// of every card, on however many interfaces it is, and at each member port of a LAG or VLAN that
// has it. The caller holds the write lock; for the walks and dumps the read lock.
#pragma once

#include <string>

#include "interface/interface.h"
#include "protocol/systemEntries.h"

// --- from the interface manager ---
// Adding what is there already changes nothing; nor does removing what is not.
void aclAddIpAddrFromIFM(uint32_t ifindex, uint32_t address);
void aclDelIpAddrFromIFM(uint32_t ifindex, uint32_t address);
void aclAddIPV6AddFromIFM(uint32_t ifindex, const uint8_t address[16], uint32_t prefixLength);
void aclDelIPV6AddFromIFM(uint32_t ifindex, const uint8_t address[16], uint32_t prefixLength);
// Every address of an interface that is no more.
void aclDelAllAddressesOf(uint32_t ifindex);
// A protocol's disable forgets an address: the record only, not its entries.
void aclDelIpaddInfoToTree(uint32_t ifindex, uint32_t address);

// --- members of LAGs and VLANs, which have joined or are about to leave ---
void aclL3VlanUpdateAgentForIpAddress(uint32_t vlanIfindex, uint32_t member, bool add);
void aclL3LagUpdateAgentForIpAddr(uint32_t lagIfindex, uint32_t port, bool add);
// A VLAN without members does not use its addresses: the last member's leaving withdraws them, the
// first one's joining brings them back.
void aclVlanHasMembers(uint32_t vlanIfindex, bool any);

// --- replays and questions ---
// What SysListRegistration leaves to be sent: the entries of all addresses, as the card takes them.
void aclSendGlobalAclToNewLineCard(uint32_t slot);
// The entries of one address, in their order (systemEntries.cpp asks).
void aclAddressEntries(const aclAddress& address, aclSystemEntries* out);
// Packets to UDP port 67 of every address are trapped, or not any more (`acl_dhcp`).
int aclTrapDhcp(bool enable);
// The source address of an agent: the lowest on the control processor's interfaces, else the lowest
// of all; 0 when there is none.
uint32_t aclAgentSourceAddress();

std::string aclPrintIPAddInterfaceDB();
std::string aclPrintLinecardDB();
