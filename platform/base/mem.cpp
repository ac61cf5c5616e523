// Memory: the variable pool's size classes and the counted general heap.
//
// A class carves its blocks from 64 KB chunks that lie on 64 KB boundaries. The chunk's header
// names the class, so a block needs no header of its own: its chunk is its address with the low 16
// bits cleared. Freed blocks are chained through their first word, in their chunk, and are handed
// out first. A chunk whose last block is freed is spare, for any class; a trim gives the memory of
// spare chunks back. Chunks are cut from large mappings, of which only touched pages cost memory,
// and which go back when the pool does.
//
// Under the address sanitizer every block is a heap block of exactly the size asked for, with the
// same counters and limits, so that use after free and overruns are found.
#include "platform/api/zekMem.h"

#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdlib>
#include <new>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define POOL_ON_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define POOL_ON_HEAP 1
#endif
#endif

namespace {

constexpr size_t CHUNK_SIZE = 64 * 1024;
constexpr size_t CHUNKS_A_MAPPING = 64;
constexpr size_t MAPPING_SIZE = CHUNKS_A_MAPPING * CHUNK_SIZE;
constexpr size_t BLOCK_ALIGN = 8;

struct freeBlock {
    freeBlock* next;
};

struct chunkHead {
    uint64_t magic;
    uint32_t classIndex;
    uint32_t used;  // blocks handed out
    freeBlock* freed;
    uint8_t* fresh;              // the untouched part
    chunkHead *next, *previous;  // chunks of the class with room
};
[[maybe_unused]] constexpr uint64_t CHUNK_MAGIC = 0x7a656b4368756e6bull;

// The mutable side of a class; its counters are in `classes`, which the shows read.
struct classState {
    size_t blockSize;  // class size rounded up to the alignment
    chunkHead* room;   // chunks that can give a block
};

struct varPool {
    uint32_t id;
    bool exists;
    std::vector<zekMemClass> classes;  // ascending size
    std::vector<classState> states;
    std::vector<uint8_t> firstFor;  // size / 8 -> the first class that may hold it
    std::vector<void*> mappings;
    std::vector<uint8_t*> spare;     // chunks without a block in use
    std::vector<uint8_t*> returned;  // those whose memory the system has
    uint8_t* mappingNext;
    uint8_t* mappingEnd;
};

varPool pool;
uint32_t fixedPool;
bool fixedExists;

std::atomic<uint64_t> heapBlocks, heapBytes, heapFailed;
std::atomic<uint64_t> heapLimit{UINT64_MAX};
std::atomic<const char*> heapFailedFile;
std::atomic<int> heapFailedLine;

// The class that serves a size, or the number of classes.
size_t classFor(size_t size) {
    size_t unit = size / BLOCK_ALIGN;
    if (unit >= pool.firstFor.size()) return pool.classes.size();
    size_t c = pool.firstFor[unit];
    while (c < pool.classes.size() && pool.classes[c].size < size) c++;
    return c;
}

#ifdef POOL_ON_HEAP

void* takeBlock(size_t, size_t size) {
    return std::malloc(size);
}
size_t giveBlock(void* block) {
    size_t c = classFor(malloc_usable_size(block));
    std::free(block);
    return c;
}

#else

uint8_t* takeChunk() {
    for (auto* chunks : {&pool.spare, &pool.returned}) {
        if (chunks->empty()) continue;
        uint8_t* chunk = chunks->back();
        chunks->pop_back();
        return chunk;
    }
    if (pool.mappingNext == pool.mappingEnd) {
        // One chunk more than used, so that an aligned run of chunks always fits.
        void* mapping = mmap(nullptr, MAPPING_SIZE + CHUNK_SIZE, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (mapping == MAP_FAILED) return nullptr;
        pool.mappings.push_back(mapping);
        // Room for every chunk, so that giving one back needs no memory.
        for (auto* chunks : {&pool.spare, &pool.returned})
            if (chunks->capacity() < pool.mappings.size() * CHUNKS_A_MAPPING)
                chunks->reserve(2 * pool.mappings.size() * CHUNKS_A_MAPPING);
        auto start = (reinterpret_cast<uintptr_t>(mapping) + CHUNK_SIZE - 1) & ~(CHUNK_SIZE - 1);
        pool.mappingNext = reinterpret_cast<uint8_t*>(start);
        pool.mappingEnd = pool.mappingNext + MAPPING_SIZE;
    }
    uint8_t* chunk = pool.mappingNext;
    pool.mappingNext += CHUNK_SIZE;
    return chunk;
}

void addRoom(classState* state, chunkHead* chunk) {
    chunk->previous = nullptr;
    chunk->next = state->room;
    if (state->room != nullptr) state->room->previous = chunk;
    state->room = chunk;
}

void removeRoom(classState* state, chunkHead* chunk) {
    if (chunk->next != nullptr) chunk->next->previous = chunk->previous;
    (chunk->previous != nullptr ? chunk->previous->next : state->room) = chunk->next;
}

bool hasRoom(const classState& state, const chunkHead& chunk) {
    const auto* end = reinterpret_cast<const uint8_t*>(&chunk) + CHUNK_SIZE;
    return chunk.freed != nullptr || static_cast<size_t>(end - chunk.fresh) >= state.blockSize;
}

void* takeBlock(size_t c, size_t) {
    classState& state = pool.states[c];
    if (state.room == nullptr) {
        uint8_t* memory = takeChunk();
        if (memory == nullptr) return nullptr;
        addRoom(&state, new (memory) chunkHead{CHUNK_MAGIC, static_cast<uint32_t>(c), 0, nullptr,
                                               memory + sizeof(chunkHead), nullptr, nullptr});
    }
    chunkHead* chunk = state.room;
    void* block = chunk->freed;
    if (block != nullptr) {
        chunk->freed = chunk->freed->next;
    } else {
        block = chunk->fresh;
        chunk->fresh += state.blockSize;
    }
    chunk->used++;
    if (!hasRoom(state, *chunk)) removeRoom(&state, chunk);
    return block;
}

size_t giveBlock(void* block) {
    auto address = reinterpret_cast<uintptr_t>(block);
    auto* chunk = reinterpret_cast<chunkHead*>(address & ~(CHUNK_SIZE - 1));
    assert(chunk->magic == CHUNK_MAGIC && "not a block of the variable pool");
    const size_t c = chunk->classIndex;
    classState& state = pool.states[c];
    if (!hasRoom(state, *chunk)) addRoom(&state, chunk);
    chunk->freed = new (block) freeBlock{chunk->freed};
    if (--chunk->used == 0) {
        removeRoom(&state, chunk);
        pool.spare.push_back(reinterpret_cast<uint8_t*>(chunk));
    }
    return c;
}

#endif

void* heapCount(void* block) {
    if (block == nullptr) {
        heapFailed.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    }
    heapBlocks.fetch_add(1, std::memory_order_relaxed);
    heapBytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
    return block;
}

bool heapIsFull() {
    return heapBlocks.load(std::memory_order_relaxed) >= heapLimit.load(std::memory_order_relaxed);
}

void heapFree(void* block) {
    if (block == nullptr) return;
    heapBlocks.fetch_sub(1, std::memory_order_relaxed);
    heapBytes.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
    std::free(block);
}

}  // namespace

int zek_memPartFixedInit(uint32_t poolId, uint32_t) {
    if (fixedExists) return -1;
    fixedPool = poolId;
    fixedExists = true;
    return 0;
}

int zek_memPartVarInit(uint32_t poolId, const uint32_t* classSizes, uint32_t classes) {
    if (pool.exists || classSizes == nullptr || classes == 0 || classes > UINT8_MAX) return -1;
    std::vector<uint32_t> sizes(classSizes, classSizes + classes);
    std::sort(sizes.begin(), sizes.end());
    // A block must hold the free chain's link, and a chunk at least one block.
    if (sizes.front() == 0 || sizes.back() > CHUNK_SIZE - sizeof(chunkHead)) return -1;

    pool = {};
    pool.id = poolId;
    pool.exists = true;
    for (uint32_t size : sizes) {
        pool.classes.push_back({size, 0, 0, 0, UINT64_MAX});
        pool.states.push_back({(size + BLOCK_ALIGN - 1) & ~(BLOCK_ALIGN - 1), nullptr});
    }
    pool.firstFor.resize(sizes.back() / BLOCK_ALIGN + 1);
    for (size_t unit = 0; unit < pool.firstFor.size(); unit++) {
        auto first = std::lower_bound(sizes.begin(), sizes.end(), unit * BLOCK_ALIGN);
        pool.firstFor[unit] = static_cast<uint8_t>(first - sizes.begin());
    }
    return 0;
}

void zek_memPartFree(uint32_t poolId) {
    if (fixedExists && fixedPool == poolId) fixedExists = false;
    if (!pool.exists || pool.id != poolId) return;
    for (void* mapping : pool.mappings) munmap(mapping, MAPPING_SIZE + CHUNK_SIZE);
    pool = {};
}

void* zekMC_M_memBlockVarAlloc(uint32_t, uint32_t, size_t size) {
    size_t c = classFor(size);
    if (c == pool.classes.size()) return nullptr;
    zekMemClass& counters = pool.classes[c];
    void* block = counters.inUse < counters.limit ? takeBlock(c, size) : nullptr;
    if (block == nullptr) {
        counters.failed++;
        return nullptr;
    }
    counters.inUse++;
    counters.highWater = std::max(counters.highWater, counters.inUse);
    return block;
}

void zekMC_M_memBlockVarFree(void* block) {
    if (block == nullptr) return;
    size_t c = giveBlock(block);
    if (c < pool.classes.size()) pool.classes[c].inUse--;
}

void zekMemTrim() {
    for (; !pool.spare.empty(); pool.spare.pop_back()) {
        uint8_t* chunk = pool.spare.back();
        if (madvise(chunk, CHUNK_SIZE, MADV_DONTNEED) != 0) return;
        pool.returned.push_back(chunk);
    }
}

void* zekMC_MM_mallocAt(size_t size, const char* file, int line) {
    void* block = heapCount(heapIsFull() ? nullptr : std::malloc(size));
    if (block == nullptr) {
        heapFailedFile = file;
        heapFailedLine = line;
    }
    return block;
}

void zekMC_MM_free(void* block) {
    heapFree(block);
}

void* zekMC_M_sysMalloc(size_t size) {
    return heapCount(heapIsFull() ? nullptr : std::calloc(1, size));
}

void zekMC_M_sysFree(void* block) {
    heapFree(block);
}

std::span<const zekMemClass> zekMemClasses() {
    return pool.classes;
}

int zekMemSetLimit(size_t size, uint64_t blocks) {
    size_t c = classFor(size);
    if (c == pool.classes.size()) return -1;
    pool.classes[c].limit = blocks;
    return 0;
}

void zekMemSetHeapLimit(uint64_t blocks) {
    heapLimit = blocks;
}

zekMemHeap zekMemHeapStats() {
    return {heapBlocks, heapBytes, heapFailed, heapFailedFile, heapFailedLine};
}
