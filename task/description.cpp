// Descriptions of lists of every kind: which list a request means, and whether it may have one.
#include "common/description.h"
#include "common/tree.h"
#include "ipacl/family.h"
#include "ipacl/zekvlangroup.h"
#include "task/cliCall.h"

namespace {

// One kind of list. `refuse`: the status of a list that has no header for a description to stand
// behind.
struct describedKind {
    uint32_t kind;  // as the request says it
    uint32_t (*refuse)(const cliDescriptionReq& request);
    const cfgBlock* block;  // null: an instance of a route map
    cfgFamily family;
};

uint32_t refuseUnless(const namedList* list, uint32_t noList) {
    return list != nullptr && list->placeholder == 0 ? uint32_t{ACL_OK} : noList;
}

template <uint32_t Place>
uint32_t refuseAccess(const cliDescriptionReq& request) {
    const zekRadix* tree = aclNode->trees.*aclFamilyOf(Place).tree;
    return refuseUnless(nameTreeFind<namedList>(tree, request.cli.name), ACL_E_NOLIST);
}
template <auto Find, uint32_t NoList>
uint32_t refuseNamed(const cliDescriptionReq& request) {
    return refuseUnless(Find(request.cli.name), NoList);
}
template <uint32_t Af>
uint32_t refusePrefix(const cliDescriptionReq& request) {
    return refuseUnless(ipPrefixListFind(request.cli.name, Af), ACL_E_PREFIX_NOLIST);
}
uint32_t refuseInstance(const cliDescriptionReq& request) {
    const rmapList* map = ipRmapListFind(request.cli.name);
    if (map == nullptr || map->placeholder != 0) return ACL_E_NORMAP;
    const auto* instance = rmapInstanceFind(map, static_cast<int32_t>(uint32_t{request.seq}));
    const bool hasLine = instance != nullptr && instance->first->header != 0;
    return hasLine ? uint32_t{ACL_OK} : uint32_t{ACL_E_RMAP_NOENTRY};
}
uint32_t refuseGroup(const cliDescriptionReq& request) {
    const aclVlanGroup* group = aclVlanGroupNext(listName{});
    while (group != nullptr && !(group->name == request.cli.name))
        group = aclVlanGroupNext(group->name);
    return group != nullptr ? uint32_t{ACL_OK} : uint32_t{ACL_E_NOGROUP};
}

constexpr describedKind kinds[] = {
    {CLI_IP_LIST_CREATE, refuseAccess<INTF_V4>, &CFG_ACCESS_LIST, CFG_FAMILY_V4},
    {CLI_V6_LIST_CREATE, refuseAccess<INTF_V6>, &CFG_ACCESS_LIST, CFG_FAMILY_V6},
    {CLI_MAC_LIST_CREATE, refuseAccess<INTF_MAC>, &CFG_MAC_LIST, CFG_FAMILY_V4},
    {CLI_DOS_LIST_CREATE, refuseNamed<ipDosListFind, ACL_E_NODOS>, &CFG_TRACE_LIST, CFG_FAMILY_V4},
    {DESCRIPTION_PREFIX, refusePrefix<AF_IPV4>, &CFG_PREFIX_LIST, CFG_FAMILY_V4},
    {DESCRIPTION_V6_PREFIX, refusePrefix<AF_IPV6>, &CFG_PREFIX_LIST, CFG_FAMILY_V6},
    {CLI_ASPATH_LIST_CREATE, refuseNamed<bgpASPAccessListFind, ACL_E_ASPATH_NOLIST>,
     &CFG_ASPATH_LIST, CFG_FAMILY_V4},
    {CLI_COMM_LIST_CREATE, refuseNamed<bgpCommAccessListFind, ACL_E_COMM_NOLIST>, &CFG_COMM_LIST,
     CFG_FAMILY_V4},
    {CLI_EXTCOMM_LIST_CREATE, refuseNamed<bgpExtCommListFind, ACL_E_EXTCOMM_NOLIST>,
     &CFG_EXTCOMM_LIST, CFG_FAMILY_V4},
    {CLI_GROUP_CREATE, refuseGroup, &CFG_ACL_VLAN_GROUP, CFG_FAMILY_V4},
    {CLI_RMAP_CREATE, refuseInstance, nullptr, CFG_FAMILY_V4},
};

cfgDescription placeOf(const describedKind& kind, const cliDescriptionReq& request) {
    const listName& name = request.cli.name;
    return kind.block != nullptr
               ? cfgDescriptionOf(*kind.block, kind.family, name)
               : cfgDescriptionOf(name, static_cast<int32_t>(uint32_t{request.seq}));
}

// The request without what its kind does not read: the record of the line.
cliDescriptionReq canonical(const cliDescriptionReq& given) {
    auto request = cfgCommand<cliDescriptionReq>(CLI_DESCRIPTION, listNameMake(given.cli.name));
    request.kind = given.kind;
    if (given.kind == CLI_RMAP_CREATE) request.seq = given.seq;
    const std::string_view text = cfgFreeText(given.text, DESCRIPTION_LEN);
    text.copy(request.text, DESCRIPTION_LEN);
    return request;
}

}  // namespace

uint32_t aclManageDescriptionForLists(const cliDescriptionReq& given) {
    const auto* kind = std::ranges::find(kinds, uint32_t{given.kind}, &describedKind::kind);
    const cliDescriptionReq request = canonical(given);
    if (kind == std::end(kinds) || (given.remove == 0 && request.text[0] == '\0'))
        return ACL_E_SYSTEM;
    if (const uint32_t status = kind->refuse(request); status != ACL_OK) return status;
    // Lists that the manager makes itself have no lines.
    if (listNameIsGenerated(request.cli.name)) return ACL_OK;
    cfgDescription description = placeOf(*kind, request);
    if (given.remove != 0) {
        if (!cfgDescriptionRead(&description)) return ACL_E_STORE;
        cfgDescriptionRemove(description);
        return ACL_OK;
    }
    description.request = request;
    description.given = true;
    cfgDescriptionWrite(description);
    return ACL_OK;
}

uint32_t cliDescription(cliCall& call) {
    aclLockHeld<aclLock::write> held;
    return aclManageDescriptionForLists(*call.as<cliDescriptionReq>());
}
