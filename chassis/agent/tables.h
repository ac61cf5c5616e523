// Downloads: verified, put together, applied to the data plane.
//
// A list may come in chunks: the first under the list's own message id, the rest under the next
// one, and all but the last say that more follows. Nothing of it is installed before the last one
// has come, and any other message in between ends the attempt. What is refused changes nothing
// that is installed, is counted by its reason, and the last refusal keeps its text.
//
// A replay is built beside what is in force and exchanged with it when it has ended. Where there is
// no room for both, or where nothing is in force that would have to stay, its lists come into force
// one by one, and what it has not named goes at its end. Nothing goes at the end of a replay of
// which something was refused: a place keeps its old list rather than none.
//
// A renumbering may come in several messages, too. It is done at once in every place that has the
// list; inside a replay, in what the replay has brought.
#pragma once

#include <set>
#include <span>
#include <string>

#include "chassis/agent/decode.h"

// What is being put together of several messages.
struct gathering {
    uint32_t id = 0;     // of the first message; 0: nothing
    uint32_t count = 0;  // entries of the whole
    dpList list;
    std::vector<dpNumber> numbers;  // renumberings
};

struct agentTables : agentCounts {
    dataplane plane;
    agentReplay replay = agentReplay::none;
    void* staged = nullptr;     // beside: what the replay has brought
    std::set<dpPlace> touched;  // byList: the places that it has named
    uint64_t refusedBefore = 0;
    uint64_t byLists = 0;    // replays that ended list by list
    bool macEgress = false;  // egress MAC lists are in force, not only held

    // 14495: nothing filters by what it says here; kept as it came, from behind the IPC header on.
    uint64_t protocolFilters = 0;
    std::vector<uint8_t> protocolFilter;  // what the newest carried
    gathering pending;
};

// Applies one message (header and body, as it came). Never keeps a pointer into it.
agentVerdict agentTablesApply(agentTables* tables, std::span<const uint8_t> message);
// A replay begins; one that was under way is void.
void agentTablesReplayBegin(agentTables* tables);
// It has ended: what it brought is in force. True when nothing of it was refused, so that nothing
// else is.
bool agentTablesReplayEnd(agentTables* tables);
// It will not end. What came into force by then stays.
void agentTablesReplayDrop(agentTables* tables);
