// MAC-limit lists and protocol filters, from the MAC manager on to the cards.
#include "download/maclimit.h"

#include <algorithm>

#include "download/sendPath.h"

namespace {

// An entry as a MAC list's: the limit is about the source, whatever the frame is for and carries.
void AclMacLimitConvertMMgrDataStruct(const macLimitEntry& from, uint32_t seq, l2AclEntry* to) {
    *to = {};
    macEntryBlock& block = to->block;
    block.action = from.action;
    block.seq = seq;
    std::ranges::copy(from.mac, block.src);
    std::ranges::copy(from.mask, block.srcMask);
    std::ranges::fill(block.dstMask, uint8_t{0xFF});
    block.order = ORDER_NOT_GIVEN;
    to->id = seq;
}

// One send, of the list alone or of one entry in it. A LAG's goes to each of its ports.
void sendLimit(const macLimitMsg& message, uint32_t ifindex, l2AclEntry* entry) {
    aclList list{};
    list.name = listNameMake(message.name);
    list.kind = IP_KIND_STANDARD;
    list.head = list.tail = entry;
    list.count = entry != nullptr ? 1 : 0;
    (void)aclSendToPlace({ifindex, INTF_IN}, {message.ipc.mtype, &list});
}

// One agent message with the same id: what stands behind the header is the slot's to read.
int aclSendProtFilterMsgToAclAgent(std::span<const uint8_t> message, uint32_t slot) {
    const auto body = message.subspan(sizeof(ipcHdr));
    const agentRoute route = agentRouteOf(slot, MT_ACLMAC_PROTOCOL_FILTER);
    agentHdr header;
    vAclBuildIpcHdr(&header, route, body.size(), MT_ACLMAC_PROTOCOL_FILTER);
    return iAclIPCSendAclList(body.data(), body.size(), route, header, false);
}

}  // namespace

bool aclSendMacLimit(std::span<const uint8_t> message) {
    const auto* front = wireView<macLimitMsg>(message);
    if (front == nullptr || listNameIsEmpty(front->name)) return false;
    const uint64_t interfaces = front->interfaceCount, entries = front->entryCount;
    const uint64_t length =
        sizeof *front + interfaces * sizeof(be32) + entries * sizeof(macLimitEntry);
    const uint32_t type = front->ipc.mtype;
    const bool whole = type == MT_ACLMAC_NEW || type == MT_ACLMAC_DELLIST;
    if (length > message.size() || interfaces == 0 || (whole && interfaces != 1)) return false;
    const auto* places = reinterpret_cast<const be32*>(front + 1);
    const auto* images = reinterpret_cast<const macLimitEntry*>(places + interfaces);
    for (uint64_t i = 0; i < interfaces; i++) {
        // A list without entries still goes, or loses all of them.
        if (whole || (type == MT_ACLMAC_DELALLENTRY && entries == 0))
            sendLimit(*front, places[i], nullptr);
        for (uint64_t e = 0; !whole && e < entries; e++) {
            l2AclEntry entry;
            AclMacLimitConvertMMgrDataStruct(images[e], static_cast<uint32_t>(e + 1), &entry);
            sendLimit(*front, places[i], &entry);
        }
    }
    return true;
}

bool aclSendProtFilter(std::span<const uint8_t> message) {
    const auto* filter = wireView<protocolFilterMsg>(message);
    if (filter == nullptr || filter->count > PROTOCOL_FILTER_SLOTS) return false;
    if (!aclMayDownload()) return true;
    for (uint32_t i = 0; i < filter->count; i++)
        if (const uint32_t slot = filter->slots[i]; slot < SLOT_COUNT)
            (void)aclSendProtFilterMsgToAclAgent(message, slot);
    return true;
}
