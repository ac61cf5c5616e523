// Registrations as they come, and the walk that tells the clients of an access list.
#include "common/clientWait.h"
#include "include/clientMsg.h"
#include "ipacl/family.h"
#include "ipacl/zekipaccess.h"
#include "l2acl/zekl2acl.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"
#include "tests/task/fixture.h"

namespace {

const listName lan = listNameMake("lan");

// A kind of list by the type that registers its clients.
struct clientKindRow {
    uint32_t type;
    const char* name;
    const char* wrapper;
    bool endsAtFailure;  // who has no address keeps those behind it from being told
    int (*tell)();
};
const clientKindRow clientKinds[] = {
    {14442, "ip", "aclAddTask", true, [] { return aclTrigger(ipAccessListFind(lan)); }},
    {14444, "ipv6", "aclAddTask", true, [] { return aclTrigger(aclV6AccessListFind(lan)); }},
    {14456, "mac", "l2AclAddTask", true, [] { return l2AclTrigger(l2AccessListFind(lan)); }},
    {14446, "prefix", "prefixAddTask", true,
     [] { return prefixTrigger(ipPrefixListFind(lan, AF_IPV4), AF_IPV4); }},
    {14448, "prefix-v6", "prefixAddTask", true,
     [] { return prefixTrigger(ipPrefixListFind(lan, AF_IPV6), AF_IPV6); }},
    {14450, "as-path", "aspAddTask", false,
     [] { return aspTrigger(bgpASPAccessListFind(lan), 1); }},
    {14452, "community", "commAddTask", false,
     [] { return aspTrigger(bgpCommAccessListFind(lan), 2); }},
    {14454, "route-map", "rmapAddTask", true, [] { return rmapTrigger(ipRmapListFind(lan)); }},
};

struct ClientMessages : TaskTest {
    void SetUp() override {
        TaskTest::SetUp();
        for (auto app : {APP_OSPF, APP_IGMP, APP_DSMGR, APP_RTM})
            testHost.addresses[{app, 0}] = OWN_CARD;
        testHost.addresses[{190, 1}] = OWN_CARD;
    }
    // Word 16 of the one answer, which is the request with its triples exchanged.
    uint32_t change(uint32_t type, uint32_t app, uint32_t instance = 0, uint32_t pairs = 0,
                    size_t length = sizeof(clientRegReq)) {
        auto bytes = message(type, std::max(length, sizeof(clientRegReq)));
        auto& request = as<clientRegReq>(bytes);
        request.ipc.length = static_cast<uint32_t>(length);
        request.pairCount = pairs;
        request.application = app;
        request.instance = instance;
        request.name = lan;
        bytes.resize(length);
        auto sent = deliver(bytes);
        if (sent.size() != 1 || sent[0].size() != bytes.size()) return 0xDEAD;
        EXPECT_EQ(uint32_t{as<ipcHdr>(sent[0]).source.svce}, CLIENT_SERVICE);
        return as<ipcHdr>(sent[0]).result;
    }
};

}  // namespace

// From the first registration to the last that is taken back. Those behind a client without an
// address are not told by some kinds, and the log says it once.
TEST_F(ClientMessages, RegisterAreToldAndGoInEveryKindOfList) {
    DEBUG_ACL_MGR = DEBUG_ACL_TRIGGER;
    for (const auto& kind : clientKinds) {
        SCOPED_TRACE(kind.name);
        clientStatesForget();
        for (uint32_t app : {APP_RTM, APP_ISIS, APP_DSMGR}) {  // told in the other order
            EXPECT_EQ(change(kind.type, app), 0u);
            EXPECT_TRUE(said(kind.wrapper + std::string("ClientExt: add client ") +
                             aclClientName(app) + "\n"));
        }
        for (bool again : {false, true}) {
            testTake();
            (void)kind.tell();
            effects = testTake();
            EXPECT_TRUE(said("swp 2 "));
            EXPECT_EQ(said("swp 1 "), !kind.endsAtFailure);
            EXPECT_EQ(said("log Client ISIS (task 72 instance 0) of list lan has no address"),
                      kind.endsAtFailure && !again);
        }
        const std::string front =
            "{\"kind\":\"" + std::string(kind.name) + R"(","list":"lan","task":)";
        const std::string muted = front + R"(80,"instance":0,"name":"RTM","address":"127.1.0.1",)" +
                                  R"("told":")" +
                                  (kind.endsAtFailure ? "no: one that reg" : "by its queue");
        const std::string unknown = front + R"(72,"instance":0,"name":"ISIS","address":"unknown",)"
                                            R"("told":"no: it has no address","triggers":0)";
        for (const std::string& row : {muted, unknown})
            EXPECT_NE(debug("clients").find(row), std::string::npos) << debug("clients");
        for (uint32_t app : {APP_RTM, APP_ISIS, APP_DSMGR}) {
            EXPECT_EQ(change(kind.type + 1, app, 7), CLIENT_REG_FAILED);
            EXPECT_EQ(change(kind.type + 1, app), 0u);
            EXPECT_TRUE(said(": delete client " + std::string(aclClientName(app)) + "\n"));
        }
        EXPECT_EQ(debug("clients").find(front), std::string::npos);
    }
    EXPECT_EQ(ipAccessListFind(lan), nullptr);
    // Multicast tasks have wrappers of their own.
    for (auto [app, instance] : {std::pair(140u, 0u), {190u, 1u}})
        for (uint32_t type : {14442u, 14443u}) {
            EXPECT_EQ(change(type, app, instance), 0u);
            EXPECT_TRUE(said("TaskMcastClientExt: "));
        }
}

