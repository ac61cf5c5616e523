// What the topics of the grammar share: actions, the modes, the state at a line's end.
#include "cli/grammar/build.h"
#include "cli/kinds.h"
#include "cli/lexer.h"
#include "include/status.h"

uint32_t numberOf(const cliValue& v, const grammarNode& n) {
    switch (n.kind) {
        case cliArg::word:
            return n.value;
        case cliArg::address:
            return v.address;
        case cliArg::as:
            return v.low;
        default:
            return static_cast<uint32_t>(v.number);
    }
}

std::span<const uint8_t> valueBytes(const cliValue& v, cliArg kind) {
    switch (kind) {
        case cliArg::address:
        case cliArg::prefix:
            return v.address.b;
        case cliArg::address6:
        case cliArg::prefix6:
            return v.address6;
        case cliArg::mac:
            return v.mac;
        default:
            return {};
    }
}

void fillMask(std::span<uint8_t> mask, uint32_t length) {
    std::ranges::fill(mask.first(length / 8), uint8_t{0xFF});
    if (length % 8 != 0)
        mask[length / 8] = static_cast<uint8_t>(mask[length / 8] | 0xFF << (8 - length % 8));
}

const char* checkSequence(const cliValue& v, const grammarNode& n) {
    return v.number > n.high ? aclStatusFind(ACL_E_SEQ_RANGE)->text : nullptr;
}
void noteSequence(cliCommand& c, const cliValue& v) {
    c.seqColumn = static_cast<uint32_t>(v.column);
    c.features = (c.features & ~uint32_t{F_START}) | F_SEQ;
}

const char* setVerb(cliCommand& c, const cliValue&, const grammarNode& n) {
    // A verb without a kind clears what an earlier word of the line has said.
    constexpr uint32_t mask = (1u << VERB_BITS) - 1;
    c.verb = static_cast<cliVerb>(n.value & mask);
    c.kind = n.value >> VERB_BITS;
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
const char* setQuotedName(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.name = v.word;
    if (c.name.starts_with('"')) {
        c.name.remove_prefix(1);
        c.name.remove_suffix(1);
    }
    return c.name.empty() || c.name.size() > LIST_NAME_LEN ? "There is no such name" : nullptr;
}
const char* setSequence(cliCommand& c, const cliValue& v, const grammarNode& n) {
    noteSequence(c, v);
    return setPolicy<&cliPolicy::seq>(c, v, n);
}
const char* setVlans(cliCommand& c, const cliValue& v, const grammarNode&) {
    std::string_view left = v.word;
    for (uint32_t low, high;;) {
        size_t comma = left.find(',');
        if (!lexVlanRange(left.substr(0, comma), &low, &high))
            return "A VLAN range is N or N-M from 1 to 4094, several with commas between";
        if (comma == left.npos) break;
        left.remove_prefix(comma + 1);
    }
    c.vlans = v.word;
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
// The modes that are no list's, in the order of cliMode.
constexpr grammarMode modes[] = {
    {&sExec, F_EXEC, 0, "acl# "},
    {&sConfig, 0, 0, "acl(config)# "},
    {&sBinding, 0, 0, "acl(config-if)# "},
    {&sVlanGroup, 0, 0, "acl(config-vlan-group)# "},
};

}  // namespace

constexpr grammarState sDone{doneNodes};
// Never looked into: the parser knows it by its address.
constexpr grammarState sMode{};

const grammarMode& grammarModeOf(cliMode mode) {
    return mode < cliMode::standard ? modes[static_cast<size_t>(mode)]
                                    : listKinds[kindOfMode(mode)].mode;
}
