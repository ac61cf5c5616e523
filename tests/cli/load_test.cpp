// The pipelined loader against a manager that answers late, out of order, wrongly or not at all.
#include <algorithm>

#include "tests/cli/fakeManager.h"

namespace {

std::string entries(uint32_t n) {
    std::string text = "ip access-list standard A\n";
    for (uint32_t i = 1; i <= n; i++) text += " seq " + std::to_string(i) + " permit any\n";
    return text;
}
uint32_t seqOf(const std::vector<uint8_t>& message) {
    return reinterpret_cast<const cliIpEntryReq*>(message.data())->block.seq;
}
bool isEntryAdd(const std::vector<uint8_t>& message) {
    // (Changes of the mask mode are a header alone.)
    return message.size() >= sizeof(cliHdr) && cliOf(message).code == CLI_IP_ENTRY_ADD;
}

}  // namespace

TEST(Load, RequestsArriveInOrderWithTheirFields) {
    std::vector<std::string> seen;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        const auto& cli = cliOf(message);
        uint32_t word = message.size() == sizeof(cliListReq)
                            ? uint32_t{reinterpret_cast<const cliListReq*>(message.data())->kind}
                            : 0;
        seen.push_back(message.size() == sizeof(ipcHdr)
                           ? std::to_string(cli.ipc.mtype)
                           : std::to_string(cli.code) + " " + std::string(listNameView(cli.name)) +
                                 " " + std::to_string(message.size()) + " " + std::to_string(word));
        EXPECT_EQ(cli.ipc.length, message.size());
        m.answer(message, ACL_OK);
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load("! a file\n\nip access-list standard A\n permit any\n no seq 5\n"
                     "access-list inverse-mask\nip access-list extended B\n permit ip any any\n"
                     "ip trace-list T\r\n deny ip any any\n no deny ip any any\nip trace-group T\n"
                     "no ip trace-group T\nno ip trace-list T\nno ip access-list extended B\n"
                     "no access-list inverse-mask\ndo clear ip access-lists counters\nend"),
              0)
        << s.reported();
    manager.halt();
    EXPECT_EQ(seen,
              (std::vector<std::string>{
                  "1000 A 224 1", "1002 A 384 0", "1003 A 384 0", "14517", "1000 B 224 2",
                  "1002 B 384 0", "1005 T 224 0", "1007 T 384 0", "1006 T 384 0", "1041 T 220 0",
                  "1040 T 220 0", "1004 T 224 0", "1001 B 224 2", "14518", "1031  220 0"}));
    EXPECT_EQ(s.reported(), "");
}

TEST(Load, TheMaskModeFollowsTheLines) {
    fakeManager manager;
    manager.serve();
    const std::string list = "ip access-list standard A\n permit 10.0.0.0 255.0.255.0\n";
    testSession s(manager.dir);
    EXPECT_EQ(
        s.load(list + "access-list inverse-mask\n" + list + "no access-list inverse-mask\n" + list),
        0);
    manager.halt();
    std::vector<uint32_t> masks;
    for (const auto& m : manager.received)
        if (isEntryAdd(m)) masks.push_back(wordAt(m, 256));
    EXPECT_EQ(masks, (std::vector<uint32_t>{0x00FF00FF, 0xFF00FF00, 0x00FF00FF}));
}

TEST(Load, RefusalsAreReportedInLineOrderAlthoughAnswersAreNot) {
    std::vector<std::vector<uint8_t>> held;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (!isEntryAdd(message)) return m.answer(message, ACL_OK);
        held.push_back(message);
        if (held.size() < 4) return;
        for (; !held.empty(); held.pop_back())
            m.answer(held.back(),
                     seqOf(held.back()) % 2 == 0 ? ACL_E_SEQ_USED : ACL_E_ENTRY_EXISTS);
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load(entries(3) + " bad line\n seq 4 permit any\n"), 1);
    EXPECT_EQ(s.reported(),
              "F:2:2: The entry already exists in the list\n seq 1 permit any\n ^\n"
              "F:3:6: The sequence number is already used in the list\n seq 2 permit any\n     ^\n"
              "F:4:2: The entry already exists in the list\n seq 3 permit any\n ^\n"
              "F:5:2: Unexpected word \"bad\"; expected: seq, permit, deny, ip, ipv6, route-map, "
              "resequence, interface, access-list, no, do, "
              "exit, end\n bad line\n ^\n"
              "F:6:6: The sequence number is already used in the list\n seq 4 permit any\n     ^\n"
              "F: 5 of 6 lines refused\n");
}

