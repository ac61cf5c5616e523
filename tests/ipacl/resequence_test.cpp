// Renumbering a list of any family against a model written from what it must do: numbers, lines and
// their records, trees, what cards and tasks are sent; and memory that runs out anywhere.
#include <map>
#include <random>
#include <set>

#include "common/description.h"
#include "common/message.h"
#include "include/agentMsg.h"
#include "include/service.h"
#include "platform/base/cfgdb.h"
#include "tests/support/ipaclTest.h"

namespace {

constexpr uint32_t CARDS[] = {1, 2, 12, 13};  // with agents; all but 2 and 12 are up
constexpr zekSwpHandle queueOf(uint32_t slot) {
    return slot + 50;
}

class Resequence : public OfFamily {
  protected:
    typedef std::vector<std::pair<uint32_t, uint32_t>> numberPairs;
    // What the list must hold: rules and texts by number.
    struct model {
        std::map<uint32_t, uint32_t> entries;
        std::map<uint32_t, std::string> remarks;
        std::string description;

        numberPairs renumber(uint32_t start, uint32_t step) {
            model old;
            numberPairs pairs;
            std::swap(old, *this);
            description = old.description;
            std::map<uint32_t, int> items;
            for (const auto& [seq, n] : old.entries) items[seq];
            for (const auto& [seq, text] : old.remarks) items[seq];
            for (const auto& [seq, unused] : items) {
                if (old.remarks.contains(seq)) remarks[start] = old.remarks[seq];
                if (old.entries.contains(seq)) {
                    entries[start] = old.entries[seq];
                    pairs.emplace_back(seq, start);
                }
                start += step;
            }
            return pairs;
        }
        uint32_t items() const {
            std::set<uint32_t> all;
            for (const auto& [seq, n] : entries) all.insert(seq);
            for (const auto& [seq, text] : remarks) all.insert(seq);
            return static_cast<uint32_t>(all.size());
        }
    };

