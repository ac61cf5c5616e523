// The client library: one request and one reply at a time over the task's response queue.
#include "client/aclClient.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <random>

#include "include/clientMsg.h"
#include "include/service.h"
#include "platform/api/zekTransport.h"

namespace {

constexpr int SEND_PATIENCE_MS = 1000;

// Message types: registering, taking it back, the trigger.
constexpr aclClientKind KIND_IP{"ip", MT_ACL_CLIENT_ADD, MT_ACL_CLIENT_DEL, MT_ACL_TRIGGER};
constexpr aclClientKind KIND_IPV6{"ipv6", MT_V6_ACL_CLIENT_ADD, MT_V6_ACL_CLIENT_DEL,
                                  MT_V6_ACL_TRIGGER};
constexpr aclClientKind KIND_PREFIX{"prefix", MT_PREFIX_CLIENT_ADD, MT_PREFIX_CLIENT_DEL,
                                    MT_PREFIX_TRIGGER};
constexpr aclClientKind KIND_PREFIX6{"prefix6", MT_V6_PREFIX_CLIENT_ADD, MT_V6_PREFIX_CLIENT_DEL,
                                     MT_PREFIX_TRIGGER};
constexpr aclClientKind KIND_ASPATH{"as-path", MT_ASPATH_CLIENT_ADD, MT_ASPATH_CLIENT_DEL,
                                    MT_ASPATH_TRIGGER};
constexpr aclClientKind KIND_COMM{"community", MT_COMM_CLIENT_ADD, MT_COMM_CLIENT_DEL,
                                  MT_COMM_TRIGGER};
constexpr aclClientKind KIND_RMAP{"route-map", MT_RMAP_CLIENT_ADD, MT_RMAP_CLIENT_DEL,
                                  MT_RMAP_TRIGGER};
constexpr aclClientKind KIND_MAC{"mac", MT_MAC_CLIENT_ADD, MT_MAC_CLIENT_DEL, MT_MAC_TRIGGER};
constexpr aclClientKind kinds[] = {KIND_IP,     KIND_IPV6, KIND_PREFIX, KIND_PREFIX6,
                                   KIND_ASPATH, KIND_COMM, KIND_RMAP,   KIND_MAC};

bool waitReadable(const aclClientKey& key, int timeoutMs) {
    const int fd = zekEndpointFd(key.endpoint);
    if (key.wait) return key.wait(fd, timeoutMs);
    pollfd one{fd, POLLIN, 0};
    return poll(&one, 1, timeoutMs) > 0;
}

// Waits for the reply of that type and sequence number; replies to what was given up are dropped.
aclClientResult await(aclClientKey* key, uint32_t mtype, uint32_t sequence) {
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + milliseconds(key->replyMs);
    std::vector<uint8_t> reply;
    zekSender sender{};
    for (;;) {
        // Everything that is there, before the clock: a reply that came in time counts even when
        // this thread looks late.
        while (zekEndpointRecv(key->endpoint, &reply, IPC_TRANSPORT_MAX, 0, &sender) > 0) {
            const auto* hdr = wireView<ipcHdr>(std::span<const uint8_t>(reply));
            if (hdr == nullptr || hdr->mtype != mtype || hdr->sequence != sequence) continue;
            return hdr->result == 0 ? ACL_CLIENT_OK : ACL_CLIENT_REFUSED;
        }
        const auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0) return ACL_CLIENT_NO_REPLY;
        (void)waitReadable(*key, static_cast<int>(left));
    }
}

}  // namespace

bool aclClientOpen(aclClientKey* key, std::string* error) {
    const uint32_t port = aclServicePort(key->application, key->instance, QUEUE_RESPONSE);
    key->endpoint = zekEndpointOpen(key->runDir, key->card, port, error);
    key->sequence = std::random_device{}();  // replies to an earlier life are not ours
    return key->endpoint != nullptr;
}

void aclClientClose(aclClientKey* key) {
    zekEndpointClose(key->endpoint);
    key->endpoint = nullptr;
}

