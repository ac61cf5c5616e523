// What the interface manager and the layer-2 tasks tell: what follows from each record of a
// message, what the cards are told of it, and what becomes of messages that lie.
#include <set>
#include <sstream>

#include "download/zekacl_download.h"
#include "include/ifmMsg.h"
#include "ipacl/zekipmac.h"
#include "protocol/membership.h"
#include "task/follow.h"
#include "tests/task/fixture.h"

namespace {

constexpr uint32_t port(uint32_t slot, uint32_t number) {
    return (slot + 1) << 25 | (number + 1) << 18;
}
constexpr uint32_t VLAN = ifindexMake(IF_TYPE_VLAN, 9), VLAN_2 = ifindexMake(IF_TYPE_VLAN, 4095);
constexpr uint32_t LAG = ifindexMake(IF_TYPE_LAG, 7), LAG_2 = ifindexMake(IF_TYPE_LAG, 8);
constexpr uint32_t A = port(3, 0), B = port(3, 1), C = port(4, 0);
const std::pair<const char*, uint32_t> places[] = {
    {"A", A}, {"B", B}, {"C", C}, {"LAG", LAG}, {"LAG2", LAG_2}, {"VLAN", VLAN}, {"VLAN2", VLAN_2}};

typedef std::vector<uint32_t> words;
typedef std::vector<uint8_t> bytes;

std::string nameOf(uint32_t ifindex) {
    for (const auto& [name, index] : places)
        if (index == ifindex) return name;
    return std::to_string(ifindex);
}
void put(bytes* to, const words& all) {
    for (uint32_t word : all)
        for (int shift : {24, 16, 8, 0}) to->push_back(static_cast<uint8_t>(word >> shift));
}
// "41 A VLAN": a record's type and what stands behind its length word. "!13" is the length word
// that it says, "+3" are so many bytes more than that.
bytes recordOf(const std::string& text) {
    words all;
    bytes more;
    uint32_t said = 0;
    bool lies = false;
    std::istringstream from(text);
    for (std::string word; from >> word;) {
        auto number = [&word](size_t at) {
            return static_cast<uint32_t>(std::stoul(word.substr(at), nullptr, 0));
        };
        const auto* place = std::ranges::find(places, word, [](auto& p) { return p.first; });
        if (word[0] == '!')
            said = number(1), lies = true;
        else if (word[0] == '+')
            more.assign(number(1), 1);
        else
            all.push_back(place != std::end(places) ? place->second : number(0));
    }
    const auto length = static_cast<uint32_t>(4 * all.size());
    all[0] = all[0] << 16 | (lies ? said : length);
    bytes record;
    put(&record, all);
    record.insert(record.end(), more.begin(), more.end());
    return record;
}

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

