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
// Notes the lists of a file that is about to be loaded; a pipe is not read ahead.
void listNamesReadAhead(listNames* names, int fd);
// True when the name stands for a prefix list and for no access list.
bool listNamesIsPrefix(const listNames& names, bool ipv6, std::string_view name);
