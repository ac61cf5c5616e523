// What the kinds of policy lists have in common: tasks that register, and memory that is not there.
#include <set>

#include "tests/policy/policyTest.h"

namespace {

typedef std::span<const clientPairValue> pairs;

struct clientKind {
    const char* name;
    int (*add)(uint32_t task, uint32_t instance, pairs given);
    int (*del)(uint32_t task, uint32_t instance, pairs given);
    policyList* (*find)();
    std::vector<uint32_t> pairTasks;
    std::string noList;  // what is said when there is no memory for it
    rows noClient;
};
template <uint32_t AF>
clientKind prefixKind(const char* name, const char* title) {
    const std::string text =
        "Error: Unable to allocate memory for Acl A client Task id 80, instance 0\n";
    return {name,
            [](uint32_t t, uint32_t i, pairs p) { return prefixAddTaskClient(t, i, A, p, 9, AF); },
            [](uint32_t t, uint32_t i, pairs p) { return prefixDelTaskClient(t, i, A, p, AF); },
            [] { return static_cast<policyList*>(ipPrefixListFind(A, AF)); },
            {APP_BGP, APP_LDP},
            std::string("syserr 0x5000c Error: Unable to create ") + title +
                " Prefix list A in prefixAddTaskClient\n",
            {"syserr 0x5000c " + text, "log " + text}};
}
std::string bgpError(const std::string& what) {
    return "syserr 0x5000c Error: Unable to " + what + "client Task Id 80 Instance 0\n";
}
const std::string MAP_ERROR =
    "syserr 0x50004 Error: Unable to allocate memory for Rmap A client Task id 80, instance 0\n";
const clientKind kinds[] = {
    prefixKind<AF_IPV4>("prefix", "Ip"),
    prefixKind<AF_IPV6>("prefix6", "Ipv6"),
    {"paths",
     [](uint32_t t, uint32_t i, pairs p) { return aspAddTaskClient(t, i, A, 9, p); },
     [](uint32_t t, uint32_t i, pairs p) { return aspDelTaskClient(t, i, A, p); },
     [] { return static_cast<policyList*>(bgpASPAccessListFind(A)); },
     {APP_BGP, APP_LDP},
     bgpError("create AS-path list A for "),
     {bgpError("allocate memory for AS-path list A ")}},
    {"communities",
     [](uint32_t t, uint32_t i, pairs) { return commAddTaskClient(t, i, A, 9); },
     [](uint32_t t, uint32_t i, pairs) { return commDelTaskClient(t, i, A); },
     [] { return static_cast<policyList*>(bgpCommAccessListFind(A)); },
     {},
     bgpError("create Community list A for "),
     {bgpError("allocate memory for Community list A ")}},
    {"map",
     [](uint32_t t, uint32_t i, pairs p) { return rmapAddTaskClient(t, i, A, p, 9); },
     [](uint32_t t, uint32_t i, pairs p) { return rmapDelTaskClient(t, i, A, p); },
     [] { return static_cast<policyList*>(ipRmapListFind(A)); },
     {APP_BGP, APP_RTM},
     MAP_ERROR,
     {MAP_ERROR}},
};

// A task registers once, or where the kind has pairs once for each pair; a list without any client
// is none.
TEST_F(PolicyTest, TasksRegisterOnceOrForEachPair) {
    const clientPairValue values[] = {{3, 4}, {1, 2}, {5, 6}};
    const pairs two(values, 1), one(values + 1, 1), both(values + 1, 2);
    for (const clientKind& k : kinds) {
        for (uint32_t task : {APP_BGP, APP_LDP, APP_RTM, APP_OSPF}) {
            SCOPED_TRACE(std::string(k.name) + " " + std::to_string(task));
            const bool paired = std::ranges::count(k.pairTasks, task) != 0;
            auto held = [&] { return clientFindTask(k.find(), task, 3)->task.pairCount; };
            EXPECT_EQ(k.add(task, 3, one), 0);
            EXPECT_EQ(k.add(task, 3, both), 0) << "one of them is held";
            EXPECT_EQ(held(), paired ? 1u : 0u);
            EXPECT_EQ(k.add(task, 3, two), 0);
            EXPECT_EQ(held(), paired ? 2u : 0u);
            EXPECT_EQ(clientFindTask(k.find(), task, 3)->value, 9u);
            EXPECT_EQ(testTake(), rows{}) << "a placeholder is not configuration";
            EXPECT_EQ(k.del(task, 1, one), -1) << "another instance";
            EXPECT_EQ(k.del(task, 3, one), 0);
            EXPECT_EQ(k.find() != nullptr, paired);
            EXPECT_EQ(k.del(task, 3, two), 0) << "the last pair, or no such list";
            EXPECT_EQ(k.find(), nullptr);
        }
        testFail(TEST_BLOCK);
        testTake();
        EXPECT_EQ(k.add(APP_RTM, 0, {}), -1);
        EXPECT_EQ(testTake().back(), k.noList);
        testFailNothing();
        ASSERT_EQ(k.add(APP_OSPF, 0, {}), 0);
        testFail(TEST_BLOCK);
        EXPECT_EQ(k.add(APP_RTM, 0, {}), -1);
        testFailNothing();
        EXPECT_EQ(testTake(), k.noClient);
        EXPECT_EQ(k.del(APP_OSPF, 0, {}), 0);
    }
}

// A list that clients refer to exists for them: before the operator makes it, and after.
TEST_F(PrefixTest, ClientsKeepAPlaceholder) {
    for (uint32_t af : {AF_IPV4, AF_IPV6}) {
        const prefixGiven entry(0, PERMIT, af == AF_IPV4 ? "10.0.0.0" : "2001::", 8);
        char* last =
            af == AF_IPV4 ? aclNode->prefix.lastPrefixList : aclNode->prefix.lastV6PrefixList;
        EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, af), 0);
        prefixList* list = ipPrefixListFind(A, af);
        uint32_t resume = 0;
        EXPECT_EQ(page("A", &resume, af), "status 52");
        EXPECT_EQ(add("A", entry), ACL_E_PREFIX_NOLIST);
        std::strcpy(last, "untouched");
        EXPECT_EQ(create("A", af), list);
        EXPECT_STREQ(last, "untouched") << "only a new list counts as a change";
        EXPECT_EQ(add("A", entry), ACL_OK);
        EXPECT_EQ(testTakeRows().at(0).bytes.at(136), 'A');
        EXPECT_STREQ(last, "A");
        EXPECT_EQ(ipPrefixListDelete(A, af), 0u);
        EXPECT_EQ(ipPrefixListFind(A, af), list);
        EXPECT_EQ(list->placeholder, 1u);
        const rows gone = testTake();
        ASSERT_EQ(gone.size(), 3u);  // a trigger for the entry; the block out of the configuration
        EXPECT_EQ(gone[0], "swp 1 14468 length 292");
    }
    EXPECT_EQ(prefixDelRmapClient({MATCH, 8, nullptr}, M, A, AF_IPV4), -1);
    EXPECT_EQ(testTake(),
              rows{"syserr 0x50004 Error: Ip Prefix List A does not have client Routemap M\n"});
    // A trigger that cannot be sent is in the event log, and the change stands.
    const bgpList* paths = bgpASPAccessListCreate(A, 0, &status);
    ASSERT_EQ(aspAddTaskClient(APP_RTM, 0, A, 0, {}), 0);
    testHost.addresses.clear();
    testTake();
    EXPECT_EQ(bgpListKinds[0].add(A, 0), 0u);
    EXPECT_NE(paths->head, nullptr);
    EXPECT_EQ(std::ranges::count(testTake(), "log Error in sending Acl Trigger \n"), 1);
}

