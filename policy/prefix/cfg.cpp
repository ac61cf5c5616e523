// Text of prefix lists: their configuration lines, and what a show has in common with them.
#include <algorithm>
#include <cstring>

#include "common/node.h"
#include "include/ipText.h"
#include "policy/prefix/family.h"

namespace {

// Nothing but "any" asks for the family's whole width: it is read back as it was typed.
bool isAny(const prefixRecord& record, const prefixFamily& family) {
    const uint8_t* address = prefixAddress(record);
    return record.len == 0 && record.ge == 0 && record.le == family.addressBytes * 8 &&
           std::all_of(address, address + family.addressBytes, [](uint8_t b) { return b == 0; });
}

std::string lineOf(const prefixRecord& record, const prefixFamily& family, bool masked) {
    std::string line = " seq ";
    textNumber(line, record.seq);
    if (isAny(record, family))
        line += record.action == PREFIX_DENY ? " deny any" : " permit any";
    else
        prefixTextAppend(line, record, family, masked);
    return line;
}

}  // namespace

void prefixTextAppend(std::string& out, const prefixRecord& record, const prefixFamily& family,
                      bool masked) {
    out += record.action == PREFIX_DENY ? " deny " : " permit ";
    const uint8_t* mask = prefixMask(record, family.addressBytes);
    const bool isV4 = family.family == CFG_FAMILY_V4;
    if (record.len == PREFIX_LEN_BITMASK) {
        textAddress(out, isV4, prefixAddress(record));
        out += " bitmask ";
        textAddress(out, isV4, mask);
        return;
    }
    textAddress(out, isV4, prefixAddress(record));
    // IPv6 has the form with a length only.
    if (masked && isV4) {
        out += ' ';
        textAddress(out, isV4, mask);
    } else {
        out += '/';
        textNumber(out, record.len);
    }
    if (record.ge != 0) textWordSigned(out, " ge ", record.ge);
    if (record.le != 0) textWordSigned(out, " le ", record.le);
}

std::string prefixEntryText(const prefixEntry* entry, uint32_t af) {
    return lineOf(*entry->record, *prefixFamilyOf(af), aclNode->config.inverseMask != 0);
}

void prefix_sent_to_cfg(const prefixList* list, uint32_t remove, uint32_t af) {
    const prefixFamily& family = *prefixFamilyOf(af);
    std::string line = family.word + std::string(" prefix-list ");
    line += listNameView(list->name);
    const auto request = cfgCommand<cliHdr>(family.createCode, list->name);
    cfgWriteHeader(CFG_PREFIX_LIST, family.family, list->name, line, cfgRequestOf(request),
                   remove != 0);
}

void prefix_ent_sent_to_cfg(const prefixEntry* entry, uint32_t remove, uint32_t af,
                            const listName& name) {
    const prefixFamily& family = *prefixFamilyOf(af);
    bool masked = aclNode->config.inverseMask != 0;
    // Both forms are stored, and neither depends on the mode: a change of it rewrites nothing.
    std::string shown = lineOf(*entry->record, family, masked);
    std::string other = lineOf(*entry->record, family, !masked);
    auto request = cfgCommand<cliPrefix6Req>(family.addCode, name);
    std::memcpy(&request.entry, entry->record, prefixRecordBytes(family));
    cfgNumbered line{.block = CFG_PREFIX_LIST,
                     .family = family.family,
                     .role = CFG_ROLE_ENTRY,
                     .operation = family.sync,
                     .seq = entry->record->seq,
                     .shown = shown,
                     .other = other,
                     .request = cfgRequestOf(request)};
    cfgWriteEntry(name, line, remove != 0, false);
}
