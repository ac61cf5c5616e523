// Tasks of the chassis that use the manager's lists: what each has registered for, the triggers and
// list copies that it has received, and how it treats its triggers (tests want bad clients too).
#pragma once

#include <span>
#include <string>
#include <vector>

#include "client/aclClient.h"
#include "include/chassisControl.h"
#include "include/jsonText.h"
#include "platform/api/zekChassis.h"

struct chassisPeer;

struct clientRegistration {
    const aclClientKind* kind;
    std::string name;
    bool operator==(const clientRegistration&) const = default;
};
struct clientTriggers {  // of one list
    uint32_t mtype;
    std::string name;
    uint64_t count;
    size_t pairs;  // in the last one
};
struct clientCopyEntry {
    uint32_t id, seq;
};
struct clientCopy {
    bool ipv6;
    std::string name;
    std::vector<clientCopyEntry> entries;
    uint64_t messages;
    uint32_t lastCarried;  // entries in the last message of a whole list
};

struct clientState {
    uint32_t behaviour = CLIENT_ANSWERS;
    std::vector<clientRegistration> registrations;
    std::vector<clientTriggers> triggers;
    std::vector<clientCopy> copies;
    uint64_t strange = 0;       // messages that made no sense
    std::vector<uint8_t> kept;  // a trigger that is answered too late
    aclClientKey key;
    bool queueAsked = false;  // a management task's queue: the manager has answered
    uint64_t askAt = 0;
};

// What a peer does with a message that is in order. Routing tasks answer their triggers as they are
// told to behave; queue clients are done when the message is acknowledged; management tasks keep
// copies, too.
void clientRouting(chassisPeer& peer, std::vector<uint8_t>& message);
void clientQueued(chassisPeer& peer, std::vector<uint8_t>& message);
void clientManagement(chassisPeer& peer, std::vector<uint8_t>& message);

// Asks the manager for the queues of the management tasks, again and again until it answers.
// When that is next due; UINT64_MAX: never.
uint64_t clientsTick(std::vector<chassisPeer>* peers, uint32_t managerCard, uint64_t nowMs);

// The commands CHASSIS_CLIENT_...
struct clientOutcome {
    uint32_t status;  // chassisStatus
    jsonObject text;
};
clientOutcome clientsCommand(std::vector<chassisPeer>* peers, const std::string& runDir,
                             uint32_t managerCard, const chassisClientReq& request, uint64_t nowMs);
