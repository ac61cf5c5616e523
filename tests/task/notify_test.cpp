// What the interface manager and the layer-2 tasks tell: what follows from each record of a
// message, what the cards are told of it, and what becomes of messages that lie.
#include "download/zekacl_download.h"
#include "include/ifmMsg.h"
#include "ipacl/zekipmac.h"
#include "task/follow.h"
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t port(uint32_t slot, uint32_t number) {
    return (slot + 1) << 25 | (number + 1) << 18;
}
constexpr uint32_t VLAN = ifindexMake(IF_TYPE_VLAN, 9), VLAN_2 = ifindexMake(IF_TYPE_VLAN, 4095);
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 7), LAG_2 = ifindexMake(IF_TYPE_LAG, 8);
constexpr uint32_t A = port(3, 0), B = port(3, 1), C = port(4, 0);

typedef std::vector<uint32_t> words;
typedef std::vector<std::string> rows;

struct Notify : TaskTest {
    std::map<zekSwpHandle, std::string> queueNames;

    void SetUp() override {
        TaskTest::SetUp();
        for (uint32_t slot : {3u, 4u}) {
            aclLinecardInfo[slot].isUp = aclLinecardInfo[slot].isVortan = 1;
            aclLinecardInfo[slot].isIpv6Enabled = aclLinecardInfo[slot].v6EgAclSupported = 1;
            aclLinecardInfo[slot].agentIpAddr = CLIENT_CARD + slot;
            ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_ACL_AGENT), 0);
            ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_MAC_AGENT), 0);
            queueNames[aclLinecardInfo[slot].aclAgent] = "acl" + std::to_string(slot);
            queueNames[aclLinecardInfo[slot].macAgent] = "mac" + std::to_string(slot);
        }
        testTake();
    }
    void TearDown() override {
        forgetPlaces();
        TaskTest::TearDown();
    }

    // A record: its type, its length word, what stands behind them.
    static void put(std::vector<uint8_t>* to, std::initializer_list<uint32_t> all) {
        for (uint32_t word : all)
            for (int shift : {24, 16, 8, 0}) to->push_back(static_cast<uint8_t>(word >> shift));
    }
    static std::vector<uint8_t> record(uint32_t type, const words& behind) {
        std::vector<uint8_t> bytes;
        put(&bytes, {type << 16 | static_cast<uint32_t>(4 + 4 * behind.size())});
        for (uint32_t word : behind) put(&bytes, {word});
        return bytes;
    }
    std::vector<uint8_t> event(const std::vector<std::vector<uint8_t>>& records) {
        auto bytes = message(MT_IFM_EVT_NOTIF, sizeof(ifmEventMsg));
        as<ifmEventMsg>(bytes).count = static_cast<uint32_t>(records.size());
        for (const auto& r : records) bytes.insert(bytes.end(), r.begin(), r.end());
        as<ipcHdr>(bytes).length = static_cast<uint32_t>(bytes.size());
        return bytes;
    }
    std::vector<uint8_t> list(uint32_t type, uint32_t ifindex, uint32_t count,
                              const words& behind) {
        auto bytes = message(type);
        put(&bytes, {ifindex, count});
        for (uint32_t word : behind) put(&bytes, {word});
        as<ipcHdr>(bytes).length = static_cast<uint32_t>(bytes.size());
        return bytes;
    }
    // What the cards are told, in order: the queue, the number, and the four words at 124 of a
    // message that is nothing else, or the interface of a list.
    rows told(const std::vector<uint8_t>& bytes) {
        testTake();
        std::memset(received, 0xEE, sizeof received);
        std::memcpy(received, bytes.data(), bytes.size());
        aclTakeMessage(aclNode, received, bytes.size());
        rows out;
        raw.clear();
        for (testRow& row : testTakeRows()) {
            if (!row.text.starts_with("swp ")) continue;
            out.push_back(queueNames[static_cast<zekSwpHandle>(std::stoul(row.text.substr(4)))]);
            auto add = [&](const char* format, uint32_t offset) {
                char text[16];
                std::snprintf(text, sizeof text, format, msgWord(row.bytes.data(), offset));
                out.back() += text;
            };
            add(" %u", 12);
            if (row.bytes.size() == sizeof(agentHdr) + sizeof(agentListHdr))
                add(" %x", sizeof(agentHdr) + offsetof(agentListHdr, ifindex));
            else if (row.bytes.size() == sizeof(agentHdr) + sizeof(agentMacListHdr))
                add(" %x", sizeof(agentHdr) + offsetof(agentMacListHdr, ifindex));
            else
                for (uint32_t at = AGENT_DATA; at < row.bytes.size(); at += 4) add(" %x", at);
            raw.push_back(row.bytes);
        }
        return out;
    }
    rows told(uint32_t type, const words& behind) { return told(event({record(type, behind)})); }
    void bind(uint32_t code, const char* name, uint32_t ifindex, uint32_t direction) {
        EXPECT_EQ(ask(cli<cliBindReq>(code, name,
                                      [&](auto& r) {
                                          r.ifindex = ifindex;
                                          r.direction = direction;
                                          r.writeConfig = 1u;
                                      })),
                  ACL_OK);
    }
    static words members(uint32_t vlanIfindex) {
        words all;
        if (const aclVlan* vlan = aclVlanTreeFind(vlanIfindex))
            for (const aclVlanMember* m = aclVlanInfoTreeFindFirst(vlan); m != nullptr;
                 m = aclVlanInfoTreeFindNext(vlan, m->ifindex)) {
                const aclIntf* intf = AclIntfTreeFind(m->ifindex);
                EXPECT_TRUE(intf != nullptr && vlanBitTest(intf->vlans, ifindexPort(vlanIfindex)));
                all.push_back(m->ifindex);
            }
        return all;
    }
    static words lagMembers(uint32_t lag) {
        uint32_t count = 0;
        const uint32_t* ports = aclLagMembers(lag, &count);
        return {ports, ports + count};
    }

    std::vector<std::vector<uint8_t>> raw;  // what was told last
};

