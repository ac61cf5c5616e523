// The task on the recording platform: started as in the process, driven message by message.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/linecard.h"
#include "include/cliMsg.h"
#include "include/service.h"
#include "include/status.h"
#include "interface/interface.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"
#include "platform/test/record.h"
#include "task/task.h"
#include "task/zekacl_lib.h"
#include "tests/support/forget.h"

constexpr uint32_t OWN_CARD = 0x7F010001;
constexpr uint32_t CLIENT_CARD = 0x7F010009;
constexpr uint32_t CLIENT_SERVICE = 70001;

inline void platformReset() {
    testReset();
    zek_memPartFree(POOL_FIXED);
    zek_memPartFree(POOL_FIXED + 1);
    testHost.addresses = {{{APP_ACL, 0}, OWN_CARD},
                          {{APP_IFM, 0}, OWN_CARD},
                          {{APP_RTM, 0}, OWN_CARD},
                          {{APP_DSMGR, 0}, OWN_CARD}};
}

struct TaskTest : testing::Test {
    alignas(8) uint8_t received[IPC_BUFFER_SIZE] = {};
    uint32_t sequence = 500;

    void SetUp() override {
        platformReset();
        aclCounters = {};
        DEBUG_ACL_MGR = 0;
        for (aclLinecard& card : aclLinecardInfo) {
            card = {};
            card.macAgent = card.aclAgent = ZEK_SWP_NONE;
            card.agentIpAddr = card.agent0IpAddr = ADDRESS_UNKNOWN;
        }
        ASSERT_NE(AclInitialize(0, nullptr), nullptr);
        ASSERT_NE(AspathAclInitialize(), nullptr);
        AclGetChassMode(aclNode->ipc.pkey);
        ASSERT_EQ(SysListRegistration(0), 0);
        aclRegisterDebugFunctions();
        aclCreateShowRunningDummyNodes();
        testTake();
    }
    void TearDown() override {
        testFailNothing();
        forgetLists();
        while (aclIntf* intf = AclIntfTreeFindFirst()) aclIntfDrop(intf);
        while (aclList* list = ipSysAccessListFindFirst())
            ASSERT_EQ(aclV6SysAccessListFind(list->name) != nullptr
                          ? aclV6SysAccessListDelete(list->name, 0)
                          : ipSysAccessListDelete(list->name, 0),
                      0u);
        EXPECT_EQ(*pAclReadCounter, 0u);
        AclFree(aclNode);
    }

    template <class Record>
    static Record& as(std::vector<uint8_t>& bytes) {
        EXPECT_GE(bytes.size(), sizeof(Record));
        return *reinterpret_cast<Record*>(bytes.data());
    }
    std::vector<uint8_t> message(uint32_t type, size_t size = sizeof(ipcHdr)) {
        std::vector<uint8_t> bytes(size);
        auto& hdr = as<ipcHdr>(bytes);
        hdr.length = static_cast<uint32_t>(size);
        hdr.mtype = type;
        hdr.sequence = ++sequence;
        hdr.target.slot = 3;
        hdr.target.card = CLIENT_CARD;
        hdr.target.svce = CLIENT_SERVICE;
        hdr.source.card = OWN_CARD;
        hdr.source.svce = 7809;
        return bytes;
    }
    std::vector<uint8_t> cli(uint32_t code, const std::string& name, size_t size) {
        auto bytes = message(MT_CLI_COMMAND, size);
        as<cliHdr>(bytes).code = code;
        as<cliHdr>(bytes).name = listNameMake(name);
        return bytes;
    }
    // A whole request, filled as its kind wants it.
    template <class Request, class Fill>
    std::vector<uint8_t> cli(uint32_t code, const std::string& name, Fill fill) {
        auto bytes = cli(code, name, sizeof(Request));
        fill(as<Request>(bytes));
        return bytes;
    }
    // Delivers the message as the main loop does; returns the messages that were sent.
    std::vector<std::vector<uint8_t>> deliver(const std::vector<uint8_t>& bytes) {
        std::memset(received, 0xEE, sizeof received);  // left over from an earlier message
        std::memcpy(received, bytes.data(), std::min(bytes.size(), sizeof received));
        aclTakeMessage(aclNode, received, bytes.size());
        effects.clear();
        std::vector<std::vector<uint8_t>> sent;
        for (testRow& row : testTakeRows()) {
            if (row.text.starts_with("send ") || row.text.starts_with("reply "))
                sent.push_back(row.bytes);
            effects.push_back(row.text);
        }
        return sent;
    }
    // Delivers a CLI request that is answered once, and returns the result of the answer.
    uint32_t ask(const std::vector<uint8_t>& bytes) {
        auto sent = deliver(bytes);
        EXPECT_EQ(sent.size(), 1u);
        if (sent.size() != 1 || sent[0].size() < 68) return 0xDEAD;
        reply = sent[0];
        return reinterpret_cast<cliHdr*>(reply.data())->result;  // it may end there
    }
    bool said(const std::string& text) const {
        for (const std::string& row : effects)
            if (row.find(text) != std::string::npos) return true;
        return false;
    }
    template <class Record>
    Record* view() {
        return reinterpret_cast<Record*>(reply.data());
    }
    static std::string debug(const char* function, const char* arguments = "") {
        std::string text;
        EXPECT_TRUE(zekDebugRun(function, arguments, &text));
        return text;
    }

    std::vector<std::string> effects;  // what the last delivery set off
    std::vector<uint8_t> reply;
};

inline ipEntryBlock standardBlock(uint32_t src, uint32_t seq = SEQ_NOT_GIVEN) {
    ipEntryBlock b{};
    b.kind = IP_KIND_STANDARD;
    b.seq = seq;
    b.src = src;
    b.srcMask = 0xFFFFFFFF;
    b.order = ORDER_NOT_GIVEN;
    b.precedence = b.tos = FIELD_NOT_GIVEN;
    b.dscp = DSCP_NOT_GIVEN;
    return b;
}
