// A run folder of a test's own, and endpoints in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "include/ipc.h"
#include "platform/api/zekTransport.h"

inline ipcHdr* headerOf(std::vector<uint8_t>& message) {
    return reinterpret_cast<ipcHdr*>(message.data());
}

struct runFolder {
    std::string path = std::filesystem::temp_directory_path() / "acltest.XXXXXX";
    runFolder() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
    ~runFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    runFolder(const runFolder&) = delete;
    runFolder& operator=(const runFolder&) = delete;
};

inline std::string contentOf(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct endpoint {
    uint32_t address, service;
    std::string error;  // before what fills it
    zekEndpoint* e;
    endpoint(const std::string& runDir, uint32_t card, uint32_t port)
        : address(card), service(port), e(zekEndpointOpen(runDir, card, port, &error)) {}
    ~endpoint() { zekEndpointClose(e); }
    endpoint(const endpoint&) = delete;
    endpoint& operator=(const endpoint&) = delete;
    zekSendResult send(const std::vector<uint8_t>& m, int timeoutMs = 0) const {
        return zekEndpointSend(e, m.data(), m.size(), timeoutMs);
    }
    int recv(std::vector<uint8_t>* m, int timeoutMs = 0, size_t max = ZEK_MESSAGE_MAX,
             zekSender* sender = nullptr) const {
        return zekEndpointRecv(e, m, max, timeoutMs, sender);
    }
    // Sequence numbers of everything that waits here.
    std::vector<uint32_t> drain() const {
        std::vector<uint32_t> sequences;
        for (std::vector<uint8_t> m; recv(&m) > 0;) sequences.push_back(headerOf(m)->sequence);
        return sequences;
    }
};
