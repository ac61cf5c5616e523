// Debug functions about MAC lists.
#include "ask/debugWords.h"
#include "l2acl/zekl2acl.h"
#include "platform/api/zekTask.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// Calls fn(list) for the list of this name, or for all of them.
template <class Fn>
void forLists(std::string_view name, const Fn& fn) {
    if (!name.empty()) {
        const aclList* list = l2AccessListFind(listNameMake(name));
        return list != nullptr ? fn(*list) : void();
    }
    for (const aclList* list = l2AccessListFindFirst(); list != nullptr;
         list = l2AccessListFindNext(list->name))
        fn(*list);
}

std::string ShowL2Acl(std::string_view name) {
    aclLockHeld<aclLock::read> held;
    std::string text;
    forLists(name, [&text](const aclList& list) { text += l2AclListText(list); });
    return text;
}

std::string ShowL2AclTaskClients(std::string_view name) {
    aclLockHeld<aclLock::read> held;
    std::string text;
    forLists(name, [&text](const aclList& list) {
        for (const listClient* c = list.clients; c != nullptr; c = c->next)
            if (c->kind == CLIENT_TASK)
                ((text += listNameView(list.name)) += " task ") +=
                    std::to_string(c->id) + " instance " + std::to_string(c->instance) + "\n";
    });
    return text;
}

}  // namespace

void aclRegisterMacFunctions() {
    zekDebugRegister("ShowL2Acl", "[NAME] MAC lists as they are (text)", ShowL2Acl);
    zekDebugRegister("ShowL2AclTaskClients", "[NAME] the tasks that use MAC lists (text)",
                     ShowL2AclTaskClients);
}
