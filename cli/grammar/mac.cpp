// The entry lines of MAC lists.
#include "cli/grammar/entryNodes.h"

namespace {

extern const grammarState sStandardSeq, sExtendedSeq, sOnly, sOnlyHost, sOnlyMask, sSrc, sSrcHost,
    sSrcMask, sDst, sDstHost, sDstMask, sFrame, sOperator, sEtherType;

constexpr grammarState sStandardSeq{entrySeqNode<MAC_SEQ_MAX, sMacStandard>};
constexpr grammarState sExtendedSeq{entrySeqNode<MAC_SEQ_MAX, sMacExtended>};

// The clause of one address.
constexpr std::array<grammarNode, 3> addressNodes(uint32_t side, const grammarState& host,
                                                  const grammarState& mask,
                                                  const grammarState& next) {
    const auto nodes = macNodes(side, mask, next);
    return {nodes[0], kw("host", "one MAC address", host), nodes[1]};
}
constexpr grammarNode hostNode(uint32_t side, const grammarState& next) {
    return arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "the MAC address", next, entryPut,
               entryValue(W::mac, side));
}

// A standard entry shows one address without "host": what follows it says whether a mask is meant.
constexpr auto only = [] {
    auto nodes = addressNodes(ENTRY_SRC, sOnlyHost, sOnlyMask, sOptions);
    nodes.back().help = "MAC address, alone or with a mask";
    return nodes;
}();
constexpr grammarState sOnly{only};
constexpr grammarNode onlyHost[] = {hostNode(ENTRY_SRC, sOptions)};
constexpr grammarState sOnlyHost{onlyHost};
constexpr grammarNode onlyMask[] = {macMaskNode(ENTRY_SRC, sOptions)};
constexpr grammarState sOnlyMask{onlyMask, &sOptions};

constexpr auto src = addressNodes(ENTRY_SRC, sSrcHost, sSrcMask, sDst);
constexpr grammarState sSrc{src};
constexpr grammarNode srcHost[] = {hostNode(ENTRY_SRC, sDst)};
constexpr grammarState sSrcHost{srcHost};
constexpr grammarNode srcMask[] = {macMaskNode(ENTRY_SRC, sDst)};
constexpr grammarState sSrcMask{srcMask};
constexpr auto dst = addressNodes(ENTRY_DST, sDstHost, sDstMask, sFrame);
constexpr grammarState sDst{dst};
constexpr grammarNode dstHost[] = {hostNode(ENTRY_DST, sFrame)};
constexpr grammarState sDstHost{dstHost};
constexpr grammarNode dstMask[] = {macMaskNode(ENTRY_DST, sFrame)};
constexpr grammarState sDstMask{dstMask};

// How the frame is encapsulated, and what its ether-type is compared with.
constexpr auto frame = [] {
    std::array<grammarNode, std::size(macEncapsulationTable)> nodes{};
    for (size_t i = 0; i < nodes.size(); i++)
        nodes[i] =
            kw(macEncapsulationTable[i].word, "frames of this encapsulation", sOperator, entryPut,
               entryValue(W::encapsulation, ENTRY_SRC, macEncapsulationTable[i].code));
    return nodes;
}();
constexpr grammarState sFrame{frame, &sOptions};
constexpr grammarNode operatorNode(std::string_view word, const char* help, ipPortOperator code) {
    return kw(word, help, sEtherType, entryPut, entryValue(W::etherOperator, ENTRY_SRC, code));
}
// Their codes are those of port operators.
constexpr grammarNode operators[] = {
    operatorNode("eq", "ether-type equal to", PORT_EQ),
    operatorNode("gt", "ether-type above", PORT_GT),
    operatorNode("lt", "ether-type below", PORT_LT),
    operatorNode("neq", "ether-type not equal to", PORT_NEQ),
};
constexpr grammarState sOperator{operators};
constexpr grammarNode etherType[] = {
    {cliArg::hex, "<0-ffff>", "ether-type", &sOptions, entryPut, entryValue(W::etherType), 0, 0, 0,
     0xFFFF, 0xFFFF},
};
constexpr grammarState sEtherType{etherType};

}  // namespace

constexpr grammarState sMacStandard{entryListNodes<sStandardSeq, sOnly>, &sRemarks};
constexpr grammarState sMacExtended{entryListNodes<sExtendedSeq, sSrc>, &sRemarks};
