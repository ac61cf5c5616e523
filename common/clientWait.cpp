#include "common/clientWait.h"

#include <algorithm>

#include "platform/api/zekTask.h"

namespace {

std::map<clientKey, clientState> states;
uint32_t waitedMs = 0;  // for clients, by the request under way

bool isAfter(uint32_t a, uint32_t b) {
    return static_cast<int32_t>(a - b) > 0;
}

void noteAnswer(clientState* client, uint32_t sequence) {
    client->answered = sequence;
    client->unanswered -= std::min<uint64_t>(client->unanswered, 1);
    if (sequence == client->newest) client->silent = false;
}

}  // namespace

clientState* clientStateOf(uint32_t application, uint32_t instance) {
    const clientKey key(application, instance);
    if (auto known = states.find(key); known != states.end()) return &known->second;
    return states.size() < CLIENTS_REMEMBERED ? &states[key] : nullptr;
}
const std::map<clientKey, clientState>& clientStates() {
    return states;
}

void clientStatesForget() {
    states.clear();
    waitedMs = 0;
}

void clientWaitsBegin() {
    waitedMs = 0;
}

uint32_t clientWaitMs(const clientState& client) {
    const uint32_t all = zekClientWaitMs() * CLIENT_WAITS_PER_REQUEST;
    if (client.silent || waitedMs >= all) return 0;
    return std::min(zekClientWaitMs(), all - waitedMs);
}

void clientTold(clientState* client, const ipcHdr& message) {
    if (client->unanswered == 0) client->answered = message.sequence - 1;
    client->newest = message.sequence;
    client->unanswered++;
    client->card = message.source.card;
    client->service = message.source.svce;
}

void clientAnswered(clientState* client, uint32_t waited) {
    waitedMs += waited;
    noteAnswer(client, client->newest);
}

void clientSilent(clientState* client, uint32_t waited) {
    waitedMs += waited;
    // Who was given less than its time has not let it pass.
    if (waited != 0 && waited >= zekClientWaitMs()) client->silent = true;
}

void clientLateAnswer(const ipcHdr& answer) {
    const uint32_t sequence = answer.sequence;
    for (auto& [key, client] : states) {
        if (client.service != answer.target.svce || client.card != answer.target.card) continue;
        // An answer to something that was never sent, or a second one, says nothing.
        if (!isAfter(sequence, client.answered) || isAfter(sequence, client.newest)) continue;
        client.late++;
        noteAnswer(&client, sequence);
        return;
    }
}

void clientRegisteredAnew(uint32_t application, uint32_t instance) {
    auto known = states.find({application, instance});
    if (known != states.end()) known->second.silent = known->second.missing = false;
}
