#include "tests/system/placesModel.h"

#include <algorithm>

namespace {

std::string matchText(uint32_t protocol, const std::string& address, const std::string& rest = "") {
    return std::to_string(protocol) + " to " + address + rest;
}
std::string portText(const char* which, uint32_t port) {
    return port != 0 ? std::string(" ") + which + " " + std::to_string(port) : "";
}

// The entry that an enable's record asks for at a place.
modelEntry entryOf(const modelProtocol& p, uint32_t place) {
    // What an IPv6 record matches beside its address is left to the manager.
    if (p.protocol == MODEL_V6_RECORD) return {"to " + p.address, true, false, false};
    std::string rest = portText("dst", p.port);
    if (p.id == MODEL_SNOOPING && placesModel::isVlan(place))
        rest += " vlan " + std::to_string(ifindexPort(place));
    return {matchText(p.protocol, p.address, rest), false, false, false};
}
std::string virtualMac(uint32_t id, uint32_t last) {
    constexpr char digits[] = "0123456789abcdef";
    return std::string(id == 20480 ? "00:00:5e:00:01:" : "00:00:0c:07:ac:") +
           digits[last >> 4 & 15] + digits[last & 15];
}

}  // namespace

const modelProtocol& modelProtocolOf(uint32_t id) {
    return *std::ranges::find(modelProtocols, id, &modelProtocol::id);
}

uint32_t placesModel::lagOf(uint32_t port) const {
    for (const auto& [lag, members] : lags)
        if (std::ranges::count(members, port) != 0) return lag;
    return 0;
}
std::set<uint32_t> placesModel::portsOf(uint32_t place) const {
    std::set<uint32_t> all;
    if (isLag(place)) {
        if (auto lag = lags.find(place); lag != lags.end())
            all.insert(lag->second.begin(), lag->second.end());
    } else if (isVlan(place)) {
        if (auto vlan = vlans.find(place); vlan != vlans.end())
            for (uint32_t member : vlan->second) all.merge(portsOf(member));
    } else {
        all.insert(place);
    }
    return all;
}
std::set<uint32_t> placesModel::placesOf(uint32_t port) const {
    std::set<uint32_t> all{port};
    if (uint32_t lag = lagOf(port); lag != 0) all.insert(lag);
    for (const auto& [vlan, members] : vlans)
        if (portsOf(vlan).contains(port)) all.insert(vlan);
    return all;
}

void placesModel::forget(uint32_t place) {
    lags.erase(place);
    vlans.erase(place);
    for (auto& [lag, members] : lags) std::erase(members, place);
    for (auto& [vlan, members] : vlans) members.erase(place);
    addresses.erase(place);
    groupIds.erase(place);
    modes.erase(place);
    protocols.erase(place);
    std::erase_if(bound, [place](const auto& b) { return b.first.place == place; });
}

// Eight steps for an IPv4 address; for an IPv6 one BGP, PIM, OSPF and its neighbours.
std::vector<modelEntry> placesModel::entriesOf(const std::string& address) const {
    std::vector<modelEntry> all;
    const bool v6 = address.find(':') != address.npos;
    auto add = [&](uint32_t protocol, const std::string& rest = "", bool option = false) {
        all.push_back({matchText(protocol, address, rest), v6, option});
    };
    auto pair = [&](uint32_t port, bool option = false) {
        add(6, portText("dst", port), option);
        add(6, portText("src", port), option);
    };
    pair(179);
    add(103);
    if (v6) {
        add(89);
        add(58, " type 135");
        add(58, " type 136");
        return all;
    }
    if (dhcp) add(17, portText("dst", 67));
    pair(639);
    add(2);
    pair(179, true);
    add(46);
    add(4, " literally");
    return all;
}

