// Addresses and prefixes of either family among a debug function's arguments and in its answers.
#pragma once

#include <arpa/inet.h>

#include <optional>
#include <string>
#include <string_view>

#include "ask/debugWords.h"
#include "include/ipText.h"
#include "match/zekPrefix.h"

// The bytes of an address as the family writes it. False: it is none.
inline bool parseAddressBytes(uint32_t af, std::string_view word, uint8_t (&bytes)[16]) {
    return inet_pton(af == AF_IPV4 ? AF_INET : AF_INET6, std::string(word).c_str(), bytes) == 1;
}

// Address and length as two words. The address keeps its bits behind the length.
inline std::optional<ipPrefix> parsePrefix(uint32_t af, std::string_view address,
                                           std::string_view length) {
    uint8_t bytes[16];
    auto bits = parseNumber(length, af == AF_IPV4 ? 32 : 128);
    if (!bits || !parseAddressBytes(af, address, bytes)) return {};
    return ipPrefixMake(af, bytes, *bits);
}
// ADDRESS/LENGTH; a colon says that it is of IPv6.
inline std::optional<ipPrefix> parsePrefix(std::string_view word) {
    const size_t slash = word.find('/');
    if (slash == word.npos) return {};
    const uint32_t af = word.find(':') == word.npos ? AF_IPV4 : AF_IPV6;
    return parsePrefix(af, word.substr(0, slash), word.substr(slash + 1));
}

inline std::string addressText(uint32_t af, const uint8_t* bytes) {
    std::string text;
    textAddress(text, af == AF_IPV4, bytes);
    return text;
}
