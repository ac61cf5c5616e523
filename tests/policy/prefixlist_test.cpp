// Prefix lists from the operator's side: statuses, lines, shows, requests.
#include <regex>

#include "tests/policy/policyTest.h"

namespace {

struct PrefixTest : PolicyTest {
    static prefixList* list() { return ipPrefixListFind(A, AF_IPV4); }
    // An entry as no line can say it.
    static uint32_t add(uint32_t seq, uint32_t action, uint32_t address, uint8_t len) {
        prefix4EntryBlock e{};
        e.seq = seq, e.action = action, e.len = len;
        std::memcpy(&e.address, &static_cast<const be32&>(be32{} = address), 4);
        return ipAddPrefixEntry(A, reinterpret_cast<const prefixRecord&>(e), AF_IPV4);
    }
    static std::string page(const listName& name, uint32_t* resume) {
        return shown([&](void** buffer, uint32_t* size) {
            return prefixShowIpList(name, buffer, size, 0, resume, AF_IPV4);
        });
    }
};

// What a random list does not come to: the end of the numbers, names and families that are none.
TEST_F(PrefixTest, OperationsAnswerTheirStatus) {
    configure(
        "ip prefix-list A\n permit 10.0.0.0/8\n seq 65529 permit 12.0.0.0/8\n"
        " permit 13.0.0.0/8\n");
    EXPECT_EQ(type(" permit 14.0.0.0/8"), ACL_E_SEQ_RANGE);
    for (uint32_t seq : {65535u, 0xFFFFFFFFu})
        EXPECT_EQ(add(seq, PERMIT, 0x0F000000, 8), ACL_E_SEQ_RANGE);
    configure("no seq 5 deny 1.2.3.4/32\n");  // the number decides
    EXPECT_EQ(lines(), (rows{"ip prefix-list A", " seq 65529 permit 12.0.0.0/8",
                             " seq 65534 permit 13.0.0.0/8"}));
    EXPECT_EQ(ipPrefixListCreate(listName{}, 0, &status, AF_IPV4), nullptr);
    for (uint32_t refused : {status, prefixClearIpList(B, AF_IPV4),
                             ipReseqPrefixList(B, 5, 5, AF_IPV4), ipPrefixListDelete(A, AF_IPV6)})
        EXPECT_EQ(refused, ACL_E_PREFIX_NOLIST);
    EXPECT_EQ(prefixAddTaskClient(80, 0, listName{}, {}, 0, AF_IPV4), -1);
    const prefixRecord& any = *list()->head->record;
    for (uint32_t af : {0u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ipPrefixListCreate(A, 0, &status, af), nullptr);
        for (uint32_t refused :
             {status, ipAddPrefixEntry(A, any, af), ipDelPrefixEntry(A, any, 1, af),
              ipPrefixListDelete(A, af), ipReseqPrefixList(A, 5, 5, af), prefixClearIpListAll(af)})
            EXPECT_EQ(refused, ACL_E_SYSTEM);
        EXPECT_EQ(prefixAddTaskClient(80, 0, A, {}, 0, af), -1);
        EXPECT_EQ(ipPrefixListFindFirst(af), nullptr);
    }
}

TEST_F(PrefixTest, WritesEveryFormInBothMaskModes) {
    const std::string text =
        "ip prefix-list A\n seq 1 permit 10.0.0.0/8\n"
        " seq 4 deny 10.0.0.0/8 ge 16 le 24\n seq 6 deny any\n"
        " seq 7 permit 0.0.0.0/0 ge 1 le 32\n"
        " seq 9 deny 10.0.0.1 bitmask 255.0.0.255\n"
        "ipv6 prefix-list A\n seq 1 permit 2001:db8::/32 ge 48 le 64\n"
        " seq 2 deny any\n seq 3 deny ::/0 le 32\n"
        " seq 4 permit fe80::1 bitmask ffff::1\n";
    configure(text);
    EXPECT_EQ(lines(), linesOf(text));
    auto shown = [&](const char* list) {
        const std::string all = say(std::string("do show ") + list + " prefix-lists");
        return std::regex_replace(all.substr(all.find("   seq")),
                                  std::regex("   seq (\\d) (.*) \\(hit count: 0\\)"), "$1 $2");
    };
    // A show has no "any": meant.
    auto expected = [&](const char* from, const char* to, const char* any) {
        std::string lines = text.substr(0, text.find(to)).substr(text.find(from));
        lines = std::regex_replace(lines.substr(lines.find('\n') + 1), std::regex(" seq "), "");
        return lines.replace(lines.find("any"), 3, any);
    };
    EXPECT_EQ(shown("ip"), expected("ip prefix", "ipv6", "0.0.0.0/0 le 32"));
    const std::string six = shown("ipv6");
    EXPECT_EQ(six, expected("ipv6", "end", "::/0 le 128"));
    aclNode->config.inverseMask = 1;
    shell.inverseMask = true;
    EXPECT_EQ(shown("ip"),
              "1 permit 10.0.0.0 255.0.0.0\n"
              "4 deny 10.0.0.0 255.0.0.0 ge 16 le 24\n"
              "6 deny 0.0.0.0 0.0.0.0 le 32\n7 permit 0.0.0.0 0.0.0.0 ge 1 le 32\n"
              "9 deny 10.0.0.1 bitmask 255.0.0.255\n");
    EXPECT_EQ(shown("ipv6"), six);
    // A removal is told in the mode that is set, and first.
    enter("ip prefix-list A");
    EXPECT_EQ(type("no seq 4 deny 10.0.0.0 255.0.0.0 ge 16 le 24"), 0u);
    EXPECT_EQ(told(), (rows{"sync 15 A \"no  seq 4 deny 10.0.0.0 255.0.0.0 ge 16 le 24\"",
                            "cfg exact 83/148 A 1/6/ff"}));
    aclNode->config.inverseMask = 0;
    EXPECT_EQ(add(8, 7, 0, 0), 0u);
    EXPECT_EQ(lines()[4], " seq 8 permit 0.0.0.0/0") << "whatever is not deny permits";
}

TEST_F(PrefixTest, ShowsPagesOfFiftyAndKeepsALowestNumberThatHasGone) {
    configure("ip prefix-list A\n");
    const std::string front = "ip prefix-list A:\ncount: ";
    const struct {
        const char *line, *header;
    } table[] = {{" seq 10 permit 10.0.0.0/8", "1, range entries: 0, sequences: 10 - 10\n"},
                 {" seq 20 permit 10.0.0.0/9", "2, range entries: 0, sequences: 10 - 20\n"},
                 {" seq 30 permit 10.0.0.0/10", "3, range entries: 0, sequences: 10 - 30\n"},
                 {"no seq 10 permit 10.0.0.0/8", "2, range entries: 0, sequences: 10 - 30\n"},
                 {" seq 5 permit 10.0.0.0/8", "3, range entries: 0, sequences: 5 - 30\n"},
                 {"no seq 30 permit 10.0.0.0/8", "2, range entries: 0, sequences: 5 - 20\n"},
                 {"no seq 5 permit 10.0.0.0/8", "1, range entries: 0, sequences: 5 - 20\n"},
                 {"no seq 20 permit 10.0.0.0/8", "0, range entries: 0, sequences: 5 - 20\n"},
                 {" seq 40 permit 10.0.0.0/8 le 9", "1, range entries: 1, sequences: 40 - 40\n"},
                 {"no seq 40 permit 10.0.0.0/8", "0, range entries: 0, sequences: 40 - 40\n"}};
    for (const auto& r : table) {
        EXPECT_EQ(type(r.line), 0u);
        EXPECT_EQ(say("do show ip prefix-lists summary"), front + r.header) << r.line;
    }
    std::string expected = "Ip Prefix-list with the last deletion/insertion: A\n" + front +
                           "120, range entries: 0, sequences: 5 - 600\n";
    for (uint32_t i = 0; i < 120; i++) {
        const std::string entry = "permit 10.0." + std::to_string(i) + ".0/24";
        configure(" " + entry + "\n");
        expected += "   seq " + std::to_string(5 * i + 5) + " " + entry +
                    " (hit count: " + (i == 0 ? "3" : "0") + ")\n";
    }
    list()->head->hits = 3;
    EXPECT_EQ(say("do show ip prefix-lists detail"), expected);
    for (uint32_t beyond : {120u, 121u, 0xFFFFFFFFu}) {
        uint32_t resume = beyond;
        EXPECT_EQ(page(A, &resume), "");
        EXPECT_EQ(resume, 0u);
    }
    uint32_t resume = 0;
    EXPECT_EQ(page(B, &resume), "status 32");
    EXPECT_EQ(page(A, nullptr), "status 5");
    testFail(TEST_BUFFER);
    EXPECT_EQ(page(A, &resume), "status 28");
    testFailNothing();
    // Only what changes a list makes it the last one: a placeholder of its name does not.
    ipPrefixListCreate(B, 0, &status, AF_IPV4);
    EXPECT_STREQ(aclNode->prefix.lastPrefixList, "B");
    EXPECT_TRUE(say("do show ip prefix-lists detail")
                    .ends_with(")\nip prefix-list B:\ncount: 0, range entries: 0, "
                               "sequences: 0 - 0\n"))
        << "the title stands once";
    ASSERT_EQ(prefixAddTaskClient(APP_RTM, 0, M, {}, 0, AF_IPV4), 0);
    EXPECT_EQ(page(M, &(resume = 0)), "status 52");
    std::strcpy(aclNode->prefix.lastPrefixList, "untouched");
    ipPrefixListCreate(M, 0, &status, AF_IPV4);
    EXPECT_STREQ(aclNode->prefix.lastPrefixList, "untouched");
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
    for (bool ascending : {false, true}) {
        if (ascending) std::ranges::sort(order);
        ASSERT_NE(ipPrefixListCreate(A, 0, &status, AF_IPV4), nullptr);
        for (uint32_t i = 0; i < PREFIX_SEQ_MAX; i++)
            ASSERT_EQ(add(order[i], PERMIT, 0x0A000000 + i, 32), 0u);
        uint32_t depth = 0;
        for (uint32_t seq = 1; seq <= PREFIX_SEQ_MAX; seq += 97) {
            uint32_t steps = 0;
            for (const prefixEntry* at = list()->order; at->record->seq != seq; steps++)
                at = at->child[at->record->seq < seq];
            depth = std::max(depth, steps);
        }
        EXPECT_LT(depth, 100u);
        ASSERT_EQ(ipPrefixListDelete(A, AF_IPV4), 0u);
        testTake();
    }
}

TEST_F(PrefixTest, ResequencesWholeOrNotAtAll) {
    configure("ip prefix-list A\n permit 10.0.0.0/8\n permit 10.0.0.0/9\n permit 10.0.0.0/10\n");
    EXPECT_EQ(prefixAddTaskClient(APP_RTM, 0, A, {}, 0, AF_IPV4), 0);
    testTake();
    const std::pair<uint32_t, uint32_t> refused[] = {
        {65530, 5}, {0, 5}, {5, 0}, {65535, 1}, {1, 0x80000000}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (auto [start, step] : refused)
        EXPECT_EQ(ipReseqPrefixList(A, start, step, AF_IPV4), ACL_E_SEQ_RANGE) << start;
    EXPECT_EQ(testTake(), rows{});
    configure("resequence ip prefix-list A 65524 5\n");
    EXPECT_EQ(testHost.restedUs, 3000u);
    ASSERT_EQ(told().size(), 12u);  // block out and in (2 + 3), three lines (2 each), one trigger
    EXPECT_EQ(told()[0], "cfg remove 83/144 A");
    EXPECT_EQ(told()[5],
              "cfg insert 83/148 A 1/65526/ff \" seq 65524 permit 10.0.0.0/8\" / "
              "\" seq 65524 permit 10.0.0.0 255.0.0.0\"");
    EXPECT_EQ(told()[11], "swp 1 14468 length 292");
    EXPECT_EQ(list()->lowestSeq, 5u) << "left as it was";
    EXPECT_EQ(list()->highestSeq, 65534u);
}

// The requests and messages of a family.
struct PrefixFamily : PrefixTest, testing::WithParamInterface<bool> {
    const bool v6 = GetParam();
    const uint32_t af = v6 ? AF_IPV6 : AF_IPV4;
    const std::string ip = v6 ? "ipv6" : "ip", header = ip + " prefix-list A";

    void populate() {
        configure(header + "\n");
        debug("aclPopulatePrefixList", v6 ? "A 2 60" : "A 1 60");
    }
};
INSTANTIATE_TEST_SUITE_P(Families, PrefixFamily, testing::Bool());

TEST_P(PrefixFamily, TasksAskForPages) {
    populate();
    // All of them in detail, from the number of an entry on.
    const struct {
        const char* name;
        uint32_t resume, next;
        std::string front;
    } shows[] = {{"", 0, 50, v6 ? "Ipv6 Prefix-list with" : "Ip Prefix-list with"},
                 {"A", 50, 0, "   seq "}};
    for (const auto& s : shows) {
        auto bytes = message(v6 ? 14482 : 14471, 208);
        reinterpret_cast<showReplyHdr*>(bytes.data())->name = listNameMake(s.name);
        reinterpret_cast<be32&>(bytes[204]) = s.resume;
        auto answer = deliver(bytes).at(0);
        const auto* front = reinterpret_cast<showReplyHdr*>(answer.data());
        EXPECT_EQ(answer.size(), 16000u);
        EXPECT_EQ(front->marker, s.next);
        EXPECT_EQ(front->name, A);
        const std::string text(answer.begin() + SHOW_TEXT_OFFSET, answer.end());
        EXPECT_TRUE(text.starts_with(s.front)) << text;
    }
    for (const std::string name : {"", " A"}) {
        uint32_t& hits = ipPrefixListFind(A, af)->head->hits;
        hits = 1;
        (void)say("do clear " + ip + " prefix-list" + name);
        EXPECT_EQ(hits, 0u);
    }
}

// A second agent that comes later hears the requests that make what there is; one that is there
// hears each request with its result.
TEST_P(PrefixFamily, TheSecondAgentHearsWhatThereIs) {
    populate();
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
    const rows before = lines();
    for (const char* name : {"A", "no such list"}) {
        const auto request = cli(v6 ? 1148 : 1043, name, sizeof(cliHdr));
        std::memcpy(received, request.data(), request.size());
        aclTakeMessage(aclNode, received, request.size());
        auto heard = testTakeRows();
        std::erase_if(heard, [](const testRow& row) { return !row.text.starts_with("swp "); });
        ASSERT_EQ(heard.size(), 1u);
        const auto* hdr = reinterpret_cast<const cliHdr*>(heard[0].bytes.data());
        EXPECT_EQ(uint32_t{hdr->ipc.source.svce}, 21249u);
        EXPECT_EQ(hdr->result == ACL_OK, name[1] == 0) << name;
    }
    aclNode->queues.acl2qHandle = ZEK_SWP_NONE;
    EXPECT_EQ(lines(), rows{});
    for (const testRow& row : sent) ask(row.bytes);
    EXPECT_EQ(lines(), before);
}

TEST_F(PrefixTest, DebugFunctionsTellVerdicts) {
    EXPECT_EQ(debug("aclPopulatePrefixList", "A 1 3"), "added 3\n");
    EXPECT_EQ(debug("aclPopulatePrefixList", "A 2 2"), "added 2\n");
    const std::string permit = R"({"verdict":"permit","entry":" seq 10 permit )";
    const std::pair<const char*, std::string> tests[] = {
        {"A 10.0.1.0/24", permit + "10.0.1.0/24\"}"},
        {"A a00:100::/24", permit + "a00:100::/24\"}"},
        {"A 10.0.1.0/33", R"({"error":"not a prefix: 10.0.1.0/33"})"},
        {"B 10.0.1.0/24", R"({"error":"No such prefix list"})"},
    };
    for (const auto& [args, answer] : tests) EXPECT_EQ(debug("testPrefixList", args), answer);
    // As the operator asks: the verdict is the shell's success.
    EXPECT_EQ(say("do test ip prefix-list A 10.0.1.0/24"), "permit: seq 10 permit 10.0.1.0/24\n");
    EXPECT_TRUE(good);
    EXPECT_EQ(say("do test ip prefix-list A 11.0.0.0/8"),
              "deny: no entry matches (implicit deny)\n");
    EXPECT_FALSE(good);
    shell.options.json = true;
    EXPECT_EQ(say("do test ip prefix-list A 10.0.1.0/24"), permit + "10.0.1.0/24\"}\n");
    EXPECT_EQ(debug("aclTestIPPrefixList", "a00:: 25 A 2"),
              "Ipaddr = a00::, Ipmask = ffff:ff80::, Action = Deny\r\n");
    EXPECT_EQ(debug("ipPrefixCheck", "10.0.1.0 24 A 1"), "permit\n");
    EXPECT_EQ(debug("aclDumpAllAFPrefixList", "1"),
              "ip prefix-list A, entries 3, with ranges 0, numbers 5 to 15, last id 3\n");
    EXPECT_EQ(debug("aclDumpPrefixInfo", ""),
              "prefix lists: ip 1, ipv6 1\nlast changed: ip A, ipv6 A\n");
}

}  // namespace
