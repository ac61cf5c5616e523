// Clauses of route maps: a value, a clause or an instance's header comes or goes.
//
// What may be refused is refused before anything is made; what runs out of memory or of lists later
// is undone. Then, in this order: the records, the registrations at the named lists, the map's
// clients, the configuration.
#include <algorithm>
#include <cstring>

#include "policy/rmap/store.h"
#include "policy/rmap/zekroutemap.h"

namespace {

constexpr uint16_t VALUE_INDEX_MAX = 0xFFFF;

bool isSetSide(uint32_t cls) {
    return rmapSideHas(RMAP_SIDE_SET, cls);
}
// Clauses with one value, which the next one overwrites.
bool holdsOneValue(uint32_t cls) {
    return isSetSide(cls) || cls == RTMAP_CONTINUE;
}

// --- requests ------------------------------------------------------------------------------------

// The clause's row, or null for what is no clause of the class and kind that the request states.
const rmapCodeRow* rowOf(const rmapClauseBlock& request) {
    const rmapCodeRow* row = rmapCodeFind(request.code);
    if (row == nullptr || row->style == RMAP_STYLE_NONE || !rmapSideHas(row->side, request.cls) ||
        request.kind != row->kind)
        return nullptr;
    // Its one payload is an IPv6 address.
    if (row->kind == RMAP_KIND_NEXT_HOP && request.cls != RTMAP_MS_V6_SET) return nullptr;
    return row;
}

// Cuts a count of values at its limit. False when there is nothing that a line could show.
bool clampCount(be32& count, uint32_t limit, uint32_t least) {
    if (static_cast<int32_t>(uint32_t{count}) < static_cast<int32_t>(least)) return false;
    count = std::min(uint32_t{count}, limit);
    return true;
}

bool valueIsGood(rmapClauseBlock* request) {
    switch (uint32_t{request->code}) {
        case RTMAP_SET_COMM: {
            rmapCommunity& c = request->community;
            const bool flags = (c.localAs | c.noAdvertise | c.noExport | c.additive | c.none) != 0;
            return clampCount(c.count, RMAP_COMMUNITIES, flags || c.number != 0 ? 0 : 1);
        }
        case RTMAP_SET_PREPEND:
            return clampCount(request->prepend.count, RMAP_PREPENDS, 1);
        case RTMAP_SET_EXT_COMM:
            return clampCount(request->extCommunity.count, RMAP_EXTCOMMS, 1);
    }
    return request->kind != RMAP_KIND_LIST || !listNameIsEmpty(request->list);
}

// Gives the request its number and takes out what its clause does not read, so that equal clauses
// are equal requests.
void canonize(rmapClauseBlock* request) {
    if (rmapSeqOf(request->seq) == -1) request->seq = static_cast<uint32_t>(RMAP_SEQ_DEFAULT);
    request->header = request->header != 0 ? 1 : 0;
    request->action = request->action == RMAP_DENY ? RMAP_DENY : RMAP_PERMIT;
    if (request->header != 0) {
        request->cls = 0;
        request->code = 0;
        request->kind = RMAP_KIND_HEADER;
    }
    request->list = listNameMake(request->list);
    if (request->code != RTMAP_SET_MET) request->subValue = 0;
    if (request->cls == RTMAP_CONTINUE) {
        // A continue without a target goes on at the next instance: flag and value are 0.
        if (request->continueFlag != 0) request->value = request->continueTarget;
        request->continueFlag = 1;
        request->continueTarget = request->value;
    }
}

uint32_t checkAdd(rmapClauseBlock* request) {
    if (rmapSeqOf(request->seq) < 1) return ACL_E_RMAP_SEQ;
    if (request->header != 0) return ACL_OK;
    if (rowOf(*request) == nullptr) return ACL_E_RMAP_CLAUSE;
    return valueIsGood(request) ? ACL_OK : ACL_E_RMAP_VALUE;
}

// --- equality ------------------------------------------------------------------------------------

uint32_t sameCode(uint32_t code) {
    return code == RTMAP_MATCH_COMM_EXACT ? uint32_t{RTMAP_MATCH_COMM} : code;
}

bool sameData(const rmapEntry& entry, const rmapClauseBlock& request) {
    if (entry.code == RTMAP_SET_DAMP)
        return std::memcmp(entry.payload->dampening, request.dampening, sizeof request.dampening) ==
               0;
    if (entry.code == RTMAP_SET_EXT_COMM)
        return entry.payload->extCommunity.values[0].b[1] == request.extCommunity.values[0].b[1];
    return true;
}

rmapEntry* findEqual(const rmapList* map, rmapClauseBlock* request) {
    const rmapInstance* instance = rmapInstanceFind(map, rmapSeqOf(request->seq));
    if (instance == nullptr) return nullptr;
    for (rmapEntry* entry = instance->first; entry != nullptr; entry = entry->next) {
        if (entry->header != request->header || entry->cls != request->cls ||
            sameCode(entry->code) != sameCode(request->code))
            continue;
        request->valueIndex = entry->valueIndex;
        if (sameData(*entry, *request)) return entry;
    }
    return nullptr;
}

// --- access lists or prefix lists ----------------------------------------------------------------

// The place of the route that the clause matches, or RMAP_FORM_PAIRS.
size_t formOf(uint32_t code) {
    size_t i = 0;
    while (i < RMAP_FORM_PAIRS && rmapFormPairs[i].accessCode != code &&
           rmapFormPairs[i].prefixCode != code)
        i++;
    return i;
}
bool formRefuses(const rmapInstance* instance, uint32_t code) {
    const size_t form = formOf(code);
    return instance != nullptr && form < RMAP_FORM_PAIRS && instance->forms[form].count != 0 &&
           instance->forms[form].code != code;
}
void formUse(rmapInstance* instance, uint32_t code) {
    const size_t form = formOf(code);
    if (form == RMAP_FORM_PAIRS) return;
    instance->forms[form].code = code;
    instance->forms[form].count++;
}
void formRelease(rmapInstance* instance, uint32_t code) {
    const size_t form = formOf(code);
    if (form == RMAP_FORM_PAIRS || instance->forms[form].count == 0) return;
    if (--instance->forms[form].count == 0) instance->forms[form].code = 0;
}

// --- values --------------------------------------------------------------------------------------

// An index that no value of the clause has: the next one, or after 65,535 of them one that has
// become free. 0: there is none.
template <class Value>
uint16_t freeIndex(rmapEntry* entry, const Value* values) {
    if (entry->valueCount >= VALUE_INDEX_MAX) return 0;
    if (const cfgRmapKey* restored = rmapRestoredKey(); restored != nullptr)
        return entry->valueIndex = restored->valueIndex;
    bool used = true;
    while (used) {
        if (++entry->valueIndex == 0) entry->valueIndex = 1;
        used = false;
        for (const Value* v = values; v != nullptr && !used; v = v->next)
            used = v->index == entry->valueIndex;
    }
    return entry->valueIndex;
}

template <class Value>
void appendValue(rmapEntry* entry, Value** last, Value* value, uint16_t index) {
    value->index = index;
    *last = value;
    entry->valueCount++;
}

uint32_t addName(const rmapList* map, rmapEntry* entry, const rmapClauseBlock& request) {
    rmapNameValue** last = &entry->names;
    for (; *last != nullptr; last = &(*last)->next)
        if ((*last)->name == request.list) return ACL_E_RMAP_NAME_EXISTS;
    if (formRefuses(entry->instance, entry->code)) return ACL_E_RMAP_FORMS;

    rmapNameValue* value = entry->names;
    if (value != nullptr && holdsOneValue(entry->cls)) {
        const listName before = value->name;
        rmapDeregister(map, entry, value);
        value->name = request.list;
        if (rmapRegister(map, entry, value) != 0) {
            // What was registered before finds the memory that it gave back.
            value->name = before;
            (void)rmapRegister(map, entry, value);
            return ACL_E_RMAP_LIST;
        }
    } else {
        const uint16_t index = freeIndex(entry, entry->names);
        value = index != 0 ? rmapNameMake(request.list) : nullptr;
        if (value == nullptr) return ACL_E_RMAP_NAME_MEMORY;
        if (rmapRegister(map, entry, value) != 0) {
            rmapNameFree(value);
            return ACL_E_RMAP_LIST;
        }
        appendValue(entry, last, value, index);
        formUse(entry->instance, entry->code);
    }
    return ACL_OK;
}

uint32_t addNumber(rmapEntry* entry, const rmapClauseBlock& request) {
    rmapNumberValue** last = &entry->numbers;
    for (; *last != nullptr; last = &(*last)->next)
        if (entry->cls != RTMAP_CONTINUE && (*last)->value == request.value &&
            (!isSetSide(entry->cls) || (*last)->subValue == request.subValue))
            return ACL_E_RMAP_NUMBER_EXISTS;

    rmapNumberValue* value = entry->numbers;
    if (value != nullptr && holdsOneValue(entry->cls)) {
        value->value = request.value;
        value->subValue = request.subValue;
    } else {
        const uint16_t index = freeIndex(entry, entry->numbers);
        value = index != 0 ? rmapNumberMake(request.value, request.subValue) : nullptr;
        if (value == nullptr) return ACL_E_RMAP_NUMBER_MEMORY;
        appendValue(entry, last, value, index);
    }
    if (entry->cls == RTMAP_CONTINUE) {
        entry->continueFlag = 1;
        entry->continueTarget = rmapSeqOf(value->value);
    }
    return ACL_OK;
}

template <class Value>
Value* lastOf(Value* value) {
    while (value != nullptr && value->next != nullptr) value = value->next;
    return value;
}

// Writes the line of what an add has put at the end of the clause's values.
void writeNewest(const rmapList* map, const rmapEntry* entry) {
    const bool list = entry->kind == RMAP_KIND_LIST, number = entry->kind == RMAP_KIND_NUMBER;
    rmap_ent_send_to_cfg(entry, 0, list ? lastOf(entry->names) : nullptr,
                         number ? lastOf(entry->numbers) : nullptr, map->name);
}

uint32_t addPayload(rmapEntry* entry, const rmapClauseBlock& request, bool isNew, bool* changed) {
    const rmapPayloadPlace place = rmapPayloadOf(entry->code);
    if (place.size == 0) {
        if (!isNew) return ACL_E_RMAP_NAME_EXISTS;
        entry->valueIndex++;
        return ACL_OK;
    }
    const auto* given = reinterpret_cast<const uint8_t*>(&request) + place.offset;
    // An IPv6 next hop is told and written again, the other payloads are not: meant.
    if (!isNew && entry->kind == RMAP_KIND_PAYLOAD &&
        std::memcmp(entry->payload, given, place.size) == 0)
        *changed = false;
    else
        std::memcpy(entry->payload, given, place.size);
    return ACL_OK;
}

// --- removal -------------------------------------------------------------------------------------

// The clause goes, with its line when that is its own (not a value's).
void dropClause(rmapList* map, rmapEntry* entry) {
    // The fields of the first instance get the last record's: meant.
    map->firstSeq = map->last->seq;
    map->firstAction = map->last->last->action;
    if (entry->kind == RMAP_KIND_PAYLOAD)
        rmap_ent_send_to_cfg(entry, 1, nullptr, nullptr, map->name);
    rmapEntryDrop(map, entry);
    (void)rmapTrigger(map);
}

uint32_t deleteExtCommunities(rmapList* map, int32_t seq) {
    rmapInstance* instance = rmapInstanceFind(map, seq);
    bool found = false;
    for (rmapEntry* entry = instance != nullptr ? instance->first : nullptr; entry != nullptr;) {
        rmapEntry* next = entry->next;
        if (entry->code == RTMAP_SET_EXT_COMM) {
            rmap_ent_send_to_cfg(entry, 1, nullptr, nullptr, map->name);
            rmapEntryDrop(map, entry);
            found = true;
        }
        entry = next;
    }
    if (!found) return ACL_E_RMAP_NOENTRY;
    (void)rmapTrigger(map);
    return ACL_OK;
}

uint32_t deleteName(const rmapList* map, rmapEntry* entry, const rmapClauseBlock& request) {
    rmapNameValue** link = &entry->names;
    while (*link != nullptr && (*link)->name != request.list) link = &(*link)->next;
    rmapNameValue* value = *link;
    if (value == nullptr) return ACL_E_RMAP_NONAME;
    formRelease(entry->instance, entry->code);
    rmapDeregister(map, entry, value);
    rmap_ent_send_to_cfg(entry, 1, value, nullptr, map->name);
    *link = value->next;
    rmapNameFree(value);
    entry->valueCount--;
    return ACL_OK;
}

// Codes whose one number goes whatever the request says.
bool takesFirstNumber(uint32_t code) {
    return code == RTMAP_SET_LPREF || code == RTMAP_SET_MET || code == RTMAP_SET_LEVEL ||
           code == RTMAP_SET_METTYPE || code == RTMAP_SET_TAG || code == RTMAP_CONT_CODE;
}
uint32_t deleteNumber(const rmapList* map, rmapEntry* entry, const rmapClauseBlock& request) {
    rmapNumberValue** link = &entry->numbers;
    if (!takesFirstNumber(entry->code))
        while (*link != nullptr && (*link)->value != request.value) link = &(*link)->next;
    rmapNumberValue* value = *link;
    if (value == nullptr) return ACL_E_RMAP_NONUMBER;
    rmap_ent_send_to_cfg(entry, 1, nullptr, value, map->name);
    *link = value->next;
    rmapNumberFree(value);
    entry->valueCount--;
    return ACL_OK;
}

}  // namespace