TEST_F(ClientMessages, APairCountThatLiesIsRefused) {
    struct {
        uint32_t pairs;
        size_t length;
        bool fits = false;
    } table[] = {{1, 228},
                 {1, 220 + 63},
                 {0xFFFFFFFF, 8192},
                 {0x04000000, 8192},
                 {1, 212},
                 {124, 220 + 123 * 64},
                 {0, 212, true},
                 {1, 220 + 64, true},
                 {124, 220 + 124 * 64, true}};
    uint64_t refused = 0;
    for (const auto& row : table) {
        SCOPED_TRACE(std::to_string(row.pairs) + " in " + std::to_string(row.length));
        EXPECT_EQ(change(14442, APP_OSPF, 0, row.pairs, row.length),
                  row.fits ? 0u : CLIENT_REG_FAILED);
        EXPECT_EQ(aclCounters.truncated, refused += !row.fits);
        EXPECT_EQ(ipAccessListFind(lan) != nullptr, row.fits);
    }
}

TEST_F(ClientMessages, ATriggerReachesTheTasksNewestFirstAndSaysWhatElseIsThere) {
    for (auto [app, instance] : {std::pair(80u, 0u), {94u, 0u}, {190u, 1u}})
        ASSERT_EQ(change(14442, app, instance), 0u);
    aclList* list = ipAccessListFind(lan);
    for (uint32_t kind : {uint32_t{CLIENT_INTERFACE}, uint32_t{CLIENT_VLAN_GROUP}, 9u})
        ASSERT_NE(clientAdd(list, {kind}, sizeof(aclBinding)), nullptr);
    DEBUG_ACL_MGR = DEBUG_ACL_TRIGGER;
    aclFamily other = ip4Family;  // a kind says how its lists are called and by what they are told
    other.name = "IPv6";
    other.triggerType = MT_V6_ACL_TRIGGER;
    for (auto [family, type] : {std::pair{&ip4Family, "14460"}, {&other, "14529"}}) {
        list->family = family;
        testTake();
        EXPECT_EQ(aclTrigger(list), 0);
        effects = testTake();
        EXPECT_TRUE(said("clients for " + std::string(family->name) + " ACL lan\n"));
        std::erase_if(effects, [](const auto& row) { return row.starts_with("debug"); });
        const std::string length = std::string(type) + " length 292";
        EXPECT_EQ(effects,
                  (std::vector<std::string>{
                      "syserr 0x50005 Error in ACL Trigger client type\n",
                      "send " + std::string(type) + " to 24325 length 292",
                      "syserr 0x50005 Error in task id for ACL client\n",  // 190 has no print name
                      "swp 2 " + length, "swp 1 " + length}));
    }
    list->family = &ip4Family;
    testHost.addresses.erase({APP_DSMGR, 0});
    EXPECT_EQ(aclTrigger(list), -1);
    EXPECT_EQ(testTake().back(), "syserr 0x50005 Error in sending Acl Trigger \n");
    EXPECT_EQ(aclTrigger(nullptr), 0);
}

// Whatever allocation fails, a registration that is refused leaves everything as it was: no list,
// no client, no pair. Access lists alone keep the list that was made for the client: it is meant.
TEST_F(ClientMessages, ARefusedRegistrationLeavesNothingBehind) {
    for (const auto& kind : clientKinds)
        for (testPoint point : {TEST_MEMORY, TEST_TREE, TEST_INSERT})
            for (bool exists : {false, true}) {
                SCOPED_TRACE(kind.name + std::to_string(point));
                auto changed = [&](bool adds, uint32_t app) {
                    return change(kind.type + (adds ? 0 : 1), app, 0, 2,
                                  CLIENT_PAIRS_AT + 2 * 64) == 0;
                };
                ASSERT_TRUE(!exists || changed(true, APP_RTM));
                bool done = false;
                uint32_t nth = 0;
                while (!done) {
                    const uint64_t blocks = testBlocksInUse();
                    testFail(point, ++nth, 1);
                    done = changed(true, APP_BGP);
                    testFailNothing();
                    // An access list that was made for the client stays: meant.
                    if (!done && !exists && (kind.type < 14446 || kind.type == 14456)) {
                        EXPECT_TRUE(changed(true, APP_BGP));
                        EXPECT_TRUE(changed(false, APP_BGP));
                    }
                    EXPECT_TRUE(!done || changed(false, APP_BGP));
                    EXPECT_EQ(testBlocksInUse(), blocks) << nth;
                }
                EXPECT_TRUE(nth > 1 || point != TEST_MEMORY);
                EXPECT_TRUE(!exists || changed(false, APP_RTM));
            }
}
