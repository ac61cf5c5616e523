// A debug function: what the MAC agent of a card is to hold, in the words of the agents, so that
// the two can be compared row by row.
#include <charconv>
#include <map>

#include "include/agentState.h"
#include "include/jsonText.h"
#include "platform/api/zekTask.h"
#include "protocol/membership.h"
#include "protocol/zekprotocol.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

// The rows of a card's table as texts, by what they are known by.
typedef std::map<std::pair<uint32_t, std::string>, std::string> macTexts;

std::string macText(const uint8_t (&mac)[6]) {
    std::string text;
    for (const uint8_t& byte : mac) text += (text.empty() ? "" : ":") + agentHexText({&byte, 1});
    return text;
}

macTexts traps(uint32_t slot) {
    macTexts rows;
    aclForTrapsOf(slot, [&rows](const macTrapMsg& trap) {
        const std::string mac = macText(trap.mac);
        rows[{trap.ifindex, mac}] = jsonObject{}
                                        .number("ifindex", trap.ifindex)
                                        .string("mac", mac)
                                        .number("vlan", trap.vlan)
                                        .number("egressPort", trap.egressPort)
                                        .number("mode", trap.mode)
                                        .number("lda", trap.lda)
                                        .number("cpus", trap.cpus)
                                        .text();
    });
    return rows;
}
macTexts members(uint32_t slot) {
    macTexts rows;
    aclForMembersOf(slot, [&rows](const macMemberMsg& member) {
        rows[{member.port, std::to_string(member.vlan)}] = jsonObject{}
                                                               .number("port", member.port)
                                                               .number("vlan", member.vlan)
                                                               .number("group", member.mcastId)
                                                               .text();
    });
    return rows;
}
constexpr struct {
    std::string_view name;
    macTexts (*rows)(uint32_t slot);
} tables[] = {{"traps", traps}, {"members", members}};

// A number and the blank behind it; false when there is none.
bool takeNumber(std::string_view* text, uint32_t* number) {
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *number);
    if (error != std::errc{}) return false;
    text->remove_prefix(static_cast<size_t>(end - text->data()));
    if (text->starts_with(' ')) text->remove_prefix(1);
    return true;
}

// "traps SLOT [SKIP]", "members SLOT [SKIP]".
std::string intendedMacs(std::string_view args) {
    for (const auto& table : tables) {
        std::string_view rest = args;
        if (!rest.starts_with(table.name)) continue;
        rest.remove_prefix(table.name.size());
        if (rest.starts_with(' ')) rest.remove_prefix(1);
        uint32_t slot = 0, skip = 0;
        if (!takeNumber(&rest, &slot)) break;
        if (!rest.empty() && !takeNumber(&rest, &skip)) break;
        if (!rest.empty()) break;
        aclLockHeld<aclLock::read> held;
        // The control processor's agent has no such tables.
        const macTexts rows = slot < SLOT_COUNT ? table.rows(slot) : macTexts{};
        std::string items;
        size_t at = 0;
        for (const auto& [key, text] : rows) {
            if (at++ < skip) continue;
            if (at > skip + AGENT_STATE_ROWS_MAX) break;
            items += (items.empty() ? "" : ",") + text;
        }
        jsonObject out;
        out.raw(std::string(table.name).c_str(), "[" + items + "]");
        if (rows.size() > skip + AGENT_STATE_ROWS_MAX)
            out.number("next", skip + AGENT_STATE_ROWS_MAX);
        return out.text();
    }
    return jsonObject{}.string("error", "usage: intended-macs traps|members SLOT [SKIP]").text();
}

}  // namespace

void aclRegisterMacIntentFunctions() {
    zekDebugRegister("intended-macs",
                     "traps|members SLOT [SKIP] what the MAC agent of a card should hold",
                     intendedMacs);
}
