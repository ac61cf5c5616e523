// What happens to answered changes when their storage fails or the manager ends at any instant.
#include <sqlite3.h>
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "include/cliMsg.h"
#include "include/policyMsg.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

std::vector<uint8_t> addEntry(const rawClient& client, uint32_t seq) {
    std::vector<uint8_t> message(sizeof(cliIpEntryReq));
    client.fillHeader(message, MT_CLI_COMMAND, seq);
    auto* req = reinterpret_cast<cliIpEntryReq*>(message.data());
    req->cli.code = CLI_IP_ENTRY_ADD;
    req->cli.name = listNameMake("S");
    req->block.kind = IP_KIND_STANDARD;
    req->block.seq = seq;
    req->block.order = ORDER_NOT_GIVEN;
    req->block.dscp = DSCP_NOT_GIVEN;
    req->block.src = 0x0A000000 + (seq << 8);
    req->block.srcMask = 0xFFFFFF00;
    return message;
}
bool hasEntry(const std::string& config, uint32_t seq) {
    return has(config, " seq " + std::to_string(seq) + " permit 10.");
}

uint32_t resultOf(const std::vector<uint8_t>& answer) {
    return answer.size() < sizeof(cliHdr) ? ACL_E_SYSTEM
                                          : reinterpret_cast<const cliHdr*>(answer.data())->result;
}

// Somebody else who uses the database.
struct otherUser {
    sqlite3* sql = nullptr;

