// Remarks of access lists: numbered texts beside the entries, in ascending order, that leave with
// the entry of the same number and with their list.
#include <algorithm>

#include "common/chain.h"
#include "common/record.h"
#include "include/ipText.h"
#include "interface/interface.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "platform/api/zekMem.h"

namespace {

constexpr uint32_t SEQ_BITS = 8 * sizeof(be32);

aclRemark* remarkOf(zekRadixNode* node) {
    return treeRecord<aclRemark>(node, offsetof(aclRemark, link));
}

// The remark in front of which a number belongs; null: the tail.
aclRemark* successor(const aclRemarks& remarks, const be32& seq) {
    if (remarks.tail == nullptr || remarks.tail->seq < seq) return nullptr;
    return remarkOf(zekRadixGetNext(remarks.bySeq, &seq, SEQ_BITS));
}

void setText(aclRemark* remark, std::string_view text) {
    std::memset(remark->text, 0, sizeof remark->text);
    std::memcpy(remark->text, text.data(), std::min(text.size(), REMARK_LEN));
}

std::string_view textOf(const char* field) {
    return {field, strnlen(field, REMARK_LEN)};
}

void unlinkAndFree(aclRemarks* remarks, aclRemark* remark) {
    onDemandTreeRemove(&remarks->bySeq, &remark->link);
    chainUnlink(&remarks->head, &remarks->tail, remark);
    zekMC_M_memBlockVarFree(remark);
}

// --- what the commands say ---

// By which code a remark comes into a list of a family (intfFamily), and goes.
constexpr uint32_t addCodes[INTF_FAMILIES] = {CLI_REMARK_ADD, CLI_V6_REMARK_ADD,
                                              CLI_MAC_REMARK_ADD};
// An add is of an IPv4 list unless its code says otherwise, a delete of a MAC list: meant.
uint32_t familyOfAdd(uint32_t code) {
    return code == CLI_V6_REMARK_ADD ? INTF_V6 : code == CLI_MAC_REMARK_ADD ? INTF_MAC : INTF_V4;
}
uint32_t familyOfDelete(uint32_t code) {
    return code == CLI_REMARK_DELETE ? INTF_V4 : code == CLI_V6_REMARK_DELETE ? INTF_V6 : INTF_MAC;
}

// The configured list, or null.
aclList* listOf(const listName& name, uint32_t place) {
    aclList* list = aclListFind(aclFamilyOf(place), name);
    return list != nullptr && list->placeholder == 0 ? list : nullptr;
}

uint32_t addRequested(const cliRemarkReq& request, aclList* list) {
    const std::string_view text = cfgFreeText(request.text, REMARK_LEN);
    return text.empty() ? uint32_t{ACL_E_SYSTEM} : aclRemarkAdd(list, request.seq, text);
}

}  // namespace

void aclManageAclEntryRemark(const aclRemark& remark, const aclList& list, uint32_t remove) {
    if (aclListIsGenerated(list)) return;
    const aclFamily& family = *list.family;
    std::string line = " remark ";
    textNumber(line, remark.seq);
    line += ' ';
    line += textOf(remark.text);
    auto request = cfgCommand<cliRemarkReq>(addCodes[family.place], list.name);
    request.seq = remark.seq;
    std::memcpy(request.text, remark.text, sizeof request.text);
    cfgWriteNumbered(list.name,
                     {*family.block, family.textFamily, CFG_ROLE_REMARK,
                      list.kind == IP_KIND_STANDARD ? CFG_SYNC_STANDARD : CFG_SYNC_EXTENDED,
                      remark.seq, line, line, cfgRequestOf(request)},
                     remove != 0);
}

aclRemark* aclRemarkFind(const aclRemarks& remarks, uint32_t number) {
    be32 seq;
    seq = number;
    return remarkOf(onDemandTreeFind(remarks.bySeq, &seq, SEQ_BITS));
}

