// The main job on real input: a configuration is loaded, kept, shown, and survives.
#include <map>
#include <random>
#include <regex>
#include <set>
#include <sstream>

#include "include/entry.h"
#include "include/icmpNames.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

// Text at random: {a|b} is one of them, #n a number below n, <rule> what the rule makes.
struct textMaker {
    std::map<std::string, std::string> rules;
    std::mt19937 rng;

    std::string make(std::string text) {
        for (size_t at = 0; (at = text.find_first_of("<#{", at)) != text.npos;) {
            size_t end = at + 1;
            std::vector<std::string> ways(1);
            if (text[at] == '<') {
                end = text.find('>', at) + 1;
                ways[0] = rules.at(text.substr(at + 1, end - at - 2));
            } else if (text[at] == '#') {
                while (isdigit(text[end]) != 0) ways[0] += text[end++];
                ways[0] = std::to_string(rng() % std::stoul(ways[0]));
            } else {
                for (int depth = 1; depth > 0; end++) {
                    depth += text[end] == '{' ? 1 : text[end] == '}' ? -1 : 0;
                    if (depth == 1 && text[end] == '|')
                        ways.emplace_back();
                    else if (depth > 0)
                        ways.back() += text[end];
                }
            }
            text.replace(at, end - at, ways[rng() % ways.size()]);
        }
        return text;
    }
};

// Lists with `lines` lines in all, as the running configuration prints them, but for their order.
std::string configuration(bool inverse, int lines) {
    std::string flags, flags6, icmp = "{| 200| 200 #256";
    for (const tcpFlagRow& row : tcpFlagTable) {
        flags += std::string("{| ") + row.word + "}";
        if (row.bit != TCP_ESTABLISHED) flags6 += std::string("{| ") + row.word + "}";
    }
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
         {"flags6", flags6},
         {"quad6",
          " {2001:db8:1#999::1#999|fe80::1#9:f#9|::#256.1.2.3|::ffff:1.2.3.#256|"
          "1:2:3:4:5:6:7:1#999|::1|1#9::}"},
         {"address6", "{ any| host<quad6>|<quad6>/#128}"},
         {"pair6", "<address6><address6>"},
         {"ports6", "<address6><port><address6><port>"},
         {"host", "1#10:f#10:#10c:0#10:#10#10:ff "},
         {"masked2", "<host>{00:#10#10:ff:00:aa:0#10|ff:ff:ff:ff:ff:ff} "},
         {"clause2", "{any |host  <host>|<masked2>}"},
         {"count2", "{|log }{|count }{|bytes }{|order #255}{|monitor }"},
         {"count", "{| log}{| count}{| bytes}"},
         {"end", "<count>{| order #255}{| monitor}\n"},
         {"entry", " seq #2147483648 {permit|deny}"},
         {"S", "<entry><address><dscp>{| fragments}<end>"},
         {"E", "<entry>{<ip>{| fragments}|<ip>{| fragments}|<frame>}<end>"},
         {"T", "<entry><ip><count>\n"},
         {"V",
          "<entry> {tcp<ports6><flags6>|udp<ports6>|icmp<pair6>{| #256| #256 #256}|"
          "{ipv6|4|0|1|255|47}<pair6>}<count>{| monitor}\n"},
         {"M", " seq #65536 {permit|deny} {any |<host>|<masked2>}<count2>\n"},
         {"N",
          " seq #65536 {permit|deny} <clause2><clause2>{| {ev2|llc|snap} {eq|gt|lt|neq} "
          "{0|800|86dd|ffff} }<count2>\n"}},
        std::mt19937(inverse ? 2 : 1)};
    std::string text = inverse ? "access-list inverse-mask\n" : "";
    for (const std::string list :
         {"ip access-list standard S", "ip access-list extended E", "ip trace-list T",
          "ipv6 access-list V", "mac access-list standard M", "mac access-list extended N"}) {
        if (list.back() == 'T') maker.rules["dscp"] = "";
        const bool remarks = list.back() != 'T';
        text += list + "\n description of " + list + ", |\\!?\n";
        for (int i = 0; i < (remarks ? 50 : 0); i++)
            text += maker.make(" remark #65536 #99999  {permit|seq 5|!|?}\n");
        // MAC lists have few numbers.
        for (int i = 0; i < (list[0] == 'm' ? lines / 20 : lines / 3); i++)
            text += maker.make(maker.rules[list.substr(list.size() - 1)]);
    }
    return text + "ip trace-group T\n";
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// As the configuration shows it in either mask mode, in its order. The list of an address clause is
// typed with the words in angle brackets, and shown without them.
constexpr char POLICY[] = R"(!
interface port-channel 1
 ip access-group LATER in
