// The clients of access lists: tasks and route maps. The caller holds the write lock.
#include <algorithm>
#include <iterator>

#include "common/debug.h"
#include "include/service.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/zekipaccess.h"

namespace {

const aclFamily* familyOf(uint32_t af) {
    const auto* row = std::ranges::find(aclFamilies, af, &aclFamily::af);
    return row != std::ranges::end(aclFamilies) ? *row : nullptr;
}
const aclFamily* familyOf(const rmapMatch& clause) {
    for (const aclFamily* family : aclFamilies)
        if (family->clauseClass == clause.cls && family->clauseCode == clause.code) return family;
    return nullptr;
}

}  // namespace

const clientStore aclClientStore{[](const listName& name, uint32_t af) -> namedList* {
                                     return aclListFind(*familyOf(af), name);
                                 },
                                 [](const listName& name, uint32_t af) -> namedList* {
                                     uint32_t status;
                                     return aclListCreate(*familyOf(af), name, IP_KIND_NONE, 1,
                                                          &status);
                                 },
                                 [](namedList* unused, uint32_t) {
                                     const auto* list = static_cast<const aclList*>(unused);
                                     const listName name = list->name;
                                     (void)aclListDelete(*list->family, name, list->kind);
                                 },
                                 {},
                                 true};  // such a placeholder is left standing: meant

aclList* aclAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                          uint32_t caller, uint32_t af) {
    const aclFamily* family = familyOf(af);
    if (family == nullptr) return nullptr;
    const clientResult result =
        clientRegisterTask(aclClientStore, name, af, {application, instance, caller}, {});
    aclList* list = aclListFind(*family, name);
    switch (result) {
        case clientResult::noList:
            aclSysErr(SYSERR_LIST, family->addClientRefused, listNameArg(name));
            return nullptr;
        case clientResult::noMemory:
            aclSysErr(SYSERR_LIST,
                      "Error: Unable to allocate memory for Acl " LIST_NAME_FMT
                      " client Task id %d, instance %d\n",
                      listNameArg(name), static_cast<int>(application), static_cast<int>(instance));
            return nullptr;
        case clientResult::done:
            if (list->placeholder == 0)
                aclSendToTask(list, {aclEvent::listAdded}, *list->clients);  // the newest
            return list;
        default:
            return list;
    }
}

int aclDelTaskClient(uint32_t application, uint32_t instance, const listName& name, uint32_t af) {
    const aclFamily* family = familyOf(af);
    if (family == nullptr) return -1;
    const aclList* list = aclListFind(*family, name);
    if (list == nullptr) return 0;
    const listClient* client = clientFind(list, clientKeyOfTask(application, instance));
    if (client != nullptr && application == APP_SYSADM)
        aclSendToTask(list, {aclEvent::listDeleted}, *client);
    if (clientUnregisterTask(aclClientStore, name, af, {application, instance}, {}) !=
        clientResult::notRegistered)
        return 0;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Error: Acl " LIST_NAME_FMT " does not have client Task Id %d Instance %d\n",
             listNameArg(name), static_cast<int>(application), static_cast<int>(instance));
    return -1;
}

aclList* aclAddTaskMcastClient(uint32_t application, uint32_t instance, const listName& name,
                               uint32_t caller, uint32_t af) {
    return aclAddTaskClient(application, instance, name, caller, af);
}
int aclDelTaskMcastClient(uint32_t application, uint32_t instance, const listName& name,
                          uint32_t af) {
    return aclDelTaskClient(application, instance, name, af);
}

int aclAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& name) {
    const aclFamily* family = familyOf(match);
    if (family == nullptr) return 0;
    switch (clientRegisterRmap(aclClientStore, name, family->af, rmapName, match.listSlot)) {
        case clientResult::noList:
            aclSysErr(SYSERR_RMAP_CLIENT,
                      "Error: Unable to create Accesslist " LIST_NAME_FMT " in aclAddRmapClient\n",
                      listNameArg(name));
            return -1;
        case clientResult::noMemory:
            aclSysErr(SYSERR_RMAP_CLIENT,
                      "Error: Unable to allocate memory for Acl " LIST_NAME_FMT
                      " client Routemap " LIST_NAME_FMT "\n",
                      listNameArg(name), listNameArg(rmapName));
            return -1;
        default:
            return 0;
    }
}

int aclDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& name) {
    const aclFamily* family = familyOf(match);
    if (family == nullptr) return 0;
    if (clientUnregisterRmap(aclClientStore, name, family->af, rmapName, match.listSlot) !=
        clientResult::notRegistered)
        return 0;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Error: Acl " LIST_NAME_FMT " does not have client Routemap " LIST_NAME_FMT "\n",
             listNameArg(name), listNameArg(rmapName));
    return -1;
}
