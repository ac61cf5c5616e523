// Agents that register, and cards that go down.
#include "common/clients.h"
#include "tests/download/fixture.h"

namespace {

constexpr uint32_t CARD_5 = AGENT_CARD + 5;
constexpr char NOT_KNOWN[] =
    "syserr 0x5000b An aclAgent tried to register : Got an errorfrom zek_tmeGetPeerIpAddrByName";
constexpr char CP_NOT_KNOWN[] =
    "syserr 0x5000b AclAgent on CP tried to register : Got anerror from "
    "zek_tmeGetPeerIpAddrByName";

}  // namespace

struct Agents : DownloadTest {
    void SetUp() override {
        DownloadTest::SetUp();
        testHost.addresses[{62, 5}] = CARD_5;
        testHost.addresses[{100, 0}] = 0x7F010064;
    }
    bytes registration(uint32_t slot, uint32_t address, size_t size = 88, uint32_t subCode = 0) {
        bytes m = message(14403, size);
        put32(m, 16, subCode);
        put32(m, 36, slot);
        put32(m, 40, address);
        for (uint32_t i = 0; i < 6 && size == 88; i++) put32(m, 64 + 4 * i, i == 0 ? 1 : 10 + i);
        return m;
    }
    // Everything that the message set off, in order and in short.
    texts deliverAll(const bytes& m) {
        std::memcpy(received, m.data(), m.size());
        aclTakeMessage(aclNode, received, m.size());
        texts all;
        rows = testTakeRows();
        for (const testRow& row : rows) all.push_back(row.text.substr(0, row.text.find(" length")));
        return all;
    }
    std::vector<testRow> rows;
    static std::string answer(uint32_t type, uint32_t service = CLIENT_SERVICE) {
        return "send " + std::to_string(type) + " to " + std::to_string(service);
    }
    bool isDown(uint32_t slot) {
        const aclLinecard& card = aclLinecardInfo[slot];
        return card.isUp == 0 && card.aclAgent == ZEK_SWP_NONE && card.macAgent == ZEK_SWP_NONE &&
               card.agentIpAddr == ADDRESS_UNKNOWN;
    }
    std::string handle(zekSwpHandle h) { return std::to_string(h); }
};

TEST_F(Agents, ARegistrationFillsTheRecordAndIsFollowedByTheReplayInOrder) {
    aclNode->peer.ramDataSync = 1;
    uint32_t transId = aclMgrTransId;
    texts got = deliverAll(registration(5, CARD_5));
    const aclLinecard& card = aclLinecardInfo[5];
    ASSERT_GE(got.size(), 6u);
    got.resize(6);
    EXPECT_EQ(got, (texts{"swpqueue 62 slot 5 is " + handle(card.aclAgent),
                          "swpqueue 148 slot 5 is " + handle(card.macAgent), answer(14403),
                          "peer 14523 to 7809", "send 14408 to 12801",
                          "swp " + handle(card.aclAgent) + " 14413"}));
    EXPECT_EQ((std::array<uint32_t, 7>{card.isUp, card.isVortan, card.isIpv6Enabled, card.word5,
                                       card.v6EgAclSupported, card.type, card.agentIpAddr}),
              (std::array<uint32_t, 7>{1, 11, 12, 13, 14, 15, CARD_5}));

    bytes want = messageBytes(14408, 0, 0, {}, 0x7F010064, 12801);
    want.resize(64);
    put32(want, 8, 64);
    put32(want, 32, transId + 2);  // the peer's message had the number before
    put32(want, 60, 5);
    EXPECT_EQ(rows[4].bytes, want);
    EXPECT_EQ(rows[5].bytes, messageBytes(14413, 5, 0,
                                          headerBytes({.name = "Global Acl",
                                                       .count = 0,
                                                       .ifindex = 0x4C040000,
                                                       .option = 0,
                                                       .runCount = 0,
                                                       .block = 0})));
    // Again: the answer, and nothing else.
    EXPECT_EQ(deliverAll(registration(5, CARD_5)), texts{answer(14403)});
}

