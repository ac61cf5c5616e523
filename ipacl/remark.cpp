// Remarks of access lists: numbered texts beside the entries, in ascending order, that leave with
// the entry of the same number and with their list.
#include "common/chain.h"
#include "include/ipText.h"
#include "ipacl/family.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"

namespace {

void unlinkAndFree(aclList* list, aclRemark* remark) {
    chainUnlink(&list->remarks, remark);
    zekMC_M_memBlockVarFree(remark);
}

}  // namespace

void aclManageAclEntryRemark(const aclRemark& remark, const aclList& list, uint32_t remove) {
    if (listNameIsGenerated(list.name)) return;
    std::string line = " remark ";
    textNumber(line, remark.seq);
    line += ' ';
    line.append(remark.text, strnlen(remark.text, REMARK_LEN));
    // An entry's removal may have taken the line already.
    cfgWriteNumbered(list.name,
                     {*list.family->block, list.family->textFamily, CFG_ROLE_REMARK,
                      list.kind == IP_KIND_STANDARD ? CFG_SYNC_STANDARD : CFG_SYNC_EXTENDED,
                      remark.seq, line, line},
                     remove != 0);
}

uint32_t aclDelV4RemarkEntryFromList(const listName&, uint32_t seq, aclList* list) {
    aclRemark* remark = list->remarks;
    while (remark != nullptr && remark->seq < seq) remark = remark->next;
    if (remark == nullptr || remark->seq != seq) return 1;
    aclManageAclEntryRemark(*remark, *list, 1);
    unlinkAndFree(list, remark);
    return 0;
}

void aclDelAllRemarks(aclList* list) {
    while (aclRemark* remark = list->remarks) {
        aclManageAclEntryRemark(*remark, *list, 1);
        unlinkAndFree(list, remark);
    }
}
