// What the stores need of the task, for test programs that do not link the task itself: the state
// root, the talk, and recorded triggers and copies at the management tasks.
#include "common/debug.h"
#include "common/linecard.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "ipacl/zekipaccess.h"
#include "platform/test/inject.h"

namespace {

void copyRow(const char* task, const aclList& list, const aclEntry* entry, uint32_t messageId) {
    std::string text = std::string(task) + (entry != nullptr ? " entry " : " list ") +
                       std::to_string(messageId) + " " + std::string(listNameView(list.name));
    text += entry != nullptr ? " " + std::to_string(entry->block.seq)
                             : " n " + std::to_string(list.count);
    testRecord(text);
}

}  // namespace

// The row tells the newest entry identifier too: a trigger goes out before it is given.
int aclTrigger(aclList* list, uint32_t ipv6) {
    if (list == nullptr) return 0;
    testRecord("trigger " + std::string(listNameView(list->name)) + " n " +
               std::to_string(list->count) + " id " + std::to_string(list->lastEntryId) +
               (ipv6 != 0 ? " v6" : ""));
    return testFails(TEST_SEND) ? -1 : 0;
}

void aclSendListToSNMP(aclList* list, uint32_t messageId, const aclBinding*) {
    copyRow("snmp", *list, nullptr, messageId);
}
void aclSendEntToSNMP(aclList* list, const aclEntry* entry, uint32_t messageId, const aclBinding*) {
    copyRow("snmp", *list, entry, messageId);
}
void aclSendListToIPM(aclList* list, uint32_t messageId, const aclBinding* binding) {
    std::string task = "ipm" + std::to_string(binding->instance);
    copyRow(task.c_str(), *list, nullptr, messageId);
}
void aclReplayListToIPM(aclList* list, const aclBinding* binding) {
    aclSendListToIPM(list, 14409, binding);
}
bool aclNextListBehind(uint32_t, listName*) {
    return false;
}
void aclSendListToSYSADMTSk(aclList* list, uint32_t messageId) {
    copyRow("sysadm", *list, nullptr, messageId);
}
void aclSendEntToSYSADMTSK(aclList* list, const aclEntry* entry, uint32_t messageId) {
    copyRow("sysadm", *list, entry, messageId);
}
