// Ordered trees against std::map, its teller of truth.
#include "platform/api/zekRadix.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/api/zekMem.h"

namespace {

struct record {
    zekRadixNode node;
    std::string key;
};

// std::string compares as unsigned bytes with the shorter first: the tree's order.
using model = std::map<std::string, std::unique_ptr<record>>;

uint32_t bits(const std::string& key) {
    return static_cast<uint32_t>(key.size() * 8);
}
record* recordOf(zekRadixNode* node) {
    return reinterpret_cast<record*>(node);
}
const record* at(const model& m, model::const_iterator it) {
    return it == m.end() ? nullptr : it->second.get();
}

class radix : public testing::Test {
  protected:
    zekRadix* tree = zekRadixCreateP("test", 32);
    model keys;

    ~radix() override { zekRadixDestroy(tree); }

    bool add(const std::string& key) {
        auto rec = std::make_unique<record>();
        rec->key = key;
        bool added = zekRadixInsert(tree, &rec->node, rec->key.data(), bits(rec->key)) == 0;
        if (added) keys[key] = std::move(rec);
        return added;
    }
    void remove(const std::string& key) {
        zekRadixRemove(tree, &keys[key]->node);
        keys.erase(key);
    }
    // Everything that can be asked about one key, in the tree or not.
    void checkKey(const std::string& key) {
        auto exact = keys.find(key);
        auto next = keys.upper_bound(key);
        auto lower = keys.lower_bound(key);
        auto prev = lower == keys.begin() ? keys.end() : std::prev(lower);
        EXPECT_EQ(recordOf(zekRadixGetExact(tree, key.data(), bits(key))), at(keys, exact));
        EXPECT_EQ(recordOf(zekRadixGetNext(tree, key.data(), bits(key))), at(keys, next));
        EXPECT_EQ(recordOf(zekRadixGetPrev(tree, key.data(), bits(key))), at(keys, prev));
    }
    void checkWhole() {
        ASSERT_EQ(zekRadixCount(tree), keys.size());
        EXPECT_EQ(recordOf(zekRadixGetFirst(tree)), at(keys, keys.begin()));
        EXPECT_EQ(recordOf(zekRadixGetLast(tree)),
                  at(keys, keys.empty() ? keys.end() : std::prev(keys.end())));
        std::vector<std::string> walked;
        zekRadixWalk(
            tree,
            [](zekRadixNode* node, void* arg) {
                static_cast<std::vector<std::string>*>(arg)->push_back(recordOf(node)->key);
                return 0;
            },
            &walked);
        std::vector<std::string> expected;
        for (const auto& [key, rec] : keys) expected.push_back(key);
        EXPECT_EQ(walked, expected);
    }
};

// How random keys are made; few different bytes and lengths make keys that are fronts of others.
struct keyShape {
    const char* what;
    size_t minLength, maxLength;
    std::string alphabet;
    std::string front;
};
const keyShape shapes[] = {
    {"short keys of two bytes, zero among them", 0, 7, std::string("\0\x01", 2), ""},
    {"all lengths, the ends of the byte range", 0, 20, std::string("\0\x7f\x80\xff", 4), ""},
    {"sequence numbers", 4, 4, std::string("\0\x01\x02\xfe\xff", 5), ""},
    {"names with a long common front", 0, 4, "abcdefgh", std::string(136, 'x')},
    {"zero runs of different lengths", 0, 12, std::string(1, '\0'), ""},
};

TEST_F(radix, RandomOperationsAgreeWithAnOrderedMap) {
    std::mt19937 random(7);
    for (const keyShape& shape : shapes) {
        SCOPED_TRACE(shape.what);
        auto makeKey = [&] {
            std::string key = shape.front;
            size_t length = shape.minLength + random() % (shape.maxLength - shape.minLength + 1);
            for (size_t i = 0; i < length; i++)
                key += shape.alphabet[random() % shape.alphabet.size()];
            return key;
        };
        for (int step = 0; step < 6000; step++) {
            std::string key = makeKey();
            bool there = keys.count(key) != 0;
            // More adds than removals at first, then the other way round: the tree grows and goes.
            if (there && random() % 10 < (step < 3000 ? 3 : 8))
                remove(key);
            else
                ASSERT_EQ(add(key), !there);
            checkKey(makeKey());
            if (step % 500 == 0) checkWhole();
            if (HasFailure()) return;
        }
        checkWhole();
        while (!keys.empty()) remove(keys.begin()->first);
        checkWhole();
    }
}

TEST_F(radix, AWalkMayRemoveAndFreeTheNodeItIsAt) {
    for (int i = 0; i < 1000; i++) ASSERT_TRUE(add(std::to_string(i * 7919 % 1000)));
    struct context {
        zekRadix* tree;
        model* keys;
        std::string last;
        int seen;
    } c{tree, &keys, "", 0};
    auto dropOdd = [](zekRadixNode* node, void* arg) {
        auto* ctx = static_cast<context*>(arg);
        std::string key = recordOf(node)->key;
        EXPECT_LT(ctx->last, key);
        ctx->last = key;
        if (++ctx->seen % 2 != 0) {
            zekRadixRemove(ctx->tree, node);
            ctx->keys->erase(key);
        }
        return key == "900" ? 42 : 0;
    };
    EXPECT_EQ(zekRadixWalk(tree, dropOdd, &c), 42) << "the walk stops where it is told to";
    EXPECT_EQ(c.last, "900");
    checkWhole();
}

// A path as deep as keys can be: each key is the front of the next. Recursion would overflow.
TEST_F(radix, KeysThatAreFrontsOfEachOtherMakeADeepTree) {
    for (size_t length = 0; length <= 8000; length += 2) ASSERT_TRUE(add(std::string(length, 'k')));
    checkWhole();
    checkKey(std::string(4001, 'k'));
    checkKey(std::string(4000, 'k'));
    checkKey(std::string(8191, 'k'));
}

TEST_F(radix, KeyLengthsAreRoundedDownToBytesAndBounded) {
    std::string key(9000, 'a');
    record one{{}, key}, two{{}, key};
    ASSERT_EQ(zekRadixInsert(tree, &one.node, one.key.data(), 15), 0);
    EXPECT_EQ(zekRadixGetExact(tree, "a", 8), &one.node);
    EXPECT_EQ(zekRadixInsert(tree, &two.node, two.key.data(), 8), -1) << "the same key";
    ASSERT_EQ(zekRadixInsert(tree, &two.node, two.key.data(), 9000 * 8), 0);
    EXPECT_EQ(two.node.keyLen, 0xFFF8u / 8);
    EXPECT_EQ(zekRadixCount(tree), 2u);
}

TEST(radixMemory, ATreeWithoutMemoryIsRefused) {
    zekMemSetHeapLimit(zekMemHeapStats().blocks);
    EXPECT_EQ(zekRadixCreateP("no memory", 32), nullptr);
    zekMemSetHeapLimit(UINT64_MAX);
    EXPECT_EQ(zekRadixCreate("no pool yet", 32), nullptr);
    uint64_t before = zekMemHeapStats().blocks;
    zekRadix* tree = zekRadixCreateP(std::string(500, 'n').c_str(), 32);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(zekMemHeapStats().blocks, before + 1);
    zekRadixDestroy(tree);
    zekRadixDestroy(nullptr);
    EXPECT_EQ(zekMemHeapStats().blocks, before);
}

}  // namespace
