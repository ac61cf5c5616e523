// Shows of route maps: with the clauses of an instance in groups, or as the configuration's lines.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "common/hitCount.h"
#include "common/showbuffer.h"
#include "include/cliMsg.h"
#include "include/ipText.h"
#include "platform/api/zekMem.h"
#include "policy/rmap/store.h"
#include "policy/rmap/zekroutemap.h"

namespace {

// Calls fn(name, number) for every value of a clause; once without either when it holds none.
template <class Fn>
void forEachValue(const rmapEntry& entry, Fn fn) {
    if (entry.kind == RMAP_KIND_LIST)
        for (const rmapNameValue* v = entry.names; v != nullptr; v = v->next) fn(v, nullptr);
    else if (entry.kind == RMAP_KIND_NUMBER)
        for (const rmapNumberValue* v = entry.numbers; v != nullptr; v = v->next) fn(nullptr, v);
    else
        fn(nullptr, nullptr);
}

void addGroup(std::string& out, const char* title, const rmapInstance& instance, uint32_t ipv4,
              uint32_t ipv6) {
    out += title;
    for (const rmapEntry* entry = instance.first; entry != nullptr; entry = entry->next) {
        if (entry->header != 0 || (entry->cls != ipv4 && entry->cls != ipv6)) continue;
        const rmapStyle style = rmapClauseStyle(*entry);
        const bool exact = style == RMAP_STYLE_LIST_EXACT;
        out += "    ";
        out += rtmap_code_to_str_conf(exact ? uint32_t{RTMAP_MATCH_COMM} : entry->code, entry->cls);
        forEachValue(*entry, [&](const rmapNameValue* name, const rmapNumberValue* number) {
            // Of lists the name alone: what they are stands in front of them.
            std::string value(name != nullptr ? listNameView(name->name) : std::string_view());
            if (name == nullptr) rmapValueText(value, *entry, name, number);
            value.erase(value.find_last_not_of(' ') + 1);
            value.erase(0, value.find_first_not_of(' '));
            if (!value.empty()) out += ' ';
            out += value;
        });
        if (exact) out += " exact";
        if (style == RMAP_STYLE_LIST_DELETE) out += " delete";
        out += '\n';
    }
}

void addInstance(std::string& out, const rmapList& map, const rmapInstance& instance) {
    out += rmapInstanceText(map.name, instance.action, instance.seq);
    out += '\n';
    addGroup(out, "  Match clauses:\n", instance, RTMAP_MS_MATCH, RTMAP_MS_V6_MATCH);
    addGroup(out, "  Set clauses:\n", instance, RTMAP_MS_SET, RTMAP_MS_V6_SET);
    for (const rmapEntry* entry = instance.first; entry != nullptr; entry = entry->next)
        if (entry->cls == RTMAP_CONTINUE)
            out += " " + rmapClauseLine(entry, nullptr, entry->numbers) + "\n";
    out += "  Hits: ";
    textNumber(out, hitCountGet(instance.hits));
    out += '\n';
}

std::string listText(const rmapList& map) {
    std::string out;
    for (const rmapInstance* at = map.first; at != nullptr; at = at->next)
        addInstance(out, map, *at);
    return out;
}

// In the order of the configuration: by class, then as the clauses came.
void addConfig(std::string& out, const rmapList& map) {
    std::vector<const rmapEntry*> clauses;
    for (const rmapInstance* at = map.first; at != nullptr; at = at->next) {
        if (at->first->header == 0) continue;  // its lines have gone with the header's
        clauses.clear();
        for (const rmapEntry* entry = at->first->next; entry != nullptr; entry = entry->next)
            clauses.push_back(entry);
        std::ranges::stable_sort(clauses, {}, &rmapEntry::cls);
        out += rmapInstanceText(map.name, at->first->action, at->seq);
        out += '\n';
        for (const rmapEntry* entry : clauses)
            forEachValue(*entry, [&](const rmapNameValue* name, const rmapNumberValue* number) {
                std::string line = rmapClauseLine(entry, name, number);
                if (!line.empty()) out += line + "\n";
            });
    }
}

// Makes the reply of a text; the writer is called once.
template <class Writer>
uint32_t reply(Writer writer, void** buffer, uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    try {
        const std::string text = writer();
        return showReplyMake(text, 0, buffer, size) ? ACL_OK : ACL_E_MEMORY;
    } catch (const std::bad_alloc&) {
        return ACL_E_MEMORY;
    }
}

uint32_t whyNot(const rmapList* map) {
    return map == nullptr ? ACL_E_NORMAP : map->placeholder != 0 ? ACL_E_PLACEHOLDER : ACL_OK;
}

}  // namespace

uint32_t aclShowARmapList(const rmapList* map, void** buffer, uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    if (uint32_t status = whyNot(map); status != ACL_OK) return status;
    return reply([&] { return listText(*map); }, buffer, size);
}

uint32_t aclShowRoutemap(const listName& name, void** buffer, uint32_t* size) {
    return aclShowARmapList(ipRmapListFind(name), buffer, size);
}

uint32_t aclShowRoutemapAll(const listName& cursor, void** buffer, uint32_t* size) {
    const rmapList* map =
        listNameIsEmpty(cursor) ? ipRmapListFindFirst() : ipRmapListFindNext(cursor);
    while (map != nullptr && map->placeholder != 0) map = ipRmapListFindNext(map->name);
    const uint32_t status = aclShowARmapList(map, buffer, size);
    if (status != ACL_OK) return status;
    auto* header = static_cast<showReplyHdr*>(*buffer);
    header->marker = SHOW_MARKER;
    header->name = map->name;
    return ACL_OK;
}

uint32_t aclShowARmapListConfig(const rmapList* map, void** buffer, uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    if (uint32_t status = whyNot(map); status != ACL_OK) return status;
    return reply(
        [&] {
            std::string text;
            addConfig(text, *map);
            return text;
        },
        buffer, size);
}

uint32_t aclShowRoutemapConfig(const listName& name, void** buffer, uint32_t* size) {
    if (!listNameIsEmpty(name)) return aclShowARmapListConfig(ipRmapListFind(name), buffer, size);
    return reply(
        [] {
            std::string text;
            for (const rmapList* map = ipRmapListFindFirst(); map != nullptr;
                 map = ipRmapListFindNext(map->name))
                if (map->placeholder == 0) addConfig(text, *map);
            return text;
        },
        buffer, size);
}
