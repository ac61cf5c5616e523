// The entry lines of prefix lists, as the configuration shows them in either mask display mode.
#include <array>
#include <bit>
#include <cstring>

#include "cli/grammar/build.h"
#include "include/ipText.h"

namespace {

// Options that a line has at most once.
enum : uint32_t {
    O_GE = 1u << 0,
    O_LE = 1u << 1,
};
constexpr uint32_t BITS4 = 32, BITS6 = 128;
constexpr uint32_t RANGE_MAX = 0xFFFFFFFF;  // what the field can hold; shown with a sign

const char* setSequence(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.policy.seq = static_cast<uint32_t>(v.number);
    c.seqColumn = static_cast<uint32_t>(v.column);
    c.features = (c.features & ~uint32_t{F_START}) | F_SEQ;
    return nullptr;
}

void put4(uint8_t* field, uint32_t address) {
    be32 word;
    word = address;
    std::memcpy(field, &word, sizeof word);
}
const char* setAddress4(cliCommand& c, const cliValue& v, const grammarNode&) {
    put4(c.policy.address, v.address);
    return nullptr;
}
const char* setPrefix4(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.len = static_cast<uint8_t>(v.length);
    put4(c.policy.mask, maskFromPrefix(v.length));
    return setAddress4(c, v, n);
}
// The mask form: always the mask itself, in either mask display mode.
const char* setMask4(cliCommand& c, const cliValue& v, const grammarNode&) {
    uint32_t ones = static_cast<uint32_t>(std::countl_one(v.address));
    if (v.address != maskFromPrefix(ones)) return "The mask has gaps: write \"bitmask\" before it";
    c.policy.len = static_cast<uint8_t>(ones);
    put4(c.policy.mask, v.address);
    return nullptr;
}
const char* setBitmask4(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.policy.len = PREFIX_LEN_BITMASK;
    put4(c.policy.mask, v.address);
    return nullptr;
}

const char* setAddress6(cliCommand& c, const cliValue& v, const grammarNode&) {
    std::memcpy(c.policy.address, v.address6, sizeof v.address6);
    return nullptr;
}
const char* setPrefix6(cliCommand& c, const cliValue& v, const grammarNode& n) {
    c.policy.len = static_cast<uint8_t>(v.length);
    for (uint32_t i = 0; i < v.length; i++)
        c.policy.mask[i / 8] = static_cast<uint8_t>(c.policy.mask[i / 8] | 0x80 >> i % 8);
    return setAddress6(c, v, n);
}
const char* setBitmask6(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.policy.len = PREFIX_LEN_BITMASK;
    std::memcpy(c.policy.mask, v.address6, sizeof v.address6);
    return nullptr;
}

// Every prefix of every length; (bits of an address).
const char* setAny(cliCommand& c, const cliValue&, const grammarNode& n) {
    c.policy.le = n.value;
    return nullptr;
}
const char* setGe(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.policy.ge = static_cast<uint32_t>(v.number);
    return nullptr;
}
const char* setLe(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.policy.le = static_cast<uint32_t>(v.number);
    return nullptr;
}

extern const grammarState sSeq4, sSeq6, sPrefix4What, sPrefix6What, sMask4, sBitmask4, sBitmaskWord,
    sBitmask6, sRange4, sRange6, sGe4, sGe6, sLe4, sLe6;

constexpr std::array<grammarNode, 4> listNodes(const grammarState& seq, const grammarState& what) {
    return {kw("seq", "sequence number", seq, nullptr, 0, F_START),
            kw("permit", "let matching prefixes pass", what, setPolicyAction, 0),
            kw("deny", "drop matching prefixes", what, setPolicyAction, 1),
            fin("the entry with this number", F_SEQ | F_NEGATED)};
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
    kw("any", "every prefix", sDone, setAny, BITS4),
    arg(cliArg::prefix, "A.B.C.D/LEN", "prefix", sRange4, setPrefix4),
    arg(cliArg::address, "A.B.C.D", "address, its mask follows", sMask4, setAddress4),
};
constexpr grammarState sPrefix4What{what4};
constexpr grammarNode mask4[] = {
    arg(cliArg::address, "A.B.C.D", "mask", sRange4, setMask4),
    kw("bitmask", "compare the bits of any mask", sBitmask4),
};
constexpr grammarState sMask4{mask4};
constexpr grammarNode bitmask4[] = {
    arg(cliArg::address, "A.B.C.D", "bits set are compared", sDone, setBitmask4)};
constexpr grammarState sBitmask4{bitmask4};
constexpr auto range4 = rangeNodes(sGe4, sLe4);
constexpr grammarState sRange4{range4};
constexpr grammarNode ge4[] = {lengthNode(BITS4, sRange4, setGe)};
constexpr grammarState sGe4{ge4};
constexpr grammarNode le4[] = {lengthNode(BITS4, sRange4, setLe)};
constexpr grammarState sLe4{le4};

constexpr grammarNode seq6[] = {seqNode(sPrefix6)};
constexpr grammarState sSeq6{seq6};
constexpr grammarNode what6[] = {
    kw("any", "every prefix", sDone, setAny, BITS6),
    arg(cliArg::prefix6, "X:X::X/LEN", "prefix", sRange6, setPrefix6),
    arg(cliArg::address6, "X:X::X", "address, a bitmask follows", sBitmaskWord, setAddress6),
};
constexpr grammarState sPrefix6What{what6};
constexpr grammarNode bitmaskWord[] = {kw("bitmask", "compare the bits of any mask", sBitmask6)};
constexpr grammarState sBitmaskWord{bitmaskWord};
constexpr grammarNode bitmask6[] = {
    arg(cliArg::address6, "X:X::X", "bits set are compared", sDone, setBitmask6)};
constexpr grammarState sBitmask6{bitmask6};
constexpr auto range6 = rangeNodes(sGe6, sLe6);
constexpr grammarState sRange6{range6};
constexpr grammarNode ge6[] = {lengthNode(BITS6, sRange6, setGe)};
constexpr grammarState sGe6{ge6};
constexpr grammarNode le6[] = {lengthNode(BITS6, sRange6, setLe)};
constexpr grammarState sLe6{le6};

constexpr auto prefix4Nodes = listNodes(sSeq4, sPrefix4What);
constexpr auto prefix6Nodes = listNodes(sSeq6, sPrefix6What);

}  // namespace

constexpr grammarState sPrefix4{prefix4Nodes, &sConfig};
constexpr grammarState sPrefix6{prefix6Nodes, &sConfig};
