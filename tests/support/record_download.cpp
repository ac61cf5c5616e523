// The end of the send path for tests: every send to an agent is a row and fails when TEST_SEND says
// so. What is zero is left out.
//   ID NAME [SEQ..] to IFINDEX/PIPE [vlan IFINDEX] [n COUNT block B option WORD] [group ID]
#include <cstdio>

#include "download/sendPath.h"
#include "ipacl/family.h"
#include "platform/test/inject.h"

namespace {

void given(std::string& row, const char* format, uint32_t value) {
    char text[24];
    std::snprintf(text, sizeof text, format, value);
    if (value != 0) row += text;
}

}  // namespace

int iAclSendToAclAgent(const aclTarget& target, const aclSend& send) {
    const bool fails = testFails(TEST_SEND);
    std::string row = std::to_string(send.messageId) + " ";
    row += listNameView(send.list->name);
    // A batch's chain is of no family.
    const aclFamily& family = send.list->family != nullptr ? *send.list->family : ip4Family;
    const listEntry* entry = send.entry;
    for (uint32_t left = send.count; entry != nullptr && left > 0; left--, entry = entry->next)
        row += " " + std::to_string(entrySeq(family, *entry));
    given(row, " to %#x", target.ifindex);
    given(row, "/%d", target.pipe);
    given(row, " vlan %#x", target.vlan);
    if (send.entry == nullptr) {
        row += " n " + std::to_string(send.list->count);
        given(row, " block %u", send.block != nullptr ? send.block->b[0] : 0);
        given(row, " option %u", send.option);
    }
    given(row, " group %u", target.groupId);
    testRecord(row + (fails ? " failed" : ""));
    return fails ? -1 : 0;
}