rmapEntry* ipRmapEntFind(const listName& name, rmapClauseBlock* request) {
    const rmapList* map = ipRmapListFind(name);
    return map != nullptr ? findEqual(map, request) : nullptr;
}

uint32_t rmapEntryAdd(rmapList* map, rmapClauseBlock* request) {
    rmapProgramDrop(map);
    const int32_t firstSeq = map->firstSeq;
    const uint32_t firstAction = map->firstAction, lastEntryId = map->lastEntryId;
    rmapEntry* entry = findEqual(map, request);
    const bool isNew = entry == nullptr;
    if (isNew) {
        if (formRefuses(rmapInstanceFind(map, rmapSeqOf(request->seq)), request->code))
            return ACL_E_RMAP_FORMS;
        entry = rmapEntryMake(map, *request);
        if (entry == nullptr) return ACL_E_RMAP_ENTRY_MEMORY;
        // A new header's line is written here and again below: meant.
        if (entry->header != 0) rmap_sent_to_cfg(entry, 0, map->name);
    }

    if (entry->header != 0) {
        ipRmapListUpdate(map, request->action, entry->seq);
        (void)rmapTrigger(map);
        entry->valueIndex++;
        rmap_sent_to_cfg(entry, 0, map->name);
        return ACL_OK;
    }
    bool changed = true;
    const uint32_t status = entry->kind == RMAP_KIND_LIST ? addName(map, entry, *request)
                            : entry->kind == RMAP_KIND_NUMBER
                                ? addNumber(entry, *request)
                                : addPayload(entry, *request, isNew, &changed);
    if (status != ACL_OK && isNew) {
        rmapEntryDrop(map, entry);
        map->lastEntryId = lastEntryId;
        map->firstSeq = firstSeq;
        map->firstAction = firstAction;
    }
    if (status != ACL_OK || !changed) return status;
    (void)rmapTrigger(map);
    writeNewest(map, entry);
    return ACL_OK;
}

