// MAC access-list evaluation: what an entry says about a frame, and the same in masked words.
#include "match/filterFields.h"
#include "match/filterIndex.h"

namespace {

uint64_t addressOf(const uint8_t (&b)[6]) {
    uint64_t address = 0;
    for (uint8_t byte : b) address = address << 8 | byte;
    return address;
}
// Masks are wildcards: the bits that they leave are compared.
constexpr uint64_t ADDRESS = 0xFFFFFFFFFFFF;
uint64_t comparedBy(const uint8_t (&mask)[6]) {
    return ~addressOf(mask) & ADDRESS;
}
bool sameBut(const uint8_t (&a)[6], const uint8_t (&b)[6], const uint8_t (&mask)[6]) {
    return ((addressOf(a) ^ addressOf(b)) & comparedBy(mask)) == 0;
}

// Ether-types have the operators of ports, but no range.
bool etherTypeMatches(const macEntryBlock& b, uint16_t type) {
    return b.etherTypeOperator < PORT_RANGE &&
           filterCompare(b.etherTypeOperator, type, b.etherType, 0);
}

// The addresses, then what tells the payload.
struct macShape {
    static constexpr size_t words = 3, fields = 2;
    static constexpr matchLevel levels[] = {{0, ADDRESS}, {1, ADDRESS}, {2, ~uint64_t{0}}};
};
constexpr filterField F_ETHER_TYPE = {0, 16}, F_ENCAPSULATION = {16, 32};

struct macFilter {
    typedef l2AclEntry Entry;
    typedef macFrame Packet;
    typedef macShape Shape;

    // A standard entry asks for the source only, one without an encapsulation for the addresses:
    // that is all that their lines say.
    static bool matches(const macEntryBlock& b, const macFrame& f) {
        if (!sameBut(f.src, b.src, b.srcMask)) return false;
        if (b.type != IP_KIND_EXTENDED) return true;
        if (!sameBut(f.dst, b.dst, b.dstMask)) return false;
        if (b.encapsulation == MAC_ENCAPSULATION_NONE) return true;
        return b.encapsulation == f.encapsulation && etherTypeMatches(b, f.etherType);
    }
    static bool decides(const macEntryBlock&) { return true; }

    static void ask(const macEntryBlock& b, matchRule<macShape>* rule) {
        setAddress(rule, 0, b.src, b.srcMask);
        if (b.type != IP_KIND_EXTENDED) return;
        setAddress(rule, 1, b.dst, b.dstMask);
        if (b.encapsulation == MAC_ENCAPSULATION_NONE) return;
        filterAsk(rule, F_ENCAPSULATION, b.encapsulation);
        if (b.etherTypeOperator < PORT_RANGE)
            filterAskCompare(rule, F_ETHER_TYPE, b.etherTypeOperator, b.etherType, 0);
        else
            rule->exact = false;  // matches nothing
    }
    static void words(const macFrame& f, uint64_t (&words)[macShape::words]) {
        words[0] = addressOf(f.src);
        words[1] = addressOf(f.dst);
        words[2] = uint64_t{f.etherType} << F_ETHER_TYPE.at | uint64_t{f.encapsulation}
                                                                  << F_ENCAPSULATION.at;
    }

  private:
    static void setAddress(matchRule<macShape>* rule, size_t word, const uint8_t (&address)[6],
                           const uint8_t (&mask)[6]) {
        rule->mask[word] = comparedBy(mask);
        rule->value[word] = addressOf(address) & rule->mask[word];
    }
};

}  // namespace

void macFilterIndexAdd(aclList* list, listEntry* entry) {
    filterIndexAdd<macFilter>(list, entry);
}
void macFilterIndexRemove(aclList* list, const listEntry* entry) {
    filterIndexRemove<macFilter>(list, entry);
}
void macFilterIndexRenumber(aclList* list) {
    filterIndexRenumber<macFilter>(list);
}
l2AclEntry* macFilterFind(const aclList* list, const macFrame& frame) {
    return filterFind<macFilter>(list, frame);
}
ipVerdict macFilterCheck(const aclList* list, const macFrame& frame, const l2AclEntry** decided) {
    return filterCheck<macFilter>(list, frame, decided);
}
