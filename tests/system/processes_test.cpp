// Starting, stopping and bad company.
#include <unistd.h>

#include <random>

#include "include/cliMsg.h"
#include "tests/system/chassis.h"

TEST(Processes, ManagersOfDifferentFoldersRunSideBySideAndASecondOneOfTheSameIsRefused) {
    chassisFixture first, second;
    ASSERT_TRUE(first.startManager());
    ASSERT_TRUE(second.startManager());
    first.load("ip access-list standard ONE\n");
    EXPECT_FALSE(has(second.runningConfig(), "ONE"));

    // So do the two route processors of one chassis.
    const std::vector<std::string> same{std::string(ACL_BIN_DIR) + "/aclmgr", "--rundir",
                                        first.dir};
    std::vector<std::string> peer = same;
    peer.insert(peer.end(), {"--rp", "1"});
    process other, again;
    ASSERT_TRUE(other.start(peer, first.dir + "/other.stderr"));
    EXPECT_EQ(first.shell({"--rp", "1", "-f", "-"}, "ip access-list standard TWO\n").status, 0);
    EXPECT_TRUE(has(first.shell({"--rp", "1", "-c", "show running-config"}).out, "TWO"));
    EXPECT_FALSE(has(first.runningConfig(), "TWO"));

    EXPECT_FALSE(again.start(same, first.dir + "/again.stderr"));
    EXPECT_TRUE(has(first.runningConfig(), "ONE"));  // the first one still serves
}

// Bytes that no neighbour would send: counted, answered where they can be, survived.
TEST(Processes, HostileMessagesAreCountedAndSurvived) {
    chassisFixture chassis;
    ASSERT_TRUE(chassis.startManager());
    chassis.load("ip access-list standard A\n permit any\n");
    std::string before = chassis.runningConfig();
    rawClient client(chassis);

    // Every type there is, and random bytes behind it.
    std::mt19937 rng(3);
    for (uint32_t type = 0; type < 21000; type += 1 + static_cast<uint32_t>(rng()) % 7) {
        if (type == MT_ACL_INVERSEMASK_ENABLE || type == MT_ACL_INVERSEMASK_DISABLE) continue;
        std::vector<uint8_t> message(60 + rng() % 2000);
        for (uint8_t& byte : message) byte = static_cast<uint8_t>(rng());
        client.fillHeader(message, type, type);
        ASSERT_TRUE(client.send(message));
        while (!client.receive(0).empty()) continue;
    }
    EXPECT_EQ(chassis.runningConfig(), before);
    EXPECT_GT(number(chassis.show("debug system"), "unknown-type"), 1000u);
    EXPECT_TRUE(chassis.manager.running());
}
