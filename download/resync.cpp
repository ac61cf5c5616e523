// What agents lack, and the marks around their replays: see zekacl_download.h.
#include "download/sendPath.h"
#include "platform/api/zekTask.h"

aclAgentState* aclAgentStateOf(uint32_t agent) {
    return agent == AGENT_CP ? &aclLinecardInfo[LINECARD_CP].agent0State
                             : &aclLinecardInfo[agent].state;
}

aclAgentQueues aclAgentQueuesOf(uint32_t agent) {
    if (agent == AGENT_CP) return {aclNode->queues.acl0qHandle, ZEK_SWP_NONE};
    return {aclLinecardInfo[agent].aclAgent, aclLinecardInfo[agent].macAgent};
}

void aclAgentLost(uint32_t agent) {
    // One that has no queue is sent everything when it registers.
    if (agent < AGENT_COUNT && aclAgentQueueOf(agent) != ZEK_SWP_NONE)
        zekSwpQueueLose(aclAgentQueueOf(agent));
}

bool aclMayDownload() {
    if (zekHaIsPrimaryRpm()) return true;
    for (aclLinecard& card : aclLinecardInfo) {
        if (card.state.owed || card.aclAgent == ZEK_SWP_NONE) continue;
        card.state.owed = true;
        // A session of nothing: what waited is another manager's to say now.
        for (zekSwpHandle queue : {card.aclAgent, card.macAgent}) {
            zekSwpReplayBegin(queue);
            zekSwpReplayEnd(queue);
        }
    }
    return false;
}

bool aclAgentNeeds(uint32_t agent, uint32_t replayWord) {
    aclAgentState& state = *aclAgentStateOf(agent);
    const uint32_t need = agentNeed(replayWord);
    const bool isNew = need != 0 && need != state.need;
    state.takesMarks = (replayWord & AGENT_TAKES_MARKS) != 0;
    if (isNew) state.need = need;
    return isNew;
}

void aclSendReplayMark(uint32_t agent, agentReplayMark mark) {
    static uint32_t lastReplay;
    aclAgentState& state = *aclAgentStateOf(agent);
    if (!state.takesMarks || (agent != AGENT_CP && !aclMayDownload())) return;
    if (mark == AGENT_REPLAY_BEGIN) state.replay = ++lastReplay != 0 ? lastReplay : ++lastReplay;
    agentReplayBody body{};
    body.mark = mark;
    body.number = state.replay;
    body.need = state.need;
    auto send = [&](const agentRoute& route) {
        agentHdr header;
        vAclBuildIpcHdr(&header, route, sizeof body, MT_AGENT_REPLAY);
        (void)iAclIPCSendAclList(&body, sizeof body, route, header, false);
    };
    if (agent == AGENT_CP) return send(agentRouteOf(IFINDEX_CP_BIND, MT_AGENT_REPLAY));
    // A bare slot addresses its card, as it does for DoS lists.
    send(agentRouteOf(agent, MT_AGENT_REPLAY));
    send(aclMacRouteOf(agent));
}

void aclSendEgrMacEnableToAclAgent(uint32_t enable, int slot) {
    if (!aclMayDownload()) return;
    for (uint32_t card = 0; card < SLOT_COUNT; card++) {
        if (aclLinecardInfo[card].aclAgent == ZEK_SWP_NONE ||
            (slot != SLOT_NONE && static_cast<int>(card) != slot))
            continue;
        agentMacEgressBody body;
        body.enable = enable;
        const agentRoute route = agentRouteOf(card, MT_AGENT_MAC_EGRESS);
        agentHdr header;
        vAclBuildIpcHdr(&header, route, sizeof body, MT_AGENT_MAC_EGRESS);
        (void)iAclIPCSendAclList(&body, sizeof body, route, header, false);
    }
}
