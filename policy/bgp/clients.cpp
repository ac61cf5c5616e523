// The clients of AS-path and community lists.
#include <algorithm>
#include <string>

#include "common/debug.h"
#include "include/ipc.h"
#include "include/routeMapNames.h"
#include "include/service.h"
#include "policy/bgp/store.h"
#include "policy/bgp/zekbgp_plcy.h"

namespace {

triggerKind triggerOf(uint32_t mtype) {
    return {mtype,   "Error in sending Acl Trigger \n",
            nullptr, "Error in Acl Trigger client type\n",
            nullptr, {},
            true,    true};
}

// The client chains know nothing of kinds; their family word carries ours.
bgpListKind kindOf(uint32_t family) {
    return static_cast<bgpListKind>(family);
}
constexpr uint32_t pairTasks[] = {APP_BGP, APP_LDP};
const clientStore store = {
    [](const listName& name, uint32_t family) -> namedList* {
        return bgpListFind(kindOf(family), name);
    },
    [](const listName& name, uint32_t family) -> namedList* {
        uint32_t status = ACL_OK;
        return bgpListCreate(kindOf(family), name, 1, &status);
    },
    [](namedList* list, uint32_t) { bgpListDrop(static_cast<bgpList*>(list)); },
    pairTasks,
};

const char* kindName(bgpListKind kind) {
    static constexpr const char* names[BGP_LIST_KINDS] = {"AS-path", "Community",
                                                          "Extended-community"};
    return names[kind];
}

// 0 or -1, with a system error for what the operator should know.
int report(clientResult result, bgpListKind kind, const listName& name, const char* client,
           bool registering) {
    const int length = static_cast<int>(listNameView(name).size());
    switch (result) {
        case clientResult::noList:
            if (!registering) return 0;
            aclSysErr(SYSERR_MEMORY, "Error: Unable to create %s list %.*s for client %s\n",
                      kindName(kind), length, name.text, client);
            return -1;
        case clientResult::noMemory:
            aclSysErr(SYSERR_MEMORY,
                      "Error: Unable to allocate memory for %s list %.*s client %s\n",
                      kindName(kind), length, name.text, client);
            return -1;
        case clientResult::notRegistered:
            aclDebug(DEBUG_ACL_TRIGGER, "Error: %s list %.*s does not have client %s\n",
                     kindName(kind), length, name.text, client);
            return -1;
        case clientResult::done:
        case clientResult::unchanged:
            break;
    }
    return 0;
}

std::string taskText(uint32_t application, uint32_t instance) {
    return "Task Id " + std::to_string(application) + " Instance " + std::to_string(instance);
}

int addTask(bgpListKind kind, uint32_t application, uint32_t instance, const listName& name,
            uint32_t value, std::span<const clientPairValue> pairs) {
    clientResult result =
        clientRegisterTask(store, name, kind, {application, instance, value}, pairs);
    return report(result, kind, name, taskText(application, instance).c_str(), true);
}
int delTask(bgpListKind kind, uint32_t application, uint32_t instance, const listName& name,
            std::span<const clientPairValue> pairs) {
    clientResult result = clientUnregisterTask(store, name, kind, {application, instance}, pairs);
    return report(result, kind, name, taskText(application, instance).c_str(), false);
}

// Which clauses name which lists, in the IPv4 and in the IPv6 class of their side.
struct clauseRow {
    uint32_t code;
    bgpListKind kind;
};
constexpr clauseRow aspathClauses[] = {{RTMAP_MATCH_ASP, BGP_ASPATH}};
constexpr clauseRow communityClauses[] = {
    {RTMAP_MATCH_COMM, BGP_COMM},
    {RTMAP_MATCH_COMM_EXACT, BGP_COMM},
    {RTMAP_MATCH_EXT_COMM, BGP_EXTCOMM},
    {RTMAP_SET_COMMLIST, BGP_COMM},
};

typedef std::span<const clauseRow> clauseRows;
const clauseRow* findClause(clauseRows rows, const rmapMatch& match) {
    const rmapCodeRow* code = rmapCodeFind(match.code);
    if (code == nullptr || !rmapSideHas(code->side, match.cls)) return nullptr;
    auto row = std::ranges::find(rows, match.code, &clauseRow::code);
    return row != rows.end() ? &*row : nullptr;
}

int addRmap(clauseRows rows, const rmapMatch& match, const listName& rmapName,
            const listName& name) {
    const clauseRow* row = findClause(rows, match);
    if (row == nullptr) return 0;
    clientResult result = clientRegisterRmap(store, name, row->kind, rmapName, match.listSlot);
    const std::string client = "Routemap " + std::string(listNameView(rmapName));
    return report(result, row->kind, name, client.c_str(), true);
}
int delRmap(clauseRows rows, const rmapMatch& match, const listName& rmapName,
            const listName& name) {
    const clauseRow* row = findClause(rows, match);
    if (row == nullptr) return 0;
    clientResult result = clientUnregisterRmap(store, name, row->kind, rmapName, match.listSlot);
    const std::string client = "Routemap " + std::string(listNameView(rmapName));
    return report(result, row->kind, name, client.c_str(), false);
}

}  // namespace

int aspTrigger(const bgpList* list, uint32_t kind) {
    static const triggerKind ofPaths = triggerOf(MT_ASPATH_TRIGGER);
    static const triggerKind ofCommunities = triggerOf(MT_COMM_TRIGGER);
    return clientsTrigger(kind == 1 ? ofPaths : ofCommunities, list);
}

int aspAddTaskClient(uint32_t application, uint32_t instance, const listName& name, uint32_t value,
                     std::span<const clientPairValue> pairs) {
    return addTask(BGP_ASPATH, application, instance, name, value, pairs);
}
int aspDelTaskClient(uint32_t application, uint32_t instance, const listName& name,
                     std::span<const clientPairValue> pairs) {
    return delTask(BGP_ASPATH, application, instance, name, pairs);
}
// A registration for a community list carries no pairs.
int commAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                      uint32_t value) {
    return addTask(BGP_COMM, application, instance, name, value, {});
}
int commDelTaskClient(uint32_t application, uint32_t instance, const listName& name) {
    return delTask(BGP_COMM, application, instance, name, {});
}

int aspAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list) {
    return addRmap(aspathClauses, match, rmapName, list);
}
int aspDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list) {
    return delRmap(aspathClauses, match, rmapName, list);
}
int commAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list) {
    return addRmap(communityClauses, match, rmapName, list);
}
int commDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list) {
    return delRmap(communityClauses, match, rmapName, list);
}
