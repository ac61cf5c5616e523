// What follows from an event: one table of steps for each, run from the top to the bottom. The
// order is what agents and tasks see. A step whose subsystem is not built yet stands in its place
// and does nothing.
#include "task/follow.h"

#include <span>
#include <vector>

#include "common/linecard.h"
#include "download/zekacl_download.h"
#include "include/service.h"
#include "interface/interface.h"
#include "ipacl/zekvlangroup.h"
#include "platform/api/zekCfg.h"
#include "protocol/AclIpAdd.h"
#include "protocol/membership.h"
#include "protocol/relays.h"
#include "protocol/zekprotocol.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

enum class stepWhen { always, registered };

struct agentStep {
    const char* what;
    void (*run)(uint32_t agent);  // null: not built yet
    // What is not for the agent itself is said after a registration only, not in every replay.
    stepWhen when = stepWhen::always;
};

struct memberStep {
    const char* what;
    int (*run)(uint32_t aggregate, uint32_t member);  // null: not built yet
};

void replayWhole(uint32_t agent) {
    aclReplayToAgent(agent, true);
}
void retryUnresolved(uint32_t) {
    zekCfgRetryUnresolved();
}
void replayToMacAgent(uint32_t slot) {
    aclLockHeld<aclLock::read> held;
    AclUpdateMacAgentForProtocols(slot);
    aclReplayMembership(slot);
}
void updatePeer(uint32_t slot) {
    (void)aclSendUpdateToPeer(slot);
}

// --- an agent has registered --------------------------------------------------------------------

constexpr agentStep agentUp[] = {
    {"what it is to hold: cardReplay or controlReplay below", replayWhole},
    // Also bindings to a control plane that took no lists until now.
    {"lines that the chassis refused without it", retryUnresolved},
};

// --- what a card's agents are to hold -----------------------------------------------------------

constexpr agentStep cardReplay[] = {
    {"card state to the peer", updatePeer, stepWhen::registered},
    // In every replay: it brings the card's limits again, which nobody else keeps.
    {"card to the MAC manager", [](uint32_t slot) { (void)aclSendLinecardInfoToMacMgr(slot); }},
    {"system lists", [](uint32_t slot) { (void)SysListRegistration(slot); }},
    {"interface addresses",
     [](uint32_t slot) {
         aclLockHeld<aclLock::read> held;
         aclSendGlobalAclToNewLineCard(slot);
     }},
    {"PIM-assert entries", nullptr},
    {"protocol trapping and memberships, to the MAC agent", replayToMacAgent},
    {"DHCP-snooping configuration", nullptr},  // when snooping is enabled
    {"DAI", nullptr},
    {"DHCP-snooping nodes", nullptr},
    {"bound lists", [](uint32_t slot) { AclUpdateAclAgentExt(slot); }},
    {"UDP helper", nullptr},
    {"STP enables", AclUpdateAclAgentForStpProtocolEnable},
    {"global IPv6 configuration", nullptr},
    {"PIM configuration parameters", nullptr},
    {"policy-based routing", nullptr},
    {"DHCP snooping: enable", nullptr},  // these six when snooping is enabled
    {"DHCP snooping: MAC check", nullptr},
    {"DHCP snooping: table full", nullptr},
    {"DHCP snooping: trusted ports", nullptr},
    {"DHCP snooping: forwarding entries", nullptr},
    {"DHCP snooping: pending updates", nullptr},
    {"egress MAC lists enable",
     [](uint32_t slot) {
         aclSendEgrMacEnableToAclAgent(aclNode->config.l2_user_egr_acl_enable,
                                       static_cast<int>(slot));
     }},
};

// --- what the control processor's agent is to hold ----------------------------------------------

constexpr agentStep controlReplay[] = {
    {"the list of its interface",
     [](uint32_t) {
         aclLockHeld<aclLock::read> held;
         aclDownloadCfgtoAcl0();
     }},
};

// --- a card goes down ---------------------------------------------------------------------------

