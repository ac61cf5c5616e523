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

template <class Entry>
struct mgmtImage;
template <>
struct mgmtImage<aclEntry> {
    using type = mgmtEntryImage;
};
template <>
struct mgmtImage<acl6Entry> {
    using type = mgmtEntryImage6;
};

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

void fillImage(mgmtListImage* image, const aclList& list, uint32_t entries) {
    std::memcpy(image->name, list.name.text, LIST_NAME_LEN);
    image->lastEntryId = image->count = entries;
    image->kind = list.kind;
    image->placeholder = list.placeholder;
    image->highestSeq = list.highestSeq;
    image->block = list.sendBlock;
}

// One message with up to `count` entries from *next on, which moves past them. False when there is
// no memory for it.
template <class Entry>
bool sendMessage(const mgmtTask& task, const aclList& list, uint32_t messageId, const Entry** next,
                 uint32_t count) {
    using image = typename mgmtImage<Entry>::type;
    const size_t length = sizeof(mgmtMsg) + count * sizeof(image);
    auto* message = static_cast<mgmtMsg*>(acl_Swp_Alloc(length));
    if (message == nullptr) {
        zekSwpQueueLose(task.queue);
        aclDebug(DEBUG_ACL_IPC, "Malloc failure\r\n");
        return false;
    }
    std::memset(static_cast<void*>(message), 0, length);
    message->ipc.length = static_cast<uint32_t>(length);
    message->ipc.mtype = messageId;
    message->ipc.target.card = aclNode->queues.acltargetcard;
    message->ipc.target.svce = aclServicePort(APP_ACL, 0, QUEUE_RESPONSE);
    message->ipc.source.card = task.address;
    message->ipc.source.svce = task.service;
    fillImage(&message->list, list, count);
    auto* images = reinterpret_cast<image*>(message + 1);
    for (uint32_t i = 0; i < count && *next != nullptr; i++, *next = (*next)->next)
        fillImage(&images[i], **next);

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

template <class Entry>
void sendList(const mgmtTask& task, const aclList* list, const Entry* first, uint32_t messageId) {
    if (list == nullptr || !canBeSent(task)) return;
    const bool deleted = messageId == MT_ACL_DELLIST || messageId == MT_ACL_V6_DELLIST;
    uint32_t left = deleted || list->count < 0 ? 0 : static_cast<uint32_t>(list->count);
    // The last chunk carries nothing when the others come out even; the tasks expect it: meant.
    const uint32_t chunks = left >= MGMT_WHOLE ? left / MGMT_CHUNK : 0;
    for (uint32_t i = 0; i < chunks; i++, left -= MGMT_CHUNK)
        if (!sendMessage(task, *list, messageId, &first, MGMT_CHUNK)) return;
    (void)sendMessage(task, *list, messageId, &first, left);
}

template <class Entry>
void sendEntry(const mgmtTask& task, const aclList* list, const Entry* entry, uint32_t messageId) {
    if (list == nullptr || entry == nullptr || !canBeSent(task)) return;
    (void)sendMessage(task, *list, messageId, &entry, 1);
}

std::set<std::string> listsBehind[sizeof aclQueues::aclIPMqHandle / sizeof(zekSwpHandle)];

const aclEntry* entries(const aclList* list) {
    return list != nullptr ? list->head : nullptr;
}
const acl6Entry* entries6(const aclList* list) {
    return list != nullptr ? list->head6 : nullptr;
}

}  // namespace

void aclSendListToSNMP(aclList* list, uint32_t messageId, const aclBinding*) {
    sendList(taskSNMP(), list, entries(list), messageId);
}
void aclSendEntToSNMP(aclList* list, const aclEntry* entry, uint32_t messageId, const aclBinding*) {
    sendEntry(taskSNMP(), list, entry, messageId);
}
void aclSendListToIPM(aclList* list, uint32_t messageId, const aclBinding* binding) {
    const mgmtTask task = taskIPM(binding->instance);
    if (list == nullptr || !canBeSent(task)) return;
    // A copy for every change would be a list for every entry.
    if (zekSwpIsQueueEmpty(task.queue))
        sendList(task, list, entries(list), messageId);
    else
        try {
            listsBehind[binding->instance].emplace(listNameView(list->name));
        } catch (const std::bad_alloc&) {
            zekSwpQueueLose(task.queue);
        }
}
void aclReplayListToIPM(aclList* list, const aclBinding* binding) {
    sendList(taskIPM(binding->instance), list, entries(list), MT_ACL_ADDLIST);
}
bool aclNextListBehind(uint32_t instance, listName* name) {
    auto& names = listsBehind[instance];
    if (names.empty() || !zekSwpIsQueueEmpty(taskIPM(instance).queue)) return false;
    *name = listNameMake(*names.begin());
    names.erase(names.begin());
    return true;
}
void aclSendListToSYSADMTSk(aclList* list, uint32_t messageId) {
    sendList(taskSYSADM(), list, entries(list), messageId);
}
void aclSendEntToSYSADMTSK(aclList* list, const aclEntry* entry, uint32_t messageId) {
    sendEntry(taskSYSADM(), list, entry, messageId);
}

void aclV6SendListToSNMP(aclList* list, uint32_t messageId, const aclBinding*) {
    sendList(taskSNMP(), list, entries6(list), messageId);
}
void aclV6SendEntToSNMP(aclList* list, const acl6Entry* entry, uint32_t messageId,
                        const aclBinding*) {
    sendEntry(taskSNMP(), list, entry, messageId);
}
void aclV6SendListToSYSADMTSK(aclList* list, uint32_t messageId) {
    sendList(taskSYSADM(), list, entries6(list), messageId);
}
void aclV6SendEntToSYSADMTSK(aclList* list, const acl6Entry* entry, uint32_t messageId) {
    sendEntry(taskSYSADM(), list, entry, messageId);
}
