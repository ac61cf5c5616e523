// The kinds of lists, one row for each: how its lines are read, what is sent about it, how it is
// shown and tested. Its words are the grammar's.
#pragma once

#include "cli/session.h"

// How a request is filled, and how long it is.
struct requestForm {
    size_t length = sizeof(cliHdr);
    requestFill fill = nullptr;
};

// A command and its "no" form; 0: there is none.
struct codePair {
    uint32_t plain = 0, negated = 0;
};
struct kindCodes {
    codePair header = {}, line = {}, remark = {}, binding = {};
};
struct kindResequence {
    uint32_t code = 0;
    requestForm form = {};
};
struct kindClear {
    uint32_t all = 0, one = 0;
};
struct kindShow {
    cliOutcome (*run)(cliSession*, const cliCommand&, cliPipe*) = nullptr;
    // In the JSON of showPolicy, the status at the end of a walk over all, what it asks for.
    const char* word = "";
    uint32_t noList = 0, all = 0, one = 0, allDetail = 0, oneDetail = 0;
};
struct listKind {
    grammarMode mode;  // of its lines
    kindCodes codes;
    requestForm header = {}, removal = header, line = {};
    kindResequence resequence = {};
    uint32_t describedAs = 0;  // cliDescriptionReq::kind; 0: the code that creates the list
    kindClear clear = {};      // counters
    const char* testFunction = "";
    kindShow show = {};
};
extern const listKind listKinds[KIND_COUNT];
