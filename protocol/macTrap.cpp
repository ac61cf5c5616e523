// Traps: what the MAC agents of the cards are told of the addresses of protocols.
#include <algorithm>
#include <bitset>
#include <cstring>

#include "common/debug.h"
#include "common/message.h"
#include "download/zekacl_download.h"
#include "protocol/zekprotocol.h"

namespace {

// Where a trap goes, and the index that it stands under there.
struct trapTarget {
    uint32_t slot, ifindex;
};
// The cards of the ports that walk(fn) shows to fn, each once, in the order of their first ports.
template <class Walk, class Fn>
void forCards(const Walk& walk, const Fn& fn) {
    std::bitset<SLOT_COUNT> seen;
    walk([&](uint32_t port) {
        const int slot = ifindexSlot(port);
        if (slot == SLOT_NONE || seen.test(static_cast<size_t>(slot))) return;
        seen.set(static_cast<size_t>(slot));
        fn(static_cast<uint32_t>(slot));
    });
}
template <class Fn>
void forTargets(uint32_t place, const Fn& fn) {
    if (ifindexType(place) == IF_TYPE_VLAN)
        return forCards([place](const auto& each) { aclWalkPorts(place, each); },
                        [&](uint32_t slot) {
                            fn(trapTarget{slot, place});
                        });
    aclWalkPorts(place, [&](uint32_t port) {
        const int slot = ifindexSlot(port);
        if (slot != SLOT_NONE) fn(trapTarget{static_cast<uint32_t>(slot), port});
    });
}

template <class Fn>
void forRecords(uint32_t place, const Fn& fn) {
    if (const aclPlaceUse* use = aclPlaceUseFind(place))
        for (const aclProtocolUse& protocol : use->protocols) fn(protocol.record);
}

bool traps(const protRecord& record, const macAddress& mac) {
    macAddress carried;
    return std::ranges::count(aclSetMacAddrFromProt(record, &carried), mac) != 0;
}
// Who has the last word on an address under an index; null: nobody asks for it.
const protRecord* lastWord(uint32_t ifindex, const macAddress& mac) {
    const protRecord* last = nullptr;
    auto look = [&](const protRecord& record) {
        if (traps(record, mac)) last = &record;
    };
    if (const uint32_t lag = aclLagOfPort(ifindex)) forRecords(lag, look);
    forRecords(ifindex, look);
    return last;
}

void fill(macTrapMsg* m, const trapTarget& to, const protRecord& record, const macAddress& mac,
          bool enable) {
    const aclPlaceUse* use = aclPlaceUseFind(to.ifindex);
    *m = {};
    m->one = 1;
    m->ifindex = to.ifindex;
    std::ranges::copy(mac, m->mac);
    m->enable = enable ? 1 : 0;
    m->mode = use != nullptr ? use->mode : 0;
    m->lda = record.lda;
    m->cpus = aclProtocolOf(record.id).cpus;
    if (ifindexType(to.ifindex) != IF_TYPE_VLAN) return;
    m->vlan = static_cast<uint16_t>(ifindexPort(to.ifindex));
    // No one member is meant: frames leave the card through its control port.
    m->egressPort = static_cast<uint16_t>(ifindexUserPort(ifindexControlPort(to.slot)));
}
void send(macTrapMsg* m, const trapTarget& to, const protRecord& record, const macAddress& mac,
          bool enable) {
    fill(m, to, record, mac, enable);
    (void)aclSendToMacAgent(to.slot, MT_MAC_TRAP, m, sizeof *m);
}
bool sameTrap(const protRecord& a, const protRecord& b) {
    return a.lda == b.lda && aclProtocolOf(a.id).cpus == aclProtocolOf(b.id).cpus;
}

// A record's sequence to one card, and nothing else.
void sequenceAlone(macTrapMsg* m, const trapTarget& to, const protRecord& record, bool enable) {
    macAddress carried;
    for (const macAddress& mac : aclSetMacAddrFromProt(record, &carried))
        send(m, to, record, mac, enable);
}
// With whoever has the last word: an address that others still ask for is enabled again at once.
void sequence(macTrapMsg* m, const trapTarget& to, const protRecord& record, bool enable) {
    macAddress carried;
    for (const macAddress& mac : aclSetMacAddrFromProt(record, &carried)) {
        send(m, to, record, mac, enable);
        const protRecord* last = lastWord(to.ifindex, mac);
        if (last != nullptr && !(enable && sameTrap(*last, record))) send(m, to, *last, mac, true);
    }
}

constexpr uint32_t NOBODY = 0xFFFFFFFF;
// Whether the card has a port of the VLAN that is not behind this member.
bool vlanHasPortOn(uint32_t slot, uint32_t vlanIfindex, uint32_t exceptMember) {
    bool has = false;
    aclWalkPorts(vlanIfindex, [&](uint32_t port) {
        const bool excepted = port == exceptMember || aclLagOfPort(port) == exceptMember;
        has |= !excepted && ifindexSlot(port) == static_cast<int>(slot);
    });
    return has;
}

}  // namespace

