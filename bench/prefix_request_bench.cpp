// Prefix lists over the request path: one add or delete and its answer, loading through the shell.
// Pin it to one core: taskset -c 0 prefix_request_bench
#include <cstring>

#include "bench/measure.h"
#include "include/policyMsg.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "prefix_request_bench: %s\n", what);
    std::exit(1);
}

// The i-th of distinct /24 prefixes.
uint32_t prefixAt(uint32_t i) {
    return 0x0A000000u + (i << 8);
}

uint32_t request(rawClient& client, uint32_t code, uint32_t i) {
    static uint32_t sequence = 1;
    std::vector<uint8_t> message(sizeof(cliPrefix4Req));
    auto* req = reinterpret_cast<cliPrefix4Req*>(message.data());
    req->cli.code = code;
    req->cli.name = listNameMake("BENCH");
    req->entry.len = 24;
    be32 address, mask;
    address = prefixAt(i), mask = 0xFFFFFF00;
    std::memcpy(req->entry.address, &address, 4);
    std::memcpy(req->entry.mask, &mask, 4);
    client.fillHeader(message, MT_CLI_COMMAND, sequence++);
    if (!client.send(message)) fail("send");
    std::vector<uint8_t> answer = client.receive();
    if (answer.size() < sizeof(cliHdr)) fail("no answer");
    return reinterpret_cast<cliHdr*>(answer.data())->result;
}

struct figures {
    double load, add, del;
};

// The last entries' numbers leave room for a thousand adds behind them, five apart.
figures measure(uint32_t entries) {
    chassisFixture chassis;
    if (!chassis.startNeighbours() || !chassis.startManager()) fail("no start");
    std::string text = "ip prefix-list BENCH\n";
    for (uint32_t i = 0; i < entries; i++) {
        const uint32_t a = prefixAt(i);
        text += " seq " + std::to_string(i + 1) + " permit " + std::to_string(a >> 24) + "." +
                std::to_string(a >> 16 & 255) + "." + std::to_string(a >> 8 & 255) + ".0/24\n";
    }
    const std::string file = chassis.write("bench.cfg", text);
    double start = benchNow();
    if (chassis.shell({"-f", file}).status != 0) fail("load");
    figures f{(benchNow() - start) / entries, 0, 0};
    rawClient client(chassis);
    std::vector<double> adds, deletes;
    for (int batch = 0; batch < 10; batch++) {
        auto timed = [&](uint32_t code, std::vector<double>* values) {
            double begin = benchNow();
            for (uint32_t i = 0; i < 100; i++)
                if (request(client, code, entries + i) != ACL_OK) fail("an unexpected status");
            values->push_back((benchNow() - begin) / 100);
        };
        timed(CLI_PREFIX_ENTRY_ADD, &adds);
        timed(CLI_PREFIX_ENTRY_DELETE, &deletes);
    }
    f.add = benchMedian(adds);
    f.del = benchMedian(deletes);
    const std::string at = "." + std::to_string(entries);
    benchOut("load.line" + at, f.load * 1e6, "us");
    benchOut("request.add" + at, f.add * 1e6, "us");
    benchOut("request.delete" + at, f.del * 1e6, "us");
    return f;
}

}  // namespace

int main() {
    figures few = measure(1000), some = measure(6000), many = measure(60000);
    benchRatio("request.add 60000 / 1000", many.add / few.add, 1.3);
    benchRatio("request.delete 60000 / 1000", many.del / few.del, 1.3);
    benchRatio("load.line 60000 / 6000", many.load / some.load, 1.3);
}
