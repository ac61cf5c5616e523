// Policy lists in a test's hands: the task on the recording platform, entries and clauses in one
// line, and the kinds of lists as parameters.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <functional>

#include "include/clientMsg.h"
#include "include/policyMsg.h"
#include "tests/support/forget.h"
#include "tests/task/fixture.h"

typedef std::vector<std::string> rows;

constexpr uint32_t PERMIT = 0, DENY = 1;
inline const listName A = listNameMake("A"), B = listNameMake("B"), M = listNameMake("M");

struct PolicyTest : TaskTest {
    uint64_t blocks = 0;
    uint32_t status = 0;

    void SetUp() override {
        TaskTest::SetUp();
        blocks = testBlocksInUse();
    }
    // Whatever a test did, every list can be deleted and gives back all that it took.
    void TearDown() override {
        testFailNothing();
        forgetLists();
        EXPECT_EQ(testBlocksInUse(), blocks) << "blocks leaked";
        rmapAsNotation = AS_NOTATION_PLAIN;
        TaskTest::TearDown();
    }

    // What a show answers: its text, or "status N".
    template <class Show>
    static std::string shown(Show show) {
        void* buffer = nullptr;
        uint32_t size = 0;
        if (const uint32_t refused = show(&buffer, &size); refused != 0) {
            EXPECT_EQ(buffer, nullptr);
            return "status " + std::to_string(refused & 0xFF);
        }
        std::string text = static_cast<char*>(buffer) + SHOW_TEXT_OFFSET;
        EXPECT_LE(SHOW_TEXT_OFFSET + text.size() + 1, size);
        zekMC_M_sysFree(buffer);
        return text;
    }
    static std::string debug(const char* function, std::string_view args) {
        std::string out = "not there";
        EXPECT_TRUE(zekDebugRun(function, args, &out));
        return out;
    }
};

// --- prefix lists -------------------------------------------------------------------------------

// An entry of either family: "10.0.0.0/8 ge 16 le 24" as numbers. `len` 255: the mask counts.
struct prefixGiven {
    alignas(8) uint8_t bytes[sizeof(prefix6EntryBlock)] = {};
    uint32_t af;

    prefixGiven(uint32_t family, uint32_t seq, uint32_t action, const uint8_t* address, uint8_t len,
                int ge, int le, const uint8_t* mask)
        : af(family) {
        record().seq = seq;
        record().action = action;
        record().ge = static_cast<uint32_t>(ge);
        record().le = static_cast<uint32_t>(le);
        record().len = len;
        const size_t width = af == AF_IPV6 ? 16 : 4;
        std::memcpy(bytes + 24, address, width);
        std::memcpy(bytes + 24 + width, mask, width);
    }
    prefixGiven(uint32_t seq, uint32_t action, const char* address, uint8_t len, int ge = 0,
                int le = 0, const char* mask = nullptr)
        : prefixGiven(std::strchr(address, ':') != nullptr ? AF_IPV6 : AF_IPV4, seq, action,
                      bits(address).data(), len, ge, le,
                      mask != nullptr ? bits(mask).data() : maskOf(len).data()) {}
    prefixRecord& record() { return *reinterpret_cast<prefixRecord*>(bytes); }
    const prefixRecord& record() const { return *reinterpret_cast<const prefixRecord*>(bytes); }

    typedef std::array<uint8_t, 16> wide;
    static wide bits(const char* text) {
        wide out{};
        EXPECT_EQ(inet_pton(std::strchr(text, ':') != nullptr ? AF_INET6 : AF_INET, text, &out), 1);
        return out;
    }
    static wide maskOf(uint8_t length) {
        wide out;
        ipRtLen2Mask(length, out.data());
        return out;
    }
};

struct PrefixTest : PolicyTest {
    static prefixList* create(const char* name, uint32_t af = AF_IPV4) {
        uint32_t refused = 1;
        prefixList* list = ipPrefixListCreate(listNameMake(name), 0, &refused, af);
        EXPECT_EQ(refused, 0u);
        testTake();
        return list;
    }
    static uint32_t add(const char* name, const prefixGiven& entry) {
        return ipAddPrefixEntry(listNameMake(name), entry.record(), entry.af);
    }
    static uint32_t del(const char* name, const prefixGiven& entry) {
        return ipDelPrefixEntry(listNameMake(name), entry.record(), 1, entry.af);
    }
    static std::vector<uint32_t> numbers(const prefixList* list) {
        std::vector<uint32_t> seqs;
        for (const prefixEntry* e = list->head; e != nullptr; e = e->next)
            seqs.push_back(e->record->seq);
        return seqs;
    }
    // One page; *resume goes on.
    static std::string page(const char* name, uint32_t* resume, uint32_t af = AF_IPV4,
                            uint32_t lastChanged = 0) {
        return shown([&](void** buffer, uint32_t* size) {
            const uint32_t refused =
                prefixShowIpList(listNameMake(name), buffer, size, lastChanged, resume, af);
            EXPECT_EQ(*size, refused != 0 ? 0 : PREFIX_SHOW_BUFFER);
            return refused;
        });
    }
};

// --- AS-path and community lists ----------------------------------------------------------------

