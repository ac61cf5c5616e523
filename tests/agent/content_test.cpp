// Entries that are known by their content: found, whatever came and went before.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "chassis/agent/dataplane.h"

namespace {

// Contents of which some share their hash, as different bytes may.
dpEntry entryOf(uint32_t content, uint32_t key, uint32_t seq = 0) {
    dpEntry entry;
    entry.key = key;
    entry.content = content / 3;
    entry.rule.src.value[0] = content;
    entry.rule.seq = seq;
    return entry;
}

TEST(Content, IsFoundAfterAnyChanges) {
    std::mt19937 random(3);
    dpList list{};
    list.place.kind = AGENT_LIST_SYSTEM;
    std::map<uint32_t, uint32_t> model;  // key: content
    dpList copy{};
    for (uint32_t step = 0; step < 20000; step++) {
        const auto content = static_cast<uint32_t>(random() % 60);
        const auto key = static_cast<uint32_t>(random() % 40 + 1);
        if (random() % 3 != 0) {
            dpListPut(&list, entryOf(content, key, step));
            model[key] = content;
        } else {
            EXPECT_EQ(dpListErase(&list, key), model.erase(key) != 0);
        }
        const dpEntry* found = dpListFindContent(list, entryOf(content, 0, 99));
        const bool there = std::ranges::any_of(model, [&](auto& m) { return m.second == content; });
        ASSERT_EQ(found != nullptr, there) << step;
        if (there) {
            ASSERT_EQ(model.at(found->key), content);
        }
        ASSERT_EQ(list.byContent.size(), list.entries.size());
        if (step == 10000) copy = list;
    }
    EXPECT_FALSE(copy.byContent.empty());  // a copy has its own
    dpListClear(&copy);
    EXPECT_TRUE(copy.byContent.empty());
    EXPECT_EQ(dpListFindContent(copy, entryOf(1, 0)), nullptr);
    // Lists with numbers have none.
    list = {};
    dpListPut(&list, entryOf(1, 1));
    EXPECT_TRUE(list.byContent.empty());
}

}  // namespace