TEST(Load, ManyRequestsAreUnderWayWhileTheQueueFillsAgainAndAgain) {
    uint32_t next = 1;
    std::vector<std::vector<uint8_t>> held;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (!isEntryAdd(message)) return m.answer(message, ACL_OK);
        EXPECT_EQ(seqOf(message), next++);
        held.push_back(message);
        if (held.size() < 100) return;  // proves that at least 100 are open at once
        for (const auto& h : held) m.answer(h, ACL_OK);
        held.clear();
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load(entries(3000)), 0) << s.reported();
    manager.halt();
    EXPECT_EQ(next, 3001u);
}

TEST(Load, AnEntryWithoutAnAnswerIsReportedAndTheOthersAreNot) {
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (isEntryAdd(message) && seqOf(message) == 2) return;  // never
        // Strange answers of every kind come first; none may be taken for the real one.
        std::vector<uint8_t> wrong = message;
        reinterpret_cast<ipcHdr*>(wrong.data())->sequence = 12345;
        m.answer(wrong, ACL_E_NOLIST);
        wrong = message;
        reinterpret_cast<cliHdr*>(wrong.data())->cookie = 1;
        m.answer(wrong, ACL_E_NOLIST);
        wrong.resize(sizeof(ipcHdr));
        m.answer(wrong, ACL_E_NOLIST);
        m.answer(message, ACL_OK);
        m.answer(message, ACL_E_NOLIST);  // twice: the second is a stray
    });
    testSession s(manager.dir, 3000);
    EXPECT_EQ(s.load(entries(3)), EXIT_UNREACHABLE);
    EXPECT_EQ(s.reported(),
              "F:3:2: No answer from the manager within 3 s; whether the line was taken is not "
              "known\n seq 2 permit any\n ^\n"
              "F: 1 of 4 lines not answered: they may have been taken\n");
}

TEST(Load, ALateAnswerIsNotTakenForAnothers) {
    std::vector<uint8_t> late;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (cliOf(message).code == CLI_CLEAR_IP_ACL) {
            late = message;  // answered, with a refusal, only when the next request comes
            return;
        }
        if (!late.empty()) m.answer(late, ACL_E_NOLIST);
        m.answer(message, ACL_OK);
    });
    testSession s(manager.dir, 300);
    EXPECT_FALSE(s.run("clear ip access-lists counters A"));
    s.session.options.timeoutMs = 20000;
    EXPECT_TRUE(s.run("clear ip access-lists counters"));
    EXPECT_EQ(count(s.reported(), "No answer from the manager within 0.3 s"), 1u);
    EXPECT_EQ(count(s.reported(), aclStatusFind(ACL_E_NOLIST)->text), 0u);
    EXPECT_EQ(s.session.channel.strays, 1u);
}

