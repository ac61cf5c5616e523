// The messages and the layouts of their bodies: see decode.h.
#include "chassis/agent/decode.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr uint32_t ANY = 0xFFFFFFFF;
constexpr uint32_t VLAN_GROUP_LAST = 8;

// By id, for the look-up.
// clang-format off
constexpr messageKind messageKinds[] = {
    {MT_ACL_ADDLIST,          AGENT_LIST_IP4,       0, agentOp::list,          MT_ACL_ADDENT,           0, ANY},
    {MT_ACL_ADDENT,           AGENT_LIST_IP4,       0, agentOp::add,           0,                       1, 1},
    {MT_ACL_DELENT,           AGENT_LIST_IP4,       0, agentOp::remove,        0,                       1, 1},
    {MT_ACL_DELLIST,          AGENT_LIST_IP4,       0, agentOp::drop,          0,                       0, 0},
    {MT_ACL_SYS_ADDLIST,      AGENT_LIST_SYSTEM,    0, agentOp::list,          MT_ACL_SYS_ADDENT,       0, ANY},
    {MT_ACL_SYS_ADDENT,       AGENT_LIST_SYSTEM,    0, agentOp::addContent,    MT_ACL_SYS_ADDENT,       1, ANY},
    {MT_ACL_SYS_DEL,          AGENT_LIST_SYSTEM,    0, agentOp::systemRemove,  MT_ACL_SYS_DEL,          0, ANY},
    {MT_ACL_EGR_ADDLIST,      AGENT_LIST_IP4,       1, agentOp::list,          MT_ACL_EGR_ADDENT,       0, ANY},
    {MT_ACL_EGR_ADDENT,       AGENT_LIST_IP4,       1, agentOp::add,           0,                       1, 1},
    {MT_ACL_EGR_DELENT,       AGENT_LIST_IP4,       1, agentOp::remove,        0,                       1, 1},
    {MT_ACL_EGR_DELLIST,      AGENT_LIST_IP4,       1, agentOp::drop,          0,                       0, 0},
    {MT_DOS_ADDLIST,          AGENT_LIST_DOS,       0, agentOp::list,          MT_DOS_ADDENT,           0, ANY},
    {MT_DOS_ADDENT,           AGENT_LIST_DOS,       0, agentOp::add,           0,                       1, 1},
    {MT_DOS_DELLIST,          AGENT_LIST_DOS,       0, agentOp::drop,          0,                       0, 0},
    {MT_DOS_DELENT,           AGENT_LIST_DOS,       0, agentOp::remove,        0,                       1, 1},
    {MT_ACL_RESEQUENCE,       AGENT_LIST_IP4,       0, agentOp::renumber,      MT_ACL_RESEQUENCE,       1, ANY},
    {MT_L2ACL_ADDLIST,        AGENT_LIST_MAC,       0, agentOp::list,          MT_L2ACL_ADDENT,         0, ANY},
    {MT_L2ACL_ADDENT,         AGENT_LIST_MAC,       0, agentOp::add,           0,                       1, 1},
    {MT_L2ACL_DELLIST,        AGENT_LIST_MAC,       0, agentOp::drop,          0,                       0, 0},
    {MT_L2ACL_DELENT,         AGENT_LIST_MAC,       0, agentOp::remove,        0,                       1, 1},
    {MT_ACLMAC_NEW,           AGENT_LIST_MAC_LIMIT, 0, agentOp::list,          0,                       0, 0},
    {MT_ACLMAC_ADD,           AGENT_LIST_MAC_LIMIT, 0, agentOp::addContent,    MT_ACLMAC_ADD,           1, ANY},
    {MT_ACLMAC_DELENTRY,      AGENT_LIST_MAC_LIMIT, 0, agentOp::removeContent, MT_ACLMAC_DELENTRY,      1, ANY},
    {MT_ACLMAC_DELALLENTRY,   AGENT_LIST_MAC_LIMIT, 0, agentOp::clear,         MT_ACLMAC_DELALLENTRY,   0, ANY},
    {MT_ACLMAC_DELLIST,       AGENT_LIST_MAC_LIMIT, 0, agentOp::drop,          MT_ACLMAC_DELLIST,       0, ANY},
    {MT_L2ACL_EGR_ADDLIST,    AGENT_LIST_MAC,       1, agentOp::list,          MT_L2ACL_EGR_ADDENT,     0, ANY},
    {MT_L2ACL_EGR_ADDENT,     AGENT_LIST_MAC,       1, agentOp::add,           0,                       1, 1},
    {MT_L2ACL_EGR_DELLIST,    AGENT_LIST_MAC,       1, agentOp::drop,          0,                       0, 0},
    {MT_L2ACL_EGR_DELENT,     AGENT_LIST_MAC,       1, agentOp::remove,        0,                       1, 1},
    {MT_ACL_V6_SYS_ADDLIST,   AGENT_LIST_SYSTEM6,   0, agentOp::list,          MT_ACL_V6_SYS_ADDENT,    0, ANY},
    {MT_ACL_V6_SYS_ADDENT,    AGENT_LIST_SYSTEM6,   0, agentOp::addContent,    MT_ACL_V6_SYS_ADDENT,    1, ANY},
    {MT_ACL_V6_SYS_DEL,       AGENT_LIST_SYSTEM6,   0, agentOp::systemRemove,  MT_ACL_V6_SYS_DEL,       0, ANY},
    {MT_ACL_V6_ADDLIST,       AGENT_LIST_IP6,       0, agentOp::list,          MT_ACL_V6_ADDENT,        0, ANY},
    {MT_ACL_V6_ADDENT,        AGENT_LIST_IP6,       0, agentOp::add,           0,                       1, 1},
    {MT_ACL_V6_DELENT,        AGENT_LIST_IP6,       0, agentOp::remove,        0,                       1, 1},
    {MT_ACL_V6_DELLIST,       AGENT_LIST_IP6,       0, agentOp::drop,          0,                       0, 0},
    {MT_ACL_V6_EGR_ADDLIST,   AGENT_LIST_IP6,       1, agentOp::list,          MT_ACL_V6_EGR_ADDENT,    0, ANY},
    {MT_ACL_V6_EGR_ADDENT,    AGENT_LIST_IP6,       1, agentOp::add,           0,                       1, 1},
    {MT_ACL_V6_EGR_DELENT,    AGENT_LIST_IP6,       1, agentOp::remove,        0,                       1, 1},
    {MT_ACL_V6_EGR_DELLIST,   AGENT_LIST_IP6,       1, agentOp::drop,          0,                       0, 0},
    {MT_IPMAC_ACL_NEWLIST,    AGENT_LIST_IPMAC,     0, agentOp::list,          MT_IPMAC_ACL_ADDENTRIES, 0, ANY},
    {MT_IPMAC_ACL_DELIST,     AGENT_LIST_IPMAC,     0, agentOp::drop,          0,                       0, 0},
    {MT_IPMAC_ACL_ADDENTRIES, AGENT_LIST_IPMAC,     0, agentOp::addContent,    MT_IPMAC_ACL_ADDENTRIES, 1, ANY},
    {MT_IPMAC_ACL_DELENTRIES, AGENT_LIST_IPMAC,     0, agentOp::removeContent, MT_IPMAC_ACL_DELENTRIES, 1, ANY},
};
// clang-format on
static_assert(std::ranges::is_sorted(messageKinds, {}, &messageKind::id));

