// Replay of a card: from its agent's registration to the last message received, between real
// processes. Pin it to one core: taskset -c 0 replay_bench
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "bench/measure.h"
#include "include/agentMsg.h"
#include "include/cliMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"

namespace {

constexpr uint32_t ENTRIES = 100000;
constexpr uint32_t CARDS = 4;
constexpr uint32_t CARD_ADDRESS = 0x7F010101;  // 127.1.1.1; card n is n - 1 further
constexpr uint32_t RP_ADDRESS = 0x7F010001;

void fail(const char* what) {
    std::fprintf(stderr, "replay_bench: %s\n", what);
    std::exit(1);
}

// --- the reference: chained records into 392-byte entries, 17 a message, over a datagram socket
// ----

struct record {
    record* next;
    uint8_t block[156];
    uint32_t words[4];
};

double refReplay() {
    record *head = nullptr, *tail = nullptr;
    for (uint32_t i = 0; i < ENTRIES; i++) {
        auto* r = static_cast<record*>(std::calloc(1, sizeof(record)));
        (tail != nullptr ? tail->next : head) = r;
        tail = r;
    }
    std::vector<double> values;
    for (int round = 0; round < 7; round++) {
        int pair[2], done[2];
        if (socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0 || pipe(done) != 0) fail("socketpair");
        int size = 4 << 20;
        for (int s : pair) setsockopt(s, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        std::vector<uint8_t> buffer(65536);
        pid_t child = fork();
        if (child == 0) {
            while (recv(pair[1], buffer.data(), buffer.size(), 0) > 1) continue;
            (void)!write(done[1], "x", 1);
            _exit(0);
        }
        std::vector<uint8_t> message(8192);
        double start = benchNow();
        for (const record* r = head; r != nullptr;) {
            std::memset(message.data(), 0, sizeof(agentHdr) + sizeof(agentListHdr));
            size_t used = sizeof(agentHdr) + sizeof(agentListHdr);
            for (size_t k = 0; k < AGENT_CHUNK_ENTRIES && r != nullptr; k++, r = r->next) {
                uint8_t* e = message.data() + used;
                std::memset(e, 0, sizeof(agentEntry));
                std::memcpy(e + 4, r->block + 64, 4);
                std::memcpy(e + 56, r->block + 24, 40);
                std::memcpy(e + 136, r->block + 44, 56);
                std::memcpy(e + 204, e + 56, 144);
                used += sizeof(agentEntry);
            }
            (void)!send(pair[0], message.data(), used, 0);
        }
        (void)!send(pair[0], message.data(), 1, 0);
        char x;
        (void)!read(done[0], &x, 1);
        values.push_back(benchNow() - start);
        waitpid(child, nullptr, 0);
        for (int fd : {pair[0], pair[1], done[0], done[1]}) close(fd);
    }
    return benchMedian(values);
}

// --- a card's agent that only receives
// --------------------------------------------------------------

std::string chassisJson() {
    std::string text =
        R"({"chassisMode":1,"routeProcessorType":4,"routeProcessors":[{"address":"127.1.0.1","primary":true}],"tasks":[)";
    for (uint32_t app : {61u, 80u, 94u, 140u, 141u, 142u, 99u, 100u})
        text += (app == 61 ? "" : ",") + ("{\"application\":" + std::to_string(app)) +
                R"(,"instance":0,"address":"127.1.0.1"})";
    text += R"(],"cards":[)";
    for (uint32_t card = 1; card <= CARDS; card++)
        text += (card == 1 ? "" : ",") + ("{\"slot\":" + std::to_string(card)) +
                ",\"address\":\"127.1.1." + std::to_string(card) +
                R"(","type":2,"egress":true,"ipv6":true,"ipv6Egress":true,"ports":[{"name":")" +
                std::to_string(card) + R"(/0","userPort":0,"port":0,"pipe":0}]})";
    return text + R"(],"lags":[],"vlans":[]})";
}

