// IPC and SWP: messages out are rows, messages in come from the test's inboxes, and nothing waits.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "include/ipc.h"
#include "include/service.h"
#include "platform/test/inject.h"

namespace {

constexpr int FIRST_FD = 10;  // descriptor of a queue: this plus its number
constexpr int PIPE_FD = 20;
constexpr int IPC_KEYS = 1;

std::span<const uint8_t> bytesOf(const void* message, size_t length) {
    return {static_cast<const uint8_t*>(message), length};
}

// The row of a message that goes out; 0 when it does.
int recordMessage(std::string text, bool tellsService, std::span<const uint8_t> bytes, bool fails) {
    const auto* header = wireView<ipcHdr>(bytes);
    text += " " + (header != nullptr ? std::to_string(header->mtype) : std::string("short"));
    if (header != nullptr && tellsService) text += " to " + std::to_string(header->source.svce);
    fails |= header == nullptr;
    testRecord(text + " length " + std::to_string(bytes.size()) + (fails ? " failed" : ""), bytes);
    return fails ? -1 : 0;
}

// A message goes out: the row, then whatever the test answers.
int sendOut(const char* what, const void* message, size_t length) {
    const auto bytes = bytesOf(message, length);
    const int result = recordMessage(what, true, bytes, testFails(TEST_SEND));
    if (result == 0 && testHost.onSend) testHost.onSend(bytes);
    return result;
}

// A queue's message to nobody, or to the task itself, is a fault of the task, whatever is tested.
void checkAddressee(const ipcHdr& header) {
    const uint32_t card = header.source.card, service = header.source.svce;
    const bool own = (service & ~3u) == aclServicePort(APP_ACL, 0, 0);
    if (card != 0 && card != 0xFFFFFFFF && service != 0 && !own) return;
    std::fprintf(stderr, "message %u of a queue is addressed to card 0x%x, service %u\n",
                 uint32_t{header.mtype}, card, service);
    std::abort();
}

zekQueue queueOf(uint32_t ipcKey, zekQueue queue) {
    return ipcKey == IPC_KEYS && !testFails(TEST_QUEUE) ? queue : 0;
}

zekSwpHandle createQueue(uint32_t peerApp, uint32_t slot, zekSwpFree free) {
    std::string peer = std::to_string(peerApp) + " slot " + std::to_string(slot);
    if (testFails(TEST_QUEUE)) {
        testRecord("swpqueue " + peer + " failed");
        return ZEK_SWP_NONE;
    }
    zekSwpHandle handle = static_cast<zekSwpHandle>(testHost.queues.size() + 1);
    testHost.queues[handle] = {peerApp, free};
    testRecord("swpqueue " + peer + " is " + std::to_string(handle));
    return handle;
}

}  // namespace

zekQueue Key_getReqQueue(uint32_t ipcKey) {
    return queueOf(ipcKey, TEST_REQUESTS);
}
zekQueue Key_getRspQueue(uint32_t ipcKey) {
    return queueOf(ipcKey, TEST_RESPONSES);
}
zekQueue Key_getTmrQueue(uint32_t ipcKey) {
    return queueOf(ipcKey, TEST_TIMERS);
}
int Key_getSocketFd(zekQueue queue) {
    return queue >= TEST_REQUESTS && queue <= TEST_TIMERS ? FIRST_FD + static_cast<int>(queue) : -1;
}
int zekIpcTmrOpen(uint32_t, uint32_t) {
    return testFails(TEST_QUEUE) ? -1 : 0;
}

int zekIpcSend(zekQueue, const void* message, size_t length) {
    return sendOut("send", message, length);
}

int zekIpcReply(uint32_t, void* message, size_t length) {
    if (length < sizeof(ipcHdr)) return -1;
    ipcExchangeTriples(static_cast<ipcHdr*>(message));
    return sendOut("reply", message, length);
}

