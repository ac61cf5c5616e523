// The main job on real input: a configuration is loaded, kept, shown, and survives.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <thread>

#include "include/cliMsg.h"
#include "include/status.h"
#include "tests/system/chassis.h"

namespace {

uint32_t random(std::mt19937& rng, uint32_t below) {
    return static_cast<uint32_t>(rng()) % below;
}

std::string dotted(uint32_t a) {
    return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." +
           std::to_string(a >> 8 & 255) + "." + std::to_string(a & 255);
}

// An address clause in the running-config's own form for a mask mode.
std::string clause(std::mt19937& rng, bool inverse) {
    switch (random(rng, 4)) {
        case 0:
            return " any";
        case 1:
            return " host " + dotted(static_cast<uint32_t>(rng()));
        case 2: {
            uint32_t length = 1 + random(rng, 31);
            uint32_t mask = 0xFFFFFFFFu << (32 - length);
            uint32_t address = static_cast<uint32_t>(rng()) & mask;
            if (inverse) return " " + dotted(address) + " " + dotted(mask);
            return " " + dotted(address) + "/" + std::to_string(length);
        }
        default: {
            uint32_t mask = 0xFF00FF00;  // not contiguous
            return " " + dotted(static_cast<uint32_t>(rng()) & mask) + " " +
                   dotted(inverse ? mask : ~mask);
        }
    }
}

std::string portClause(std::mt19937& rng) {
    static const char* const words[] = {" eq ", " gt ", " lt ", " neq "};
    uint32_t kind = random(rng, 6);
    if (kind < 4) return words[kind] + std::to_string(random(rng, 65536));
    if (kind == 4)
        return " range " + std::to_string(random(rng, 1000)) + " " +
               std::to_string(1000 + random(rng, 64000));
    return "";
}

bool chance(std::mt19937& rng) {
    return random(rng, 3) == 0;
}

std::string tail(std::mt19937& rng, bool full) {
    std::string text;
    if (full && random(rng, 20) == 0) text += " fragments";
    if (chance(rng)) text += " log";
    if (chance(rng)) text += " count";
    if (chance(rng)) text += " bytes";
    if (full && chance(rng)) text += " order " + std::to_string(random(rng, 255));
    if (full && chance(rng)) text += " monitor";
    return text;
}

// One extended line behind its number; trace lists have no dscp, fragments, order and monitor.
std::string extended(std::mt19937& rng, bool inverse, bool trace) {
    static const char* const protocols[] = {"tcp", "udp", "ip", "icmp", "47", "89"};
    uint32_t p = random(rng, 6);
    bool ports = p < 2;
    std::string text = random(rng, 2) != 0 ? " permit " : " deny ";
    text += protocols[p];
    text += clause(rng, inverse);
    if (ports) text += portClause(rng);
    text += clause(rng, inverse);
    if (ports) text += portClause(rng);
    if (!trace && chance(rng)) text += " dscp " + std::to_string(random(rng, 64));
    if (p == 0)
        for (const char* flag : {" established", " fin", " syn", " rst", " psh", " ack", " urg"})
            if (random(rng, 6) == 0) text += flag;
    if (chance(rng)) text += " precedence " + std::to_string(random(rng, 8));
    if (chance(rng)) text += " tos " + std::to_string(random(rng, 16));
    if (p == 3 && chance(rng)) text += random(rng, 2) != 0 ? " echo" : " 3 77";
    return text + tail(rng, !trace);
}

std::string standard(std::mt19937& rng, bool inverse) {
    std::string text = random(rng, 2) != 0 ? " permit" : " deny";
    text += clause(rng, inverse);
    if (chance(rng)) text += " dscp " + std::to_string(random(rng, 64));
    return text + tail(rng, true);
}

// Lists with `lines` lines in all, as the running configuration prints them. Each entry's content
// is made its own by a host number, so that no two are duplicates.
std::string configuration(std::mt19937& rng, bool inverse, int lines) {
    std::ostringstream out;
    if (inverse) out << "access-list inverse-mask\n";
    uint32_t unique = 0;
    for (int list = 0; lines > 0; list++) {
        int kind = list % 3;
        static const char* const heads[] = {"ip access-list standard S",
                                            "ip access-list extended E", "ip trace-list T"};
        out << heads[kind] << list << "\n";
        uint32_t seq = 0;
        for (int i = 0; i < 40 && lines > 0; i++, lines--) {
            seq += 1 + random(rng, 9);
            std::string text =
                kind == 0 ? standard(rng, inverse) : extended(rng, inverse, kind == 2);
            // "any" as the source would repeat: give those lines a host of their own.
            if (size_t at = text.find(" any"); at != std::string::npos)
                text.replace(at, 4, " host " + dotted(0x0B000000 + unique++));
            out << " seq " << seq << text << "\n";
        }
    }
    out << "ip trace-group T2\n";
    return out.str();
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Configuration lines as a set: without separators, each entry with its list in front.
std::vector<std::string> canonical(const std::string& text) {
    std::vector<std::string> out;
    std::string head;
    for (const std::string& line : linesOf(text)) {
        if (line.empty() || line == "!") continue;
        if (line[0] != ' ') head = line;
        out.push_back(line[0] == ' ' ? head + "|" + line : line);
    }
    std::ranges::sort(out);
    return out;
}

std::vector<uint8_t> request(uint32_t code, const std::string& name, size_t size) {
    std::vector<uint8_t> message(size);
    auto* cli = reinterpret_cast<cliHdr*>(message.data());
    cli->code = code;
    cli->name = listNameMake(name);
    return message;
}
uint32_t resultOf(const std::vector<uint8_t>& answer) {
    return reinterpret_cast<const cliHdr*>(answer.data())->result;
}

struct Configuration : testing::Test {
    chassisFixture chassis;
};

}  // namespace

TEST_F(Configuration, ALargeMixedConfigurationPrintsAndLoadsBackTheSameInBothMaskModes) {
    for (bool inverse : {false, true}) {
        SCOPED_TRACE(inverse ? "inverse" : "normal");
        chassisFixture first, second;
        ASSERT_TRUE(first.startManager());
        std::mt19937 rng(inverse ? 2 : 1);
        std::string text = configuration(rng, inverse, 2000);
        commandResult loaded = first.shell({"-f", "-"}, text);
        // Random content may collide now and then; only duplicates may be refused.
        for (const std::string& line : linesOf(loaded.err)) {
            if (line.find("-:") != 0) continue;
            EXPECT_NE(line.find(aclStatusFind(ACL_E_ENTRY_EXISTS)->text), std::string::npos)
                << line;
        }
        std::string printed = first.runningConfig();
        EXPECT_GT(linesOf(printed).size(), 1900u);

        // Every line that was accepted is printed as it was typed.
        auto typed = canonical(text);
        for (const std::string& line : canonical(printed))
            EXPECT_TRUE(std::ranges::binary_search(typed, line)) << line;

        ASSERT_TRUE(second.startManager());
        commandResult reloaded = second.shell({"-f", "-"}, printed);
        EXPECT_EQ(reloaded.status, 0) << reloaded.err;
        EXPECT_EQ(second.runningConfig(), printed);

        ASSERT_TRUE(second.killAndRestart());
        EXPECT_EQ(second.runningConfig(), printed);
    }
}

TEST_F(Configuration, ArpAndEtherTypeEntriesThatCameByMessageSurviveARestart) {
    ASSERT_TRUE(chassis.startManager());
    ASSERT_EQ(chassis.shell({"-f", "-"}, "ip access-list extended L2\n").status, 0);
    rawClient client(chassis);
    for (uint32_t i = 0; i < 4; i++) {
        auto message = request(CLI_IP_ENTRY_ADD, "L2", sizeof(cliIpEntryReq));
        auto* req = reinterpret_cast<cliIpEntryReq*>(message.data());
        ipEntryBlock& b = req->block;
        b.kind = IP_KIND_EXTENDED;
        b.action = i & 1;
        b.seq = SEQ_NOT_GIVEN;
        b.order = ORDER_NOT_GIVEN;
        b.precedence = b.tos = FIELD_NOT_GIVEN;
        b.dscp = DSCP_NOT_GIVEN;
        b.etherType = 0x806 + i;
        b.arpMarker = i < 2 ? 1 : 0;
        b.vlan = 10 + i;
        b.arpOpcode = i;
        b.mac1[5] = static_cast<uint8_t>(i);
        std::fill(std::begin(b.mac1Mask), std::end(b.mac1Mask), uint8_t{0xFF});
        std::fill(std::begin(b.mac2Mask), std::end(b.mac2Mask), uint8_t{0xFF});
        b.src = 0x0A000000 + (i << 8);
        b.srcMask = 0xFFFFFF00;
        b.l2Log = i & 1;
        b.l2CounterOptions = IP_COUNT;
        auto answer = client.ask(message, MT_CLI_COMMAND);
        ASSERT_EQ(answer.size(), sizeof(cliIpEntryReq));
        EXPECT_EQ(resultOf(answer), ACL_OK);
        // The assigned number comes back in the block.
        EXPECT_EQ(uint32_t{reinterpret_cast<cliIpEntryReq*>(answer.data())->block.seq},
                  5 * (i + 1));
    }
    std::string printed = chassis.runningConfig();
    EXPECT_NE(printed.find(" arp "), std::string::npos) << printed;
    EXPECT_NE(printed.find(" ether-type 808 "), std::string::npos) << printed;
    ASSERT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), printed);
}

