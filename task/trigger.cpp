// Change triggers: one message, or a few, that tell a client of a list that the list has changed.
#include "include/client.h"

#include <cstring>

#include "download/zekacl_download.h"
#include "include/debug.h"
#include "include/service.h"
#include "platform/api/zekEvt.h"
#include "task/task.h"

int triggerClient(const triggerKind& how, uint32_t kind, const clientTask& task,
                  const listName& rmapName, const listName& list) {
    if (kind == CLIENT_ROUTE_MAP) {
        (void)rmapTrigger(ipRmapListFind(rmapName));
        return 0;
    }
    if (kind != CLIENT_TASK) {
        aclSysErr(SYSERR_TRIGGER, "%s", how.unknownKind);
        return 0;
    }
    uint32_t status = 0;
    if (aclSendTrigger(task, how.mtype, list.text, sizeof list.text, &status) != 0) {
        if (how.toEventLog)
            zekEvtLogPrint(aclNode->evtLogKey, 4, how.sendFailed);
        else
            aclSysErr(SYSERR_TRIGGER, "%s", how.sendFailed);
        return -1;
    }
    for (const taskName& row : how.names) {
        if (row.application != task.application) continue;
        if (how.sent != nullptr) aclDebug(DEBUG_ACL_TRIGGER, how.sent, row.name);
        return 0;
    }
    if (how.unknownTask != nullptr) aclSysErr(SYSERR_TRIGGER, "%s", how.unknownTask);
    return 0;
}
