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

std::string noQueue(const std::string& name) {
    return "syserr 0x50001 Unable to create SWP queue for " + name;
}
std::string queueOf(uint32_t app, uint32_t instance, const std::string& made) {
    return "swpqueue " + std::to_string(app) + " slot " + std::to_string(instance) + " " + made;
}
std::string answer(uint32_t type, uint32_t service = CLIENT_SERVICE) {
    return "send " + std::to_string(type) + " to " + std::to_string(service);
}
bool isDown(const aclLinecard& card) {
    return card.isUp == 0 && card.aclAgent == ZEK_SWP_NONE && card.macAgent == ZEK_SWP_NONE &&
           card.agentIpAddr == ADDRESS_UNKNOWN;
}

}  // namespace

struct Agents : DownloadTest {
    void SetUp() override {
        DownloadTest::SetUp();
        testHost.addresses[{62, 5}] = CARD_5;
        testHost.addresses[{100, 0}] = 0x7F010064;
    }
    bytes registration(uint32_t slot, uint32_t address, uint32_t replay = 0, size_t size = 88,
                       uint32_t subCode = 0) {
        bytes m = message(14403, 88);
        put32(m, 8, {static_cast<uint32_t>(size), 14403, subCode});
        put32(m, 36, {slot, address});
        put32(m, 60, {replay, 1, 11, 12, 13, 14, 15});
        m.resize(size);
        return m;
    }
    bytes cpRegistration(uint32_t supported, uint32_t size = 64, uint32_t replay = 0) {
        bytes m = message(14401, 68);
        put32(m, 8, {size});
        put32(m, 60, {supported, replay});
        m.resize(size);
        return m;
    }
    void take(const bytes& m) {
        std::memcpy(received, m.data(), m.size());
        aclTakeMessage(aclNode, received, m.size());
    }
    // Everything that the message set off, in order and in short.
    texts deliverAll(const bytes& m) {
        texts all;
        take(m);
        rows = testTakeRows();
        for (const testRow& row : rows) all.push_back(row.text.substr(0, row.text.find(" length")));
        return all;
    }
    std::vector<testRow> rows;
    const aclLinecard& card5 = aclLinecardInfo[5];
};

