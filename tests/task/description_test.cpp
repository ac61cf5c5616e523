// Descriptions of lists of every kind: where their line stands, whose it is, how long it lives.
#include "tests/task/fixture.h"

#include <algorithm>

#include "include/policyMsg.h"

namespace {

struct kindOfList {
    uint32_t kind, create, remove, addEntry, noList;
    const char* header;  // with its name
};
constexpr kindOfList kinds[] = {
    {1000, 1000, 1001, 1002, ACL_E_NOLIST, "ip access-list standard A"},
    {1162, 1162, 1163, 1166, ACL_E_NOLIST, "ipv6 access-list A"},
    {1103, 1103, 1102, 1099, ACL_E_NOLIST, "mac access-list standard A"},
    {1005, 1005, 1004, 1007, ACL_E_NODOS, "ip trace-list A"},
    {1051, 1042, 1043, 1044, ACL_E_PREFIX_NOLIST, "ip prefix-list A"},
    {1153, 1147, 1148, 1149, ACL_E_PREFIX_NOLIST, "ipv6 prefix-list A"},
    {1010, 1010, 1008, 1011, ACL_E_ASPATH_NOLIST, "ip as-path access-list A"},
    {1014, 1014, 1012, 1015, ACL_E_COMM_NOLIST, "ip community-list A"},
    {1016, 1016, 1019, 1017, ACL_E_EXTCOMM_NOLIST, "ip extcommunity-list A"},
    {1132, 1132, 1133, 1134, ACL_E_NOGROUP, "acl-vlan-group A"},
    {1021, 1021, 1020, 1025, ACL_E_NORMAP, "route-map A permit 10"},
};

struct Descriptions : TaskTest {
    typedef std::vector<std::string> rows;

