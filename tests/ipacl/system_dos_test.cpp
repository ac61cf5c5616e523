// System lists and DoS lists.
#include "include/cliMsg.h"
#include "tests/support/ipaclTest.h"

namespace {

const listName A = listNameMake("A");
const listName B = listNameMake("B");
const listName C = listNameMake("C");

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
    const std::string sent = "agent list 14413 A if 0x48040000 pipe 0 option 0 n 0";
    EXPECT_EQ(effects([] { make(); }), (rows{"trigger A n 0 id 0", sent}));
    aclList* list = ipSysAccessListFindFirst();
    struct {
        uint32_t kind, placeholder, status;
    } again[] = {
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
    for (uint32_t last : {5u, 6u, 9u, 18u}) {
        rule hello = extended(IP_PERMIT, 89).to(ip(224, 0, 0, last), HOST);
        EXPECT_EQ(addSys(hello), 0u);
        EXPECT_EQ(addSys(hello), 0u);
    }
    EXPECT_EQ(list->count, 5);
    EXPECT_EQ(ipSysAddAccessEntry(B, &other, 0, PORT), ACL_E_NOLIST);
    EXPECT_EQ(ipSysAccessEntFind(A, &other), list->head);
}

TEST_F(SysList, AnySourceComesBeforeParticularOnes) {
    const aclList* list = make(IP_KIND_STANDARD);
    auto one = [](uint32_t seq, uint32_t mask) { return standard(IP_PERMIT, seq, mask).at(seq); };
    for (const rule& r : {one(1, HOST), one(2, 0), one(3, HOST), one(4, 0),
                          extended(IP_PERMIT, 6).at(5).from(0, 0)})
        EXPECT_EQ(addSys(r), 0u);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{2, 4, 1, 3, 5}));
    EXPECT_EQ(list->tail->id, 5u);
}

TEST_F(SysList, EntriesGoToThePortAndTheListTakesThemAlongSilently) {
    EXPECT_EQ(ipSysAccessListDelete(A, PORT), ACL_E_NOLIST);
    aclList* list = make();
    rule block = extended(IP_DENY, 17).at(4), unknown = extended(IP_DENY, 6);
    EXPECT_EQ(effects([&] { EXPECT_EQ(addSys(block), 0u); }),
              (rows{"trigger A n 1 id 0", "agent entry 14414 A 4 if 0x48040000 pipe 0"}));
    EXPECT_EQ(ipSysDelAccessEntry(A, &unknown, 1, PORT), ACL_E_NOENTRY);
    EXPECT_EQ(ipSysDelAccessEntry(B, &block, 1, PORT), ACL_E_NOENTRY);
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(effects([&] { EXPECT_EQ(ipSysDelAccessEntry(A, &block, 1, PORT), 0u); }),
              (rows{"agent entry 14415 A 4 if 0x48040000 pipe 0", "trigger A n 0 id 1"}));
    addSys(block);
    list->count = 0;
    EXPECT_EQ(effects([&] { EXPECT_EQ(ipSysDelAccessEntry(A, &block, 0, PORT), 0u); }),
              (rows{"syserr 0x50003 Error: Trying to delete from empty System Access List A\n",
                    "trigger A n -1 id 2"}));
    list->count = 0;
    addSys(block);
    addSys(unknown);
    bind(list, CLIENT_TASK, 65);
    EXPECT_EQ(effects([] { EXPECT_EQ(ipSysAccessListDelete(A, PORT), 0u); }),
              (rows{"agent list 14415 A if 0x48040000 pipe 0 option 0 n 2", "trigger A n 1 id 4",
                    "trigger A n 0 id 4"}));
    ASSERT_EQ(ipSysAccessListFind(A), list);
    EXPECT_TRUE(list->placeholder == 1 && list->kind == 0);
    unbind(list);
    EXPECT_EQ(effects([] { EXPECT_EQ(ipSysAccessListDelete(A, PORT), 0u); }), rows{})
        << "a placeholder is on no port";
    EXPECT_EQ(ipSysAccessListFind(A), nullptr);
}

TEST_F(SysList, BatchesGoInOneMessageAndAreNotStored) {
    const aclList* list = make();
    std::vector<ipEntryBlock> blocks;
    for (uint32_t i = 1; i <= 20; i++) blocks.push_back(extended(IP_DENY, 6).at(i));
    auto batch = [&](uint32_t count) {
        return ipSysAddThirteenAccessEntry(A, blocks.data(), 0, PORT, count);
    };
    EXPECT_EQ(effects([&] {
                  EXPECT_EQ(batch(3), 0u);
                  EXPECT_EQ(ipSysDelThirteenAccessEntry(A, blocks.data(), 0, PORT, 2), 0u);
              }),
              (rows{"agent entry 14414 A 1 2 3 if 0x48040000 pipe 0",
                    "agent entry 14415 A 1 2 if 0x48040000 pipe 0"}));
    EXPECT_EQ(batch(20), 0u);
    testTake();
    for (uint32_t count : {0u, 21u, 0xFFFFFFFFu}) EXPECT_EQ(batch(count), ACL_E_SYSTEM);
    EXPECT_EQ(testTake(), rows{});
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
    static const rule udp;
};
const rule DosList::udp = extended(IP_DENY, IP_PROTO_UDP);

