// The parts of the index that do not depend on its shape: nodes, their memory, and the groups of an
// inner node.
#include "match/matchIndex.h"

#include <bit>

#include "platform/api/zekMem.h"

namespace {

// Groups stand by the lowest order below them: a search ends at the first that can give nothing
// better than what it has.
void lower(matchNode* node, matchGroup** group, uint32_t order) {
    (*group)->lowest = std::min((*group)->lowest, order);
    auto* first = matchItems<matchGroup>(node).data();
    for (; *group != first && (*group)->lowest < (*group)[-1].lowest; --*group)
        std::swap(**group, (*group)[-1]);
}

}  // namespace

matchNode* matchNodeMake(bool leaf, uint32_t capacity, size_t itemSize) {
    // A chunk of a long leaf has its link to the next one in front of it: short leaves, which are
    // most, need none and pay nothing.
    const size_t front = leaf && capacity == LEAF_CHUNK ? sizeof(matchNode*) : 0;
    auto* block =
        static_cast<char*>(zekMC_MM_malloc(front + sizeof(matchNode) + capacity * itemSize));
    if (block == nullptr) return nullptr;
    auto* node = new (block + front) matchNode{0, capacity, leaf};
    if (front != 0) *matchMoreAt(node) = nullptr;
    return node;
}

void matchNodeFree(matchNode* node) {
    matchNode** more = matchMoreAt(node);
    if (more != nullptr)
        zekMC_MM_free(more);
    else
        zekMC_MM_free(node);
}

bool matchNodeReserve(matchNode** at, size_t itemSize) {
    matchNode* node = *at;
    if (node->count < node->capacity) return true;
    matchNode* larger = matchNodeMake(node->leaf, node->capacity * 2, itemSize);
    if (larger == nullptr) return false;
    larger->count = node->count;
    std::memcpy(larger + 1, node + 1, node->count * itemSize);
    matchNodeFree(node);
    *at = larger;
    return true;
}

matchGroup* matchGroupFind(matchNode* node, uint64_t mask) {
    for (matchGroup& group : matchItems<matchGroup>(node))
        if (group.mask == mask) return &group;
    return nullptr;
}

uint64_t matchCoarse(uint64_t mask, uint64_t part) {
    // The bits in front of the part count as ones: the mask is compared within it only.
    const int ones = std::countl_one(mask | ~part) / 8 * 8;
    return ones == 0 ? 0 : mask & (~uint64_t{0} << (64 - ones));
}

matchGroup* matchGroupObtain(matchNode** at, uint64_t mask, uint64_t part, uint32_t order) {
    matchGroup* group = matchGroupFind(*at, mask);
    // Each group costs every search a look: from a certain number on masks share a coarser one.
    if (group == nullptr && (*at)->count >= MATCH_GROUPS) {
        mask = matchCoarse(mask, part);
        group = matchGroupFind(*at, mask);
    }
    if (group == nullptr) {
        if (!matchNodeReserve(at, sizeof(matchGroup))) return nullptr;
        group = matchItems<matchGroup>(*at).data() + (*at)->count++;
        *group = {mask, {}, order};
    }
    lower(*at, &group, order);
    return group;
}

void matchGroupErase(matchNode* node, matchGroup* group) {
    matchTableFree(&group->table);
    auto groups = matchItems<matchGroup>(node);
    auto place = groups.begin() + (group - groups.data());
    std::move(place + 1, groups.end(), place);
    node->count--;
}

void matchFree(matchNode* node) {
    while (node != nullptr) {
        if (!node->leaf)
            for (matchGroup& group : matchItems<matchGroup>(node)) {
                for (uint64_t i = 0; i < matchTableSize(group.table); i++)
                    matchFree(static_cast<matchNode*>(group.table.slots[i].item));
                matchTableFree(&group.table);
            }
        matchNode** more = matchMoreAt(node);
        matchNode* next = more != nullptr ? *more : nullptr;
        matchNodeFree(node);
        node = next;
    }
}
