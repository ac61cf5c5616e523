// How often an entry has decided. Counted by any thread under the read lock, so without the write
// lock; cleared under the write lock.
#pragma once

#include <atomic>
#include <cstdint>

inline void hitCountAdd(uint32_t& count) {
    std::atomic_ref(count).fetch_add(1, std::memory_order_relaxed);
}
inline uint32_t hitCountGet(const uint32_t& count) {
    return std::atomic_ref(const_cast<uint32_t&>(count)).load(std::memory_order_relaxed);
}
