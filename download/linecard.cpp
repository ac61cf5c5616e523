// The line cards' records: filled when a card's agent registers, cleared when the card goes down.
#include <cstdio>

#include "download/sendPath.h"
#include "include/service.h"
#include "platform/api/zekIpc.h"

namespace {

// What the dump shows of a record. 0xFFFFFFFF handles show as -1, as they do in every log.
template <class... Args>
void append(std::string& out, const char* format, Args... args) {
    char line[128];
    std::snprintf(line, sizeof line, format, args...);
    out += line;
}

void removeQueue(zekSwpHandle* queue) {
    if (*queue != ZEK_SWP_NONE) zekSwpQueueRemove(*queue);
    *queue = ZEK_SWP_NONE;
}

void flushIfBusy(zekSwpHandle queue) {
    if (queue != ZEK_SWP_NONE && !zekSwpIsQueueEmpty(queue)) zekSwpQueueFlush(queue);
}

}  // namespace

std::string aclDumpLinecardInfo() {
    std::string out;
    append(out, "%s %d Dumping ACL_LINECARDDATA_INFO \r\n", __func__, __LINE__);
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++) {
        const aclLinecard& card = aclLinecardInfo[slot];
        if (card.isUp == 0) continue;
        auto handle = [](zekSwpHandle h) { return static_cast<long>(static_cast<int32_t>(h)); };
        append(out, "\r\nFor Linecard %d : \r\n", static_cast<int>(slot));
        append(out, "ACL_IFINDEX_IPADD_HEAD = %p\r\n", card.ipAddHead);
        append(out, "isUp = %d\r\n", static_cast<int>(card.isUp));
        append(out, "isVortan = %d\r\n", static_cast<int>(card.isVortan));
        append(out, "is IPv6 Enabled = %d\r\n", static_cast<int>(card.isIpv6Enabled));
        append(out, "v6EgAclSupported = %d \r\n", static_cast<int>(card.v6EgAclSupported));
        append(out, "acl_linecard_type = %d\r\n", static_cast<int>(card.type));
        append(out, "mac_agent = %ld\r\n", handle(card.macAgent));
        append(out, "acl_agent = %ld\r\n", handle(card.aclAgent));
        append(out, "agentIpAddr = %lx\r\n", static_cast<unsigned long>(card.agentIpAddr));
        append(out, "agent0IpAddr = %lx\r\n", static_cast<unsigned long>(card.agent0IpAddr));
        out += "-----------------------\r\n";
    }
    return out;
}

void aclLinecardFill(uint32_t slot, const agentRegisterReq& request) {
    if (slot >= SLOT_COUNT) return;
    aclLinecard& card = aclLinecardInfo[slot];
    card.isUp = request.isUp;
    card.isVortan = request.isVortan;
    card.isIpv6Enabled = request.isIpv6Enabled;
    card.word5 = request.word5;
    card.v6EgAclSupported = request.v6EgAclSupported;
    card.type = request.type;
}

void aclLinecardClear(uint32_t slot) {
    if (slot >= SLOT_COUNT) return;
    aclLinecard& card = aclLinecardInfo[slot];
    removeQueue(&card.aclAgent);
    removeQueue(&card.macAgent);
    card.isUp = 0;
    card.agentIpAddr = ADDRESS_UNKNOWN;
    card.state = {};
}

void aclLinecardFlush(uint32_t slot) {
    if (slot >= SLOT_COUNT) return;
    const aclLinecard& card = aclLinecardInfo[slot];
    if (card.aclAgent == ZEK_SWP_NONE) return;
    flushIfBusy(card.aclAgent);
    flushIfBusy(card.macAgent);
}

int aclSendLinecardInfoToMacMgr(uint32_t slot) {
    uint32_t macMgr;
    if (zek_tmeGetPeerIpAddrByName(APP_MACMGR, 0, &macMgr) != 0 || !addressIsKnown(macMgr))
        return -1;
    linecardInfoMsg message{};
    aclFillIpcHdr(&message.ipc, MT_LINECARD_INFO, sizeof message,
                  {macMgr, aclServicePort(APP_MACMGR, 0, QUEUE_REQUEST)});
    message.ipc.sequence = ++aclMgrTransId;
    message.slot = slot;
    return zekIpcSend(aclNode->ipc.regQfd, &message, sizeof message);
}

int aclCheckForQ7mLinecard(const aclIntf*) {
    return 0;
}
