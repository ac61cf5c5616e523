// Protocols of the control plane: what is sent for each of them, byte for byte, to whom and in
// which order; and that cards which have lived through everything hold what a replay gives them.
#include <map>
#include <random>

#include "include/protMsg.h"
#include "protocol/AclIpAdd.h"
#include "protocol/zekprotocol.h"
#include "task/follow.h"
#include "tests/download/fixture.h"

typedef std::vector<bytes> messages;
inline messages operator+(messages a, const messages& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

namespace {

constexpr uint32_t ENABLE = 1110, DISABLE = 1111;
constexpr uint32_t PORT_3_3 = 0x08100000, PORT_4_1 = 0x0A080000;

// As the text has it, apart from the manager's own table.
struct wantProtocol {
    uint32_t id;
    texts macs;
    uint32_t cpus;
    uint8_t ipProtocol;  // of the entry of a record that says none; NO_ENTRY
    uint16_t port = 0;
};
constexpr uint8_t NO_ENTRY = 255;
const wantProtocol protocols[] = {
    {4, {"01005E000005", "01005E000006"}, 2, 89},
    {5,
     {"09002B000004", "09002B000005", "0180C2000014", "0180C2000015", "0180C2000015"},
     2,
     NO_ENTRY},
    {7, {"000000000000"}, 2, 6, 179},
    {8, {"01005E000009"}, 2, NO_ENTRY},
    {20480, {"01005E000012"}, 4, NO_ENTRY},
    {20481, {"01005E000002"}, 4, NO_ENTRY},
    {20482, {"01005E000101"}, 1, 17, 123},
    {20483, {"01005E000000"}, 4, NO_ENTRY},
    {20484, {"01005E000000"}, 4, NO_ENTRY},
    {20485, {"01000CCCCCCC"}, 1, NO_ENTRY},
    {20486, {}, 1, 2},
    {20487, {"333300000005", "333300000006"}, 2, 89},
    {20488, {"333300000000"}, 4, 103},
    {20489, {}, 1, 58},
    {65534, {"000000000000"}, 1, 0},
    {4711, {"000000000000"}, 1, 0},
};

struct trap {
    uint32_t slot, ifindex;
    std::string mac;
    uint32_t enable, cpus, lda = 1, mode = 0;
};
bytes trapBytes(const trap& t, bool typeOne = false) {
    bytes b(164);
    put32(b, 8, {296, 18841});
    put32(b, 32, {61, 0, OWN_CARD, 7810, t.slot, AGENT_CARD + t.slot});
    put32(b, 56, {(typeOne ? 0x3181u : 0x4A01u) + 4 * t.slot});
    put32(b, 124, {1, 0, t.ifindex});
    for (size_t i = 0; i < 6; i++)
        b[136 + i] = static_cast<uint8_t>(std::stoul(t.mac.substr(2 * i, 2), nullptr, 16));
    put32(b, 144, {t.enable});
    if (t.ifindex == VLAN_10) b[149] = 10;
    put32(b, 152, {t.mode, t.lda, t.cpus});
    return b;
}

// The entry of a protocol at a port, in the message that adds it or takes it away.
struct wantEntry {
    uint8_t protocol;
    uint16_t port = 0;
    uint32_t option = 0, vlan = 0, marker = 0;
    uint32_t address = 0x0A000001, mask = 0xFFFFFF00;
};
bytes systemBytes(uint32_t id, const char* list, uint32_t port, const bytes& image) {
    wantHeader header{list, 1, 2, port, 0, 1};
    header.block = 0;
    header.pipe = static_cast<uint8_t>(aclPortPipe(port));
    return messageBytes(id, static_cast<uint32_t>(ifindexSlot(port)), 0,
                        headerBytes(header) + image);
}
// What both families' entries have alike.
template <class Block>
void fillEntry(Block* e, const wantEntry& w) {
    e->seq = SEQ_NOT_GIVEN;
    e->protocol = w.protocol;
    e->dstLow = e->dstHigh = w.port;
    if (w.port != 0 && (w.protocol == 6 || w.protocol == 17)) e->dstOperator = 1u;
}
bytes entryBytes(const wantEntry& w, uint32_t port, bool add) {
    aclEntry e{};
    fillEntry(&e.block, w);
    e.block.dst = w.address;
    e.block.dstMask = w.mask;
    e.block.precedence = e.block.tos = FIELD_NOT_GIVEN;
    e.block.kind = 2u;
    e.block.order = 255u;
    e.block.dscp = 255;
    e.block.protoMarker = w.marker;
    e.block.reserved40 = w.option;
    e.block.vlan = w.vlan;
    return systemBytes(add ? 14414 : 14415, "Global Acl", port, imageBytes(e));
}
// The same of an IPv6 record.
bytes entry6Bytes(const wantEntry& w, uint32_t port, bool add) {
    acl6Entry e{};
    fillEntry(&e.block, w);
    e.block.dst[0] = 0x20, e.block.dst[15] = 1;
    std::fill_n(e.block.dstMask, 8, 0xFF);
    e.block.reserved76 = w.option;
    return systemBytes(add ? 14531 : 14532, "v6 Global Acl", port, imageBytes(e));
}

// A place, where its traps go in their order, and its ports in theirs.
struct wantPlace {
    uint32_t ifindex;
    std::vector<std::pair<uint32_t, uint32_t>> traps;  // slot, index
    numbers ports;
};

struct Protocols : DownloadTest {
    void SetUp() override {
        DownloadTest::SetUp();
        for (uint32_t slot : {3u, 4u}) ASSERT_EQ(iAclSwpQueueCreate(slot, QUEUE_MAC_AGENT), 0);
        aclLinecardInfo[4].type = 1;
        testTake();
    }
    void withMembers() {
        join(LAG_7, PORT_3_1), join(LAG_7, PORT_4_0), join(LAG_8, PORT_4_1);
        for (uint32_t member : {PORT_3_2, PORT_3_3, LAG_8})
            ASSERT_EQ(aclFollowVlanJoined(VLAN_10, member), 0);
        (void)enqueued();
    }
    static void join(uint32_t lag, uint32_t port) { ASSERT_EQ(aclFollowLagJoined(lag, port), 0); }
    const wantPlace port{PORT_3_1, {{3, PORT_3_1}}, {PORT_3_1}};
    // A LAG's newest member first; of a VLAN the members in the order of their indexes.
    const wantPlace lag{LAG_7, {{4, PORT_4_0}, {3, PORT_3_1}}, {PORT_4_0, PORT_3_1}};
    const wantPlace vlan{VLAN_10, {{4, VLAN_10}, {3, VLAN_10}}, {PORT_4_1, PORT_3_2, PORT_3_3}};

    static protRecord record(uint32_t id, uint32_t ifindex) {
        protRecord r{};
        r.name = listNameMake("Global Acl");
        r.ifindex = ifindex;
        r.id = id;
        r.lda = 1;
        const uint8_t address[] = {10, 0, 0, 1}, mask[] = {255, 255, 255, 0};
        std::copy_n(address, 4, r.address);
        std::copy_n(mask, 4, r.mask);
        return r;
    }
    static protRecord record6(uint32_t id, uint32_t ifindex) {
        protRecord r = record(id, ifindex);
        r.protocol = 16;
        std::fill_n(r.address, 16, 0);
        r.address[0] = 0x20, r.address[15] = 1;
        std::fill_n(r.mask, 16, 0);
        std::fill_n(r.mask, 8, 0xFF);
        return r;
    }
    static protRecord withMac(protRecord r, uint32_t low) {
        r.vmac[0] = 0xFFFF0000;  // the high half says nothing
        r.vmac[1] = 0x5E00u;
        r.vmac[2] = low;
        return r;
    }
    messages change(uint32_t type, const protRecord& r) {
        EXPECT_EQ(AclProtEnableCore(type, &r), ACL_OK);
        return enqueued();
    }
    messages enable(const protRecord& r) { return change(ENABLE, r); }
    messages disable(const protRecord& r) { return change(DISABLE, r); }

    static messages trapsOf(const wantProtocol& w, const wantPlace& place, uint32_t on) {
        messages all;
        for (auto [slot, ifindex] : place.traps)
            for (const std::string& mac : w.macs)
                all.push_back(trapBytes({slot, ifindex, mac, on, w.cpus}, slot == 4));
        return all;
    }
    static messages trapsOf(const texts& macs, uint32_t cpus, const wantPlace& place, uint32_t on) {
        return trapsOf(wantProtocol{0, macs, cpus, NO_ENTRY}, place, on);
    }
    static messages entriesOf(const wantEntry& w, const wantPlace& place, bool add,
                              bool v6 = false) {
        messages all;
        for (uint32_t at : place.ports) all.push_back((v6 ? entry6Bytes : entryBytes)(w, at, add));
        return all;
    }
    static ptrdiff_t addressesOf(uint32_t place) {
        return std::ranges::count(aclPlaceUseFind(place)->addresses, false, &aclAddress::forgotten);
    }
    static uint32_t flags(uint32_t place) {
        const aclPlaceUse* use = aclPlaceUseFind(place);
        return use != nullptr ? use->protocolFlags : 0;
    }
};
testing::AssertionResult same(const messages& got, const messages& want) {
    for (size_t n = 0; n < std::max(got.size(), want.size()); n++) {
        if (n >= got.size() || n >= want.size())
            return testing::AssertionFailure() << got.size() << " messages, not " << want.size();
        if (got[n] == want[n]) continue;
        const auto at = std::ranges::mismatch(got[n], want[n]).in1 - got[n].begin();
        return testing::AssertionFailure() << "message " << n << " (" << get32(got[n], 12) << " of "
                                           << got[n].size() << " bytes) differs at " << at;
    }
    return testing::AssertionSuccess();
}
#define EXPECT_MESSAGES(act, ...) EXPECT_TRUE(same(act, __VA_ARGS__))

}  // namespace

TEST_F(Protocols, EachIsEnabledRepeatedAndDisabledOnAPortAVlanAndALag) {
    withMembers();
    for (const wantPlace& place : {port, vlan, lag})
        for (const wantProtocol& w : protocols)
            for (bool v6 : {false, true}) {
                SCOPED_TRACE(std::to_string(w.id) + (v6 ? " IPv6" : "") + " on " +
                             std::to_string(place.ifindex));
                const protRecord r =
                    v6 ? record6(w.id, place.ifindex) : record(w.id, place.ifindex);
                wantEntry entry{w.ipProtocol, w.port};
                if (w.id == 20486) entry.option = 3;
                if (w.id == 20486 && !v6 && place.ifindex == VLAN_10) entry.vlan = 10;
                auto sent = [&](bool on) {
                    if (w.ipProtocol == NO_ENTRY) return trapsOf(w, place, on);
                    return trapsOf(w, place, on) + entriesOf(entry, place, on, v6);
                };
                EXPECT_MESSAGES(enable(r), sent(true));
                EXPECT_EQ(std::popcount(flags(place.ifindex)), 1);
                if (w.id != 8) {
                    EXPECT_MESSAGES(enable(r), sent(true));
                }
                EXPECT_MESSAGES(disable(r), sent(false));
                EXPECT_EQ(flags(place.ifindex), 0u);
                EXPECT_MESSAGES(disable(r), messages{});
                EXPECT_TRUE(aclPlaceUseFind(place.ifindex)->protocols.empty());
            }
}

TEST_F(Protocols, TheEntryIsWhatTheRecordSays) {
    protRecord r = record(PROT_BGP, PORT_3_1);
    r.protocol = 17, r.port = 0x10000u + 3784, r.option = 7;
    messages want = trapsOf({"000000000000"}, 2, port, 1);
    EXPECT_MESSAGES(enable(r), want + entriesOf({17, 3784, 7}, port, true));
    // IP in IP is no other word for every packet.
    protRecord other = r;
    other.protocol = IP_PROTO_ANY, other.port = 0u;
    want = trapsOf({"000000000000"}, 2, port, 1);
    want = want + entriesOf({4, 0, 7, 0, 1}, port, true);
    want = want + entriesOf({17, 3784, 7}, port, false);  // when the new one is there
    EXPECT_MESSAGES(enable(other), want);
    // What was asked for goes, whatever the disable says.
    want = trapsOf({"000000000000"}, 2, port, 0);
    EXPECT_MESSAGES(disable(r), want + entriesOf({4, 0, 7, 0, 1}, port, false));
    // Snooping has its own option; a port has no VLAN.
    r = record(PROT_IGMPSNOOPING, PORT_3_1);
    r.protocol = 2, r.option = 7;
    EXPECT_MESSAGES(enable(r), entriesOf({2, 0, 3}, port, true));
}

TEST_F(Protocols, Ipv6IsEnabledBesideIpv4ButForRipsUsers) {
    const texts none{"000000000000"};
    (void)enable(record(PROT_BGP, PORT_3_1)), (void)enable(record6(PROT_BGP, PORT_3_1));
    EXPECT_MESSAGES(
        disable(record(PROT_BGP, PORT_3_1)),
        trapsOf(none, 2, port, 0) + trapsOf(none, 2, port, 1) + entriesOf({6, 179}, port, false));
    EXPECT_MESSAGES(disable(record6(PROT_BGP, PORT_3_1)),
                    trapsOf(none, 2, port, 0) + entriesOf({6, 179}, port, false, true));
    (void)enable(record(PROT_RIP, PORT_3_1)), (void)enable(record6(PROT_RIP, PORT_3_1));
    EXPECT_MESSAGES(disable(record(PROT_RIP, PORT_3_1)), messages{});
    EXPECT_MESSAGES(disable(record6(PROT_RIP, PORT_3_1)), trapsOf({"01005E000009"}, 2, port, 0));
    EXPECT_TRUE(aclPlaceUseFind(PORT_3_1)->protocols.empty());
}

TEST_F(Protocols, AnEntryThatAnotherPlaceOfThePortAsksForStays) {
    withMembers();
    (void)enable(record(PROT_BGP, PORT_3_1));
    messages want = trapsOf({"000000000000"}, 2, lag, 1);
    want = want + entriesOf({6, 179}, lag, true);
    EXPECT_MESSAGES(enable(record(PROT_BGP, LAG_7)), want);
    // The port keeps its entry, and its own trap is enabled again at once.
    want = trapsOf({"000000000000"}, 2, {0, {{4, PORT_4_0}}, {}}, 0);
    want = want + trapsOf({"000000000000"}, 2, port, 0);
    want = want + trapsOf({"000000000000"}, 2, port, 1);
    want.push_back(entryBytes({6, 179}, PORT_4_0, false));
    EXPECT_MESSAGES(disable(record(PROT_BGP, LAG_7)), want);
    // Nor does it matter which ports are said of a protocol that has none.
    protRecord one = record(4711, PORT_3_1), two = record(4711, LAG_7);
    one.protocol = two.protocol = 50, one.port = 1u, two.port = 2u;
    (void)enable(one), (void)enable(two);
    const messages told = disable(two);
    EXPECT_EQ(std::ranges::count(told, entryBytes({50, 2}, PORT_4_0, false)), 1);
    EXPECT_EQ(std::ranges::count_if(told, [](auto& m) { return get32(m, 12) == 14415; }), 1);
    // Two protocols that ask for the same one: a member gets it once.
    (void)enable(record(4711, VLAN_10 + 1)), (void)enable(record(4712, VLAN_10 + 1));
    ASSERT_EQ(aclFollowVlanJoined(VLAN_10 + 1, PORT_3_2), 0);
    want = enqueued();
    ASSERT_EQ(want.size(), 3u);  // with two traps
    EXPECT_EQ(want[2], entryBytes({0}, PORT_3_2, true));
}

TEST_F(Protocols, OspfLeavesTheSystemListsAloneWhileTheCounterWordIsAboveTwo) {
    const texts macs{"01005E000005", "01005E000006"};
    for (uint32_t word : {2u, 3u}) {
        aclNode->finalWord = word;
        for (bool on : {true, false}) {
            messages want = trapsOf(macs, 2, port, on);
            if (word == 2) want = want + entriesOf({89}, port, on);
            const protRecord r = record(PROT_OSPF, PORT_3_1);
            EXPECT_MESSAGES(change(on ? ENABLE : DISABLE, r), want);
        }
    }
    // It alone.
    messages want = trapsOf({"000000000000"}, 2, port, 1);
    EXPECT_MESSAGES(enable(record(PROT_BGP, PORT_3_1)), want + entriesOf({6, 179}, port, true));
}

TEST_F(Protocols, AVirtualRoutersAddressStandsForItself) {
    const std::string mac = "00005E000101";
    for (uint32_t id : {PROT_VRRP, PROT_HSRP}) {
        SCOPED_TRACE(id);
        const protRecord one = withMac(record(id, PORT_3_1), 0x101),
                         two = withMac(record(id, PORT_3_1), 0x102);
        const messages on = trapsOf({mac}, 4, port, 1), off = trapsOf({mac}, 4, port, 0);
        EXPECT_MESSAGES(enable(one), on);
        EXPECT_EQ(flags(PORT_3_1), 0u);
        EXPECT_MESSAGES(enable(two), trapsOf({"00005E000102"}, 4, port, 1));
        EXPECT_MESSAGES(enable(one), on);
        EXPECT_EQ(aclPlaceUseFind(PORT_3_1)->protocols.size(), 2u);
        // The protocol itself is not enabled by them.
        EXPECT_MESSAGES(disable(record(id, PORT_3_1)), messages{});
        EXPECT_MESSAGES(disable(one), off);
        EXPECT_MESSAGES(disable(one), off);  // known or not
        EXPECT_MESSAGES(disable(two), trapsOf({"00005E000102"}, 4, port, 0));
    }
    // One for all: another address takes the place of the one before.
    const protRecord ntp = withMac(record(PROT_NTP, PORT_3_1), 0x101);
    messages want = trapsOf({mac}, 1, port, 1);
    want = want + entriesOf({17, 123}, port, true);
    EXPECT_MESSAGES(enable(ntp), want);
    want = trapsOf({"01005E000101"}, 1, port, 1);
    want = want + entriesOf({17, 123}, port, true);
    want = want + trapsOf({mac}, 1, port, 0);
    EXPECT_MESSAGES(enable(record(PROT_NTP, PORT_3_1)), want);
    // Of other protocols no address is taken.
    EXPECT_MESSAGES(enable(withMac(record(PROT_FEFD, PORT_3_1), 0x101)),
                    trapsOf({"01000CCCCCCC"}, 1, port, 1));
}

TEST_F(Protocols, ASharedAddressIsEnabledAgainAtOnce) {
    const texts mac{"01005E000000"};
    protRecord igmp = record(PROT_IGMP, PORT_3_1), pim = record(PROT_PIMSM, PORT_3_1);
    EXPECT_MESSAGES(enable(igmp), trapsOf(mac, 4, port, 1));
    EXPECT_MESSAGES(enable(pim), trapsOf(mac, 4, port, 1));
    messages want = trapsOf(mac, 4, port, 0);
    EXPECT_MESSAGES(disable(pim), want + trapsOf(mac, 4, port, 1));
    EXPECT_MESSAGES(disable(igmp), trapsOf(mac, 4, port, 0));
    // The record that stands last has the last word, also when the other is repeated.
    (void)enable(igmp);
    pim.lda = 0;
    const bytes last = trapBytes({3, PORT_3_1, mac[0], 1, 4, 0});
    EXPECT_MESSAGES(enable(pim), messages{last});
    want = trapsOf(mac, 4, port, 1);
    EXPECT_MESSAGES(enable(igmp), want + messages{last});
}

TEST_F(Protocols, RipStaysUntilItsLastUser) {
    const texts mac{"01005E000009"};
    const protRecord rip = record(PROT_RIP, PORT_3_1);
    for (int users = 0; users < 3; users++) EXPECT_MESSAGES(enable(rip), trapsOf(mac, 2, port, 1));
    for (int users = 0; users < 2; users++) {
        EXPECT_MESSAGES(disable(rip), messages{});
        EXPECT_NE(flags(PORT_3_1), 0u);
    }
    EXPECT_MESSAGES(disable(rip), trapsOf(mac, 2, port, 0));
    EXPECT_MESSAGES(disable(rip), messages{});
    // A new life begins with one user, also of an interface that was gone and whose record stayed.
    EXPECT_MESSAGES(enable(rip), trapsOf(mac, 2, port, 1));
    EXPECT_MESSAGES(enable(rip), trapsOf(mac, 2, port, 1));
    aclProtocolInterfaceGone(PORT_3_1);
    EXPECT_MESSAGES(enqueued(), trapsOf(mac, 2, port, 0));
    EXPECT_EQ(flags(PORT_3_1), 0u);
    EXPECT_MESSAGES(enable(rip), trapsOf(mac, 2, port, 1));
    EXPECT_MESSAGES(disable(rip), trapsOf(mac, 2, port, 0));
}

TEST_F(Protocols, ADisableThatTakesAnEntryForgetsTheAddressOfIpv4) {
    const uint32_t address = 0x20000000;  // also the first word of the IPv6 record's
    for (const wantProtocol& w : protocols)
        for (bool v6 : {false, true}) {
            SCOPED_TRACE(w.id);
            aclAddIpAddrFromIFM(PORT_3_1, address);
            protRecord r = record(w.id, PORT_3_1);
            r.protocol = v6 ? 16 : 0;
            std::fill_n(r.address, 4, 0);
            r.address[0] = 0x20;
            (void)disable(r);  // not enabled: it forgets nothing
            (void)enable(r);
            ASSERT_EQ(addressesOf(PORT_3_1), 1);
            (void)disable(r);
            EXPECT_EQ(addressesOf(PORT_3_1), w.ipProtocol != NO_ENTRY && !v6 ? 0 : 1);
            aclDelIpAddrFromIFM(PORT_3_1, address);
        }
}

TEST_F(Protocols, TheModeOfAPortIsInItsTraps) {
    withMembers();
    const texts mac{"01005E000000"};
    (void)enable(record(PROT_IGMP, PORT_3_1)), (void)enable(record(PROT_IGMP, LAG_7));
    aclPlaceUseObtain(PORT_3_1)->mode = 2;
    aclProtocolModeChanged(PORT_3_1);
    const trap own{3, PORT_3_1, mac[0], 1, 4, 1, 2};
    EXPECT_MESSAGES(enqueued(), (messages{trapBytes(own), trapBytes(own)}));
    EXPECT_MESSAGES(enable(record(PROT_IGMP, LAG_7)),
                    (messages{trapBytes({4, PORT_4_0, mac[0], 1, 4}, true), trapBytes(own)}));
}

TEST_F(Protocols, MessagesAreTakenFromBothPlacesAndAnswered) {
    static uint32_t session = 8;
    session++;  // of another run of this test the task knows the numbers
    auto ask = [this](uint32_t type, const protRecord& r, uint32_t swpSeq = 0,
                      uint32_t number = 0) {
        auto request = message(type, type < 1112 ? 268 : 332);
        std::memcpy(request.data() + (type < 1112 ? 60 : 124), &r, sizeof r);
        if (swpSeq != 0) as<ipcHdr>(request).session = session, as<ipcHdr>(request).swpSeq = swpSeq;
        as<ipcHdr>(request).sequence = number;
        return deliver(request);
    };
    auto traps = [this] {
        return std::ranges::count_if(effects, [](auto& row) { return row.starts_with("swp "); });
    };
    auto result = [](const messages& answer) { return get32(answer.at(0), 16); };
    const protRecord igmp = record(PROT_IGMP, PORT_3_1);
    EXPECT_EQ(result(ask(1110, igmp)), ACL_OK);
    EXPECT_EQ(traps(), 1);
    (void)ask(1113, igmp, 1);
    EXPECT_EQ(traps(), 1);
    EXPECT_EQ(flags(PORT_3_1), 0u);
    // A repeated number is acknowledged, and handled once.
    const protRecord rip = record(PROT_RIP, PORT_3_1);
    (void)ask(1112, rip, 2), (void)ask(1112, rip, 2);
    EXPECT_EQ(traps(), 0);
    EXPECT_TRUE(said("swpanswer 2"));
    EXPECT_EQ(aclPlaceUseFind(PORT_3_1)->ripUsers, 1u);
    // So is a request that has one: RIP has another user, and loses it again.
    for (auto [type, users] : {std::pair{1110u, 2u}, std::pair{1111u, 1u}})
        for (int again = 0; again < 2; again++) {
            EXPECT_EQ(result(ask(type, rip, 0, type)), ACL_OK);
            EXPECT_EQ(aclPlaceUseFind(PORT_3_1)->ripUsers, users);
        }
    EXPECT_EQ(result(ask(1111, rip)), ACL_OK);
    EXPECT_EQ(traps(), 1);
    // Type 11 is ignored; what is no place is refused, and nothing is made of it.
    const aclIntf* before = AclIntfTreeFindNext(PORT_3_1);
    EXPECT_EQ(result(ask(1110, record(PROT_IGMP, 0x08080000 | 11 << 14))), ACL_OK);
    for (uint32_t bad : {0u, 3u, 19u, 0xFFFFu, 0x7FFFFFFFu, ifindexMake(IF_TYPE_VLAN, 4096),
                         ifindexMake(IF_TYPE_VLAN, 0x3FFF)})
        EXPECT_EQ(result(ask(1110, record(PROT_IGMP, bad))), ACL_E_SYSTEM) << bad;
    EXPECT_EQ(AclIntfTreeFindNext(PORT_3_1), before);
    EXPECT_EQ(aclVlanTreeFindFirst(), nullptr);
    // Bits that say nothing make no other place, and a slot without agents takes nothing.
    EXPECT_EQ(result(ask(1110, record(PROT_IGMP, VLAN_10 | 1u << 30))), ACL_OK);
    EXPECT_NE(flags(VLAN_10), 0u);
    EXPECT_EQ(result(ask(1110, record(PROT_IGMP, 0x1E040000))), ACL_OK);
    EXPECT_EQ(traps(), 0);
    // Bytes of any kind.
    std::mt19937 random{3};
    for (int round = 0; round < 300; round++) {
        protRecord r;
        std::generate_n(reinterpret_cast<uint8_t*>(&r), sizeof r,
                        [&] { return static_cast<uint8_t>(random()); });
        if (round % 2 != 0) r.ifindex = PORT_3_1;
        (void)ask(round % 3 != 0 ? 1110 : 1111, r);
    }
    EXPECT_LE(aclPlaceUseFind(PORT_3_1)->protocols.size(), PROT_RECORDS_MAX);
}

TEST_F(Protocols, APlaceKeepsSoManyAndWithoutMemoryNothingChanges) {
    auto routers = [](uint32_t n) { return withMac(record(PROT_VRRP, PORT_3_1), n); };
    for (uint32_t n = 1; n <= PROT_RECORDS_MAX; n++) (void)enable(routers(n));
    const protRecord more = routers(PROT_RECORDS_MAX + 1);
    EXPECT_EQ(AclProtEnableCore(ENABLE, &more), ACL_E_SYSTEM);
    EXPECT_TRUE(enqueued().empty());
    ASSERT_EQ(effects.size(), 1u);
    EXPECT_TRUE(effects[0].starts_with("syserr 0x50006 ")) << effects[0];
    const protRecord again = routers(1);
    EXPECT_EQ(AclProtEnableCore(ENABLE, &again), ACL_OK);

    const protRecord igmp = record(PROT_IGMP, PORT_3_2);
    (void)enable(igmp);
    const uint32_t flagsBefore = flags(PORT_3_2);
    const protRecord rip = record(PROT_RIP, PORT_3_2);
    for (const auto& [type, r] : {std::pair(ENABLE, rip), std::pair(DISABLE, igmp)}) {
        testFail(TEST_BLOCK, 1, 1);
        EXPECT_EQ(AclProtEnableCore(type, &r), ACL_E_ENTRY_MEMORY);
        testFailNothing();
        EXPECT_TRUE(enqueued().empty());
        ASSERT_EQ(effects.size(), 1u);
        EXPECT_TRUE(effects[0].starts_with("syserr 0x5000c ")) << effects[0];
        EXPECT_EQ(flags(PORT_3_2), flagsBefore);
        EXPECT_EQ(aclPlaceUseFind(PORT_3_2)->ripUsers, 0u);
    }
    // Without memory for the place's record.
    const protRecord elsewhere = record(PROT_IGMP, PORT_4_1);
    testFail(TEST_BLOCK, 2, 1);
    EXPECT_EQ(AclProtEnableCore(ENABLE, &elsewhere), ACL_E_ENTRY_MEMORY);
    testFailNothing();
    EXPECT_TRUE(enqueued().empty());
    EXPECT_EQ(flags(PORT_4_1), 0u);
}

TEST_F(Protocols, DebugOutputSaysWhatIsAskedAndOfPimWhere) {
    DEBUG_ACL_MGR = DEBUG_ACL_PROT;
    auto request = message(1110, 268);
    auto told = [&](uint32_t ifindex, uint32_t type) {
        protRecord pim = record(PROT_PIMSM, ifindex);
        pim.protocol = 103;
        as<ipcHdr>(request).mtype = type;
        std::memcpy(request.data() + 60, &pim, sizeof pim);
        (void)deliver(request);
        return std::pair(said("Got a ACL_PROT_ENABLE from  PIMSM  on if "),
                         said("Got a ACL_PROT_DISABLE from  PIMSM  on if "));
    };
    for (auto [ifindex, what] : {std::pair(PORT_3_1, "phys"), {LAG_7, "LAG"}, {VLAN_10, "vlan"}})
        for (uint32_t type : {ENABLE, DISABLE}) {
            EXPECT_EQ(told(ifindex, type), std::pair(type == ENABLE, type == DISABLE));
            char inside[128];
            std::snprintf(inside, sizeof inside,
                          "\r\nInside AclProtEnableCore: msgTy %u ifindex %#x id 20483 isLDA 1 "
                          "prot 103",
                          type, ifindex);
            EXPECT_TRUE(said(inside));
            EXPECT_TRUE(said(std::string(" : Going to call aclPimAssertEntryInstallWrapper for ") +
                             what + "\r\n"));
        }
    testTake();
    EXPECT_EQ(AclProtEnableCore(ENABLE, nullptr), ACL_OK);
    EXPECT_TRUE(enqueued().empty());
    ASSERT_EQ(effects.size(), 1u);
    EXPECT_NE(effects[0].find("ent is NULL\r\n"), std::string::npos);
}

TEST_F(Protocols, ATemplateSaysWhatAnEntryMatches) {
    struct {
        uint32_t index, protocol, port, option, vlan, compares;
    } const rows[] = {
        {0, 17, 520, 0, 0, 1},  {1, 6, 179, 0, 0, 1}, {2, 112, 112, 0, 0, 0}, {5, 89, 0, 0, 0, 0},
        {6, 17, 1985, 0, 0, 1}, {7, 6, 0, 0, 0, 0},   {14, 6, 0, 0, 0, 0},    {8, 2, 0, 0, 0, 0},
        {10, 0, 0, 0, 0, 0},    {11, 2, 0, 3, 10, 0}, {3, 4, 0, 0, 0, 0},     {4, 4, 0, 0, 0, 0},
        {9, 4, 0, 0, 0, 0},     {12, 4, 0, 0, 0, 0},  {13, 4, 0, 0, 0, 0},    {99, 4, 0, 0, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.index);
        ipEntryBlock want{};
        want.kind = 2u, want.seq = SEQ_NOT_GIVEN, want.order = 255u;
        want.precedence = want.tos = FIELD_NOT_GIVEN;
        want.dscp = 255;
        want.protocol = static_cast<uint8_t>(row.protocol);
        want.dstLow = want.dstHigh = static_cast<uint16_t>(row.port);
        want.dstOperator = row.compares;
        want.reserved40 = row.option;
        want.vlan = row.vlan;
        ipEntryBlock got = aclGetProtAcclistFromId(row.index, VLAN_10);
        EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0);
        got = aclGetProtAcclistFromId(row.index, PORT_3_1);
        want.vlan = 0u;
        EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0);
    }
}

