// An agent's standing with the manager, step by step on a clock of the test's.
#include "chassis/agent/link.h"

#include <gtest/gtest.h>

namespace {

constexpr int32_t MANAGER = 100, NEXT_MANAGER = 200;

struct Link : testing::Test {
    agentLink l;
    uint64_t now = 1000;
    uint32_t session = 500, replay = 0;

    void start() { linkStart(&l, 0xFFFFFFFE); }  // numbers wrap on the way
    linkAction due() { return linkDue(&l, now); }
    void later(uint64_t ms) { now += ms; }
    uint32_t need() const { return linkNeed(l, now); }
    std::string state() const { return linkStateText(l); }
    linkBegin begin(int32_t pid) { return linkSession(&l, ++session, pid, true, ++replay, now); }
    linkBegin unmarked(int32_t pid) { return linkSession(&l, ++session, pid, false, 0, now); }
    void end(bool whole = true) {
        ASSERT_TRUE(linkIsEnd(l, replay));
        linkEnded(&l, whole, now);
    }
    void downAnswered(bool silent = false) { linkDownAnswered(&l, l.sequence, silent, now); }
    void registered(int32_t pid) { linkRegistered(&l, l.sequence, pid, now); }
    // A start without trouble.
    void comeIntoStep() {
        start();
        ASSERT_EQ(due(), linkAction::sendRegistration);
        registered(MANAGER);
        EXPECT_EQ(begin(MANAGER), linkBegin::replay);
        end();
        ASSERT_EQ(state(), "in step");
    }
    // A start with a manager that knows no marks and holds no queues.
    void comeToWhatAnUnmarkedReplayBrings() {
        start();
        due();
        registered(MANAGER);
        EXPECT_EQ(unmarked(MANAGER), linkBegin::replay);
        later(LINK_QUIET_MS);
        ASSERT_EQ(due(), linkAction::endUnmarked);
        ASSERT_EQ(state(), "replay not confirmed");
    }
};

// Registers with its need until it is answered; only the end of a whole replay takes that away.
TEST_F(Link, NeedsAReplayUntilOneHasEnded) {
    start();
    uint32_t wanted = need();
    EXPECT_NE(wanted, 0u);
    EXPECT_LT(wanted, 0x80000000u);
    uint32_t first = l.sequence + 1;
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(due(), linkAction::sendRegistration);
        EXPECT_EQ(due(), linkAction::none);
        later(LINK_RETRY_MS);
    }
    linkRegistered(&l, first - 7, MANAGER, now);  // not an answer to any of these
    EXPECT_FALSE(linkIsRegistered(l));
    linkRegistered(&l, l.sequence - 1, MANAGER, now);
    EXPECT_TRUE(linkIsRegistered(l));
    later(LINK_RETRY_MS);
    EXPECT_EQ(due(), linkAction::sendRegistration);  // the same need: no second replay
    EXPECT_EQ(state(), "replay needed");
    begin(MANAGER);
    EXPECT_EQ(state(), "replay under way");
    later(LINK_KEEPALIVE_MS);
    EXPECT_EQ(due(), linkAction::sendRegistration);
    EXPECT_EQ(need(), wanted);
    EXPECT_FALSE(linkIsEnd(l, replay + 1));
    end();
    EXPECT_EQ(state(), "in step");
    EXPECT_EQ(need(), 0u);
    EXPECT_EQ(l.downs, 0u);
    EXPECT_EQ(l.lost, 0u);
}

TEST_F(Link, TheReplayMayComeBeforeTheAnswer) {
    start();
    due();
    begin(MANAGER);
    registered(MANAGER);
    EXPECT_EQ(state(), "replay under way");
    end();
    EXPECT_EQ(state(), "in step");
}

// A new session in the middle of a replay, of whatever replay: what came before is void.
TEST_F(Link, AReplayInAReplayBeginsAnew) {
    comeIntoStep();
    EXPECT_EQ(begin(MANAGER), linkBegin::replay);  // of the manager's own accord
    EXPECT_NE(need(), 0u);
    EXPECT_EQ(begin(MANAGER), linkBegin::replay);
    EXPECT_FALSE(linkIsEnd(l, replay - 1));
    end();
    EXPECT_EQ(state(), "in step");
    EXPECT_EQ(l.lost, 0u);
    EXPECT_EQ(l.replays, 3u);
}

