// Messages in, answers out: every type, every code, and what is wrong with them.
#include <functional>
#include <map>
#include <thread>

#include "include/clientMsg.h"
#include "include/policyMsg.h"
#include "tests/task/fixture.h"

namespace {

typedef std::map<std::string, std::string> groups;

// Numbers of one behaviour together: {"silent", " 8 401-402 ..."}; those without one are left out.
groups grouped(uint32_t end, const std::function<std::string(uint32_t)>& behaviour) {
    groups all;
    std::string last;
    for (uint32_t number = 0, first = 0; number <= end; number++) {
        const std::string now = number < end ? behaviour(number) : "";
        if (now == last) continue;
        if (!last.empty())
            all[last] += " " + std::to_string(first) +
                         (first + 1 < number ? "-" + std::to_string(number - 1) : "");
        last = now;
        first = number;
    }
    return all;
}

struct Dispatch : TaskTest {
    uint32_t create(const char* name, uint32_t kind = IP_KIND_STANDARD) {
        return ipAccessListCreateExt(listNameMake(name), kind, 0, INTF_V4);
    }
    uint32_t add(const char* name, ipEntryBlock block) {
        return ipAddAccessEntryExt(listNameMake(name), &block, 0, 0, INTF_V4);
    }
};

}  // namespace

