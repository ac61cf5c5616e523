// Commands that print, the filters behind them, and the modes.
#include "tests/cli/fakeManager.h"

namespace {

std::string filtered(const std::string& line, const std::string& text) {
    testSession s("/nonexistent");
    cliPipe p;
    p.out = s.session.out;
    std::string_view command = line;
    size_t column = 0;
    std::string error;
    if (!pipeParse(&command, &p, &column, &error))
        return "column " + std::to_string(column) + ": " + error;
    // In pieces of every size, so that line ends fall anywhere.
    for (size_t at = 0, step = 1; at < text.size(); at += step++)
        pipeText(&p, std::string_view(text).substr(at, step));
    pipeFinish(&p);
    return s.printed();
}

// Three access lists of each family, and prefix lists of two pages; the walk over all shows the one
// behind its cursor, or the rest of the one that it is at.
void walk(fakeManager& m, std::vector<uint8_t>& message) {
    const auto& request = *reinterpret_cast<const cliShowReq*>(message.data());
    static const struct {
        uint32_t one, all;
        std::string head, text;
    } kinds[] = {
        {CLI_SHOW_PREFIX, CLI_SHOW_PREFIX_ALL, "ip prefix-list ",
         ":\r\ncount: 2, range entries: 1, sequences: 5 - 10\r\n"
         "   seq 5 permit 10.0.0.0/8 le 24 (hit count: 3)\r\n"},
        {CLI_SHOW_V6_ACL, CLI_SHOW_V6_ACL_ALL, "IPv6 access list ",
         "\r\n seq 5 deny host  00:00:00:00:00:01 any order 7monitor \r\n"},
        {CLI_SHOW_MAC, CLI_SHOW_MAC_ALL, "Extended mac access list ",
         "\r\n seq 5 deny host  00:00:00:00:00:01 any order 7monitor \r\n"},
        {CLI_SHOW_IP_ACL, CLI_SHOW_IP_ACL_ALL, "Extended IP access list ", "\r\n"},
    };
    const auto& kind = *std::ranges::find_if(kinds, [&](const auto& k) {
        return request.cli.code == k.one || request.cli.code == k.all;
    });
    const bool all = request.cli.code == kind.all, prefixes = &kind == kinds;
    const std::string cursor(listNameView(request.name));
    for (const std::string name : {"A", "B", "C"}) {
        if (all && request.resume == 0 ? cursor >= name : cursor != name) continue;
        std::string text = kind.head + name + kind.text;
        if (kind.one == CLI_SHOW_IP_ACL && name == "A")
            text =
                "Standard IP access list A\r\n seq 5 permit any log (7 matches) order 255\r\n"
                " seq 10 deny host 1.2.3.4 log (-2 matches) order 3\r\n";
        if (request.resume != 0) text = "   seq 10 deny 0.0.0.0/0 (hit count: 0)\r\n";
        return m.answerText(message, listNameMake(name), text,
                            prefixes ? uint32_t{request.resume == 0} : SHOW_MARKER);
    }
    m.answer(message, prefixes ? ACL_E_PREFIX_NOLIST : ACL_E_NOLIST);
}

}  // namespace

TEST(Pipe, FiltersWorkOnLines) {
    const std::string text = "one\r\ntwo\nthree two\n\nlast";
    struct {
        const char* line;
        const char* out;
    } rows[] = {
        {"show x", "one\ntwo\nthree two\n\nlast\n"},
        {"show x | include two", "two\nthree two\n"},
        {"show x | inc  three two ", "three two\n"},
        {"show x | exclude two", "one\n\nlast\n"},
        {"show x | begin three", "three two\n\nlast\n"},
        {"show x | count", "5\n"},
        {"show x | count t", "3\n"},
        {"show x | include t | exclude three | count", "2\n"},
        {"show x | count | include 5", "5\n"},
        {"show x|y", "one\ntwo\nthree two\n\nlast\n"},  // no word of its own: not a pipe
        {"show x | fold", "column 9: No such filter; there are include, exclude, begin and count"},
        {"show x |", "column 9: No such filter; there are include, exclude, begin and count"},
        {"show x | include | count", "column 17: The filter needs a text"},
    };
    for (const auto& row : rows) EXPECT_EQ(filtered(row.line, text), row.out) << row.line;
}

