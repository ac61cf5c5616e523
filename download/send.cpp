// Sending lists and entries to the agents: who is sent to, what is sent, and the one place where a
// message is enqueued.
#include "download/sendPath.h"

#include <algorithm>

#include "common/debug.h"
#include "include/service.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"

namespace {

uint8_t* cAclList;             // the staging buffer, kept for the life of the task
uint64_t manager_swp_counter;  // messages enqueued, for a debugger's eyes

uint8_t* stagingBuffer() {
    if (cAclList == nullptr) {
        cAclList = static_cast<uint8_t*>(zekMC_MM_malloc(IPC_BUFFER_SIZE));
        if (cAclList == nullptr)
            aclSysErr(SYSERR_MEMORY, "%s", "Unable to allocate the buffer for ACL agent messages");
    }
    return cAclList;
}

// Destinations of routing protocols: entries to them go out one by one.
bool isProtocolAddress(uint32_t address) {
    constexpr uint32_t addresses[] = {0xE0000005, 0xE0000006, 0xE0000009, 0xE0000012};
    return std::ranges::find(addresses, address) != std::ranges::end(addresses);
}

// How many entries go with a send of entries: one, but for the batches of the system lists.
uint32_t entriesOf(const aclEntry* first, const aclSendRequest& request) {
    if (request.messageId != MT_ACL_SYS_ADDENT && request.messageId != MT_ACL_SYS_DEL) return 1;
    if (isProtocolAddress(first->block.dst)) return 1;
    uint32_t count = 0;
    for (const aclEntry* e = first; e != nullptr && count < request.count; e = e->next) count++;
    return std::max(count, 1u);
}
template <class Entry>
uint32_t entriesOf(const Entry*, const aclSendRequest&) {
    return 1;
}

// A list that stands for the one that the entries belong to. A list that is not found (any more)
// still gives its name.
template <class List>
void describeList(List* list, const agentMsgRow& row, const aclSendRequest& request) {
    if (request.name == nullptr) return;
    list->name = *request.name;
    const zekRadixNode* found =
        aclNode->trees.*row.tree != nullptr
            ? zekRadixGetExact(aclNode->trees.*row.tree, list->name.text, LIST_NAME_KEY_BITS)
            : nullptr;
    // `link` is a list's first member.
    if (found != nullptr) list->kind = reinterpret_cast<const List*>(found)->kind;
}

const aclEntry* firstOf(const aclList& list, ipBody) {
    return list.head;
}
const acl6Entry* firstOf(const aclList& list, ip6Body) {
    return list.head6;
}
const l2AclEntry* firstOf(const l2AclList& list, macBody) {
    return list.head;
}
int check(agentListHdr* header, const aclEntry* first, uint32_t count, uint32_t target,
          const agentMsgRow& row) {
    return iAclIPCCheckAclList(header, first, count, target, row);
}
int check(agentListHdr* header, const acl6Entry* first, uint32_t count, uint32_t target,
          const agentMsgRow& row) {
    return iAclIPCCheckAclList(header, first, count, target, row);
}
int check(agentMacListHdr* header, const l2AclEntry* first, uint32_t count, uint32_t target,
          const agentMsgRow& row) {
    return vL2AclIPCCheckAclList(header, first, count, target, row);
}

template <class Body>
int sendItem(const aclSendRequest& request, const agentMsgRow& row, uint32_t target) {
    using List = typename Body::list;
    using Entry = typename Body::entry;
    auto* header = reinterpret_cast<typename Body::header*>(cAclList);
    const auto* list = std::get_if<const List*>(&request.item);
    const auto* entry = std::get_if<const Entry*>(&request.item);
    if (list != nullptr && *list != nullptr && row.carries != agentCarries::entry) {
        vAclFillInAclList(header, **list, request);
        const Entry* first = row.carries == agentCarries::list ? firstOf(**list, Body{}) : nullptr;
        return check(header, first, header->count, target, row);
    }
    if (entry != nullptr && *entry != nullptr &&
        (row.carries == agentCarries::entry || row.carries == agentCarries::entryOrHeader)) {
        List only{};
        describeList(&only, row, request);
        only.count = static_cast<int32_t>(entriesOf(*entry, request));
        vAclFillInAclList(header, only, request);
        return check(header, *entry, header->count, target, row);
    }
    aclDebug(DEBUG_ACL_IPC, "message %d does not carry what it was given\r\n",
             static_cast<int>(row.id));
    return -1;
}

}  // namespace

agentIfName::agentIfName(uint32_t ifindex) {
    (void)ifmIfIndexToLName(ifindex, text, sizeof text);
}

agentRoute agentRouteOf(uint32_t ifindex, uint32_t messageId) {
    // The control processor's own lists go to its own agent; everything else to a card's.
    if (ifindexType(ifindex) == IF_TYPE_CP && ifindexPort(ifindex) == 0 &&
        ((messageId >= MT_ACL_ADDLIST && messageId <= MT_ACL_DELLIST) ||
         messageId == MT_AGENT_REPLAY))
        return {aclNode->queues.acl0qHandle,
                0,
                aclLinecardInfo[LINECARD_CP].agent0IpAddr,
                aclServicePort(APP_ACL_AGENT_CP, 0, QUEUE_REQUEST),
                0,
                AGENT_CP};
    int slot = ifindexSlot(ifindex);
    if (slot == SLOT_NONE) return {ZEK_SWP_NONE, 0, ADDRESS_UNKNOWN, 0, SLOT_NONE, AGENT_COUNT};
    const aclLinecard& card = aclLinecardInfo[slot];
    uint32_t number = static_cast<uint32_t>(slot);
    return {card.aclAgent,
            number,
            card.agentIpAddr,
            aclServicePort(APP_ACL_AGENT, number, QUEUE_REQUEST),
            slot,
            number};
}

