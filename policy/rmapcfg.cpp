// Configuration lines of route maps: a node of the map, and for each instance a "!", its line and a
// line a clause value.
#include <cstring>

#include "common/cfgline.h"
#include "include/debug.h"
#include "include/node.h"
#include "platform/api/zekEvt.h"
#include "policy/rmapstore.h"
#include "policy/zekroutemap.h"

uint32_t aclIsRmapFirstTime = 0;
bgpAsNotation rmapAsNotation = AS_NOTATION_PLAIN;

namespace {

// The longest line that "no " can stand in front of.
constexpr size_t LINE_MAX_LEN = CFG_TEXT_LEN - 1 - 3;

zekCfgRecord makeRecord(uint32_t lineClass, const zekCfgRmapKey& key) {
    zekCfgRecord record{};
    std::memcpy(record.key, &key, sizeof key);
    record.section = CFG_SECTION_RMAP;
    record.lineClass = lineClass;
    return record;
}

zekCfgRmapKey instanceKey(const listName& name, int32_t seq) {
    zekCfgRmapKey key{};
    std::memcpy(key.name, name.text, sizeof key.name);
    key.seq = static_cast<uint32_t>(seq);
    return key;
}

// `typed`: what a restore reads instead, when the line by itself does not tell the clause.
void insertLine(uint32_t lineClass, const zekCfgRmapKey& key, std::string_view text,
                std::string_view typed = {}) {
    zekCfgRecord record = makeRecord(lineClass, key);
    cfgPutText(record.text, text);
    if (typed.empty() || typed == text) {
        (void)zekCfgInsert(aclNode->cfgDb, record);
        return;
    }
    cfgPutText(record.inverseText, typed);
    (void)zekCfgInsertBothLine(aclNode->cfgDb, record);
}

// False, and logged, when the configuration cannot hold the line.
bool fits(std::string_view line) {
    if (line.size() <= LINE_MAX_LEN) return true;
    zekEvtLogPrint(aclNode->evtLogKey, 4,
                   "Configuration is too long to store in Config Manager: returning\r\n");
    return false;
}

}  // namespace

void rmapCfgRemoveInstance(const listName& name, int32_t seq) {
    (void)zekCfgRemoveNode(aclNode->cfgDb,
                           makeRecord(CFG_CLASS_POLICY_SEPARATOR, instanceKey(name, seq)));
}
void rmapCfgRemoveMap(const listName& name) {
    (void)zekCfgRemoveExact(aclNode->cfgDb, makeRecord(CFG_CLASS_BGP_LIST, instanceKey(name, 0)));
}
void rmapCfgSyncGone(const listName& name) {
    std::string line = "route-map ";
    line += listNameView(name);
    line += ' ';  // meant
    cfgSync(CFG_SYNC_HEADER, name, line, true);
}

void rmap_sent_to_cfg(const rmapEntry* header, uint32_t remove, const listName& name) {
    const zekCfgRmapKey key = instanceKey(name, header->seq);
    const std::string line = rmapInstanceText(name, header->action, header->seq);
    if (remove != 0) {
        rmapCfgRemoveInstance(name, header->seq);
        cfgSync(CFG_SYNC_HEADER, name, line, true);
        return;
    }
    if (aclIsRmapFirstTime != 0) insertLine(CFG_CLASS_BGP_LIST, instanceKey(name, 0), "");
    insertLine(CFG_CLASS_POLICY_SEPARATOR, key, "!");
    cfgSync(CFG_SYNC_HEADER, name, line, false);
    insertLine(CFG_CLASS_RMAP_LINE, key, line);
}

void rmap_sent_to_cfg_update(const rmapEntry* header, uint32_t oldAction, const listName& name) {
    const zekCfgRmapKey key = instanceKey(name, header->seq);
    (void)zekCfgRemoveExact(aclNode->cfgDb, makeRecord(CFG_CLASS_RMAP_LINE, key));
    cfgSync(CFG_SYNC_HEADER, name, rmapInstanceText(name, oldAction, header->seq), true);
    rmap_sent_to_cfg(header, 0, name);
}

void rmap_ent_send_to_cfg(const rmapEntry* entry, uint32_t remove, const rmapNameValue* nameValue,
                          const rmapNumberValue* number, const listName& name) {
    const std::string line = rmapClauseLine(entry, nameValue, number);
    const std::string typed = rmapClauseTyped(entry, nameValue, number);
    if (line.empty() || !fits(typed)) return;
    zekCfgRmapKey key = instanceKey(name, entry->seq);
    key.cls = entry->cls;
    key.entryId = entry->entryId;
    key.valueIndex = nameValue != nullptr ? nameValue->index
                     : number != nullptr  ? number->index
                                          : entry->valueIndex;
    if (remove != 0)
        (void)zekCfgRemoveExact(aclNode->cfgDb, makeRecord(CFG_CLASS_RMAP_LINE, key));
    else
        insertLine(CFG_CLASS_RMAP_LINE, key, line, typed);
    cfgSync(CFG_SYNC_RMAP, name, line, remove != 0, static_cast<uint32_t>(entry->seq));
}

uint32_t aclRmapProcBgpASNotation(uint32_t notation) {
    if (notation > AS_NOTATION_DOTPLUS) {
        // The sender had its answer before: only the log can tell.
        aclSysErr(SYSERR_LIST, "AS notation %u is not known\n", notation);
        return ACL_E_SYSTEM;
    }
    rmapAsNotation = static_cast<bgpAsNotation>(notation);
    for (const rmapList* map = ipRmapListFindFirst(); map != nullptr;
         map = ipRmapListFindNext(map->name))
        for (const rmapInstance* at = map->first; at != nullptr; at = at->next)
            for (const rmapEntry* entry = at->first; entry != nullptr; entry = entry->next)
                if (entry->code == RTMAP_SET_PREPEND)
                    rmap_as_path_ent_send_to_cfg(entry, entry->valueIndex, map->name);
    return ACL_OK;
}

void rmap_as_path_ent_send_to_cfg(const rmapEntry* entry, uint16_t valueIndex,
                                  const listName& name) {
    const std::string line = rmapClauseLine(entry, nullptr, nullptr);
    if (!fits(line)) return;
    zekCfgRmapKey key = instanceKey(name, entry->seq);
    key.cls = entry->cls;
    key.entryId = entry->entryId;
    key.valueIndex = valueIndex;
    insertLine(CFG_CLASS_RMAP_LINE, key, line);
    cfgSync(CFG_SYNC_RMAP, name, line, false, static_cast<uint32_t>(entry->seq));
}
