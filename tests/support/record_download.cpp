// download/zekacl_download.h for tests: every send is a row and fails when TEST_SEND says so.
//   agent list|entry ID NAME.. / vlan list|entry|replay.. / group list|entry.. / dos list|entry..
#include <cstdio>

#include "download/zekacl_download.h"
#include "ipacl/zekipaccess.h"
#include "platform/test/inject.h"

namespace {

std::string nameOf(const listName& name) {
    return std::string(listNameView(name));
}

std::string number(const char* word, uint32_t value) {
    return std::string(" ") + word + " " + std::to_string(static_cast<int32_t>(value));
}

std::string interface(uint32_t ifindex) {
    char text[24];
    std::snprintf(text, sizeof text, " if %#x", ifindex);
    return text;
}

std::string front(const char* what, uint32_t messageId, const std::string& name) {
    return std::string(what) + " " + std::to_string(messageId) + " " + name;
}

// The list as it stands at this moment: entries, and the first byte of the block that goes with it.
std::string state(const aclList& list) {
    std::string text = number("n", static_cast<uint32_t>(list.count));
    return list.sendBlock.b[0] != 0 ? text + number("block", list.sendBlock.b[0]) : text;
}

int done(std::string text) {
    bool fails = testFails(TEST_SEND);
    testRecord(text + (fails ? " failed" : ""));
    return fails ? -1 : 0;
}

}  // namespace

int aclSendToAclAgent(aclList* list, uint32_t ifindex, uint32_t flag, uint32_t messageId,
                      uint32_t option, uint32_t portPipe, uint32_t groupId) {
    std::string text = front("agent list", messageId, nameOf(list->name)) + interface(ifindex) +
                       number("pipe", portPipe) + number("option", option) + state(*list);
    if (flag != 1) text += number("flag", flag);
    if (groupId != 0) text += number("group", groupId);
    return done(text);
}

int aclSendEntToAclAgent(const aclEntry* entry, uint32_t ifindex, uint32_t messageId,
                         uint32_t count, uint32_t portPipe, uint32_t groupId,
                         const listName& name) {
    std::string text = front("agent entry", messageId, nameOf(name));
    uint32_t chained = 0;
    for (const aclEntry* e = entry; e != nullptr && chained < count; e = e->next) {
        text += " " + std::to_string(static_cast<int32_t>(uint32_t{e->block.seq}));
        chained++;
    }
    if (chained != count) text += " SHORT CHAIN";
    text += interface(ifindex) + number("pipe", portPipe);
    if (groupId != 0) text += number("group", groupId);
    return done(text);
}

int aclSendVlanAclToAclAgent(aclList* list, uint32_t vlanIfindex, uint32_t, uint32_t messageId,
                             uint32_t implicitPermit, uint32_t ipv6) {
    return done(front("vlan list", messageId, nameOf(list->name)) + interface(vlanIfindex) +
                number("option", implicitPermit) + state(*list) + (ipv6 != 0 ? " v6" : ""));
}

int aclSendVlanAclEntToAclAgent(const aclEntry* entry, uint32_t vlanIfindex, uint32_t,
                                uint32_t messageId, uint32_t count, uint32_t ipv6,
                                const listName& name) {
    return done(front("vlan entry", messageId, nameOf(name)) + " " +
                std::to_string(entry->block.seq) + interface(vlanIfindex) +
                (count != 1 ? number("count", count) : "") + (ipv6 != 0 ? " v6" : ""));
}

int aclSendVlanAclForResetLinecard(aclList* list, const aclBinding* binding, uint32_t slot,
                                   uint32_t messageId, uint32_t ipv6) {
    list->sendBlock = binding->block;
    return done(front("vlan replay", messageId, nameOf(list->name)) + interface(binding->id) +
                number("slot", slot) + number("option", binding->implicitPermit) + state(*list) +
                (ipv6 != 0 ? " v6" : ""));
}

int dosSendToAllAgents(aclList* list, const aclEntry* entry, uint32_t messageId) {
    return done(front(entry != nullptr ? "dos entry" : "dos list", messageId, nameOf(list->name)) +
                (entry != nullptr ? " " + std::to_string(entry->block.seq) : state(*list)));
}

int aclV6SendListToAclAgent(uint32_t ifindex, aclList* list, uint32_t messageId, uint32_t slot,
                            int portPipe, uint32_t option) {
    return done(front("agent6 list", messageId, nameOf(list->name)) + interface(ifindex) +
                number("slot", slot) + number("pipe", static_cast<uint32_t>(portPipe)) +
                number("option", option));
}

int aclSendToVlanGroup(aclList* list, const aclEntry* entry, uint32_t groupId, uint32_t messageId) {
    return done(
        front(entry != nullptr ? "group entry" : "group list", messageId, nameOf(list->name)) +
        (entry != nullptr ? " " + std::to_string(entry->block.seq) : state(*list)) +
        number("group", groupId));
}
