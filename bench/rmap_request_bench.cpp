// Route maps between real processes: adds and deletes at growing sizes of a map, and at growing
// numbers of maps. Pin it to one core: taskset -c 0 rmap_request_bench
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/measure.h"
#include "include/policyMsg.h"
#include "include/routeMapNames.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

void fail(const char* what) {
    std::fprintf(stderr, "rmap_request_bench: %s\n", what);
    std::exit(1);
}

// A manager with maps in it.
struct bench {
    chassisFixture chassis;
    std::unique_ptr<rawClient> client;
    uint32_t sequence = 1;

    bench() {
        if (!chassis.startNeighbours() || !chassis.startManager()) fail("no start");
        client = std::make_unique<rawClient>(chassis);
    }
    template <class Request>
    Request* make(std::vector<uint8_t>* message, const std::string& map, uint32_t code) {
        message->assign(sizeof(Request), 0);
        auto* request = reinterpret_cast<Request*>(message->data());
        request->cli.code = code;
        request->cli.name = listNameMake(map);
        return request;
    }
    void ask(std::vector<uint8_t>* message) {
        client->fillHeader(*message, MT_CLI_COMMAND, sequence++);
        if (!client->send(*message)) fail("send");
        std::vector<uint8_t> answer = client->receive();
        if (answer.size() < sizeof(cliHdr)) fail("no answer");
        if (reinterpret_cast<cliHdr*>(answer.data())->result != ACL_OK)
            fail("an unexpected status");
    }
    void create(const std::string& map, uint32_t seq) {
        std::vector<uint8_t> message;
        make<cliRmapReq>(&message, map, CLI_RMAP_CREATE)->seq = seq;
        ask(&message);
    }
    void remove(const std::string& map, uint32_t seq) {  // 0: the whole map
        std::vector<uint8_t> message;
        make<cliRmapDeleteReq>(&message, map, CLI_RMAP_DELETE)->seq = seq;
        ask(&message);
    }
    void clause(uint32_t requestCode, const std::string& map, uint32_t seq, uint32_t code,
                uint32_t value, const std::string& list) {
        std::vector<uint8_t> message;
        rmapClauseBlock& c = make<cliRmapClauseReq>(&message, map, requestCode)->clause;
        c.cls = rmapCodeFind(code)->cls;
        c.code = code;
        c.kind = static_cast<uint32_t>(rmapCodeFind(code)->kind);
        c.seq = seq;
        c.value = value;
        c.list = listNameMake(list);
        ask(&message);
    }
};

constexpr uint32_t BATCH = 20, BATCHES = 15, REQUESTS = BATCH * BATCHES;

// One request, at two sizes in turns: whatever else the machine does meanwhile hits both alike.
template <class Request>
void compare(const std::string& name, bench& small, uint32_t smallSize, bench& large,
             uint32_t largeSize, Request request) {
    std::vector<double> values[2];
    for (uint32_t batch = 0; batch < BATCHES; batch++)
        for (int which = 0; which < 2; which++) {
            bench& b = which == 0 ? small : large;
            const uint32_t size = which == 0 ? smallSize : largeSize;
            const double start = benchNow();
            for (uint32_t i = 0; i < BATCH; i++) request(b, size, batch * BATCH + i);
            values[which].push_back((benchNow() - start) / BATCH);
        }
    const double a = benchMedian(values[0]), b = benchMedian(values[1]);
    benchOut(name + "." + std::to_string(smallSize), a * 1e6, "us");
    benchOut(name + "." + std::to_string(largeSize), b * 1e6, "us");
    benchRatio(name + " " + std::to_string(largeSize) + " / " + std::to_string(smallSize), b / a,
               1.3);
}

// Instances 10, 20, ... with a metric match each.
void fillMap(bench& b, uint32_t instances) {
    const double start = benchNow();
    for (uint32_t i = 1; i <= instances; i++) {
        b.create("M", i * 10);
        b.clause(CLI_RMAP_ENTRY_ADD, "M", i * 10, RTMAP_MATCH_MET, i, "");
    }
    benchOut("load, an instance of " + std::to_string(instances),
             (benchNow() - start) / instances * 1e6, "us");
}
// Maps of one instance, which all name one list.
void fillMaps(bench& b, uint32_t maps) {
    const double start = benchNow();
    for (uint32_t i = 0; i < maps; i++) {
        const std::string map = "M" + std::to_string(i);
        b.create(map, 10);
        b.clause(CLI_RMAP_ENTRY_ADD, map, 10, RTMAP_MATCH_IPADD_PREFIX, 0, "P");
    }
    benchOut("load, a map of " + std::to_string(maps), (benchNow() - start) / maps * 1e6, "us");
}

}  // namespace

int main() {
    {
        bench small, large;
        fillMap(small, 100);
        fillMap(large, 1000);
        // In the middle of the map.
        auto seq = [](uint32_t size, uint32_t i) { return size / 2 * 10 + 1 + i % 9 + i / 9 * 10; };
        auto run = [&](const char* name, auto request) {
            compare(name, small, 100, large, 1000, request);
        };
        run("instance.add", [&](bench& b, uint32_t n, uint32_t i) { b.create("M", seq(n, i)); });
        run("clause.add", [&](bench& b, uint32_t n, uint32_t i) {
            b.clause(CLI_RMAP_ENTRY_ADD, "M", seq(n, i), RTMAP_MATCH_MET, i, "");
        });
        run("clause.delete", [&](bench& b, uint32_t n, uint32_t i) {
            b.clause(CLI_RMAP_ENTRY_DELETE, "M", seq(n, i), RTMAP_MATCH_MET, i, "");
        });
        run("instance.delete", [&](bench& b, uint32_t n, uint32_t i) { b.remove("M", seq(n, i)); });
    }
    bench small, large;
    fillMaps(small, 1000);
    fillMaps(large, 10000);
    auto name = [](uint32_t i) { return "X" + std::to_string(i * 7919 % REQUESTS); };
    auto run = [&](const char* what, auto request) {
        compare(what, small, 1000, large, 10000, request);
    };
    run("map.add", [&](bench& b, uint32_t, uint32_t i) { b.create(name(i), 10); });
    run("map.clause.add", [&](bench& b, uint32_t, uint32_t i) {
        b.clause(CLI_RMAP_ENTRY_ADD, name(i), 10, RTMAP_MATCH_IPADD_PREFIX, 0, "P");
    });
    run("map.clause.delete", [&](bench& b, uint32_t, uint32_t i) {
        b.clause(CLI_RMAP_ENTRY_DELETE, name(i), 10, RTMAP_MATCH_IPADD_PREFIX, 0, "P");
    });
    run("map.delete", [&](bench& b, uint32_t, uint32_t i) { b.remove(name(i), 0); });
}