// Record 19 also keeps the control processor's agent: it is forgotten with the card, so that it can
// register anew and be brought up to date.
void forgetControlAgent(uint32_t slot) {
    if (slot != LINECARD_CP) return;
    if (aclNode->queues.acl0qHandle != ZEK_SWP_NONE) zekSwpQueueRemove(aclNode->queues.acl0qHandle);
    aclNode->queues.acl0qHandle = ZEK_SWP_NONE;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = ADDRESS_UNKNOWN;
    aclLinecardInfo[LINECARD_CP].agent0State = {};
    aclNode->standing.acl0Registered = 0;
}

constexpr agentStep cardDown[] = {
    {"its agents forgotten: queues, address, what they lack", aclLinecardClear},
    {"with record 19 the control processor's agent, too", forgetControlAgent},
    {"card state to the peer", updatePeer},
};

// --- the primary role is back -------------------------------------------------------------------

// Nothing was sent to cards meanwhile: another manager has, and they may hold anything.
constexpr agentStep primaryBack[] = {
    {"what the card is to hold: cardReplay above",
     [](uint32_t slot) { aclReplayToAgent(slot, false); }},
};

// --- a member joins or leaves -------------------------------------------------------------------

// The first step of each changes the membership: one that changes nothing ends the event. Whoever
// leaves is a member no more when the other steps ask who is.

// A step that cannot end its event.
template <auto Run>
int always(uint32_t aggregate, uint32_t member) {
    Run(aggregate, member);
    return 0;
}
template <auto Run, bool ADD>
int always(uint32_t aggregate, uint32_t member) {
    Run(aggregate, member, ADD);
    return 0;
}

// What a VLAN gives a member, or a port of a LAG that is a member.
constexpr memberStep vlanToMember[] = {
    {"the VLAN's interface addresses", always<aclL3VlanUpdateAgentForIpAddress, true>},
    {"the VLAN's protocols", always<aclProtocolVlanMember, true>},
    {"member to the MAC agent", always<aclSendVlanMember, true>},
    {"UDP helper", nullptr},
    {"PIM-assert entries", nullptr},
    {"IPv6 link-local entries", nullptr},
    {"the VLAN's bound lists", always<aclVlanMemberJoined>},
    {"the list of the VLAN's group", always<aclVlanGroupMemberJoined>},
    {"DHCP snooping", nullptr},
};
constexpr memberStep vlanFromMember[] = {
    {"the VLAN's bound lists", always<aclVlanMemberLeft>},
    {"the list of the VLAN's group", always<aclVlanGroupMemberLeft>},
    {"DHCP snooping", nullptr},
    {"the VLAN's interface addresses", always<aclL3VlanUpdateAgentForIpAddress, false>},
    {"the VLAN's protocols", always<aclProtocolVlanMember, false>},
    {"UDP helper", nullptr},
    {"IPv6 link-local entries", nullptr},
    {"PIM-assert entries", nullptr},
    {"member to the MAC agent", always<aclSendVlanMember, false>},
};

// Addresses of a VLAN without members are not in use.
int vlanIsUsed(uint32_t vlanIfindex, uint32_t member) {
    const aclVlan* vlan = aclVlanTreeFind(vlanIfindex);
    const aclVlanMember* first = aclVlanInfoTreeFindFirst(vlan);
    if (first->ifindex == member && aclVlanInfoTreeFindNext(vlan, member) == nullptr)
        aclVlanHasMembers(vlanIfindex, true);
    return 0;
}
int vlanIsUnused(uint32_t vlanIfindex, uint32_t) {
    if (aclVlanInfoTreeFindFirst(aclVlanTreeFind(vlanIfindex)) == nullptr)
        aclVlanHasMembers(vlanIfindex, false);
    return 0;
}

int run(std::span<const memberStep> steps, uint32_t aggregate, uint32_t member);

int vlanJoinSteps(uint32_t vlan, uint32_t member) {
    return run(vlanToMember, vlan, member);
}
int vlanLeaveSteps(uint32_t vlan, uint32_t member) {
    return run(vlanFromMember, vlan, member);
}
// The VLANs of the LAG, as if the port had joined or left each of them.
template <auto Steps>
int vlansOfLag(uint32_t lagIfindex, uint32_t port) {
    if (const aclIntf* lag = AclIntfTreeFind(lagIfindex))
        aclForVlansOf(*lag, [port](uint32_t vlan) { (void)Steps(vlan, port); });
    return 0;
}

