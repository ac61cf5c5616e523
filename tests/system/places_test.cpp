// Members, addresses, protocols and bindings come and go at random, agents and cards too, and what
// the cards hold is at any time what a model of the whole says.
#include <arpa/inet.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <thread>

#include "tests/system/placesChassis.h"

namespace {

enum class agentIs { there, standing, gone };

struct modelChassis : placesChassis {
    placesModel model{description};
    std::map<int, agentIs> is;
    std::deque<std::string> told;

    explicit modelChassis(uint32_t s) : placesChassis(s) {
        model.ports = {ports.begin(), ports.end()};
        for (uint32_t slot = 1; slot <= CARDS; slot++) start(static_cast<int>(slot));
    }
    void start(int slot) {
        EXPECT_TRUE(startAgent(slot));
        is[slot] = agentIs::there;
    }
    void note(const std::string& what) {
        told.push_back(what);
        if (told.size() > 25) told.pop_front();
    }

    void joinVlan(uint32_t vlan, uint32_t member) {
        event(IFM_TYP_ADD_VLAN_PORT, {member, vlan});
        model.vlans[vlan].insert(member);
    }
    void leaveVlan(uint32_t vlan, uint32_t member) {
        event(IFM_TYP_DEL_VLAN_PORT, {member, vlan});
        model.vlans[vlan].erase(member);
    }
    void joinLag(uint32_t lag, uint32_t port) {
        event(IFM_SVC_ADD_LAG_PORT, {lag, port});
        if (model.lagOf(port) == 0) model.lags[lag].push_back(port);
    }
    void leaveLag(uint32_t lag, uint32_t port) {
        event(IFM_SVC_DEL_LAG_PORT, {lag, port});
        std::erase(model.lags[lag], port);
    }
    static protRecord recordOf(const modelProtocol& p, uint32_t place, uint32_t mac) {
        protRecord record{};
        record.name = listNameMake(p.protocol == MODEL_V6_RECORD ? "v6 Global Acl" : "Global Acl");
        record.ifindex = place;
        record.id = p.id;
        record.lda = static_cast<uint8_t>(p.lda);
        record.protocol = static_cast<uint8_t>(p.protocol);
        record.port = p.port;
        record.option = p.option;
        const bool v6 = p.protocol == MODEL_V6_RECORD;
        inet_pton(v6 ? AF_INET6 : AF_INET, p.address.c_str(), record.address);
        std::memset(record.mask, 0xFF, v6 ? 16 : 4);
        if (mac == 0) return record;
        const uint32_t words[] = {0, p.id == 20480 ? 0x5e00u : 0x0c07u,
                                  (p.id == 20480 ? 0x100u : 0xac00u) + mac};
        std::copy(std::begin(words), std::end(words), record.vmac);
        return record;
    }
    // To a manager that has started again: what its neighbours know.
    void tellAll() {
        session += 2;
        number = vrrpNumber = 0;
        for (const auto& [lag, all] : model.lags)
            for (uint32_t port : all) event(IFM_SVC_ADD_LAG_PORT, {lag, port});
        for (const auto& [vlan, all] : model.vlans)
            for (uint32_t member : all) event(IFM_TYP_ADD_VLAN_PORT, {member, vlan});
        for (const auto& [place, all] : model.addresses)
            for (const std::string& address : all) tellAddress(place, address, true);
        for (const auto& [place, group] : model.groupIds) tellGroup(place, group, true);
        for (const auto& [port, mode] : model.modes) event(IFM_SVC_PORT_MODE, {port, mode});
        for (const auto& [place, all] : model.protocols)
            for (const auto& [key, users] : all)
                for (uint32_t i = 0; i < users; i++)
                    tellProtocol(recordOf(modelProtocolOf(key.first), place, key.second), true);
        flush();
        post(std::vector<uint8_t>(sizeof(ifmEventMsg)), MT_IFM_EVT_NOTIF, session, &number);
    }

    // --- the comparison ---

