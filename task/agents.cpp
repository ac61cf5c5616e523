// The agents of the line cards and of the control processor: registration, and cards that go down.
#include <chrono>
#include <utility>

#include "common/linecard.h"
#include "download/zekacl_download.h"
#include "include/agentMsg.h"
#include "include/service.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekTask.h"
#include "task/follow.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

constexpr int ADDRESS_QUERIES = 30;  // six seconds in all

// The address of an application, asked for until it is known: at most 30 queries, a fifth of a
// second apart, and once where asking again is of no use. ADDRESS_UNKNOWN when it stays unknown.
uint32_t waitForAddress(uint32_t app, uint32_t instance) {
    for (int query = 1;; query++) {
        uint32_t address = ADDRESS_UNKNOWN;
        (void)zek_tmeGetPeerIpAddrByName(app, instance, &address);
        if (addressIsKnown(address)) return address;
        if (query == ADDRESS_QUERIES || zek_tmeAddressesAreFixed()) return ADDRESS_UNKNOWN;
        taskDelay(sysClkRateGet() / 5);
    }
}

// The agent is there: what it has lost need not wait for its answer to the queue.
bool isLost(uint32_t agent) {
    const auto [lists, mac] = aclAgentQueuesOf(agent);
    return zekSwpQueueState(lists) != zekSwpState::inStep ||
           zekSwpQueueState(mac) != zekSwpState::inStep;
}

// A slot that is registered is answered, and sent nothing, unless its agent lacks something:
// another process of it, one that says so, or one whose queue has lost messages.
int registeredAgain(aclNodeRecord* node, uint8_t* message, uint32_t slot) {
    const auto& request = *reinterpret_cast<const agentRegisterReq*>(message);
    const bool isItself = request.ipc.target.card == aclLinecardInfo[slot].agentIpAddr;
    const bool needs = isItself && aclAgentNeeds(slot, request.replay);
    if (needs) aclLinecardFill(slot, request);
    AclIpcReply(node->ipc.regQfd, message);
    if (aclLinecardInfo[slot].state.held) return -1;
    if (needs || (isItself && isLost(slot))) aclReplayToAgent(slot, needs);
    return -1;
}

uint64_t nowMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

void aclAwaitPlaces() {
    uint32_t ifm;
    if (zek_tmeGetPeerIpAddrByName(APP_IFM, 0, &ifm) == 0)
        aclNode->standing.placesAwaitedUntil = nowMs() + PLACES_WAIT_MS;
}
void aclPlacesTold() {
    aclNode->standing.placesAwaitedUntil = 0;
}
bool aclPlacesAreAwaited() {
    const uint64_t until = aclNode->standing.placesAwaitedUntil;
    if (until != 0 && nowMs() >= until) aclPlacesTold();
    return aclNode->standing.placesAwaitedUntil != 0;
}
void aclReleaseHeldAgents() {
    if (aclPlacesAreAwaited()) return;
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (std::exchange(aclLinecardInfo[slot].state.held, false)) aclFollowAgentUp(slot);
}

int aclHandleAgentRegister(aclNodeRecord* node, uint8_t* message) {
    const ipcHdr* hdr = msgHdr(message);
    const uint32_t slot = hdr->target.slot;
    if (slot >= SLOT_COUNT) return -1;
    if (hdr->result == AGENT_QUEUE_FLUSH) {
        aclLinecardFlush(slot);
        return -1;
    }
    if (hdr->length < sizeof(agentRegisterReq)) {
        aclCounters.truncated++;
        return -1;
    }
    aclLinecard& card = aclLinecardInfo[slot];
    const auto& request = *reinterpret_cast<const agentRegisterReq*>(message);
    if (card.aclAgent != ZEK_SWP_NONE && card.macAgent != ZEK_SWP_NONE)
        return registeredAgain(node, message, slot);
    card.agentIpAddr = ADDRESS_UNKNOWN;
    const uint32_t address = waitForAddress(APP_ACL_AGENT, slot);
    // Only the address that the chassis knows may speak for the slot.
    if (!addressIsKnown(address) || address != hdr->target.card) {
        // "errorfrom" lacks a blank: it is meant.
        aclSysErr(SYSERR_ADDRESS, "%s",
                  "An aclAgent tried to register : Got an errorfrom zek_tmeGetPeerIpAddrByName");
        return -1;
    }
    card.agentIpAddr = address;
    aclLinecardFill(slot, request);
    if (iAclSwpQueueCreate(slot, QUEUE_ACL_AGENT) != 0 ||
        iAclSwpQueueCreate(slot, QUEUE_MAC_AGENT) != 0) {
        aclLinecardClear(slot);  // down until it registers again
        return -1;
    }
    (void)aclAgentNeeds(slot, request.replay);
    // Before the replay, which may be long.
    AclIpcReply(node->ipc.regQfd, message);
    if (aclPlacesAreAwaited())
        card.state.held = true;
    else
        aclFollowAgentUp(slot);
    return -1;
}

// It is the MAC agent that asks.
int aclHandleAgentQueue(aclNodeRecord* node, uint8_t* message) {
    int result = iAclSwpQueueCreate(msgHdr(message)->target.slot, QUEUE_MAC_AGENT);
    if (result != -1) AclIpcReply(node->ipc.regQfd, message);
    return result;
}

int aclHandleAcl0Register(aclNodeRecord* node, uint8_t* message) {
    uint32_t& address = aclLinecardInfo[LINECARD_CP].agent0IpAddr;
    const auto& request = *reinterpret_cast<const acl0RegisterReq*>(message);
    if (addressIsKnown(address)) {
        AclIpcReply(node->ipc.regQfd, message);
        if (aclAgentNeeds(AGENT_CP, request.replay) || isLost(AGENT_CP))
            aclReplayToAgent(AGENT_CP, true);
        return -1;
    }
    address = waitForAddress(APP_ACL_AGENT_CP, 0);
    if (!addressIsKnown(address)) {
        // "anerror" lacks a blank, elsewhere than the other text: it is meant.
        aclSysErr(SYSERR_ADDRESS, "%s",
                  "AclAgent on CP tried to register : Got anerror from zek_tmeGetPeerIpAddrByName");
        return -1;
    }
    node->chassis.supportAclOnCP = request.supportAclOnCP;
    if (iAclToAcl0SwpQueueCreate() != 0) {
        address = ADDRESS_UNKNOWN;  // else the next registration would change nothing
        return -1;
    }
    (void)aclAgentNeeds(AGENT_CP, request.replay);
    AclIpcReply(node->ipc.regQfd, message);
    aclFollowAgentUp(AGENT_CP);
    node->standing.acl0Registered = 1;
    return -1;
}

void aclHandleCardDownNotif(uint32_t slot) {
    char text[64];
    std::snprintf(text, sizeof text, "EvtHandler reported Line card %d as down \r\n",
                  static_cast<int>(slot));
    zekEvtLogPrint(aclNode->evtLogKey, 4, text);
    if (slot >= SLOT_COUNT) return;
    aclFollowCardDown(slot);
}
