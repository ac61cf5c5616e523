// Looks at route maps from the debug shell, and puts one right.
#include <algorithm>

#include "common/hitCount.h"
#include "include/ipText.h"
#include "policy/rmap/store.h"
#include "policy/rmap/zekroutemap.h"

namespace {

template <class Fn>
void forEachMap(const listName& name, Fn fn) {
    if (!listNameIsEmpty(name)) {
        if (const rmapList* map = ipRmapListFind(name)) fn(*map);
        return;
    }
    for (const rmapList* map = ipRmapListFindFirst(); map != nullptr;
         map = ipRmapListFindNext(map->name))
        fn(*map);
}

// The faults of one instance; *lastId becomes the highest of its entries' numbers.
void checkInstance(std::string& out, const rmapList& map, const rmapInstance& at,
                   uint32_t* lastId) {
    const std::string where = rmapInstanceText(map.name, at.action, at.seq) + ": ";
    if (at.first == nullptr) out += where + "no records\n";
    if (rmapInstanceFind(&map, at.seq) != &at) out += where + "not in the tree\n";
    uint32_t uses[RMAP_FORM_PAIRS] = {};
    const rmapEntry* before = nullptr;
    for (const rmapEntry* entry = at.first; entry != nullptr; before = entry, entry = entry->next) {
        const std::string entryWhere = where + "entry " + std::to_string(entry->entryId) + ": ";
        if (entry->prev != before) out += entryWhere + "chain\n";
        if (entry->seq != at.seq || entry->instance != &at) out += entryWhere + "instance\n";
        if (entry->header != 0 && before != nullptr) out += entryWhere + "header behind a clause\n";
        *lastId = std::max(*lastId, entry->entryId);
        uint32_t values = 0;
        if (entry->kind == RMAP_KIND_LIST)
            for (const rmapNameValue* v = entry->names; v != nullptr; v = v->next) values++;
        if (entry->kind == RMAP_KIND_NUMBER)
            for (const rmapNumberValue* v = entry->numbers; v != nullptr; v = v->next) values++;
        if (values != entry->valueCount) out += entryWhere + "value count\n";
        for (size_t i = 0; i < RMAP_FORM_PAIRS; i++)
            if (entry->code == rmapFormPairs[i].accessCode ||
                entry->code == rmapFormPairs[i].prefixCode) {
                uses[i] += values;
                if (at.forms[i].code != entry->code) out += entryWhere + "form\n";
            }
    }
    if (at.last != before) out += where + "tail\n";
    for (size_t i = 0; i < RMAP_FORM_PAIRS; i++)
        if (uses[i] != at.forms[i].count) out += where + "count of a form\n";
}

void checkMap(std::string& out, const rmapList& map) {
    const std::string where = "route-map " + std::string(listNameView(map.name)) + ": ";
    const rmapInstance* before = nullptr;
    uint32_t instances = 0, lastId = 0;
    for (const rmapInstance* at = map.first; at != nullptr; before = at, at = at->next) {
        if (at->prev != before || (before != nullptr && before->seq >= at->seq))
            out += where + "chain of instances\n";
        checkInstance(out, map, *at, &lastId);
        instances++;
    }
    if (map.last != before || zekRadixCount(map.bySeq) != instances)
        out += where + "number of instances\n";
    // The next number must be one that no entry has: lines of the configuration stand under it.
    if (lastId > map.lastEntryId) out += where + "entry counter\n";
    // A placeholder lives for its clients only.
    if (map.placeholder != 0 && (map.first != nullptr || map.clients == nullptr))
        out += where + "placeholder\n";
}

void dumpEntry(std::string& out, const rmapEntry& entry) {
    out += "  ";
    out += entry.header != 0 ? "header" : acl_rtmap_ms_to_str(entry.cls);
    if (entry.header == 0) {
        out += ' ';
        out += acl_rtmap_code_to_str(entry.code);
    }
    out += " id " + std::to_string(entry.entryId) + " index " + std::to_string(entry.valueIndex) +
           " action " + std::to_string(entry.action);
    if (entry.continueFlag != 0) out += " continue " + std::to_string(entry.continueTarget);
    if (entry.kind == RMAP_KIND_LIST)
        for (const rmapNameValue* v = entry.names; v != nullptr; v = v->next) {
            out += " [" + std::to_string(v->index) + " ";
            out += listNameView(v->name);
            out += v->list != nullptr ? "]" : " not registered]";
        }
    if (entry.kind == RMAP_KIND_NUMBER)
        for (const rmapNumberValue* v = entry.numbers; v != nullptr; v = v->next)
            out += " [" + std::to_string(v->index) + " " + std::to_string(v->value) + "/" +
                   std::to_string(v->subValue) + "]";
    out += '\n';
}

}  // namespace

uint32_t aclRmapUpdateOneList(const listName& name) {
    rmapList* map = ipRmapListFind(name);
    if (map == nullptr || map->placeholder != 0) return ACL_E_NORMAP;
    aclIsRmapFirstTime = 1;  // the map's own node too
    for (const rmapInstance* at = map->first; at != nullptr; at = at->next)
        for (const rmapEntry* entry = at->first; entry != nullptr; entry = entry->next) {
            if (entry->header != 0)
                rmap_sent_to_cfg(entry, 0, name);
            else if (entry->kind == RMAP_KIND_LIST)
                for (const rmapNameValue* v = entry->names; v != nullptr; v = v->next)
                    rmap_ent_send_to_cfg(entry, 0, v, nullptr, name);
            else if (entry->kind == RMAP_KIND_NUMBER)
                for (const rmapNumberValue* v = entry->numbers; v != nullptr; v = v->next)
                    rmap_ent_send_to_cfg(entry, 0, nullptr, v, name);
            else
                rmap_ent_send_to_cfg(entry, 0, nullptr, nullptr, name);
        }
    aclIsRmapFirstTime = 0;
    (void)rmapTrigger(map);
    return ACL_OK;
}

std::string rmapPrintHits(const listName& name) {
    std::string out;
    forEachMap(name, [&](const rmapList& map) {
        for (const rmapInstance* at = map.first; at != nullptr; at = at->next) {
            out += rmapInstanceText(map.name, at->action, at->seq);
            out += ": ";
            textNumber(out, hitCountGet(at->hits));
            out += " hits\n";
        }
    });
    return out;
}

std::string aclRTest() {
    std::string out;
    forEachMap(listName{}, [&](const rmapList& map) { checkMap(out, map); });
    return out;
}

std::string aclDumpRmapList(const rmapList* map) {
    if (map == nullptr) return "no such route map\n";
    std::string out = "route-map " + std::string(listNameView(map->name));
    out += map->placeholder != 0 ? " placeholder" : " configured";
    out += " first " + std::to_string(map->firstSeq) + "/" + std::to_string(map->firstAction) +
           " entries " + std::to_string(map->lastEntryId) + "\n";
    for (const rmapInstance* at = map->first; at != nullptr; at = at->next) {
        out += " instance " + std::to_string(at->seq) + " hits ";
        textNumber(out, hitCountGet(at->hits));
        out += '\n';
        for (const rmapEntry* entry = at->first; entry != nullptr; entry = entry->next)
            dumpEntry(out, *entry);
    }
    for (const listClient* client = map->clients; client != nullptr; client = client->next)
        out += " client " + std::to_string(client->id) + "/" + std::to_string(client->instance) +
               " pairs " + std::to_string(client->pairCount) + "\n";
    return out;
}

std::string aclDumpAllRmapList() {
    std::string out;
    forEachMap(listName{}, [&](const rmapList& map) { out += aclDumpRmapList(&map); });
    return out;
}
