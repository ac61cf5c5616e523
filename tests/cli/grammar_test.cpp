// Lines and what the shell makes of them: the block's bytes, the refusals, the help.
#include <gtest/gtest.h>

#include <algorithm>

#include "cli/lexer.h"
#include "cli/parser.h"

namespace {

std::string parsedText(const cliContext& context, std::string_view line, cliCommand* command,
                       cliParseError* error) {
    switch (cliParse(context, line, command, error)) {
        case cliParsed::command:
            return "command";
        case cliParsed::nothing:
            return "nothing";
        case cliParsed::refused:
            break;
    }
    return "refused: " + error->text;
}

// A block that differs from the blank one in the given bytes.
struct byteRow {
    size_t at;
    uint32_t value;
    size_t size;
};
struct lineRow {
    const char* line;
    std::vector<byteRow> bytes;
};
std::vector<uint8_t> expectedBlock(uint32_t kind, const std::vector<byteRow>& rows) {
    std::vector<uint8_t> bytes(156);
    auto put = [&](byteRow row) {
        for (size_t i = 0; i < row.size; i++)
            bytes[row.at + i] = static_cast<uint8_t>(row.value >> 8 * (row.size - 1 - i));
    };
    for (byteRow row : std::initializer_list<byteRow>{{44, 0xFFFFFFFF, 4},
                                                      {48, 0xFFFFFFFF, 4},
                                                      {53, 4, 1},
                                                      {56, kind, 4},
                                                      {64, 0xFFFFFFFF, 4},
                                                      {68, 255, 4},
                                                      {152, 255, 1}})
        put(row);
    for (byteRow row : rows) put(row);
    return bytes;
}
void checkBlocks(const cliContext& context, uint32_t kind, const std::vector<lineRow>& rows) {
    for (const lineRow& row : rows) {
        SCOPED_TRACE(row.line);
        cliCommand c;
        cliParseError error;
        ASSERT_EQ(parsedText(context, row.line, &c, &error), "command");
        const auto* bytes = reinterpret_cast<const uint8_t*>(&c.block);
        EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 156), expectedBlock(kind, row.bytes));
    }
}

constexpr cliContext standard{cliMode::standard, false, false};
constexpr cliContext extended{cliMode::extended, false, false};
constexpr cliContext trace{cliMode::trace, false, false};
constexpr cliContext configure{cliMode::configure, false, false};
constexpr cliContext exec{cliMode::exec, false, false};
constexpr cliContext interface { cliMode::interface, false, false };

}  // namespace

TEST(Grammar, StandardEntriesBecomeTheirBlocks) {
    checkBlocks(
        standard, 1,
        {{"permit any", {}},
         {" seq 5 deny any", {{64, 5, 4}, {20, 1, 4}}},
         {"seq 0 permit host 10.1.2.3", {{64, 0, 4}, {24, 0x0A010203, 4}, {28, 0xFFFFFFFF, 4}}},
         {"permit 10.1.0.0/16", {{24, 0x0A010000, 4}, {28, 0xFFFF0000, 4}}},
         {"permit 10.1.9.9/0", {{24, 0x0A010909, 4}}},  // bits outside the mask stay
         {"permit 10.1.0.0 0.255.0.255", {{24, 0x0A010000, 4}, {28, 0xFF00FF00, 4}}},
         {"  permit   any\tdscp  46 fragments count bytes order 7\r",
          {{152, 46, 1}, {148, 1, 4}, {52, 6, 1}, {68, 7, 4}}},
         {"no deny any", {{20, 1, 4}}},
         {"seq 4294967290 permit any", {{64, 4294967290u, 4}}}});
    cliContext inverse = standard;
    inverse.inverseMask = true;
    checkBlocks(inverse, 1,
                {{"permit 10.1.0.0 255.0.255.0", {{24, 0x0A010000, 4}, {28, 0xFF00FF00, 4}}},
                 {"permit 10.1.0.0/16", {{24, 0x0A010000, 4}, {28, 0xFFFF0000, 4}}}});
}

