// What the running configuration prints, the shell reads back: random valid lines become blocks, a
// printer of its own writes the blocks as the configuration does, and the text must be the same.
#include <gtest/gtest.h>

#include <random>

#include "cli/parser.h"
#include "include/icmpNames.h"

namespace {

std::string dotted(uint32_t a) {
    return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." +
           std::to_string(a >> 8 & 255) + "." + std::to_string(a & 255);
}
std::string number(uint32_t v) {
    return std::to_string(v);
}

// --- the reference printer -----------------------------------------------------------------------

std::string printAddress(uint32_t address, uint32_t mask, bool inverse) {
    if (mask == 0xFFFFFFFF) return " host " + dotted(address);
    if (address == 0 && mask == 0) return " any";
    int ones = 0;
    while (ones < 32 && (mask >> (31 - ones) & 1) != 0) ones++;
    bool contiguous = ones == 0 ? mask == 0 : mask == 0xFFFFFFFFu << (32 - ones);
    if (contiguous && !inverse) return " " + dotted(address) + "/" + std::to_string(ones);
    return " " + dotted(address) + " " + dotted(inverse ? mask : ~mask);
}

std::string printPort(uint32_t op, uint32_t low, uint32_t high) {
    static const char* const words[] = {"", " eq ", " gt ", " lt ", " neq ", " range "};
    if (op == 0) return "";
    return words[op] + number(low) + (op == 5 ? " " + number(high) : "");
}

std::string printMac(const uint8_t* address, const uint8_t* mask) {
    std::string text;
    bool any = true;
    for (int i = 0; i < 6; i++) any = any && address[i] == 0 && mask[i] == 0xFF;
    if (any) return "any";
    for (int i = 0; i < 12; i++) {
        char byte[4];
        snprintf(byte, sizeof byte, "%02x", i < 6 ? address[i] : mask[i - 6]);
        text += (i == 0 ? "" : i == 6 ? " " : ":") + std::string(byte);
    }
    return text;
}

std::string printIcmp(const ipEntryBlock& b) {
    if (b.icmp.typeGiven == 0) return "";
    for (const icmpNameRow& row : icmpNameTable)
        if (row.type == b.icmp.type &&
            (b.icmp.codeGiven != 0 ? row.code == b.icmp.code : row.code < 0))
            return std::string(" ") + row.word;
    return " " + number(b.icmp.type) + (b.icmp.codeGiven != 0 ? " " + number(b.icmp.code) : "");
}

std::string printEntry(const cliCommand& c, bool inverse) {
    const ipEntryBlock& b = c.block;
    std::string text = " seq " + number(b.seq) + (b.action == 1 ? " deny" : " permit");
    uint32_t log = c.log, count = b.counterOptions & 2u;
    if (b.kind == 2 && b.etherType != 0) {
        char ether[16];
        snprintf(ether, sizeof ether, "%x", uint32_t{b.etherType});
        if (b.arpMarker != 0) {
            text += " arp " + printMac(b.mac1, b.mac1Mask) + " VLAN " + number(b.vlan);
            if (b.arpOpcode != 0) text += " opcode " + number(b.arpOpcode);
            int ones = 0;
            while (ones < 32 && (b.srcMask >> (31 - ones) & 1) != 0) ones++;
            text += b.src == 0 && b.srcMask == 0 ? " any"
                                                 : " " + dotted(b.src) + "/" + std::to_string(ones);
        } else {
            text += std::string(" ether-type ") + ether + " " + printMac(b.mac1, b.mac1Mask) +
                    " VLAN " + number(b.vlan) + " " + printMac(b.mac2, b.mac2Mask);
        }
        log = b.l2Log;
        count = b.l2CounterOptions & 2u;
    } else if (b.kind == 2) {
        bool ports = b.protocol == 6 || b.protocol == 17;
        if (b.protocol == 6)
            text += " tcp";
        else if (b.protocol == 17)
            text += " udp";
        else if (b.protocol == 1)
            text += " icmp";
        else
            text += b.protocol == 4 && b.protoMarker == 0 ? " ip" : " " + number(b.protocol);
        text += printAddress(b.src, b.srcMask, inverse);
        if (ports) text += printPort(b.srcOperator, b.srcLow, b.srcHigh);
        text += printAddress(b.dst, b.dstMask, inverse);
        if (ports) text += printPort(b.dstOperator, b.dstLow, b.dstHigh);
        if (b.dscp < 255) text += " dscp " + number(b.dscp);
        static const char* const flags[] = {"established", "fin", "syn", "rst",
                                            "psh",         "ack", "urg"};
        for (int i = 0; i < 7; i++)
            if (b.protocol == 6 && (b.tcpFlags >> i & 1) != 0) text += std::string(" ") + flags[i];
        if (b.precedence != 0xFFFFFFFF) text += " precedence " + number(b.precedence);
        if (b.tos != 0xFFFFFFFF) text += " tos " + number(b.tos);
        if (b.protocol == 1) text += printIcmp(b);
    } else {
        text += printAddress(b.src, b.srcMask, inverse);
        if (b.dscp < 255) text += " dscp " + number(b.dscp);
    }
    if (b.etherType == 0 && b.fragments == 1) text += " fragments";
    if (log != 0) text += " log";
    if (count != 0) text += " count";
    if ((b.counterOptions & 4) != 0) text += " bytes";
    if (b.order < 255) text += " order " + number(b.order);
    if (c.monitor == 1) text += " monitor";
    return text;
}

// --- random lines as the configuration prints them ----------------------------------------------

struct lineMaker {
    std::mt19937 rng;
    bool inverse;

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(rng()) % n; }
    bool sometimes() { return below(3) == 0; }