TEST(Load, EntriesOfARefusedListAreNotSent) {
    fakeManager manager;
    manager.serve([](const std::vector<uint8_t>& message) -> uint32_t {
        return listNameView(cliOf(message).name) == "E" ? ACL_E_IS_STANDARD : ACL_OK;
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load("ip access-list extended E\n permit ip any any\n deny tcp any any\n"
                     "ip access-list standard S\n permit any\n"),
              1);
    manager.halt();
    EXPECT_EQ(std::ranges::count_if(manager.received, isEntryAdd), 1);
    EXPECT_EQ(count(s.reported(), "F:1:1: The list exists as a standard access list\n"), 1u);
    EXPECT_EQ(count(s.reported(), "Not sent: the header in line 1 was refused\n"), 2u);
}

// After a header that could not be read, its entries must not go into the list before it.
TEST(Load, EntriesBehindAnUnreadableHeaderGoNowhere) {
    for (const char* header : {"ip access-list extnded B", "ipp access-list extended B",
                               " ip access-list standard", "ip access-list standard B C"}) {
        SCOPED_TRACE(header);
        fakeManager manager;
        manager.serve();
        testSession s(manager.dir);
        EXPECT_EQ(s.load("ip access-list standard A\n permit any\n" + std::string(header) +
                         "\n deny any\nip access-list standard C\n permit any\n"),
                  1);
        manager.halt();
        EXPECT_EQ(std::ranges::count_if(manager.received, isEntryAdd), 2);
        EXPECT_EQ(count(s.reported(), "(the header in line 3 was refused)"), 1u) << s.reported();
    }
}

TEST(Load, AMistypedIndentedEntryLeavesTheOthersAlone) {
    fakeManager manager;
    manager.serve();
    testSession s(manager.dir);
    EXPECT_EQ(s.load("ip access-list standard A\n permt any\n deny any\n"), 1);
    manager.halt();
    EXPECT_EQ(std::ranges::count_if(manager.received, isEntryAdd), 1);
}

TEST(Load, WithoutAManagerTheLoadEndsAtOnceAndSaysSo) {
    fakeManager manager;  // never run
    testSession s(manager.dir);
    EXPECT_EQ(s.load(entries(100)), EXIT_UNREACHABLE);
    EXPECT_EQ(count(s.reported(), "cannot be reached"), 1u) << s.reported();
    EXPECT_EQ(count(s.reported(), "nothing was loaded from line 2 on"), 1u) << s.reported();

    testSession nowhere("/nonexistent");
    EXPECT_EQ(nowhere.load(entries(1)), EXIT_UNREACHABLE);
    EXPECT_NE(nowhere.reported(), "");
}

TEST(Load, AManagerThatNeverTakesAnythingIsNoHang) {
    fakeManager manager;
    manager.open();  // its queue fills, nobody reads
    testSession s(manager.dir, 100);
    EXPECT_EQ(s.load("ip access-list standard A\n permit any\nip access-list standard B\n"),
              EXIT_UNREACHABLE);
    // The list is not loaded in part, nor are others: nothing is sent behind a silent header.
    EXPECT_EQ(count(s.reported(), "No answer from the manager within 0.1 s"), 1u) << s.reported();
    EXPECT_EQ(count(s.reported(), "Not sent: the header in line 1 was not answered"), 1u);
    EXPECT_EQ(count(s.reported(), "F: nothing was loaded from line 3 on"), 1u);
}

TEST(Load, CheckOnlyNeedsNoManagerAndSendsNothing) {
    testSession s("/nonexistent");
    s.session.options.checkOnly = true;
    EXPECT_EQ(s.load("access-list inverse-mask\n" + entries(5) +
                     "ip trace-list T\n deny ip any any\n"
                     " permit ip any any monitor\ndo show system\n"),
              1);
    EXPECT_EQ(count(s.reported(), "F:10:20:"), 1u) << s.reported();
    EXPECT_EQ(count(s.reported(), "F: 1 of 11 lines refused"), 1u) << s.reported();
    EXPECT_TRUE(s.session.inverseMask);
}

TEST(Load, LinesOfAnyLengthAndContentAreJudged) {
    testSession s("/nonexistent");
    s.session.options.checkOnly = true;
    std::string zeros(10, '\0');
    EXPECT_EQ(s.load("ip access-list standard A\n" + std::string(300000, 'x') + "\n permit any\n" +
                     zeros + "\n\x1b[2J\n permit any"),
              1);
    EXPECT_EQ(s.reported().find('\x1b'), std::string::npos);  // nothing a terminal would obey
}