std::string numbers(const char* what, uint64_t said, uint64_t found) {
    return std::string(what) + " " + std::to_string(said) + ", found " + std::to_string(found);
}

// --- what the bodies of each family are made of ---

// Both halves of an entry must agree: a card programs some of its banks from either.
bool halvesAgree(const agentEntry& entry) {
    return std::memcmp(&entry.match, &entry.matchCopy, sizeof entry.match) == 0;
}
bool halvesAgree(const agentEntry6&) {
    return true;  // it has but one
}
bool halvesAgree(const agentMacEntry& entry) {
    return std::memcmp(&entry.block, &entry.blockCopy, sizeof entry.block) == 0;
}

template <class Image>
bool allHalvesAgree(std::span<const uint8_t> images) {
    for (size_t at = 0; at < images.size(); at += sizeof(Image))
        if (!halvesAgree(*wireView<Image>(images, at))) return false;
    return true;
}
template <class Image>
dpEntry entryOf(std::span<const uint8_t> image) {
    const auto& entry = *wireView<Image>(image);
    return {.rule = agentRuleOf(entry), .content = agentContentHash(entry)};
}

// The list that a header speaks of; its count is returned.
uint32_t listOf(const agentListHdr& header, dpList* list, uint32_t* group) {
    *group = header.groupId;
    list->name = listNameMake(header.name);
    list->ifindex = header.ifindex;
    list->listKind = header.kind;
    list->implicitPermit = header.option;
    list->portPipe = header.portPipe;
    list->onBehalfOfVlan = header.onBehalfOfVlan == 1;
    if (*group != 0) list->groupName = listNameMake(header.groupName);
    list->block = header.block;
    return header.count;
}
uint32_t listOf(const agentMacListHdr& header, dpList* list, uint32_t* group) {
    *group = 0;
    list->name = listNameMake(header.name);
    list->ifindex = header.ifindex;
    list->listKind = header.type;
    list->block = header.block;
    return header.count;
}
template <class Header>
uint32_t headerOf(std::span<const uint8_t> body, dpList* list, uint32_t* group) {
    return listOf(*wireView<Header>(body), list, group);
}