inline commEntryBlock communities(uint32_t action, const std::vector<uint32_t>& values) {
    commEntryBlock b{};
    b.action = action;
    b.kind = COMM_VALUES;
    b.count = static_cast<uint32_t>(values.size());
    for (size_t i = 0; i < values.size(); i++) {
        b.high[i] = values[i] >> 16;
        b.low[i] = values[i] & 0xFFFF;
    }
    return b;
}
inline commEntryBlock communityText(uint32_t action, const std::string& text) {
    commEntryBlock b{};
    b.action = action;
    b.kind = COMM_REGEXP;
    std::strncpy(b.text, text.c_str(), sizeof b.text - 1);
    return b;
}
inline extCommValue target(uint8_t type, uint32_t high, uint32_t low, uint8_t subtype = 2) {
    const bool wide = (type & 0x3F) != 0;
    uint64_t v = wide ? uint64_t{high} << 16 | low : uint64_t{high} << 32 | low;
    extCommValue out{{type, subtype}};
    for (size_t i = 0; i < 6; i++) out.b[2 + i] = static_cast<uint8_t>(v >> (40 - 8 * i));
    return out;
}
inline extCommEntryBlock targets(uint32_t action, const std::vector<extCommValue>& values,
                                 extCommSelector selector = EXTCOMM_RT) {
    extCommEntryBlock b{};
    b.action = action;
    b.kind = COMM_VALUES;
    b.body.selector = static_cast<uint32_t>(selector);
    b.body.count = static_cast<uint32_t>(values.size());
    std::ranges::copy(values, b.body.values);
    return b;
}
inline extCommEntryBlock targetText(uint32_t action, const std::string& text) {
    extCommEntryBlock b{};
    b.action = action;
    b.kind = COMM_REGEXP;
    std::strncpy(b.body.text, text.c_str(), sizeof b.body.text - 1);
    return b;
}

// A kind of BGP list. Its entries are numbered: even ones permit, odd ones deny.
struct bgpKind {
    const char *head, *section, *sync, *trigger;
    uint32_t noList, exists, noEntry, listMemory, entryMemory;
    const char *front, *behind;  // of the number in an entry's line
    bgpList* (*create)(const listName& name, uint32_t placeholder, uint32_t* status);
    bgpList* (*find)(const listName& name);
    uint32_t (*remove)(const listName& name);
    uint32_t (*add)(const listName& name, uint32_t n);
    uint32_t (*del)(const listName& name, uint32_t n);

    std::string line(uint32_t n) const {
        return (n % 2 != 0 ? " deny " : " permit ") + (front + std::to_string(n)) + behind;
    }
};
inline const bgpKind bgpListKinds[] = {
    {"ip as-path access-list A", "80", "10", "swp 1 14464 length 292", ACL_E_ASPATH_NOLIST,
     ACL_E_ASPATH_EXISTS, ACL_E_ASPATH_NOENTRY, ACL_E_LIST_MEMORY, ACL_E_ASPATH_MEMORY, "_", "_ ",
     bgpASPAccessListCreate, bgpASPAccessListFind, bgpASPAccessListDelete,
     [](const listName& name, uint32_t n) {
         return bgpAddASPAccessEntry(name, n % 2, {"_" + std::to_string(n) + "_"});
     },
     [](const listName& name, uint32_t n) {
         return bgpDelASPAccessEntry(name, n % 2, {"_" + std::to_string(n) + "_"}, 1);
     }},
    {"ip community-list A", "81", "11", "swp 1 14465 length 292", ACL_E_COMM_NOLIST,
     ACL_E_COMM_EXISTS, ACL_E_COMM_NOENTRY, ACL_E_LIST_MEMORY, ACL_E_COMM_MEMORY, "65000:", "",
     bgpCommAccessListCreate, bgpCommAccessListFind, bgpCommAccessListDelete,
     [](const listName& name, uint32_t n) {
         return bgpAddCommAccessEntry(name, communities(n % 2, {65000u << 16 | n}));
     },
     [](const listName& name, uint32_t n) {
         return bgpDelCommAccessEntry(name, communities(n % 2, {65000u << 16 | n}));
     }},
    // An entry that is there already is answered as in a community list: meant.
    {"ip extcommunity-list A", "82", "35", "", ACL_E_EXTCOMM_NOLIST, ACL_E_COMM_EXISTS,
     ACL_E_EXTCOMM_NOENTRY, ACL_E_EXTCOMM_MEMORY, ACL_E_EXTCOMM_MEMORY, "rt 65000:", " ",
     bgpExtCommListCreate, bgpExtCommListFind, bgpExtCommListDelete,
     [](const listName& name, uint32_t n) {
         return bgpAddExtCommListEntry(name, targets(n % 2, {target(0, 65000, n)}));
     },
     [](const listName& name, uint32_t n) {
         return bgpDelExtCommListEntry(name, targets(n % 2, {target(0, 65000, n)}));
     }},
};

// --- route maps ---------------------------------------------------------------------------------

constexpr uint16_t MATCH = RTMAP_MS_MATCH, MATCH6 = RTMAP_MS_V6_MATCH, SET = RTMAP_MS_SET,
                   SET6 = RTMAP_MS_V6_SET, CONTINUE = RTMAP_CONTINUE;

struct clause : rmapClauseBlock {
    clause(uint16_t clauseClass, uint32_t clauseCode, int32_t number = 10) : rmapClauseBlock{} {
        cls = clauseClass;
        code = clauseCode;
        seq = static_cast<uint32_t>(number);
        const rmapCodeRow* row = rmapCodeFind(clauseCode);
        kind = row != nullptr ? uint32_t{row->kind} : 0u;
    }
    template <class Change>
    clause with(Change change) const {
        clause c = *this;
        change(c);
        return c;
    }
    rmapClauseBlock* self() { return this; }  // the operations write into it
    clause list(const char* name) const {
        return with([=](rmapClauseBlock& b) { b.list = listNameMake(name); });
    }
    clause number(uint32_t v, uint16_t sub = 0) const {
        return with([=](rmapClauseBlock& b) { b.value = v, b.subValue = sub; });
    }
    clause ext(const extCommValue& v, uint32_t additive = 0) const {
        return with([=](rmapClauseBlock& b) {
            b.extCommunity.values[0] = v;
            b.extCommunity.count = 1;
            b.extCommunity.additive = additive;
        });
    }
};
