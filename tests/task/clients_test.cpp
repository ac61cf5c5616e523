// Registrations as they come, and the walk that tells the clients of an access list.
#include "common/clientWait.h"
#include "include/clientMsg.h"
#include "ipacl/family.h"
#include "ipacl/zekipaccess.h"
#include "policy/prefix/zekprefixlist.h"
#include "policy/rmap/zekroutemap.h"
#include "tests/task/fixture.h"

namespace {

const listName lan = listNameMake("lan");

struct ClientMessages : TaskTest {
    void SetUp() override {
        TaskTest::SetUp();
        for (auto app : {APP_OSPF, APP_IGMP, APP_DSMGR, APP_RTM})
            testHost.addresses[{app, 0}] = OWN_CARD;
        testHost.addresses[{190, 1}] = OWN_CARD;
    }
    void TearDown() override {
        if (aclList* list = ipAccessListFind(lan)) clientsFree(list);
        TaskTest::TearDown();
    }
    std::vector<uint8_t> registration(uint32_t type, uint32_t app, uint32_t instance = 0,
                                      uint32_t pairs = 0, size_t length = sizeof(clientRegReq)) {
        auto bytes = message(type, length);
        auto* request = reinterpret_cast<clientRegReq*>(bytes.data());
        request->pairCount = pairs;
        request->application = app;
        request->instance = instance;
        request->name = lan;
        return bytes;
    }
    // Word 16 of the one answer, which is the request with its triples exchanged.
    uint32_t result(const std::vector<uint8_t>& bytes) {
        auto sent = deliver(bytes);
        if (sent.size() != 1 || sent[0].size() != bytes.size()) return 0xDEAD;
        const auto* hdr = reinterpret_cast<const ipcHdr*>(sent[0].data());
        EXPECT_EQ(uint32_t{hdr->source.svce}, CLIENT_SERVICE);
        return hdr->result;
    }
};

}  // namespace

TEST_F(ClientMessages, RegisterAndUnregisterThroughTheWrapperOfTheirKind) {
    DEBUG_ACL_MGR = DEBUG_ACL_TRIGGER;
    struct {
        uint32_t type, app, instance, result;
        const char* said;
    } table[] = {
        {14442, 64, 0, 0, "aclAddTaskClientExt: add client OSPF"},
        {14442, 140, 0, 0, "aclAddTaskMcastClientExt: add client IGMP"},
        {14442, 190, 1, 0, "aclAddTaskMcastClientExt: add client Unknown task"},
        {14443, 64, 7, CLIENT_REG_FAILED, "aclDelTaskClientExt: delete client OSPF"},
        {14443, 190, 0, CLIENT_REG_FAILED, "aclDelTaskMcastClientExt: delete client Unknown task"},
        {14443, 190, 1, 0, "aclDelTaskMcastClientExt: delete client Unknown task"},
        {14443, 140, 0, 0, "aclDelTaskMcastClientExt: delete client IGMP"},
        {14443, 64, 0, 0, "aclDelTaskClientExt: delete client OSPF"},
        {14443, 64, 0, 0, "aclDelTaskClientExt: delete client OSPF"},  // the list is gone
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.said);
        EXPECT_EQ(result(registration(row.type, row.app, row.instance)), row.result);
        EXPECT_TRUE(said(row.said));
    }
    EXPECT_EQ(ipAccessListFind(lan), nullptr);
    // Every kind answers, built or not; a list of another kind is never touched.
    for (uint32_t type = 14444; type <= 14457; type++) {
        uint32_t got = result(registration(type, APP_BGP));
        EXPECT_TRUE(got == 0 || got == CLIENT_REG_FAILED) << type;
        EXPECT_EQ(ipAccessListFind(lan), nullptr);
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
        EXPECT_EQ(result(registration(14442, APP_OSPF, 0, row.pairs, row.length)),
                  row.fits ? 0u : CLIENT_REG_FAILED);
        EXPECT_EQ(aclCounters.truncated, refused += !row.fits);
        EXPECT_EQ(ipAccessListFind(lan) != nullptr, row.fits);
    }
}

TEST_F(ClientMessages, ATriggerReachesTheTasksAndStopsAtTheFirstThatCannotBeSent) {
    for (auto [app, instance] : {std::pair(80u, 0u), {94u, 0u}, {190u, 1u}})
        ASSERT_EQ(result(registration(14442, app, instance)), 0u);
    uint32_t status = 0;
    aclList* list = ipAccessListCreate(lan, IP_KIND_STANDARD, 1, &status);
    for (uint32_t kind : {uint32_t{CLIENT_INTERFACE}, uint32_t{CLIENT_VLAN_GROUP}, 9u})
        ASSERT_NE(clientAdd(list, {kind}, sizeof(aclBinding)), nullptr);
    testTake();
    EXPECT_EQ(aclTrigger(nullptr), 0);
    EXPECT_EQ(aclTrigger(list), 0);
    // Newest first; 190 does not answer and has no print name.
    EXPECT_EQ(testTake(),
              (std::vector<std::string>{"syserr 0x50005 Error in ACL Trigger client type\n",
                                        "send 14460 to 24325 length 292",
                                        "syserr 0x50005 Error in task id for ACL client\n",
                                        "swp 2 14460 length 292", "swp 1 14460 length 292"}));
    DEBUG_ACL_MGR = DEBUG_ACL_TRIGGER;
    testHost.addresses.erase({APP_DSMGR, 0});
    aclFamily other = ip4Family;  // a kind says how its lists are called and by what they are told
    other.name = "IPv6";
    other.triggerType = 14529;
    list->family = &other;
    EXPECT_EQ(aclTrigger(list), -1);
    list->family = &ip4Family;
    auto rows = testTakeRows();
    ASSERT_GE(rows.size(), 2u);
    EXPECT_NE(rows[0].text.find("clients for IPv6 ACL lan\n"), std::string::npos);
    EXPECT_EQ(rows.back().text, "syserr 0x50005 Error in sending Acl Trigger \n");
    EXPECT_TRUE(std::ranges::none_of(
        rows, [](const testRow& row) { return row.text.starts_with("swp 1 "); }));
    EXPECT_TRUE(std::ranges::any_of(
        rows, [](const testRow& row) { return row.text == "send 14529 to 24325 length 292"; }));
}

