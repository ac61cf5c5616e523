// Whatever has been told and configured in whatever order, what a card holds of it is what a replay
// brings: to the byte, and with everything that a record of a protocol or a binding may say.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <thread>

#include "tests/system/placesChassis.h"

namespace {

struct anyChassis : placesChassis {
    std::deque<std::string> told;
    std::string lines;  // of configuration, not loaded yet

    anyChassis(uint32_t s, uint32_t chassisMode) : placesChassis(s, chassisMode) {
        for (uint32_t slot = 1; slot <= CARDS; slot++)
            EXPECT_TRUE(startAgent(static_cast<int>(slot)));
    }
    void note(const std::string& what) {
        told.push_back(what);
        if (told.size() > 200) told.pop_front();
    }
    // Lines may be refused: what follows from those that are not is what counts.
    void configure() {
        if (lines.empty()) return;
        settle();
        (void)shell({"-f", "-"}, lines);
        lines.clear();
    }

    // Nothing waits in a queue to a card.
    bool quiet() const {
        std::string text;
        if (zekDebugCall(dir, 0, "queues", "", PATIENCE_MS, &text) != 0) return false;
        const json queues = json::parse(text, nullptr, false);
        return queues.is_array() && std::ranges::all_of(queues, [](const json& q) {
                   const std::string peer = q.value("peer", "");
                   return !peer.starts_with("ACL_AGENT") && !peer.starts_with("MAC_AGENT")
                              ? true
                              : q["backlog"] == 0;
               });
    }
    std::optional<cardContents> contents(int slot, uint64_t replaysAbove) {
        std::optional<cardContents> held;
        EXPECT_TRUE(waitUntil([&] {
            agentStateReq request{};
            request.what = AGENT_STATE_SUMMARY;
            const std::optional<json> summary = reader.ask(slot, request);
            if (!summary || (*summary)["state"] != "in step" || !quiet()) return false;
            if ((*summary)["replays"].get<uint64_t>() <= replaysAbove) return false;
            held = reader.read(slot, true);
            return held.has_value();
        })) << client.agentSummary(slot);
        return held;
    }
    bool replaysBringTheSame(uint32_t step) {
        settle();
        bool same = true;
        for (int slot = 1; slot <= static_cast<int>(CARDS) && same; slot++) {
            const auto before = contents(slot, 0);
            const uint64_t replays = ::number(client.agentSummary(slot), "replays");
            show("chassis card " + std::to_string(slot) + " down");
            const auto after = contents(slot, replays);
            same = before && after && *before == *after;
            if (same) continue;
            std::string text;
            for (auto [from, to, sign] :
                 {std::tuple(&before, &after, "- "), {&after, &before, "+ "}}) {
                std::vector<std::string> lost;
                if (*from && *to)
                    std::ranges::set_difference(**from, **to, std::back_inserter(lost));
                for (const std::string& line : lost) text += sign + line + "\n";
            }
            for (const std::string& what : told) text += "  " + what + "\n";
            text += show("show protocols") + show("show vlan") + show("show port-channel");
            ADD_FAILURE() << "ACL_PLACE_SEED=" << seed << ", step " << step << ", card " << slot
                          << ": gone with the replay (-), come with it (+)\n"
                          << text;
        }
        return same;
    }
};
typedef anyChassis fx;

void tellMember(fx& t) {
    const bool lag = t.below(3) == 0, join = t.below(5) < 3;
    const uint32_t place = t.anyOf(lag ? t.lags : t.vlans),
                   member = t.anyOf(lag ? t.ports : t.members);
    t.note((join ? "join " : "leave ") + t.name(member) + " " + t.name(place));
    if (lag)
        t.event(join ? IFM_SVC_ADD_LAG_PORT : IFM_SVC_DEL_LAG_PORT, {place, member});
    else
        t.event(join ? IFM_TYP_ADD_VLAN_PORT : IFM_TYP_DEL_VLAN_PORT, {member, place});
}

void tellPlace(fx& t) {
    const uint32_t place = t.anyOf(t.places);
    static const std::vector<std::string> pool = {"10.0.0.1", "10.0.0.2", "2001:db8::1"};
    const std::string& address = t.anyOf(pool);
    const bool add = t.below(5) < 3;
    switch (t.below(8)) {
        case 0:
            t.note("gone " + t.name(place));
            return t.event(IFM_SVC_DEL_IF, {place});
        case 1:
            t.note("mode " + t.name(place));
            return t.event(IFM_SVC_PORT_MODE, {place, t.below(3)});
        case 2: {
            const uint32_t of = t.anyOf(t.below(2) == 0 ? t.lags : t.vlans);
            t.note("group " + t.name(of));
            return t.tellGroup(of, t.below(4), add);
        }
        case 3:
            t.note("dhcp");
            (void)t.cli(add ? CLI_DHCP_TRAP : CLI_DHCP_NO_TRAP);
            return;
        default:
            t.note((add ? "address " : "no address ") + address + " " + t.name(place));
            t.tellAddress(place, address, add);
    }
}

// Every field is one of a few values, so that records meet that differ in one of them only.
void tellProtocol(fx& t) {
    static const std::vector<uint32_t> ids = {4,     5,     7,     8,     20480, 20481,
                                              20482, 20483, 20484, 20485, 20486, 20487,
                                              20488, 20489, 65534, 9},
                                       addresses = {0, 0x0A000001, 0xE0000005, 0xE0000012},
                                       ports = {0, 179, 520};
    static const std::vector<uint8_t> protocols = {0, 4, 6, 16, 17, 89};
    protRecord record{};
    record.name = listNameMake("Global Acl");
    record.ifindex = t.anyOf(t.places);
    record.id = t.anyOf(ids);
    if (t.below(2) == 0) record.vmac[2] = 1 + t.below(2);
    record.lda = static_cast<uint8_t>(t.below(2));
    record.protocol = t.anyOf(protocols);
    be32 address;
    address = t.anyOf(addresses);
    std::memcpy(record.address, address.b, sizeof address);
    if (t.below(2) == 0) std::memset(record.mask, 0xFF, t.below(2) == 0 ? 4 : 16);
    record.port = t.anyOf(ports);
    record.option = t.below(3) == 0 ? 32 : 0;
    const bool enable = t.below(5) < 3;
    t.note((enable ? "enable " : "disable ") + std::to_string(record.id) + " " +
           t.name(record.ifindex) + " " + agentHexText(agentImageBytes(record, 148, 208)));
    t.tellProtocol(record, enable);
}

void configureLine(fx& t) {
    static const std::vector<std::string> bindings = {"ip access-group A in",
                                                      "ip access-group A out",
                                                      "ip access-group B in",
                                                      "ip access-group B out implicit-permit",
                                                      "ipv6 access-group SIX in",
                                                      "ipv6 access-group SIX out",
                                                      "mac access-group M in",
                                                      "mac access-group M out",
                                                      "ip source-guard 10.3.0.1 02:00:00:00:00:01"};
    static const std::vector<std::string> others = {
        "ip access-list standard A\n permit host 10.4.0.",
        "ip access-list extended E\n permit tcp any any eq ",
        "ipv6 access-list SIX\n permit tcp any any eq ",
        "mac access-list standard M\n permit 02:00:00:00:00:02 00:00:00:00:00:0"};
    const uint32_t place = t.anyOf(t.places);
    std::string line;
    switch (t.below(6)) {
        case 0:
            line = t.anyOf(others) + std::to_string(1 + t.below(9)) + "\n";
            break;
        case 1:
            line = t.below(2) == 0 ? "no ip access-list standard B\n"
                                   : "ip access-list standard B\n permit any\n";
            break;
        case 2:
            line = std::string("acl-vlan-group G\n member vlan 10,40\n ") +
                   (t.below(2) == 0 ? "no " : "") + "ip access-group A out\n";
            break;
        default:
            line = "interface " + t.name(place) + "\n " + (t.below(3) == 0 ? "no " : "") +
                   t.anyOf(bindings) + "\n";
    }
    std::string text = line;
    std::ranges::replace(text, '\n', ' ');
    t.note(text);
    t.lines += line;
    t.configure();
}

void anyStep(fx& t) {
    constexpr void (*steps[])(fx&) = {tellMember, tellMember,   tellMember,   tellPlace,
                                      tellPlace,  tellProtocol, tellProtocol, configureLine};
    steps[t.below(std::size(steps))](t);
}

}  // namespace

