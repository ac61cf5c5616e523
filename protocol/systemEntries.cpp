// The entries of the system lists at ports: see systemEntries.h.
#include "protocol/systemEntries.h"

#include <algorithm>
#include <cstring>

#include "ipacl/zekipaccess.h"
#include "protocol/AclIpAdd.h"
#include "protocol/zekprotocol.h"

namespace {

const listName globalName = listNameMake("Global Acl");
const listName globalName6 = listNameMake("v6 Global Acl");

template <class Block>
bool same(const Block& a, const Block& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}
template <class Block>
bool contains(const std::vector<Block>& blocks, const Block& wanted) {
    return std::ranges::any_of(blocks, [&](const Block& b) { return same(b, wanted); });
}

template <class Block>
std::vector<Block> without(const std::vector<Block>& blocks, const std::vector<Block>& kept) {
    std::vector<Block> rest;
    for (const Block& b : blocks)
        if (!contains(kept, b)) rest.push_back(b);
    return rest;
}
template <class Block>
std::vector<Block> distinct(const std::vector<Block>& blocks) {
    std::vector<Block> once;
    for (const Block& b : blocks)
        if (!contains(once, b)) once.push_back(b);
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

}  // namespace

void aclPlaceEntries(uint32_t place, aclSystemEntries* out) {
    const aclPlaceUse* use = aclPlaceUseFind(place);
    if (use == nullptr) return;
    if (ifindexSlot(place) == SLOT_NONE)
        for (const aclAddress& address : use->addresses)
            if (address.installed) aclAddressEntries(address, out);
    for (const aclProtocolUse& protocol : use->protocols) aclProtocolEntries(place, protocol, out);
}

aclSystemEntries aclPortEntries(uint32_t port) {
    aclSystemEntries all;
    aclForPlacesOf(port, [&all](uint32_t place) { aclPlaceEntries(place, &all); });
    return {distinct(all.v4), distinct(all.v6)};
}

void aclSendPortEntries(uint32_t port, const aclSystemEntries& entries, bool add) {
    if (entries.empty() || ifindexSlot(port) == SLOT_NONE) return;
    if (add) return sendAll(port, entries, true);
    const aclSystemEntries wanted = aclPortEntries(port);
    sendAll(port, {without(entries.v4, wanted.v4), without(entries.v6, wanted.v6)}, false);
}

void aclSendPlaceEntries(uint32_t place, const aclSystemEntries& entries, bool add) {
    aclWalkPorts(place, [&](uint32_t port) { aclSendPortEntries(port, entries, add); });
}

void aclReplayPortEntries(uint32_t slot) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex))
        if (ifindexSlot(i->ifindex) == static_cast<int>(slot) && i->ifindex >= SLOT_COUNT)
            sendAll(i->ifindex, aclPortEntries(i->ifindex), true);
}
