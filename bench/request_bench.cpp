// The request path between real processes: one add and its answer, loading, memory, shows, start.
// Pin it to one core: taskset -c 0 request_bench
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "bench/entries.h"
#include "bench/measure.h"
#include "include/cliMsg.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

void fail(const char* what) {
    std::fprintf(stderr, "request_bench: %s\n", what);
    std::exit(1);
}

// --- references ----------------------------------------------------------------------------------

double refRoundTrip() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0) fail("socketpair");
    std::vector<char> buffer(65536);
    pid_t child = fork();
    if (child == 0)
        for (;;) {
            ssize_t got = recv(pair[1], buffer.data(), buffer.size(), 0);
            if (got <= 1) _exit(0);
            (void)!send(pair[1], buffer.data(), static_cast<size_t>(got), 0);
        }
    constexpr int trips = 4000;
    double seconds = benchRounds(9,
                                 [&] {
                                     for (int i = 0; i < trips; i++) {
                                         (void)!send(pair[0], buffer.data(), 1024, 0);
                                         (void)!recv(pair[0], buffer.data(), buffer.size(), 0);
                                     }
                                 }) /
                     trips;
    (void)!send(pair[0], buffer.data(), 1, 0);
    waitpid(child, nullptr, 0);
    close(pair[0]);
    close(pair[1]);
    return seconds;
}

void execute(sqlite3* db, const char* sql) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(sqlite3_errmsg(db));
}