TEST_F(DosList, ActiveListsGoToAllAgents) {
    rows header = {"cfg insert 98/141 A 0/0/0 \"!\"",
                   "cfg insert 98/150 A 0/0/0 \"ip trace-list A\"", "sync 3 A \"ip trace-list A\""};
    EXPECT_EQ(effects([] { make(A); }), header);
    EXPECT_EQ(effects([] { addDos(A, udp); }),
              (rows{"cfg insert 98/150 A 1/6/ff \" seq 5 deny udp any any\"",
                    "sync 16 A \" seq 5 deny udp any any\""}));
    make(A, DOS_ACTIVE);
    make(A, 0, 1);
    EXPECT_EQ(testTake(), rows{}) << "a configured list stays as it is";
    EXPECT_EQ(effects([] { EXPECT_EQ(ipDosListDelete(A), 0u); }),
              (rows{"cfg remove 98/141 A", "sync 3 A \"no ip trace-list A\""}));
    EXPECT_EQ(ipDosListFind(A), nullptr);

    header.push_back("agent list 14420 A if 0x3 pipe 0 option 0 n 0");
    EXPECT_EQ(effects([] { make(A, DOS_ACTIVE); }), header);
    EXPECT_EQ(effects([] { addDos(A, udp); })[0], "agent entry 14421 A 5 if 0x3 pipe 0");
    addDos(A, udp.toPort(PORT_EQ, 1));
    EXPECT_EQ(effects([] { delDos(A, udp, 0); }),
              (rows{"sync 16 A \"no  seq 5 deny udp any any\"", "cfg exact 98/150 A 1/6/ff"}));
    EXPECT_EQ(
        effects([] { ipDosListDelete(A); }),
        (rows{"agent entry 14423 A 10 if 0x3 pipe 0", "cfg remove 98/141 A",
              "sync 3 A \"no ip trace-list A\"", "agent list 14422 A if 0x3 pipe 0 option 0 n 0"}));
}

TEST_F(DosList, EntriesStatusesAndNumbers) {
    const aclList* list = make(A);
    make(B, 0, 1);  // a placeholder
    auto port = [](uint16_t number) { return udp.toPort(PORT_EQ, number); };
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.deletes ? delDos(c.name, c.block) : addDos(c.name, c.block), c.status);
    }
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{7, 21, 26}));
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

TEST_F(DosList, OneFilterAtATime) {
    aclList* list = make(A);
    make(B);
    make(listNameMake("F"), 0x10);
    struct {
        listName name;
        uint32_t command, status;
        rows told;
    } const cases[] = {
        {A,
         CLI_DOS_ENABLE,
         ACL_OK,
         {"cfg insert 97/141 A 0/0/0 \"!\"", "cfg insert 97/150 A 0/0/0 \"ip trace-group A\"",
          "sync 3 A \"ip trace-group A\"", "agent list 14420 A if 0x3 pipe 0 option 0 n 0"}},
        {A, CLI_DOS_ENABLE, ACL_OK, {}},
        {B, CLI_DOS_ENABLE, ACL_E_OTHER_DOS, {}},
        {C, CLI_DOS_ENABLE, ACL_E_OTHER_DOS, {}},
        {B, CLI_DOS_DISABLE, ACL_OK, {}},  // it is not enabled: nothing to do
        {C, CLI_DOS_DISABLE, ACL_E_NODOS, {}},
        {A, 1042, ACL_E_SYSTEM, {}},
        {A,
         CLI_DOS_DISABLE,
         ACL_OK,
         {"cfg remove 97/141 A", "sync 3 A \"no ip trace-group A\"",
          "agent list 14422 A if 0x3 pipe 0 option 0 n 0"}},
        {listNameMake("F"), CLI_DOS_ENABLE, ACL_OK, {}},  // other flags: nothing changes
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(effects([&] { EXPECT_EQ(dosIpEnableIntf(c.name, c.command), c.status); }),
                  c.told);
        EXPECT_EQ(ipDosListFind(C), nullptr) << "a refusal leaves no placeholder";
        EXPECT_EQ(dosFilter, &c - cases < 7 ? list : nullptr);
    }
    EXPECT_EQ(list->kind, 0u);
}

TEST_F(DosList, AFilterMayBeEnabledBeforeAndOutliveItsDefinition) {
    EXPECT_EQ(sends([] { EXPECT_EQ(dosIpEnableIntf(A, CLI_DOS_ENABLE), 0u); }), rows{});
    aclList* list = ipDosListFind(A);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->placeholder, 1u);
    EXPECT_EQ(sends([] { make(A); }), rows{"agent list 14420 A if 0x3 pipe 0 option 0 n 0"});
    addDos(A, udp);
    EXPECT_EQ(sends([] { EXPECT_EQ(ipDosListDelete(A), 0u); }),
              (rows{"agent entry 14423 A 5 if 0x3 pipe 0",
                    "agent list 14422 A if 0x3 pipe 0 option 0 n 0"}));
    EXPECT_EQ(ipDosListFind(A), list) << "still the filter, by name";
    EXPECT_EQ(testCfgLines(), (rows{"!", "ip trace-group A"}));
    EXPECT_EQ(dosIpEnableIntf(A, CLI_DOS_DISABLE), 0u);
    EXPECT_EQ(ipDosListFind(A), nullptr);
    EXPECT_EQ(testCfgLines(), rows{});
}

}  // namespace
