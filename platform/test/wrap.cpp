// Memory, trees and the configuration database are the real ones. The linker turns the calls of the
// code under test to the functions here (--wrap), which write down, fail when told to, and else
// call the real operation.
#include <cstdio>
#include <cstring>

#include "common/cfgkeys.h"
#include "include/ipText.h"
#include "platform/api/zekMem.h"
#include "platform/api/zekRadix.h"
#include "platform/test/inject.h"

// Declares the two functions whose linker names a wrapped function has, and begins the one that
// stands in front; CMakeLists.txt repeats its mangled name.
#define WRAPPED(result, name, symbol, ...)                \
    result real##name(__VA_ARGS__) asm("__real_" symbol); \
    result wrap##name(__VA_ARGS__) asm("__wrap_" symbol); \
    result wrap##name(__VA_ARGS__)

namespace {

bool memoryFails(testPoint point) {
    const bool every = testFails(TEST_MEMORY);
    return testFails(point) || every;
}

}  // namespace

WRAPPED(void*, BlockAlloc, "_Z24zekMC_M_memBlockVarAllocjjm", uint32_t tag, uint32_t flags,
        size_t size) {
    return memoryFails(TEST_BLOCK) ? nullptr : realBlockAlloc(tag, flags, size);
}

WRAPPED(void*, HeapAlloc, "_Z17zekMC_MM_mallocAtmPKci", size_t size, const char* file, int line) {
    return memoryFails(TEST_HEAP) ? nullptr : realHeapAlloc(size, file, line);
}

WRAPPED(void*, BufferAlloc, "_Z17zekMC_M_sysMallocm", size_t size) {
    return memoryFails(TEST_BUFFER) ? nullptr : realBufferAlloc(size);
}

WRAPPED(zekRadix*, TreeCreate, "_Z14zekRadixCreatePKcj", const char* name, uint32_t bits) {
    return testFails(TEST_TREE) ? nullptr : realTreeCreate(name, bits);
}

WRAPPED(zekRadix*, TreeCreateP, "_Z15zekRadixCreatePPKcj", const char* name, uint32_t bits) {
    return testFails(TEST_TREE) ? nullptr : realTreeCreateP(name, bits);
}

WRAPPED(int, TreeInsert, "_Z14zekRadixInsertP8zekRadixP12zekRadixNodePKvj", zekRadix* tree,
        zekRadixNode* node, const void* key, uint32_t bits) {
    return testFails(TEST_INSERT) ? -1 : realTreeInsert(tree, node, key, bits);
}

