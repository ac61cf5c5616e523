// Zeroed records from the task's pools. Free with zekMC_M_memBlockVarFree.
#pragma once

#include <cstring>

#include "platform/api/zekMem.h"

// What the pools count a record under. Kinds that share a number are counted together.
enum poolTag : uint32_t {
    POOL_ACCESS_LIST = 0,
    POOL_ACCESS_ENTRY = 3,
    POOL_RMAP = 4,
    POOL_RMAP_ENTRY = 5,
    POOL_NUMBER = 6,
    POOL_NAME = 7,
    POOL_CLIENT = 7,
    POOL_BGP_LIST = 9,
    POOL_BGP_ENTRY = 10,
    POOL_PREFIX_LIST = 14,
    POOL_INTERFACE = 14,
    POOL_PREFIX_ENTRY = 15,
    POOL_VLAN = 15,
    POOL_MESSAGE = 18,
    POOL_DUP_NODE = 29,
};

// `bytes` may be more than the record's own, for what follows it. Null when there is no memory.
template <class Record>
Record* recordMake(poolTag tag, size_t bytes = sizeof(Record)) {
    void* block = zekMC_M_memBlockVarAlloc(tag, ZEK_MEM_FLAGS, bytes);
    return block != nullptr ? static_cast<Record*>(std::memset(block, 0, bytes)) : nullptr;
}