TEST_F(Dispatch, WhatIsTooShortLiesOrIsUnknownIsCountedAndNothingOfAnEarlierMessageLeaves) {
    EXPECT_TRUE(deliver(std::vector<uint8_t>(59)).empty());
    EXPECT_EQ(aclCounters.tooShort, 1u);
    EXPECT_TRUE(deliver(message(9999)).empty());
    EXPECT_EQ(aclCounters.unknownType, 1u);
    for (uint32_t lie : {0u, 59u, 61u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(lie);
        auto bytes = message(MT_CLI_COMMAND);
        as<ipcHdr>(bytes).length = lie;
        EXPECT_EQ(ask(bytes), ACL_E_SYSTEM);
        EXPECT_EQ(reply.size(), 76u);  // long enough for result and code, and zero behind what came
        EXPECT_EQ(uint32_t{view<cliHdr>()->code}, 0u);
    }
    EXPECT_EQ(aclCounters.badLength, 4u);
}

TEST_F(Dispatch, EveryTypeIsAnsweredAsItsSenderExpects) {
    uint32_t session = 77;
    auto answer = [&](uint32_t type) -> std::string {
        auto bytes = message(type, 300);
        as<ipcHdr>(bytes).session = ++session;
        as<ipcHdr>(bytes).swpSeq = 1u;
        as<clientRegReq>(bytes).name = listNameMake("A B");
        const aclTaskCounters before = aclCounters;
        auto sent = deliver(bytes);
        if (aclCounters.badNames != before.badNames) return "wants a name";
        if (sent.empty())
            return said("swpanswer 1")                             ? "acknowledged"
                   : aclCounters.unknownType == before.unknownType ? "silent"
                                                                   : "";
        const auto& hdr = as<ipcHdr>(sent[0]);
        EXPECT_EQ(sent[0].size(), 300u);
        EXPECT_EQ(uint32_t{hdr.source.svce}, CLIENT_SERVICE);
        EXPECT_EQ(uint32_t{hdr.source.slot}, 3u);
        EXPECT_EQ(uint32_t{hdr.target.svce}, 7809u);
        if (hdr.status != 0) return "in the status";
        return hdr.result == ACL_E_SYSTEM ? "failed" : "answered";
    };
    EXPECT_EQ(grouped(21000, answer),
              (groups{{"acknowledged",
                       " 1112-1113 2804-2806 10873-10874 10876 10878 10880 10896 14436 14474 "
                       "14490-14494 14502"},
                      {"answered",
                       " 2009 6001-6002 8402 14404-14405 14407 14435 14504-14505 14517-14518 14552 "
                       "20417"},
                      {"failed", " 1110-1111"},
                      {"in the status", " 14466-14467 14469-14472 14480-14483"},
                      {"silent",
                       " 8 401-402 801 14401 14403 14406 14437 14460 14462-14465 14468 14495 "
                       "14522-14524 14529"},
                      {"wants a name", " 14442-14457"}}));
}

TEST_F(Dispatch, ARepeatedMessageIsAcknowledgedAgainButHandledOnce) {
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    auto send = [this](std::vector<uint8_t> bytes, uint32_t session, uint32_t number) {
        aclNode->config.cfgNotifStart = 0;
        as<ipcHdr>(bytes).session = session;
        as<ipcHdr>(bytes).swpSeq = number;
        deliver(bytes);
        return aclNode->config.cfgNotifStart;
    };
    auto start = message(MT_CFG_START_BLK_CFG_NOTIF), stp = message(MT_STP_ENABLE, 68);
    EXPECT_EQ(send(start, 9, 1), 1u);
    EXPECT_EQ(send(start, 9, 1), 0u);
    EXPECT_TRUE(said("swpanswer 1"));
    EXPECT_FALSE(said("Error:"));
    EXPECT_EQ(send(start, 9, 3), 0u);  // 2 is missing
    EXPECT_TRUE(said("Error: Error in receiving IFM VlOSTATE Notif \r\n"));
    EXPECT_EQ(aclCounters.outOfOrder, 1u);
    // The MAC manager's repetition is an error, unlike everybody else's.
    send(stp, 5, 1);
    EXPECT_FALSE(said("Error:"));
    send(stp, 5, 1);
    EXPECT_TRUE(said("Error: Error in swp_ack for Mac_mgr\r\n"));
}

// What a line could not show as it is, is refused wherever something is made.
TEST_F(Dispatch, EveryCodeIsAnsweredOnceAndNoneMakesALineOfABadName) {
    uint64_t refused = 0;
    for (uint32_t code = 0; code < 31000; code = code == 19000 ? 30000 : code + 1) {
        // These have no name, and a line of their own.
        if (code == CLI_MAC_EGRESS_ENABLE || code == CLI_DHCP_TRAP) continue;
        const uint64_t before = aclCounters.badNames;
        EXPECT_EQ(deliver(cli(code, "A B", 1200)).size(), 1u) << code;
        refused += aclCounters.badNames - before;
        ASSERT_TRUE(testCfgLines().empty()) << code;
    }
    EXPECT_GT(refused, 20u);
    for (const char* bad : {"A\tB", "X\nip access-list standard Y", "\x7f", "\x01"}) {
        const uint64_t before = aclCounters.badNames;
        EXPECT_EQ(ask(cli(CLI_IP_LIST_CREATE, bad, 1100)), ACL_E_SYSTEM);
        EXPECT_EQ(aclCounters.badNames, before + 1);
    }
    EXPECT_TRUE(testCfgLines().empty());
}

TEST_F(Dispatch, OtherTextsThatNoLineCanShowAreRefused) {
    struct {
        uint32_t code;
        size_t at;
        const char* text;
        size_t kindAt = 0;  // of a text that may be values
    } rows[] = {
        {1022, offsetof(cliRmapClauseReq, clause.list), "A B"},
        {1023, offsetof(cliRmapClauseReq, clause.list), "A B"},
        {1025, offsetof(cliRmapClauseReq, clause.list), "A B"},
        {1161, offsetof(cliRmapClauseReq, clause.list), "A B"},
        {1188, offsetof(cliRmapClauseReq, clause.list), "A B"},
        {1039, offsetof(cliBindReq, vlanText), "10\n20"},
        {1011, offsetof(cliAspathReq, text), "1 2\n"},
        {1142, offsetof(cliRemarkReq, text), "1 2\n"},
        {1144, offsetof(cliRemarkReq, text), "\x7f"},
        {1169, offsetof(cliRemarkReq, text), "1\t"},
        {1153, offsetof(cliDescriptionReq, text), "1 2\r"},
        {1015, offsetof(cliCommReq, entry.text), "1\n", offsetof(cliCommReq, entry.kind)},
        {1017, offsetof(cliExtCommReq, entry.body.text), "1\n",
         offsetof(cliExtCommReq, entry.kind)},
    };
    uint32_t refused = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code);
        auto bytes = cli(row.code, "N", 1100);
        std::strcpy(reinterpret_cast<char*>(&bytes[row.at]), row.text);
        if (row.kindAt != 0) {
            (void)ask(bytes);
            EXPECT_EQ(aclCounters.badNames, refused);
            bytes[row.kindAt + 3] = COMM_REGEXP;
        }
        EXPECT_EQ(ask(bytes), ACL_E_SYSTEM);
        EXPECT_EQ(aclCounters.badNames, ++refused);
    }
}