TEST(Session, ListsAreShownOneByOneUntilTheWalkEnds) {
    fakeManager manager;
    manager.run(walk);
    struct {
        const char* line;
        std::string out, err;
        bool json = false;  // shown without its blanks and line ends
    } rows[] = {
        {"show ip access-lists B", "Extended IP access list B\n", ""},
        {"show ip access-lists | include access",
         "Standard IP access list A\nExtended IP access list B\nExtended IP access list C\n", ""},
        {"show ipv6 access-lists | count access", "3\n", ""},
        {"show mac access-lists | count access", "3\n", ""},
        {"show ipv6 access-lists B",
         R"([{"name":"B","kind":"ipv6","entries":[{"seq":5,"action":"deny",)"
         R"("text":"seq5denyhost00:00:00:00:00:01anyorder7monitor"}]}])",
         "", true},
        {"show mac access-lists C",
         R"([{"name":"C","kind":"extended","entries":[{"seq":5,"action":"deny",)"
         R"("text":"seq5denyhost00:00:00:00:00:01anyorder7monitor"}]}])",
         "", true},
        {"show ip access-lists b", "", "T:1:1: No such access list\nshow ip access-lists b\n^\n"},
        {"show ip access-lists | nothing", "",
         "T:1:24: No such filter; there are include, exclude, begin and count\nshow ip "
         "access-lists | nothing\n"
         "                       ^\n"},
        {"show ip access-lists A",
         R"([{"name":"A","kind":"standard","entries":[{"seq":5,"action":"permit",)"
         R"("text":"seq5permitanylog(7matches)order255","matches":7},{"seq":10,"action":"deny",)"
         R"("text":"seq10denyhost1.2.3.4log(-2matches)order3","matches":4294967294}]}])",
         "", true},
        {"show ip prefix-list A",
         R"([{"name":"A","kind":"ipprefix-list","count":2,"rangeEntries":1,"lowest":5,)"
         R"("highest":10,"entries":[{"seq":5,"action":"permit","hits":3,)"
         R"("match":"10.0.0.0/8le24"},{"seq":10,"action":"deny","hits":0,"match":"0.0.0.0/0"}]}])",
         "", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        testSession s(manager.dir);
        s.session.options.json = row.json;
        EXPECT_EQ(s.run(row.line), row.err.empty());
        std::string out = s.printed();
        if (row.json) std::erase_if(out, isspace);
        EXPECT_EQ(out, row.out);
        EXPECT_EQ(s.reported(), row.err);
    }
}

TEST(Session, AWalkThatDoesNotMoveOnEnds) {
    fakeManager manager;
    manager.run([](fakeManager& m, std::vector<uint8_t>& message) {
        m.answerText(message, listNameMake("SAME"), "ip prefix-list SAME:\r\n");
    });
    for (const char* line : {"show ip access-lists", "show ip prefix-list"}) {
        testSession s(manager.dir);
        EXPECT_FALSE(s.run(line));
        EXPECT_EQ(count(s.reported(), "does not move on"), 1u) << s.reported();
    }
}

TEST(Session, ModesFollowTheCommands) {
    fakeManager manager;
    manager.serve();
    testSession s(manager.dir);
    const std::tuple<const char*, bool, cliMode> rows[] = {
        {"permit any", false, cliMode::exec},
        {"configure terminal", true, cliMode::configure},
        {"ip access-list standard A", true, cliMode::standard},
        {"permit any", true, cliMode::standard},
        {"do clear ip access-lists counters", true, cliMode::standard},
        {"ip access-list extended E", true, cliMode::extended},
        {"ip trace-group T", true, cliMode::configure},
        {"ip trace-list T", true, cliMode::trace},
        {"no ip access-list extended E", true, cliMode::configure},
        {"ip access-list standard A", true, cliMode::standard},
        {"ip access-list standard EGRESS", false, cliMode::configure},
        {"ip access-list standard A", true, cliMode::standard},
        {"ip access-list stnd B", false, cliMode::configure},
        {"ipv6 access-list V", true, cliMode::ip6},
        {"remark 5 of this list", true, cliMode::ip6},
        {"mac access-list extended M", true, cliMode::macExtended},
        {"no description", true, cliMode::macExtended},
        {"resequence mac access-list M 5 5", true, cliMode::configure},
        {"interface 1/0", true, cliMode::interface},
        {"mac access-group M in", true, cliMode::interface},
        {"ipv6 access-grp V in", false, cliMode::interface},
        {"interface 9/0", false, cliMode::configure},
        {"ip access-group B in", false, cliMode::configure},
        {"ip trace-list T", true, cliMode::trace},
        {"exit", true, cliMode::configure},
        {"exit", true, cliMode::exec},
        {"conf t", true, cliMode::configure},
        {"route-map A", true, cliMode::routeMap},
        {"description why?", true, cliMode::routeMap},  // a text, and no question
        {"set tag 4", true, cliMode::routeMap},
        {"end", true, cliMode::exec},
        {"show ?", true, cliMode::exec},
    };
    for (const auto& [line, good, mode] : rows) {
        SCOPED_TRACE(line);
        EXPECT_EQ(s.run(line), good) << s.reported();
        EXPECT_EQ(s.session.mode, mode);
    }
    EXPECT_TRUE(s.run("exit"));
    EXPECT_TRUE(s.session.done);
    EXPECT_NE(s.printed().find("running-config"), std::string::npos);
    EXPECT_EQ(s.printed().find("TEXT"), std::string::npos);
    // The clause carries the number that the manager has given its map.
    manager.halt();
    const auto* clause = reinterpret_cast<cliRmapClauseReq*>(manager.received.back().data());
    EXPECT_EQ(uint32_t{clause->clause.seq}, 40u);
}

TEST(Session, TheStartupConfigurationIsPrintedAsItWasSaved) {
    fakeManager manager;
    testSession s(manager.dir);
    EXPECT_FALSE(s.run("show startup-config"));
    std::ofstream(manager.dir + "/startup-config")
        << "!\nip access-list standard \"A\"\n permit any\n";
    EXPECT_TRUE(s.run("show startup-config"));
    s.session.options.json = true;
    EXPECT_TRUE(s.run("show startup-config"));
    EXPECT_EQ(s.printed(),
              "!\nip access-list standard \"A\"\n permit any\n"
              "[\n\"!\",\n\"ip access-list standard \\\"A\\\"\",\n\" permit any\"\n]\n");
}