std::string member(const char* queue, uint32_t add, uint32_t ifindex, uint32_t vlan,
                   uint32_t group) {
    char text[80];
    std::snprintf(text, sizeof text, "%s 30005 %x %x %x %x", queue, add, ifindex, vlan, group);
    return text;
}
std::string download(const char* queue, uint32_t number, uint32_t ifindex) {
    char text[80];
    std::snprintf(text, sizeof text, "%s %u %x", queue, number, ifindex);
    return text;
}

// One story, a record at a time.
TEST_F(Notify, EachTypeOfRecordHasWhatFollowsFromIt) {
    bind(CLI_IP_BIND, "L", VLAN, INTF_IN);
    const struct {
        const char* what;
        uint32_t type;
        words behind;
        rows sent;
        words vlanMembers, ports;  // of the VLAN and the LAG afterwards
    } story[] = {
        {"a VLAN is made", 1, {VLAN, 0x5}, {}, {}, {}},
        {"its group, for the members to come", 49, {VLAN, 77, 0, 0}, {}, {}, {}},
        {"other types' groups are not VLANs'", 51, {VLAN, 78, 0, 0}, {}, {}, {}},
        {"a port joins",
         41,
         {A, VLAN},
         {member("mac3", 1, A, 9, 77), download("acl3", MT_ACL_ADDLIST, VLAN)},
         {A},
         {}},
        {"and again", 41, {A, VLAN}, {}, {A}, {}},
        {"by the card's own number of the port it would be another", 41, {VLAN, VLAN}, {}, {A}, {}},
        {"nothing", 45, {A, VLAN}, {}, {A}, {}},
        {"two join at once",
         43,
         {VLAN, 2, B, C},
         {member("mac3", 1, B, 9, 77), download("acl3", MT_ACL_ADDLIST, VLAN),
          member("mac4", 1, C, 9, 77), download("acl4", MT_ACL_ADDLIST, VLAN)},
         {A, B, C},
         {}},
        {"one of two behind a card leaves: the list is there again at once",
         42,
         {B, VLAN},
         {download("acl3", MT_ACL_DELLIST, VLAN), download("acl3", MT_ACL_ADDLIST, VLAN),
          member("mac3", 0, B, 9, 77)},
         {A, C},
         {}},
        {"the last behind a card leaves",
         42,
         {C, VLAN},
         {download("acl4", MT_ACL_DELLIST, VLAN), member("mac4", 0, C, 9, 77)},
         {A},
         {}},
        {"and again", 42, {C, VLAN}, {}, {A}, {}},
        {"a LAG gets ports", 47, {LAG, B}, {}, {A}, {B}},
        {"and no other LAG gets them", 47, {LAG_2, B}, {}, {A}, {B}},
        {"its group is told for them", 51, {LAG, 5, 0, 0}, {member("mac3", 1, B, 0, 5)}, {A}, {B}},
        {"the LAG joins the VLAN",
         41,
         {LAG, VLAN},
         {member("mac3", 1, B, 9, 77), download("acl3", MT_ACL_ADDLIST, VLAN)},
         {LAG, A},
         {B}},
        {"a port that joins the LAG joins the VLAN",
         47,
         {LAG, C},
         {member("mac4", 1, C, 0, 5), member("mac4", 1, C, 9, 77),
          download("acl4", MT_ACL_ADDLIST, VLAN)},
         {LAG, A},
         {B, C}},
        {"and leaves it with the LAG",
         48,
         {LAG, C},
         {download("acl4", MT_ACL_DELLIST, VLAN), member("mac4", 0, C, 9, 77),
          member("mac4", 0, C, 0, 5)},
         {LAG, A},
         {B}},
        {"the LAG's group is taken away",
         52,
         {LAG, 0, 0, 0},
         {member("mac3", 0, B, 0, 5)},
         {LAG, A},
         {B}},
        {"no id is no group",
         49,
         {VLAN, 0, 0, 0},
         {member("mac3", 0, B, 9, 77), member("mac3", 0, A, 9, 77)},
         {LAG, A},
         {B}},
        {"another group of the VLAN",
         49,
         {VLAN, 78, 0, 0},
         {member("mac3", 1, B, 9, 78), member("mac3", 1, A, 9, 78)},
         {LAG, A},
         {B}},
        {"and none",
         50,
         {VLAN, 0, 0, 0},
         {member("mac3", 0, B, 9, 78), member("mac3", 0, A, 9, 78)},
         {LAG, A},
         {B}},
        {"the VLAN again, with its members told again, who have no group",
         1,
         {VLAN, 0x6},
         {},
         {LAG, A},
         {B}},
        {"interfaces other than VLANs need nothing made", 1, {C, 0x6}, {}, {LAG, A}, {B}},
        {"ignored", 35, {A}, {}, {LAG, A}, {B}},
        {"the LAG goes",
         2,
         {LAG},
         {download("acl3", MT_ACL_DELLIST, VLAN), download("acl3", MT_ACL_ADDLIST, VLAN)},
         {A},
         {}},
        {"a LAG that there is not", 2, {LAG_2}, {}, {A}, {}},
        {"the VLAN goes", 2, {VLAN}, {download("acl3", MT_ACL_DELLIST, VLAN)}, {}, {}},
    };
    for (const auto& step : story) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(told(step.type, step.behind), step.sent);
        EXPECT_EQ(members(VLAN), step.vlanMembers);
        EXPECT_EQ(lagMembers(LAG), step.ports);
    }
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(aclVlanTreeFind(VLAN), nullptr);
    EXPECT_EQ(aclCounters.truncated, 0u);
}

