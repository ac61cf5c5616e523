// Prefix lists as requests have them.
#pragma once

#include "tests/policy/policyTest.h"

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
