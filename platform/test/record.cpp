// Rows, failures, and the state that a test sets.
#include "platform/test/record.h"

#include "common/cfgkeys.h"
#include "platform/api/zekMem.h"
#include "platform/base/cfgdb.h"
#include "platform/test/inject.h"

testPlatform testHost;

namespace {

std::vector<testRow> rows;
zekCfgDb* database;
uint64_t heapAtReset;  // what earlier tests of the process keep

struct pointState {
    uint64_t uses, firstFailing, lastFailing;
};
pointState points[TEST_POINTS];

constexpr uint32_t TEST_POOL = 0x50000;
// The block classes of the task.
constexpr uint32_t poolClasses[] = {736,  784,  184,  184,  208,  864,  20,   156, 708,  192,
                                    1368, 176,  24,   168,  208,  24,   8,    92,  40,   44,
                                    4524, 32,   32,   16,   136,  24,   32,   56,  1024, 2048,
                                    3072, 4096, 5120, 6144, 7168, 8192, 8492, 24};

}  // namespace

void testRecord(std::string text, std::span<const uint8_t> bytes) {
    rows.push_back({std::move(text), {bytes.begin(), bytes.end()}});
}

std::vector<testRow> testTakeRows() {
    return std::exchange(rows, {});
}

std::vector<std::string> testTake() {
    std::vector<std::string> texts;
    for (testRow& row : testTakeRows()) texts.push_back(std::move(row.text));
    return texts;
}

void testFail(testPoint point, uint64_t nth, uint64_t times) {
    uint64_t last = times > UINT64_MAX - nth ? UINT64_MAX : nth + times - 1;
    points[point] = {0, nth, last};
}

void testFailNothing() {
    for (pointState& point : points) point = {};
}

uint64_t testUses(testPoint point) {
    return points[point].uses;
}

bool testFails(testPoint point) {
    pointState& state = points[point];
    state.uses++;
    return state.firstFailing != 0 && state.uses >= state.firstFailing &&
           state.uses <= state.lastFailing;
}

void testReset() {
    testFailNothing();
    rows.clear();
    testHost = {};
    testResetTasks();
    zek_memPartFree(TEST_POOL);
    (void)zek_memPartVarInit(TEST_POOL, poolClasses, std::size(poolClasses));
    cfgDbSetOfTask(nullptr);
    if (database != nullptr) zekCfgClose(database);
    database = zekCfgOpen(nullptr, zekCfgAccess::write, "", CFG_LAYOUT);
    cfgDbSetOfTask(database);
    heapAtReset = zekMemHeapStats().blocks;
}

void zekCfgRetryUnresolved() {}

zekCfgDb* testCfg() {
    return database;
}

std::vector<std::string> testCfgLines() {
    std::vector<std::string> lines;
    zekCfgWalk(database, [&](std::string_view line) {
        lines.emplace_back(line);
        return true;
    });
    return lines;
}

uint64_t testBlocksInUse() {
    uint64_t blocks = zekMemHeapStats().blocks - heapAtReset;
    for (const zekMemClass& c : zekMemClasses()) blocks += c.inUse;
    return blocks;
}
