// Descriptions of lists of every kind: where their line stands, whose it is, how long it lives.
#include "tests/policy/policyTest.h"

namespace {

struct describedKind {
    uint32_t kind, noList;
    const char *header, *entry;  // as typed; the entry as nothing stands in front of it
    const char* renumber = nullptr;
};
constexpr describedKind kinds[] = {
    {1000, ACL_E_NOLIST, "ip access-list standard A", " seq 0 permit host 10.0.0.1",
     "resequence ip access-list A 7 1"},
    {1162, ACL_E_NOLIST, "ipv6 access-list A", " seq 0 permit udp any any",
     "resequence ipv6 access-list A 7 1"},
    {1103, ACL_E_NOLIST, "mac access-list standard A", " seq 0 permit any",
     "resequence mac access-list A 7 1"},
    {1005, ACL_E_NODOS, "ip trace-list A", " seq 0 permit udp any any"},
    {1051, ACL_E_PREFIX_NOLIST, "ip prefix-list A", " seq 1 permit 10.0.0.0/8",
     "resequence ip prefix-list A 7 1"},
    {1153, ACL_E_PREFIX_NOLIST, "ipv6 prefix-list A", " seq 1 permit any",
     "resequence ipv6 prefix-list A 7 1"},
    {1010, ACL_E_ASPATH_NOLIST, "ip as-path access-list A", " permit 7"},
    {1014, ACL_E_COMM_NOLIST, "ip community-list A", " permit 1:7"},
    {1016, ACL_E_EXTCOMM_NOLIST, "ip extcommunity-list A", " permit rt 1:7"},
    {1132, ACL_E_NOGROUP, "acl-vlan-group A", " member vlan 15"},
    {1021, ACL_E_NORMAP, "route-map A permit 10", " set tag 7"},
};

struct Descriptions : PolicyTest {
    uint32_t describe(uint32_t kind, std::string_view text, bool remove = false,
                      const char* name = "A", uint32_t seq = 10) {
        return ask(cli<cliDescriptionReq>(CLI_DESCRIPTION, name, [&](cliDescriptionReq& r) {
            r.kind = kind;
            r.remove = remove ? 1u : 0u;
            r.seq = seq;
            text.copy(r.text, sizeof r.text);
        }));
    }
    uint32_t drop(const describedKind& k) {
        if (k.kind == 1132) (void)type(std::string("no") + k.entry);  // it must be empty
        return type(std::string("no ") + k.header);
    }
    static auto given(std::string_view line) {
        const rows all = testCfgLines();
        return std::ranges::count(all, line);
    }
};

TEST_F(Descriptions, StandBehindTheHeaderOfEveryKindAndGoWithIt) {
    for (const describedKind& k : kinds) {
        SCOPED_TRACE(k.header);
        EXPECT_EQ(describe(k.kind, "x"), k.noList);
        ASSERT_EQ(type(k.header), 0u);
        EXPECT_EQ(describe(k.kind, "x", false, "B"), k.noList);
        ASSERT_EQ(type(k.entry), 0u);
        const rows before = lines();
        ASSERT_EQ(before.size(), 2u);
        const std::string longest(DESCRIPTION_LEN + 1, 'd');
        for (const std::string& text : {std::string("to the  edge"), longest}) {
            EXPECT_EQ(describe(k.kind, text == longest ? text : "  " + text + " "), 0u);
            const std::string line = " description " + text.substr(0, DESCRIPTION_LEN);
            EXPECT_TRUE(said(" A \"" + line + "\""));
            EXPECT_EQ(lines(), (rows{before[0], line, before[1]}));
        }
        // It stays what it was while the list is made again, renumbered or described badly.
        if (k.renumber != nullptr) {
            EXPECT_EQ(type(k.renumber), 0u);
            EXPECT_EQ(lines()[1], " description " + longest.substr(0, DESCRIPTION_LEN));
            EXPECT_TRUE(lines()[2].starts_with(" seq 7 ")) << lines()[2];
            EXPECT_EQ(drop(k), 0u);
            configure(std::string(k.header) + "\n" + k.entry + "\n");
            EXPECT_EQ(describe(k.kind, longest), 0u);
        }
        EXPECT_EQ(type(k.header), 0u);
        for (const char* bad : {"  ", "a\nb"}) EXPECT_EQ(describe(k.kind, bad), ACL_E_SYSTEM);
        EXPECT_EQ(lines().size(), 3u);
        EXPECT_EQ(describe(k.kind, "", true), 0u);
        EXPECT_TRUE(said("\"no  description ddd"));
        EXPECT_EQ(lines(), before);
        EXPECT_EQ(describe(k.kind, "", true), 0u);
        EXPECT_FALSE(said("sync")) << "there was none";

        EXPECT_EQ(describe(k.kind, "gone with its list"), 0u);
        EXPECT_EQ(drop(k), 0u);
        EXPECT_EQ(lines(), rows{});
        ASSERT_EQ(type(k.header), 0u);
        EXPECT_EQ(lines(), rows{before[0]});
        EXPECT_EQ(drop(k), 0u);
    }
}

TEST_F(Descriptions, AreRefusedOfListsThatAreOnlyUsedAndOfWhatIsNotThere) {
    for (uint32_t kind : {0u, 1u, 1042u, 1001u, 0xFFFFFFFFu})
        EXPECT_EQ(describe(kind, "x"), ACL_E_SYSTEM);
    ASSERT_NE(ipAccessListCreate(A, 0, 1, &status), nullptr);
    EXPECT_EQ(describe(1000, "x"), ACL_E_NOLIST);
    configure("route-map A permit 10\n");
    for (uint32_t seq : {0u, 20u, 0xFFFFFFFFu})
        EXPECT_EQ(describe(1021, "x", false, "A", seq), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(lines(), rows{"route-map A permit 10"});
}

// What the manager makes for itself has no lines; another list has all of them under any name.
TEST_F(Descriptions, ANameOfAGeneratedListIsOneAmongIpListsAlone) {
    constexpr const char* name = "sgAcl_7";
    for (const describedKind& k : kinds) {
        SCOPED_TRACE(k.header);
        const rows before = testCfgLines();
        const auto described = given(" description mine");
        std::string header = k.header;
        EXPECT_EQ(type(header.replace(header.rfind('A'), 1, name)), ACL_OK);
        EXPECT_EQ(describe(k.kind, "mine", false, name), ACL_OK);
        if (k.kind == 1000 || k.kind == 1162 || k.kind == 1005)
            EXPECT_EQ(testCfgLines(), before);
        else
            EXPECT_EQ(given(" description mine"), described + 1);
    }
    auto bind = [this](const char* list) {
        return ask(cli<cliBindReq>(CLI_MAC_BIND, list, [=](cliBindReq& r) {
            r.ifindex = 0x04040001u;
            r.writeConfig = 1u;
        }));
    };
    configure("mac access-list standard sgAcl_7\n remark 0 x\n");
    EXPECT_EQ(bind(name), ACL_OK);
    EXPECT_EQ(given(" remark 0 x"), 1);
    EXPECT_EQ(given(" mac access-group sgAcl_7 in"), 1);
    EXPECT_EQ(bind("A"), ACL_OK) << "one replaces the other";
    EXPECT_EQ(given(" mac access-group sgAcl_7 in"), 0);
    forgetLists();
    aclIntfDrop(AclIntfTreeFind(0x04040001));
}

}  // namespace
