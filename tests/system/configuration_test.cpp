// The main job on real input: a configuration is loaded, kept, shown, and survives.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstring>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <utility>

#include "include/entry.h"
#include "include/icmpNames.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

// Text at random: {a|b} is one of them, #n a number below n, <rule> what the rule makes.
struct textMaker {
    std::map<std::string_view, std::string> rules;
    std::mt19937 rng;

    std::string make(std::string_view text) {
        std::string out;
        while (!text.empty()) {
            const char first = text[0];
            text.remove_prefix(1);
            if (first == '#') {
                const size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
                out += std::to_string(rng() % std::stoul(std::string(text.substr(0, end))));
                text.remove_prefix(end);
            } else if (first == '<') {
                out += make(rules.at(text.substr(0, text.find('>'))));
                text.remove_prefix(text.find('>') + 1);
            } else if (first == '{') {
                std::vector<std::string_view> ways;
                size_t from = 0, at = 0;
                for (int depth = 0; depth >= 0; at++) {
                    if (depth == 0 && (text[at] == '|' || text[at] == '}'))
                        ways.push_back(text.substr(std::exchange(from, at + 1), at - from));
                    depth += text[at] == '{' ? 1 : text[at] == '}' ? -1 : 0;
                }
                out += make(ways[rng() % ways.size()]);
                text.remove_prefix(at);
            } else {
                out += first;
            }
        }
        return out;
    }
};

// Lists with `lines` lines in all, as the running configuration prints them, but for their order.
std::string configuration(bool inverse, int lines) {
    std::string flags, icmp = "{| 200| 200 #256";
    for (const tcpFlagRow& row : tcpFlagTable) flags += std::string("{| ") + row.word + "}";
    for (const icmpNameRow& row : icmpNameTable) icmp += std::string("| ") + row.word;
    textMaker maker{
        {{"flags", flags},
         {"icmp", icmp + "}"},
         {"quad", " #256.#256.#256.#256"},
         {"bits", "{128|192|224|240|248|252|254}"},
         {"masked", inverse ? " {<bits>.0.0.0|255.255.255.<bits>}" : "/{1#10|2#10|30|31}"},
         // A mask that ends in 2 has gaps in either mode.
         {"address", "{ any| host<quad>|<quad><masked>|<quad> #256.#256.#256.2}"},
         {"pair", "<address><address>"},
         {"port", "{| {eq|gt|lt|neq} #65536| range #640 64#1000}"},
         {"ports", "<address><port><address><port>"},
         {"dscp", "{| dscp #64}"},
         {"qos", "{| precedence #8}{| tos #16}"},
         {"ip",
          " {tcp<ports><dscp><flags><qos>|udp<ports><dscp><qos>|icmp<pair><dscp><qos><icmp>|"
          "{ip|4|0|255|47}<pair><dscp><qos>}"},
         {"mac", " {any|1#10:f#10:#10c:0#10:#10#10:ff 00:#10#10:ff:00:aa:0#10}"},
         {"frame",
          " {arp<mac> VLAN #4096{| opcode 1#1000}{ any|<quad>/#33}|"
          "ether-type {1|800|86dd|ffff}<mac> VLAN #4096<mac>}"},
         {"count", "{| log}{| count}{| bytes}"},
         {"end", "<count>{| order #255}{| monitor}\n"},
         {"entry", " seq #2147483648 {permit|deny}"},
         {"S", "<entry><address><dscp>{| fragments}<end>"},
         {"E", "<entry>{<ip>{| fragments}|<ip>{| fragments}|<frame>}<end>"},
         {"T", "<entry><ip><count>\n"}},
        std::mt19937(inverse ? 2 : 1)};
    std::string text = inverse ? "access-list inverse-mask\n" : "";
    for (const char* list : {"access-list standard S", "access-list extended E", "trace-list T"}) {
        const std::string_view name = std::string_view(list).substr(strlen(list) - 1);
        if (name == "T") maker.rules["dscp"] = "";
        text += "ip " + std::string(list) + "\n";
        for (int i = 0; i < lines / 3; i++) text += maker.make(maker.rules[name]);
    }
    return text + "ip trace-group T\n";
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Configuration lines in an order of their own, each entry with its list in front.
std::multiset<std::string> lineSet(const std::string& text) {
    std::multiset<std::string> out;
    std::string head;
    for (const std::string& line : linesOf(text)) {
        if (line == "!") continue;
        if (line[0] != ' ') head = line;
        out.insert(head + "|" + line);
    }
    return out;
}

}  // namespace

TEST(Configuration, ALargeMixedConfigurationPrintsAndLoadsBackTheSameInBothMaskModes) {
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
        const auto typed = lineSet(text);
        for (const std::string& line : lineSet(printed)) EXPECT_TRUE(typed.contains(line)) << line;
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

TEST(Configuration, TheStartupConfigurationIsTakenWhenNothingRanOrWhenAskedFor) {
    const std::string saved = "ip access-list standard SAVED\n seq 5 permit host 192.0.2.1\n";
    chassisFixture chassis;
    ASSERT_TRUE(chassis.startManager());
    chassis.load(saved);
    EXPECT_EQ(chassis.shell({"-c", "write memory"}).status, 0);
    std::string printed = chassis.runningConfig();
    EXPECT_EQ(chassis.show("show startup-config"), printed);
    chassis.load("ip access-list standard LATER\n");
    std::string later = chassis.runningConfig();

    chassis.manager.stop(SIGTERM);
    ASSERT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), later);  // what ran, not what was saved

    chassis.manager.stop(SIGTERM);
    ASSERT_TRUE(chassis.startManager({"--cold"}));
    ASSERT_EQ(chassis.shell({"-c", "clear ip access-lists counters"}).status, 0);
    EXPECT_EQ(chassis.runningConfig(), printed);
}
