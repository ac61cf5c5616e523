// What the task remembers of each client that it tells of changes, and for how long it waits for
// one.
//
// A client that lets its time pass is not waited for again until it has answered the newest of what
// it was sent, or registers anew: meanwhile its triggers go without a wait, and its answers are
// counted when they come. The waits of one request together are bounded as well.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "include/ipc.h"

// A request waits for its clients for at most this many times the wait for one.
constexpr uint32_t CLIENT_WAITS_PER_REQUEST = 2;

struct clientState {
    uint64_t messages, failures;
    uint64_t unanswered;  // sent by IPC, and no answer yet
    uint64_t late;        // answers that came when nobody waited for them
    uint32_t lastStatus;  // TRIGGER_NO_REPLY also when none was waited for
    uint64_t lastWaitMs, longestWaitMs;
    uint32_t card, service;     // where it was reached last
    uint32_t newest, answered;  // sequence numbers: of the newest trigger, of the newest answer
    bool silent;                // it is not waited for
    bool missing;               // it had no address when it was to be told; the log says so once
};
typedef std::pair<uint32_t, uint32_t> clientKey;  // application, instance

// Made at the first use. Only the clients of the chassis description are ever sent anything; of
// others only so many are remembered, and null is the answer for the rest.
constexpr size_t CLIENTS_REMEMBERED = 4096;
clientState* clientStateOf(uint32_t application, uint32_t instance);
const std::map<clientKey, clientState>& clientStates();
void clientStatesForget();  // the task starts

// A request begins: nobody was waited for yet.
void clientWaitsBegin();
// How long to wait for this client now; 0: not at all.
uint32_t clientWaitMs(const clientState& client);
// A message went to the client; then it was waited for, with or without an answer.
void clientTold(clientState* client, const ipcHdr& message);
void clientAnswered(clientState* client, uint32_t waitedMs);
void clientSilent(clientState* client, uint32_t waitedMs);
// An answer to a trigger that came when nobody waited for it.
void clientLateAnswer(const ipcHdr& answer);
void clientRegisteredAnew(uint32_t application, uint32_t instance);