    // An event of records, with a ";" between them.
    bytes event(const std::string& records, int64_t count = -1) {
        auto message = this->message(MT_IFM_EVT_NOTIF, sizeof(ifmEventMsg));
        std::istringstream from(records);
        for (std::string text; std::getline(from, text, ';');) {
            const bytes record = recordOf(text);
            message.insert(message.end(), record.begin(), record.end());
            as<ifmEventMsg>(message).count = as<ifmEventMsg>(message).count + 1;
        }
        if (count >= 0) as<ifmEventMsg>(message).count = static_cast<uint32_t>(count);
        as<ipcHdr>(message).length = static_cast<uint32_t>(message.size());
        return message;
    }
    // Any message with words behind its header, the length word that of a whole one.
    bytes list(uint32_t type, const words& behind) {
        bytes all = message(type);
        put(&all, behind);
        as<ipcHdr>(all).length = static_cast<uint32_t>(all.size());
        return all;
    }
    // What the cards are told of the messages since the last call, in order: the queue, then
    // "+A.9=77" for a member of VLAN 9 and its group, "14409 L@VLAN" for a list without entries, or
    // the number and the words at 124.
    std::string told() {
        std::string out;
        raw.clear();
        for (testRow& row : testTakeRows()) {
            if (!row.text.starts_with("swp ")) continue;
            out += out.empty() ? "" : "; ";
            out += queueNames[static_cast<zekSwpHandle>(std::stoul(row.text.substr(4)))] + " ";
            const uint8_t* m = row.bytes.data();
            const uint32_t id = msgWord(m, 12);
            const auto* list = reinterpret_cast<const agentListHdr*>(m + sizeof(agentHdr));
            const auto* mac = reinterpret_cast<const agentMacListHdr*>(m + sizeof(agentHdr));
            auto number = [m](const char* format, uint32_t at) {
                char text[16];
                std::snprintf(text, sizeof text, format, msgWord(m, at));
                return std::string(text);
            };
            if (id == MT_MAC_MEMBER) {
                EXPECT_EQ(msgWord(m, 8), 272u);
                out += (msgWord(m, 124) != 0 ? "+" : "-") + nameOf(msgWord(m, 128)) +
                       number(".%u", 132) + number("=%u", 136);
            } else if (row.bytes.size() == sizeof(agentHdr) + sizeof *list) {
                out += number("%u ", 12) + std::string(listNameView(list->name)) + "@" +
                       nameOf(list->ifindex);
            } else if (row.bytes.size() == sizeof(agentHdr) + sizeof *mac) {
                out += number("%u ", 12) + std::string(listNameView(mac->name)) + "@" +
                       nameOf(mac->ifindex);
            } else {
                out += number("%u", 12);
                for (uint32_t at = AGENT_DATA; at + 4 <= row.bytes.size(); at += 4)
                    out += number(" %x", at);
            }
            raw.push_back(row.bytes);
        }
        return out;
    }
    std::string told(const bytes& message) {
        testTake();
        std::memset(received, 0xEE, sizeof received);
        std::memcpy(received, message.data(), message.size());
        aclTakeMessage(aclNode, received, message.size());
        return told();
    }
    std::string told(const std::string& records) { return told(event(records)); }
    void bind(uint32_t code, const char* name, uint32_t ifindex, uint32_t direction,
              uint32_t status = ACL_OK) {
        EXPECT_EQ(ask(cli<cliBindReq>(code, name,
                                      [&](auto& r) {
                                          r.ifindex = ifindex;
                                          r.direction = direction;
                                          r.writeConfig = 1u;
                                      })),
                  status);
    }
    // "LAG A", by index.
    static std::string members(uint32_t vlanIfindex) {
        std::string all;
        if (const aclVlan* vlan = aclVlanTreeFind(vlanIfindex))
            for (const aclVlanMember* m = aclVlanInfoTreeFindFirst(vlan); m != nullptr;
                 m = aclVlanInfoTreeFindNext(vlan, m->ifindex)) {
                const aclIntf* intf = AclIntfTreeFind(m->ifindex);
                EXPECT_TRUE(intf != nullptr && vlanBitTest(intf->vlans, ifindexPort(vlanIfindex)));
                all += (all.empty() ? "" : " ") + nameOf(m->ifindex);
            }
        return all;
    }
    // In the order in which they joined.
    static std::string lagMembers(uint32_t lag) {
        uint32_t count = 0;
        const uint32_t* ports = aclLagMembers(lag, &count);
        std::string all;
        for (uint32_t i = 0; i < count; i++) all += (i == 0 ? "" : " ") + nameOf(ports[i]);
        return all;
    }

    std::vector<bytes> raw;  // what was told last
};

