// ACL VLAN groups: at most 8, each with member VLANs and one egress IPv4 list.
//
// They are kept, shown and saved in every chassis and sent to the cards in one whose chassis mode
// is CHASSIS_MODE_VLAN_GROUPS. Every operation returns a status of include/status.h; a refusal
// leaves no trace. The caller holds the write lock, of shows and replays the read lock.
#pragma once

#include <string>
#include <vector>

#include "common/node.h"
#include "ipacl/zekipaccess.h"

// id: 1-8, or 0 for the first that is free; a group that is there keeps the one that it has. A
// group with members or a list is not deleted: ACL_E_GROUP_USED.
uint32_t aclCreateDelAclVlanGrp(const listName& name, uint32_t id, bool create);
// All of the VLANs or, with a refusal, none. VLANs that are members are added again without effect.
uint32_t aclAddDelAclVlanGrpMember(const listName& name, const bindingVlans& vlans, bool add);
// A list that does not exist is applied as a placeholder, which goes with its last client. Another
// list takes the place of the one before.
uint32_t aclApplyRemoveAclVlanGrp(const listName& name, const listName& list,
                                  uint32_t implicitPermit, bool apply);

// Results as aclShowIpAcl and aclShowIpAclAll; ACL_E_NOGROUP behind the last. The Detail variants
// name the cards behind the group.
uint32_t aclShowAclVlanGrpSpecific(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowAclVlanGrpSpecificDetail(const listName& name, void** buffer, uint32_t* size);
uint32_t aclShowAclVlanGrpAll(const listName& cursor, void** buffer, uint32_t* size);
uint32_t aclShowAclVlanGrpAllDetail(const listName& cursor, void** buffer, uint32_t* size);
// The group with the smallest name above this one, or null; its members as lines of ranges; its
// list's binding, or null.
const aclVlanGroup* aclVlanGroupNext(const listName& cursor);
std::vector<std::string> aclVlanGroupMembers(const aclVlanGroup& group);
const aclBinding* aclVlanGroupBinding(const aclVlanGroup& group);

// Whether a VLAN of an egress binding (its interface, or one that it is limited to) belongs to a
// group: ACL_E_GROUP_VLAN.
uint32_t aclCheckVlanGrpClash(const aclBindRequest& request);
// Whether a VLAN has an egress list, of its own or of a port that filters what leaves it in that
// VLAN: ACL_E_GROUP_EGRESS.
uint32_t aclCheckForVlanAndMemberConfigurations(const vlanSet& vlans);

// The lists of all groups again, to one card; the list of the VLAN's group, to the cards of a
// member that has joined the VLAN, or from those of one that has left and where nobody else is.
void aclVlanGroupReplay(uint32_t slot);
void aclVlanGroupMemberJoined(uint32_t vlanIfindex, uint32_t member);
void aclVlanGroupMemberLeft(uint32_t vlanIfindex, uint32_t member);