TEST_F(Agents, TheAddressIsAskedForThirtyTimesAFifthOfASecondApart) {
    testHost.addresses.erase({62, 5});
    testFail(TEST_ADDRESS, 1000, 1);
    EXPECT_EQ(deliverAll(registration(5, CARD_5)), texts{NOT_KNOWN});
    EXPECT_EQ(testUses(TEST_ADDRESS), 30u);
    EXPECT_EQ(testHost.ticks, 29u * 20);
    // Where addresses never change, one query says it all.
    testHost.addressesAreFixed = true;
    const uint64_t before = testUses(TEST_ADDRESS);
    EXPECT_EQ(deliverAll(registration(6, AGENT_CARD + 6)), texts{NOT_KNOWN});
    EXPECT_EQ(testUses(TEST_ADDRESS), before + 1);
    testHost.addressesAreFixed = false;
    // 0 is no address either; known at the last query is in time.
    testHost.addresses[{62, 5}] = 0;
    EXPECT_EQ(deliverAll(registration(5, 0)), texts{NOT_KNOWN});
    testHost.addresses[{62, 5}] = CARD_5;
    testFail(TEST_ADDRESS, 1, 29);
    (void)deliverAll(registration(5, CARD_5));
    EXPECT_EQ(aclLinecardInfo[5].isUp, 1u);
}

TEST_F(Agents, ARefusedRegistrationLeavesTheSlotDown) {
    const std::string aclQueue = "swpqueue 62 slot 5", macQueue = "swpqueue 148 slot 5";
    // Only the address that the chassis knows speaks for the slot.
    EXPECT_EQ(deliverAll(registration(5, CARD_5 + 1)), texts{NOT_KNOWN});
    EXPECT_TRUE(isDown(5));
    testFail(TEST_QUEUE, 1, 1);
    EXPECT_EQ(
        deliverAll(registration(5, CARD_5)),
        (texts{aclQueue + " failed", "syserr 0x50001 Unable to create SWP queue for ACL_AGENT"}));
    EXPECT_TRUE(isDown(5));
    testFail(TEST_QUEUE, 2, 1);
    const texts made = deliverAll(registration(5, CARD_5));
    ASSERT_EQ(made.size(), 4u);
    EXPECT_EQ(made[1], macQueue + " failed");
    EXPECT_EQ(made[2], "syserr 0x50001 Unable to create SWP queue for MAC_AGENT");
    EXPECT_TRUE(made[3].starts_with("swpremove "));
    EXPECT_TRUE(isDown(5));
    // Slots that there are not, and messages that end too early, of every length.
    for (uint32_t slot : {20u, 63u, 0xFFFFFFFFu})
        for (uint32_t subCode : {0u, 1129u})
            EXPECT_TRUE(deliverAll(registration(slot, CARD_5, 88, subCode)).empty());
    for (size_t size = 60; size < 88; size++)
        EXPECT_TRUE(deliverAll(registration(5, CARD_5, size)).empty());
    EXPECT_EQ(aclCounters.truncated, 28u);
    EXPECT_TRUE(isDown(5));
    (void)deliverAll(registration(5, CARD_5));
    EXPECT_FALSE(isDown(5));
}

TEST_F(Agents, AFlushEmptiesWhatWaitsForTheSlot) {
    const zekSwpHandle acl = aclLinecardInfo[3].aclAgent;
    ASSERT_EQ(iAclSwpQueueCreate(3, QUEUE_MAC_AGENT), 0);
    ASSERT_EQ(iAclSwpQueueCreate(5, QUEUE_MAC_AGENT), 0);  // slot 5 has no ACL agent
    const zekSwpHandle mac = aclLinecardInfo[3].macAgent, lone = aclLinecardInfo[5].macAgent;
    testTake();
    const std::string flush = "swpflush ";
    struct {
        uint32_t slot;
        std::set<zekSwpHandle> busy;
        texts effects;
    } const table[] = {
        {3, {}, {}},
        {3, {acl}, {flush + handle(acl)}},
        {3, {acl, mac}, {flush + handle(acl), flush + handle(mac)}},
        {3, {mac}, {flush + handle(mac)}},
        {5, {lone}, {}},
        {6, {}, {}},
    };
    for (const auto& row : table) {
        testHost.busyQueues = row.busy;
        EXPECT_EQ(deliverAll(registration(row.slot, CARD_5, 60, 1129)), row.effects);
    }
}

