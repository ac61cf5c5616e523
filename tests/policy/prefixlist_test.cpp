// Prefix lists from the operator's and the clients' side: statuses, lines, shows, clients.
#include <algorithm>
#include <functional>

#include "tests/policy/prefixTest.h"

namespace {

const listName A = listNameMake("A");

TEST_F(PrefixTest, OperationsAnswerTheirStatus) {
    enum act { ADD, DEL };
    struct {
        act what;
        prefixGiven entry;
        uint32_t status;
        std::vector<uint32_t> left;
    } table[] = {
        {ADD, {0, PERMIT, "10.0.0.0", 8}, 0, {5}},
        {ADD, {0, PERMIT, "10.0.0.0", 8}, 0x3d000021, {5}},
        {ADD, {0, DENY, "10.0.0.0", 8}, 0, {5, 10}},
        {ADD, {10, PERMIT, "10.0.0.0", 8}, 0x3d000021, {5, 10}},  // content comes before number
        {ADD, {10, PERMIT, "11.0.0.0", 8}, 0x3d000025, {5, 10}},
        {ADD, {7, PERMIT, "11.0.0.0", 8, -1, -1}, 0, {5, 7, 10}},
        {ADD, {0, PERMIT, "11.0.0.0", 8, 0, 0}, 0x3d000021, {5, 7, 10}},  // not given either way
        {ADD, {0, PERMIT, "11.0.0.0", 8, 24, 16}, 0x3d00002e, {5, 7, 10}},
        {ADD, {0, PERMIT, "11.0.0.0", 8, 24, 0}, 0, {5, 7, 10, 15}},
        {ADD, {0, PERMIT, "11.0.0.0", 28, 0, 16}, 0, {5, 7, 10, 15, 20}},
        {ADD, {65535, PERMIT, "12.0.0.0", 8}, 0x3d00002d, {5, 7, 10, 15, 20}},
        {ADD, {0xFFFFFFFF, PERMIT, "12.0.0.0", 8}, 0x3d00002d, {5, 7, 10, 15, 20}},
        {ADD, {65529, PERMIT, "12.0.0.0", 8}, 0, {5, 7, 10, 15, 20, 65529}},
        {ADD, {0, PERMIT, "13.0.0.0", 8}, 0, {5, 7, 10, 15, 20, 65529, 65534}},
        {ADD, {0, PERMIT, "14.0.0.0", 8}, 0x3d00002d, {5, 7, 10, 15, 20, 65529, 65534}},
        {DEL, {8, PERMIT, "11.0.0.0", 8}, 0x3d000024, {5, 7, 10, 15, 20, 65529, 65534}},
        {DEL, {7, DENY, "1.2.3.4", 32}, 0, {5, 10, 15, 20, 65529, 65534}},  // the number decides
        {DEL, {0, PERMIT, "11.0.0.0", 8}, 0x3d000024, {5, 10, 15, 20, 65529, 65534}},
        {DEL, {0, PERMIT, "11.0.0.0", 8, 24, -1}, 0, {5, 10, 20, 65529, 65534}},
    };
    prefixList* list = create("A");
    int row = 0;
    for (const auto& r : table) {
        SCOPED_TRACE(row++);
        EXPECT_EQ(r.what == ADD ? add("A", r.entry) : del("A", r.entry), r.status);
        EXPECT_EQ(numbers(list), r.left);
        EXPECT_EQ(list->count, static_cast<int32_t>(r.left.size()));
    }
    EXPECT_EQ(list->rangeEntries, 1);

    const prefixGiven any(0, PERMIT, "0.0.0.0", 0);
    uint32_t unnamed = 0;
    EXPECT_EQ(ipPrefixListCreate(listName{}, 0, &unnamed, AF_IPV4), nullptr);
    EXPECT_EQ(unnamed, 0x3d000020u);
    EXPECT_EQ(prefixAddTaskClient(80, 0, listName{}, {}, 0, AF_IPV4), -1);
    EXPECT_EQ(add("B", any), 0x3d000020u);
    EXPECT_EQ(del("B", any), 0x3d000024u);
    EXPECT_EQ(ipPrefixListDelete(listNameMake("B"), AF_IPV4), 0x3d000020u);
    EXPECT_EQ(ipPrefixListDelete(A, AF_IPV6), 0x3d000020u) << "families are apart";
    EXPECT_EQ(prefixClearIpList(listNameMake("B"), AF_IPV4), 0x3d000020u);
    EXPECT_EQ(ipReseqPrefixList(listNameMake("B"), 5, 5, AF_IPV4), 0x3d000020u);
    for (uint32_t af : {0u, 3u, 0xFFFFFFFFu}) {
        uint32_t status = 0;
        EXPECT_EQ(ipPrefixListCreate(A, 0, &status, af), nullptr);
        EXPECT_EQ(ipAddPrefixEntry(A, any.record(), af), ACL_E_SYSTEM);
        EXPECT_EQ(ipDelPrefixEntry(A, any.record(), 1, af), ACL_E_SYSTEM);
        EXPECT_EQ(ipPrefixListDelete(A, af), ACL_E_SYSTEM);
        EXPECT_EQ(ipReseqPrefixList(A, 5, 5, af), ACL_E_SYSTEM);
        EXPECT_EQ(prefixAddTaskClient(80, 0, A, {}, 0, af), -1);
        EXPECT_EQ(ipPrefixListFindFirst(af), nullptr);
    }
}

TEST_F(PrefixTest, WritesEveryFormInBothMaskModes) {
    struct {
        prefixGiven entry;
        const char *plain, *masked;
    } table[] = {
        {{1, PERMIT, "10.0.0.0", 8}, "permit 10.0.0.0/8", "permit 10.0.0.0 255.0.0.0"},
        {{2, DENY, "10.0.0.0", 8, -1, 24},
         "deny 10.0.0.0/8 le 24",
         "deny 10.0.0.0 255.0.0.0 le 24"},
        {{3, 7, "10.0.0.0", 8, 16}, "permit 10.0.0.0/8 ge 16", "permit 10.0.0.0 255.0.0.0 ge 16"},
        {{4, DENY, "10.0.0.0", 8, 16, 24},
         "deny 10.0.0.0/8 ge 16 le 24",
         "deny 10.0.0.0 255.0.0.0 ge 16 le 24"},
        {{5, PERMIT, "0.0.0.0", 0, 0, 32}, "permit any", "permit any"},
        {{6, DENY, "0.0.0.0", 0, -1, 32}, "deny any", "deny any"},
        {{7, PERMIT, "0.0.0.0", 0, 1, 32},
         "permit 0.0.0.0/0 ge 1 le 32",
         "permit 0.0.0.0 0.0.0.0 ge 1 le 32"},
        {{8, PERMIT, "0.0.0.0", 0}, "permit 0.0.0.0/0", "permit 0.0.0.0 0.0.0.0"},
        {{9, DENY, "10.0.0.1", 255, 0, 0, "255.0.0.255"},
         "deny 10.0.0.1 bitmask 255.0.0.255",
         "deny 10.0.0.1 bitmask 255.0.0.255"},
        {{1, PERMIT, "2001:db8::", 32, 48, 64},
         "permit 2001:db8::/32 ge 48 le 64",
         "permit 2001:db8::/32 ge 48 le 64"},
        {{2, DENY, "::", 0, 0, 128}, "deny any", "deny any"},
        {{3, DENY, "::", 0, 0, 32}, "deny ::/0 le 32", "deny ::/0 le 32"},
        {{4, PERMIT, "fe80::1", 255, 0, 0, "ffff::1"},
         "permit fe80::1 bitmask ffff::1",
         "permit fe80::1 bitmask ffff::1"},
    };
    for (uint32_t af : {AF_IPV4, AF_IPV6}) create("A", af);
    std::map<uint32_t, std::string> shown[2];
    for (const auto& r : table) {
        for (uint32_t inverse : {0u, 1u}) {
            SCOPED_TRACE(r.plain);
            bool v6 = r.entry.af == AF_IPV6;
            const std::string seq = std::to_string(uint32_t{r.entry.record().seq});
            const std::string place = std::string("83") + (v6 ? "v6" : "") + "/148 A 1/" +
                                      std::to_string(r.entry.record().seq + 2) + "/ff";
            const std::string front = " seq " + seq + " ";
            const std::string text = inverse != 0 ? r.masked : r.plain;
            const std::string sync = std::string("sync ") + (v6 ? "80" : "15") + " A ";
            std::string inserted = "cfg insert " + place + " \"" + front + r.plain + "\"";
            if (std::string(r.plain) != r.masked) inserted += " / \"" + front + r.masked + "\"";
            aclNode->inverseMask = inverse;
            ASSERT_EQ(add("A", r.entry), 0u);
            EXPECT_EQ(testTake(), (rows{inserted, sync + "\"" + front + text + "\""}));
            // Removals are told first and then made.
            EXPECT_EQ(del("A", r.entry), 0u);
            EXPECT_EQ(testTake(),
                      (rows{sync + "\"no " + front + text + "\"", "cfg exact " + place}));
            ASSERT_EQ(add("A", r.entry), 0u);
            uint32_t resume = 0;
            std::string any = v6        ? "::/0 le 128"
                              : inverse ? "0.0.0.0 0.0.0.0 le 32"
                                        : "0.0.0.0/0 le 32";
            std::string line = text;
            if (size_t at = line.find("any"); at != line.npos) line.replace(at, 3, any);
            EXPECT_NE(page("A", &resume, r.entry.af)
                          .find("   seq " + seq + " " + line + " (hit count: 0)\r\n"),
                      std::string::npos);
            EXPECT_EQ(del("A", r.entry), 0u);
            testTake();
        }
    }
    aclNode->inverseMask = 0;
    EXPECT_EQ(ipPrefixListDelete(A, AF_IPV6), 0u);
    EXPECT_EQ(testTake(), (rows{"cfg remove 83v6/144 A", "sync 3 A \"no ipv6 prefix-list A\""}));
    uint32_t status = 0;
    ipPrefixListCreate(A, 0, &status, AF_IPV6);
    EXPECT_EQ(testTake(),
              (rows{"cfg insert 83v6/144 A 0/0/0 \"!\"", "sync 3 A \"ipv6 prefix-list A\"",
                    "cfg insert 83v6/148 A 0/0/0 \"ipv6 prefix-list A\""}));
}

TEST_F(PrefixTest, ShowsPagesOfFiftyAndKeepsALowestNumberThatHasGone) {
    prefixList* list = create("A");
    for (uint32_t n : {10u, 20u, 30u})
        ASSERT_EQ(add("A", {n, PERMIT, "10.0.0.0", static_cast<uint8_t>(n)}), 0u);
    const std::string front = "ip prefix-list A:\r\ncount: ";
    auto header = [&] {
        uint32_t resume = 0;
        std::string text = page("A", &resume);
        return text.substr(0, text.find("\r\n   "));
    };
    struct {
        uint32_t gone, added;
        const char* header;
    } table[] = {{10, 0, "2, range entries: 0, sequences: 10 - 30"},
                 {0, 5, "3, range entries: 0, sequences: 5 - 30"},
                 {30, 0, "2, range entries: 0, sequences: 5 - 20"},
                 {5, 0, "1, range entries: 0, sequences: 5 - 20"},
                 {20, 40, "1, range entries: 0, sequences: 40 - 40"}};
    for (const auto& r : table) {
        if (r.gone != 0) {
            EXPECT_EQ(del("A", {r.gone, PERMIT, "10.0.0.0", 8}), 0u);
        }
        if (r.added != 0) {
            const auto len = static_cast<uint8_t>(r.added % 32);
            EXPECT_EQ(add("A", {r.added, PERMIT, "10.0.0.0", len}), 0u);
        }
        EXPECT_EQ(header(), front + r.header);
    }
    EXPECT_EQ(del("A", {40, PERMIT, "10.0.0.0", 8}), 0u);
    for (uint32_t i = 0; i < 120; i++)
        ASSERT_EQ(add("A", {0, PERMIT, ("10.0." + std::to_string(i) + ".0").c_str(), 24}), 0u);
    list->head->hits = 3;

    uint32_t resume = 0;
    std::vector<uint32_t> resumes;
    std::string all;
    do {
        all += page("A", &resume, AF_IPV4, 1);
        resumes.push_back(resume);
    } while (resume != 0);
    EXPECT_EQ(resumes, (std::vector<uint32_t>{50, 100, 0}));
    std::string expected = "Ip Prefix-list with the last deletion/insertion: A\r\n" + front +
                           "120, range entries: 0, sequences: 5 - 600\r\n";
    for (uint32_t i = 0; i < 120; i++)
        expected += "   seq " + std::to_string(5 * i + 5) + " permit 10.0." + std::to_string(i) +
                    ".0/24 (hit count: " + (i == 0 ? "3" : "0") + ")\r\n";
    EXPECT_EQ(all, expected);
    for (uint32_t beyond : {120u, 121u, 0xFFFFFFFFu}) {
        resume = beyond;
        EXPECT_EQ(page("A", &resume), "");
        EXPECT_EQ(resume, 0u);
    }
    EXPECT_EQ(page("B", &resume), "status 32");
    EXPECT_EQ(page("A", nullptr), "status 5");
    testFail(TEST_BUFFER);
    EXPECT_EQ(page("A", &resume), "status 28");
    testFailNothing();
    EXPECT_EQ(prefixClearIpListAll(AF_IPV4), 0u);
    EXPECT_EQ(list->head->hits, 0u);
}

// As many entries as a list may have, in every order that somebody who knows the code would try:
// numbers that follow the scattered identifiers once made a chain of the order tree.
TEST_F(PrefixTest, LongListsStayShallowInWhateverOrderTheirNumbersCome) {
    struct scattered {
        uint32_t priority, at;
    };
    std::vector<scattered> ids(PREFIX_SEQ_MAX);
    for (uint32_t i = 0; i < PREFIX_SEQ_MAX; i++) {
        uint32_t p = (i + 1) * 0x9E3779B9u;
        ids[i] = {p ^ (p >> 15), i};
    }
    std::ranges::sort(ids, std::greater{}, &scattered::priority);
    std::vector<uint32_t> numbers(PREFIX_SEQ_MAX);
    for (uint32_t rank = 0; rank < PREFIX_SEQ_MAX; rank++) numbers[ids[rank].at] = rank + 1;
    prefixGiven entry(0, PERMIT, "10.0.0.0", 32);
    for (int reversed : {0, 1, 2}) {
        if (reversed == 1) std::ranges::reverse(numbers);
        if (reversed == 2) std::ranges::sort(numbers);
        prefixList* list = create("A");
        for (uint32_t i = 0; i < PREFIX_SEQ_MAX; i++) {
            entry.record().seq = numbers[i];
            entry.bytes[26] = static_cast<uint8_t>(i >> 8);
            entry.bytes[27] = static_cast<uint8_t>(i);
            ASSERT_EQ(add("A", entry), 0u);
        }
        uint32_t depth = 0;
        for (uint32_t seq = 1; seq <= PREFIX_SEQ_MAX; seq += 97) {
            uint32_t steps = 0;
            for (const prefixEntry* at = list->order; at->record->seq != seq; steps++)
                at = at->child[at->record->seq < seq];
            depth = std::max(depth, steps);
        }
        EXPECT_LT(depth, 100u);
        ASSERT_EQ(ipPrefixListDelete(A, AF_IPV4), 0u);
        testTake();
    }
}

TEST_F(PrefixTest, ResequencesWholeOrNotAtAll) {
    prefixList* list = create("A");
    for (uint8_t i = 8; i < 11; i++) ASSERT_EQ(add("A", {0, PERMIT, "10.0.0.0", i}), 0u);
    testTake();
    struct {
        uint32_t start, step;
    } refused[] = {{65530, 5}, {0, 5},          {5, 0},
                   {65535, 1}, {1, 0x80000000}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& r : refused)
        EXPECT_EQ(ipReseqPrefixList(A, r.start, r.step, AF_IPV4), 0x3d00002du) << r.start;
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{5, 10, 15}));
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, AF_IPV4), 0);

    EXPECT_EQ(ipReseqPrefixList(A, 65524, 5, AF_IPV4), 0u);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{65524, 65529, 65534}));
    EXPECT_EQ(testHost.restedUs, 3000u);
    rows told = testTake();
    ASSERT_EQ(told.size(), 12u);  // block out and in (2 + 3), three lines (2 each), one trigger
    EXPECT_EQ(told[0], "cfg remove 83/144 A");
    EXPECT_EQ(told[5],
              "cfg insert 83/148 A 1/65526/ff \" seq 65524 permit 10.0.0.0/8\" / "
              "\" seq 65524 permit 10.0.0.0 255.0.0.0\"");
    EXPECT_TRUE(told[11].starts_with("swp ")) << told[11];
    EXPECT_EQ(list->lowestSeq, 5u) << "left as it was";
    EXPECT_EQ(list->highestSeq, 65534u);
    // The evaluation and the searches by number go by the new numbers.
    const prefixEntry* decided = nullptr;
    uint8_t address[16] = {10};
    EXPECT_EQ(prefixFilterCheck(list, ipPrefixMake(AF_IPV4, address, 9), &decided), 0);
    EXPECT_EQ(decided, list->head->next);
    EXPECT_EQ(add("A", {65530, PERMIT, "10.0.0.0", 20}), 0u);
    EXPECT_EQ(add("A", {65529, PERMIT, "10.0.0.0", 21}), 0x3d000025u);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{65524, 65529, 65530, 65534}));
}

