// Sends to everyone behind a place that a list is bound to, and to every card.
#include "common/debug.h"
#include "download/sendPath.h"

namespace {

void reportRefused(int slot, uint32_t family) {
    aclSysErr(SYSERR_LIST, "Error: %s access-list not supported on linecard %d\r\n",
              family == INTF_V6 ? "IPv6" : "Egress", slot);
}

void debugCardSend(const aclTarget& target, const aclSend& send) {
    if (send.entry != nullptr) {
        // Half the target's number: it is meant.
        aclDebug(DEBUG_ACL_IPC, "sending to linecard %d \r\n",
                 static_cast<int>(target.ifindex / 2));
        return;
    }
    aclDebug(DEBUG_ACL_IPC,
             "alist = %p " LIST_NAME_FMT
             " : ii = %d : flag = %d : iType = %d : implicit_permit = %d\r\n",
             static_cast<const void*>(send.list), listNameArg(send.list->name),
             static_cast<int>(target.ifindex), 1, static_cast<int>(send.messageId),
             static_cast<int>(send.option));
}

}  // namespace

int aclSendToPlace(const aclPlace& place, const aclSend& send, const aclOnly& only) {
    const bool byCard = aclPlaceIsByCard(place);
    if (byCard && !aclMayDownload()) return 0;
    const uint32_t family = agentMsgRowOf(send.messageId).form->family;
    int result = 0;
    std::bitset<SLOT_COUNT> reported;
    aclForTargets(
        {place, family, send.entry != nullptr, only.slot, only.member, only.without},
        [&](const aclTarget& target) {
            if (target.refused) {
                // A port's card that takes no egress list is passed over silently: meant.
                const auto slot = static_cast<size_t>(ifindexSlot(target.ifindex));
                if ((byCard || place.direction == INTF_IN) && !reported.test(slot)) {
                    reported.set(slot);
                    reportRefused(static_cast<int>(slot), family);
                }
                return;
            }
            if (byCard) debugCardSend(target, send);
            result = iAclSendToAclAgent(target, send);
            if (result != 0 && send.entry != nullptr && send.messageId == MT_ACL_ADDENT && !byCard)
                aclSysErr(SYSERR_ENTRY_SEND,
                          "Error sending an entry of access list " LIST_NAME_FMT
                          " to the agent of %s",
                          listNameArg(send.list->name), agentIfName(target.ifindex).text);
        });
    return ifindexType(place.ifindex) == IF_TYPE_LAG ? 0 : result;
}

int dosSendToAllAgents(const aclList* list, const aclEntry* entry, uint32_t messageId) {
    int result = 0;
    for (uint32_t slot = 0; slot < SLOT_COUNT; slot++)
        if (aclLinecardInfo[slot].aclAgent != ZEK_SWP_NONE &&
            iAclSendToAclAgent({slot}, {messageId, list, entry}) != 0)
            result = -1;
    return result;
}