// An agent that takes marks: its replays begin and end with one, and each need brings one replay.
TEST_F(Agents, AReplayIsMarkedAndMadeOncePerNeed) {
    // What an agent's registration with this word sets off: "begin 7 to SERVICE" for a mark, else
    // the message id.
    auto sent = [this](bytes m, size_t at, uint32_t word) {
        put32(m, at, word);
        std::memcpy(received, m.data(), m.size());
        aclTakeMessage(aclNode, received, m.size());
        texts all;
        for (const bytes& out : enqueued()) {
            const uint32_t id = get32(out, 12);
            all.push_back(std::to_string(id));
            if (id != 30003) continue;
            EXPECT_EQ(out.size(), 144u);
            const char* const marks[] = {"?", "begin ", "end "};
            all.back() = marks[get32(out, 132) % 3] + std::to_string(get32(out, 140)) + " to " +
                         std::to_string(get32(out, 56));
        }
        return all;
    };
    auto card = [&](uint32_t word) { return sent(registration(5, CARD_5), 60, word); };
    const texts nothing;
    constexpr uint32_t marks = 1;
    const zekSwpHandle& queue = aclLinecardInfo[5].aclAgent;
    struct {
        const char* what;
        uint32_t word;
        texts wanted;
        bool lost = false;
    } const table[] = {
        {"needs one at its start", 8 << 1 | marks, {"begin 8 to 7957", "14413", "end 8 to 7957"}},
        {"names it again", 8 << 1 | marks, nothing},
        {"needs none", marks, nothing},
        {"needs another", 9 << 1 | marks, {"begin 9 to 7957", "14413", "end 9 to 7957"}},
        {"has lost something", marks, {"begin 9 to 7957", "14413", "end 9 to 7957"}, true},
        {"takes no marks", 10 << 1, {"14413"}},
        {"knows nothing of replays", 0, nothing},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        if (row.lost) zekSwpQueueLose(queue);
        EXPECT_EQ(card(row.word), row.wanted);
        EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::inStep);
    }
    // Another card does not speak for the slot.
    EXPECT_EQ(sent(registration(5, CARD_5 + 1), 60, 11 << 1 | marks), nothing);

    testHost.addresses[{165, 0}] = OWN_CARD;
    for (const texts& wanted : {texts{"begin 5 to 21121", "end 5 to 21121"}, nothing})
        EXPECT_EQ(sent(message(14401, 68), 64, 5 << 1 | marks), wanted);

    // A replay that is lost on its way has no end.
    testFail(TEST_BLOCK, 2, 1);
    EXPECT_EQ(card(12 << 1 | marks), texts{"begin 12 to 7957"});
    EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::lost);
}

// Changes that are made while the role is elsewhere reach the cards when it is back.
TEST_F(Agents, ACardIsReplayedWhenThePrimaryRoleComesBack) {
    bytes m = registration(5, CARD_5);
    put32(m, 60, 1);
    (void)deliverAll(m);
    auto pass = [this] {
        aclLoopOnce(aclNode, 1, received);
        return sentTo();
    };
    EXPECT_TRUE(pass().empty());
    testHost.primary = false;
    EXPECT_TRUE(pass().empty());
    const madeList<aclEntry> made(1);
    EXPECT_EQ(aclSendToPlace({PORT_5_0, INTF_IN}, {14409, &made.list}), 0);
    EXPECT_TRUE(pass().empty());
    testHost.primary = true;
    texts sent = pass();
    std::erase_if(sent, [](const std::string& row) { return !row.ends_with(">5"); });
    EXPECT_EQ(sent, (texts{"30003>5", "14413>5", "30003>5"}));
    EXPECT_TRUE(pass().empty());
    // Gone and back between two passes, with a change that was not sent.
    testHost.primary = false;
    EXPECT_EQ(aclSendToPlace({VLAN_10, INTF_IN}, {14409, &made.list}), 0);
    testHost.primary = true;
    EXPECT_FALSE(pass().empty());
}

