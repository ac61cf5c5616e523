// One pass over a line: each word selects a node among those of the state, its action changes the
// command, and the node's state is the next. Help takes the same way up to the last word.
#include "cli/parser.h"

#include <algorithm>

#include "cli/entry.h"
#include "cli/grammar/build.h"
#include "cli/lexer.h"
#include "include/listName.h"

namespace {

struct cursor {
    const cliContext& context;
    cliCommand& command;
    const grammarState* state;
    size_t at;  // in the line
};

// Calls fn with every node that may stand at this point, until it returns true.
template <class Fn>
void eachNode(const cliCommand& command, const grammarState* state, Fn fn) {
    // A state's own nodes come first, so that they win over those of the states behind it.
    for (; state != nullptr; state = state->chain) {
        if ((state->when & ~command.features) != 0) continue;
        for (const grammarNode& node : state->nodes)
            if ((node.when & ~command.features) == 0 && (node.once & command.seen) == 0 && fn(node))
                return;
    }
}

// A stored configuration may carry whatever its field can hold, also what an operator could not
// type today.
bool inLimits(const grammarNode& node, uint64_t v, bool wide) {
    return v >= (wide ? 0 : node.low) && v <= (wide ? node.wideHigh : node.high);
}

// A name is a word without control characters, so that it can be printed as it is.
bool isName(std::string_view word) {
    // Bytes above 127 are taken: names may be in any encoding.
    return word.size() <= LIST_NAME_LEN &&
           std::ranges::none_of(word, [](char c) { return (c >= 0 && c < ' ') || c == 127; });
}

bool takeArgument(const grammarNode& node, std::string_view word, bool wide, cliValue* value) {
    uint32_t word32;
    switch (node.kind) {
        case cliArg::number:
            // A word of 32 bits may be shown with a sign.
            if (wide && node.wideHigh == 0xFFFFFFFF && lexSigned(word, &word32)) {
                value->number = word32;
                return true;
            }
            return lexNumber(word, &value->number) && inLimits(node, value->number, wide);
        case cliArg::joined:
            if (word.ends_with(node.word)) word.remove_suffix(node.word.size());
            return lexNumber(word, &value->number) && inLimits(node, value->number, wide);
        // Out of range is a sentence of its own, not an unexpected word.
        case cliArg::sequence:
            return lexNumber(word, &value->number);
        case cliArg::hex:
            // The lower limit is always the node's: what it keeps out would mean another rule.
            if (!lexHex(word, &word32) || word32 < node.low || !inLimits(node, word32, wide))
                return false;
            value->number = word32;
            return true;
        case cliArg::address:
            if (!lexAddress(word, &word32)) return false;
            value->address = word32;
            return true;
        case cliArg::prefix:
            if (!lexPrefix(word, &word32, &value->length)) return false;
            value->address = word32;
            return true;
        case cliArg::mac:
            return lexMac(word, value->mac);
        case cliArg::address6:
            return lexAddress6(word, value->address6);
        case cliArg::prefix6:
            return lexPrefix6(word, value->address6, &value->length);
        case cliArg::pair:
            return lexPair(word, wide, &value->high, &value->low);
        case cliArg::addressPair:
            return lexAddressPair(word, &value->high, &value->low);
        case cliArg::as:
            return lexAs(word, &value->low);
        case cliArg::name:
            return isName(word);
        case cliArg::text:
        case cliArg::quoted:
        case cliArg::rest:
            return true;
        case cliArg::word:
        case cliArg::end:
            break;
    }
    return false;
}

// The node that a word selects: a whole keyword, else the only keyword that it begins, else an
// argument. Null when there is none or (*ambiguous) more than one.
const grammarNode* select(const cursor& c, std::string_view word, cliValue* value,
                          bool* ambiguous) {
    const grammarNode* whole = nullptr;
    const grammarNode* begun = nullptr;
    const grammarNode* argument = nullptr;
    *ambiguous = false;
    eachNode(c.command, c.state, [&](const grammarNode& node) {
        if (node.kind != cliArg::word) {
            // The first argument that reads the word has it: the order of the nodes decides between
            // a prefix and a name.
            if (argument == nullptr && takeArgument(node, word, c.context.wide, value))
                argument = &node;
            return false;
        }
        lexMatch match = lexCompare(word, node.word);
        if (match == lexMatch::whole) whole = &node;
        // The same keyword may stand in two states of the chain; that is not ambiguous.
        if (match == lexMatch::prefix && !node.whole) {
            *ambiguous |= begun != nullptr && begun->word != node.word;
            if (begun == nullptr) begun = &node;
        }
        return whole != nullptr;
    });
    // A whole keyword is meant even where it begins another one.
    if (whole != nullptr || !*ambiguous) {
        *ambiguous = false;
        return whole != nullptr ? whole : begun != nullptr ? begun : argument;
    }
    return nullptr;
}

std::string shown(const grammarNode& node, bool wide) {
    if (node.kind != cliArg::number && node.kind != cliArg::joined && node.kind != cliArg::sequence)
        return std::string(node.word);
    return "<" + std::to_string(wide ? 0 : node.low) + "-" +
           std::to_string(wide ? node.wideHigh : node.high) + ">";
}

// The valid words at this point, or those that begin with `typed`, each once.
void listValid(const cursor& c, std::string_view typed, std::vector<std::string>* words) {
    eachNode(c.command, c.state, [&](const grammarNode& node) {
        if (!typed.empty() &&
            (node.kind != cliArg::word || lexCompare(typed, node.word) == lexMatch::none))
            return false;
        std::string text = shown(node, c.context.wide);
        if (std::ranges::find(*words, text) == words->end()) words->push_back(std::move(text));
        return false;
    });
}

void refuse(const cursor& c, size_t column, std::string text, std::string_view typed,
            cliParseError* error) {
    *error = {column, std::move(text), {}};
    listValid(c, typed, &error->expected);
}

// The command is used again for every line of a file, so its parts are cleared one by one: the text
// keeps its memory.
cursor begin(const cliContext& context, cliCommand* command) {
    const grammarMode& mode = grammarModeOf(context.mode);
    command->verb = cliVerb::entry;
    command->negated = false;
    command->inverseMask = context.inverseMask;
    command->wide = context.wide;
    command->features = F_START | F_POSITIVE | mode.features;
    command->seen = 0;
    command->firstColumn = 0;
    command->seqColumn = NO_COLUMN;
    command->kind = 0;
    command->number = command->direction = command->implicitPermit = 0;
    command->pair = {};
    command->vlans = "";
    command->name = "";
    command->text.clear();
    command->table = mode.table;
    command->entry = mode.table->blank;
    command->policy = {};
    return {context, *command, mode.start, 0};
}

// Takes one word (already read; c.at is behind it).
bool step(cursor& c, std::string_view line, std::string_view word, cliParseError* error) {
    cliValue value{};
    value.column = static_cast<size_t>(word.data() - line.data());
    bool ambiguous;
    const grammarNode* node = select(c, word, &value, &ambiguous);
    if (node == nullptr) {
        std::string text = ambiguous ? "Ambiguous word \"" : "Unexpected word \"";
        // After an ambiguous word only what it could mean is listed, after a strange one all that
        // may stand there.
        refuse(c, value.column, text.append(word) + "\"", ambiguous ? word : "", error);
        return false;
    }
    value.word = word;
    // Words are separated by blanks before their kind is known: only now the rest of the quotation
    // is taken in.
    if (node->kind == cliArg::quoted && word[0] == '"') {
        size_t end = line.find('"', value.column + 1);
        if (end == line.npos) {
            *error = {value.column, "The quotation mark is not closed", {}};
            return false;
        }
        value.word = line.substr(value.column, end + 1 - value.column);
        c.at = end + 1;
    }
    // The word that is joined to a number is the next one.
    if (node->kind == cliArg::joined && word.ends_with(node->word)) c.at -= node->word.size();
    if (node->kind == cliArg::rest) {
        value.word = lexTrimEnd(line.substr(value.column));
        c.at = line.size();
    }
    if (node->action != nullptr) {
        if (const char* why = node->action(c.command, value, *node)) {
            *error = {value.column, why, {}};
            return false;
        }
    }
    c.command.seen |= node->once;
    // "no" leads back to where the line began, whatever mode that is.
    c.state = node->next == &sMode ? grammarModeOf(c.context.mode).start : node->next;
    return true;
}

}  // namespace

