// IPv6 access lists: their rows of the frame, and the names under which others use them.
//
// Ordinary lists are kept in aclNode->trees.v6acl_tree by name; all of them are extended. System
// lists stand beside those of IPv4.
#include "common/debug.h"
#include "include/agentMsg.h"
#include "include/policyMsg.h"
#include "ipacl/keys.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "match/zekPolicy.h"

namespace {

constexpr keyPart ip6Front[] = {
    {0, 1, offsetof(ip6EntryBlock, action) + KEY_LOW},
    {1, 64, offsetof(ip6EntryBlock, src)},  // source, its mask, destination, its mask
};
constexpr keyPart ip6Extended[] = {
    {66, 1, offsetof(ip6EntryBlock, protocol)},  // byte 65 stays 0
};
constexpr keyPart ip6Icmp[] = {
    {67, 4, offsetof(ip6EntryBlock, icmp)},
};
constexpr keyPart ip6Other[] = {
    {67, 1, offsetof(ip6EntryBlock, tcpFlags)},
    {68, 8, offsetof(ip6EntryBlock, srcLow)},  // four port words
    {76, 1, offsetof(ip6EntryBlock, srcOperator) + KEY_LOW},
    {77, 1, offsetof(ip6EntryBlock, dstOperator) + KEY_LOW},
};
constexpr keyTable ip6Key = {
    KEY_NONE,
    offsetof(ip6EntryBlock, protocol),
    IP_PROTO_ICMP6,
    ip6Front,
    ip6Extended,
    ip6Icmp,
    ip6Other,
    78,
    78,
};
static_assert(ip6Key.length <= DUP_KEY_MAX);

uint32_t contentKey(const void* block, uint8_t key[DUP_KEY_MAX]) {
    return keyBuild(ip6Key, block, key);
}

bool sameRule(const void* a, const void* b) {
    constexpr blockBytes ignored[] = {{offsetof(ip6EntryBlock, counterOptions), 1},
                                      {offsetof(ip6EntryBlock, seq), sizeof(be32)}};
    return sameBut(a, b, sizeof(ip6EntryBlock), ignored);
}

void writeHeader(const aclList& list, uint32_t remove) {
    acl_sent_to_cfg(list.name, remove, list.kind, 1);
}
void writeEntry(const aclList& list, const listEntry& entry, uint32_t remove) {
    v6acl_ent_sent_to_cfg(static_cast<const acl6Entry*>(&entry), remove, list.name);
}

constexpr aclFamily withIp6Entries(zekRadix* aclTrees::*tree) {
    aclFamily family{};
    family.name = "IPv6";
    family.af = AF_IPV6;
    family.tree = tree;
    family.entryBytes = sizeof(acl6Entry);
    family.blockBytes = sizeof(ip6EntryBlock);
    family.seqAt = offsetof(ip6EntryBlock, seq);
    family.seqMax = SEQ_MAX;
    family.sameRule = sameRule;
    family.triggerType = MT_V6_ACL_TRIGGER;
    family.showText = ip6ListText;
    return family;
}

constexpr aclFamily makeIp6() {
    aclFamily family = withIp6Entries(&aclTrees::v6acl_tree);
    family.contentKey = contentKey;
    family.indexAdd = ip6FilterIndexAdd;
    family.indexRemove = ip6FilterIndexRemove;
    family.indexRenumber = ip6FilterIndexRenumber;
    family.indexDrop = ipFilterIndexDrop;
    family.agentIds[INTF_IN] = {MT_ACL_V6_ADDLIST, MT_ACL_V6_ADDENT, MT_ACL_V6_DELENT,
                                MT_ACL_V6_DELLIST};
    family.agentIds[INTF_OUT] = {MT_ACL_V6_EGR_ADDLIST, MT_ACL_V6_EGR_ADDENT, MT_ACL_V6_EGR_DELENT,
                                 MT_ACL_V6_EGR_DELLIST};
    family.copies = mgmtCopies::withoutIpm;
    family.clauseClass = RTMAP_MS_V6_MATCH;
    family.clauseCode = 18;
    family.addClientRefused =
        "Error: Unable to create IPv6 Access-list " LIST_NAME_FMT " in aclAddTaskClient\r\n";
    family.writeHeader = writeHeader;
    family.writeEntry = writeEntry;
    family.block = &CFG_ACCESS_LIST;
    family.textFamily = CFG_FAMILY_V6;
    family.place = INTF_V6;
    family.bindCode = CLI_V6_BIND;
    family.groupWords = "ipv6 access-group ";
    family.applyName = "aclV6ApplyIntf";
    family.removeName = "aclV6RemoveIntf";
    family.onVlans = family.inVlanGroups = true;
    return family;
}

constexpr aclFamily makeIp6System() {
    aclFamily family = withIp6Entries(&aclTrees::aclSys_tree);
    family.agentIds[INTF_IN] = {MT_ACL_V6_SYS_ADDLIST, MT_ACL_V6_SYS_ADDENT, MT_ACL_V6_SYS_DEL,
                                MT_ACL_V6_SYS_DEL};
    return family;
}

}  // namespace

