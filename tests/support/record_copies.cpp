// What the stores need of the task, for test programs that do not link the task itself: the state
// root, the talk, and recorded triggers and copies at the management tasks.
#include "common/debug.h"
#include "common/linecard.h"
#include "common/node.h"
#include "download/zekacl_download.h"
#include "ipacl/family.h"
#include "platform/test/inject.h"

namespace {

void copyRow(const char* task, const aclList& list, const listEntry* entry, uint32_t messageId) {
    std::string text = std::string(task) + (entry != nullptr ? " entry " : " list ") +
                       std::to_string(messageId) + " " + std::string(listNameView(list.name));
    text += entry != nullptr ? " " + std::to_string(entrySeq(*list.family, *entry))
                             : " n " + std::to_string(list.count);
    testRecord(text);
}

}  // namespace

// The row tells the newest entry identifier too: a trigger goes out before it is given.
int aclTrigger(const aclList* list) {
    if (list == nullptr) return 0;
    testRecord("trigger " + std::string(listNameView(list->name)) + " n " +
               std::to_string(list->count) + " id " + std::to_string(list->lastEntryId));
    return testFails(TEST_SEND) ? -1 : 0;
}

void aclSendListToSNMP(const aclList* list, uint32_t messageId) {
    copyRow("snmp", *list, nullptr, messageId);
}
void aclSendEntToSNMP(const aclList* list, const listEntry* entry, uint32_t messageId) {
    copyRow("snmp", *list, entry, messageId);
}
void aclSendListToIPM(const aclList* list, uint32_t messageId, const listClient* client) {
    std::string task = "ipm" + std::to_string(client->instance);
    copyRow(task.c_str(), *list, nullptr, messageId);
}
void aclReplayListToIPM(const aclList* list, const listClient* client) {
    aclSendListToIPM(list, 14409, client);
}
bool aclNextListBehind(uint32_t, listName*) {
    return false;
}
void aclSendListToSYSADMTSk(const aclList* list, uint32_t messageId) {
    copyRow("sysadm", *list, nullptr, messageId);
}
void aclSendEntToSYSADMTSK(const aclList* list, const listEntry* entry, uint32_t messageId) {
    copyRow("sysadm", *list, entry, messageId);
}