struct bodyForm {
    size_t headerBytes, imageBytes;
    uint32_t (*header)(std::span<const uint8_t> body, dpList* list, uint32_t* group);
    bool (*halvesAgree)(std::span<const uint8_t> images);
    dpEntry (*entry)(std::span<const uint8_t> image);
};
template <class Header, class Image>
constexpr bodyForm FORM{sizeof(Header), sizeof(Image), headerOf<Header>, allHalvesAgree<Image>,
                        entryOf<Image>};
constexpr const bodyForm *FORM4 = &FORM<agentListHdr, agentEntry>,
                         *FORM6 = &FORM<agentListHdr, agentEntry6>,
                         *FORM_MAC = &FORM<agentMacListHdr, agentMacEntry>;

// In the order of agentListKind.
constexpr const bodyForm* kindForms[] = {FORM4, FORM6,    FORM4, FORM6,
                                         FORM4, FORM_MAC, FORM4, FORM_MAC};
static_assert(std::size(kindForms) == AGENT_LIST_KINDS);

// Groups are the VLANs' on their way out, and only IPv4 lists hold for them.
bool groupFits(const messageKind& kind, uint32_t group) {
    return group == 0 ||
           (group <= VLAN_GROUP_LAST && kind.kind == AGENT_LIST_IP4 && kind.direction == 1);
}

// Its words stand at offsets of the whole message, and its length word is not its length: what has
// come counts. A message may end behind its last pair.
std::optional<agentFault> decodeNumbers(const messageKind& kind, std::span<const uint8_t> message,
                                        download* out) {
    constexpr size_t FRONT = offsetof(agentReseqMsg, pairs);
    constexpr agentListKind kinds[] = {AGENT_LIST_IP4, AGENT_LIST_IP6, AGENT_LIST_MAC};
    static_assert(RESEQ_V4 == 0 && RESEQ_V6 == 1 && RESEQ_MAC == 2);
    if (message.size() < FRONT || message.size() > sizeof(agentReseqMsg))
        return agentFault{agentRefusal::length, numbers("length", FRONT, message.size())};
    auto word = [message](size_t at) -> uint32_t { return *wireView<be32>(message, at); };
    const uint32_t family = word(offsetof(agentReseqMsg, family));
    const uint32_t pairs = word(offsetof(agentReseqMsg, pairCount));
    out->kind = &kind;
    out->count = word(offsetof(agentReseqMsg, entryCount));
    out->carried = pairs;
    out->list.name = listNameMake(*wireView<listName>(message, offsetof(agentReseqMsg, name)));
    if (listNameIsEmpty(out->list.name)) return agentFault{agentRefusal::name, "no list name"};
    if (family >= std::size(kinds))
        return agentFault{agentRefusal::name, "no such family: " + std::to_string(family)};
    const size_t room = (message.size() - FRONT) / sizeof(reseqPair);
    if (pairs == 0 || pairs > room || pairs > out->count)
        return agentFault{agentRefusal::count, numbers("pairs", pairs, room)};
    out->list.place.kind = kinds[family];
    out->images = message.subspan(FRONT, pairs * sizeof(reseqPair));
    return std::nullopt;
}

}  // namespace

