// download/zekacl_download.h for tests: every send is a row and fails when TEST_SEND says so.
//   agent list|entry ID NAME.. / vlan list|entry|replay.. / group list|entry.. / dos list|entry..
#include <cstdio>

#include "download/zekacl_download.h"
#include "platform/test/inject.h"

namespace {

std::string number(const char* word, uint32_t value) {
    return std::string(" ") + word + " " + std::to_string(static_cast<int32_t>(value));
}
std::string given(const char* word, uint32_t value) {
    return value != 0 ? number(word, value) : "";
}

std::string interface(uint32_t ifindex) {
    char text[24];
    std::snprintf(text, sizeof text, " if %#x", ifindex);
    return text;
}

// One entry's number, or the list as it stands at this moment: entries, and the first byte of the
// block that goes with it.
std::string content(const aclList& list, const aclEntry* entry = nullptr) {
    return entry != nullptr ? " " + std::to_string(entry->block.seq)
                            : number("n", static_cast<uint32_t>(list.count)) +
                                  given("block", list.sendBlock.b[0]);
}

int send(const std::string& what, uint32_t messageId, const listName& name,
         const std::string& rest) {
    const bool fails = testFails(TEST_SEND);
    testRecord(what + " " + std::to_string(messageId) + " " + std::string(listNameView(name)) +
               rest + (fails ? " failed" : ""));
    return fails ? -1 : 0;
}

}  // namespace

int aclSendToAclAgent(aclList* list, uint32_t ifindex, uint32_t flag, uint32_t messageId,
                      uint32_t option, uint32_t portPipe, uint32_t groupId) {
    return send("agent list", messageId, list->name,
                interface(ifindex) + number("pipe", portPipe) + number("option", option) +
                    content(*list) + given("no flag", flag - 1) + given("group", groupId));
}

int aclSendEntToAclAgent(const aclEntry* entry, uint32_t ifindex, uint32_t messageId,
                         uint32_t count, uint32_t portPipe, uint32_t groupId,
                         const listName& name) {
    std::string chain;
    for (; count > 0; count--, entry = entry->next) chain += " " + std::to_string(entry->block.seq);
    return send("agent entry", messageId, name,
                chain + interface(ifindex) + number("pipe", portPipe) + given("group", groupId));
}

int aclSendVlanAclToAclAgent(aclList* list, uint32_t vlanIfindex, uint32_t, uint32_t messageId,
                             uint32_t implicitPermit, uint32_t ipv6) {
    return send("vlan list", messageId, list->name,
                interface(vlanIfindex) + number("option", implicitPermit) + content(*list) +
                    given("v6", ipv6));
}

int aclSendVlanAclEntToAclAgent(const aclEntry* entry, uint32_t vlanIfindex, uint32_t,
                                uint32_t messageId, uint32_t count, uint32_t ipv6,
                                const listName& name) {
    return send("vlan entry", messageId, name,
                " " + std::to_string(entry->block.seq) + interface(vlanIfindex) +
                    given("more", count - 1) + given("v6", ipv6));
}

int aclSendVlanAclForResetLinecard(aclList* list, const aclBinding* binding, uint32_t slot,
                                   uint32_t messageId, uint32_t ipv6) {
    list->sendBlock = binding->block;
    return send("vlan replay", messageId, list->name,
                interface(binding->id) + number("slot", slot) +
                    number("option", binding->implicitPermit) + content(*list) + given("v6", ipv6));
}

int dosSendToAllAgents(aclList* list, const aclEntry* entry, uint32_t messageId) {
    return send(entry != nullptr ? "dos entry" : "dos list", messageId, list->name,
                content(*list, entry));
}

int aclSendToVlanGroup(aclList* list, const aclEntry* entry, uint32_t groupId, uint32_t messageId) {
    return send(entry != nullptr ? "group entry" : "group list", messageId, list->name,
                content(*list, entry) + number("group", groupId));
}
