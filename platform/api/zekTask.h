// Tasks, time, start-up, chassis services and the debug shell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "include/ifindex.h"

struct zekCfgLayout;

// Reads the process's options (--rundir, --chassis, --rp, --cold, --debug, --client-wait,
// --pauses), the chassis description and makes the run folder. 0; non-zero after a message on
// standard error.
int ZEK_NbsdpInit(int argc, char** argv);
// Starts a task: a thread of at least the stack given, running entry(argc, argv). 0 or -1.
int taskSpawn(const char* name, int priority, int options, size_t stack, int (*entry)(int, char**),
              int argc, char** argv);
// Opens the configuration database of the task, whose sections are laid out like this, and starts
// the configuration manager, which replays the saved configuration as soon as the task says it is
// ready. 0 or -1.
int zekDdbInit(char** argv, const zekCfgLayout& layout);
void taskDelay(uint32_t ticks);
[[nodiscard]] uint32_t sysClkRateGet();  // ticks a second
// Rests between the steps of long work: nothing is served or committed meanwhile. The process may
// have been told to rest for a part of the time only, or not at all (--pauses).
void zekDelayMicrosecond(uint32_t us);
// How long a client of a list has to answer a trigger: 10,000 unless the process was told else.
[[nodiscard]] uint32_t zekClientWaitMs();

// Registers the task with the platform: its handle, 0 on failure.
[[nodiscard]] uint32_t zekTaskStartup(uint32_t app, uint32_t instance);
[[nodiscard]] uint32_t zekTaskGetIpcKey(uint32_t task);  // 0 on failure
void zekTaskCloseIpcKey(uint32_t ipcKey);
// Says "ready" on standard error and to systemd.
void zekTaskReady(uint32_t task);

// Slot of the global control block that all tasks share. 0 or -1.
int zekShmSet(uint32_t slot, void* anchor);
[[nodiscard]] void* zekShmGet(uint32_t slot);

// The chassis, as its description file and the event handler have it.
[[nodiscard]] bool zekHaIsPrimaryRpm();
[[nodiscard]] uint32_t zekSysGetChassisMode();
[[nodiscard]] uint32_t zekSysGetRpmType();
[[nodiscard]] bool isAclSupportedOnRp2(uint32_t cardAddress);
// A card's internal port id of a user port (0-based), and the forwarding pipe of a port id; -1 when
// the card or the port does not exist. `ifindexLow` is the index's low 14 bits and carries nothing
// that the host needs beside the slot.
[[nodiscard]] int zekSysCardTypeUsrPortIdToPortId(int slot, uint32_t ifindexLow, int userPort);
[[nodiscard]] int zekSysCardTypePortIdToPP(int slot, int portId);
// The download target of a port: on this chassis its slot, 0-19; -1 for what belongs to no card.
[[nodiscard]] constexpr int zekifIndexToSfId(uint32_t ifindex) {
    return ifindexSlot(ifindex);
}
// Interface names as the chassis description gives them; what it does not have is called by its
// index, "0x10040001", in both directions. ifmIfIndexToLName writes at most size - 1 characters,
// and tells with -1 that it was such an index.
int ifmIfIndexToLName(uint32_t ifindex, char* name, size_t size);
int ifmLNameToIfIndex(const char* name, uint32_t* ifindex);

// Debug shell: functions run on the task's thread, reached with `aclsh debug NAME ARG...`. The
// result is text, JSON when the name's help says so.
typedef std::string (*zekDebugFn)(std::string_view args);
void zekDebugRegister(const char* name, const char* help, zekDebugFn fn);
// Runs a registered function here and now; false when there is none of that name.
bool zekDebugRun(std::string_view name, std::string_view args, std::string* out);
