// What an agent says that it holds.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "chassis/agent/agent.h"
#include "tests/agent/messages.h"

namespace {

using nlohmann::json;
constexpr uint32_t PORT = 0x04040001;

struct Query : testing::Test {
    agent self;
    Query() {
        self.config.slot = 1;
        self.tables.plane = memplaneCreate();
    }
    ~Query() override { memplaneDestroy(&self.tables.plane); }

    bytes ask(uint32_t what, const std::string& name = "", uint32_t index = 0, uint32_t kind = 0,
              uint32_t ifindex = PORT) {
        bytes m(224);
        put32(m, 8, 224);
        put32(m, 12, 30001);
        put32(m, 32, 77);
        put32(m, 40, 0x7F000001);
        put32(m, 60, what);
        std::copy(name.begin(), name.end(), m.begin() + 64);
        put32(m, 204, ifindex);
        put32(m, 212, index);
        put32(m, 216, kind);
        return agentStateAnswer(self, m);
    }
    json text(const bytes& answer) {
        EXPECT_EQ(get32(answer, 28), 0u);
        EXPECT_EQ(get32(answer, 8), answer.size());
        EXPECT_EQ(get32(answer, 32), 77u);
        EXPECT_EQ(get32(answer, 52), 0x7F000001u);  // back to who asked
        return json::parse(answer.begin() + 204, answer.end());
    }
    void send(const listMessage& l) { (void)agentTablesApply(&self.tables, build(l)); }
};

TEST_F(Query, SummaryListsAndEntries) {
    send({14409, "IN", PORT, {entry4(10, 0x0A000001), entry4(20, 0x0A000002, 0)}});
    send({14413, "Global \"Acl\"", PORT, {entry4(0, 1)}});
    send({14416, "GROUP", 0, {entry4(5, 1)}, 0, -1, 3});
    send({14410, "IN", PORT, {}});  // refused

    json s = text(ask(1));
    EXPECT_EQ(s["slot"], 1);
    EXPECT_EQ(s["lists"], 3);
    EXPECT_EQ(s["entries"], 4);
    EXPECT_EQ(s["refused"]["count"], 1);
    EXPECT_NE(s["lastError"], "");

    json lists = text(ask(2))["lists"];
    ASSERT_EQ(lists.size(), 3u);
    EXPECT_EQ(text(ask(2, "GROUP"))["lists"][0]["group"], 3);
    EXPECT_EQ(text(ask(2, "GROUP"))["lists"][0]["block"], "");
    bytes bound = build({14416, "OUT", PORT, {}});
    const std::pair<size_t, uint8_t> words[] = {{319, 3}, {372, 0xAB}, {374, 1}, {909, 7}};
    for (const auto& [offset, value] : words) bound[HEADER + offset] = value;
    (void)agentTablesApply(&self.tables, bound);
    json out = text(ask(2, "OUT"))["lists"][0];
    EXPECT_EQ(out["block"], "ab0001");
    EXPECT_EQ(out["listKind"], 3);
    EXPECT_EQ(out["portPipe"], 7);
    send({14419, "OUT", PORT, {}});
    EXPECT_EQ(text(ask(2, "", 2))["lists"][0]["name"], "Global \"Acl\"");
    EXPECT_EQ(text(ask(2, "NONE"))["lists"].size(), 0u);

    json e = text(ask(3, "IN"))["entries"];
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0]["seq"], 10);
    EXPECT_EQ(e[0]["action"], 1);
    EXPECT_EQ(e[0]["src"], "10.0.0.1");
    EXPECT_EQ(e[0]["srcMask"], "255.255.255.255");
    EXPECT_EQ(e[0]["protocol"], 17);
    EXPECT_EQ(e[0]["srcOperator"], 1);
    EXPECT_EQ(e[0]["ports"], json::array({0x1234, 0, 0, 0}));
    EXPECT_EQ(e[1]["action"], 0);
    EXPECT_NE(e[0]["hash"], e[1]["hash"]);
    // FNV-1a of "a" is published; the entry's covers everything behind its first word.
    EXPECT_EQ(agentHash(std::array<uint8_t, 1>{'a'}), 0xAF63DC4C8601EC8Cu);
    bytes image = entry4(10, 0x0A000001);
    char expected[17];
    snprintf(expected, sizeof expected, "%016llx",
             static_cast<unsigned long long>(agentHash(std::span(image).subspan(4))));
    EXPECT_EQ(e[0]["hash"], expected);
    EXPECT_EQ(text(ask(3, "Global \"Acl\"", 0, 2))["entries"].size(), 1u);
}

// The hash of an IPv6 entry leaves out what is only the manager's: links, id, match count.
TEST_F(Query, Ipv6EntriesAreHashedWithoutTheirCounters) {
    bytes one = entry6(5, 1), counted = one, other = entry6(5, 2);
    put32(counted, 0, 7);
    put32(counted, 124, 9);
    put32(counted, 128, 1000);
    std::string hashes[3];
    const bytes* images[] = {&one, &counted, &other};
    for (int i = 0; i < 3; i++) {
        send({14533, "SIX", PORT, {*images[i]}});
        hashes[i] = text(ask(3, "SIX", 0, 1))["entries"][0]["hash"];
    }
    EXPECT_EQ(hashes[0], hashes[1]);
    EXPECT_NE(hashes[0], hashes[2]);
}

TEST_F(Query, LongListsComeInPages) {
    listMessage l{14409, "LONG", PORT, {}};
    for (uint32_t i = 0; i < 12000; i++) l.entries.push_back(entry4(5 + 5 * i, i));
    for (const bytes& m : chunks(l)) (void)agentTablesApply(&self.tables, m);
    uint32_t next = 0, found = 0, pages = 0;
    for (bool more = true; more; pages++) {
        json page = text(ask(3, "LONG", next));
        for (const json& e : page["entries"]) EXPECT_EQ(e["seq"], 5 + 5 * found++);
        more = page.contains("next");
        if (more) next = page["next"];
        ASSERT_LT(pages, 10u);
    }
    EXPECT_EQ(found, 12000u);
    EXPECT_EQ(pages, 3u);
}

TEST_F(Query, BadQuestionsGetAStatusAndNothingElse) {
    send({14409, "IN", PORT, {entry4(10, 1)}});
    EXPECT_EQ(get32(ask(3, "OTHER"), 28), 1u);
    EXPECT_EQ(get32(ask(3, "IN", 0, 0, PORT + 1), 28), 1u);
    EXPECT_EQ(get32(ask(3, "IN", 0, 99), 28), 1u);
    EXPECT_EQ(get32(ask(0), 28), 2u);
    EXPECT_EQ(get32(ask(4), 28), 2u);
    for (size_t n = 60; n < 224; n++) {
        bytes m(n, 0xFF);
        put32(m, 8, static_cast<uint32_t>(n));
        EXPECT_EQ(get32(agentStateAnswer(self, m), 28), 2u);
    }
}

}  // namespace
