// The shell's road to the manager, which is a call in these tests: what it sends is handled before
// the sending returns, and the answer waits to be received.
#include "platform/api/zekTransport.h"
#include "tests/policy/policyTest.h"

static std::deque<std::vector<uint8_t>> answers;

zekEndpoint* zekEndpointOpen(std::string_view, uint32_t, uint32_t, std::string*) {
    return nullptr;
}
void zekEndpointClose(zekEndpoint*) {}
int zekEndpointFd(const zekEndpoint*) {
    return -1;
}
zekSendResult zekEndpointSend(zekEndpoint* test, const void* message, size_t length, int) {
    const auto* bytes = static_cast<const uint8_t*>(message);
    auto* at = reinterpret_cast<PolicyTest*>(test);
    for (auto& sent : at->deliver({bytes, bytes + length})) answers.push_back(sent);
    if (!answers.empty()) at->reply = answers.back();
    return zekSendResult::sent;
}
int zekEndpointRecv(zekEndpoint*, std::vector<uint8_t>* message, size_t, int, zekSender*) {
    if (answers.empty()) return 0;
    *message = std::move(answers.front());
    answers.pop_front();
    return static_cast<int>(message->size());
}
int zekDebugCall(std::string_view, uint32_t, std::string_view name, std::string_view args, int,
                 std::string* out) {
    return zekDebugRun(name, args, out) ? 0 : -2;
}