// Who registers gets its queue and the answer, and the same again; a task's address is known then.
TEST_F(Agents, TasksThatRegisterGetTheirQueues) {
    constexpr uint32_t address = 0x7F010055;
    for (auto key : {std::pair{18u, 0u}, {33u, 0u}, {87u, 0u}, {87u, 1u}, {87u, 2u}})
        testHost.addresses[key] = address;
    aclQueues& q = aclNode->queues;
    struct {
        uint32_t type, service, app, instance;
        const char* name;
        zekSwpHandle* handle;
        uint32_t* card = nullptr;
    } const table[] = {
        {14404, CLIENT_SERVICE, 148, 3, "MAC_AGENT", &aclLinecardInfo[3].macAgent},
        {14405, 2305, 18, 0, "SNMP", &q.aclSNMPqHandle, &q.snmptargetcard},
        {14406, 11137, 87, 0, "IPM", &q.aclIPMqHandle[0], &q.ipmtargetcard[0]},
        {14406, 11141, 87, 1, "IPM", &q.aclIPMqHandle[1], &q.ipmtargetcard[1]},
        {14406, 11145, 87, 2, "IPM", &q.aclIPMqHandle[2], &q.ipmtargetcard[2]},
        {14407, 4225, 33, 0, "SYSADMTSK", &q.aclSYSADMTSKqHandle, &q.sysadmtsktargetcard},
        {14552, 21249, 166, 0, "ACL2", &q.acl2qHandle},
    };
    auto ask = [this](uint32_t type, uint32_t slot, uint32_t service) {
        bytes m = message(type);
        put32(m, 36, slot);
        put32(m, 44, service);
        return deliverAll(m);
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.service);
        auto asked = [&] { return ask(row.type, 3, row.service); };
        const std::string queue =
            "swpqueue " + std::to_string(row.app) + " slot " + std::to_string(row.instance);
        const std::string told = answer(row.type, row.service);
        testFail(TEST_QUEUE, 1, 1);
        EXPECT_EQ(asked(), (texts{queue + " failed",
                                  std::string("syserr 0x50001 Unable to create SWP queue for ") +
                                      row.name}));
        EXPECT_TRUE(row.card == nullptr || *row.card == ADDRESS_UNKNOWN);
        const texts made = asked();
        EXPECT_EQ(made, (texts{queue + " is " + handle(*row.handle), told}));
        EXPECT_EQ(asked(), texts{told});
        EXPECT_EQ(testHost.replays[*row.handle], row.app == 148 ? 0 : 2) << "a session for each";
        EXPECT_TRUE(row.card == nullptr || *row.card == address);
    }
    EXPECT_EQ(aclNode->standing.acl2Registered, 1u);
    EXPECT_EQ(ask(14404, 20, CLIENT_SERVICE), texts{});
    for (uint32_t service : {11149u, 0xFFFFFFFFu}) EXPECT_EQ(ask(14406, 3, service), texts{});
}

TEST_F(Agents, ACardThatGoesDownIsForgottenAndMayRegisterAgain) {
    aclNode->peer.ramDataSync = 1;
    (void)deliverAll(registration(5, CARD_5));
    const aclLinecard& card = aclLinecardInfo[5];
    for (uint32_t event : {0xF0012u, 0xF0013u}) {
        zekSwpHandle acl = card.aclAgent, mac = card.macAgent;
        bytes down = message(2009, 72);
        put32(down, 64, event);
        put32(down, 68, 5);
        auto log = [](const std::string& slot) {
            return "log EvtHandler reported Line card " + slot + " as down \r\n";
        };
        EXPECT_EQ(deliverAll(down),
                  (texts{log("5"), "swpremove " + handle(acl), "swpremove " + handle(mac),
                         "peer 14523 to 7809", answer(2009)}));
        EXPECT_TRUE(isDown(5));
        for (int slot : {20, -1}) {
            put32(down, 68, static_cast<uint32_t>(slot));
            EXPECT_EQ(deliverAll(down), (texts{log(std::to_string(slot)), answer(2009)}));
        }
        EXPECT_GT(deliverAll(registration(5, CARD_5)).size(), 4u);
    }
}

