// The chassis description, chassis.json: slots, cards, ports, addresses and which task lives where.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "include/ifindex.h"

struct chassisPort {
    std::string name;   // as the operator writes it: "1/0"
    uint32_t userPort;  // 0-126; stands in bits 18-24 of the interface index, plus one
    uint32_t port;      // the card's internal port id
    uint32_t pipe;      // forwarding pipe
};
struct chassisCard {
    uint32_t slot;     // 0-19
    uint32_t address;  // of its agents
    uint32_t type;
    bool egress, ipv6, ipv6Egress;
    std::vector<chassisPort> ports;
};
struct chassisTask {
    uint32_t application, instance, address;
};
struct chassisRp {
    uint32_t address;
    bool primary;
};
struct chassisDescription {
    uint32_t chassisMode, routeProcessorType;
    std::vector<chassisRp> routeProcessors;  // 1 or 2
    std::vector<chassisTask> tasks;
    std::vector<chassisCard> cards;
    std::vector<uint32_t> lags, vlans;  // ids, 1-4094
};

// Reads a description. False and *error "FILE:LINE: what is wrong" on anything unknown, missing,
// out of range or named twice.
bool zekChassisLoad(const std::string& file, chassisDescription* chassis, std::string* error);

// Interface names and indexes. Ports are what the description calls them, LAGs "port-channel N",
// VLANs "vlan N", the control processor "control-plane". An index in hexadecimal is a name as well:
// it need not be in the description.
std::string chassisIfName(const chassisDescription& chassis, uint32_t ifindex);  // "" when unknown
std::string chassisIndexText(uint32_t ifindex);                                  // "0x10040001"
bool chassisIndexParse(std::string_view text, uint32_t* ifindex);
bool chassisIfIndex(const chassisDescription& chassis, std::string_view name, uint32_t* ifindex);
// Card address of an application's instance (agents: of a slot's card); all ones when unknown.
uint32_t chassisAddress(const chassisDescription& chassis, uint32_t app, uint32_t instance);
// The route processor that is primary now: what chassisd has written into the run folder, else the
// description's. Reads a file.
uint32_t chassisPrimaryRp(const chassisDescription& chassis, const std::string& runDir);
std::string addressText(uint32_t address);
bool addressParse(std::string_view text, uint32_t* address);
