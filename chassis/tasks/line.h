// A line to the manager: what one neighbour tells it, in order and until it is acknowledged.
//
// What is to be told is somebody's model, which can make all of it again, and removals that are
// owed: each is kept until every route processor's manager that may know better has acknowledged
// it. So nothing is queued without bound for a manager that does not answer: the line falls
// behind, and when the manager answers, registers, or is another one, it gets the removals and then
// the whole model in a new session.
#pragma once

#include "chassis/tasks/interfaces.h"
#include "platform/api/zekEndpointQueue.h"

constexpr uint32_t RP_COUNT = 2;
constexpr uint32_t RPS_MASK = (1u << RP_COUNT) - 1;
constexpr size_t OWED_MAX = 65536;

struct owedRemoval {
    std::vector<uint8_t> bytes;  // of the item
    uint32_t rps;                // who has not acknowledged it: a bit for each route processor
    uint32_t position = 0;       // in the queue's session; 0: not sent
};
// What is kept of a line over a restart.
struct lineBook {
    uint32_t told = 0;  // the route processors whose managers have been told anything
    std::vector<owedRemoval> owed;
};

// How the items of a line become messages, which the line addresses. The message of the first items
// and how many of them it carries.
typedef std::vector<uint8_t> (*linePack)(std::span<const toldItem> items, size_t* taken);

struct managerLine {
    zekEndpointQueue* queue = nullptr;
    ipcTriple own{};
    linePack pack = nullptr;
    uint32_t rp = RP_COUNT, card = 0;  // of the manager that is told
    bool startsOver = false;           // at the next tick
    uint64_t replays = 0;
    uint32_t replayEnd = 0;  // position of the newest one's last message
};

// The manager knows something else, or nothing: it gets everything at the next tick.
inline void lineStartOver(managerLine* line) {
    line->startsOver = true;
}
// Whether what is told now is sent, and not left to the next replay.
[[nodiscard]] bool lineIsInStep(const managerLine& line);

// Whether nothing of the newest replay is on its way: it has been acknowledged, or given up.
[[nodiscard]] bool lineHasReplayed(const managerLine& line);
// Sends a message without items: everything has been told.
void lineMarkEnd(managerLine* line, uint64_t nowMs);

// Enters the removals among the items, before anything is sent or written: the manager of now and
// whoever was told anything before owe an acknowledgement. False when the book is full.
[[nodiscard]] bool lineOwe(const managerLine& line, const toldItems& items, lineBook* book);
// The manager of that route processor knows nothing any more, and owes nothing.
void lineForget(uint32_t rp, lineBook* book);
// Sends the items, which the book has. The position that is to be waited for; 0: they are left to
// the next replay.
uint32_t lineTell(managerLine* line, const toldItems& items, lineBook* book, uint64_t nowMs);
// An answer that came. Whether the book has changed by it.
bool lineAnswer(managerLine* line, const ipcHdr& answer, lineBook* book, uint64_t nowMs);
// Goes on: to the manager of that route processor, from now on. `whole` makes the model's items
// when everything is to be told. Whether the book has changed. When it is next due; UINT64_MAX:
// never.
template <class Whole>
bool lineTick(managerLine* line, uint32_t rp, uint32_t card, lineBook* book, Whole whole,
              uint64_t nowMs, uint64_t* due);

// (of lineTick)
bool lineReplayIsDue(managerLine* line, uint32_t rp, uint32_t card, uint64_t nowMs);
bool lineReplay(managerLine* line, const toldItems& items, lineBook* book, uint64_t nowMs);

template <class Whole>
bool lineTick(managerLine* line, uint32_t rp, uint32_t card, lineBook* book, Whole whole,
              uint64_t nowMs, uint64_t* due) {
    const bool changed =
        lineReplayIsDue(line, rp, card, nowMs) && lineReplay(line, whole(), book, nowMs);
    *due = zekEndpointQueueTick(line->queue, nowMs);
    return changed;
}
