// Members of VLANs and LAGs as the cards' MAC agents know them: those whose multicast group has an
// id. The caller holds acl_rwlock.
#pragma once

#include <functional>

#include "interface/interface.h"

// The group id of a VLAN or LAG is set (its members are told to the MAC agents) or taken away.
void aclAddDelMcastGrpIdVlan(uint32_t vlanIfindex, uint32_t mcastId, bool add);
void aclAddDelMcastGrpIdLAG(uint32_t lagIfindex, uint32_t mcastId, bool add);
// Types 49 to 52 of the interface manager.
void aclIfmAddDelMgid(uint32_t ifindex, uint32_t mcastId, uint32_t type);

// One member's addition or removal, to the cards of its ports. Nothing without a group id.
void aclSendVlanMember(uint32_t vlanIfindex, uint32_t member, bool add);
void aclSendLagMember(uint32_t lagIfindex, uint32_t port, bool add);
// The members of a VLAN again; `member` 0: all of them.
void aclAddDelVlanMemNotifToAclAgent(uint32_t member, uint32_t vlanId);
// Calls fn for every membership of the slot's ports.
void aclForMembersOf(uint32_t slot, const std::function<void(const macMemberMsg& member)>& fn);
// All of them to its MAC agent, in a replay.
void aclReplayMembership(uint32_t slot);