// The manager is killed while a load is on its way: what was answered must be there.
TEST_F(Configuration, WhatWasAnsweredIsThereAfterAKillInTheMiddleOfALoad) {
    for (int round = 0; round < 3; round++) {
        chassisFixture box;
        ASSERT_TRUE(box.startManager());
        ASSERT_EQ(box.shell({"-f", "-"}, "ip access-list standard K\n").status, 0);
        rawClient client(box);
        std::atomic<uint32_t> answered = 0;
        std::thread killer([&] {
            while (answered < 200u + 150u * static_cast<uint32_t>(round)) std::this_thread::yield();
            kill(box.manager.pid, SIGKILL);
        });
        uint32_t sent = 0, outstanding = 0;
        bool alive = true;
        while (alive) {
            while (outstanding < 8 && alive) {
                auto message = request(CLI_IP_ENTRY_ADD, "K", sizeof(cliIpEntryReq));
                auto* req = reinterpret_cast<cliIpEntryReq*>(message.data());
                req->block.kind = IP_KIND_STANDARD;
                req->block.seq = ++sent;
                req->block.order = ORDER_NOT_GIVEN;
                req->block.dscp = DSCP_NOT_GIVEN;
                req->block.src = 0x0A000000 + sent;
                req->block.srcMask = 0xFFFFFFFF;
                client.fillHeader(message, MT_CLI_COMMAND, sent);
                alive = client.send(message);
                outstanding++;
            }
            std::vector<uint8_t> answer;
            zekSender sender{};
            int got = zekEndpointRecv(client.endpoint, &answer, IPC_BUFFER_SIZE, 100, &sender);
            if (got > 0) {
                EXPECT_EQ(resultOf(answer), ACL_OK);
                answered++;
                outstanding--;
            } else if (!box.manager.running()) {
                alive = false;
            }
        }
        killer.join();
        // Answers that were on their way count as answered.
        std::vector<uint8_t> answer;
        zekSender sender{};
        while (zekEndpointRecv(client.endpoint, &answer, IPC_BUFFER_SIZE, 0, &sender) > 0)
            answered++;
        ASSERT_TRUE(box.killAndRestart());
        std::string printed = box.runningConfig();
        for (uint32_t seq = 1; seq <= answered; seq++)
            ASSERT_NE(printed.find(" seq " + std::to_string(seq) + " "), std::string::npos)
                << "entry " << seq << " of " << answered << " answered";
    }
}