TEST_F(Notify, AVlansStateSaysTheChassis) {
    const struct {
        uint32_t mode, value, state;
    } all[] = {{0, 5, 0xF005}, {1, 0xFF, 0xF0FF}, {2, 5, 0xE005}, {7, 0, 0xE000}};
    for (const auto& row : all) {
        aclNode->chassis.chassisMode = row.mode;
        told(1, {VLAN, row.value});
        EXPECT_EQ(aclVlanTreeFind(VLAN)->state, row.state);
    }
    told(11, {A, 3});
    told(11, {A, 4});
    EXPECT_EQ(aclPlaceUseFind(A)->mode, 4u);
}

TEST_F(Notify, WhatGoesTakesEverythingWithIt) {
    const uint8_t mac[] = {2, 1, 2, 3, 4, 5};
    told(event({record(41, {A, VLAN}), record(41, {A, VLAN_2}), record(47, {LAG, B}),
                record(49, {VLAN, 77, 0, 0}), record(11, {A, 1})}));
    for (uint32_t direction : {INTF_IN, INTF_OUT}) {
        bind(CLI_V6_BIND, "6", A, direction);
        bind(CLI_IP_BIND, "4", A, direction);
        bind(CLI_MAC_BIND, "M", A, direction);
    }
    ASSERT_EQ(ipSourceGuardAdd(B, {0x0A000001, {2, 1, 2, 3, 4, 5}, 0}), ACL_E_LAG_MEMBER);
    EXPECT_EQ(told(2, {A}),
              (rows{member("mac3", 0, A, 9, 77), download("acl3", MT_L2ACL_DELLIST, A),
                    download("acl3", MT_L2ACL_EGR_DELLIST, A), download("acl3", MT_ACL_DELLIST, A),
                    download("acl3", MT_ACL_EGR_DELLIST, A), download("acl3", MT_ACL_V6_DELLIST, A),
                    download("acl3", MT_ACL_V6_EGR_DELLIST, A)}));
    EXPECT_EQ(AclIntfTreeFind(A), nullptr);
    EXPECT_TRUE(members(VLAN).empty() && members(VLAN_2).empty());
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_TRUE(told(2, {A}).empty());  // it is no more

    told(2, {B});
    EXPECT_TRUE(lagMembers(LAG).empty());
    ASSERT_EQ(ipSourceGuardAdd(C, {0x0A000001, {2, 1, 2, 3, 4, 5}, 0}), ACL_OK);
    ASSERT_EQ(aclMgrIpMacAclAdd(C, 0x0A000002, mac, 0), ACL_OK);
    told(2, {C});
    EXPECT_EQ(AclIntfTreeFind(C), nullptr);
    EXPECT_TRUE(testCfgLines().empty());
}

