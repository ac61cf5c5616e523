// Protocols of the control plane: see zekprotocol.h.
#include "protocol/zekprotocol.h"

namespace {

constexpr aclProtocolRow rows[] = {{0, " UNKNOWN_PROTOCOL", "unknown", 1, true, true}};

}  // namespace

std::span<const aclProtocolRow> aclProtocols() {
    return rows;
}
const aclProtocolRow& aclProtocolOf(uint32_t) {
    return rows[0];
}
void AclProtEnable(const uint8_t*, uint32_t) {}
void aclProtocolEntries(uint32_t, const aclProtocolUse&, aclSystemEntries*) {}
void aclProtocolVlanMember(uint32_t, uint32_t, bool) {}
void aclProtocolLagMember(uint32_t, uint32_t, bool) {}
void aclProtocolInterfaceGone(uint32_t) {}
void AclUpdateMacAgentForProtocols(uint32_t) {}
