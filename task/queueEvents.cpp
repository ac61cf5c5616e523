// Queues that have lost messages: said in the log when it happens, and started over, with
// everything that their peers must have, when the peers answer.
#include <algorithm>

#include "download/zekacl_download.h"
#include "include/hooks.h"
#include "include/linecard.h"
#include "include/service.h"
#include "platform/api/zekSwp.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// False when the handle is none of the cards'.
bool renewCard(zekSwpHandle queue) {
    const auto* card = std::ranges::find_if(aclLinecardInfo, [queue](const aclLinecard& c) {
        return c.aclAgent == queue || c.macAgent == queue;
    });
    if (card == std::ranges::end(aclLinecardInfo)) return false;
    aclReplayToCard(static_cast<uint32_t>(card - std::ranges::begin(aclLinecardInfo)));
    return true;
}

void renew(zekSwpHandle queue) {
    if (renewCard(queue)) return;
    if (queue == aclNode->acl0qHandle) return aclDownloadCfgtoAcl0();
    zekSwpReplayBegin(queue);
    if (queue == aclNode->acl2qHandle) {
        for (uint32_t family : {AF_IPV4, AF_IPV6}) prefixDownloadIpListAlltoACL2(family);
    } else if (queue == aclNode->aclSNMPqHandle) {
        aclSendListsToTaskExt(APP_SNMP, 0);
    } else if (queue == aclNode->aclSYSADMTSKqHandle) {
        aclSendListsToTaskExt(APP_SYSADM, 0);
    } else {
        for (uint32_t i = 0; i < std::size(aclNode->aclIPMqHandle); i++)
            if (queue == aclNode->aclIPMqHandle[i]) aclSendListsToTaskExt(APP_IPM, i);
    }
    zekSwpReplayEnd(queue);
}

}  // namespace

void aclServeQueues() {
    for (zekSwpEvent event; zekSwpNextEvent(&event);)
        if (event.state == zekSwpState::lost)
            aclReportQueueReset(event.queue);
        else
            renew(event.queue);
}
