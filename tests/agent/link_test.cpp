// An agent's standing with the manager, step by step on a clock of the test's.
#include "chassis/agent/link.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

constexpr int32_t MANAGER = 100, NEXT_MANAGER = 200;

struct Link : testing::Test {
    agentLink l;
    uint64_t now = 0;
    int32_t pid = MANAGER;
    uint32_t session = 500, replay = 0, named = 0;

    Link() { restart(); }
    void restart(bool isCard = true, bool mayAskDown = true) {
        l = {};
        l.replayIsSure = isCard;
        l.mayAskDown = mayAskDown;
        named = 0;
        pid = MANAGER;
        now += 1000000;
        linkStart(&l, 0xFFFFFFFE);  // numbers wrap on the way
    }
    uint32_t need() const { return linkNeed(l, now); }
    void due(linkAction wanted) { EXPECT_EQ(linkDue(&l, now), wanted); }
    void unmarked(linkBegin wanted) {
        EXPECT_EQ(linkSession(&l, ++session, pid, false, 0, now), wanted);
    }
    void end(bool whole) {
        EXPECT_FALSE(linkIsEnd(l, linkQueue::lists, replay - 1) ||
                     linkIsEnd(l, linkQueue::lists, replay + 1));
        ASSERT_TRUE(linkIsEnd(l, linkQueue::lists, replay));
        linkEnded(&l, linkQueue::lists, whole, now);
    }
    void mac(uint32_t number, linkBegin wanted) {
        EXPECT_EQ(linkMacSession(&l, pid, number != 0, number, now), wanted);
        EXPECT_EQ(linkIsEnd(l, linkQueue::mac, number), number != 0);
    }
    void play(const std::string& script);
};

const struct {
    const char* word;
    void (*run)(Link&);
} steps[] = {
    // What is due, and who takes it.
    {"registers", [](Link& t) { t.due(linkAction::sendRegistration); }},
    {"asks", [](Link& t) { t.due(linkAction::sendDown); }},
    {"rests", [](Link& t) { t.due(linkAction::none); }},
    {"counts-as-taken", [](Link& t) { t.due(linkAction::endUnmarked); }},
    {"nobody", [](Link& t) { linkNobody(&t.l, linkAction::sendRegistration, t.now); }},
    {"no-chassisd", [](Link& t) { linkNobody(&t.l, linkAction::sendDown, t.now); }},
    // The clock.
    {"retry", [](Link& t) { t.now += LINK_RETRY_MS; }},
    {"keepalive", [](Link& t) { t.now += LINK_KEEPALIVE_MS; }},
    {"quiet", [](Link& t) { t.now += LINK_QUIET_MS; }},
    {"in-vain",
     [](Link& t) {
         auto same = t.l.phase == linkPhase::askDown ? "asks" : "registers";
         for (t.play("retry"); t.now < t.l.giveUpAt; t.play("retry")) t.play(same);
     }},
    // Answers. "stale": to an earlier phase; "older": not to the newest registration.
    {"answer", [](Link& t) { linkRegistered(&t.l, t.l.sequence, t.pid, t.now); }},
    {"stale", [](Link& t) { linkRegistered(&t.l, t.l.phaseFirst - 1, t.pid, t.now); }},
    {"older", [](Link& t) { linkRegistered(&t.l, t.l.sequence - 1, t.pid, t.now); }},
    {"down", [](Link& t) { linkDownAnswered(&t.l, t.l.sequence, false, t.now); }},
    {"stale-down", [](Link& t) { linkDownAnswered(&t.l, t.l.phaseFirst - 1, false, t.now); }},
    {"silent", [](Link& t) { linkDownAnswered(&t.l, t.l.sequence, true, t.now); }},
    // Sessions.
    {"other-manager", [](Link& t) { t.pid = NEXT_MANAGER; }},
    {"begin",
     [](Link& t) {
         linkBegin what = linkSession(&t.l, ++t.session, t.pid, true, ++t.replay, t.now);
         EXPECT_EQ(what, linkBegin::replay);
     }},
    {"end", [](Link& t) { t.end(true); }},
    {"broken-end", [](Link& t) { t.end(false); }},
    {"unmarked", [](Link& t) { t.unmarked(linkBegin::replay); }},
    {"changes", [](Link& t) { t.unmarked(linkBegin::changes); }},
    {"message", [](Link& t) { linkMessage(&t.l, linkQueue::lists, t.now); }},
    // In the MAC queue.
    {"mac-begin", [](Link& t) { t.mac(t.replay, linkBegin::replay); }},
    {"mac-early", [](Link& t) { t.mac(t.replay + 1, linkBegin::replay); }},
    {"mac-unmarked", [](Link& t) { t.mac(0, linkBegin::replay); }},
    {"mac-lost", [](Link& t) { t.mac(0, linkBegin::changes); }},
    {"mac-end", [](Link& t) { linkEnded(&t.l, linkQueue::mac, true, t.now); }},
    {"mac-broken-end", [](Link& t) { linkEnded(&t.l, linkQueue::mac, false, t.now); }},
    {"mac-refused", [](Link& t) { linkRefused(&t.l, linkQueue::mac, t.now); }},
    {"mac-counts-as-taken", [](Link& t) { t.due(linkAction::endUnmarkedMac); }},
    {"refused", [](Link& t) { linkRefused(&t.l, linkQueue::lists, t.now); }},
    {"middle", [](Link& t) { linkMiddle(&t.l, t.now); }},
    // What it is then.
    {"registered", [](Link& t) { EXPECT_TRUE(linkIsRegistered(t.l)); }},
    {"unregistered", [](Link& t) { EXPECT_FALSE(linkIsRegistered(t.l)); }},
    {"no-need", [](Link& t) { EXPECT_EQ(t.need(), 0u); }},
    {"same-need", [](Link& t) { EXPECT_EQ(t.need(), t.named); }},
    {"new-need",
     [](Link& t) {
         EXPECT_NE(t.need(), 0u);
         EXPECT_NE(t.need(), t.named);
         EXPECT_LT(t.need(), 0x80000000u);
         t.named = t.need();
     }},
    {"once-lost", [](Link& t) { EXPECT_EQ(t.l.lost, 1u); }},
};

