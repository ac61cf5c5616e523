// What a list says of itself: the remarks of an access list, the description of a list of any kind.
#include <algorithm>

#include "cli/grammar/build.h"

namespace {

const char* setRemark(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (const char* why = checkSequence(v, n)) return why;
    return setSequence(c, v, n);
}
// (its longest)
const char* setNote(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (v.word.size() > n.value) return "A remark or description has at most 80 characters";
    if (std::ranges::any_of(v.word, [](char b) { return (b >= 0 && b < ' ') || b == 127; }))
        return "A remark or description has no control characters";
    c.text = v.word;
    return nullptr;
}
static_assert(REMARK_LEN == 80 && DESCRIPTION_LEN == 80);

extern const grammarState sNumber, sRemark, sText;

// Behind "no" the text may be left out; it is not compared.
template <uint32_t longest>
constexpr grammarNode textNodes[] = {
    arg(cliArg::rest, "TEXT", "to the end of the line, at most 80 characters", sDone, setNote,
        longest),
    fin("whatever it says", F_NEGATED),
};

constexpr grammarNode remarkNodes[] = {
    verb("remark", "a text among the entries", sNumber, cliVerb::remark),
};
constexpr grammarNode numberNodes[] = {
    sequence(SEQ_MAX, sRemark, setRemark, 0, F_V4),
    sequence(SEQ_MAX, sRemark, setRemark, 0, F_V6),
    sequence(MAC_SEQ_MAX, sRemark, setRemark, 0, F_MAC),
};
constexpr grammarState sNumber{numberNodes};
constexpr grammarState sRemark{textNodes<REMARK_LEN>};
constexpr grammarNode descriptionNodes[] = {
    verb("description", "what the list is for", sText, cliVerb::description),
};
constexpr grammarState sText{textNodes<DESCRIPTION_LEN>};

}  // namespace

constexpr grammarState sDescription{descriptionNodes, &sConfig, F_START};
constexpr grammarState sRemarks{remarkNodes, &sDescription, F_START | F_LIST};
