// The control plane's protocols: which of them their tasks have enabled on which interface, and
// what they ask of the access-list manager.
#pragma once

#include "chassis/tasks/interfaces.h"
#include "include/protMsg.h"

struct protocolUse {
    uint32_t id;  // protocolId
    uint32_t ifindex;
    std::array<uint8_t, 6> vmac;  // all 0: none
    bool operator==(const protocolUse&) const = default;
};
struct protocolModel {
    std::vector<protocolUse> enabled;  // in the order in which they were
};

// VRRP speaks through a reliable queue of its own, the others by plain requests.
enum class protocolWay { requests, queue };

// A protocol's word, as the manager and the shell have it, "ospf"; null when there is no such
// protocol.
[[nodiscard]] const char* protocolName(uint32_t id);
[[nodiscard]] protocolWay protocolWayOf(uint32_t id);

// Carries out a command of protocols, as ifmApply does one of interfaces.
bool protocolApply(const chassisDescription& chassis, std::span<const uint8_t> request,
                   protocolModel* model, toldItems* items, std::string* why);
// The interface goes, and what is enabled there.
void protocolsLeave(uint32_t ifindex, protocolModel* model, toldItems* items);
// What is enabled, of the protocols that go this way.
[[nodiscard]] toldItems protocolsWhole(const protocolModel& model, protocolWay way);
// Those of the items that go this way. An item is the record of an enable or a disable.
[[nodiscard]] toldItems protocolItems(const toldItems& items, protocolWay way);

// The message of the first item.
std::vector<uint8_t> protocolRequest(std::span<const toldItem> items, size_t* taken);
std::vector<uint8_t> protocolMessage(std::span<const toldItem> items, size_t* taken);