namespace {

std::string quoted(const char* text) {
    return "\"" + std::string(text, strnlen(text, CFG_TEXT_LEN)) + "\"";
}

// "72/145 if 0x4040000 out NAME"; the separator and the header have no list.
std::string interfacePlaceOf(const zekCfgRecord& record) {
    cfgIntfKey key;
    std::memcpy(&key, record.key, sizeof key);
    char text[64];
    std::snprintf(text, sizeof text, "%u/%u if %#x", uint32_t{record.section},
                  uint32_t{record.lineClass}, uint32_t{key.ifindex});
    std::string place = text;
    if (key.isLine == 0) return place;
    constexpr uint8_t in[4] = {0, 0, 0, 0}, out[4] = {1, 1, 1, 1};
    place += key.isLine != 128                         ? " BAD MARK "
             : std::memcmp(key.direction, in, 4) == 0  ? " in "
             : std::memcmp(key.direction, out, 4) == 0 ? " out "
                                                       : " BAD DIRECTION ";
    return place.append(key.name, strnlen(key.name, sizeof key.name));
}

// "79/152 NAME SEQ CLASS/ENTRY/VALUE"; a block's place ends with the number.
std::string rmapPlaceOf(const zekCfgRecord& record, bool numbered) {
    cfgRmapKey key;
    std::memcpy(&key, record.key, sizeof key);
    std::string place = "79/" + std::to_string(record.lineClass) + " ";
    place.append(key.name, strnlen(key.name, sizeof key.name));
    place += " " + std::to_string(key.seq);
    if (numbered)
        place += " " + std::to_string(key.cls) + "/" + std::to_string(key.entryId) + "/" +
                 std::to_string(key.valueIndex);
    return place;
}

// "100/150 NAME"; the separator's and the header's place is their class alone.
std::string placeOf(const zekCfgRecord& record, bool numbered) {
    if (record.section == CFG_SECTION_INTERFACE) return interfacePlaceOf(record);
    if (record.section == CFG_SECTION_RMAP) return rmapPlaceOf(record, numbered);
    cfgListKey key;
    std::memcpy(&key, record.key, sizeof key);
    std::string place = std::to_string(record.section);
    if (key.family == 0xFF) place += "v6";
    place += "/" + std::to_string(record.lineClass) + " ";
    place.append(key.name, strnlen(key.name, sizeof key.name));
    if (numbered) {
        place += " " + std::to_string(key.kind) + "/" + std::to_string(key.order) + "/";
        textNumber(place, key.role, 16);
    }
    return place;
}

int recordChange(std::string text, int status, const char* failure) {
    testRecord("cfg " + text + (status == 0 ? "" : failure));
    return status;
}

int insert(zekCfgDb* db, const zekCfgRecord& record, const zekCfgRequest& request, bool both,
           int (*real)(zekCfgDb*, const zekCfgRecord&, const zekCfgRequest&)) {
    std::string text = "insert " + placeOf(record, true) + " " + quoted(record.text);
    if (both && std::strncmp(record.text, record.inverseText, CFG_TEXT_LEN) != 0)
        text += " / " + quoted(record.inverseText);
    return recordChange(text, testFails(TEST_CFG) ? -1 : real(db, record, request), " failed");
}

}  // namespace

WRAPPED(int, InsertBoth, "_Z20zekCfgInsertBothLineP8zekCfgDbRK12zekCfgRecordRK13zekCfgRequest",
        zekCfgDb* db, const zekCfgRecord& record, const zekCfgRequest& request) {
    return insert(db, record, request, true, realInsertBoth);
}

WRAPPED(int, Insert, "_Z12zekCfgInsertP8zekCfgDbRK12zekCfgRecordRK13zekCfgRequest", zekCfgDb* db,
        const zekCfgRecord& record, const zekCfgRequest& request) {
    return insert(db, record, request, false, realInsert);
}

WRAPPED(int, Remove, "_Z16zekCfgRemoveNodeP8zekCfgDbRK12zekCfgRecord", zekCfgDb* db,
        const zekCfgRecord& record) {
    int status = testFails(TEST_CFG) ? -1 : realRemove(db, record);
    return recordChange("remove " + placeOf(record, false), status, " absent");
}

WRAPPED(int, Exact, "_Z17zekCfgRemoveExactP8zekCfgDbRK12zekCfgRecord", zekCfgDb* db,
        const zekCfgRecord& record) {
    int status = testFails(TEST_CFG) ? -1 : realExact(db, record);
    return recordChange("exact " + placeOf(record, true), status, " absent");
}

WRAPPED(int, Sync, "_Z10zekCfgSyncP8zekCfgDbRK16zekCfgSyncRecord", zekCfgDb* db,
        const zekCfgSyncRecord& record) {
    std::string name(record.name, strnlen(record.name, sizeof record.name));
    char words[64] = "";
    if (record.words[1] != 0)
        std::snprintf(words, sizeof words, "/%u/%#x", uint32_t{record.words[0]},
                      uint32_t{record.words[1]});
    else if (record.words[0] != 0)
        std::snprintf(words, sizeof words, "/%u", uint32_t{record.words[0]});
    testRecord("sync " + std::to_string(record.kind) + words + " " + name + " " +
               quoted(record.text));
    return testFails(TEST_CFG) ? -1 : realSync(db, record);
}
