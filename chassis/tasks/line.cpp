// Lines to the manager.
#include "chassis/tasks/line.h"

#include <algorithm>

#include "include/service.h"

namespace {

uint32_t bitOf(const managerLine& line) {
    return line.rp < RP_COUNT ? 1u << line.rp : 0;
}

// Sends a message of the first items. Its position; 0: the queue takes no more.
uint32_t sendFirst(managerLine* line, std::span<const toldItem> items, size_t* taken,
                   uint64_t nowMs) {
    std::vector<uint8_t> message = line->pack(items, taken);
    auto* hdr = wireView<ipcHdr>(std::span(message));
    hdr->target = line->own;
    hdr->source.card = line->card;
    hdr->source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    return zekEndpointQueueSend(line->queue, message, nowMs);
}

// Sends the items. fn(carried, position) for each message.
template <class Fn>
void sendAll(managerLine* line, const toldItems& items, uint64_t nowMs, Fn fn) {
    for (std::span<const toldItem> left(items); !left.empty();) {
        size_t taken;
        const uint32_t position = sendFirst(line, left, &taken, nowMs);
        fn(left.first(taken), position);
        if (position == 0) return;
        left = left.subspan(taken);
    }
}

owedRemoval* findOwed(lineBook* book, const std::vector<uint8_t>& bytes) {
    const auto owed = std::ranges::find(book->owed, bytes, &owedRemoval::bytes);
    return owed != book->owed.end() ? &*owed : nullptr;
}

}  // namespace

bool lineIsInStep(const managerLine& line) {
    return !line.startsOver && line.rp < RP_COUNT &&
           zekEndpointQueueState(line.queue) == zekSwpState::inStep;
}

bool lineHasReplayed(const managerLine& line) {
    return !line.startsOver &&
           (!lineIsInStep(line) || zekEndpointQueueAnswered(line.queue) >= line.replayEnd);
}

void lineMarkEnd(managerLine* line, uint64_t nowMs) {
    size_t none;
    (void)sendFirst(line, {}, &none, nowMs);
}

bool lineOwe(const managerLine& line, const toldItems& items, lineBook* book) {
    if (!items.empty()) book->told |= bitOf(line);
    for (const toldItem& item : items) {
        if (!item.removes || book->told == 0) continue;
        if (owedRemoval* owed = findOwed(book, item.bytes)) {
            owed->rps = book->told;
            owed->position = 0;
        } else {
            book->owed.push_back({item.bytes, book->told});
        }
    }
    return book->owed.size() <= OWED_MAX;
}

void lineForget(uint32_t rp, lineBook* book) {
    const uint32_t bit = 1u << rp;
    book->told &= ~bit;
    for (owedRemoval& owed : book->owed) owed.rps &= ~bit;
    std::erase_if(book->owed, [](const owedRemoval& o) { return o.rps == 0; });
}

uint32_t lineTell(managerLine* line, const toldItems& items, lineBook* book, uint64_t nowMs) {
    if (!lineIsInStep(*line)) return 0;
    uint32_t last = 0;
    sendAll(line, items, nowMs, [&](std::span<const toldItem> carried, uint32_t position) {
        last = position;
        for (const toldItem& item : carried)
            if (owedRemoval* owed = item.removes ? findOwed(book, item.bytes) : nullptr)
                owed->position = position;
    });
    return last;
}

bool lineAnswer(managerLine* line, const ipcHdr& answer, lineBook* book, uint64_t nowMs) {
    if (!zekEndpointQueueAnswer(line->queue, answer, nowMs) || !lineIsInStep(*line)) return false;
    const uint32_t answered = zekEndpointQueueAnswered(line->queue);
    bool changed = false;
    for (owedRemoval& owed : book->owed) {
        if (owed.position == 0 || owed.position > answered) continue;
        changed = true;
        owed.rps &= ~bitOf(*line);
        owed.position = 0;
    }
    if (changed) std::erase_if(book->owed, [](const owedRemoval& o) { return o.rps == 0; });
    return changed;
}

bool lineReplayIsDue(managerLine* line, uint32_t rp, uint32_t card, uint64_t nowMs) {
    if (line->rp != rp || line->card != card) line->startsOver = true;
    line->rp = rp;
    line->card = card;
    (void)zekEndpointQueueTick(line->queue, nowMs);
    return line->startsOver || zekEndpointQueueState(line->queue) == zekSwpState::answered;
}

bool lineReplay(managerLine* line, const toldItems& items, lineBook* book, uint64_t nowMs) {
    line->startsOver = false;
    line->replays++;
    const uint32_t bit = bitOf(*line);
    toldItems all;
    for (owedRemoval& owed : book->owed) {
        owed.position = 0;
        if ((owed.rps & bit) != 0) all.push_back({true, owed.bytes});
    }
    all.insert(all.end(), items.begin(), items.end());
    zekEndpointQueueReplayBegin(line->queue);
    const bool changed = !all.empty() && (book->told & bit) == 0;
    if (!all.empty()) book->told |= bit;
    // The book's removals come first and in its order; the model may have some of its own.
    size_t next = 0;
    sendAll(line, all, nowMs, [&](std::span<const toldItem> carried, uint32_t position) {
        for (const toldItem& item : carried) {
            if (!item.removes) break;
            while (next < book->owed.size() && book->owed[next].bytes != item.bytes) next++;
            if (next < book->owed.size()) book->owed[next].position = position;
        }
    });
    zekEndpointQueueReplayEnd(line->queue);
    line->replayEnd = zekEndpointQueueNewest(line->queue);
    return changed;
}