void Link::play(const std::string& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
        SCOPED_TRACE(word + " in: " + script);
        if (word[0] == '=') {
            std::string state = linkStateText(l);
            std::ranges::replace(state, ' ', '-');
            EXPECT_TRUE(state.ends_with(word.substr(1))) << state;
            continue;
        }
        auto step = std::ranges::find(steps, word, [](const auto& s) { return s.word; });
        ASSERT_NE(step, std::end(steps));
        step->run(*this);
    }
}

const std::string START = "registers answer begin end =in-step ",
                  UNMARKED = "registers answer unmarked quiet counts-as-taken =not-confirmed ";

// Managers that mark their replays: nothing is lost, no card is reported down.
TEST_F(Link, ComesIntoStepAndStaysThere) {
    const std::string running = START + "keepalive other-manager ", next = " begin end =in-step";
    const std::string rows[] = {
        // Registers with its need until it is answered; only the end of a replay takes that away.
        "new-need registers rests retry registers rests retry registers stale unregistered older "
        "registered retry registers =needed begin =under-way keepalive registers same-need end "
        "=in-step no-need",
        // The replay may come before the answer.
        "registers begin answer =under-way end =in-step",
        // A session in the middle of a replay: what came before is void.
        START + "begin new-need" + next,
        START +
            "rests keepalive registers retry rests answer =in-step rests keepalive registers "
            "answer =in-step",
        // Another process answers: it has started again, or has got the role. It may know this
        // agent and have no reason to send anything. A gap, its answer, or its replay shows it.
        running + "registers nobody =no-manager retry registers no-need answer =needed" + next,
        running + "registers nobody retry registers answer retry registers new-need answer" + next,
        running + "registers no-need answer =needed" + next,
        running + "registers answer retry registers new-need answer" + next,
        running + "registers begin answer end =in-step",
    };
    for (const std::string& script : rows) {
        restart();
        uint32_t sessionBefore = session;
        play(script);
        EXPECT_EQ(l.lost, 0u) << script;
        EXPECT_EQ(l.downs, 0u) << script;
        EXPECT_EQ(l.replays, session - sessionBefore) << script;
    }
}

