// IPv4 list evaluation against verdicts stated by hand.
#include "match/zekPolicy.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <sstream>

#include "match/matchTable.h"

namespace {

// Entries and packets are written as fields: "dport=eq/80 fragments", "udp,tos=32,later".
typedef std::map<std::string, std::vector<uint32_t>> fieldMap;

uint32_t valueOf(const std::string& text) {
    static const std::map<std::string, uint32_t> names = {
        {"eq", PORT_EQ},          {"gt", PORT_GT},       {"lt", PORT_LT},
        {"neq", PORT_NEQ},        {"range", PORT_RANGE}, {"syn", TCP_SYN},
        {"ack", TCP_ACK},         {"rst", TCP_RST},      {"psh", TCP_PSH},
        {"est", TCP_ESTABLISHED}, {"host", 0x0A010203},  {"other", 0xC0000201}};
    auto found = names.find(text);
    return found != names.end() ? found->second
                                : static_cast<uint32_t>(std::stoul(text, nullptr, 0));
}
fieldMap fieldsOf(const std::string& text, char between) {
    fieldMap all;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, between);) {
        std::istringstream parts(word);
        std::string name, value;
        std::getline(parts, name, '=');
        all[name];
        while (std::getline(parts, value, '/')) all[name].push_back(valueOf(value));
    }
    return all;
}

uint32_t bitsOf(const std::vector<uint32_t>& values) {
    return std::accumulate(values.begin(), values.end(), 0u, std::bit_or());
}

ipPacket packetOf(const std::string& text) {
    fieldMap given = fieldsOf(text, ',');
    const bool later = given.contains("later");
    const bool tcp = !given.contains("udp") && !given.contains("icmp");
    auto field = [&]<class T>(const char* name, T otherwise) {
        return given.contains(name) ? static_cast<T>(bitsOf(given[name])) : otherwise;
    };
    auto first = [&]<class T>(const char* name, T otherwise) {
        return later ? T{0} : field(name, otherwise);
    };
    return {.src = field("src", valueOf("host")),
            .dst = valueOf("other"),
            .protocol = tcp                     ? uint8_t{IP_PROTO_TCP}
                        : given.contains("udp") ? uint8_t{IP_PROTO_UDP}
                                                : uint8_t{IP_PROTO_ICMP},
            .tos = field("tos", uint8_t{0}),
            .tcpFlags = tcp ? first("flags", uint8_t{TCP_SYN}) : uint8_t{0},
            .icmpType = first("type", uint8_t{0}),
            .icmpCode = first("code", uint8_t{0}),
            .srcPort = first("sport", uint16_t{1024}),
            .dstPort = first("dport", uint16_t{80}),
            .laterFragment = later};
}

// Everything is any but what the text says.
ipEntryBlock entryOf(const std::string& text, uint32_t kind, uint32_t action) {
    ipEntryBlock b{};
    b.kind = kind;
    b.action = action;
    b.protocol = IP_PROTO_ANY;
    b.precedence = b.tos = FIELD_NOT_GIVEN;
    b.order = ORDER_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    auto byte = [](uint32_t value) { return static_cast<uint8_t>(value); };
    auto port = [](const std::vector<uint32_t>& v, size_t at) {
        return static_cast<uint16_t>(at < v.size() ? v[at] : 0);
    };
    for (const auto& [name, v] : fieldsOf(text, ' ')) {
        if (name == "src") b.src = v[0], b.srcMask = v[1];
        if (name == "dst") b.dst = v[0], b.dstMask = v[1];
        if (name == "proto") b.protocol = byte(v[0]), b.protoMarker = v[1];
        if (name == "sport") b.srcOperator = v[0], b.srcLow = port(v, 1);
        if (name == "dport") b.dstOperator = v[0], b.dstLow = port(v, 1), b.dstHigh = port(v, 2);
        if (name == "flags") b.tcpFlags = byte(bitsOf(v));
        if (name == "icmp") b.icmp = {byte(v[0]), byte(v[1]), byte(v[2]), byte(v[3])};
        if (name == "precedence") b.precedence = v[0];
        if (name == "tos") b.tos = v[0];
        if (name == "dscp") b.dscp = byte(v[0]);
        if (name == "fragments") b.fragments = 1;
        if (name == "ether") b.etherType = 0x800;
        if (name == "arp") b.arpMarker = 1;
    }
    return b;
}

