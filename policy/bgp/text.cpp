// The texts of AS-path and community lists: configuration lines and shows. The two resemble each
// other but differ on purpose, at the places that say so.
#include <cstring>
#include <new>

#include "common/showbuffer.h"
#include "include/cliMsg.h"
#include "platform/api/zekMem.h"
#include "policy/bgp/store.h"
#include "policy/bgp/zekbgp_plcy.h"

namespace {

constexpr size_t LINE_MAX_LENGTH = 245;
constexpr size_t PAGE_ENTRIES = 50;
constexpr size_t PAGE_BYTES = 16000;

const char* actionText(const bgpEntry* entry) {
    return entry->action == BGP_DENY ? " deny" : " permit";
}

std::string aspathText(const bgpEntry* entry, bool shown) {
    std::string out = actionText(entry);
    out += ' ';
    out += static_cast<const aspathEntry*>(entry)->text;
    if (!shown) out += ' ';  // the blank at the end is meant
    return out;
}

std::string commText(const bgpEntry* entry, bool shown) {
    const commEntryBlock& block = static_cast<const commEntry*>(entry)->block;
    std::string out = actionText(entry);
    if (entry->kind == COMM_REGEXP) {
        out += " regexp ";
        return out.append(block.text, strnlen(block.text, sizeof block.text));
    }
    // A show leaves the number out: meant.
    if (!shown && block.number != 0)
        out += " " + std::to_string(static_cast<int32_t>(uint32_t{block.number}));
    for (size_t i = 0; i < block.count; i++) {
        out += " " + std::to_string(static_cast<int32_t>(uint32_t{block.high[i]}));
        out += ":" + std::to_string(static_cast<int32_t>(uint32_t{block.low[i]}));
    }
    if (block.noExport != 0) out += " no-export";
    if (block.noAdvertise != 0) out += " no-advertise";
    if (block.localAs != 0) out += " local-AS";
    return out;
}

std::string extCommText(const bgpEntry* entry, bool) {
    const extCommBody& body = static_cast<const extCommEntry*>(entry)->rule.body;
    std::string out = actionText(entry);
    out += ' ';
    if (entry->kind == COMM_REGEXP) {
        out += "regexp ";
        return out.append(body.text, strnlen(body.text, sizeof body.text));
    }
    out += body.selector == EXTCOMM_RT ? "rt " : "soo ";
    for (size_t i = 0; i < body.count; i++) out += bgpExtCommToStr(body.values[i]);
    return out;
}

// The request that adds the entry again; it has room for that of every kind.
cliExtCommReq entryRequest(bgpListKind kind, const bgpEntry* entry, const listName& name) {
    auto request = cfgCommand<cliExtCommReq>(bgpKinds[kind].addCode, name);
    static_assert(sizeof(cliExtCommReq) == sizeof(cliCommReq));
    if (kind == BGP_ASPATH) {
        const auto* from = static_cast<const aspathEntry*>(entry);
        auto* to = reinterpret_cast<cliAspathReq*>(&request);
        to->action = entry->action;
        to->option = from->option;
        std::memcpy(to->text, from->text, strnlen(from->text, sizeof to->text));
    } else if (kind == BGP_COMM) {
        reinterpret_cast<cliCommReq*>(&request)->entry =
            static_cast<const commEntry*>(entry)->block;
    } else {
        request.entry.action = entry->action;
        request.entry.kind = entry->kind;
        request.entry.body = static_cast<const extCommEntry*>(entry)->rule.body;
    }
    return request;
}

std::string (*const entryTexts[BGP_LIST_KINDS])(const bgpEntry* entry, bool shown) = {
    aspathText, commText, extCommText};

// `shown` entries from this one on, one line each, `limit` of them at most.
size_t addLines(std::string* out, const bgpList* list, const bgpEntry* entry, size_t limit) {
    size_t lines = 0;
    for (; entry != nullptr && lines < limit; entry = entry->next, lines++) {
        *out += entryTexts[list->kind](entry, true);
        *out += "\r\n";
    }
    return lines;
}

std::string headText(const bgpList* list) {
    std::string out = bgpKinds[list->kind].header;
    return out.append(listNameView(list->name));
}

uint32_t replyMake(const bgpList* list, uint32_t marker, const std::string& text, size_t least,
                   void** buffer, uint32_t* size) {
    if (!showReplyMake(text, least, buffer, size)) return ACL_E_COMM_MEMORY;
    auto* header = static_cast<showReplyHdr*>(*buffer);
    header->marker = marker;
    header->name = list->name;
    return ACL_OK;
}

uint32_t refuseShow(const bgpList* list, bgpListKind kind) {
    if (list == nullptr) return bgpKinds[kind].noList;
    return list->placeholder != 0 ? uint32_t{ACL_E_PLACEHOLDER} : uint32_t{ACL_OK};
}

uint32_t showWhole(const bgpList* list, bgpListKind kind, uint32_t marker, void** buffer,
                   uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    if (uint32_t status = refuseShow(list, kind); status != ACL_OK) return status;
    try {
        std::string text = headText(list) + "\r\n";
        (void)addLines(&text, list, list->head, SIZE_MAX);
        return replyMake(list, marker, text, 0, buffer, size);
    } catch (const std::bad_alloc&) {
        return ACL_E_COMM_MEMORY;
    }
}

// The list behind a cursor that a walk shows next: placeholders are passed over.
const bgpList* afterCursor(bgpListKind kind, const listName& cursor) {
    const bgpList* list = listNameIsEmpty(cursor) ? bgpListFirst(kind) : bgpListNext(kind, cursor);
    while (list != nullptr && list->placeholder != 0) list = bgpListNext(kind, list->name);
    return list;
}

}  // namespace