    explicit otherUser(const std::string& dir) {
        EXPECT_EQ(sqlite3_open((dir + "/running.db").c_str(), &sql), SQLITE_OK);
        sqlite3_busy_timeout(sql, PATIENCE_MS);
    }
    ~otherUser() { sqlite3_close(sql); }
    void run(const char* text) const {
        EXPECT_EQ(sqlite3_exec(sql, text, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(sql);
    }
};

// A file system of its own for the run folder.
struct smallDisk {
    const chassisFixture& chassis;
    bool mounted;

    explicit smallDisk(const chassisFixture& box)
        : chassis(box),
          mounted(mount("tmpfs", box.dir.c_str(), "tmpfs", 0, "size=4m,mode=0755") == 0) {
        if (mounted)
            std::filesystem::copy_file(std::string(ACL_SOURCE_DIR) + "/examples/chassis.json",
                                       box.dir + "/chassis.json");
    }
    ~smallDisk() {
        if (mounted) umount2(chassis.dir.c_str(), MNT_DETACH);
    }
    smallDisk(const smallDisk&) = delete;
    smallDisk& operator=(const smallDisk&) = delete;
    std::string filler() const { return chassis.dir + "/filler"; }
    void fill() const {
        std::ofstream out(filler(), std::ios::binary);
        const std::string page(4096, 'x');
        while (out.write(page.data(), 4096) && out.flush()) continue;
    }
};

struct Storage : testing::Test {
    chassisFixture chassis;

    void begin() {
        ASSERT_TRUE(chassis.startManager());
        chassis.load("ip access-list standard S\n seq 5 permit host 192.0.2.1\n");
    }
    void refuses(const std::string& lines) {
        const commandResult result = chassis.shell({"-f", "-"}, lines);
        EXPECT_EQ(result.status, 1) << lines;
        EXPECT_TRUE(has(result.err, aclStatusFind(ACL_E_STORE)->text)) << result.err;
    }

    // The manager runs and has list S. Changes while nothing can be written; `heal` ends that.
    void holdsItsWord(const std::function<void()>& fail, const std::function<void()>& heal) {
        rawClient client(chassis);
        fail();
        // The first changes may still have room.
        uint32_t last = 100;
        std::vector<uint8_t> answer;
        auto refusing = [&] { return has(chassis.show("show system"), "no: changes are refused"); };
        do {
            ASSERT_TRUE(client.send(addEntry(client, ++last)));
            ASSERT_TRUE(waitUntil([&] {
                answer = client.receive(10);
                return !answer.empty() || refusing();
            }));
        } while (!answer.empty() && resultOf(answer) == ACL_OK);
        ASSERT_TRUE(answer.empty()) << std::hex << resultOf(answer);
        refuses("ip access-list standard T\n");
        refuses("no ip access-list standard S\n");
        refuses("access-list inverse-mask\n");
        EXPECT_TRUE(has(chassis.show("show ip access-lists"), " seq 5 "));
        EXPECT_TRUE(has(chassis.runningConfig(), " seq 5 "));
        EXPECT_EQ(chassis.shell({"-c", "write memory"}).status, 1);
        EXPECT_TRUE(client.receive(0).empty());  // the change under way is not promised yet
        heal();
        EXPECT_EQ(resultOf(client.receive()), ACL_OK);
        chassis.load("ip access-list standard T\n seq 1 permit any\n");
        const std::string config = chassis.runningConfig();
        for (uint32_t seq = 101; seq <= last; seq++) EXPECT_TRUE(hasEntry(config, seq)) << seq;
        ASSERT_TRUE(chassis.killAndRestart());
        EXPECT_EQ(chassis.runningConfig(), config);
    }
};

// A prefix list whose numbers are multiples of `step`, as the configuration shows it.
std::string prefixLines(uint32_t step, bool inverse) {
    std::string lines = "ip prefix-list P\n";
    for (uint32_t i = 1; i <= 300; i++)
        lines += " seq " + std::to_string(i * step) + " permit 11." + std::to_string(i / 256) +
                 "." + std::to_string(i % 256) + (inverse ? ".0 255.255.255.0\n" : ".0/24\n");
    return lines;
}

// Sends changes until the manager is killed, and keeps what was answered: entries, and now and then
// the mask mode or all the numbers of list P, which are multiples of five or of seven.
struct changes {
    struct change {
        bool on = false;               // asked for last
        uint32_t asked = 0, told = 0;  // numbers of requests
    } inverse, sevens;
    std::set<uint32_t> entries;
    uint32_t last = 0;

    std::vector<uint8_t> next(const rawClient& client) {
        std::vector<uint8_t> message = addEntry(client, ++last);
        if (last % 16 != 0) return message;
        change& c = last % 32 == 0 ? inverse : sevens;
        c = {!c.on, last};
        message.assign(last % 32 == 0 ? sizeof(ipcHdr) : sizeof(cliPrefixReseqReq), 0);
        client.fillHeader(message,
                          last % 32 != 0 ? uint32_t{MT_CLI_COMMAND}
                          : c.on         ? MT_ACL_INVERSEMASK_ENABLE
                                         : MT_ACL_INVERSEMASK_DISABLE,
                          last);
        if (last % 32 == 0) return message;
        auto* req = reinterpret_cast<cliPrefixReseqReq*>(message.data());
        req->cli.code = CLI_PREFIX_RESEQUENCE;
        req->cli.name = listNameMake("P");
        req->start = req->step = c.on ? 7 : 5;
        req->family = AF_IPV4;
        return message;
    }
    void take(const std::vector<uint8_t>& answer) {
        const uint32_t number = reinterpret_cast<const ipcHdr*>(answer.data())->sequence;
        for (change* c : {&inverse, &sevens})
            if (number == c->asked) c->told = number;
        if (number % 16 != 0 && resultOf(answer) == ACL_OK) entries.insert(number);
    }
    void until(const chassisFixture& chassis, const rawClient& client) {
        for (int outstanding = 0; chassis.manager.running();) {
            while (outstanding < 8 && client.send(next(client))) outstanding++;
            const std::vector<uint8_t> answer = client.receive(20);
            if (answer.empty()) continue;
            take(answer);
            outstanding--;
        }
        for (std::vector<uint8_t> answer; !(answer = client.receive(0)).empty();) take(answer);
    }
};

}  // namespace

TEST_F(Storage, ALockOfSomebodyElseEndsByItself) {
    begin();
    const otherUser other(chassis.dir);
    holdsItsWord([&] { other.run("BEGIN IMMEDIATE"); }, [&] { other.run("ROLLBACK"); });

    // A start does not need to write.
    const std::string config = chassis.runningConfig();
    other.run("BEGIN IMMEDIATE");
    EXPECT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), config);
    other.run("ROLLBACK");
    EXPECT_TRUE(chassis.manager.running());
}

