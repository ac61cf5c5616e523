// Prefix lists from the operator's side: statuses, lines, shows, requests.
#include "tests/policy/policyTest.h"

namespace {

// What a random list does not come to: the end of the numbers, names and families that are none.
TEST_F(PrefixTest, OperationsAnswerTheirStatus) {
    enum act { ADD, DEL };
    struct {
        act what;
        prefixGiven entry;
        uint32_t status;
        std::vector<uint32_t> left;
    } table[] = {
        {ADD, {0, PERMIT, "10.0.0.0", 8}, ACL_OK, {5}},
        {ADD, {65535, PERMIT, "12.0.0.0", 8}, ACL_E_SEQ_RANGE, {5}},
        {ADD, {0xFFFFFFFF, PERMIT, "12.0.0.0", 8}, ACL_E_SEQ_RANGE, {5}},
        {ADD, {65529, PERMIT, "12.0.0.0", 8}, ACL_OK, {5, 65529}},
        {ADD, {0, PERMIT, "13.0.0.0", 8}, ACL_OK, {5, 65529, 65534}},
        {ADD, {0, PERMIT, "14.0.0.0", 8}, ACL_E_SEQ_RANGE, {5, 65529, 65534}},
        {DEL, {5, DENY, "1.2.3.4", 32}, ACL_OK, {65529, 65534}},  // the number decides
    };
    prefixList* list = create("A");
    for (const auto& r : table) {
        SCOPED_TRACE(&r - table);
        EXPECT_EQ(r.what == ADD ? add("A", r.entry) : del("A", r.entry), r.status);
        EXPECT_EQ(numbers(list), r.left);
    }
    const prefixGiven any(0, PERMIT, "0.0.0.0", 0);
    EXPECT_EQ(ipPrefixListCreate(listName{}, 0, &status, AF_IPV4), nullptr);
    for (uint32_t refused :
         {status, add("B", any), ipPrefixListDelete(B, AF_IPV4), ipPrefixListDelete(A, AF_IPV6),
          prefixClearIpList(B, AF_IPV4), ipReseqPrefixList(B, 5, 5, AF_IPV4)})
        EXPECT_EQ(refused, ACL_E_PREFIX_NOLIST);
    EXPECT_EQ(del("B", any), ACL_E_PREFIX_NOENTRY);
    EXPECT_EQ(prefixAddTaskClient(80, 0, listName{}, {}, 0, AF_IPV4), -1);
    for (uint32_t af : {0u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ipPrefixListCreate(A, 0, &status, af), nullptr);
        for (uint32_t refused :
             {ipAddPrefixEntry(A, any.record(), af), ipDelPrefixEntry(A, any.record(), 1, af),
              ipPrefixListDelete(A, af), ipReseqPrefixList(A, 5, 5, af)})
            EXPECT_EQ(refused, ACL_E_SYSTEM);
        EXPECT_EQ(prefixAddTaskClient(80, 0, A, {}, 0, af), -1);
        EXPECT_EQ(ipPrefixListFindFirst(af), nullptr);
    }
}

TEST_F(PrefixTest, WritesEveryFormInBothMaskModes) {
    struct {
        prefixGiven entry;
        const char *plain, *masked;  // masked null: the same
    } table[] = {
        {{1, PERMIT, "10.0.0.0", 8}, "permit 10.0.0.0/8", "permit 10.0.0.0 255.0.0.0"},
        {{4, DENY, "10.0.0.0", 8, 16, 24},
         "deny 10.0.0.0/8 ge 16 le 24",
         "deny 10.0.0.0 255.0.0.0 ge 16 le 24"},
        {{6, DENY, "0.0.0.0", 0, -1, 32}, "deny any", nullptr},
        {{7, PERMIT, "0.0.0.0", 0, 1, 32},
         "permit 0.0.0.0/0 ge 1 le 32",
         "permit 0.0.0.0 0.0.0.0 ge 1 le 32"},
        {{8, 7, "0.0.0.0", 0}, "permit 0.0.0.0/0", "permit 0.0.0.0 0.0.0.0"},
        {{9, DENY, "10.0.0.1", 255, 0, 0, "255.0.0.255"},
         "deny 10.0.0.1 bitmask 255.0.0.255",
         nullptr},
        {{1, PERMIT, "2001:db8::", 32, 48, 64}, "permit 2001:db8::/32 ge 48 le 64", nullptr},
        {{2, DENY, "::", 0, 0, 128}, "deny any", nullptr},
        {{3, DENY, "::", 0, 0, 32}, "deny ::/0 le 32", nullptr},
        {{4, PERMIT, "fe80::1", 255, 0, 0, "ffff::1"}, "permit fe80::1 bitmask ffff::1", nullptr},
    };
    for (uint32_t af : {AF_IPV4, AF_IPV6}) create("A", af);
    for (const auto& r : table) {
        for (uint32_t inverse : {0u, 1u}) {
            SCOPED_TRACE(r.plain);
            const bool v6 = r.entry.af == AF_IPV6;
            const uint32_t number = r.entry.record().seq;
            const std::string front = " seq " + std::to_string(number) + " ";
            const std::string text = inverse != 0 && r.masked != nullptr ? r.masked : r.plain;
            const std::string place =
                (v6 ? "83v6/148 A 1/" : "83/148 A 1/") + std::to_string(number + 2) + "/ff";
            const std::string sync = v6 ? "sync 80 A " : "sync 15 A ";
            std::string inserted = "cfg insert " + place + " \"" + front + r.plain + "\"";
            if (r.masked != nullptr) inserted += " / \"" + front + r.masked + "\"";
            aclNode->config.inverseMask = inverse;
            ASSERT_EQ(add("A", r.entry), 0u);
            EXPECT_EQ(testTake(), (rows{inserted, sync + "\"" + front + text + "\""}));
            uint32_t resume = 0;
            std::string line = "  " + front + text + " (hit count: 0)\r\n";
            if (size_t at = line.find("any"); at != line.npos)  // a show has no "any": meant
                line.replace(at, 3,
                             v6        ? "::/0 le 128"
                             : inverse ? "0.0.0.0 0.0.0.0 le 32"
                                       : "0.0.0.0/0 le 32");
            EXPECT_TRUE(page("A", &resume, r.entry.af).ends_with("\r\n" + line)) << line;
            // Removals are told first and then made.
            EXPECT_EQ(del("A", r.entry), 0u);
            EXPECT_EQ(testTake(),
                      (rows{sync + "\"no " + front + text + "\"", "cfg exact " + place}));
        }
    }
    aclNode->config.inverseMask = 0;
    EXPECT_EQ(ipPrefixListDelete(A, AF_IPV6), 0u);
    EXPECT_EQ(testTake(), (rows{"cfg remove 83v6/144 A", "sync 3 A \"no ipv6 prefix-list A\""}));
    ipPrefixListCreate(A, 0, &status, AF_IPV6);
    EXPECT_EQ(testTake(),
              (rows{"cfg insert 83v6/144 A 0/0/0 \"!\"", "sync 3 A \"ipv6 prefix-list A\"",
                    "cfg insert 83v6/148 A 0/0/0 \"ipv6 prefix-list A\""}));
}

TEST_F(PrefixTest, ShowsPagesOfFiftyAndKeepsALowestNumberThatHasGone) {
    prefixList* list = create("A");
    const std::string front = "ip prefix-list A:\r\ncount: ";
    struct {
        uint32_t gone, added;
        const char* header;
    } table[] = {{0, 10, "1, range entries: 0, sequences: 10 - 10"},
                 {0, 20, "2, range entries: 0, sequences: 10 - 20"},
                 {0, 30, "3, range entries: 0, sequences: 10 - 30"},
                 {10, 0, "2, range entries: 0, sequences: 10 - 30"},
                 {0, 5, "3, range entries: 0, sequences: 5 - 30"},
                 {30, 0, "2, range entries: 0, sequences: 5 - 20"},
                 {5, 0, "1, range entries: 0, sequences: 5 - 20"},
                 {20, 40, "1, range entries: 0, sequences: 40 - 40"},
                 {40, 0, "0, range entries: 0, sequences: 40 - 40"}};
    for (const auto& r : table) {
        const auto len = static_cast<uint8_t>(r.added % 32);
        EXPECT_TRUE(r.gone == 0 || del("A", {r.gone, PERMIT, "10.0.0.0", 8}) == 0);
        EXPECT_TRUE(r.added == 0 || add("A", {r.added, PERMIT, "10.0.0.0", len}) == 0);
        uint32_t resume = 0;
        EXPECT_TRUE(page("A", &resume).starts_with(front + r.header)) << r.header;
    }
    std::string expected = "Ip Prefix-list with the last deletion/insertion: A\r\n" + front +
                           "120, range entries: 0, sequences: 5 - 600\r\n";
    for (uint32_t i = 0; i < 120; i++) {
        const std::string address = "10.0." + std::to_string(i) + ".0";
        ASSERT_EQ(add("A", {0, PERMIT, address.c_str(), 24}), 0u);
        expected += "   seq " + std::to_string(5 * i + 5) + " permit " + address +
                    "/24 (hit count: " + (i == 0 ? "3" : "0") + ")\r\n";
    }
    list->head->hits = 3;
    uint32_t resume = 0;
    std::string all;
    for (uint32_t next : {50u, 100u, 0u}) {
        all += page("A", &resume, AF_IPV4, 1);
        EXPECT_EQ(resume, next);
    }
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
    EXPECT_EQ(prefixClearIpListAll(AF_IPV4), 0u);
    EXPECT_EQ(list->head->hits, 0u);
}

// As many entries as a list may have, in every order that somebody who knows the code would try:
// numbers that follow the scattered identifiers once made a chain of the order tree.
TEST_F(PrefixTest, LongListsStayShallowInWhateverOrderTheirNumbersCome) {
    std::vector<std::pair<uint32_t, uint32_t>> ids(PREFIX_SEQ_MAX);  // priority, place
    for (uint32_t i = 0; i < PREFIX_SEQ_MAX; i++) {
        const uint32_t p = (i + 1) * 0x9E3779B9u;
        ids[i] = {p ^ (p >> 15), i};
    }
    std::ranges::sort(ids, std::greater{});
    std::vector<uint32_t> order(PREFIX_SEQ_MAX);
    for (uint32_t rank = 0; rank < PREFIX_SEQ_MAX; rank++) order[ids[rank].second] = rank + 1;
    prefixGiven entry(0, PERMIT, "10.0.0.0", 32);
    for (int reversed : {0, 1, 2}) {
        if (reversed == 1) std::ranges::reverse(order);
        if (reversed == 2) std::ranges::sort(order);
        prefixList* list = create("A");
        for (uint32_t i = 0; i < PREFIX_SEQ_MAX; i++) {
            entry.record().seq = order[i];
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
    const std::pair<uint32_t, uint32_t> refused[] = {
        {65530, 5}, {0, 5}, {5, 0}, {65535, 1}, {1, 0x80000000}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (auto [start, step] : refused)
        EXPECT_EQ(ipReseqPrefixList(A, start, step, AF_IPV4), ACL_E_SEQ_RANGE) << start;
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{5, 10, 15}));
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, AF_IPV4), 0);

