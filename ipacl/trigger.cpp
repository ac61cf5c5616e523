// Telling the clients of an access list that it has changed.
#include "common/client.h"
#include "common/debug.h"
#include "include/service.h"
#include "ipacl/zekipaccess.h"

namespace {

constexpr taskName taskNames[] = {
    {APP_SNMP, "SNMP"}, {APP_SYSADM, "SYSADMTSK"}, {APP_ACL, "ACL"},        {APP_MPLS, "MPLS"},
    {APP_OSPF, "OSPF"}, {APP_BGP, "BGP"},          {APP_ISIS, "ISIS"},      {APP_RIP, "RIP"},
    {APP_RTM, "RTM"},   {APP_IPM, "IPMGR"},        {APP_DSMGR, "DIFFSERV"}, {APP_IGMP, "IGMP"},
    {APP_PIM, "PIM"},   {APP_TELNET, "TELNET"},
};

struct familyRow {
    const char* preparing;  // one name
    triggerKind trigger;
};
constexpr triggerKind triggerOf(uint32_t mtype) {
    return {mtype,
            "Error in sending Acl Trigger \n",
            "Error in task id for ACL client\n",
            "Error in ACL Trigger client type\n",
            "Sent Acl Trigger to task %s\n",
            taskNames};
}
constexpr familyRow families[] = {
    {"Preparing to send triggers to clients for IP ACL " LIST_NAME_FMT "\n", triggerOf(14460)},
    {"Preparing to send triggers to clients for IPv6 ACL " LIST_NAME_FMT "\n", triggerOf(14529)},
};

}  // namespace

int aclTrigger(aclList* list, uint32_t ipv6) {
    if (list == nullptr) return 0;
    const familyRow& family = families[ipv6 != 0 ? 1 : 0];
    aclDebug(DEBUG_ACL_TRIGGER, family.preparing, listNameArg(list->name));
    for (const aclBinding* b = list->bindings; b != nullptr; b = b->next) {
        // What an interface or a VLAN group needs to know goes to its cards.
        if (b->kind == BIND_INTERFACE || b->kind == BIND_VLAN_GROUP) continue;
        const clientTask task = {b->id, b->instance, 0, 0, nullptr};
        if (triggerClient(family.trigger, b->kind, task, b->rmapName, list->name) != 0) return -1;
    }
    return 0;
}
