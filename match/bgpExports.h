// What the manager's executable exports to client tasks that run inside its process (C names, in
// its dynamic symbol table): evaluation of lists under the manager's read lock, from any thread.
//
// Arguments and verdicts as the functions of the same name in match/zekBgp.h: 1
// denies, any other value permits. A caller must not hold the lock itself.
#pragma once

#include <cstdint>

struct bgpList;

extern "C" {
int bgpAccessASPMatchFinExt(uint32_t listId, const void* attribute, uint32_t length);
// For callers that know how many bytes (2 or 4) the AS numbers of the attribute have.
int bgpAccessASPMatchWidthExt(uint32_t listId, uint32_t width, const void* attribute,
                              uint32_t length);
int bgpAccessCommMatchFinExt(uint32_t listId, const void* attribute, uint32_t length);
// The handle must be one that a registered client holds: the list stays for as long as it does.
int bgpAccessCommMatchFinWithHandleExt(const bgpList* list, const void* attribute, uint32_t length);
}
