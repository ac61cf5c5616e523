// Lines about routing-policy lists and the bytes of their requests; paged shows.
#include <gtest/gtest.h>

#include "include/routeMapNames.h"
#include "tests/cli/fakeManager.h"

namespace {

struct field {
    size_t at;  // in the message
    uint32_t value;
    size_t size = 4;
};
struct row {
    const char* line;
    uint32_t code;
    size_t length;
    std::vector<field> fields;  // all that is not zero behind the front
    const char* text = "";      // at `textAt`
    size_t textAt = 0;
};
constexpr cliContext in(cliMode mode) {
    return {mode, false, false};
}
const cliScope scope{listNameMake("L"), 0x7000001, 20, 1};

void put(std::vector<uint8_t>& bytes, const field& f) {
    for (size_t i = 0; i < f.size; i++)
        bytes[f.at + i] = static_cast<uint8_t>(f.value >> 8 * (f.size - 1 - i));
}
// The bytes that are not zero, with their place in the message.
std::string said(const std::vector<uint8_t>& bytes) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); i++)
        if (bytes[i] != 0)
            text += std::to_string(sizeof(cliHdr) + i) + ":" + std::to_string(bytes[i]) + " ";
    return text;
}
std::string parse(const cliContext& context, std::string_view line, cliCommand* command) {
    cliParseError error;
    return cliParse(context, line, command, &error) == cliParsed::command ? "" : error.text;
}
void check(const cliContext& context, const std::vector<row>& rows) {
    for (const row& r : rows) {
        SCOPED_TRACE(r.line);
        cliCommand command;
        ASSERT_EQ(parse(context, r.line, &command), "");
        cliChannel channel;
        cliRequest request;
        size_t length;
        ASSERT_TRUE(requestBuild(&channel, command, scope, &request, &length));
        EXPECT_EQ(request.cli.code, r.code);
        ASSERT_EQ(length, r.length);
        std::vector<uint8_t> expected(length - sizeof(cliHdr));
        auto body = [](field f) { return field{f.at - sizeof(cliHdr), f.value, f.size}; };
        for (const field& f : r.fields) put(expected, body(f));
        if (r.textAt != 0)
            std::memcpy(expected.data() + r.textAt - sizeof(cliHdr), r.text, strlen(r.text));
        const auto* bytes = reinterpret_cast<const uint8_t*>(&request);
        EXPECT_EQ(said({bytes + sizeof(cliHdr), bytes + length}), said(expected));
    }
}
constexpr uint32_t DENY = 1, BITMASK = 255;

}  // namespace

TEST(Policy, PrefixEntriesBecomeTheirRequests) {
    constexpr uint32_t NET = 0x0A000000, MASK8 = 0xFF000000;
    std::vector<row> rows{
        {"permit any", 1044, 252, {{232, 32}}},
        {" seq 10 deny any", 1044, 252, {{220, 10}, {224, DENY}, {232, 32}}},
        {"permit 0.0.0.0/0 le 32", 1044, 252, {{232, 32}}},  // printed as "any"
        {" seq 65534 permit 10.0.0.0/8",
         1044,
         252,
         {{220, 65534}, {240, 8, 1}, {244, NET}, {248, MASK8}}},
        {" seq 5 permit 10.0.0.0 255.0.0.0",
         1044,
         252,
         {{220, 5}, {240, 8, 1}, {244, NET}, {248, MASK8}}},
        {"permit 10.0.0.0/8 ge 16 le 24",
         1044,
         252,
         {{228, 16}, {232, 24}, {240, 8, 1}, {244, NET}, {248, MASK8}}},
        {"deny 10.0.0.0 255.0.0.0 le 24",
         1044,
         252,
         {{224, DENY}, {232, 24}, {240, 8, 1}, {244, NET}, {248, MASK8}}},
        {"permit 10.0.0.1 bitmask 255.0.0.255",
         1044,
         252,
         {{240, BITMASK, 1}, {244, NET + 1}, {248, 0xFF0000FF}}},
        {"no seq 10", 1045, 252, {{220, 10}}},
        {"no seq 10 permit any", 1045, 252, {{220, 10}, {232, 32}}},
        {"no permit 10.0.0.0/8", 1045, 252, {{240, 8, 1}, {244, NET}, {248, MASK8}}}};
    check(in(cliMode::prefix4), rows);
    cliContext inverse = in(cliMode::prefix4);
    inverse.inverseMask = true;  // prefix lists show masks as they are in both modes
    check(inverse, rows);
    check(
        in(cliMode::prefix6),
        {{" seq 1 permit any", 1149, 276, {{220, 1}, {232, 128}}},
         {"deny 2001:db8::/32 ge 48",
          1149,
          276,
          {{224, DENY}, {228, 48}, {240, 32, 1}, {244, 0x20010DB8}, {260, 0xFFFFFFFF}}},
         {"permit ::1 bitmask ff::", 1149, 276, {{240, BITMASK, 1}, {259, 1, 1}, {260, 0xFF0000}}},
         {"no seq 1", 1150, 276, {{220, 1}}}});
    cliContext restored{cliMode::prefix4, false, true};
    check(restored, {{"permit 0.0.0.0/0 ge -5", 1044, 252, {{228, 0xFFFFFFFB}}}});
}

