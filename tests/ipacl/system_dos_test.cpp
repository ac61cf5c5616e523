// System lists and DoS lists.
#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

const rule udp = extended(IP_DENY, IP_PROTO_UDP);
rule port(uint32_t number) {
    return udp.toPort(number);
}

// --- system lists ------------------------------------------------------------------------------

class SysList : public IpAcl {
  protected:
    static constexpr uint32_t PORT = ifindexControlPort(3);
    static aclList* make(uint32_t kind = IP_KIND_EXTENDED) {
        uint32_t status = 0;
        aclList* list = ipSysAccessListCreate(A, kind, 0, PORT, &status);
        EXPECT_EQ(status, 0u);
        return list;
    }
    static uint32_t addSys(const rule& block) { return ipSysAddAccessEntry(A, &block, 0, PORT); }
};

TEST_F(SysList, CreateSendsTheListEachTimeAndWritesNoLine) {
    const std::string sent = "14413 A to 0x48040000 n 0";
    EXPECT_EQ(effects([] { make(); }), (rows{"trigger A n 0 id 0", sent}));
    aclList* list = ipSysAccessListFindFirst();
    struct {
        uint32_t kind, placeholder, status;
    } const again[] = {
        {IP_KIND_EXTENDED, 0, ACL_OK}, {IP_KIND_STANDARD, 0, ACL_E_IS_EXTENDED}, {0, 1, ACL_OK}};
    for (const auto& a : again) {
        uint32_t status = 77;
        EXPECT_EQ(ipSysAccessListCreate(A, a.kind, a.placeholder, PORT, &status), list);
        EXPECT_EQ(status, a.status);
        EXPECT_EQ(testTake(), rows{sent});
    }
    EXPECT_EQ(ipAccessListFind(A), nullptr) << "a database of its own";
    EXPECT_EQ(ipSysAccessListFindNext(A), nullptr);
}

TEST_F(SysList, EqualEntriesOfRoutingProtocolsAreWelcomeTwice) {
    const aclList* list = make();
    rule other = extended(IP_PERMIT, 89).to(ip(224, 0, 0, 7), HOST);
    EXPECT_EQ(addSys(other), 0u);
    EXPECT_EQ(addSys(other.at(99)), ACL_E_ENTRY_EXISTS);
    for (uint32_t last : {5u, 6u, 9u, 18u, 5u, 6u, 9u, 18u})
        EXPECT_EQ(addSys(extended(IP_PERMIT, 89).to(ip(224, 0, 0, last), HOST)), 0u);
    EXPECT_EQ(list->count, 5);
    EXPECT_EQ(ipSysAddAccessEntry(B, &other, 0, PORT), ACL_E_NOLIST);
    EXPECT_EQ(ipSysAccessEntFind(A, &other), list->head);
}

TEST_F(SysList, AnySourceComesBeforeParticularOnes) {
    const aclList* list = make(IP_KIND_STANDARD);
    auto one = [](uint32_t seq, uint32_t mask) { return standard(IP_PERMIT, seq, mask).at(seq); };
    for (const rule& r : {one(1, HOST), one(2, 0), one(3, HOST), one(4, 0), udp.at(5)})
        EXPECT_EQ(addSys(r), 0u);
    EXPECT_EQ(numbers(list), (words{2, 4, 1, 3, 5}));
    EXPECT_EQ(list->tail->id, 5u);
}

TEST_F(SysList, EntriesGoToThePortAndTheListTakesThemAlongSilently) {
    EXPECT_EQ(ipSysAccessListDelete(A, PORT), ACL_E_NOLIST);
    aclList* list = make();
    const rule block = udp.at(4), unknown = port(6);
    EXPECT_TOLD(addSys(block), 0u, "trigger A n 1 id 0", "14414 A 4 to 0x48040000");
    EXPECT_TOLD(ipSysDelAccessEntry(A, &unknown, 1, PORT), ACL_E_NOENTRY);
    EXPECT_TOLD(ipSysDelAccessEntry(B, &block, 1, PORT), ACL_E_NOENTRY);
    EXPECT_TOLD(ipSysDelAccessEntry(A, &block, 1, PORT), 0u, "14415 A 4 to 0x48040000",
                "trigger A n 0 id 1");
    for (const rule& r : {block, unknown}) addSys(r);
    bind(list, CLIENT_TASK, 65);
    EXPECT_TOLD(ipSysAccessListDelete(A, PORT), 0u, "14415 A to 0x48040000 n 2",
                "trigger A n 1 id 3", "trigger A n 0 id 3");
    ASSERT_EQ(ipSysAccessListFind(A), list);
    EXPECT_TRUE(list->placeholder == 1 && list->kind == 0);
    clientsFree(list);
    EXPECT_TOLD(ipSysAccessListDelete(A, PORT), 0u);  // a placeholder is on no port
    EXPECT_EQ(ipSysAccessListFind(A), nullptr);
}