TEST_F(Dispatch, AnswersAreTheRequestWithWhatWasDone) {
    const std::pair<uint32_t, uint32_t> lists[] = {
        {IP_KIND_STANDARD, ACL_OK}, {IP_KIND_EXTENDED, ACL_E_IS_STANDARD}, {9, ACL_E_SYSTEM}};
    for (const auto& list : lists)
        EXPECT_EQ(
            ask(cli<cliListReq>(CLI_IP_LIST_CREATE, "A", [&](auto& r) { r.kind = list.first; })),
            list.second);
    EXPECT_EQ(ask(cli<cliIpEntryReq>(CLI_IP_ENTRY_ADD, "A",
                                     [](auto& r) {
                                         r.block = standardBlock(0x0A000001);
                                         r.log = 1u;
                                     })),
              ACL_OK);
    EXPECT_EQ(reply[295], 5);  // the number that was assigned, at byte 292
    EXPECT_EQ(testCfgLines().back(), " seq 5 permit host 10.0.0.1 log");
    // Behind the last list the request comes back with its cookie and the status.
    auto show = cli<cliShowReq>(CLI_SHOW_IP_ACL_ALL, "", [](auto& r) { r.cli.cookie = 77u; });
    reply = deliver(show).at(0);
    EXPECT_EQ(uint32_t{view<ipcHdr>()->length}, reply.size());
    EXPECT_EQ(uint32_t{view<ipcHdr>()->source.svce}, CLIENT_SERVICE);
    EXPECT_EQ(uint32_t{view<showReplyHdr>()->marker}, SHOW_MARKER);
    as<cliShowReq>(show).name = view<showReplyHdr>()->name;
    EXPECT_EQ(ask(show), ACL_E_NOLIST);
    EXPECT_EQ(uint32_t{view<cliHdr>()->cookie}, 77u);
}

TEST_F(Dispatch, ARequestThatEndsBeforeItsRecordIsRefusedWhole) {
    const std::pair<uint32_t, size_t> requests[] = {
        {1002, sizeof(cliIpEntryReq)}, {1011, sizeof(cliAspathReq)}, {1015, sizeof(cliCommReq)},
        {1017, sizeof(cliExtCommReq)}, {1039, sizeof(cliBindReq)},   {1044, sizeof(cliPrefix4Req)},
        {1149, sizeof(cliPrefix6Req)}};
    for (auto [code, whole] : requests)
        for (size_t size = 76; size < whole; size++) {
            auto bytes = cli(code, "A", whole);
            bytes.resize(size);
            as<ipcHdr>(bytes).length = static_cast<uint32_t>(size);
            const uint64_t before = aclCounters.truncated;
            ASSERT_EQ(ask(bytes), ACL_E_SYSTEM) << code << " " << size;
            ASSERT_EQ(aclCounters.truncated, before + 1);
        }
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
}

