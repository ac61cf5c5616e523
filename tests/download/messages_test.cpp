// Every kind of message, byte for byte.
#include "tests/download/fixture.h"

struct Messages : DownloadTest {
    Messages() { std::memset(block.b, 0xB5, sizeof block.b); }
    bindingBlock block;

    // A send to port 3/1, and what must go: `n` entries, cut at their family's chunk; all messages
    // but the first under the id `next`.
    template <class Entry>
    void check(const madeList<Entry>& made, const aclSend& send, uint32_t next, uint32_t n) {
        constexpr bool mac = std::is_same_v<Entry, l2AclEntry>;
        constexpr uint32_t chunk = mac ? 38 : std::is_same_v<Entry, acl6Entry> ? 48 : 17;
        const auto count = static_cast<uint32_t>(made.list.count);
        wantHeader header{.runCount = count, .pipe = 2, .lastEntryId = 0xABCD, .placeholder = 3};
        if (send.entry != nullptr)  // of the list only its name and kind
            header = {.option = 0, .runCount = send.count, .pipe = 2, .block = 0};
        std::vector<bytes> want;
        uint32_t from = 0;
        do {
            const uint32_t left = n - from, carried = std::min(left, chunk);
            // The last message counts its own entries, those before it the whole list.
            header.count = left > carried ? n : carried;
            bytes body = mac ? macHeaderBytes(header) : headerBytes(header);
            for (uint32_t i = 0; i < carried; i++) body = body + imageBytes(made.entries[from + i]);
            want.push_back(
                messageBytes(want.empty() ? send.messageId : next, 3, left > carried, body));
            from += carried;
        } while (from < n);
        EXPECT_EQ(iAclSendToAclAgent({PORT_3_1, SLOT_NONE, 2}, send), 0);
        EXPECT_EQ(enqueued(), want) << send.messageId << " with " << n;
    }
    template <class Entry>
    void lists(uint32_t id, uint32_t next, const numbers& sizes) {
        for (uint32_t n : sizes) {
            const madeList<Entry> made(n);
            check(made, {id, &made.list, nullptr, 1, &block, 7}, next, n);
        }
    }
    template <class Entry>
    void deletionsAndEntries(const numbers& deletions, const numbers& entries) {
        const madeList<Entry> made(49);
        for (uint32_t id : deletions) check(made, {id, &made.list, nullptr, 1, &block, 7}, 0, 0);
        for (uint32_t id : entries) check(made, {id, &made.list, made.list.head}, 0, 1);
    }
    // `count` system entries of a chain, of which `carried` go.
    void batch(uint32_t id, uint32_t count, uint32_t chain, uint32_t carried,
               uint32_t destination = 0x0A000001) {
        madeList<aclEntry> made(chain);
        made.entries[0].block.dst = destination;
        check(made, {id, &made.list, made.list.head, count}, id, carried);
    }
};

TEST_F(Messages, LongListsAreCutAtTheirFamilysChunk) {
    lists<aclEntry>(14409, 14410, {0, 1, 17, 18, 34, 35});
    for (uint32_t id : {14413u, 14416u, 14420u}) lists<aclEntry>(id, id + 1, {18});
    lists<acl6Entry>(14533, 14534, {1, 48, 49});
    for (uint32_t id : {14530u, 14537u}) lists<acl6Entry>(id, id + 1, {97});
    lists<l2AclEntry>(14484, 14485, {1, 38, 39});
    lists<l2AclEntry>(14496, 14497, {39});
    lists<l2AclEntry>(14491, 14491, {39});
}

TEST_F(Messages, DeletionsOfListsCarryNoEntriesAndSendsOfEntriesOne) {
    deletionsAndEntries<aclEntry>({14412, 14415, 14419, 14422},
                                  {14410, 14411, 14414, 14415, 14417, 14418, 14421, 14423});
    deletionsAndEntries<acl6Entry>({14532, 14536, 14540},
                                   {14531, 14532, 14534, 14535, 14538, 14539});
    deletionsAndEntries<l2AclEntry>({14486, 14490, 14498},
                                    {14485, 14487, 14488, 14489, 14497, 14499});
}

