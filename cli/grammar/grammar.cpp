// What the topics of the grammar share: actions, the modes, the state at a line's end.
#include "cli/grammar/build.h"
#include "cli/kinds.h"

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
constexpr grammarMode modes[] = {
    {&sExec, F_EXEC, 0, "acl# "},
    {&sConfig, 0, 0, "acl(config)# "},
    {&sBinding, 0, 0, "acl(config-if)# "},
};

}  // namespace

constexpr grammarState sDone{doneNodes};
constexpr grammarState sMode{};

const grammarMode& grammarModeOf(cliMode mode) {
    return mode < cliMode::standard ? modes[static_cast<size_t>(mode)]
                                    : listKinds[kindOfMode(mode)].mode;
}
