// Waiting for one answer: the response queue is read until it comes, urgent requests are served.
#include "common/await.h"

#include <chrono>

#include "common/node.h"
#include "include/wire.h"

namespace {

aclWaitService service{
    {[](std::span<const uint8_t>) { return zekUrgency::later; }, [](std::span<const uint8_t>) {}},
    [](const ipcHdr&) {}};
bool serving = false;

const ipcHdr* headerOf(const uint8_t* answer, int got) {
    return wireView<ipcHdr>(std::span<const uint8_t>(answer, static_cast<size_t>(got)));
}

}  // namespace

void aclServeWhileWaiting(const aclWaitService& said) {
    service = said;
}

bool aclIsServing() {
    return serving;
}

const ipcHdr* AclAwaitReply(uint32_t mtype, uint32_t sequence, uint32_t timeoutMs) {
    using namespace std::chrono;
    static uint8_t answer[IPC_BUFFER_SIZE];
    const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
    for (;;) {
        const auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0 || serving) return nullptr;
        serving = true;
        const int got = zekIpcRecvServing(aclNode->ipc.rspQfd, answer, sizeof answer,
                                          static_cast<int>(left), service.urgent);
        serving = false;
        if (got <= 0) return nullptr;
        const ipcHdr* hdr = headerOf(answer, got);
        if (hdr == nullptr) continue;
        if (hdr->mtype == mtype && hdr->sequence == sequence) return hdr;
        service.lateAnswer(*hdr);
    }
}

void aclTakeLateAnswers() {
    static uint8_t answer[IPC_BUFFER_SIZE];
    for (int got; (got = zekIpcRecv(aclNode->ipc.rspQfd, answer, sizeof answer, 0)) > 0;)
        if (const ipcHdr* hdr = headerOf(answer, got)) service.lateAnswer(*hdr);
}
