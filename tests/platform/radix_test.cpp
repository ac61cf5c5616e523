// Ordered trees against std::map, its teller of truth.
#include "platform/api/zekRadix.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <string>

#include "platform/api/zekMem.h"

namespace {

struct record {
    zekRadixNode node;
    std::string key;
};

// std::string compares as unsigned bytes with the shorter first: the tree's order.
using model = std::map<std::string, record>;

uint32_t bits(const std::string& key) {
    return static_cast<uint32_t>(key.size() * 8);
}
record* recordOf(zekRadixNode* node) {
    return reinterpret_cast<record*>(node);
}

class radix : public testing::Test {
  protected:
    zekRadix* tree = zekRadixCreateP("test", 32);
    model keys;

    ~radix() override { zekRadixDestroy(tree); }

    // Adds it, which the tree refuses when it has it.
    void add(const std::string& key) {
        record twice{{}, key};
        auto [place, added] = keys.try_emplace(key, record{{}, key});
        record* r = added ? &place->second : &twice;
        ASSERT_EQ(zekRadixInsert(tree, &r->node, r->key.data(), bits(key)), added ? 0 : -1);
    }
    void remove(model::iterator it) {
        zekRadixRemove(tree, &it->second.node);
        keys.erase(it);
    }
    const record* at(model::iterator it) { return it == keys.end() ? nullptr : &it->second; }
    const record* before(model::iterator it) {
        return it == keys.begin() ? nullptr : &std::prev(it)->second;
    }
    // Everything that can be asked about one key, in the tree or not.
    void checkKey(const std::string& key) {
        const char* data = key.data();
        EXPECT_EQ(recordOf(zekRadixGetExact(tree, data, bits(key))), at(keys.find(key)));
        EXPECT_EQ(recordOf(zekRadixGetNext(tree, data, bits(key))), at(keys.upper_bound(key)));
        EXPECT_EQ(recordOf(zekRadixGetPrev(tree, data, bits(key))), before(keys.lower_bound(key)));
    }
    // A walk over all keys up to and with `last` meets them in order, and may remove and free the
    // node that it is at.
    void checkWhole(const std::string& last = "none", bool removes = false) {
        ASSERT_EQ(zekRadixCount(tree), keys.size());
        EXPECT_EQ(recordOf(zekRadixGetFirst(tree)), at(keys.begin()));
        EXPECT_EQ(recordOf(zekRadixGetLast(tree)), before(keys.end()));
        auto next = keys.begin();
        std::function<int(const record*)> visit = [&](const record* r) {
            EXPECT_EQ(r, at(next));
            const bool stops = next->first == last;
            auto here = next++;
            if (removes && here->first.size() % 2 == 0) remove(here);
            return stops ? 42 : 0;
        };
        auto call = [](zekRadixNode* node, void* arg) {
            return (*static_cast<decltype(visit)*>(arg))(recordOf(node));
        };
        const bool stops = keys.contains(last);
        EXPECT_EQ(zekRadixWalk(tree, call, &visit), stops ? 42 : 0);
        EXPECT_EQ(next, stops ? keys.upper_bound(last) : keys.end());
    }
};

// How random keys are made; few different bytes and lengths make keys that are fronts of others.
const struct {
    const char* what;
    size_t minLength, maxLength;
    std::string alphabet, front;
} shapes[] = {
    {"short keys of two bytes, zero among them", 0, 7, std::string("\0\x01", 2), ""},
    {"all lengths, the ends of the byte range", 0, 20, std::string("\0\x7f\x80\xff", 4), ""},
    {"sequence numbers", 4, 4, std::string("\0\x01\x02\xfe\xff", 5), ""},
    {"names with a long common front", 0, 4, "abcdefgh", std::string(136, 'x')},
    {"zero runs of different lengths", 0, 12, std::string(1, '\0'), ""},
};

TEST_F(radix, RandomOperationsAgreeWithAnOrderedMap) {
    std::mt19937 random(7);
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape.what);
        auto makeKey = [&] {
            std::string key = shape.front;
            size_t length = shape.minLength + random() % (shape.maxLength - shape.minLength + 1);
            for (size_t i = 0; i < length; i++)
                key += shape.alphabet[random() % shape.alphabet.size()];
            return key;
        };
        for (int step = 0; step < 6000; step++) {
            const std::string key = makeKey();
            const auto there = keys.find(key);
            // More adds than removals at first, then the other way round: the tree grows and goes.
            if (there != keys.end() && random() % 10 < (step < 3000 ? 3 : 8))
                remove(there);
            else
                add(key);
            checkKey(makeKey());
            if (step % 500 == 0) checkWhole(makeKey(), step % 1000 == 0);
            if (HasFailure()) return;
        }
        checkWhole();
        while (!keys.empty()) remove(keys.begin());
        checkWhole();
    }
}

// A path as deep as keys can be: each key is the front of the next. Recursion would overflow.
TEST_F(radix, KeysThatAreFrontsOfEachOtherMakeADeepTree) {
    for (size_t length = 0; length <= 8000; length += 2) add(std::string(length, 'k'));
    checkWhole();
    for (size_t length : {4001u, 4000u, 8191u}) checkKey(std::string(length, 'k'));
}

TEST_F(radix, KeyLengthsAreRoundedDownToBytesAndBounded) {
    record one{{}, "ab"}, two{{}, std::string(9000, 'a')};
    ASSERT_EQ(zekRadixInsert(tree, &one.node, one.key.data(), 15), 0);
    EXPECT_EQ(zekRadixGetExact(tree, "a", 8), &one.node);
    ASSERT_EQ(zekRadixInsert(tree, &two.node, two.key.data(), 9000 * 8), 0);
    EXPECT_EQ(two.node.keyLen, 0xFFF8u / 8);
}

TEST_F(radix, ATreeWithoutMemoryIsRefused) {
    zekMemSetHeapLimit(zekMemHeapStats().blocks);
    EXPECT_EQ(zekRadixCreateP("no memory", 32), nullptr);
    zekMemSetHeapLimit(UINT64_MAX);
    EXPECT_EQ(zekRadixCreate("no pool yet", 32), nullptr);
    const uint64_t before = zekMemHeapStats().blocks;
    zekRadixDestroy(zekRadixCreateP(std::string(500, 'n').c_str(), 32));
    zekRadixDestroy(nullptr);
    EXPECT_EQ(zekMemHeapStats().blocks, before);
}

}  // namespace
