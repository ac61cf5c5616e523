#include "common/description.h"

#include "common/node.h"

namespace {

std::string lineOf(const cfgDescription& description) {
    std::string line = " description ";
    const char* text = description.request.text;
    return line.append(text, strnlen(text, DESCRIPTION_LEN));
}

void sync(const cfgDescription& description, bool remove) {
    cfgSync(description.sync, description.request.cli.name, lineOf(description), remove,
            description.request.seq);
}

template <class Key>
cfgDescription descriptionAt(uint32_t section, uint32_t lineClass, const Key& key) {
    cfgDescription description{};
    description.place.section = section;
    description.place.lineClass = lineClass;
    std::memcpy(description.place.key, &key, sizeof key);
    description.sync = CFG_SYNC_HEADER;
    return description;
}

}  // namespace

cfgDescription cfgDescriptionOf(const cfgBlock& block, cfgFamily family, const listName& name) {
    cfgListKey key{};
    key.family = family;
    std::memcpy(key.name, name.text, sizeof key.name);
    key.kind = 1u;  // behind the header, and its order of 0 in front of every number
    cfgDescription description = descriptionAt(block.section, block.lineClass, key);
    description.sync = block.headerSync;
    return description;
}

cfgDescription cfgDescriptionOf(const listName& map, int32_t instance) {
    cfgRmapKey key{};
    std::memcpy(key.name, map.text, sizeof key.name);
    key.seq = static_cast<uint32_t>(instance);
    key.valueIndex = 1;  // behind the instance's line, and its class of 0 in front of every clause
    return descriptionAt(CFG_SECTION_RMAP, CFG_CLASS_RMAP_LINE, key);
}

bool cfgDescriptionRead(cfgDescription* description) {
    zekCfgRequest request;
    const int found = zekCfgRequestAt(aclNode->config.cfgDb, description->place, &request);
    auto* bytes = reinterpret_cast<uint8_t*>(&description->request);
    constexpr size_t length = sizeof(cliDescriptionReq) - sizeof(ipcHdr);
    description->given = found > 0 && request.body.size() == length;
    if (description->given) std::memcpy(bytes + sizeof(ipcHdr), request.body.data(), length);
    return found >= 0;
}

void cfgDescriptionWrite(const cfgDescription& description) {
    if (!description.given) return;
    zekCfgRecord record = description.place;
    const std::string line = lineOf(description);
    cfgPutText(record.text, line);
    cfgPutText(record.inverseText, line);
    (void)zekCfgInsertBothLine(aclNode->config.cfgDb, record, cfgRequestOf(description.request));
    sync(description, false);
}

void cfgDescriptionRemove(const cfgDescription& description) {
    if (!description.given) return;
    sync(description, true);
    (void)zekCfgRemoveExact(aclNode->config.cfgDb, description.place);
}
