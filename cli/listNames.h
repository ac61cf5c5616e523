// Which lists there are, by kind: a clause that names a list by address is shown in the same words
// for an access list and for a prefix list, and is read as what the name stands for.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

struct listNames {
    std::unordered_set<std::string> prefix[2], access[2];  // IPv4, IPv6
    bool fromRunning = false;                              // the running configuration was read
};

// Notes the list that a line is the header of, if it is one.
void listNamesNote(listNames* names, std::string_view line);
// Notes the lists of what is about to be loaded. A pipe is read to its end first, up to
// LOAD_PIPE_MAX bytes. The descriptor to load from: this one, or one with what came through the
// pipe (the caller closes it); -1 with errno.
constexpr size_t LOAD_PIPE_MAX = size_t{1} << 30;
int listNamesReadAhead(listNames* names, int fd);
// True when the name stands for a prefix list and for no access list.
bool listNamesIsPrefix(const listNames& names, bool ipv6, std::string_view name);