// A list that clients refer to exists for them: before the operator makes it, and after.
TEST_F(PrefixTest, ClientsKeepAPlaceholder) {
    for (uint32_t af : {AF_IPV4, AF_IPV6}) {
        const char* address = af == AF_IPV4 ? "10.0.0.0" : "2001::";
        char* last = af == AF_IPV4 ? aclNode->lastPrefixList : aclNode->lastV6PrefixList;
        EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, af), 0);
        EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, af), 0) << "once is enough";
        prefixList* list = ipPrefixListFind(A, af);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(testTake(), rows{}) << "a placeholder is not configuration";
        uint32_t resume = 0;
        EXPECT_EQ(page("A", &resume, af), "status 52");
        EXPECT_EQ(add("A", {0, PERMIT, address, 8}), 0x3d000020u);
        std::strcpy(last, "untouched");
        EXPECT_EQ(create("A", af), list);
        EXPECT_STREQ(last, "untouched") << "only a new list counts as a change";
        EXPECT_EQ(list->placeholder, 0u);

        EXPECT_EQ(add("A", {0, PERMIT, address, 8}), 0u);
        auto sent = testTakeRows();
        ASSERT_EQ(sent.size(), 3u);
        EXPECT_EQ(sent[0].bytes.size(), 292u);
        EXPECT_EQ(msgHdr(sent[0].bytes.data())->mtype, 14468u);
        EXPECT_EQ(sent[0].bytes[136], 'A');
        EXPECT_STREQ(last, "A");

        EXPECT_EQ(ipPrefixListDelete(A, af), 0u);
        EXPECT_EQ(ipPrefixListFind(A, af), list);
        EXPECT_EQ(list->placeholder, 1u);
        EXPECT_EQ(list->count, 0);
        rows gone = testTake();
        ASSERT_EQ(gone.size(),
                  3u);  // one trigger for the entry; the block out of the configuration
        EXPECT_TRUE(gone[0].starts_with("swp "));
        EXPECT_EQ(prefixDelTaskClient(APP_RTM, 1, A, {}, af), -1) << "another instance";
        EXPECT_EQ(prefixDelTaskClient(APP_RTM, 0, A, {}, af), 0);
        EXPECT_EQ(ipPrefixListFind(A, af), nullptr);
        EXPECT_EQ(prefixDelTaskClient(APP_RTM, 0, A, {}, af), 0) << "no such list";
    }
}

