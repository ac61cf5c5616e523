// Shows, byte for byte, and the clearing of counters.
#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");

class Show : public IpAcl {
  protected:
    struct answer {
        uint32_t status, size = 0;
        std::string text = {}, name = {};
        uint32_t marker = 0;
    };
    static answer show(const listName& name, decltype(aclShowIpAcl)* call = aclShowIpAcl) {
        void* buffer = nullptr;
        answer a{.status = 0};
        a.status = call(name, &buffer, &a.size);
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
    static answer showAfter(const char* cursor) {
        return show(listNameMake(cursor), aclShowIpAclAll);
    }
    // The one entry's line.
    std::string line(const rule& block, uint32_t log = 0) {
        uint32_t kind = block.kind;
        create("L", kind);
        EXPECT_EQ(add("L", block.at(5), log), 0u);
        std::string text = show(listNameMake("L")).text;
        EXPECT_EQ(ipAccessListDelete(listNameMake("L"), kind), 0u);
        return text.substr(text.find("\r\n") + 2);
    }
};

TEST_F(Show, StandardLists) {
    aclList* list = create("A");
    add("A", standard(IP_PERMIT, 0, 0));
    add("A", standard(IP_DENY, ip(10, 1, 2, 3), HOST), 1);
    add("A", standard(IP_DENY, ip(10, 1, 0, 0), ip(255, 0, 255, 0)).with([](rule& b) {
        b.order = 3, b.dscp = 1, b.fragments = 1, b.counterOptions = 0xFF;
    }),
        0, 1);
    list->head->next->matchCount = 12;
    answer a = show(A);
    EXPECT_EQ(a.status, 0u);
    EXPECT_EQ(a.text,
              "Standard IP access list A\r\n"
              " seq 5 permit any order 255\r\n"
              " seq 10 deny host 10.1.2.3 log (12 matches) order 255\r\n"
              " seq 15 deny 10.1.0.0/8 order 3\r\n");
    EXPECT_EQ(a.size, 4u * 150 + 204);
    EXPECT_EQ(a.marker, 0u);
    node.config.inverseMask = 1;
    EXPECT_NE(show(A).text.find(" deny 10.1.0.0 255.0.255.0 order"), std::string::npos);
    EXPECT_EQ(aclClearIpAclByName(A), 0u);
    EXPECT_NE(show(A).text.find(" log (0 matches) "), std::string::npos);
}

TEST_F(Show, ExtendedEntries) {
    const rule tcp = extended(IP_DENY, IP_PROTO_TCP);
    const rule host = tcp.from(ip(1, 1, 1, 1), HOST);
    const rule all = tcp.with([](rule& b) {
        b.tcpFlags = 0xFF, b.precedence = 1, b.tos = 2, b.dscp = 3, b.fragments = 1;
        b.counterOptions = 0xFF;
    });
    struct {
        rule block;
        uint32_t log;
        const char* normal;
        const char* inverse = nullptr;  // when it differs
    } const cases[] = {
        {tcp.fromPort(PORT_EQ, 1).toPort(PORT_EQ, 2), 1, "tcp any  eq 1 any eq 2 log"},
        // The source decides whether the destination shows as a host.
        {host.to(ip(10, 0, 0, 0), ip(255, 0, 0, 0)), 0, "tcp host 1.1.1.1 host 10.0.0.0"},
        {host, 0, "tcp host 1.1.1.1 host 0.0.0.0"},
        {tcp.to(ip(1, 2, 3, 4), HOST), 0, "tcp any 1.2.3.4/32", "tcp any 1.2.3.4 255.255.255.255"},
        {extended(IP_DENY, 4).with([](rule& b) { b.protoMarker = 1; }), 0, "ip any any"},
        {extended(IP_DENY, 47).from(ip(9, 0, 0, 0), ip(254, 0, 0, 0)), 0, "47 9.0.0.0/7 any",
         "47 9.0.0.0 254.0.0.0 any"},
        {all, 1, "tcp any any established fin syn rst psh ack urg precedence 1 tos 2 log"},
        {extended(IP_DENY, IP_PROTO_ICMP).with([](rule& b) {
             b.icmp = {3, 1, 1, 1};
         }),
         0, "icmp any any host-unreachable"},
    };
    for (node.config.inverseMask = 0; node.config.inverseMask < 2; node.config.inverseMask++)
        for (const auto& c : cases) {
            const char* text =
                node.config.inverseMask != 0 && c.inverse != nullptr ? c.inverse : c.normal;
            EXPECT_EQ(line(c.block, c.log), std::string(" seq 5 deny ") + text + " order 255\r\n");
        }
}

TEST_F(Show, TheBufferGrowsWithLongLines) {
    std::string name(LIST_NAME_LEN, 'n');
    create(name.c_str(), IP_KIND_EXTENDED);
    answer empty = show(listNameMake(name));
    EXPECT_EQ(empty.text, "Extended IP access list " + name + "\r\n");
    EXPECT_EQ(empty.size, 204 + empty.text.size() + 1) << "more than one line's usual 150 bytes";
    for (uint16_t port = 1; port <= 3; port++)
        add(name.c_str(), extended(IP_DENY, IP_PROTO_TCP)
                              .from(ip(200, 200, 200, 200), HOST)
                              .fromPort(PORT_RANGE, 60000, 60001)
                              .toPort(PORT_RANGE, 60000, static_cast<uint16_t>(60000 + port))
                              .with([](rule& b) {
                                  b.tcpFlags = 0xFF, b.precedence = 0x80000000, b.tos = 0x80000000;
                              }));
    answer full = show(listNameMake(name));
    EXPECT_EQ(full.size, std::max<size_t>(4 * 150 + 204, 204 + full.text.size() + 1));
    EXPECT_TRUE(full.text.ends_with(" order 255\r\n"));
}

TEST_F(Show, TheWalkOverAllSkipsPlaceholdersAndEnds) {
    uint32_t status = 0;
    for (const char* placeholder : {"A", "C", "CC", "Z"})
        ipAccessListCreate(listNameMake(placeholder), 0, 1, &status);
    create("B");
    create("D", IP_KIND_EXTENDED);
    answer a = showAfter("");
    EXPECT_EQ(a.status, 0u);
    EXPECT_EQ(a.name, "B");
    EXPECT_EQ(a.marker, SHOW_MARKER);
    EXPECT_EQ(a.text, "Standard IP access list B\r\n");
    EXPECT_EQ(showAfter("B").name, "D");
    EXPECT_EQ(showAfter("BB").name, "D") << "the cursor's list may have gone meanwhile";
    answer end = showAfter("D");
    EXPECT_EQ(end.status, ACL_E_NOLIST);
    EXPECT_EQ(end.size, 0u);
    EXPECT_EQ(show(A).status, 0u) << "a placeholder: no error, and no buffer";
    EXPECT_EQ(show(A).size, 0u);
    EXPECT_EQ(show(listNameMake("nope")).status, ACL_E_NOLIST);
}

TEST_F(Show, ClearAllReachesEveryEntryOfEveryList) {
    auto counts = [] {
        std::vector<uint32_t> all;
        for (const aclList* l = ipAccessListFindFirst(); l; l = ipAccessListFindNext(l->name))
            for (const listEntry* e = l->head; e != nullptr; e = e->next)
                all.push_back(e->matchCount);
        return all;
    };
    for (const char* name : {"A", "B"}) {
        const aclList* list = create(name);
        add(name, standard(IP_DENY, 0, 0));
        add(name, standard(IP_PERMIT, 0, 0));
        list->head->matchCount = list->tail->matchCount = 9;
    }
    EXPECT_EQ(aclClearIpAclByName(listNameMake("C")), ACL_E_NOLIST);
    EXPECT_EQ(aclClearIpAclByName(A), 0u);
    EXPECT_EQ(counts(), (std::vector<uint32_t>{0, 0, 9, 9}));
    EXPECT_EQ(aclClearIpAclAll(), 0u);
    EXPECT_EQ(counts(), (std::vector<uint32_t>{0, 0, 0, 0}));
}

}  // namespace
