// Every kind of message, byte for byte.
#include "tests/download/fixture.h"

using Messages = DownloadTest;

// Each byte of the block differs from its neighbours, so that a field in the wrong place shows.
static ipEntryBlock patternBlock(uint8_t protocol) {
    ipEntryBlock block;
    auto* b = reinterpret_cast<uint8_t*>(&block);
    for (size_t i = 0; i < sizeof block; i++) b[i] = static_cast<uint8_t>(i + 1);
    block.protocol = protocol;
    return block;
}

TEST_F(Messages, EveryByteOfAnEntryReachesTheAgentInItsPlace) {
    for (uint8_t protocol : std::initializer_list<uint8_t>{6, 17, 1, 50}) {
        SCOPED_TRACE(int{protocol});
        ipList made("edge", 0);
        made.add();
        aclEntry& entry = made.entries[0];
        entry.block = patternBlock(protocol);
        entry.log = 0x01020304;
        entry.monitor = 0x05060708;
        entry.id = entry.matchCount = 0x7F7F7F7F;  // never told
        ASSERT_EQ(aclSendEntToAclAgent(&entry, PORT_3_1, 14410, 1, 2, 0, made.list.name), 0);
        auto sent = enqueued();
        ASSERT_EQ(sent.size(), 1u);
        bytes want = messageBytes(14410, 3, 0,
                                  headerBytes({.kind = 0, .pipe = 2, .blockFill = 0}) +
                                      entryBytes(entry.block, entry.log, entry.monitor));
        ASSERT_EQ(want.size(), 1580u);
        EXPECT_EQ(sent[0], want);
    }
}

TEST_F(Messages, TheHeaderSaysWhereTheListIsBound) {
    aclNode->chassis.supportAclOnCP = 1;
    aclNode->queues.acl0qHandle = aclLinecardInfo[4].aclAgent;
    aclLinecardInfo[LINECARD_CP].agent0IpAddr = 0x7F0100C8;
    aclNode->groups.vlanGroups[2] = {.id = 5, .name = listNameMake("floor")};
    (void)aclVlanMemberAdd(VLAN_10, PORT_3_1);
    ipList made("edge", 1);
    std::string longName(140, 'n');
    ipList longList(longName, 1);
    const bytes one = entryBytes(made.entries[0].block, 0, 0);
    aclList* l = &made.list;
    constexpr uint32_t CP = 0x42068000, TRAPS = 0x42040000, SYSTEM = 0x48040000;
    struct {
        const char* what;
        int result;
        uint32_t id, slot;
        wantHeader header;
        uint32_t address = 0, service = 0;
    } const rows[] = {
        {"a list on a port",
         aclSendToAclAgent(l, PORT_3_1, 1, 14409, 7, 2, 0),
         14409,
         3,
         {.option = 7, .pipe = 2}},
        {"140 characters",
         aclSendToAclAgent(&longList.list, PORT_4_0, 1, 14416, 0, 0xFFFFFFFF, 0),
         14416,
         4,
         {.name = longName, .ifindex = PORT_4_0, .pipe = 0xFF}},
        {"its deletion",
         aclSendToAclAgent(l, PORT_3_1, 1, 14412, 7, 2, 0),
         14412,
         3,
         {.count = 0, .option = 7, .pipe = 2}},
        {"a bare slot", aclSendToAclAgent(l, 4, 1, 14420, 0, 0, 0), 14420, 4, {.ifindex = 4}},
        {"a VLAN group",
         aclSendToAclAgent(l, PORT_3_1, 1, 14416, 0, 1, 5),
         14416,
         3,
         {.ifindex = 0, .group = 5, .pipe = 1, .groupName = "floor"}},
        {"no VLAN group", aclSendToAclAgent(l, PORT_3_1, 1, 14416, 0, 1, 9), 14416, 3, {.pipe = 1}},
        {"a VLAN",
         aclSendVlanAclToAclAgent(l, VLAN_10, 1, 14409, 3, 0),
         14409,
         3,
         {.ifindex = VLAN_10, .option = 3, .vlan = 1}},
        {"an entry on a VLAN",
         aclSendVlanAclEntToAclAgent(l->head, VLAN_10, 0, 14411, 1, 0, l->name),
         14411,
         3,
         {.kind = 0, .ifindex = VLAN_10, .vlan = 1, .blockFill = 0}},
        {"the control processor",
         aclSendToAclAgent(l, CP, 1, 14409, 1, 0, 0),
         14409,
         0,
         {.ifindex = CP, .option = 1},
         0x7F0100C8,
         21121},
        {"its traps go to slot 0's agent",
         aclSendToAclAgent(l, TRAPS, 1, 14413, 0, 0, 0),
         14413,
         0,
         {.ifindex = TRAPS}},
        {"a system list's deletion",
         aclSendToAclAgent(l, SYSTEM, 1, 14415, 0, 0, 0),
         14415,
         3,
         {.count = 0, .ifindex = SYSTEM}},
    };
    auto sent = enqueued();
    ASSERT_EQ(sent.size(), std::size(rows));
    for (size_t i = 0; i < sent.size(); i++) {
        SCOPED_TRACE(rows[i].what);
        EXPECT_EQ(rows[i].result, 0);
        EXPECT_EQ(sent[i], messageBytes(rows[i].id, rows[i].slot, 0,
                                        headerBytes(rows[i].header) +
                                            (rows[i].header.count != 0 ? one : bytes{}),
                                        rows[i].address, rows[i].service));
    }
    EXPECT_EQ(made.list.count, 1);  // a deletion does not touch the list
}

