// Replay of a card: from its agent's registration to the last message received, between real
// processes. Pin it to one core: taskset -c 0 replay_bench
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include "bench/measure.h"
#include "include/agentMsg.h"
#include "include/chassisControl.h"
#include "include/cliMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"

namespace {

constexpr uint32_t ENTRIES = 100000;
constexpr uint32_t CARDS = 4;
constexpr uint32_t LISTS = 1000;
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

// --- a card's agent that only receives ----------------------------------------------------------

std::string chassisJson(uint32_t vlans) {
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
    text += R"(],"lags":[],"vlans":[)";
    for (uint32_t vlan = 1; vlan <= vlans; vlan++)
        text += (vlan == 1 ? "{\"id\":" : ",{\"id\":") + std::to_string(vlan) + "}";
    return text + "]}";
}

// When a card's replay began and ended: its registration, and its last message.
struct replaySpan {
    double begun, ended;
};

// Registers, receives until `entries` entries have come, writes its replaySpan and exits with 0.
void runAgent(const std::string& dir, uint32_t slot, uint32_t entries, int result) {
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
    replaySpan span{benchNow(), 0};
    if (zekEndpointSend(acl, &req, sizeof req, 1000) != zekSendResult::sent) _exit(2);
    zekSwpSeq seen{};
    zekSwpOwed owed{};
    uint32_t got = 0;
    auto take = [&](std::span<const uint8_t> message, const zekSender&, zekDrop why) {
        if (why != zekDrop::none) _exit(3);
        const auto* hdr = wireView<agentHdr>(message);
        if (hdr == nullptr || hdr->ipc.session == 0) return;  // the answer to the registration
        if (zekEndpointSwpTake(acl, message.data(), &seen, &owed) != ZEK_SWP_IN_ORDER) return;
        if (hdr->bodyLen > sizeof(agentListHdr))
            got +=
                static_cast<uint32_t>((hdr->bodyLen - sizeof(agentListHdr)) / sizeof(agentEntry));
    };
    while (got < entries) {
        if (zekEndpointTake(acl, 30000, take) <= 0) _exit(3);
        if (got >= entries) span.ended = benchNow();
        zekEndpointSwpAnswer(acl, &owed);
    }
    if (write(result, &span, sizeof span) != sizeof span) _exit(4);
    _exit(0);
}

// --- the manager, and the cards that come and go
// --------------------------------------------------------------

struct replayFigures {
    double seconds;      // until the last card has everything
    double longestWait;  // of another request meanwhile
};

std::string addressOf(uint32_t a) {
    return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." +
           std::to_string(a >> 8 & 255) + "." + std::to_string(a & 255);
}

// A chassis of CARDS cards. One list of ENTRIES entries is bound to the first port of each; many
// lists, together as long, to as many VLANs that the first card's port is a member of.
struct replayChassis : chassisFixture {
    std::unique_ptr<rawClient> client;

    explicit replayChassis(uint32_t lists) {
        std::ofstream(dir + "/chassis.json") << chassisJson(lists);
        if (!startNeighbours() || !startManager()) fail("no start");
        const uint32_t each = ENTRIES / lists;
        std::string text, joins;
        for (uint32_t i = 0; i < ENTRIES; i++) {
            if (i % each == 0)
                text += "ip access-list extended L" + std::to_string(i / each + 1) + "\n";
            text += " permit tcp host " + addressOf(0x0A000000 + i) + " host 192.0.2.1 eq 80\n";
        }
        for (uint32_t card = 1; lists == 1 && card <= CARDS; card++)
            text += "interface " + std::to_string(card) + "/0\n ip access-group L1 in\n";
        for (uint32_t list = 1; lists != 1 && list <= lists; list++) {
            const std::string number = std::to_string(list);
            text += "interface vlan " + number + "\n ip access-group L" + number + " in\n";
            joins += "chassis vlan " + number + " join 1/0\n";
        }
        if (shell({}, joins).status != 0) fail("no members");
        if (shell({"-f", "-"}, text).status != 0) fail("the load was refused");
        client = std::make_unique<rawClient>(*this);
    }