// One story, a record at a time. What a MAC agent has heard is what a replay tells it.
TEST_F(Notify, EachTypeOfRecordHasWhatFollowsFromIt) {
    bind(CLI_IP_BIND, "L", VLAN, INTF_IN);
    bind(CLI_IP_BIND, "W", VLAN_2, INTF_IN);
    const struct {
        const char *what, *record, *sent, *vlanMembers, *ports;  // of the VLAN and the LAG then
    } story[] = {
        {"a VLAN is made", "1 VLAN 5", "", "", ""},
        {"its group, for the members to come", "49 VLAN 77 0 0", "", "", ""},
        {"other types' groups are not VLANs'", "51 VLAN 78 0 0", "", "", ""},
        {"nor VLANs' theirs", "49 LAG 78 0 0", "", "", ""},
        {"a port joins", "41 A VLAN", "mac3 +A.9=77; acl3 14409 L@VLAN", "A", ""},
        {"and again", "41 A VLAN", "", "A", ""},
        {"a VLAN is no member", "41 VLAN VLAN", "", "A", ""},
        {"nothing", "45 A VLAN", "", "A", ""},
        {"two join at once", "43 VLAN 2 B C",
         "mac3 +B.9=77; acl3 14409 L@VLAN; mac4 +C.9=77; acl4 14409 L@VLAN", "A B C", ""},
        {"one of two behind a card leaves: the list is there again at once", "42 B VLAN",
         "acl3 14412 L@VLAN; acl3 14409 L@VLAN; mac3 -B.9=77", "A C", ""},
        {"the last behind a card leaves", "42 C VLAN", "acl4 14412 L@VLAN; mac4 -C.9=77", "A", ""},
        {"and again", "42 C VLAN", "", "A", ""},
        {"a LAG gets ports", "47 LAG B", "", "A", "B"},
        {"and no other LAG gets them", "47 LAG2 B", "", "A", "B"},
        {"nor is a LAG a port", "47 LAG2 LAG", "", "A", "B"},
        {"its group is told for them", "51 LAG 5 0 0", "mac3 +B.0=5", "A", "B"},
        {"the LAG joins the VLAN", "41 LAG VLAN", "mac3 +B.9=77; acl3 14409 L@VLAN", "LAG A", "B"},
        {"and another, which has no group", "41 LAG VLAN2", "acl3 14409 W@VLAN2", "LAG A", "B"},
        {"a port that joins the LAG joins its VLANs", "47 LAG C",
         "mac4 +C.0=5; mac4 +C.9=77; acl4 14409 L@VLAN; acl4 14409 W@VLAN2", "LAG A", "B C"},
        {"and is a member in its own right", "41 C VLAN", "mac4 +C.9=77; acl4 14409 L@VLAN",
         "LAG A C", "B C"},
        {"it leaves with the LAG where it is no other member", "48 LAG C",
         "acl4 14412 L@VLAN; acl4 14409 L@VLAN; acl4 14412 W@VLAN2; mac4 -C.0=5", "LAG A C", "B"},
        {"and itself", "42 C VLAN", "acl4 14412 L@VLAN; mac4 -C.9=77", "LAG A", "B"},
        {"the LAG leaves a VLAN", "42 LAG VLAN2", "acl3 14412 W@VLAN2", "LAG A", "B"},
        {"the LAG's group is taken away", "52 LAG 0 0 0", "mac3 -B.0=5", "LAG A", "B"},
        {"no id is no group", "49 VLAN 0 0 0", "mac3 -B.9=77; mac3 -A.9=77", "LAG A", "B"},
        {"another group of the VLAN", "49 VLAN 78 0 0", "mac3 +B.9=78; mac3 +A.9=78", "LAG A", "B"},
        {"and none", "50 VLAN 0 0 0", "mac3 -B.9=78; mac3 -A.9=78", "LAG A", "B"},
        {"the VLAN again, with its members", "1 VLAN 6", "", "LAG A", "B"},
        {"interfaces other than VLANs need nothing made", "1 C 6", "", "LAG A", "B"},
        {"ignored", "35 A", "", "LAG A", "B"},
        {"the LAG goes", "2 LAG", "acl3 14412 L@VLAN; acl3 14409 L@VLAN", "A", ""},
        {"a LAG that there is not", "2 LAG2", "", "A", ""},
        {"the VLAN goes", "2 VLAN", "acl3 14412 L@VLAN", "", ""},
        {"the other goes", "2 VLAN2", "", "", ""},
    };
    std::map<std::string, std::string> heard;  // by the queue, the member and the VLAN: the group
    for (const auto& step : story) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(told(step.record), step.sent);
        EXPECT_EQ(members(VLAN), step.vlanMembers);
        EXPECT_EQ(lagMembers(LAG), step.ports);
        auto hear = [&heard](std::istringstream rows) {
            for (std::string row; std::getline(rows >> std::ws, row, ';');) {
                if (!row.starts_with("mac")) continue;
                const size_t group = row.find('=');
                const std::string member = row.substr(0, 5) + row.substr(6, group - 6);
                if (row[5] == '+')
                    heard[member] = row.substr(group);
                else
                    heard.erase(member);
            }
        };
        hear(std::istringstream(step.sent));
        const auto history = std::exchange(heard, {});
        for (uint32_t slot : {3u, 4u}) aclReplayMembership(slot);
        hear(std::istringstream(told()));
        EXPECT_EQ(heard, history);
    }
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(aclVlanTreeFindFirst(), nullptr);
    EXPECT_EQ(aclCounters.truncated, 0u);
    EXPECT_TRUE(aclNode->groups.aclVlanGroupMemberBitMap.test(9)) << "free for a group again";
}