const messageKind* agentMessageKind(uint32_t id) {
    const auto* row = std::ranges::lower_bound(messageKinds, id, {}, &messageKind::id);
    return row != std::ranges::end(messageKinds) && row->id == id ? row : nullptr;
}

std::optional<agentFault> agentDecode(const messageKind& kind, std::span<const uint8_t> message,
                                      download* out) {
    auto no = [](agentRefusal why, std::string what) { return agentFault{why, std::move(what)}; };
    if (kind.op == agentOp::renumber) return decodeNumbers(kind, message, out);
    const bodyForm& form = *kindForms[kind.kind];
    const auto* hdr = wireView<agentHdr>(message);
    if (hdr == nullptr || message.size() < sizeof(agentHdr) + form.headerBytes)
        return no(agentRefusal::length, numbers("too short:", message.size(), message.size()));
    if (hdr->ipc.length != message.size())
        return no(agentRefusal::length, numbers("length word", hdr->ipc.length, message.size()));
    const auto body = message.subspan(sizeof(agentHdr));
    if (hdr->bodyLen != body.size())
        return no(agentRefusal::bodyLength, numbers("body length word", hdr->bodyLen, body.size()));
    out->images = body.subspan(form.headerBytes);
    if (out->images.size() % form.imageBytes != 0)
        return no(agentRefusal::count,
                  std::to_string(out->images.size()) + " bytes are not whole entries");
    uint32_t group = 0;
    out->kind = &kind;
    out->count = form.header(body, &out->list, &group);
    out->carried = static_cast<uint32_t>(out->images.size() / form.imageBytes);
    if (hdr->more > 1) return no(agentRefusal::order, "more-to-follow is neither 0 nor 1");
    out->more = hdr->more == 1;
    // A chunk that is not the last has fewer entries than the whole list, and at least one: a list
    // in chunks comes to an end.
    if (out->more ? out->carried == 0 || out->count <= out->carried : out->count != out->carried)
        return no(agentRefusal::count, numbers("entry count", out->count, out->carried));
    if (listNameIsEmpty(out->list.name)) return no(agentRefusal::name, "no list name");
    if (!groupFits(kind, group)) return no(agentRefusal::name, "no such VLAN group");
    if (!form.halvesAgree(out->images))
        return no(agentRefusal::halves, "the two halves of an entry differ");
    out->list.place =
        dpPlaceMake(kind.kind, kind.direction, out->list.ifindex, group, out->list.name);
    return std::nullopt;
}

bool agentCollect(dpList* list, std::span<const uint8_t> images) {
    const bodyForm& form = *kindForms[list->place.kind];
    const bool byContent = agentListByContent(list->place.kind);
    for (; !images.empty(); images = images.subspan(form.imageBytes)) {
        dpEntry entry = form.entry(images);
        entry.key = byContent ? list->lastKey + 1 : entry.rule.seq;
        const size_t before = list->entries.size();
        dpListPut(list, entry);
        if (list->entries.size() == before) return false;
    }
    return true;
}

void agentCollect(std::vector<dpNumber>* numbers, std::span<const uint8_t> images) {
    for (; !images.empty(); images = images.subspan(sizeof(reseqPair))) {
        const auto& pair = *wireView<reseqPair>(images);
        numbers->push_back({pair.from, pair.to});
    }
}
