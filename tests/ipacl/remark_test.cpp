// Remarks of the lists of every family: a map says what a list must hold.
#include <map>
#include <random>

#include "tests/support/ipaclTest.h"

namespace {

class Remarks : public OfFamily {
  protected:
    typedef std::map<uint32_t, std::string> texts;
    uint32_t say(uint32_t seq, std::string_view text, const listName& name = A) const {
        constexpr uint32_t codes[] = {CLI_REMARK_ADD, CLI_V6_REMARK_ADD, CLI_MAC_REMARK_ADD};
        auto request = cfgCommand<cliRemarkReq>(codes[f.row.place], name);
        request.seq = seq;
        text.copy(request.text, sizeof request.text);
        return aclFindListToAddRemarkEntry(request, codes[f.row.place]);
    }
    uint32_t unsay(uint32_t seq, const listName& name = A) const {
        constexpr uint32_t codes[] = {CLI_REMARK_DELETE, CLI_V6_REMARK_DELETE,
                                      CLI_MAC_REMARK_DELETE};
        return aclFindListToDelRemarkEntry(name, seq, codes[f.row.place]);
    }
    static texts held(const aclList* list) {
        texts all;
        const aclRemark* before = nullptr;
        for (const aclRemark* r = list->remarks.head; r != nullptr; before = r, r = r->next) {
            EXPECT_EQ(r->prev, before);
            EXPECT_TRUE(before == nullptr || before->seq < r->seq);
            all[r->seq] = r->text;
        }
        EXPECT_EQ(list->remarks.tail, before);
        return all;
    }
    static texts written() {
        texts all;
        for (const std::string& line : testCfgLines())
            if (line.starts_with(" remark ")) {
                char* end = nullptr;
                const uint32_t seq =
                    static_cast<uint32_t>(std::strtoul(line.c_str() + 8, &end, 10));
                all[seq] = end + 1;
            }
        return all;
    }
};
FOR_EVERY_FAMILY(Remarks);

TEST_P(Remarks, AreTheOperatorsByNumber) {
    aclList* list = make();
    std::mt19937 engine(3);
    auto random = [&engine] { return static_cast<uint32_t>(engine()); };
    texts expected;
    for (int round = 0; round < 600; round++) {
        const uint32_t seq = random() % 3 == 0 ? f.row.seqMax - random() % 9 : random() % 60;
        if (random() % 3 != 0) {
            const std::string text =
                "round " + std::to_string(round) + std::string(random() % 90, '.');
            ASSERT_EQ(say(seq, text), 0u);
            expected[seq] = text.substr(0, REMARK_LEN);
        } else if (random() % 2 == 0) {
            // An entry goes with the remark of its number.
            const bool isNew = add(seq, seq) == 0;
            if (isNew && random() % 2 == 0) {
                ASSERT_EQ(del(seq, seq), 0u);
                expected.erase(seq);
            }
        } else {
            ASSERT_EQ(unsay(seq), 0u) << "whether it was there or not";
            expected.erase(seq);
        }
        ASSERT_EQ(held(list), expected);
        ASSERT_EQ(written(), expected);
    }
    EXPECT_EQ(aclRemarkV4EntCompareSeq(A, 61, list), nullptr);
    while (!expected.empty()) {
        EXPECT_EQ(aclRemarkV4EntCompareSeq(A, expected.begin()->first, list), list->remarks.head);
        EXPECT_EQ(unsay(expected.begin()->first), 0u);
        expected.erase(expected.begin());
        ASSERT_EQ(written(), expected);
    }
    EXPECT_EQ(list->remarks.bySeq, nullptr);
}

TEST_P(Remarks, AreRefusedWhereTheyCannotStandAndLeaveNoTrace) {
    EXPECT_EQ(say(5, "x"), ACL_E_NOLIST);
    make(1, B);
    EXPECT_EQ(say(5, "x", B), ACL_E_NOLIST);
    EXPECT_EQ(unsay(5, B), ACL_E_NOLIST);
    make();
    const std::string before = state();
    for (uint32_t seq : {f.row.seqMax + 1, 0xFFFFFFFFu}) EXPECT_EQ(say(seq, "x"), ACL_E_SEQ_RANGE);
    for (testPoint point : {TEST_BLOCK, TEST_TREE, TEST_INSERT}) {
        testFail(point, 1, 1);
        EXPECT_EQ(say(5, "x"), ACL_E_ENTRY_MEMORY) << point;
        testFailNothing();
        EXPECT_EQ(state(), before);
    }
    // A remark of a deleted list is not the next one's of that name.
    ASSERT_EQ(say(5, "x"), 0u);
    ASSERT_EQ(drop(), 0u);
    make();
    EXPECT_EQ(state(), before);
}

// What a code that names no family means.
TEST_F(IpAcl, RemarksOfOtherCodesAreIpv4sToAddAndMacsToDelete) {
    aclList* list = create("A");
    auto request = cfgCommand<cliRemarkReq>(7, A);
    request.seq = 5u;
    request.text[0] = 'x';
    EXPECT_EQ(aclFindListToAddRemarkEntry(request, 7), 0u);
    ASSERT_NE(list->remarks.head, nullptr);
    EXPECT_EQ(aclFindListToDelRemarkEntry(A, 5, 7), ACL_E_NOLIST);
    EXPECT_EQ(aclFindListToDelRemarkEntry(A, 5, CLI_REMARK_DELETE), 0u);
    EXPECT_EQ(list->remarks.head, nullptr);
}

}  // namespace