int iAclIPCSendAclList(const void* body, size_t bodyLen, uint32_t ifindex, const agentHdr& header,
                       bool more) {
    if (bodyLen > IPC_BUFFER_SIZE - sizeof(agentHdr)) return -1;
    agentRoute route = agentRouteOf(ifindex, header.ipc.mtype);
    if (route.queue != ZEK_SWP_NONE) (void)aclCheckSwpQueueHealth(route.queue);
    if (!addressIsKnown(route.address) || route.queue == ZEK_SWP_NONE) {
        aclDebug(DEBUG_ACL_IPC, "target.card = %d : slot = %d\r\n", static_cast<int>(route.address),
                 route.cardSlot);
        return 0;
    }
    if (zekSwpQueueState(route.queue) != zekSwpState::inStep) return 0;  // part of its replay
    const size_t length = sizeof(agentHdr) + bodyLen;
    auto* message = static_cast<agentHdr*>(acl_Swp_Alloc(length));
    if (message == nullptr) {
        aclSysErr(SYSERR_MEMORY, "%s", "Unable to allocate a message to an ACL agent");
        aclAgentLost(route.agent);
        return -1;
    }
    *message = {};
    message->ipc = header.ipc;
    message->ipc.length = static_cast<uint32_t>(length);
    message->more = more ? 1 : 0;
    message->bodyLen = static_cast<uint32_t>(bodyLen);
    std::memcpy(message + 1, body, bodyLen);
    manager_swp_counter++;
    if (zekSwpEnqueue(route.queue, message, length) != 0) {
        acl_Swp_Free(message);
        for (uint32_t area : {DEBUG_ACL_IPC, DEBUG_ACL_L2IPC})
            aclDebug(area, "Error sending Message to ACL_AGENT on %s", agentIfName(ifindex).text);
    }
    return 0;
}

int iAclSendToAclAgent(const aclSendRequest& request) {
    if (ifindexType(request.ifindex) != IF_TYPE_CP && !aclMayDownload()) return 0;
    const agentMsgRow row = agentMsgRowOf(request.messageId);
    const uint32_t target =
        request.slot != SLOT_NONE ? static_cast<uint32_t>(request.slot) : request.ifindex;
    if (stagingBuffer() == nullptr) {
        aclAgentLost(agentRouteOf(target, row.id).agent);
        return -1;
    }
    switch (row.body) {
        case agentBody::ip:
            return sendItem<ipBody>(request, row, target);
        case agentBody::ip6:
            return sendItem<ip6Body>(request, row, target);
        case agentBody::mac:
            return sendItem<macBody>(request, row, target);
    }
    return -1;
}

int aclSendToAclAgent(aclList* list, uint32_t ifindex, [[maybe_unused]] uint32_t flag,
                      uint32_t messageId, uint32_t option, uint32_t portPipe, uint32_t groupId) {
    if (list == nullptr) return -1;
    return iAclSendToAclAgent({.item = list,
                               .ifindex = ifindex,
                               .messageId = messageId,
                               .entryCount = static_cast<uint32_t>(list->count),
                               .option = option,
                               .portPipe = portPipe,
                               .groupId = groupId});
}

int aclSendEntToAclAgent(const aclEntry* entry, uint32_t ifindex, uint32_t messageId,
                         uint32_t count, uint32_t portPipe, uint32_t groupId,
                         const listName& name) {
    int result = iAclSendToAclAgent({.item = entry,
                                     .ifindex = ifindex,
                                     .messageId = messageId,
                                     .count = count,
                                     .entryCount = count,
                                     .portPipe = portPipe,
                                     .groupId = groupId,
                                     .name = &name});
    if (result != 0 && messageId == MT_ACL_ADDENT)
        aclSysErr(SYSERR_ENTRY_SEND,
                  "Error sending an entry of access list " LIST_NAME_FMT " to the agent of %s",
                  listNameArg(name), agentIfName(ifindex).text);
    return result;
}

int dosSendToAllAgents(aclList* list, const aclEntry* entry, uint32_t messageId) {
    int result = 0;
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++) {
        if (aclLinecardInfo[slot].aclAgent == ZEK_SWP_NONE) continue;
        int sent = entry != nullptr
                       ? aclSendEntToAclAgent(entry, slot, messageId, 1, 0, 0, list->name)
                       : aclSendToAclAgent(list, slot, 1, messageId, 0, 0, 0);
        if (sent != 0) result = -1;
    }
    return result;
}

int aclV6SendListToAclAgent(uint32_t ifindex, aclList* list, uint32_t messageId, uint32_t slot,
                            int portPipe, uint32_t option) {
    if (list == nullptr) return -1;
    if (slot >= SLOT_COUNT) return 0;
    return iAclSendToAclAgent({.item = list,
                               .ifindex = ifindex,
                               .messageId = messageId,
                               .entryCount = static_cast<uint32_t>(list->count),
                               .option = option,
                               .portPipe = static_cast<uint32_t>(portPipe),
                               .slot = static_cast<int>(slot)});
}

int aclV6SendEntToAclAgent(uint32_t ifindex, const acl6Entry* entry, uint32_t messageId,
                           uint32_t slot, int portPipe, const listName& name) {
    if (slot >= SLOT_COUNT) return 0;
    return iAclSendToAclAgent({.item = entry,
                               .ifindex = ifindex,
                               .messageId = messageId,
                               .entryCount = 1,
                               .portPipe = static_cast<uint32_t>(portPipe),
                               .slot = static_cast<int>(slot),
                               .name = &name});
}