    std::string address() {
        uint32_t a = static_cast<uint32_t>(rng());
        switch (below(4)) {
            case 0:
                return " any";
            case 1:
                return " host " + dotted(a);
            case 2: {
                uint32_t length = 1 + below(31);
                uint32_t mask = 0xFFFFFFFFu << (32 - length);
                return printAddress(a, mask, inverse);
            }
            default:
                return printAddress(a, static_cast<uint32_t>(rng()) & 0xFFFFFFFD, inverse);
        }
    }
    std::string port() {
        uint32_t low = below(65536);
        return printPort(below(6), low, low + below(65536 - low));
    }
    std::string mac() {
        if (sometimes()) return "any";
        uint8_t bytes[12];
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
        return printMac(bytes, bytes + 6);
    }
    std::string option(const char* word, uint32_t limit) {
        return sometimes() ? std::string(" ") + word + (limit > 0 ? " " + number(below(limit)) : "")
                           : "";
    }
    std::string icmp() {
        if (sometimes())
            return std::string(" ") + icmpNameTable[below(std::size(icmpNameTable))].word;
        if (sometimes()) return " 200";
        return sometimes() ? " 200 " + number(below(256)) : "";
    }

    std::string line(cliMode mode) {
        bool list = mode != cliMode::trace;
        std::string text =
            " seq " + number(below(1u << 31)) + (below(2) != 0 ? " permit" : " deny");
        bool layer2 = mode == cliMode::extended && below(5) == 0;
        if (mode == cliMode::standard) {
            text += address() + option("dscp", 64);
        } else if (layer2 && below(2) != 0) {
            text += " arp " + mac() + " VLAN " + number(below(4096));
            if (sometimes()) text += " opcode " + number(1 + below(65535));
            text += sometimes()
                        ? " any"
                        : " " + dotted(static_cast<uint32_t>(rng()) | 1) + "/" + number(below(33));
        } else if (layer2) {
            char ether[16];
            snprintf(ether, sizeof ether, "%x", 1 + below(0xFFFF));
            text += std::string(" ether-type ") + ether + " " + mac() + " VLAN " +
                    number(below(4096)) + " " + mac();
        } else {
            static const char* const protocols[] = {"tcp", "udp", "icmp", "ip",
                                                    "4",   "0",   "255",  "47"};
            uint32_t p = below(8);
            text += std::string(" ") + protocols[p] + address() + (p < 2 ? port() : "") +
                    address() + (p < 2 ? port() : "");
            if (list) text += option("dscp", 64);
            for (const tcpFlagRow& row : tcpFlagTable)
                if (p == 0) text += option(row.word, 0);
            text += option("precedence", 8) + option("tos", 16);
            if (p == 2) text += icmp();
        }
        if (list && !layer2) text += option("fragments", 0);
        text += option("log", 0) + option("count", 0) + option("bytes", 0);
        return list ? text + option("order", 255) + option("monitor", 0) : text;
    }
};

}  // namespace

TEST(RoundTrip, WhatTheConfigurationPrintsIsReadBackToTheSameText) {
    for (bool inverse : {false, true})
        for (cliMode mode : {cliMode::standard, cliMode::extended, cliMode::trace}) {
            lineMaker maker{std::mt19937(7), inverse};
            for (int i = 0; i < 5000; i++) {
                std::string line = maker.line(mode);
                cliCommand c;
                cliParseError error;
                ASSERT_EQ(cliParse({mode, inverse, false}, line, &c, &error), cliParsed::command)
                    << line << "\n"
                    << error.text << " at " << error.column;
                ASSERT_EQ(printEntry(c, inverse), line);
                ASSERT_EQ(cliParse({mode, inverse, false}, "no " + line, &c, &error),
                          cliParsed::command);
                EXPECT_TRUE(c.negated);
            }
        }
}