TEST(Policy, BgpEntriesBecomeTheirRequests) {
    check(in(cliMode::aspath), {{" permit ^65000_ (1|2) ", 1011, 460, {}, "^65000_ (1|2)", 224},
                                {"no deny _7_", 1009, 460, {{220, DENY}}, "_7_", 224}});
    check(in(cliMode::community),
          {{" permit 65000:1 2:65535 no-export no-advertise local-AS",
            1015,
            1020,
            {{224, 1},
             {236, 65000},
             {240, 2},
             {272, 1},
             {276, 65535},
             {308, 2},
             {312, 1},
             {316, 1},
             {320, 1}}},
           {" deny 2147483647 1:2",
            1015,
            1020,
            {{220, DENY}, {224, 1}, {232, 0x7FFFFFFF}, {236, 1}, {272, 2}, {308, 1}}},
           {" permit", 1015, 1020, {{224, 1}}},
           {" no permit regexp ^1:.* ", 1013, 1020, {{224, 2}}, "^1:.*", 324}});
    std::vector<field> values{
        {224, 1},         {232, 2},          {236, 4},    {240, 0x00020064, 4}, {244, 5},
        {248, 0x0102, 2}, {250, 0x01020304}, {254, 7, 2}, {256, 0x4202, 2},     {258, 70000},
        {262, 9, 2},      {264, 0x4002, 2},  {266, 1, 2}, {268, 4294967295}};
    check(in(cliMode::extCommunity),
          {{" permit rt 100:5 1.2.3.4:7 as4 70000:9 non-trans 1:4294967295 non-trans ", 1017, 1020,
            values},
           {" deny soo 1:2",
            1017,
            1020,
            {{220, DENY}, {224, 1}, {232, 3}, {236, 1}, {240, 0x00030001}, {244, 2}}},
           {" no permit regexp a b", 1018, 1020, {{224, 2}}, "a b", 240}});
}