uint32_t ipAddRmapEntry(const listName& name, rmapClauseBlock* request, uint32_t) {
    const bool hasTarget = request->continueFlag != 0;
    canonize(request);
    const int32_t target = rmapSeqOf(request->continueTarget);
    if (request->continueFlag != 0 && (hasTarget || target != 0) &&
        target <= rmapSeqOf(request->seq))
        return ACL_E_RMAP_CONTINUE;
    rmapList* map = ipRmapListFind(name);
    if (map == nullptr || map->placeholder != 0) return ACL_E_NORMAP;
    if (uint32_t status = checkAdd(request); status != ACL_OK) return status;
    // Without its instance's line the clause would be read as one of the instance before.
    if (request->header == 0 && rmapInstanceFind(map, rmapSeqOf(request->seq)) == nullptr)
        return ACL_E_RMAP_NOENTRY;
    return rmapEntryAdd(map, request);
}

uint32_t ipDelRmapEntry(const listName& name, rmapClauseBlock* request, uint32_t) {
    canonize(request);
    rmapList* map = ipRmapListFind(name);
    if (map == nullptr) return ACL_E_NORMAP;
    if (request->header != 0) return rmapInstanceDelete(map, rmapSeqOf(request->seq));
    rmapProgramDrop(map);
    if (request->cls == RTMAP_MS_SET && request->code == RTMAP_SET_EXT_COMM)
        return deleteExtCommunities(map, rmapSeqOf(request->seq));
    rmapEntry* entry = findEqual(map, request);
    if (entry == nullptr) return ACL_E_RMAP_NOENTRY;
    if (entry->code == RTMAP_SET_V6_NHOP &&
        std::memcmp(entry->payload, request->ipv6NextHop, sizeof request->ipv6NextHop) != 0)
        return ACL_E_RMAP_NOENTRY;

    uint32_t status = ACL_OK;
    if (entry->kind == RMAP_KIND_LIST) status = deleteName(map, entry, *request);
    if (entry->kind == RMAP_KIND_NUMBER) status = deleteNumber(map, entry, *request);
    if (status != ACL_OK) return status;
    if (entry->valueCount != 0) {
        (void)rmapTrigger(map);
        return ACL_OK;
    }
    if (entry->kind == RMAP_KIND_NEXT_HOP)
        rmap_ent_send_to_cfg(entry, 1, nullptr, nullptr, map->name);
    dropClause(map, entry);
    return ACL_OK;
}

void rmapValuesRelease(const rmapList* map, rmapEntry* entry) {
    if (entry->kind == RMAP_KIND_LIST) {
        while (rmapNameValue* value = entry->names) {
            formRelease(entry->instance, entry->code);
            rmapDeregister(map, entry, value);
            entry->names = value->next;
            rmapNameFree(value);
        }
    } else if (entry->kind == RMAP_KIND_NUMBER) {
        while (rmapNumberValue* value = entry->numbers) {
            entry->numbers = value->next;
            rmapNumberFree(value);
        }
    }
    entry->valueCount = 0;
}
