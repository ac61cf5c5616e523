// How the files of the grammar write their tables: constructors of nodes, the actions and the
// states that several topics use. Each topic keeps its own states in its own file, declared at the
// top because they refer to each other; a state that is declared and not defined stops the build.
#pragma once

#include "cli/grammar/grammar.h"

// States that more than one file leads to.
extern const grammarState sMode;  // stands for the start of the current mode
extern const grammarState sDone;  // the line must end
extern const grammarState sExec, sTest, sConfig, sListName, sStandard, sExtended, sBinding;
extern const grammarState sInterface, sPrefix4, sPrefix6, sAspath, sCommunity, sExtCommunity,
    sRouteMap;
// What a set clause has in common with the entries of its list.
extern const grammarState sCommunityValues, sExtCommunityType;
extern const grammarState sTestPrefix4, sTestPrefix6, sTestAspath, sTestCommunity, sTestRouteMap;

const char* setVerb(cliCommand&, const cliValue&, const grammarNode&);  // (cliVerb)
const char* setNegated(cliCommand&, const cliValue&, const grammarNode&);
const char* setName(cliCommand&, const cliValue&, const grammarNode&);
const char* setKind(cliCommand&, const cliValue&, const grammarNode&);  // (the kind)
const char* setNumber(cliCommand&, const cliValue&,
                      const grammarNode&);  // (the number, of a keyword)
// A verb about lists of one kind (cliKind).
template <cliVerb verb>
const char* setVerbOf(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.verb = verb;
    c.kind = n.value;
    return nullptr;
}
const char* setPolicyAction(cliCommand&, const cliValue&, const grammarNode&);  // (1 deny)
// Appends to the text in full words: a debug function's arguments, an interface's name.
const char* addText(cliCommand&, const cliValue&, const grammarNode&);

constexpr grammarNode kw(std::string_view word, const char* help, const grammarState& next,
                         cliAction action = nullptr, uint32_t value = 0, uint32_t when = 0,
                         uint32_t once = 0) {
    return {cliArg::word, word, help, &next, action, value, when, once, 0, 0, 0};
}
// A keyword beside which a name may stand: typed in full, or it is the name.
constexpr grammarNode whole(std::string_view word, const char* help, const grammarState& next,
                            cliAction action = nullptr, uint32_t value = 0) {
    grammarNode node = kw(word, help, next, action, value);
    node.whole = true;
    return node;
}
constexpr grammarNode verb(std::string_view word, const char* help, const grammarState& next,
                           cliVerb v, uint32_t when = 0) {
    return kw(word, help, next, setVerb, static_cast<uint32_t>(v), when);
}
constexpr grammarNode arg(cliArg kind, std::string_view shown, const char* help,
                          const grammarState& next, cliAction action, uint32_t value = 0,
                          uint32_t when = 0) {
    return {kind, shown, help, &next, action, value, when, 0, 0, 0, 0};
}
// wideHigh: what the field can hold; a configuration that is restored may carry it.
constexpr grammarNode number(const char* help, uint32_t low, uint32_t high,
                             const grammarState& next, cliAction action, uint32_t value = 0,
                             uint32_t wideHigh = 0) {
    return {cliArg::number,
            "",
            help,
            &next,
            action,
            value,
            0,
            0,
            low,
            high,
            wideHigh == 0 ? high : wideHigh};
}
constexpr grammarNode fin(const char* help, uint32_t when = 0) {
    return {cliArg::end, "<cr>", help, nullptr, nullptr, 0, when, 0, 0, 0, 0};
}
