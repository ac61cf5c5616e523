// The agents of the cards as addressees: where messages for an interface go, and the one place
// where a message is put into an agent's queue.
#include "common/debug.h"
#include "download/sendPath.h"
#include "include/service.h"
#include "platform/api/zekTask.h"

namespace {

uint64_t manager_swp_counter;  // messages enqueued, for a debugger's eyes

// A message of `length` bytes, which fill(block) writes, into the queue of its agent. 0, also when
// that cannot be reached; -1 when there is no memory.
template <class Fill>
int enqueue(const agentRoute& route, size_t length, const Fill& fill) {
    if (route.queue != ZEK_SWP_NONE) (void)aclCheckSwpQueueHealth(route.queue);
    if (!addressIsKnown(route.address) || route.queue == ZEK_SWP_NONE) {
        aclDebug(DEBUG_ACL_IPC, "target.card = %d : slot = %d\r\n", static_cast<int>(route.address),
                 route.cardSlot);
        return 0;
    }
    // What an agent is to have a replay of is part of that.
    const aclAgentState& state = *aclAgentStateOf(route.agent);
    if (zekSwpQueueState(route.queue) != zekSwpState::inStep || state.held || state.owed) return 0;
    void* message = acl_Swp_Alloc(length);
    if (message == nullptr) {
        aclSysErr(SYSERR_MEMORY, "%s", "Unable to allocate a message to an ACL agent");
        zekSwpQueueLose(route.queue);
        return -1;
    }
    fill(message);
    manager_swp_counter++;
    if (zekSwpEnqueue(route.queue, message, length) != 0) {
        acl_Swp_Free(message);
        for (uint32_t area : {DEBUG_ACL_IPC, DEBUG_ACL_L2IPC})
            aclDebug(area, "Error sending Message to ACL_AGENT on %s",
                     agentIfName(route.ifindex).text);
    }
    return 0;
}

// A message whose data begin behind the header's padding, without the two words of a download:
// what its form has from there on.
int enqueueData(const agentRoute& route, uint32_t messageId, const void* data, size_t size) {
    const size_t length = AGENT_DATA + size;
    agentHdr header;
    // As of every message: what it is, and a header's length.
    vAclBuildIpcHdr(&header, route, length, messageId);
    return enqueue(route, length, [&](void* block) {
        std::memcpy(block, &header, AGENT_DATA);
        std::memcpy(static_cast<uint8_t*>(block) + AGENT_DATA, data, size);
    });
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
                AGENT_CP,
                ifindex};
    int slot = ifindexSlot(ifindex);
    if (slot == SLOT_NONE)
        return {ZEK_SWP_NONE, 0, ADDRESS_UNKNOWN, 0, SLOT_NONE, AGENT_COUNT, ifindex};
    const aclLinecard& card = aclLinecardInfo[slot];
    uint32_t number = static_cast<uint32_t>(slot);
    return {card.aclAgent,
            number,
            card.agentIpAddr,
            aclServicePort(APP_ACL_AGENT, number, QUEUE_REQUEST),
            slot,
            number,
            ifindex};
}

void vAclBuildIpcHdr(agentHdr* header, const agentRoute& route, size_t bodyLen,
                     uint32_t messageId) {
    *header = {};
    aclFillIpcHdr(&header->ipc, messageId, bodyLen + sizeof *header,
                  {route.address, route.service, route.slot});
    header->ipc.sequence = APP_ACL;
    header->bodyLen = static_cast<uint32_t>(bodyLen);
}

int iAclIPCSendAclList(const void* body, size_t bodyLen, const agentRoute& route,
                       const agentHdr& header, bool more) {
    if (bodyLen > IPC_BUFFER_SIZE - sizeof(agentHdr)) return -1;
    const size_t length = sizeof(agentHdr) + bodyLen;
    return enqueue(route, length, [&](void* block) {
        auto* message = static_cast<agentHdr*>(block);
        *message = {};
        message->ipc = header.ipc;
        message->ipc.length = static_cast<uint32_t>(length);
        message->more = more ? 1 : 0;
        message->bodyLen = static_cast<uint32_t>(bodyLen);
        std::memcpy(message + 1, body, bodyLen);
    });
}

int aclSendIpcToAclAgent(uint32_t slot, const agentReseqMsg& bundle) {
    static_assert(sizeof bundle + sizeof(agentHdr) == RESEQ_LENGTH_WORD);
    return enqueueData(agentRouteOf(slot, MT_ACL_RESEQUENCE), MT_ACL_RESEQUENCE,
                       reinterpret_cast<const uint8_t*>(&bundle) + AGENT_DATA,
                       sizeof bundle - AGENT_DATA);
}

agentRoute aclMacRouteOf(uint32_t slot) {
    const aclLinecard& card = aclLinecardInfo[slot];
    // Cards of this type have their MAC agent elsewhere.
    const uint32_t app = card.type == 1 ? uint32_t{APP_MAC_AGENT_1} : uint32_t{APP_MAC_AGENT};
    return {card.macAgent,
            slot,
            card.agentIpAddr,
            aclServicePort(app, slot, QUEUE_REQUEST),
            static_cast<int>(slot),
            slot,
            slot};
}

int aclSendToMacAgent(uint32_t slot, uint32_t messageId, const void* message, size_t size) {
    if (!aclMayDownload() || slot >= SLOT_COUNT) return 0;
    const agentRoute route = aclMacRouteOf(slot);
    return enqueueData(route, messageId, static_cast<const uint8_t*>(message) + AGENT_DATA,
                       size - AGENT_DATA);
}

void aclSendToAllAgents(uint32_t messageId, std::span<const uint8_t> data, int slot) {
    if (data.size() > AGENT_DATA_MAX || !aclMayDownload()) return;
    for (uint32_t card = 0; card < SLOT_COUNT; card++)
        if ((slot == SLOT_NONE || slot == static_cast<int>(card)) &&
            aclLinecardInfo[card].isUp != 0)
            (void)enqueueData(agentRouteOf(card, messageId), messageId, data.data(), data.size());
}

void aclSendBundle(const agentReseqMsg& bundle) {
    if (!aclMayDownload()) return;
    // The last of them is told whether it is up or not: meant.
    for (uint32_t slot = 0; slot <= RESEQ_LAST_SLOT; slot++)
        if (slot == RESEQ_LAST_SLOT || aclLinecardInfo[slot].isUp != 0)
            (void)aclSendIpcToAclAgent(slot, bundle);
}