TEST_F(PrefixTest, PairsBelongToBgpAndLdp) {
    const clientPairValue one[] = {{1, 2}}, two[] = {{3, 4}}, both[] = {{1, 2}, {5, 6}};
    for (uint32_t task : {65u, 185u, 64u}) {
        SCOPED_TRACE(task);
        const uint32_t kept = task == 64 ? 0 : 1;
        auto held = [&] {
            return clientFindTask(ipPrefixListFind(A, AF_IPV6), task, 3)->task.pairCount;
        };
        EXPECT_EQ(prefixAddTaskClient(task, 3, A, one, 9, AF_IPV6), 0);
        EXPECT_EQ(prefixAddTaskClient(task, 3, A, both, 9, AF_IPV6), 0) << "one of them is held";
        EXPECT_EQ(held(), kept);
        EXPECT_EQ(prefixAddTaskClient(task, 3, A, two, 9, AF_IPV6), 0);
        EXPECT_EQ(held(), 2 * kept);
        EXPECT_EQ(prefixDelTaskClient(task, 3, A, one, AF_IPV6), 0);
        if (kept != 0) {
            EXPECT_EQ(held(), 1u);
            EXPECT_EQ(prefixDelTaskClient(task, 3, A, two, AF_IPV6), 0);
        }
        EXPECT_EQ(ipPrefixListFind(A, AF_IPV6), nullptr);
    }
}