// Of every family and direction: the loss goes out as it stands, the list follows at once.
TEST_F(Notify, AVlansListsFollowItsMembers) {
    const std::pair<uint32_t, uint32_t> lists[] = {
        {14409, 14412}, {14416, 14419}, {14533, 14536}, {14537, 14540}};
    std::string added, again, gone;
    for (auto [add, drop] : lists) {
        const bool v6 = add > 14500;
        const uint32_t direction = add == 14409 || add == 14533 ? INTF_IN : INTF_OUT;
        bind(v6 ? CLI_V6_BIND : CLI_IP_BIND, "L", VLAN, direction);
        const std::string end = " L@VLAN; ", adds = "acl3 " + std::to_string(add) + end;
        added += adds;
        gone += "acl3 " + std::to_string(drop) + end;
        again += "acl3 " + std::to_string(drop) + end + adds;
    }
    for (auto [record, sent] : {std::pair("41 A VLAN", added),
                                {"41 B VLAN", added},
                                {"42 A VLAN", again},
                                {"42 B VLAN", gone}})
        EXPECT_EQ(told(record) + "; ", sent);
}

// A port's own list stays in its place; the LAG's comes when it goes.
TEST_F(Notify, APortsOwnListGoesBeforeItsLags) {
    bind(CLI_IP_BIND, "OWN", A, INTF_IN);
    bind(CLI_IP_BIND, "L", LAG, INTF_IN);
    bind(CLI_IP_BIND, "E", LAG, INTF_OUT);
    EXPECT_EQ(told("47 LAG A"), "acl3 14416 E@A");
    bind(CLI_IP_BIND, "NEW", A, INTF_IN, ACL_E_LAG_MEMBER);
    // The LAG's list changes around it, and is not meant to be there.
    EXPECT_EQ(ipAccessListCreateExt(listNameMake("L"), IP_KIND_STANDARD, 0, 0), ACL_OK);
    for (const char* list : {"L", "OWN"})
        EXPECT_EQ(debug("intended", (std::string("ip ") + list).c_str()).find("\"card\":\"3\"") !=
                      std::string::npos,
                  *list == 'O');
    EXPECT_EQ(told("48 LAG A"), "acl3 14419 E@A") << "its own is not the LAG's to take";
    told("47 LAG A");
    EXPECT_EQ(aclIpRemoveIntfExt(listNameMake("OWN"), A, INTF_IN, 0), ACL_OK);
    EXPECT_EQ(told(), "acl3 14412 OWN@A; acl3 14409 L@A");
    EXPECT_EQ(told("48 LAG A"), "acl3 14412 L@A; acl3 14419 E@A");
}

TEST_F(Notify, AVlansStateSaysTheChassis) {
    const struct {
        uint32_t mode;
        const char* record;
        uint32_t state;
    } all[] = {{0, "1 VLAN 5", 0xF005},
               {1, "1 VLAN 0xFF", 0xF0FF},
               {2, "1 VLAN 5", 0xE005},
               {7, "1 VLAN 0", 0xE000}};
    for (const auto& row : all) {
        aclNode->chassis.chassisMode = row.mode;
        told(row.record);
        EXPECT_EQ(aclVlanTreeFind(VLAN)->state, row.state);
    }
    told("11 A 3; 11 A 4");
    EXPECT_EQ(aclPlaceUseFind(A)->mode, 4u);
}