!
interface 0x00030009
 ip access-group S in
!
interface 1/0
 ip access-group E in implicit-permit Vlan 10-20,30
 ipv6 access-group V in
 mac access-group N out implicit-permit
 ip access-group S out
!
interface control-plane
 ip access-group S in
!
route-map ALL permit 10
 match as-path NOWHERE
 match access list ACL
 match ip address ACL
 match ip route-source prefix-list
 match interface port-channel 1
 continue 30
!
route-map ALL deny 20
 match ip address< prefix-list> ENTRIES
 match ip next-hop prefix-list ENTRIES
 match ip route-source prefix-list prefix-list
 match ipv6 address< prefix-list> ENTRIES
 continue
!
route-map ALL permit 30
 description the rest
!
ip as-path access-list PATHS
 description of paths
 permit _64500_ | (|64501) 
!
ip community-list VALUES
 description of values
 permit 64500:1 64500:2 no-export no-advertise local-AS
 permit regexp ^64500:.* 1
!
ip extcommunity-list TARGETS
 description of targets
 permit rt 64500:1 192.0.2.1:5 as4 4200000000:7 non-trans 1:4294967295 
!
ip prefix-list ENTRIES
 description of IPv4
 seq 25 deny 10.0.0.1 bitmask 255.0.0.255
 seq 65534 permit any
!
ipv6 prefix-list ENTRIES
 description of IPv6
 seq 1 permit 2001:db8::/32 ge 48 le 64
 seq 2 deny ::1 bitmask ff::ff
 seq 4 deny any
)";

std::string policy(const char* bracketed) {
    return std::regex_replace(POLICY, std::regex("<(.*)>"), bracketed);
}

}  // namespace

TEST(Configuration, ALargeMixedOnePrintsAndLoadsBackTheSameInBothMaskModes) {
    for (bool inverse : {false, true}) {
        SCOPED_TRACE(inverse ? "inverse" : "normal");
        chassisFixture first, second;
        ASSERT_TRUE(first.startManager());
        const std::string text = configuration(inverse, 6000);
        const commandResult loaded = first.shell({"-f", "-"}, text + policy("$1"));
        // Random content may collide now and then; only duplicates may be refused.
        for (const std::string& line : linesOf(loaded.err)) {
            EXPECT_TRUE(!line.starts_with("-:") || line.ends_with("refused") ||
                        has(line, aclStatusFind(ACL_E_ENTRY_EXISTS)->text) ||
                        has(line, aclStatusFind(ACL_E_SEQ_USED)->text))
                << line;
        }
        const std::string printed = first.runningConfig();
        EXPECT_GT(linesOf(printed).size(), 8300u);
        // Every line that was accepted is printed as it was typed.
        const std::vector<std::string> typed = linesOf(text + policy(""));
        const std::set<std::string> typedLines(typed.begin(), typed.end());
        for (const std::string& line : linesOf(printed))
            EXPECT_TRUE(typedLines.contains(line)) << line;
        EXPECT_TRUE(has(printed, policy(""))) << printed.substr(0, 5000);
        // A reply longer than a datagram arrives whole.
        EXPECT_GT(linesOf(first.show("show ip access-lists E")).size(), 1800u);

        // What is shown is read back: its prefix lists come behind the clauses that name them, and
        // a list that the chassis has already does not change what the loaded lines mean.
        ASSERT_TRUE(second.startManager());
        second.load("ip access-list standard ENTRIES\n");
        second.load(printed);
        second.load("no ip access-list standard ENTRIES\n");
        EXPECT_EQ(second.runningConfig(), printed);
        const std::string groups = first.show("show route-maps ALL");
        second.show("write memory");
        EXPECT_EQ(second.show("show startup-config"), printed);
        second.load("ip access-list standard LATER\n");
        const std::string later = second.runningConfig();
        second.manager.stop(SIGTERM);
        ASSERT_TRUE(second.killAndRestart());
        EXPECT_EQ(second.runningConfig(), later);  // what ran, not what was saved
        second.manager.stop(SIGTERM);
        ASSERT_TRUE(second.startManager({"--cold"}));
        EXPECT_EQ(second.show("show route-maps ALL"), groups);
        EXPECT_EQ(second.runningConfig(), printed);
    }
}
