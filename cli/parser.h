// Reading a line with the grammar.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/grammar/grammar.h"

struct cliContext {
    cliMode mode;
    bool inverseMask;
    bool wide;  // restoring: numbers may be whatever their field can hold
};

struct cliParseError {
    size_t column;     // of the offending word, from 0; behind the last word when one is missing
    std::string text;  // one sentence
    std::vector<std::string> expected;  // the words that are valid at that point; may be empty
};

enum class cliParsed { command, nothing, refused };
// Reads one line. `nothing`: empty or a comment. On `refused` *error says why; the command is then
// not to be used. The command's views live as long as the line.
cliParsed cliParse(const cliContext& context, std::string_view line, cliCommand* command,
                   cliParseError* error);

struct cliHelpRow {
    std::string word, help;
    bool literal;  // a word that can be completed to, not a description of an argument
};
// What can stand in the place of the last, possibly empty, word of the line (empty: the line ends
// with a blank). False with *error when the words before it are not valid.
bool cliHelp(const cliContext& context, std::string_view line, std::vector<cliHelpRow>* rows,
             cliParseError* error);
// Whether the line ends inside a text that goes to the end of the line and has begun: what comes is
// part of it, a question mark too.
bool cliInText(const cliContext& context, std::string_view line);