// Access lists, prefix lists and route maps leave those behind a client without an address alone,
// and the log says it once; AS-path and community lists go on to the next.
TEST_F(ClientMessages, OneWithoutAnAddressEndsTheWalkOfSomeKindsOnly) {
    struct {
        uint32_t type;
        const char* kind;
        bool goesOn;
        std::function<void()> change;
    } table[] = {
        {14442, "ip", false, [] { (void)aclTrigger(ipAccessListFind(lan)); }},
        {14446, "prefix", false,
         [] { (void)prefixTrigger(ipPrefixListFind(lan, AF_IPV4), AF_IPV4); }},
        {14454, "route-map", false, [] { (void)rmapTrigger(ipRmapListFind(lan)); }},
        {14450, "as-path", true, [] { (void)aspTrigger(bgpASPAccessListFind(lan), 1); }},
        {14452, "community", true, [] { (void)aspTrigger(bgpCommAccessListFind(lan), 2); }},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.kind);
        clientStatesForget();
        for (uint32_t app : {APP_RTM, APP_ISIS, APP_DSMGR})  // told in the other order
            ASSERT_EQ(result(registration(row.type, app)), 0u);
        std::vector<std::string> said;
        for (int i = 0; i < 2; i++) {
            row.change();
            for (std::string& text : testTake()) said.push_back(std::move(text));
        }
        auto count = [&](const std::string& front) {
            return std::ranges::count_if(
                said, [&](const std::string& text) { return text.starts_with(front); });
        };
        EXPECT_EQ(count("swp 2 "), 2);
        EXPECT_EQ(count("swp 1 "), row.goesOn ? 2 : 0);
        EXPECT_EQ(count("log Client ISIS (task 72 instance 0) of list lan has no address"),
                  row.goesOn ? 0 : 1);
        std::string dump;
        ASSERT_TRUE(zekDebugRun("clients", "", &dump));
        const std::string front = "{\"kind\":\"" + std::string(row.kind) + "\",\"list\":\"lan\",";
        const std::string muted = front +
                                  R"("task":80,"instance":0,"name":"RTM",)"
                                  R"("address":"127.1.0.1","told":")" +
                                  (row.goesOn ? "by its queue" : "no: one that registered later");
        EXPECT_NE(dump.find(muted), std::string::npos) << dump;
        EXPECT_NE(dump.find(front + R"("task":72,"instance":0,"name":"ISIS","address":"unknown",)"
                                    R"("told":"no: it has no address","triggers":0)"),
                  std::string::npos)
            << dump;
        for (uint32_t app : {APP_RTM, APP_ISIS, APP_DSMGR})
            ASSERT_EQ(result(registration(row.type + 1, app)), 0u);
    }
}

// Whatever allocation fails, a registration that is refused leaves everything as it was: no list,
// no client, no pair. Access lists alone keep the list that was made for the client: it is meant.
TEST_F(ClientMessages, ARefusedRegistrationLeavesNothingBehind) {
    constexpr size_t withPairs = CLIENT_PAIRS_AT + 2 * sizeof(clientRegPair);
    for (uint32_t type : {14442u, 14446u, 14448u, 14450u, 14452u, 14454u})
        for (testPoint point : {TEST_MEMORY, TEST_TREE, TEST_INSERT})
            for (bool exists : {false, true}) {
                SCOPED_TRACE(std::to_string(type) + " " + std::to_string(point));
                auto change = [&](uint32_t how, uint32_t app) {
                    return result(registration(type + how, app, 0, 2, withPairs));
                };
                if (exists) {
                    ASSERT_EQ(change(0, APP_RTM), 0u);
                }
                uint32_t refused = 0;
                for (uint32_t nth = 1;; nth++) {
                    const uint64_t blocks = testBlocksInUse();
                    testFail(point, nth, 1);
                    const uint32_t status = change(0, APP_BGP);
                    testFailNothing();
                    if (status == 0) {
                        EXPECT_EQ(change(1, APP_BGP), 0u);
                    }
                    if (type == 14442 && !exists && status != 0) {
                        EXPECT_EQ(change(0, APP_BGP), 0u);
                        EXPECT_EQ(change(1, APP_BGP), 0u);
                    }
                    EXPECT_EQ(testBlocksInUse(), blocks) << nth;
                    if (status == 0) break;
                    refused++;
                }
                EXPECT_TRUE(refused > 0 || point != TEST_MEMORY);
                if (exists) {
                    EXPECT_EQ(change(1, APP_RTM), 0u);
                }
            }
}
