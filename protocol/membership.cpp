// Members of VLANs and LAGs as the cards' MAC agents know them: see membership.h.
#include "protocol/membership.h"

#include "common/debug.h"
#include "download/zekacl_download.h"
#include "include/ifmMsg.h"

namespace {

macMemberMsg messageOf(uint32_t port, uint32_t vlanId, uint32_t mcastId, bool add) {
    macMemberMsg message{};
    message.add = add ? 1 : 0;
    message.port = port;
    message.vlan = vlanId;
    message.mcastId = mcastId;
    return message;
}

// One port, to its card's agent.
void sendPort(uint32_t port, uint32_t vlanId, uint32_t mcastId, bool add) {
    const int slot = ifindexSlot(port);
    if (slot == SLOT_NONE || mcastId == 0) return;
    const macMemberMsg message = messageOf(port, vlanId, mcastId, add);
    (void)aclSendToMacAgent(static_cast<uint32_t>(slot), MT_MAC_MEMBER, &message, sizeof message);
}

// Whether the port is a member of the place: itself, or by its LAG.
bool isMember(uint32_t port, uint32_t wanted) {
    bool found = false;
    aclForPlacesOf(port, [&](uint32_t place) { found |= place == wanted; });
    return found;
}

// The ports behind a member. One that is a member in another way, too, stays.
void sendMember(const aclVlan& vlan, uint32_t member, bool add) {
    if (vlan.mcastId == 0) return;
    aclWalkPorts(member, [&](uint32_t port) {
        if (add || !isMember(port, vlan.ifindex))
            sendPort(port, ifindexPort(vlan.ifindex), vlan.mcastId, add);
    });
}

template <class Fn>
void forMembers(const aclVlan& vlan, Fn&& fn) {
    for (aclVlanMember* m = aclVlanInfoTreeFindFirst(&vlan); m != nullptr;
         m = aclVlanInfoTreeFindNext(&vlan, m->ifindex))
        fn(*m);
}

}  // namespace

void aclAddDelMcastGrpIdVlan(uint32_t vlanIfindex, uint32_t mcastId, bool add) {
    aclVlan* vlan = add ? aclVlanObtain(vlanIfindex) : aclVlanTreeFind(vlanIfindex);
    if (vlan == nullptr) return;
    const uint32_t told = add ? mcastId : vlan->mcastId;
    vlan->mcastId = add ? mcastId : 0;
    forMembers(*vlan, [&](aclVlanMember& member) { member.mcastId = vlan->mcastId; });
    aclWalkPorts(vlanIfindex,
                 [&](uint32_t port) { sendPort(port, ifindexPort(vlanIfindex), told, add); });
}

void aclAddDelMcastGrpIdLAG(uint32_t lagIfindex, uint32_t mcastId, bool add) {
    aclIntf* lag = add ? aclAddLagIntfPtToTree(lagIfindex) : AclIntfTreeFind(lagIfindex);
    if (lag == nullptr) return;
    if (add) lag->mcastId = mcastId;
    for (uint32_t port : lag->lagMembers) aclSendLagMember(lagIfindex, port, add);
    if (!add) lag->mcastId = 0;
}

void aclIfmAddDelMgid(uint32_t ifindex, uint32_t mcastId, uint32_t type) {
    // Id 0 is none: the members go.
    const bool add =
        mcastId != 0 && (type == IFM_SVC_ADD_VLAN_MGID || type == IFM_SVC_ADD_LAG_MGID);
    const bool ofVlan = type == IFM_SVC_ADD_VLAN_MGID || type == IFM_SVC_DEL_VLAN_MGID;
    if (ifindexType(ifindex) != (ofVlan ? IF_TYPE_VLAN : IF_TYPE_LAG)) return;
    if (ofVlan)
        aclAddDelMcastGrpIdVlan(ifindex, mcastId, add);
    else
        aclAddDelMcastGrpIdLAG(ifindex, mcastId, add);
}

void aclSendVlanMember(uint32_t vlanIfindex, uint32_t member, bool add) {
    const aclVlan* vlan = aclVlanTreeFind(vlanIfindex);
    if (vlan == nullptr) return;
    if (vlan->mcastId == 0) {
        aclDebug(DEBUG_ACL_GENERAL, "Inside %s:%d:%s mcastId is 0 ", "membership", __LINE__,
                 __func__);
        aclDebug(DEBUG_ACL_GENERAL, "%s", "not sending message to mac-agent\r\n");
    }
    sendMember(*vlan, member, add);
}

void aclSendLagMember(uint32_t lagIfindex, uint32_t port, bool add) {
    const aclIntf* lag = AclIntfTreeFind(lagIfindex);
    if (lag == nullptr) return;
    sendPort(port, 0, lag->mcastId, add);
}

void aclAddDelVlanMemNotifToAclAgent(uint32_t member, uint32_t vlanId) {
    const aclVlan* vlan = aclVlanTreeFind(ifindexMake(IF_TYPE_VLAN, vlanId));
    if (vlan == nullptr) return;
    forMembers(*vlan, [vlan, member](const aclVlanMember& m) {
        if (member == 0 || m.ifindex == member) sendMember(*vlan, m.ifindex, true);
    });
}

void aclForMembersOf(uint32_t slot, const std::function<void(const macMemberMsg& member)>& fn) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex)) {
        const uint32_t port = i->ifindex;
        if (port < SLOT_COUNT || ifindexSlot(port) != static_cast<int>(slot)) continue;
        auto member = [&](uint32_t vlanId, uint32_t mcastId) {
            if (mcastId != 0) fn(messageOf(port, vlanId, mcastId, true));
        };
        aclForPlacesOf(port, [&](uint32_t place) {
            const aclIntf* lag = place == i->lag ? AclIntfTreeFind(place) : nullptr;
            if (lag != nullptr) member(0, lag->mcastId);
            if (const aclVlan* vlan = aclVlanTreeFind(place))
                member(ifindexPort(place), vlan->mcastId);
        });
    }
}

void aclReplayMembership(uint32_t slot) {
    aclForMembersOf(slot, [slot](const macMemberMsg& member) {
        (void)aclSendToMacAgent(slot, MT_MAC_MEMBER, &member, sizeof member);
    });
}
