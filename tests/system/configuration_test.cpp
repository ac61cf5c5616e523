// The main job on real input: a configuration is loaded, kept, shown, and survives.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "include/entry.h"
#include "include/icmpNames.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

std::string dotted(uint32_t a) {
    return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." +
           std::to_string(a >> 8 & 255) + "." + std::to_string(a & 255);
}
std::string number(uint32_t v) {
    return std::to_string(v);
}

std::string printAddress(uint32_t address, uint32_t mask, bool inverse) {
    if (mask == 0xFFFFFFFF) return " host " + dotted(address);
    if (address == 0 && mask == 0) return " any";
    int ones = 0;
    while (ones < 32 && (mask >> (31 - ones) & 1) != 0) ones++;
    bool contiguous = ones == 0 ? mask == 0 : mask == 0xFFFFFFFFu << (32 - ones);
    if (contiguous && !inverse) return " " + dotted(address) + "/" + std::to_string(ones);
    return " " + dotted(address) + " " + dotted(inverse ? mask : ~mask);
}

std::string printPort(uint32_t op, uint32_t low, uint32_t high) {
    static const char* const words[] = {"", " eq ", " gt ", " lt ", " neq ", " range "};
    if (op == 0) return "";
    return words[op] + number(low) + (op == 5 ? " " + number(high) : "");
}

std::string printMac(const uint8_t* address, const uint8_t* mask) {
    std::string text;
    bool any = true;
    for (int i = 0; i < 6; i++) any = any && address[i] == 0 && mask[i] == 0xFF;
    if (any) return "any";
    for (int i = 0; i < 12; i++) {
        char byte[4];
        snprintf(byte, sizeof byte, "%02x", i < 6 ? address[i] : mask[i - 6]);
        text += (i == 0 ? "" : i == 6 ? " " : ":") + std::string(byte);
    }
    return text;
}

enum class mode { standard, extended, trace };

struct lineMaker {
    std::mt19937 rng;
    bool inverse;

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(rng()) % n; }
    bool sometimes() { return below(3) == 0; }

    std::string address() {
        uint32_t a = static_cast<uint32_t>(rng());
        switch (below(4)) {
            case 0:
                return " any";
            case 1:
                return " host " + dotted(a);
            case 2: {
                uint32_t length = 1 + below(31);
                uint32_t mask = 0xFFFFFFFFu << (32 - length);
                return printAddress(a, mask, inverse);
            }
            default:
                return printAddress(a, static_cast<uint32_t>(rng()) & 0xFFFFFFFD, inverse);
        }
    }
    std::string port() {
        uint32_t low = below(65536);
        return printPort(below(6), low, low + below(65536 - low));
    }
    std::string mac() {
        if (sometimes()) return "any";
        uint8_t bytes[12];
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
        return printMac(bytes, bytes + 6);
    }
    std::string option(const char* word, uint32_t limit) {
        return sometimes() ? std::string(" ") + word + (limit > 0 ? " " + number(below(limit)) : "")
                           : "";
    }
    std::string icmp() {
        if (sometimes())
            return std::string(" ") + icmpNameTable[below(std::size(icmpNameTable))].word;
        if (sometimes()) return " 200";
        return sometimes() ? " 200 " + number(below(256)) : "";
    }

    std::string line(mode kind) {
        bool list = kind != mode::trace;
        std::string text =
            " seq " + number(below(1u << 31)) + (below(2) != 0 ? " permit" : " deny");
        bool layer2 = kind == mode::extended && below(5) == 0;
        if (kind == mode::standard) {
            text += address() + option("dscp", 64);
        } else if (layer2 && below(2) != 0) {
            text += " arp " + mac() + " VLAN " + number(below(4096));
            if (sometimes()) text += " opcode " + number(1 + below(65535));
            text += sometimes()
                        ? " any"
                        : " " + dotted(static_cast<uint32_t>(rng()) | 1) + "/" + number(below(33));
        } else if (layer2) {
            char ether[16];
            snprintf(ether, sizeof ether, "%x", 1 + below(0xFFFF));
            text += std::string(" ether-type ") + ether + " " + mac() + " VLAN " +
                    number(below(4096)) + " " + mac();
        } else {
            static const char* const protocols[] = {"tcp", "udp", "icmp", "ip",
                                                    "4",   "0",   "255",  "47"};
            uint32_t p = below(8);
            text += std::string(" ") + protocols[p] + address() + (p < 2 ? port() : "") +
                    address() + (p < 2 ? port() : "");
            if (list) text += option("dscp", 64);
            for (const tcpFlagRow& row : tcpFlagTable)
                if (p == 0) text += option(row.word, 0);
            text += option("precedence", 8) + option("tos", 16);
            if (p == 2) text += icmp();
        }
        if (list && !layer2) text += option("fragments", 0);
        text += option("log", 0) + option("count", 0) + option("bytes", 0);
        return list ? text + option("order", 255) + option("monitor", 0) : text;
    }
};