TEST(Grammar, ExtendedEntriesBecomeTheirBlocks) {
    std::vector<byteRow> ether{{76, 0x800, 4},      {86, 0xFFFFFFFF, 4}, {90, 0xFFFF, 2},
                               {98, 0xFFFFFFFF, 4}, {102, 0xFFFF, 2},    {112, 10, 4}};
    std::vector<byteRow> arp = ether;
    arp[0].value = 0x806;
    arp.push_back({72, 1, 4});
    std::vector<byteRow> arpAll = arp, etherMac = ether;
    for (byteRow row : {byteRow{116, 1, 4},
                        {120, 1, 4},
                        {124, 2, 4},
                        {52, 4, 1},
                        {68, 9, 4},
                        {24, 0x0A000000, 4},
                        {28, 0xFF000000, 4}})
        arpAll.push_back(row);
    for (byteRow row : {byteRow{92, 0x0011AABB, 4},
                        {96, 0xCCDD, 2},
                        {98, 0x000000FF, 4},
                        {102, 0xFFFF, 2},
                        {20, 1, 4}})
        etherMac.push_back(row);
    checkBlocks(
        extended, 2,
        {{"permit ip any any", {}},
         {"permit 4 any any", {{16, 1, 4}}},  // the literal protocol, not "every protocol"
         {"permit 6 any any established", {{53, 6, 1}, {144, 1, 1}}},
         {"deny 255 any any", {{20, 1, 4}, {53, 255, 1}}},
         {"seq 10 deny tcp any host 1.2.3.4 eq 23 log count",
          {{64, 10, 4},
           {20, 1, 4},
           {53, 6, 1},
           {32, 0x01020304, 4},
           {36, 0xFFFFFFFF, 4},
           {132, 1, 4},
           {140, 23, 2},
           {52, 2, 1}}},
         {"permit udp 10.0.0.0/8 range 1 65535 any neq 53",
          {{53, 17, 1},
           {24, 0x0A000000, 4},
           {28, 0xFF000000, 4},
           {128, 5, 4},
           {136, 1, 2},
           {138, 65535, 2},
           {132, 4, 4},
           {140, 53, 2}}},
         {"permit tcp any gt 1 any lt 2 dscp 1 fin syn rst psh ack urg precedence 7 tos 15 "
          "fragments log count bytes order 254 monitor",
          {{53, 6, 1},
           {128, 2, 4},
           {136, 1, 2},
           {132, 3, 4},
           {140, 2, 2},
           {152, 1, 1},
           {144, 0x7E, 1},
           {44, 7, 4},
           {48, 15, 4},
           {148, 1, 4},
           {52, 6, 1},
           {68, 254, 4}}},
         {"permit icmp any any echo", {{53, 1, 1}, {128, 0x08010000, 4}}},
         {"permit icmp any any host-unreachable", {{53, 1, 1}, {128, 0x03010101, 4}}},
         {"permit icmp any any tos 1 3 77 log", {{53, 1, 1}, {48, 1, 4}, {128, 0x03014D01, 4}}},
         {"permit icmp any any 3 count", {{53, 1, 1}, {128, 0x03010000, 4}, {52, 2, 1}}},
         {"permit tcp any any log urg fin", {{53, 6, 1}, {144, 0x42, 1}}},  // any order is taken
         {"permit arp any VLAN 10 any", arp},
         {"permit arp any VLAN 10 opcode 1 10.0.0.0/8 log count bytes order 9 monitor", arpAll},
         {"permit ether-type 800 any VLAN 10 any", ether},
         {"deny  ether-type 800 any VLAN 10  00:11:aa:BB:cc:dd 00:00:00:ff:ff:ff", etherMac}});
}

TEST(Grammar, LogAndMonitorStandBesideTheBlock) {
    struct {
        const char* line;
        uint32_t log, monitor;
    } rows[] = {{"permit ip any any", 0, 0},
                {"permit ip any any log", 1, 0},
                {"permit ip any any monitor", 0, 1},
                {"permit arp any VLAN 1 any log monitor", 1, 1}};
    for (const auto& row : rows) {
        cliCommand c;
        cliParseError error;
        ASSERT_EQ(parsedText(extended, row.line, &c, &error), "command") << row.line;
        EXPECT_EQ(c.log, row.log) << row.line;
        EXPECT_EQ(c.monitor, row.monitor) << row.line;
    }
}