// Whatever allocation or tree change of a request fails: the status is its own, nobody hears of it,
// and what is left behind is nothing.
TEST_F(PolicyTest, WithoutMemoryARequestLeavesNoTrace) {
    struct request {
        std::string name;
        std::set<uint32_t> refused;
        std::function<uint32_t()> make, undo;
    };
    std::vector<request> requests;
    static uint32_t answer;
    for (const bgpKind& k : bgpListKinds) {
        k.create(A, 0, &status);
        k.add(A, 0);
        requests.push_back({k.head,
                            {k.listMemory},
                            [&k] { return k.create(B, 0, &answer), answer; },
                            [&k] { return k.remove(B); }});
        requests.push_back(
            {k.front, {k.entryMemory}, [&k] { return k.add(A, 1); }, [&k] { return k.del(A, 1); }});
    }
    for (const prefixGiven& entry :
         {prefixGiven(0, PERMIT, "10.0.0.0", 8), prefixGiven(0, PERMIT, "2001::", 16)}) {
        ipPrefixListCreate(A, 0, &status, entry.af);
        requests.push_back({"prefix list",
                            {ACL_E_PREFIX_LIST_MEMORY},
                            [=] { return ipPrefixListCreate(B, 0, &answer, entry.af), answer; },
                            [=] { return ipPrefixListDelete(B, entry.af); }});
        requests.push_back({"prefix",
                            {ACL_E_PREFIX_ENTRY_MEMORY},
                            [=] { return ipAddPrefixEntry(A, entry.record(), entry.af); },
                            [=] { return ipDelPrefixEntry(A, entry.record(), 1, entry.af); }});
    }
    static int32_t seq;
    auto instance = [](const listName& name) {
        seq = 5;
        return ipRmapListCreate(name, RMAP_PERMIT, &seq, 0, &answer), answer;
    };
    instance(M);
    // An access list that was made for a clause stays: meant.
    ipAccessListCreate(listNameMake("L"), IP_KIND_STANDARD, 0, &status);
    requests.push_back({"map",
                        {ACL_E_RMAP_MEMORY, ACL_E_RMAP_ENTRY_MEMORY},
                        [=] { return instance(B); },
                        [] { return ipRmapListDelete(B, 0, RMAP_NAMED_NONE); }});
    for (const rmapCodeRow& row : rmapCodeTable) {
        if (row.style == RMAP_STYLE_NONE) continue;
        // A payload's count and a continue's target are in the same bytes as nothing else.
        const clause c = clause(row.cls, row.code, 5).list("L").number(30).with([](auto& b) {
            b.community.count = b.prepend.count = b.extCommunity.count = 1;
        });
        requests.push_back({row.debug,
                            {ACL_E_RMAP_ENTRY_MEMORY, ACL_E_RMAP_NAME_MEMORY,
                             ACL_E_RMAP_NUMBER_MEMORY, ACL_E_RMAP_LIST},
                            [=] { return ipAddRmapEntry(M, clause(c).self(), AF_IPV4); },
                            [=] { return ipDelRmapEntry(M, clause(c).self(), AF_IPV4); }});
    }
    testTake();
    for (const request& r : requests)
        for (testPoint point : {TEST_BLOCK, TEST_TREE, TEST_INSERT}) {
            SCOPED_TRACE(r.name + " " + std::to_string(point));
            ASSERT_EQ(r.make(), 0u);  // what is kept for the next time is there
            ASSERT_EQ(r.undo(), 0u);
            const uint64_t before = testBlocksInUse();
            const rows lines = testCfgLines();
            bool done = false;
            for (uint64_t nth = 1; !done; nth++) {
                testTake();
                testFail(point, nth, 1);
                const uint32_t refused = r.make();
                testFailNothing();
                done = refused == 0;
                if (done) {
                    EXPECT_EQ(r.undo(), 0u);
                } else {
                    EXPECT_TRUE(r.refused.contains(refused)) << refused;
                    EXPECT_NE(aclStatusFind(refused), nullptr);
                    for (const std::string& row : testTake())
                        EXPECT_TRUE(row.starts_with("syserr ")) << row;
                }
                EXPECT_EQ(testBlocksInUse(), before);
                EXPECT_EQ(testCfgLines(), lines);
                EXPECT_TRUE(!done || nth > 1 || point != TEST_BLOCK) << "nothing failed";
            }
        }
    EXPECT_EQ(aclRTest(), "");
}

}  // namespace
