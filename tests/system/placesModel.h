// What every card of a small chassis is to hold, worked out anew from what has been told: members,
// addresses, protocols, bindings. Nothing is remembered of how it came to be so, and nothing of the
// manager's code is used but the names of numbers.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/api/zekChassis.h"

// A card's contents, an item a line: "A in 1/0: 10 permit 10.0.0.1", "trap 1/0 ...".
typedef std::multiset<std::string> cardContents;

struct modelEntry {
    std::string match;  // as a card shows it
    bool v6 = false;
    bool option = false;    // one that cards of type 1 do not know
    bool ofAddress = true;  // an address's and a protocol's are two, however alike they look
    auto operator<=>(const modelEntry&) const = default;
};

// A protocol, what is trapped for it, and the record with which its task enables it.
struct modelProtocol {
    uint32_t id, cpus;
    std::vector<std::string> traps;
    bool hasEntry;
    // Of the record: 16 is an IPv6 one.
    uint32_t protocol = 0, port = 0, option = 0, lda = 0;
    std::string address = "0.0.0.0";
    bool virtualMac = false;  // its record may carry one, which is trapped instead
};
inline const std::vector<modelProtocol> modelProtocols = {
    {4, 2, {"01:00:5e:00:00:05", "01:00:5e:00:00:06"}, true, 89, 0, 0, 1, "224.0.0.5"},
    {5,
     2,
     {"09:00:2b:00:00:04", "09:00:2b:00:00:05", "01:80:c2:00:00:14", "01:80:c2:00:00:15"},
     false},
    {7, 2, {}, true, 6, 179, 0, 0, "10.0.0.1"},
    {8, 2, {"01:00:5e:00:00:09"}, false, 17, 520},
    {20480, 4, {"01:00:5e:00:00:12"}, false, 112, 0, 0, 1, "224.0.0.18", true},
    {20481, 4, {"01:00:5e:00:00:02"}, false, 17, 1985, 0, 0, "224.0.0.2", true},
    {20482, 1, {"01:00:5e:00:01:01"}, true, 17, 123, 0, 0, "224.0.1.1"},
    {20483, 4, {"01:00:5e:00:00:00"}, false, 103, 0, 0, 0, "224.0.0.13"},
    {20484, 4, {"01:00:5e:00:00:00"}, false, 2, 0, 0, 0, "224.0.0.22"},
    {20485, 1, {"01:00:0c:cc:cc:cc"}, false},
    {20486, 1, {}, true, 2, 0, 3, 0, "224.0.0.22"},
    {20487, 2, {"33:33:00:00:00:05", "33:33:00:00:00:06"}, true, 16, 0, 0, 0, "ff02::5"},
    {20488, 4, {"33:33:00:00:00:00"}, true, 16, 0, 0, 0, "ff02::d"},
    {20489, 1, {}, true, 16, 0, 0, 0, "ff02::16"},
    {65534, 1, {}, true, 47, 0, 0, 0, "10.9.9.9"},
    {4711, 1, {}, true, 6, 4711, 0, 0, "10.9.9.8"},
};
const modelProtocol& modelProtocolOf(uint32_t id);
constexpr uint32_t MODEL_RIP = 8, MODEL_SNOOPING = 20486, MODEL_V6_RECORD = 16;

struct placesModel {
    const chassisDescription& chassis;
    std::set<uint32_t> ports;
    std::map<uint32_t, std::vector<uint32_t>> lags;
    std::map<uint32_t, std::set<uint32_t>> vlans;  // ports and LAGs
    std::map<uint32_t, std::set<std::string>> addresses;
    std::map<uint32_t, uint32_t> groupIds, modes;
    // By the place, the protocol and the last byte of the virtual MAC (0: none); how many users.
    std::map<uint32_t, std::map<std::pair<uint32_t, uint32_t>, uint32_t>> protocols;
    struct binding {
        uint32_t place;
        bool v6, out;
        auto operator<=>(const binding&) const = default;
    };
    std::map<binding, std::string> bound;
    std::map<std::string, std::map<uint32_t, std::string>> lists;  // number, host
    bool dhcp = false;

    explicit placesModel(const chassisDescription& description) : chassis(description) {}

    static bool isLag(uint32_t place) { return ifindexType(place) == IF_TYPE_LAG; }
    static bool isVlan(uint32_t place) { return ifindexType(place) == IF_TYPE_VLAN; }
    std::string name(uint32_t place) const { return chassisIfName(chassis, place); }

    uint32_t lagOf(uint32_t port) const;
    // The ports behind a place, and the places that a port is behind.
    std::set<uint32_t> portsOf(uint32_t place) const;
    std::set<uint32_t> placesOf(uint32_t port) const;
    // The interface is no more, nor is anything on it.
    void forget(uint32_t place);

    cardContents expected(uint32_t slot) const;

  private:
    std::vector<modelEntry> entriesOf(const std::string& address) const;
    void addBound(uint32_t slot, cardContents* out) const;
    void addSystem(uint32_t slot, cardContents* out) const;
    void addTraps(uint32_t slot, cardContents* out) const;
    void addMembers(uint32_t slot, cardContents* out) const;
};
