// Configuration lines of route maps: a node of the map, and for each instance a "!", its line and a
// line a clause value.
#include <cstring>

#include "common/cfgline.h"
#include "common/debug.h"
#include "common/node.h"
#include "platform/api/zekEvt.h"
#include "policy/rmap/store.h"
#include "policy/rmap/zekroutemap.h"

uint32_t aclIsRmapFirstTime = 0;
bgpAsNotation rmapAsNotation = AS_NOTATION_PLAIN;

namespace {

zekCfgRecord makeRecord(uint32_t lineClass, const cfgRmapKey& key) {
    zekCfgRecord record{};
    std::memcpy(record.key, &key, sizeof key);
    record.section = CFG_SECTION_RMAP;
    record.lineClass = lineClass;
    return record;
}

cfgRmapKey instanceKey(const listName& name, int32_t seq) {
    cfgRmapKey key{};
    std::memcpy(key.name, name.text, sizeof key.name);
    key.seq = static_cast<uint32_t>(seq);
    return key;
}

void insertLine(uint32_t lineClass, const cfgRmapKey& key, std::string_view text,
                const zekCfgRequest& request = {}) {
    zekCfgRecord record = makeRecord(lineClass, key);
    cfgPutText(record.text, text);
    (void)zekCfgInsert(aclNode->config.cfgDb, record, request);
}

cfgRmapKey clauseKey(const rmapEntry* entry, uint16_t valueIndex, const listName& name) {
    cfgRmapKey key = instanceKey(name, entry->seq);
    key.cls = entry->cls;
    key.entryId = entry->entryId;
    key.valueIndex = valueIndex;
    return key;
}

// The request that adds the clause with this value again.
cliRmapClauseReq clauseRequest(const rmapEntry* entry, const rmapNameValue* nameValue,
                               const rmapNumberValue* number, const listName& name) {
    auto request = cfgCommand<cliRmapClauseReq>(CLI_RMAP_ENTRY_ADD, name);
    rmapClauseBlock& clause = request.clause;
    clause.cls = entry->cls;
    clause.code = entry->code;
    clause.kind = entry->kind;
    clause.seq = static_cast<uint32_t>(entry->seq);
    if (nameValue != nullptr) clause.list = nameValue->name;
    if (number != nullptr) {
        clause.value = number->value;
        clause.subValue = number->subValue;
    }
    // A continue without a target is one without the flag.
    if (entry->continueFlag != 0 && entry->continueTarget != 0) {
        clause.continueFlag = 1;
        clause.continueTarget = static_cast<uint32_t>(entry->continueTarget);
    }
    const rmapPayloadPlace place = rmapPayloadOf(entry->code);
    if (place.size != 0)
        std::memcpy(reinterpret_cast<uint8_t*>(&clause) + place.offset, entry->payload, place.size);
    return request;
}

// A clause's line, or the comment in its place: too long a line, or a value without a text.
std::string clauseText(const rmapEntry* entry, const rmapNameValue* nameValue,
                       const rmapNumberValue* number) {
    const std::string line = rmapClauseLine(entry, nameValue, number);
    if (line.size() > CFG_LINE_MAX)
        zekEvtLogPrint(aclNode->evtLogKey, 4,
                       "Configuration is too long to store in Config Manager: returning\r\n");
    return line.empty() ? cfgShowable(rmapClauseName(*entry), 0) : cfgShowable(line);
}

}  // namespace

void rmapCfgRemoveInstance(const listName& name, int32_t seq) {
    (void)zekCfgRemoveNode(aclNode->config.cfgDb,
                           makeRecord(CFG_CLASS_POLICY_SEPARATOR, instanceKey(name, seq)));
}
void rmapCfgRemoveMap(const listName& name) {
    (void)zekCfgRemoveExact(aclNode->config.cfgDb,
                            makeRecord(CFG_CLASS_BGP_LIST, instanceKey(name, 0)));
}
void rmapCfgSyncGone(const listName& name) {
    std::string line = "route-map ";
    line += listNameView(name);
    line += ' ';  // meant
    cfgSync(CFG_SYNC_HEADER, name, line, true);
}

void rmap_sent_to_cfg(const rmapEntry* header, uint32_t remove, const listName& name) {
    const cfgRmapKey key = instanceKey(name, header->seq);
    const std::string line = rmapInstanceText(name, header->action, header->seq);
    if (remove != 0) {
        rmapCfgRemoveInstance(name, header->seq);
        cfgSync(CFG_SYNC_HEADER, name, line, true);
        return;
    }
    if (aclIsRmapFirstTime != 0) insertLine(CFG_CLASS_BGP_LIST, instanceKey(name, 0), "");
    insertLine(CFG_CLASS_POLICY_SEPARATOR, key, "!");
    cfgSync(CFG_SYNC_HEADER, name, line, false);
    auto request = cfgCommand<cliRmapReq>(CLI_RMAP_CREATE, name);
    request.action = header->action;
    request.seq = static_cast<uint32_t>(header->seq);
    insertLine(CFG_CLASS_RMAP_LINE, key, line, cfgRequestOf(request));
}

void rmap_sent_to_cfg_update(const rmapEntry* header, uint32_t oldAction, const listName& name) {
    const cfgRmapKey key = instanceKey(name, header->seq);
    (void)zekCfgRemoveExact(aclNode->config.cfgDb, makeRecord(CFG_CLASS_RMAP_LINE, key));
    cfgSync(CFG_SYNC_HEADER, name, rmapInstanceText(name, oldAction, header->seq), true);
    rmap_sent_to_cfg(header, 0, name);
}

void rmap_ent_send_to_cfg(const rmapEntry* entry, uint32_t remove, const rmapNameValue* nameValue,
                          const rmapNumberValue* number, const listName& name) {
    const cfgRmapKey key = clauseKey(entry,
                                     nameValue != nullptr ? nameValue->index
                                     : number != nullptr  ? number->index
                                                          : entry->valueIndex,
                                     name);
    const std::string line = clauseText(entry, nameValue, number);
    if (remove != 0) {
        (void)zekCfgRemoveExact(aclNode->config.cfgDb, makeRecord(CFG_CLASS_RMAP_LINE, key));
    } else {
        const cliRmapClauseReq request = clauseRequest(entry, nameValue, number, name);
        insertLine(CFG_CLASS_RMAP_LINE, key, line, cfgRequestOf(request));
    }
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
    const std::string line = clauseText(entry, nullptr, nullptr);
    const cliRmapClauseReq request = clauseRequest(entry, nullptr, nullptr, name);
    insertLine(CFG_CLASS_RMAP_LINE, clauseKey(entry, valueIndex, name), line,
               cfgRequestOf(request));
    cfgSync(CFG_SYNC_RMAP, name, line, false, static_cast<uint32_t>(entry->seq));
}