TEST_F(SysList, BatchesGoInOneMessageAndAreNotStored) {
    const aclList* list = make();
    std::vector<ipEntryBlock> blocks;
    for (uint32_t i = 1; i <= 20; i++) blocks.push_back(udp.at(i));
    auto batch = [&](uint32_t count) {
        return ipSysAddThirteenAccessEntry(A, blocks.data(), 0, PORT, count);
    };
    EXPECT_TOLD(batch(3), 0u, "14414 A 1 2 3 to 0x48040000");
    EXPECT_TOLD(ipSysDelThirteenAccessEntry(A, blocks.data(), 0, PORT, 2), 0u,
                "14415 A 1 2 to 0x48040000");
    for (uint32_t count : {0u, 21u, HOST}) {
        EXPECT_TOLD(batch(count), ACL_E_SYSTEM);
    }
    EXPECT_EQ(batch(20), 0u);
    EXPECT_EQ(list->count, 0);
}

// --- DoS lists ---------------------------------------------------------------------------------

class DosList : public IpAcl {
  protected:
    static aclList* make(const listName& name, uint32_t flags = 0, uint32_t placeholder = 0) {
        uint32_t status = 0;
        aclList* list = ipDosListCreate(name, flags, placeholder, &status);
        EXPECT_EQ(status, 0u);
        return list;
    }
    static uint32_t addDos(const listName& name, rule block) {
        return ipAddDosEntry(name, &block, 0);
    }
    static uint32_t delDos(const listName& name, const rule& block, uint32_t send = 1) {
        return ipDelDosEntry(name, &block, send, 1);
    }
};

TEST_F(DosList, ActiveListsGoToAllAgents) {
    rows header = {"cfg insert 98/141 A 0/0/0 \"!\"",
                   "cfg insert 98/150 A 0/0/0 \"ip trace-list A\"", "sync 3 A \"ip trace-list A\""};
    EXPECT_EQ(effects([] { make(A); }), header);
    EXPECT_EQ(effects([] {
                  addDos(A, udp);
                  make(A, DOS_ACTIVE);  // a configured list stays as it is
                  make(A, 0, 1);
              }),
              (rows{"cfg insert 98/150 A 1/6/ff \" seq 5 deny udp any any\"",
                    "sync 16 A \" seq 5 deny udp any any\""}));
    const rows footer = {"cfg remove 98/141 A", "sync 3 A \"no ip trace-list A\""};
    EXPECT_EQ(effects([] { EXPECT_EQ(ipDosListDelete(A), 0u); }), footer);
    EXPECT_EQ(ipDosListFind(A), nullptr);

    header.push_back("14420 A to 0x3 n 0");
    EXPECT_EQ(effects([] { make(A, DOS_ACTIVE); }), header);
    EXPECT_EQ(effects([] { addDos(A, udp); })[0], "14421 A 5 to 0x3");
    addDos(A, port(1));
    EXPECT_TOLD(delDos(A, udp, 0), 0u, "sync 16 A \"no  seq 5 deny udp any any\"",
                "cfg exact 98/150 A 1/6/ff");
    EXPECT_TOLD(ipDosListDelete(A), 0u, "14423 A 10 to 0x3", footer[0], footer[1],
                "14422 A to 0x3 n 0");
}

TEST_F(DosList, EntriesStatusesAndNumbers) {
    const aclList* list = make(A);
    make(B, 0, 1);  // a placeholder
    struct {
        const char* what;
        listName name;
        rule block;
        uint32_t status;
        bool deletes = false;
    } const cases[] = {
        {"first", A, udp.at(20), ACL_OK},
        {"equal", A, udp.at(30), ACL_E_ENTRY_EXISTS},
        {"whole block counts", A, udp.with([](rule& b) { b.tos = 1; }), ACL_OK},
        {"number used", A, port(2).at(20), ACL_E_SEQ_USED},
        {"in front", A, port(2).at(7), ACL_OK},
        {"between", A, port(3).at(21), ACL_OK},
        {"range", A, port(4).at(SEQ_MAX + 1), ACL_E_SEQ_RANGE},
        {"placeholder", B, udp, ACL_E_NODOS},
        {"no list", C, udp, ACL_E_NODOS},
        {"no list", C, udp, ACL_E_NODOS, true},
        {"unknown rule", A, port(9), ACL_E_NOENTRY, true},
        {"unused number", A, udp.at(8), ACL_E_NOSEQ, true},
        {"by rule", A, udp, ACL_OK, true},
        {"the highest", A, udp.at(25), ACL_OK, true},
        {"default after that", A, port(5), ACL_OK},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.deletes ? delDos(c.name, c.block) : addDos(c.name, c.block), c.status)
            << c.what;
    EXPECT_EQ(numbers(list), (words{7, 21, 26}));
    EXPECT_EQ(list->count, 3);
    EXPECT_EQ(list->tail->id, 5u);
    rule sought = udp.at(21);
    EXPECT_EQ(ipDosEntCompareSeq(A, &sought), list->head->next);
    EXPECT_EQ(ipDosEntFind(A, &sought), nullptr);
    EXPECT_EQ(ipDosListFindPrev(B), list);
    EXPECT_EQ(ipDosListDelete(C), ACL_E_NODOS);
    uint32_t status = 0;
    EXPECT_EQ(ipDosListCreate(listNameMake(""), 0, 0, &status), nullptr);
    EXPECT_EQ(status, ACL_E_NODOS);
}

