// A list under thousands of random operations, beside a std::map that says what it must hold.
#include <map>
#include <random>

#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");

class Model : public IpAcl, public testing::WithParamInterface<uint32_t> {
  protected:
    // One of few rules, so that duplicates are common.
    static rule ruleOf(uint32_t number) {
        return extended(number & 1, IP_PROTO_TCP)
            .from(ip(10, 0, 0, number / 8), HOST)
            .toPort(PORT_EQ, static_cast<uint16_t>(number % 8));
    }

    uint32_t expectedAdd(uint32_t number, uint32_t* seq) const {
        if (*seq == SEQ_NOT_GIVEN) *seq = (bySeq.empty() ? 0 : bySeq.rbegin()->first) + SEQ_STEP;
        if (byRule.contains(number)) return ACL_E_ENTRY_EXISTS;
        return bySeq.contains(*seq) ? ACL_E_SEQ_USED : ACL_OK;
    }

    void check(const aclList* list) const {
        ASSERT_EQ(list->count, static_cast<int32_t>(bySeq.size()));
        ASSERT_EQ(list->lastEntryId, lastId) << "identifiers are never given twice";
        ASSERT_EQ(list->highestSeq, bySeq.empty() ? 0 : bySeq.rbegin()->first);
        ASSERT_EQ(zekRadixCount(list->seqTree), bySeq.size());
        ASSERT_EQ(zekRadixCount(list->contentTree), bySeq.size());
        const aclEntry* entry = static_cast<const aclEntry*>(list->head);
        const aclEntry* before = nullptr;
        for (const auto& [seq, number] : bySeq) {
            ASSERT_NE(entry, nullptr);
            ASSERT_EQ(entry->block.seq, seq);
            ASSERT_EQ(entry->prev, before);
            ASSERT_EQ(entry->id, idOf.at(seq));
            rule same = ruleOf(number).at(seq);
            ASSERT_EQ(std::memcmp(&entry->block, static_cast<const ipEntryBlock*>(&same),
                                  sizeof entry->block),
                      0);
            before = entry;
            entry = static_cast<const aclEntry*>(entry->next);
        }
        ASSERT_EQ(entry, nullptr);
        ASSERT_EQ(list->tail, before);
    }

    void drop(uint32_t seq) {
        byRule.erase(bySeq[seq]);
        bySeq.erase(seq);
    }

    std::map<uint32_t, uint32_t> bySeq, byRule;  // number -> rule, rule -> number
    std::map<uint32_t, uint32_t> idOf;           // number -> identifier
    uint32_t lastId = 0;
};

TEST_P(Model, HoldsWhatTheMapHolds) {
    std::mt19937 random(GetParam());
    auto below = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const aclList* list = create("A", IP_KIND_EXTENDED);
    for (int step = 0; step < 6000; step++) {
        SCOPED_TRACE(step);
        uint32_t number = below(200);
        uint32_t seq = below(2) == 0 ? SEQ_NOT_GIVEN : below(400);
        switch (below(step % 2000 < 1200 ? 3 : 6)) {  // grows for a while, then shrinks
            case 0:
            case 1: {
                rule block = ruleOf(number).at(seq);
                uint32_t status = expectedAdd(number, &seq);
                ASSERT_EQ(ipAddAccessEntry(A, &block, 0, 0), status);
                ASSERT_EQ(block.seq, seq);
                ASSERT_TRUE(testTake().empty() || status == ACL_OK);
                if (status == ACL_OK)
                    bySeq[seq] = number, byRule[number] = seq, idOf[seq] = ++lastId;
                break;
            }
            case 2:
            case 3: {
                bool known = byRule.contains(number);
                ASSERT_EQ(del("A", ruleOf(number)), known ? ACL_OK : ACL_E_NOENTRY);
                if (known) drop(byRule[number]);
                break;
            }
            default: {
                if (seq == SEQ_NOT_GIVEN) break;
                bool known = bySeq.contains(seq);
                ASSERT_EQ(del("A", ruleOf(number).at(seq)), known ? ACL_OK : ACL_E_NOSEQ);
                if (known) drop(seq);
            }
        }
        if (step % 50 == 0) {
            ASSERT_NO_FATAL_FAILURE(check(list));
        }
        testTake();
    }
    ASSERT_NO_FATAL_FAILURE(check(list));
    // The configuration names exactly the entries that are left, in their order.
    rows lines = testCfgLines();
    ASSERT_EQ(lines.size(), bySeq.size() + 2);
    size_t line = 2;
    for (const auto& [seq, number] : bySeq)
        EXPECT_TRUE(lines[line++].starts_with(" seq " + std::to_string(seq) + " "));
}

INSTANTIATE_TEST_SUITE_P(Seeds, Model, testing::Values(1u, 2u, 3u));

}  // namespace
