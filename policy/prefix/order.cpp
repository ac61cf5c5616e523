// A treap: a search tree by number, a heap by random priority, with the size of every subtree.
#include "policy/prefix/order.h"

#include <sys/random.h>

namespace {

// Nobody outside can know the next one: numbers that come in the order of the priorities would make
// a chain of the tree, as deep as the list is long.
uint32_t randomPriority() {
    static uint64_t state = [] {
        uint64_t seed = 0;
        if (getentropy(&seed, sizeof seed) != 0) seed = reinterpret_cast<uintptr_t>(&seed);
        return seed;
    }();
    uint64_t mixed = state += 0x9E3779B97F4A7C15;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return static_cast<uint32_t>(mixed >> 32);
}

uint32_t seqOf(const prefixEntry* entry) {
    return entry->record->seq;
}
uint32_t weightOf(const prefixEntry* entry) {
    return entry != nullptr ? entry->weight : 0;
}
void weigh(prefixEntry* entry) {
    entry->weight = 1 + weightOf(entry->child[0]) + weightOf(entry->child[1]);
}

// Parts a tree into the entries below a number and those above it.
void split(prefixEntry* tree, uint32_t seq, prefixEntry** below, prefixEntry** above) {
    if (tree == nullptr) {
        *below = *above = nullptr;
        return;
    }
    if (seqOf(tree) < seq) {
        split(tree->child[1], seq, &tree->child[1], above);
        *below = tree;
    } else {
        split(tree->child[0], seq, below, &tree->child[0]);
        *above = tree;
    }
    weigh(tree);
}

// Every entry of `below` comes before every one of `above`.
prefixEntry* join(prefixEntry* below, prefixEntry* above) {
    if (below == nullptr) return above;
    if (above == nullptr) return below;
    prefixEntry* root = below->priority > above->priority ? below : above;
    if (root == below)
        below->child[1] = join(below->child[1], above);
    else
        above->child[0] = join(below, above->child[0]);
    weigh(root);
    return root;
}

}  // namespace

void prefixOrderInsert(prefixEntry** root, prefixEntry* entry) {
    uint32_t seq = seqOf(entry);
    entry->priority = randomPriority();
    prefixEntry** link = root;
    while (*link != nullptr && (*link)->priority >= entry->priority) {
        (*link)->weight++;
        link = &(*link)->child[seqOf(*link) < seq];
    }
    split(*link, seq, &entry->child[0], &entry->child[1]);
    weigh(entry);
    *link = entry;
}

void prefixOrderRemove(prefixEntry** root, prefixEntry* entry) {
    uint32_t seq = seqOf(entry);
    prefixEntry** link = root;
    while (*link != entry) {
        (*link)->weight--;
        link = &(*link)->child[seqOf(*link) < seq];
    }
    *link = join(entry->child[0], entry->child[1]);
}

prefixEntry* prefixOrderFind(prefixEntry* root, uint32_t seq) {
    while (root != nullptr && seqOf(root) != seq) root = root->child[seqOf(root) < seq];
    return root;
}

prefixEntry* prefixOrderNext(prefixEntry* root, uint32_t seq) {
    prefixEntry* next = nullptr;
    while (root != nullptr) {
        bool above = seqOf(root) > seq;
        if (above) next = root;
        root = root->child[above ? 0 : 1];
    }
    return next;
}

prefixEntry* prefixOrderAt(prefixEntry* root, uint32_t position) {
    while (root != nullptr) {
        uint32_t before = weightOf(root->child[0]);
        if (position == before) break;
        bool behind = position > before;
        if (behind) position -= before + 1;
        root = root->child[behind ? 1 : 0];
    }
    return root;
}