    static std::string difference(const cardContents& a, const cardContents& b, const char* sign) {
        std::vector<std::string> lines;
        std::ranges::set_difference(a, b, std::back_inserter(lines));
        std::string text;
        for (size_t i = 0; i < std::min<size_t>(lines.size(), 20); i++)
            text += sign + lines[i] + "\n";
        return text;
    }
    // False when a card does not come to hold what it is to hold.
    bool expectCards(uint32_t step) {
        settle();
        for (const auto& [slot, state] : is) {
            if (state != agentIs::there) continue;
            const cardContents meant = model.expected(static_cast<uint32_t>(slot));
            std::optional<cardContents> held;
            const auto end =
                std::chrono::steady_clock::now() + std::chrono::milliseconds(PATIENCE_MS);
            while ((held = reader.read(slot)) != meant && std::chrono::steady_clock::now() < end)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (held == meant) continue;
            std::string last;
            for (const std::string& what : told) last += "  " + what + "\n";
            ADD_FAILURE() << "ACL_PLACE_SEED=" << seed << ", step " << step << ", card " << slot
                          << (held ? "" : " is not in step") << "\n"
                          << difference(meant, held.value_or(meant), "- ")
                          << difference(held.value_or(meant), meant, "+ ") << "after\n"
                          << last << client.agentSummary(slot);
            return false;
        }
        return true;
    }
};

// --- steps ---------------------------------------------------------------------------------------

typedef modelChassis fx;

void stepVlanMember(fx& t) {
    const uint32_t vlan = t.anyOf(t.vlans), member = t.anyOf(t.members);
    std::set<uint32_t>& in = t.model.vlans[vlan];
    const std::string both = t.name(member) + " " + t.name(vlan);
    switch (t.below(8)) {
        case 0:  // several at once
        {
            std::vector<uint32_t> words{vlan, 2, member, t.anyOf(t.members)};
            t.note("43 join " + both + " and " + t.name(words[3]));
            t.event(IFM_SVC_ADD_VLAN_PORTS, words);
            in.insert({words[2], words[3]});
            break;
        }
        case 1: {  // these, or everybody
            std::vector<uint32_t> gone{member, t.anyOf(t.members)};
            if (t.below(2) == 0) gone = {in.begin(), in.end()};
            t.note("10873 leave " + t.name(vlan) + ": " + std::to_string(gone.size()) + " with " +
                   t.name(member));
            t.list(MT_IFM_PORTS_LEAVE, vlan, gone);
            for (uint32_t who : gone) in.erase(who);
            break;
        }
        case 2: {  // the VLANs of a port are exactly these
            std::vector<uint32_t> these;
            for (uint32_t v : t.vlans) {
                if (t.below(2) == 0) these.push_back(v);
                t.model.vlans[v].erase(member);
            }
            for (uint32_t v : these) t.model.vlans[v].insert(member);
            t.note("10878 " + t.name(member) + " in " + std::to_string(these.size()));
            t.list(MT_IFM_PORTVL_EVT_NOTIF, member, these);
            break;
        }
        case 3:
        case 4:
            t.note("leave " + both);
            t.leaveVlan(vlan, member);
            break;
        default:
            t.note("join " + both);
            t.joinVlan(vlan, member);
    }
}

void stepLagMember(fx& t) {
    const uint32_t port = t.anyOf(t.ports), now = t.model.lagOf(port);
    if (now != 0 && t.below(3) != 0) {
        t.note("leave " + t.name(port) + " " + t.name(now));
        return t.leaveLag(now, port);
    }
    // Now and then one that is a member already.
    const uint32_t lag = now != 0 ? now : t.anyOf(t.lags);
    t.note("join " + t.name(port) + " " + t.name(lag));
    t.joinLag(lag, port);
}

void stepAddress(fx& t) {
    static const std::vector<std::string> pool = {"10.0.0.1", "10.0.0.2",    "10.0.0.3",
                                                  "10.0.0.4", "2001:db8::1", "2001:db8::2"};
    const uint32_t place = t.anyOf(t.places);
    const std::string& address = t.anyOf(pool);
    const bool add = t.below(5) < 3;
    t.note((add ? "address " : "no address ") + address + " " + t.name(place));
    t.tellAddress(place, address, add);
    if (add)
        t.model.addresses[place].insert(address);
    else
        t.model.addresses[place].erase(address);
}

void stepGroupOrMode(fx& t) {
    if (t.below(2) == 0) {
        const uint32_t port = t.anyOf(t.ports), mode = t.below(4);
        t.note("mode " + std::to_string(mode) + " " + t.name(port));
        t.event(IFM_SVC_PORT_MODE, {port, mode});
        t.model.modes[port] = mode;
        return;
    }
    const uint32_t place = t.anyOf(t.below(2) == 0 ? t.lags : t.vlans), group = 1 + t.below(40);
    const bool add = t.below(3) != 0;
    t.note((add ? "group " + std::to_string(group) : "no group") + " " + t.name(place));
    t.tellGroup(place, group, add);
    if (add)
        t.model.groupIds[place] = group;
    else
        t.model.groupIds.erase(place);
}

void stepProtocol(fx& t) {
    const modelProtocol& p = t.anyOf(modelProtocols);
    const uint32_t place = t.anyOf(t.places);
    const uint32_t mac = p.virtualMac && t.below(3) != 0 ? 1 + t.below(3) : 0;
    const bool enable = t.below(5) < 3;
    t.note((enable ? "enable " : "disable ") + std::to_string(p.id) + " mac " +
           std::to_string(mac) + " " + t.name(place));
    t.tellProtocol(t.recordOf(p, place, mac), enable);
    auto& on = t.model.protocols[place];
    uint32_t& users = on[{p.id, mac}];
    if (enable)
        users = p.id == MODEL_RIP ? users + 1 : 1;
    else
        users -= users != 0 ? 1 : 0;
    if (users == 0) on.erase({p.id, mac});
}

void stepBinding(fx& t) {
    const placesModel::binding b{t.anyOf(t.places), t.below(3) == 0, t.below(2) == 0};
    const bool isBound = t.model.bound.contains(b);
    std::string list = isBound ? t.model.bound[b] : b.v6 ? "SIX" : t.below(2) == 0 ? "A" : "B";
    const bool refused = !isBound && t.model.lagOf(b.place) != 0;
    const std::string line = std::string(isBound ? " no " : " ") + (b.v6 ? "ipv6" : "ip") +
                             " access-group " + list + (b.out ? " out" : " in");
    t.note(t.name(b.place) + line);
    t.settle();
    const commandResult result =
        t.shell({"-f", "-"}, "interface " + t.name(b.place) + "\n" + line + "\n");
    EXPECT_EQ(result.status, refused ? 1 : 0) << t.name(b.place) << line << "\n" << result.err;
    if (isBound)
        t.model.bound.erase(b);
    else if (!refused)
        t.model.bound[b] = list;
}

void stepEntry(fx& t) {
    const std::string list = t.anyOf(std::vector<std::string>{"A", "B", "SIX"});
    const bool v6 = list == "SIX";
    const uint32_t number = 10 * (1 + t.below(25));
    const std::string host = (v6 ? "2001:db8:1::" : "10.1.0.") + std::to_string(number);
    const std::string rule = v6 ? " permit ipv6 " + host + "/128 any" : " permit host " + host;
    const bool there = t.model.lists[list].erase(number) != 0;
    if (!there) t.model.lists[list][number] = host;
    const std::string line =
        (there ? " no seq " : " seq ") + std::to_string(number) + (there ? "" : rule);
    t.note(list + line);
    t.load((v6 ? "ipv6 access-list SIX\n" : "ip access-list standard " + list + "\n") + line +
           "\n");
}

void stepAgent(fx& t) {
    const int slot = static_cast<int>(1 + t.below(CARDS));
    const std::string card = "card " + std::to_string(slot);
    agentIs& state = t.is[slot];
    if (state == agentIs::gone) {
        t.note(card + " starts");
        return t.start(slot);
    }
    if (state == agentIs::standing) {
        t.note(card + " goes on");
        t.agents[slot].go();
        state = agentIs::there;
        return;
    }
    switch (t.below(3)) {
        case 0:
            t.note(card + " ends");
            t.agents[slot].stop(SIGKILL);
            state = agentIs::gone;
            break;
        case 1:
            t.note(card + " stands");
            t.agents[slot].stand();
            state = agentIs::standing;
            break;
        default:
            t.note(card + " down");
            t.settle();
            t.show("chassis " + card + " down");
    }
}

void stepGone(fx& t) {
    const uint32_t place = t.anyOf(t.places);
    t.note("gone " + t.name(place));
    t.event(IFM_SVC_DEL_IF, {place});
    t.model.forget(place);
}
void stepDhcp(fx& t) {
    t.model.dhcp = !t.model.dhcp;
    t.note(t.model.dhcp ? "dhcp" : "no dhcp");
    EXPECT_EQ(t.cli(t.model.dhcp ? CLI_DHCP_TRAP : CLI_DHCP_NO_TRAP), 0u);
}
void stepManager(fx& t) {
    t.note("the manager starts again");
    t.settle();
    EXPECT_TRUE(t.killAndRestart());
    t.tellAll();
}

constexpr struct {
    uint32_t weight;
    void (*run)(fx& t);
} steps[] = {{24, stepVlanMember}, {12, stepLagMember}, {18, stepAddress}, {8, stepGroupOrMode},
             {20, stepProtocol},   {10, stepBinding},   {5, stepEntry},    {6, stepAgent},
             {3, stepGone},        {1, stepDhcp},       {1, stepManager}};

void anyStep(fx& t) {
    uint32_t all = 0;
    for (const auto& step : steps) all += step.weight;
    uint32_t chosen = t.below(all);
    for (const auto& step : steps) {
        if (chosen < step.weight) return step.run(t);
        chosen -= step.weight;
    }
}

void makeLists(fx& t) {
    t.load(
        "ip access-list standard A\n seq 5 permit host 10.1.0.5\nip access-list standard B\n"
        " seq 5 permit host 10.1.0.6\nipv6 access-list SIX\n seq 5 permit ipv6 2001:db8:1::5/128 "
        "any\n");
    t.model.lists = {
        {"A", {{5, "10.1.0.5"}}}, {"B", {{5, "10.1.0.6"}}}, {"SIX", {{5, "2001:db8:1::5"}}}};
}

}  // namespace

