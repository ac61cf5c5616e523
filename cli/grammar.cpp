// What the topics of the grammar share: actions, the modes, the state at a line's end.
#include "cli/grammarBuild.h"

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
    {&sExec, F_ANY_START | F_EXEC, 0, "acl# "},
    {&sConfig, F_ANY_START, 0, "acl(config)# "},
    {&sStandard, F_ANY_START | F_LIST | F_NET, IP_KIND_STANDARD, "acl(config-standard)# "},
    {&sExtended, F_ANY_START | F_LIST | F_NET | F_EXT | F_LAYER2, IP_KIND_EXTENDED,
     "acl(config-extended)# "},
    {&sExtended, F_ANY_START | F_EXT, IP_KIND_EXTENDED, "acl(config-trace)# "},
    {&sBinding, F_ANY_START, 0, "acl(config-if)# "},
};

}  // namespace

constexpr grammarState sDone{doneNodes};
constexpr grammarState sMode{};

const grammarMode& grammarModeOf(cliMode mode) {
    return modes[static_cast<size_t>(mode)];
}