TEST_F(PrefixTest, RouteMapsRegisterTheClausesThatNamePrefixLists) {
    const listName map = listNameMake("map");
    for (uint32_t cls = 1; cls <= 4; cls++) {
        for (uint32_t code = 1; code <= 20; code++) {
            SCOPED_TRACE(std::to_string(cls) + "/" + std::to_string(code));
            bool ours = (cls == 1 && (code == 8 || code == 9 || code == 11)) ||
                        (cls == 2 && (code == 13 || code == 14 || code == 15));
            uint32_t af = cls == 1 ? AF_IPV4 : AF_IPV6;
            void* slot = nullptr;
            rmapMatch match{static_cast<uint16_t>(cls), code, &slot};
            EXPECT_EQ(prefixAddRmapClient(match, map, A, af), 0);
            EXPECT_EQ(prefixAddRmapClient(match, map, A, af), 0);
            EXPECT_EQ(slot, ours ? ipPrefixListFind(A, af) : nullptr);
            EXPECT_EQ(slot != nullptr, ours);
            EXPECT_EQ(prefixDelRmapClient(match, map, A, af), 0);
            EXPECT_EQ(ipPrefixListFind(A, af) != nullptr, ours) << "a clause is left";
            EXPECT_EQ(prefixDelRmapClient(match, map, A, af), 0);
            EXPECT_EQ(slot, nullptr);
            EXPECT_EQ(ipPrefixListFind(A, af), nullptr);
        }
    }
    testTake();
    create("A");
    EXPECT_EQ(prefixDelRmapClient({1, 8, nullptr}, map, A, AF_IPV4), -1);
    EXPECT_EQ(testTake(),
              (rows{"syserr 0x50004 Error: Ip Prefix List A does not have client Routemap map\n"}));
}

