// Prefix lists in a test's hands: the task on the recording platform, entries in one line.
#pragma once

#include <arpa/inet.h>

#include "include/clientMsg.h"
#include "include/policyMsg.h"
#include "tests/task/fixture.h"

typedef std::vector<std::string> rows;

// An entry of either family: "10.0.0.0/8 ge 16 le 24" as numbers. `len` 255: the mask counts.
struct prefixGiven {
    alignas(8) uint8_t bytes[sizeof(prefix6EntryBlock)] = {};
    uint32_t af;

    prefixGiven(uint32_t seq, uint32_t action, const char* address, uint8_t len, int ge = 0,
                int le = 0, const char* mask = nullptr)
        : af(std::strchr(address, ':') != nullptr ? AF_IPV6 : AF_IPV4) {
        record().seq = seq;
        record().action = action;
        record().ge = static_cast<uint32_t>(ge);
        record().le = static_cast<uint32_t>(le);
        record().len = len;
        const int system = af == AF_IPV6 ? AF_INET6 : AF_INET;
        EXPECT_EQ(inet_pton(system, address, bytes + 24), 1);
        uint8_t bits[16];
        ipRtLen2Mask(len, bits);
        if (mask != nullptr) {
            EXPECT_EQ(inet_pton(system, mask, bits), 1);
        }
        const size_t width = af == AF_IPV6 ? 16 : 4;
        std::memcpy(bytes + 24 + width, bits, width);
    }
    prefixRecord& record() { return *reinterpret_cast<prefixRecord*>(bytes); }
    const prefixRecord& record() const { return *reinterpret_cast<const prefixRecord*>(bytes); }
};
constexpr uint32_t PERMIT = 0, DENY = 1;

struct PrefixTest : TaskTest {
    uint64_t blocks = 0;

    void SetUp() override {
        TaskTest::SetUp();
        blocks = testBlocksInUse();
    }
    // Whatever a test did, every list can be deleted and gives back all that it took.
    void TearDown() override {
        testFailNothing();
        for (uint32_t af : {AF_IPV4, AF_IPV6})
            while (prefixList* list = ipPrefixListFindFirst(af)) {
                clientsFree(list);
                ASSERT_EQ(ipPrefixListDelete(list->name, af), 0u);
            }
        EXPECT_EQ(testBlocksInUse(), blocks) << "blocks leaked";
        TaskTest::TearDown();
    }

    static prefixList* create(const char* name, uint32_t af = AF_IPV4) {
        uint32_t status = 1;
        prefixList* list = ipPrefixListCreate(listNameMake(name), 0, &status, af);
        EXPECT_EQ(status, 0u);
        testTake();
        return list;
    }
    static uint32_t add(const char* name, const prefixGiven& entry) {
        return ipAddPrefixEntry(listNameMake(name), entry.record(), entry.af);
    }
    static uint32_t del(const char* name, const prefixGiven& entry) {
        return ipDelPrefixEntry(listNameMake(name), entry.record(), 1, entry.af);
    }
    static std::vector<uint32_t> numbers(const prefixList* list) {
        std::vector<uint32_t> seqs;
        for (const prefixEntry* e = list->head; e != nullptr; e = e->next)
            seqs.push_back(e->record->seq);
        return seqs;
    }
    // The text of one page, or "status N"; *resume goes on.
    static std::string page(const char* name, uint32_t* resume, uint32_t af = AF_IPV4,
                            uint32_t lastChanged = 0) {
        void* buffer = nullptr;
        uint32_t size = 0;
        uint32_t status =
            prefixShowIpList(listNameMake(name), &buffer, &size, lastChanged, resume, af);
        if (status != 0) return "status " + std::to_string(status & 0xFF);
        EXPECT_EQ(size, PREFIX_SHOW_BUFFER);
        std::string text = static_cast<char*>(buffer) + SHOW_TEXT_OFFSET;
        zekMC_M_sysFree(buffer);
        return text;
    }
};
