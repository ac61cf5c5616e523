// AS-path and community lists through the dispatcher and the debug shell.
#include "include/policyMsg.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "tests/task/fixture.h"

namespace {

struct BgpRequests : TaskTest {
    uint32_t list(uint32_t code) { return ask(cli(code, "A", sizeof(cliHdr))); }
    uint32_t path(uint32_t code, const std::string& text, uint32_t option = 0) {
        auto bytes = cli(code, "A", sizeof(cliAspathReq));
        auto* req = reinterpret_cast<cliAspathReq*>(bytes.data());
        std::memcpy(req->text, text.data(), std::min(text.size(), sizeof req->text));
        req->option = option;
        return ask(bytes);
    }
    uint32_t community(uint32_t code, uint32_t low) {
        auto bytes = cli(code, "A", sizeof(cliCommReq));
        auto& entry = reinterpret_cast<cliCommReq*>(bytes.data())->entry;
        entry.kind = COMM_VALUES;
        entry.count = 1;
        entry.high[0] = 65000;
        entry.low[0] = low;
        return ask(bytes);
    }
    uint32_t goal(uint32_t code, uint8_t number) {
        auto bytes = cli(code, "A", sizeof(cliExtCommReq));
        auto& entry = reinterpret_cast<cliExtCommReq*>(bytes.data())->entry;
        entry.kind = COMM_VALUES;
        entry.body.selector = static_cast<uint32_t>(EXTCOMM_RT);
        entry.body.count = 1;
        entry.body.values[0] = {{0, 2, 0, 1, 0, 0, 0, number}};
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
    std::string debug(const char* function, const char* args) {
        std::string out;
        EXPECT_TRUE(zekDebugRun(function, args, &out));
        return out;
    }
};

TEST_F(BgpRequests, EveryCodeReachesItsStore) {
    for (uint32_t code : {1010u, 1014u, 1016u}) EXPECT_EQ(list(code), 0u) << code;
    EXPECT_EQ(path(1011, "_1_", 3), 0u);
    EXPECT_EQ(path(1011, "_1_", 3), ACL_E_ASPATH_EXISTS);
    EXPECT_EQ(path(1011, "_2_"), 0u);
    EXPECT_EQ(path(1011, std::string(230, '1')), 0u)
        << "a text without its NUL ends with the field";
    EXPECT_EQ(path(1009, std::string(230, '1')), 0u);
    EXPECT_EQ(path(1009, "_1_"), ACL_E_ASPATH_NOENTRY);
    EXPECT_EQ(community(1015, 1), 0u);
    EXPECT_EQ(community(1015, 2), 0u);
    EXPECT_EQ(community(1013, 1), 0u);
    EXPECT_EQ(community(1013, 1), ACL_E_COMM_NOENTRY);
    EXPECT_EQ(goal(1017, 1), 0u);
    EXPECT_EQ(goal(1017, 2), 0u);
    EXPECT_EQ(goal(1018, 1), 0u);
    EXPECT_EQ(goal(1018, 1), ACL_E_EXTCOMM_NOENTRY);

    EXPECT_EQ(show(1092, "A"), "ip as-path access-list A\r\n permit _1_\r\n permit _2_\r\n");
    EXPECT_EQ(show(1092, "A", 1), " permit _2_\r\n");
    EXPECT_EQ(show(1091, ""), "ip as-path access-list A\r\n permit _1_\r\n permit _2_\r\n");
    EXPECT_EQ(view<showReplyHdr>()->marker, 0u);
    EXPECT_EQ(listNameView(view<showReplyHdr>()->name), "A");
    EXPECT_EQ(show(1091, "A"), std::to_string(ACL_E_ASPATH_NOLIST));
    EXPECT_EQ(show(1094, "A"), "ip community-list A\r\n permit 65000:2\r\n");
    EXPECT_EQ(show(1093, ""), "ip community-list A\r\n permit 65000:2\r\n");
    EXPECT_EQ(view<showReplyHdr>()->marker, SHOW_MARKER);
    EXPECT_EQ(show(1096, "A"), "ip extcommunity-list A\r\n permit rt 1:2 \r\n");
    EXPECT_EQ(show(1095, ""), "ip extcommunity-list A\r\n permit rt 1:2 \r\n");
    EXPECT_EQ(show(1095, "A"), std::to_string(ACL_E_EXTCOMM_NOLIST));

    for (uint32_t code : {1008u, 1012u, 1019u}) EXPECT_EQ(list(code), 0u) << code;
    EXPECT_EQ(list(1008), ACL_E_ASPATH_NOLIST);
    // A request that ends before its entry does is refused.
    EXPECT_EQ(ask(cli(1011, "A", sizeof(cliAspathReq) - 1)), uint32_t{ACL_E_SYSTEM});
    EXPECT_EQ(ask(cli(1015, "A", sizeof(cliCommReq) - 1)), uint32_t{ACL_E_SYSTEM});
    EXPECT_EQ(ask(cli(1017, "A", sizeof(cliExtCommReq) - 1)), uint32_t{ACL_E_SYSTEM});
}

TEST_F(BgpRequests, TheDebugShellSaysWhatDecides) {
    for (uint32_t code : {1010u, 1014u, 1016u}) list(code);
    path(1011, "^1_");
    community(1015, 1);
    goal(1017, 5);
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
        {"ipAsCheck", "1 1 0 0 0 7", "1 {1}\ndrop\n"},
        {"ipAsCheck", "5 1 0 0 0 7", "usage: ipAsCheck COUNT AS1 AS2 AS3 AS4 LIST (text)\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.function) + " " + c.args);
        std::string answer = debug(c.function, c.args);
        std::erase(answer, '\n');
        std::string expected = c.answer;
        std::erase(expected, '\n');
        EXPECT_EQ(answer, expected);
    }
}

}  // namespace
