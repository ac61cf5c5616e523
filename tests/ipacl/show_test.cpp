// Shows as replies, the walk over all lists, and the clearing of counters.
#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

class Show : public OfFamily {
  protected:
    struct answer {
        uint32_t status = 0, size = 0, marker = 0;
        std::string text = {}, name = {};
    };
    answer show(const std::string& name, decltype(aclListShow)* call = aclListShow) const {
        void* buffer = nullptr;
        answer a;
        a.status = call(f.row, listNameMake(name), &buffer, &a.size);
        if (buffer == nullptr) return a;
        const auto* header = static_cast<const showReplyHdr*>(buffer);
        const char* bytes = static_cast<const char*>(buffer);
        a.marker = header->marker;
        a.name = listNameView(header->name);
        a.text = bytes + SHOW_TEXT_OFFSET;
        // Nothing but the marker, the name and the text: no bytes of other memory leave.
        auto isZero = [](char c) { return c == 0; };
        EXPECT_TRUE(std::all_of(bytes, bytes + sizeof(ipcHdr), isZero));
        EXPECT_TRUE(std::all_of(bytes + SHOW_TEXT_OFFSET + a.text.size(), bytes + a.size, isZero));
        zekMC_M_sysFree(buffer);
        return a;
    }
    std::string titleOf(const std::string& name) const {
        constexpr const char* words[] = {"Extended IP", "IPv6", "Extended mac"};
        return words[f.row.place] + (" access list " + name) + "\r\n";
    }
};
FOR_EVERY_FAMILY(Show);

TEST_P(Show, TheBufferGrowsWithItsLines) {
    const std::string name(LIST_NAME_LEN, 'n');
    make(0, listNameMake(name));
    const answer empty = show(name);
    EXPECT_EQ(empty.text, titleOf(name));
    EXPECT_EQ(empty.size, 204 + empty.text.size() + 1) << "more than one line's usual 150 bytes";
    EXPECT_EQ(empty.marker, 0u);
    for (uint32_t n = 0; n < 3; n++) {
        anyBlock block(f, n, SEQ_NOT_GIVEN);
        auto& b = reinterpret_cast<ipEntryBlock&>(block.bytes);
        if (f.row.place == INTF_V4) {
            b.src = b.srcMask = b.dstMask = HOST, b.tcpFlags = 0xFF;
            b.srcOperator = b.dstOperator = PORT_RANGE;
            b.precedence = b.tos = 0x80000000;
        }
        EXPECT_EQ(aclListAdd(f.row, listNameMake(name), block.bytes, {}), 0u);
    }
    const answer full = show(name);
    EXPECT_EQ(full.size, std::max<size_t>(4 * 150 + 204, 204 + full.text.size() + 1));
    EXPECT_TRUE(full.size > 4 * 150 + 204 || f.row.place != INTF_V4);
    testFail(TEST_BUFFER);
    for (auto* call : {aclListShow, aclListShowNext})
        EXPECT_EQ(show(call == aclListShow ? name : "", call).status, ACL_E_MEMORY);
}

// Names are case-sensitive, and fill their field.
TEST_P(Show, TheWalkOverAllSkipsPlaceholdersAndEnds) {
    const std::string longest(LIST_NAME_LEN, 'x'), names[] = {"B", "D", "d", longest};
    for (const char* placeholder : {"A", "C", "CC", "Z"}) make(1, listNameMake(placeholder));
    for (size_t i : {size_t{1}, size_t{3}, size_t{0}, size_t{2}}) make(0, listNameMake(names[i]));
    std::string cursor;
    for (const std::string& name : names) {
        const answer a = show(cursor, aclListShowNext);
        EXPECT_TRUE(a.status == ACL_OK && a.marker == SHOW_MARKER) << name;
        EXPECT_EQ(a.name, name);
        EXPECT_EQ(a.text, titleOf(name));
        cursor = name + (name == "B" ? "B" : "");  // the cursor's list may have gone meanwhile
    }
    EXPECT_EQ(show(longest, aclListShowNext).status, ACL_E_NOLIST);
    EXPECT_EQ(show(longest, aclListShowNext).size, 0u);
    EXPECT_TRUE(show("A").status == ACL_OK && show("A").size == 0) << "a placeholder: no buffer";
    EXPECT_EQ(show("B").size, 150u + 204) << "a usual line's, and the title's";
    EXPECT_EQ(show("nope").status, ACL_E_NOLIST);
}

TEST_P(Show, ClearingReachesEveryEntry) {
    for (const listName& name : {A, B}) {
        make(0, name);
        for (uint32_t n : {0u, 1u}) {
            EXPECT_EQ(add(n, SEQ_NOT_GIVEN, name), 0u);
            find(name)->tail->matchCount = 9;
        }
    }
    // (IPv4's destinations have words of their own there.)
    EXPECT_TRUE(f.row.place == INTF_V4 ||
                show("A").text.starts_with(titleOf("A") + " seq 5 " + f.text(0)));
    auto counts = [this](const listName& name) {
        return words{find(name)->head->matchCount, find(name)->tail->matchCount};
    };
    EXPECT_EQ(aclListClear(f.row, C), ACL_E_NOLIST);
    EXPECT_EQ(aclListClear(f.row, A), 0u);
    EXPECT_TRUE(counts(A) == words(2) && counts(B) == words(2, 9));
    EXPECT_EQ(aclListClearAll(f.row), 0u);
    EXPECT_EQ(counts(B), words(2));
}

}  // namespace