    void SetUp() override {
        OfFamily::SetUp();
        for (uint32_t slot : CARDS) {
            aclLinecard& card = aclLinecardInfo[slot];
            card.aclAgent = queueOf(slot);
            testHost.queues[queueOf(slot)] = {0, acl_Swp_Free};
            card.agentIpAddr = 0x7F010100 + slot;
            card.isVortan = card.isIpv6Enabled = 1;
            card.isUp = slot == 2 || slot == 12 ? 0 : 1;
        }
    }
    uint32_t run(uint32_t start, uint32_t step, const listName& name = A) const {
        constexpr decltype(&ipReseqTheAccessList) fronts[] = {
            ipReseqTheAccessList, ipReseqTheV6AccessList, l2ReseqTheAccessList};
        return fronts[f.row.place](name, start, step);
    }
    aclList* build(const model& m) {
        aclList* list = make();
        describe(m.description);
        for (const auto& [seq, text] : m.remarks) EXPECT_EQ(aclRemarkAdd(list, seq, text), 0u);
        for (const auto& [seq, n] : m.entries) EXPECT_EQ(add(n, seq), 0u);
        return list;
    }
    void describe(const std::string& text) const {
        if (text.empty()) return;
        cfgDescription description = cfgDescriptionOf(*f.row.block, f.row.textFamily, A);
        description.given = true;
        description.request = cfgCommand<cliDescriptionReq>(CLI_DESCRIPTION, A);
        text.copy(description.request.text, DESCRIPTION_LEN);
        cfgDescriptionWrite(description);
    }
    rows linesOf(const model& m) const {
        rows out = {"!", f.header + std::string("A")};
        if (!m.description.empty()) out.push_back(" description " + m.description);
        std::map<uint32_t, rows> byNumber;
        for (const auto& [seq, text] : m.remarks)
            byNumber[seq].push_back(" remark " + std::to_string(seq) + " " + text);
        for (const auto& [seq, n] : m.entries)
            byNumber[seq].push_back(" seq " + std::to_string(seq) + " " + f.text(n));
        for (const auto& [seq, lines] : byNumber) out.insert(out.end(), lines.begin(), lines.end());
        return out;
    }
    // Every row of the database, with the record that a restart sends.
    static std::string database() {
        std::string all;
        (void)sqlite3_exec(
            testCfg()->sql, "SELECT section, hex(key), class, text, hex(record) FROM lines",
            [](void* out, int n, char** columns, char**) {
                for (int i = 0; i < n; i++)
                    *static_cast<std::string*>(out) +=
                        std::string(columns[i] ? columns[i] : "-") + "|";
                return 0;
            },
            &all, nullptr);
        return all;
    }
    void expectIs(const aclList* list, const model& m) {
        EXPECT_EQ(testCfgLines(), linesOf(m));
        words seqs;
        for (const auto& [seq, n] : m.entries) seqs.push_back(seq);
        EXPECT_EQ(numbers(list), seqs);
        EXPECT_EQ(list->highestSeq, seqs.empty() ? 0 : seqs.back());
        const listEntry* entry = list->head;
        for (const auto& [seq, n] : m.entries) {
            const anyBlock block(f, n, seq);
            EXPECT_EQ(aclDupFindSeq(list, block.seq), entry);
            EXPECT_TRUE(f.row.sameRule(entryBlock(*entry), block.bytes));
            entry = entry->next;
            be32 before;
            before = seq - 1;
            if (seq != 0 && !m.entries.contains(seq - 1)) {
                EXPECT_EQ(aclDupFindSeq(list, before), nullptr);
            }
        }
        EXPECT_EQ(zekRadixCount(list->seqTree), m.entries.size());
        const aclRemark* remark = list->remarks.head;
        for (const auto& [seq, text] : m.remarks) {
            ASSERT_NE(remark, nullptr);
            EXPECT_EQ(remark, aclRemarkFind(list->remarks, seq));
            EXPECT_EQ(remark->text, text);
            remark = remark->next;
        }
        EXPECT_EQ(remark, nullptr);
    }
    // The pairs that each slot was sent, and how many messages they came in.
    struct toldPairs {
        numberPairs pairs;
        size_t messages = 0;
    };
    std::map<uint32_t, toldPairs> bundles(const std::vector<testRow>& told,
                                          uint32_t entries) const {
        std::map<uint32_t, toldPairs> all;
        for (const testRow& row : told) {
            if (!row.text.starts_with("swp ")) continue;
            EXPECT_EQ(row.bytes.size(), sizeof(agentReseqMsg));
            if (row.bytes.size() != sizeof(agentReseqMsg)) continue;
            const auto& m = *reinterpret_cast<const agentReseqMsg*>(row.bytes.data());
            const uint32_t slot = m.ipc.source.slot;
            EXPECT_EQ(row.text, "swp " + std::to_string(queueOf(slot)) + " 14429 length 8192");
            EXPECT_EQ(uint32_t{m.ipc.length}, RESEQ_LENGTH_WORD);
            EXPECT_EQ(uint32_t{m.ipc.source.card}, 0x7F010100 + slot);
            EXPECT_EQ(uint32_t{m.ipc.source.svce}, 7937 + 4 * slot);
            EXPECT_TRUE(m.name == A && m.family == f.row.place && m.flag == 1);
            EXPECT_EQ(uint32_t{m.entryCount}, entries);
            EXPECT_TRUE(m.pairCount >= 1 && m.pairCount <= RESEQ_PAIRS);
            all[slot].messages++;
            for (uint32_t i = 0; i < RESEQ_PAIRS; i++)
                if (i < m.pairCount)
                    all[slot].pairs.emplace_back(m.pairs[i].from, m.pairs[i].to);
                else
                    EXPECT_EQ(m.pairs[i].from + m.pairs[i].to, 0u);
        }
        return all;
    }
    static rows textsOf(const std::vector<testRow>& told) {
        rows out;
        for (const testRow& row : told)
            if (!row.text.starts_with("swp ") && !row.text.starts_with("debug "))
                out.push_back(row.text);
        return sentOf(out);
    }
};
FOR_EVERY_FAMILY(Resequence);

TEST_P(Resequence, IsWhatTheModelDoes) {
    std::mt19937 engine(11);
    auto below = [&engine](uint32_t n) { return static_cast<uint32_t>(engine() % n); };
    for (int round = 0; round < 60; round++) {
        SCOPED_TRACE(round);
        model m;
        const uint32_t range = below(4) == 0 ? f.row.seqMax : 80;
        for (uint32_t n = below(30); n > 0; n--) m.entries[below(range)] = n;
        // As many as fill one message or two, and one more.
        constexpr size_t many[] = {RESEQ_PAIRS, RESEQ_PAIRS + 1, 2 * RESEQ_PAIRS + 1};
        for (uint32_t n = 31; round < 3 && m.entries.size() < many[round]; n++)
            m.entries[100 + 3 * n] = n;
        for (uint32_t n = below(12); n > 0; n--)
            m.remarks[m.entries.empty() || below(2) == 0 ? below(range)
                                                         : m.entries.begin()->first] =
                "text " + std::to_string(n);
        if (below(2) == 0) m.description = "round " + std::to_string(round);
        aclList* list = build(m);
        std::vector<uint32_t> ids;
        for (listEntry* e = list->head; e != nullptr; e = e->next)
            ids.push_back(e->matchCount = e->id * 7);
        const bool isBound = round < 3 || below(2) == 0;
        if (isBound) bind(list, CLIENT_INTERFACE, portIfindex(1, 2));
        // Overlapping the old numbers as often as not, and as far as they go.
        const uint32_t step = 1 + below(12), items = m.items();
        const uint32_t last = items > 0 ? (items - 1) * step : 0;
        const uint32_t start = below(3) == 0 ? f.row.seqMax - last : below(60);
        const model before = m;
        const uint64_t rested = testHost.restedUs;
        testTake();
        if (items > 0) {
            EXPECT_EQ(run(f.row.seqMax - last + 1, step), ACL_E_SEQ_RANGE);
            expectIs(list, before);
        }
        EXPECT_EQ(testTake(), rows{});
        ASSERT_EQ(run(start, step), 0u);
        const auto told = testTakeRows();
        const numberPairs pairs = m.renumber(start, step);
        expectIs(list, m);
        EXPECT_EQ(testHost.restedUs - rested, 1000 * uint64_t{items}) << "a pause an item";
        for (listEntry* e = list->head; e != nullptr; e = e->next)
            EXPECT_EQ(e->matchCount, e->id * 7) << "the entry is the same one";
        const auto sent = bundles(told, static_cast<uint32_t>(m.entries.size()));
        EXPECT_EQ(sent.size(), isBound && !pairs.empty() ? 2u : 0u);
        for (const auto& [slot, got] : sent) {
            EXPECT_TRUE(slot == 1 || slot == 12);
            EXPECT_EQ(got.pairs, pairs);
            EXPECT_EQ(got.messages, (pairs.size() + RESEQ_PAIRS - 1) / RESEQ_PAIRS);
        }
        EXPECT_EQ(textsOf(told), rows{});
        EXPECT_EQ(std::ranges::count(told,
                                     "trigger A n " + std::to_string(list->count) + " id " +
                                         std::to_string(list->lastEntryId),
                                     &testRow::text),
                  1);
        // A restart makes the same of it as the operator would.
        const std::string kept = database();
        clientsFree(list);
        for (const auto& [seq, n] : m.entries) {
            EXPECT_EQ(add(n, 0), ACL_E_ENTRY_EXISTS);
            EXPECT_EQ(del(n), 0u) << "by its content";
        }
        ASSERT_EQ(drop(), 0u);
        EXPECT_EQ(testCfgLines(), rows{});
        build(m);
        EXPECT_EQ(database(), kept);
        ASSERT_EQ(drop(), 0u);
    }
}

TEST_P(Resequence, RefusesWithoutATrace) {
    EXPECT_EQ(run(10, 10), ACL_E_NOLIST);
    make(1, B);
    EXPECT_EQ(run(10, 10, B), ACL_E_NOLIST);
    aclList* list = make();
    EXPECT_EQ(run(f.row.seqMax, 0), 0u) << "nothing to number";
    EXPECT_EQ(run(0xFFFFFFFF, 0xFFFFFFFF), 0u);
    ASSERT_EQ(aclRemarkAdd(list, 9, "it"), 0u);
    EXPECT_EQ(run(f.row.seqMax, 0), 0u) << "one";
    ASSERT_EQ(aclRemarkAdd(list, 9, "it"), 0u);
    ASSERT_EQ(add(1, 9), 0u);
    ASSERT_EQ(aclRemarkDel(list, f.row.seqMax), 0u);
    EXPECT_EQ(run(9, 0), 0u) << "an entry and its remark are one";
    ASSERT_EQ(add(2, 7), 0u);
    const std::string before = state();
    testTake();
    struct {
        uint32_t start, step;
    } const bad[] = {
        {10, 0}, {f.row.seqMax, 1}, {0, f.row.seqMax + 1}, {1, 0xFFFFFFFF}, {0xFFFFFFFF, 1}};
    for (const auto& b : bad) {
        EXPECT_EQ(run(b.start, b.step), ACL_E_SEQ_RANGE) << b.start << " " << b.step;
        EXPECT_EQ(state(), before);
    }
    EXPECT_EQ(testTake(), rows{});
    EXPECT_EQ(run(10, 10), 0u);
    EXPECT_EQ(numbers(list), (words{10, 20}));
    EXPECT_NE(aclRemarkFind(list->remarks, 20), nullptr);
}

// Memory fails once, at every place in turn: the list has all of its old numbers or all of its new
// ones, and a card that could not be told is one that lacks something.
TEST_P(Resequence, FindsItsMemoryBeforeItChangesAnything) {
    for (testPoint point : {TEST_MEMORY, TEST_TREE, TEST_INSERT})
        for (uint64_t nth = 1;; nth++) {
            SCOPED_TRACE(std::to_string(point) + " " + std::to_string(nth));
            ASSERT_LT(nth, 100u);
            model m;
            for (uint32_t n = 0; n < 7; n++) m.entries[3 * n + 1] = n;
            m.remarks = {{4, "four"}, {5, "five"}, {90, "behind"}};
            m.description = "as it was";
            aclList* list = build(m);
            bind(list, CLIENT_INTERFACE, portIfindex(1, 2));
            for (uint32_t slot : CARDS) testHost.queues[queueOf(slot)] = {0, acl_Swp_Free};
            const std::string before = state();
            testTake();
            testFail(point, nth, 1);
            const uint32_t status = run(100, 100);
            const bool reached = testUses(point) >= nth;
            testFailNothing();
            const auto told = testTakeRows();
            if (status != 0) {
                EXPECT_EQ(status, ACL_E_MEMORY);
                EXPECT_EQ(state(), before);
                EXPECT_TRUE(textsOf(told).empty() && bundles(told, 7).empty());
            } else {
                const numberPairs pairs = m.renumber(100, 100);
                auto sent = bundles(told, 7);
                for (uint32_t slot : {1u, 12u})
                    if (testHost.queues[queueOf(slot)].state == zekSwpState::inStep)
                        EXPECT_EQ(sent[slot].pairs, pairs);
                    else
                        EXPECT_TRUE(reached);
            }
            expectIs(list, m);
            ASSERT_EQ(del(3), 0u);  // the trees are whole, whichever they are
            ASSERT_EQ(add(3), 0u);
            clientsFree(list);
            ASSERT_EQ(drop(), 0u);
            if (!reached) {
                EXPECT_EQ(status, 0u);
                EXPECT_GT(nth, 1u) << "nothing failed";
                break;
            }
        }
}

TEST_P(Resequence, TellsEveryoneWhoHasTheList) {
    aclList* list = make();
    for (uint32_t n = 1; n < 4; n++) add(n);
    // Nobody but a client: no card hears of it.
    for (uint32_t app : {APP_SNMP, APP_IPM, APP_SYSADM, APP_OSPF}) bind(list, CLIENT_TASK, app);
    testTake();
    ASSERT_EQ(run(100, 100), 0u);
    auto told = testTakeRows();
    EXPECT_TRUE(bundles(told, 3).empty());
    EXPECT_EQ(textsOf(told), here({"sysadm list in.list A n 3", "ipm0 list in.list A n 3",
                                   "snmp list in.list A n 3"}));
    clientsFree(list);
    // A VLAN group is a place, too.
    bind(list, CLIENT_VLAN_GROUP, 3, 1);
    ASSERT_EQ(run(100, 100), 0u);
    EXPECT_EQ(bundles(testTakeRows(), 3).size(), 2u) << "unchanged numbers have pairs as well";
    // The card that is told of no bundles is sent the list, for each of its own places.
    bind(list, CLIENT_INTERFACE, portIfindex(13, 2))->implicitPermit = 7;
    bind(list, CLIENT_INTERFACE, portIfindex(1, 2));
    ASSERT_EQ(run(1, 1), 0u);
    told = testTakeRows();
    EXPECT_EQ(bundles(told, 3).size(), 2u);
    char port[40];
    std::snprintf(port, sizeof port, "in.list A to %#x", portIfindex(13, 2));
    ASSERT_EQ(textsOf(told).size(), 1u);
    EXPECT_TRUE(textsOf(told)[0].starts_with(here({port})[0])) << textsOf(told)[0];
    EXPECT_TRUE(textsOf(told)[0].ends_with(" n 3 option 7"));
    // So is the control processor's agent.
    if (f.row.onControlPlane) {
        clientsFree(list);
        bind(list, CLIENT_INTERFACE, IFINDEX_CP_BIND);
        ASSERT_EQ(run(9, 9), 0u);
        const rows sent = textsOf(testTakeRows());
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_TRUE(sent[0].starts_with(here({"in.list A to "})[0])) << sent[0];
    }
    // A manager that is not primary says nothing to cards.
    testHost.primary = false;
    ASSERT_EQ(run(2, 2), 0u);
    EXPECT_TRUE(bundles(testTakeRows(), 3).empty());
}

}  // namespace
