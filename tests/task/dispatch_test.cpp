// Messages in, answers out: every type, every code, and what is wrong with them.
#include <algorithm>
#include <map>
#include <thread>

#include "include/policyMsg.h"
#include "tests/task/fixture.h"

using Dispatch = TaskTest;

TEST_F(Dispatch, WhatIsTooShortLiesOrIsUnknownIsCountedAndNothingOfAnEarlierMessageLeaves) {
    EXPECT_TRUE(deliver(std::vector<uint8_t>(59)).empty());
    EXPECT_EQ(aclCounters.tooShort, 1u);

    EXPECT_TRUE(deliver(message(9999)).empty());
    EXPECT_EQ(aclCounters.unknownType, 1u);

    for (uint32_t lie : {0u, 59u, 61u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(lie);
        auto bytes = message(MT_CLI_COMMAND);
        reinterpret_cast<ipcHdr*>(bytes.data())->length = lie;
        auto sent = deliver(bytes);
        ASSERT_EQ(sent.size(), 1u);
        // Long enough for result and code, and zero behind what came.
        EXPECT_EQ(sent[0].size(), 76u);
        EXPECT_EQ(uint32_t{reinterpret_cast<cliHdr*>(sent[0].data())->result}, ACL_E_SYSTEM);
        EXPECT_EQ(uint32_t{reinterpret_cast<cliHdr*>(sent[0].data())->code}, 0u);
    }
    EXPECT_EQ(aclCounters.badLength, 4u);
}

TEST_F(Dispatch, EveryTypeIsAnsweredAsItsSenderExpects) {
    enum answer { silent, exchanged, failed, inStatus, acknowledged };
    const std::map<answer, std::vector<uint32_t>> types = {
        {silent, {8, 401, 402, 801, 14495}},
        {exchanged, {2009, 14435, 14517, 14518}},
        {failed, {1110, 1111, 8402, 14504, 14505, 20417}},
        {inStatus, {14469, 14470, 14471, 14472, 14480, 14481, 14482, 14483}},
        {acknowledged,
         {1112, 1113, 2804, 2805, 2806, 10873, 10874, 10876, 10878, 10880, 10896, 14436, 14474,
          14490, 14491, 14492, 14493, 14494, 14502}}};
    uint32_t session = 77;
    for (const auto& [expected, ofIt] : types)
        for (uint32_t type : ofIt) {
            SCOPED_TRACE(type);
            auto bytes = message(type, 300);
            reinterpret_cast<ipcHdr*>(bytes.data())->session = ++session;
            reinterpret_cast<ipcHdr*>(bytes.data())->swpSeq = 1;
            auto sent = deliver(bytes);
            EXPECT_EQ(said("swpanswer 1"), expected == acknowledged);
            ASSERT_EQ(sent.size(), expected == silent || expected == acknowledged ? 0u : 1u);
            if (sent.empty()) continue;
            const auto* hdr = reinterpret_cast<const ipcHdr*>(sent[0].data());
            EXPECT_EQ(sent[0].size(), 300u);
            EXPECT_EQ(uint32_t{hdr->source.svce}, CLIENT_SERVICE);
            EXPECT_EQ(uint32_t{hdr->source.slot}, 3u);
            EXPECT_EQ(uint32_t{hdr->target.svce}, 7809u);
            EXPECT_EQ(uint32_t{hdr->result}, expected == failed ? ACL_E_SYSTEM : 0u);
            EXPECT_EQ(uint32_t{hdr->status}, expected == inStatus ? ACL_E_PREFIX_NOLIST : 0u);
        }
}

TEST_F(Dispatch, ARepeatedMessageIsAcknowledgedAgainButHandledOnce) {
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    auto bytes = message(MT_CFG_START_BLK_CFG_NOTIF);
    auto* hdr = reinterpret_cast<ipcHdr*>(bytes.data());
    hdr->session = 9;
    hdr->swpSeq = 1;
    deliver(bytes);
    EXPECT_EQ(aclNode->config.cfgNotifStart, 1u);
    aclNode->config.cfgNotifStart = 0;
    deliver(bytes);
    EXPECT_EQ(aclNode->config.cfgNotifStart, 0u);
    EXPECT_TRUE(said("swpanswer 1"));
    EXPECT_FALSE(said("Error:"));

    hdr->swpSeq = 3;  // 2 is missing
    deliver(bytes);
    EXPECT_TRUE(said("Error: Error in receiving IFM VlOSTATE Notif \r\n"));
    EXPECT_EQ(aclNode->config.cfgNotifStart, 0u);
    EXPECT_EQ(aclCounters.outOfOrder, 1u);

    // The MAC manager's repetition is an error, unlike everybody else's.
    auto stp = message(MT_STP_ENABLE, 68);
    reinterpret_cast<ipcHdr*>(stp.data())->session = 5;
    reinterpret_cast<ipcHdr*>(stp.data())->swpSeq = 1;
    deliver(stp);
    EXPECT_FALSE(said("Error:"));
    deliver(stp);
    EXPECT_TRUE(said("Error: Error in swp_ack for Mac_mgr\r\n"));
}

TEST_F(Dispatch, EveryCommandCodeIsKnownAndEveryOtherOneIsRefused) {
    std::vector<std::pair<uint32_t, uint32_t>> known = {
        {1000, 1025}, {1030, 1031}, {1038, 1047},   {1055, 1055},   {1059, 1060},   {1066, 1067},
        {1083, 1088}, {1090, 1096}, {1098, 1106},   {1108, 1109},   {1114, 1115},   {1120, 1120},
        {1132, 1137}, {1139, 1140}, {1142, 1158},   {1160, 1167},   {1169, 1170},   {1181, 1185},
        {1187, 1188}, {1190, 1191}, {13607, 13607}, {14519, 14519}, {14521, 14521}, {18908, 18908}};
    auto isKnown = [&known](uint32_t code) {
        for (auto [first, last] : known)
            if (code >= first && code <= last) return true;
        return false;
    };
    for (uint32_t code = 900; code < 19000; code++) {
        uint64_t unknown = aclCounters.unknownCode;
        auto sent = deliver(cli(code, "N", 1100));
        ASSERT_EQ(sent.size(), 1u) << code;
        EXPECT_EQ(aclCounters.unknownCode == unknown, isKnown(code)) << code;
    }
}

// Texts that a configuration line could not show as they are: refused wherever something is made.
TEST_F(Dispatch, NamesThatNoLineCanShowAreRefused) {
    const std::string bad[] = {"A B", "A\tB", "X\nip access-list standard Y", "\x7f", "\x01"};
    const uint32_t makers[] = {1000, 1002, 1005, 1007, 1010, 1011, 1014, 1015, 1016, 1017, 1021,
                               1022, 1025, 1039, 1041, 1042, 1044, 1147, 1149, 1161, 1188};
    uint64_t counted = aclCounters.badNames;
    auto refuses = [&](const std::vector<uint8_t>& request, const char* what, uint32_t code) {
        EXPECT_EQ(ask(request), ACL_E_SYSTEM) << what << code;
        EXPECT_EQ(aclCounters.badNames, ++counted) << what << code;
    };
    for (uint32_t code : makers)
        for (const std::string& name : bad) refuses(cli(code, name.c_str(), 1100), "name ", code);
    for (uint32_t code : {1022u, 1025u, 1161u, 1188u}) {
        auto request = cli(code, "N", 1100);
        reinterpret_cast<cliRmapClauseReq*>(request.data())->clause.list = listNameMake("A B");
        refuses(request, "list ", code);
    }
    auto bind = cli(CLI_IP_BIND, "N", sizeof(cliBindReq));
    std::strcpy(reinterpret_cast<cliBindReq*>(bind.data())->vlanText, "10\n20");
    refuses(bind, "VLANs ", CLI_IP_BIND);
    auto path = cli(CLI_ASPATH_ENTRY_ADD, "N", sizeof(cliAspathReq));
    std::strcpy(reinterpret_cast<cliAspathReq*>(path.data())->text, "1 2\n");
    refuses(path, "expression ", CLI_ASPATH_ENTRY_ADD);
    auto expression = cli(CLI_EXTCOMM_ENTRY_ADD, "N", sizeof(cliExtCommReq));
    auto& entry = reinterpret_cast<cliExtCommReq*>(expression.data())->entry;
    std::strcpy(entry.body.text, "1\n");
    (void)ask(expression);
    EXPECT_EQ(aclCounters.badNames, counted) << "values are no text";
    entry.kind = COMM_REGEXP;
    refuses(expression, "expression ", CLI_EXTCOMM_ENTRY_ADD);
    for (uint32_t mtype = 14442; mtype <= 14455; mtype++) {
        if (mtype == 14444 || mtype == 14445) continue;  // not built yet
        auto request = message(mtype, 300);
        std::strcpy(reinterpret_cast<char*>(request.data() + 72), "A B");
        deliver(request);
        EXPECT_EQ(aclCounters.badNames, ++counted) << mtype;
    }
    EXPECT_EQ(testCfgLines().size(), 0u);
}

TEST_F(Dispatch, AnEntryIsAddedShownAndDeletedByMessages) {
    auto create = cli(CLI_IP_LIST_CREATE, "A", sizeof(cliListReq));
    for (auto [kind, result] : {std::pair{uint32_t{IP_KIND_STANDARD}, uint32_t{ACL_OK}},
                                {IP_KIND_EXTENDED, ACL_E_IS_STANDARD},
                                {9, ACL_E_SYSTEM}}) {
        reinterpret_cast<cliListReq*>(create.data())->kind = kind;
        EXPECT_EQ(ask(create), result);
    }
    auto add = cli(CLI_IP_ENTRY_ADD, "A", sizeof(cliIpEntryReq));
    reinterpret_cast<cliIpEntryReq*>(add.data())->block = standardBlock(0x0A000001);
    reinterpret_cast<cliIpEntryReq*>(add.data())->log = 1;
    EXPECT_EQ(ask(add), ACL_OK);
    // The number that was assigned stands at byte 292 of the answer.
    EXPECT_EQ(reply[295], 5);
    EXPECT_EQ(testCfgLines().back(), " seq 5 permit host 10.0.0.1 log");
    EXPECT_EQ(ask(add), ACL_E_ENTRY_EXISTS);

    auto show = cli(CLI_SHOW_IP_ACL_ALL, "", sizeof(cliShowReq));
    reinterpret_cast<cliHdr*>(show.data())->cookie = 0x12345678;
    auto sent = deliver(show);
    ASSERT_EQ(sent.size(), 1u);
    const auto* shown = reinterpret_cast<const showReplyHdr*>(sent[0].data());
    EXPECT_EQ(uint32_t{shown->ipc.length}, sent[0].size());
    EXPECT_EQ(uint32_t{shown->ipc.source.svce}, CLIENT_SERVICE);
    EXPECT_EQ(uint32_t{shown->marker}, SHOW_MARKER);
    EXPECT_EQ(listNameView(shown->name), "A");
    EXPECT_STREQ(reinterpret_cast<const char*>(sent[0].data()) + SHOW_TEXT_OFFSET,
                 "Standard IP access list A\r\n seq 5 permit host 10.0.0.1 log (0 matches) order "
                 "255\r\n");
    // Behind the last list: the request itself with its cookie and the status.
    reinterpret_cast<cliShowReq*>(show.data())->name = listNameMake("A");
    EXPECT_EQ(ask(show), ACL_E_NOLIST);
    EXPECT_EQ(uint32_t{view<cliHdr>()->cookie}, 0x12345678u);

    auto del = cli(CLI_IP_ENTRY_DELETE, "A", sizeof(cliIpEntryReq));
    reinterpret_cast<cliIpEntryReq*>(del.data())->block = standardBlock(0, 5);
    EXPECT_EQ(ask(del), ACL_OK);
    EXPECT_EQ(ask(del), ACL_E_NOSEQ);
    EXPECT_TRUE(said("send 6001"));
}

TEST_F(Dispatch, ARequestThatEndsBeforeItsRecordIsRefusedWhole) {
    const std::pair<uint32_t, size_t> requests[] = {{CLI_IP_ENTRY_ADD, sizeof(cliIpEntryReq)},
                                                    {CLI_IP_BIND, sizeof(cliBindReq)},
                                                    {CLI_ASPATH_ENTRY_ADD, sizeof(cliAspathReq)},
                                                    {CLI_COMM_ENTRY_ADD, sizeof(cliCommReq)},
                                                    {CLI_EXTCOMM_ENTRY_ADD, sizeof(cliExtCommReq)}};
    for (auto [code, whole] : requests) {
        const uint64_t before = aclCounters.truncated;
        for (size_t size = whole - 1; size >= 60; size--) {
            auto bytes = cli(code, "A", whole);
            bytes.resize(size);
            reinterpret_cast<ipcHdr*>(bytes.data())->length = static_cast<uint32_t>(size);
            ASSERT_EQ(ask(bytes), ACL_E_SYSTEM) << code << " " << size;
            if (size >= 76) {  // shorter ones have no code
                ASSERT_EQ(aclCounters.truncated, before + whole - size);
            }
        }
    }
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
}

TEST_F(Dispatch, ShowsForOtherTasksAnswerInTheStatusWordAndLogWhatCannotBeSent) {
    ipAccessListCreateExt(listNameMake("A"), IP_KIND_EXTENDED, 0u, 0u);
    uint64_t before = zekMemHeapStats().blocks;
    const std::string back = "syserr 0x50002 Error in sending Show IP ACL ";
    struct {
        uint32_t type;
        const char* name;
        uint32_t status;
        std::string logged;
    } rows[] = {
        {14466, "A", ACL_OK, back + "back to CLI\n"},
        {14466, "B", ACL_E_NOLIST, back + "back to CLI\n"},
        {14467, "", ACL_OK, back + "All back toCLI\n"},
        {14467, "A", ACL_E_NOLIST, back + "All backto CLI\n"},
    };
    for (const auto& row : rows)
        for (bool fails : {false, true}) {
            SCOPED_TRACE(std::to_string(row.type) + row.name + (fails ? " fails" : ""));
            auto bytes = message(row.type, 208);
            reinterpret_cast<showReplyHdr*>(bytes.data())->name = listNameMake(row.name);
            reinterpret_cast<ipcHdr*>(bytes.data())->status = 99;  // cleared on receipt
            if (fails) testFail(TEST_SEND, 1, 1);
            auto sent = deliver(bytes);
            testFailNothing();
            EXPECT_EQ(said(row.logged), fails);
            if (!fails) {
                ASSERT_EQ(sent.size(), 1u);
                EXPECT_EQ(reinterpret_cast<ipcHdr*>(sent[0].data())->status, row.status);
            }
            EXPECT_EQ(zekMemHeapStats().blocks, before);  // the buffer is freed in every case
        }
}

TEST_F(Dispatch, TheMaskDisplayModeAnswersThenRewritesEveryLine) {
    ipAccessListCreateExt(listNameMake("A"), IP_KIND_STANDARD, 0u, 0u);
    ipEntryBlock block = standardBlock(0x0A010000);
    block.srcMask = 0xFFFF0000;
    ipAddAccessEntryExt(listNameMake("A"), &block, 0u, 0u, 0u);
    EXPECT_EQ(testCfgLines().back(), " seq 5 permit 10.1.0.0/16");
    ipDosListCreateExt(listNameMake("D"), 0u, 0u);
    block.kind = IP_KIND_EXTENDED;
    block.protocol = IP_PROTO_ANY;
    ipAddDosEntryExt(listNameMake("D"), &block, 0u);
    testTake();

    auto sent = deliver(message(MT_ACL_INVERSEMASK_ENABLE));
    EXPECT_EQ(sent.size(), 1u);
    auto lines = testCfgLines();
    EXPECT_EQ(lines.front(), "access-list inverse-mask");
    EXPECT_EQ(std::ranges::count(lines, " seq 5 permit ip 10.1.0.0 255.255.0.0 any"), 1);
    EXPECT_EQ(lines.back(), " seq 5 permit 10.1.0.0 255.255.0.0");
    // The mode's line is in the batch before the answer, the work behind it.
    auto at = [this](const std::string& text) {
        for (size_t i = 0; i < effects.size(); i++)
            if (effects[i].find(text) != std::string::npos) return i;
        return effects.size();
    };
    EXPECT_LT(at("inverse-mask"), at("send 14517"));
    EXPECT_LT(at("send 14517"), at("seq 5"));

    deliver(message(MT_ACL_INVERSEMASK_DISABLE));
    lines = testCfgLines();
    EXPECT_NE(lines.front(), "access-list inverse-mask");
    EXPECT_EQ(lines.back(), " seq 5 permit 10.1.0.0/16");
    EXPECT_EQ(std::ranges::count(lines, " seq 5 permit ip 10.1.0.0/16 any"), 1);
    ipDosListDeleteExt(listNameMake("D"));
}

TEST_F(Dispatch, OneWrapperOneLockAndTheRightFamily) {
    const listName name = listNameMake("F");
    // 1 is IPv6, which is not built: refused, and the IPv4 store untouched.
    EXPECT_EQ(ipAccessListCreateExt(name, IP_KIND_STANDARD, 0u, 1u), ACL_E_SYSTEM);
    EXPECT_EQ(ipAccessListFind(name), nullptr);
    for (uint32_t family : {0u, 2u}) {
        EXPECT_EQ(ipAccessListCreateExt(name, IP_KIND_STANDARD, 0u, family), ACL_OK);
        EXPECT_NE(ipAccessListFind(name), nullptr);
        ipEntryBlock block = standardBlock(1);
        EXPECT_EQ(ipAddAccessEntryExt(name, &block, 0u, 0u, 1u), ACL_E_SYSTEM);
        EXPECT_EQ(ipAccessListFind(name)->count, 0);
        EXPECT_EQ(ipAccessListDeleteExt(name, uint32_t{IP_KIND_STANDARD}, family), ACL_OK);
    }
    // A read wrapper works beside a reader in another thread; every path gives the lock back.
    aclReadLock();
    uint32_t status = 0;
    std::thread([&] {
        void* buffer = nullptr;
        uint32_t size = 0;
        status = aclShowIpAclExt(name, &buffer, &size);
    }).join();
    EXPECT_EQ(status, ACL_E_NOLIST);
    aclReadUnlock();
    EXPECT_EQ(pthread_rwlock_trywrlock(&acl_rwlock), 0);
    pthread_rwlock_unlock(&acl_rwlock);
}

TEST_F(Dispatch, TheFilterTestNamesTheEntryThatDecided) {
    ipAccessListCreateExt(listNameMake("T"), IP_KIND_STANDARD, 0u, 0u);
    ipEntryBlock block = standardBlock(0x0A000001);
    ipAddAccessEntryExt(listNameMake("T"), &block, 0u, 0u, 0u);
    struct {
        const char* args;
        const char* answer;
    } rows[] = {
        {"T tcp 10.0.0.1 1.2.3.4 dst-port 80 flags syn,ack",
         R"({"verdict":"permit","entry":{"seq":5,"text":" seq 5 permit host 10.0.0.1"}})"},
        {"T udp 10.0.0.2 1.2.3.4", R"({"verdict":"deny","entry":null})"},
        {"NONE tcp 1.1.1.1 2.2.2.2", R"({"error":"No such access list"})"},
        {"T tcp 1.1.1 2.2.2.2", R"({"error":"not an address: 1.1.1"})"},
        {"T tcp 1.1.1.1 2.2.2.2 dst-port 65536", R"({"error":"not understood: dst-port 65536"})"},
        {"T tcp 1.1.1.1 2.2.2.2 flags established",
         R"({"error":"not understood: flags established"})"},
    };
    for (const auto& row : rows) {
        std::string text;
        ASSERT_TRUE(zekDebugRun("test-ip-filter", row.args, &text));
        EXPECT_EQ(text, row.answer) << row.args;
    }
    std::string dump;
    ASSERT_TRUE(zekDebugRun("node", "", &dump));
    EXPECT_NE(dump.find("\nacl_tree = 1\r\n"), dump.npos) << dump;
    EXPECT_NE(dump.find("peer update 20 = 255\r\n"), dump.npos);
}
