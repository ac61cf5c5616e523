// Prefix lists to the second ACL agent, which hears every change as the CLI request that made it: a
// new agent hears the requests that make what there is.
#include "common/debug.h"
#include "common/message.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "include/ipc.h"
#include "policy/prefix/family.h"

namespace {

// A request about the list with an entry's record, or nothing, behind its front.
bool queueRequest(uint32_t code, const listName& name, const void* body, uint32_t bodyBytes) {
    uint32_t length = static_cast<uint32_t>(sizeof(cliHdr)) + bodyBytes;
    void* block = acl_Swp_Alloc(length);
    if (block == nullptr) {
        zekSwpQueueLose(aclNode->queues.acl2qHandle);
        aclSysErr(SYSERR_MEMORY, "No memory for a message to ACL2");
        return false;
    }
    auto* request = new (block) cliHdr{};
    request->ipc.length = length;
    request->ipc.mtype = MT_CLI_COMMAND;
    request->code = code;
    request->name = name;
    if (bodyBytes != 0) std::memcpy(request + 1, body, bodyBytes);
    return AclSwpEnqueACL2(block, length) == 0;
}

}  // namespace

void prefixDownloadIpListAll(uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr || aclNode->queues.acl2qHandle == ZEK_SWP_NONE) return;
    for (const prefixList* list = ipPrefixListFindFirst(af); list != nullptr;
         list = ipPrefixListFindNext(list->name, af)) {
        if (list->placeholder != 0) continue;
        if (!queueRequest(family->createCode, list->name, nullptr, 0)) return;
        for (const prefixEntry* entry = list->head; entry != nullptr; entry = entry->next)
            if (!queueRequest(family->addCode, list->name, entry->record,
                              prefixRecordBytes(*family)))
                return;
    }
}
