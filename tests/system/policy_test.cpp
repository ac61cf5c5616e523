// Routing policy through the real processes: every form of every list and every
// clause is loaded, shown, loaded again from what is shown, and survives the
// end of the manager.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/system/chassis.h"

namespace {

// As the configuration shows it, in its order. A prefix line that has a mask
// form ends in a tab and that form. "address prefix-list" is typed, and shown
// without its second word.
constexpr char POLICY[] = R"(!
route-map ALL permit 10
 match as-path PATHS
 match as-path NOWHERE
 match access list ACL
 match ip next-hop p
 match community VALUES
 match ip address ACL
 match ip route-source prefix-list
 match origin egp 
 match origin igp 
 match route-type external 
 match route-type external type-2 
 match interface port-channel 1
 match interface 1/0
 match metric 4294967295
 match tag 0
 match extcommunity TARGETS
 match ipv6 address ACL6
 match ipv6 next-hop ACL6
 match ipv6 route-source ACL6
 set local-preference 200
 set weight 10
 set next-hop 192.0.2.1
 set metric + 50
 set as-path 7
 set community 64500:1 64500:2 local-AS no-advertise no-export additive none 
 set automatic-tag 
 set level level-1-2 
 set metric-type type-1
 set as-path tag 
 set origin incomplete 
 set as-path prepend 64500 4200000000 
 set comm-list VALUES delete
 set dampening 15 750 2000 60
 set tag 7
 set extcommunity rt 64500:1 192.0.2.1:5 as4 4200000000:7 non-trans additive 
 set ipv6 next-hop 2001:db8::1
 continue 30
!
route-map ALL deny 20
 match ip address prefix-list ENTRIES
 match ip next-hop prefix-list ENTRIES
 match ip route-source prefix-list prefix-list
 match community VALUES exact
 match ipv6 address prefix-list ENTRIES
 match ipv6 next-hop prefix-list ENTRIES
 match ipv6 route-source prefix-list NOWHERE
 set metric 5
 set community 4294967295 additive 
 set extcommunity soo 64500:1 
 continue
!
route-map ALL permit 30
 set metric - 1
!
ip as-path access-list PATHS
 permit ^$ 
 permit _64500_ | (|64501) 
 deny ([1-9])+.? 
!
ip community-list VALUES
 permit 64500:1 64500:2 no-export no-advertise local-AS
 deny 2147483647 1:2
 deny no-export
 permit regexp ^64500:.* 1
!
ip extcommunity-list TARGETS
 permit rt 64500:1 192.0.2.1:5 as4 4200000000:7 non-trans 1:4294967295 
 deny soo 1:2 
 permit regexp ^rt .*
!
ip prefix-list ENTRIES
 seq 5 permit 10.0.0.0/8	10.0.0.0 255.0.0.0
 seq 10 deny 10.1.0.0/16 le 24	10.1.0.0 255.255.0.0 le 24
 seq 15 permit 10.2.0.0/16 ge 17	10.2.0.0 255.255.0.0 ge 17
 seq 20 permit 10.3.0.1/16 ge 20 le 22	10.3.0.1 255.255.0.0 ge 20 le 22
 seq 25 deny 10.0.0.1 bitmask 255.0.0.255
 seq 30 permit 192.0.2.1/32	192.0.2.1 255.255.255.255
 seq 65530 deny 0.0.0.0/0	0.0.0.0 0.0.0.0
 seq 65534 permit any
!
ipv6 prefix-list ENTRIES
 seq 1 permit 2001:db8::/32 ge 48 le 64
 seq 2 deny ::1 bitmask ff::ff
 seq 3 permit ::/0
 seq 4 deny any
)";

// The text in one mask display mode, as it is typed.
std::string policy(bool inverse) {
    std::string text, all = POLICY;
    for (size_t at = 0; at < all.size();) {
        size_t end = all.find('\n', at);
        std::string line = all.substr(at, end - at);
        at = end + 1;
        if (size_t tab = line.find('\t'); tab != line.npos) {
            std::string masked = line.substr(tab + 1);
            line.resize(tab);
            if (inverse) line = line.substr(0, line.find_first_of("0123456789", 11)) + masked;
        }
        text += line + "\n";
    }
    return text;
}
std::string shown(bool inverse) {
    constexpr std::string_view word = " prefix-list ENTRIES";
    std::string text = policy(inverse);
    for (std::string_view clause : {" match ip address", " match ipv6 address"})
        for (size_t at; (at = text.find(std::string(clause) + std::string(word))) != text.npos;)
            text.erase(at + clause.size(), word.size() - sizeof " ENTRIES" + 1);
    return text;
}
}  // namespace

