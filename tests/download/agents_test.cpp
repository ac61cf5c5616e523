// Agents that register, and cards that go down.
#include "ipacl/store.h"
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
        texts rows;
        for (testRow& row : testTakeRows())
            rows.push_back(row.text.substr(0, row.text.find(" length")));
        return rows;
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
    bytes request = registration(5, CARD_5);
    std::memcpy(received, request.data(), request.size());
    aclTakeMessage(aclNode, received, request.size());
    std::vector<testRow> rows = testTakeRows();
    const aclLinecard& card = aclLinecardInfo[5];
    texts got;
    for (const testRow& row : rows) got.push_back(row.text.substr(0, row.text.find(" length")));
    ASSERT_GE(got.size(), 6u);
    EXPECT_EQ(texts(got.begin(), got.begin() + 6),
              (texts{"swpqueue 62 slot 5 is " + handle(card.aclAgent),
                     "swpqueue 148 slot 5 is " + handle(card.macAgent),
                     "send 14403 to " + std::to_string(CLIENT_SERVICE), "peer 14523 to 7809",
                     "send 14408 to 12801", "swp " + handle(card.aclAgent) + " 14413"}));
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
                                                       .runCount = 0,
                                                       .blockFill = 0})));

    // Again: the answer, and nothing else.
    EXPECT_EQ(deliverAll(registration(5, CARD_5)),
              texts{"send 14403 to " + std::to_string(CLIENT_SERVICE)});
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
    texts rows = deliverAll(registration(5, CARD_5));
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[1], macQueue + " failed");
    EXPECT_EQ(rows[2], "syserr 0x50001 Unable to create SWP queue for MAC_AGENT");
    EXPECT_TRUE(rows[3].starts_with("swpremove "));
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
    } const rows[] = {
        {3, {}, {}},
        {3, {acl}, {flush + handle(acl)}},
        {3, {mac}, {flush + handle(mac)}},
        {3, {acl, mac}, {flush + handle(acl), flush + handle(mac)}},
        {5, {lone}, {}},
        {6, {}, {}},
    };
    for (const auto& row : rows) {
        testHost.busyQueues = row.busy;
        EXPECT_EQ(deliverAll(registration(row.slot, CARD_5, 60, 1129)), row.effects);
    }
}