TEST_F(Notify, WhatGoesTakesEverythingWithIt) {
    const uint8_t mac[] = {2, 1, 2, 3, 4, 5};
    const ipMacPair pair{0x0A000001, {2, 1, 2, 3, 4, 5}, 0};
    told("41 A VLAN; 41 A VLAN2; 47 LAG B; 49 VLAN 77 0 0; 11 A 1");
    bind(CLI_MAC_BIND, "M", LAG, INTF_IN);
    for (uint32_t direction : {INTF_IN, INTF_OUT}) {
        bind(CLI_V6_BIND, "6", A, direction);
        bind(CLI_IP_BIND, "4", A, direction);
        bind(CLI_MAC_BIND, "M", A, direction);
    }
    ASSERT_EQ(ipSourceGuardAdd(B, pair), ACL_E_LAG_MEMBER);
    EXPECT_EQ(told("2 A"),
              "mac3 -A.9=77; acl3 14486 M@A; acl3 14498 M@A; acl3 14412 4@A; acl3 14419 4@A; "
              "acl3 14536 6@A; acl3 14540 6@A");
    EXPECT_EQ(AclIntfTreeFind(A), nullptr);
    EXPECT_EQ(members(VLAN) + members(VLAN_2), "");
    EXPECT_EQ(ipAccessListFindFirst(), nullptr);
    EXPECT_EQ(told("2 A"), "") << "it is no more";

    EXPECT_EQ(told("2 LAG"), "acl3 14486 M@B");
    EXPECT_TRUE(AclIntfTreeFind(LAG) == nullptr && aclLagOfPort(B) == 0);
    told("47 LAG B; 2 B");
    EXPECT_EQ(lagMembers(LAG), "");
    ASSERT_EQ(ipSourceGuardAdd(C, pair), ACL_OK);
    ASSERT_EQ(aclMgrIpMacAclAdd(C, 0x0A000002, mac, 0), ACL_OK);
    told("2 C");
    EXPECT_EQ(AclIntfTreeFind(C), nullptr);
    EXPECT_TRUE(testCfgLines().empty());
}

