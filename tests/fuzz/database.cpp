// Bytes as a database file: opened, read and changed, or refused.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "common/cfgkeys.h"
#include "platform/base/cfgdb.h"

namespace {

std::string folder() {
    std::string base = std::filesystem::temp_directory_path() / "aclfuzz.XXXXXX";
    return mkdtemp(base.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string dir = folder();
    for (const auto& file : std::filesystem::directory_iterator(dir))
        std::filesystem::remove(file.path());
    std::ofstream(dir + "/running.db", std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    for (zekCfgAccess access : {zekCfgAccess::read, zekCfgAccess::write}) {
        zekCfgDb* db = zekCfgOpen(dir.c_str(), access, ZEK_CFG_FILE, CFG_LAYOUT);
        if (db == nullptr) continue;
        (void)zekCfgWalk(db, [](std::string_view) { return true; });
        (void)zekCfgMaskMode(db);
        if (access == zekCfgAccess::write) {
            zekCfgRecord record{};
            record.section = CFG_SECTION_IP;
            record.text[0] = '!';
            (void)zekCfgInsert(db, record);
            (void)zekCfgRemoveNode(db, record);
            (void)zekCfgCommit(db);
        }
        zekCfgClose(db);
    }
    return 0;
}
