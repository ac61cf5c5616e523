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

size_t indexOf(linkQueue queue) {
    return static_cast<size_t>(queue);
}

void beginQuiet(linkQuiet* quiet, uint64_t nowMs) {
    *quiet = {nowMs, nowMs + LINK_QUIET_MS};
}
bool isOver(linkQuiet* quiet, uint64_t nowMs) {
    if (quiet->since == 0 || nowMs < quiet->end) return false;
    *quiet = {};
    return true;
}

// The same replay has ended in both queues, and nothing of it was refused.
bool allEnded(const agentLink& link) {
    const auto& [lists, mac] = link.ends;
    if (!link.hasMacQueue) return lists.whole;
    return lists.whole && mac.whole && lists.pid == mac.pid && lists.replay == mac.replay;
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
    uint64_t next = link.nextAt;
    for (const linkQuiet& quiet : link.quiet)
        if (quiet.since != 0) next = std::min(next, quiet.end);
    return next;
}

linkAction linkDue(agentLink* link, uint64_t nowMs) {
    if (isOver(&link->quiet[indexOf(linkQueue::lists)], nowMs)) return linkAction::endUnmarked;
    if (isOver(&link->quiet[indexOf(linkQueue::mac)], nowMs)) return linkAction::endUnmarkedMac;
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
    link->quiet[indexOf(linkQueue::lists)] = {};
    link->ends[indexOf(linkQueue::lists)] = {};
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
        beginQuiet(&link->quiet[indexOf(linkQueue::lists)], nowMs);
        return linkBegin::replay;
    }
    // The queue was flushed, and what was in it is lost.
    if (link->phase != linkPhase::askDown) lose(link, nowMs);
    return linkBegin::changes;
}

linkBegin linkMacSession(agentLink* link, int32_t pid, bool marked, uint32_t replay,
                         uint64_t nowMs) {
    link->macPid = pid;
    link->macReplay = marked ? replay : 0;
    link->quiet[indexOf(linkQueue::mac)] = {};
    link->ends[indexOf(linkQueue::mac)] = {};
    if (marked) return linkBegin::replay;
    if (link->markingPid == pid) {
        lose(link, nowMs);
        return linkBegin::changes;
    }
    beginQuiet(&link->quiet[indexOf(linkQueue::mac)], nowMs);
    return linkBegin::replay;
}

void linkMessage(agentLink* link, linkQueue queue, uint64_t nowMs) {
    linkQuiet& quiet = link->quiet[indexOf(queue)];
    if (quiet.since != 0)
        quiet.end = std::min(nowMs + LINK_QUIET_MS, quiet.since + LINK_QUIET_MAX_MS);
}

bool linkIsEnd(const agentLink& link, linkQueue queue, uint32_t replay) {
    if (queue == linkQueue::mac) return link.macReplay != 0 && link.macReplay == replay;
    return link.replay == replay && link.markingPid != 0 && link.markingPid == link.sessionPid;
}

void linkEnded(agentLink* link, linkQueue queue, bool whole, uint64_t nowMs) {
    const bool mac = queue == linkQueue::mac;
    link->ends[indexOf(queue)] = {mac ? link->macPid : link->sessionPid,
                                  mac ? link->macReplay : link->replay, whole};
    // The end of a replay that had refusals brings a need with a new number: the old one counts as
    // served at the manager.
    if (!whole) return lose(link, nowMs);
    if (!allEnded(*link)) return;
    link->need = 0;
    if (link->phase == linkPhase::replaying)
        enter(link, linkPhase::inStep, nowMs + link->keepaliveMs);
}

void linkRefused(agentLink* link, linkQueue queue, uint64_t nowMs) {
    // The other queue's replay may yet have to end.
    link->ends[indexOf(queue)].whole = false;
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
            return link.quiet[indexOf(linkQueue::lists)].since != 0 ? "replay under way"
                                                                    : "replay not confirmed";
        default:
            return "replay needed";
    }
}
