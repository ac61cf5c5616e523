// Who uses a route map, and which lists a route map uses.
#include "common/debug.h"
#include "include/ipc.h"
#include "include/service.h"
#include "policy/rmap/store.h"
#include "policy/rmap/zekroutemap.h"

namespace {

constexpr uint32_t PAIR_TASKS[] = {APP_BGP, APP_RTM};

void dropUnused(namedList* list, uint32_t) {
    rmapDrop(static_cast<rmapList*>(list));
}
constexpr clientStore store{
    [](const listName& name, uint32_t) -> namedList* { return ipRmapListFind(name); },
    [](const listName& name, uint32_t) -> namedList* {
        if (rmapList* map = ipRmapListFind(name)) return map;
        int32_t seq = -1;
        uint32_t status;
        return ipRmapListCreate(name, RMAP_PERMIT, &seq, 1, &status);
    },
    dropUnused, PAIR_TASKS};

constexpr taskName rmapTasks[] = {
    {APP_ACL, "ACL"},   {APP_MPLS, "MPLS"}, {APP_OSPF, "OSPF"}, {APP_BGP, "BGP"},
    {APP_ISIS, "ISIS"}, {APP_RIP, "RIP"},   {APP_RTM, "RTM"},   {APP_TELNET, "TELNET"},
};
constexpr triggerKind rmapChanged{MT_RMAP_TRIGGER,
                                  "Error in sending Route Map Trigger \n",
                                  "Error in task id for rmap client\n",
                                  "Error in Route Map Trigger client type\n",
                                  "Sent Rmap Trigger to task %s",
                                  rmapTasks};

// The stores in which a clause may have its list. Each takes the clauses that are about its lists
// and passes over all others.
typedef int (*registrationFn)(const rmapMatch& match, const listName& map, const listName& list);
struct registrar {
    registrationFn add, remove;
};
uint32_t familyOf(uint16_t cls) {
    return cls == RTMAP_MS_V6_MATCH || cls == RTMAP_MS_V6_SET ? AF_IPV6 : AF_IPV4;
}
constexpr registrar registrars[] = {
    {aclAddRmapClient, aclDelRmapClient},
    {aspAddRmapClient, aspDelRmapClient},
    {commAddRmapClient, commDelRmapClient},
    {[](const rmapMatch& match, const listName& map, const listName& list) {
         return prefixAddRmapClient(match, map, list, familyOf(match.cls));
     },
     [](const rmapMatch& match, const listName& map, const listName& list) {
         return prefixDelRmapClient(match, map, list, familyOf(match.cls));
     }},
};

}  // namespace

int rmapRegister(const rmapList* map, const rmapEntry* entry, rmapNameValue* value) {
    const rmapMatch match{entry->cls, entry->code, &value->list};
    clientRmapChanged = [](const listName& name) { (void)rmapTrigger(ipRmapListFind(name)); };
    value->list = nullptr;
    size_t done = 0;
    while (done < std::size(registrars) && registrars[done].add(match, map->name, value->name) == 0)
        done++;
    if (done == std::size(registrars)) return 0;
    while (done > 0) (void)registrars[--done].remove(match, map->name, value->name);
    value->list = nullptr;
    return -1;
}

void rmapDeregister(const rmapList* map, const rmapEntry* entry, rmapNameValue* value) {
    const rmapMatch match{entry->cls, entry->code, &value->list};
    for (const registrar& r : registrars) (void)r.remove(match, map->name, value->name);
    value->list = nullptr;
}

int rmapAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                      std::span<const clientPairValue> pairs, uint32_t value) {
    if (listNameIsEmpty(name)) return -1;
    const clientResult result =
        clientRegisterTask(store, name, 0, {application, instance, value}, pairs);
    if (result == clientResult::done || result == clientResult::unchanged) return 0;
    aclSysErr(SYSERR_RMAP_CLIENT,
              "Error: Unable to allocate memory for Rmap " LIST_NAME_FMT
              " client Task id %d, instance %d\n",
              listNameArg(name), static_cast<int>(application), static_cast<int>(instance));
    return -1;
}

int rmapDelTaskClient(uint32_t application, uint32_t instance, const listName& name,
                      std::span<const clientPairValue> pairs) {
    if (clientUnregisterTask(store, name, 0, {application, instance}, pairs) !=
        clientResult::notRegistered)
        return 0;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Error: Rmap " LIST_NAME_FMT " does not have client Task Id %d Instance %d\n",
             listNameArg(name), static_cast<int>(application), static_cast<int>(instance));
    return -1;
}

int rmapTrigger(rmapList* map) {
    if (map == nullptr) return 0;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Preparing to send triggers to clients for routemap " LIST_NAME_FMT "\n",
             listNameArg(map->name));
    return clientsTrigger(rmapChanged, map);
}
