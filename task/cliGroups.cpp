// Commands about ACL VLAN groups and source guard.
#include "task/cliCall.h"

uint32_t cliGroupCreate(cliCall& call) {
    const bool create = call.code() == CLI_GROUP_CREATE;
    return aclCreateDelAclVlanGrpExt(call.name(), call.as<cliGroupReq>()->id, create);
}

uint32_t cliGroupMember(cliCall& call) {
    const bool add = call.code() == CLI_GROUP_MEMBER_ADD;
    return aclAddDelAclVlanGrpMemberExt(call.name(), call.as<cliGroupReq>()->vlans, add);
}

uint32_t cliGroupApply(cliCall& call) {
    const auto* req = call.as<cliGroupReq>();
    return aclApplyRemoveAclVlanGrpExt(call.name(), listNameMake(req->list), req->implicitPermit,
                                       call.code() == CLI_GROUP_APPLY);
}

uint32_t cliSourceGuard(cliCall& call) {
    const auto* req = call.as<cliSourceGuardReq>();
    ipMacPair pair{req->address, {}, req->vlan};
    std::memcpy(pair.mac, req->mac, sizeof pair.mac);
    return call.code() == CLI_SOURCE_GUARD_ADD ? ipSourceGuardAddExt(req->ifindex, pair)
                                               : ipSourceGuardDelExt(req->ifindex, pair);
}
