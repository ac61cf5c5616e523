// Interface lines of the configuration. The lines of an interface stand under its name:
//
//     !
//     interface 1/0
//      ip access-group edge in
//
// All of them begin their key with the interface's index, so the block goes as one.
#include "common/cfgline.h"
#include "common/node.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekTask.h"

namespace {

constexpr uint8_t IS_LINE = 128;

// What the followers of the change feed take the lines of an interface for.
struct cliModeRow {
    uint32_t type, mode;
};
constexpr cliModeRow cliModeTable[] = {
    {IF_TYPE_PORT, 4}, {IF_TYPE_LAG, 5}, {IF_TYPE_VLAN, 6}, {IF_TYPE_CP, 7}};

zekCfgRecord makeRecord(uint32_t lineClass, const cfgIntfKey& key) {
    zekCfgRecord record{};
    std::memcpy(record.key, &key, sizeof key);
    record.section = CFG_SECTION_INTERFACE;
    record.lineClass = lineClass;
    return record;
}

zekCfgRecord makeHead(uint32_t lineClass, uint32_t ifindex) {
    cfgIntfKey key{};
    key.ifindex = ifindex;
    return makeRecord(lineClass, key);
}

zekCfgRecord makeLine(const cfgIntfLine& line) {
    cfgIntfKey key{};
    key.ifindex = line.intf->ifindex;
    key.isLine = IS_LINE;
    // The pairs of source guard stand behind both directions.
    const bool isPair = line.family == INTF_IPMAC;
    std::ranges::fill(key.direction, static_cast<uint8_t>(isPair ? CFG_PAIRS : line.direction));
    std::memcpy(key.name, line.name.text, sizeof key.name);
    constexpr cfgFamily families[INTF_FAMILIES] = {CFG_FAMILY_V4, CFG_FAMILY_V6, CFG_FAMILY_MAC,
                                                   CFG_FAMILY_V4};
    key.family = families[line.family];
    return makeRecord(CFG_CLASS_INTERFACE, key);
}

void insert(zekCfgRecord record, std::string_view text, const zekCfgRequest& request = {}) {
    cfgPutText(record.text, text);
    cfgPutText(record.inverseText, text);
    (void)zekCfgInsertBothLine(aclNode->config.cfgDb, record, request);
}

void sync(const cfgIntfLine& line, std::string_view text) {
    if (!cfgIsShown(text)) return;
    const uint32_t ifindex = line.intf->ifindex;
    zekCfgSyncRecord record{};
    record.kind = aclGetCliModeFromIfIndex(ifindex);
    record.words[0] = ifindexType(ifindex);
    record.words[1] = ifindex;
    if (line.family != INTF_IPMAC) std::memcpy(record.name, line.name.text, sizeof record.name);
    cfgPutText(record.text, text);
    (void)zekCfgSync(aclNode->config.cfgDb, record);
}

}  // namespace

uint32_t aclGetCliModeFromIfIndex(uint32_t ifindex) {
    for (const cliModeRow& row : cliModeTable)
        if (row.type == ifindexType(ifindex)) return row.mode;
    return 0;
}

void cfgIntfWrite(const cfgIntfLine& line, std::string_view whole, const zekCfgRequest& request) {
    const std::string text = cfgShowable(whole);
    const uint32_t ifindex = line.intf->ifindex;
    if ((line.intf->flags & INTF_CFG_LINES) == 0) {
        char name[64];
        (void)ifmIfIndexToLName(ifindex, name, sizeof name);
        insert(makeHead(CFG_CLASS_SEPARATOR, ifindex), "!");
        insert(makeHead(CFG_CLASS_INTERFACE_HEADER, ifindex), std::string("interface ") + name);
    }
    line.intf->flags |= intfCfgLine(line.family, line.direction);
    insert(makeLine(line), text, request);
    sync(line, text);
}

void cfgIntfRemove(const cfgIntfLine& line, std::string_view undo) {
    (void)zekCfgRemoveExact(aclNode->config.cfgDb, makeLine(line));
    sync(line, undo);
    const uint32_t before = line.intf->flags;
    if (line.last) line.intf->flags &= ~intfCfgLine(line.family, line.direction);
    if ((before & INTF_CFG_LINES) != 0 && (line.intf->flags & INTF_CFG_LINES) == 0)
        (void)zekCfgRemoveNode(aclNode->config.cfgDb,
                               makeHead(CFG_CLASS_SEPARATOR, line.intf->ifindex));
}

void cfgIntfReplace(const cfgIntfLine& line) {
    (void)zekCfgRemoveExact(aclNode->config.cfgDb, makeLine(line));
}
