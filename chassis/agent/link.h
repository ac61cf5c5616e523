// The agent's standing with the manager, as plain state: no sockets, no clock.
//
//   askDown --answered--> registering --answered--> awaitReplay --new session--> inStep
//
// A manager that still holds the queues of an earlier life of this agent takes a registration for a
// repeated one and sends nothing. So an agent that holds nothing, or that has missed something,
// first has chassisd report its card down; the registration after that is answered with a replay.
// An agent in step repeats its registration from time to time, so that a manager that has started
// again learns of it.
//
// A new session means that the manager has a new queue. When the agent had asked for that, or when
// the session is another process's, it is a replay. Otherwise the queue was flushed and what was in
// it is lost: the agent starts from askDown.
#pragma once

#include <cstdint>

constexpr uint64_t LINK_RETRY_MS = 1000;      // until an unanswered request is repeated
constexpr uint64_t LINK_KEEPALIVE_MS = 5000;  // between registrations in step, by default
constexpr uint64_t LINK_REPLAY_MS = 5000;     // until a replay that has not begun is given up

enum class linkPhase : uint8_t { askDown, registering, awaitReplay, inStep };
constexpr const char* linkPhaseNames[] = {"card down asked", "registering", "waiting for replay",
                                          "in step"};
enum class linkAction : uint8_t { none, sendDown, sendRegistration };

struct agentLink {
    uint64_t keepaliveMs = LINK_KEEPALIVE_MS;  // between the registrations of an agent in step
    // The control processor's agent is sent nothing when nothing is bound to it, so a replay that
    // does not begin says nothing about its queue.
    bool replayIsSure = true;
    bool mayAskDown = true;

    linkPhase phase = linkPhase::askDown;
    uint64_t nextAt = 0;        // when the phase's request, or giving it up, is due
    uint32_t sequence = 0;      // of the newest request; start it anywhere
    uint32_t phaseFirst = 0;    // the first of this phase: answers to older ones do not count
    bool replayWanted = false;  // the card was reported down since the session began
    uint64_t middleAt = 0;      // no second alarm before

    uint32_t session = 0;  // that the tables come from, 0 none, and its sender
    int32_t sessionPid = 0;

    uint64_t registrations = 0, answers = 0, downs = 0, sessions = 0, lost = 0;
};

// Puts an agent into its first phase. `sequence` should differ from life to life.
void linkStart(agentLink* link, uint32_t sequence);
// What is to be sent now, with link->sequence; linkSent must be told when nobody took it.
linkAction linkDue(agentLink* link, uint64_t nowMs);
void linkNobody(agentLink* link, linkAction action, uint64_t nowMs);
// chassisd's answer. `silent`: the manager has not answered it, and may yet hear of the event. With
// any other status the agent goes on: a manager that is not there holds no queues.
void linkDownAnswered(agentLink* link, uint32_t sequence, bool silent, uint64_t nowMs);
// The manager's answer, with its process.
void linkRegistered(agentLink* link, uint32_t sequence, int32_t pid, uint64_t nowMs);
// The first message of a session has come. The tables start over, whatever its reason.
void linkSession(agentLink* link, uint32_t session, int32_t pid, uint64_t nowMs);
// A message from the middle of a session that this agent never saw begin.
void linkMiddle(agentLink* link, uint64_t nowMs);

inline bool linkIsRegistered(const agentLink& link) {
    return link.phase == linkPhase::awaitReplay || link.phase == linkPhase::inStep;
}
