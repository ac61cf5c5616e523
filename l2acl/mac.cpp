// MAC access lists: their row of the frame, and the names under which others use them.
//
// Kept in aclNode->trees.l2acl_tree by name. An entry is the body that requests carry and agents
// receive, with the counter options behind it.
#include "include/agentMsg.h"
#include "include/policyMsg.h"
#include "ipacl/keys.h"
#include "ipacl/store.h"
#include "l2acl/zekl2acl.h"
#include "match/zekPolicy.h"

namespace {

// What stands behind an entry's front.
struct macRecord {
    macEntryBlock body;
    uint32_t counterOptions;
};
static_assert(sizeof(l2AclEntry) >= sizeof(listEntry) + sizeof(macRecord));

constexpr keyPart macFront[] = {
    {0, 1, offsetof(macEntryBlock, action) + KEY_LOW},
    {1, 12, offsetof(macEntryBlock, src)},  // address, mask
    {13, 1, offsetof(macEntryBlock, order) + KEY_LOW},
};
constexpr keyPart macExtended[] = {
    {14, 12, offsetof(macEntryBlock, dst)},
    {26, 1, offsetof(macEntryBlock, encapsulation) + KEY_LOW},
    {27, 1, offsetof(macEntryBlock, etherTypeOperator) + KEY_LOW},
    {28, 2, offsetof(macEntryBlock, etherType)},  // whole: its first byte alone would not tell
};
constexpr keyTable macKey = {
    offsetof(macEntryBlock, type), KEY_NONE, 0, macFront, macExtended, {}, {}, 14, 30,
};
static_assert(macKey.length <= DUP_KEY_MAX);

uint32_t contentKey(const void* block, uint8_t key[DUP_KEY_MAX]) {
    return keyBuild(macKey, block, key);
}

bool sameRule(const void* a, const void* b) {
    constexpr blockBytes ignored[] = {{offsetof(macEntryBlock, seq), sizeof(be32)}};
    return sameBut(a, b, sizeof(macEntryBlock), ignored);
}

void writeEntry(const aclList& list, const listEntry& entry, uint32_t remove) {
    l2acl_ent_sent_to_cfg(static_cast<const l2AclEntry&>(entry), remove, list);
}

constexpr aclFamily makeMac() {
    aclFamily family{};
    family.name = "MAC";
    family.af = AF_MAC;
    family.tree = &aclTrees::l2acl_tree;
    family.entryBytes = sizeof(l2AclEntry);
    family.blockBytes = sizeof(macRecord);
    family.seqAt = offsetof(macEntryBlock, seq);
    family.seqMax = MAC_SEQ_MAX;
    family.sameRule = sameRule;
    family.contentKey = contentKey;
    family.noTreePlace = "Error: aclSeqNoNodeInsert failed\r\n";
    family.indexAdd = macFilterIndexAdd;
    family.indexRemove = macFilterIndexRemove;
    family.indexRenumber = macFilterIndexRenumber;
    family.indexDrop = ipFilterIndexDrop;
    family.agentIds[INTF_IN] = {MT_L2ACL_ADDLIST, MT_L2ACL_ADDENT, MT_L2ACL_DELENT,
                                MT_L2ACL_DELLIST};
    family.agentIds[INTF_OUT] = {MT_L2ACL_EGR_ADDLIST, MT_L2ACL_EGR_ADDENT, MT_L2ACL_EGR_DELENT,
                                 MT_L2ACL_EGR_DELLIST};
    family.triggerType = MT_MAC_TRIGGER;
    family.addClientRefused =
        "Error: Unable to create Accesslist " LIST_NAME_FMT " in l2AclAddTaskClient\n";
    family.writeHeader = l2acl_sent_to_cfg;
    family.writeEntry = writeEntry;
    family.block = &CFG_MAC_LIST;
    family.textFamily = CFG_FAMILY_V4;  // its section is its own
    family.place = INTF_MAC;
    family.bindCode = CLI_MAC_BIND;
    family.groupWords = "mac access-group ";
    family.applyName = "acll2ApplyIntf";
    family.removeName = "acll2RemoveIntf";
    family.showText = l2AclListText;
    return family;
}

}  // namespace

