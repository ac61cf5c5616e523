// A route map with every clause, through the shell: it loads, prints, and is the same after a
// restart; its lines are taken back one by one.
#include <gtest/gtest.h>

#include "tests/system/chassis.h"

namespace {

// As the configuration prints it; trailing blanks are meant.
const std::string everyLine =
    "!\nroute-map POLICY permit 10\n"
    " match as-path PATHS\n match as-path OTHER\n match access list OLD\n"
    " match ip next-hop ACL\n match community COMM\n match ip address ACL\n"
    " match ip route-source ACL\n match origin egp \n match extcommunity EXT\n"
    " match route-type external type-2 \n match interface port-channel 1\n"
    " match metric 5\n match metric 4294967295\n match tag 7\n"
    " match ipv6 address prefix-list P6\n match ipv6 next-hop N6\n match ipv6 route-source S6\n"
    " set local-preference 200\n set weight 9\n set next-hop 10.0.0.1\n set metric 5\n"
    " set as-path 65001\n"
    " set community 65000:1 65000:2 local-AS no-advertise no-export additive \n"
    " set automatic-tag \n set level backbone \n set metric-type type-1\n set as-path tag \n"
    " set origin incomplete \n set as-path prepend 65000 65546 \n set comm-list DROP delete\n"
    " set dampening 15 750 2000 60\n set tag 3\n set extcommunity rt 65000:1 additive \n"
    " set ipv6 next-hop 2001:db8::9\n continue 30\n"
    "!\nroute-map POLICY deny 30\n"
    " match community COMM exact\n match ip address prefix-list P4\n"
    " match ip next-hop prefix-list P4\n match ip route-source prefix-list P4\n"
    " match ipv6 next-hop prefix-list P6\n match ipv6 route-source prefix-list P6\n"
    " set metric + 6\n set community none \n set extcommunity soo 192.0.2.1:7 \n continue\n"
    "!\nroute-map POLICY permit 40\n set metric - 7\n";

}  // namespace

TEST(RouteMapConfiguration, EveryClauseLoadsPrintsSurvivesARestartAndCanBeTakenBack) {
    chassisFixture chassis;
    ASSERT_TRUE(chassis.startNeighbours());
    ASSERT_TRUE(chassis.startManager());
    chassis.load(everyLine);
    const std::string before = chassis.runningConfig();
    EXPECT_NE(before.find(everyLine), std::string::npos) << before;
    const std::string shown = chassis.show("show route-map POLICY");
    ASSERT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), before);
    EXPECT_EQ(chassis.show("show route-map POLICY"), shown);

    // "no" in front of every clause, in its instance.
    std::string undo;
    for (size_t at = 0; at < everyLine.size();) {
        const size_t end = everyLine.find('\n', at);
        const std::string line = everyLine.substr(at, end - at);
        undo += (line[0] == ' ' ? " no" + line : line) + "\n";
        at = end + 1;
    }
    chassis.load(undo);
    EXPECT_NE(
        chassis.runningConfig().find("!\nroute-map POLICY permit 10\n!\nroute-map POLICY deny "
                                     "30\n!\nroute-map POLICY permit 40\n"),
        std::string::npos)
        << chassis.runningConfig();
    EXPECT_EQ(chassis.show("debug aclRTest"), "no faults\n");
}
