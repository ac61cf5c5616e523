// Copies at the management tasks, put together byte by byte from docs/wire-formats.md.
#include "ipacl/zekipaccess.h"
#include "tests/download/fixture.h"

struct Mgmt : DownloadTest {
    // A task's service says which it is; its address here, too.
    struct target {
        uint32_t type, service;
        std::function<void(const aclList*, uint32_t)> list;
        void (*entry)(const aclList*, const listEntry*, uint32_t) = nullptr;
        uint32_t address() const { return 0x7F010000 + service; }
    };
    void SetUp() override {
        DownloadTest::SetUp();
        for (const target& to : targets) {
            testHost.addresses[{to.service >> 7, to.service >> 2 & 31}] = to.address();
            bytes m = message(to.type);
            put32(m, 44, {to.service});
            (void)deliver(m);
        }
        ipm.instance = 2;
    }
    listClient ipm{};
    const std::vector<target> targets = {
        {14405, 2305, aclSendListToSNMP, aclSendEntToSNMP},
        {14407, 4225, aclSendListToSYSADMTSk, aclSendEntToSYSADMTSK},
        {14406, 11145, [this](const aclList* l, uint32_t id) { aclSendListToIPM(l, id, &ipm); }},
    };

    static bytes copyOf(const aclEntry& e) {
        return imageOf(184, e.block, 1, {e.id, e.matchCount, e.log, e.monitor});
    }
    static bytes copyOf(const acl6Entry& e) { return imageBytes(e) + bytes(44); }
    template <class Entry>
    static bytes copy(const target& to, uint32_t id, const madeList<Entry>& made, uint32_t first,
                      uint32_t n) {
        bytes b = messageBytes(id, 0, 0, {}, to.address(), to.service);
        b.resize(124);
        b.resize(860);
        putText(b, 124 + 16, std::string(140, 'n'));
        put32(b, 8, {860 + 184 * n});
        put32(b, 32, {0});
        const aclList& l = made.list;
        put32(b, 124 + 176, {n, l.kind, l.placeholder, n, l.highestSeq});
        for (uint32_t i = first; i < first + n; i++) b = b + copyOf(made.entries[i]);
        return b;
    }
    // Lists go whole below 40 entries and in chunks of 39 above, deletions carry no entries, and
    // changes carry one.
    template <class Entry>
    void check(uint32_t add, uint32_t addEntry, uint32_t delEntry, uint32_t drop) {
        const std::pair<uint32_t, std::vector<uint32_t>> sizes[] = {
            // and what is in each message
            {0, {0}}, {1, {1}}, {39, {39}}, {40, {39, 1}}, {78, {39, 39, 0}}, {79, {39, 39, 1}}};
        for (const target& to : targets) {
            SCOPED_TRACE(to.service);
            for (const auto& [n, messages] : sizes) {
                const madeList<Entry> made(n, std::string(140, 'n'));
                to.list(&made.list, add);
                const std::vector<bytes> sent = enqueued();
                ASSERT_EQ(sent.size(), messages.size());
                for (uint32_t i = 0; i < sent.size(); i++)
                    EXPECT_EQ(sent[i], copy(to, add, made, 39 * i, messages[i])) << n;
                to.list(&made.list, drop);
                EXPECT_EQ(enqueued(), (std::vector<bytes>{copy(to, drop, made, 0, 0)}));
                for (uint32_t id : {addEntry, delEntry}) {
                    if (to.entry == nullptr || n == 0) continue;
                    to.entry(&made.list, &made.entries[n / 2], id);
                    EXPECT_EQ(enqueued(), (std::vector<bytes>{copy(to, id, made, n / 2, 1)}));
                }
            }
        }
    }
};

TEST_F(Mgmt, CopiesCarryListsAndEntriesOfBothFamilies) {
    check<aclEntry>(14409, 14410, 14411, 14412);
    check<acl6Entry>(14533, 14534, 14535, 14536);
}

TEST_F(Mgmt, WhatCannotGoCostsADebugLineAndNothingElse) {
    const madeList<aclEntry> made(78);
    const zekSwpHandle snmp = aclNode->queues.aclSNMPqHandle;
    DEBUG_ACL_MGR = DEBUG_ACL_IPC;
    const uint64_t blocks = testBlocksInUse();
    testFail(TEST_MEMORY, 2, 1);  // the second of three: the third is not tried
    aclSendListToSNMP(&made.list, 14409);
    EXPECT_EQ(enqueued().size(), 1u);
    // What was lost comes with everything else when the task answers again.
    EXPECT_EQ(zekSwpQueueState(snmp), zekSwpState::lost);
    zekSwpReplayBegin(snmp);
    testFail(TEST_ENQUEUE, 2, 1);  // the third is
    testHost.deadQueues = {snmp};
    aclSendListToSNMP(&made.list, 14409);
    EXPECT_EQ(enqueued().size(), 3u);
    EXPECT_EQ(effects[0], "swpflush " + std::to_string(snmp));
    EXPECT_EQ(std::ranges::count(effects, "debug Error enqueueing msg to SNMP\r\n"), 1);
    EXPECT_EQ(testBlocksInUse(), blocks);

    for (uint32_t instance : {1u, 3u, 32u, 34u}) {  // not registered; not possible
        ipm.instance = instance;
        aclSendListToIPM(&made.list, 14409, &ipm);
    }
    aclSendListToSNMP(nullptr, 14409);
    aclNode->queues.acltargetcard = ADDRESS_UNKNOWN;
    for (const target& to : targets) to.list(&made.list, 14409);
    EXPECT_TRUE(testTake().empty());
}