// Committed single-row inserts, seconds each.
double refInsert(const std::string& dir) {
    constexpr int rows = 4000;
    std::vector<double> values;
    for (int round = 0; round < 5; round++) {
        std::string file = dir + "/ref" + std::to_string(round) + ".db";
        sqlite3* db = nullptr;
        if (sqlite3_open(file.c_str(), &db) != SQLITE_OK) fail("sqlite3_open");
        execute(db, "PRAGMA journal_mode=WAL");
        execute(db, "PRAGMA synchronous=NORMAL");
        execute(db,
                "CREATE TABLE cfg(section INT, kind INT, ord TEXT, line TEXT,"
                " PRIMARY KEY(section,kind,ord)) WITHOUT ROWID");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO cfg VALUES(1,2,?,?)", -1, &insert, nullptr);
        double start = benchNow();
        for (int i = 0; i < rows; i++) {
            char order[32], line[96];
            std::snprintf(order, sizeof order, "acl%08d", i);
            int n = std::snprintf(line, sizeof line,
                                  " seq %d permit tcp 10.%d.%d.0/24 host 192.0.2.1 eq 80", i * 5,
                                  i >> 8 & 255, i & 255);
            sqlite3_bind_text(insert, 1, order, -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(insert, 2, line, n, SQLITE_TRANSIENT);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        values.push_back((benchNow() - start) / rows);
        sqlite3_finalize(insert);
        sqlite3_close(db);
    }
    return benchMedian(values);
}

double refForkExec() {
    return benchRounds(15, [] {
        pid_t child = fork();
        if (child == 0) {
            execlp("true", "true", nullptr);
            _exit(1);
        }
        waitpid(child, nullptr, 0);
    });
}

double refFormattedLine() {
    char line[160];
    int used = 0;
    constexpr int lines = 100000;
    return benchRounds(9,
                       [&] {
                           for (int i = 0; i < lines; i++)
                               used += std::snprintf(
                                   line, sizeof line,
                                   " seq %u %s %s %u.%u.%u.%u/%u host %u.%u.%u.%u eq %u\n", i * 5,
                                   "permit", "tcp", 10, i >> 16 & 255, i >> 8 & 255, i & 255, 24,
                                   192, 0, 2, i & 255, 80);
                           asm volatile("" : : "r"(used), "m"(line));
                       }) /
           lines;
}

// --- the manager ---------------------------------------------------------------------------------

uint32_t nextSequence = 1;

// An add or a delete of one entry; seconds until its answer.
uint32_t entryRequest(rawClient& client, uint32_t code, const ipEntryBlock& block) {
    std::vector<uint8_t> message(sizeof(cliIpEntryReq));
    auto* req = reinterpret_cast<cliIpEntryReq*>(message.data());
    req->cli.code = code;
    req->cli.name = listNameMake("BENCH");
    req->block = block;
    client.fillHeader(message, MT_CLI_COMMAND, nextSequence++);
    if (!client.send(message)) fail("send");
    std::vector<uint8_t> answer = client.receive();
    if (answer.size() < sizeof(cliHdr)) fail("no answer");
    return reinterpret_cast<cliHdr*>(answer.data())->result;
}

// Lines of distinct extended entries, ten apart, so that there is room between any two.
std::string entryLines(uint32_t count) {
    std::string text = "ip access-list extended BENCH\n";
    for (uint32_t i = 0; i < count; i++) {
        uint32_t a = 0x0A000000 + i;
        text += " seq " + std::to_string((i + 1) * 1000) + " permit tcp host " +
                std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." +
                std::to_string(a >> 8 & 255) + "." + std::to_string(a & 255) +
                " host 192.0.2.1 eq 80\n";
    }
    return text;
}

double residentBytes(int pid) {
    std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");  // in pages
    double total = 0, resident = 0;
    statm >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double loadSeconds(const chassisFixture& chassis, const std::vector<std::string>& options,
                   const std::string& file) {
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(), {"-f", file});
    double start = benchNow();
    commandResult result = chassis.shell(arguments);
    double seconds = benchNow() - start;
    if (result.status != 0) fail(result.err.c_str());
    return seconds;
}

double requestSeconds(rawClient& client, uint32_t code, uint32_t expected, int count,
                      ipEntryBlock (*block)(uint32_t i, uint32_t entries), uint32_t entries) {
    std::vector<double> values;
    uint32_t i = 0;
    for (int batch = 0; batch < 10; batch++) {
        double start = benchNow();
        for (int k = 0; k < count / 10; k++, i++)
            if (entryRequest(client, code, block(i, entries)) != expected)
                fail("an unexpected status");
        values.push_back((benchNow() - start) / (count / 10));
    }
    return benchMedian(values);
}

// From fork to the word "ready" on the manager's standard error.
double startSeconds(const std::string& dir) {
    int err[2];
    if (pipe(err) != 0) fail("pipe");
    std::string program = std::string(ACL_BIN_DIR) + "/aclmgr";
    double start = benchNow();
    pid_t child = fork();
    if (child == 0) {
        dup2(err[1], 2);
        close(err[0]);
        execl(program.c_str(), "aclmgr", "--rundir", dir.c_str(), nullptr);
        _exit(127);
    }
    close(err[1]);
    std::string said;
    char buffer[256];
    double seconds = 0;
    while (seconds == 0) {
        ssize_t got = read(err[0], buffer, sizeof buffer);
        if (got <= 0) fail("the manager did not start");
        said.append(buffer, static_cast<size_t>(got));
        if (said.find("ready") != said.npos) seconds = benchNow() - start;
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(err[0]);
    return seconds;
}

struct figures {
    double value[6];
};
const char* const requestNames[6] = {"add-front",         "add-middle",       "add-end",
                                     "refused-duplicate", "delete-by-number", "delete-by-content"};
constexpr int REQUESTS = 500;

figures requestsAt(rawClient& client, uint32_t entries) {
    figures f{};
    f.value[0] = requestSeconds(
        client, CLI_IP_ENTRY_ADD, ACL_OK, REQUESTS,
        [](uint32_t i, uint32_t) { return blockOf(999 - i, 0x20000000 + i); }, entries);
    f.value[1] = requestSeconds(
        client, CLI_IP_ENTRY_ADD, ACL_OK, REQUESTS,
        [](uint32_t i, uint32_t n) { return blockOf(n / 2 * 1000 + 1 + i, 0x30000000 + i); },
        entries);
    f.value[2] = requestSeconds(
        client, CLI_IP_ENTRY_ADD, ACL_OK, REQUESTS,
        [](uint32_t i, uint32_t) { return blockOf(SEQ_NOT_GIVEN, 0x40000000 + i); }, entries);
    f.value[3] = requestSeconds(
        client, CLI_IP_ENTRY_ADD, ACL_E_ENTRY_EXISTS, REQUESTS,
        [](uint32_t i, uint32_t) { return blockOf(SEQ_NOT_GIVEN, 0x40000000 + i); }, entries);
    f.value[4] = requestSeconds(
        client, CLI_IP_ENTRY_DELETE, ACL_OK, REQUESTS,
        [](uint32_t i, uint32_t n) { return blockOf(n / 2 * 1000 + 1 + i, 0); }, entries);
    f.value[5] = requestSeconds(
        client, CLI_IP_ENTRY_DELETE, ACL_OK, REQUESTS,
        [](uint32_t i, uint32_t) { return blockOf(SEQ_NOT_GIVEN, 0x40000000 + i); }, entries);
    return f;
}

}  // namespace

int main() {
    double roundTrip, insert, line, forkExec;
    {
        chassisFixture scratch;
        roundTrip = refRoundTrip();
        insert = refInsert(scratch.dir);
        line = refFormattedLine();
        forkExec = refForkExec();
        benchOut("ref.round-trip.1024", roundTrip * 1e6, "us");
        benchOut("ref.sqlite.insert", insert * 1e6, "us");
        benchOut("ref.formatted-line", line * 1e9, "ns");
        benchOut("ref.fork-exec", forkExec * 1e6, "us");
    }

    figures first{};
    double loadPerLine10k = 0;
    for (uint32_t entries : {1000u, 10000u, 100000u}) {
        std::string at = "." + std::to_string(entries);
        chassisFixture chassis;
        // With its neighbours there: without them every fourth message tries to register again.
        if (!chassis.startNeighbours() || !chassis.startManager()) fail("no start");
        double before = residentBytes(chassis.manager.pid);
        std::string file = chassis.write("bench.cfg", entryLines(entries));
        double load = loadSeconds(chassis, {}, file);
        benchOut("load.line" + at, load / entries * 1e6, "us");
        double check = loadSeconds(chassis, {"-C"}, file);
        benchOut("load.check-only.line" + at, check / entries * 1e6, "us");
        if (entries == 10000) loadPerLine10k = load / entries;
        if (entries == 100000) {
            benchRatio("load.rate / ref.sqlite rate (inverse)", load / entries / insert, 1 / 0.8);
            benchRatio("load.line.100000 / load.line.10000", load / entries / loadPerLine10k, 1.3);
            benchRatio("check-only / load", check / load, 0.1);
            benchOut("resident bytes per entry",
                     (residentBytes(chassis.manager.pid) - before) / entries, "B");
        }
        {
            rawClient client(chassis);
            figures f = requestsAt(client, entries);
            if (entries == 1000) first = f;
            for (int i = 0; i < 6; i++) {
                benchOut(std::string("request.") + requestNames[i] + at, f.value[i] * 1e6, "us");
                if (entries == 1000 && i == 2)
                    benchRatio("request.add-end / (round trip + insert)",
                               f.value[i] / (roundTrip + insert), 1.5);
                if (entries == 100000)
                    benchRatio(std::string("request.") + requestNames[i] + " 100000 / 1000",
                               f.value[i] / first.value[i], 1.3);
            }
        }
        // From the kill to an answer: the configuration is there again then.
        const auto killed = std::chrono::steady_clock::now();
        if (!chassis.killAndRestart()) fail("no restart");
        const double restart =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - killed).count();
        benchOut("restart.line" + at, restart / entries * 1e6, "us");
        if (entries == 100000) benchRatio("restart / load", restart / load, 0.5);
        double show = benchRounds(5, [&] {
            if (chassis.shell({"-c", "show ip access-lists BENCH | count"}).status != 0)
                fail("show");
        });
        benchOut("show through the shell, per entry" + at, show / entries * 1e9, "ns");
    }

    std::vector<double> starts;
    for (int i = 0; i < 15; i++) {
        chassisFixture chassis;  // a new folder each time, made outside the measured span
        starts.push_back(startSeconds(chassis.dir));
    }
    double ready = benchMedian(starts);
    benchOut("start to ready", ready * 1e6, "us");
    benchRatio("start / fork-exec", ready / forkExec, 10);
}
