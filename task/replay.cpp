// What an agent is to hold, sent whole: when it has registered, when it says that it needs it, when
// its queue has lost something, and when the primary role has come back. The steps are those of
// follow.cpp; here is what stands around them.
#include <utility>

#include "common/linecard.h"
#include "download/zekacl_download.h"
#include "task/follow.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

void aclReplayToAgent(uint32_t agent, bool registered) {
    const auto [lists, mac] = aclAgentQueuesOf(agent);
    // First: sending sets it again when this route processor is not primary any more.
    aclAgentStateOf(agent)->owed = false;
    for (zekSwpHandle queue : {lists, mac}) zekSwpReplayBegin(queue);
    aclSendReplayMark(agent, AGENT_REPLAY_BEGIN);
    aclFollowReplay(agent, registered);
    // What was lost on the way has made the replay void, and its queue takes no end: the agent goes
    // on with what it holds until one comes that is whole.
    aclSendReplayMark(agent, AGENT_REPLAY_END);
    for (zekSwpHandle queue : {lists, mac}) zekSwpReplayEnd(queue);
}

void aclNoticeRole() {
    static bool wasPrimary = true;
    const bool is = aclMayDownload();
    if (is == std::exchange(wasPrimary, is)) return;
    if (is) return aclAwaitPlaces();
    aclLockHeld<aclLock::write> held;
    aclFollowPrimaryLost();
}

void aclReplayOwed() {
    if (!aclMayDownload() || aclPlacesAreAwaited()) return;
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (aclLinecardInfo[slot].state.owed) aclFollowPrimaryBack(slot);
}
