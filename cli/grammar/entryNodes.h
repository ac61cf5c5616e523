// What the entry lines of access lists and of MAC lists have in common.
#pragma once

#include "cli/entry.h"
#include "cli/grammar/build.h"

using W = entryWord;

// The options of every entry line, to its end.
extern const grammarState sOptions;

template <const grammarState& seq, const grammarState& next>
constexpr auto entryListNodes =
    numberedNodes(seq, verdictNodes("let matching packets pass", "drop matching packets", next,
                                    entryPut, entryValue(W::action, ENTRY_SRC, IP_PERMIT),
                                    entryValue(W::action, ENTRY_SRC, IP_DENY)));
template <uint32_t highest, const grammarState& next>
constexpr grammarNode entrySeqNode[] = {
    sequence(highest, next, entrySequence, entryValue(W::sequence))};

constexpr std::array<grammarNode, 2> macNodes(uint32_t side, const grammarState& mask,
                                              const grammarState& next) {
    return {kw("any", "any MAC address", next, entryPut, entryValue(W::any, side)),
            arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "MAC address, a mask follows", mask, entryPut,
                entryValue(W::mac, side))};
}
constexpr grammarNode macMaskNode(uint32_t side, const grammarState& next) {
    return arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "bits set are not compared", next, entryPut,
               entryValue(W::macMask, side));
}
