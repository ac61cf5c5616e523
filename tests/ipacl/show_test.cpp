// Shows as replies, the walk over all lists, and the clearing of counters.
#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

class Show : public IpAcl {
  protected:
    struct answer {
        uint32_t status = 0, size = 0, marker = 0;
        std::string text = {}, name = {};
    };
    static answer show(const std::string& name, decltype(aclShowIpAcl)* call = aclShowIpAcl) {
        void* buffer = nullptr;
        answer a;
        a.status = call(listNameMake(name), &buffer, &a.size);
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
};

TEST_F(Show, TheBufferGrowsWithLongLines) {
    const std::string name(LIST_NAME_LEN, 'n');
    create(name.c_str(), IP_KIND_EXTENDED);
    const answer empty = show(name);
    EXPECT_EQ(empty.text, "Extended IP access list " + name + "\r\n");
    EXPECT_EQ(empty.size, 204 + empty.text.size() + 1) << "more than one line's usual 150 bytes";
    EXPECT_EQ(empty.marker, 0u);
    for (uint16_t port = 1; port <= 3; port++)
        add(name.c_str(), extended(IP_DENY, IP_PROTO_TCP).toPort(port).with([](rule& b) {
            b.src = b.srcMask = HOST, b.tcpFlags = 0xFF, b.srcOperator = PORT_RANGE;
            b.precedence = b.tos = 0x80000000;
        }));
    const answer full = show(name);
    EXPECT_EQ(full.size, std::max<size_t>(4 * 150 + 204, 204 + full.text.size() + 1));
    EXPECT_TRUE(full.text.ends_with(" order 255\r\n"));
    testFail(TEST_BUFFER);
    for (auto* call : {aclShowIpAcl, aclShowIpAclAll})
        EXPECT_EQ(show(call == aclShowIpAcl ? name : "", call).status, ACL_E_MEMORY);
}

TEST_F(Show, TheWalkOverAllSkipsPlaceholdersAndEnds) {
    uint32_t status = 0;
    const std::string longest(LIST_NAME_LEN,
                              'x');  // names are case-sensitive, and fill their field
    for (const char* placeholder : {"A", "C", "CC", "Z"})
        ipAccessListCreate(listNameMake(placeholder), 0, 1, &status);
    for (const std::string& name : {std::string("D"), longest, std::string("B"), std::string("d")})
        create(name.c_str(), name == "D" ? IP_KIND_EXTENDED : IP_KIND_STANDARD);
    std::string cursor;
    for (const std::string& name :
         {std::string("B"), std::string("D"), std::string("d"), longest}) {
        const answer a = show(cursor, aclShowIpAclAll);
        EXPECT_TRUE(a.status == ACL_OK && a.marker == SHOW_MARKER) << name;
        EXPECT_EQ(a.name, name);
        EXPECT_EQ(a.text, (name == "D" ? "Extended IP access list " : "Standard IP access list ") +
                              name + "\r\n");
        cursor = name + (name == "B" ? "B" : "");  // the cursor's list may have gone meanwhile
    }
    EXPECT_EQ(show(longest, aclShowIpAclAll).status, ACL_E_NOLIST);
    EXPECT_EQ(show(longest, aclShowIpAclAll).size, 0u);
    EXPECT_TRUE(show("A").status == ACL_OK && show("A").size == 0) << "a placeholder: no buffer";
    EXPECT_EQ(show("B").size, 150u + 204) << "a usual line's, and the title's";
    EXPECT_EQ(show("nope").status, ACL_E_NOLIST);
    EXPECT_EQ(ipAccessListFindPrev(B), ipAccessListFind(A));
    EXPECT_EQ(ipAccessListFindPrev(A), nullptr);
    EXPECT_EQ(ipAccessListFindPrev(listNameMake("absent")), nullptr);
}

TEST_F(Show, ClearingReachesEveryEntry) {
    for (const char* name : {"A", "B"}) {
        const aclList* list = create(name);
        for (uint32_t action : {IP_DENY, IP_PERMIT}) {
            rule block = standard(action, 0, 0);
            EXPECT_EQ(ipAddAccessEntry(list->name, &block, 1, 0), 0u);
            list->tail->matchCount = 9;
        }
    }
    auto counts = [](const char* name) {
        const std::string text = show(name).text;
        return text.find("(0 ") == text.npos ? 9 : text.find("(9 ") == text.npos ? 0 : -1;
    };
    EXPECT_EQ(aclClearIpAclByName(C), ACL_E_NOLIST);
    EXPECT_EQ(aclClearIpAclByName(A), 0u);
    EXPECT_TRUE(counts("A") == 0 && counts("B") == 9);
    EXPECT_EQ(aclClearIpAclAll(), 0u);
    EXPECT_EQ(counts("B"), 0);
}

}  // namespace