TEST_F(Agents, ARegistrationFillsTheRecordAndIsFollowedByTheReplayInOrder) {
    aclNode->peer.ramDataSync = 1;
    uint32_t transId = aclMgrTransId;
    texts got = deliverAll(registration(5, CARD_5));
    got.resize(6);
    ASSERT_EQ(got, (texts{queueOf(62, 5, "is " + std::to_string(card5.aclAgent)),
                          queueOf(148, 5, "is " + std::to_string(card5.macAgent)), answer(14403),
                          "peer 14523 to 7809", "send 14408 to 12801",
                          "swp " + std::to_string(card5.aclAgent) + " 14413"}));
    EXPECT_EQ((numbers{card5.isUp, card5.isVortan, card5.isIpv6Enabled, card5.word5,
                       card5.v6EgAclSupported, card5.type, card5.agentIpAddr}),
              (numbers{1, 11, 12, 13, 14, 15, CARD_5}));

    bytes want(64);
    put32(want, 8, {64, 14408});
    // The peer's message had the number before.
    put32(want, 32, {transId + 2, 0, OWN_CARD, 7810, 0, 0x7F010064, 12801, 5});
    EXPECT_EQ(rows[4].bytes, want);
    const wantHeader empty{"Global Acl", 0, 2, 0x4C040000, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(rows[5].bytes, messageBytes(14413, 5, 0, headerBytes(empty)));
    // Again: the answer, and nothing else.
    EXPECT_EQ(deliverAll(registration(5, CARD_5)), texts{answer(14403)});
    // Without a MAC manager it is not told.
    testHost.addresses[{100, 0}] = ADDRESS_UNKNOWN;
    EXPECT_EQ(aclSendLinecardInfoToMacMgr(3), -1);
    testHost.addresses.erase({100, 0});
    EXPECT_EQ(aclSendLinecardInfoToMacMgr(3), -1);
    EXPECT_TRUE(testTake().empty());
}

TEST_F(Agents, TheAddressIsAskedForThirtyTimesAFifthOfASecondApart) {
    testHost.addresses.erase({62, 5});
    testFail(TEST_ADDRESS, 1000, 1);
    EXPECT_EQ(deliverAll(registration(5, CARD_5)), texts{NOT_KNOWN});
    EXPECT_EQ(testUses(TEST_ADDRESS), 30u);
    EXPECT_EQ(testHost.ticks, 29u * 20);
    // Where addresses never change, one query says it all.
    testHost.addressesAreFixed = true;
    EXPECT_EQ(deliverAll(registration(6, AGENT_CARD + 6)), texts{NOT_KNOWN});
    EXPECT_EQ(testUses(TEST_ADDRESS), 31u);
    testHost.addressesAreFixed = false;
    // 0 is no address either; known at the last query is in time.
    testHost.addresses[{62, 5}] = 0;
    EXPECT_EQ(deliverAll(registration(5, 0)), texts{NOT_KNOWN});
    testHost.addresses[{62, 5}] = CARD_5;
    testFail(TEST_ADDRESS, 1, 29);
    (void)deliverAll(registration(5, CARD_5));
    EXPECT_FALSE(isDown(card5));
}

TEST_F(Agents, ARefusedRegistrationLeavesTheSlotDown) {
    // Only the address that the chassis knows speaks for the slot.
    EXPECT_EQ(deliverAll(registration(5, CARD_5 + 1)), texts{NOT_KNOWN});
    testFail(TEST_QUEUE, 1, 1);
    EXPECT_EQ(deliverAll(registration(5, CARD_5)),
              (texts{queueOf(62, 5, "failed"), noQueue("ACL_AGENT")}));
    testFail(TEST_QUEUE, 2, 1);
    const texts made = deliverAll(registration(5, CARD_5));
    ASSERT_EQ(made.size(), 4u);
    EXPECT_EQ(made[1], queueOf(148, 5, "failed"));
    EXPECT_EQ(made[2], noQueue("MAC_AGENT"));
    EXPECT_EQ(made[3], "swpremove" + made[0].substr(made[0].rfind(' ')));
    EXPECT_TRUE(isDown(card5));
    // Slots that there are not, and messages that end too early, of every length.
    for (uint32_t slot : {20u, 63u, 0xFFFFFFFFu})
        for (uint32_t subCode : {0u, 1129u})
            EXPECT_EQ(deliverAll(registration(slot, CARD_5, 0, 88, subCode)), texts{});
    for (size_t size = 60; size < 88; size++)
        EXPECT_EQ(deliverAll(registration(5, CARD_5, 0, size)), texts{});
    EXPECT_EQ(aclCounters.truncated, 28u);
    EXPECT_TRUE(isDown(card5));
}

TEST_F(Agents, AFlushEmptiesWhatWaitsForTheSlot) {
    for (uint32_t slot : {3u, 5u}) ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_MAC_AGENT), 0);
    const zekSwpHandle acl = aclLinecardInfo[3].aclAgent, mac = aclLinecardInfo[3].macAgent;
    testTake();
    const zekSwpHandle lone = card5.macAgent;  // there is no ACL agent
    for (const auto& [slot, busy] : std::vector<std::pair<uint32_t, std::set<zekSwpHandle>>>{
             {3, {}}, {3, {acl}}, {3, {mac}}, {3, {acl, mac}}, {5, {lone}}, {6, {}}}) {
        testHost.busyQueues = busy;
        texts wanted;
        for (zekSwpHandle queue : busy)
            if (queue != lone) wanted.push_back("swpflush " + std::to_string(queue));
        EXPECT_EQ(deliverAll(registration(slot, CARD_5, 0, 60, 1129)), wanted);
    }
}

