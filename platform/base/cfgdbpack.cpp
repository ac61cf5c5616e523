// How keys and requests are stored: without their runs of zeros.
#include <cstring>

#include "include/wire.h"
#include "platform/base/cfgdb.h"

namespace {

constexpr size_t RUN_MAX = 255;

}  // namespace

size_t cfgPack(const uint8_t* bytes, size_t length, uint8_t* stored) {
    size_t out = 0;
    for (size_t i = 0; i < length;) {
        if (bytes[i] != 0) {
            stored[out++] = bytes[i++];
            continue;
        }
        size_t run = 1;
        while (run < RUN_MAX && i + run < length && bytes[i + run] == 0) run++;
        stored[out++] = 0;
        stored[out++] = static_cast<uint8_t>(RUN_MAX + 1 - run);
        i += run;
    }
    return out;
}

bool cfgUnpack(std::string_view stored, uint8_t* bytes, size_t room, size_t* length) {
    size_t out = 0;
    for (size_t i = 0; i < stored.size(); i++) {
        const auto byte = static_cast<uint8_t>(stored[i]);
        size_t run = 1;
        if (byte == 0) {
            if (++i == stored.size() || stored[i] == 0) return false;
            run = RUN_MAX + 1 - static_cast<uint8_t>(stored[i]);
        }
        if (run > room - out) return false;
        std::memset(bytes + out, byte, run);
        out += run;
    }
    *length = out;
    return true;
}

void cfgRecordStore(const zekCfgRequest& request, std::string* record) {
    record->clear();
    if (request.mtype == 0 || request.body.size() > CFG_REQUEST_MAX) return;
    be32 mtype;
    mtype = request.mtype;
    record->append(reinterpret_cast<const char*>(&mtype), sizeof mtype);
    uint8_t packed[CFG_REQUEST_MAX + CFG_REQUEST_MAX / 2 + 1];
    const size_t length = cfgPack(request.body.data(), request.body.size(), packed);
    record->append(reinterpret_cast<const char*>(packed), length);
}

zekCfgRequest cfgRecordRead(std::string_view record, uint8_t* bytes) {
    be32 mtype;
    size_t length = 0;
    if (record.size() < sizeof mtype) return {};
    std::memcpy(&mtype, record.data(), sizeof mtype);
    if (!cfgUnpack(record.substr(sizeof mtype), bytes, CFG_REQUEST_MAX, &length)) return {};
    return {mtype, {bytes, length}};
}