void placesModel::addSystem(uint32_t slot, cardContents* out) const {
    auto line = [](const std::string& where, const modelEntry& e) {
        return (e.v6 ? "system6 " : "system ") + where + ": " + e.match;
    };
    const auto card = std::ranges::find(chassis.cards, slot, &chassisCard::slot);
    // Once for each address, on however many interfaces it is; a VLAN without members has no use
    // for its own.
    std::set<std::string> inUse;
    for (const auto& [place, set] : addresses)
        if (!isVlan(place) || (vlans.contains(place) && !vlans.at(place).empty()))
            inUse.insert(set.begin(), set.end());
    for (const std::string& address : inUse)
        for (const modelEntry& e : entriesOf(address))
            if (!e.option || card->type != 1) out->insert(line("card", e));

    for (uint32_t port : ports) {
        if (ifindexSlot(port) != static_cast<int>(slot)) continue;
        std::set<modelEntry> entries;
        for (uint32_t place : placesOf(port)) {
            if (auto found = protocols.find(place); found != protocols.end())
                for (const auto& [key, users] : found->second)
                    if (modelProtocolOf(key.first).hasEntry)
                        entries.insert(entryOf(modelProtocolOf(key.first), place));
            if (place == port || !addresses.contains(place)) continue;
            for (const std::string& address : addresses.at(place))
                for (const modelEntry& e : entriesOf(address)) entries.insert(e);
        }
        for (const modelEntry& e : entries)
            if (!e.option || card->type != 1) out->insert(line(name(port), e));
    }
}

void placesModel::addBound(uint32_t slot, cardContents* out) const {
    for (const auto& [b, list] : bound) {
        std::set<std::string> places;
        for (uint32_t port : portsOf(b.place)) {
            if (ifindexSlot(port) != static_cast<int>(slot)) continue;
            if (isVlan(b.place)) places.insert(name(b.place));
            // A port's own list goes before that of its LAG.
            else if (port == b.place || !bound.contains({port, b.v6, b.out}))
                places.insert(name(port));
        }
        for (const std::string& place : places) {
            const std::string at = list + (b.out ? " out " : " in ") + place;
            out->insert(at);
            for (const auto& [number, host] : lists.at(list))
                out->insert(at + ": " + std::to_string(number) + " " + host);
        }
    }
}

void placesModel::addTraps(uint32_t slot, cardContents* out) const {
    std::set<std::string> all;  // who asks twice gets it once
    auto add = [&](uint32_t ifindex, uint32_t place) {
        auto found = protocols.find(place);
        if (found == protocols.end()) return;
        for (const auto& [key, users] : found->second) {
            const modelProtocol& p = modelProtocolOf(key.first);
            const auto mode = modes.find(ifindex);
            const std::string rest =
                " cpus " + std::to_string(p.cpus) + " lda " + std::to_string(p.lda) + " mode " +
                std::to_string(mode != modes.end() ? mode->second : 0) + " vlan " +
                std::to_string(isVlan(ifindex) ? ifindexPort(ifindex) : 0);
            std::vector<std::string> macs = p.traps;
            if (key.second != 0) macs = {virtualMac(key.first, key.second)};
            for (const std::string& mac : macs)
                all.insert("trap " + name(ifindex) + " " + mac + rest);
        }
    };
    for (uint32_t port : ports)
        if (ifindexSlot(port) == static_cast<int>(slot))
            for (uint32_t place : placesOf(port)) add(isVlan(place) ? place : port, place);
    out->insert(all.begin(), all.end());
}

void placesModel::addMembers(uint32_t slot, cardContents* out) const {
    for (const auto& [place, group] : groupIds)
        for (uint32_t port : portsOf(place))
            if (ifindexSlot(port) == static_cast<int>(slot))
                out->insert("member " + name(port) + " vlan " +
                            std::to_string(isVlan(place) ? ifindexPort(place) : 0) + " group " +
                            std::to_string(group));
}

cardContents placesModel::expected(uint32_t slot) const {
    cardContents out;
    addBound(slot, &out);
    addSystem(slot, &out);
    addTraps(slot, &out);
    addMembers(slot, &out);
    return out;
}
