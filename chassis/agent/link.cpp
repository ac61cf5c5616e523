// The steps of an agent's standing: what each event and each moment make of it.
#include "chassis/agent/link.h"

#include <algorithm>

namespace {

// Answers to requests of an earlier phase no longer count; the next request is this one's first.
void enter(agentLink* link, linkPhase phase, uint64_t at) {
    link->phase = phase;
    link->nextAt = at;
    link->phaseFirst = link->sequence + 1;
}

void await(agentLink* link, uint64_t nowMs) {
    enter(link, linkPhase::awaitReplay, nowMs + LINK_RETRY_MS);
    link->giveUpAt = nowMs + LINK_REPLAY_MS;
}

bool knowsNothing(const agentLink& link) {
    return link.session == 0;
}

// The number has 31 bits in a registration, and 0 there means that nothing is needed.
void raiseNeed(agentLink* link, uint64_t at) {
    link->lastNeed = (link->lastNeed + 1) & 0x7FFFFFFF;
    if (link->lastNeed == 0) link->lastNeed = 1;
    link->need = link->lastNeed;
    link->needAt = at;
}

// Something that the manager has sent is lost.
void lose(agentLink* link, uint64_t nowMs) {
    // A fault that comes back at once would have the manager replay without end.
    bool again = link->lost != 0 && nowMs - link->lostAt < LINK_LOSS_AGAIN_MS;
    link->lossDelayMs =
        again ? std::clamp(2 * link->lossDelayMs, LINK_LOSS_MS, LINK_LOSS_MAX_MS) : 0;
    link->lost++;
    link->lostAt = nowMs;
    raiseNeed(link, nowMs + link->lossDelayMs);
    enter(link, linkPhase::registering, nowMs + std::min(link->lossDelayMs, link->keepaliveMs));
}

bool ofThisPhase(const agentLink& link, uint32_t sequence) {
    // Numbers wrap; before the first request of the phase there are none.
    return sequence - link.phaseFirst < link.sequence + 1 - link.phaseFirst;
}

// No session has begun. A manager that marks replays may count this need as served; another one
// may have taken the registration for a repeated one.
void giveUpWaiting(agentLink* link, uint64_t nowMs) {
    if (link->markingPid != 0 && link->markingPid == link->answerPid) {
        lose(link, nowMs);
    } else if (!link->replayIsSure && (link->replayWanted || !link->mayAskDown)) {
        enter(link, linkPhase::unconfirmed, nowMs);
    } else if (link->mayAskDown) {
        enter(link, linkPhase::askDown, nowMs);
        link->giveUpAt = nowMs + LINK_DOWN_MS;
    } else {
        enter(link, linkPhase::registering, nowMs);
    }
}

}  // namespace

void linkStart(agentLink* link, uint32_t sequence) {
    link->sequence = sequence;
    link->lastNeed = sequence;
    raiseNeed(link, 0);
    enter(link, linkPhase::registering, 0);
}

uint64_t linkNextMs(const agentLink& link) {
    return link.unmarkedAt != 0 ? std::min(link.nextAt, link.unmarkedEnd) : link.nextAt;
}

linkAction linkDue(agentLink* link, uint64_t nowMs) {
    if (link->unmarkedAt != 0 && nowMs >= link->unmarkedEnd) {
        link->unmarkedAt = 0;
        return linkAction::endUnmarked;
    }
    if (nowMs < link->nextAt) return linkAction::none;
    // Giving up is looked at only when a request is due: its phase decides which one that is.
    if (link->phase == linkPhase::awaitReplay && nowMs >= link->giveUpAt)
        giveUpWaiting(link, nowMs);
    else if (link->phase == linkPhase::askDown && nowMs >= link->giveUpAt)
        enter(link, linkPhase::registering, nowMs);  // chassisd does not answer
    bool often = link->phase == linkPhase::registering || link->phase == linkPhase::awaitReplay ||
                 link->phase == linkPhase::askDown;
    link->nextAt = nowMs + (often ? LINK_RETRY_MS : link->keepaliveMs);
    if (link->phase == linkPhase::askDown) {
        // A repeated question keeps its number: chassisd raises one event for it.
        link->sequence = link->phaseFirst;
        link->downs++;
        return linkAction::sendDown;
    }
    // A number of its own each: an answer tells which registration it is to, and with it how old
    // the manager's word is.
    link->sequence++;
    link->registrations++;
    return linkAction::sendRegistration;
}

uint32_t linkNeed(const agentLink& link, uint64_t nowMs) {
    return nowMs >= link.needAt ? link.need : 0;
}

void linkNobody(agentLink* link, linkAction action, uint64_t nowMs) {
    // Without chassisd nobody can be asked; a manager that has gone will not know us when it is
    // back, and is asked again every LINK_RETRY_MS.
    if (action == linkAction::sendDown && link->phase == linkPhase::askDown)
        enter(link, linkPhase::registering, nowMs);
    else if (action == linkAction::sendRegistration)
        enter(link, linkPhase::registering, nowMs + LINK_RETRY_MS);
}

