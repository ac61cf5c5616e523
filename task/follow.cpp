// What follows from an event: one table of steps for each, run from the top to the bottom. The
// order is what agents and tasks see. A step whose subsystem is not built yet stands in its place
// and does nothing.
#include "task/follow.h"

#include <span>

#include "common/linecard.h"
#include "download/zekacl_download.h"
#include "include/service.h"
#include "interface/interface.h"
#include "ipacl/zekvlangroup.h"
#include "platform/api/zekCfg.h"
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
    {"PIM-assert entries", nullptr},
    {"protocol trapping, to the MAC agent", nullptr},
    {"DHCP-snooping configuration", nullptr},  // when snooping is enabled
    {"DAI", nullptr},
    {"DHCP-snooping nodes", nullptr},
    {"bound lists", [](uint32_t slot) { AclUpdateAclAgentExt(slot); }},
    {"UDP helper", nullptr},
    {"STP enables", nullptr},
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
         aclReplayToControlPlane();
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

// The first step of each changes the membership: one that changes nothing ends the event.

constexpr memberStep lagJoined[] = {
    {"member of the LAG, and the LAG's lists to its card", aclLagPortJoined},
};

constexpr memberStep lagLeft[] = {
    {"member no more, and the LAG's lists from its card", aclLagPortLeft},
};

constexpr memberStep vlanJoined[] = {
    {"member of the VLAN", aclVlanMemberAdd},
    {"the VLAN's interface addresses to its card", nullptr},
    {"member to the MAC agent", nullptr},
    {"UDP helper", nullptr},
    {"PIM-assert entries", nullptr},
    {"IPv6 link-local entries", nullptr},
    {"the VLAN's bound lists to its card",
     [](uint32_t vlan, uint32_t member) {
         aclVlanMemberJoined(vlan, member);
         return 0;
     }},
    {"the list of the VLAN's group",
     [](uint32_t vlan, uint32_t member) {
         aclVlanGroupMemberJoined(vlan, member);
         return 0;
     }},
    {"DHCP snooping", nullptr},
};

// --- running them -------------------------------------------------------------------------------

void run(std::span<const agentStep> steps, uint32_t agent) {
    for (const agentStep& step : steps)
        if (step.run != nullptr) step.run(agent);
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

void aclFollowPrimaryBack(uint32_t slot) {
    run(primaryBack, slot);
}

int aclFollowLagJoined(uint32_t lagIfindex, uint32_t port) {
    return run(lagJoined, lagIfindex, port);
}

int aclFollowLagLeft(uint32_t lagIfindex, uint32_t port) {
    return run(lagLeft, lagIfindex, port);
}

int aclFollowVlanJoined(uint32_t vlanIfindex, uint32_t member) {
    return run(vlanJoined, vlanIfindex, member);
}

int aclFollowVlanLeft(uint32_t vlanIfindex, uint32_t member) {
    return aclVlanMemberRemove(vlanIfindex, member);
}

void aclFollowVlanGone(uint32_t vlanIfindex) {
    if (aclVlan* vlan = aclVlanTreeFind(vlanIfindex)) aclVlanDrop(vlan);
}

void aclFollowLagGone(uint32_t lagIfindex) {
    if (aclIntf* lag = AclIntfTreeFind(lagIfindex)) aclIntfDrop(lag);
}
