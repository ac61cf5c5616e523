// What the topics of the grammar share: actions, the modes, the state at a line's end.
#include "cli/grammar/build.h"

const char* setVerb(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.verb = static_cast<cliVerb>(n.value);
    return nullptr;
}
const char* setNegated(cliCommand& c, const cliValue&, const grammarNode&) {
    c.negated = true;
    c.features = (c.features & ~uint32_t{F_POSITIVE}) | F_NEGATED;
    return nullptr;
}
const char* setName(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.name = v.word;
    return nullptr;
}
const char* setKind(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.kind = n.value;
    return nullptr;
}
const char* setNumber(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.number = n.kind == cliArg::word ? n.value : static_cast<uint32_t>(v.number);
    return nullptr;
}
const char* setPolicyAction(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.policy.action = n.value;
    return nullptr;
}
// The argument line of a debug function or an interface's name, in full words.
const char* addText(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (!c.text.empty()) c.text += ' ';
    if (n.kind == cliArg::number)
        c.text += std::to_string(v.number);
    else
        c.text += n.kind == cliArg::word ? n.word : v.word;
    return nullptr;
}

namespace {

constexpr grammarNode doneNodes[] = {fin("do it")};
constexpr uint32_t F_ANY_START = F_START | F_POSITIVE;
constexpr grammarMode modes[] = {
    {&sExec, F_ANY_START | F_EXEC, 0, "acl# ", cliVerb::entry, 0},
    {&sConfig, F_ANY_START, 0, "acl(config)# ", cliVerb::entry, 0},
    {&sStandard, F_ANY_START | F_LIST | F_NET, IP_KIND_STANDARD, "acl(config-standard)# ",
     cliVerb::entry, 0},
    {&sExtended, F_ANY_START | F_LIST | F_NET | F_EXT | F_LAYER2, IP_KIND_EXTENDED,
     "acl(config-extended)# ", cliVerb::entry, 0},
    {&sExtended, F_ANY_START | F_EXT, IP_KIND_EXTENDED, "acl(config-trace)# ", cliVerb::traceEntry,
     0},
    {&sBinding, F_ANY_START, 0, "acl(config-if)# ", cliVerb::entry, 0},
    {&sPrefix4, F_ANY_START, 0, "acl(config-prefix-list)# ", cliVerb::policyEntry, POLICY_PREFIX4},
    {&sPrefix6, F_ANY_START, 0, "acl(config-prefix-list)# ", cliVerb::policyEntry, POLICY_PREFIX6},
    {&sAspath, F_ANY_START, 0, "acl(config-as-path)# ", cliVerb::policyEntry, POLICY_ASPATH},
    {&sCommunity, F_ANY_START, 0, "acl(config-community)# ", cliVerb::policyEntry,
     POLICY_COMMUNITY},
    {&sExtCommunity, F_ANY_START, 0, "acl(config-extcommunity)# ", cliVerb::policyEntry,
     POLICY_EXTCOMMUNITY},
    {&sRouteMap, F_ANY_START | F_CLAUSE, 0, "acl(config-route-map)# ", cliVerb::clause,
     POLICY_RMAP},
};

}  // namespace

constexpr grammarState sDone{doneNodes};
constexpr grammarState sMode{};

const grammarMode& grammarModeOf(cliMode mode) {
    return modes[static_cast<size_t>(mode)];
}
