// The agent's standing with the manager, as plain state: no sockets, no clock.
//
//   registering --answered--> awaitReplay --begin--> replaying --end--> inStep
//
// An agent that holds nothing, or that has missed something, needs a replay. It gives that need a
// number and registers with it, every second, until a replay has begun; only the end of a whole one
// takes the need away. An agent in step repeats its registration from time to time, so that a
// manager that has started again learns of it.
//
// A manager that does not mark its replays takes the registration of an agent that it knows for a
// repeated one and sends nothing. When no session begins, the agent has chassisd report its card
// down (askDown); the registration after that is answered with a new session and everything in it.
// Where that ends is not known: when nothing more comes, the agent is `unconfirmed`, never in step.
//
// A card's agent has two queues from the manager, each with sessions of its own. The steps above
// are those of the queue of lists; the MAC queue is replayed together with it, under the same
// number, and the end of a replay is that of both.
#pragma once

#include <cstdint>

constexpr uint64_t LINK_RETRY_MS = 1000;      // until an unanswered registration is repeated
constexpr uint64_t LINK_KEEPALIVE_MS = 5000;  // between registrations in step, by default
constexpr uint64_t LINK_REPLAY_MS = 5000;     // until a replay that has not begun is given up
constexpr uint64_t LINK_DOWN_MS = 11000;      // for chassisd's answer, which comes within 10 s
// A replay without marks counts as taken when nothing has come for so long, at the latest after ...
constexpr uint64_t LINK_QUIET_MS = 2000, LINK_QUIET_MAX_MS = 30000;
// What is lost again within a minute is asked for after a second, then two, four, ... and 30.
constexpr uint64_t LINK_LOSS_AGAIN_MS = 60000, LINK_LOSS_MS = 1000, LINK_LOSS_MAX_MS = 30000;

enum class linkPhase : uint8_t {
    registering,
    awaitReplay,
    askDown,
    replaying,
    inStep,
    unconfirmed
};
enum class linkAction : uint8_t { none, sendDown, sendRegistration, endUnmarked, endUnmarkedMac };
enum class linkQueue : uint8_t { lists, mac };
// What a new session does to the tables.
enum class linkBegin : uint8_t { replay, changes };

// A replay without marks: when it began, 0 none is under way, and when it counts as taken.
struct linkQuiet {
    uint64_t since = 0, end = 0;
};
// The newest end of a replay in a queue: whose it was, its number, and whether nothing of it, or
// since, was refused.
struct linkReplayEnd {
    int32_t pid = 0;
    uint32_t replay = 0;
    bool whole = false;
};

struct agentLink {
    uint64_t keepaliveMs = LINK_KEEPALIVE_MS;  // between the registrations of an agent in step
    // A manager without marks sends the control processor's agent nothing when nothing is bound to
    // it, so a replay that does not begin says nothing about its queue.
    bool replayIsSure = true;
    bool mayAskDown = true;
    bool hasMacQueue = false;

    linkPhase phase = linkPhase::registering;
    uint64_t nextAt = 0;        // when the next request is due
    uint64_t giveUpAt = 0;      // awaitReplay, askDown: when waiting has no more sense
    uint32_t sequence = 0;      // of the newest request; start it anywhere
    uint32_t phaseFirst = 0;    // the first of this phase: answers to older ones do not count
    bool replayWanted = false;  // the card was reported down since the session began
    uint64_t middleAt = 0;      // no second alarm before

    uint32_t need = 0;      // 0: none
    uint32_t lastNeed = 0;  // 31 bits
    uint64_t needAt = 0;    // named to the manager from then on
    uint64_t lossDelayMs = 0, lostAt = 0;

    uint32_t session = 0;  // that the tables come from, 0 none, and its sender
    int32_t sessionPid = 0;
    int32_t answerPid = 0;   // who has answered the newest registration
    int32_t markingPid = 0;  // a manager that marks its replays
    uint32_t replay = 0;     // the number of the newest

    int32_t macPid = 0;      // whose session the MAC queue has
    uint32_t macReplay = 0;  // the number of its replay; 0: it began without a mark

    // By linkQueue.
    linkQuiet quiet[2]{};
    linkReplayEnd ends[2]{};

    uint64_t registrations = 0, answers = 0, downs = 0, sessions = 0, replays = 0, lost = 0;
};

// Puts an agent into its first phase. `sequence` should differ from life to life.
void linkStart(agentLink* link, uint32_t sequence);
uint64_t linkNextMs(const agentLink& link);  // when linkDue has something to do
// What is to be done now. Requests go with link->sequence; linkNobody must be told when nobody took
// one. endUnmarked, endUnmarkedMac: the tables' replay ends.
linkAction linkDue(agentLink* link, uint64_t nowMs);
// The need that a registration names; 0 none.
uint32_t linkNeed(const agentLink& link, uint64_t nowMs);
void linkNobody(agentLink* link, linkAction action, uint64_t nowMs);
// chassisd's answer. `silent`: the manager has not answered it, and may yet hear of the event. With
// any other status the agent goes on: a manager that is not there holds no queues.
void linkDownAnswered(agentLink* link, uint32_t sequence, bool silent, uint64_t nowMs);
// The manager's answer, with its process.
void linkRegistered(agentLink* link, uint32_t sequence, int32_t pid, uint64_t nowMs);
// The first message of a session has come; `marked`: it is the mark of a replay's begin.
linkBegin linkSession(agentLink* link, uint32_t session, int32_t pid, bool marked, uint32_t replay,
                      uint64_t nowMs);
// The same in the MAC queue. A session without a mark counts as a replay, unless the manager marks
// replays: then something was lost.
linkBegin linkMacSession(agentLink* link, int32_t pid, bool marked, uint32_t replay,
                         uint64_t nowMs);
// Of a session, not its first.
void linkMessage(agentLink* link, linkQueue queue, uint64_t nowMs);
// The mark of a replay's end. True when it is that of the one under way; the tables' end says
// whether it is `whole`, and linkEnded must be told.
bool linkIsEnd(const agentLink& link, linkQueue queue, uint32_t replay);
void linkEnded(agentLink* link, linkQueue queue, bool whole, uint64_t nowMs);
// A message could not be used. A manager that marks replays is asked for another one; one that does
// not would have to be told that the card is down.
void linkRefused(agentLink* link, linkQueue queue, uint64_t nowMs);
// A message from the middle of a session that this agent never saw begin.
void linkMiddle(agentLink* link, uint64_t nowMs);

inline bool linkIsRegistered(const agentLink& link) {
    return link.phase != linkPhase::registering && link.phase != linkPhase::askDown;
}
const char* linkStateText(const agentLink& link);
