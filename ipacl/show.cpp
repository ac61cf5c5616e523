// Shows of IPv4 lists. The text resembles the configuration's but differs from it on purpose, at
// the places that say so.
#include <algorithm>
#include <cstring>
#include <new>

#include "common/hitCount.h"
#include "common/node.h"
#include "common/showbuffer.h"
#include "include/cliMsg.h"
#include "include/ipText.h"
#include "ipacl/store.h"
#include "ipacl/text.h"
#include "ipacl/zekipaccess.h"
#include "platform/api/zekMem.h"

namespace {

constexpr size_t SHOW_BYTES_PER_LINE = 150;

// `asHost` is decided by the caller: for a destination it is not the destination's mask that
// counts.
void addAddress(std::string& out, uint32_t address, uint32_t mask, bool asHost) {
    if (asHost) {
        out += " host ";
        textDotted(out, address);
        return;
    }
    if (mask == 0 && address == 0) {
        out += " any";
        return;
    }
    out += ' ';
    textDotted(out, address);
    if (aclNode->config.inverseMask != 0) {
        out += ' ';
        textDotted(out, mask);
    } else {
        // Any mask shows as a prefix length here, also one with holes: meant.
        out += '/';
        textNumber(out, maskPrefixLength(mask));
    }
}

void addFront(std::string& out, const ipEntryBlock& block) {
    out += " seq ";
    textNumber(out, block.seq);
    out += block.action == IP_DENY ? " deny" : " permit";
}

void addStandardEntry(std::string& out, const aclEntry& entry) {
    const ipEntryBlock& block = entry.block;
    addFront(out, block);
    addAddress(out, block.src, block.srcMask, block.srcMask == 0xFFFFFFFF);
    if (entry.log != 0) {
        textWordSigned(out, " log (", hitCountGet(entry.matchCount));
        out += " matches)";
    }
}

void addExtendedEntry(std::string& out, const aclEntry& entry) {
    const ipEntryBlock& block = entry.block;
    addFront(out, block);
    // Protocol 4 shows as "ip" whatever the marker says: meant.
    textProtocol(out, block.protocol, block.protocol == IP_PROTO_ANY, " ip");
    bool ports = ipHasPorts(block.protocol);
    bool sourceIsHost = block.srcMask == 0xFFFFFFFF;
    addAddress(out, block.src, block.srcMask, sourceIsHost);
    if (ports && block.srcOperator != PORT_NONE) {
        out += ' ';  // two blanks before a source port, one before a destination port: meant
        out += aclCmpPortPrint(block.srcOperator, block.srcLow, block.srcHigh);
    }
    // The source's mask decides whether the destination shows as a host: meant.
    addAddress(out, block.dst, block.dstMask, sourceIsHost);
    if (ports && block.dstOperator != PORT_NONE)
        out += aclCmpPortPrint(block.dstOperator, block.dstLow, block.dstHigh);
    if (block.protocol == IP_PROTO_TCP) textTcpFlags(out, block.tcpFlags);
    if (block.precedence != FIELD_NOT_GIVEN) textWordSigned(out, " precedence ", block.precedence);
    if (block.tos != FIELD_NOT_GIVEN) textWordSigned(out, " tos ", block.tos);
    if (block.protocol == IP_PROTO_ICMP && block.icmp.typeGiven != 0)
        aclIcmpTypeCodeToString(out, block.icmp.type, block.icmp.typeGiven, block.icmp.code,
                                block.icmp.codeGiven);
    if (entry.log != 0) out += " log";
}

}  // namespace

std::string ipListText(const aclList& list) {
    bool standard = list.kind == IP_KIND_STANDARD;
    std::string out;
    out.reserve(showRoom(list));
    out += standard ? "Standard" : "Extended";
    out += " IP access list ";
    out += listNameView(list.name);
    out += "\r\n";
    for (const aclEntry& entry : entriesOf<const aclEntry>(list.head)) {
        entryFetch<aclEntry>(entry.next);
        standard ? addStandardEntry(out, entry) : addExtendedEntry(out, entry);
        textWordSigned(out, " order ", entry.block.order);  // also when it is not given: meant
        out += "\r\n";
    }
    return out;
}

namespace {

void clearCounts(aclList* list) {
    for (listEntry* entry = list->head; entry != nullptr; entry = entry->next)
        entry->matchCount = 0;
}

}  // namespace

uint32_t aclShowAlist(const aclList* list, void** buffer, uint32_t* size) {
    *buffer = nullptr;
    *size = 0;
    if (list == nullptr) return ACL_E_NOLIST;
    if (list->kind == 0) return ACL_OK;
    std::string text;
    try {
        text = list->family->showText(*list);
    } catch (const std::bad_alloc&) {
        return ACL_E_MEMORY;
    }
    // The usual size, or more where the lines are longer than it allows for.
    size_t usual = (static_cast<size_t>(list->count) + 1) * SHOW_BYTES_PER_LINE + SHOW_TEXT_OFFSET;
    return showReplyMake(text, usual, buffer, size) ? ACL_OK : ACL_E_MEMORY;
}

uint32_t aclListShow(const aclFamily& family, const listName& name, void** buffer, uint32_t* size) {
    return aclShowAlist(aclListFind(family, name), buffer, size);
}

uint32_t aclListShowNext(const aclFamily& family, const listName& cursor, void** buffer,
                         uint32_t* size) {
    const zekRadix* tree = aclNode->trees.*family.tree;
    const aclList* list = listNameIsEmpty(cursor) ? nameTreeFirst<aclList>(tree)
                                                  : nameTreeNext<aclList>(tree, cursor);
    // Placeholders have nothing to show and would end the client's walk.
    while (list != nullptr && list->kind == 0) list = nameTreeNext<aclList>(tree, list->name);
    uint32_t status = aclShowAlist(list, buffer, size);
    if (status != ACL_OK) return status;
    auto* header = static_cast<showReplyHdr*>(*buffer);
    header->marker = SHOW_MARKER;
    header->name = list->name;
    return ACL_OK;
}

uint32_t aclListClear(const aclFamily& family, const listName& name) {
    aclList* list = aclListFind(family, name);
    if (list == nullptr) return ACL_E_NOLIST;
    clearCounts(list);
    return ACL_OK;
}

uint32_t aclListClearAll(const aclFamily& family) {
    aclForEachList(family, [](aclList& list) { clearCounts(&list); });
    return ACL_OK;
}

// --- IPv4 lists ----------------------------------------------------------------------------------

uint32_t aclShowIpAcl(const listName& name, void** buffer, uint32_t* size) {
    return aclListShow(ip4Family, name, buffer, size);
}
uint32_t aclShowIpAclAll(const listName& cursor, void** buffer, uint32_t* size) {
    return aclListShowNext(ip4Family, cursor, buffer, size);
}
uint32_t aclClearIpAcl(aclList* list) {
    if (list == nullptr) return ACL_E_NOLIST;
    clearCounts(list);
    return ACL_OK;
}
uint32_t aclClearIpAclByName(const listName& name) {
    return aclListClear(ip4Family, name);
}
uint32_t aclClearIpAclAll() {
    return aclListClearAll(ip4Family);
}
