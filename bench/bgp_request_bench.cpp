// Adds and deletes of AS-path and community entries between real processes, at growing list sizes.
// Pin it to one core: taskset -c 0 bgp_request_bench
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/measure.h"
#include "include/policyMsg.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

void fail(const char* what) {
    std::fprintf(stderr, "bgp_request_bench: %s\n", what);
    std::exit(1);
}

uint32_t nextSequence = 1;

void request(rawClient& client, const std::string& list, std::vector<uint8_t> message,
             uint32_t code) {
    auto* hdr = reinterpret_cast<cliHdr*>(message.data());
    hdr->code = code;
    hdr->name = listNameMake(list);
    client.fillHeader(message, MT_CLI_COMMAND, nextSequence++);
    if (!client.send(message)) fail("send");
    std::vector<uint8_t> answer = client.receive();
    if (answer.size() < sizeof(cliHdr)) fail("no answer");
    if (reinterpret_cast<cliHdr*>(answer.data())->result != ACL_OK) fail("an unexpected status");
}

// One kind of list: its codes, and the request that states its entry number i.
struct kind {
    const char* name;
    uint32_t create, add, remove;
    std::vector<uint8_t> (*entry)(uint32_t i);
};

std::vector<uint8_t> aspathEntryOf(uint32_t i) {
    std::vector<uint8_t> message(sizeof(cliAspathReq));
    const std::string text = "_" + std::to_string(100000 + i) + "_";
    std::memcpy(reinterpret_cast<cliAspathReq*>(message.data())->text, text.data(), text.size());
    return message;
}
std::vector<uint8_t> commEntryOf(uint32_t i) {
    std::vector<uint8_t> message(sizeof(cliCommReq));
    commEntryBlock& block = reinterpret_cast<cliCommReq*>(message.data())->entry;
    block.kind = static_cast<uint32_t>(COMM_VALUES);
    block.count = 1u;
    block.high[0] = 64000 + (i >> 16);
    block.low[0] = i & 0xFFFF;
    return message;
}

constexpr kind kinds[] = {
    {"aspath", CLI_ASPATH_LIST_CREATE, CLI_ASPATH_ENTRY_ADD, CLI_ASPATH_ENTRY_DELETE,
     aspathEntryOf},
    {"community", CLI_COMM_LIST_CREATE, CLI_COMM_ENTRY_ADD, CLI_COMM_ENTRY_DELETE, commEntryOf},
};

constexpr uint32_t sizes[] = {1000, 10000};
constexpr uint32_t BATCH = 50, BATCHES = 18;

// Medians over batches of one request, which take turns between the lists of all sizes: whatever
// else the machine does meanwhile hits them alike.
struct medians {
    double seconds[std::size(sizes)];
};
medians measure(rawClient& client, const kind& k, uint32_t code, bool behind) {
    std::vector<double> values[std::size(sizes)];
    for (uint32_t batch = 0; batch < BATCHES; batch++)
        for (size_t n = 0; n < std::size(sizes); n++) {
            const std::string list = std::to_string(sizes[n]);
            const double start = benchNow();
            for (uint32_t i = 0; i < BATCH; i++)
                request(client, list, k.entry((behind ? sizes[n] : 0) + batch * BATCH + i), code);
            values[n].push_back((benchNow() - start) / BATCH);
        }
    medians result{};
    for (size_t n = 0; n < std::size(sizes); n++) result.seconds[n] = benchMedian(values[n]);
    return result;
}

void report(const std::string& name, const medians& m) {
    for (size_t n = 0; n < std::size(sizes); n++)
        benchOut(name + "." + std::to_string(sizes[n]), m.seconds[n] * 1e6, "us");
    benchRatio(name + " 10000 / 1000", m.seconds[1] / m.seconds[0], 1.3);
}

}  // namespace

int main() {
    for (const kind& k : kinds) {
        chassisFixture chassis;
        if (!chassis.startNeighbours() || !chassis.startManager()) fail("no start");
        rawClient client(chassis);
        double load[std::size(sizes)];
        for (size_t n = 0; n < std::size(sizes); n++) {
            const std::string list = std::to_string(sizes[n]);
            request(client, list, std::vector<uint8_t>(sizeof(cliHdr)), k.create);
            load[n] = benchRounds(1, [&] {
                for (uint32_t i = 0; i < sizes[n]; i++) request(client, list, k.entry(i), k.add);
            });
            load[n] /= sizes[n];
            benchOut(std::string(k.name) + ".load, an entry." + list, load[n] * 1e6, "us");
        }
        benchRatio(std::string(k.name) + ".load 10000 / 1000", load[1] / load[0], 1.3);
        report(std::string(k.name) + ".add", measure(client, k, k.add, true));
        // The oldest ones: what lies behind them has to move.
        report(std::string(k.name) + ".delete", measure(client, k, k.remove, false));
    }
}
