// Where a command's output goes: line by line through the filters that were typed behind `|`.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

enum class pipeKind : uint8_t { include, exclude, begin, count };

struct pipeFilter {
    pipeKind kind;
    std::string text;    // what is looked for; plain text, case-sensitive; empty for a bare count
    bool begun = false;  // begin: the first match has been seen
    uint64_t lines = 0;  // count
};

struct cliPipe {
    FILE* out = stdout;
    std::vector<pipeFilter> filters;
    std::string part;  // an unfinished line
};

// Splits "command | filter text | filter ..." : *line keeps the command. False with *error and the
// column of the offending word when a filter is not one.
bool pipeParse(std::string_view* line, cliPipe* pipe, size_t* column, std::string* error);

void pipeLine(cliPipe* pipe, std::string_view line);  // one whole line, without its end
void pipeText(cliPipe* pipe, std::string_view text);  // any piece; CR LF or LF end its lines
void pipeFinish(cliPipe* pipe);                       // the unfinished line, then the counts
