// What the stores need from parts of the manager above them: declared here so that a store never
// includes a folder that depends on it.
#pragma once

#include "common/list.h"
#include "common/node.h"

// Tells every client of a list that it has changed (route maps are re-evaluated). ipv6 is a flag,
// 0 or 1. Null list: nothing. Returns 0, or -1 when a send failed.
int aclTrigger(aclList* list, uint32_t ipv6);

// The list's copies at the management tasks: SNMP 18, IPM 87, SYSADM 33.
void aclSendListToSNMP(aclList* list, uint32_t messageId, const aclBinding* binding);
void aclSendEntToSNMP(aclList* list, const aclEntry* entry, uint32_t messageId,
                      const aclBinding* binding);
void aclSendListToIPM(aclList* list, uint32_t messageId, const aclBinding* binding);
void aclSendListToSYSADMTSk(aclList* list, uint32_t messageId);
void aclSendEntToSYSADMTSK(aclList* list, const aclEntry* entry, uint32_t messageId);
// The same for IPv6 lists, of which IPM keeps none.
void aclV6SendListToSNMP(aclList* list, uint32_t messageId, const aclBinding* binding);
void aclV6SendEntToSNMP(aclList* list, const acl6Entry* entry, uint32_t messageId,
                        const aclBinding* binding);
void aclV6SendListToSYSADMTSK(aclList* list, uint32_t messageId);
void aclV6SendEntToSYSADMTSK(aclList* list, const acl6Entry* entry, uint32_t messageId);

// IPM gets whole lists only: while it has not answered the one before, a list is behind, and its
// newest state follows when it has. The replay sends at once.
void aclReplayListToIPM(aclList* list, const aclBinding* binding);
// Takes one list that is behind at an instance which has answered everything; false: none.
bool aclNextListBehind(uint32_t instance, listName* name);
// Every list that a management task is a client of, to that task; lists that are behind, when their
// task has answered. A read lock is enough.
void aclSendListsToTask(uint32_t application, uint32_t instance);
void aclServeListsBehind();

// The member ports of a LAG in the order in which they joined, *count of them; null and 0 when the
// LAG is not known or empty. Good until the lock is released.
const uint32_t* aclLagMembers(uint32_t lagIfindex, uint32_t* count);
// A list (entry null) or one of its entries to the port pipes of an ACL VLAN group, 1-8. 0 or -1.
int aclSendToVlanGroup(aclList* list, const aclEntry* entry, uint32_t groupId, uint32_t messageId);

// Replays every list that concerns a card, and the active DoS list, to the card's agent. A read
// lock is enough.
void AclUpdateAclAgent(uint32_t slot);
