// What --compile writes: see include/cfgCompiled.h.
#pragma once

#include <cstdio>
#include <string_view>

#include "include/ipc.h"

// A line and the message that it stands for; null: it is no configuration.
void compileWrite(FILE* out, std::string_view text, const ipcHdr* message);
void compileEnd(FILE* out);