int zekIpcRecv(zekQueue queue, void* buffer, size_t size, int) {
    if (queue < TEST_REQUESTS || queue > TEST_TIMERS) return -1;
    auto& inbox = testHost.inbox[queue];
    if (inbox.empty()) return 0;
    std::vector<uint8_t> message = std::move(inbox.front());
    inbox.pop_front();
    if (message.size() > size) return 0;
    std::copy(message.begin(), message.end(), static_cast<uint8_t*>(buffer));
    return static_cast<int>(message.size());
}

int zekIpcRecvServing(zekQueue queue, void* buffer, size_t size, int timeoutMs,
                      const zekServing& serving) {
    const int got = zekIpcRecv(queue, buffer, size, 0);
    auto serveFrom = [&](zekQueue from, auto urgencyOf) {
        auto& inbox = testHost.inbox[from];
        for (size_t i = 0; got == 0 && i < inbox.size();) {
            const zekUrgency urgency = urgencyOf(inbox[i]);
            if (urgency == zekUrgency::barrier) return;
            if (urgency == zekUrgency::later) {
                i++;
                continue;
            }
            const std::vector<uint8_t> message = std::move(inbox[i]);
            inbox.erase(inbox.begin() + static_cast<ptrdiff_t>(i));
            serving.serve(message);
        }
    };
    serveFrom(TEST_TIMERS, [](const auto&) { return zekUrgency::now; });
    serveFrom(TEST_REQUESTS, serving.urgency);
    if (got == 0) testHost.waitedMs += static_cast<uint64_t>(timeoutMs);
    return got;
}

int zekSelect(uint32_t limit, zekFdSet* set, int) {
    if (testHost.selectErrno != 0) {
        errno = testHost.selectErrno;
        return -1;
    }
    zekFdSet ready;
    for (uint32_t q = TEST_REQUESTS; q <= TEST_TIMERS; q++)
        if (!testHost.inbox[q].empty()) ready.set(FIRST_FD + q);
    if (testHost.pipeReadable) ready.set(PIPE_FD);
    for (size_t fd = limit; fd < ready.size(); fd++) ready.reset(fd);
    *set &= ready;
    return static_cast<int>(set->count());
}

int zek_tmeGetPeerIpAddrByName(uint32_t app, uint32_t instance, uint32_t* address) {
    *address = 0xFFFFFFFF;
    if (testFails(TEST_ADDRESS)) return -1;
    auto found = testHost.addresses.find({app, instance});
    if (found == testHost.addresses.end()) return -1;
    *address = found->second;
    return 0;
}

bool zek_tmeAddressesAreFixed() {
    return testHost.addressesAreFixed;
}

uint32_t zek_sysGetIpAddr(uint32_t) {
    return 0x7F010001;
}

int zekIrcPeerRpmSend(uint32_t, uint32_t, const void* message, size_t length, uint32_t, int* err) {
    int status = sendOut("peer", message, length);
    *err = status == 0 ? 0 : 1;
    return status;
}

void zekSendSyncMsgAckToRam(uint32_t app, uint32_t instance) {
    testRecord("ramack " + std::to_string(app) + " " + std::to_string(instance));
}

void zekSendDataSyncResultToRam(uint32_t app, uint32_t instance, uint32_t result) {
    testRecord("ramresult " + std::to_string(app) + " " + std::to_string(instance) + " " +
               std::to_string(result));
}

zekIpcStats zekIpcStatistics() {
    return {};
}

int zekSwpCreatePipe(const char* path) {
    if (testFails(TEST_QUEUE)) return -1;
    testRecord(std::string("pipe ") + path);
    return PIPE_FD;
}

int zekSwpReadPipe(int) {
    testHost.pipeReadable = false;
    return 0;
}

zekSwpHandle zekSwpQueueCreate_p(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t peerApp,
                                 zekSwpAlloc, zekSwpFree free, zekSwpPrint) {
    return createQueue(peerApp, 0, free);
}

