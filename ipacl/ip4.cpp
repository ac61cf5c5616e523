// Ordinary IPv4 access lists: their row of the frame, and the names under which others use them.
//
// Kept in aclNode->trees.acl_tree by name.
#include "common/debug.h"
#include "include/policyMsg.h"
#include "include/service.h"
#include "ipacl/keys.h"
#include "ipacl/propagate.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"
#include "match/zekPolicy.h"

namespace {

// --- when two entries are one rule ---------------------------------------------------------------

constexpr keyPart ip4Front[] = {
    {0, 1, offsetof(ipEntryBlock, action) + KEY_LOW},
    {1, 4, offsetof(ipEntryBlock, src)},
    {5, 4, offsetof(ipEntryBlock, srcMask)},
    {9, 1, offsetof(ipEntryBlock, order) + KEY_LOW},
    {10, 1, offsetof(ipEntryBlock, fragments) + KEY_LOW},
    {11, 1, offsetof(ipEntryBlock, dscp)},
};
constexpr keyPart ip4Extended[] = {
    {12, 4, offsetof(ipEntryBlock, dst)},
    {16, 4, offsetof(ipEntryBlock, dstMask)},
    {20, 1, offsetof(ipEntryBlock, protocol)},
};
constexpr keyPart ip4Icmp[] = {
    {21, 4, offsetof(ipEntryBlock, icmp)},
};
constexpr keyPart ip4Other[] = {
    {21, 1, offsetof(ipEntryBlock, tcpFlags)},
    {22, 8, offsetof(ipEntryBlock, srcLow)},  // four port words
    {30, 1, offsetof(ipEntryBlock, srcOperator) + KEY_LOW},
    {31, 1, offsetof(ipEntryBlock, dstOperator) + KEY_LOW},
};
constexpr keyTable ip4Key = {
    offsetof(ipEntryBlock, kind),
    offsetof(ipEntryBlock, protocol),
    IP_PROTO_ICMP,
    ip4Front,
    ip4Extended,
    ip4Icmp,
    ip4Other,
    12,
    32,
};
static_assert(ip4Key.length <= DUP_KEY_MAX);

bool sameRule(const void* a, const void* b) {
    constexpr blockBytes ignored[] = {{offsetof(ipEntryBlock, counterOptions), 1},
                                      {offsetof(ipEntryBlock, seq), sizeof(be32)}};
    return sameBut(a, b, sizeof(ipEntryBlock), ignored);
}

const ipEntryBlock& blockOf(const void* block) {
    return *static_cast<const ipEntryBlock*>(block);
}
uint32_t contentKey(const void* block, uint8_t key[DUP_KEY_MAX]) {
    return ipAccessDupEntGenerateKey(blockOf(block), key);
}
bool isL2L3(const void* block) {
    return ipEntryIsL2L3(blockOf(block));
}

// --- the rows ------------------------------------------------------------------------------------

void writeHeader(const aclList& list, uint32_t remove) {
    acl_sent_to_cfg(list.name, remove, list.kind, 0);
}
void writeEntry(const aclList& list, const listEntry& entry, uint32_t remove) {
    acl_ent_sent_to_cfg(static_cast<const aclEntry*>(&entry), remove, list.name);
}

// What IPv4, system and DoS lists share.
constexpr aclFamily withIp4Entries(const char* name, zekRadix* aclTrees::*tree) {
    aclFamily family{};
    family.name = name;
    family.af = AF_IPV4;
    family.tree = tree;
    family.entryBytes = sizeof(aclEntry);
    family.blockBytes = sizeof(ipEntryBlock);
    family.seqAt = offsetof(ipEntryBlock, seq);
    family.seqMax = SEQ_MAX;
    family.sameRule = sameRule;
    family.triggerType = MT_ACL_TRIGGER;
    family.showText = ipListText;
    return family;
}

constexpr aclFamily makeIp4System() {
    aclFamily family = withIp4Entries("IP", &aclTrees::aclSys_tree);
    family.agentIds[INTF_IN] = {MT_ACL_SYS_ADDLIST, MT_ACL_SYS_ADDENT, MT_ACL_SYS_DEL,
                                MT_ACL_SYS_DEL};
    return family;
}

constexpr aclFamily makeIp4() {
    aclFamily family = withIp4Entries("IP", &aclTrees::acl_tree);
    family.contentKey = contentKey;
    family.outsideContentTree = isL2L3;
    family.indexAdd = ipFilterIndexAdd;
    family.indexRemove = ipFilterIndexRemove;
    family.indexRenumber = ipFilterIndexRenumber;
    family.indexDrop = ipFilterIndexDrop;
    family.agentIds[INTF_IN] = {MT_ACL_ADDLIST, MT_ACL_ADDENT, MT_ACL_DELENT, MT_ACL_DELLIST};
    family.agentIds[INTF_OUT] = {MT_ACL_EGR_ADDLIST, MT_ACL_EGR_ADDENT, MT_ACL_EGR_DELENT,
                                 MT_ACL_EGR_DELLIST};
    family.copies = mgmtCopies::all;
    family.clauseClass = RTMAP_MS_MATCH;
    family.clauseCode = 5;
    family.writeHeader = writeHeader;
    family.writeEntry = writeEntry;
    family.block = &CFG_ACCESS_LIST;
    family.textFamily = CFG_FAMILY_V4;
    family.place = INTF_V4;
    family.bindCode = CLI_IP_BIND;
    family.groupWords = "ip access-group ";
    family.applyName = "aclIpApplyIntf";
    family.removeName = "aclIpRemoveIntf";
    family.addClientRefused =
        "Error: Unable to create Accesslist " LIST_NAME_FMT " in aclAddTaskClient\n";
    family.onControlPlane = family.onVlans = family.inVlanGroups = true;
    return family;
}

}  // namespace

