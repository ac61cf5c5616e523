// How the files of the grammar write their tables: constructors of nodes, the actions and the
// states that several topics use. Each topic keeps its own states in its own file, declared at the
// top because they refer to each other; a state that is declared and not defined stops the build.
#pragma once

#include <array>
#include <type_traits>

#include "cli/grammar/grammar.h"
#include "include/ifindex.h"

// States that more than one file leads to.
extern const grammarState sMode;  // stands for the start of the current mode
extern const grammarState sDone;  // the line must end
extern const grammarState sExec, sTest, sChassis, sConfig, sListName, sStandard, sExtended,
    sBinding;
// In front of sConfig in the modes of lists: remarks, where a list takes them, and its description.
extern const grammarState sRemarks, sDescription;
// Of the topic of groups and source guard; what follows "ip" in configuration mode.
extern const grammarState sVlanGroup, sShowGroups, sGuard, sShowGuard, sIp;
// What follows "show" when it is about interfaces, VLANs, LAGs or protocols.
extern const grammarState sShowPlaces;
extern const grammarState sInterface, sMacStandard, sMacExtended, sPrefix4, sPrefix6, sAspath,
    sCommunity, sExtCommunity, sRouteMap;
// What a set clause has in common with the entries of its list.
extern const grammarState sCommunityValues, sExtCommunityType;
extern const grammarState sTestPrefix4, sTestPrefix6, sTestAspath, sTestCommunity, sTestRouteMap;

// --- actions -------------------------------------------------------------------------------------

// The number that a word stands for: a keyword's own (the node's value), or the argument.
uint32_t numberOf(const cliValue&, const grammarNode&);
// The bytes of an address of any kind, as messages carry them; empty for what is none.
std::span<const uint8_t> valueBytes(const cliValue&, cliArg kind);
// Sets the first `length` bits.
void fillMask(std::span<uint8_t> mask, uint32_t length);

// Takes the word's number over into a member of the command, or of a part of it.
template <auto... members>
const char* setField(cliCommand& c, const cliValue& v, const grammarNode& n) {
    auto& field = (c.*....*members);
    field = static_cast<std::remove_reference_t<decltype(field)>>(numberOf(v, n));
    return nullptr;
}
template <auto member>
constexpr cliAction setPolicy = setField<&cliCommand::policy, member>;
constexpr cliAction setKind = setField<&cliCommand::kind>;
constexpr cliAction setNumber = setField<&cliCommand::number>;
constexpr cliAction setPolicyAction = setPolicy<&cliPolicy::action>;  // (1 deny)

const char* setVerb(cliCommand&, const cliValue&, const grammarNode&);  // (see verbOf)
const char* setNegated(cliCommand&, const cliValue&, const grammarNode&);
const char* setName(cliCommand&, const cliValue&, const grammarNode&);
const char* setQuotedName(cliCommand&, const cliValue&, const grammarNode&);
const char* setSequence(cliCommand&, const cliValue&, const grammarNode&);
// The sentence that refuses a sequence number (cliArg::sequence) above the node's limit.
const char* checkSequence(const cliValue&, const grammarNode&);
// Reads VLAN ranges for their form only: the request reads them again for its bits.
const char* setVlans(cliCommand&, const cliValue&, const grammarNode&);
// A sequence number has been read: where a refusal of it points, and what may follow it.
void noteSequence(cliCommand&, const cliValue&);
// Appends to the text in full words: a debug function's arguments, an interface's name.
const char* addText(cliCommand&, const cliValue&, const grammarNode&);

// --- nodes ---------------------------------------------------------------------------------------

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
// A verb about lists of one kind. The kind stands behind the verb, which fills a byte.
constexpr uint32_t VERB_BITS = 8;
constexpr grammarNode verbOf(std::string_view word, const char* help, const grammarState& next,
                             cliVerb v, cliKind kind) {
    return kw(word, help, next, setVerb, static_cast<uint32_t>(v) | kind << VERB_BITS);
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
// What every kind of list begins its lines with: the verdict, the value of which is the action's.
constexpr std::array<grammarNode, 2> verdictNodes(const char* permitHelp, const char* denyHelp,
                                                  const grammarState& next,
                                                  cliAction action = setPolicyAction,
                                                  uint32_t permit = 0, uint32_t deny = 1) {
    return {kw("permit", permitHelp, next, action, permit),
            kw("deny", denyHelp, next, action, deny)};
}
// The same where entries have numbers: "seq N" may come first, and behind "no" it is enough.
constexpr std::array<grammarNode, 4> numberedNodes(const grammarState& seq,
                                                   const std::array<grammarNode, 2>& verdict) {
    return {kw("seq", "sequence number", seq, nullptr, 0, F_START), verdict[0], verdict[1],
            fin("the entry with this number", F_SEQ | F_NEGATED)};
}
// A sequence number of the entries or remarks of an access list.
constexpr grammarNode sequence(uint32_t highest, const grammarState& next, cliAction action,
                               uint32_t value = 0, uint32_t when = 0) {
    grammarNode node = number("sequence number", 0, highest, next, action, value);
    node.kind = cliArg::sequence;
    node.when = when;
    return node;
}
// The name of a list, on which nothing follows but what `next` allows.
constexpr grammarNode nameArg(const char* help, const grammarState& next,
                              cliAction action = setName) {
    return arg(cliArg::name, "NAME", help, next, action);
}
// The same, of a list whose name may have blanks: it stands between quotation marks then.
constexpr grammarNode quotedName(const char* help, const grammarState& next) {
    return arg(cliArg::quoted, "NAME", help, next, setQuotedName);
}
// The control processor has an agent like a card, and a number behind the slots.
constexpr std::array<grammarNode, 2> slotNodes(const grammarState& next) {
    auto slot = number("slot", 0, SLOT_COUNT - 1, next, setNumber);
    return {slot,
            kw("control-plane", "the control processor", next, setNumber, CARD_CONTROL_PLANE)};
}