// An agent that takes marks: its replays begin and end with one, and each need brings one replay.
TEST_F(Agents, AReplayIsMarkedAndMadeOncePerNeed) {
    testHost.addresses[{165, 0}] = OWN_CARD;
    auto sent = [this](const bytes& registers) {
        take(registers);
        return sentTo();
    };
    auto card = [&](uint32_t word) { return sent(registration(5, CARD_5, word)); };
    auto controlProcessor = [&](uint32_t word) { return sent(cpRegistration(0, 68, word)); };
    constexpr uint32_t marks = 1;
    // In both queues.
    auto begins = [](uint32_t need) {
        const std::string n = std::to_string(need);
        return "30003>5 begin " + n + " 30003>5mac begin " + n;
    };
    auto ends = [](uint32_t need) {
        const std::string n = std::to_string(need);
        return " 30003>5 end " + n + " 30003>5mac end " + n;
    };
    const std::string eighth = begins(8) + " 14413>5 14530>5 30004>5" + ends(8),
                      ninth = begins(9) + " 14413>5 14530>5 30004>5" + ends(9);
    EXPECT_EQ(card(8 << 1 | marks), eighth);  // needs one at its start
    EXPECT_EQ(card(8 << 1 | marks), "");      // names it again
    EXPECT_EQ(card(marks), "");               // needs none
    EXPECT_EQ(card(9 << 1 | marks), ninth);   // needs another
    zekSwpQueueLose(card5.aclAgent);
    EXPECT_EQ(card(marks), ninth);  // has lost something
    zekSwpQueueLose(card5.macAgent);
    EXPECT_EQ(card(marks), ninth);
    for (zekSwpHandle queue : {card5.aclAgent, card5.macAgent})
        EXPECT_EQ(zekSwpQueueState(queue), zekSwpState::inStep);
    EXPECT_EQ(card(10 << 1), "14413>5 14530>5 30004>5");                // takes no marks
    EXPECT_EQ(card(0), "");                                             // knows nothing of replays
    EXPECT_EQ(sent(registration(5, CARD_5 + 1, 11 << 1 | marks)), "");  // of another card
    EXPECT_EQ(controlProcessor(5 << 1 | marks), "30003>cp begin 5 30003>cp end 5");
    EXPECT_EQ(controlProcessor(5 << 1 | marks), "");
    EXPECT_EQ(controlProcessor(6 << 1 | marks), "30003>cp begin 6 30003>cp end 6");
    // A replay that is lost on its way has no end in the queue that has lost it.
    testFail(TEST_BLOCK, 3, 1);
    EXPECT_EQ(card(12 << 1 | marks), begins(12) + " 30003>5mac end 12");
    EXPECT_EQ(zekSwpQueueState(card5.aclAgent), zekSwpState::lost);
    testFail(TEST_BLOCK, 2, 1);
    EXPECT_EQ(card(13 << 1 | marks), "30003>5 begin 13 14413>5 14530>5 30004>5 30003>5 end 13");
    EXPECT_EQ(zekSwpQueueState(card5.macAgent), zekSwpState::lost);
}

// Changes that are made while the role is elsewhere reach the cards when it is back.
TEST_F(Agents, ACardIsReplayedWhenThePrimaryRoleComesBack) {
    const madeList<aclEntry> made(1);
    (void)deliverAll(registration(5, CARD_5, 1));
    auto pass = [this](bool primary) {
        testHost.primary = primary;
        aclLoopOnce(aclNode, 1, received);
        return sentTo();
    };
    const std::string nothing,
        replay =
            "14413>0 14530>0 30004>0 14413>3 14530>3 30004>3 14413>4 14530>4 30004>4 "
            "30003>5 begin 0 30003>5mac begin 0 14413>5 14530>5 30004>5 30003>5 end 0 "
            "30003>5mac end 0";
    EXPECT_EQ(aclVlanMemberAdd(VLAN_10, PORT_5_0), 0);
    EXPECT_EQ(pass(true), nothing);
    const zekSwpHandle queues[] = {card5.aclAgent, card5.macAgent};
    int before[2];
    for (size_t i = 0; i < 2; i++) before[i] = testHost.replays[queues[i]];
    EXPECT_EQ(pass(false), nothing);
    EXPECT_EQ(aclSendToPlace({PORT_5_0, INTF_IN}, {14409, &made.list}), 0);
    EXPECT_EQ(pass(false), nothing);
    for (size_t i = 0; i < 2; i++)
        EXPECT_EQ(testHost.replays[queues[i]], before[i] + 1) << "what waited was taken back once";
    EXPECT_EQ(aclVlanInfoTreeFindFirst(aclVlanTreeFind(VLAN_10)), nullptr)
        << "who is a member was forgotten";
    EXPECT_EQ(pass(true), nothing) << "and is to be told first";
    EXPECT_EQ(aclSendToPlace({PORT_5_0, INTF_IN}, {14409, &made.list}), 0);
    aclPlacesTold();
    EXPECT_EQ(pass(true), replay);
    EXPECT_EQ(pass(true), nothing);
    // Gone and back between two passes, with a change that was not sent.
    testHost.primary = false;
    EXPECT_EQ(aclSendToPlace({VLAN_10, INTF_IN}, {14409, &made.list}), 0);
    EXPECT_EQ(pass(true), replay);
}

