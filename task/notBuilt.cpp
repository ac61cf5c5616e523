// What the parts built so far call of the parts that are not: each refuses or does nothing, and
// none pretends. The list of them stands in ARCHITECTURE.md under "Not built yet".
#include "common/hooks.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

uint32_t refuseV6() {
    aclNotBuilt("IPv6 access lists");
    return ACL_E_SYSTEM;
}

}  // namespace

aclList* aclV6AccessListCreate(const listName&, uint32_t, uint32_t, uint32_t* status) {
    *status = refuseV6();
    return nullptr;
}
uint32_t aclV6AccessListDelete(const listName&, uint32_t) {
    return refuseV6();
}
uint32_t aclV6AddAccessEntry(const listName&, ipEntryBlock*, uint32_t, uint32_t) {
    return refuseV6();
}
uint32_t aclV6DelAccessEntry(const listName&, const ipEntryBlock*, uint32_t, uint32_t) {
    return refuseV6();
}
uint32_t aclV6ApplyIntf(const listName&, const aclBindRequest&) {
    return refuseV6();
}
uint32_t aclV6RemoveIntf(const listName&, uint32_t, uint32_t) {
    return refuseV6();
}

// Neither VLAN groups nor IP-MAC lists can be configured yet: nothing stands against a binding.
uint32_t aclCheckForVlanAndMemberConfigurations(uint32_t, const bindingBlock*, bool, uint32_t,
                                                uint32_t) {
    return ACL_OK;
}
uint32_t aclCheckVlanGrpClash(uint32_t, const bindingBlock*, bool) {
    return ACL_OK;
}
uint32_t aclMgrIpMacAclIsPresentOnIntf(uint32_t) {
    return 0;
}
