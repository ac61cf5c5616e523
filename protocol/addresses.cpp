// The router's own addresses come and go, with the members of LAGs and VLANs that have them: see
// AclIpAdd.h.
#include <algorithm>

#include "common/debug.h"
#include "common/node.h"
#include "protocol/AclIpAdd.h"

namespace {

// Of which each member port holds the entries itself.
bool hasMembers(uint32_t place) {
    const uint32_t type = ifindexType(place);
    return type == IF_TYPE_LAG || type == IF_TYPE_VLAN;
}
// A VLAN without members has no use for entries.
bool isUsed(uint32_t place) {
    if (ifindexType(place) != IF_TYPE_VLAN) return true;
    const aclVlan* vlan = aclVlanTreeFind(place);
    return vlan != nullptr && aclVlanInfoTreeFindFirst(vlan) != nullptr;
}

void sendToMembers(uint32_t place, const aclAddress& address, bool add) {
    if (!hasMembers(place)) return;
    aclSystemEntries entries;
    aclAddressEntries(address, &entries);
    aclSendPlaceEntries(place, entries, add);
}

bool installIfUsed(uint32_t place, aclAddress* address) {
    if (address->installed || !isUsed(place)) return false;
    if (aclAddressInstall(*address, true) == 0) return address->installed = true;
    aclSysErr(SYSERR_MEMORY, "Unable to allocate memory for the entries of an address of %#x",
              place);
    return false;
}
// The record says so already. Entries that an add without memory left behind go, too.
void uninstall(const aclAddress& address) {
    if (!aclAddressIsInstalled(address)) (void)aclAddressInstall(address, false);
}

void addAddress(uint32_t ifindex, const aclAddress& address) {
    if (ifindex < SLOT_COUNT) return;
    aclDebug(DEBUG_ACL_GENERAL, " going to send message to linecards\r\n");
    aclAddress* record = aclAddIpaddInfoToTree(ifindex, address);
    if (record == nullptr) return;
    if (installIfUsed(ifindex, record)) sendToMembers(ifindex, *record, true);
    aclDebug(DEBUG_ACL_GENERAL, "sent messages to linecards - now returning\r\n");
}

void delAddress(uint32_t ifindex, const aclAddress& address) {
    aclAddress* record = aclAddressFind(ifindex, address);
    if (record == nullptr) return;
    const bool wasInstalled = record->installed;
    record->installed = false;
    uninstall(address);
    if (wasInstalled) sendToMembers(ifindex, address, false);
    aclAddressDrop(ifindex, address);
}

// What a member's ports hold of the addresses of its LAG or VLAN.
void updateMember(uint32_t place, uint32_t member, bool add) {
    if (!aclCheckIfDelIpAddNotifToBeSent(place)) return;
    aclSystemEntries entries;
    for (const aclAddress& address : aclPlaceUseFind(place)->addresses)
        if (address.installed) aclAddressEntries(address, &entries);
    aclSendPlaceEntries(member, entries, add);
}

}  // namespace

void aclAddIpAddrFromIFM(uint32_t ifindex, uint32_t address) {
    // An entry for such a destination would be one of the protocol's own.
    if (!ipIsProtocolAddress(address)) addAddress(ifindex, aclAddressOf(address));
}
void aclDelIpAddrFromIFM(uint32_t ifindex, uint32_t address) {
    delAddress(ifindex, aclAddressOf(address));
}
void aclAddIPV6AddFromIFM(uint32_t ifindex, const uint8_t address[16], uint32_t prefixLength) {
    addAddress(ifindex, aclAddressOf(address, prefixLength));
}
void aclDelIPV6AddFromIFM(uint32_t ifindex, const uint8_t address[16], uint32_t prefixLength) {
    delAddress(ifindex, aclAddressOf(address, prefixLength));
}

void aclDelAllAddressesOf(uint32_t ifindex) {
    aclPlaceUse* use = aclPlaceUseFind(ifindex);
    if (use == nullptr) return;
    const std::vector<aclAddress> gone = std::move(use->addresses);
    use->addresses.clear();
    for (const aclAddress& address : gone) {
        aclDelIpAddrToLineCardDbase(ifindex, address);
        uninstall(address);
        if (address.installed) sendToMembers(ifindex, address, false);
    }
}

// --- members -------------------------------------------------------------------------------------

bool aclCheckIfDelIpAddNotifToBeSent(uint32_t place) {
    const aclPlaceUse* use = aclPlaceUseFind(place);
    return use != nullptr && std::ranges::any_of(use->addresses, &aclAddress::installed);
}

void aclL3VlanUpdateAgentForIpAddress(uint32_t vlanIfindex, uint32_t member, bool add) {
    updateMember(vlanIfindex, member, add);
}
void aclL3LagUpdateAgentForIpAddr(uint32_t lagIfindex, uint32_t port, bool add) {
    updateMember(lagIfindex, port, add);
}

void aclVlanHasMembers(uint32_t vlanIfindex, bool any) {
    aclPlaceUse* use = aclPlaceUseFind(vlanIfindex);
    if (use == nullptr) return;
    for (aclAddress& address : use->addresses) {
        if (any) {
            (void)installIfUsed(vlanIfindex, &address);
        } else if (address.installed) {
            address.installed = false;
            uninstall(address);
        }
    }
}

// --- DHCP ----------------------------------------------------------------------------------------

int aclTrapDhcp(bool enable) {
    aclNode->protocol.acl_dhcp = enable ? 1 : 0;
    int result = 0;
    for (const aclIpaddInfo* i = aclAddressNext(nullptr); i != nullptr && result == 0;
         i = aclAddressNext(i)) {
        const aclAddress address = aclAddressOf(*i);
        if (!enable || aclAddressIsInstalled(address))
            result = aclAddressInstallDhcp(address, enable);
    }
    if (result != 0)
        aclSysErr(SYSERR_MEMORY, "%s",
                  "Unable to allocate memory for the DHCP entries of addresses");
    aclForPlaceUses([enable](uint32_t place, const aclPlaceUse& use) {
        if (!hasMembers(place)) return;
        for (const aclAddress& address : use.addresses)
            if (address.installed)
                aclSendPlaceEntries(place, aclAddressDhcpEntries(address), enable);
    });
    return result;
}
