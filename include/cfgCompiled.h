// Configuration lines between the shell and the manager.
#pragma once

#include <string_view>

#include "include/wire.h"

// How the text of a line begins that cannot be shown: a comment to whoever loads it.
constexpr std::string_view CFG_NOT_SHOWN = "! line not shown: ";

// What `aclsh --compile` writes for the configuration manager: a row a line, in order, and one that
// says that it is all. Followed by the line's text and by the request's body (what the message
// carries behind its header).
struct cfgCompiledRow {
    be32 mtype;  // of the request; 0: the line is no configuration, and there is no body
    be32 textLength;
    be32 bodyLength;
};
WIRE_SIZE(cfgCompiledRow, 12);
constexpr uint32_t CFG_COMPILED_END = 0xFFFFFFFF;