zekSwpHandle zekSwpQueueCreate_p(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                 uint32_t peerApp, uint32_t slot, zekSwpAlloc, zekSwpFree free,
                                 zekSwpPrint) {
    return createQueue(peerApp, slot, free);
}

void zekSwpQueueRemove(zekSwpHandle queue) {
    testRecord("swpremove " + std::to_string(queue));
    testHost.queues.erase(queue);
}

int zekSwpEnqueue(zekSwpHandle queue, void* message, size_t length) {
    auto bytes = bytesOf(message, length);
    const auto* header = wireView<ipcHdr>(bytes);
    if (header != nullptr) checkAddressee(*header);
    const bool fails = testFails(TEST_ENQUEUE) || !testHost.queues.contains(queue) ||
                       zekSwpQueueState(queue) != zekSwpState::inStep;
    if (recordMessage("swp " + std::to_string(queue), false, bytes, fails) != 0) return -1;
    testHost.queues[queue].free(message);  // delivered and acknowledged at once
    return 0;
}

bool zekSwpIsQueueAlive(zekSwpHandle queue) {
    return !testHost.deadQueues.contains(queue);
}
bool zekSwpIsQueueEmpty(zekSwpHandle queue) {
    return !testHost.busyQueues.contains(queue);
}
void zekSwpQueueFlush(zekSwpHandle queue) {
    testRecord("swpflush " + std::to_string(queue));
    testHost.deadQueues.erase(queue);
    testHost.busyQueues.erase(queue);
}

zekSwpState zekSwpQueueState(zekSwpHandle queue) {
    auto found = testHost.queues.find(queue);
    return found != testHost.queues.end() ? found->second.state : zekSwpState::inStep;
}
void zekSwpQueueLose(zekSwpHandle queue) {
    if (!testHost.queues.contains(queue) || zekSwpQueueState(queue) != zekSwpState::inStep) return;
    testHost.queues[queue].state = zekSwpState::lost;
    testHost.queueEvents.push_back({queue, zekSwpState::lost});
}
void zekSwpReplayBegin(zekSwpHandle queue) {
    if (!testHost.queues.contains(queue)) return;
    testHost.queues[queue].state = zekSwpState::inStep;
    std::erase_if(testHost.queueEvents, [=](const zekSwpEvent& e) { return e.queue == queue; });
    testHost.replays[queue]++;
    testHost.replaying.insert(queue);
}
void zekSwpReplayEnd(zekSwpHandle queue) {
    testHost.replaying.erase(queue);
}
bool zekSwpNextEvent(zekSwpEvent* event) {
    if (testHost.queueEvents.empty()) return false;
    *event = testHost.queueEvents.front();
    testHost.queueEvents.pop_front();
    return true;
}

int zekSwpGetTaskNamesFromQHandle(zekSwpHandle queue, char* own, char* peer, size_t size) {
    auto found = testHost.queues.find(queue);
    if (found == testHost.queues.end() || size == 0) return -1;
    std::snprintf(own, size, "61");
    std::snprintf(peer, size, "%u", found->second.peerApp);
    return 0;
}

int zekSwpTimeout(const void*) {
    testRecord("swptimeout");
    return 0;
}

int zekSwpDequeue(const void*, void** released) {
    testRecord("swpack");
    *released = nullptr;
    return 0;
}

const char* zekSwpGetErr(int) {
    return "error";
}

int zekSwpCkSeqAndAck(const void* message, zekSwpSeq* seen, uint32_t) {
    const auto* header = static_cast<const ipcHdr*>(message);
    if (header->session == 0) return ZEK_SWP_IN_ORDER;
    if (header->session != seen->session) *seen = {header->session, 1};
    if (header->swpSeq > seen->next) return 1;
    testRecord("swpanswer " + std::to_string(header->swpSeq));
    if (header->swpSeq < seen->next) return ZEK_SWP_SEEN;
    seen->next++;
    return ZEK_SWP_IN_ORDER;
}
