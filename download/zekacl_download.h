// The send path to the ACL agents of the line cards.
//
// Sends never fail the change that caused them: a card that cannot be reached is brought up to
// date when its agent registers.
#pragma once

#include <cstdint>

#include "include/list.h"

enum agentMsgId : uint32_t {
    MT_ACL_ADDLIST = 14409,
    MT_ACL_ADDENT = 14410,
    MT_ACL_DELENT = 14411,
    MT_ACL_DELLIST = 14412,
    MT_ACL_SYS_ADDLIST = 14413,
    MT_ACL_SYS_ADDENT = 14414,
    MT_ACL_SYS_DEL = 14415,
    MT_ACL_EGR_ADDLIST = 14416,
    MT_ACL_EGR_ADDENT = 14417,
    MT_ACL_EGR_DELENT = 14418,
    MT_ACL_EGR_DELLIST = 14419,
    MT_DOS_ADDLIST = 14420,
    MT_DOS_ADDENT = 14421,
    MT_DOS_DELLIST = 14422,
    MT_DOS_DELENT = 14423,
    MT_ACL_V6_SYS_ADDLIST = 14530,
};

// A whole list to the card of an interface. `flag` is 1 from every caller; `option` is the
// implicit-permit word (header 364), `portPipe` the option byte (header 909), `groupId` a VLAN
// group 1-8 or 0. 0 or -1.
int aclSendToAclAgent(aclList* list, uint32_t ifindex, uint32_t flag, uint32_t messageId,
                      uint32_t option, uint32_t portPipe, uint32_t groupId);
// One entry of the list named. `count` goes out for 14414 and 14415 only (else 1).
int aclSendEntToAclAgent(const aclEntry* entry, uint32_t ifindex, uint32_t messageId,
                         uint32_t count, uint32_t portPipe, uint32_t groupId, const listName& name);
// The same to every member port of a VLAN. `flag` and `ipv6` are 0 / 1.
int aclSendVlanAclToAclAgent(aclList* list, uint32_t vlanIfindex, uint32_t flag, uint32_t messageId,
                             uint32_t implicitPermit, uint32_t ipv6);
int aclSendVlanAclEntToAclAgent(const aclEntry* entry, uint32_t vlanIfindex, uint32_t flag,
                                uint32_t messageId, uint32_t count, uint32_t ipv6,
                                const listName& name);
// A DoS list, or one of its entries (null: the list), to the agent of every card.
int dosSendToAllAgents(aclList* list, const aclEntry* entry, uint32_t messageId);
// An IPv6 list to a slot's agent.
int aclV6SendListToAclAgent(uint32_t ifindex, aclList* list, uint32_t messageId, uint32_t slot,
                            int portPipe, uint32_t option);
