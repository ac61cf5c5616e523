// IPv6 access-list evaluation: what an entry matches, and the same in masked words.
#include "match/filterFields.h"
#include "match/filterIndex.h"

namespace {

struct addressWords {
    uint64_t upper, lower;
};
addressWords wordsOf(const uint8_t (&b)[16]) {
    return {matchWord(b), matchWord(b + 8)};
}

bool sameUnder(const uint8_t (&a)[16], const uint8_t (&b)[16], const uint8_t (&mask)[16]) {
    const addressWords x = wordsOf(a), y = wordsOf(b), m = wordsOf(mask);
    return (((x.upper ^ y.upper) & m.upper) | ((x.lower ^ y.lower) & m.lower)) == 0;
}

// The halves of the addresses, then the other fields side by side. Networks differ in the upper
// halves of both addresses: what stands below is seldom asked for.
struct ip6Shape {
    static constexpr size_t words = 5, fields = 4;
    static constexpr uint64_t ALL = ~uint64_t{0};
    static constexpr matchLevel levels[] = {{0, ALL}, {1, ALL}, {2, ALL}, {3, ALL}, {4, ALL}};
};

struct ip6Filter {
    typedef acl6Entry Entry;
    typedef ip6Packet Packet;
    typedef ip6Shape Shape;

    static bool matches(const ip6EntryBlock& b, const ip6Packet& p) {
        if (!sameUnder(p.src, b.src, b.srcMask)) return false;
        if (!sameUnder(p.dst, b.dst, b.dstMask)) return false;
        if (!asksForAnyProtocol(b) && b.protocol != p.protocol) return false;
        return payloadMatches<IP_PROTO_ICMP6>(b, p);
    }
    static bool decides(const ip6EntryBlock&) { return true; }

    static void ask(const ip6EntryBlock& b, matchRule<ip6Shape>* rule) {
        setAddress(rule, 0, b.src, b.srcMask);
        setAddress(rule, 1, b.dst, b.dstMask);
        filterAskPayload<IP_PROTO_ICMP6>(rule, b);
    }
    static void words(const ip6Packet& p, uint64_t (&words)[ip6Shape::words]) {
        const addressWords src = wordsOf(p.src), dst = wordsOf(p.dst);
        words[0] = src.upper;
        words[1] = dst.upper;
        words[2] = src.lower;
        words[3] = dst.lower;
        words[4] = payloadFields<IP_PROTO_ICMP6>(p);
    }

  private:
    static void setAddress(matchRule<ip6Shape>* rule, size_t word, const uint8_t (&address)[16],
                           const uint8_t (&mask)[16]) {
        const addressWords bits = wordsOf(address), of = wordsOf(mask);
        rule->mask[word] = of.upper;
        rule->value[word] = bits.upper & of.upper;
        rule->mask[word + 2] = of.lower;
        rule->value[word + 2] = bits.lower & of.lower;
    }
};

}  // namespace

void ip6FilterIndexAdd(aclList* list, listEntry* entry) {
    filterIndexAdd<ip6Filter>(list, entry);
}
void ip6FilterIndexRemove(aclList* list, const listEntry* entry) {
    filterIndexRemove<ip6Filter>(list, entry);
}
void ip6FilterIndexRenumber(aclList* list) {
    filterIndexRenumber<ip6Filter>(list);
}
acl6Entry* ip6FilterFind(const aclList* list, const ip6Packet& packet) {
    return filterFind<ip6Filter>(list, packet);
}
ipVerdict ip6FilterCheck(const aclList* list, const ip6Packet& packet, const acl6Entry** decided) {
    return filterCheck<ip6Filter>(list, packet, decided);
}
