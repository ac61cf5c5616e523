// chassis.json: what is read from it, and that every mistake is told with its line.
#include "platform/api/zekChassis.h"

#include <algorithm>
#include <fstream>
#include <random>

#include "tests/platform/hostTest.h"

namespace {

std::string exampleFile() {
    return ACL_SOURCE_DIR "/examples/chassis.json";
}

class chassisFile : public testing::Test {
  protected:
    runFolder run;
    std::string file = run.path + "/chassis.json";
    chassisDescription chassis;
    std::string error;
    bool load(const std::string& text) {
        std::ofstream(file) << text;
        return zekChassisLoad(file, &chassis, &error);
    }
};

TEST_F(chassisFile, InterfaceNamesHaveIndexesThatLeadBack) {
    ASSERT_TRUE(zekChassisLoad(exampleFile(), &chassis, &error)) << error;
    EXPECT_EQ(chassisAddress(chassis, APP_IFM, 1), ADDRESS_UNKNOWN);
    for (uint32_t slot : {0u, 3u, 20u, ~0u})
        EXPECT_EQ(chassisAddress(chassis, APP_ACL_AGENT, slot), ADDRESS_UNKNOWN);
    const std::tuple<const char*, uint32_t, int> rows[] = {
        {"1/0", IF_TYPE_PORT, 1},
        {"2/3", IF_TYPE_PORT, 2},
        {"port-channel 1", IF_TYPE_LAG, SLOT_NONE},
        {"vlan 20", IF_TYPE_VLAN, SLOT_NONE},
        {"control-plane", IF_TYPE_CP, 0},
    };
    uint32_t ifindex = 0;
    for (const auto& [name, type, slot] : rows) {
        ASSERT_TRUE(chassisIfIndex(chassis, name, &ifindex)) << name;
        EXPECT_EQ(ifindexType(ifindex), type) << name;
        EXPECT_EQ(ifindexSlot(ifindex), slot) << name;
        EXPECT_EQ(chassisIfName(chassis, ifindex), name);
    }
    // By its index whatever there is.
    for (const char* name : {"0x10040001", "0x0004000a"}) {
        ASSERT_TRUE(chassisIfIndex(chassis, name, &ifindex));
        EXPECT_EQ(chassisIndexText(ifindex), name);
    }
    for (const char* name : {"", "3/0", "vlan 30", "vlan  10", "vlan", "port-channel 01", "1/0 ",
                             "0x1004000", "0x1004000g", "1004000112", "0x100400012"})
        EXPECT_FALSE(chassisIfIndex(chassis, name, &ifindex)) << name;
    for (uint32_t unknown : {0u, 1u, 19u, 0xFFFFFFFFu, ifindexMake(IF_TYPE_VLAN, 30), 0x04000000u})
        EXPECT_EQ(chassisIfName(chassis, unknown), "") << unknown;
}

TEST_F(chassisFile, MistakesAreToldWithTheirLine) {
    // Written with ' for "; what begins with a comma goes on behind a good description.
    const std::string good =
        "{'chassisMode': 1,\n'routeProcessorType': 4,\n"
        "'routeProcessors': [{'address': '127.1.0.1', 'primary': true}]";
    const std::string card = ",\n'cards': [{'slot': 1, 'address': '127.1.1.1', 'type': 2,\n";
    const std::string port = "{'name': '1/0', 'userPort': 0, 'port': 0, 'pipe': 0}";
    const std::string processors =
        "{'chassisMode': 1, 'routeProcessorType': 4,\n'routeProcessors': [";
    auto written = [&good](std::string text) {
        if (text.starts_with(",")) text = good + text;
        std::ranges::replace(text, '\'', '"');
        return text;
    };
    const struct {
        std::string text;
        uint32_t line;
        const char* says;
    } rows[] = {
        {"", 1, "ends too early"},
        {"{\n'a': 1,\n  oops}", 3, "here: \"o\""},
        {good + "}\nx", 4, "not JSON"},
        {"[]", 1, "must be an object"},
        {",\n\n'colour': 1}", 5, "\"colour\""},
        {",\n'chassisMode': 2}", 4, "given twice"},
        {"{\n'chassisMode': 1, 'routeProcessorType': 4}", 1, "needs \"routeProcessors\""},
        {"{\n'chassisMode':\n '1'\n}", 2, "must be a number"},
        {"{\n'chassisMode': 18446744073709551615\n}", 2, "from 0 to 255"},
        {"{\n'chassisMode': -1\n}", 2, "from 0 to 255"},
        {"{\n'chassisMode': 1.5\n}", 2, "must be a number"},
        {card + "\n'ipv4': true}]}", 6, "a card has no \"ipv4\""},
        {",\n'cards': [\n{'slot': 20}]}", 5, "from 0 to 19"},
        {",\n'cards': [\n\n{'slot': 1}]}", 6, "needs \"address\""},
        {card + "'ports': []}, \n{'slot': 1, 'address': '127.1.1.2', 'type': 2}]}", 6,
         "slot 1 is described twice"},
        {card + "'ports': [" + port + ",\n" + port + "]}]}", 6, "port 1/0 is described twice"},
        {card + "'ports': [{'name': '1 0'}]}]}", 5, "is not a name"},
        {",\n'tasks': [{'application': 80,\n'address': '127.1.0'}]}", 5,
         "\"127.1.0\" is not an address"},
        {",\n'tasks': [{'application': 80,\n'address': '255.255.255.255'}]}", 5,
         "is not an address"},
        {",\n'vlans': [{'id': 1},\n{'id': 4095}]}", 5, "from 1 to 4094"},
        {processors + "{'address': '127.1.0.1'}]}", 1, "exactly one"},
        {processors + "\n{'address': '127.1.0.1', 'primary': true},\n"
                      "{'address': '127.1.0.2'}, {'address': '127.1.0.3'}]}",
         4, "at most two"},
    };
    ASSERT_TRUE(load(written(good + "}"))) << error;
    for (const auto& r : rows) {
        SCOPED_TRACE(r.text);
        EXPECT_FALSE(load(written(r.text)));
        EXPECT_TRUE(error.starts_with(file + ":" + std::to_string(r.line) + ": ")) << error;
        EXPECT_NE(error.find(r.says), std::string::npos) << error;
    }
    EXPECT_FALSE(zekChassisLoad(run.path + "/absent", &chassis, &error));
    EXPECT_NE(error.find("cannot be read"), std::string::npos);
}

TEST_F(chassisFile, DamagedTextIsRefusedOrReadButNeverTrusted) {
    const std::string whole = contentOf(exampleFile());
    size_t end = whole.rfind('}');
    for (size_t n = 0; n < end; n += 7) EXPECT_FALSE(load(whole.substr(0, n))) << n;
    std::mt19937 random(1);
    for (int i = 0; i < 500; i++) {
        std::string text = whole;
        for (int k = 0; k < 3; k++)
            text[random() % text.size()] = "\"{}[],:0a\n\xff"[random() % 11];
        EXPECT_TRUE(load(text) || error.starts_with(file + ":")) << error;
    }
    // Nesting without end must not use up the stack.
    EXPECT_FALSE(load(std::string(200000, '[')));
}

TEST(address, TextsAndNumbers) {
    uint32_t address = 7;
    for (const char* bad :
         {"256.0.0.1", "1.2.3", "1.2.3.4.", "1.2.3.4 ", "1..2.3", "0001.2.3.4", "", "-1.2.3.4"})
        EXPECT_FALSE(addressParse(bad, &address)) << bad;
    EXPECT_EQ(address, 7u);
    for (const char* good : {"0.0.0.0", "127.1.0.1", "255.255.255.255"}) {
        EXPECT_TRUE(addressParse(good, &address));
        EXPECT_EQ(addressText(address), good);
    }
}

}  // namespace