    uint32_t describe(uint32_t kind, std::string_view text, bool remove = false,
                      const char* name = "A", uint32_t seq = 10) {
        return ask(cli<cliDescriptionReq>(CLI_DESCRIPTION, name, [&](cliDescriptionReq& r) {
            r.kind = kind;
            r.remove = remove ? 1u : 0u;
            r.seq = seq;
            text.copy(r.text, sizeof r.text);
        }));
    }
    static bool isKinded(const kindOfList& k) { return k.create == 1000 || k.create == 1103; }
    // A list, or its first entry; what a kind does not read is behind what it does.
    uint32_t make(const kindOfList& k, const char* name = "A") {
        auto bytes = cli(k.create, name, sizeof(cliRmapReq));
        msgPut(bytes, 220, isKinded(k) ? 1 : 0);
        if (k.create == 1021) as<cliRmapReq>(bytes).seq = 10u;
        return ask(bytes);
    }
    static void msgPut(std::vector<uint8_t>& bytes, size_t at, uint32_t word) {
        be32 field;
        field = word;
        std::memcpy(bytes.data() + at, &field, sizeof field);
    }
    uint32_t changeMember(uint32_t code) {
        return ask(cli<cliGroupReq>(code, "A", [](cliGroupReq& r) {
            r.vlans.given = r.vlans.count = 1u;
            r.vlans.bits[1] = 1;
            r.vlanText[0] = '8';
        }));
    }
    uint32_t drop(const kindOfList& k) {
        if (k.create == 1132) (void)changeMember(CLI_GROUP_MEMBER_DELETE);  // it must be empty
        auto bytes = cli(k.remove, "A", 400);
        msgPut(bytes, 220, isKinded(k) ? 1 : 0);
        return ask(bytes);
    }
    uint32_t addEntry(const kindOfList& k) {
        if (k.create == 1000 || k.create == 1005)
            return ask(cli<cliIpEntryReq>(k.addEntry, "A", [](cliIpEntryReq& r) {
                r.block = standardBlock(0x0A000001);
                r.block.seq = 0u;  // nothing stands in front of it
            }));
        if (k.create == 1162)
            return ask(cli<cliIp6EntryReq>(k.addEntry, "A", [](cliIp6EntryReq& r) {
                r.block.seq = 0u;
                r.block.protocol = IP_PROTO_UDP;
            }));
        if (k.create == 1103)
            return ask(cli<cliMacEntryReq>(k.addEntry, "A", [](cliMacEntryReq& r) {
                r.block.seq = 0u;
                r.block.type = IP_KIND_STANDARD;
            }));
        if (k.create == 1042 || k.create == 1147)
            return ask(cli<cliPrefix6Req>(k.addEntry, "A", [](cliPrefix6Req& r) {
                r.entry.seq = 1u;
                r.entry.len = 8;
            }));
        if (k.create == 1132) return changeMember(k.addEntry);
        if (k.create == 1010)
            return ask(
                cli<cliAspathReq>(k.addEntry, "A", [](cliAspathReq& r) { r.text[0] = '7'; }));
        if (k.create == 1014)
            return ask(cli<cliCommReq>(k.addEntry, "A", [](cliCommReq& r) {
                r.entry.kind = COMM_REGEXP;
                r.entry.text[0] = '7';
            }));
        if (k.create == 1016)
            return ask(cli<cliExtCommReq>(k.addEntry, "A", [](cliExtCommReq& r) {
                r.entry.kind = COMM_REGEXP;
                r.entry.body.text[0] = '7';
            }));
        return ask(cli<cliRmapClauseReq>(k.addEntry, "A", [](cliRmapClauseReq& r) {
            r.clause.cls = RTMAP_MS_SET;
            r.clause.code = RTMAP_SET_TAG;
            r.clause.kind = RMAP_KIND_NUMBER;
            r.clause.seq = 10u;
            r.clause.value = 7u;
        }));
    }
    // ACL_E_SYSTEM: it has no numbers.
    uint32_t renumber(const kindOfList& k) {
        constexpr uint32_t codes[] = {CLI_IP_RESEQUENCE, CLI_V6_RESEQUENCE, CLI_MAC_RESEQUENCE};
        if (&k - kinds < 3)
            return ask(cli<cliReseqReq>(codes[&k - kinds], "A", [](cliReseqReq& r) {
                r.start = 7u;
                r.step = 1u;
            }));
        if (k.create != 1042 && k.create != 1147) return ACL_E_SYSTEM;
        return ask(cli<cliPrefixReseqReq>(CLI_PREFIX_RESEQUENCE, "A", [&k](cliPrefixReseqReq& r) {
            r.start = 7u;
            r.step = 1u;
            r.family = k.create == 1042 ? 1u : 2u;
        }));
    }
    static rows lines() {
        rows all = testCfgLines();
        std::erase(all, "!");
        return all;
    }
};

TEST_F(Descriptions, StandBehindTheHeaderOfEveryKindAndGoWithIt) {
    for (const kindOfList& k : kinds) {
        SCOPED_TRACE(k.header);
        EXPECT_EQ(describe(k.kind, "x"), k.noList);
        ASSERT_EQ(make(k), 0u);
        EXPECT_EQ(describe(k.kind, "x", false, "B"), k.noList);
        ASSERT_EQ(addEntry(k), 0u);
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
        if (const uint32_t status = renumber(k); status != ACL_E_SYSTEM) {
            EXPECT_EQ(status, 0u);
            EXPECT_EQ(lines()[1], " description " + longest.substr(0, DESCRIPTION_LEN));
            EXPECT_TRUE(lines()[2].starts_with(" seq 7 ")) << lines()[2];
            EXPECT_EQ(drop(k), 0u);
            ASSERT_EQ(make(k), 0u);
            ASSERT_EQ(addEntry(k), 0u);
            EXPECT_EQ(describe(k.kind, longest), 0u);
        }
        EXPECT_EQ(make(k), 0u);
        EXPECT_EQ(describe(k.kind, "  "), ACL_E_SYSTEM);
        EXPECT_EQ(describe(k.kind, "a\nb"), ACL_E_SYSTEM);
        EXPECT_EQ(lines().size(), 3u);
        EXPECT_EQ(describe(k.kind, "", true), 0u);
        EXPECT_TRUE(said("\"no  description ddd"));
        EXPECT_EQ(lines(), before);
        EXPECT_EQ(describe(k.kind, "", true), 0u);
        EXPECT_FALSE(said("sync")) << "there was none";

        EXPECT_EQ(describe(k.kind, "gone with its list"), 0u);
        EXPECT_EQ(drop(k), 0u);
        EXPECT_EQ(lines(), rows{});
        ASSERT_EQ(make(k), 0u);
        EXPECT_EQ(lines(), rows{before[0]});
        EXPECT_EQ(drop(k), 0u);
    }
}

TEST_F(Descriptions, AreRefusedOfListsThatAreOnlyUsedAndOfWhatIsNotThere) {
    for (uint32_t kind : {0u, 1u, 1042u, 1001u, 0xFFFFFFFFu})
        EXPECT_EQ(describe(kind, "x"), ACL_E_SYSTEM);
    uint32_t status = 0;
    ASSERT_NE(ipAccessListCreate(listNameMake("A"), 0, 1, &status), nullptr);
    EXPECT_EQ(describe(1000, "x"), ACL_E_NOLIST);
    ASSERT_EQ(make(kinds[std::size(kinds) - 1]), 0u);
    for (uint32_t seq : {0u, 20u, 0xFFFFFFFFu})
        EXPECT_EQ(describe(1021, "x", false, "A", seq), ACL_E_RMAP_NOENTRY);
    EXPECT_EQ(lines(), rows{"route-map A permit 10"});
}

// What the manager makes for itself has no lines; another list has all of them under any name.
TEST_F(Descriptions, ANameOfAGeneratedListIsOneAmongIpListsAlone) {
    constexpr const char* name = "sgAcl_7";
    auto given = [](std::string_view line) {
        const rows lines = testCfgLines();
        return std::ranges::count(lines, line);
    };
    for (const kindOfList& k : kinds) {
        SCOPED_TRACE(k.header);
        const rows before = testCfgLines();
        const auto described = given(" description mine");
        EXPECT_EQ(make(k, name), ACL_OK);
        EXPECT_EQ(describe(k.kind, "mine", false, name), ACL_OK);
        if (k.create == 1000 || k.create == 1162 || k.create == 1005)
            EXPECT_EQ(testCfgLines(), before);
        else
            EXPECT_EQ(given(" description mine"), described + 1);
    }
    constexpr uint32_t port = 0x04040001;
    auto bind = [this](const char* list, uint32_t ifindex) {
        return ask(cli<cliBindReq>(CLI_MAC_BIND, list, [=](cliBindReq& r) {
            r.ifindex = ifindex;
            r.writeConfig = 1u;
        }));
    };
    auto remark = cli<cliRemarkReq>(CLI_MAC_REMARK_ADD, name, [](auto& r) { r.text[0] = 'x'; });
    EXPECT_EQ(ask(remark), ACL_OK);
    EXPECT_EQ(bind(name, port), ACL_OK);
    EXPECT_EQ(given(" remark 0 x"), 1);
    EXPECT_EQ(given(" mac access-group sgAcl_7 in"), 1);
    EXPECT_EQ(bind("A", port), ACL_OK) << "one replaces the other";
    EXPECT_EQ(given(" mac access-group sgAcl_7 in"), 0);
}

}  // namespace
