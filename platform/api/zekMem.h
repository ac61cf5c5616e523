// Memory: block pools with counters, and the general allocator.
//
// The variable pool hands out blocks from 38 size classes; a request takes the smallest class that
// holds it, and the pool numbers that callers pass are tags for the counters only. Every class
// counts its blocks and can be given a limit, so that "no memory" can be provoked. All of it is
// for the task's own thread but for zekMC_M_sysMalloc / sysFree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Gives the fixed and the variable pool their classes (sizes ascending or not, in bytes).
// 0, or -1 when there is no memory or the pool exists already.
int zek_memPartFixedInit(uint32_t pool, uint32_t pool2);
int zek_memPartVarInit(uint32_t pool, const uint32_t* classSizes, uint32_t classes);
void zek_memPartFree(uint32_t pool);

constexpr uint32_t ZEK_MEM_FLAGS = 0x50000;

// A block of at least `size` bytes from the variable pool, not zeroed; null when the class has
// reached its limit, when no class is large enough, or when the machine is out of memory.
[[nodiscard]] void* zekMC_M_memBlockVarAlloc(uint32_t tag, uint32_t flags, size_t size);
void zekMC_M_memBlockVarFree(void* block);
// Gives memory without a block in use back to the system; it is kept for the next blocks otherwise.
void zekMemTrim();

// The platform allocator: general heap. Not zeroed. The last refusal's file and line are kept.
[[nodiscard]] void* zekMC_MM_mallocAt(size_t size, const char* file, int line);
void zekMC_MM_free(void* block);
#define zekMC_MM_malloc(size) zekMC_MM_mallocAt((size), __FILE__, __LINE__)

// Buffers that leave the store (shows), from any thread. Zeroed.
[[nodiscard]] void* zekMC_M_sysMalloc(size_t size);
void zekMC_M_sysFree(void* block);

struct zekMemClass {
    uint32_t size;   // bytes a block
    uint64_t inUse;  // blocks handed out now
    uint64_t highWater;
    uint64_t failed;  // requests refused
    uint64_t limit;   // blocks at most; UINT64_MAX: none
};
// The variable pool's classes in ascending size; stays the pool's.
[[nodiscard]] std::span<const zekMemClass> zekMemClasses();
// Sets the limit of the class that serves requests of `size`; 0 or -1 (no such class).
int zekMemSetLimit(size_t size, uint64_t blocks);
struct zekMemHeap {
    uint64_t blocks, bytes, failed;
    const char* lastFailedFile;  // null: none of the platform allocator's calls was refused
    int lastFailedLine;
};
[[nodiscard]] zekMemHeap zekMemHeapStats();
// Lets the platform allocator and sysMalloc hand out this many blocks at most (UINT64_MAX: no
// limit).
void zekMemSetHeapLimit(uint64_t blocks);