cliParsed cliParse(const cliContext& context, std::string_view line, cliCommand* command,
                   cliParseError* error) {
    cursor c = begin(context, command);
    std::string_view word = lexWord(line, &c.at);
    if (word.empty() || word[0] == '!') {
        command->verb = cliVerb::nothing;
        return cliParsed::nothing;
    }
    command->firstColumn = static_cast<uint32_t>(word.data() - line.data());
    for (; !word.empty(); word = lexWord(line, &c.at))
        if (!step(c, line, word, error)) return cliParsed::refused;

    bool complete = false;
    eachNode(*command, c.state,
             [&](const grammarNode& n) { return complete = n.kind == cliArg::end; });
    if (!complete) {
        // The column behind the blank that would have to follow.
        refuse(c, lexTrimEnd(line).size() + 1, "The line is incomplete", "", error);
        return cliParsed::refused;
    }
    // Entry lines name no verb: a line that no other word has claimed belongs to the list, whose
    // kind no line of a list's mode says.
    if (cliIsListLine(command->verb)) command->kind = kindOfMode(context.mode);
    return cliParsed::command;
}

bool cliHelp(const cliContext& context, std::string_view line, std::vector<cliHelpRow>* rows,
             cliParseError* error) {
    cliCommand command;
    cursor c = begin(context, &command);
    rows->clear();
    for (;;) {
        std::string_view word = lexWord(line, &c.at);
        // Words that end before the line does are fixed; the one at its end is still being typed.
        if (c.at < line.size()) {
            if (!step(c, line, word, error)) return false;
            continue;
        }
        eachNode(command, c.state, [&](const grammarNode& node) {
            bool literal = node.kind == cliArg::word;
            cliValue value{};
            bool fits = word.empty() || (literal ? lexCompare(word, node.word) != lexMatch::none
                                                 : takeArgument(node, word, context.wide, &value));
            std::string text = shown(node, context.wide);
            if (fits && std::ranges::find(*rows, text, &cliHelpRow::word) == rows->end())
                rows->push_back({std::move(text), node.help, literal});
            return false;
        });
        return true;
    }
}

bool cliInText(const cliContext& context, std::string_view line) {
    cliCommand command;
    cursor c = begin(context, &command);
    size_t front = 0;
    if (lexWord(line, &front).starts_with('!')) return true;  // a comment
    for (;;) {
        const std::string_view word = lexWord(line, &c.at);
        if (word.empty()) return false;
        cliValue value{};
        bool ambiguous;
        const grammarNode* node = select(c, word, &value, &ambiguous);
        if (node != nullptr && node->kind == cliArg::rest) return true;
        cliParseError error;
        if (c.at >= line.size() || !step(c, line, word, &error)) return false;
    }
}
