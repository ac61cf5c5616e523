// Which lists the lines that are about to be loaded define.
#pragma once

#include "include/listNames.h"

// Notes the lists of what is about to be loaded. A pipe is read to its end first, up to
// LOAD_PIPE_MAX bytes. The descriptor to load from: this one, or one with what came through the
// pipe (the caller closes it); -1 with errno.
constexpr size_t LOAD_PIPE_MAX = size_t{1} << 30;
int listNamesReadAhead(listNames* names, int fd);