// Lists with `lines` lines in all, as the running configuration prints them, but for their order.
std::string configuration(bool inverse, int lines) {
    static const char* const heads[] = {"ip access-list standard S\n",
                                        "ip access-list extended E\n", "ip trace-list T\n"};
    constexpr mode modes[] = {mode::standard, mode::extended, mode::trace};
    lineMaker maker{std::mt19937(inverse ? 2 : 1), inverse};
    std::string text = inverse ? "access-list inverse-mask\n" : "";
    for (int list = 0; list < 3; list++) {
        text += heads[list];
        for (int i = 0; i < lines / 3; i++) text += maker.line(modes[list]) + "\n";
    }
    return text + "ip trace-group T\n";
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Configuration lines as a set: without separators, each entry with its list in front.
std::vector<std::string> canonical(const std::string& text) {
    std::vector<std::string> out;
    std::string head;
    for (const std::string& line : linesOf(text)) {
        if (line.empty() || line == "!") continue;
        if (line[0] != ' ') head = line;
        out.push_back(line[0] == ' ' ? head + "|" + line : line);
    }
    std::ranges::sort(out);
    return out;
}

struct Configuration : testing::Test {
    chassisFixture chassis;
};

}  // namespace

TEST_F(Configuration, ALargeMixedConfigurationPrintsAndLoadsBackTheSameInBothMaskModes) {
    for (bool inverse : {false, true}) {
        SCOPED_TRACE(inverse ? "inverse" : "normal");
        chassisFixture first, second;
        ASSERT_TRUE(first.startManager());
        const std::string text = configuration(inverse, 6000);
        commandResult loaded = first.shell({"-f", "-"}, text);
        // Random content may collide now and then; only duplicates may be refused.
        for (const std::string& line : linesOf(loaded.err)) {
            if (line.find("-:") != 0 || line.ends_with("lines refused")) continue;
            EXPECT_NE(line.find(aclStatusFind(ACL_E_ENTRY_EXISTS)->text), std::string::npos)
                << line;
        }
        std::string printed = first.runningConfig();
        EXPECT_GT(linesOf(printed).size(), 5500u);

        // Every line that was accepted is printed as it was typed.
        auto typed = canonical(text);
        for (const std::string& line : canonical(printed))
            EXPECT_TRUE(std::ranges::binary_search(typed, line)) << line;
        // A reply longer than a datagram arrives whole.
        const std::string shown = first.show("show ip access-lists E");
        EXPECT_GT(shown.size(), 65536u);
        EXPECT_GT(linesOf(shown).size(), 1800u);

        ASSERT_TRUE(second.startManager());
        commandResult reloaded = second.shell({"-f", "-"}, printed);
        EXPECT_EQ(reloaded.status, 0) << reloaded.err;
        EXPECT_EQ(second.runningConfig(), printed);

        ASSERT_TRUE(second.killAndRestart());
        EXPECT_EQ(second.runningConfig(), printed);
    }
}

TEST_F(Configuration, TheStartupConfigurationIsTakenWhenNothingRanOrWhenAskedFor) {
    const std::string saved = "ip access-list standard SAVED\n seq 5 permit host 192.0.2.1\n";
    ASSERT_TRUE(chassis.startManager());
    ASSERT_EQ(chassis.shell({"-f", "-"}, saved).status, 0);
    EXPECT_EQ(chassis.shell({"-c", "write memory"}).status, 0);
    std::string printed = chassis.runningConfig();
    EXPECT_EQ(chassis.show("show startup-config"), printed);
    ASSERT_EQ(chassis.shell({"-f", "-"}, "ip access-list standard LATER\n").status, 0);
    std::string later = chassis.runningConfig();

    ASSERT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), later);  // what ran, not what was saved

    chassis.manager.stop(SIGTERM);
    ASSERT_TRUE(chassis.startManager({"--cold"}));
    ASSERT_EQ(chassis.shell({"-c", "clear ip access-lists counters"}).status, 0);
    EXPECT_EQ(chassis.runningConfig(), printed);
}
