// Copies at the management tasks, put together byte by byte from docs/wire-formats.md.
#include "ipacl/zekipaccess.h"
#include "tests/download/fixture.h"

namespace {

struct target {
    const char* name;
    uint32_t address, service;
    std::function<void(aclList*, uint32_t)> list, list6;
    std::function<void(aclList*, aclEntry*, uint32_t)> entry{};
    std::function<void(aclList*, acl6Entry*, uint32_t)> entry6{};
};

struct Mgmt : DownloadTest {
    void SetUp() override {
        DownloadTest::SetUp();
        testHost.addresses[{18, 0}] = 0x7F010012;
        testHost.addresses[{33, 0}] = 0x7F010021;
        uint32_t attempts = 0;
        ASSERT_EQ(aclSNMPSwpQueueCreate(&attempts), 0);
        ASSERT_EQ(aclSYSADMTSKSwpQueueCreate(&attempts), 0);
        for (uint32_t instance : {0u, 2u}) {
            testHost.addresses[{87, instance}] = 0x7F010057 + instance;
            auto m = message(14406);
            reinterpret_cast<ipcHdr*>(m.data())->target.svce = 11137 + 4 * instance;
            ASSERT_EQ(aclIPMSwpQueueCreate(&attempts, m.data()), 0);
        }
        ipm2.instance = 2;
        testTake();
    }
    aclBinding ipm2{};
    const std::vector<target> targets = {
        {"SNMP", 0x7F010012, 2305,
         [](aclList* l, uint32_t id) { aclSendListToSNMP(l, id, nullptr); },
         [](aclList* l, uint32_t id) { aclV6SendListToSNMP(l, id, nullptr); },
         [](aclList* l, aclEntry* e, uint32_t id) { aclSendEntToSNMP(l, e, id, nullptr); },
         [](aclList* l, acl6Entry* e, uint32_t id) { aclV6SendEntToSNMP(l, e, id, nullptr); }},
        {"SYSADM", 0x7F010021, 4225, aclSendListToSYSADMTSk, aclV6SendListToSYSADMTSK,
         aclSendEntToSYSADMTSK, aclV6SendEntToSYSADMTSK},
        {"IPM", 0x7F010059, 11145,
         [this](aclList* l, uint32_t id) { aclSendListToIPM(l, id, &ipm2); }, nullptr},
    };
};

// The image of an entry: 8 bytes of links, its block and four words, of IPv6 padded.
bytes imageOf(const void* block, size_t size, std::array<uint32_t, 4> words) {
    bytes b(184);
    std::memcpy(&b[8], block, size);
    for (size_t i = 0; i < 4; i++) put32(b, 8 + size + 4 * i, words[i]);
    return b;
}
bytes entryImage(const aclEntry& e) {
    return imageOf(&e.block, 156, {e.id, e.matchCount, e.log, e.monitor});
}
bytes entryImage(const acl6Entry& e) {
    return imageOf(&e.block, 108, {e.log, e.monitor, e.id, e.matchCount});
}

template <class Entry>
bytes copyBytes(const target& to, uint32_t id, const aclList& list,
                const std::deque<Entry>& entries, size_t first, uint32_t n) {
    bytes b = messageBytes(id, 0, 0, {}, to.address, to.service);
    b.resize(124);
    b.resize(860);
    put32(b, 8, 860 + 184 * n);
    put32(b, 32, 0);
    putText(b, 124 + 16, std::string(listNameView(list.name)));
    put32(b, 124 + 176, n);
    put32(b, 124 + 180, list.kind);
    put32(b, 124 + 184, list.placeholder);
    put32(b, 124 + 188, n);
    put32(b, 124 + 192, list.highestSeq);
    std::copy_n(list.sendBlock.b, 520, b.begin() + 124 + 196);
    for (size_t i = first; i < first + n; i++) b = b + entryImage(entries[i]);
    return b;
}

// Everything an entry holds is set, and what only means something here: it must not leave.
template <class Made>
Made filled(const std::string& name, size_t n) {
    Made made(name, n);
    uint32_t i = 0;
    for (auto& e : made.entries) {
        auto* block = reinterpret_cast<uint8_t*>(&e.block);
        const uint32_t seq = e.block.seq;
        for (size_t at = 0; at < sizeof e.block; at++) block[at] = static_cast<uint8_t>(at + i);
        e.block.seq = seq;
        e.id = ++i;
        e.matchCount = 1000 + i;
        e.log = i & 1;
        e.monitor = i & 2;
        e.prev = &e;
    }
    aclList& list = made.list;
    list.highestSeq = static_cast<uint32_t>(5 * n);
    list.lastEntryId = 0xABCD;
    list.bindings = reinterpret_cast<aclBinding*>(&made);
    list.remarks = reinterpret_cast<aclRemark*>(&made);
    list.seqTree = list.contentTree = reinterpret_cast<zekRadix*>(&made);
    return made;
}

}  // namespace

