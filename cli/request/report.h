// How refusals are shown: the sentence, the place, the line and a caret under the offending word.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

struct cliPlace {
    std::string_view source;  // file name, "-", "stdin", "command"; empty at a terminal
    uint32_t line;            // from 1
};

// "SOURCE:LINE:COLUMN: sentence; expected: a, b" and the line with its caret. column from 0.
void reportRefused(FILE* err, const cliPlace& place, std::string_view line, size_t column,
                   std::string_view sentence, const std::vector<std::string>& expected);
// A sentence that belongs to no line.
void reportText(FILE* err, std::string_view text);