// An agent that takes marks: its replays begin and end with one, and each need brings one replay.
TEST_F(Agents, AReplayIsMarkedAndMadeOncePerNeed) {
    // "begin 7 need 3" for a mark, else the message id.
    auto sent = [this](const bytes& m) {
        std::memcpy(received, m.data(), m.size());
        aclTakeMessage(aclNode, received, m.size());
        texts rows;
        for (const bytes& out : enqueued()) {
            const uint32_t id = get32(out, 12);
            rows.push_back(std::to_string(id));
            if (id != 30003) continue;
            EXPECT_EQ(out.size(), 144u);
            const char* const marks[] = {"?", "begin", "end"};
            rows.back() = std::string(marks[get32(out, 132) % 3]) + " need " +
                          std::to_string(get32(out, 140)) + " to " + std::to_string(get32(out, 56));
        }
        return rows;
    };
    auto replay = [](const std::string& need, const std::string& to, const texts& between) {
        texts rows{"begin need " + need + " to " + to};
        rows.insert(rows.end(), between.begin(), between.end());
        rows.push_back("end need " + need + " to " + to);
        return rows;
    };
    const texts nothing, card{"14413"};
    constexpr uint32_t marks = 1;
    const zekSwpHandle& queue = aclLinecardInfo[5].aclAgent;
    struct {
        const char* what;
        uint32_t word;
        texts wanted;
        bool lost = false;
    } const rows[] = {
        {"needs one at its start", 8 << 1 | marks, replay("8", "7957", card)},
        {"names it again", 8 << 1 | marks, nothing},
        {"needs none", marks, nothing},
        {"needs another", 9 << 1 | marks, replay("9", "7957", card)},
        {"is there, and has lost something", marks, replay("9", "7957", card), true},
        {"takes no marks", 10 << 1, card},
        {"knows nothing of replays", 0, nothing},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        bytes m = registration(5, CARD_5);
        put32(m, 60, row.word);
        if (row.lost) zekSwpQueueLose(queue);
        EXPECT_EQ(sent(m), row.wanted);
        EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::inStep);
    }
    // Another card does not speak for the slot.
    bytes stranger = registration(5, CARD_5 + 1);
    put32(stranger, 60, 11 << 1 | marks);
    EXPECT_EQ(sent(stranger), nothing);

    testHost.addresses[{165, 0}] = OWN_CARD;
    bytes cp = message(14401, 68);
    put32(cp, 64, 5 << 1 | marks);
    EXPECT_EQ(sent(cp), replay("5", "21121", {}));
    EXPECT_EQ(sent(cp), nothing);
    put32(cp, 64, 6 << 1 | marks);
    EXPECT_EQ(sent(cp), replay("6", "21121", {}));

    // A replay that is lost on its way has no end.
    bytes m = registration(5, CARD_5);
    put32(m, 60, 12 << 1 | marks);
    testFail(TEST_BLOCK, 2, 1);
    EXPECT_EQ(sent(m), texts{"begin need 12 to 7957"});
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
    ipList made("edge", 1);
    EXPECT_EQ(aclSendToAclAgent(&made.list, PORT_5_0, 1, 14409, 0, 0, 0), 0);
    EXPECT_TRUE(pass().empty());
    testHost.primary = true;
    texts rows = pass();
    std::erase_if(rows, [](const std::string& row) { return !row.ends_with(">5"); });
    EXPECT_EQ(rows, (texts{"30003>5", "14413>5", "30003>5"}));
    EXPECT_TRUE(pass().empty());
    // Gone and back between two passes, with a change that was not sent.
    testHost.primary = false;
    EXPECT_EQ(aclSendVlanAclToAclAgent(&made.list, VLAN_10, 1, 14409, 0, 0), 0);
    testHost.primary = true;
    EXPECT_FALSE(pass().empty());
}

// Who registers gets its queue and the answer, and the same again; a task's address is known then.
TEST_F(Agents, TasksThatRegisterGetTheirQueues) {
    constexpr uint32_t address = 0x7F010055;
    for (auto key : {std::pair{18u, 0u}, {33u, 0u}, {87u, 0u}, {87u, 1u}, {87u, 2u}})
        testHost.addresses[key] = address;
    struct {
        uint32_t type, service, app, instance;
        const char* name;
        zekSwpHandle* handle;
        uint32_t* card = nullptr;
    } const rows[] = {
        {14404, CLIENT_SERVICE, 148, 3, "MAC_AGENT", &aclLinecardInfo[3].macAgent},
        {14405, 2305, 18, 0, "SNMP", &aclNode->queues.aclSNMPqHandle,
         &aclNode->queues.snmptargetcard},
        {14406, 11137, 87, 0, "IPM", &aclNode->queues.aclIPMqHandle[0],
         &aclNode->queues.ipmtargetcard[0]},
        {14406, 11137 + 4, 87, 1, "IPM", &aclNode->queues.aclIPMqHandle[1],
         &aclNode->queues.ipmtargetcard[1]},
        {14406, 11137 + 8, 87, 2, "IPM", &aclNode->queues.aclIPMqHandle[2],
         &aclNode->queues.ipmtargetcard[2]},
        {14407, 4225, 33, 0, "SYSADMTSK", &aclNode->queues.aclSYSADMTSKqHandle,
         &aclNode->queues.sysadmtsktargetcard},
        {14552, 21249, 166, 0, "ACL2", &aclNode->queues.acl2qHandle},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.service);
        bytes ask = message(row.type);
        put32(ask, 36, 3);
        put32(ask, 44, row.service);
        const std::string queue =
            "swpqueue " + std::to_string(row.app) + " slot " + std::to_string(row.instance);
        const std::string answer =
            "send " + std::to_string(row.type) + " to " + std::to_string(row.service);
        testFail(TEST_QUEUE, 1, 1);
        EXPECT_EQ(
            deliverAll(ask),
            (texts{queue + " failed",
                   std::string("syserr 0x50001 Unable to create SWP queue for ") + row.name}));
        EXPECT_TRUE(row.card == nullptr || *row.card == ADDRESS_UNKNOWN);
        const texts made = deliverAll(ask);
        EXPECT_EQ(made, (texts{queue + " is " + handle(*row.handle), answer}));
        EXPECT_EQ(deliverAll(ask), texts{answer});
        EXPECT_EQ(testHost.replays[*row.handle], row.app == 148 ? 0 : 2) << "a session for each";
        EXPECT_TRUE(row.card == nullptr || *row.card == address);
    }
    EXPECT_EQ(aclNode->standing.acl2Registered, 1u);
    for (auto [type, slot, service] : {std::tuple{14404u, 20u, CLIENT_SERVICE},
                                       {14406u, 3u, 11137u + 12},
                                       {14406u, 3u, 0xFFFFFFFFu}}) {
        bytes nobody = message(type);
        put32(nobody, 36, slot);
        put32(nobody, 44, service);
        EXPECT_TRUE(deliverAll(nobody).empty());
    }
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
        const std::string answer = "send 2009 to " + std::to_string(CLIENT_SERVICE);
        EXPECT_EQ(deliverAll(down), (texts{"log EvtHandler reported Line card 5 as down \r\n",
                                           "swpremove " + handle(acl), "swpremove " + handle(mac),
                                           "peer 14523 to 7809", answer}));
        EXPECT_TRUE(isDown(5));
        for (const char* slot : {"20", "-1"}) {
            put32(down, 68, static_cast<uint32_t>(atoi(slot)));
            EXPECT_EQ(deliverAll(down), (texts{std::string("log EvtHandler reported Line card ") +
                                                   slot + " as down \r\n",
                                               answer}));
        }
        EXPECT_GT(deliverAll(registration(5, CARD_5)).size(), 4u);
    }
}