struct row {
    const char *entry, *matching, *others;  // packets
};
const row extended[] = {
    {"", "tcp tcp,later", ""},
    {"src=0x0A010200/0xFFFFFF00", "tcp", "tcp,src=0x0A010303"},
    {"src=0x0A010277/0xFFFFFF00", "tcp", ""},  // what the mask leaves out does not count
    {"src=0x0AFF0203/0xFF00FFFF", "tcp", ""},
    {"dst=other/0xFFFFFFFF", "tcp", ""},
    {"dst=host/0xFFFFFFFF", "", "tcp"},

    {"proto=4/0", "udp", ""},  // without the marker it is any, with it itself
    {"proto=4/1", "", "udp"},
    {"proto=17/1", "udp udp,later", "tcp"},
    {"proto=0/0", "", "tcp"},

    {"proto=6/1 dport=eq/80", "tcp", "tcp,dport=79 tcp,dport=81"},
    {"proto=6/1 dport=gt/80", "tcp,dport=81", "tcp tcp,dport=79"},
    {"proto=6/1 dport=lt/80", "tcp,dport=79", "tcp tcp,dport=81"},
    {"proto=6/1 dport=neq/80", "tcp,dport=79 tcp,dport=81", "tcp tcp,later"},
    {"proto=6/1 dport=range/80/81", "tcp tcp,dport=81", "tcp,dport=79 tcp,dport=82"},
    {"proto=6/1 dport=range/90/70", "", "tcp tcp,dport=70 tcp,dport=90"},
    {"proto=6/1 dport=6/80", "", "tcp"},  // no such operator
    {"proto=17/1 sport=eq/1024", "udp", "udp,sport=80"},
    {"dport=eq/1", "tcp", ""},  // of a protocol without ports

    {"proto=6/1", "tcp,later", ""},
    {"proto=6/1 flags=est", "tcp,flags=ack tcp,flags=rst", "tcp tcp,later"},
    {"proto=6/1 flags=syn/ack", "tcp,flags=syn/ack/psh", "tcp"},  // with psh
    {"proto=6/1 flags=est/psh", "", "tcp,flags=ack"},
    {"proto=17/1 flags=syn", "udp", ""},

    {"proto=1/1 icmp=3/1/1/1", "icmp,type=3,code=1", "icmp,type=3,code=2"},
    {"proto=1/1 icmp=3/1/1/0", "icmp,type=3,code=2", "icmp,type=8"},
    {"proto=1/1 icmp=0/1/0/0", "icmp", "icmp,type=8 icmp,later"},  // type 0 is given
    {"proto=1/1 icmp=0/0/0/0", "icmp,type=8 icmp,later", ""},

    {"precedence=5", "tcp,tos=0xBF", "tcp,tos=0xC0"},
    {"precedence=0", "tcp", "tcp,tos=0x20"},
    {"tos=12", "tcp,tos=0xF9", "tcp,tos=0x10"},
    {"dscp=46", "tcp,tos=0xBB", "tcp,tos=0xB4"},
    {"dscp=0", "tcp", "tcp,tos=4"},
    {"fragments", "tcp,later", "tcp"},
    {"proto=6/1 dport=eq/0 fragments", "", "tcp tcp,later"},

    {"ether", "", "tcp"},  // about frames
    {"arp", "", "tcp"},
};
const row standard[] = {
    {"dst=host/0xFFFFFFFF proto=17/1 dport=eq/1 precedence=7 tos=15", "tcp", ""},
    {"src=other/0xFFFFFFFF", "", "tcp"},
    {"dscp=46", "tcp,tos=0xB8", "tcp,tos=0xB4"},
    {"fragments", "tcp,later", "tcp"},
};

