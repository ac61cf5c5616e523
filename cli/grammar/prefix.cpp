// The entry lines of prefix lists, as the configuration shows them in either mask display mode.
#include <algorithm>
#include <array>

#include "cli/grammar/build.h"
#include "include/ipText.h"

namespace {

// Options that a line has at most once.
enum : uint32_t {
    O_GE = 1u << 0,
    O_LE = 1u << 1,
};
// "any" is a range from 0 to the width of the family's addresses.
constexpr uint32_t BITS4 = 32, BITS6 = 128;
constexpr uint32_t RANGE_MAX = 0xFFFFFFFF;  // what the field can hold; shown with a sign

// The actions serve both families: the argument brings 4 bytes or 16, and what a field has behind
// them stays zero.
const char* setAddress(cliCommand& c, const cliValue& v, const grammarNode& n) {
    std::ranges::copy(valueBytes(v, n.kind), c.policy.address);
    return nullptr;
}
const char* setPrefix(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.len = static_cast<uint8_t>(v.length);
    fillMask(c.policy.mask, v.length);
    return setAddress(c, v, n);
}
const char* setBitmask(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.len = PREFIX_LEN_BITMASK;
    std::ranges::copy(valueBytes(v, n.kind), c.policy.mask);
    return nullptr;
}
// The mask form: always the mask itself, in either mask display mode.
const char* setMask(cliCommand& c, const cliValue& v, const grammarNode& n) {
    if (!maskIsContiguous(v.address)) return "The mask has gaps: write \"bitmask\" before it";
    setBitmask(c, v, n);
    c.policy.len = static_cast<uint8_t>(maskPrefixLength(v.address));
    return nullptr;
}

extern const grammarState sSeq4, sSeq6, sPrefix4What, sPrefix6What, sMask4, sBitmask4, sBitmaskWord,
    sBitmask6, sRange4, sRange6, sGe4, sGe6, sLe4, sLe6;

constexpr std::array<grammarNode, 4> listNodes(const grammarState& seq, const grammarState& what) {
    return numberedNodes(
        seq, verdictNodes("let matching prefixes pass", "drop matching prefixes", what));
}
constexpr grammarNode seqNode(const grammarState& next) {
    return number("sequence number", 1, PREFIX_SEQ_MAX, next, setSequence);
}
constexpr std::array<grammarNode, 3> rangeNodes(const grammarState& ge, const grammarState& le) {
    return {kw("ge", "prefixes at least this long", ge, nullptr, 0, 0, O_GE),
            kw("le", "prefixes at most this long", le, nullptr, 0, 0, O_LE),
            fin("the entry is complete")};
}
constexpr grammarNode lengthNode(uint32_t bits, const grammarState& next, cliAction action) {
    return number("prefix length", 1, bits, next, action, 0, RANGE_MAX);
}

constexpr grammarNode seq4[] = {seqNode(sPrefix4)};
constexpr grammarState sSeq4{seq4};
constexpr grammarNode what4[] = {
    kw("any", "every prefix", sDone, setPolicy<&cliPolicy::le>, BITS4),
    arg(cliArg::prefix, "A.B.C.D/LEN", "prefix", sRange4, setPrefix),
    arg(cliArg::address, "A.B.C.D", "address, its mask follows", sMask4, setAddress),
};
constexpr grammarState sPrefix4What{what4};
// Two addresses are a prefix whose mask is written out, as the lines are in inverse-mask mode; IPv6
// has no such form.
constexpr grammarNode mask4[] = {
    arg(cliArg::address, "A.B.C.D", "mask", sRange4, setMask),
    kw("bitmask", "compare the bits of any mask", sBitmask4),
};
constexpr grammarState sMask4{mask4};
// An entry with a bitmask compares addresses alone, so neither "ge" nor "le" follows.
constexpr grammarNode bitmask4[] = {
    arg(cliArg::address, "A.B.C.D", "bits set are compared", sDone, setBitmask)};
constexpr grammarState sBitmask4{bitmask4};
constexpr auto range4 = rangeNodes(sGe4, sLe4);
constexpr grammarState sRange4{range4};
constexpr grammarNode ge4[] = {lengthNode(BITS4, sRange4, setPolicy<&cliPolicy::ge>)};
constexpr grammarState sGe4{ge4};
constexpr grammarNode le4[] = {lengthNode(BITS4, sRange4, setPolicy<&cliPolicy::le>)};
constexpr grammarState sLe4{le4};

constexpr grammarNode seq6[] = {seqNode(sPrefix6)};
constexpr grammarState sSeq6{seq6};
constexpr grammarNode what6[] = {
    kw("any", "every prefix", sDone, setPolicy<&cliPolicy::le>, BITS6),
    arg(cliArg::prefix6, "X:X::X/LEN", "prefix", sRange6, setPrefix),
    arg(cliArg::address6, "X:X::X", "address, a bitmask follows", sBitmaskWord, setAddress),
};
constexpr grammarState sPrefix6What{what6};
constexpr grammarNode bitmaskWord[] = {kw("bitmask", "compare the bits of any mask", sBitmask6)};
constexpr grammarState sBitmaskWord{bitmaskWord};
constexpr grammarNode bitmask6[] = {
    arg(cliArg::address6, "X:X::X", "bits set are compared", sDone, setBitmask)};
constexpr grammarState sBitmask6{bitmask6};
constexpr auto range6 = rangeNodes(sGe6, sLe6);
constexpr grammarState sRange6{range6};
constexpr grammarNode ge6[] = {lengthNode(BITS6, sRange6, setPolicy<&cliPolicy::ge>)};
constexpr grammarState sGe6{ge6};
constexpr grammarNode le6[] = {lengthNode(BITS6, sRange6, setPolicy<&cliPolicy::le>)};
constexpr grammarState sLe6{le6};

constexpr auto prefix4Nodes = listNodes(sSeq4, sPrefix4What);
constexpr auto prefix6Nodes = listNodes(sSeq6, sPrefix6What);

}  // namespace

constexpr grammarState sPrefix4{prefix4Nodes, &sDescription};
constexpr grammarState sPrefix6{prefix6Nodes, &sDescription};
