// Descriptions of lists of every kind: which list a request means, and whether it may have one.
#include "common/description.h"
#include "common/tree.h"
#include "ipacl/family.h"
#include "ipacl/zekvlangroup.h"
#include "task/cliCall.h"

namespace {

// One kind of list.
struct describedKind {
    uint32_t kind;  // as the request says it
    // The status of a list that has no header for a description to stand behind.
    uint32_t (*refuse)(const cliDescriptionReq& request);
    cfgDescription (*placeOf)(const cliDescriptionReq& request);
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

template <uint32_t Place>
cfgDescription inAccess(const cliDescriptionReq& request) {
    const aclFamily& family = aclFamilyOf(Place);
    return cfgDescriptionOf(*family.block, family.textFamily, request.cli.name);
}
template <const cfgBlock& Block, cfgFamily Family = CFG_FAMILY_V4>
cfgDescription in(const cliDescriptionReq& request) {
    return cfgDescriptionOf(Block, Family, request.cli.name);
}
cfgDescription inInstance(const cliDescriptionReq& request) {
    return cfgDescriptionOf(request.cli.name, static_cast<int32_t>(uint32_t{request.seq}));
}

// clang-format off
constexpr describedKind kinds[] = {
    {CLI_IP_LIST_CREATE,      refuseAccess<INTF_V4>,                               inAccess<INTF_V4>},
    {CLI_V6_LIST_CREATE,      refuseAccess<INTF_V6>,                               inAccess<INTF_V6>},
    {CLI_MAC_LIST_CREATE,     refuseAccess<INTF_MAC>,                              inAccess<INTF_MAC>},
    {CLI_DOS_LIST_CREATE,     refuseNamed<ipDosListFind, ACL_E_NODOS>,             in<CFG_TRACE_LIST>},
    {DESCRIPTION_PREFIX,      refusePrefix<AF_IPV4>,                               in<CFG_PREFIX_LIST>},
    {DESCRIPTION_V6_PREFIX,   refusePrefix<AF_IPV6>,                               in<CFG_PREFIX_LIST, CFG_FAMILY_V6>},
    {CLI_ASPATH_LIST_CREATE,  refuseNamed<bgpASPAccessListFind, ACL_E_ASPATH_NOLIST>, in<CFG_ASPATH_LIST>},
    {CLI_COMM_LIST_CREATE,    refuseNamed<bgpCommAccessListFind, ACL_E_COMM_NOLIST>, in<CFG_COMM_LIST>},
    {CLI_EXTCOMM_LIST_CREATE, refuseNamed<bgpExtCommListFind, ACL_E_EXTCOMM_NOLIST>, in<CFG_EXTCOMM_LIST>},
    {CLI_GROUP_CREATE,        refuseGroup,                                         in<CFG_ACL_VLAN_GROUP>},
    {CLI_RMAP_CREATE,         refuseInstance,                                      inInstance},
};
// clang-format on

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
    cfgDescription description = kind->placeOf(request);
    if (cfgIsGenerated(description.place.section, request.cli.name)) return ACL_OK;
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
