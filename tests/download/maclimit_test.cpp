// MAC-limit lists and protocol filters of the MAC manager, on their way to the cards.
#include "include/macLimitMsg.h"
#include "tests/download/fixture.h"

struct MacLimit : DownloadTest {
    // A message in a session of its own, with words behind the record: interfaces, then entries.
    std::vector<bytes> relay(uint32_t type, numbers interfaces, uint32_t entries, int cut = 0) {
        static uint32_t session = 0x4000;
        auto m = message(type, sizeof(macLimitMsg) + 4 * interfaces.size() + 16 * entries);
        auto& front = as<macLimitMsg>(m);
        front.ipc.session = ++session;
        front.ipc.swpSeq = 1u;
        front.name = listNameMake("limit");
        front.interfaceCount = static_cast<uint32_t>(interfaces.size());
        front.entryCount = entries;
        size_t at = sizeof front;
        for (uint32_t ifindex : interfaces) put32(m, at, {ifindex}), at += 4;
        for (uint32_t e = 1; e <= entries; e++, at += 16)
            put32(m, at, {0x02000000, e, 0x000000FF, e & 1});
        m.resize(m.size() - static_cast<size_t>(cut));
        as<ipcHdr>(m).length = static_cast<uint32_t>(m.size());
        return taken(m);
    }
    // What a message sets off at the cards.
    std::vector<bytes> taken(const bytes& m) {
        testTake();
        std::copy(m.begin(), m.end(), received);
        aclTakeMessage(aclNode, received, m.size());
        return enqueued();
    }
};

TEST_F(MacLimit, EachEntryGoesToEachInterface) {
    ASSERT_EQ(aclLagMemberAdd(LAG_7, PORT_3_2), 0);
    const auto sent = relay(MT_ACLMAC_ADD, {PORT_4_0, LAG_7, 0x00004001}, 2);
    ASSERT_EQ(sent.size(), 4u);
    const numbers ports{PORT_4_0, PORT_4_0, PORT_3_2, PORT_3_2};
    for (uint32_t i = 0; i < 4; i++) {
        SCOPED_TRACE(i);
        l2AclEntry entry{};
        entry.block.action = i % 2 == 0 ? 1 : 0;
        entry.block.seq = entry.id = i % 2 + 1;
        // Six bytes of address, six of mask: the words above, as they stand side by side.
        const uint8_t images[12] = {2, 0, 0, 0, 0, 0, 0, uint8_t(i % 2 + 1), 0, 0, 0, 0xFF};
        std::copy_n(images, 6, entry.block.src);
        std::copy_n(images + 6, 6, entry.block.srcMask);
        std::fill_n(entry.block.dstMask, 6, uint8_t{0xFF});
        entry.block.order = ORDER_NOT_GIVEN;
        wantHeader w;
        w.name = "limit", w.count = 1, w.kind = 1, w.ifindex = ports[i], w.block = 0;
        EXPECT_EQ(sent[i], messageBytes(MT_ACLMAC_ADD, ports[i] == PORT_4_0 ? 4 : 3, 0,
                                        macHeaderBytes(w) + imageBytes(entry)));
    }
    EXPECT_EQ(aclCounters.ACLMAC_ADD, 1u);
}

TEST_F(MacLimit, EachTypeSaysWhatItIsAbout) {
    const struct {
        uint32_t type;
        numbers interfaces;
        uint32_t entries;
        size_t sent, bytes;
    } rows[] = {
        {MT_ACLMAC_NEW, {PORT_4_0}, 3, 1, 132 + 784},
        {MT_ACLMAC_DELENTRY, {PORT_4_0, PORT_3_1}, 1, 2, 132 + 784 + 184},
        {MT_ACLMAC_DELENTRY, {PORT_4_0}, 0, 0, 0},
        {MT_ACLMAC_DELALLENTRY, {PORT_4_0}, 0, 1, 132 + 784},
        {MT_ACLMAC_DELALLENTRY, {PORT_4_0}, 2, 2, 132 + 784 + 184},
        {MT_ACLMAC_DELLIST, {PORT_4_0}, 0, 1, 132 + 784},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        const auto sent = relay(row.type, row.interfaces, row.entries);
        EXPECT_EQ(sent.size(), row.sent);
        for (const bytes& m : sent) {
            EXPECT_EQ(get32(m, 12), row.type);
            EXPECT_EQ(m.size(), row.bytes);
        }
    }
    EXPECT_TRUE(aclCounters.ACLMAC_DELENTRY == 2 && aclCounters.ACLMAC_DELALLENTRY == 2);
    EXPECT_EQ(aclCounters.truncated, 0u);
    testHost.primary = false;
    EXPECT_TRUE(relay(MT_ACLMAC_NEW, {PORT_4_0}, 0).empty());
}

TEST_F(MacLimit, CountsThatDoNotFitAreDropped) {
    EXPECT_TRUE(relay(MT_ACLMAC_ADD, {PORT_4_0, PORT_3_1}, 2, 1).empty());
    EXPECT_TRUE(relay(MT_ACLMAC_NEW, {PORT_4_0, PORT_3_1}, 0).empty());
    EXPECT_TRUE(relay(MT_ACLMAC_ADD, {}, 1).empty());
    EXPECT_EQ(aclCounters.truncated, 3u);
    for (auto [interfaces, entries] :
         {std::pair{0xFFFFFFFFu, 0xFFFFFFFFu}, {0x40000000u, 0u}, {1u, 0x10000000u}}) {
        bytes m = message(MT_ACLMAC_ADD, 8192);
        auto& front = as<macLimitMsg>(m);
        front.ipc.session = interfaces ^ entries ^ 0x77u;
        front.ipc.swpSeq = 1u;
        front.name = listNameMake("limit");
        front.interfaceCount = interfaces;
        front.entryCount = entries;
        EXPECT_TRUE(taken(m).empty());
    }
    EXPECT_EQ(aclCounters.truncated, 6u);
}

TEST_F(MacLimit, AProtocolFilterGoesToTheSlotsThatItNames) {
    bytes m = message(MT_ACLMAC_PROTOCOL_FILTER, 120);
    put32(m, 64, {0xAB, 4, 9, 3, 0xFFFFFFFF});
    put32(m, 116, {0x11223344});
    for (auto [count, sent] : {std::pair{0u, ""}, {4u, "14495>4 14495>3"}, {9u, ""}}) {
        put32(m, 100, {count});
        (void)taken(m);  // (slot 9 has no agent, the last is no slot)
        std::copy(m.begin(), m.end(), received);
        aclTakeMessage(aclNode, received, m.size());
        EXPECT_EQ(sentTo(), sent);
    }
    EXPECT_EQ(aclCounters.truncated, 2u);
    put32(m, 100, {1});
    const auto one = taken(m);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0],
              messageBytes(MT_ACLMAC_PROTOCOL_FILTER, 4, 0, bytes(m.begin() + 60, m.end())));
}
