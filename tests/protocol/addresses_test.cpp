// The router's own addresses: what is sent to whom when they come and go, with the members of their
// LAGs and VLANs, and what a replay gives.
#include "protocol/AclIpAdd.h"

#include "task/follow.h"
#include "tests/download/fixture.h"

namespace {

constexpr uint32_t IP_1 = 0x0A000001, IP_2 = 0x0A000002, IP_3 = 0xC0A80101;
constexpr uint32_t PIM = 103;
const listName GLOBAL = listNameMake("Global Acl"), GLOBAL6 = listNameMake("v6 Global Acl");

struct entryRow {
    int step;
    uint32_t kindCode, protocol, dstPort, srcPort, option, marker;
    bool below3;
    bool dhcp = false;
};
// What every address has, in order: the table that the manager must follow.
constexpr entryRow wanted4[] = {
    {1, 0x200000, 17, 67, 0, 0, 0, true, true},
    {2, 4, 6, 179, 0, 0, 0, false},
    {2, 4, 6, 0, 179, 0, 0, false},
    {3, 0x400000, 6, 639, 0, 0, 0, true},
    {3, 0x400000, 6, 0, 639, 0, 0, true},
    {4, 128, PIM, 0, 0, 0, 0, true},
    {5, 256, 2, 0, 0, 0, 0, true},
    {6, 4, 6, 179, 0, 0x20, 0, false},
    {6, 4, 6, 0, 179, 0x20, 0, false},
    {7, 46, 46, 0, 0, 0, 0, true},
    {8, 4, 4, 0, 0, 0, 1, true},
};
aclEntry entryOf(uint32_t address, const entryRow& row) {
    aclEntry e{};
    ipEntryBlock& b = e.block;
    b.kind = 2, b.seq = 0xFFFFFFFFu, b.owner = row.kindCode, b.protoMarker = row.marker;
    b.protocol = static_cast<uint8_t>(row.protocol);
    b.dst = address, b.dstMask = 0xFFFFFFFFu, b.precedence = 0xFFFFFFFFu, b.tos = 0xFFFFFFFFu;
    b.reserved40 = row.option, b.order = 255, b.dscp = 255;
    if (row.dstPort != 0) b.dstOperator = 1, b.dstLow = static_cast<uint16_t>(row.dstPort);
    if (row.srcPort != 0) b.srcOperator = 1, b.srcLow = static_cast<uint16_t>(row.srcPort);
    return e;
}

struct Addresses : DownloadTest {
    void SetUp() override {
        DownloadTest::SetUp();
        aclLinecardInfo[0].type = 1;  // the control processor's card takes everything all the same
        aclLinecardInfo[3].type = 1;
        aclLinecardInfo[4].type = 3;
    }
    void TearDown() override {
        forgetPlaces();
        EXPECT_EQ(aclLinecardInfo[LINECARD_CP].ipAddHead, nullptr);
        EXPECT_EQ(stored(), 0u);
        DownloadTest::TearDown();
    }
    // The messages that carry entries of an address to a port or a card.
    bytes message4(uint32_t id, uint32_t slot, uint32_t ifindex, const std::vector<aclEntry>& e) {
        const auto count = static_cast<uint32_t>(e.size());
        wantHeader header{"Global Acl", count, 2, ifindex, 0, count, 0, 0, 0, 0};
        header.pipe = static_cast<uint8_t>(aclPortPipe(ifindex));
        bytes body = headerBytes(header);
        for (const aclEntry& entry : e) body = body + imageBytes(entry);
        return messageBytes(id, slot, 0, body);
    }
    // Of every step: the control processor's card an entry at a time, then the other cards.
    std::vector<bytes> fanOut(uint32_t id, uint32_t address, bool dhcp = false, bool low = true) {
        std::vector<bytes> all;
        for (int step = 1; step <= 8; step++) {
            std::vector<aclEntry> entries;
            for (const entryRow& row : wanted4)
                if (row.step == step && (!row.dhcp || dhcp) && (!row.below3 || low))
                    entries.push_back(entryOf(address, row));
            for (const aclEntry& e : entries)
                all.push_back(message4(id, 0, ifindexControlPort(0), {e}));
            for (uint32_t slot : {3u, 4u})
                if (!entries.empty() && (slot == 4 || step != 6))
                    all.push_back(message4(id, slot, ifindexControlPort(slot), entries));
        }
        return all;
    }
    std::vector<aclEntry> entries4(uint32_t address, bool option = true) {
        std::vector<aclEntry> all;
        for (const entryRow& row : wanted4)
            if (!row.dhcp && (option || row.option == 0)) all.push_back(entryOf(address, row));
        return all;
    }
    void expectSent(const char* what, std::vector<bytes> want) {
        const std::vector<bytes> got = enqueued();
        EXPECT_EQ(got.size(), want.size()) << what;
        for (size_t i = 0; i < std::min(got.size(), want.size()); i++)
            EXPECT_EQ(got[i], want[i]) << what << ", message " << i;
        EXPECT_TRUE(effects.empty()) << what << ": " << effects[0];
    }
    static uint32_t stored() { return static_cast<uint32_t>(ipSysAccessListFind(GLOBAL)->count); }
};

TEST_F(Addresses, EntriesStandOnceForAnAddressAndGoWithTheLastInterface) {
    struct {
        const char* what;
        void (*run)(uint32_t ifindex, uint32_t address);
        uint32_t ifindex, address, sentAs;  // 0: nothing
    } const rows[] = {
        {"added", aclAddIpAddrFromIFM, PORT_3_1, IP_1, 14414},
        {"repeated", aclAddIpAddrFromIFM, PORT_3_1, IP_1, 0},
        {"unknown", aclDelIpAddrFromIFM, PORT_3_1, IP_2, 0},
        {"of nobody", aclDelIpAddrFromIFM, PORT_4_0, IP_1, 0},
        {"on a second interface", aclAddIpAddrFromIFM, PORT_4_0, IP_1, 0},
        {"a secondary one", aclAddIpAddrFromIFM, PORT_3_1, IP_2, 14414},
        {"from the first interface", aclDelIpAddrFromIFM, PORT_3_1, IP_1, 0},
        {"from the last", aclDelIpAddrFromIFM, PORT_4_0, IP_1, 14415},
        {"again", aclDelIpAddrFromIFM, PORT_4_0, IP_1, 0},
        {"a protocol's destination", aclAddIpAddrFromIFM, PORT_4_0, 0xE0000005, 0},
        {"of a bare slot", aclAddIpAddrFromIFM, 3, IP_1, 0},
        // What a disable forgets is gone from sight only.
        {"forgotten", aclDelIpaddInfoToTree, PORT_3_1, IP_2, 0},
        {"revived", aclAddIpAddrFromIFM, PORT_3_1, IP_2, 0},
        {"forgotten again", aclDelIpaddInfoToTree, PORT_3_1, IP_2, 0},
        {"taken away", aclDelIpAddrFromIFM, PORT_3_1, IP_2, 14415},
    };
    for (const auto& row : rows) {
        row.run(row.ifindex, row.address);
        expectSent(row.what,
                   row.sentAs != 0 ? fanOut(row.sentAs, row.address) : std::vector<bytes>{});
        const bool seen =
            debug("interface-addresses").find("10.0.0.2 primary") != std::string::npos;
        EXPECT_EQ(seen, aclIpaddInfoFind(PORT_3_1, aclAddressOf(IP_2)) != nullptr &&
                            aclIpaddInfoFind(PORT_3_1, aclAddressOf(IP_1)) == nullptr)
            << row.what;
    }
    EXPECT_EQ(stored(), 0u);
    EXPECT_EQ(aclLinecardInfo[LINECARD_CP].ipAddHead, nullptr);
    aclAddIpAddrFromIFM(PORT_3_1, IP_1), aclAddIpAddrFromIFM(PORT_3_1, IP_2);
    aclAddIpAddrFromIFM(PORT_4_0, IP_2);
    (void)enqueued();
    aclDelAllAddressesOf(PORT_3_1);
    expectSent("the interface is no more", fanOut(14415, IP_1));
    EXPECT_EQ(stored(), 10u);
}

TEST_F(Addresses, DebugOutputTellsOfEachStep) {
    for (aclLinecard& card : aclLinecardInfo) card.agentIpAddr = ADDRESS_UNKNOWN;
    auto said = [](uint32_t place, uint32_t address) {
        testTake();
        DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
        aclAddIpAddrFromIFM(place, address);
        DEBUG_ACL_MGR = 0;
        std::string all;
        for (const std::string& row : testTake()) all += row;
        return all;
    };
    auto inOrder = [](const std::string& text, const texts& parts) {
        size_t at = 0;
        for (const std::string& part : parts) {
            at = text.find(part, at);
            if (at == text.npos) return part;
        }
        return std::string();
    };
    const std::string going = " going to send message to linecards\r\n",
                      sent = "sent messages to linecards - now returning\r\n";
    EXPECT_EQ(inOrder(said(PORT_5_0, IP_1), {going, "Creating node for ", " in Int Tree :",
                                             "creating head for slot 19 interface ", sent}),
              "");
    EXPECT_EQ(inOrder(said(VLAN_10, IP_1), {going, "Creating node for ", " in Vlan Tree :", sent}),
              "");
    EXPECT_EQ(inOrder(said(PORT_5_0, IP_2), {going, "its a secondary ipAddress\r\n", sent}), "");
    // Without the list nothing can be sent, and the table goes on: a line for each of its steps.
    while (ipSysAccessListFind(GLOBAL) != nullptr) (void)ipSysAccessListDelete(GLOBAL, 0);
    const std::string failed = "Error: Adding Entry to Global Acl for ip address 192.168.1.1 \n";
    EXPECT_EQ(inOrder(said(PORT_4_0, IP_3), texts(7, failed)), "");
    ASSERT_EQ(SysListRegistration(0), 0);
}

TEST_F(Addresses, ConditionsOfTheTable) {
    aclNode->finalWord = 2;
    aclNode->protocol.acl_dhcp = 1;
    aclAddIpAddrFromIFM(PORT_3_1, IP_1);
    expectSent("at most 2", fanOut(14414, IP_1, true));
    aclNode->finalWord = 3;
    aclAddIpAddrFromIFM(PORT_3_1, IP_2);
    expectSent("3", fanOut(14414, IP_2, true, false));
    aclDelIpAddrFromIFM(PORT_3_1, IP_1);
    expectSent("what was added goes whatever holds now", fanOut(14415, IP_1, true));
    aclDelIpAddrFromIFM(PORT_3_1, IP_2);
    expectSent("only what was added", fanOut(14415, IP_2, true, false));
}

TEST_F(Addresses, ForIpv6EveryCardAsAWhole) {
    const uint8_t address[16] = {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
    struct {
        uint32_t owner, protocol, dst, src, icmp;
    } const wanted6[] = {{4, 6, 179, 0, 0}, {4, 6, 0, 179, 0},   {128, PIM, 0, 0, 0},
                         {89, 89, 0, 0, 0}, {58, 58, 0, 0, 135}, {58, 58, 0, 0, 136}};
    auto sent = [&](uint32_t id) {
        std::vector<bytes> all;
        std::vector<acl6Entry> entries;
        for (const auto& w : wanted6) {
            acl6Entry& e = entries.emplace_back();
            e.block.owner = w.owner, e.block.seq = 0xFFFFFFFFu;
            e.block.protocol = static_cast<uint8_t>(w.protocol);
            std::copy_n(address, 16, e.block.dst);
            std::fill_n(e.block.dstMask, 16, 0xFF);
            if (w.dst != 0) e.block.dstOperator = 1, e.block.dstLow = static_cast<uint16_t>(w.dst);
            if (w.src != 0) e.block.srcOperator = 1, e.block.srcLow = static_cast<uint16_t>(w.src);
            if (w.icmp != 0)
                e.block.icmp.type = static_cast<uint8_t>(w.icmp), e.block.icmp.typeGiven = 1;
        }
        auto message = [&](uint32_t slot, size_t from, size_t count) {
            const auto n = static_cast<uint32_t>(count);
            const wantHeader header{"v6 Global Acl", n, 2, 0, 0, n, 0, 0, 0xFF, 0};
            bytes body = headerBytes(header);
            for (size_t i = from; i < from + count; i++) {
                acl6Entry e = entries[i];
                // Of a list: its entries have their ids.
                if (slot == 0) e.id = static_cast<uint32_t>(i + 1);
                body = body + imageBytes(e);
            }
            all.push_back(messageBytes(id, slot, 0, body));
        };
        for (size_t at = 0; at < entries.size(); at += at == 0 ? 2 : 1) {
            const size_t count = at == 0 ? 2 : 1;
            for (size_t i = at; i < at + count; i++) message(0, i, 1);
            for (uint32_t slot : {3u, 4u}) message(slot, at, count);
        }
        return all;
    };
    aclAddIPV6AddFromIFM(PORT_3_1, address, 64);
    expectSent("added", sent(14531));
    aclAddIPV6AddFromIFM(PORT_4_0, address, 64);
    aclDelIPV6AddFromIFM(PORT_3_1, address, 64);
    expectSent("of two one", {});
    EXPECT_EQ(debug("interface-addresses", "2001:db8::9"), aclDumpIp(aclAddressOf(address, 0)));
    EXPECT_EQ(aclAgentSourceAddress(), 0u);
    aclDelIPV6AddFromIFM(PORT_4_0, address, 0);
    expectSent("removed", sent(14532));
}

TEST_F(Addresses, MembersOfALagOrAVlanHoldTheEntriesThemselves) {
    // Card 3 does not know those of step 6, at its ports neither.
    const auto entries = entries4(IP_1);
    auto known = entries;
    std::erase_if(known, [](const aclEntry& e) { return e.block.reserved40 == 0x20; });
    auto toPort = [&](uint32_t id, uint32_t port) {
        const auto slot = static_cast<uint32_t>(ifindexSlot(port));
        return message4(id, slot, port, slot == 3 ? known : entries);
    };
    typedef std::vector<bytes> sent;
    auto join = [](sent a, const sent& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    ASSERT_EQ(aclFollowLagJoined(LAG_7, PORT_3_1), 0);
    (void)enqueued();
    // A VLAN without members has no use for its address.
    aclAddIpAddrFromIFM(VLAN_10, IP_1);
    expectSent("no member", {});
    ASSERT_EQ(aclFollowVlanJoined(VLAN_10, PORT_4_0), 0);
    expectSent("the first member", join(fanOut(14414, IP_1), {toPort(14414, PORT_4_0)}));
    ASSERT_EQ(aclFollowVlanJoined(VLAN_10, LAG_7), 0);
    expectSent("a LAG joins", {toPort(14414, PORT_3_1)});
    ASSERT_EQ(aclFollowLagJoined(LAG_7, PORT_3_2), 0);
    expectSent("a port joins the LAG", {toPort(14414, PORT_3_2)});
    // On the LAG itself, too: its ports have reason to keep the entries.
    aclAddIpAddrFromIFM(LAG_7, IP_1);
    expectSent("sent again", {toPort(14414, PORT_3_2), toPort(14414, PORT_3_1)});
    ASSERT_EQ(aclFollowVlanLeft(VLAN_10, LAG_7), 0);
    expectSent("the LAG leaves", {});
    ASSERT_EQ(aclFollowLagLeft(LAG_7, PORT_3_1), 0);
    expectSent("a port leaves", {toPort(14415, PORT_3_1)});
    ASSERT_EQ(aclFollowVlanLeft(VLAN_10, PORT_4_0), 0);
    expectSent("the last member, and the LAG has the address", {toPort(14415, PORT_4_0)});
    aclDelIpAddrFromIFM(LAG_7, IP_1);
    expectSent("the VLAN has no use for it", join(fanOut(14415, IP_1), {toPort(14415, PORT_3_2)}));
    ASSERT_EQ(aclFollowVlanJoined(VLAN_10, PORT_4_0), 0);
    (void)enqueued();
    ASSERT_EQ(aclFollowVlanLeft(VLAN_10, PORT_4_0), 0);
    expectSent("the last member", join({toPort(14415, PORT_4_0)}, fanOut(14415, IP_1)));
}

TEST_F(Addresses, TrappingDhcpAddsAnEntryForEachAddress) {
    const std::vector<aclEntry> dhcp{entryOf(IP_1, wanted4[0])};
    auto sent = [&](uint32_t id) {
        std::vector<bytes> all;
        for (uint32_t slot : {0u, 3u, 4u})
            all.push_back(message4(id, slot, ifindexControlPort(slot), dhcp));
        all.push_back(message4(id, 4, PORT_4_0, dhcp));
        return all;
    };
    EXPECT_EQ(aclTrapDhcp(true), 0);
    EXPECT_EQ(aclTrapDhcp(false), 0);
    expectSent("no addresses", {});
    ASSERT_EQ(aclFollowVlanJoined(VLAN_10, PORT_4_0), 0);
    for (uint32_t place : {PORT_3_1, VLAN_10, PORT_4_0}) aclAddIpAddrFromIFM(place, IP_1);
    (void)enqueued();
    EXPECT_EQ(aclTrapDhcp(true), 0);
    expectSent("once, however many have it", sent(14414));
    EXPECT_EQ(aclTrapDhcp(false), 0);
    expectSent("not any more", sent(14415));
    testFail(TEST_BLOCK, 1, 1);
    EXPECT_EQ(aclTrapDhcp(true), -1);
    EXPECT_EQ(enqueued().size(), 1u);  // the port's
    EXPECT_EQ(effects, texts{"syserr 0x5000c Unable to allocate memory for the DHCP entries of "
                             "addresses"});
    EXPECT_EQ(aclTrapDhcp(true), 0);
    expectSent("the same again finishes", sent(14414));
}

TEST_F(Addresses, ACardThatComesUpGetsTheEntriesItTakes) {
    for (uint32_t address : {IP_1, IP_2}) aclAddIpAddrFromIFM(PORT_3_1, address);
    (void)enqueued();
    auto sentTo = [this](uint32_t slot) {
        aclSendGlobalAclToNewLineCard(slot);
        return enqueued();
    };
    const wantHeader empty{"Global Acl", 0, 2, ifindexControlPort(4), 0, 0, 0, 0, 0, 0};
    std::vector<aclEntry> all = entries4(IP_1);
    for (const aclEntry& e : entries4(IP_2)) all.push_back(e);
    const std::vector<aclEntry> first(all.begin(), all.begin() + 17),
        rest(all.begin() + 17, all.end());
    EXPECT_EQ(sentTo(4), (std::vector<bytes>{messageBytes(14413, 4, 0, headerBytes(empty)),
                                             message4(14414, 4, ifindexControlPort(4), first),
                                             message4(14414, 4, ifindexControlPort(4), rest)}));
    // The pairs with the option bit are left out.
    std::vector<bytes> messages = sentTo(3);
    ASSERT_EQ(messages.size(), 4u);
    std::vector<aclEntry> runs[3] = {
        {all.begin(), all.begin() + 6}, {}, {all.end() - 2, all.end()}};
    runs[1].assign(all.begin() + 8, all.begin() + 16);
    for (size_t i = 0; i < 3; i++)
        EXPECT_EQ(messages[i + 1], message4(14414, 3, ifindexControlPort(3), runs[i])) << i;
    EXPECT_EQ(sentTo(0).size(), 3u);
}

TEST_F(Addresses, WithoutMemoryAnAddCanBeFinishedOrUndone) {
    for (bool finish : {true, false})
        for (testPoint point : {TEST_BLOCK, TEST_INSERT, TEST_TREE})
            for (uint64_t nth = 1;; nth++) {
                SCOPED_TRACE(std::to_string(point) + " " + std::to_string(nth));
                for (aclLinecard& card : aclLinecardInfo) card.agentIpAddr = ADDRESS_UNKNOWN;
                testFail(point, nth, 1);
                aclAddIpAddrFromIFM(PORT_5_0, IP_1);
                const bool reached = testUses(point) >= nth;
                testFailNothing();
                // The trees say something, too.
                const auto errors = std::ranges::count_if(testTake(), [](const std::string& row) {
                    return row.starts_with("syserr 0x5000c ");
                });
                EXPECT_EQ(errors, reached ? 1 : 0);
                const aclAddress* record = aclAddressFind(PORT_5_0, aclAddressOf(IP_1));
                EXPECT_EQ(record == nullptr || !record->installed, reached);
                if (finish) {
                    aclAddIpAddrFromIFM(PORT_5_0, IP_1);
                    EXPECT_EQ(stored(), 10u);
                    EXPECT_TRUE(aclAddressFind(PORT_5_0, aclAddressOf(IP_1))->installed);
                }
                aclDelIpAddrFromIFM(PORT_5_0, IP_1);
                EXPECT_EQ(stored(), 0u);
                if (aclIntf* intf = AclIntfTreeFind(PORT_5_0)) aclIntfDrop(intf);
                if (!reached) break;
            }
}

TEST_F(Addresses, AgentsSendFromTheLowestAddress) {
    auto asked = [this](uint32_t type) {
        const auto answers = deliver(message(type, 64));
        return answers.size() == 1 ? get32(answers[0], 60) : 0xDEADu;
    };
    EXPECT_EQ(asked(8402), 0u);
    aclAddIpAddrFromIFM(PORT_3_1, IP_3);
    aclAddIpAddrFromIFM(PORT_4_0, IP_2);
    EXPECT_EQ(asked(8402), IP_2);
    aclAddIpAddrFromIFM(IFINDEX_CP_BIND, 0xC0A80109);
    aclAddIpAddrFromIFM(IFINDEX_CP_BIND + 1, 0xC0A80108);
    EXPECT_EQ(asked(20417), 0xC0A80108u);
    EXPECT_EQ(debug("agent-addresses").substr(0, 35), "agents send from 192.168.1.8\r\n192.1");
    aclDelIpaddInfoToTree(IFINDEX_CP_BIND + 1, 0xC0A80108);
    EXPECT_EQ(asked(20417), 0xC0A80109u);
    aclDelAllAddressesOf(IFINDEX_CP_BIND);
    EXPECT_EQ(asked(20417), IP_2);
}

}  // namespace