TEST_F(Storage, AFullDiskEndsByItself) {
    const smallDisk disk(chassis);
    if (!disk.mounted) GTEST_SKIP() << "a file system can be mounted by root only";
    begin();
    holdsItsWord([&] { disk.fill(); }, [&] { std::filesystem::remove(disk.filler()); });
}

TEST_F(Storage, ADatabaseThatCannotBeUsedEndsTheStartWithAReason) {
    const std::string file = chassis.dir + "/running.db";
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"not a database", [&] { std::ofstream(file) << std::string(4096, 'x'); }},
        {"malformed", [&] { std::filesystem::resize_file(file, 6000); }},
        {"version", [&] { otherUser(chassis.dir).run("PRAGMA user_version=99"); }},
    };
    for (const auto& [reason, spoil] : rows) {
        SCOPED_TRACE(reason);
        for (const char* part : {"", "-wal", "-shm"}) std::filesystem::remove(file + part);
        begin();
        chassis.manager.stop(SIGKILL);
        otherUser(chassis.dir).run("PRAGMA wal_checkpoint(TRUNCATE)");
        spoil();
        EXPECT_FALSE(chassis.startManager());
        EXPECT_EQ(chassis.manager.stop(SIGKILL), 1);
        const std::string said = contentOf(chassis.manager.log);
        EXPECT_TRUE(has(said, reason)) << said;
    }
}

// Kills at random instants of changes, and of the restore behind them. The rounds use one run
// folder, so that the restores grow.
TEST_F(Storage, WhatWasAnsweredIsShownWholeAfterKillsAtAnyInstant) {
    std::mt19937 rng(static_cast<uint32_t>(getpid()));
    auto someTime = [&](uint32_t maxUs) {
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % maxUs));
    };
    ASSERT_TRUE(chassis.startManager());
    chassis.load("ip access-list standard S\n" + prefixLines(5, false));
    changes all;
    for (int round = killRounds(8); round > 0; round--) {
        SCOPED_TRACE(round);
        const rawClient client(chassis, static_cast<uint32_t>(round));
        const int pid = chassis.manager.pid;
        std::thread killer([&] {
            someTime(400000);
            kill(pid, SIGKILL);
        });
        all.until(chassis, client);
        killer.join();
        chassis.manager.stop(SIGKILL);
        ASSERT_TRUE(chassis.startManager());
        someTime(20000);
        ASSERT_TRUE(chassis.killAndRestart());

        const std::string config = chassis.runningConfig();
        for (uint32_t seq : all.entries) ASSERT_TRUE(hasEntry(config, seq)) << seq;
        const bool inverse = has(config, "access-list inverse-mask");
        const bool sevens = has(config, prefixLines(7, inverse));
        EXPECT_TRUE(sevens || has(config, prefixLines(5, inverse)));
        for (auto [c, shown] : {std::pair(&all.inverse, inverse), {&all.sevens, sevens}}) {
            EXPECT_TRUE(shown == c->on || c->told != c->asked);
            *c = {shown};
        }
        // All masks are shown in one way.
        EXPECT_NE(has(config, "/24"), inverse);
        EXPECT_NE(has(config, ".0 255.255.255.0"), !inverse);
        EXPECT_FALSE(has(chassis.show("show configuration unresolved"), "line"));
    }
    EXPECT_FALSE(all.entries.empty());
}