TEST(Policy, EveryFormIsReadBackAndSurvives) {
    chassisFixture first, second;
    ASSERT_TRUE(first.startManager() && second.startManager());
    first.load(policy(false));
    EXPECT_EQ(first.runningConfig(), shown(false));
    const std::string groups = first.show("show route-maps ALL");
    ASSERT_TRUE(first.killAndRestart());
    EXPECT_EQ(first.runningConfig(), shown(false));
    EXPECT_EQ(first.show("show route-maps ALL"), groups);

    // What is shown is read back, through a pipe as well: its prefix lists come behind the clauses.
    first.load("access-list inverse-mask\n");
    const std::string inverse = first.runningConfig();
    EXPECT_NE(inverse.find(shown(true)), std::string::npos) << inverse;
    // A list that the chassis has already does not change what the loaded lines mean.
    second.load("ip access-list standard ENTRIES\n");
    EXPECT_EQ(second.shell({"-f", "-"}, inverse).status, 0);
    second.load("no ip access-list standard ENTRIES\n");
    EXPECT_EQ(second.runningConfig(), inverse);
    EXPECT_EQ(second.show("show route-maps ALL"), groups);
    second.load("no access-list inverse-mask\n");
    EXPECT_EQ(second.runningConfig(), shown(false));
    EXPECT_EQ(second.shell({"-c", "write memory"}).status, 0);
    second.manager.stop(SIGTERM);
    ASSERT_TRUE(second.startManager({"--cold"}));
    EXPECT_EQ(second.show("show route-maps ALL"), groups);
    EXPECT_EQ(second.runningConfig(), shown(false));

    // The "no" of every line leaves the headers; theirs leave nothing.
    std::istringstream lines(policy(false));
    std::string undo;
    for (std::string line; std::getline(lines, line);)
        undo += (line[0] == ' ' ? "no" : "") + line + "\n";
    second.load(undo);
    EXPECT_EQ(second.runningConfig().find("\n "), std::string::npos) << second.runningConfig();
    EXPECT_EQ(second.show("debug aclRTest"), "no faults\n");
    second.load(
        "no route-map ALL\nno ip as-path access-list PATHS\nno ip "
        "community-list VALUES\n"
        "no ip extcommunity-list TARGETS\nno ip prefix-list ENTRIES\n"
        "no ipv6 prefix-list ENTRIES\n");
    EXPECT_EQ(second.runningConfig(), "");
}

TEST(Policy, ListsAreShownClearedAndResequenced) {
    chassisFixture chassis;
    ASSERT_TRUE(chassis.startManager());
    std::string lines = "ip prefix-list LONG\n";
    for (int i = 0; i < 120; i++) lines += " permit 10." + std::to_string(i) + ".0.0/16\n";
    chassis.load(lines +
                 "ip prefix-list SHORT\n permit any\nroute-map R permit 10\n"
                 " match ip address prefix-list ONLY-NAMED\n");
    EXPECT_EQ(chassis.show("show ip prefix-list summary"),
              "ip prefix-list LONG:\ncount: 120, range entries: 0, sequences: 5 - 600\n"
              "ip prefix-list SHORT:\ncount: 1, range entries: 1, sequences: 5 - 5\n");
    EXPECT_EQ(chassis.show("show ip prefix-list | count permit"), "121\n");
    EXPECT_EQ(chassis.show("show ip prefix-list detail SHORT | count deletion"), "1\n");
    EXPECT_EQ(chassis.shell({"-c", "show ip prefix-list ONLY-NAMED"}).status, 1);
    // Who enters a line that cannot be shown is warned; who takes it back is not.
    std::string values = " set community";
    for (int i = 0; i < 33; i++) values += " 64500:" + std::to_string(60000 + i);
    const auto warned = chassis.shell({"-f", "-"}, "route-map W\n" + values + "\n");
    EXPECT_NE(warned.err.find("Warning: "), std::string::npos);
    EXPECT_EQ(chassis.shell({"-f", "-"}, "route-map W\n no" + values + "\n").err, "");
    chassis.load("resequence prefix-list LONG 1 2\n");
    EXPECT_EQ(chassis.show("show ip prefix-list LONG | include 239 p"),
              "   seq 239 permit 10.119.0.0/16 (hit count: 0)\n");
    EXPECT_NE(chassis.shell({"--json", "-c", "show route-map R"})
                  .out.find("\"match\": [\n      \"ip address: ONLY-NAMED\"\n    "
                            "],\n    \"set\": [],\n"
                            "    \"hits\": 0\n"),
              std::string::npos);
    EXPECT_EQ(chassis.shell({"-f", "-"}, "resequence prefix-list LONG 1 600\n").status, 1);
    EXPECT_EQ(chassis.show("clear ip prefix-list"), "");
    // A verdict is the exit status.
    EXPECT_EQ(chassis.shell({"-c", "test ip prefix-list LONG 10.5.0.0/16"}).out,
              "permit: seq 11 permit 10.5.0.0/16\n");
    EXPECT_EQ(chassis.shell({"-c", "test ip prefix-list LONG 11.0.0.0/16"}).status, 1);
    EXPECT_EQ(chassis.shell({"--json", "-c", "test ip prefix-list SHORT 11.0.0.0/16"}).out,
              "{\"verdict\":\"permit\",\"entry\":\" seq 5 permit any\"}\n");
}