constexpr aclFamily ip6Family = makeIp6();
constexpr aclFamily ip6SystemFamily = makeIp6System();

// --- the names -----------------------------------------------------------------------------------

uint32_t v6AccessDupEntGenerateKey(const ip6EntryBlock& block, uint8_t key[DUP_KEY_MAX]) {
    return contentKey(&block, key);
}

aclList* aclV6AccessListFind(const listName& name) {
    return aclListFind(ip6Family, name);
}
aclList* aclV6AccessListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.v6acl_tree);
}
aclList* aclV6AccessListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.v6acl_tree, name);
}
aclList* aclV6AccessListFindPrev(const listName& name) {
    return nameTreePrev<aclList>(aclNode->trees.v6acl_tree, name);
}

uint32_t aclV6GetTelnetValue(const listName& name) {
    return aclListIsConfigured(name, INTF_V6) ? ACL_OK : ACL_E_NOLIST;
}

aclList* aclV6AccessListCreate(const listName& name, uint32_t, uint32_t placeholder,
                               uint32_t* status) {
    const uint32_t kind = placeholder == 0 ? IP_KIND_EXTENDED : IP_KIND_NONE;
    return aclListCreate(ip6Family, name, kind, placeholder, status);
}
uint32_t aclV6AccessListDelete(const listName& name, uint32_t) {
    return aclListDelete(ip6Family, name, IP_KIND_EXTENDED);
}
uint32_t aclV6AddAccessEntry(const listName& name, ip6EntryBlock* block, uint32_t log,
                             uint32_t monitor) {
    aclDebug(DEBUG_ACL_GENERAL, "Adding entry to IPv6 ACL " LIST_NAME_FMT "\r\n",
             listNameArg(name));
    const uint32_t status = aclListAdd(ip6Family, name, block, {log, monitor});
    if (status == ACL_E_NOLIST) aclDebug(DEBUG_ACL_GENERAL, "ACL not found\r\n");
    return status;
}
uint32_t aclV6DelAccessEntry(const listName& name, const ip6EntryBlock* block, uint32_t send,
                             uint32_t cfgAndTrigger) {
    return aclListDel(ip6Family, name, block, send != 0, cfgAndTrigger != 0);
}

uint32_t aclV6ApplyIntf(const listName& name, const aclBindRequest& request) {
    return aclListApply(ip6Family, name, request);
}
uint32_t aclV6RemoveIntf(const listName& name, uint32_t ifindex, uint32_t direction) {
    return aclListRemove(ip6Family, name, ifindex, direction);
}

uint32_t aclShowV6Acl(const listName& name, void** buffer, uint32_t* size) {
    return aclListShow(ip6Family, name, buffer, size);
}
uint32_t aclShowV6AclAll(const listName& cursor, void** buffer, uint32_t* size) {
    return aclListShowNext(ip6Family, cursor, buffer, size);
}
uint32_t aclClearV6Acl(const listName& name) {
    return aclListClear(ip6Family, name);
}
uint32_t aclClearV6AclAll() {
    return aclListClearAll(ip6Family);
}
