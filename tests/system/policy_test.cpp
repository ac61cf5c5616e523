// Routing policy through the real processes: lists and clauses of every shape are loaded, shown,
// loaded again from what is shown, and survive the end of the manager.
#include <gtest/gtest.h>
#include <signal.h>

#include <regex>

#include "tests/system/chassis.h"

namespace {

// As the configuration shows it, in its order. A prefix line that has a mask form ends in a tab and
// that form. The list of an address clause is typed with the words in angle brackets, and shown
// without them.
constexpr char POLICY[] = R"(!
route-map ALL permit 10
 match as-path NOWHERE
 match access list ACL
 match ip next-hop p
 match ip address ACL
 match ip route-source prefix-list
 match origin egp 
 match route-type external type-2 
 match interface port-channel 1
 match metric 4294967295
 match ipv6 address ACL6
 set metric + 50
 set as-path 7
 set community 64500:1 64500:2 local-AS no-advertise no-export additive none 
 set as-path tag 
 set as-path prepend 64500 4200000000 
 set comm-list VALUES delete
 set dampening 15 750 2000 60
 set extcommunity rt 64500:1 192.0.2.1:5 as4 4200000000:7 non-trans additive 
 set ipv6 next-hop 2001:db8::1
 continue 30
!
route-map ALL deny 20
 match ip address< prefix-list> ENTRIES
 match ip next-hop prefix-list ENTRIES
 match ip route-source prefix-list prefix-list
 match community VALUES exact
 match ipv6 address< prefix-list> ENTRIES
 set community 4294967295 additive 
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
 permit regexp ^64500:.* 1
!
ip extcommunity-list TARGETS
 permit rt 64500:1 192.0.2.1:5 as4 4200000000:7 non-trans 1:4294967295 
 deny soo 1:2 
 permit regexp ^rt .*
!
ip prefix-list ENTRIES
 seq 5 permit 10.0.0.0/8	10.0.0.0 255.0.0.0
 seq 20 permit 10.3.0.1/16 ge 20 le 22	10.3.0.1 255.255.0.0 ge 20 le 22
 seq 25 deny 10.0.0.1 bitmask 255.0.0.255
 seq 65530 deny 0.0.0.0/0	0.0.0.0 0.0.0.0
 seq 65534 permit any
!
ipv6 prefix-list ENTRIES
 seq 1 permit 2001:db8::/32 ge 48 le 64
 seq 2 deny ::1 bitmask ff::ff
 seq 3 permit ::/0
 seq 4 deny any
)";

std::string replaced(const std::string& text, const char* pattern, const char* by) {
    return std::regex_replace(text, std::regex(pattern), by);
}
std::string policy(bool inverse, const char* bracketed) {
    const std::string text = replaced(POLICY, "<(.*)>", bracketed);
    return inverse ? replaced(text, "(seq \\d+ \\w+).*\t", "$1 ") : replaced(text, "\t.*", "");
}
std::string shown(bool inverse) {
    return policy(inverse, "");
}

}  // namespace

TEST(Policy, EveryFormIsReadBackAndSurvives) {
    const std::string typed = policy(false, "$1");
    chassisFixture first, second;
    ASSERT_TRUE(first.startManager() && second.startManager());
    first.load(typed);
    EXPECT_EQ(first.runningConfig(), shown(false));
    const std::string groups = first.show("show route-maps ALL");
    ASSERT_TRUE(first.killAndRestart());
    EXPECT_EQ(first.runningConfig(), shown(false));
    EXPECT_EQ(first.show("show route-maps ALL"), groups);

    // What is shown is read back: its prefix lists come behind the clauses.
    first.load("access-list inverse-mask\n");
    const std::string inverse = first.runningConfig();
    EXPECT_NE(inverse.find(shown(true)), std::string::npos) << inverse;
    // A list that the chassis has already does not change what the loaded lines mean.
    second.load("ip access-list standard ENTRIES\n");
    second.load(inverse);
    second.load("no ip access-list standard ENTRIES\n");
    EXPECT_EQ(second.runningConfig(), inverse);
    EXPECT_EQ(second.show("show route-maps ALL"), groups);
    second.load("no access-list inverse-mask\n");
    second.show("write memory");
    second.manager.stop(SIGTERM);
    ASSERT_TRUE(second.startManager({"--cold"}));
    EXPECT_EQ(second.show("show route-maps ALL"), groups);
    EXPECT_EQ(second.runningConfig(), shown(false));

    // The "no" of every line leaves the headers; theirs leave nothing.
    second.load(replaced(typed, "\n ", "\nno "));
    EXPECT_EQ(second.runningConfig().find("\n "), std::string::npos) << second.runningConfig();
    EXPECT_EQ(second.show("debug aclRTest"), "no faults\n");
    second.load(
        "no route-map ALL\nno ip as-path access-list PATHS\nno ip community-list VALUES\n"
        "no ip extcommunity-list TARGETS\nno ip prefix-list ENTRIES\n"
        "no ipv6 prefix-list ENTRIES\n");
    EXPECT_EQ(second.runningConfig(), "");
}

TEST(Policy, CommandsSayWhatTheManagerFinds) {
    chassisFixture chassis;
    ASSERT_TRUE(chassis.startManager());
    std::string lines, values = " set community";
    for (int i = 0; i < 120; i++) lines += " permit 10." + std::to_string(i) + ".0.0/16\n";
    for (int i = 0; i < 33; i++) values += " 64500:" + std::to_string(60000 + i);
    chassis.load("ip prefix-list LONG\n" + lines +
                 "ip prefix-list SHORT\n permit any\nroute-map R permit 10\n"
                 " match ip address prefix-list ONLY-NAMED\nresequence prefix-list LONG 1 2\n");
    // Who enters a line that cannot be shown is warned; who takes it back is not.
    EXPECT_NE(chassis.shell({"-f", "-"}, "route-map W\n" + values).err.find("Warning: "),
              std::string::npos);
    EXPECT_EQ(chassis.shell({"-f", "-"}, "route-map W\n no" + values).err, "");
    struct {
        const char* command;
        int status;
        const char* said;  // among other things
        const char* option = "--timeout=10";
    } const rows[] = {
        {"show ip prefix-list summary", 0,
         "ip prefix-list LONG:\ncount: 120, range entries: 0, sequences: 5 - 239\n"
         "ip prefix-list SHORT:\ncount: 1, range entries: 1, sequences: 5 - 5\n"},
        {"show ip prefix-list | count permit", 0, "121\n"},
        {"show ip prefix-list detail SHORT | count deletion", 0, "1\n"},
        {"show ip prefix-list ONLY-NAMED", 1, ""},
        {"clear ip prefix-list", 0, ""},
        {"show route-map R", 0,
         "\"match\": [\n      \"ip address: ONLY-NAMED\"\n    ],\n    \"set\": [],\n"
         "    \"hits\": 0\n",
         "--json"},
        // A verdict is the exit status.
        {"test ip prefix-list LONG 10.5.0.0/16", 0, "permit: seq 11 permit 10.5.0.0/16\n"},
        {"test ip prefix-list LONG 11.0.0.0/16", 1, ""},
        {"test ip prefix-list SHORT 11.0.0.0/16", 0,
         "{\"verdict\":\"permit\",\"entry\":\" seq 5 permit any\"}\n", "--json"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const commandResult result = chassis.shell({row.option, "-c", row.command});
        EXPECT_EQ(result.status, row.status) << result.err;
        EXPECT_NE(result.out.find(row.said), std::string::npos) << result.out;
    }
}