void aclTrapBlockFree::operator()(macTrapMsg* block) const {
    acl_Swp_Free(block);
}
aclTrapBlock aclTrapBlockMake() {
    aclTrapBlock block(static_cast<macTrapMsg*>(acl_Swp_Alloc(sizeof(macTrapMsg))));
    if (block == nullptr)
        aclSysErr(SYSERR_MEMORY, "%s", "Unable to allocate a message to a MAC agent");
    return block;
}

void AclProtEnablePopulateMacAgent(macTrapMsg* message, uint32_t place, const protRecord& record,
                                   bool enable) {
    forTargets(place, [&](const trapTarget& to) { sequence(message, to, record, enable); });
}

void aclTrapVlanMember(uint32_t vlanIfindex, uint32_t member, bool add) {
    const aclPlaceUse* use = aclPlaceUseFind(vlanIfindex);
    if (use == nullptr || use->protocols.empty()) return;
    macTrapMsg message;
    // Who has left does not stand in the VLAN any more, unless it is a member in another way, too.
    const uint32_t except = add ? member : NOBODY;
    forCards([member](const auto& each) { aclWalkPorts(member, each); },
             [&](uint32_t slot) {
                 if (vlanHasPortOn(slot, vlanIfindex, except)) return;
                 forRecords(vlanIfindex, [&](const protRecord& record) {
                     sequenceAlone(&message, {slot, vlanIfindex}, record, add);
                 });
             });
}

void aclTrapLagMember(uint32_t lagIfindex, uint32_t port, bool add) {
    macTrapMsg message;
    forTargets(port, [&](const trapTarget& to) {
        forRecords(lagIfindex,
                   [&](const protRecord& record) { sequence(&message, to, record, add); });
    });
}

void aclProtocolModeChanged(uint32_t ifindex) {
    macTrapMsg message;
    auto again = [&](const trapTarget& to) {
        forRecords(to.ifindex,
                   [&](const protRecord& record) { sequence(&message, to, record, true); });
    };
    forTargets(ifindex, again);
    if (const uint32_t lag = aclLagOfPort(ifindex)) aclTrapLagMember(lag, ifindex, true);
}

void aclForTrapsOf(uint32_t slot, const std::function<void(const macTrapMsg& trap)>& fn) {
    macTrapMsg message;
    // LAGs come before their ports, which so have the last word.
    aclForPlaceUses([&](uint32_t place, const aclPlaceUse& use) {
        if (use.protocols.empty()) return;
        forTargets(place, [&](const trapTarget& to) {
            if (to.slot != slot) return;
            macAddress carried;
            for (const aclProtocolUse& protocol : use.protocols)
                for (const macAddress& mac : aclSetMacAddrFromProt(protocol.record, &carried)) {
                    fill(&message, to, protocol.record, mac, true);
                    fn(message);
                }
        });
    });
}

void AclUpdateMacAgentForProtocols(uint32_t slot) {
    aclForTrapsOf(slot, [slot](const macTrapMsg& trap) {
        (void)aclSendToMacAgent(slot, MT_MAC_TRAP, &trap, sizeof trap);
    });
}