TEST_F(Dispatch, ShowsForOtherTasksAnswerInTheStatusWordAndLogWhatCannotBeSent) {
    create("A", IP_KIND_EXTENDED);
    for (uint32_t af : {AF_IPV4, AF_IPV6}) ipPrefixListCreateExt(listNameMake("A"), 0, af);
    const uint64_t before = zekMemHeapStats().blocks;
    struct show {
        uint32_t type;
        bool all, detail;
        std::string failed, failedAfterError = failed;
    };
    std::vector<show> shows = {
        {14466, false, false, "IP ACL back to CLI"},
        {14467, true, false, "IP ACL All back toCLI", "IP ACL All backto CLI"}};
    for (auto [first, family] : {std::pair(14469u, "IP"), {14480u, "Ipv6"}})
        for (uint32_t i = 0; i < 4; i++)  // with the detail and without
            shows.push_back(
                {first + i, i >= 2, i % 2 == 0,
                 family + std::string(i >= 2 ? " Prefix All" : " Prefix List") + " back to CLI"});
    for (const show& row : shows)
        for (auto [exists, fails] :
             {std::pair(true, false), {true, true}, {false, false}, {false, true}}) {
            SCOPED_TRACE(std::to_string(row.type) + (fails ? " fails" : ""));
            auto bytes = message(row.type, 208);
            // A walk over all ends behind the only list.
            const char* name = row.all ? (exists ? "" : "A") : (exists ? "A" : "B");
            as<showReplyHdr>(bytes).name = listNameMake(name);
            as<ipcHdr>(bytes).status = 99;  // cleared on receipt
            if (fails) testFail(TEST_SEND, 1, 1);
            auto sent = deliver(bytes);
            testFailNothing();
            const std::string& text = exists ? row.failed : row.failedAfterError;
            EXPECT_EQ(said("syserr 0x50002 Error in sending Show " + text + "\n"), fails);
            EXPECT_EQ(zekMemHeapStats().blocks, before);  // the buffer is freed in every case
            if (fails) continue;
            EXPECT_EQ(as<ipcHdr>(sent.at(0)).status != ACL_OK, !exists);
            const std::string shown(sent[0].begin(), sent[0].end());
            EXPECT_EQ(shown.find("Prefix-list with the last") != shown.npos, exists && row.detail);
        }
}

TEST_F(Dispatch, TheMaskDisplayModeAnswersThenRewritesEveryLine) {
    ipEntryBlock block = standardBlock(0x0A010000);
    block.srcMask = 0xFFFF0000;
    create("A");
    add("A", block);
    testTake();
    for (auto [mode, line] : {std::pair(MT_ACL_INVERSEMASK_ENABLE, "10.1.0.0 255.255.0.0"),
                              {MT_ACL_INVERSEMASK_DISABLE, "10.1.0.0/16"}}) {
        deliver(message(mode));
        // The mode's line is in the batch before the answer, the work behind it.
        std::string order;
        for (const std::string& row : effects)
            for (const char* what : {"inverse-mask", "send 145", "seq 5"})
                if (row.find(what) != row.npos && !order.ends_with(what)) order += what;
        EXPECT_EQ(order, "inverse-masksend 145seq 5");
        EXPECT_EQ(testCfgLines().back(), std::string(" seq 5 permit ") + line);
        EXPECT_EQ(testCfgLines().front() == "access-list inverse-mask",
                  mode == MT_ACL_INVERSEMASK_ENABLE);
    }
}

TEST_F(Dispatch, EveryPathGivesTheLockBack) {
    // A read wrapper works beside a reader in another thread; every path gives the lock back.
    aclReadLock();
    uint32_t status = 0;
    std::thread([&] {
        void* buffer = nullptr;
        uint32_t size = 0;
        status = aclShowIpAclExt(listNameMake("F"), &buffer, &size);
    }).join();
    EXPECT_EQ(status, ACL_E_NOLIST);
    aclReadUnlock();
    EXPECT_EQ(pthread_rwlock_trywrlock(&acl_rwlock), 0);
    pthread_rwlock_unlock(&acl_rwlock);
}
