// AS-path and community lists in a test's hands: the roots with empty trees, and short ways to
// state entries.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/node.h"
#include "include/service.h"
#include "platform/api/zekLock.h"
#include "platform/api/zekMem.h"
#include "platform/test/record.h"
#include "policy/bgp/zekbgp_plcy.h"

typedef std::vector<std::string> rows;

constexpr uint32_t PERMIT = 0;
inline const listName A = listNameMake("A");

inline commEntryBlock communities(uint32_t action, const std::vector<uint32_t>& values) {
    commEntryBlock b{};
    b.action = action;
    b.kind = COMM_VALUES;
    b.count = static_cast<uint32_t>(values.size());
    for (size_t i = 0; i < values.size() && i < COMM_LIST_VALUES; i++) {
        b.high[i] = values[i] >> 16;
        b.low[i] = values[i] & 0xFFFF;
    }
    return b;
}
inline commEntryBlock communityText(uint32_t action, const char* text) {
    commEntryBlock b{};
    b.action = action;
    b.kind = COMM_REGEXP;
    std::strncpy(b.text, text, sizeof b.text - 1);
    return b;
}
inline extCommValue target(uint8_t type, uint32_t high, uint32_t low, uint8_t subtype = 2) {
    const bool wide = (type & 0x3F) != 0;
    uint64_t v = wide ? uint64_t{high} << 16 | low : uint64_t{high} << 32 | low;
    extCommValue out{{type, subtype}};
    for (size_t i = 0; i < 6; i++) out.b[2 + i] = static_cast<uint8_t>(v >> (40 - 8 * i));
    return out;
}
inline extCommEntryBlock targets(uint32_t action, const std::vector<extCommValue>& values,
                                 extCommSelector selector = EXTCOMM_RT) {
    extCommEntryBlock b{};
    b.action = action;
    b.kind = COMM_VALUES;
    b.body.selector = static_cast<uint32_t>(selector);
    b.body.count = static_cast<uint32_t>(values.size());
    for (size_t i = 0; i < values.size() && i < EXTCOMM_LIST_VALUES; i++)
        b.body.values[i] = values[i];
    return b;
}
inline extCommEntryBlock targetText(uint32_t action, const char* text) {
    extCommEntryBlock b{};
    b.action = action;
    b.kind = COMM_REGEXP;
    std::strncpy(b.body.text, text, sizeof b.body.text - 1);
    return b;
}

class BgpLists : public testing::Test {
  protected:
    void SetUp() override {
        testReset();
        node = {};
        aclNode = &node;
        aspathAclNode = &roots;
        node.cfgDb = testCfg();
        node.qHandle = 5;
        testHost.queues[5] = {APP_RTM, 0};
        testHost.queueFree[5] = zekMC_M_memBlockVarFree;
        testHost.addresses = {{{APP_ACL, 0}, 1}, {{APP_RTM, 0}, 1}};
        roots = {zekRadixCreateP("asTree", LIST_NAME_KEY_BITS),
                 zekRadixCreateP("commTree", LIST_NAME_KEY_BITS),
                 zekRadixCreateP("extCommTree", LIST_NAME_KEY_BITS)};
        readers = 0;
        pAclReadCounter = &readers;
        aclLockInit();
        blocksAtStart = testBlocksInUse();
    }
    // Every list goes, and with it every block.
    void TearDown() override {
        testFailNothing();
        while (bgpList* list = bgpASPAccessListFindFirst()) {
            clientsFree(list);
            ASSERT_EQ(bgpASPAccessListDelete(list->name), 0u);
        }
        while (bgpList* list = bgpCommListFindFirst()) {
            clientsFree(list);
            ASSERT_EQ(bgpCommAccessListDelete(list->name), 0u);
        }
        while (bgpList* list = bgpExtCommListFindFirst()) {
            clientsFree(list);
            ASSERT_EQ(bgpExtCommListDelete(list->name), 0u);
        }
        testTake();
        EXPECT_EQ(testBlocksInUse(), blocksAtStart) << "blocks leaked";
        EXPECT_EQ(readers, 0u);
        for (zekRadix* tree : {roots.asTree, roots.commTree, roots.extCommTree})
            zekRadixDestroy(tree);
        pAclReadCounter = nullptr;
        pthread_rwlock_destroy(&acl_rwlock);
    }

    // Lists named A, made without a word.
    bgpList* makePaths() { return made(bgpASPAccessListCreate(A, 0, &status)); }
    bgpList* makeCommunities() { return made(bgpCommAccessListCreate(A, 0, &status)); }
    bgpList* makeTargets() { return made(bgpExtCommListCreate(A, 0, &status)); }
    bgpList* made(bgpList* list) {
        EXPECT_EQ(status, 0u);
        testTake();
        return list;
    }
    static std::string textOf(void* buffer) {
        if (buffer == nullptr) return "";
        std::string text = static_cast<const char*>(buffer) + SHOW_TEXT_OFFSET;
        zekMC_M_sysFree(buffer);
        return text;
    }

    aclNodeRecord node;
    aspathAclNodeRecord roots;
    uint32_t readers = 0, status = 0;
    uint64_t blocksAtStart = 0;
};
