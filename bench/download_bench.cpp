// Messages of one entry (1,580 bytes) from a task's queue to one agent in another process, every
// one delivered, beside the same bytes over a datagram socket without answers. Making the messages
// is not in it. Pin it to one core: taskset -c 0 download_bench
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "bench/measure.h"
#include "include/agentMsg.h"
#include "include/service.h"
#include "platform/host/host.h"

namespace {

constexpr uint32_t MESSAGES = 60000;
constexpr size_t LENGTH = sizeof(agentHdr) + sizeof(agentListHdr) + sizeof(agentEntry);
static_assert(LENGTH == 1580);
constexpr uint32_t RP_ADDRESS = 0x7F010001, CARD_ADDRESS = 0x7F010101, SLOT = 1;
constexpr uint32_t AGENT = aclServicePort(APP_ACL_AGENT, SLOT, QUEUE_REQUEST);
constexpr int ROUNDS = 5;
constexpr uint32_t CHANGES_BETWEEN_LOOKS = 8;

void fail(const char* what) {
    std::fprintf(stderr, "download_bench: %s\n", what);
    std::exit(1);
}

// Seconds that `send` takes until the child that runs `receive` has ended well.
template <class Receive, class Send>
double untilReceived(Receive receive, Send send) {
    int ready[2];
    if (pipe(ready) != 0) fail("pipe");
    pid_t child = fork();
    if (child == 0) _exit(receive(ready[1]) ? 0 : 1);
    char x;
    if (read(ready[0], &x, 1) != 1) fail("no receiver");
    double start = benchNow();
    send();
    int status = 0;
    waitpid(child, &status, 0);
    double seconds = benchNow() - start;
    if (status != 0) fail("messages are lost");
    close(ready[0]);
    close(ready[1]);
    return seconds;
}

double plain() {
    int pair[2], size = 4 << 20;
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0) fail("socketpair");
    for (int s : pair) setsockopt(s, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    std::vector<uint8_t> buffer(65536);
    double seconds = untilReceived(
        [&](int ready) {
            if (write(ready, "x", 1) != 1) return false;
            for (uint32_t i = 0; i < MESSAGES; i++)
                if (recv(pair[1], buffer.data(), buffer.size(), 0) != LENGTH) return false;
            return true;
        },
        [&] {
            for (uint32_t i = 0; i < MESSAGES; i++)
                if (send(pair[0], buffer.data(), LENGTH, 0) < 0) fail("send");
        });
    close(pair[0]);
    close(pair[1]);
    return seconds;
}

bool receiveAll(const std::string& dir, int ready) {
    std::string error;
    zekEndpoint* agent = zekEndpointOpen(dir, CARD_ADDRESS, AGENT, &error);
    if (agent == nullptr || write(ready, "x", 1) != 1) return false;
    zekSwpSeq seen{};
    zekSwpOwed owed{};
    uint32_t got = 0;
    bool whole = true;
    auto take = [&](std::span<const uint8_t> message, const zekSender&, zekDrop) {
        whole = whole && message.size() == LENGTH;
        if (whole && zekEndpointSwpTake(agent, message.data(), &seen, &owed) == ZEK_SWP_IN_ORDER)
            got++;
    };
    while (whole && got < MESSAGES && zekEndpointTake(agent, 10000, take) > 0)
        zekEndpointSwpAnswer(agent, &owed);
    zekEndpointClose(agent);
    return got == MESSAGES;
}

void* makeMessage() {
    auto* m = static_cast<agentHdr*>(std::calloc(1, LENGTH));
    m->ipc.length = static_cast<uint32_t>(LENGTH);
    m->ipc.mtype = 14410;
    m->ipc.target.card = RP_ADDRESS;
    m->ipc.target.svce = aclServicePort(APP_ACL, 0, QUEUE_RESPONSE);
    m->ipc.source.card = CARD_ADDRESS;
    m->ipc.source.svce = AGENT;
    return m;
}

// The task takes the answers from its request queue, as it does between two changes.
void serveAnswer(int timeoutMs) {
    alignas(8) static uint8_t buffer[8192];
    zekQueue own = Key_getReqQueue(hostTaskKey());
    void* released = nullptr;
    if (zekIpcRecv(own, buffer, sizeof buffer, timeoutMs) > 0)
        (void)zekSwpDequeue(buffer, &released);
    std::free(released);
}

double queued(const std::string& dir) {
    zekSwpHandle queue = zekSwpQueueCreate_p(0u, 10u, 90u, APP_ACL, 0u, 0u, APP_ACL_AGENT, SLOT,
                                             std::malloc, std::free, nullptr);
    if (queue == ZEK_SWP_NONE) fail("no queue");
    double seconds = untilReceived([&](int ready) { return receiveAll(dir, ready); },
                                   [&] {
                                       for (uint32_t i = 0; i < MESSAGES; i++) {
                                           if (zekSwpEnqueue(queue, makeMessage(), LENGTH) != 0)
                                               fail("the queue is full");
                                           if (i % CHANGES_BETWEEN_LOOKS == 0) serveAnswer(0);
                                       }
                                       while (!zekSwpIsQueueEmpty(queue)) serveAnswer(1);
                                   });
    zekSwpQueueRemove(queue);
    return seconds;
}

}  // namespace

int main() {
    std::string dir = (std::filesystem::temp_directory_path() / "acldl.XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) fail("no folder");
    chassisCard card{};
    card.slot = SLOT;
    card.address = CARD_ADDRESS;
    hostConf().chassis.cards = {card};
    if (!hostTaskOpen(dir, RP_ADDRESS, APP_ACL, 0)) fail("no task");
    std::vector<double> ref, own;
    for (int i = 0; i < ROUNDS; i++) {
        ref.push_back(plain());
        own.push_back(queued(dir));
    }
    hostTaskClose();
    std::filesystem::remove_all(dir);
    benchOut("ref.oneway.1580", MESSAGES / benchMedian(ref), "messages/s");
    benchOut("single-entry downloads, none lost", MESSAGES / benchMedian(own), "messages/s");
    benchRatio("time of downloads / ref", benchMedian(own) / benchMedian(ref), 2);
}