// --- chunks --------------------------------------------------------------------------------------

struct chunkWant {
    uint32_t id, bodyLen, count, more;
};
struct family {
    size_t header, entry, countAt, seqAt, chunk;
};
constexpr family IP4{1056, 392, 312, 4, 17}, IP6{1056, 140, 312, 92, 48},
    MAC{784, 184, 180, 12, 38};

// Every message has the whole header in front, and the entries come once each, in order.
static void checkChunks(const std::vector<bytes>& sent, const std::vector<chunkWant>& want,
                        const family& f, size_t entries) {
    ASSERT_EQ(sent.size(), want.size());
    uint32_t seq = 0;
    for (size_t i = 0; i < sent.size(); i++) {
        SCOPED_TRACE("message " + std::to_string(i));
        const bytes& m = sent[i];
        ASSERT_EQ(m.size(), 132 + want[i].bodyLen);
        EXPECT_EQ(get32(m, 8), m.size());
        EXPECT_EQ(get32(m, 12), want[i].id);
        EXPECT_EQ(get32(m, 124), want[i].more);
        EXPECT_EQ(get32(m, 128), want[i].bodyLen);
        EXPECT_EQ(get32(m, 132 + f.countAt), want[i].count);
        bytes header = slice(m, 132, f.header), front = slice(sent[0], 132, f.header);
        put32(header, f.countAt, 0);
        put32(front, f.countAt, 0);
        EXPECT_EQ(header, front);
        for (size_t at = 132 + f.header; at < m.size(); at += f.entry)
            EXPECT_EQ(get32(m, at + f.seqAt), seq += 5);
    }
    EXPECT_EQ(seq, 5 * entries);
}

TEST_F(Messages, LongListsAreCutAtTheirFamilysChunk) {
    struct {
        const family& of;
        uint32_t id, next;  // of the first message and of those behind it
        std::vector<size_t> entries;
    } const rows[] = {
        {IP4, 14409, 14410, {0, 1, 17, 18, 34, 35}},
        {IP4, 14413, 14414, {18}},
        {IP4, 14416, 14417, {18}},
        {IP4, 14420, 14421, {18}},
        {IP6, 14533, 14534, {48, 49}},
        {IP6, 14537, 14538, {97}},
        {IP6, 14530, 14531, {49}},
        {MAC, 14484, 14485, {38, 39}},
        {MAC, 14496, 14497, {39}},
        {MAC, 14491, 14491, {39}},
    };
    auto send = [](const family& of, uint32_t id, size_t entries) {
        ipList four("edge", entries);
        ip6List six("edge6", entries);
        macList two("mac", entries);
        EXPECT_EQ(&of == &IP4   ? aclSendToAclAgent(&four.list, PORT_3_1, 1, id, 1, 2, 0)
                  : &of == &IP6 ? aclV6SendListToAclAgent(PORT_3_1, &six.list, id, 3, -1, 1)
                                : iAclSendToAclAgent(
                                      {.item = &two.list, .ifindex = PORT_3_1, .messageId = id}),
                  0);
    };
    for (const auto& row : rows)
        for (size_t entries : row.entries) {
            SCOPED_TRACE(std::to_string(row.id) + " with " + std::to_string(entries));
            std::vector<chunkWant> want;
            size_t left = entries;
            do {
                const size_t n = std::min(left, row.of.chunk);
                // The last message counts its own entries, those before it the whole list.
                want.push_back({want.empty() ? row.id : row.next,
                                static_cast<uint32_t>(row.of.header + n * row.of.entry),
                                static_cast<uint32_t>(left > n ? entries : n), left > n});
                left -= n;
            } while (left > 0);
            send(row.of, row.id, entries);
            checkChunks(enqueued(), want, row.of, entries);
        }
    const std::pair<const family&, std::vector<uint32_t>> deletions[] = {
        {IP4, {14412, 14415, 14419, 14422}},
        {IP6, {14532, 14536, 14540}},
        {MAC, {14486, 14490, 14498}}};
    for (const auto& [of, ids] : deletions)
        for (uint32_t id : ids) {
            SCOPED_TRACE(id);
            send(of, id, 49);
            checkChunks(enqueued(), {{id, static_cast<uint32_t>(of.header), 0, 0}}, of, 0);
        }
}