TEST_F(Mgmt, ListsGoWholeBelow40EntriesAndInChunksOf39Above) {
    struct {
        size_t entries;
        std::vector<uint32_t> messages;  // entries in each
    } const table[] = {{0, {0}},      {1, {1}},          {39, {39}},
                       {40, {39, 1}}, {78, {39, 39, 0}}, {79, {39, 39, 1}}};
    auto check = [&](const target& to, const auto& send, auto made, uint32_t id, const auto& row) {
        SCOPED_TRACE(std::string(to.name) + " " + std::to_string(id) + " " +
                     std::to_string(row.entries));
        if (!send) return;
        made.list.tail = nullptr;
        send(&made.list, id);
        auto sent = enqueued();
        ASSERT_EQ(sent.size(), row.messages.size());
        size_t first = 0;
        for (size_t i = 0; i < sent.size(); i++) {
            EXPECT_EQ(sent[i], copyBytes(to, id, made.list, made.entries, first, row.messages[i]));
            first += row.messages[i];
        }
    };
    for (const auto& row : table) {
        for (const target& to : targets) {
            check(to, to.list, filled<ipList>(std::string(140, 'n'), row.entries), 14409, row);
            check(to, to.list6, filled<ip6List>("six", row.entries), 14533, row);
        }
    }
}

TEST_F(Mgmt, DeletionsCarryNoEntriesAndChangesCarryOne) {
    auto four = filled<ipList>("four", 40);
    auto six = filled<ip6List>("six", 40);
    for (const target& to : targets) {
        SCOPED_TRACE(to.name);
        to.list(&four.list, 14412);
        EXPECT_EQ(enqueued(),
                  (std::vector<bytes>{copyBytes(to, 14412, four.list, four.entries, 0, 0)}));
        if (!to.entry) continue;
        to.list6(&six.list, 14536);
        to.entry(&four.list, &four.entries[7], 14410);
        to.entry(&four.list, &four.entries[8], 14411);
        to.entry6(&six.list, &six.entries[7], 14534);
        to.entry6(&six.list, &six.entries[8], 14535);
        EXPECT_EQ(enqueued(),
                  (std::vector<bytes>{copyBytes(to, 14536, six.list, six.entries, 0, 0),
                                      copyBytes(to, 14410, four.list, four.entries, 7, 1),
                                      copyBytes(to, 14411, four.list, four.entries, 8, 1),
                                      copyBytes(to, 14534, six.list, six.entries, 7, 1),
                                      copyBytes(to, 14535, six.list, six.entries, 8, 1)}));
    }
}

TEST_F(Mgmt, WhatCannotGoCostsADebugLineAndNothingElse) {
    auto made = filled<ipList>("four", 78);
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    const uint64_t blocks = testBlocksInUse();
    testFail(TEST_MEMORY, 2, 1);  // the second of three: the third is not tried
    aclSendListToSNMP(&made.list, 14409, nullptr);
    EXPECT_EQ(enqueued().size(), 1u);
    // What was lost comes with everything else when the task answers again.
    EXPECT_EQ(zekSwpQueueState(aclNode->queues.aclSNMPqHandle), zekSwpState::lost);
    zekSwpReplayBegin(aclNode->queues.aclSNMPqHandle);
    testFail(TEST_ENQUEUE, 2, 1);  // the third is
    aclSendListToSNMP(&made.list, 14409, nullptr);
    EXPECT_EQ(enqueued().size(), 3u);
    EXPECT_EQ(std::ranges::count_if(others,
                                    [](const std::string& row) {
                                        return row.ends_with("Error enqueueing msg to SNMP\r\n");
                                    }),
              1);
    testHost.deadQueues = {aclNode->queues.aclSYSADMTSKqHandle};
    aclSendListToSYSADMTSk(&made.list, 14412);
    EXPECT_EQ(enqueued().size(), 1u);
    EXPECT_EQ(others[0], "swpflush " + std::to_string(aclNode->queues.aclSYSADMTSKqHandle));
    EXPECT_EQ(testBlocksInUse(), blocks);

    for (uint32_t instance : {1u, 3u, 32u, 34u}) {  // not registered; not possible
        ipm2.instance = instance;
        aclSendListToIPM(&made.list, 14409, &ipm2);
    }
    aclSendListToSNMP(nullptr, 14409, nullptr);
    aclNode->queues.acltargetcard = ADDRESS_UNKNOWN;
    for (const target& to : targets) to.list(&made.list, 14409);
    EXPECT_TRUE(testTake().empty());
}
