// Commands about ACL VLAN groups.
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
