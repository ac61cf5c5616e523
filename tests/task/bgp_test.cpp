// AS-path and community lists through the dispatcher and the debug shell.
#include "include/policyMsg.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "tests/task/fixture.h"

namespace {

struct BgpRequests : TaskTest {
    uint32_t list(uint32_t code) { return ask(cli(code, "A", sizeof(cliHdr))); }
    // An entry's request: the text of a path; the one value of a community or a route target.
    uint32_t entry(uint32_t code, const std::string& text, uint32_t option = 0) {
        auto bytes = cli(code, "A", std::max(sizeof(cliCommReq), sizeof(cliExtCommReq)));
        if (code == 1009 || code == 1011) {
            auto* req = reinterpret_cast<cliAspathReq*>(bytes.data());
            text.copy(req->text, sizeof req->text);
            req->option = option;
        } else if (code == 1013 || code == 1015) {
            auto& e = reinterpret_cast<cliCommReq*>(bytes.data())->entry;
            e.kind = COMM_VALUES;
            e.count = 1;
            e.high[0] = 65000;
            e.low[0] = static_cast<uint32_t>(std::stoi(text));
        } else {
            auto& e = reinterpret_cast<cliExtCommReq*>(bytes.data())->entry;
            e.kind = COMM_VALUES;
            e.body.selector = static_cast<uint32_t>(EXTCOMM_RT);
            e.body.count = 1;
            e.body.values[0] = {{0, 2, 0, 1, 0, 0, 0, static_cast<uint8_t>(std::stoi(text))}};
        }
        return ask(bytes);
    }
    // The text of a show, or its status.
    std::string show(uint32_t code, const char* name, uint32_t resume = 0) {
        auto bytes = cli(code, "", sizeof(cliShowReq));
        auto* req = reinterpret_cast<cliShowReq*>(bytes.data());
        req->cli.cookie = 77u;
        req->name = listNameMake(name);
        req->resume = resume;
        auto sent = deliver(bytes);
        if (sent.size() != 1) return "no answer";
        reply = sent[0];
        if (view<cliHdr>()->cookie == 77) return std::to_string(view<cliHdr>()->result);
        return reinterpret_cast<char*>(reply.data()) + SHOW_TEXT_OFFSET;
    }
};

TEST_F(BgpRequests, EveryCodeReachesItsStore) {
    for (uint32_t code : {1010u, 1014u, 1016u}) EXPECT_EQ(list(code), 0u) << code;
    const std::string unended(230, '1');  // a text without its NUL ends with the field
    struct {
        uint32_t code;
        std::string text;
        uint32_t result, option = 0;
    } const changes[] = {
        {1011, "_1_", 0, 3}, {1011, "_1_", ACL_E_ASPATH_EXISTS, 3},
        {1011, "_2_", 0},    {1011, unended, 0},
        {1009, unended, 0},  {1009, "_1_", ACL_E_ASPATH_NOENTRY},
        {1015, "1", 0},      {1015, "2", 0},
        {1013, "1", 0},      {1013, "1", ACL_E_COMM_NOENTRY},
        {1017, "1", 0},      {1017, "2", 0},
        {1018, "1", 0},      {1018, "1", ACL_E_EXTCOMM_NOENTRY},
    };
    for (const auto& row : changes)
        EXPECT_EQ(entry(row.code, row.text, row.option), row.result) << row.code << row.text;
    const std::string paths = "ip as-path access-list A\r\n permit _1_\r\n permit _2_\r\n",
                      communities = "ip community-list A\r\n permit 65000:2\r\n",
                      goals = "ip extcommunity-list A\r\n permit rt 1:2 \r\n";
    for (auto [code, shown] : {std::pair{1092u, paths}, {1094u, communities}, {1096u, goals}}) {
        EXPECT_EQ(show(code, "A"), shown);
        EXPECT_EQ(show(code - 1, ""), shown);
        EXPECT_EQ(view<showReplyHdr>()->marker, code == 1092 ? 0u : SHOW_MARKER);
        EXPECT_EQ(listNameView(view<showReplyHdr>()->name), "A");
    }
    EXPECT_EQ(show(1092, "A", 1), " permit _2_\r\n");
    EXPECT_EQ(show(1091, "A"), std::to_string(ACL_E_ASPATH_NOLIST));
    EXPECT_EQ(show(1095, "A"), std::to_string(ACL_E_EXTCOMM_NOLIST));
    for (uint32_t code : {1008u, 1012u, 1019u}) EXPECT_EQ(list(code), 0u) << code;
    EXPECT_EQ(list(1008), ACL_E_ASPATH_NOLIST);
}

TEST_F(BgpRequests, TheDebugShellSaysWhatDecides) {
    for (uint32_t code : {1010u, 1014u, 1016u}) list(code);
    entry(1011, "^1_");
    entry(1015, "1");
    entry(1017, "5");
    struct {
        const char *function, *args, *answer;
    } cases[] = {
        {"testAspath", "A 1  2", R"({"verdict":"permit","entry":" permit ^1_ "})"},
        {"testAspath", "A", R"({"verdict":"deny","entry":null})"},
        {"testAspath", "B 1", R"({"error":"No such AS-path access list"})"},
        {"testCommunity", "A 65000:1 no-export",
         R"({"verdict":"permit","entry":" permit 65000:1"})"},
        {"testCommunity", "A 4259840001 exact",
         R"({"verdict":"permit","entry":" permit 65000:1"})"},
        {"testCommunity", "A 65000:1 local-AS exact", R"({"verdict":"deny","entry":null})"},
        {"testCommunity", "A 65000", R"({"verdict":"deny","entry":null})"},
        {"testCommunity", "A 70000:1", R"({"error":"not a community: 70000:1"})"},
        {"testExtCommunity", "A 192.0.2.1:9 rt 1:5",
         R"({"verdict":"permit","entry":" permit rt 1:5 "})"},
        {"testExtCommunity", "A rt as4 1:5", R"({"verdict":"deny","entry":null})"},
        {"testExtCommunity", "A rt 1:5 non-trans", R"({"verdict":"deny","entry":null})"},
        {"testExtCommunity", "A soo 1:5", R"({"verdict":"deny","entry":null})"},
        {"testExtCommunity", "A rt 70000:65536",
         R"({"error":"not an extended community: 70000:65536"})"},
        {"ipAsCheck", "1 1 0 0 0 7", "1 {1}drop"},
        {"ipAsCheck", "5 1 0 0 0 7", "usage: ipAsCheck COUNT AS1 AS2 AS3 AS4 LIST (text)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.function) + " " + c.args);
        std::string answer;
        EXPECT_TRUE(zekDebugRun(c.function, c.args, &answer));
        std::erase(answer, '\n');
        EXPECT_EQ(answer, c.answer);
    }
}

}  // namespace
