// Shows of prefix lists, page by page, and the hit counts.
#include <new>

#include "common/hitCount.h"
#include "common/node.h"
#include "include/cliMsg.h"
#include "include/ipText.h"
#include "include/status.h"
#include "platform/api/zekMem.h"
#include "policy/prefix/family.h"
#include "policy/prefix/order.h"

namespace {

void addLine(std::string& out, const prefixEntry& entry, const prefixFamily& family) {
    out += "   seq ";
    textNumber(out, entry.record->seq);
    // There is no "any" here: meant.
    prefixTextAppend(out, *entry.record, family, aclNode->config.inverseMask != 0);
    textWordSigned(out, " (hit count: ", hitCountGet(entry.hits));
    out += ")\r\n";
}

void addHeader(std::string& out, const prefixList& list, const prefixFamily& family) {
    out += family.word;
    out += " prefix-list ";
    out += listNameView(list.name);
    out += ":\r\n";
    textWordSigned(out, "count: ", static_cast<uint32_t>(list.count));
    textWordSigned(out, ", range entries: ", static_cast<uint32_t>(list.rangeEntries));
    textWordSigned(out, ", sequences: ", list.lowestSeq);
    textWordSigned(out, " - ", list.highestSeq);
    out += "\r\n";
}

std::string pageText(const prefixList& list, const prefixFamily& family, bool lastChanged,
                     uint32_t* resume) {
    std::string out;
    out.reserve(PREFIX_SHOW_BUFFER / 2);
    if (*resume == 0) {
        if (lastChanged) {
            out += family.title;
            out += " Prefix-list with the last deletion/insertion: ";
            out += aclNode->prefix.*family.lastChanged;
            out += "\r\n";
        }
        addHeader(out, list, family);
    }
    const prefixEntry* entry = prefixOrderAt(list.order, *resume);
    uint32_t shown = 0;
    for (; entry != nullptr && shown < PREFIX_SHOW_ENTRIES; entry = entry->next, shown++) {
        // Neighbours in the chain are seldom neighbours in memory: fetch the next one meanwhile.
        if (const auto* next = reinterpret_cast<const char*>(entry->next); next != nullptr)
            for (size_t line = 0; line < sizeof(prefixEntry) + sizeof(prefix6EntryBlock);
                 line += 64)
                __builtin_prefetch(next + line);
        addLine(out, *entry, family);
    }
    *resume = entry != nullptr ? *resume + shown : 0;
    return out;
}

void clearHits(prefixList* list) {
    for (prefixEntry* entry = list->head; entry != nullptr; entry = entry->next) entry->hits = 0;
}

}  // namespace

uint32_t prefixShowList(const prefixList* list, void** buffer, uint32_t* size, uint32_t lastChanged,
                        uint32_t* resume, uint32_t af) {
    *buffer = nullptr;
    *size = 0;
    const prefixFamily* family = prefixFamilyOf(af);
    if (family == nullptr) return ACL_E_SYSTEM;
    if (resume == nullptr) return ACL_E_NOENTRY;
    if (list == nullptr) return ACL_E_PREFIX_NOLIST;
    if (list->placeholder != 0) return ACL_E_PLACEHOLDER;
    void* block = zekMC_M_sysMalloc(PREFIX_SHOW_BUFFER);
    if (block == nullptr) return ACL_E_MEMORY;
    uint32_t shown = *resume;
    std::string text;
    try {
        text = pageText(*list, *family, lastChanged != 0, &shown);
    } catch (const std::bad_alloc&) {
        zekMC_M_sysFree(block);
        return ACL_E_MEMORY;
    }
    // A page of the longest lines there are fills about half of the buffer.
    std::memcpy(static_cast<char*>(block) + SHOW_TEXT_OFFSET, text.c_str(), text.size() + 1);
    auto* header = static_cast<showReplyHdr*>(block);
    header->marker = shown;
    header->name = list->name;
    *resume = shown;
    *buffer = block;
    *size = PREFIX_SHOW_BUFFER;
    return ACL_OK;
}

uint32_t prefixShowIpList(const listName& name, void** buffer, uint32_t* size, uint32_t lastChanged,
                          uint32_t* resume, uint32_t af) {
    return prefixShowList(ipPrefixListFind(name, af), buffer, size, lastChanged, resume, af);
}

uint32_t prefixShowIpListAll(const listName& cursor, void** buffer, uint32_t* size,
                             uint32_t lastChanged, uint32_t* resume, uint32_t af) {
    bool first = listNameIsEmpty(cursor);
    const prefixList* list = nullptr;
    if (!first && resume != nullptr && *resume != 0) list = ipPrefixListFind(cursor, af);
    if (list == nullptr || list->placeholder != 0) {
        // Also when the list that was being shown has gone meanwhile.
        if (resume != nullptr) *resume = 0;
        list = first ? ipPrefixListFindFirst(af) : ipPrefixListFindNext(cursor, af);
        while (list != nullptr && list->placeholder != 0)
            list = ipPrefixListFindNext(list->name, af);
    }
    return prefixShowList(list, buffer, size, first ? lastChanged : 0, resume, af);
}

uint32_t prefixClearIpList(const listName& name, uint32_t af) {
    if (prefixFamilyOf(af) == nullptr) return ACL_E_SYSTEM;
    prefixList* list = ipPrefixListFind(name, af);
    if (list == nullptr) return ACL_E_PREFIX_NOLIST;
    clearHits(list);
    return ACL_OK;
}

uint32_t prefixClearIpListAll(uint32_t af) {
    if (prefixFamilyOf(af) == nullptr) return ACL_E_SYSTEM;
    for (prefixList* list = ipPrefixListFindFirst(af); list != nullptr;
         list = ipPrefixListFindNext(list->name, af))
        clearHits(list);
    return ACL_OK;
}
