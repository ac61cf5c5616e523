// Configuration lines as the database takes them: where a line stands, its two texts, and the
// record of the change feed. A line's place is its section, its key area (family, list name, kind,
// number, role) and its class; a removal names the place and never reads the text.
#include "common/cfgline.h"

#include <algorithm>
#include <cstring>

#include "common/debug.h"
#include "common/node.h"
#include "include/cfgCompiled.h"

namespace {

constexpr uint32_t LINE_HEADER = 0;
constexpr uint32_t LINE_NUMBERED = 1;

zekCfgRecord makeRecord(uint32_t section, cfgFamily family, const listName& name,
                        uint32_t lineClass) {
    zekCfgRecord record{};
    cfgListKey key{};
    key.family = family;
    std::memcpy(key.name, name.text, sizeof key.name);
    std::memcpy(record.key, &key, sizeof key);
    record.section = section;
    record.lineClass = lineClass;
    return record;
}

zekCfgRecord makeNumbered(const listName& name, const cfgNumbered& line) {
    zekCfgRecord record = makeRecord(line.block.section, line.family, name, line.block.lineClass);
    auto* key = reinterpret_cast<cfgListKey*>(record.key);
    key->kind = LINE_NUMBERED;
    key->order = line.seq + line.block.firstOrder;
    key->role = line.role;
    return record;
}

}  // namespace

void cfgSync(uint32_t operation, const listName& name, std::string_view line, bool remove,
             uint32_t word) {
    if (!cfgIsShown(line)) return;
    zekCfgSyncRecord record{};
    record.kind = operation;
    record.words[0] = word;
    std::memcpy(record.name, name.text, sizeof record.name);
    // Entry lines begin with a blank, so their removals read "no  seq", with two: meant.
    size_t at = 0;
    if (remove) {
        std::memcpy(record.text, "no ", 3);
        at = 3;
    }
    std::memcpy(record.text + at, line.data(), std::min(line.size(), sizeof record.text - 1 - at));
    zekCfgSync(aclNode->config.cfgDb, record);
}

uint64_t cfgNotShown = 0;

bool cfgIsShown(std::string_view line) {
    return !line.empty() && !line.starts_with(CFG_NOT_SHOWN);
}

std::string cfgShowable(std::string_view line, size_t limit) {
    constexpr size_t shownMax = 150;
    auto breaks = [](char c) { return static_cast<uint8_t>(c) < ' ' || c == 0x7F; };
    if (line.size() <= limit && std::ranges::none_of(line, breaks)) return std::string(line);
    const size_t start = std::min(line.find_first_not_of(' '), line.size());
    cfgNotShown++;
    std::string text(CFG_NOT_SHOWN);
    text += line.substr(start, shownMax);
    std::ranges::replace_if(text, breaks, '?');
    if (line.size() - start > shownMax) text += "...";
    return text + " (" + std::to_string(line.size()) + " characters)";
}

uint32_t cfgRestoredNumber(const cfgBlock& block) {
    const uint8_t* area = zekCfgRestoring(aclNode->config.cfgDb);
    if (area == nullptr) return 0;
    const uint32_t order = reinterpret_cast<const cfgListKey*>(area)->order;
    return order > block.firstOrder ? order - block.firstOrder : 0;
}

void cfgWriteHeader(const cfgBlock& block, cfgFamily family, const listName& name,
                    std::string_view line, const zekCfgRequest& request, bool remove) {
    static_assert(LINE_HEADER == 0, "header records keep a zero kind and order");
    zekCfgRecord separator = makeRecord(block.section, family, name, block.separatorClass);
    cfgPutText(separator.text, "!");
    cfgPutText(separator.inverseText, "!");
    if (remove) {
        zekCfgRemoveNode(aclNode->config.cfgDb, separator);  // takes the whole block with it
        cfgSync(block.headerSync, name, line, true);
        return;
    }
    zekCfgInsertBothLine(aclNode->config.cfgDb, separator);
    if (block.syncBeforeHeader) cfgSync(block.headerSync, name, line, false);
    zekCfgRecord header = makeRecord(block.section, family, name, block.lineClass);
    cfgPutText(header.text, line);
    cfgPutText(header.inverseText, line);
    zekCfgInsertBothLine(aclNode->config.cfgDb, header, request);
    if (!block.syncBeforeHeader) cfgSync(block.headerSync, name, line, false);
}

bool cfgWriteNumbered(const listName& name, const cfgNumbered& line, bool remove) {
    zekCfgRecord record = makeNumbered(name, line);
    bool inverse = aclNode->config.inverseMask != 0;
    cfgPutText(record.text, inverse ? line.other : line.shown);
    cfgPutText(record.inverseText, inverse ? line.shown : line.other);
    if (!remove) zekCfgInsertBothLine(aclNode->config.cfgDb, record, line.request);
    // The words for an operator that there is not hold a line break, and are kept as they are.
    if (!remove && line.shown.find('\n') != line.shown.npos) cfgNotShown++;
    cfgSync(line.operation, name, line.shown, remove);
    return !remove || zekCfgRemoveExact(aclNode->config.cfgDb, record) == 0;
}

void cfgWriteEntry(const listName& name, const cfgNumbered& line, bool remove, bool withRemark) {
    aclDebug(DEBUG_ACL_CFG, "Going to %s seq %u of " LIST_NAME_FMT "\r\n",
             remove ? "delete" : "add", line.seq, listNameArg(name));
    bool found = cfgWriteNumbered(name, line, remove);
    if (remove && withRemark) {
        cfgNumbered remark = line;
        remark.role = CFG_ROLE_REMARK;
        zekCfgRecord record = makeNumbered(name, remark);
        // The blank at the end is meant.
        cfgPutText(record.text, "no remark " + std::to_string(line.seq) + " ");
        // Most entries have no remark: its absence is not worth a word.
        zekCfgRemoveExact(aclNode->config.cfgDb, record);
    }
    if (!found)
        aclDebug(DEBUG_ACL_CFG, "Error deleting seq %u of " LIST_NAME_FMT " from cfg\r\n", line.seq,
                 listNameArg(name));
}

int cfgWriteSetting(uint32_t section, std::string_view line, const zekCfgRequest& request,
                    bool remove) {
    const listName noName{};
    zekCfgRecord record = makeRecord(section, CFG_FAMILY_V4, noName, CFG_CLASS_LINE);
    cfgPutText(record.text, line);
    cfgPutText(record.inverseText, line);
    const int status = remove ? zekCfgRemoveExact(aclNode->config.cfgDb, record)
                              : zekCfgInsertBothLine(aclNode->config.cfgDb, record, request);
    if (status == 0) cfgSync(CFG_SYNC_HEADER, noName, line, remove);
    return status;
}

void inverse_mask_sent_to_cfg(uint32_t inverse) {
    const ipcHdr request{};  // carries nothing
    (void)cfgWriteSetting(CFG_SECTION_MASK_MODE, "access-list inverse-mask",
                          cfgRequestOf(request, MT_ACL_INVERSEMASK_ENABLE), inverse == 0);
    zekCfgSetMaskMode(aclNode->config.cfgDb, inverse);
}
