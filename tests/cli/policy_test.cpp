// Lines about routing-policy lists on their way to the manager; paged shows.
#include "tests/cli/fakeManager.h"

// The clauses of a map whose number the manager chose carry that number; those of a refused header
// are not sent.
TEST(Policy, ClausesFollowTheirHeader) {
    std::mutex lock;
    std::vector<uint32_t> numbers;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        uint32_t result = ACL_OK;
        if (cliOf(message).code == CLI_RMAP_CREATE) {
            auto* made = reinterpret_cast<cliRmapReq*>(message.data());
            if (made->seq == RMAP_SEQ_NOT_GIVEN) made->seq = 40;
            if (listNameView(made->cli.name) == "BAD") result = ACL_E_RMAP_SEQ_NEEDED;
        } else {
            std::lock_guard hold(lock);
            numbers.push_back(reinterpret_cast<cliRmapClauseReq*>(message.data())->clause.seq);
        }
        m.answer(message, result);
    });
    testSession s(manager.dir);
    EXPECT_EQ(s.load("route-map A\n set tag 1\nroute-map A permit 50\n set tag 2\n continue\n"
                     "route-map BAD\n set tag 3\n"),
              1);
    EXPECT_EQ(s.reported(),
              "F:6:1: The route map has several instances: give the sequence number\n"
              "route-map BAD\n^\n"
              "F:7:2: Not sent: the header in line 6 was refused\n set tag 3\n ^\n"
              "F: 2 of 7 lines refused\n");
    EXPECT_TRUE(s.run("route-map A"));
    EXPECT_TRUE(s.run("set tag 4"));
    manager.halt();
    EXPECT_EQ(numbers, (std::vector<uint32_t>{40, 50, 50, 40}));
}

// What a name by address stands for is decided by all that is loaded, also from a pipe: the lists
// come behind the maps that name them.
TEST(Policy, ABareNameIsWhatTheWholeInputSaysThatItIs) {
    std::mutex lock;
    std::vector<uint32_t> codes;
    fakeManager manager;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        if (cliOf(message).code == CLI_RMAP_ENTRY_ADD) {
            std::lock_guard hold(lock);
            codes.push_back(reinterpret_cast<cliRmapClauseReq*>(message.data())->clause.code);
        }
        m.answer(message, ACL_OK);
    });
    testSession s(manager.dir);
    const std::string filler(200000, '!');  // more than a pipe holds
    EXPECT_EQ(s.load("route-map R permit 10\n match ip address P\nroute-map R permit 20\n"
                     " match ip address BOTH\n" +
                     filler + "\nip prefix-list P\nip prefix-list BOTH\n" +
                     "ip access-list standard BOTH\n"),
              0)
        << s.reported();
    manager.halt();
    EXPECT_EQ(codes, (std::vector<uint32_t>{RTMAP_MATCH_IPADD_PREFIX, RTMAP_MATCH_IPADD_ACL}));
    // A text that would be two lines is none.
    EXPECT_EQ(listNamesTyped({}, " seq 5 deny tcp any Error: (9) \n any", 0, ""),
              "! line not shown: seq 5 deny tcp any Error: (9) ? any");
}

// Pages of a list are asked for until it is done, then the next list; the walk ends at the status
// that says there is none.
TEST(Policy, ShowsFollowThePages) {
    fakeManager manager;
    bool stuck = false;
    manager.run([&](fakeManager& m, std::vector<uint8_t>& message) {
        const auto& show = *reinterpret_cast<cliShowReq*>(message.data());
        bool all = show.cli.code == CLI_SHOW_PREFIX_ALL;
        uint32_t resume = show.resume;
        std::string name(listNameView(show.name));
        if (all && resume == 0) name = name.empty() ? "A" : name == "A" ? "B" : "";
        if (name.empty()) return m.answer(message, ACL_E_PREFIX_NOLIST);
        std::string text;
        if (resume == 0)
            text = "ip prefix-list " + name +
                   ":\r\ncount: 2, range entries: 1, sequences: 5 - 10\r\n"
                   "   seq 5 permit 10.0.0.0/8 le 24 (hit count: 3)\r\n";
        else
            text = "   seq 10 deny 0.0.0.0/0 (hit count: 0)\r\n";
        std::vector<uint8_t> page = message;
        page.resize(sizeof(ipcHdr));
        page.resize(SHOW_TEXT_OFFSET + text.size() + 1);
        auto* front = reinterpret_cast<showReplyHdr*>(page.data());
        front->marker = stuck || resume == 0 ? 1 : 0;
        front->name = listNameMake(name);
        std::memcpy(page.data() + SHOW_TEXT_OFFSET, text.data(), text.size());
        m.reply(page);
    });
    auto shown = [&](const char* line, bool json) {
        testSession s(manager.dir);
        s.session.options.json = json;
        bool ok = s.run(line);
        return ok ? s.printed() : s.reported();
    };
    std::string head = ":\ncount: 2, range entries: 1, sequences: 5 - 10\n";
    std::string entries =
        "   seq 5 permit 10.0.0.0/8 le 24 (hit count: 3)\n   seq 10 deny 0.0.0.0/0 (hit count: "
        "0)\n";
    EXPECT_EQ(shown("show ip prefix-list B", false), "ip prefix-list B" + head + entries);
    EXPECT_EQ(shown("show ip prefix-list", false),
              "ip prefix-list A" + head + entries + "ip prefix-list B" + head + entries);
    EXPECT_EQ(shown("show ip prefix-list summary", false),
              "ip prefix-list A" + head + "ip prefix-list B" + head);
    EXPECT_EQ(shown("show ip prefix-list A", true), R"([
  {
    "name": "A",
    "kind": "ip prefix-list",
    "count": 2,
    "rangeEntries": 1,
    "lowest": 5,
    "highest": 10,
    "entries": [
      {
        "seq": 5,
        "action": "permit",
        "hits": 3,
        "match": "10.0.0.0/8 le 24"
      },
      {
        "seq": 10,
        "action": "deny",
        "hits": 0,
        "match": "0.0.0.0/0"
      }
    ]
  }
]
)");
    stuck = true;
    EXPECT_NE(shown("show ip prefix-list", false).find("does not move on"), std::string::npos);
}
