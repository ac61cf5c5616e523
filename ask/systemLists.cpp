// Debug functions about system lists, which the manager makes itself: which there are, and what
// every card should hold of one. Their entries have no numbers and no order that means anything.
#include <algorithm>
#include <vector>

#include "ask/systemWords.h"
#include "common/linecard.h"
#include "download/sendPath.h"
#include "include/agentState.h"
#include "include/jsonText.h"
#include "ipacl/family.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekTask.h"
#include "protocol/AclIpAdd.h"
#include "protocol/systemEntries.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// The contents of entries, as the agents know them by.
struct contents {
    std::vector<uint64_t> hashes;

    void add(const aclEntry& entry) { addImage<agentEntry>(entry); }
    void add(const acl6Entry& entry) { addImage<agentEntry6>(entry); }
    void add(const ipEntryBlock& block) { addBlock<aclEntry>(block); }
    void add(const ip6EntryBlock& block) { addBlock<acl6Entry>(block); }
    // Ascending, and one that stands twice once: a card has it once.
    void settle() {
        std::ranges::sort(hashes);
        hashes.erase(std::unique(hashes.begin(), hashes.end()), hashes.end());
    }
    std::string hash() const {
        agentListHash list;
        for (uint64_t h : hashes) list.add(h);
        return agentHashText(list.value);
    }

  private:
    template <class Image, class Entry>
    void addImage(const Entry& entry) {
        Image image;
        vAclAddEntryToAclList(&image, entry);
        hashes.push_back(agentContentHash(image));
    }
    template <class Entry, class Block>
    void addBlock(const Block& block) {
        Entry entry{};
        entry.block = block;
        add(entry);
    }
};

void append(std::string* rows, const std::string& interface, uint32_t ifindex, uint32_t slot,
            contents* held) {
    held->settle();
    if (!rows->empty()) rows->push_back(',');
    *rows += jsonObject{}
                 .string("interface", interface)
                 .number("direction", INTF_IN)
                 .number("ifindex", ifindex)
                 .string("card", std::to_string(slot))
                 .number("entries", held->hashes.size())
                 .string("hash", held->hash())
                 .text();
}

bool isUp(int slot) {
    return slot != SLOT_NONE && aclLinecardInfo[slot].isUp != 0;
}

// The list itself, at the control port of each card.
void addCards4(const aclList& list, std::string* rows) {
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++) {
        if (!isUp(static_cast<int>(slot))) continue;
        const auto takes = aclEntriesTakenBy(slot);
        contents held;
        for (const aclEntry& e : entriesOf<aclEntry>(list.head))
            if (takes(e.block)) held.add(e);
        append(rows, "control port", ifindexControlPort(slot), slot, &held);
    }
}
// For each card as a whole.
void addCards6(const aclList& list, std::string* rows) {
    contents held;
    for (const acl6Entry& e : entriesOf<acl6Entry>(list.head)) held.add(e);
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (isUp(static_cast<int>(slot))) append(rows, "the card", 0, slot, &held);
}
// What ports hold besides.
template <class Blocks>
void addPorts(Blocks aclSystemEntries::*family, std::string* rows) {
    for (const aclIntf* i = AclIntfTreeFindFirst(); i != nullptr;
         i = AclIntfTreeFindNext(i->ifindex)) {
        const int slot = ifindexSlot(i->ifindex);
        if (i->ifindex < SLOT_COUNT || !isUp(slot)) continue;
        const aclSystemEntries entries = aclPortEntries(i->ifindex);
        if ((entries.*family).empty()) continue;
        contents held;
        for (const auto& block : entries.*family) held.add(block);
        append(rows, agentIfName(i->ifindex).text, i->ifindex, static_cast<uint32_t>(slot), &held);
    }
}

// Those of both families stand in one tree.
template <class Fn>
void forLists(const Fn& fn) {
    for (const aclList* l = ipSysAccessListFindFirst(); l != nullptr;
         l = ipSysAccessListFindNext(l->name))
        fn(*l);
}

std::string systemLists(std::string_view) {
    aclLockHeld<aclLock::read> held;
    std::string rows;
    forLists([&rows](const aclList& list) {
        rows += (rows.empty() ? "" : ",") +
                jsonObject{}
                    .string("list", listNameView(list.name))
                    .string("family", list.family == &ip6SystemFamily ? "ipv6" : "ip")
                    .number("entries", static_cast<uint32_t>(list.count))
                    .text();
    });
    return "[" + rows + "]";
}

}  // namespace

std::string aclIntendedSystem(std::string_view name) {
    const listName wanted = listNameMake(name);
    std::string rows;
    bool found = false;
    forLists([&](const aclList& list) {
        if (list.name != wanted) return;
        found = true;
        if (list.family == &ip6SystemFamily) {
            addCards6(list, &rows);
            addPorts(&aclSystemEntries::v6, &rows);
        } else {
            addCards4(list, &rows);
            addPorts(&aclSystemEntries::v4, &rows);
        }
    });
    return found ? "[" + rows + "]" : R"({"missing":true})";
}

void aclRegisterSystemListFunctions() {
    zekDebugRegister("system-lists", "the lists that the manager makes itself", systemLists);
}