TEST_F(Protocols, ACardWithoutAMacAgentIsLeftOutAndOnlyThePrimaryTells) {
    EXPECT_MESSAGES(enable(record(PROT_IGMP, PORT_5_0)), messages{});
    testHost.primary = false;
    EXPECT_MESSAGES(enable(record(PROT_BGP, PORT_3_1)), messages{});
    EXPECT_NE(flags(PORT_3_1), 0u);  // for whoever is
}

// --- what cards hold -----------------------------------------------------------------------------

namespace {

// A card as the messages make it: by interface and size of an entry, of every entry all that says
// something (its number does not); in {0, 0} its traps, by index and address.
typedef std::map<std::pair<uint32_t, size_t>, std::map<bytes, bytes>> cardTables;

void apply(const bytes& m, std::map<uint32_t, cardTables>* cards) {
    const uint32_t id = get32(m, 12);
    cardTables& card = (*cards)[get32(m, 48)];
    const auto part = [&m](size_t at, size_t until) { return bytes(&m[at], &m[0] + until); };
    if (id == 18841) {
        card[{0, 0}].erase(part(132, 142));
        if (get32(m, 144) == 1) card[{0, 0}][part(132, 142)] = part(142, 164);
    }
    const struct {
        uint32_t list, add, del;
        size_t image, seqAt, until;
    } forms[] = {{14413, 14414, 14415, 392, 4, 392}, {14530, 14531, 14532, 140, 92, 124}};
    for (const auto& form : forms) {
        if (id != form.add && id != form.del && id != form.list) continue;
        auto& table = card[{get32(m, 132 + 352), form.image}];
        const uint32_t count = get32(m, 132 + 312);
        if (id == form.list) table.clear();
        ASSERT_GE(m.size(), 1188 + count * form.image);
        for (uint32_t i = 0; i < count; i++) {
            bytes entry = part(1188 + i * form.image, 1188 + i * form.image + form.until);
            put32(entry, form.seqAt, {0});
            table.erase(entry);
            if (id != form.del) table[entry] = {};
        }
    }
}

}  // namespace