// Whatever was lost, the need is named at once; again and again, at growing intervals.
TEST_F(Link, WhatIsLostIsAskedForWithPatience) {
    for (const std::string loss : {"changes", "refused", "middle", "begin broken-end"}) {
        restart();
        play(START);
        uint64_t delay = 0;
        for (uint32_t i = 1; i <= 8; i++) {
            uint64_t lostAt = now;
            named = l.lastNeed;
            play(loss + " =needed");
            EXPECT_EQ(l.lost, i);
            while (need() == 0 && now < lostAt + LINK_LOSS_AGAIN_MS) {
                now = linkNextMs(l);
                play("registers answer");
            }
            play("new-need");
            EXPECT_GE(now - lostAt, delay);
            EXPECT_LE(now - lostAt, delay + LINK_KEEPALIVE_MS);
            delay = std::min(std::max(2 * delay, LINK_LOSS_MS), LINK_LOSS_MAX_MS);
            play("begin end");
            if (loss == "middle") now += LINK_REPLAY_MS;  // once in a while is enough
        }
        EXPECT_EQ(l.downs, 0u);
    }
}

// Many messages that cannot be used are one loss; a replay that does not come is another.
TEST_F(Link, ANeedIsRaisedOnceUntilItIsServed) {
    play(START + "refused refused once-lost new-need registers answer refused refused");
    for (int second = 0; l.lost == 1 && second < 60; second++) {
        play("retry registers");
        if (l.lost == 1) play("answer");
    }
    EXPECT_EQ(l.lost, 2u);
    play("retry new-need begin refused =needed");  // the replay is void
    EXPECT_EQ(l.lost, 3u);
    EXPECT_EQ(l.downs, 0u);
}

TEST_F(Link, AnUnmarkedReplayIsTakenWhenNothingMoreComes) {
    // What is refused is counted by the tables; there is no way to ask for it.
    play(UNMARKED + "new-need refused =not-confirmed other-manager unmarked");
    EXPECT_EQ(l.lost, 0u);
    // One that never comes to rest is taken all the same.
    for (uint64_t t = 0; t < LINK_QUIET_MAX_MS; t += LINK_RETRY_MS)
        play("=under-way retry message");
    play("counts-as-taken");
}

// A manager that took the registration for a repeated one sends nothing: the card is reported down,
// if somebody is there to do it.
TEST_F(Link, AReplayThatDoesNotComeIsFetchedWithTheCardDown) {
    play("registers answer in-vain asks");
    uint32_t first = l.sequence;
    play("retry asks");
    EXPECT_EQ(l.sequence, first);  // the same question: one event
    // A manager that may yet hear of the event; then a session of the queue that is about to go.
    play("silent asks");
    EXPECT_NE(l.sequence, first);
    unmarked(linkBegin::changes);
    play("stale-down unregistered retry asks down registers answer unmarked");
    EXPECT_EQ(l.lost, 0u);
    // A flushed queue leads there again. Nobody is there, or nobody answers: registrations go on.
    play(
        "quiet counts-as-taken changes once-lost registers answer in-vain asks no-chassisd "
        "registers answer in-vain asks in-vain registers");
}

// The control processor's agent may be sent nothing at all. What shows that the manager holds an
// old queue is its messages.
TEST_F(Link, TheControlProcessorWithoutMarks) {
    for (bool mayAsk : {true, false}) {
        restart(false, mayAsk);
        if (mayAsk) play("registers answer in-vain asks down");
        play(
            "registers answer in-vain registers =not-confirmed middle =needed "
            "once-lost");
        EXPECT_EQ(l.downs, mayAsk ? 1u : 0u);
    }
}

// In step is what both queues have brought to its end, whichever of them is first.
TEST_F(Link, BothQueuesHaveToEndAReplay) {
    const std::string started = "registers answer begin mac-begin ";
    const std::string rows[] = {
        started + "end =under-way mac-end =in-step no-need",
        started + "mac-end =under-way end =in-step",
        "registers answer mac-early mac-end begin end =in-step",
        started + "end begin =under-way mac-end =under-way mac-begin mac-end end =in-step",
        // The end of another replay than the one that has ended.
        started + "mac-end end =in-step begin end =under-way new-need",
        started + "end mac-broken-end =needed new-need",
        started + "mac-broken-end end =needed",
        // A change that was refused while the other queue's replay went on.
        started + "mac-end mac-refused end =needed",
        started + "mac-end end mac-refused =needed",
        started + "mac-end end mac-lost =needed",
        // A manager without marks.
        "registers answer mac-unmarked unmarked quiet counts-as-taken mac-counts-as-taken "
        "=not-confirmed",
    };
    for (const std::string& script : rows) {
        restart();
        l.hasMacQueue = true;
        play(script);
    }
}

}  // namespace