TEST_F(Notify, AddressesComeAndGoByTheirRecords) {
    // An IPv6 record: 2001:db8::N, of a length, with flags.
    auto six = [](uint32_t type, uint32_t place, uint32_t n, uint32_t length, uint32_t flags = 0) {
        words behind(15);
        behind[0] = place, behind[1] = 0x20010db8, behind[4] = n;
        behind[13] = length, behind[14] = flags;
        return record(type, behind);
    };
    auto four = [](uint32_t place, uint32_t address) {
        return record(30, {place, address, 0xFFFFFF00, 1, 2, 3, 4, 5});
    };
    const struct {
        const char* what;
        std::vector<uint8_t> told;
        uint32_t place;
        words left;  // of each address the first word and the last
    } story[] = {
        {"one", four(A, 0x0A000001), A, {0x0A000001, 0}},
        {"another, by the port's own number",
         four(A | 0x80000000, 0x0A000002),
         A,
         {0x0A000001, 0, 0x0A000002, 0}},
        {"the first again", four(A, 0x0A000001), A, {0x0A000001, 0, 0x0A000002, 0}},
        {"an IPv6 one", six(37, A, 1, 64), A, {0x0A000001, 0, 0x0A000002, 0, 0x20010db8, 1}},
        {"no length", six(37, A, 2, 129), A, {0x0A000001, 0, 0x0A000002, 0, 0x20010db8, 1}},
        {"kept", six(38, A, 1, 64, 4), A, {0x0A000001, 0, 0x0A000002, 0, 0x20010db8, 1}},
        {"not kept", six(38, A, 1, 64, 3), A, {0x0A000001, 0, 0x0A000002, 0}},
        {"gone", record(31, {A, 0x0A000001}), A, {0x0A000002, 0}},
        {"that is not there", record(31, {A, 0x0A000001}), A, {0x0A000002, 0}},
        {"of a VLAN", six(37, VLAN, 3, 128), VLAN, {0x20010db8, 3}},
        {"gone, too", six(36, VLAN, 3, 128, 4), VLAN, {}},
        {"of a LAG", four(LAG, 0x0A000003), LAG, {0x0A000003, 0}},
    };
    for (const auto& step : story) {
        SCOPED_TRACE(step.what);
        told(event({step.told}));
        words left;
        const aclPlaceUse* use = aclPlaceUseFind(step.place);
        for (const aclAddress& address :
             use != nullptr ? use->addresses : decltype(use->addresses){})
            left.insert(left.end(), {address.word[0], address.word[3]});
        EXPECT_EQ(left, step.left);
    }
    EXPECT_EQ(aclCounters.truncated, 0u);
    // What goes takes its addresses and protocols from the cards, and their entries with them.
    auto entries = [] {
        const aclList* list = ipSysAccessListFind(listNameMake("Global Acl"));
        return list != nullptr ? list->count : 0;
    };
    EXPECT_GT(entries(), 0u);
    auto protocol = message(MT_PROT_FIRST, sizeof(protEnableMsg));
    as<protEnableMsg>(protocol).record.ifindex = A;
    as<protEnableMsg>(protocol).record.id = PROT_ISIS;
    EXPECT_EQ(told(protocol).size(), 5u);
    EXPECT_EQ(told(11, {A, 3}).size(), 5u) << "its traps say the mode";
    EXPECT_GE(told(2, {A}).size(), 5u);
    told(event({record(2, {VLAN}), record(2, {LAG})}));
    EXPECT_EQ(AclIntfTreeFindFirst(), nullptr);
    EXPECT_EQ(entries(), 0u);
}

