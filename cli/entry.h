// How the words of an entry line fill its record. A family of entries is one table of fields: which
// word, in which form, where in the record. The grammar's nodes name the word; nothing else about
// an entry line depends on the family.
#pragma once

#include "cli/grammar/grammar.h"

// What a node of the grammar says about the entry.
enum class entryWord : uint8_t {
    sequence,
    action,
    protocol,
    literalProtocol,  // the number is meant, whatever else it could stand for
    any,
    address,  // a mask follows
    host,
    prefix,
    mask,
    portOperator,
    port,
    lastPort,
    tcpFlag,
    icmpType,
    icmpCode,
    dscp,
    precedence,
    tos,
    fragments,
    log,
    count,
    bytes,
    order,
    monitor,
    arp,
    etherType,
    mac,  // a mask follows, or in a standard list may follow
    macMask,
    vlan,
    opcode,
    encapsulation,
    etherOperator,
};
constexpr size_t ENTRY_WORDS = static_cast<size_t>(entryWord::etherOperator) + 1;

// How what was read becomes the bytes of a field.
enum class entryForm : uint8_t {
    value,     // the number in the field's width, big-endian, or the bytes of the address
    bits,      // the number's bits, beside those that are set
    given,     // 1: the word has no value, or one that may be 0
    ones,      // all bits: the mask of one host, or a MAC mask that compares nothing
    length,    // the mask of the prefix's length
    wildcard,  // the complement of the mask, or in inverse-mask mode the mask itself
};

struct entryPlace {
    uint16_t offset, size;  // in cliEntry
};

// A word has a row for each field that it fills.
struct entryField {
    entryWord word;
    entryForm form;
    entryPlace source;                // or the only place
    entryPlace destination = source;  // of a word about one side of the packet
    uint32_t when = 0, unless = 0;    // F_... of the line so far
};

// The entries of one kind of list. The rows of a word stand together, in the order of entryWord.
struct entryTable {
    std::span<const entryField> fields;
    cliEntry blank;                  // in which nothing but the kind is given yet
    uint8_t first[ENTRY_WORDS + 1];  // of each word's rows; the last one ends the table

    constexpr entryTable(std::span<const entryField> rows, const cliEntry& nothing)
        : fields(rows), blank(nothing), first{} {
        for (const entryField& row : rows) first[static_cast<size_t>(row.word) + 1]++;
        for (size_t word = 0; word < ENTRY_WORDS; word++)
            first[word + 1] = static_cast<uint8_t>(first[word + 1] + first[word]);
    }
    constexpr std::span<const entryField> rowsOf(entryWord word) const {
        const size_t at = static_cast<size_t>(word);
        return fields.subspan(first[at], first[at + 1] - size_t{first[at]});
    }
};

// The value of a node with one of the actions below: the word, the side that it is about and, of a
// keyword, the number that it stands for.
constexpr uint32_t ENTRY_SRC = 0, ENTRY_DST = 1;
constexpr uint32_t entryValue(entryWord word, uint32_t side = ENTRY_SRC, uint32_t number = 0) {
    return static_cast<uint32_t>(word) << 24 | side << 16 | number;
}

const char* entryPut(cliCommand&, const cliValue&, const grammarNode&);  // what the table says
// The same, and what no table says: a range that is checked, what may follow the word.
const char* entrySequence(cliCommand&, const cliValue&, const grammarNode&);
const char* entryProtocol(cliCommand&, const cliValue&, const grammarNode&);
const char* entryLastPort(cliCommand&, const cliValue&, const grammarNode&);
const char* entryFrame(cliCommand&, const cliValue&, const grammarNode&);
const char* entryIcmpName(cliCommand&, const cliValue&, const grammarNode&);  // (icmpNameTable row)