TEST_F(DosList, OneFilterAtATimeAndUnderItsName) {
    constexpr uint32_t ON = CLI_DOS_ENABLE, OFF = CLI_DOS_DISABLE;
    const listName F = listNameMake("F");
    make(B);
    make(F, 0x10);
    make(A);
    const rows on = {"cfg insert 97/141 A 0/0/0 \"!\"",
                     "cfg insert 97/150 A 0/0/0 \"ip trace-group A\"",
                     "sync 3 A \"ip trace-group A\"", "14420 A to 0x3 n 0"},
               off = {"cfg remove 97/141 A", "sync 3 A \"no ip trace-group A\"",
                      "14422 A to 0x3 n 0"};
    struct {
        listName name;
        uint32_t command, status;
        rows told = {};
    } const cases[] = {
        {A, ON, ACL_OK, on},      {A, ON, ACL_OK},         {B, ON, ACL_E_OTHER_DOS},
        {C, ON, ACL_E_OTHER_DOS}, {B, OFF, ACL_OK},  // it is not enabled: nothing to do
        {C, OFF, ACL_E_NODOS},    {A, 1042, ACL_E_SYSTEM}, {A, OFF, ACL_OK, off},
        {F, ON, ACL_OK},  // other flags: nothing changes
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        testTake();
        EXPECT_EQ(dosIpEnableIntf(c.name, c.command), c.status);
        EXPECT_EQ(testTake(), c.told);
        EXPECT_EQ(ipDosListFind(C), nullptr) << "a refusal leaves no placeholder";
        EXPECT_EQ(dosFilter, &c - cases < 7 ? ipDosListFind(A) : nullptr);
    }
    EXPECT_EQ(ipDosListFind(A)->kind, 0u);
    // A filter may be enabled before its definition, and outlives it.
    EXPECT_SENT(dosIpEnableIntf(C, ON));
    const aclList* list = ipDosListFind(C);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(sentOf(effects([] { make(C); })), rows{"14420 C to 0x3 n 0"});
    addDos(C, udp);
    EXPECT_SENT(ipDosListDelete(C), "14423 C 5 to 0x3", "14422 C to 0x3 n 0");
    EXPECT_EQ(ipDosListFind(C), list) << "still the filter, by name";
    EXPECT_EQ(testCfgLines()[1], "ip trace-group C");
    EXPECT_EQ(dosIpEnableIntf(C, OFF), 0u);
    EXPECT_EQ(ipDosListFind(C), nullptr);
    EXPECT_EQ(testCfgLines()[1], "ip trace-list A");
}

TEST_F(IpAcl, AnImpossibleCountIsReported) {
    uint32_t status = 0;
    const std::string report = "Error: Trying to delete from empty ";
    create("A", IP_KIND_EXTENDED);
    add("A", udp);
    ipSysAccessListCreate(B, IP_KIND_EXTENDED, 0, 1, &status);
    ipSysAddAccessEntry(B, &udp, 0, 1);
    rule block = udp;
    ipDosListCreate(C, 0, 0, &status);
    ipAddDosEntry(C, &block, 0);
    forLists([](aclList* list, auto&) { list->count = 0; });
    EXPECT_TOLD(ipDelAccessEntry(A, &udp, 1, 0), 0u,
                "syserr 0x50006 " + report + "access list A\n");
    EXPECT_TOLD(ipSysDelAccessEntry(B, &udp, 0, 1), 0u,
                "syserr 0x50003 " + report + "System Access List B\n", "trigger B n -1 id 1");
    EXPECT_TOLD(ipDelDosEntry(C, &udp, 0, 0), 0u, "syserr 0x50006 " + report + "access list C\n");
}

}  // namespace