TEST_F(Messages, IPv6AndMacRecordsStandAsTheirStoresKeepThem) {
    ip6List six("six", 1);
    acl6Entry& entry6 = six.entries[0];
    std::memset(&entry6.block, 0x66, sizeof entry6.block);
    entry6.log = 1, entry6.monitor = 2, entry6.id = 3, entry6.matchCount = 4;
    ASSERT_EQ(aclV6SendListToAclAgent(PORT_3_1, &six.list, 14533, 3, -1, 9), 0);
    ASSERT_EQ(aclV6SendEntToAclAgent(PORT_3_1, &entry6, 14535, 3, 1, six.list.name), 0);
    bytes image(140);
    std::fill_n(image.begin() + 8, 108, uint8_t{0x66});
    for (uint32_t i = 0; i < 4; i++) put32(image, 116 + 4 * i, i + 1);

    macList two("two", 1);
    two.list.lastEntryId = 8;
    l2AclEntry& entry2 = two.entries[0];
    std::memset(&entry2.block, 0x22, sizeof entry2.block);
    entry2.id = 1, entry2.counterOptions = 2, entry2.log = 3, entry2.monitor = 4;
    ASSERT_EQ(iAclSendToAclAgent({.item = &two.list, .ifindex = PORT_3_1, .messageId = 14484}), 0);
    ASSERT_EQ(
        iAclSendToAclAgent(
            {.item = &entry2, .ifindex = PORT_3_1, .messageId = 14487, .name = &two.list.name}),
        0);
    bytes macHeader(784), macImage(184), onlyName(784);
    putText(macHeader, 16, "two");
    put32(macHeader, 168, 8);
    put32(macHeader, 172, 2);
    put32(macHeader, 180, 1);
    put32(macHeader, 184, PORT_3_1);
    std::fill_n(macHeader.begin() + 188, 520, uint8_t{0xB5});
    putText(onlyName, 16, "two");
    put32(onlyName, 180, 1);
    put32(onlyName, 184, PORT_3_1);
    std::fill_n(macImage.begin() + 8, 112, uint8_t{0x22});
    for (uint32_t i = 0; i < 4; i++) put32(macImage, 120 + 4 * i, i + 1);

    auto sent = enqueued();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(
        sent[0],
        messageBytes(14533, 3, 0, headerBytes({.name = "six", .option = 9, .pipe = 0xFF}) + image));
    EXPECT_EQ(
        sent[1],
        messageBytes(14535, 3, 0,
                     headerBytes({.name = "six", .kind = 0, .pipe = 1, .blockFill = 0}) + image));
    EXPECT_EQ(sent[2], messageBytes(14484, 3, 0, macHeader + macImage));
    EXPECT_EQ(sent[3], messageBytes(14487, 3, 0, onlyName + macImage));
}

// --- entries -------------------------------------------------------------------------------------

// The list's kind comes from the store that the message is about; the same name may stand in all.
TEST_F(Messages, AnEntrysHeaderNamesTheListOfItsStore) {
    uint32_t status = 0;
    listName name = listNameMake("same");
    ASSERT_NE(ipAccessListCreate(name, 1, 0, &status), nullptr);
    ASSERT_NE(ipSysAccessListCreate(name, 2, 0, PORT_5_0, &status), nullptr);
    ASSERT_NE(ipDosListCreate(name, 0x1234, 0, &status), nullptr);
    testTake();
    aclEntry entry{};
    struct {
        uint32_t id, kind;
    } const rows[] = {{14410, 1}, {14411, 1}, {14417, 1},      {14418, 1},
                      {14414, 2}, {14415, 2}, {14421, 0x1234}, {14423, 0x1234}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        EXPECT_EQ(aclSendEntToAclAgent(&entry, PORT_3_1, row.id, 1, 0, 0, name), 0);
        auto sent = enqueued();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0],
                  messageBytes(row.id, 3, 0,
                               headerBytes({.name = "same", .kind = row.kind, .blockFill = 0}) +
                                   entryBytes(entry.block, 0, 0)));
    }
}