// Who registers gets its queue and the answer, and the same again; a task's address is known then.
TEST_F(Agents, TasksThatRegisterGetTheirQueues) {
    constexpr uint32_t address = 0x7F010055;
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
        put32(m, 36, {slot, CLIENT_CARD, service});
        return deliverAll(m);
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.service);
        const std::string told = answer(row.type, row.service);
        testFail(TEST_QUEUE, 1, 1);
        EXPECT_EQ(ask(row.type, 3, row.service),
                  (texts{queueOf(row.app, row.instance, "failed"), noQueue(row.name)}));
        EXPECT_TRUE(row.card == nullptr || *row.card == ADDRESS_UNKNOWN);
        testHost.addresses[{row.app, row.instance}] = address;
        const texts made = ask(row.type, 3, row.service);
        EXPECT_EQ(made, (texts{queueOf(row.app, row.instance, "is " + std::to_string(*row.handle)),
                               told}));
        EXPECT_EQ(ask(row.type, 3, row.service), texts{told});
        EXPECT_EQ(testHost.replays[*row.handle], row.app == 148 ? 0 : 2) << "a session for each";
        EXPECT_TRUE(row.card == nullptr || *row.card == address);
    }
    EXPECT_EQ(aclNode->standing.acl2Registered, 1u);
    EXPECT_EQ(ask(14404, 20, CLIENT_SERVICE), texts{});
    for (uint32_t service : {11149u, 0xFFFFFFFFu}) EXPECT_EQ(ask(14406, 3, service), texts{});
}

TEST_F(Agents, ACardThatGoesDownIsForgottenAndMayRegisterAgain) {
    aclNode->peer.ramDataSync = 1;
    for (uint32_t event : {0xF0012u, 0xF0013u}) {
        EXPECT_GT(deliverAll(registration(5, CARD_5)).size(), 4u);
        const std::string acl = "swpremove " + std::to_string(card5.aclAgent),
                          mac = "swpremove " + std::to_string(card5.macAgent);
        for (int slot : {5, 20, -1}) {
            bytes down = message(2009, 72);
            put32(down, 64, {event, static_cast<uint32_t>(slot)});
            texts wanted{"log EvtHandler reported Line card " + std::to_string(slot) +
                         " as down \r\n"};
            if (slot == 5) wanted.insert(wanted.end(), {acl, mac, "peer 14523 to 7809"});
            wanted.push_back(answer(2009));
            EXPECT_EQ(deliverAll(down), wanted);
            EXPECT_TRUE(isDown(card5));
        }
    }
}

TEST_F(Agents, TheControlProcessorsAgentGetsItsIngressListOnce) {
    madeList<aclEntry> made(1);
    for (uint32_t direction : {INTF_IN, INTF_OUT}) {
        auto* b = static_cast<aclBinding*>(clientAdd(
            &made.list, {CLIENT_INTERFACE, IFINDEX_CP_BIND, 0, direction}, sizeof(aclBinding)));
        b->implicitPermit = 6;
        std::memset(b->block.b, 0x2D, sizeof b->block.b);
        aclIntfObtain(IFINDEX_CP_BIND, 0, nullptr)->lists[INTF_V4][direction] = &made.list;
    }
    EXPECT_EQ(deliverAll(cpRegistration(1)), texts{CP_NOT_KNOWN});
    testHost.addresses[{165, 0}] = 0x7F0100C8;
    testFail(TEST_QUEUE, 1, 1);
    EXPECT_EQ(deliverAll(cpRegistration(1)),
              (texts{queueOf(165, 0, "failed"), noQueue("ACL0_AGENT")}));
    const texts got = deliverAll(cpRegistration(9));
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[1], answer(14401));
    const wantHeader bound{.ifindex = IFINDEX_CP_BIND, .option = 6, .block = 0x2D};
    EXPECT_EQ(rows[2].bytes,
              messageBytes(14409, 0, 0, headerBytes(bound) + imageBytes(made.entries[0]),
                           0x7F0100C8, 21121));
    EXPECT_EQ(aclNode->standing.acl0Registered, 1u);
    EXPECT_EQ(deliverAll(cpRegistration(1)), texts{answer(14401)});
    EXPECT_EQ(aclNode->chassis.supportAclOnCP, 9u);
    clientsFree(&made.list);
}
