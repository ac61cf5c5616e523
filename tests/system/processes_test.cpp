// Starting, stopping and bad company.
#include <unistd.h>

#include <random>

#include "include/cliMsg.h"
#include "include/status.h"
#include "tests/system/chassis.h"

TEST(Processes, TheManagerServesWithoutItsNeighboursAndRegistersWhenTheyCome) {
    chassisFixture chassis;
    EXPECT_EQ(chassis.shell({"-c", "show ip access-lists"}).status, 2);
    ASSERT_TRUE(chassis.startManager());
    chassis.load("ip access-list standard A\n");
    ASSERT_TRUE(chassis.startNeighbours());
    // Every fourth pass of the loop tries again; messages are passes.
    std::string system;
    for (int i = 0; i < 200; i++) {
        system = chassis.show("debug system");
        if (system.find("\"interface-manager\":true") != std::string::npos) break;
    }
    EXPECT_NE(system.find("\"interface-manager\":true"), std::string::npos) << system;
    EXPECT_NE(system.find("\"event-handler\":true"), std::string::npos) << system;
}

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
    ASSERT_EQ(chassis.shell({"-f", "-"}, "ip access-list standard A\n permit any\n").status, 0);
    std::string before = chassis.runningConfig();
    rawClient client(chassis);

    // A length word that lies upwards: the answer is no longer than what came, and holds no bytes
    // of another message.
    std::vector<uint8_t> lying(sizeof(cliHdr));
    reinterpret_cast<cliHdr*>(lying.data())->code = 999;
    client.fillHeader(lying, MT_CLI_COMMAND, 7);
    reinterpret_cast<ipcHdr*>(lying.data())->length = 0xFFFFFFFF;
    ASSERT_TRUE(client.send(lying));
    std::vector<uint8_t> answer = client.receive();
    ASSERT_EQ(answer.size(), sizeof(cliHdr));
    EXPECT_EQ(uint32_t{reinterpret_cast<cliHdr*>(answer.data())->result}, ACL_E_SYSTEM);

    // Every type there is, and random bytes behind it.
    std::mt19937 rng(3);
    for (uint32_t type = 0; type < 21000; type += 1 + static_cast<uint32_t>(rng()) % 7) {
        if (type >= 6001 && type <= 6002) continue;  // done above
        if (type == MT_ACL_INVERSEMASK_ENABLE || type == MT_ACL_INVERSEMASK_DISABLE) continue;
        std::vector<uint8_t> message(60 + rng() % 2000);
        for (uint8_t& byte : message) byte = static_cast<uint8_t>(rng());
        client.fillHeader(message, type, type);
        ASSERT_TRUE(client.send(message));
        while (!client.receive(0).empty()) continue;
    }
    std::vector<uint8_t> forged(sizeof(ipcHdr));  // nobody but the manager makes time-outs
    client.fillHeader(forged, MT_SWP_TIMEOUT, 1);
    ASSERT_TRUE(client.send(forged));
    EXPECT_EQ(chassis.runningConfig(), before);
    EXPECT_TRUE(waitUntil([&] { return number(chassis.show("debug system"), "malformed") > 0; }));
    std::string system = chassis.show("debug system");
    for (const char* counted : {"dropped", "overrun"})
        EXPECT_NE(system.find('"' + std::string(counted) + "\":"), std::string::npos) << counted;
    EXPECT_GT(number(system, "bad-length-word"), 0u);
    EXPECT_GT(number(system, "unknown-type"), 1000u);
    EXPECT_TRUE(chassis.manager.running());
}
