// The send path to the ACL agents. No agent is reached yet: what would be sent is counted by
// message id and named in the debug output, and every card counts as one that cannot be reached.
#include "download/zekacl_download.h"

#include <array>
#include <atomic>

#include "include/debug.h"
#include "include/hooks.h"

namespace {

constexpr uint32_t FIRST_ID = MT_ACL_ADDLIST;
constexpr uint32_t LAST_ID = MT_ACL_V6_SYS_ADDLIST;
std::array<std::atomic<uint64_t>, LAST_ID - FIRST_ID + 1> sends;  // by message id

int note(const aclList* list, const listName* name, const char* what, uint32_t ifindex,
         uint32_t messageId) {
    if (list == nullptr && name == nullptr) return -1;
    if (messageId < FIRST_ID || messageId > LAST_ID) return -1;
    uint64_t count = sends[messageId - FIRST_ID].fetch_add(1, std::memory_order_relaxed) + 1;
    aclDebug(DEBUG_ACL_IPC,
             "%s of " LIST_NAME_FMT " for ifindex %#x: message %u, no agent (%llu)\r\n", what,
             listNameArg(name != nullptr ? *name : list->name), ifindex, messageId,
             static_cast<unsigned long long>(count));
    return 0;
}

}  // namespace

int aclSendToAclAgent(aclList* list, uint32_t ifindex, uint32_t, uint32_t messageId, uint32_t,
                      uint32_t, uint32_t) {
    return note(list, nullptr, "list", ifindex, messageId);
}

int aclSendEntToAclAgent(const aclEntry* entry, uint32_t ifindex, uint32_t messageId, uint32_t,
                         uint32_t, uint32_t, const listName& name) {
    return entry == nullptr ? -1 : note(nullptr, &name, "entry", ifindex, messageId);
}

int aclSendVlanAclToAclAgent(aclList* list, uint32_t vlanIfindex, uint32_t, uint32_t messageId,
                             uint32_t, uint32_t) {
    return note(list, nullptr, "list", vlanIfindex, messageId);
}

int aclSendVlanAclEntToAclAgent(const aclEntry* entry, uint32_t vlanIfindex, uint32_t,
                                uint32_t messageId, uint32_t, uint32_t, const listName& name) {
    return entry == nullptr ? -1 : note(nullptr, &name, "entry", vlanIfindex, messageId);
}

int dosSendToAllAgents(aclList* list, const aclEntry* entry, uint32_t messageId) {
    return note(list, nullptr, entry != nullptr ? "trace entry" : "trace list", 0, messageId);
}

int aclV6SendListToAclAgent(uint32_t ifindex, aclList* list, uint32_t messageId, uint32_t, int,
                            uint32_t) {
    return note(list, nullptr, "IPv6 list", ifindex, messageId);
}

// LAGs and VLAN groups are not learned yet.
const uint32_t* aclLagMembers(uint32_t, uint32_t* count) {
    *count = 0;
    return nullptr;
}

int aclSendToVlanGroup(aclList* list, const aclEntry* entry, uint32_t groupId, uint32_t messageId) {
    return note(list, nullptr, entry != nullptr ? "group entry" : "group list", groupId, messageId);
}
