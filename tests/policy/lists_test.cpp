// What the kinds of policy lists have in common: how they live, who hears of it, whom they live
// for, and memory that is not there.
#include <regex>

#include "tests/policy/policyTest.h"

namespace {

struct ListKinds : PolicyTest, testing::WithParamInterface<int> {
    const policyKind& k = policyKinds[GetParam()];
    const std::string head = k.head, block = std::string(k.section) + "/";
    const std::string node = k.isPrefix() ? "144" : "140", row = k.isPrefix() ? "148" : "149";

    std::string insert(const std::string& line, const std::string& at, const std::string& text) {
        return "cfg insert " + block + line + " A " + at + " \"" + text + "\"";
    }
    // BGP lists count their entries, prefix lists number them: here both are 1, 2, 3.
    static std::string place(uint32_t n) { return "1/" + std::to_string(n + 2) + "/ff"; }
    std::string sync(const char* operation, const std::string& line) {
        return std::string("sync ") + operation + " A \"" + line + "\"";
    }
    rows triggered(int times = 1) {
        return {k.addTask != nullptr ? static_cast<size_t>(times) : 0,
                std::string("swp 1 ") + k.trigger + " length 292"};
    }
};
INSTANTIATE_TEST_SUITE_P(All, ListKinds, testing::Range(0, POLICY_KINDS));

rows operator+(rows left, const rows& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The clients hear of an entry before it has a line, and of its end after its line has gone.
TEST_P(ListKinds, ConfigurationAndClientsHearOfEachChangeInOrder) {
    EXPECT_EQ(type(head), 0u);
    rows created{insert(node, "0/0/0", "!"), insert(row, "0/0/0", head), sync(k.headSync, head)};
    if (k.isPrefix()) std::swap(created[1], created[2]);
    EXPECT_EQ(told(), created);
    EXPECT_EQ(type(head), 0u);
    EXPECT_EQ(told(), rows{}) << "it is there";
    ASSERT_EQ(k.addTask != nullptr ? k.addTask(APP_RTM, 0, {}) : 0, 0);
    ASSERT_EQ(commAddRmapClient({MATCH, RTMAP_MATCH_EXT_COMM, nullptr}, M, A), 0);
    auto add = [&](uint32_t n) {
        EXPECT_EQ(type(k.line(n)), 0u);
        std::string inserted = insert(row, place(n), k.line(n));
        if (k.line(n) != k.line(n, true)) inserted += " / \"" + k.line(n, true) + "\"";
        EXPECT_EQ(told(), triggered() + (rows{inserted, sync(k.sync, k.line(n))}));
    };
    for (uint32_t n : {1u, 2u, 3u}) add(n);
    EXPECT_EQ(type("no" + k.line(2)), 0u);
    EXPECT_EQ(told(), (rows{sync(k.sync, "no " + k.line(2)),
                            "cfg exact " + block + row + " A " + place(2)}) +
                          triggered());
    // Every entry is told, and a placeholder stays.
    EXPECT_EQ(type("no " + head), 0u);
    EXPECT_EQ(told(), triggered(2) + (rows{"cfg remove " + block + node + " A",
                                           sync(k.headSync, "no " + head)}));
    EXPECT_EQ(type(head), 0u);
    EXPECT_EQ(told(), created);
    add(1);  // the numbers begin again
}

// A list is there for the operator and for its clients. Random requests against a model of one.
TEST_P(ListKinds, LiveForTheOperatorAndTheirClients) {
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const std::string maps[] = {"route-map M permit 10", "route-map M permit 20"};
    configure(maps[1] + "\n" + maps[0] + "\n");
    ASSERT_EQ(rmapAddTaskClient(APP_RTM, 0, M, {}, 0), 0);
    std::vector<uint32_t> entries;
    bool configured = false, task = false, clauses[2] = {};
    std::set<uint32_t> answers;
    for (int step = 0; step < 1500; step++) {
        const uint32_t n = 1 + pick(6), what = pick(12);
        const auto at = std::ranges::find(entries, n);
        bool clause = clauses[0] || clauses[1];
        const bool there = configured || task || clause, known = at != entries.end();
        long changes = 0;
        uint32_t expected = 0;
        std::string line = k.line(n);
        enter(head);
        if (what == 0) {
            line = head;
        } else if (what == 1) {
            line = "no " + head;
            expected = there ? 0 : k.noList;
            changes = std::ssize(entries);
        } else if (what == 2) {
            enter(maps[n % 2]);
            line = (clauses[n % 2] ? "no" : "") + std::string(k.clause);
        } else if (what < 8) {
            expected = !configured ? k.noList : known ? k.exists : 0;
            changes = expected == 0;
        } else {
            line = "no" + line;
            expected = !there && !k.isPrefix() ? k.noList : known ? 0 : k.noEntry;
            changes = expected == 0;
        }
        SCOPED_TRACE(std::to_string(step) + ": " + line);
        ASSERT_EQ(type(line), expected);
        if (what != 2) {
            EXPECT_EQ(triggers(k.trigger), task ? changes : 0);
            EXPECT_EQ(triggers("14462"), clause ? changes : 0);
        }
        EXPECT_TRUE(expected == 0 || told().empty());
        answers.insert(expected);
        if (what < 2) configured = what == 0;
        if (what == 1) entries.clear();
        if (what == 2) clauses[n % 2] ^= true;
        clause = clauses[0] || clauses[1];
        if (what > 2 && what < 8 && changes != 0)
            entries.insert(k.isPrefix() ? std::ranges::lower_bound(entries, n) : entries.end(), n);
        if (what >= 8 && changes != 0) entries.erase(at);
        if (k.addTask != nullptr && pick(6) == 0) {
            EXPECT_EQ((task ? k.delTask : k.addTask)(APP_RTM, 0, {}), 0);
            task = !task;
        }
        ASSERT_EQ(k.find() != nullptr, configured || task || clause);
        EXPECT_TRUE(k.find() == nullptr || (k.find()->placeholder == 0) == configured);
        rows wanted;
        for (int i : {0, 1}) {
            wanted.push_back(maps[i]);
            if (clauses[i])
                wanted.push_back(std::regex_replace(k.clause, std::regex("prefix-list "), ""));
        }
        if (configured) wanted.push_back(head);
        for (uint32_t entry : entries) wanted.push_back(k.line(entry));
        ASSERT_EQ(lines(), wanted);
    }
    EXPECT_EQ(answers.size(), 4u);
    for (uint32_t answer : answers) EXPECT_NE(aclStatusFind(answer), nullptr);
}

// A task registers once, or where the kind has pairs once for each pair; a list without any client
// is none.
TEST_F(PolicyTest, TasksRegisterOnceOrForEachPair) {
    std::vector<policyKind> kinds(policyKinds, policyKinds + POLICY_KINDS);
    kinds[2].head = "route-map A";  // in place of a kind without tasks
    kinds[2].find = [] { return static_cast<namedList*>(ipRmapListFind(A)); };
    kinds[2].addTask = [](uint32_t t, uint32_t i, pairs p) {
        return rmapAddTaskClient(t, i, A, p, 9);
    };
    kinds[2].delTask = [](uint32_t t, uint32_t i, pairs p) {
        return rmapDelTaskClient(t, i, A, p);
    };
    const std::vector<uint32_t> bgpAndLdp{APP_BGP, APP_LDP},
        pairTasks[] = {bgpAndLdp, {}, {APP_BGP, APP_RTM}, bgpAndLdp, bgpAndLdp};
    const clientPairValue values[] = {{3, 4}, {1, 2}, {5, 6}};
    const pairs two(values, 1), one(values + 1, 1), both(values + 1, 2);
    for (const policyKind& k : kinds) {
        for (uint32_t task : {APP_BGP, APP_LDP, APP_RTM, APP_OSPF}) {
            SCOPED_TRACE(std::string(k.head) + " " + std::to_string(task));
            const bool paired =
                std::ranges::count(pairTasks[&k - kinds.data()], uint32_t{task}) != 0;
            auto held = [&] { return clientFind(k.find(), clientKeyOfTask(task, 3))->pairCount; };
            EXPECT_EQ(k.addTask(task, 3, one), 0);
            EXPECT_EQ(k.addTask(task, 3, both), 0) << "one of them is held";
            EXPECT_EQ(held(), paired ? 1u : 0u);
            EXPECT_EQ(k.addTask(task, 3, two), 0);
            EXPECT_EQ(held(), paired ? 2u : 0u);
            EXPECT_EQ(clientFind(k.find(), clientKeyOfTask(task, 3))->value, 9u);
            EXPECT_EQ(testTake(), rows{}) << "a placeholder is not configuration";
            EXPECT_EQ(k.delTask(task, 1, one), -1) << "another instance";
            EXPECT_EQ(k.delTask(task, 3, one), 0);
            EXPECT_EQ(k.find() != nullptr, paired);
            EXPECT_EQ(k.delTask(task, 3, two), 0) << "the last pair, or no such list";
            EXPECT_EQ(k.find(), nullptr);
        }
        // Without memory for the list, and for the client: it says of which one.
        for (int there : {0, 1}) {
            ASSERT_EQ(there != 0 ? k.addTask(APP_OSPF, 0, {}) : 0, 0);
            testFail(TEST_BLOCK);
            testTake();
            EXPECT_EQ(k.addTask(APP_RTM, 0, {}), -1);
            testFailNothing();
            EXPECT_TRUE(std::regex_search(
                testTake()[0],
                std::regex(
                    "^syserr 0x5000[c4] Error: Unable to (create|allocate memory for) .* A ")));
        }
        EXPECT_EQ(k.delTask(APP_OSPF, 0, {}), 0);
    }
    configure("ip prefix-list A\n");
    testTake();
    EXPECT_EQ(prefixDelRmapClient({MATCH, 8, nullptr}, M, A, AF_IPV4), -1);
    EXPECT_EQ(testTake(),
              rows{"syserr 0x50004 Error: Ip Prefix List A does not have client Routemap M\n"});
    // A trigger that cannot be sent is in the event log, and the change stands.
    configure("ip as-path access-list A\n");
    ASSERT_EQ(aspAddTaskClient(APP_RTM, 0, A, 0, {}), 0);
    testHost.addresses.clear();
    EXPECT_EQ(type(" permit 1"), 0u);
    EXPECT_TRUE(said("log Error in sending Acl Trigger \n"));
}

// Whatever allocation or tree change of a request fails: the status is its own, nobody hears of it,
// and what is left behind is nothing.
TEST_F(PolicyTest, WithoutMemoryARequestLeavesNoTrace) {
    struct request {
        std::string mode, line, undo;
        std::set<uint32_t> refused;
    };
    std::vector<request> requests;
    for (const policyKind& k : policyKinds) {
        const std::string other = std::string(k.head, std::strlen(k.head) - 1) + "B";
        configure(k.head + ("\n" + k.line(1) + "\n"));
        requests.push_back({k.head, other, "no " + other, {k.listMemory}});
        requests.push_back({k.head, k.line(2), "no" + k.line(2), {k.entryMemory}});
    }
    configure(
        "ip access-list standard L\nipv6 access-list L\nroute-map M permit 5\n set comm-list L "
        "delete\n"
        "route-map M permit 10\n");
    requests.push_back({"route-map M permit 5",
                        "route-map B permit 5",
                        "no route-map B",
                        {ACL_E_RMAP_MEMORY, ACL_E_RMAP_ENTRY_MEMORY}});
    // Clauses; the last one takes the place of another list's, which is registered again.
    const std::set<uint32_t> noClause{ACL_E_RMAP_ENTRY_MEMORY, ACL_E_RMAP_NAME_MEMORY,
                                      ACL_E_RMAP_NUMBER_MEMORY, ACL_E_RMAP_LIST};
    for (const std::string& line : clauseLines())
        requests.push_back({"route-map M permit 10", line, "no" + line, noClause});
    requests.push_back({"route-map M permit 5",
                        " set comm-list N delete",
                        " set comm-list L delete",
                        {ACL_E_RMAP_LIST}});
    for (const request& r : requests)
        for (testPoint point : {TEST_BLOCK, TEST_TREE, TEST_INSERT}) {
            SCOPED_TRACE(r.line + " " + std::to_string(point));
            auto run = [&](const std::string& line) {
                enter(r.mode);
                return type(line);
            };
            ASSERT_EQ(run(r.line), 0u);  // what is kept for the next time is there
            ASSERT_EQ(run(r.undo), 0u);
            const uint64_t inUse = testBlocksInUse();
            const rows before = lines();
            const std::string maps = aclDumpAllRmapList();
            bool done = false;
            for (uint64_t nth = 1; !done; nth++) {
                testFail(point, nth, 1);
                const uint32_t refused = run(r.line);
                testFailNothing();
                done = refused == 0;
                if (done) {
                    EXPECT_EQ(run(r.undo), 0u);
                } else {
                    EXPECT_TRUE(r.refused.contains(refused)) << refused;
                    EXPECT_NE(aclStatusFind(refused), nullptr);
                    EXPECT_EQ(told(), rows{});
                    EXPECT_EQ(aclDumpAllRmapList(), maps) << "numbers are given back";
                }
                EXPECT_EQ(testBlocksInUse(), inUse);
                EXPECT_EQ(lines(), before);
                EXPECT_TRUE(!done || nth > 1 || point != TEST_BLOCK) << "nothing failed";
            }
        }
    EXPECT_EQ(aclRTest(), "");
    // A BGP list that is left without any entry goes with the one that found no memory.
    for (const policyKind& k : std::span(policyKinds, 3)) {
        configure("no " + std::string(k.head) + "\n" + k.head + "\n");
        testFail(TEST_BLOCK);
        EXPECT_EQ(type(k.line(1)), k.entryMemory);
        testFailNothing();
        EXPECT_EQ(k.find(), nullptr);
    }
}

}  // namespace
