// The clients of access lists: tasks and route maps, kept among the list's bindings.
//
// One family is one row: where its lists are, what its clients are sent and told. The caller holds
// the write lock.
#include "common/client.h"

#include <algorithm>
#include <iterator>

#include "common/debug.h"
#include "include/service.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"

namespace {

struct familyRow {
    uint32_t family;  // 1 = IPv4, 2 = IPv6
    aclList* (*find)(const listName& name);
    aclList* (*obtain)(const listName& name);  // or a placeholder, or null
    void (*dropUnused)(aclList* list);
    // The content at a registration, and what a task loses with its own.
    void (*sendContent)(aclList* list, const aclBinding& client);
    void (*sendDeletion)(aclList* list, const aclBinding& client);
    // The clause of a route map that names such a list.
    uint16_t clauseClass;
    uint32_t clauseCode;
    const char* taskNoList;  // one name
    const char* rmapNoList;  // one name
};

aclList* obtain4(const listName& name) {
    uint32_t status;
    return ipAccessListCreate(name, IP_KIND_NONE, 1, &status);
}
void sendContent4(aclList* list, const aclBinding& client) {
    aclSendToTask(list, aclListAdded, client);
}
void sendDeletion4(aclList* list, const aclBinding& client) {
    if (client.id == APP_SYSADM) aclSendListToSYSADMTSk(list, MT_ACL_DELLIST);
}

constexpr familyRow families[] = {
    {1, ipAccessListFind, obtain4, aclListDropUnused, sendContent4, sendDeletion4, RTMAP_MS_MATCH,
     5, "Error: Unable to create Accesslist " LIST_NAME_FMT " in aclAddTaskClient\n",
     "Error: Unable to create Accesslist " LIST_NAME_FMT " in aclAddRmapClient\n"},
};

const familyRow* familyOf(uint32_t family) {
    const auto* row = std::ranges::find(families, family, &familyRow::family);
    return row != std::ranges::end(families) ? row : nullptr;
}
const familyRow* familyOf(const rmapMatch& clause) {
    for (const familyRow& row : families)
        if (row.clauseClass == clause.cls && row.clauseCode == clause.code) return &row;
    return nullptr;
}

bindingKey taskKey(uint32_t application, uint32_t instance) {
    return {BIND_TASK, application, instance};
}
bindingKey rmapKey(const listName& rmapName) {
    return {.kind = BIND_ROUTE_MAP, .rmapName = rmapName};
}

}  // namespace

aclList* aclAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                          uint32_t caller, uint32_t family) {
    const familyRow* row = familyOf(family);
    if (row == nullptr) return nullptr;
    aclList* list = row->obtain(name);
    if (list == nullptr) {
        aclSysErr(SYSERR_LIST, row->taskNoList, listNameArg(name));
        return nullptr;
    }
    if (aclBindingFind(list, taskKey(application, instance)) != nullptr) return list;
    aclBinding* client = aclBindingAdd(list, taskKey(application, instance));
    if (client == nullptr) {
        aclSysErr(SYSERR_LIST,
                  "Error: Unable to allocate memory for Acl " LIST_NAME_FMT
                  " client Task id %d, instance %d\n",
                  listNameArg(name), static_cast<int>(application), static_cast<int>(instance));
        return nullptr;
    }
    client->caller = caller;
    if (list->placeholder == 0) row->sendContent(list, *client);
    return list;
}

int aclDelTaskClient(uint32_t application, uint32_t instance, const listName& name,
                     uint32_t family) {
    const familyRow* row = familyOf(family);
    if (row == nullptr) return -1;
    aclList* list = row->find(name);
    if (list == nullptr) return 0;
    aclBinding* client = aclBindingFind(list, taskKey(application, instance));
    if (client == nullptr) {
        aclDebug(DEBUG_ACL_TRIGGER,
                 "Error: Acl " LIST_NAME_FMT " does not have client Task Id %d Instance %d\n",
                 listNameArg(name), static_cast<int>(application), static_cast<int>(instance));
        return -1;
    }
    row->sendDeletion(list, *client);
    aclBindingDrop(list, client);
    row->dropUnused(list);
    return 0;
}

aclList* aclAddTaskMcastClient(uint32_t application, uint32_t instance, const listName& name,
                               uint32_t caller, uint32_t family) {
    return aclAddTaskClient(application, instance, name, caller, family);
}
int aclDelTaskMcastClient(uint32_t application, uint32_t instance, const listName& name,
                          uint32_t family) {
    return aclDelTaskClient(application, instance, name, family);
}

int aclAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& name) {
    const familyRow* row = familyOf(match);
    if (row == nullptr) return 0;
    aclList* list = row->obtain(name);
    if (list == nullptr) {
        aclSysErr(SYSERR_RMAP_CLIENT, row->rmapNoList, listNameArg(name));
        return -1;
    }
    aclBinding* client = aclBindingFind(list, rmapKey(rmapName));
    if (client == nullptr) {
        client = aclBindingAdd(list, rmapKey(rmapName));
        if (client == nullptr) {
            aclSysErr(SYSERR_RMAP_CLIENT,
                      "Error: Unable to allocate memory for Acl " LIST_NAME_FMT
                      " client Routemap " LIST_NAME_FMT "\n",
                      listNameArg(name), listNameArg(rmapName));
            return -1;
        }
    }
    client->references++;
    if (match.listSlot != nullptr) *match.listSlot = list;
    return 0;
}

int aclDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& name) {
    const familyRow* row = familyOf(match);
    if (row == nullptr) return 0;
    aclList* list = row->find(name);
    if (list == nullptr) return 0;
    aclBinding* client = aclBindingFind(list, rmapKey(rmapName));
    if (client == nullptr) {
        aclDebug(DEBUG_ACL_TRIGGER,
                 "Error: Acl " LIST_NAME_FMT " does not have client Routemap " LIST_NAME_FMT "\n",
                 listNameArg(name), listNameArg(rmapName));
        return -1;
    }
    if (match.listSlot != nullptr) *match.listSlot = nullptr;
    // Another clause of the same map may name the list as well: it keeps the list alive.
    if (--client->references != 0) return 0;
    aclBindingDrop(list, client);
    row->dropUnused(list);
    return 0;
}
