// The reply buffer of a show: a zeroed front (showReplyHdr), then the text with its NUL.
#pragma once

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "include/cliMsg.h"
#include "platform/api/zekMem.h"

// Makes the buffer, of `least` bytes or more where the text needs them. It is the caller's
// (zekMC_M_sysFree). False, with nothing written, when there is no memory or the text is too long.
inline bool showReplyMake(std::string_view text, size_t least, void** buffer, uint32_t* size) {
    const size_t bytes = std::max(least, SHOW_TEXT_OFFSET + text.size() + 1);
    if (bytes > std::numeric_limits<uint32_t>::max()) return false;
    void* block = zekMC_M_sysMalloc(bytes);
    if (block == nullptr) return false;
    std::memcpy(static_cast<char*>(block) + SHOW_TEXT_OFFSET, text.data(), text.size());
    *buffer = block;
    *size = static_cast<uint32_t>(bytes);
    return true;
}