    // Whether the request is answered.
    bool ask(std::vector<uint8_t>& message, uint32_t type) const {
        static uint32_t sequence = 1000;
        client->fillHeader(message, type, ++sequence);
        if (!client->send(message)) return false;
        for (;;) {
            const std::vector<uint8_t> answer = client->receive();
            if (answer.size() < sizeof(ipcHdr)) return false;
            if (reinterpret_cast<const ipcHdr*>(answer.data())->sequence == sequence) return true;
        }
    }
    void cardDown(uint32_t slot) {
        std::vector<uint8_t> message(sizeof(eventNotif));
        auto* event = reinterpret_cast<eventNotif*>(message.data());
        event->event = EVT_CARD_DOWN;
        event->slot = slot;
        if (!ask(message, MT_EVENT_NOTIF)) fail("no answer to a card that goes");
    }

    // Cards 1 to `cards` register together.
    replayFigures replay(uint32_t cards) {
        for (uint32_t card = 1; card <= cards; card++) cardDown(card);
        int results[2];
        if (pipe(results) != 0) fail("pipe");
        std::vector<pid_t> children;
        for (uint32_t card = 1; card <= cards; card++) {
            pid_t child = fork();
            if (child == 0) runAgent(dir, card, ENTRIES, results[1]);
            children.push_back(child);
        }
        replayFigures f{};
        while (!children.empty()) {
            int status = 0;
            pid_t ended = waitpid(-1, &status, WNOHANG);
            if (auto at = std::find(children.begin(), children.end(), ended);
                at != children.end()) {
                if (status != 0) fail("an agent did not receive everything");
                children.erase(at);
                continue;
            }
            // A request that changes nothing, now and then.
            std::vector<uint8_t> message(sizeof(cliHdr));
            reinterpret_cast<cliHdr*>(message.data())->code = CLI_CLEAR_IP_ACL;
            double asked = benchNow();
            if (!ask(message, MT_CLI_COMMAND)) fail("no answer");
            f.longestWait = std::max(f.longestWait, benchNow() - asked);
            usleep(5000);
        }
        replaySpan all{1e300, 0};
        for (uint32_t card = 1; card <= cards; card++) {
            replaySpan one{};
            if (read(results[0], &one, sizeof one) != sizeof one) fail("no result");
            all = {std::min(all.begun, one.begun), std::max(all.ended, one.ended)};
        }
        close(results[0]);
        close(results[1]);
        f.seconds = all.ended - all.begun;
        return f;
    }

    // Median seconds; the longest wait of all rounds.
    replayFigures rounds(int count, uint32_t cards) {
        std::vector<double> seconds;
        replayFigures all{};
        for (int i = 0; i < count; i++) {
            replayFigures f = replay(cards);
            seconds.push_back(f.seconds);
            all.longestWait = std::max(all.longestWait, f.longestWait);
        }
        all.seconds = benchMedian(seconds);
        return all;
    }
};

}  // namespace

int main() {
    constexpr int rounds = 7;
    double ref = refReplay();
    benchOut("ref.replay.100000", ref * 1e3, "ms");
    replayFigures one{}, four{};
    {
        replayChassis chassis(1);
        benchOut("first replay after a start", chassis.replay(1).seconds * 1e3, "ms");
        one = chassis.rounds(rounds, 1);
        four = chassis.rounds(rounds, CARDS);
    }
    benchOut("replay.100000", one.seconds * 1e3, "ms");
    benchRatio("replay / ref", one.seconds / ref, 1.5);
    benchOut("longest wait of another request", one.longestWait * 1e3, "ms");
    benchOut("replay.100000 to 4 cards", four.seconds * 1e3, "ms");
    benchRatio("4 cards / 1 card", four.seconds / one.seconds, 4.5);
    benchOut("longest wait, 4 cards", four.longestWait * 1e3, "ms");

    replayFigures lists = replayChassis(LISTS).rounds(rounds, 1);
    benchOut("replay of 1,000 lists of 100", lists.seconds * 1e3, "ms");
    benchRatio("1,000 lists / 1 list", lists.seconds / one.seconds, 1.5);
    benchOut("longest wait, 1,000 lists", lists.longestWait * 1e3, "ms");
}