TEST(Grammar, CommandsBecomeVerbs) {
    std::string longest(140, 'n');
    struct {
        cliContext context;
        std::string line;
        cliVerb verb;
        bool negated;
        std::string name;
        uint32_t kind;
        std::string text;
    } rows[] = {
        {exec, "show running-config", cliVerb::showRunning, false, "", 0, ""},
        {exec, "sh run", cliVerb::showRunning, false, "", 0, ""},
        {exec, "SHOW Ip access-l", cliVerb::showLists, false, "", 0, ""},
        {exec, "show ip access-lists Web", cliVerb::showLists, false, "Web", 0, ""},
        {exec, "clear ip access-lists counters", cliVerb::clearCounters, false, "", 0, ""},
        {exec, "clear ip access-lists counters A", cliVerb::clearCounters, false, "A", 0, ""},
        {exec, "wr mem", cliVerb::writeMemory, false, "", 0, ""},
        {exec, "conf t", cliVerb::configure, false, "", 0, ""},
        {exec, "debug mask  3  4 ", cliVerb::debug, false, "mask", 0, "3  4"},
        {exec, "test ip access-list A tcp 1.2.3.4 5.6.7.8 dst 80 fl syn,ack fragment",
         cliVerb::test, false, "", 0, "A tcp 1.2.3.4 5.6.7.8 dst-port 80 flags syn,ack fragment"},
        {configure, "ip access-list standard " + longest, cliVerb::list, false, longest, 1, ""},
        {configure, "no ip access-list extended e", cliVerb::list, true, "e", 2, ""},
        {configure, "ip trace-list t", cliVerb::traceList, false, "t", 0, ""},
        {configure, "no ip trace-group t", cliVerb::traceGroup, true, "t", 0, ""},
        {configure, "access-list inverse-mask", cliVerb::maskMode, false, "", 0, ""},
        {configure, "do show system", cliVerb::showSystem, false, "", 0, ""},
        {standard, "no seq 5", cliVerb::entry, true, "", 0, ""},
        {standard, "no  seq 5 permit any", cliVerb::entry, true, "", 0, ""},
        {standard, "ip access-list extended X", cliVerb::list, false, "X", 2, ""},
        {trace, "deny ip any any log", cliVerb::traceEntry, false, "", 0, ""},
        {standard, "exit", cliVerb::exit, false, "", 0, ""},
        {exec, "show ip access-lists A installed", cliVerb::showInstalled, false, "A", 0, ""},
        {exec, "show ip access-lists installed", cliVerb::showLists, false, "installed", 0, ""},
        {exec, "show ip access-g", cliVerb::showAccessGroups, false, "", 0, ""},
        {exec, "show cards", cliVerb::showCards, false, "", 0, ""},
        {exec, "show card 3 summary", cliVerb::showCard, false, "", 0, ""},
        {exec, "show card control-plane access-lists A", cliVerb::showCard, false, "A", 1, ""},
        {exec, "chassis card 3 down", cliVerb::chassis, false, "", 1, ""},
        {exec, "chassis card 3 shutdown", cliVerb::chassis, false, "", 2, ""},
        {exec, "chassis primary 1", cliVerb::chassis, false, "", 3, ""},
        {exec, "chassis status", cliVerb::chassis, false, "", 4, ""},
        {interface, "ip access-group A in", cliVerb::accessGroup, false, "A", 0, ""},
        {interface, "no ip access-group A out", cliVerb::accessGroup, true, "A", 0, ""},
        {interface, "interface vl 20", cliVerb::interface, false, "", 0, "vlan 20"},
        {interface, "no ip access-list standard A", cliVerb::list, true, "A", 1, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        cliCommand c;
        cliParseError error;
        ASSERT_EQ(parsedText(row.context, row.line, &c, &error), "command");
        EXPECT_EQ(c.verb, row.verb);
        EXPECT_EQ(c.negated, row.negated);
        EXPECT_EQ(c.name, row.name);
        EXPECT_EQ(c.kind, row.kind);
        EXPECT_EQ(c.text, row.text);
    }
    for (const char* line : {"", "   \t", "!", " ! a comment", "!permit any"}) {
        cliCommand c;
        cliParseError error;
        EXPECT_EQ(parsedText(standard, line, &c, &error), "nothing") << line;
    }
}

TEST(Grammar, RefusalsNameTheColumnAndTheValidWords) {
    struct {
        cliContext context;
        std::string line;
        size_t column;
        std::string part;                   // of the sentence
        std::vector<std::string> expected;  // all of them, in order; {"*"}: not looked at
    } rows[] = {
        {exec,
         "shw",
         0,
         "Unexpected word \"shw\"",
         {"show", "clear", "write", "chassis", "configure", "test", "debug", "exit", "end"}},
        {exec, "show s", 5, "Ambiguous word \"s\"", {"startup-config", "system"}},
        {exec,
         "show",
         5,
         "incomplete",
         {"running-config", "startup-config", "configuration", "ip", "ipv6", "route-maps",
          "clients", "logging", "system", "queues", "interfaces", "cards", "card"}},
        {exec, "show system now", 12, "Unexpected", {"<cr>"}},
        {exec, "test ip access-list A tcp 1.2.3.4 5.6.7.8 flags syn,foo", 48, "flags are", {}},
        {exec, "test ip access-list A tcp 1.2.3.4 5.6.7.8 flags syn,", 48, "flags are", {}},
        {configure, "ip access-list standard " + std::string(141, 'n'), 24, "Unexpected", {"NAME"}},
        {configure, "ip access-list standard", 24, "incomplete", {"NAME"}},
        {configure,
         "permit any",
         0,
         "Unexpected",
         {"ip", "ipv6", "route-map", "resequence", "interface", "access-list", "no", "do", "exit",
          "end"}},
        {configure,
         "no do show system",
         3,
         "Unexpected",
         {"ip", "ipv6", "route-map", "access-list"}},
        {configure, "do configure terminal", 3, "Unexpected", {"*"}},
        {standard,
         "  permit 10.0.0.256",
         9,
         "Unexpected",
         {"any", "host", "A.B.C.D/LEN", "A.B.C.D"}},
        {standard, "permit 10.0.0.0", 16, "incomplete", {"A.B.C.D"}},
        {standard, "permit 10.0.0.0/33", 7, "Unexpected", {"*"}},
        {standard, "permit 010.0.0.1 0.0.0.0", 7, "Unexpected", {"*"}},
        {standard,
         "permit any precedence 1",
         11,
         "Unexpected",
         {"dscp", "fragments", "log", "count", "bytes", "order", "monitor", "<cr>"}},
        {standard, "permit any dscp 64", 16, "Unexpected", {"<0-63>"}},
        {standard, "permit any order 255", 17, "Unexpected", {"<0-254>"}},
        {standard, "permit any log log", 15, "Unexpected", {"*"}},
        {standard, "seq 4294967291 permit any", 4, "out of range", {}},
        {standard, "seq 4294967295 permit any", 4, "out of range", {}},
        {standard, "seq 99999999999999999999 permit any", 4, "Unexpected", {"*"}},
        {standard, "seq 5", 6, "incomplete", {"permit", "deny"}},
        {standard, "seq 5 no permit any", 6, "Unexpected", {"permit", "deny"}},
        {extended, "permit tcp any eq 65536 any", 18, "Unexpected", {"<0-65535>"}},
        {extended, "permit tcp any range 20 10 any", 24, "must not be below", {}},
        {extended, "permit ip any eq 5 any", 14, "Unexpected", {"*"}},
        {extended, "permit udp any any established", 19, "Unexpected", {"*"}},
        {extended, "permit icmp any any 256", 20, "Unexpected", {"*"}},
        {extended, "permit ip any any fragmen ts", 26, "Unexpected", {"*"}},
        {extended, "permit arp any VLAN 4096 any", 20, "Unexpected", {"<0-4095>"}},
        {extended,
         "permit arp 0:1:2:3:4:5 VLAN 1 any",
         11,
         "Unexpected",
         {"any", "xx:xx:xx:xx:xx:xx"}},
        {extended,
         "permit arp any VLAN 1 any tos 1",
         26,
         "Unexpected",
         {"log", "count", "bytes", "order", "monitor", "<cr>"}},
        {extended, "permit ether-type 0 any VLAN 1 any", 18, "Unexpected", {"HEX"}},
        {trace,
         "permit tcp any any eq 1 dscp 1",
         24,
         "Unexpected",
         {"established", "fin", "syn", "rst", "psh", "ack", "urg", "precedence", "tos", "log",
          "count", "bytes", "<cr>"}},
        {trace,
         "permit arp any VLAN 1 any",
         7,
         "Unexpected",
         {"tcp", "udp", "ip", "icmp", "<0-255>"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        cliCommand c;
        cliParseError error;
        ASSERT_EQ(cliParse(row.context, row.line, &c, &error), cliParsed::refused);
        EXPECT_EQ(error.column, row.column);
        EXPECT_NE(error.text.find(row.part), std::string::npos) << error.text;
        if (row.expected != std::vector<std::string>{"*"}) {
            EXPECT_EQ(error.expected, row.expected);
        }
    }
}

TEST(Grammar, ARestoreTakesWhateverAFieldCanHold) {
    for (const char* line :
         {"permit ip any any dscp 254", "permit ip any any precedence 4294967294",
          "permit ip any any tos 200", "permit arp any VLAN 70000 any"}) {
        cliCommand c;
        cliParseError error;
        EXPECT_EQ(cliParse(extended, line, &c, &error), cliParsed::refused) << line;
        cliContext wide = extended;
        wide.wide = true;
        EXPECT_EQ(parsedText(wide, line, &c, &error), "command") << line;
    }
}

TEST(Grammar, HelpTellsWhatCanStandAtTheEndOfTheLine) {
    struct {
        cliContext context;
        const char* line;
        std::vector<std::string> words;
    } rows[] = {
        {exec,
         "show ",
         {"running-config", "startup-config", "configuration", "ip", "ipv6", "route-maps",
          "clients", "logging", "system", "queues", "interfaces", "cards", "card"}},
        {exec, "show s", {"startup-config", "system"}},
        {exec, "show ip access-lists ", {"NAME", "<cr>"}},
        {standard, "permit 10.0.0.0 ", {"A.B.C.D"}},
        {extended, "permit icmp any any mask-", {"mask-reply", "mask-request"}},
        {standard, "no seq 5 ", {"permit", "deny", "<cr>"}},
        {exec, "zzz", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        std::vector<cliHelpRow> help;
        cliParseError error;
        ASSERT_TRUE(cliHelp(row.context, row.line, &help, &error));
        std::vector<std::string> words;
        for (const cliHelpRow& h : help) words.push_back(h.word);
        EXPECT_EQ(words, row.words);
    }
    std::vector<cliHelpRow> help;
    cliParseError error;
    EXPECT_FALSE(cliHelp(exec, "show nothing ", &help, &error));
    EXPECT_EQ(error.column, 5u);
}

// Whatever is typed, a refusal's column lies in the line or right behind it.
TEST(Grammar, EveryBeginningOfALineIsJudgedWithoutHarm) {
    const std::string lines[] = {
        "no seq 5 deny tcp 10.0.0.0/8 range 1 2 1.2.3.4 0.0.0.255 neq 5 dscp 3 syn log order 5",
        "permit ether-type 8a2 00:11:22:33:44:55 00:00:00:00:00:00 VLAN 7 any log bytes",
        "ip access-list extended \x01\xff|!",
    };
    for (const std::string& line : lines)
        for (size_t length = 0; length <= line.size(); length++)
            for (const cliContext& context : {exec, configure, standard, extended, trace}) {
                std::string part = line.substr(0, length);
                cliCommand c;
                cliParseError error;
                std::vector<cliHelpRow> help;
                if (cliParse(context, part, &c, &error) == cliParsed::refused) {
                    EXPECT_LE(error.column, part.size() + 1) << part;
                }
                (void)cliHelp(context, part, &help, &error);
            }
}