    EXPECT_EQ(ipReseqPrefixList(A, 65524, 5, AF_IPV4), 0u);
    EXPECT_EQ(testHost.restedUs, 3000u);
    rows told = testTake();
    ASSERT_EQ(told.size(), 12u);  // block out and in (2 + 3), three lines (2 each), one trigger
    EXPECT_EQ(told[0], "cfg remove 83/144 A");
    EXPECT_EQ(told[5],
              "cfg insert 83/148 A 1/65526/ff \" seq 65524 permit 10.0.0.0/8\" / "
              "\" seq 65524 permit 10.0.0.0 255.0.0.0\"");
    EXPECT_EQ(told[11], "swp 1 14468 length 292");
    EXPECT_EQ(list->lowestSeq, 5u) << "left as it was";
    EXPECT_EQ(list->highestSeq, 65534u);
    // The searches by number go by the new numbers.
    EXPECT_EQ(add("A", {65530, PERMIT, "10.0.0.0", 20}), 0u);
    EXPECT_EQ(add("A", {65529, PERMIT, "10.0.0.0", 21}), ACL_E_PREFIX_SEQ_USED);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{65524, 65529, 65530, 65534}));
}

// The requests and messages of a family.
struct PrefixFamily : PrefixTest, testing::WithParamInterface<bool> {
    const bool v6 = GetParam();
    const uint32_t af = v6 ? AF_IPV6 : AF_IPV4;
    const uint32_t base = v6 ? 1147 : 1042;