// What is good in a message is done, wherever the rest of it ends.
TEST_F(Notify, TheWalkStaysInsideTheMessage) {
    const auto join = record(41, {A, VLAN}), other = record(41, {B, VLAN});
    auto lying = [](std::vector<uint8_t> bytes, uint32_t length) {
        bytes[2] = static_cast<uint8_t>(length >> 8);
        bytes[3] = static_cast<uint8_t>(length);
        return bytes;
    };
    auto odd = record(99, {1, 2});
    odd.insert(odd.end(), {1, 2, 3});
    const struct {
        const char* what;
        std::vector<std::vector<uint8_t>> records;
        uint32_t count;
        words joined;
        uint64_t truncated;
    } all[] = {
        {"none is said", {join}, 0, {}, 0},
        {"one is said", {join, other}, 1, {A}, 0},
        {"more are said than there are", {join}, 2, {A}, 1},
        {"all ones", {join, other}, 0xFFFFFFFF, {A, B}, 1},
        {"an unknown type", {record(99, {1, 2}), join}, 2, {A}, 0},
        {"of an odd length", {lying(odd, 15), join}, 2, {A}, 0},
        {"ignored ones of any length", {record(35, {A}), record(35, {A, 2, 3}), join}, 3, {A}, 0},
        {"no length", {lying(join, 0), other}, 2, {}, 1},
        {"a length below any", {lying(join, 7), other}, 2, {}, 1},
        {"a length behind the end", {join, lying(other, 13)}, 2, {A}, 1},
        {"too short for its type", {record(41, {A}), other}, 2, {B}, 1},
        {"too short for an address",
         {record(30, {A, 1, 2, 3, 4, 5, 6}), record(37, words(14, A)), other},
         3,
         {B},
         1},
        {"no interface", {record(41, {3, VLAN}), record(2, {0}), other}, 3, {B}, 1},
        {"no VLAN", {record(41, {A, B}), record(41, {A, LAG}), other}, 3, {B}, 0},
        {"a VLAN that cannot be",
         {record(1, {ifindexMake(IF_TYPE_VLAN, 4096), 1}), other},
         2,
         {B},
         1},
        {"a list of no members", {record(43, {VLAN, 0}), other}, 2, {B}, 0},
        {"of fewer than it has", {record(43, {VLAN, 1, A, B})}, 1, {A}, 0},
        {"of more than it has", {record(43, {VLAN, 3, A}), other}, 2, {A, B}, 1},
        {"of all ones", {record(43, {VLAN, 0xFFFFFFFF, A, B})}, 1, {A, B}, 1},
    };
    for (const auto& row : all) {
        SCOPED_TRACE(row.what);
        auto bytes = event(row.records);
        as<ifmEventMsg>(bytes).count = row.count;
        aclCounters.truncated = 0;
        told(bytes);
        EXPECT_EQ(members(VLAN), row.joined);
        EXPECT_EQ(aclCounters.truncated, row.truncated);
        forgetPlaces();
    }
    for (uint32_t count : {1u, 0u}) {
        aclNode->standing.placesAwaitedUntil = UINT64_MAX;
        auto bytes = event({join});
        as<ifmEventMsg>(bytes).count = count;
        told(bytes);
        EXPECT_EQ(aclPlacesAreAwaited(), count != 0);
    }
    told(message(MT_CFG_INIT_CFG_COMPLETE));
    EXPECT_TRUE(aclPlacesAreAwaited()) << "all this waits until the configuration is there";
    aclPlacesTold();
    EXPECT_EQ(ifmSvcTypeToStr(41), "IFM_TYP_ADD_VLAN_PORT");
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    deliver(event({record(99, {1, 2}), join, join}));
    EXPECT_TRUE(said("tlv msg from IFM: numArr: 3\r\n"));
    EXPECT_TRUE(said("Unknown svc type from ifm 99\r\n"));
    EXPECT_TRUE(said("IFM_TYP_ADD_VLAN_PORT msd for Vlan 9 member if 0x8040000\r\n"));
    EXPECT_TRUE(said("Duplicate IFM_SVC_ADD_VLAN_PORT msg\r\n"));
}

