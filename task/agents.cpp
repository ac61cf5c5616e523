// The agents of the line cards and of the control processor: registration, what a new agent is
// sent, and cards that go down.
#include "download/zekacl_download.h"
#include "include/agentMsg.h"
#include "include/hooks.h"
#include "include/linecard.h"
#include "include/service.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

constexpr int ADDRESS_QUERIES = 30;

// The address of an application, asked for until it is known: at most 30 queries, a fifth of a
// second apart. ADDRESS_UNKNOWN when it stays unknown.
uint32_t waitForAddress(uint32_t app, uint32_t instance) {
    for (int query = 1;; query++) {
        uint32_t address = ADDRESS_UNKNOWN;
        (void)zek_tmeGetPeerIpAddrByName(app, instance, &address);
        if (addressIsKnown(address)) return address;
        if (query == ADDRESS_QUERIES) return ADDRESS_UNKNOWN;
        taskDelay(sysClkRateGet() / 5);
    }
}

// --- what a card is sent whose agent has registered, in this order -------------------------------

struct replayStep {
    const char* what;
    void (*run)(uint32_t slot);  // null: the subsystem is not built yet, there is nothing to send
};
constexpr replayStep replay[] = {
    {"card state to the peer", [](uint32_t slot) { (void)aclSendUpdateToPeer(slot); }},
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
    {"egress MAC lists enable", nullptr},
};

// The ingress list of the control-processor interface, to its own agent.
void downloadToAcl0() {
    aclLockHeld<aclLock::read> held;
    const aclIntf* intf = AclIntfTreeFind(IFINDEX_CP_BIND);
    aclList* list = intf != nullptr ? intf->lists[INTF_V4][INTF_IN] : nullptr;
    if (list == nullptr) return;
    for (const aclBinding* b = list->bindings; b != nullptr; b = b->next) {
        if (b->kind != BIND_INTERFACE || b->id != IFINDEX_CP_BIND || b->direction != 0) continue;
        list->sendBlock = b->block;
        (void)aclSendToAclAgent(list, IFINDEX_CP_BIND, 1, MT_ACL_ADDLIST, b->implicitPermit, 0, 0);
        return;
    }
}

void forgetAcl0Agent() {
    if (aclNode->acl0qHandle != ZEK_SWP_NONE) zekSwpQueueRemove(aclNode->acl0qHandle);
    aclNode->acl0qHandle = ZEK_SWP_NONE;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = ADDRESS_UNKNOWN;
    aclNode->acl0Registered = 0;
}

}  // namespace

void aclReplayToCard(uint32_t slot) {
    const aclLinecard card = aclLinecardInfo[slot];
    for (zekSwpHandle queue : {card.aclAgent, card.macAgent}) zekSwpReplayBegin(queue);
    for (const replayStep& step : replay) {
        if (step.run == nullptr) continue;
        aclDebug(DEBUG_ACL_IPC, "linecard %d: %s\r\n", static_cast<int>(slot), step.what);
        step.run(slot);
    }
    for (zekSwpHandle queue : {card.aclAgent, card.macAgent}) zekSwpReplayEnd(queue);
}

void aclDownloadCfgtoAcl0() {
    zekSwpReplayBegin(aclNode->acl0qHandle);
    downloadToAcl0();
    zekSwpReplayEnd(aclNode->acl0qHandle);
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
    if (card.aclAgent != ZEK_SWP_NONE && card.macAgent != ZEK_SWP_NONE) {
        AclIpcReply(node->regQfd, message);  // registered already: nothing is sent again
        return -1;
    }
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
    aclLinecardFill(slot, *reinterpret_cast<const agentRegisterReq*>(message));
    if (iAclSwpQueueCreate(slot, QUEUE_ACL_AGENT) != 0 ||
        iAclSwpQueueCreate(slot, QUEUE_MAC_AGENT) != 0) {
        aclLinecardClear(slot);  // down until it registers again
        return -1;
    }
    AclIpcReply(node->regQfd, message);
    aclReplayToCard(slot);
    return -1;
}

int aclHandleAgentQueue(aclNodeRecord* node, uint8_t* message) {
    int result = iAclSwpQueueCreate(msgHdr(message)->target.slot, QUEUE_MAC_AGENT);
    if (result != -1) AclIpcReply(node->regQfd, message);
    return result;
}

int aclHandleAcl0Register(aclNodeRecord* node, uint8_t* message) {
    uint32_t& address = aclLinecardInfo[LINECARD_CP].agent0IpAddr;
    if (addressIsKnown(address)) {
        AclIpcReply(node->regQfd, message);
        return -1;
    }
    address = waitForAddress(APP_ACL_AGENT_CP, 0);
    if (!addressIsKnown(address)) {
        // "anerror" lacks a blank, elsewhere than the other text: it is meant.
        aclSysErr(SYSERR_ADDRESS, "%s",
                  "AclAgent on CP tried to register : Got anerror from zek_tmeGetPeerIpAddrByName");
        return -1;
    }
    node->supportAclOnCP = reinterpret_cast<const acl0RegisterReq*>(message)->supportAclOnCP;
    if (iAclToAcl0SwpQueueCreate() != 0) {
        address = ADDRESS_UNKNOWN;  // else the next registration would change nothing
        return -1;
    }
    AclIpcReply(node->regQfd, message);
    aclDownloadCfgtoAcl0();
    node->acl0Registered = 1;
    return -1;
}

void aclHandleCardDownNotif(uint32_t slot) {
    char text[64];
    std::snprintf(text, sizeof text, "EvtHandler reported Line card %d as down \r\n",
                  static_cast<int>(slot));
    zekEvtLogPrint(aclNode->evtLogKey, 4, text);
    if (slot >= SLOT_COUNT) return;
    aclLinecardClear(slot);
    // Record 19 also keeps the control processor's agent: it is forgotten with the card, so that it
    // can register anew and be brought up to date.
    if (slot == LINECARD_CP) forgetAcl0Agent();
    (void)aclSendUpdateToPeer(slot);
}
