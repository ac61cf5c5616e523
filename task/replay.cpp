// What an agent is to hold, sent whole: when it has registered, when it says that it needs
// it, when its queue has lost something, and when the primary role has come back.
#include "common/linecard.h"
#include "download/zekacl_download.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

struct replayStep {
    const char* what;
    void (*run)(uint32_t slot);  // null: the subsystem is not built yet, there is nothing to send
    bool always = true;          // false: only after a registration, as it is not for the agent
};
// In this order.
constexpr replayStep replay[] = {
    {"card state to the peer", [](uint32_t slot) { (void)aclSendUpdateToPeer(slot); }, false},
    {"card to the MAC manager", [](uint32_t slot) { (void)aclSendLinecardInfoToMacMgr(slot); },
     false},
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
    {"egress MAC lists enable", nullptr},
};

void replayToCard(uint32_t slot, bool registered) {
    for (const replayStep& step : replay) {
        if (step.run == nullptr || !(step.always || registered)) continue;
        aclDebug(DEBUG_ACL_IPC, "linecard %d: %s\r\n", static_cast<int>(slot), step.what);
        step.run(slot);
    }
}

// The ingress list of the control-processor interface, to its own agent.
void aclDownloadCfgtoAcl0() {
    aclLockHeld<aclLock::read> held;
    aclReplayToControlPlane();
}

}  // namespace

void aclReplayToAgent(uint32_t agent, bool registered) {
    // The MAC agent of a card is sent nothing yet but starts over with it.
    const zekSwpHandle queues[] = {
        aclAgentQueueOf(agent), agent == AGENT_CP ? ZEK_SWP_NONE : aclLinecardInfo[agent].macAgent};
    aclAgentStateOf(agent)->owed = false;
    for (zekSwpHandle queue : queues) zekSwpReplayBegin(queue);
    aclSendReplayMark(agent, AGENT_REPLAY_BEGIN);
    if (agent == AGENT_CP)
        aclDownloadCfgtoAcl0();
    else
        replayToCard(agent, registered);
    // What was lost on the way has made the replay void.
    if (zekSwpQueueState(queues[0]) == zekSwpState::inStep)
        aclSendReplayMark(agent, AGENT_REPLAY_END);
    for (zekSwpHandle queue : queues) zekSwpReplayEnd(queue);
}

void aclReplayOwed() {
    if (!aclMayDownload()) return;
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (aclLinecardInfo[slot].state.owed) aclReplayToAgent(slot, false);
}