TEST_F(Notify, AddressesComeAndGoByTheirRecords) {
    // An IPv6 record: 2001:db8::N, its prefix length and flags where a row has them.
    auto six = [](const std::string& front, int n, const std::string& end) {
        return front + " 0x20010db8 0 0 " + std::to_string(n) + " 0 0 0 0 0 0 0 0 " + end;
    };
    const std::string four = " 0xFFFFFF00 1 2 3 4 5";
    const struct {
        const char* what;
        std::string told;
        uint32_t place;
        const char* left;  // of each IPv4 address the last byte, of others "6-" and the last word
    } story[] = {
        {"one", "30 A 0x0A000001" + four, A, "1 "},
        {"another, by the port's own number",
         "30 " + std::to_string(A | 0x80000000) + " 0x0A000002" + four, A, "1 2 "},
        {"the first again", "30 A 0x0A000001" + four, A, "1 2 "},
        {"an IPv6 one", six("37 A", 1, "64 0"), A, "1 2 6-1 "},
        {"no length", six("37 A", 2, "129 0"), A, "1 2 6-1 "},
        {"kept", six("38 A", 1, "64 4"), A, "1 2 6-1 "},
        {"not kept", six("38 A", 1, "64 3"), A, "1 2 "},
        {"gone", "31 A 0x0A000001", A, "2 "},
        {"that is not there", "31 A 0x0A000001", A, "2 "},
        {"of a VLAN", six("37 VLAN", 3, "128 0"), VLAN, "6-3 "},
        {"gone, too", six("36 VLAN", 3, "128 4"), VLAN, ""},
        {"of a LAG", "30 LAG 0x0A000003" + four, LAG, "3 "},
    };
    for (const auto& step : story) {
        SCOPED_TRACE(step.what);
        told(step.told);
        std::string left;
        const aclPlaceUse* use = aclPlaceUseFind(step.place);
        for (const aclAddress& address :
             use != nullptr ? use->addresses : decltype(use->addresses){}) {
            const uint32_t first = address.word[0], last = address.word[3];
            left += first == 0x20010db8      ? "6-" + std::to_string(last) + " "
                    : first >> 8 == 0x0A0000 ? std::to_string(first & 0xFF) + " "
                                             : "? ";
        }
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
    told(protocol);
    EXPECT_EQ(raw.size(), 5u);
    told("11 A 3");
    EXPECT_EQ(raw.size(), 5u) << "its traps say the mode";
    told("2 A");
    EXPECT_GE(raw.size(), 5u);
    told("2 VLAN; 2 LAG");
    EXPECT_EQ(AclIntfTreeFindFirst(), nullptr);
    EXPECT_EQ(entries(), 0u);
}

// What is good in a message is done, wherever the rest of it ends.
TEST_F(Notify, TheWalkStaysInsideTheMessage) {
    const struct {
        const char *what, *records;
        int64_t count;
        const char* joined;
        uint64_t truncated;
    } all[] = {
        {"none is said", "41 A VLAN", 0, "", 0},
        {"one is said", "41 A VLAN; 41 B VLAN", 1, "A", 0},
        {"more are said than there are", "41 A VLAN", 2, "A", 1},
        {"all ones", "41 A VLAN; 41 B VLAN", 0xFFFFFFFF, "A B", 1},
        {"an unknown type", "99 1 2; 41 A VLAN", 2, "A", 0},
        {"of an odd length", "99 1 2 +3 !15; 41 A VLAN", 2, "A", 0},
        {"ignored ones of any length", "35 A; 35 A 2 3; 41 A VLAN", 3, "A", 0},
        {"no length", "41 A VLAN !0; 41 B VLAN", 2, "", 1},
        {"a length below any", "41 A VLAN !7; 41 B VLAN", 2, "", 1},
        {"a length behind the end", "41 A VLAN; 41 B VLAN !13", 2, "A", 1},
        {"too short for its type", "41 A; 41 B VLAN", 2, "B", 1},
        {"too short for an address", "30 A 1 2 3 4 5 6; 37 A A A A A A A A A A A A A A; 41 B VLAN",
         3, "B", 1},
        {"no interface", "41 3 VLAN; 2 0; 41 B VLAN", 3, "B", 1},
        {"no VLAN", "41 A B; 41 A LAG; 41 B VLAN", 3, "B", 0},
        {"a VLAN that cannot be", "1 0x39000 1; 41 B VLAN", 2, "B", 1},
        {"a list of no members", "43 VLAN 0; 41 B VLAN", 2, "B", 0},
        {"of fewer than it has", "43 VLAN 1 A B", 1, "A", 0},
        {"of more than it has", "43 VLAN 3 A; 41 B VLAN", 2, "A B", 1},
        {"of all ones", "43 VLAN 0xFFFFFFFF A B", 1, "A B", 1},
    };
    static_assert(ifindexMake(IF_TYPE_VLAN, 4096) == 0x39000);
    for (const auto& row : all) {
        SCOPED_TRACE(row.what);
        aclCounters.truncated = 0;
        told(event(row.records, row.count));
        EXPECT_EQ(members(VLAN), row.joined);
        EXPECT_EQ(aclCounters.truncated, row.truncated);
        forgetPlaces();
    }
    for (int64_t count : {1, 0}) {
        aclNode->standing.placesAwaitedUntil = UINT64_MAX;
        told(event("41 A VLAN", count));
        EXPECT_EQ(aclPlacesAreAwaited(), count != 0);
    }
    EXPECT_EQ(ifmSvcTypeToStr(41), "IFM_TYP_ADD_VLAN_PORT");
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    deliver(event("99 1 2; 41 A VLAN; 41 A VLAN"));
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
        words behind;
        const char* left;
        uint64_t truncated;
        size_t passedOn;  // bytes of the body
    } all[] = {{0, {A}, "A B C", 0, 12},
               {1, {A, B}, "B C", 0, 16},
               {5, {A, B}, "C", 1, 16},
               {300, many, "C", 1, 1140},
               {0xFFFFFFFF, {}, "A B C", 1, 8}};
    for (const auto& row : all) {
        told("43 VLAN 3 A B C");
        aclCounters.truncated = 0;
        words front{VLAN, row.count};
        front.insert(front.end(), row.behind.begin(), row.behind.end());
        const bytes sent = list(MT_IFM_PORTS_LEAVE, front);
        told(sent);
        EXPECT_EQ(members(VLAN), row.left);
        EXPECT_EQ(aclCounters.truncated, row.truncated);
        // For those who mirror the ports: to both cards.
        ASSERT_EQ(raw.size(), 2u);
        ASSERT_EQ(raw[1].size(), 124 + row.passedOn);
        EXPECT_EQ(std::memcmp(&raw[1][124], &sent[60], row.passedOn), 0);
    }
}

