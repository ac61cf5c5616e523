// A platform that costs nothing: what remains is the stores' own work, texts included.
#include "download/zekacl_download.h"
#include "common/debug.h"
#include "common/hooks.h"
#include "common/linecard.h"
#include "common/node.h"
#include "platform/api/zekTask.h"

aclNodeRecord* aclNode = nullptr;
aclLinecard aclLinecardInfo[SLOT_COUNT] = {};
uint32_t DEBUG_ACL_MGR = 0;

void aclDebugPrint(const char*, int, const char*, ...) {}
void aclSysErr(uint32_t, const char*, ...) {}

int zekCfgInsertBothLine(zekCfgDb*, const zekCfgRecord&, const zekCfgRequest&) {
    return 0;
}
int zekCfgInsert(zekCfgDb*, const zekCfgRecord&, const zekCfgRequest&) {
    return 0;
}
int zekCfgRemoveNode(zekCfgDb*, const zekCfgRecord&) {
    return 0;
}
int zekCfgRemoveExact(zekCfgDb*, const zekCfgRecord&) {
    return 0;
}
int zekCfgSync(zekCfgDb*, const zekCfgSyncRecord&) {
    return 0;
}
void zekCfgSetMaskMode(zekCfgDb*, uint32_t) {}
const uint8_t* zekCfgRestoring(const zekCfgDb*) {
    return nullptr;
}

int aclTrigger(aclList*, uint32_t) {
    return 0;
}
void aclSendListToSNMP(aclList*, uint32_t, const aclBinding*) {}
void aclSendEntToSNMP(aclList*, const aclEntry*, uint32_t, const aclBinding*) {}
void aclSendListToIPM(aclList*, uint32_t, const aclBinding*) {}
void aclReplayListToIPM(aclList*, const aclBinding*) {}
bool aclNextListBehind(uint32_t, listName*) {
    return false;
}
void aclSendListToSYSADMTSk(aclList*, uint32_t) {}
void aclSendEntToSYSADMTSK(aclList*, const aclEntry*, uint32_t) {}
int aclSendToVlanGroup(aclList*, const aclEntry*, uint32_t, uint32_t) {
    return 0;
}
int zekSysCardTypeUsrPortIdToPortId(int, uint32_t, int) {
    return 0;
}
int zekSysCardTypePortIdToPP(int, int) {
    return 0;
}

int aclSendToAclAgent(aclList*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    return 0;
}
int aclSendEntToAclAgent(const aclEntry*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                         const listName&) {
    return 0;
}
int aclSendVlanAclToAclAgent(aclList*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    return 0;
}
int aclSendVlanAclEntToAclAgent(const aclEntry*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                const listName&) {
    return 0;
}
int dosSendToAllAgents(aclList*, const aclEntry*, uint32_t) {
    return 0;
}