TEST_F(Messages, BatchesOfSystemEntriesGoTogether) {
    struct {
        const char* what;
        uint32_t id, count;
        size_t chain;
        uint32_t destination;
        std::vector<chunkWant> want;
    } const rows[] = {
        {"thirteen", 14414, 13, 13, 0x0A000001, {{14414, 6152, 13, 0}}},
        {"thirteen deletions", 14415, 13, 13, 0, {{14415, 6152, 13, 0}}},
        {"twenty", 14414, 20, 20, 0, {{14414, 7720, 20, 1}, {14414, 2232, 3, 0}}},
        {"a part of the chain", 14414, 13, 15, 0, {{14414, 6152, 13, 0}}},
        {"a count beyond the chain", 14414, 20, 2, 0, {{14414, 1840, 2, 0}}},
        {"a count of none", 14414, 0, 2, 0, {{14414, 1448, 1, 0}}},
        {"to 224.0.0.7", 14414, 13, 13, 0xE0000007, {{14414, 6152, 13, 0}}},
        {"of an ordinary list", 14410, 13, 13, 0, {{14410, 1448, 1, 0}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        ipList made("traps", row.chain);
        made.entries[0].block.dst = row.destination;
        EXPECT_EQ(
            aclSendEntToAclAgent(made.list.head, PORT_3_1, row.id, row.count, 0, 0, made.list.name),
            0);
        size_t entries = 0;
        for (const chunkWant& w : row.want) entries += (w.bodyLen - 1056) / 392;
        checkChunks(enqueued(), row.want, IP4, entries);
    }
    ipList made("traps", 13);
    for (uint32_t destination : {0xE0000005u, 0xE0000006u, 0xE0000009u, 0xE0000012u}) {
        made.entries[0].block.dst = destination;
        EXPECT_EQ(aclSendEntToAclAgent(made.list.head, PORT_3_1, 14415, 13, 0, 0, made.list.name),
                  0);
        checkChunks(enqueued(), {{14415, 1448, 1, 0}}, IP4, 1);
    }
}

// A list where an entry belongs, or an entry where a list does, would be memory of the wrong type.
TEST_F(Messages, WhatDoesNotFitTheMessageIsRefused) {
    ipList made("edge", 2);
    ip6List made6("edge6", 2);
    macList made2("mac", 2);
    const aclSendItem l = &made.list, e = made.list.head, e6 = made6.list.head6, l2 = &made2.list,
                      e2 = made2.list.head;
    struct {
        aclSendItem item;
        std::vector<uint32_t> ids;
    } const rows[] = {
        {l, {14410, 14411, 14414, 14417, 14418, 14421, 14423, 14484, 14485, 14486, 9999}},
        {e, {14409, 14412, 14413, 14416, 14419, 14420, 14422, 14485, 14531, 14532}},
        {e6, {14410, 14415, 14485, 14530, 14536}},
        {l2, {14409, 14412, 14415, 14485, 14530}},
        {e2, {14410, 14484, 14490, 14531}},
        {static_cast<const aclList*>(nullptr), {14409}},
        {static_cast<const aclEntry*>(nullptr), {14410}},
    };
    for (const auto& row : rows)
        for (uint32_t id : row.ids)
            EXPECT_EQ(iAclSendToAclAgent({.item = row.item, .ifindex = PORT_3_1, .messageId = id}),
                      -1)
                << id;
    EXPECT_TRUE(enqueued().empty());
    // One byte more than a message holds.
    agentHdr header;
    vAclBuildIpcHdr(&header, PORT_3_1, 8061, 14473);
    bytes body(8061);
    EXPECT_EQ(iAclIPCSendAclList(body.data(), 8061, PORT_3_1, header, false), -1);
    EXPECT_EQ(iAclIPCSendAclList(body.data(), 8060, PORT_3_1, header, false), 0);
    auto sent = enqueued();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], messageBytes(14473, 3, 0, slice(body, 0, 8060)));
}