TEST_F(Configuration, TheStartupConfigurationIsTakenWhenNothingRanOrWhenAskedFor) {
    const std::string saved = "ip access-list standard SAVED\n seq 5 permit host 192.0.2.1\n";
    ASSERT_TRUE(chassis.startManager());
    ASSERT_EQ(chassis.shell({"-f", "-"}, saved).status, 0);
    EXPECT_EQ(chassis.shell({"-c", "write memory"}).status, 0);
    std::string printed = chassis.runningConfig();
    EXPECT_EQ(chassis.show("show startup-config"), printed);
    ASSERT_EQ(chassis.shell({"-f", "-"}, "ip access-list standard LATER\n").status, 0);
    std::string later = chassis.runningConfig();

    ASSERT_TRUE(chassis.killAndRestart());
    EXPECT_EQ(chassis.runningConfig(), later);  // what ran, not what was saved

    chassis.manager.stop(SIGTERM);
    ASSERT_TRUE(chassis.startManager({"--cold"}));
    ASSERT_EQ(chassis.shell({"-c", "clear ip access-lists counters"}).status, 0);
    EXPECT_EQ(chassis.runningConfig(), printed);
}

TEST_F(Configuration, AReplyLongerThanADatagramArrivesWhole) {
    ASSERT_TRUE(chassis.startManager());
    std::string text = "ip access-list extended BIG\n";
    for (int i = 0; i < 3000; i++)
        text += " permit tcp host 10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250) +
                " any eq 80\n";
    ASSERT_EQ(chassis.shell({"-f", "-"}, text).status, 0);
    std::string shown = chassis.show("show ip access-lists BIG");
    EXPECT_GT(shown.size(), 65536u);
    EXPECT_EQ(linesOf(shown).size(), 3001u);
    EXPECT_NE(shown.find(" seq 15000 permit tcp"), std::string::npos);
}