TEST_F(Messages, BatchesOfSystemEntriesGoTogether) {
    for (uint32_t id : {14414u, 14415u}) batch(id, 13, 13, 13);
    batch(14414, 20, 20, 20);
    batch(14414, 13, 15, 13);  // a part of the chain
    batch(14414, 20, 2, 2);    // a count beyond the chain
    batch(14414, 0, 2, 1);
    batch(14410, 13, 13, 1);  // of an ordinary list
    batch(14414, 13, 13, 13, 0xE0000007);
    // To routing protocols they go one by one.
    for (uint32_t address : {0xE0000005, 0xE0000006, 0xE0000009, 0xE0000012})
        batch(14415, 13, 13, 1, address);
}

TEST_F(Messages, TheHeaderSaysWhereTheListIsBound) {
    constexpr uint32_t TRAPS = 0x42040000, SYSTEM = 0x48040000, CP = IFINDEX_CP_BIND,
                       CP_AGENT = 0x7F0100C8;
    constexpr int NO = SLOT_NONE;
    aclNode->queues.acl0qHandle = aclLinecardInfo[4].aclAgent;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = CP_AGENT;
    aclNode->groups.vlanGroups[2] = {.id = 5, .name = listNameMake("floor")};
    struct {
        uint32_t id;
        aclTarget target;
        uint32_t slot;
        wantHeader header;
        uint32_t address = 0, service = 0;
    } const rows[] = {
        {14420, {4}, 4, {.ifindex = 4}},                   // a bare slot
        {14409, {PORT_5_0, 3}, 3, {.ifindex = PORT_5_0}},  // another slot than the port's
        {14416, {PORT_4_0, NO, 0xFFFFFFFF}, 4, {.ifindex = PORT_4_0, .pipe = 0xFF}},
        {14409, {PORT_3_1}, 3, {.name = std::string(140, 'n')}},
        {14409, {3, NO, 0, VLAN_10}, 3, {.ifindex = VLAN_10, .vlan = 1}},
        // VLAN groups, and what is none
        {14416, {PORT_3_1, NO, 0, 0, 5}, 3, {.ifindex = 0, .group = 5, .groupName = "floor"}},
        {14416, {PORT_3_1, NO, 1, 0, 9}, 3, {.pipe = 1}},
        {14409, {CP}, 0, {.ifindex = CP}, CP_AGENT, 21121},
        {14413, {TRAPS}, 0, {.ifindex = TRAPS}},  // of the control processor: to slot 0's agent
        {14413, {SYSTEM}, 3, {.ifindex = SYSTEM}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.target.ifindex);
        madeList<aclEntry> made(1, row.header.name);
        EXPECT_EQ(iAclSendToAclAgent(row.target, {row.id, &made.list, nullptr, 1, &block, 7}), 0);
        const bytes body = headerBytes(row.header) + imageBytes(made.entries[0]);
        EXPECT_EQ(enqueued(), std::vector<bytes>{messageBytes(row.id, row.slot, 0, body,
                                                              row.address, row.service)});
    }
}

// A list where an entry belongs, or an entry where a list does.
TEST_F(Messages, WhatDoesNotFitTheMessageIsRefused) {
    madeList<aclEntry> made(2);
    for (uint32_t id :
         {14410u, 14411u, 14414u, 14417u, 14418u, 14421u, 14423u, 14485u, 14487u, 14488u, 14489u,
          14497u, 14499u, 14531u, 14534u, 14535u, 14538u, 14539u, 9999u})
        EXPECT_EQ(iAclSendToAclAgent({PORT_3_1}, {id, &made.list}), -1) << id;
    for (uint32_t id :
         {14409u, 14412u, 14413u, 14416u, 14419u, 14420u, 14422u, 14484u, 14486u, 14490u, 14491u,
          14492u, 14493u, 14494u, 14496u, 14498u, 14530u, 14533u, 14536u, 14537u, 14540u})
        EXPECT_EQ(iAclSendToAclAgent({PORT_3_1}, {id, &made.list, made.list.head}), -1) << id;
    EXPECT_TRUE(enqueued().empty());
    // As much as a message holds, and one byte more.
    const agentRoute route = agentRouteOf(PORT_3_1, 14473);
    agentHdr header;
    vAclBuildIpcHdr(&header, route, 1, 14473);
    const bytes body(8060, 0x77), longer(8061);
    EXPECT_EQ(iAclIPCSendAclList(longer.data(), 8061, route, header, false), -1);
    EXPECT_EQ(iAclIPCSendAclList(body.data(), 8060, route, header, false), 0);
    EXPECT_EQ(enqueued(), std::vector<bytes>{messageBytes(14473, 3, 0, body)});
}
