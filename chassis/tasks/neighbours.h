// The neighbours of the access-list manager that have something to tell it of their own accord: the
// interface manager and the protocols' tasks. Commands change what they know, which is on disk
// before anybody hears of it, and are answered when the manager has acknowledged it.
#pragma once

#include "chassis/tasks/requests.h"
#include "chassis/tasks/stateFile.h"

struct neighbours {
    const chassisDescription* chassis = nullptr;
    std::string runDir, file;
    laterRequests* requests = nullptr;
    neighbourState state;
    bool unwritten = false;  // what was acknowledged since the file was written
    uint64_t writeAt = 0;
    zekEndpoint* endpoint = nullptr;  // of the protocols' tasks
    managerLine lines[LINE_COUNT];    // without an interface manager in the chassis: no queue
    uint64_t endMarked = 0;  // the newest replay of interfaces behind which an end was marked
    struct waiter {
        uint32_t ticket, status = CHASSIS_OK;  // the worst so far
        struct {
            bool waits = false;
            uint32_t position = 0;
            uint64_t replays = 0;  // of the line, when the position was given
        } lines[LINE_COUNT];
    };
    std::vector<waiter> waiters;
};

// Reads the state and opens the lines: that of interfaces from the interface manager's endpoint
// (null: the chassis has none), the others from one of their own at the address. False and *error
// when that cannot be opened. *notice: what the operator should know of the state; empty: nothing.
bool neighboursOpen(neighbours* all, const chassisDescription& chassis, const std::string& runDir,
                    zekEndpoint* ifm, uint32_t ifmAddress, uint32_t address,
                    laterRequests* requests, std::string* error, std::string* notice);
void neighboursClose(neighbours* all);

// A manager registers with the interface manager; what an endpoint of theirs receives as an answer.
void neighboursRegistered(neighbours* all, const ipcHdr& registration);
void neighboursAnswer(neighbours* all, const ipcHdr& answer);
// Takes what waits at the endpoint of the protocols' tasks.
void neighboursServe(neighbours* all);
// Goes on with the lines, to the manager of the primary route processor. When it is next due.
uint64_t neighboursTick(neighbours* all, uint32_t primaryRp, uint64_t nowMs);

// The commands of chassisPlaceReq.
void neighboursCommand(neighbours* all, std::span<const uint8_t> request, uint64_t nowMs);
// Rows of what is known, and what there is of each.
[[nodiscard]] std::string neighboursRows(const neighbours& all);
[[nodiscard]] jsonObject neighboursSummary(const neighbours& all);
