// The router's own addresses: see AclIpAdd.h.
#include "protocol/AclIpAdd.h"

void aclAddIpAddrFromIFM(uint32_t, uint32_t) {}
void aclDelIpAddrFromIFM(uint32_t, uint32_t) {}
void aclAddIPV6AddFromIFM(uint32_t, const uint8_t[16], uint32_t) {}
void aclDelIPV6AddFromIFM(uint32_t, const uint8_t[16], uint32_t) {}
void aclDelAllAddressesOf(uint32_t) {}
void aclDelIpaddInfoToTree(uint32_t, uint32_t) {}
void aclL3VlanUpdateAgentForIpAddress(uint32_t, uint32_t, bool) {}
void aclL3LagUpdateAgentForIpAddr(uint32_t, uint32_t, bool) {}
void aclVlanHasMembers(uint32_t, bool) {}
void aclSendGlobalAclToNewLineCard(uint32_t) {}
void aclAddressEntries(const aclAddress&, aclSystemEntries*) {}
int aclTrapDhcp(bool) {
    return 0;
}
uint32_t aclAgentSourceAddress() {
    return 0;
}
std::string aclPrintIPAddInterfaceDB() {
    return "";
}
std::string aclPrintLinecardDB() {
    return "";
}
