// Restarts as a property: whatever requests have made of the configuration, values outside the
// shell's grammar included, the records of its lines make it again: the same database, the same
// shows, the same downloads, byte for byte.
#include <map>
#include <random>

#include "download/zekacl_download.h"
#include "include/policyMsg.h"
#include "ipacl/zekipaccess.h"
#include "platform/base/cfgdb.h"
#include "tests/task/fixture.h"

namespace {

typedef std::vector<uint8_t> bytes;
constexpr uint32_t AGENT = 0x7F010101;
constexpr uint32_t SLOT = 1;

struct RestartTest : TaskTest {
    std::mt19937 random{17};
    std::vector<bytes> sent;  // requests, for later ones that take them back
    std::map<uint32_t, int> accepted;

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random() % n); }
    // What fields are made of: ordinary values and those that no grammar has.
    uint32_t value() {
        constexpr uint32_t odd[] = {
            0,   1,     2,     3,   4,   5,     9,          14,         255,        256,       257,
            300, 0x101, 0x102, 512, 999, 65535, 0x7FFFFFFF, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
        return below(3) == 0 ? below(20) : odd[below(std::size(odd))];
    }
    std::string name() { return below(8) == 0 ? std::string(140, 'n') : below(2) == 0 ? "A" : "B"; }
    template <class Request>
    bytes request(uint32_t code, const std::function<void(Request&)>& fill = {}) {
        return cli<Request>(code, name(), [&fill](Request& r) {
            if (fill) fill(r);
        });
    }
    void scatter(void* record, size_t size, uint32_t words) {
        auto* fields = static_cast<be32*>(record);
        for (uint32_t i = 0; i < words; i++)
            fields[below(static_cast<uint32_t>(size / 4))] = value();
    }
    std::string expression() {
        static const char* const parts[] = {"_65001_", "^1", ".*", "[0-9]+", "(1|2)", " 7 ", "$"};
        std::string text;
        for (uint32_t n = 1 + below(below(6) == 0 ? 60 : 4); n > 0; n--) text += parts[below(7)];
        return text.substr(0, 229);
    }
    bytes ipEntry(uint32_t code) {
        return request<cliIpEntryReq>(code, [&](cliIpEntryReq& r) {
            r.block = standardBlock(value(), below(3) == 0 ? value() : SEQ_NOT_GIVEN);
            r.block.kind = below(4) == 0 ? value() : 1 + below(2);
            r.block.srcMask = value();
            r.block.protocol = static_cast<uint8_t>(below(2) == 0 ? 6 : value());
            scatter(&r.block, sizeof r.block, below(8));
            if (below(2) == 0) r.block.seq = SEQ_NOT_GIVEN;
            r.log = below(3) == 0 ? value() : 0;
            r.monitor = below(3);
        });
    }
    bytes binding() {
        return request<cliBindReq>(CLI_IP_BIND, [&](cliBindReq& r) {
            constexpr uint32_t places[] = {0x04040000, 0x04080000, 0x00030007, 0x0003800A,
                                           0x42040000, 0x04048000, 0x84040000, 0x00030099};
            r.ifindex = places[below(8)];
            r.direction = below(2);
            r.implicitPermit = below(3) == 0 ? value() : 0;
            r.writeConfig = 1u;  // what is not written is not to come back
            r.vlanOption = below(2);
            scatter(r.block, sizeof r.block, below(4));
            const std::string text(below(4) == 0 ? 200 : below(6), '7');
            std::memcpy(r.vlanText, text.data(), text.size());
        });
    }
    bytes clause(uint32_t code) {
        return request<cliRmapClauseReq>(code, [&](cliRmapClauseReq& r) {
            const auto& row = rmapCodeTable[below(std::size(rmapCodeTable))];
            r.clause.cls = static_cast<uint16_t>(1 + below(5));
            r.clause.code = row.code;
            r.clause.kind = row.kind;
            r.clause.seq = 10 * (1 + below(3));
            r.clause.action = below(2);
            r.clause.value = value();
            r.clause.subValue = static_cast<uint16_t>(below(4));
            r.clause.list = listNameMake(below(2) == 0 ? "A" : "B");
            scatter(&r.clause.community, sizeof r.clause.community, below(20));
            if (below(2) == 0) r.clause.community.count = below(34);
            scatter(r.clause.dampening, sizeof r.clause.dampening, below(5));
            scatter(&r.clause.prepend, sizeof r.clause.prepend, below(6));
            scatter(&r.clause.extCommunity, sizeof r.clause.extCommunity, below(8));
            r.clause.extCommunity.values[0].b[1] = static_cast<uint8_t>(2 + below(3));
            r.clause.ipv6NextHop[below(16)] = static_cast<uint8_t>(value());
            r.clause.continueFlag = below(2);
            r.clause.continueTarget = below(60);
            r.operation = below(4) == 0;
        });
    }
    template <class Request>
    bytes prefix(uint32_t code) {
        return request<Request>(code, [&](Request& r) {
            r.entry.seq = below(2) == 0 ? 0 : value();
            r.entry.action = value();
            r.entry.ge = below(2) == 0 ? 0 : value();
            r.entry.le = below(2) == 0 ? 0 : value();
            r.entry.len = static_cast<uint8_t>(below(6) == 0 ? 255 : below(33));
            r.entry.address[below(sizeof r.entry.address)] = static_cast<uint8_t>(value());
            r.entry.mask[0] = static_cast<uint8_t>(value());
        });
    }
    bytes otherFamily() {
        if (below(3) == 0)
            return request<cliListReq>(below(2) == 0 ? 1162 : 1103,
                                       [&](cliListReq& q) { q.kind = 1 + below(2); });
        if (below(2) == 0)
            return request<cliIp6EntryReq>(1166, [&](cliIp6EntryReq& q) {
                q.block.protocol = static_cast<uint8_t>(below(2) == 0 ? 58 : value());
                q.block.src[below(16)] = static_cast<uint8_t>(value());
                scatter(&q.block, sizeof q.block, below(6));
                q.block.seq = below(2) == 0 ? SEQ_NOT_GIVEN : value();
                q.log = below(2);
                q.monitor = below(3);
            });
        return request<cliMacEntryReq>(1099, [&](cliMacEntryReq& q) {
            q.block.src[below(6)] = static_cast<uint8_t>(value());
            scatter(&q.block, sizeof q.block, below(4));
            q.block.type = 1 + below(2);
            q.block.seq = below(2) == 0 ? SEQ_NOT_GIVEN : value();
            q.counterOptions = below(8);
            q.order = value();
            q.log = below(2);
            q.monitor = below(3);
        });
    }
    bytes remark() {
        return request<cliRemarkReq>(std::array{1142u, 1169u, 1144u}[below(3)],
                                     [&](cliRemarkReq& r) {
                                         r.seq = below(4) == 0 ? value() : 5 * below(6);
                                         expression().copy(r.text, REMARK_LEN);
                                     });
    }
    bytes description() {
        return request<cliDescriptionReq>(CLI_DESCRIPTION, [&](cliDescriptionReq& r) {
            constexpr uint32_t kinds[] = {1000, 1005, 1010, 1014, 1016,
                                          1021, 1051, 1153, 1103, 1162};
            r.kind = kinds[below(10)];
            r.seq = 10 * (1 + below(3));
            r.remove = below(4) == 0;
            expression().copy(r.text, DESCRIPTION_LEN);
        });
    }
    bytes make() {
        const uint32_t n = below(43);
        if (n < 2) return request<cliListReq>(1000, [&](cliListReq& r) { r.kind = 1 + below(2); });
        if (n < 6) return ipEntry(1002);
        if (n < 7)
            return request<cliListReq>(1005,
                                       [&](cliListReq& r) { r.kind = below(3) ? 0 : value(); });
        if (n < 9) return ipEntry(1007);
        if (n < 10) return request<cliHdr>(1040 + below(2));
        if (n < 12) return binding();
        if (n < 13) return request<cliHdr>(std::array{1010u, 1014u, 1016u}[below(3)]);
        if (n < 15)
            return request<cliAspathReq>(1011, [&](cliAspathReq& r) {
                r.action = value();
                r.option = value();
                expression().copy(r.text, sizeof r.text);
            });
        if (n < 17)
            return request<cliCommReq>(1015, [&](cliCommReq& r) {
                scatter(&r.entry, 104, 2 + below(12));
                r.entry.kind = 1 + below(2);
                r.entry.count = below(11);
                expression().copy(r.entry.text, 200);
            });
        if (n < 19)
            return request<cliExtCommReq>(1017, [&](cliExtCommReq& r) {
                r.entry.action = value();
                r.entry.kind = 1 + below(2);
                r.entry.body.selector = 2 + below(2);
                r.entry.body.count = below(31);
                if (r.entry.kind == COMM_REGEXP)
                    expression().copy(r.entry.body.text, 200);
                else
                    scatter(r.entry.body.values, sizeof r.entry.body.values, 4);
            });
        if (n < 21)
            return request<cliRmapReq>(1021, [&](cliRmapReq& r) {
                r.action = below(2);
                r.seq = below(3) == 0 ? RMAP_SEQ_NOT_GIVEN : 10 * (1 + below(3));
            });
        if (n < 26) return clause(std::array{1025u, 1161u, 1022u, 1188u}[below(4)]);
        if (n < 27) return request<cliHdr>(below(2) == 0 ? 1042 : 1147);
        if (n < 29)
            return below(2) == 0 ? prefix<cliPrefix4Req>(1044) : prefix<cliPrefix6Req>(1149);
        if (n < 30)
            return request<cliPrefixReseqReq>(1185, [&](cliPrefixReseqReq& r) {
                r.start = 1 + below(9);
                r.step = 1 + below(9);
                r.family = 1 + below(2);
            });
        if (n < 31)
            return below(2) == 0 ? message(14517 + below(2))
                                 : request<cliHdr>((below(2) == 0 ? 1100 : 1108) + below(2));
        if (n < 33) return remark();
        if (n < 36) return description();
        if (n < 37)
            return request<cliReseqReq>(1182 + below(3), [&](cliReseqReq& r) {
                r.start = value();
                r.step = below(12);
            });
        if (n < 40) return otherFamily();
        return takeBack();
    }
    // The removal of something that was asked for, or of a whole list.
    bytes takeBack() {
        static const std::map<uint32_t, uint32_t> removals = {
            {1000, 1001}, {1002, 1003}, {1005, 1004}, {1007, 1006}, {1010, 1008}, {1011, 1009},
            {1014, 1012}, {1015, 1013}, {1016, 1019}, {1017, 1018}, {1025, 1024}, {1161, 1160},
            {1042, 1043}, {1044, 1045}, {1142, 1143}, {1144, 1145}, {1169, 1170}, {1162, 1163},
            {1103, 1102}, {1166, 1167}, {1099, 1098}, {1147, 1148}, {1149, 1150}, {1188, 1187}};
        for (int tries = 0; tries < 20 && !sent.empty(); tries++) {
            bytes b = sent[below(static_cast<uint32_t>(sent.size()))];
            if (as<ipcHdr>(b).mtype != MT_CLI_COMMAND) continue;
            const auto found = removals.find(as<cliHdr>(b).code);
            // Entries often, whole lists rarely.
            if (found == removals.end() || (b.size() < 230 && below(6) != 0)) continue;
            as<cliHdr>(b).code = found->second;
            return b;
        }
        return message(14518);
    }

    std::string dump() {
        std::string all;
        (void)sqlite3_exec(
            testCfg()->sql,
            "SELECT section, hex(key), class, text, inverse, hex(record) FROM lines",
            [](void* out, int n, char** columns, char**) {
                for (int i = 0; i < n; i++)
                    *static_cast<std::string*>(out) +=
                        std::string(columns[i] ? columns[i] : "-") + (i + 1 < n ? "|" : "\n");
                return 0;
            },
            &all, nullptr);
        return all;
    }
    std::string shows() {
        std::string all;
        for (uint32_t code :
             {1059u, 30011u, 1066u, 1085u, 1156u, 1087u, 1090u, 1092u, 1094u, 1096u})
            for (const char* list : {"A", "B"}) {
                const bytes b = cli<cliShowReq>(code, list, [&](cliShowReq& r) {
                    r.name = listNameMake(list);
                    r.cli.ipc.sequence = 1u;
                });
                for (const bytes& answer : deliver(b))
                    for (size_t i = sizeof(ipcHdr); i < answer.size(); i++)
                        if (answer[i] != 0) all += static_cast<char>(answer[i]);
                // Which prefix list was touched last, and numbers left over from deleted entries,
                // are no part of the configuration.
                for (const char* history : {"Prefix-list with the last", "sequences: "})
                    if (size_t at = all.rfind(history); at != all.npos)
                        all.erase(at, all.find('\r', at) - at);
                all += "\n" + std::to_string(code) + " " + list + "\n";
            }
        return all;
    }
    std::vector<bytes> downloads() {
        aclLinecard& card = aclLinecardInfo[SLOT];
        card.isUp = card.isVortan = card.isIpv6Enabled = 1;
        card.agentIpAddr = AGENT;
        EXPECT_EQ(iAclSwpQueueCreate(SLOT, QUEUE_ACL_AGENT), 0);
        testTake();
        AclUpdateAclAgent(SLOT);
        std::vector<bytes> all;
        for (testRow& row : testTakeRows())
            if (row.text.starts_with("swp ")) all.push_back(row.bytes);
        return all;
    }
    std::vector<cfgStoredRow> records() {
        std::vector<cfgStoredRow> all, page;
        cfgStoredRow last;
        while (cfgDbReadRecords(testCfg(), last, &page) == 0 && !page.empty()) {
            last = page.back();
            all.insert(all.end(), page.begin(), page.end());
        }
        return all;
    }
    static bool done(const std::vector<bytes>& answers) {
        return answers.size() == 1 && msgWord(answers[0].data(), offsetof(cliHdr, result)) == 0;
    }
    // A new task with an empty database, and the records sent to it.
    void restart(const std::vector<cfgStoredRow>& rows) {
        TearDown();
        SetUp();
        static uint8_t body[CFG_REQUEST_MAX];
        for (const cfgStoredRow& row : rows) {
            const zekCfgRequest request = cfgRecordRead(row.record, body);
            bytes b = message(request.mtype, sizeof(ipcHdr) + request.body.size());
            std::copy(request.body.begin(), request.body.end(), b.begin() + sizeof(ipcHdr));
            cfgStoredRow other = row;
            other.text += "?";  // not the line that the task writes: so that it is written
            cfgDbSetRestoring(testCfg(), &other);
            const auto answers = deliver(b);
            cfgDbSetRestoring(testCfg(), nullptr);
            ASSERT_EQ(answers.size(), 1u) << row.text;
            ASSERT_TRUE(request.mtype != MT_CLI_COMMAND || done(answers)) << row.text;
        }
    }
};

