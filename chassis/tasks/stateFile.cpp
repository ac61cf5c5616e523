// The state as JSON: interfaces by their indexes, which stay when the chassis's names change.
#include "chassis/tasks/stateFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "include/ifmMsg.h"
#include "include/jsonText.h"

namespace {

using json = nlohmann::json;

constexpr uint32_t VERSION = 1;
constexpr const char* lineNames[LINE_COUNT] = {"interfaces", "vrrp", "protocols"};

// --- bytes as text -------------------------------------------------------------------------------

std::string hexText(std::span<const uint8_t> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}
std::vector<uint8_t> hexBytes(const std::string& text) {
    std::vector<uint8_t> bytes;
    auto digit = [](char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        throw std::runtime_error("a digit that is none");
    };
    if (text.size() % 2 != 0) throw std::runtime_error("half a byte");
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(digit(text[i]) << 4 | digit(text[i + 1])));
    return bytes;
}
template <size_t size>
std::array<uint8_t, size> hexArray(const json& value) {
    const std::vector<uint8_t> bytes = hexBytes(value.get<std::string>());
    std::array<uint8_t, size> array{};
    if (bytes.size() != size) throw std::runtime_error("an address of another length");
    std::ranges::copy(bytes, array.begin());
    return array;
}
uint32_t number(const json& value) {  // the library would convert what is none
    if (!value.is_number_unsigned() || value.get<uint64_t>() > UINT32_MAX)
        throw std::runtime_error(value.dump() + " is no number of 32 bits");
    return value.get<uint32_t>();
}
uint32_t indexOf(const std::string& text) {
    uint32_t index;
    if (!chassisIndexParse(text, &index) || !ifmIsInterface(index))
        throw std::runtime_error(text + " is no interface");
    return index;
}

// --- parts ---------------------------------------------------------------------------------------

// The values that an interface may have one of.
constexpr struct {
    const char* key;
    std::optional<uint32_t> ifmInterface::*member;
} interfaceValues[] = {
    {"group", &ifmInterface::group},
    {"state", &ifmInterface::state},
    {"mode", &ifmInterface::mode},
};

// Written without a tree in between: every command writes the whole file.
void appendIndex(std::string* text, uint32_t index) {
    static constexpr char digits[] = "0123456789abcdef";
    char word[] = "\"0x00000000\"";
    for (int i = 0; i < 8; i++) word[10 - i] = digits[index >> 4 * i & 15];
    *text += word;
}
// Calls fn(text, item) for each with commas between.
template <class Items, class Fn>
std::string listText(const Items& items, Fn fn) {
    std::string text = "[";
    for (const auto& item : items) {
        if (text.size() > 1) text += ',';
        fn(&text, item);
    }
    return text += "]";
}

std::string interfaceText(const ifmInterface& interface) {
    jsonObject value;
    if (!interface.members.empty()) value.raw("members", listText(interface.members, appendIndex));
    if (!interface.addresses.empty())
        value.raw("addresses",
                  listText(interface.addresses, [](std::string* text, const ifmAddress& a) {
                      *text += jsonObject{}
                                   .number("family", a.family)
                                   .string("bytes", hexText(a.bytes))
                                   .number("length", a.length)
                                   .text();
                  }));
    for (const auto& row : interfaceValues)
        if (interface.*row.member) value.number(row.key, *(interface.*row.member));
    return value.text();
}

void readInterface(uint32_t index, const json& value, ifmModel* model) {
    ifmInterface& interface = model->interfaces[index];
    const uint32_t type = ifindexType(index);
    std::set<uint32_t> seen;
    for (const json& text : value.value("members", json::array())) {
        const uint32_t member = indexOf(text.get<std::string>());
        const uint32_t memberType = ifindexType(member);
        const bool fits = memberType == IF_TYPE_PORT
                              ? type == IF_TYPE_LAG || type == IF_TYPE_VLAN
                              : memberType == IF_TYPE_LAG && type == IF_TYPE_VLAN;
        if (!fits || !seen.insert(member).second)
            throw std::runtime_error(chassisIndexText(member) + " cannot be a member there");
        interface.members.push_back(member);
        model->members++;
    }
    for (const json& a : value.value("addresses", json::array())) {
        const ifmAddress address{number(a.at("family")), hexArray<16>(a.at("bytes")),
                                 number(a.at("length"))};
        if ((address.family != 4 && address.family != 6) || address.length == 0 ||
            address.length > (address.family == 6 ? 128u : 32u))
            throw std::runtime_error("an address that is none");
        interface.addresses.push_back(address);
        model->addresses++;
    }
    for (const auto& row : interfaceValues)
        if (value.contains(row.key)) interface.*row.member = number(value.at(row.key));
}

std::string bookText(const lineBook& book) {
    return jsonObject{}
        .number("told", book.told)
        .raw("removals", listText(book.owed,
                                  [](std::string* text, const owedRemoval& owed) {
                                      *text += jsonObject{}
                                                   .string("record", hexText(owed.bytes))
                                                   .number("owed-by", owed.rps)
                                                   .text();
                                  }))
        .text();
}