    std::vector<uint8_t> entry(uint32_t code) {
        auto bytes = cli(code, "A", v6 ? sizeof(cliPrefix6Req) : sizeof(cliPrefix4Req));
        const prefixGiven given(0, PERMIT, v6 ? "2001:db8::" : "10.0.0.0", 8);
        std::memcpy(bytes.data() + sizeof(cliHdr), given.bytes, bytes.size() - sizeof(cliHdr));
        return bytes;
    }
    uint32_t list(uint32_t code) { return ask(cli(code, "A", sizeof(cliHdr))); }
    uint32_t count() { return static_cast<uint32_t>(ipPrefixListFind(A, af)->count); }
};
INSTANTIATE_TEST_SUITE_P(Families, PrefixFamily, testing::Bool());

TEST_P(PrefixFamily, RequestsReachItsStore) {
    EXPECT_EQ(list(base), ACL_OK);
    EXPECT_EQ(ask(entry(base + 2)), ACL_OK);
    EXPECT_EQ(ask(entry(base + 2)), ACL_E_PREFIX_EXISTS);
    EXPECT_EQ(list(base + 2), ACL_E_SYSTEM) << "without its entry";
    debug("aclPopulatePrefixList", v6 ? "A 2 60" : "A 1 60");
    EXPECT_EQ(count(), 61u);

    // Shows, asked for by the shell and by a task: all (in detail, and not) and one.
    const uint32_t codes[] = {v6 ? 1154u : 1083u, v6 ? 1155u : 1084u, v6 ? 1157u : 1086u};
    const uint32_t types[] = {v6 ? 14482u : 14471u, v6 ? 14483u : 14472u, v6 ? 14481u : 14470u};
    enum what { DETAIL, ALL, ONE };
    const std::string title = v6 ? "Ipv6 Prefix-list with" : "Ip Prefix-list with";
    const std::string head = v6 ? "ipv6 prefix-list A:" : "ip prefix-list A:";
    struct {
        what of;
        const char* name;
        uint32_t resume, next;
        std::string front;
    } shows[] = {{DETAIL, "", 0, 50, title},
                 {DETAIL, "A", 50, 0, "   seq "},
                 {ALL, "", 0, 50, head},
                 {ONE, "A", 0, 50, head}};
    for (bool byTask : {false, true}) {
        auto show = [&](what of, const char* name, uint32_t resume) {
            auto bytes = byTask ? message(types[of], 208) : cli(codes[of], "", sizeof(cliShowReq));
            if (byTask) {
                reinterpret_cast<showReplyHdr*>(bytes.data())->name = listNameMake(name);
                reinterpret_cast<be32&>(bytes[204]) = resume;
            } else {
                reinterpret_cast<cliShowReq*>(bytes.data())->name = listNameMake(name);
                reinterpret_cast<cliShowReq*>(bytes.data())->resume = resume;
            }
            return deliver(bytes).at(0);
        };
        for (const auto& s : shows) {
            SCOPED_TRACE(s.front);
            auto answer = show(s.of, s.name, s.resume);
            const auto* front = reinterpret_cast<showReplyHdr*>(answer.data());
            const char* text = reinterpret_cast<const char*>(answer.data()) + SHOW_TEXT_OFFSET;
            EXPECT_EQ(answer.size(), 16000u);
            EXPECT_EQ(front->marker, s.next);
            EXPECT_EQ(front->name, A);
            EXPECT_TRUE(std::string(text).starts_with(s.front)) << text;
        }
        auto end = show(ALL, "A", 0);
        EXPECT_EQ(byTask ? reinterpret_cast<showReplyHdr*>(end.data())->ipc.status
                         : reinterpret_cast<cliHdr*>(end.data())->result,
                  ACL_E_PREFIX_NOLIST);
    }
    auto reseq = cli(1185, "A", sizeof(cliPrefixReseqReq));
    auto* req = reinterpret_cast<cliPrefixReseqReq*>(reseq.data());
    req->start = 100, req->step = 1, req->family = af;
    EXPECT_EQ(ask(reseq), ACL_OK);
    EXPECT_EQ(ipPrefixListFind(A, af)->head->record->seq, 100u);
    for (uint32_t code : {base + 4, base + 5}) {
        ipPrefixListFind(A, af)->head->hits = 1;
        EXPECT_EQ(list(code), ACL_OK);
        EXPECT_EQ(ipPrefixListFind(A, af)->head->hits, 0u);
    }
    EXPECT_EQ(ask(entry(base + 3)), ACL_OK);
    EXPECT_EQ(count(), 60u);
    auto registration = message(v6 ? 14448 : 14446, sizeof(clientRegReq));
    reinterpret_cast<clientRegReq*>(registration.data())->application = APP_RTM;
    reinterpret_cast<clientRegReq*>(registration.data())->name = A;
    deliver(registration);
    EXPECT_NE(clientFindTask(ipPrefixListFind(A, af), APP_RTM, 0), nullptr);
    EXPECT_EQ(list(base + 1), ACL_OK);
    EXPECT_EQ(ipPrefixListFind(A, af)->placeholder, 1u) << "it has a client";
}