TEST_F(RestartTest, WhateverWasAnsweredComesBackTheSameToTheByte) {
    const char* wanted = getenv("ACL_CONFIGURATIONS");
    const int rounds = wanted != nullptr ? atoi(wanted) : 200;
    for (int round = 0; round < rounds; round++) {
        SCOPED_TRACE("configuration " + std::to_string(round));
        random.seed(static_cast<uint32_t>(round));
        sent.clear();
        for (uint32_t n = 20 + below(60); n > 0; n--) {
            const bytes b = make();
            sent.push_back(b);
            const auto answers = deliver(b);
            if (b.size() > sizeof(ipcHdr) && done(answers))
                accepted[msgWord(b.data(), offsetof(cliHdr, code))]++;
        }
        const std::string database = dump(), shown = shows();
        const std::vector<bytes> sentDown = downloads();
        const auto settings = [] {
            return std::pair(aclNode->config.l2_user_egr_acl_enable, aclNode->protocol.acl_dhcp);
        };
        const auto set = settings();
        restart(records());
        ASSERT_EQ(dump(), database);
        ASSERT_EQ(shows(), shown);
        ASSERT_TRUE(downloads() == sentDown);
        ASSERT_EQ(settings(), set);
    }
    // Every kind of line was there.
    for (uint32_t code : {1000u, 1002u, 1003u, 1005u, 1007u, 1011u, 1015u, 1017u, 1021u, 1022u,
                          1025u, 1039u, 1041u, 1044u, 1099u, 1103u, 1162u, 1166u, 1142u, 1144u,
                          1169u, 1143u, 1149u, 1153u, 1161u, 1182u, 1185u, 1100u, 1108u})
        EXPECT_GT(accepted[code], rounds / 50) << code;
}

}  // namespace