// In a chassis whose cards know ACL VLAN groups (7), and in another.
TEST(Places, AReplayBringsWhatWasThere) {
    const uint32_t count = fromEnvironment("ACL_PLACE_STEPS", 600);
    for (uint32_t mode : {1u, 7u}) {
        anyChassis chassis(fromEnvironment("ACL_PLACE_SEED", 1), mode);
        chassis.load(
            "ip access-list standard A\n permit host 10.4.0.1\nmac access-list standard M\n"
            " permit any\nipv6 access-list SIX\n permit ipv6 any any\n");
        for (uint32_t step = 1; step <= count / 4; step++) {
            anyStep(chassis);
            if (step % 30 == 0 && !chassis.replaysBringTheSame(step)) return;
        }
    }
}

// Histories that chance finds late.
TEST(Places, AReplayBringsWhatWasThereOfWhatIsAlike) {
    anyChassis chassis(1, 1);
    const uint32_t lag = chassis.lags[0], vlan = chassis.vlans[0], other = chassis.vlans[1];
    const uint32_t first = chassis.ports[0], second = chassis.ports[1];
    auto tell = [&](uint32_t id, uint32_t place, uint32_t port, bool enable) {
        protRecord record{};
        record.ifindex = place;
        record.id = id;
        record.protocol = 4;
        record.port = port;
        chassis.tellProtocol(record, enable);
    };
    // A list of another family does not keep the LAG's from its port.
    chassis.load(
        "ip access-list standard A\n permit any\nmac access-list standard M\n permit any\n"
        "interface 1/0\n ip access-group A in\n"
        "interface port-channel 1\n mac access-group M in\n");
    chassis.event(IFM_SVC_ADD_LAG_PORT, {lag, first});
    // Two entries that differ in what no card is sent: one goes, the other stays.
    chassis.event(IFM_TYP_ADD_VLAN_PORT, {second, vlan});
    tell(9, vlan, 179, true);
    tell(9, second, 520, true);
    tell(9, vlan, 179, false);
    // The same twice for a port that holds nothing yet.
    tell(9, other, 0, true);
    tell(65534, other, 0, true);
    chassis.event(IFM_TYP_ADD_VLAN_PORT, {chassis.ports[2], other});
    // A group that gets the id 0 has none.
    chassis.event(IFM_SVC_ADD_VLAN_MGID, {vlan, 7, 0, 0});
    chassis.event(IFM_SVC_ADD_VLAN_MGID, {vlan, 0, 0, 0});
    EXPECT_TRUE(chassis.replaysBringTheSame(0));
}