aclClientResult sendIPCtoACL(uint32_t mtype, aclClientKey* key, std::span<const uint8_t> body) {
    std::vector<uint8_t> message(sizeof(ipcHdr) + body.size());
    std::ranges::copy(body, message.begin() + sizeof(ipcHdr));
    auto* hdr = wireView<ipcHdr>(std::span(message));
    const uint32_t sequence = ++key->sequence;
    hdr->length = static_cast<uint32_t>(message.size());
    hdr->mtype = mtype;
    hdr->sequence = sequence;
    hdr->target.card = key->card;
    hdr->target.svce = aclServicePort(key->application, key->instance, QUEUE_RESPONSE);
    hdr->source.card = key->managerCard;
    hdr->source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    if (zekEndpointSend(key->endpoint, message.data(), message.size(), SEND_PATIENCE_MS) !=
        zekSendResult::sent)
        return ACL_CLIENT_NOT_SENT;
    return await(key, mtype, sequence);
}

std::span<const aclClientKind> aclClientKinds() {
    return kinds;
}

aclClientResult aclClientRegister(const aclClientKind& kind, bool add, aclClientKey* key,
                                  uint32_t instance, std::string_view name) {
    if (name.empty() || name.size() > LIST_NAME_LEN) return ACL_CLIENT_BAD_NAME;
    clientRegReq request{};
    request.application = key->application;
    request.instance = instance;
    request.name = listNameMake(name);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&request);
    return sendIPCtoACL(add ? kind.add : kind.del, key,
                        std::span(bytes, sizeof request).subspan(sizeof(ipcHdr)));
}

// clang-format off
#define CLIENT_PAIR(suffix, kind)                                                                     \
    aclClientResult reg##suffix(aclClientKey* key, uint32_t instance, std::string_view name) {        \
        return aclClientRegister(kind, true, key, instance, name);                                    \
    }                                                                                                 \
    aclClientResult dereg##suffix(aclClientKey* key, uint32_t instance, std::string_view name) {      \
        return aclClientRegister(kind, false, key, instance, name);                                   \
    }
// clang-format on
CLIENT_PAIR(Acl, KIND_IP)
CLIENT_PAIR(AclV6, KIND_IPV6)
CLIENT_PAIR(Prefix, KIND_PREFIX)
CLIENT_PAIR(PrefixV6, KIND_PREFIX6)
CLIENT_PAIR(Asp, KIND_ASPATH)
CLIENT_PAIR(Comm, KIND_COMM)
CLIENT_PAIR(Rmap, KIND_RMAP)
CLIENT_PAIR(Mac, KIND_MAC)
#undef CLIENT_PAIR

bool aclTriggerRead(std::span<const uint8_t> message, aclTriggerText* trigger) {
    // What follows the pairs is not needed, and the first message of a list has none.
    if (message.size() < TRIGGER_LEN) return false;
    // Copied to its full length, so that the record can be looked at whole.
    std::vector<uint8_t> whole(message.begin(), message.end());
    whole.resize(std::max(whole.size(), sizeof(triggerMsg)));
    const auto* msg = wireView<triggerMsg>(std::span<const uint8_t>(whole));
    const uint32_t count = msg->pairCount;
    if (std::ranges::find(kinds, uint32_t{msg->ipc.mtype}, &aclClientKind::trigger) ==
            std::ranges::end(kinds) ||
        count > TRIGGER_PAIRS_MAX || message.size() < TRIGGER_LEN + count * sizeof(triggerPair))
        return false;
    const auto* text = reinterpret_cast<const char*>(message.data()) + offsetof(triggerMsg, body);
    *trigger = {msg->ipc.mtype,
                msg->application,
                msg->instance,
                std::string_view(text, strnlen(text, LIST_NAME_LEN)),
                {}};
    for (uint32_t i = 0; i < count; i++)
        trigger->pairs.emplace_back(msg->pairs[i].first, msg->pairs[i].second);
    return true;
}

bool aclTriggerAnswer(zekEndpoint* requestQueue, std::span<const uint8_t> message,
                      uint32_t status) {
    std::vector<uint8_t> answer(message.begin(), message.end());
    auto* hdr = wireView<ipcHdr>(std::span(answer));
    if (hdr == nullptr) return false;
    ipcExchangeTriples(hdr);
    hdr->delivery = status;
    return zekEndpointSend(requestQueue, answer.data(), answer.size(), SEND_PATIENCE_MS) ==
           zekSendResult::sent;
}