constexpr memberStep vlanJoined[] = {
    {"member of the VLAN", aclVlanMemberAdd},
    {"the VLAN's addresses, which the first member brings into use", vlanIsUsed},
    {"to the member: vlanToMember above", vlanJoinSteps},
};
constexpr memberStep vlanLeft[] = {
    {"member no more", aclVlanMemberRemove},
    {"from the member: vlanFromMember above", vlanLeaveSteps},
    {"the VLAN's addresses, when it was the last one", vlanIsUnused},
};

constexpr memberStep lagJoined[] = {
    {"member of the LAG, and the LAG's lists to its card", aclLagPortJoined},
    {"the LAG's interface addresses", always<aclL3LagUpdateAgentForIpAddr, true>},
    {"the LAG's protocols", always<aclProtocolLagMember, true>},
    {"member to the MAC agent", always<aclSendLagMember, true>},
    {"what the LAG's VLANs give a member", vlansOfLag<vlanJoinSteps>},
};
constexpr memberStep lagLeft[] = {
    {"member no more, and the LAG's lists from its card", aclLagPortLeft},
    {"what the LAG's VLANs give a member", vlansOfLag<vlanLeaveSteps>},
    {"the LAG's interface addresses", always<aclL3LagUpdateAgentForIpAddr, false>},
    {"the LAG's protocols", always<aclProtocolLagMember, false>},
    {"member to the MAC agent", always<aclSendLagMember, false>},
};

// --- a VLAN or a LAG is no more -----------------------------------------------------------------

// Every member of a VLAN leaves it.
void vlanEmptied(uint32_t vlanIfindex) {
    const aclVlan* vlan = aclVlanTreeFind(vlanIfindex);
    while (const aclVlanMember* member = vlan != nullptr ? aclVlanInfoTreeFindFirst(vlan) : nullptr)
        if (aclFollowVlanLeft(vlanIfindex, member->ifindex) != 0) return;
}
void leavesVlans(uint32_t ifindex) {
    for (;;) {
        const aclIntf* intf = AclIntfTreeFind(ifindex);
        uint32_t first = 0;
        if (intf != nullptr)
            aclForVlansOf(*intf, [&first](uint32_t vlan) { first = first != 0 ? first : vlan; });
        if (first == 0 || aclFollowVlanLeft(first, ifindex) != 0) return;
    }
}
void lagEmptied(uint32_t lagIfindex) {
    for (uint32_t count = 0; const uint32_t* ports = aclLagMembers(lagIfindex, &count);)
        if (aclFollowLagLeft(lagIfindex, ports[count - 1]) != 0) return;
}
void leavesLag(uint32_t port) {
    if (const uint32_t lag = aclLagOfPort(port)) (void)aclFollowLagLeft(lag, port);
}
void dropInterface(uint32_t ifindex) {
    if (aclIntf* intf = AclIntfTreeFind(ifindex)) aclIntfDrop(intf);
}
void dropVlan(uint32_t vlanIfindex) {
    if (aclVlan* vlan = aclVlanTreeFind(vlanIfindex)) aclVlanDrop(vlan);
    dropInterface(vlanIfindex);  // what kept its lists
}

struct placeStep {
    const char* what;
    void (*run)(uint32_t ifindex);
};
constexpr placeStep vlanGone[] = {
    {"its members leave", vlanEmptied},          {"its protocols", aclProtocolInterfaceGone},
    {"its addresses", aclDelAllAddressesOf},     {"its lists", aclRemoveAllFromInterface},
    {"its record, with the group id", dropVlan},
};
constexpr placeStep lagGone[] = {
    {"it leaves its VLANs", leavesVlans},        {"its lists", aclRemoveAllFromInterface},
    {"its protocols", aclProtocolInterfaceGone}, {"its addresses", aclDelAllAddressesOf},
    {"its members leave", lagEmptied},           {"its record", dropInterface},
};
// Memberships, protocols and addresses go first: cards must not keep them, and no record of others
// may name the interface.
constexpr placeStep portGone[] = {
    {"it leaves its VLANs", leavesVlans},
    {"it leaves its LAG", leavesLag},
    {"its protocols", aclProtocolInterfaceGone},
    {"its addresses", aclDelAllAddressesOf},
    {"its lists", aclRemoveAllFromInterface},
    {"its helper addresses", nullptr},
    {"its record", dropInterface},
};

