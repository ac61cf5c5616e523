// The interface manager's own model: members of VLANs and LAGs, group ids, addresses, states and
// modes, by interface index. What becomes known is told to the access-list manager in records of
// event messages; the model can make all of them again.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "include/chassisControl.h"
#include "platform/api/zekChassis.h"

// What a task tells the manager of one thing, in the bytes that a message carries of it.
struct toldItem {
    bool removes;  // must reach a manager that may know better: it is kept until acknowledged
    std::vector<uint8_t> bytes;
    bool operator==(const toldItem&) const = default;
};
typedef std::vector<toldItem> toldItems;

struct ifmAddress {
    uint32_t family;  // 4 or 6
    std::array<uint8_t, 16> bytes;
    uint32_t length;
    bool operator==(const ifmAddress&) const = default;
};
struct ifmInterface {
    std::vector<uint32_t> members;      // of a LAG or VLAN, in the order in which they joined
    std::vector<ifmAddress> addresses;  // in the order added
    std::optional<uint32_t> group, state, mode;
    bool isKnown() const {
        return !members.empty() || !addresses.empty() || group || state || mode;
    }
};
struct ifmModel {
    std::map<uint32_t, ifmInterface> interfaces;  // those of which something is known
    size_t members = 0, addresses = 0;            // of all
};

// Whether the model may hold such an index: a port with its slot, a LAG or a VLAN.
[[nodiscard]] bool ifmIsInterface(uint32_t ifindex);
// An interface as an operator writes it, whether the chassis has it or not.
[[nodiscard]] std::string ifmName(const chassisDescription& chassis, uint32_t ifindex);

// Carries out a command of interfaces: the model's change, and what is to be told of it in *items
// (nothing: it was so already). False, and a sentence in *why, when it cannot be; the model is
// then not to be used any more, so give a copy.
bool ifmApply(const chassisDescription& chassis, std::span<const uint8_t> request, ifmModel* model,
              toldItems* items, std::string* why);
// The whole model in the order in which it can be understood: states, modes and group ids, members
// of LAGs, members of VLANs, addresses.
[[nodiscard]] toldItems ifmWhole(const ifmModel& model);

// An event message of as many of the first items as fit, which the caller addresses; *taken of
// them. Without items: what ends a replay.
constexpr size_t IFM_MESSAGE_MAX = 8192;
std::vector<uint8_t> ifmMessage(std::span<const toldItem> items, size_t* taken);