// A second agent that comes later hears the requests that make what there is; one that is there
// hears each request with its result.
TEST_P(PrefixFamily, TheSecondAgentHearsWhatThereIs) {
    list(base);
    debug("aclPopulatePrefixList", v6 ? "A 2 60" : "A 1 60");
    aclNode->queues.acl2qHandle = aclNode->queues.qHandle;
    testHost.addresses[{APP_ACL2, 0}] = 0x7F010055;
    testTake();
    prefixDownloadIpListAlltoACL2(af);
    const auto sent = testTakeRows();
    ASSERT_EQ(sent.size(), 61u);
    for (const testRow& row : sent) {
        const auto* hdr = reinterpret_cast<const cliHdr*>(row.bytes.data());
        EXPECT_EQ(uint32_t{hdr->ipc.source.card}, 0x7F010055u);
        EXPECT_EQ(uint32_t{hdr->ipc.source.svce}, 21249u);
        EXPECT_EQ(uint32_t{hdr->ipc.target.svce}, 7810u);
    }
    int heard = 0;
    for (const char* name : {"A", "no such list"}) {
        const auto request = cli(base + 1, name, sizeof(cliHdr));
        std::memcpy(received, request.data(), request.size());
        aclTakeMessage(aclNode, received, request.size());
        for (const testRow& row : testTakeRows()) {
            if (!row.text.starts_with("swp ")) continue;
            const auto* hdr = reinterpret_cast<const cliHdr*>(row.bytes.data());
            EXPECT_EQ(uint32_t{hdr->ipc.source.svce}, 21249u);
            EXPECT_EQ(hdr->result == ACL_OK, name[1] == 0) << name;
            heard++;
        }
    }
    EXPECT_EQ(heard, 2);
    aclNode->queues.acl2qHandle = ZEK_SWP_NONE;
    for (const testRow& row : sent) ask(row.bytes);
    EXPECT_EQ(count(), 60u);
}

TEST_F(PrefixTest, DebugFunctionsTellVerdicts) {
    struct {
        const char *name, *args, *text;
    } table[] = {
        {"aclPopulatePrefixList", "A 1 3", "added 3\n"},
        {"aclPopulatePrefixList", "A 2 2", "added 2\n"},
        {"testPrefixList", "A 10.0.1.0/24",
         R"({"verdict":"permit","entry":" seq 10 permit 10.0.1.0/24"})"},
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
        {"ipAclCheck", "10.0.0.1 10.0.0.2 10", ""},
        {"aclDumpAllAFPrefixList", "1",
         "ip prefix-list A, entries 3, with ranges 0, numbers 5 to 15, last id 3\n"},
        {"aclDumpPrefixInfo", "", "prefix lists: ip 1, ipv6 1\nlast changed: ip A, ipv6 A\n"},
    };
    for (const auto& r : table) EXPECT_EQ(debug(r.name, r.args), r.text) << r.name << " " << r.args;
}

}  // namespace