// ACL_PLACE_STEPS of the environment says how many steps; ACL_PLACE_SEED which ones.
TEST(Places, CardsHoldWhatFollowsFromEverythingThatWasTold) {
    const uint32_t count = fromEnvironment("ACL_PLACE_STEPS", 600);
    modelChassis chassis(fromEnvironment("ACL_PLACE_SEED", 1));
    makeLists(chassis);
    ASSERT_TRUE(chassis.expectCards(0));
    for (uint32_t step = 1; step <= count && !testing::Test::HasFailure(); step++) {
        anyStep(chassis);
        if (step % 5 == 0 && !chassis.expectCards(step)) return;
    }
    for (auto& [slot, state] : chassis.is) {
        if (state == agentIs::standing) chassis.agents[slot].go();
        if (state == agentIs::gone) chassis.start(slot);
        state = agentIs::there;
    }
    chassis.expectCards(count);
}

TEST(Places, ALagOverThreeCardsStaysInStep) {
    modelChassis chassis(1);
    EXPECT_TRUE(chassis.startAgent(AGENT_CP));  // "installed" asks all agents
    makeLists(chassis);
    const uint32_t lag = chassis.lags[0];
    auto expectInStep = [&](const char* what) {
        EXPECT_TRUE(chassis.expectCards(0)) << what;
        // The operator's view of the same.
        std::vector<std::string> views{"show ip access-lists A installed",
                                       "show system-lists \"Global Acl\" installed"};
        for (uint32_t slot = 1; slot <= CARDS; slot++)
            views.push_back("show card " + std::to_string(slot) + " traps installed");
        for (const std::string& view : views)
            EXPECT_TRUE(waitUntil([&] {
                return chassis.shell({"-c", view}).status == 0;
            })) << what
                << chassis.shell({"-c", view}).out << chassis.shell({"-c", view}).err;
    };
    chassis.load("interface port-channel 1\n ip access-group A in\n");
    chassis.model.bound[{lag, false, false}] = "A";
    for (uint32_t port : {0u, PORTS, 2 * PORTS, 1u}) {
        chassis.joinLag(lag, chassis.ports[port]);
        expectInStep("join");
    }
    chassis.joinVlan(chassis.vlans[0], lag);
    chassis.tellAddress(lag, "10.0.0.1", true);
    chassis.tellAddress(chassis.vlans[0], "10.0.0.2", true);
    chassis.model.addresses = {{lag, {"10.0.0.1"}}, {chassis.vlans[0], {"10.0.0.2"}}};
    chassis.tellProtocol(chassis.recordOf(modelProtocolOf(4), lag, 0), true);
    chassis.model.protocols[lag][{4, 0}] = 1;
    expectInStep("addresses and a protocol");
    for (int slot = 1; slot <= static_cast<int>(CARDS); slot++) {
        chassis.settle();
        chassis.show("chassis card " + std::to_string(slot) + " down");
        expectInStep("a card down and up");
        chassis.agents[slot].stop(SIGKILL);
        chassis.is[slot] = agentIs::gone;
        chassis.leaveLag(lag, chassis.ports[(static_cast<uint32_t>(slot) - 1) * PORTS]);
        EXPECT_TRUE(chassis.expectCards(0));
        chassis.start(slot);
        expectInStep("left while its card was down");
    }
}