// Every allocation and every tree change of an operation fails once: the status is its own, and
// what is left behind is nothing.
TEST_F(PrefixTest, ARefusalForLackOfMemoryLeavesNothing) {
    uint32_t status = 0;
    for (testPoint point : {TEST_BLOCK, TEST_TREE, TEST_INSERT}) {
        testFail(point, 1, 1);
        EXPECT_EQ(ipPrefixListCreate(A, 0, &status, AF_IPV4), nullptr);
        EXPECT_EQ(status, 0x3d000022u);
        testFail(point, 1, 1);
        EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, AF_IPV4), -1);
        EXPECT_EQ(ipPrefixListFind(A, AF_IPV4), nullptr);
        testFailNothing();
        EXPECT_EQ(testBlocksInUse(), blocks);
    }
    EXPECT_TRUE(
        testTake().back().find("Error: Unable to create Ip Prefix list A in prefixAddTaskClient") !=
        std::string::npos);
    prefixList* list = create("A");
    for (testPoint point : {TEST_BLOCK, TEST_INSERT}) {
        testFail(point, 1, 1);
        EXPECT_EQ(add("A", {0, PERMIT, "10.0.0.0", 8}), 0x3d000023u);
        testFailNothing();
        EXPECT_EQ(list->count, 0);
    }
    EXPECT_EQ(testTake(), rows{});
    testFail(TEST_BLOCK, 1, 1);
    EXPECT_EQ(prefixAddTaskClient(64, 2, A, {}, 0, AF_IPV4), -1);
    const std::string text =
        "Error: Unable to allocate memory for Acl A client Task id 64, instance 2\n";
    EXPECT_EQ(testTake(), (rows{"syserr 0x5000c " + text, "log " + text}));
    testFail(TEST_BLOCK, 1, 1);
    EXPECT_EQ(prefixAddRmapClient({1, 8, nullptr}, listNameMake("map"), A, AF_IPV4), -1);
}

