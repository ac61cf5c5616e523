// The recording platform: stands in for the Linux host in the store and task tests.
//
// Trees, pools and the configuration database are the real ones (the database in memory); every
// other operation of platform/api is written down as a row, in order, and answers what the test has
// set. Any allocation, tree or database change, send or look-up can be made to fail. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/api/zekCfg.h"
#include "platform/api/zekIpc.h"
#include "platform/api/zekSwp.h"

// --- rows --------------------------------------------------------------------------------------
// The first word says what happened:
//   cfg insert SECTION/CLASS NAME KIND/ORDER/ROLE "TEXT"[ / "INVERSE TEXT" when it differs]
//   cfg remove SECTION/CLASS NAME             a block, by its head
//   cfg exact SECTION/CLASS NAME KIND/ORDER/ROLE[ absent]
//   cfg ... 72/CLASS if INDEX[ in|out NAME]   interface lines
//   cfg ... 79/CLASS NAME SEQ[ CLASS/ENTRY/VALUE]   route-map lines
//   sync OPERATION NAME "TEXT"   of interface lines: sync MODE/TYPE/INDEX NAME "TEXT";
//                                of clauses of a route map: sync 12/SEQ NAME "TEXT"
//   send TYPE to APP.. / reply TYPE / swp HANDLE TYPE / peer TYPE     `bytes` holds the message
//   syserr CODE TEXT, log TEXT, debug TEXT, task WHAT...
// Sections of IPv6 lines read like "100v6". A failed change has " failed" at its end.
struct testRow {
    std::string text;
    std::vector<uint8_t> bytes;
};
void testRecord(std::string text, std::span<const uint8_t> bytes = {});
// The texts of the rows since the last take, and the rows themselves.
std::vector<std::string> testTake();
std::vector<testRow> testTakeRows();

// --- failures ----------------------------------------------------------------------------------
enum testPoint {
    TEST_MEMORY,   // every allocation: pool block, general heap, show buffer
    TEST_BLOCK,    // pool blocks only
    TEST_HEAP,     // general heap only
    TEST_BUFFER,   // show buffers only
    TEST_TREE,     // creation of a tree
    TEST_INSERT,   // insertion into a tree
    TEST_CFG,      // change of the configuration database
    TEST_SEND,     // zekIpcSend, zekIpcReply, zekIrcPeerRpmSend
    TEST_ENQUEUE,  // zekSwpEnqueue
    TEST_QUEUE,    // creation of an SWP queue, IPC queue or pipe
    TEST_ADDRESS,  // address of an application
    TEST_START,    // task, key, log, shared slot, event subscription
    TEST_POINTS,
};
// From now on the nth use of the point (1: the next one) and the `times` - 1 after it fail.
void testFail(testPoint point, uint64_t nth = 1, uint64_t times = UINT64_MAX);
void testFailNothing();
// Uses of a point since it was last armed (or since the reset).
uint64_t testUses(testPoint point);

// --- what the platform answers -----------------------------------------------------------------
constexpr zekQueue TEST_REQUESTS = 1, TEST_RESPONSES = 2, TEST_TIMERS = 3;

struct testPlatform {
    bool primary = true;
    uint32_t chassisMode = 1;
    uint32_t rpmType = 4;
    bool aclOnRp2 = true;
    // Addresses of applications, by number and instance; all others are unknown.
    bool addressesAreFixed = false;
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> addresses;
    // Ports that the chassis does not have; the others have id 100 + user port and the pipe of
    // their id modulo 8.
    std::set<int> missingPorts;

    std::set<uint32_t> unknownInterfaces;

    std::deque<std::vector<uint8_t>> inbox[4];  // by queue
    // Called with every message sent; may put answers into the inboxes.
    std::function<void(std::span<const uint8_t>)> onSend;
    bool pipeReadable = false;
    int selectErrno = 0;  // zekSelect fails with it

    std::set<zekSwpHandle> deadQueues, busyQueues;  // not alive; not empty. A flush mends both.
    struct queue {
        uint32_t peerApp;
        zekSwpFree free;
        zekSwpState state = zekSwpState::inStep;  // a replay mends it
    };
    std::map<zekSwpHandle, queue> queues;
    std::deque<zekSwpEvent> queueEvents;  // what the task is to be told
    std::map<zekSwpHandle, int> replays;  // begun so far, by queue
    std::set<zekSwpHandle> replaying;     // begun and not ended

    uint64_t waitedMs = 0;  // for replies that did not come
    uint64_t ticks = 0;     // taskDelay adds to it
    uint64_t restedUs = 0;  // zekDelayMicrosecond adds to it
};
extern testPlatform testHost;

// A fresh platform: no rows, no failures, default answers, the pools of the task with nothing in
// use, a new configuration database in memory, which becomes the task's.
void testReset();
zekCfgDb* testCfg();
// The lines that the database shows.
std::vector<std::string> testCfgLines();
// Blocks and heap blocks taken since the reset: 0 when everything has been given back.
uint64_t testBlocksInUse();
