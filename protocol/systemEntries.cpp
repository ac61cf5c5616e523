// The entries of the system lists at ports: see systemEntries.h.
#include "protocol/systemEntries.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <unordered_set>

#include "ipacl/zekipaccess.h"
#include "protocol/AclIpAdd.h"
#include "protocol/zekprotocol.h"

namespace {

const listName globalName = listNameMake("Global Acl");
const listName globalName6 = listNameMake("v6 Global Acl");

// A trunk's port may hold thousands: they are looked up by their bytes, in place.
template <class Block>
std::string_view bytesOf(const Block& block) {
    return {reinterpret_cast<const char*>(&block), sizeof block};
}
template <class Block>
std::vector<Block> without(const std::vector<Block>& blocks, const std::vector<Block>& kept) {
    std::unordered_set<std::string_view> keep;
    for (const Block& b : kept) keep.insert(bytesOf(b));
    std::vector<Block> rest;
    for (const Block& b : blocks)
        if (!keep.contains(bytesOf(b))) rest.push_back(b);
    return rest;
}
template <class Block>
std::vector<Block> distinct(const std::vector<Block>& blocks) {
    std::unordered_set<std::string_view> seen;
    std::vector<Block> once;
    for (const Block& b : blocks)
        if (seen.insert(bytesOf(b)).second) once.push_back(b);
    return once;
}

// Routing protocols' entries go out one by one anyway; of others as many as a message takes.
constexpr size_t BATCH = 17;
template <class Block, class Send>
void batches(const std::vector<Block>& blocks, Send&& send) {
    for (size_t at = 0; at < blocks.size();) {
        size_t n = 1;
        if constexpr (std::is_same_v<Block, ipEntryBlock>) {
            auto alone = [](const Block& b) { return ipIsProtocolAddress(b.dst); };
            while (!alone(blocks[at]) && n < BATCH && at + n < blocks.size() &&
                   !alone(blocks[at + n]))
                n++;
        } else {
            n = std::min(BATCH, blocks.size() - at);
        }
        send(&blocks[at], static_cast<uint32_t>(n));
        at += n;
    }
}

// As the port's card takes them: without those that it does not know, and nothing twice.
aclSystemEntries takenBy(uint32_t port, const aclSystemEntries& entries) {
    aclSystemEntries taken{distinct(entries.v4), distinct(entries.v6)};
    std::erase_if(taken.v4,
                  std::not_fn(aclEntriesTakenBy(static_cast<uint32_t>(ifindexSlot(port)))));
    return taken;
}

void sendAll(uint32_t port, const aclSystemEntries& entries, bool add) {
    auto* v4 = add ? ipSysAddThirteenAccessEntry : ipSysDelThirteenAccessEntry;
    batches(entries.v4, [&](const ipEntryBlock* blocks, uint32_t count) {
        (void)v4(globalName, blocks, 0, port, count);
    });
    auto* v6 = add ? aclV6SysAddThirteenAccessEntry : aclV6SysDelThirteenAccessEntry;
    batches(entries.v6, [&](const ip6EntryBlock* blocks, uint32_t count) {
        (void)v6(globalName6, blocks, 0, {port, SLOT_NONE, aclPortPipe(port)}, count);
    });
}

void protocolEntries(uint32_t place, aclSystemEntries* out) {
    if (const aclPlaceUse* use = aclPlaceUseFind(place))
        for (const aclProtocolUse& protocol : use->protocols)
            aclProtocolEntries(place, protocol, out);
}

aclAddress destinationOf(const ipEntryBlock& block) {
    return aclAddressOf(block.dst);
}
aclAddress destinationOf(const ip6EntryBlock& block) {
    return aclAddressOf(block.dst, 0);
}
// The entries of those of their destinations that are addresses which the port holds.
template <class Block>
void addressEntries(uint32_t port, const std::vector<Block>& blocks, aclSystemEntries* out) {
    for (const Block& block : blocks) {
        const aclAddress address = destinationOf(block);
        const bool again = &block != blocks.data() && address.is(destinationOf(*(&block - 1)));
        if (!again && aclAddressIsInstalledFor(port, address)) aclAddressEntries(address, out);
    }
}
// What the port is to hold of what could be among these entries. A trunk's port has thousands of
// VLANs and few with protocols: those are given.
aclSystemEntries stillWanted(uint32_t port, const aclSystemEntries& entries,
                             const std::vector<uint32_t>& withProtocols) {
    aclSystemEntries wanted;
    for (uint32_t place : withProtocols)
        if (aclPortIsBehind(port, place)) protocolEntries(place, &wanted);
    addressEntries(port, entries.v4, &wanted);
    addressEntries(port, entries.v6, &wanted);
    return wanted;
}

}  // namespace

bool aclPortIsBehind(uint32_t port, uint32_t place) {
    if (port == place) return true;
    const aclIntf* intf = AclIntfTreeFind(port);
    if (intf == nullptr) return false;
    if (ifindexType(place) != IF_TYPE_VLAN) return intf->lag != 0 && intf->lag == place;
    const uint32_t vlan = ifindexPort(place);
    if (vlan >= VLAN_BITS) return false;
    const aclIntf* lag = intf->lag != 0 ? AclIntfTreeFind(intf->lag) : nullptr;
    return vlanBitTest(intf->vlans, vlan) || (lag != nullptr && vlanBitTest(lag->vlans, vlan));
}

void aclPlaceEntries(uint32_t place, aclSystemEntries* out) {
    const aclPlaceUse* use = aclPlaceUseFind(place);
    if (use == nullptr) return;
    if (ifindexSlot(place) == SLOT_NONE)
        for (const aclAddress& address : use->addresses)
            if (address.installed) aclAddressEntries(address, out);
    protocolEntries(place, out);
}

aclSystemEntries aclPortEntries(uint32_t port) {
    aclSystemEntries all;
    aclForPlacesOf(port, [&all](uint32_t place) { aclPlaceEntries(place, &all); });
    return takenBy(port, all);
}

void aclSendPlaceEntries(uint32_t place, const aclSystemEntries& entries, bool add) {
    if (entries.empty()) return;
    std::vector<uint32_t> withProtocols;
    if (!add)
        aclForPlaceUses([&withProtocols](uint32_t user, const aclPlaceUse& use) {
            if (!use.protocols.empty()) withProtocols.push_back(user);
        });
    aclWalkPorts(place, [&](uint32_t port) {
        if (ifindexSlot(port) == SLOT_NONE) return;
        const aclSystemEntries taken = takenBy(port, entries);
        if (add) return sendAll(port, taken, true);
        const aclSystemEntries wanted = stillWanted(port, taken, withProtocols);
        sendAll(port, {without(taken.v4, wanted.v4), without(taken.v6, wanted.v6)}, false);
    });
}

void aclReplayPortEntries(uint32_t slot) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex))
        if (ifindexSlot(i->ifindex) == static_cast<int>(slot) && i->ifindex >= SLOT_COUNT)
            sendAll(i->ifindex, aclPortEntries(i->ifindex), true);
}