aclRemark* aclRemarkMake(aclRemarks* remarks, uint32_t seq, std::string_view text) {
    auto* remark = recordMake<aclRemark>(POOL_ACCESS_ENTRY);
    if (remark == nullptr) return nullptr;
    remark->seq = seq;
    setText(remark, text);
    aclRemark* next = successor(*remarks, remark->seq);
    if (onDemandTreeInsert(&remarks->bySeq, "aclRemarkTree", &remark->link, &remark->seq,
                           SEQ_BITS) != 0) {
        zekMC_M_memBlockVarFree(remark);
        return nullptr;
    }
    chainLink(&remarks->head, &remarks->tail, remark, next);
    return remark;
}

void aclRemarksFree(aclRemarks* remarks) {
    while (remarks->head != nullptr) unlinkAndFree(remarks, remarks->head);
}

uint32_t aclRemarkAdd(aclList* list, uint32_t seq, std::string_view text) {
    if (seq > list->family->seqMax) return ACL_E_SEQ_RANGE;
    aclRemark* remark = aclRemarkFind(list->remarks, seq);
    if (remark != nullptr)
        setText(remark, text);
    else
        remark = aclRemarkMake(&list->remarks, seq, text);
    if (remark == nullptr) return ACL_E_ENTRY_MEMORY;
    aclManageAclEntryRemark(*remark, *list, 0);
    return ACL_OK;
}

uint32_t aclRemarkDel(aclList* list, uint32_t seq) {
    aclRemark* remark = aclRemarkFind(list->remarks, seq);
    if (remark == nullptr) return 1;
    aclManageAclEntryRemark(*remark, *list, 1);
    unlinkAndFree(&list->remarks, remark);
    return 0;
}

void aclDelAllRemarks(aclList* list) {
    while (const aclRemark* remark = list->remarks.head) (void)aclRemarkDel(list, remark->seq);
}

// --- the names -----------------------------------------------------------------------------------

uint32_t aclFindListToAddRemarkEntry(const cliRemarkReq& request, uint32_t code) {
    aclList* list = listOf(listNameMake(request.cli.name), familyOfAdd(code));
    return list != nullptr ? addRequested(request, list) : uint32_t{ACL_E_NOLIST};
}
uint32_t aclFindListToDelRemarkEntry(const listName& name, uint32_t seq, uint32_t code) {
    aclList* list = listOf(name, familyOfDelete(code));
    if (list == nullptr) return ACL_E_NOLIST;
    (void)aclRemarkDel(list, seq);  // one that is not there is gone: no refusal
    return ACL_OK;
}

uint32_t aclAddV4RemarkEntryToList(const cliRemarkReq& request, aclList* list) {
    return addRequested(request, list);
}
uint32_t aclAddV6RemarkEntryToList(const cliRemarkReq& request, aclList* list) {
    return addRequested(request, list);
}
uint32_t aclAddMacRemarkEntryToList(const cliRemarkReq& request, aclList* list) {
    return addRequested(request, list);
}
uint32_t aclDelV4RemarkEntryFromList(const listName&, uint32_t seq, aclList* list) {
    return aclRemarkDel(list, seq);
}
uint32_t aclDelV6RemarkEntryFromList(const listName&, uint32_t seq, aclList* list) {
    return aclRemarkDel(list, seq);
}
uint32_t aclDelMacRemarkEntryFromList(const listName&, uint32_t seq, aclList* list) {
    return aclRemarkDel(list, seq);
}
aclRemark* aclRemarkV4EntCompareSeq(const listName&, uint32_t seq, const aclList* list) {
    return aclRemarkFind(list->remarks, seq);
}
aclRemark* aclRemarkV6EntCompareSeq(const listName&, uint32_t seq, const aclList* list) {
    return aclRemarkFind(list->remarks, seq);
}
aclRemark* aclRemarkMacEntCompareSeq(const listName&, uint32_t seq, const aclList* list) {
    return aclRemarkFind(list->remarks, seq);
}
