// A manager in the test's hands: an endpoint at the route processor's address whose answers, and
// failures to answer, each test chooses. What a handler refers to must be declared before the
// manager: its thread runs until the manager is destroyed.
#pragma once

#include <unistd.h>

#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <thread>

#include "cli/request/load.h"
#include "include/service.h"
#include "include/status.h"
#include "tests/platform/endpoint.h"

struct fakeEndpoint {
    std::optional<endpoint> at;
    std::thread thread;
    std::atomic<bool> stop = false;
    std::vector<std::vector<uint8_t>> received;  // to be read when it is halted

    ~fakeEndpoint() { halt(); }
    void open(const std::string& dir, uint32_t card, uint32_t service) {
        at.emplace(dir, card, service);
        ASSERT_NE(at->e, nullptr) << at->error;
    }
    void listen(std::function<void(std::vector<uint8_t>&)> handle) {
        thread = std::thread([this, handle] {
            std::vector<uint8_t> message;
            while (!stop) {
                if (at->recv(&message, 5, IPC_BUFFER_SIZE) <= 0) continue;
                received.push_back(message);
                handle(message);
            }
        });
    }
    void halt() {
        stop = true;
        if (thread.joinable()) thread.join();
        at.reset();
    }
    // Sends the message back with its triples exchanged.
    void reply(std::vector<uint8_t> message) {
        ipcExchangeTriples(reinterpret_cast<ipcHdr*>(message.data()));
        while (!stop && at->send(message, 100) == zekSendResult::full) {
        }
    }
};

struct fakeManager : fakeEndpoint {
    static constexpr uint32_t CARD = 0x7F010001;
    runFolder folder;
    const std::string& dir = folder.path;

    fakeManager() {
        std::ofstream(dir + "/chassis.json") << R"({"chassisMode":1,"routeProcessorType":4,
 "routeProcessors":[{"address":"127.1.0.1","primary":true}],
 "tasks":[{"application":61,"instance":0,"address":"127.1.0.1"}],
 "cards":[{"slot":1,"address":"127.1.1.1","type":2,
           "ports":[{"name":"1/0","userPort":0,"port":0,"pipe":0}]}],
 "lags":[{"id":1}],"vlans":[{"id":10}]})";
    }
    ~fakeManager() { halt(); }
    void open() { fakeEndpoint::open(dir, CARD, aclServicePort(APP_ACL, 0, QUEUE_REQUEST)); }
    void run(std::function<void(fakeManager&, std::vector<uint8_t>&)> handler) {
        open();
        listen([this, handler](std::vector<uint8_t>& message) { handler(*this, message); });
    }
    // Takes every request but those about lists of certain names; gives route maps number 40.
    void serve() {
        run([](fakeManager& m, std::vector<uint8_t>& message) {
            if (message.size() < sizeof(cliHdr)) return m.answer(message, ACL_OK);
            auto* map = reinterpret_cast<cliRmapReq*>(message.data());
            if (map->cli.code == CLI_RMAP_CREATE && map->seq == RMAP_SEQ_NOT_GIVEN) map->seq = 40;
            static const std::map<std::string_view, uint32_t> refused{
                {"IS-STANDARD", ACL_E_IS_STANDARD},
                {"EGRESS", ACL_E_CP_EGRESS},
                {"SEVERAL", ACL_E_RMAP_SEQ_NEEDED},
                {"UNKNOWN", 0x3d0000fe}};
            const auto found = refused.find(listNameView(map->cli.name));
            m.answer(message, found == refused.end() ? uint32_t{ACL_OK} : found->second);
        });
    }
    void answer(std::vector<uint8_t> message, uint32_t result) {
        if (message.size() >= sizeof(cliHdr))
            reinterpret_cast<cliHdr*>(message.data())->result = result;
        reply(std::move(message));
    }
    void answerText(const std::vector<uint8_t>& message, const listName& name,
                    std::string_view text, uint32_t marker = SHOW_MARKER) {
        std::vector<uint8_t> buffer(SHOW_TEXT_OFFSET + text.size() + 1);
        std::memcpy(buffer.data(), message.data(), sizeof(ipcHdr));
        auto* front = reinterpret_cast<showReplyHdr*>(buffer.data());
        front->ipc.length = static_cast<uint32_t>(buffer.size());
        front->marker = marker;
        front->name = name;
        std::memcpy(buffer.data() + SHOW_TEXT_OFFSET, text.data(), text.size());
        reply(std::move(buffer));
    }
};

inline const cliHdr& cliOf(const std::vector<uint8_t>& message) {
    return *reinterpret_cast<const cliHdr*>(message.data());
}

inline uint32_t wordAt(std::span<const uint8_t> m, size_t at) {
    return uint32_t{m[at]} << 24 | uint32_t{m[at + 1]} << 16 | uint32_t{m[at + 2]} << 8 | m[at + 3];
}
inline size_t count(const std::string& text, std::string_view part) {
    size_t n = 0;
    for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) n++;
    return n;
}

// A session whose output and reports are kept.
struct testSession {
    cliSession session;
    char* out = nullptr;
    char* err = nullptr;
    size_t outSize = 0, errSize = 0;

    explicit testSession(const std::string& runDir, int timeoutMs = 20000) {
        session.options.runDir = runDir;
        session.options.chassisFile = runDir + "/chassis.json";
        session.options.timeoutMs = timeoutMs;
        session.out = open_memstream(&out, &outSize);
        session.err = open_memstream(&err, &errSize);
    }
    ~testSession() {
        fclose(session.out);
        fclose(session.err);
        free(out);
        free(err);
    }
    // Loads a text through a pipe, as `aclsh -f -` does.
    int load(const std::string& text) {
        int fds[2];
        if (pipe(fds) != 0) abort();
        std::thread writer([&] {
            for (size_t done = 0; done < text.size();) {
                ssize_t n = write(fds[1], text.data() + done, text.size() - done);
                if (n <= 0) break;
                done += static_cast<size_t>(n);
            }
            close(fds[1]);
        });
        int status = loadRun(&session, fds[0], "F");
        writer.join();
        close(fds[0]);
        return status;
    }
    bool run(const std::string& line) { return sessionRun(&session, line, {"T", 1}); }
    std::string printed() {
        fflush(session.out);
        return out;
    }
    std::string reported() {
        fflush(session.err);
        return err;
    }
};