// Registers and receives until `entries` entries have come; exits with 0.
void runAgent(const std::string& dir, uint32_t slot, uint32_t entries) {
    std::string error;
    uint32_t address = CARD_ADDRESS + slot - 1;
    uint32_t port = aclServicePort(APP_ACL_AGENT, slot, QUEUE_REQUEST);
    zekEndpoint* acl = zekEndpointOpen(dir, address, port, &error);
    zekEndpoint* mac =
        zekEndpointOpen(dir, address, aclServicePort(APP_MAC_AGENT, slot, QUEUE_REQUEST), &error);
    if (acl == nullptr || mac == nullptr) _exit(2);
    agentRegisterReq req{};
    req.ipc.length = sizeof req;
    req.ipc.mtype = MT_AGENT_REGISTER;
    req.ipc.target.slot = slot;
    req.ipc.target.card = address;
    req.ipc.target.svce = port;
    req.ipc.source.card = RP_ADDRESS;
    req.ipc.source.svce = aclServicePort(APP_ACL, 0, QUEUE_REQUEST);
    req.isUp = req.isVortan = req.isIpv6Enabled = 1;
    if (zekEndpointSend(acl, &req, sizeof req, 1000) != zekSendResult::sent) _exit(2);
    zekSwpSeq seen{};
    zekSender sender{};
    std::vector<uint8_t> message;
    for (uint32_t got = 0; got < entries;) {
        if (zekEndpointRecv(acl, &message, IPC_TRANSPORT_MAX, 30000, &sender) <= 0) _exit(3);
        const auto* hdr = wireView<agentHdr>(std::span<const uint8_t>(message));
        if (hdr == nullptr || hdr->ipc.session == 0) continue;  // the answer to the registration
        if (zekEndpointSwpAck(acl, message.data(), &seen) != ZEK_SWP_IN_ORDER) continue;
        if (hdr->bodyLen > sizeof(agentListHdr))
            got +=
                static_cast<uint32_t>((hdr->bodyLen - sizeof(agentListHdr)) / sizeof(agentEntry));
    }
    _exit(0);
}

struct replayFigures {
    double seconds;      // until the last card has everything
    double longestWait;  // of another request meanwhile
};

// One list of ENTRIES entries, bound to the first port of `cards` cards.
replayFigures replay(uint32_t cards) {
    chassisFixture chassis;
    std::ofstream(chassis.dir + "/chassis.json") << chassisJson();
    if (!chassis.startNeighbours() || !chassis.startManager()) fail("no start");
    std::string text = "ip access-list extended BENCH\n";
    for (uint32_t i = 0; i < ENTRIES; i++) {
        uint32_t a = 0x0A000000 + i;
        text += " permit tcp host " + std::to_string(a >> 24) + "." +
                std::to_string(a >> 16 & 255) + "." + std::to_string(a >> 8 & 255) + "." +
                std::to_string(a & 255) + " host 192.0.2.1 eq 80\n";
    }
    for (uint32_t card = 1; card <= cards; card++)
        text += "interface " + std::to_string(card) + "/0\n ip access-group BENCH in\n";
    if (chassis.shell({"-f", "-"}, text).status != 0) fail("the load was refused");

    rawClient client(chassis);
    double start = benchNow();
    std::vector<pid_t> agents;
    for (uint32_t card = 1; card <= cards; card++) {
        pid_t child = fork();
        if (child == 0) runAgent(chassis.dir, card, ENTRIES);
        agents.push_back(child);
    }
    replayFigures f{};
    while (!agents.empty()) {
        int status = 0;
        pid_t ended = waitpid(-1, &status, WNOHANG);
        if (auto at = std::find(agents.begin(), agents.end(), ended); at != agents.end()) {
            if (status != 0) fail("an agent did not receive everything");
            agents.erase(at);
            f.seconds = benchNow() - start;
            continue;
        }
        // A request that changes nothing, now and then.
        std::vector<uint8_t> message(sizeof(cliHdr));
        reinterpret_cast<cliHdr*>(message.data())->code = CLI_CLEAR_IP_ACL;
        double asked = benchNow();
        if (client.ask(message, MT_CLI_COMMAND).empty()) fail("no answer");
        f.longestWait = std::max(f.longestWait, benchNow() - asked);
        usleep(5000);
    }
    return f;
}

}  // namespace

int main() {
    double ref = refReplay();
    benchOut("ref.replay.100000", ref * 1e3, "ms");
    std::vector<double> one, wait;
    for (int i = 0; i < 3; i++) {
        replayFigures f = replay(1);
        one.push_back(f.seconds);
        wait.push_back(f.longestWait);
    }
    benchOut("replay.100000", benchMedian(one) * 1e3, "ms");
    benchRatio("replay / ref", benchMedian(one) / ref, 1.5);
    benchOut("longest wait of another request", benchMedian(wait) * 1e3, "ms");
    replayFigures four = replay(CARDS);
    benchOut("replay.100000 to 4 cards", four.seconds * 1e3, "ms");
    benchRatio("4 cards / 1 card", four.seconds / benchMedian(one), 4.5);
    benchOut("longest wait, 4 cards", four.longestWait * 1e3, "ms");
}
