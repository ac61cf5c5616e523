// Change triggers: one message, or a few, that tell a client of a list that the list has changed.
#include "common/client.h"
#include "common/node.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#include "common/await.h"
#include "common/clientWait.h"
#include "common/debug.h"
#include "common/linecard.h"
#include "common/message.h"
#include "include/clientMsg.h"
#include "include/service.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekTask.h"

namespace {

constexpr taskName clientNames[] = {
    {APP_IFM, "IFM"},        {APP_ACL, "ACL"},   {APP_RIP, "RIP"},   {APP_RTM, "RTM"},
    {APP_OSPF, "OSPF"},      {APP_BGP, "BGP"},   {APP_LDP, "LDP"},   {APP_ISIS, "ISIS"},
    {APP_IFA, "IFA"},        {APP_SNMP, "SNMP"}, {APP_IGMP, "IGMP"}, {APP_PIM, "PIM"},
    {APP_DSMGR, "DIFFSERV"},
};

// Tasks with a queue of their own. Only RTM's is looked after before it is used: meant.
struct queueRow {
    uint32_t application;
    zekSwpHandle aclQueues::*queue;
    bool checkHealth;
    const char* failed;
};
constexpr queueRow queueTable[] = {
    {APP_RTM, &aclQueues::qHandle, true, "Error sending Trigger to RTM"},
    {APP_DSMGR, &aclQueues::aclQosqHandle, false, "Error sending Trigger to DSMGR"},
    {APP_IGMP, &aclQueues::igmpqHandle, false, "Error sending Trigger to IGMP"},
    {APP_PIM, &aclQueues::pimqHandle, false, "Error sending Trigger to PIM"},
};

struct messageFree {
    void operator()(triggerMsg* message) const { acl_Swp_Free(message); }
};
typedef std::unique_ptr<triggerMsg, messageFree> triggerBuffer;

triggerBuffer bufferMake() {
    void* block = acl_Swp_Alloc(sizeof(triggerMsg));
    if (block != nullptr) std::memset(block, 0, sizeof(triggerMsg));
    return triggerBuffer(static_cast<triggerMsg*>(block));
}

uint32_t aclgetTransId() {
    return ++aclMgrTransId;
}

void fill(triggerMsg* message, const clientTask& client, uint32_t mtype, uint32_t card) {
    aclFillIpcHdr(&message->ipc, mtype, TRIGGER_LEN,
                  {card, aclServicePort(client.application, client.instance, QUEUE_REQUEST)});
    message->ipc.sequence = aclgetTransId();
    message->ipc.target.card = zek_sysGetIpAddr(card);  // this task's address towards that card
    message->application = client.application;
    message->instance = client.instance;
}

// As many pairs as one message carries; returns the first of the rest.
const clientPair* appendPairs(triggerMsg* message, const clientPair* pair) {
    uint32_t count = 0;
    for (; pair != nullptr && count < TRIGGER_PAIRS_MAX; pair = pair->next, count++) {
        message->pairs[count].first = pair->first;
        message->pairs[count].second = pair->second;
    }
    message->pairCount = count;
    message->ipc.length = TRIGGER_LEN + count * static_cast<uint32_t>(sizeof(triggerPair));
    return pair;
}

// The queue owns the message once it has taken it.
bool deliverByQueue(const queueRow& row, triggerBuffer message) {
    const zekSwpHandle queue = aclNode->queues.*row.queue;
    if (row.checkHealth) (void)aclCheckSwpQueueHealth(queue);
    if (zekSwpEnqueue(queue, message.get(), message->ipc.length) == 0) {
        (void)message.release();
        return true;
    }
    aclSysErr(SYSERR_SWP, "%s", row.failed);
    return false;
}

uint32_t elapsedMs(std::chrono::steady_clock::time_point since) {
    using namespace std::chrono;
    return static_cast<uint32_t>(duration_cast<milliseconds>(steady_clock::now() - since).count());
}

uint32_t deliverByIpc(clientState* state, const triggerMsg& message) {
    if (state->silent) aclTakeLateAnswers();
    if (zekIpcSend(aclNode->ipc.regQfd, &message, message.ipc.length) != 0) return TRIGGER_NOT_SENT;
    clientTold(state, message.ipc);
    const uint32_t wait = clientWaitMs(*state);
    if (wait == 0) return TRIGGER_NO_REPLY;
    const auto begin = std::chrono::steady_clock::now();
    const ipcHdr* answer = AclAwaitReply(message.ipc.mtype, message.ipc.sequence, wait);
    if (answer != nullptr) {
        clientAnswered(state, elapsedMs(begin));
        return answer->delivery;
    }
    clientSilent(state, wait);
    // The text states the usual wait, whatever the process was started with: meant.
    aclDebug(DEBUG_ACL_TRIGGER, "No response from %s after 10 seconds. Timing out...\n",
             aclClientName(message.application));
    return TRIGGER_NO_REPLY;
}

uint32_t deliver(const clientTask& client, triggerBuffer message) {
    static clientState forgotten;  // of those who are too many to be remembered
    const auto begin = std::chrono::steady_clock::now();
    bool failed = false;
    uint32_t status = 0;
    clientState* state = clientStateOf(client.application, client.instance);
    if (state == nullptr) state = &(forgotten = {});
    state->missing = false;
    const auto* row = std::ranges::find(queueTable, client.application, &queueRow::application);
    if (row != std::ranges::end(queueTable)) {
        failed = !deliverByQueue(*row, std::move(message));
    } else {
        status = deliverByIpc(state, *message);
        failed = status != 0;
    }
    state->messages++;
    state->failures += failed ? 1 : 0;
    state->lastStatus = status;
    state->lastWaitMs = elapsedMs(begin);
    state->longestWaitMs = std::max(state->longestWaitMs, state->lastWaitMs);
    return status;
}

// Those who registered before a client that has no address are not told: the log says it once.
void sayMuted(const clientTask& client, const listName& list) {
    clientState* state = clientStateOf(client.application, client.instance);
    if (state == nullptr || state->missing) return;
    state->missing = true;
    char text[LIST_NAME_LEN + 160];
    std::snprintf(text, sizeof text,
                  "Client %s (task %u instance %u) of list " LIST_NAME_FMT
                  " has no address: the clients that registered before it are not told of changes",
                  aclClientName(client.application), client.application, client.instance,
                  listNameArg(list));
    zekEvtLogPrint(aclNode->evtLogKey, 4, text);
}

}  // namespace

