// IPv4 access-list evaluation: what an entry matches, and the same said in masked words as far as
// words can say it.
#include "match/filterFields.h"
#include "match/filterIndex.h"

namespace {

bool sameUnder(uint32_t a, uint32_t b, uint32_t mask) {
    return ((a ^ b) & mask) == 0;
}

bool extendedMatches(const ipEntryBlock& b, const ipPacket& p) {
    if (!sameUnder(p.dst, b.dst, b.dstMask)) return false;
    if (!asksForAnyProtocol(b) && b.protocol != p.protocol) return false;
    if (b.precedence != FIELD_NOT_GIVEN && b.precedence != p.tos >> 5) return false;
    if (b.tos != FIELD_NOT_GIVEN && b.tos != (p.tos >> 1 & 15)) return false;
    return payloadMatches<IP_PROTO_ICMP>(b, p);
}

// Word 0 is source and destination, word 1 has the other fields side by side.
struct ipShape {
    static constexpr size_t words = 2, fields = 1;
    static constexpr matchLevel levels[] = {
        {0, 0xFFFFFFFF00000000}, {0, 0x00000000FFFFFFFF}, {1, 0xFFFFFFFFFFFFFFFF}};
};
constexpr filterField F_TOS_BYTE = {0, 8}, F_TOS = {1, 4}, F_DSCP = {2, 6}, F_PRECEDENCE = {5, 3};

struct ipFilter {
    typedef aclEntry Entry;
    typedef ipPacket Packet;
    typedef ipShape Shape;

    // A standard entry has no say in anything but the source, the DSCP and the fragments. The
    // addresses come first: most entries differ there.
    static bool matches(const ipEntryBlock& b, const ipPacket& p) {
        if (!sameUnder(p.src, b.src, b.srcMask)) return false;
        if (b.kind == IP_KIND_EXTENDED && !extendedMatches(b, p)) return false;
        if (b.dscp != DSCP_NOT_GIVEN && b.dscp != p.tos >> 2) return false;
        if (b.fragments == 1 && !p.laterFragment) return false;
        return decides(b);
    }
    // An entry about frames decides over no IPv4 packet.
    static bool decides(const ipEntryBlock& b) { return !ipEntryIsL2L3(b); }

    static void ask(const ipEntryBlock& b, matchRule<ipShape>* rule) {
        rule->mask[0] = uint64_t{b.srcMask} << 32;
        if (b.dscp != DSCP_NOT_GIVEN) filterAsk(rule, F_DSCP, b.dscp);
        if (b.fragments == 1) filterAsk(rule, F_LATER_FRAGMENT, 1);
        if (b.kind == IP_KIND_EXTENDED) {
            rule->mask[0] |= b.dstMask;
            if (b.precedence != FIELD_NOT_GIVEN) filterAsk(rule, F_PRECEDENCE, b.precedence);
            if (b.tos != FIELD_NOT_GIVEN) filterAsk(rule, F_TOS, b.tos);
            filterAskPayload<IP_PROTO_ICMP>(rule, b);
        }
        rule->value[0] = (uint64_t{b.src} << 32 | b.dst) & rule->mask[0];
    }
    static void words(const ipPacket& p, uint64_t (&words)[ipShape::words]) {
        words[0] = uint64_t{p.src} << 32 | p.dst;
        words[1] = uint64_t{p.tos} << F_TOS_BYTE.at | payloadFields<IP_PROTO_ICMP>(p);
    }
};

}  // namespace

void ipFilterIndexAdd(aclList* list, listEntry* entry) {
    filterIndexAdd<ipFilter>(list, entry);
}
void ipFilterIndexRemove(aclList* list, const listEntry* entry) {
    filterIndexRemove<ipFilter>(list, entry);
}
void ipFilterIndexRenumber(aclList* list) {
    filterIndexRenumber<ipFilter>(list);
}
void ipFilterIndexDrop(aclList* list) {
    matchFree(list->filterIndex);
    list->filterIndex = nullptr;
}
aclEntry* ipFilterFind(const aclList* list, const ipPacket& packet) {
    return filterFind<ipFilter>(list, packet);
}
ipVerdict ipFilterCheck(const aclList* list, const ipPacket& packet, const aclEntry** decided) {
    return filterCheck<ipFilter>(list, packet, decided);
}
