// What has become of the operators' requests.
//
// A shell that misses an answer asks what became of its request, and sends it again, marked as
// repeated, when it is not under way any more: then the answer was lost. A repeated request that
// has been answered is answered from memory, and one that is under way is not taken twice, so
// nothing is executed twice. The questions come from another thread, also while the task is busy.
#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "include/cliMsg.h"
#include "platform/host/host.h"

namespace {

constexpr size_t SENDERS_MAX = 32;
constexpr size_t ANSWERS_MAX = 512;  // remembered for each; a load has 256 requests under way
constexpr size_t ANSWER_MAX = 2048;  // bytes; longer ones are of shows, which may run again

enum class requestState { waiting, working, heldBack };

struct rememberedAnswer {
    uint32_t sequence;
    std::vector<uint8_t> bytes;
};
struct requestSender {
    std::map<uint32_t, requestState> open;  // by sequence number
    std::vector<rememberedAnswer> answers;  // a ring once it is full
    size_t nextAnswer = 0;
    uint64_t used = 0;  // larger is later
};
typedef std::pair<uint32_t, uint32_t> senderKey;  // card, service

struct requestBook {
    std::mutex lock;
    std::map<senderKey, requestSender> senders;
    uint64_t uses = 0;
    std::pair<senderKey, uint32_t> taken;  // by the task, last
};
// Never destroyed: the listener may outlive the process's static objects.
requestBook& book = *new requestBook;

bool isOperators(uint32_t mtype) {
    return mtype == MT_CLI_COMMAND || mtype == MT_CLI_COMMAND_2 ||
           mtype == MT_ACL_INVERSEMASK_ENABLE || mtype == MT_ACL_INVERSEMASK_DISABLE;
}
senderKey keyOf(const ipcTriple& triple) {
    return {triple.card, triple.svce};
}
requestSender* find(const senderKey& key) {
    auto known = book.senders.find(key);
    return known != book.senders.end() ? &known->second : nullptr;
}
requestState* findOpen(const senderKey& key, uint32_t sequence) {
    requestSender* sender = find(key);
    if (sender == nullptr) return nullptr;
    auto open = sender->open.find(sequence);
    return open != sender->open.end() ? &open->second : nullptr;
}
void close(const senderKey& key, uint32_t sequence) {
    if (requestSender* sender = find(key)) sender->open.erase(sequence);
}
const rememberedAnswer* findAnswer(const requestSender& sender, uint32_t sequence) {
    auto answer = std::ranges::find(sender.answers, sequence, &rememberedAnswer::sequence);
    return answer != sender.answers.end() ? &*answer : nullptr;
}

void forgetOldest() {
    auto oldest = book.senders.end();
    for (auto it = book.senders.begin(); it != book.senders.end(); ++it)
        if (it->second.open.empty() &&
            (oldest == book.senders.end() || it->second.used < oldest->second.used))
            oldest = it;
    if (oldest != book.senders.end()) book.senders.erase(oldest);
}

// The longest unused one without open requests makes room.
requestSender& obtain(const senderKey& key) {
    requestSender* sender = find(key);
    if (sender == nullptr) {
        // Two at a time: what many senders with open requests have made it grow goes away again.
        for (int i = 0; i < 2 && book.senders.size() >= SENDERS_MAX; i++) forgetOldest();
        sender = &book.senders[key];
    }
    sender->used = ++book.uses;
    return *sender;
}

}  // namespace

hostArrival hostRequestArrives(const ipcHdr& request, std::vector<uint8_t>* answer) {
    if (!isOperators(request.mtype)) return hostArrival::fresh;
    std::lock_guard guard(book.lock);
    requestSender& sender = obtain(keyOf(request.target));
    const bool repeated = request.ramCode == IPC_REPEATED;
    if (repeated)
        if (const rememberedAnswer* known = findAnswer(sender, request.sequence)) {
            *answer = known->bytes;
            return hostArrival::answered;
        }
    const bool fresh = sender.open.emplace(request.sequence, requestState::waiting).second;
    return repeated && !fresh ? hostArrival::underWay : hostArrival::fresh;
}

void hostRequestTaken(const ipcHdr& request) {
    std::lock_guard guard(book.lock);
    // What the task took before and has not answered by now it never will.
    const requestState* before = findOpen(book.taken.first, book.taken.second);
    if (before != nullptr && *before == requestState::working)
        close(book.taken.first, book.taken.second);
    if (!isOperators(request.mtype)) return;
    book.taken = {keyOf(request.target), request.sequence};
    if (requestState* open = findOpen(book.taken.first, book.taken.second))
        *open = requestState::working;
}

void hostRequestDropped(const ipcHdr& request) {
    if (!isOperators(request.mtype)) return;
    std::lock_guard guard(book.lock);
    close(keyOf(request.target), request.sequence);
}

void hostRequestHeldBack(const ipcHdr& answer) {
    if (!isOperators(answer.mtype)) return;
    std::lock_guard guard(book.lock);
    if (requestState* open = findOpen(keyOf(answer.source), answer.sequence))
        *open = requestState::heldBack;
}

void hostRequestAnswered(std::span<const uint8_t> answer) {
    const auto* hdr = wireView<ipcHdr>(answer);
    if (!isOperators(hdr->mtype)) return;
    std::lock_guard guard(book.lock);
    requestSender* sender = find(keyOf(hdr->source));
    if (sender == nullptr || sender->open.erase(hdr->sequence) == 0 || answer.size() > ANSWER_MAX)
        return;
    if (sender->answers.size() < ANSWERS_MAX) sender->answers.emplace_back();
    rememberedAnswer& place = sender->answers[sender->nextAnswer++ % ANSWERS_MAX];
    place.sequence = hdr->sequence;
    place.bytes.assign(answer.begin(), answer.end());
}

const char* hostRequestState(uint32_t card, uint32_t service, uint32_t sequence) {
    std::lock_guard guard(book.lock);
    const requestSender* sender = find({card, service});
    if (sender == nullptr) return "unknown";
    if (const requestState* open = findOpen({card, service}, sequence))
        return *open == requestState::waiting ? "waiting" : "working";
    return findAnswer(*sender, sequence) != nullptr ? "answered" : "unknown";
}

void hostRequestsReset() {
    std::lock_guard guard(book.lock);
    book.senders.clear();
    book.taken = {};
}
