// A platform that costs nothing: what remains is the stores' own work, texts included.
#include "platform/api/zekCfg.h"
#include "platform/api/zekChassis.h"
#include "platform/api/zekEvt.h"
#include "platform/api/zekIpc.h"
#include "platform/api/zekSwp.h"
#include "platform/api/zekTask.h"

void zekDebugPrint(std::string_view) {}
void zekSysErr(zekEvtLog, uint32_t, uint32_t, uint32_t, const char*) {}

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
int zekCfgRequestAt(zekCfgDb*, const zekCfgRecord&, zekCfgRequest*) {
    return 0;
}
void zekCfgSetMaskMode(zekCfgDb*, uint32_t) {}
const uint8_t* zekCfgRestoring(const zekCfgDb*) {
    return nullptr;
}

int zekSysCardTypeUsrPortIdToPortId(int, uint32_t, int) {
    return 0;
}
int zekSysCardTypePortIdToPP(int, int) {
    return 0;
}

// Nobody has an address, so nothing is sent.
void zekEvtLogPrint(zekEvtLog, uint32_t, const char*) {}
void zekDelayMicrosecond(uint32_t) {}
bool zekHaIsPrimaryRpm() {
    return true;
}
uint32_t zekClientWaitMs() {
    return 0;
}
int zek_tmeGetPeerIpAddrByName(uint32_t, uint32_t, uint32_t*) {
    return -1;
}
uint32_t zek_sysGetIpAddr(uint32_t) {
    return 0;
}
int ifmIfIndexToLName(uint32_t, char*, size_t) {
    return -1;
}
int ifmLNameToIfIndex(const char*, uint32_t*) {
    return -1;
}
int zekIpcSend(zekQueue, const void*, size_t) {
    return -1;
}
int zekIpcRecv(zekQueue, void*, size_t, int) {
    return 0;
}
int zekIpcRecvServing(zekQueue, void*, size_t, int, const zekServing&) {
    return 0;
}
int zekSwpEnqueue(zekSwpHandle, void*, size_t) {
    return -1;
}
bool zekSwpIsQueueAlive(zekSwpHandle) {
    return true;
}
bool zekSwpIsQueueEmpty(zekSwpHandle) {
    return true;
}
zekSwpState zekSwpQueueState(zekSwpHandle) {
    return zekSwpState::inStep;
}
int zekSwpGetTaskNamesFromQHandle(zekSwpHandle, char*, char*, size_t) {
    return -1;
}
void zekSwpQueueFlush(zekSwpHandle) {}
void zekSwpQueueLose(zekSwpHandle) {}
void zekSwpReplayBegin(zekSwpHandle) {}
void zekSwpReplayEnd(zekSwpHandle) {}
