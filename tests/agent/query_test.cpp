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
        const uint32_t words[][2] = {{8, 224},   {12, 30001},    {32, 77},     {40, 0x7F000001},
                                     {60, what}, {204, ifindex}, {212, index}, {216, kind}};
        for (const auto& [at, value] : words) put32(m, at, value);
        std::copy(name.begin(), name.end(), m.begin() + 64);
        return agentStateAnswer(self, m);
    }
    json text(const bytes& answer) {
        EXPECT_EQ(get32(answer, 28), 0u);
        EXPECT_EQ(get32(answer, 8), answer.size());
        EXPECT_EQ(get32(answer, 32), 77u);
        EXPECT_EQ(get32(answer, 52), 0x7F000001u);  // back to who asked
        return json::parse(answer.begin() + 204, answer.end());
    }
    void send(const bytes& m) { (void)agentTablesApply(&self.tables, m); }
    void sendMac(const bytes& m) { (void)macTablesApply(&self.macs, m); }
};

TEST_F(Query, SummaryAndLists) {
    send(build({14409, "IN", PORT, {entry4(10, 1), entry4(20, 2)}}));
    send(build({14413, "Global \"Acl\"", PORT, {entry4(0, 1)}}));
    bytes group = build({14416, "GROUP", 0, {entry4(5, 1)}, 0, -1, 3});
    const std::pair<size_t, uint8_t> words[] = {{319, 3}, {367, 1}, {372, 0xAB},
                                                {374, 1}, {909, 7}, {910, 'V'}};
    for (const auto& [offset, value] : words) group[HEADER + offset] = value;
    send(group);
    send(build({14410, "IN", PORT, {}}));  // refused

    bytes filter(144);
    put32(filter, 12, 14495);
    put32(filter, 128, 12);  // its length, no part of the filter
    filter[134] = 0xAB;
    send(filter);
    json s = text(ask(1));
    const std::pair<const char*, json> expected[] = {{"slot", 1},
                                                     {"lists", 3},
                                                     {"entries", 4},
                                                     {"messages", 5},
                                                     {"applied", 4},
                                                     {"protocolFilters", 1},
                                                     {"protocolFilter", "0000ab"}};
    for (const auto& [field, value] : expected) EXPECT_EQ(s[field], value) << field;
    EXPECT_EQ(s["refused"]["count"], 1);
    EXPECT_NE(s["lastError"], "");

    json lists = text(ask(2))["lists"];
    ASSERT_EQ(lists.size(), 3u);
    EXPECT_EQ(lists[0]["block"], "");
    EXPECT_EQ(
        lists[1].dump(),
        R"({"block":"ab0001","count":1,"direction":1,"group":3,"groupName":"V","ifindex":0,)"
        R"("implicitPermit":1,"inForce":true,)"
        R"("kind":"ipv4","kindNumber":0,"listKind":3,"name":"GROUP","portPipe":7,"vlan":false})");
    EXPECT_EQ(text(ask(2, "", 2))["lists"][0]["name"], "Global \"Acl\"");
    EXPECT_EQ(text(ask(2, "GROUP"))["lists"], json::array({lists[1]}));
    EXPECT_EQ(text(ask(2, "NONE"))["lists"].size(), 0u);
    EXPECT_EQ(text(ask(3, "Global \"Acl\"", 0, 2))["entries"].size(), 1u);
}

