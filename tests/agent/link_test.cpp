// An agent's standing with the manager, step by step on a clock of the test's.
#include "chassis/agent/link.h"

#include <gtest/gtest.h>

namespace {

constexpr int32_t MANAGER = 100, NEXT_MANAGER = 200;

struct Link : testing::Test {
    agentLink l;
    uint64_t now = 1000;
    uint32_t session = 500;

    void start() { linkStart(&l, 0xFFFFFFFE); }  // numbers wrap on the way
    linkAction due() { return linkDue(&l, now); }
    void later(uint64_t ms) { now += ms; }
    void newSession(int32_t pid) { linkSession(&l, ++session, pid, now); }
    void downAnswered(bool silent = false) { linkDownAnswered(&l, l.sequence, silent, now); }
    void registered(int32_t pid) { linkRegistered(&l, l.sequence, pid, now); }
    // A start without trouble.
    void comeIntoStep() {
        start();
        ASSERT_EQ(due(), linkAction::sendDown);
        downAnswered();
        ASSERT_EQ(due(), linkAction::sendRegistration);
        registered(MANAGER);
        newSession(MANAGER);
        ASSERT_EQ(l.phase, linkPhase::inStep);
    }
};

TEST_F(Link, ReportsTheCardDownThenRegistersUntilAnswered) {
    start();
    EXPECT_EQ(due(), linkAction::sendDown);
    uint32_t first = l.sequence;
    EXPECT_EQ(due(), linkAction::none);
    later(LINK_RETRY_MS);
    EXPECT_EQ(due(), linkAction::sendDown);
    EXPECT_EQ(l.sequence, first);  // the same question: one event
    linkDownAnswered(&l, first + 7, false, now);
    EXPECT_EQ(l.phase, linkPhase::askDown);
    downAnswered();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(due(), linkAction::sendRegistration);
        EXPECT_EQ(due(), linkAction::none);
        later(LINK_RETRY_MS);
    }
    linkRegistered(&l, first, MANAGER, now);  // not an answer to any of these
    EXPECT_FALSE(linkIsRegistered(l));
    linkRegistered(&l, l.sequence - 1, MANAGER, now);
    EXPECT_EQ(l.phase, linkPhase::awaitReplay);
    newSession(MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
    EXPECT_EQ(l.lost, 0u);
}

// A manager that is silent about the event may still hear of it: the agent must not register
// before.
TEST_F(Link, AsksAnewWhileTheManagerDoesNotConfirm) {
    start();
    due();
    uint32_t first = l.sequence;
    downAnswered(true);
    EXPECT_EQ(due(), linkAction::sendDown);
    EXPECT_NE(l.sequence, first);
    linkDownAnswered(&l, first, false, now);
    EXPECT_EQ(l.phase, linkPhase::askDown);
    downAnswered();
    EXPECT_EQ(l.phase, linkPhase::registering);
}

TEST_F(Link, TheReplayMayComeBeforeTheAnswer) {
    start();
    due();
    downAnswered();
    due();
    newSession(MANAGER);
    EXPECT_FALSE(linkIsRegistered(l));
    registered(MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
}

// Killed in the middle of a replay: the old queue repeats its first message to the new agent, which
// must not take it for its own replay.
TEST_F(Link, TheSessionOfAnEarlierLifeIsNotTheReplay) {
    start();
    due();
    newSession(MANAGER);
    downAnswered();
    due();
    registered(MANAGER);
    EXPECT_EQ(l.phase, linkPhase::awaitReplay);
    newSession(MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
    EXPECT_EQ(l.lost, 0u);
}

// Without chassisd nobody can be asked. A manager that took the registration for a repeated one
// sends nothing: the agent tries again.
TEST_F(Link, AReplayThatDoesNotComeStartsAllOver) {
    start();
    EXPECT_EQ(due(), linkAction::sendDown);
    linkNobody(&l, linkAction::sendDown, now);
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(MANAGER);
    later(LINK_REPLAY_MS - 1);
    EXPECT_EQ(due(), linkAction::none);
    later(1);
    EXPECT_EQ(due(), linkAction::sendDown);
    EXPECT_EQ(l.lost, 1u);
}

TEST_F(Link, KeepsRegisteringInStep) {
    comeIntoStep();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(due(), linkAction::none);
        later(LINK_KEEPALIVE_MS);
        EXPECT_EQ(due(), linkAction::sendRegistration);
        registered(MANAGER);
        EXPECT_EQ(l.phase, linkPhase::inStep);
    }
    EXPECT_EQ(l.sessions, 1u);
}

TEST_F(Link, AManagerThatStartsAgainIsRegisteredWith) {
    comeIntoStep();
    later(LINK_KEEPALIVE_MS);
    due();
    linkNobody(&l, linkAction::sendRegistration, now);
    EXPECT_FALSE(linkIsRegistered(l));
    later(LINK_RETRY_MS);
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(NEXT_MANAGER);
    EXPECT_EQ(l.phase, linkPhase::awaitReplay);
    newSession(NEXT_MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
    EXPECT_EQ(l.lost, 0u);
}

// The same without a gap that the agent could notice.
TEST_F(Link, AManagerThatStartsAgainUnnoticed) {
    comeIntoStep();
    later(LINK_KEEPALIVE_MS);
    due();
    newSession(NEXT_MANAGER);
    registered(NEXT_MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
    EXPECT_EQ(l.lost, 0u);
}

// The manager has flushed the queue: what was in it is lost.
TEST_F(Link, ANewSessionThatNobodyAskedForMeansThatMessagesAreLost) {
    comeIntoStep();
    newSession(MANAGER);
    EXPECT_EQ(l.lost, 1u);
    EXPECT_EQ(due(), linkAction::sendDown);
    downAnswered();
    due();
    registered(MANAGER);
    newSession(MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
    EXPECT_EQ(l.lost, 1u);
}

// The control processor's agent may be sent nothing at all. What shows that the manager holds an
// old queue is its messages.
TEST_F(Link, TheControlProcessorIsInStepWithoutASession) {
    l.replayIsSure = false;
    start();
    due();
    downAnswered();
    due();
    registered(MANAGER);
    EXPECT_EQ(l.phase, linkPhase::inStep);
    linkMiddle(&l, now);
    EXPECT_EQ(due(), linkAction::sendDown);
    downAnswered();
    due();
    registered(MANAGER);
    linkMiddle(&l, now);  // once in a while is enough
    EXPECT_EQ(l.phase, linkPhase::inStep);
    EXPECT_EQ(l.lost, 1u);
}

TEST_F(Link, AnAgentThatMayNotAskRegistersAtOnce) {
    l.mayAskDown = false;
    start();
    EXPECT_EQ(due(), linkAction::sendRegistration);
    registered(MANAGER);
    later(LINK_REPLAY_MS);
    EXPECT_EQ(due(), linkAction::sendRegistration);
}

}  // namespace
