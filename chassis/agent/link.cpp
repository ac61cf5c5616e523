#include "chassis/agent/link.h"

namespace {

void enter(agentLink* link, linkPhase phase, uint64_t at) {
    link->phase = phase;
    link->nextAt = at;
    link->phaseFirst = link->sequence + 1;
}

// What is installed is not what the manager means, or may not be.
void resynchronise(agentLink* link, uint64_t nowMs) {
    link->lost++;
    if (link->mayAskDown) enter(link, linkPhase::askDown, nowMs);
}

bool ofThisPhase(const agentLink& link, uint32_t sequence) {
    // Numbers wrap; before the first request of the phase there are none.
    return sequence - link.phaseFirst < link.sequence + 1 - link.phaseFirst;
}

}  // namespace

void linkStart(agentLink* link, uint32_t sequence) {
    link->sequence = sequence;
    enter(link, link->mayAskDown ? linkPhase::askDown : linkPhase::registering, 0);
}

linkAction linkDue(agentLink* link, uint64_t nowMs) {
    if (nowMs < link->nextAt) return linkAction::none;
    if (link->phase == linkPhase::awaitReplay) {
        resynchronise(link, nowMs);
        if (link->phase == linkPhase::awaitReplay) enter(link, linkPhase::registering, nowMs);
    }
    link->nextAt = nowMs + LINK_RETRY_MS;
    if (link->phase == linkPhase::askDown) {
        // A repeated question keeps its number: chassisd raises one event for it.
        link->sequence = link->phaseFirst;
        link->downs++;
        return linkAction::sendDown;
    }
    link->sequence++;
    link->registrations++;
    return linkAction::sendRegistration;
}

void linkNobody(agentLink* link, linkAction action, uint64_t nowMs) {
    // Without chassisd nobody can be asked; a manager that has gone will not know us when it is
    // back, and is asked again every LINK_RETRY_MS.
    if (action == linkAction::sendDown && link->phase == linkPhase::askDown)
        enter(link, linkPhase::registering, nowMs);
    else if (action == linkAction::sendRegistration && link->phase == linkPhase::inStep)
        enter(link, linkPhase::registering, link->nextAt);
}

void linkDownAnswered(agentLink* link, uint32_t sequence, bool silent, uint64_t nowMs) {
    if (link->phase != linkPhase::askDown || !ofThisPhase(*link, sequence)) return;
    if (silent) {
        enter(link, linkPhase::askDown, nowMs);
        return;
    }
    link->replayWanted = true;
    enter(link, linkPhase::registering, nowMs);
}

void linkRegistered(agentLink* link, uint32_t sequence, int32_t pid, uint64_t nowMs) {
    if (link->phase == linkPhase::askDown || !ofThisPhase(*link, sequence)) return;
    link->answers++;
    bool sameManager = link->session != 0 && link->sessionPid == pid && !link->replayWanted;
    if (sameManager || !link->replayIsSure)
        enter(link, linkPhase::inStep, nowMs + link->keepaliveMs);
    else if (link->phase != linkPhase::awaitReplay)
        enter(link, linkPhase::awaitReplay, nowMs + LINK_REPLAY_MS);
}

void linkSession(agentLink* link, uint32_t session, int32_t pid, uint64_t nowMs) {
    bool replay = link->replayWanted || link->session == 0 || link->sessionPid != pid;
    link->sessions++;
    link->session = session;
    link->sessionPid = pid;
    // While the card is being reported down, the queue is one that goes away with it.
    if (link->phase == linkPhase::askDown) return;
    link->replayWanted = false;
    if (!replay)
        resynchronise(link, nowMs);
    else if (link->phase == linkPhase::awaitReplay)
        enter(link, linkPhase::inStep, nowMs + link->keepaliveMs);
}

void linkMiddle(agentLink* link, uint64_t nowMs) {
    if (link->phase != linkPhase::inStep || nowMs < link->middleAt) return;
    link->middleAt = nowMs + LINK_REPLAY_MS;
    resynchronise(link, nowMs);
}