// --- configuration ------------------------------------------------------------------------------

std::string bgpEntryLine(bgpListKind kind, const bgpEntry* entry) {
    return entryTexts[kind](entry, false);
}

void bgpListToCfg(const bgpList* list, uint32_t remove) {
    const auto request = cfgCommand<cliHdr>(bgpKinds[list->kind].createCode, list->name);
    cfgWriteHeader(bgpKinds[list->kind].block, CFG_FAMILY_V4, list->name, headText(list),
                   cfgRequestOf(request), remove != 0);
}

void bgpEntryToCfg(bgpListKind kind, const bgpEntry* entry, uint32_t remove, const listName& name) {
    const std::string whole = bgpEntryLine(kind, entry);
    const std::string line = cfgShowable(whole, LINE_MAX_LENGTH);
    if (!cfgIsShown(line) && remove == 0)
        zekEvtLogPrint(aclNode->evtLogKey, 4,
                       "Configuration is too long to store in Config Manager: returning\r\n");
    const bgpKindRow& row = bgpKinds[kind];
    const cliExtCommReq request = entryRequest(kind, entry, name);
    cfgWriteEntry(name,
                  {row.block, CFG_FAMILY_V4, CFG_ROLE_ENTRY, row.sync, entry->id, line, line,
                   cfgRequestOf(request)},
                  remove != 0, false);
}

// --- shows --------------------------------------------------------------------------------------

uint32_t aclShowASPathListConfig(const bgpList* list, uint32_t* resume, void** buffer,
                                 uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    if (resume == nullptr) return ACL_E_NOENTRY;
    if (uint32_t status = refuseShow(list, BGP_ASPATH); status != ACL_OK) return status;
    try {
        const uint32_t before = *resume;
        std::string text;
        if (before == 0) text = headText(list) + "\r\n";
        const bgpEntry* entry = bgpIndexAt(list->index, before);
        const size_t shown = before + addLines(&text, list, entry, PAGE_ENTRIES);
        *resume = bgpIndexAt(list->index, shown) != nullptr ? static_cast<uint32_t>(shown) : 0;
        return replyMake(list, *resume, text, PAGE_BYTES, buffer, size);
    } catch (const std::bad_alloc&) {
        return ACL_E_COMM_MEMORY;
    }
}

uint32_t aclShowASPathList(const listName& name, uint32_t* resume, void** buffer, uint32_t* size) {
    return aclShowASPathListConfig(bgpListFind(BGP_ASPATH, name), resume, buffer, size);
}

uint32_t aclShowASPathListAll(const listName& cursor, uint32_t* resume, void** buffer,
                              uint32_t* size) {
    const bgpList* list = nullptr;
    // In the middle of a list the cursor names it; at its start the one before it.
    if (resume != nullptr && *resume != 0) {
        list = bgpListFind(BGP_ASPATH, cursor);
        // What has been deleted since the last page has no more pages.
        if (list == nullptr || list->placeholder != 0) *resume = 0;
    }
    if (resume == nullptr || *resume == 0) list = afterCursor(BGP_ASPATH, cursor);
    return aclShowASPathListConfig(list, resume, buffer, size);
}

uint32_t aclShowCommListConfig(const bgpList* list, void** buffer, uint32_t* size) {
    return showWhole(list, BGP_COMM, 0, buffer, size);
}
uint32_t aclShowIpCommList(const listName& name, void** buffer, uint32_t* size) {
    return aclShowCommListConfig(bgpListFind(BGP_COMM, name), buffer, size);
}
uint32_t aclShowIpCommListAll(const listName& cursor, void** buffer, uint32_t* size) {
    return showWhole(afterCursor(BGP_COMM, cursor), BGP_COMM, SHOW_MARKER, buffer, size);
}

uint32_t aclShowExtCommListConfig(const bgpList* list, void** buffer, uint32_t* size) {
    return showWhole(list, BGP_EXTCOMM, 0, buffer, size);
}
uint32_t aclShowIpExtCommList(const listName& name, void** buffer, uint32_t* size) {
    return aclShowExtCommListConfig(bgpListFind(BGP_EXTCOMM, name), buffer, size);
}
uint32_t aclShowIpExtCommListAll(const listName& cursor, void** buffer, uint32_t* size) {
    return showWhole(afterCursor(BGP_EXTCOMM, cursor), BGP_EXTCOMM, SHOW_MARKER, buffer, size);
}