// Whatever has happened to members, addresses and protocols: the cards hold what a replay gives.
TEST_F(Protocols, ACardThatWasThereHoldsWhatAReplayGives) {
    std::mt19937 random{11};
    auto below = [&random](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    auto any = [&](const numbers& list) { return list[below(uint32_t(list.size()))]; };
    auto hear = [this](std::map<uint32_t, cardTables>* to) {
        for (const bytes& m : enqueued()) apply(m, to);
        for (auto& [slot, tables] : *to)
            std::erase_if(tables, [](const auto& table) { return table.second.empty(); });
    };
    auto replayTo = [&](std::map<uint32_t, cardTables>* cards) {
        for (uint32_t slot : {0u, 3u, 4u}) aclReplayToAgent(slot, false);
        hear(cards);
    };
    auto randomRecord = [&](uint32_t place) {
        protRecord r = record(protocols[below(std::size(protocols))].id, place);
        if (below(4) == 0) r.protocol = 16;
        if (below(3) == 0) r = withMac(r, 1 + below(2));
        r.lda = static_cast<uint8_t>(below(2));
        r.address[3] = static_cast<uint8_t>(below(2));
        return r;
    };
    std::map<uint32_t, cardTables> cards;
    replayTo(&cards);
    size_t held = 0, traps = 0;
    for (int step = 0; step < 4000; step++) {
        const uint32_t onePort = any({PORT_3_1, PORT_3_2, PORT_3_3, PORT_4_0, PORT_4_1});
        const uint32_t oneLag = any({LAG_7, LAG_8}), oneVlan = VLAN_10 + below(2);
        const uint32_t member = below(3) == 0 ? oneLag : onePort,
                       place = any({onePort, oneLag, oneVlan});
        const uint32_t address = 0x0A000001 + below(4), what = below(20);
        const uint8_t v6[16] = {0xfe, static_cast<uint8_t>(0x80 + below(2))};
        if (what < 2) (void)aclFollowVlanJoined(oneVlan, member);
        if (what == 2) (void)aclFollowVlanLeft(oneVlan, member);
        if (what == 3) (void)aclFollowLagJoined(oneLag, onePort);
        if (what == 4) (void)aclFollowLagLeft(oneLag, onePort);
        if (what == 5 || what == 6) aclAddIpAddrFromIFM(place, address);
        if (what == 7) aclDelIpAddrFromIFM(place, address);
        if (what == 8) aclAddIPV6AddFromIFM(place, v6, 64);
        if (what == 9) aclDelIPV6AddFromIFM(place, v6, 64);
        if (what == 10) {
            aclPlaceUseObtain(onePort)->mode = below(3);
            aclProtocolModeChanged(onePort);
        }
        if (what == 11) {
            if (below(4) == 0) (void)aclTrapDhcp(below(2) != 0);
            if (below(8) == 0) aclDelIpaddInfoToTree(place, address);
            if (below(20) == 0) aclDelAllAddressesOf(place);
            if (below(20) == 0) aclFollowPortGone(onePort);
            if (below(20) == 0) aclFollowVlanGone(oneVlan);
            if (below(20) == 0) aclFollowLagGone(oneLag);
        }
        if (what > 11) {
            const protRecord r = randomRecord(place);
            EXPECT_EQ(AclProtEnableCore(below(5) < 3 ? ENABLE : DISABLE, &r), ACL_OK);
        }
        hear(&cards);
        if (step % 10 != 0) continue;
        std::map<uint32_t, cardTables> anew;
        replayTo(&anew);
        ASSERT_EQ(cards, anew) << "after step " << step;
        for (uint32_t slot : {3u, 4u})
            held += anew[slot].size(), traps += anew[slot][{0, 0}].size();
    }
    EXPECT_GT(held, 3'000u);  // there was something to compare
    EXPECT_GT(traps, 3'000u);
    forgetPlaces();
}

// A card's replay has the traps in it.
TEST_F(Protocols, TheReplayOfACardTellsItsMacAgent) {
    withMembers();
    (void)enable(record(PROT_BGP, VLAN_10));
    (void)enable(withMac(record(PROT_VRRP, PORT_3_1), 7));
    aclFollowReplay(3, false);
    messages traps;
    for (const bytes& m : enqueued())
        if (get32(m, 12) == 18841) traps.push_back(m);
    messages want{trapBytes({3, PORT_3_1, "00005E000007", 1, 4})};
    want.push_back(trapBytes({3, VLAN_10, "000000000000", 1, 2}));
    EXPECT_MESSAGES(traps, want);
}

// --- the setting of DHCP -------------------------------------------------------------------------

TEST_F(Protocols, DhcpTrappingIsASettingWithALineAndTheOtherCodesDoNothing) {
    const std::vector<std::string> line{"ip dhcp-trap"};
    auto set = [this](uint32_t code) { return ask(cli(code, "", 220)); };
    EXPECT_EQ(set(CLI_DHCP_NO_TRAP), ACL_OK);
    EXPECT_TRUE(testCfgLines().empty());
    for (int twice = 0; twice < 2; twice++) {
        EXPECT_EQ(set(CLI_DHCP_TRAP), ACL_OK);
        EXPECT_EQ(testCfgLines(), line);
        EXPECT_EQ(aclNode->protocol.acl_dhcp, 1u);
    }
    for (uint32_t code : {1106u, 1115u, 1120u}) {
        EXPECT_EQ(set(code), ACL_OK) << code;
        EXPECT_TRUE(enqueued().empty());
    }
    EXPECT_EQ(set(CLI_DHCP_NO_TRAP), ACL_OK);
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(aclNode->protocol.acl_dhcp, 0u);
    // What was not done is not set either, and can be asked for again.
    aclAddIpAddrFromIFM(PORT_3_1, 0x0A000001);
    testFail(TEST_BLOCK);
    EXPECT_EQ(set(CLI_DHCP_TRAP), ACL_E_ENTRY_MEMORY);
    testFailNothing();
    EXPECT_EQ(aclNode->protocol.acl_dhcp, 0u);
    EXPECT_TRUE(testCfgLines().empty());
    EXPECT_EQ(set(CLI_DHCP_TRAP), ACL_OK);
    EXPECT_EQ(testCfgLines(), line);
    aclDelIpAddrFromIFM(PORT_3_1, 0x0A000001);
}