constexpr aclFamily macFamily = makeMac();

// --- the names -----------------------------------------------------------------------------------

uint32_t macAccessDupEntGenerateKey(const macEntryBlock& body, uint8_t key[DUP_KEY_MAX]) {
    return contentKey(&body, key);
}

aclList* l2AccessListFind(const listName& name) {
    return aclListFind(macFamily, name);
}
aclList* l2AccessListFindFirst() {
    return nameTreeFirst<aclList>(aclNode->trees.l2acl_tree);
}
aclList* l2AccessListFindNext(const listName& name) {
    return nameTreeNext<aclList>(aclNode->trees.l2acl_tree, name);
}
uint32_t l2AclGetTelnetValue(const listName& name) {
    return aclListIsConfigured(name, INTF_MAC) ? ACL_OK : ACL_E_NOLIST;
}
aclList* l2AccessListCreate(const listName& name, uint32_t type, uint32_t placeholder,
                            uint32_t* status) {
    return aclListCreate(macFamily, name, type, placeholder, status);
}
uint32_t l2AccessListDelete(const listName& name, uint32_t type) {
    return aclListDelete(macFamily, name, type);
}

uint32_t l2AddAccessEntry(const listName& name, macEntryBlock* body, uint32_t log,
                          uint32_t counterOptions, uint32_t order, uint32_t monitor) {
    macRecord record{*body, counterOptions};
    record.body.order = order;  // before the check: a delete builds the key from the stored order
    const uint32_t status = aclListAdd(macFamily, name, &record, {log, monitor});
    if (status == ACL_OK) body->seq = record.body.seq;
    return status;
}
uint32_t l2DelAccessEntry(const listName& name, const macEntryBlock* body, uint32_t order) {
    macEntryBlock wanted = *body;
    wanted.order = order;
    return aclListDel(macFamily, name, &wanted, true, true);
}
l2AclEntry* l2AccessEntFind(const listName& name, const macEntryBlock* body) {
    return static_cast<l2AclEntry*>(aclEntryFindEqual(l2AccessListFind(name), body));
}
l2AclEntry* l2AccessEntCompareSeq(const listName& name, const macEntryBlock* body) {
    const aclList* list = l2AccessListFind(name);
    return list != nullptr ? static_cast<l2AclEntry*>(aclDupFindSeq(list, body->seq)) : nullptr;
}

uint32_t acll2ApplyIntf(const listName& name, const aclBindRequest& request) {
    return aclListApply(macFamily, name, request);
}
uint32_t acll2RemoveIntf(const listName& name, uint32_t ifindex, uint32_t direction) {
    return aclListRemove(macFamily, name, ifindex, direction);
}

aclList* l2AclAddTaskClient(uint32_t application, uint32_t instance, const listName& name,
                            uint32_t caller) {
    return aclAddTaskClient(application, instance, name, caller, AF_MAC);
}
int l2AclDelTaskClient(uint32_t application, uint32_t instance, const listName& name) {
    return aclDelTaskClient(application, instance, name, AF_MAC);
}
int l2AclTrigger(const aclList* list) {
    return aclTrigger(list);
}

uint32_t l2aclShowAlist(const aclList* list, void** buffer, uint32_t* size) {
    return aclShowAlist(list, buffer, size);
}
uint32_t aclShowMacAcl(const listName& name, void** buffer, uint32_t* size) {
    return aclListShow(macFamily, name, buffer, size);
}
uint32_t aclShowMacAclAll(const listName& cursor, void** buffer, uint32_t* size) {
    return aclListShowNext(macFamily, cursor, buffer, size);
}
uint32_t aclClearMacAcl(const listName& name) {
    return aclListClear(macFamily, name);
}
uint32_t aclClearMacAclAll() {
    return aclListClearAll(macFamily);
}
