// Lines as they are typed, as the configuration writes them and as the shows print them, in both
// mask modes.
#include "cli/grammar/build.h"
#include "cli/kinds.h"
#include "cli/parser.h"
#include "l2acl/zekl2acl.h"
#include "tests/support/ipaclTest.h"

// The grammar of entries is all that these tests link of the shell.
const listKind listKinds[KIND_COUNT] = {
    {.mode = {&sStandard, F_V4 | F_LIST | F_ORDER | F_NET, IP_KIND_STANDARD, "", &standardEntries},
     .codes = {}},
    {.mode = {&sExtended, F_V4 | F_LIST | F_ORDER | F_NET | F_EXT | F_LAYER2, IP_KIND_EXTENDED, ""},
     .codes = {}},
    {.mode = {&sExtended, F_V4 | F_EXT, IP_KIND_EXTENDED, ""}, .codes = {}}};

namespace {

constexpr const char* KINDS[] = {"", "Standard IP access list L\r\n",
                                 "Extended IP access list L\r\n"};

struct texts {
    // The configuration's line in the mode that is set, its other form, and the show's. A text of
    // the other form or the show that is the line's own is empty.
    std::string line, other, show;
    bool operator==(const texts&) const = default;
};
std::ostream& operator<<(std::ostream& out, const texts& t) {
    return out << t.line << " | " << t.other << " | " << t.show;
}
class Text : public IpAcl {
  protected:
    // The entry that a line asks for.
    aclEntry typed(const std::string& line, cliMode mode) const {
        cliCommand command;
        cliParseError error;
        aclEntry entry{};
        EXPECT_EQ(cliParse({mode, node.config.inverseMask != 0, true}, line, &command, &error),
                  cliParsed::command)
            << line << ": " << error.text;
        entry.block = command.entry.ip.block;
        entry.log = command.entry.ip.log;
        entry.monitor = command.entry.ip.monitor;
        return entry;
    }
    texts textsOf(aclEntry entry) {
        texts out;
        const listName list = listNameMake("L");
        const uint32_t kind = entry.block.kind;
        create("L", kind);
        EXPECT_EQ(ipAddAccessEntry(list, &entry.block, entry.log, entry.monitor), 0u);
        for (const std::string& row : testTake()) {
            if (!row.starts_with("cfg insert")) continue;
            const size_t from = row.find('"') + 1, end = row.find('"', from);
            out.line = row.substr(from, end - from);
            if (const size_t second = row.find('"', end + 1); second != row.npos)
                out.other = row.substr(second + 1, row.size() - second - 2);
        }
        if (node.config.inverseMask != 0 && !out.other.empty()) std::swap(out.line, out.other);
        void* buffer = nullptr;
        uint32_t size = 0;
        EXPECT_EQ(aclShowIpAcl(list, &buffer, &size), 0u);
        out.show = static_cast<char*>(buffer) + SHOW_TEXT_OFFSET;
        EXPECT_TRUE(out.show.starts_with(KINDS[kind]) && out.show.ends_with("\r\n")) << out.show;
        zekMC_M_sysFree(buffer);
        const size_t title = std::strlen(KINDS[kind]);
        out.show = out.show.substr(title, out.show.size() - title - 2);
        if (out.show == out.line) out.show.clear();
        EXPECT_EQ(ipAccessListDelete(list, kind), 0u);
        return out;
    }
};

TEST_F(Text, AddressesByMaskAndMode) {
    struct {
        // As the configuration has it in each mode, and as the show has it in normal mode when that
        // differs. What is the same in both modes stands in both forms.
        const char *normal, *inverse, *show = nullptr;
    } const cases[] = {
        {" 10.1.0.0/16", " 10.1.0.0 255.255.0.0"},
        // Holes show as a prefix length.
        {" 10.1.0.0 0.255.0.255", " 10.1.0.0 255.0.255.0", " 10.1.0.0/8"},
        {" 10.0.0.0 255.0.0.255", " 10.0.0.0 0.255.255.0", " 10.0.0.0/0"},
        {" host 10.1.2.3", " host 10.1.2.3"},
        {" any", " any"},
        {" host 0.0.0.0", " host 0.0.0.0"},
        {" 1.2.3.4/0", " 1.2.3.4 0.0.0.0"},
    };
    for (node.config.inverseMask = 0; node.config.inverseMask < 2; node.config.inverseMask++)
        for (const auto& c : cases) {
            SCOPED_TRACE(c.normal);
            const bool inverse = node.config.inverseMask != 0;
            const std::string clause = inverse ? c.inverse : c.normal;
            const std::string show = inverse || c.show == nullptr ? clause : c.show;
            auto expect = [&](cliMode mode, const std::string& line, const std::string& other,
                              const std::string& shown) {
                const bool both = std::string(c.normal) == c.inverse;
                EXPECT_EQ(textsOf(typed("seq 5" + line + " log", mode)),
                          (texts{" seq 5" + line + " log", both ? "" : " seq 5" + other + " log",
                                 " seq 5" + shown + " order 255"}));
            };
            // In a standard entry the action shares the clause's fate in the other form.
            expect(cliMode::standard, " deny" + clause, "", " deny" + show + " log (0 matches)");
            // The source decides whether the destination shows as a host.
            expect(cliMode::extended, " permit ip" + clause + " any", " permit ip any",
                   " permit ip" + show + (clause[1] == 'h' ? " host 0.0.0.0 log" : " any log"));
            expect(cliMode::extended, " permit ip" + clause + clause, " permit ip",
                   " permit ip" + show + show + " log");
        }
}

// The line is as it was typed, but for what stands in `line`; the show in front of its order.
TEST_F(Text, EntriesAsTypedInEitherMode) {
    struct {
        std::string typed, show = {}, line = {};
    } const cases[] = {
        {"permit tcp any gt 7 any eq 23", "permit tcp any  gt 7 any eq 23"},
        {"deny tcp any neq 0 any range 1 9 log", "deny tcp any  neq 0 any range 1 9 log"},
        {"deny 4 any any", "deny ip any any"},
        {"deny 6 any any", "", "deny tcp any any"},
        {"deny tcp any any dscp 0 syn precedence 7 tos 0 fragments log count bytes order 0 monitor",
         "deny tcp any any syn precedence 7 tos 0 log"},
        {"deny icmp any any 3 4", "", "deny icmp any any packet-too-big"},
        // The shows know no frames.
        {"deny ether-type 86dd any VLAN 12 any log", "deny ip any any log"},
        {"permit arp any VLAN 12 any", "permit ip any any"},
        {"permit arp any VLAN 12 opcode 2 10.0.0.0/8", "permit ip 10.0.0.0/8 any"},
        {"permit arp any VLAN 12 10.0.0.1/32", "permit ip host 10.0.0.1 host 0.0.0.0"},
    };
    for (const auto& c : cases) {
        const aclEntry entry = typed("seq 10 " + c.typed, cliMode::extended);
        const std::string line = c.line.empty() ? c.typed : c.line;
        const size_t order = c.typed.find(" order ");
        const std::string end = order == c.typed.npos ? " order 255" : c.typed.substr(order, 8);
        const texts expected = {" seq 10 " + line, "",
                                " seq 10 " + (c.show.empty() ? line : c.show) + end};
        EXPECT_EQ(textsOf(entry), expected);
        node.config.inverseMask = 1;
        EXPECT_EQ(textsOf(entry).line, expected.line);
        node.config.inverseMask = 0;
    }
}

TEST_F(Text, BlocksThatNoLineMakes) {
    const rule tcp = extended(IP_DENY, IP_PROTO_TCP), any = standard(7, 0, 0);
    struct {
        rule block;
        std::string line, show = {};  // the show's when it differs in more than the order
        uint32_t log = 0, monitor = 0;
    } const cases[] = {
        // Ports and precedence are of extended entries only.
        {any.with([](rule& b) {
             b.order = 255, b.fragments = 2, b.counterOptions = 1, b.precedence = 3;
             b.srcOperator = PORT_EQ, b.protocol = IP_PROTO_TCP;
         }),
         " permit any", "", 0, 2},
        {any.with([](rule& b) { b.dscp = 1, b.fragments = 1, b.counterOptions = 0xFF; }),
         " permit any dscp 1 fragments log count bytes monitor", " permit any log (0 matches)", 1,
         1},
        {tcp.to(1, HOST), " deny tcp any host 0.0.0.1", " deny tcp any 0.0.0.1/32"},
        // The flags word, the ports and the type of another protocol's entry mean nothing.
        {tcp.with([](rule& b) { b.protocol = 17, b.tcpFlags = 0xFF; }), " deny udp any any"},
        {tcp.with([](rule& b) { b.protocol = 4, b.srcOperator = PORT_EQ; }), " deny ip any any"},
        {tcp.with([](rule& b) {
             b.protocol = 2, b.icmp = {8, 1, 0, 0};
         }),
         " deny 2 any any"},
        {tcp.with([](rule& b) {
             b.protocol = 1, b.icmp = {8, 1, 9, 0};
         }),
         " deny icmp any any echo"},
        // Of frames the entry's own log word counts; without an ether-type the plain grammar.
        {tcp.with([](rule& b) {
             b.etherType = 0x800;
             std::fill(b.mac1Mask, b.mac1Mask + 6, uint8_t{0xFF});
             std::copy(b.mac1Mask, b.mac1Mask + 6, b.mac2Mask);
         }),
         " deny ether-type 800 any VLAN 0 any", " deny tcp any any log", 1},
        {tcp.with([](rule& b) { b.protocol = 0, b.arpMarker = 1; }), " deny 0 any any"},
    };
    for (const auto& c : cases) {
        aclEntry entry{};
        entry.block = c.block.at(0);
        entry.log = c.log;
        entry.monitor = c.monitor;
        EXPECT_EQ(textsOf(entry),
                  (texts{" seq 0" + c.line, "",
                         " seq 0" + (c.show.empty() ? c.line : c.show) + " order 255"}));
    }
}

TEST_F(Text, DosEntriesLackThePiecesOfLists) {
    const std::string line =
        "seq 5 deny tcp any 10.0.0.0 0.255.0.255 syn precedence 1 tos 2 log count bytes";
    aclEntry entry = typed(line, cliMode::trace);
    entry.block.dscp = 1;
    entry.block.fragments = entry.block.order = entry.block.etherType = 1;
    entry.monitor = 1;
    EXPECT_EQ(effects([&] {
                  for (uint32_t remove : {0u, 1u}) dos_ent_sent_to_cfg(&entry, remove, A);
              }),
              (rows{"cfg insert 98/150 A 1/6/ff \" " + line +
                        "\" / \" seq 5 deny tcp any syn precedence 1 tos 2 log count bytes\"",
                    "sync 16 A \" " + line + "\"", "sync 16 A \"no  " + line + "\"",
                    "cfg exact 98/150 A 1/6/ff"}));
}

// Their records bring them back; a configuration that is loaded from its text would not.
TEST_F(Text, SendersHearOfLinesThatDoNotReadBack) {
    const listName L = listNameMake("L");
    uint32_t status = 0;
    aclV6AccessListCreate(L, 0, 0, &status);
    for (uint32_t kind : {IP_KIND_STANDARD, IP_KIND_EXTENDED})
        l2AccessListCreate(listNameMake(kind == IP_KIND_STANDARD ? "S" : "L"), kind, 0, &status);
    auto notShown = [](auto&& add) {
        const uint64_t before = cfgNotShown;
        EXPECT_EQ(add(), 0u);
        return cfgNotShown != before;
    };
    for (auto [front, back, holes] : {std::tuple(0xFFu, 0u, false),
                                      {0xFEu, 0u, false},
                                      {0xFFu, 0x80u, true},
                                      {0u, 1u, true},
                                      {0x7Fu, 0u, true}})
        for (bool source : {true, false}) {
            ip6EntryBlock block{};
            uint8_t* mask = source ? block.srcMask : block.dstMask;
            mask[0] = static_cast<uint8_t>(front);
            mask[8] = static_cast<uint8_t>(back);
            block.seq = SEQ_NOT_GIVEN;
            EXPECT_EQ(notShown([&] { return aclV6AddAccessEntry(L, &block, 0, 0); }), holes)
                << front << " " << back;
        }
    struct {
        uint32_t type, encapsulation, operation;
        bool standardReads, extendedReads;
    } const bodies[] = {{1, 0, 0, true, false},   {1, 99, 9, true, false},
                        {2, 0, 0, false, true},   {2, 0, 9, false, true},
                        {2, 10, 1, false, true},  {2, 12, 4, false, true},
                        {2, 99, 1, false, false}, {2, 10, 0, false, false},
                        {2, 11, 5, false, false}, {3, 0, 0, false, false}};
    uint32_t number = 0;
    for (const auto& b : bodies)
        for (const char* name : {"S", "L"}) {
            macEntryBlock body{};
            body.type = b.type;
            body.encapsulation = b.encapsulation;
            body.etherTypeOperator = b.operation;
            body.seq = ++number;
            body.src[0] = static_cast<uint8_t>(number);
            EXPECT_EQ(
                notShown([&] { return l2AddAccessEntry(listNameMake(name), &body, 0, 0, 255, 0); }),
                !(*name == 'S' ? b.standardReads : b.extendedReads))
                << name << " " << number;
        }
}

TEST_F(Text, TheLongestLinesFitAndLongerOnesAreCut) {
    // A 140-character name has no NUL in its field.
    const std::string name(140, 'n');
    acl_sent_to_cfg(listNameMake(std::string(200, 'n')), 0, IP_KIND_STANDARD, 0);
    EXPECT_EQ(testCfgLines()[1], "ip access-list standard " + name);
    const std::string address = " 200.200.200.200 255.0.255.0 range 60000 60001";
    node.config.inverseMask = 1;
    aclEntry entry = typed("seq 5 deny tcp" + address + address +
                               " dscp 63 established fin syn rst "
                               "psh ack urg fragments log count bytes order 254 monitor",
                           cliMode::extended);
    entry.block.seq = SEQ_MAX, entry.block.dscp = 254;
    entry.block.precedence = entry.block.tos = 0x80000000;
    const std::string line = textsOf(entry).line;
    EXPECT_TRUE(line.ends_with(" log count bytes order 254 monitor")) << line;
    EXPECT_LE(line.size(), 255u);
    // What stands for an operator that there is not is longer still, and it is logged.
    const std::string error = " Error: Unknown operator value (-1) for ACL entry \n";
    entry.block.srcOperator = entry.block.dstOperator = 0xFFFFFFFF;
    const uint64_t notShown = cfgNotShown;
    const rows told = effects([&] { acl_ent_sent_to_cfg(&entry, 0, A); });
    EXPECT_EQ(cfgNotShown, notShown + 1) << "the sender is told that the line cannot be shown";
    EXPECT_EQ(told.front(), "syserr 0x50006 " + error);
    const size_t text = told.back().find('"') + 1;
    EXPECT_EQ(told.back().size() - text - 1, 255u);
    EXPECT_NE(told.back().find(error), std::string::npos);
    EXPECT_STREQ(aclCmpPortPrint(PORT_NONE, 1, 2), "");
}

}  // namespace
