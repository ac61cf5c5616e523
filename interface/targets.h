// Who receives what is bound to a place: the only answer to that question.
//
// A port's list goes to its card; a LAG's to the card of each member, from the last that joined to
// the first, under the member's own index, unless the member has a list of its own there; a VLAN's
// once to each card that has a member port, on behalf of the VLAN; an ACL VLAN group's once to each
// card behind its VLANs, on behalf of the group, in a chassis that has groups. The caller holds
// acl_rwlock.
#pragma once

#include <array>
#include <bitset>

#include "common/linecard.h"
#include "common/node.h"
#include "interface/interface.h"

struct aclPlace {
    uint32_t ifindex;      // port, LAG, VLAN or control processor
    uint32_t direction;    // intfDirection
    uint32_t groupId = 0;  // 1-8: an ACL VLAN group, in the place of an interface
};
// Whether each card behind the place receives one message, however many ports it has there.
constexpr bool aclPlaceIsByCard(const aclPlace& place) {
    return place.groupId != 0 || ifindexType(place.ifindex) == IF_TYPE_VLAN;
}

// An agent, and what it is told of the place.
struct aclTarget {
    uint32_t ifindex;      // what the agent knows the place by; decides the card
    int slot = SLOT_NONE;  // decides the card in the place of ifindex
    uint32_t pipe = 0;     // the port's forwarding pipe, of which a byte is sent
    uint32_t vlan = 0;     // the VLAN on whose behalf
    uint32_t groupId = 0;  // the ACL VLAN group, 1-8
    bool refused = false;  // the card does not take such a list
};

// The forwarding pipe of a port; all ones when the chassis does not have the port.
uint32_t aclPortPipe(uint32_t ifindex);

// The cards behind a VLAN or a group: the targets that its list goes to (non-zero), and the slots
// whose cards refuse it.
constexpr uint32_t PP_TARGETS = 64;
using aclPPBitMap = std::array<uint32_t, PP_TARGETS>;
struct aclPlaceCards {
    aclPPBitMap map{};
    std::bitset<SLOT_COUNT> refused;
};
struct aclTargetQuery {
    aclPlace place;
    uint32_t family;  // intfFamily
    bool entry;       // a single entry is sent, not a list
    // Of all targets only those of one card, or of one member of the VLAN (a LAG or a port).
    int onlySlot = SLOT_NONE;
    uint32_t onlyMember = 0;
    const aclPPBitMap* without = nullptr;  // of a VLAN or a group: targets that are left out
};

// All targets but these.
aclPPBitMap aclOtherTargets(const aclPPBitMap& map);
aclPlaceCards aclGetPPBitMap(const aclTargetQuery& query);
aclPlaceCards aclGetVlanGrpPortPipe(const aclTargetQuery& query);
// The group, or null.
const aclVlanGroup* aclFindAclVlanGrpFromCugID(uint32_t id);
// The target of one port; refused: not its card's to take.
aclTarget aclTargetOfPort(const aclTargetQuery& query, uint32_t port, int slot);

// Calls fn(target) for every target, those that refuse the list included.
template <class Fn>
void aclForTargets(const aclTargetQuery& query, Fn&& fn) {
    const uint32_t bound = query.place.ifindex, group = query.place.groupId;
    if (!aclPlaceIsByCard(query.place))
        return aclWalkPorts(bound, [&](uint32_t port) {
            const int slot = ifindexSlot(port);
            if (slot == SLOT_NONE || (query.onlySlot != SLOT_NONE && slot != query.onlySlot))
                return;
            if (port != bound && aclPortHasOwnList(port, query.family, query.place.direction))
                return;
            fn(aclTargetOfPort(query, port, slot));
        });
    const aclPlaceCards cards = group != 0 ? aclGetVlanGrpPortPipe(query) : aclGetPPBitMap(query);
    const uint32_t pipe = query.family == INTF_V6 ? 0xFF : 0;
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (cards.refused.test(slot))
            fn(aclTarget{slot, static_cast<int>(slot), pipe, bound, group, true});
    for (uint32_t target = 0; target < PP_TARGETS; target++)
        if (cards.map[target] != 0) fn(aclTarget{target, SLOT_NONE, pipe, bound, group});
}
