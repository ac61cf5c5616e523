// Zeroed records from the task's pools. Free with zekMC_M_memBlockVarFree.
#pragma once

#include <cstring>

#include "platform/api/zekMem.h"

// `tag` is what the pool counts the record under; `bytes` may be more than the record's own, for
// what follows it. Null when there is no memory.
template <class Record>
Record* recordMake(uint32_t tag, size_t bytes = sizeof(Record)) {
    void* block = zekMC_M_memBlockVarAlloc(tag, ZEK_MEM_FLAGS, bytes);
    return block != nullptr ? static_cast<Record*>(std::memset(block, 0, bytes)) : nullptr;
}
