// Copies of access lists to the management tasks that keep them: SNMP, IPM and SYSADM.
//
// Nothing here is repeated or reported: a task that is not there, a full queue and a want of memory
// cost a debug line. A queue that has lost a message starts over with every list of its task.
#include "include/mgmtMsg.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <set>
#include <string>

#include "common/debug.h"
#include "download/sendPath.h"
#include "download/zekacl_download.h"
#include "include/service.h"

namespace {

struct mgmtTask {
    const char* name;
    zekSwpHandle queue;
    uint32_t address;
    uint32_t service;
};

mgmtTask taskSNMP() {
    return {"SNMP", aclNode->queues.aclSNMPqHandle, aclNode->queues.snmptargetcard,
            aclServicePort(APP_SNMP, 0, QUEUE_REQUEST)};
}
mgmtTask taskSYSADM() {
    return {"SYSADMTSK", aclNode->queues.aclSYSADMTSKqHandle, aclNode->queues.sysadmtsktargetcard,
            aclServicePort(APP_SYSADM, 0, QUEUE_REQUEST)};
}
mgmtTask taskIPM(uint32_t instance) {
    if (instance >= std::size(aclNode->queues.aclIPMqHandle))
        return {"IPM", ZEK_SWP_NONE, ADDRESS_UNKNOWN, 0};
    return {"IPM", aclNode->queues.aclIPMqHandle[instance], aclNode->queues.ipmtargetcard[instance],
            aclServicePort(APP_IPM, instance, QUEUE_REQUEST)};
}

void fillImage(mgmtEntryImage* image, const aclEntry& entry) {
    image->block = entry.block;
    image->id = entry.id;
    image->matchCount = entry.matchCount;
    image->log = entry.log;
    image->monitor = entry.monitor;
}
void fillImage(mgmtEntryImage6* image, const acl6Entry& entry) {
    vAclAddEntryToAclList(&image->entry, entry);
}
template <class Image, class Entry>
void fillImageAt(uint8_t* room, const listEntry& entry) {
    fillImage(reinterpret_cast<Image*>(room), static_cast<const Entry&>(entry));
}
// The entry images of both families have one size.
void (*const imageFillers[])(uint8_t* room, const listEntry& entry) = {
    fillImageAt<mgmtEntryImage, aclEntry>,    // INTF_V4
    fillImageAt<mgmtEntryImage6, acl6Entry>,  // INTF_V6
};
constexpr size_t IMAGE_BYTES = sizeof(mgmtEntryImage);
static_assert(sizeof(mgmtEntryImage6) == IMAGE_BYTES);

// A copy is not about a binding: its block is zero.
void fillImage(mgmtListImage* image, const aclList& list, uint32_t entries) {
    std::memcpy(image->name, list.name.text, LIST_NAME_LEN);
    image->lastEntryId = image->count = entries;
    image->kind = list.kind;
    image->placeholder = list.placeholder;
    image->highestSeq = list.highestSeq;
}

// One message with up to `count` entries from *next on, which moves past them. False when there is
// no memory for it.
bool sendMessage(const mgmtTask& task, const aclList& list, uint32_t messageId,
                 const listEntry** next, uint32_t count) {
    const size_t length = sizeof(mgmtMsg) + count * IMAGE_BYTES;
    auto* message = static_cast<mgmtMsg*>(acl_Swp_Alloc(length));
    if (message == nullptr) {
        zekSwpQueueLose(task.queue);
        aclDebug(DEBUG_ACL_IPC, "Malloc failure\r\n");
        return false;
    }
    std::memset(static_cast<void*>(message), 0, length);
    aclFillIpcHdr(&message->ipc, messageId, length, {task.address, task.service});
    fillImage(&message->list, list, count);
    const auto fill = imageFillers[agentMsgRowOf(messageId).form->family];
    auto* room = reinterpret_cast<uint8_t*>(message + 1);
    for (; count > 0 && *next != nullptr; count--, *next = (*next)->next, room += IMAGE_BYTES)
        fill(room, **next);

    (void)aclCheckSwpQueueHealth(task.queue);
    if (zekSwpEnqueue(task.queue, message, length) == 0) {
        aclDebug(DEBUG_ACL_IPC, "Successfully enqueued msg to %s\r\n", task.name);
    } else {
        acl_Swp_Free(message);
        aclDebug(DEBUG_ACL_IPC, "Error enqueueing msg to %s\r\n", task.name);
    }
    return true;
}

bool canBeSent(const mgmtTask& task) {
    return addressIsKnown(aclNode->queues.acltargetcard) && addressIsKnown(task.address);
}

void sendList(const mgmtTask& task, const aclList* list, uint32_t messageId) {
    if (list == nullptr || !canBeSent(task)) return;
    const listEntry* next = list->head;
    const bool deleted = messageId == MT_ACL_DELLIST || messageId == MT_ACL_V6_DELLIST;
    uint32_t left = deleted || list->count < 0 ? 0 : static_cast<uint32_t>(list->count);
    // The last chunk carries nothing when the others come out even; the tasks expect it: meant.
    const uint32_t chunks = left >= MGMT_WHOLE ? left / MGMT_CHUNK : 0;
    for (uint32_t i = 0; i < chunks; i++, left -= MGMT_CHUNK)
        if (!sendMessage(task, *list, messageId, &next, MGMT_CHUNK)) return;
    (void)sendMessage(task, *list, messageId, &next, left);
}

void sendEntry(const mgmtTask& task, const aclList* list, const listEntry* entry,
               uint32_t messageId) {
    if (list == nullptr || entry == nullptr || !canBeSent(task)) return;
    (void)sendMessage(task, *list, messageId, &entry, 1);
}

std::set<std::string> listsBehind[sizeof aclQueues::aclIPMqHandle / sizeof(zekSwpHandle)];

}  // namespace

void aclSendListToSNMP(const aclList* list, uint32_t messageId) {
    sendList(taskSNMP(), list, messageId);
}
void aclSendEntToSNMP(const aclList* list, const listEntry* entry, uint32_t messageId) {
    sendEntry(taskSNMP(), list, entry, messageId);
}
void aclSendListToIPM(const aclList* list, uint32_t messageId, const listClient* client) {
    const mgmtTask task = taskIPM(client->instance);
    if (list == nullptr || !canBeSent(task)) return;
    // A copy for every change would be a list for every entry.
    if (zekSwpIsQueueEmpty(task.queue))
        sendList(task, list, messageId);
    else
        try {
            listsBehind[client->instance].emplace(listNameView(list->name));
        } catch (const std::bad_alloc&) {
            zekSwpQueueLose(task.queue);
        }
}
void aclReplayListToIPM(const aclList* list, const listClient* client) {
    sendList(taskIPM(client->instance), list, MT_ACL_ADDLIST);
}
bool aclNextListBehind(uint32_t instance, listName* name) {
    auto& names = listsBehind[instance];
    if (names.empty() || !zekSwpIsQueueEmpty(taskIPM(instance).queue)) return false;
    *name = listNameMake(*names.begin());
    names.erase(names.begin());
    return true;
}
void aclSendListToSYSADMTSk(const aclList* list, uint32_t messageId) {
    sendList(taskSYSADM(), list, messageId);
}
void aclSendEntToSYSADMTSK(const aclList* list, const listEntry* entry, uint32_t messageId) {
    sendEntry(taskSYSADM(), list, entry, messageId);
}
