// Tasks, chassis services, logs and the debug shell.
#include "platform/api/zekTask.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/api/zekEvt.h"
#include "platform/test/inject.h"

namespace {

constexpr uint32_t TASK_HANDLE = 1, IPC_KEY = 1, EVENT_LOG = 1;
constexpr uint32_t SHM_SLOTS = 16;
constexpr int FIRST_PORT_ID = 100, PIPES = 8;

void* shared[SHM_SLOTS];
std::map<std::string, zekDebugFn, std::less<>> debugFunctions;

std::string hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%#x", value);
    return text;
}

}  // namespace

void testResetTasks() {
    debugFunctions.clear();
    for (void*& anchor : shared) anchor = nullptr;
}

void taskDelay(uint32_t ticks) {
    testHost.ticks += ticks;
}
uint32_t sysClkRateGet() {
    return 100;
}
void zekDelayMicrosecond(uint32_t us) {
    testHost.restedUs += us;
}
uint32_t zekClientWaitMs() {
    return 10000;
}

uint32_t zekTaskStartup(uint32_t, uint32_t) {
    return testFails(TEST_START) ? 0 : TASK_HANDLE;
}
uint32_t zekTaskGetIpcKey(uint32_t) {
    return testFails(TEST_START) ? 0 : IPC_KEY;
}
void zekTaskCloseIpcKey(uint32_t) {
    testRecord("task close key");
}
void zekTaskReady(uint32_t) {
    testRecord("task ready");
}

int zekShmSet(uint32_t slot, void* anchor) {
    if (slot >= SHM_SLOTS || testFails(TEST_START)) return -1;
    shared[slot] = anchor;
    return 0;
}
void* zekShmGet(uint32_t slot) {
    return slot < SHM_SLOTS ? shared[slot] : nullptr;
}

bool zekHaIsPrimaryRpm() {
    return testHost.primary;
}
uint32_t zekSysGetChassisMode() {
    return testHost.chassisMode;
}
uint32_t zekSysGetRpmType() {
    return testHost.rpmType;
}
bool isAclSupportedOnRp2(uint32_t) {
    return testHost.aclOnRp2;
}

int zekSysCardTypeUsrPortIdToPortId(int slot, uint32_t, int userPort) {
    if (slot < 0 || userPort < 0 || testHost.missingPorts.contains(userPort)) return -1;
    return FIRST_PORT_ID + userPort;
}
int zekSysCardTypePortIdToPP(int slot, int portId) {
    return slot < 0 || portId < 0 ? -1 : portId % PIPES;
}
int ifmIfIndexToLName(uint32_t ifindex, char* name, size_t size) {
    bool known = !testHost.unknownInterfaces.contains(ifindex);
    std::snprintf(name, size, known ? "if %#x" : "0x%08x", ifindex);
    return known ? 0 : -1;
}
int ifmLNameToIfIndex(const char* name, uint32_t* ifindex) {
    if (std::strncmp(name, "if ", 3) != 0) return -1;
    *ifindex = static_cast<uint32_t>(std::strtoul(name + 3, nullptr, 0));
    return 0;
}

void zekDebugRegister(const char* name, const char*, zekDebugFn fn) {
    debugFunctions[name] = std::move(fn);
}
bool zekDebugRun(std::string_view name, std::string_view args, std::string* out) {
    auto found = debugFunctions.find(name);
    if (found == debugFunctions.end()) return false;
    *out = found->second(args);
    return true;
}

zekEvtLog zekEvtOpenlog(const char*, uint32_t, uint32_t, uint32_t) {
    return testFails(TEST_START) ? 0 : EVENT_LOG;
}
void zekEvtCloselog(zekEvtLog) {
    testRecord("log closed");
}
void zekEvtSetSeverityLevel(zekEvtLog, uint32_t) {}
void zekSysErr(zekEvtLog, uint32_t, uint32_t code, uint32_t, const char* text) {
    testRecord("syserr " + hex(code) + " " + text);
}
void zekEvtLogPrint(zekEvtLog, uint32_t, const char* text) {
    testRecord(std::string("log ") + text);
}
// The function and the line that stand in front of a text are no behaviour.
void zekDebugPrint(std::string_view text) {
    const size_t line = text.find(' ') + 1;
    const size_t behind = text.find_first_not_of("0123456789", line);
    const bool places = line != 0 && behind != text.npos && behind > line && text[behind] == ' ';
    testRecord("debug " + std::string(places ? text.substr(behind + 1) : text));
}
int zekEvhSubscribeEvt(uint32_t, uint32_t event, uint32_t type) {
    bool fails = testFails(TEST_START);
    testRecord("subscribe " + hex(event) + " " + std::to_string(type) + (fails ? " failed" : ""));
    return fails ? -1 : 0;
}