struct chain {
    std::deque<aclEntry> entries;
    aclList list{};
    void add(const ipEntryBlock& block) {
        aclEntry* entry = &entries.emplace_back();
        entry->block = block;
        entry->prev = list.tail;
        (list.tail != nullptr ? list.tail->next : list.head) = entry;
        list.tail = entry;
    }
    void expect(const ipPacket& packet, ipVerdict verdict, const aclEntry* by) const {
        const aclEntry* decided = nullptr;
        EXPECT_EQ(ipFilterCheck(&list, packet, &decided), verdict);
        EXPECT_EQ(decided, by);
    }
};

void check(const row& r, uint32_t kind, const char* packets, bool match) {
    std::istringstream words(packets);
    for (std::string packet; words >> packet;)
        for (uint32_t action : {0u, 1u, 2u}) {
            SCOPED_TRACE(std::string(r.entry) + ": " + packet);
            chain c;
            c.add(entryOf(r.entry, kind, action));
            // Any action but deny permits.
            c.expect(packetOf(packet), match && action != IP_DENY ? FILTER_PERMIT : FILTER_DENY,
                     match ? c.list.head : nullptr);
        }
}

TEST(ipFilter, EachFieldDecidesAsItIsWritten) {
    auto checkAll = [](const auto& rows, uint32_t kind) {
        for (const row& r : rows) {
            check(r, kind, r.matching, true);
            check(r, kind, r.others, false);
        }
    };
    checkAll(extended, IP_KIND_EXTENDED);
    checkAll(standard, IP_KIND_STANDARD);
}

TEST(ipFilter, TheFirstMatchDecidesAndNoMatchIsDenied) {
    chain c, empty;
    c.add(entryOf("proto=6/1 dport=eq/443", IP_KIND_EXTENDED, IP_PERMIT));
    for (uint32_t action : {IP_DENY, IP_PERMIT})
        c.add(entryOf("src=0x0A010200/0xFFFFFF00", IP_KIND_STANDARD, action));
    c.expect(packetOf("tcp"), FILTER_DENY, c.list.head->next);
    c.expect(packetOf("tcp,dport=443"), FILTER_PERMIT, c.list.head);
    c.expect(packetOf("tcp,src=other"), FILTER_DENY, nullptr);
    empty.expect(packetOf("tcp"), FILTER_DENY, nullptr);
    EXPECT_EQ(ipFilterCheck(nullptr, packetOf("tcp"), nullptr), FILTER_DENY);
}

// Keys that crowd at few homes, so that erasing one moves others and shares its mark with them.
TEST(MatchTable, HoldsWhatAMapHolds) {
    std::mt19937 random(3);
    std::map<uint64_t, void*> expected;
    matchTable table{};
    for (int step = 0; step < 20000; step++) {
        uint64_t key = uint64_t{random() % 96} << (random() % 2 * 32);
        if (random() % 2 == 0) {
            void** item = matchTableAt(&table, key);
            ASSERT_NE(item, nullptr);
            ASSERT_EQ(*item, expected.contains(key) ? expected[key] : nullptr);
            *item = expected[key] = &expected;
        } else if (expected.erase(key) != 0) {
            matchTableErase(&table, key);
        }
        ASSERT_EQ(table.used, expected.size());
        for (int i = 0; i < 8 && table.slots != nullptr; i++) {
            uint64_t other = uint64_t{random() % 96} << (random() % 2 * 32);
            ASSERT_EQ(matchTableFind(table, other) != nullptr, expected.contains(other)) << step;
        }
    }
    matchTableFree(&table);
}

}  // namespace