TEST_F(Link, KeepsRegisteringInStep) {
    comeIntoStep();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(due(), linkAction::none);
        later(LINK_KEEPALIVE_MS);
        EXPECT_EQ(due(), linkAction::sendRegistration);
        registered(MANAGER);
        EXPECT_EQ(state(), "in step");
    }
    EXPECT_EQ(l.sessions, 1u);
}

// Another process answers: it has started again, or has got the role. It may know this agent and
// have no reason to send anything.
TEST_F(Link, AnotherManagerIsToldOfANeed) {
    // It is noticed by a gap, by its answer, or by nothing but its replay.
    for (const char* noticed : {"gap", "answer", "nothing"}) {
        for (bool beginsItself : {false, true}) {
            SCOPED_TRACE(noticed);
            l = {};
            comeIntoStep();
            later(LINK_KEEPALIVE_MS);
            due();
            if (noticed == std::string("gap")) {
                linkNobody(&l, linkAction::sendRegistration, now);
                EXPECT_EQ(state(), "no manager");
                later(LINK_RETRY_MS);
                EXPECT_EQ(due(), linkAction::sendRegistration);
            }
            EXPECT_EQ(need(), 0u);
            if (noticed != std::string("nothing")) {
                registered(NEXT_MANAGER);
                EXPECT_EQ(state(), "replay needed");
                if (!beginsItself) {
                    later(LINK_RETRY_MS);
                    EXPECT_EQ(due(), linkAction::sendRegistration);
                    EXPECT_NE(need(), 0u);
                    registered(NEXT_MANAGER);
                }
            }
            begin(NEXT_MANAGER);
            if (noticed == std::string("nothing")) registered(NEXT_MANAGER);
            end();
            EXPECT_EQ(state(), "in step");
            EXPECT_EQ(l.lost, 0u);
        }
    }
}

// Whatever was lost, the need is named at once; again and again, at growing intervals.
TEST_F(Link, WhatIsLostIsAskedForWithPatience) {
    void (*losses[])(Link*) = {
        [](Link* t) { EXPECT_EQ(t->unmarked(MANAGER), linkBegin::changes); },
        [](Link* t) { linkRefused(&t->l, t->now); },
        [](Link* t) { linkMiddle(&t->l, t->now); },
        [](Link* t) { t->begin(MANAGER), t->end(false); },
    };
    for (auto lose : losses) {
        l = {};
        comeIntoStep();
        uint64_t delay = 0;
        for (uint32_t i = 1; i <= 8; i++) {
            uint64_t lostAt = now;
            uint32_t before = l.lastNeed;
            lose(this);
            EXPECT_EQ(state(), "replay needed");
            EXPECT_EQ(l.lost, i);
            while (need() == 0 && now < lostAt + LINK_LOSS_AGAIN_MS) {
                now = linkNextMs(l);
                EXPECT_EQ(due(), linkAction::sendRegistration);
                registered(MANAGER);
            }
            EXPECT_NE(need(), 0u);
            EXPECT_NE(need(), before);
            EXPECT_GE(now - lostAt, delay);
            EXPECT_LE(now - lostAt, delay + LINK_KEEPALIVE_MS);
            delay = std::min(std::max(2 * delay, LINK_LOSS_MS), LINK_LOSS_MAX_MS);
            begin(MANAGER);
            end();
            if (lose == losses[2]) later(LINK_REPLAY_MS);  // once in a while is enough
        }
        EXPECT_EQ(l.downs, 0u);
    }
}

// Many messages that cannot be used are one loss; a replay that does not come is another.
TEST_F(Link, ANeedIsRaisedOnceUntilItIsServed) {
    comeIntoStep();
    for (int i = 0; i < 100; i++) linkRefused(&l, now);
    EXPECT_EQ(l.lost, 1u);
    uint32_t first = need();
    EXPECT_NE(first, 0u);
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(MANAGER);
    for (int i = 0; i < 100; i++) linkRefused(&l, now);
    for (int second = 0; l.lost == 1 && second < 60; second++) {
        later(LINK_RETRY_MS);
        EXPECT_EQ(due(), linkAction::sendRegistration);
        if (l.lost == 1) registered(MANAGER);
    }
    EXPECT_EQ(l.lost, 2u);
    EXPECT_EQ(l.downs, 0u);
    later(LINK_LOSS_MS);
    EXPECT_NE(need(), first);
    begin(MANAGER);
    linkRefused(&l, now);  // the replay is void
    EXPECT_EQ(state(), "replay needed");
    EXPECT_EQ(l.lost, 3u);
}

