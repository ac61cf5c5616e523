// What the stores need of the task, for test programs that do not link the task itself: the state
// root, the talk, and recorded triggers and copies at the management tasks.
#include <cstdarg>
#include <cstdio>

#include "common/debug.h"
#include "common/hooks.h"
#include "common/linecard.h"
#include "common/node.h"
#include "ipacl/zekipaccess.h"
#include "platform/test/inject.h"
#include "tests/support/record_task.h"

aclNodeRecord* aclNode;
aspathAclNodeRecord* aspathAclNode;
aclLinecard aclLinecardInfo[SLOT_COUNT];
uint32_t DEBUG_ACL_MGR = 0;
testBindingChecks testChecks;

namespace {

std::string format(const char* text, va_list args) {
    char buffer[1024];
    std::vsnprintf(buffer, sizeof buffer, text, args);
    return buffer;
}

void copyRow(const char* task, const aclList& list, const aclEntry* entry, uint32_t messageId) {
    std::string text = std::string(task) + (entry != nullptr ? " entry " : " list ") +
                       std::to_string(messageId) + " " + std::string(listNameView(list.name));
    text += entry != nullptr ? " " + std::to_string(entry->block.seq)
                             : " n " + std::to_string(list.count);
    testRecord(text);
}

}  // namespace

void aclDebugPrint(const char*, int, const char* text, ...) {
    va_list args;
    va_start(args, text);
    testRecord("debug " + format(text, args));
    va_end(args);
}

void aclSysErr(uint32_t code, const char* text, ...) {
    char front[32];
    std::snprintf(front, sizeof front, "syserr %#x ", code);
    va_list args;
    va_start(args, text);
    testRecord(front + format(text, args));
    va_end(args);
}

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

uint32_t aclCheckForVlanAndMemberConfigurations(uint32_t, const bindingBlock*, bool, uint32_t,
                                                uint32_t) {
    return testChecks.vlanAndMembers;
}
uint32_t aclCheckVlanGrpClash(uint32_t, const bindingBlock*, bool) {
    return testChecks.vlanGroup;
}
uint32_t aclMgrIpMacAclIsPresentOnIntf(uint32_t) {
    return testChecks.ipMacList;
}