constexpr aclFamily ip4Family = makeIp4();
constexpr aclFamily ip4SystemFamily = makeIp4System();
constexpr aclFamily dosFamily = withIp4Entries("IP", &aclTrees::dos_tree);

// --- the names -----------------------------------------------------------------------------------

uint32_t ipAccessDupEntGenerateKey(const ipEntryBlock& block, uint8_t key[DUP_KEY_MAX]) {
    return keyBuild(ip4Key, &block, key);
}

aclList* ipAccessListFind(const listName& name) {
    return aclListFind(ip4Family, name);
}
aclList* ipAccessListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.acl_tree);
}
aclList* ipAccessListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.acl_tree, name);
}
aclList* ipAccessListFindPrev(const listName& name) {
    return nameTreePrev<aclList>(aclNode->trees.acl_tree, name);
}
bool ipCheckForPrefixAccessList(const listName& name) {
    return aclListIsConfigured(name, INTF_V4);
}

uint32_t AclGetTelnetValue(const listName& name) {
    return aclListIsConfigured(name, INTF_V4) ? ACL_OK : ACL_E_NOLIST;
}

aclEntry* ipAccessEntFind(const listName& name, const ipEntryBlock* block) {
    return static_cast<aclEntry*>(aclEntryFindEqual(ipAccessListFind(name), block));
}
aclEntry* ipAccessEntCompareSeq(const listName& name, const ipEntryBlock* block) {
    const aclList* list = ipAccessListFind(name);
    return list != nullptr ? static_cast<aclEntry*>(aclDupFindSeq(list, block->seq)) : nullptr;
}

aclList* ipAccessListCreate(const listName& name, uint32_t kind, uint32_t placeholder,
                            uint32_t* status) {
    return aclListCreate(ip4Family, name, kind, placeholder, status);
}
uint32_t ipAccessListDelete(const listName& name, uint32_t kind) {
    return aclListDelete(ip4Family, name, kind);
}
uint32_t ipAddAccessEntry(const listName& name, ipEntryBlock* block, uint32_t log,
                          uint32_t monitor) {
    return aclListAdd(ip4Family, name, block, {log, monitor});
}
uint32_t ipDelAccessEntry(const listName& name, const ipEntryBlock* block, uint32_t send,
                          uint32_t cfgAndTrigger) {
    return aclListDel(ip4Family, name, block, send != 0, cfgAndTrigger != 0);
}

uint32_t aclIpApplyIntf(const listName& name, const aclBindRequest& request) {
    return aclListApply(ip4Family, name, request);
}
uint32_t aclIpRemoveIntf(const listName& name, uint32_t ifindex, uint32_t direction) {
    return aclListRemove(ip4Family, name, ifindex, direction);
}

void ipInvertAccessEntryMask() {
    for (aclList* list = ipAccessListFindFirst(); list != nullptr;
         list = ipAccessListFindNext(list->name)) {
        for (const aclEntry& entry : entriesOf<aclEntry>(list->head)) {
            acl_ent_sent_to_cfg(&entry, 1, list->name);
            acl_ent_sent_to_cfg(&entry, 0, list->name);
        }
        // The removal of an entry's line takes a remark of the same number with it.
        for (aclRemark* remark = list->remarks.head; remark != nullptr; remark = remark->next)
            aclManageAclEntryRemark(*remark, *list, 0);
    }
    // A trace list's lines show masks as well: left as they are they would lose their addresses.
    for (aclList* list = ipDosListFindFirst(); list != nullptr;
         list = ipDosListFindNext(list->name)) {
        for (const aclEntry& entry : entriesOf<aclEntry>(list->head)) {
            dos_ent_sent_to_cfg(&entry, 1, list->name);
            dos_ent_sent_to_cfg(&entry, 0, list->name);
        }
    }
}