// Every clause that has a line, with the class and kind of its row; the offsets are the request's.
TEST(Policy, ClausesBecomeTheirRequests) {
    constexpr size_t VALUE = 376, COMMUNITY = 380, DAMPENING = 672, PREPEND = 688, EXT = 724,
                     SUB = 1026;
    struct clauseRow {
        const char* line;
        uint32_t code;
        const char* list;
        std::vector<field> fields;
    } rows[] = {
        {"match as-path A", 1, "A", {}},
        {"match access list A", 2, "A", {}},
        {"match ip next-hop p", 3, "p", {}},  // no abbreviation of "prefix-list"
        {"match ip next-hop prefix-list", 3, "prefix-list", {}},
        {"match community A", 4, "A", {}},
        {"match ip address A", 5, "A", {}},
        {"match community A exact", 6, "A", {}},
        {"match ip route-source A", 7, "A", {}},
        {"match ip address prefix-list A", 8, "A", {}},
        {"match ip next-hop prefix-list prefix-list", 9, "prefix-list", {}},
        {"match ip route-source prefix-list A", 11, "A", {}},
        {"match origin egp ", 12, "", {{VALUE, 1}}},
        {"match ipv6 address prefix-list A", 13, "A", {}},
        {"match ipv6 next-hop prefix-list A", 14, "A", {}},
        {"match ipv6 route-source prefix-list A", 15, "A", {}},
        {"match ipv6 next-hop A", 16, "A", {}},
        {"match ipv6 route-source A", 17, "A", {}},
        {"match ipv6 address A", 18, "A", {}},
        {"match extcommunity A", 125, "A", {}},
        {"match route-type external ", 133, "", {{VALUE, 2}}},
        {"match route-type external type-2 ", 133, "", {{VALUE, 4}}},
        {"match route-type level-1 ", 133, "", {{VALUE, 5}}},
        {"match interface port-channel 1", 134, "", {{VALUE, scope.ifindex}}},
        {"match metric 4294967295", 136, "", {{VALUE, 0xFFFFFFFF}}},
        {"match tag 0", 137, "", {}},
        {"set local-preference 7", 100, "", {{VALUE, 7}}},
        {"set weight 7", 101, "", {{VALUE, 7}}},
        {"set next-hop 10.0.0.1", 102, "", {{VALUE, 0x0A000001}}},
        {"set metric 7", 103, "", {{VALUE, 7}}},
        {"set metric + 7", 103, "", {{VALUE, 7}, {SUB, 1, 2}}},
        {"set metric - 7", 103, "", {{VALUE, 7}, {SUB, 2, 2}}},
        {"set as-path 7", 104, "", {{VALUE, 7}}},
        {"set community 65000:1 2:3 local-AS no-advertise no-export additive none ",
         105,
         "",
         {{COMMUNITY + 4, 65000},
          {COMMUNITY + 8, 2},
          {COMMUNITY + 136, 1},
          {COMMUNITY + 140, 3},
          {COMMUNITY + 268, 1},
          {COMMUNITY + 272, 1},
          {COMMUNITY + 276, 1},
          {COMMUNITY + 280, 1},
          {COMMUNITY + 284, 1},
          {COMMUNITY + 288, 2}}},
        {"set community 4294967295 additive ",
         105,
         "",
         {{COMMUNITY, 0xFFFFFFFF}, {COMMUNITY + 280, 1}}},
        {"set automatic-tag ", 106, "", {}},
        {"set level stub-area ", 107, "", {{VALUE, 6}}},
        {"set metric-type type-1", 108, "", {{VALUE, 3}}},
        {"set as-path tag ", 109, "", {}},
        {"set origin incomplete ", 110, "", {{VALUE, 2}}},
        {"set as-path prepend 65000 1.2 ",
         111,
         "",
         {{PREPEND, 65000}, {PREPEND + 4, 65538}, {PREPEND + 32, 2}}},
        {"set comm-list A delete", 112, "A", {}},
        {"set dampening 1 2 3 4",
         113,
         "",
         {{DAMPENING, 1}, {DAMPENING + 4, 2}, {DAMPENING + 8, 3}, {DAMPENING + 12, 4}}},
        {"set tag 7", 120, "", {{VALUE, 7}}},
        {"set ipv6 next-hop 2001:db8::1", 121, "", {{1064, 0x20010DB8}, {1079, 1, 1}}},
        {"continue 30", 123, "", {{VALUE, 30}, {1056, 1}, {1060, 30}}},
        {"continue", 123, "", {}},
        {"set extcommunity soo 1:2 additive ",
         124,
         "",
         {{EXT, 0x00030001}, {EXT + 4, 2}, {EXT + 256, 1}, {EXT + 260, 1}}},
    };
    for (const rmapCodeRow& code : rmapCodeTable) {
        bool hasLine = std::ranges::find(rows, code.code, &clauseRow::code) != std::end(rows);
        EXPECT_EQ(hasLine, code.style != RMAP_STYLE_NONE) << code.code;
    }
    for (const clauseRow& r : rows) {
        const rmapCodeRow& code = *rmapCodeFind(r.code);
        bool v6 = code.cls == RTMAP_MS_V6_MATCH || code.cls == RTMAP_MS_V6_SET;
        std::vector<field> fields = r.fields;
        for (field f : std::initializer_list<field>{
                 {228, code.cls, 2}, {232, r.code}, {988, 20}, {992, 1}, {1000, code.kind}})
            fields.push_back(f);
        std::string line = r.line, no = "no " + line;
        check(in(cliMode::routeMap),
              {{r.line, v6 ? 1161u : 1025u, 1088, fields, r.list, *r.list != 0 ? 236u : 0u}});
        fields.push_back({1084, 1});
        check(in(cliMode::routeMap),
              {{no.c_str(), v6 ? 1160u : 1024u, 1088, fields, r.list, *r.list != 0 ? 236u : 0u}});
    }
    check(in(cliMode::configure),
          {{"route-map R", 1021, 228, {{224, 0xFFFFFFFF}}},
           {"route-map R deny 30", 1021, 228, {{220, DENY}, {224, 30}}},
           {"no route-map R permit 30", 1020, 228, {{220, 30}, {224, 1}}},
           {"no route-map R deny 30", 1020, 228, {{220, 30}, {224, 2}}},
           {"no route-map R 30", 1020, 228, {{220, 30}, {224, 0}}},
           {"no route-map R ", 1020, 228, {}},
           {"ip prefix-list P", 1042, 220, {}},
           {"no ipv6 prefix-list P", 1148, 220, {}},
           {"ip as-path access-list A", 1010, 220, {}},
           {"no ip community-list C", 1012, 220, {}},
           {"ip extcommunity-list E", 1016, 220, {}},
           {"resequence prefix-list ipv6 P 10 5", 1185, 232, {{220, 10}, {224, 5}, {228, 2}}},
           {"resequence prefix-list P 1 65534", 1185, 232, {{220, 1}, {224, 65534}, {228, 1}}}});
    check(in(cliMode::exec),
          {{"clear ip prefix-list", 1047, 220, {}}, {"clear ipv6 prefix-list P", 1151, 220, {}}});
}