// --- managers that mark nothing ------------------------------------------------------------------

TEST_F(Link, AnUnmarkedReplayIsTakenWhenNothingMoreComes) {
    comeToWhatAnUnmarkedReplayBrings();
    EXPECT_NE(l.need, 0u);
    linkRefused(&l, now);  // counted by the tables; there is no way to ask for it
    EXPECT_EQ(l.lost, 0u);
    // One that never comes to rest is taken all the same.
    unmarked(NEXT_MANAGER);
    for (uint64_t t = 0; t < LINK_QUIET_MAX_MS; t += LINK_QUIET_MS / 2) {
        EXPECT_EQ(state(), "replay under way");
        later(LINK_QUIET_MS / 2);
        linkMessage(&l, now);
    }
    EXPECT_EQ(due(), linkAction::endUnmarked);
}

// A manager that took the registration for a repeated one sends nothing: the card is reported down,
// if somebody is there to do it.
TEST_F(Link, AReplayThatDoesNotComeIsFetchedWithTheCardDown) {
    start();
    due();
    registered(MANAGER);
    auto waited = [this] {
        linkAction same =
            l.phase == linkPhase::askDown ? linkAction::sendDown : linkAction::sendRegistration;
        for (later(LINK_RETRY_MS); now < l.giveUpAt; later(LINK_RETRY_MS)) EXPECT_EQ(due(), same);
        return due();
    };
    EXPECT_EQ(waited(), linkAction::sendDown);
    uint32_t first = l.sequence;
    later(LINK_RETRY_MS);
    EXPECT_EQ(due(), linkAction::sendDown);
    EXPECT_EQ(l.sequence, first);  // the same question: one event
    downAnswered(true);            // a manager that may yet hear of the event
    EXPECT_EQ(due(), linkAction::sendDown);
    EXPECT_NE(l.sequence, first);
    unmarked(MANAGER);  // of the queue that is about to go
    linkDownAnswered(&l, first, false, now);
    EXPECT_EQ(l.phase, linkPhase::askDown);
    downAnswered();
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(MANAGER);
    EXPECT_EQ(unmarked(MANAGER), linkBegin::replay);
    EXPECT_EQ(l.lost, 0u);
    // A flushed queue leads there again.
    later(LINK_QUIET_MS);
    EXPECT_EQ(due(), linkAction::endUnmarked);
    EXPECT_EQ(unmarked(MANAGER), linkBegin::changes);
    EXPECT_EQ(l.lost, 1u);
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(MANAGER);
    EXPECT_EQ(waited(), linkAction::sendDown);
    // Nobody is there, or nobody answers: registrations go on.
    linkNobody(&l, linkAction::sendDown, now);
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(MANAGER);
    EXPECT_EQ(waited(), linkAction::sendDown);
    EXPECT_EQ(waited(), linkAction::sendRegistration);
}

// The control processor's agent may be sent nothing at all. What shows that the manager holds an
// old queue is its messages.
TEST_F(Link, TheControlProcessorWithoutMarks) {
    for (bool mayAsk : {true, false}) {
        l = {};
        l.replayIsSure = false;
        l.mayAskDown = mayAsk;
        start();
        for (int second = 0; l.phase != linkPhase::unconfirmed && second < 30; second++) {
            linkAction action = due();
            if (action == linkAction::sendDown) downAnswered();
            if (action == linkAction::sendRegistration) registered(MANAGER);
            later(LINK_RETRY_MS);
        }
        EXPECT_EQ(state(), "replay not confirmed");
        EXPECT_EQ(l.downs, mayAsk ? 1u : 0u);
        linkMiddle(&l, now);
        EXPECT_EQ(state(), "replay needed");
        EXPECT_EQ(l.lost, 1u);
    }
}

}  // namespace