// Entries in which every byte says where it stands; the hash is that of their bytes.
TEST_F(Query, Entries) {
    auto image = [](size_t size, size_t seqAt) {
        bytes e(size);
        for (size_t i = 0; i < size; i++) e[i] = static_cast<uint8_t>(i * 37);
        put32(e, seqAt, 10);
        return e;
    };
    // Of runs of bytes, one behind the other.
    auto hash = [](const bytes& e, std::initializer_list<std::pair<size_t, size_t>> runs) {
        uint64_t h = 0xCBF29CE484222325u;
        for (auto [from, to] : runs)
            for (; from < to; from++) h = (h ^ e[from]) * 0x100000001B3u;
        char hex[17];
        snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(h));
        return std::string(hex);
    };
    bytes four = image(ENTRY4, 4), six = image(ENTRY6, 92), mac = image(ENTRY_MAC, 12);
    std::copy(mac.begin() + 8, mac.begin() + 64, mac.begin() + 64);
    std::copy(four.begin() + 56, four.begin() + 200, four.begin() + 204);
    send(build({14409, "IN", PORT, {four, entry4(20, 2)}}));
    send(build({14533, "SIX", PORT, {six}}));
    send(build({14484, "MAC", PORT, {mac}}));
    send(build({14541, "PAIRS", PORT, {four}}));
    json e = text(ask(3, "IN"))["entries"], e6 = text(ask(3, "SIX", 0, 1))["entries"][0];
    json eMac = text(ask(3, "MAC", 0, 5))["entries"][0];
    EXPECT_EQ(text(ask(3, "PAIRS", 0, 6))["entries"][0]["srcMac"], "d0:f5:1a:3f:64:89");
    EXPECT_EQ(e[0]["hash"], hash(four, {{8, 392}, {4, 8}}));
    EXPECT_EQ(e[1]["hash"], hash(entry4(20, 2), {{8, 392}, {4, 8}}));  // mostly zeros
    // Without links, id and match count, and of a MAC entry without its second half.
    EXPECT_EQ(e6["hash"], hash(six, {{8, 92}, {96, 124}, {92, 96}}));
    EXPECT_EQ(eMac["hash"], hash(mac, {{8, 12}, {16, 64}, {124, 184}, {12, 16}}));
    // What is kept and not shown.
    const agentRule kept = agentRuleOf(*wireView<agentEntry>(std::span<const uint8_t>(four)));
    EXPECT_EQ(kept.owner, get32(four, 380));
    EXPECT_EQ(agentRuleOf(*wireView<agentEntry6>(std::span<const uint8_t>(six))).owner,
              get32(six, 8));
    for (size_t i = 0; i < 3; i++) EXPECT_EQ(kept.carried[i], get32(four, 16 + 4 * i));
    e[0].erase("hash");
    e6.erase("hash");
    eMac.erase("hash");
    EXPECT_EQ(e[0].dump(),
              R"({"action":676164247,"counterOptions":3168863787,"dscp":84,"dst":"64.101.138.17)"
              R"(5","dstMask":"212.249.30.67","dstOperator":1484628679,"fragments":3236235823,")"
              R"(icmp":"14395e83","kind":810908319,"l2":"a8cdf2173c6186abd0f51a3f6489aed3f81d42)"
              R"(678cb1d6fb20456a8fb4d9fe23486d92b7dc01264b7095badf04294e7398bde2072c51769b","l)"
              R"(og":878280355,"monitor":339304067,"order":2629953035,"packets":0,"ports":[6043)"
              R"(3,13915,32933,51951],"precedence":4230039147,"protoMarker":1956232931,"protoco)"
              R"(l":3758434895,"seq":10,"src":"24.61.98.135","srcMask":"172.209.246.27","srcOpe)"
              R"(rator":3303607859,"tcpFlags":137187959,"tos":2427837183})");
    EXPECT_EQ(e6.dump(),
              R"({"action":1349884607,"counterOptions":184,"dst":"84a9:cef3:183d:6287:acd1:f61b)"
              R"(:4065:8aaf","dstMask":"d4f9:1e43:688d:b2d7:fc21:466b:90b5:daff","dstOperator":)"
              R"(1956232931,"log":3303607859,"monitor":1484628679,"packets":0,"ports":[2093,211)"
              R"(11,40129,58891],"protoMarker":3168863787,"protocol":221,"seq":10,"src":"e409:2)"
              R"(e53:789d:c2e7:c31:567b:a0c5:ea0f","srcMask":"3459:7ea3:c8ed:1237:5c81:a6cb:f01)"
              R"(5:3a5f","srcOperator":3758434895,"tcpFlags":48})");
    EXPECT_EQ(eMac.dump(),
              R"({"action":676164247,"counterOptions":3960551003,"dst":"0c:31:56:7b:a0:c5","dst)"
              R"(Mask":"ea:0f:34:59:7e:a3","encapsulation":1552000715,"etherType":33961,"etherT)"
              R"(ypeOperator":4027923039,"kind":3370979895,"log":2158349039,"monitor":339304067)"
              R"(,"order":2899441179,"packets":0,"seq":10,"src":"50:75:9a:bf:e4:09","srcMask":")"
              R"(2e:53:78:9d:c2:e7"})");
    EXPECT_EQ(agentHash(std::array<uint8_t, 1>{'a'}), 0xAF63DC4C8601EC8Cu);  // as published
    six[8 + 81] = 58;  // then the operator is a message's type and code
    send(build({14533, "ICMP", PORT, {six}}));
    json eIcmp = text(ask(3, "ICMP", 0, 1))["entries"][0];
    EXPECT_EQ(eIcmp["icmp"], "e0052a4f");
    EXPECT_FALSE(eIcmp.contains("srcOperator"));
}

