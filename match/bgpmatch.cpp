// The entry points that take attributes as they are on the wire.
#include <new>
#include <vector>

#include "common/node.h"
#include "common/tree.h"
#include "match/bgpAttribute.h"
#include "match/zekBgp.h"

namespace {

// The communities of an attribute in host order; false when it is malformed.
bool communitiesOf(const void* attribute, uint32_t length, std::vector<uint32_t>* communities) {
    bgpAttribute parsed;
    if (!bgpAttributeParse(attribute, length, &parsed) || parsed.type != BGP_ATTR_COMMUNITIES ||
        parsed.value.size() % sizeof(be32) != 0)
        return false;
    communities->clear();
    for (size_t at = 0; at < parsed.value.size(); at += sizeof(be32))
        communities->push_back(*wireView<be32>(parsed.value, at));
    return true;
}

// What cannot be evaluated for lack of memory is not let through.
template <class Check>
int verdictOf(Check check) {
    try {
        return check();
    } catch (const std::bad_alloc&) {
        return BGP_VERDICT_DENY;
    }
}

listName numberName(uint32_t listId) {
    return listNameMake(std::to_string(listId));
}

}  // namespace

bgpList* bgpASPAccessListFind(const listName& name) {
    return nameTreeFind<bgpList>(aspathAclNode->asTree, name);
}
bgpList* bgpCommAccessListFind(const listName& name) {
    return nameTreeFind<bgpList>(aspathAclNode->commTree, name);
}
bgpList* bgpExtCommListFind(const listName& name) {
    return nameTreeFind<bgpList>(aspathAclNode->extCommTree, name);
}

commValues bgpEntryCommunities(const commEntryBlock& block) {
    commValues all{};
    if (block.kind != COMM_VALUES) return all;
    auto put = [&](uint32_t value) { all.values[all.count++] = value; };
    if (block.number != 0) put(block.number);
    for (uint32_t i = 0; i < block.count && i < COMM_LIST_VALUES; i++)
        put(block.high[i] * 65536 + block.low[i]);
    if (block.localAs != 0) put(COMMUNITY_LOCAL_AS);
    if (block.noAdvertise != 0) put(COMMUNITY_NO_ADVERTISE);
    if (block.noExport != 0) put(COMMUNITY_NO_EXPORT);
    return all;
}

int bgpAccessASPMatchFin(uint32_t listId, const void* attribute, uint32_t length) {
    return bgpAccessASPMatchWidth(listId, AS_WIDTH_UNKNOWN, attribute, length);
}

int bgpAccessASPMatchWidth(uint32_t listId, bgpAsWidth width, const void* attribute,
                           uint32_t length) {
    return verdictOf([&] {
        thread_local std::string path;
        if (!bgpPathText(attribute, length, width, &path)) return BGP_VERDICT_DENY;
        return aspathListCheck(bgpASPAccessListFind(numberName(listId)), path, nullptr);
    });
}

int bgpAccessCommMatchFin(uint32_t listId, const void* attribute, uint32_t length) {
    const bgpList* list = bgpCommAccessListFind(numberName(listId));
    return bgpAccessCommMatchFinWithHandle(list, attribute, length);
}

int bgpAccessCommMatchFinWithHandle(const bgpList* list, const void* attribute, uint32_t length) {
    return verdictOf([&] {
        thread_local std::vector<uint32_t> communities;
        if (!communitiesOf(attribute, length, &communities)) return BGP_VERDICT_DENY;
        return commListCheck(list, communities, false, nullptr);
    });
}

bool bgpCommPathMatch(uint32_t community, const void* attribute, uint32_t length) {
    bgpAttribute parsed;
    if (!bgpAttributeParse(attribute, length, &parsed) || parsed.type != BGP_ATTR_COMMUNITIES)
        return false;
    for (size_t at = 0; at + sizeof(be32) <= parsed.value.size(); at += sizeof(be32))
        if (*wireView<be32>(parsed.value, at) == community) return true;
    return false;
}