void (*clientRmapChanged)(const listName& rmapName) = nullptr;

const char* aclClientName(uint32_t application) {
    const auto* row = std::ranges::find(clientNames, application, &taskName::application);
    return row != std::ranges::end(clientNames) ? row->name : "Unknown task";
}

int aclSendTrigger(const clientTask& client, uint32_t mtype, const void* body, uint32_t bodyLength,
                   uint32_t* status) {
    *status = 0;
    if (client.suppressed != 0) return 0;
    // Every message has a buffer of its own: a queue owns the ones before, and nothing of them may
    // be left in the next.
    const clientPair* rest = client.pairs;
    do {
        triggerBuffer message = bufferMake();
        if (message == nullptr) {
            aclSysErr(SYSERR_MEMORY, "%s", "No memory for a trigger");
            return -1;
        }
        if (body == nullptr || bodyLength > TRIGGER_BODY_LEN) return -1;
        uint32_t card = ADDRESS_UNKNOWN;
        if (zek_tmeGetPeerIpAddrByName(client.application, client.instance, &card) != 0) {
            aclSysErr(SYSERR_ADDRESS,
                      "Unable to Resolve ipAddress of Client with id %d and instance %d in "
                      "aclSendTrigger\r\n",
                      static_cast<int>(client.application), static_cast<int>(client.instance));
            return -1;
        }
        fill(message.get(), client, mtype, card);
        std::memcpy(message->body, body, bodyLength);
        rest = appendPairs(message.get(), rest);
        *status = deliver(client, std::move(message));
    } while (rest != nullptr);
    return 0;
}

bool aclClientHasQueue(uint32_t application) {
    return std::ranges::find(queueTable, application, &queueRow::application) !=
           std::ranges::end(queueTable);
}

bool aclClientHasAddress(uint32_t application, uint32_t instance) {
    uint32_t card = ADDRESS_UNKNOWN;
    return zek_tmeGetPeerIpAddrByName(application, instance, &card) == 0;
}

int triggerClient(const triggerKind& how, uint32_t kind, const clientTask& task,
                  const listName& rmapName, const listName& list) {
    if (kind == CLIENT_ROUTE_MAP) {
        if (clientRmapChanged != nullptr) clientRmapChanged(rmapName);
        return 0;
    }
    if (kind != CLIENT_TASK) {
        aclSysErr(SYSERR_TRIGGER, "%s", how.unknownKind);
        return 0;
    }
    uint32_t status = 0;
    if (aclSendTrigger(task, how.mtype, list.text, sizeof list.text, &status) != 0) {
        if (!how.goesOn && !aclClientHasAddress(task.application, task.instance))
            sayMuted(task, list);
        if (how.toEventLog)
            zekEvtLogPrint(aclNode->evtLogKey, 4, how.sendFailed);
        else
            aclSysErr(SYSERR_TRIGGER, "%s", how.sendFailed);
        return how.goesOn ? 0 : -1;
    }
    for (const taskName& row : how.names) {
        if (row.application != task.application) continue;
        if (how.sent != nullptr) aclDebug(DEBUG_ACL_TRIGGER, how.sent, row.name);
        return 0;
    }
    if (how.unknownTask != nullptr) aclSysErr(SYSERR_TRIGGER, "%s", how.unknownTask);
    return 0;
}