TEST_F(PrefixTest, RequestsReachTheStoreOfTheirFamily) {
    for (bool v6 : {false, true}) {
        SCOPED_TRACE(v6);
        const uint32_t base = v6 ? 1147 : 1042, shows = v6 ? 1154 : 1083, type = v6 ? 14480 : 14469;
        const uint32_t af = v6 ? AF_IPV6 : AF_IPV4;
        const size_t entryLen = v6 ? sizeof(cliPrefix6Req) : sizeof(cliPrefix4Req);
        const prefixGiven given(0, PERMIT, v6 ? "2001:db8::" : "10.0.0.0", 8);
        auto entry = [&](uint32_t code) {
            auto bytes = cli(code, "A", entryLen);
            std::memcpy(bytes.data() + sizeof(cliHdr), given.bytes, entryLen - sizeof(cliHdr));
            return bytes;
        };
        EXPECT_EQ(ask(cli(base, "A", sizeof(cliHdr))), 0u);
        EXPECT_EQ(ask(entry(base + 2)), 0u);
        EXPECT_EQ(ask(entry(base + 2)), 0x3d000021u);
        auto cut = entry(base + 2);
        cut.resize(entryLen - 1);
        EXPECT_EQ(ask(cut), ACL_E_SYSTEM);
        std::string out;
        ASSERT_TRUE(zekDebugRun("aclPopulatePrefixList", v6 ? "A 2 60" : "A 1 60", &out));

        auto show = [&](uint32_t code, const char* name, uint32_t resume) {
            auto bytes = cli(code, "", sizeof(cliShowReq));
            auto* req = reinterpret_cast<cliShowReq*>(bytes.data());
            req->name = listNameMake(name);
            req->resume = resume;
            return deliver(bytes).at(0);
        };
        auto task = [&](uint32_t mtype, const char* name, uint32_t resume) {
            auto bytes = message(mtype, 208);
            reinterpret_cast<showReplyHdr*>(bytes.data())->name = listNameMake(name);
            reinterpret_cast<be32&>(bytes[204]) = resume;
            return deliver(bytes).at(0);
        };
        auto text = [](const std::vector<uint8_t>& bytes) {
            return std::string(reinterpret_cast<const char*>(bytes.data()) + SHOW_TEXT_OFFSET);
        };
        auto front = [](std::vector<uint8_t>& bytes) {
            return reinterpret_cast<showReplyHdr*>(bytes.data());
        };
        const std::string word = v6 ? "ipv6" : "ip";
        for (bool byTask : {false, true}) {
            auto ofAll = [&](bool detail, const char* name, uint32_t resume) {
                return byTask ? task(detail ? type + 2 : type + 3, name, resume)
                              : show(detail ? shows : shows + 1, name, resume);
            };
            auto page1 = ofAll(true, "", 0);
            EXPECT_EQ(page1.size(), 16000u);
            EXPECT_TRUE(
                text(page1).starts_with(v6 ? "Ipv6 Prefix-list with" : "Ip Prefix-list with"));
            EXPECT_EQ(front(page1)->marker, 50u);
            EXPECT_EQ(front(page1)->name, A);
            auto page2 = ofAll(true, "A", 50);
            EXPECT_EQ(front(page2)->marker, 0u);
            EXPECT_TRUE(text(page2).starts_with("   seq "));
            EXPECT_TRUE(text(ofAll(false, "", 0)).starts_with(word + " prefix-list A:"));
            auto end = ofAll(false, "A", 0);
            EXPECT_EQ(
                byTask ? front(end)->ipc.status : reinterpret_cast<cliHdr*>(end.data())->result,
                0x3d000020u);
            auto one = byTask ? task(type + 1, "A", 0) : show(shows + 3, "A", 0);
            EXPECT_TRUE(text(one).starts_with(word + " prefix-list A:"));
        }
        auto reseq = cli(1185, "A", sizeof(cliPrefixReseqReq));
        auto* req = reinterpret_cast<cliPrefixReseqReq*>(reseq.data());
        req->start = 100, req->step = 1, req->family = af;
        EXPECT_EQ(ask(reseq), 0u);
        EXPECT_EQ(ipPrefixListFind(A, af)->head->record->seq, 100u);
        EXPECT_EQ(ask(cli(base + 4, "A", sizeof(cliHdr))), 0u);
        EXPECT_EQ(ask(cli(base + 5, "", sizeof(cliHdr))), 0u);
        EXPECT_EQ(ask(entry(base + 3)), 0u);

        // Clients register by message; 1,004 pairs cannot be in it.
        auto reg = message(v6 ? 14448 : 14446, sizeof(clientRegReq));
        auto* registration = reinterpret_cast<clientRegReq*>(reg.data());
        registration->application = APP_RTM;
        registration->name = A;
        auto result = [&] { return uint32_t{msgHdr(deliver(reg).at(0).data())->result}; };
        EXPECT_EQ(result(), 0u);
        EXPECT_NE(clientFindTask(ipPrefixListFind(A, af), APP_RTM, 0), nullptr);
        registration->pairCount = 1004;
        EXPECT_EQ(result(), CLIENT_REG_FAILED);
        registration->pairCount = 0;
        registration->ipc.mtype = v6 ? 14449 : 14447;
        EXPECT_EQ(result(), 0u);
        EXPECT_EQ(result(), CLIENT_REG_FAILED) << "it is gone";

        // A second agent that comes later hears the requests that make what there is.
        aclNode->acl2qHandle = aclNode->qHandle;
        testHost.addresses[{APP_ACL2, 0}] = 0x7F010055;
        int heard = 0;
        testTake();
        prefixDownloadIpListAlltoACL2(af);
        auto sent = testTakeRows();
        ASSERT_EQ(sent.size(), 1u + static_cast<size_t>(ipPrefixListFind(A, af)->count));
        for (const testRow& row : sent) {
            const auto* hdr = reinterpret_cast<const cliHdr*>(row.bytes.data());
            EXPECT_EQ(uint32_t{hdr->ipc.source.card}, 0x7F010055u);
            EXPECT_EQ(uint32_t{hdr->ipc.source.svce}, 21249u);
            EXPECT_EQ(uint32_t{hdr->ipc.target.svce}, 7810u);
        }
        // One that is there hears each request with its result.
        for (const char* name : {"A", "no such list"}) {
            auto request = cli(base + 1, name, sizeof(cliHdr));
            std::memcpy(received, request.data(), request.size());
            aclTakeMessage(aclNode, received, request.size());
            for (const testRow& row : testTakeRows()) {
                const auto* hdr = reinterpret_cast<const cliHdr*>(row.bytes.data());
                if (!row.text.starts_with("swp ")) continue;
                EXPECT_EQ(uint32_t{hdr->ipc.source.svce}, 21249u);
                EXPECT_EQ(hdr->result == ACL_OK, name[1] == 0) << name;
                heard++;
            }
        }
        EXPECT_EQ(heard, 2);
        aclNode->acl2qHandle = ZEK_SWP_NONE;
        for (const testRow& row : sent) ask(row.bytes);
        EXPECT_EQ(numbers(ipPrefixListFind(A, af)).size(), sent.size() - 1);
    }
}