TEST(Policy, WhatCannotBeMeantIsRefused) {
    const struct {
        cliMode mode;
        const char* line;
        const char* sentence;
    } rows[] = {
        {cliMode::prefix4, "seq 0 permit any", "Unexpected word \"0\""},
        {cliMode::prefix4, "seq 65535 permit any", "Unexpected word \"65535\""},
        {cliMode::prefix4, "permit 10.0.0.0 255.0.255.0",
         "The mask has gaps: write \"bitmask\" before it"},
        {cliMode::prefix4, "permit 10.0.0.0/8 ge 33", "Unexpected word \"33\""},
        {cliMode::prefix4, "permit 10.0.0.0/8 ge 9 ge 9", "Unexpected word \"ge\""},
        {cliMode::prefix4, "permit any le 8", "Unexpected word \"le\""},
        {cliMode::prefix4, "permit 2001:db8::/32", "Unexpected word \"2001:db8::/32\""},
        {cliMode::prefix6, "permit 2001:db8::/129", "Unexpected word \"2001:db8::/129\""},
        {cliMode::prefix6, "permit 10.0.0.0/8", "Unexpected word \"10.0.0.0/8\""},
        {cliMode::prefix4, "seq 5", "The line is incomplete"},
        {cliMode::aspath, "permit", "The line is incomplete"},
        {cliMode::community, "permit 65536:1", "Both parts of a community are at most 65535"},
        {cliMode::community, "permit 2147483648 1:1", "Unexpected word \"2147483648\""},
        {cliMode::community, "permit 1:-1", "Unexpected word \"1:-1\""},
        {cliMode::community, "permit 1:1 additive", "Unexpected word \"additive\""},
        {cliMode::community, "permit 1:1 1:1 1:1 1:1 1:1 1:1 1:1 1:1 1:1 1:1",
         "There are too many communities in one line"},
        {cliMode::extCommunity, "permit rt 70000:1",
         "The AS number is at most 65535: write \"as4\" before a larger one"},
        {cliMode::extCommunity, "permit rt as4 1:65536",
         "The number behind the colon is at most 65535"},
        {cliMode::extCommunity, "permit rt non-trans", "Unexpected word \"non-trans\""},
        {cliMode::routeMap, "set community 5 1:1", "The communities are one number, or AS:N"},
        {cliMode::routeMap, "set community 1:1 5", "The communities are one number, or AS:N"},
        {cliMode::routeMap, "set level", "The line is incomplete"},  // but "no set level" is whole
        {cliMode::routeMap, "set as-path prepend 1 2 3 4 5 6 7 8 9",
         "At most 8 AS numbers can be prepended"},
        {cliMode::routeMap, "match ip address prefix-lis X", "Unexpected word \"X\""},
        {cliMode::routeMap, "continue 0", "Unexpected word \"0\""},
        {cliMode::configure, "no route-map R deny", "The line is incomplete"},
        {cliMode::exec, "test route-map R 10.0.0.0/8 as-path \"1 2",
         "The quotation mark is not closed"},
    };
    for (const auto& r : rows) {
        cliCommand command;
        EXPECT_EQ(parse(in(r.mode), r.line, &command), r.sentence) << r.line;
    }
    for (const char* line : {"no set level", "no set metric", "no set as-path prepend",
                             "no set extcommunity", "no continue"}) {
        cliCommand command;
        EXPECT_EQ(parse(in(cliMode::routeMap), line, &command), "") << line;
    }
    // An expression as long as its field is refused, one shorter is not.
    std::string longest(ASPATH_TEXT_LEN - 1, 'x');
    cliCommand command;
    EXPECT_EQ(parse(in(cliMode::aspath), "permit " + longest, &command), "");
    EXPECT_EQ(parse(in(cliMode::aspath), "permit x" + longest, &command),
              "The expression is too long");
    ASSERT_EQ(
        parse(in(cliMode::exec), "test route-map R 10.0.0.0/8 as-path \"1 2\" metric 5", &command),
        "");
    EXPECT_EQ(command.text, "R 10.0.0.0/8 as-path \"1 2\" metric 5");
}

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