TEST_F(Notify, APortBecomesAMemberOfExactlyTheVlansOfItsList) {
    const uint32_t others[] = {ifindexMake(IF_TYPE_VLAN, 0), ifindexMake(IF_TYPE_VLAN, 64)};
    for (uint32_t vlan : {VLAN, VLAN_2, others[0], others[1]})
        told("49 " + std::to_string(vlan) + " 5 0 0");
    auto set = [&](words vlans) {
        vlans.insert(vlans.begin(), {A, static_cast<uint32_t>(vlans.size())});
        return told(list(MT_IFM_PORTVL_EVT_NOTIF, vlans));
    };
    EXPECT_EQ(set({VLAN, VLAN_2, VLAN}), "mac3 +A.9=5; mac3 +A.4095=5");
    EXPECT_EQ(set({VLAN_2, VLAN}), "");
    EXPECT_EQ(set({others[1], VLAN_2, others[0]}), "mac3 -A.9=5; mac3 +A.0=5; mac3 +A.64=5");
    // A list that is not whole, or is not one of VLANs, takes nothing away.
    EXPECT_EQ(told(list(MT_IFM_PORTVL_EVT_NOTIF, {A, 2, VLAN})), "");
    EXPECT_EQ(set({VLAN, B}), "");
    EXPECT_EQ(set({VLAN, ifindexMake(IF_TYPE_VLAN, 4096)}), "");
    EXPECT_EQ(aclCounters.truncated, 3u);
    EXPECT_EQ(members(VLAN_2), "A");
    (void)set({});
    EXPECT_EQ(raw.size(), 3u);
}

TEST_F(Notify, LayerTwoTasksArePassedOnAsTheyCame) {
    const bytes stp = list(MT_STP_ENABLE, {1, 0xAABB});
    EXPECT_EQ(told(stp), "acl3 14502 1 aabb; acl4 14502 1 aabb");
    EXPECT_EQ(msgWord(raw[0].data(), 8), 264u);
    EXPECT_EQ(msgWord(raw[0].data(), 32), uint32_t{APP_ACL});
    EXPECT_EQ(told(list(MT_IFM_MIRROR_RELAY, {1, 2, 3, 4, 5})),
              "acl3 10880 1 2 3 4; acl4 10880 1 2 3 4");
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
    EXPECT_EQ(told(stp), "");
}

TEST_F(Notify, ACardIsToldOfSpanningTreeWhenItComesUp) {
    auto replayed = [this] {
        testTake();
        aclFollowReplay(3, false);
        return told().find("acl3 14502") != std::string::npos;
    };
    EXPECT_FALSE(replayed());
    told(message(MT_STP_ENABLE, 68));  // two words of 0 are an enable like others
    EXPECT_TRUE(replayed());
}

TEST_F(Notify, AnotherCamProfileIsKeptAndToldToThePeer) {
    aclNode->peer.ramDataSync = 1;
    const struct {
        uint32_t profile, microcode, groups;
        bool logged;
    } all[] = {{7, 4, 1, false}, {7, 3, 1, true}, {6, 4, 1, true}, {6, 4, 0, false}};
    DEBUG_ACL_MGR = DEBUG_ACL_GENERAL;
    auto cam = [this](uint32_t profile, uint32_t microcode) {
        return list(MT_EVENT_NOTIF, {0, EVT_CAM_PROFILE, profile, microcode});
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
    bytes cut = cam(9, 9);
    cut.resize(72);
    as<ipcHdr>(cut).length = 72u;
    auto sent = deliver(cut);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(uint32_t{as<ipcHdr>(sent[0]).result}, ACL_E_SYSTEM);
    EXPECT_EQ(aclNode->chassis.camProfile, 6u);
}

// Whatever cannot be made, what was made stays whole, and the next message finds it.
TEST_F(Notify, WithoutMemoryAMessageStopsWhereItFailed) {
    const char* const records = "49 VLAN 5 0 0; 43 VLAN 2 A B; 47 LAG C; 41 LAG VLAN";
    for (testPoint point : {TEST_BLOCK, TEST_INSERT, TEST_TREE}) {
        for (uint64_t nth = 1;; nth++) {
            SCOPED_TRACE(nth);
            testFail(point, nth);
            told(records);
            const bool failed = testUses(point) >= nth;
            testFailNothing();
            members(VLAN);  // each knows of the other
            if (!failed) break;
            for (zekSwpHandle queue : {aclLinecardInfo[3].macAgent, aclLinecardInfo[4].macAgent})
                testHost.queues[queue].state = zekSwpState::inStep;
            told(records);
            EXPECT_EQ(members(VLAN), "LAG A B");
            EXPECT_EQ(lagMembers(LAG), "C");
            forgetPlaces();
        }
        forgetPlaces();
    }
}

}  // namespace
