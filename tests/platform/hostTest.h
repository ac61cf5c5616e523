// What the host's tests share: messages, lines, and a task without options.
#pragma once

#include <cstring>
#include <numeric>

#include "common/cfgkeys.h"
#include "include/service.h"
#include "platform/api/zekCfg.h"
#include "platform/host/host.h"
#include "tests/platform/endpoint.h"

typedef std::vector<std::string> lines;
typedef std::vector<uint8_t> bytes;

// What a database shows.
inline lines shown(zekCfgDb* db) {
    lines all;
    EXPECT_EQ(zekCfgWalk(db, [&](std::string_view l) { return all.emplace_back(l), true; }), 0);
    return all;
}

// A line of a list; its place in the list's block is the order.
inline zekCfgRecord makeLine(uint32_t section, const std::string& name, uint32_t order,
                             uint32_t lineClass, const std::string& text,
                             const std::string& inverse = "") {
    zekCfgRecord record{};
    auto* key = reinterpret_cast<cfgListKey*>(record.key);
    name.copy(reinterpret_cast<char*>(key->name), name.size());
    key->kind = order != 0 ? 1 : 0;
    key->order = order;
    record.section = section;
    record.lineClass = lineClass;
    text.copy(record.text, CFG_TEXT_LEN);
    inverse.copy(record.inverseText, CFG_TEXT_LEN);
    return record;
}

constexpr uint32_t RP = 0x7F010001, CARD = 0x7F010101;
constexpr uint32_t CLIENT_PORT = SERVICE_DYNAMIC_BASE + 7;
constexpr uint32_t OWN_REQUESTS = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);

// The numbers of messages that are expected.
inline std::vector<uint32_t> upTo(uint32_t n, uint32_t from = 1) {
    std::vector<uint32_t> all(n - from + 1);
    std::iota(all.begin(), all.end(), from);
    return all;
}

// A message of the given size from one endpoint to another; the bytes behind the header are a
// pattern that depends on the sequence number.
inline bytes makeMessage(uint32_t fromCard, uint32_t fromPort, uint32_t toCard, uint32_t toPort,
                         uint32_t type, uint32_t sequence, size_t size = 64) {
    bytes m(size);
    for (size_t i = sizeof(ipcHdr); i < size; i++) m[i] = static_cast<uint8_t>(i * 7 + sequence);
    ipcHdr* hdr = headerOf(m);
    hdr->length = static_cast<uint32_t>(size);
    hdr->mtype = type;
    hdr->sequence = sequence;
    hdr->target.card = fromCard;
    hdr->target.svce = fromPort;
    hdr->source.card = toCard;
    hdr->source.svce = toPort;
    return m;
}

// A task at RP with one client beside it, and a commit that the test decides.
class taskTest : public testing::Test {
  protected:
    runFolder run;
    uint32_t key = 0;
    bool dirty = false;
    int commitResult = 0;
    int commits = 0;
    uint64_t changes = 0;

    taskTest() {
        hostSetCommit({[this] { return dirty; },
                       [this] {
                           commits++;
                           if (commitResult == 0) dirty = false;
                           return commitResult;
                       },
                       [this] { return changes; }});
        EXPECT_TRUE(hostTaskOpen(run.path, RP, APP_ACL, 0));
        key = hostTaskKey();
    }
    ~taskTest() override {
        hostTaskClose();
        hostSetCommit({});
        hostConf() = {};
    }
    bytes request(uint32_t sequence, uint32_t type = 14405, size_t size = 64) {
        return makeMessage(RP, CLIENT_PORT, RP, OWN_REQUESTS, type, sequence, size);
    }
    bytes answer(uint32_t sequence) {
        return makeMessage(RP, OWN_REQUESTS, RP, CLIENT_PORT, 6001, sequence);
    }
    int sendAnswer(uint32_t sequence, uint32_t port = CLIENT_PORT, size_t size = 64) {
        bytes m = makeMessage(RP, OWN_REQUESTS, RP, port, 6001, sequence, size);
        return zekIpcSend(Key_getReqQueue(key), m.data(), m.size());
    }
    zekFdSet requestSet() {
        zekFdSet set;
        set.set(static_cast<size_t>(Key_getSocketFd(Key_getReqQueue(key))));
        return set;
    }
    int select(int timeoutMs) {
        zekFdSet set = requestSet();
        return zekSelect(ZEK_FD_MAX, &set, timeoutMs);
    }
    // The next request's sequence number; 0 when there is none.
    uint32_t take(int timeoutMs = 0) {
        bytes m(IPC_BUFFER_SIZE);
        int n = zekIpcRecv(Key_getReqQueue(key), m.data(), m.size(), timeoutMs);
        return n > 0 ? uint32_t(headerOf(m)->sequence) : 0;
    }
};