// A removal goes back to the manager as it stands: only what chassisd could have written.
bool isRemoval(uint32_t line, const std::vector<uint8_t>& bytes) {
    const std::span<const uint8_t> span(bytes);
    if (line != LINE_IFM) {
        const auto* record = wireView<protRecord>(span);
        return bytes.size() == sizeof(protRecord) && protocolName(record->id) != nullptr &&
               (protocolWayOf(record->id) == protocolWay::queue) == (line == LINE_VRRP);
    }
    constexpr struct {
        uint16_t type;
        size_t length;
    } removals[] = {{IFM_SVC_DEL_IF, 8},        {IFM_SVC_DEL_IP, 12},
                    {IFM_SVC_DEL_IP6, 64},      {IFM_TYP_DEL_VLAN_PORT, 12},
                    {IFM_SVC_DEL_LAG_PORT, 12}, {IFM_SVC_DEL_VLAN_MGID, 20},
                    {IFM_SVC_DEL_LAG_MGID, 20}};
    const auto* hdr = wireView<ifmSvcHdr>(span);
    return hdr != nullptr && std::ranges::any_of(removals, [&](const auto& r) {
               return r.type == hdr->type && r.length == hdr->length && r.length == bytes.size();
           });
}

void readBook(uint32_t line, const json& value, lineBook* book) {
    book->told = number(value.at("told")) & RPS_MASK;
    for (const json& removal : value.at("removals")) {
        owedRemoval owed{hexBytes(removal.at("record").get<std::string>()),
                         number(removal.at("owed-by")) & RPS_MASK};
        if (!isRemoval(line, owed.bytes)) throw std::runtime_error("a removal that is none");
        if (owed.rps != 0) book->owed.push_back(std::move(owed));
    }
}

void parse(std::string_view text, neighbourState* state) {
    const json whole = json::parse(text);
    if (number(whole.at("version")) != VERSION) throw std::runtime_error("another version's");
    for (const auto& [index, value] : whole.at("interfaces").items())
        readInterface(indexOf(index), value, &state->interfaces);
    for (const json& value : whole.at("protocols")) {
        const protocolUse use{number(value.at("id")),
                              indexOf(value.at("interface").get<std::string>()),
                              hexArray<6>(value.at("vmac"))};
        if (protocolName(use.id) == nullptr) throw std::runtime_error("a protocol that is none");
        state->protocols.enabled.push_back(use);
    }
    for (uint32_t line = 0; line < LINE_COUNT; line++)
        readBook(line, whole.at("lines").at(lineNames[line]), &state->books[line]);
}

}  // namespace

bool fileReplace(const std::string& file, std::string_view text, std::string* error) {
    const std::string fresh = file + ".new";
    const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    bool written = fd >= 0;
    while (written && !text.empty()) {
        const ssize_t n = write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR) continue;
        written = n > 0;
        if (written) text.remove_prefix(static_cast<size_t>(n));
    }
    written = written && fsync(fd) == 0;
    int why = errno;  // of the first that failed
    if (fd >= 0 && close(fd) != 0 && written) written = false, why = errno;
    if (written && rename(fresh.c_str(), file.c_str()) != 0) written = false, why = errno;
    if (written) return true;
    unlink(fresh.c_str());
    *error = file + " cannot be written: " + std::strerror(why);
    return false;
}

std::string stateText(const neighbourState& state) {
    jsonObject interfaces, lines;
    for (const auto& [index, interface] : state.interfaces.interfaces)
        interfaces.raw(chassisIndexText(index), interfaceText(interface));
    for (uint32_t line = 0; line < LINE_COUNT; line++)
        lines.raw(lineNames[line], bookText(state.books[line]));
    const auto protocol = [](std::string* text, const protocolUse& use) {
        *text += jsonObject{}
                     .number("id", use.id)
                     .string("interface", chassisIndexText(use.ifindex))
                     .string("vmac", hexText(use.vmac))
                     .text();
    };
    return jsonObject{}
               .number("version", VERSION)
               .object("interfaces", interfaces)
               .raw("protocols", listText(state.protocols.enabled, protocol))
               .object("lines", lines)
               .text() +
           "\n";
}

bool stateParse(std::string_view text, neighbourState* state, std::string* error) {
    *state = {};
    try {
        parse(text, state);
        return true;
    } catch (const std::exception& e) {
        *state = {};
        *error = e.what();
        return false;
    }
}

void stateLoad(const std::string& file, neighbourState* state, std::string* error) {
    *state = {};
    std::ifstream in(file, std::ios::binary);
    if (!in && errno == ENOENT) return;
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    std::string why = "it cannot be read";
    if (in && !in.bad() && stateParse(text, state, &why)) return;
    // Kept for whoever wants to know, and out of the way of the next change.
    const std::string aside = file + ".damaged";
    const bool moved = rename(file.c_str(), aside.c_str()) == 0;
    *error =
        file + ": " + why + (moved ? "; it is now " + aside : "") + "; chassisd goes on without it";
}