void linkDownAnswered(agentLink* link, uint32_t sequence, bool silent, uint64_t nowMs) {
    if (link->phase != linkPhase::askDown || !ofThisPhase(*link, sequence)) return;
    if (silent) {
        enter(link, linkPhase::askDown, nowMs);
        link->giveUpAt = nowMs + LINK_DOWN_MS;
        return;
    }
    link->replayWanted = true;
    enter(link, linkPhase::registering, nowMs);
}

void linkRegistered(agentLink* link, uint32_t sequence, int32_t pid, uint64_t nowMs) {
    if (link->phase == linkPhase::askDown || !ofThisPhase(*link, sequence)) return;
    link->answers++;
    link->answerPid = pid;
    if (knowsNothing(*link) || pid != link->sessionPid) {
        // Another manager than the one that has sent what is here.
        if (link->need == 0) raiseNeed(link, nowMs);
        if (link->phase != linkPhase::awaitReplay && link->phase != linkPhase::unconfirmed)
            await(link, nowMs);
    } else if (link->phase == linkPhase::registering) {
        if (link->need == 0)
            enter(link, linkPhase::inStep, nowMs + link->keepaliveMs);
        else if (nowMs >= link->needAt)
            await(link, nowMs);
        else
            link->nextAt = std::min(link->needAt, nowMs + link->keepaliveMs);
    }
}

linkBegin linkSession(agentLink* link, uint32_t session, int32_t pid, bool marked, uint32_t replay,
                      uint64_t nowMs) {
    // Without marks a session counts as a replay when one was asked for, and when there has been
    // none from this manager.
    bool wanted = link->replayWanted || knowsNothing(*link) || link->sessionPid != pid;
    // While the card is being reported down, the queue is one that goes away with it.
    wanted = wanted && link->phase != linkPhase::askDown && link->markingPid != pid;
    link->sessions++;
    link->session = session;
    link->sessionPid = pid;
    link->unmarkedAt = 0;
    if (marked) {
        link->markingPid = pid;
        link->replay = replay;
        link->replayWanted = false;
        link->replays++;
        if (link->need == 0) raiseNeed(link, nowMs);
        enter(link, linkPhase::replaying, nowMs + link->keepaliveMs);
        return linkBegin::replay;
    }
    // It may be all that the manager means, but where it ends is only guessed.
    if (wanted) {
        link->replayWanted = false;
        if (link->need == 0) raiseNeed(link, nowMs);
        enter(link, linkPhase::unconfirmed, nowMs + link->keepaliveMs);
        link->unmarkedAt = nowMs;
        link->unmarkedEnd = nowMs + LINK_QUIET_MS;
        return linkBegin::replay;
    }
    // The queue was flushed, and what was in it is lost.
    if (link->phase != linkPhase::askDown) lose(link, nowMs);
    return linkBegin::changes;
}

void linkMessage(agentLink* link, uint64_t nowMs) {
    if (link->unmarkedAt != 0)
        link->unmarkedEnd = std::min(nowMs + LINK_QUIET_MS, link->unmarkedAt + LINK_QUIET_MAX_MS);
}

bool linkIsEnd(const agentLink& link, uint32_t replay) {
    return link.replay == replay && link.markingPid != 0 && link.markingPid == link.sessionPid;
}

void linkEnded(agentLink* link, bool whole, uint64_t nowMs) {
    // The end of a replay that had refusals brings a need with a new number: the old one counts as
    // served at the manager.
    if (!whole) return lose(link, nowMs);
    link->need = 0;
    if (link->phase == linkPhase::replaying)
        enter(link, linkPhase::inStep, nowMs + link->keepaliveMs);
}

void linkRefused(agentLink* link, uint64_t nowMs) {
    // What comes before the replay that is asked for is replaced by it.
    bool asked = link->phase == linkPhase::registering || link->phase == linkPhase::awaitReplay;
    if (link->need != 0 && asked) return;
    if (link->markingPid != 0 && link->markingPid == link->sessionPid) lose(link, nowMs);
}

void linkMiddle(agentLink* link, uint64_t nowMs) {
    // In the other phases a replay is asked for or under way that makes up for it.
    bool relies = link->phase == linkPhase::inStep || link->phase == linkPhase::unconfirmed;
    if (!relies || nowMs < link->middleAt) return;
    link->middleAt = nowMs + LINK_REPLAY_MS;
    lose(link, nowMs);
}

const char* linkStateText(const agentLink& link) {
    if (link.need == 0) return link.phase == linkPhase::inStep ? "in step" : "no manager";
    switch (link.phase) {
        case linkPhase::replaying:
            return "replay under way";
        case linkPhase::unconfirmed:
            return link.unmarkedAt != 0 ? "replay under way" : "replay not confirmed";
        default:
            return "replay needed";
    }
}