TEST_F(Query, LongListsComeInPages) {
    listMessage l{14409, "LONG", PORT, {}};
    for (uint32_t i = 0; i < 12000; i++) l.entries.push_back(entry4(5 + 5 * i, i));
    for (const bytes& m : chunks(l)) send(m);
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

TEST_F(Query, TrapsAndMembers) {
    constexpr uint32_t VLAN = 0x3800A;
    sendMac(trap({VLAN, 0x01005E000005, 1, 2, 10, 77, 3, 1}));
    sendMac(trap({PORT, 0, 1, 1}));
    sendMac(trap({PORT, 7, 2, 1}));  // refused
    sendMac(member(1, PORT, 10, 500));
    json s = text(ask(1))["mac"];
    EXPECT_EQ(s["traps"], 2);
    EXPECT_EQ(s["members"], 1);
    EXPECT_EQ(s["refused"]["value"], 1);
    EXPECT_NE(s["lastError"], "");
    EXPECT_EQ(text(ask(4))["traps"].dump(),
              R"([{"cpus":2,"egressPort":77,"ifindex":229386,"lda":1,"mac":"01:00:5e:00:00:05",)"
              R"("mode":3,"vlan":10},{"cpus":1,"egressPort":0,"ifindex":67371009,"lda":0,)"
              R"("mac":"00:00:00:00:00:00","mode":0,"vlan":0}])");
    EXPECT_EQ(text(ask(5))["members"].dump(), R"([{"group":500,"port":67371009,"vlan":10}])");
    // Pages.
    constexpr uint32_t many = 12000;
    for (uint32_t i = 0; i < many; i++) sendMac(member(1, PORT + i, 10, 1));
    uint32_t pages = 0, rows = 0, next = 0;
    do {
        json page = text(ask(5, "", next));
        for (const json& row : page["members"]) EXPECT_EQ(row["port"], PORT + rows++);
        next = page.value("next", 0u);
    } while (++pages < 10 && next != 0);
    EXPECT_EQ(pages, 3u);
    EXPECT_EQ(rows, many);
    EXPECT_EQ(text(ask(5, "", many + 1))["members"].size(), 0u);
    self.config.cp = true;
    EXPECT_FALSE(text(ask(1)).contains("mac"));
}

TEST_F(Query, BadQuestionsGetAStatusAndNothingElse) {
    send(build({14409, "IN", PORT, {entry4(10, 1)}}));
    for (const bytes& a : {ask(3, "OTHER"), ask(3, "IN", 0, 0, PORT + 1), ask(3, "IN", 0, 99)})
        EXPECT_EQ(get32(a, 28), 1u);
    for (uint32_t what : {0u, 6u}) EXPECT_EQ(get32(ask(what), 28), 2u);
    for (size_t n = 60; n < 224; n++) {
        bytes m(n, 0xFF);
        put32(m, 8, static_cast<uint32_t>(n));
        EXPECT_EQ(get32(agentStateAnswer(self, m), 28), 2u);
    }
}

}  // namespace