TEST_F(Agents, TheControlProcessorsAgentGetsItsListOnce) {
    auto ask = [&](uint32_t supported) {
        bytes m = message(14401, 64);
        put32(m, 60, supported);
        return deliverAll(m);
    };
    const std::string answer = "send 14401 to " + std::to_string(CLIENT_SERVICE);
    ipList made("protect", 1);
    aclBinding* bound = aclBindingAdd(&made.list, {CLIENT_INTERFACE, 0x42068000});
    bound->implicitPermit = 6;
    std::memset(bound->block.b, 0x2D, sizeof bound->block.b);
    (void)aclBindingAdd(&made.list, {CLIENT_INTERFACE, 0x42068000, 0, 1});
    (void)aclBindingAdd(&made.list, {CLIENT_INTERFACE, PORT_3_1});
    aclIntfObtain(0x42068000, 0, nullptr)->lists[INTF_V4][INTF_IN] = &made.list;

    EXPECT_EQ(ask(1), texts{CP_NOT_KNOWN});
    testHost.addresses[{165, 0}] = 0x7F0100C8;
    testFail(TEST_QUEUE, 1, 1);
    EXPECT_EQ(ask(1), (texts{"swpqueue 165 slot 0 failed",
                             "syserr 0x50001 Unable to create SWP queue for ACL0_AGENT"}));
    aclNode->chassis.supportAclOnCP = 0;
    texts rows = ask(9);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[1], answer);
    EXPECT_EQ(rows[2], "swp " + handle(aclNode->queues.acl0qHandle) + " 14409");
    EXPECT_EQ(aclNode->chassis.supportAclOnCP, 9u);
    EXPECT_EQ(aclNode->standing.acl0Registered, 1u);
    EXPECT_EQ(made.list.sendBlock.b[519], 0x2D);
    EXPECT_EQ(ask(1), texts{answer});
    EXPECT_EQ(aclNode->chassis.supportAclOnCP, 9u);
    while (made.list.bindings != nullptr) aclBindingDrop(&made.list, made.list.bindings);
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