TEST_F(Notify, PortsLeaveAVlanAsFarAsTheFirst1200BytesSay) {
    words many(300, B);
    many[282] = A, many[283] = C;  // the last that is looked at, the first that is not
    const struct {
        uint32_t count;
        words behind, left;
        uint64_t truncated;
        size_t passedOn;  // bytes of the body
    } all[] = {{0, {A}, {A, B, C}, 0, 12},
               {1, {A, B}, {B, C}, 0, 16},
               {5, {A, B}, {C}, 1, 16},
               {300, many, {C}, 1, 1140},
               {0xFFFFFFFF, {}, {A, B, C}, 1, 8}};
    for (const auto& row : all) {
        told(43, {VLAN, 3, A, B, C});
        aclCounters.truncated = 0;
        const auto bytes = list(MT_IFM_PORTS_LEAVE, VLAN, row.count, row.behind);
        told(bytes);
        EXPECT_EQ(members(VLAN), row.left);
        EXPECT_EQ(aclCounters.truncated, row.truncated);
        // For those who mirror the ports: to both cards.
        ASSERT_EQ(raw.size(), 2u);
        ASSERT_EQ(raw[1].size(), 124 + row.passedOn);
        EXPECT_EQ(std::memcmp(&raw[1][124], &bytes[60], row.passedOn), 0);
    }
}

TEST_F(Notify, APortBecomesAMemberOfExactlyTheVlansOfItsList) {
    const uint32_t others[] = {ifindexMake(IF_TYPE_VLAN, 0), ifindexMake(IF_TYPE_VLAN, 64)};
    for (uint32_t vlan : {VLAN, VLAN_2, others[0], others[1]}) told(49, {vlan, 5, 0, 0});
    auto set = [&](const words& vlans) {
        return told(list(MT_IFM_PORTVL_EVT_NOTIF, A, static_cast<uint32_t>(vlans.size()), vlans));
    };
    EXPECT_EQ(set({VLAN, VLAN_2, VLAN}),
              (rows{member("mac3", 1, A, 9, 5), member("mac3", 1, A, 4095, 5)}));
    EXPECT_TRUE(set({VLAN_2, VLAN}).empty());
    EXPECT_EQ(set({others[1], VLAN_2, others[0]}),
              (rows{member("mac3", 0, A, 9, 5), member("mac3", 1, A, 0, 5),
                    member("mac3", 1, A, 64, 5)}));
    // A list that is not whole, or is not one of VLANs, takes nothing away.
    auto bytes = list(MT_IFM_PORTVL_EVT_NOTIF, A, 2, {VLAN});
    EXPECT_TRUE(told(bytes).empty());
    EXPECT_TRUE(set({VLAN, B}).empty());
    EXPECT_TRUE(set({VLAN, ifindexMake(IF_TYPE_VLAN, 4096)}).empty());
    EXPECT_EQ(aclCounters.truncated, 3u);
    EXPECT_EQ(members(VLAN_2), words{A});
    EXPECT_EQ(set({}).size(), 3u);
}

TEST_F(Notify, LayerTwoTasksArePassedOnAsTheyCame) {
    auto stp = message(MT_STP_ENABLE);
    put(&stp, {1, 0xAABB});
    as<ipcHdr>(stp).length = 68u;
    EXPECT_EQ(told(stp), (rows{"acl3 14502 1 aabb", "acl4 14502 1 aabb"}));
    EXPECT_EQ(msgWord(raw[0].data(), 8), 264u);
    EXPECT_EQ(msgWord(raw[0].data(), 32), uint32_t{APP_ACL});

    auto mirror = message(MT_IFM_MIRROR_RELAY);
    put(&mirror, {1, 2, 3, 4, 5});
    as<ipcHdr>(mirror).length = 80u;
    EXPECT_EQ(told(mirror), (rows{"acl3 10880 1 2 3 4", "acl4 10880 1 2 3 4"}));
    EXPECT_EQ(msgWord(raw[1].data(), 8), 272u);

    aclLinecardInfo[3].isUp = 0;
    for (size_t body : {size_t{0}, size_t{1}, size_t{8068}, size_t{8069}}) {
        auto gvrp = message(MT_GVRP_LAST, 60 + body);
        std::fill(gvrp.begin() + 60, gvrp.end(), uint8_t{7});
        told(gvrp);
        if (body > 8068) {
            EXPECT_TRUE(raw.empty() && aclCounters.truncated == 1);
            continue;
        }
        ASSERT_EQ(raw.size(), 1u);
        EXPECT_EQ(raw[0].size(), 124 + body);
        EXPECT_EQ(msgWord(raw[0].data(), 12), uint32_t{MT_GVRP_LAST});
        EXPECT_TRUE(std::ranges::all_of(raw[0].begin() + 124, raw[0].end(),
                                        [](uint8_t byte) { return byte == 7; }));
    }
    // Not primary: another manager tells them.
    testHost.primary = false;
    EXPECT_TRUE(told(stp).empty());
}

