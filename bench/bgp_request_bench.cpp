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

void request(rawClient& client, std::vector<uint8_t>& message, uint32_t code, uint32_t expected) {
    auto* hdr = reinterpret_cast<cliHdr*>(message.data());
    hdr->code = code;
    hdr->name = listNameMake("BENCH");
    client.fillHeader(message, MT_CLI_COMMAND, nextSequence++);
    if (!client.send(message)) fail("send");
    std::vector<uint8_t> answer = client.receive();
    if (answer.size() < sizeof(cliHdr)) fail("no answer");
    if (reinterpret_cast<cliHdr*>(answer.data())->result != expected) fail("an unexpected status");
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

// Median seconds of a request, of entries from..from + count.
double seconds(rawClient& client, const kind& k, uint32_t code, uint32_t from, uint32_t count) {
    constexpr uint32_t batches = 10;
    std::vector<double> values;
    for (uint32_t batch = 0; batch < batches; batch++) {
        const double start = benchNow();
        for (uint32_t i = 0; i < count / batches; i++) {
            std::vector<uint8_t> message = k.entry(from + batch * (count / batches) + i);
            request(client, message, code, ACL_OK);
        }
        values.push_back((benchNow() - start) / (count / batches));
    }
    return benchMedian(values);
}

}  // namespace

int main() {
    for (const kind& k : kinds) {
        double firstAdd = 0, firstDelete = 0;
        for (uint32_t entries : {1000u, 10000u}) {
            const std::string at = "." + std::to_string(entries);
            const std::string name = k.name;
            chassisFixture chassis;
            if (!chassis.startNeighbours() || !chassis.startManager()) fail("no start");
            rawClient client(chassis);
            std::vector<uint8_t> create(sizeof(cliHdr));
            request(client, create, k.create, ACL_OK);
            const double load =
                benchRounds(1, [&] { (void)seconds(client, k, k.add, 0, entries); });
            const double add = seconds(client, k, k.add, entries, 1000);
            // The oldest ones: what lies behind them has to move.
            const double remove = seconds(client, k, k.remove, 0, 900);
            benchOut(name + ".load, an entry" + at, load / entries * 1e6, "us");
            benchOut(name + ".add" + at, add * 1e6, "us");
            benchOut(name + ".delete" + at, remove * 1e6, "us");
            if (entries == 1000) {
                firstAdd = add;
                firstDelete = remove;
                continue;
            }
            benchRatio(name + ".add 10000 / 1000", add / firstAdd, 1.3);
            benchRatio(name + ".delete 10000 / 1000", remove / firstDelete, 1.3);
        }
    }
}
