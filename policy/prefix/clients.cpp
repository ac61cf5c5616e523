// Who uses a prefix list, and how they hear of its changes.
#include <algorithm>

#include "common/debug.h"
#include "common/node.h"
#include "include/ipc.h"
#include "include/service.h"
#include "include/status.h"
#include "platform/api/zekEvt.h"
#include "policy/prefix/family.h"

namespace {

constexpr taskName taskNames[] = {
    {61, "ACL"}, {63, "MPLS"},  {64, "OSPF"}, {65, "BGP"},     {72, "ISIS"}, {74, "RIP"},
    {80, "RTM"}, {140, "IGMP"}, {141, "PIM"}, {156, "TELNET"}, {185, "LDP"},
};
constexpr triggerKind prefixTriggers{
    .mtype = MT_PREFIX_TRIGGER,
    .sendFailed = "Error in sending Prefix Trigger \n",
    .unknownTask = "Error in task id for prefix client \n",
    .unknownKind = "Error in Prefix Trigger Client type \n",
    .sent = "Sent Prefix Trigger to task %s\n",
    .names = taskNames,
};

namedList* findList(const listName& name, uint32_t af) {
    return ipPrefixListFind(name, af);
}
namedList* obtainList(const listName& name, uint32_t af) {
    uint32_t status = ACL_OK;
    prefixList* list = ipPrefixListFind(name, af);
    return list != nullptr ? list : ipPrefixListCreate(name, 1, &status, af);
}
void dropList(namedList* list, uint32_t af) {
    listName name = list->name;
    (void)ipPrefixListDelete(name, af);
}
constexpr uint32_t pairTasks[] = {65, 185};  // BGP, LDP: a pair for each peer
constexpr clientStore store{findList, obtainList, dropList, pairTasks};

// The clauses that match by prefix list.
bool isPrefixClause(const rmapMatch& match) {
    struct clause {
        uint16_t cls;
        uint32_t code;
    };
    static constexpr clause clauses[] = {
        {RTMAP_MS_MATCH, 8},     {RTMAP_MS_MATCH, 9},     {RTMAP_MS_MATCH, 11},
        {RTMAP_MS_V6_MATCH, 13}, {RTMAP_MS_V6_MATCH, 14}, {RTMAP_MS_V6_MATCH, 15},
    };
    return std::ranges::any_of(
        clauses, [&](const clause& row) { return row.cls == match.cls && row.code == match.code; });
}

void complainOfList(const prefixFamily& family, const listName& name, const char* caller) {
    aclSysErr(SYSERR_MEMORY, "Error: Unable to create %s Prefix list " LIST_NAME_FMT " in %s\n",
              family.title, listNameArg(name), caller);
}

}  // namespace

int prefixTrigger(const prefixList* list, uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    if (list == nullptr || family == nullptr) return -1;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Preparing to send triggers to clients for %s prefix list " LIST_NAME_FMT "\n",
             family->title, listNameArg(list->name));
    return clientsTrigger(prefixTriggers, list);
}

int prefixAddTaskClient(uint32_t taskId, uint32_t instance, const listName& name,
                        std::span<const clientPairValue> pairs, uint32_t value, uint32_t af) {
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return -1;
    switch (clientRegisterTask(store, name, af, {taskId, instance, value}, pairs)) {
        case clientResult::noList:
            complainOfList(*family, name, "prefixAddTaskClient");
            return -1;
        case clientResult::noMemory: {
            char text[256];
            std::snprintf(text, sizeof text,
                          "Error: Unable to allocate memory for Acl " LIST_NAME_FMT
                          " client Task id %d, instance %d\n",
                          listNameArg(name), static_cast<int>(taskId), static_cast<int>(instance));
            aclSysErr(SYSERR_MEMORY, "%s", text);
            zekEvtLogPrint(aclNode->evtLogKey, 4, text);
            return -1;
        }
        default:
            return 0;
    }
}

int prefixDelTaskClient(uint32_t taskId, uint32_t instance, const listName& name,
                        std::span<const clientPairValue> pairs, uint32_t af) {
    if (prefixFamilyOf(af) == nullptr) return -1;
    if (clientUnregisterTask(store, name, af, {taskId, instance}, pairs) !=
        clientResult::notRegistered)
        return 0;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Error: Acl " LIST_NAME_FMT " does not have client Task Id %d Instance %d\n",
             listNameArg(name), static_cast<int>(taskId), static_cast<int>(instance));
    return -1;
}

int prefixAddRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list,
                        uint32_t af) {
    if (!isPrefixClause(match)) return 0;
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return -1;
    switch (clientRegisterRmap(store, list, af, rmapName, match.listSlot)) {
        case clientResult::noList:
            complainOfList(*family, list, "prefixAddRmapClient");
            return -1;
        case clientResult::noMemory:
            aclSysErr(SYSERR_MEMORY,
                      "Error: Unable to allocate memory for %s Prefix list " LIST_NAME_FMT
                      " client Routemap " LIST_NAME_FMT "\n",
                      family->title, listNameArg(list), listNameArg(rmapName));
            return -1;
        default:
            return 0;
    }
}

int prefixDelRmapClient(const rmapMatch& match, const listName& rmapName, const listName& list,
                        uint32_t af) {
    if (!isPrefixClause(match)) return 0;
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return -1;
    if (clientUnregisterRmap(store, list, af, rmapName, match.listSlot) !=
        clientResult::notRegistered)
        return 0;
    aclSysErr(SYSERR_RMAP_CLIENT,
              "Error: %s Prefix List " LIST_NAME_FMT " does not have client Routemap " LIST_NAME_FMT
              "\n",
              family->title, listNameArg(list), listNameArg(rmapName));
    return -1;
}
