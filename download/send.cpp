// Sending lists and entries to one agent: whether at all, and what goes into the staging buffer.
#include "download/sendPath.h"

#include <algorithm>

#include "common/debug.h"
#include "include/service.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekTask.h"

namespace {

uint8_t* cAclList;  // the staging buffer, kept for the life of the task

uint8_t* stagingBuffer() {
    if (cAclList == nullptr) {
        cAclList = static_cast<uint8_t*>(zekMC_MM_malloc(IPC_BUFFER_SIZE));
        if (cAclList == nullptr)
            aclSysErr(SYSERR_MEMORY, "%s", "Unable to allocate the buffer for ACL agent messages");
    }
    return cAclList;
}

// How many entries go with a send of entries: one, but for the batches of the system lists.
uint32_t entriesIn(const aclSend& send) {
    const bool v4 = send.messageId == MT_ACL_SYS_ADDENT || send.messageId == MT_ACL_SYS_DEL;
    if (!v4 && send.messageId != MT_ACL_V6_SYS_ADDENT && send.messageId != MT_ACL_V6_SYS_DEL)
        return 1;
    // Entries to routing protocols go out one by one.
    if (v4 && ipIsProtocolAddress(static_cast<const aclEntry*>(send.entry)->block.dst)) return 1;
    uint32_t count = 0;
    for (const listEntry* e = send.entry; e != nullptr && count < send.count; e = e->next) count++;
    return std::max(count, 1u);
}

bool fits(agentCarries carries, bool entry) {
    if (carries == agentCarries::entryOrHeader) return true;
    return entry == (carries == agentCarries::entry);
}

}  // namespace

int iAclSendToAclAgent(const aclTarget& target, const aclSend& send) {
    if (ifindexType(target.ifindex) != IF_TYPE_CP && !aclMayDownload()) return 0;
    const agentMsgRow row = agentMsgRowOf(send.messageId);
    const agentRoute route = agentRouteOf(
        target.slot != SLOT_NONE ? static_cast<uint32_t>(target.slot) : target.ifindex, row.id);
    uint8_t* staging = stagingBuffer();
    if (staging == nullptr) {
        aclAgentLost(route.agent);
        return -1;
    }
    if (!fits(row.carries, send.entry != nullptr)) {
        aclDebug(DEBUG_ACL_IPC, "message %d does not carry what it was given\r\n",
                 static_cast<int>(row.id));
        return -1;
    }
    const bool isList = send.entry == nullptr;
    row.form->header(staging, target, send);
    // Only a message that carries lists takes a list's entries along; a deletion has its header.
    const listEntry* first = send.entry;
    if (isList && row.carries == agentCarries::list) first = send.list->head;
    return iAclIPCCheckAclList(
        {staging, IPC_BUFFER_SIZE}, send.list->name, first,
        isList ? static_cast<uint32_t>(std::max(send.list->count, 0)) : entriesIn(send), route,
        row);
}
