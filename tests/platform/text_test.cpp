// Texts of addresses, against the C library's.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>

#include "include/ipText.h"

namespace {

TEST(IpText, AnIpv6AddressIsAsTheLibraryWritesIt) {
    std::mt19937 random(6);
    for (int step = 0; step < 200'000; step++) {
        uint8_t bytes[16];
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(random() % 4 == 0 ? random() : 0);
        if (random() % 8 == 0) bytes[10] = bytes[11] = 0xFF;
        if (random() % 4 == 0) std::fill(bytes, bytes + 10, uint8_t{0});
        char expected[INET6_ADDRSTRLEN];
        std::string text;
        textAddress6(text, bytes);
        ASSERT_EQ(text, inet_ntop(AF_INET6, bytes, expected, sizeof expected));
    }
}

}  // namespace
