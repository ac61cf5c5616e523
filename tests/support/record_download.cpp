// The end of the send path for tests: every send to an agent is a row and fails when TEST_SEND says
// so.
//   agent list ID NAME if.. [vlan..] pipe.. option.. n COUNT [block..] / agent entry ID NAME SEQ..
//   if..
#include <cstdio>

#include "download/sendPath.h"
#include "ipacl/family.h"
#include "platform/test/inject.h"

namespace {

std::string number(const char* word, uint32_t value) {
    return std::string(" ") + word + " " + std::to_string(static_cast<int32_t>(value));
}
std::string given(const char* word, uint32_t value) {
    return value != 0 ? number(word, value) : "";
}
std::string interface(const char* word, uint32_t ifindex) {
    char text[24];
    std::snprintf(text, sizeof text, " %s %#x", word, ifindex);
    return text;
}

}  // namespace

int iAclSendToAclAgent(const aclTarget& target, const aclSend& send) {
    const bool fails = testFails(TEST_SEND);
    std::string row = send.entry != nullptr ? "agent entry " : "agent list ";
    row += std::to_string(send.messageId) + " " + std::string(listNameView(send.list->name));
    const listEntry* entry = send.entry;
    for (uint32_t left = send.count; entry != nullptr && left > 0; left--, entry = entry->next)
        row += " " + std::to_string(entrySeq(ip4Family, *entry));
    row += interface("if", target.ifindex);
    if (target.vlan != 0) row += interface("vlan", target.vlan);
    row += number("pipe", target.pipe);
    if (send.entry == nullptr)
        row += number("option", send.option) +
               number("n", static_cast<uint32_t>(send.list->count)) +
               given("block", send.block != nullptr ? send.block->b[0] : 0);
    testRecord(row + given("group", target.groupId) + (fails ? " failed" : ""));
    return fails ? -1 : 0;
}