// --- the primary role is lost -------------------------------------------------------------------

// Nobody tells this manager any more what changes in the chassis, and whoever is asked when the
// role is back tells everything anew. What is bound stays.
void forgetPlaces() {
    std::vector<uint32_t> places;
    for (const aclVlan* v = aclVlanTreeFindFirst(); v != nullptr;
         v = aclVlanTreeFindNext(v->ifindex))
        places.push_back(v->ifindex);
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex))
        places.push_back(i->ifindex);
    for (uint32_t place : places) {
        vlanEmptied(place);
        lagEmptied(place);
        aclProtocolInterfaceGone(place);
        aclDelAllAddressesOf(place);
        if (aclVlan* vlan = aclVlanTreeFind(place)) vlan->mcastId = 0;
        if (aclIntf* intf = AclIntfTreeFind(place)) intf->mcastId = 0;
    }
}

// --- running them -------------------------------------------------------------------------------

void run(std::span<const agentStep> steps, uint32_t agent) {
    for (const agentStep& step : steps)
        if (step.run != nullptr) step.run(agent);
}

void run(std::span<const placeStep> steps, uint32_t ifindex) {
    for (const placeStep& step : steps)
        if (step.run != nullptr) step.run(ifindex);
}

int run(std::span<const memberStep> steps, uint32_t aggregate, uint32_t member) {
    for (const memberStep& step : steps) {
        const int result = step.run != nullptr ? step.run(aggregate, member) : 0;
        if (result != 0) return result;
    }
    return 0;
}

}  // namespace

void aclFollowAgentUp(uint32_t agent) {
    run(agentUp, agent);
}

void aclFollowReplay(uint32_t agent, bool registered) {
    if (agent == AGENT_CP) return run(controlReplay, agent);
    for (const agentStep& step : cardReplay) {
        if (step.run == nullptr || (step.when == stepWhen::registered && !registered)) continue;
        aclDebug(DEBUG_ACL_IPC, "linecard %d: %s\r\n", static_cast<int>(agent), step.what);
        step.run(agent);
    }
}

void aclFollowCardDown(uint32_t slot) {
    run(cardDown, slot);
}

void aclFollowPrimaryLost() {
    forgetPlaces();
}

void aclFollowPrimaryBack(uint32_t slot) {
    run(primaryBack, slot);
}

namespace {

// An interface may be named by more than one index. One that has a record has the right one.
uint32_t knownAs(uint32_t ifindex) {
    return AclIntfTreeFind(ifindex) != nullptr ? ifindex : aclCanonicalIndex(ifindex);
}

}  // namespace

int aclFollowLagJoined(uint32_t lagIfindex, uint32_t port) {
    return run(lagJoined, knownAs(lagIfindex), knownAs(port));
}

int aclFollowLagLeft(uint32_t lagIfindex, uint32_t port) {
    return run(lagLeft, knownAs(lagIfindex), knownAs(port));
}

int aclFollowVlanJoined(uint32_t vlanIfindex, uint32_t member) {
    return run(vlanJoined, aclCanonicalIndex(vlanIfindex), knownAs(member));
}

int aclFollowVlanLeft(uint32_t vlanIfindex, uint32_t member) {
    return run(vlanLeft, aclCanonicalIndex(vlanIfindex), knownAs(member));
}

void aclFollowVlanGone(uint32_t vlanIfindex) {
    run(vlanGone, aclCanonicalIndex(vlanIfindex));
}

void aclFollowLagGone(uint32_t lagIfindex) {
    run(lagGone, aclCanonicalIndex(lagIfindex));
}

void aclFollowPortGone(uint32_t ifindex) {
    run(portGone, knownAs(ifindex));
}