TEST_F(Notify, ACardIsToldOfSpanningTreeWhenItComesUp) {
    auto replayed = [] {
        testTake();
        aclFollowReplay(3, false);
        rows out;
        for (const std::string& row : testTake())
            if (row.starts_with("swp ") && row.find(" 14502") != row.npos) out.push_back(row);
        return out.size();
    };
    EXPECT_EQ(replayed(), 0u);
    told(message(MT_STP_ENABLE, 68));  // two words of 0 are an enable like others
    EXPECT_EQ(replayed(), 1u);
}

TEST_F(Notify, AnotherCamProfileIsKeptAndToldToThePeer) {
    aclNode->peer.ramDataSync = 1;
    const struct {
        uint32_t profile, microcode, groups;
        bool logged;
    } all[] = {{7, 4, 1, false}, {7, 3, 1, true}, {6, 4, 1, true}, {6, 4, 0, false}};
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    auto cam = [this](uint32_t profile, uint32_t microcode) {
        auto bytes = message(MT_EVENT_NOTIF);
        put(&bytes, {0, EVT_CAM_PROFILE, profile, microcode});
        as<ipcHdr>(bytes).length = static_cast<uint32_t>(bytes.size());
        return bytes;
    };
    for (const auto& row : all) {
        aclNode->groups.isAclVlanGrp = row.groups;
        aclNode->peer.peerMark[20] = PEER_MARK_NONE;
        EXPECT_EQ(deliver(cam(row.profile, row.microcode)).size(), 1u);
        EXPECT_EQ(aclNode->chassis.camProfile, row.profile);
        EXPECT_EQ(said("won't be applied on the linecard"), row.logged);
        EXPECT_EQ(said("Cam profile changed to Acl Vlan Group\r\n"),
                  row.microcode == 4 && row.profile == 7);
        EXPECT_TRUE(said("peer 14523"));
        EXPECT_EQ(aclNode->peer.peerMark[20], 0);
    }
    auto bytes = cam(9, 9);
    bytes.resize(72);
    as<ipcHdr>(bytes).length = 72u;
    auto sent = deliver(bytes);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(uint32_t{as<ipcHdr>(sent[0]).result}, ACL_E_SYSTEM);
    EXPECT_EQ(aclNode->chassis.camProfile, 6u);
}

// Whatever cannot be made, what was made stays whole, and the next message finds it.
TEST_F(Notify, WithoutMemoryAMessageStopsWhereItFailed) {
    const auto bytes = event({record(49, {VLAN, 5, 0, 0}), record(43, {VLAN, 2, A, B}),
                              record(47, {LAG, C}), record(41, {LAG, VLAN})});
    for (testPoint point : {TEST_BLOCK, TEST_INSERT, TEST_TREE}) {
        for (uint64_t nth = 1;; nth++) {
            SCOPED_TRACE(nth);
            testFail(point, nth);
            told(bytes);
            const bool failed = testUses(point) >= nth;
            testFailNothing();
            members(VLAN);  // each knows of the other
            if (!failed) break;
            for (zekSwpHandle queue : {aclLinecardInfo[3].macAgent, aclLinecardInfo[4].macAgent})
                testHost.queues[queue].state = zekSwpState::inStep;
            told(bytes);
            EXPECT_EQ(members(VLAN), (words{LAG, A, B}));
            EXPECT_EQ(lagMembers(LAG), words{C});
            forgetPlaces();
        }
        forgetPlaces();
    }
}

}  // namespace