TEST_F(PrefixTest, DebugFunctionsTellVerdicts) {
    struct {
        const char *name, *args, *text;
    } table[] = {
        {"aclPopulatePrefixList", "A 1 3", "added 3\n"},
        {"aclPopulatePrefixList", "A 2 2", "added 2\n"},
        {"testPrefixList", "A 10.0.1.0/24",
         R"({"verdict":"permit","entry":" seq 10 permit 10.0.1.0/24"})"},
        {"testPrefixList", "A 10.0.3.0/24", R"({"verdict":"deny","entry":null})"},
        {"testPrefixList", "A a00:100::/24",
         R"({"verdict":"permit","entry":" seq 10 permit a00:100::/24"})"},
        {"testPrefixList", "A 10.0.1.0/33", R"({"error":"not a prefix: 10.0.1.0/33"})"},
        {"testPrefixList", "B 10.0.1.0/24", R"({"error":"No such prefix list"})"},
        {"aclTestIPPrefixList", "10.0.1.0 24 A 1",
         "Ipaddr = 10.0.1.0, Ipmask = 255.255.255.0, Action = Permit\r\n"},
        {"aclTestIPPrefixList", "a00:: 25 A 2",
         "Ipaddr = a00::, Ipmask = ffff:ff80::, Action = Deny\r\n"},
        {"ipPrefixCheck", "10.0.1.0 24 A 1", "permit\n"},
        {"ipPrefixCheck", "10.0.1.0 25 A 1", "filter\n"},
        {"ipPrefixCheck", "10.0.1.0 24 B 1", ""},
        {"ipAclCheck", "10.0.0.1 10.0.0.2 10", ""},
        {"aclDumpAllAFPrefixList", "1",
         "ip prefix-list A, entries 3, with ranges 0, numbers 5 to 15, last id 3\n"},
        {"aclDumpPrefixInfo", "", "prefix lists: ip 1, ipv6 1\nlast changed: ip A, ipv6 A\n"},
    };
    for (const auto& r : table) {
        std::string out = "not there";
        zekDebugRun(r.name, r.args, &out);
        EXPECT_EQ(out, r.text) << r.name << " " << r.args;
    }
}

}  // namespace