TEST_F(Agents, TheControlProcessorsAgentGetsItsIngressListOnce) {
    auto ask = [&](uint32_t supported) {
        bytes m = message(14401, 64);
        put32(m, 60, supported);
        return deliverAll(m);
    };
    madeList<aclEntry> made(1);
    auto bind = [&](uint32_t direction, uint32_t permit, int fill) {
        auto* b = static_cast<aclBinding*>(clientAdd(
            &made.list, {CLIENT_INTERFACE, IFINDEX_CP_BIND, 0, direction}, sizeof(aclBinding)));
        b->implicitPermit = permit;
        std::memset(b->block.b, fill, sizeof b->block.b);
        aclIntfObtain(IFINDEX_CP_BIND, 0, nullptr)->lists[INTF_V4][direction] = &made.list;
    };
    bind(INTF_IN, 6, 0x2D);
    bind(INTF_OUT, 0, 0);

    EXPECT_EQ(ask(1), texts{CP_NOT_KNOWN});
    testHost.addresses[{165, 0}] = 0x7F0100C8;
    testFail(TEST_QUEUE, 1, 1);
    EXPECT_EQ(ask(1), (texts{"swpqueue 165 slot 0 failed",
                             "syserr 0x50001 Unable to create SWP queue for ACL0_AGENT"}));
    aclNode->chassis.supportAclOnCP = 0;
    const texts got = ask(9);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[1], answer(14401));
    EXPECT_EQ(rows[2].bytes,
              messageBytes(14409, 0, 0,
                           headerBytes({.ifindex = IFINDEX_CP_BIND, .option = 6, .block = 0x2D}) +
                               imageBytes(made.entries[0]),
                           0x7F0100C8, 21121));
    EXPECT_EQ(aclNode->chassis.supportAclOnCP, 9u);
    EXPECT_EQ(aclNode->standing.acl0Registered, 1u);
    EXPECT_EQ(ask(1), texts{answer(14401)});
    EXPECT_EQ(aclNode->chassis.supportAclOnCP, 9u);
    clientsFree(&made.list);
}

TEST_F(Agents, WithoutAMacManagerItIsNotTold) {
    testHost.addresses.erase({100, 0});
    EXPECT_EQ(aclSendLinecardInfoToMacMgr(3), -1);
    testHost.addresses[{100, 0}] = ADDRESS_UNKNOWN;
    EXPECT_EQ(aclSendLinecardInfoToMacMgr(3), -1);
    EXPECT_TRUE(testTake().empty());
}

TEST_F(Agents, TheDumpShowsTheCardsThatAreUp) {
    aclLinecard& card = aclLinecardInfo[4];
    card = {nullptr, 1, 2, 3, 99, 5, 6, ZEK_SWP_NONE, 8, 0x7F010104, 0xFFFFFFFF};
    aclLinecardInfo[0].isUp = aclLinecardInfo[3].isUp = 0;
    std::string text = aclDumpLinecardInfo();
    EXPECT_TRUE(text.starts_with("aclDumpLinecardInfo "));
    text.erase(0, text.find(' ', 20) + 1);
    char head[32];
    std::snprintf(head, sizeof head, "%p", static_cast<void*>(nullptr));
    EXPECT_EQ(text,
              "Dumping ACL_LINECARDDATA_INFO \r\n\r\nFor Linecard 4 : \r\n"
              "ACL_IFINDEX_IPADD_HEAD = " +
                  std::string(head) +
                  "\r\nisUp = 1\r\nisVortan = 2\r\nis IPv6 Enabled = 3\r\n"
                  "v6EgAclSupported = 5 \r\nacl_linecard_type = 6\r\nmac_agent = -1\r\n"
                  "acl_agent = 8\r\nagentIpAddr = 7f010104\r\nagent0IpAddr = ffffffff\r\n"
                  "-----------------------\r\n");
}