TEST_F(Configuration, EveryStatusReachesTheOperatorAsItsSentence) {
    ASSERT_TRUE(chassis.startManager());
    const std::string base =
        "ip access-list standard S\n seq 5 permit any\n"
        "ip access-list extended E\n seq 5 permit ip any any\n"
        "ip trace-list T\n seq 5 deny ip any any\n"
        "ip trace-list U\nip trace-group T\n";
    ASSERT_EQ(chassis.shell({"-f", "-"}, base).status, 0);
    const std::string before = chassis.runningConfig();
    struct {
        const char* typed;
        uint32_t status;
    } rows[] = {
        {"no ip access-list standard NONE", ACL_E_NOLIST},
        {"no ip access-list extended S", ACL_E_NOLIST},
        {"ip access-list standard S\n seq 6 permit any", ACL_E_ENTRY_EXISTS},
        {"ip access-list standard S\n seq 5 deny any", ACL_E_SEQ_USED},
        {"ip access-list standard S\n no deny any", ACL_E_NOENTRY},
        {"ip access-list standard S\n no seq 77", ACL_E_NOSEQ},
        {"ip access-list standard S\n seq 4294967291 deny any", ACL_E_SEQ_RANGE},
        {"ip access-list extended S", ACL_E_IS_STANDARD},
        {"ip access-list standard E", ACL_E_IS_EXTENDED},
        {"ip trace-group U", ACL_E_OTHER_DOS},
        {"no ip trace-list NONE", ACL_E_NODOS},
        {"no ip trace-group NONE", ACL_E_NODOS},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.typed);
        commandResult result = chassis.shell({"-f", "-"}, std::string(row.typed) + "\n");
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find(aclStatusFind(row.status)->text), std::string::npos)
            << result.err << result.out;
    }
    EXPECT_EQ(chassis.runningConfig(), before);  // a refusal leaves no trace
}
