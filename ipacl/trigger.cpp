// Telling the clients of an access list that it has changed.
#include "common/clients.h"
#include "common/debug.h"
#include "include/service.h"
#include "ipacl/family.h"
#include "ipacl/zekipaccess.h"

namespace {

constexpr taskName taskNames[] = {
    {APP_SNMP, "SNMP"}, {APP_SYSADM, "SYSADMTSK"}, {APP_ACL, "ACL"},        {APP_MPLS, "MPLS"},
    {APP_OSPF, "OSPF"}, {APP_BGP, "BGP"},          {APP_ISIS, "ISIS"},      {APP_RIP, "RIP"},
    {APP_RTM, "RTM"},   {APP_IPM, "IPMGR"},        {APP_DSMGR, "DIFFSERV"}, {APP_IGMP, "IGMP"},
    {APP_PIM, "PIM"},   {APP_TELNET, "TELNET"},
};

}  // namespace

int aclTrigger(const aclList* list) {
    if (list == nullptr) return 0;
    aclDebug(DEBUG_ACL_TRIGGER,
             "Preparing to send triggers to clients for %s ACL " LIST_NAME_FMT "\n",
             list->family->name, listNameArg(list->name));
    return clientsTrigger(
        {list->family->triggerType, "Error in sending Acl Trigger \n",
         "Error in task id for ACL client\n", "Error in ACL Trigger client type\n",
         "Sent Acl Trigger to task %s\n", taskNames},
        list);
}
