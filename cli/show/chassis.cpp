// What chassisd is asked: events, roles, clients, interfaces and protocols.
#include "cli/show/render.h"
#include "include/chassisControl.h"

namespace {

// By the status of chassisd's answer; 0 is success.
constexpr const char* chassisSentences[] = {"",
                                            "No manager is there to be told",
                                            "The manager has not answered in time",
                                            "There is no such card or route processor",
                                            "The run folder cannot be written",
                                            "There is no such task in this chassis",
                                            "The manager has refused it",
                                            "That cannot be"};
// Of what chassisd knows of interfaces and protocols, which is kept whoever has heard of it.
constexpr const char* KEPT = "; chassisd keeps it and tells the manager later";

bool isPlaceCommand(uint32_t command) {
    return command >= CHASSIS_MEMBERS_JOIN && command <= CHASSIS_PROTOCOL_DISABLE;
}

// The interfaces that a text names one after another: "vlan 10 port-channel 1 2/0". False with the
// name of one that the chassis does not have.
bool readInterfaces(const chassisDescription& chassis, std::string_view text,
                    std::vector<uint32_t>* indexes, std::string* unknown) {
    auto take = [&text] {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        return std::string(word);
    };
    while (!text.empty()) {
        std::string name = take();
        if (name == "vlan" || name == "port-channel") name += " " + take();
        uint32_t index;
        *unknown = name;
        if (!chassisIfIndex(chassis, name, &index)) return false;
        indexes->push_back(index);
    }
    return !indexes->empty();
}

// A request about an interface, with its members behind it.
cliOutcome placeRequest(cliSession* session, const cliCommand& command,
                        std::vector<uint8_t>* bytes) {
    std::vector<uint32_t> indexes;
    std::string unknown;
    if (!readInterfaces(session->chassis, command.text, &indexes, &unknown))
        return refusal(noInterfaceText(unknown));
    if (indexes.size() - 1 > CHASSIS_MEMBERS_MAX)
        return refusal("One command names at most 1024 members");
    bytes->resize(sizeof(chassisPlaceReq) + (indexes.size() - 1) * sizeof(be32));
    auto* request = wireView<chassisPlaceReq>(std::span(*bytes));
    request->argument = command.number;
    request->ifindex = indexes[0];
    request->family = command.direction;
    std::ranges::copy(command.policy.address, request->address);
    std::ranges::copy(command.pair.mac, request->vmac);
    request->count = static_cast<uint32_t>(indexes.size() - 1);
    for (size_t i = 1; i < indexes.size(); i++)
        *wireView<be32>(std::span(*bytes), sizeof *request + (i - 1) * sizeof(be32)) = indexes[i];
    return {};
}

// A request about a card, a role, a client.
cliOutcome plainRequest(const cliCommand& command, std::vector<uint8_t>* bytes) {
    bytes->resize(sizeof(chassisClientReq));
    auto* request = wireView<chassisClientReq>(std::span(*bytes));
    // The last slot stands for the control processor's agent.
    request->argument = command.number == CARD_CONTROL_PLANE ? SLOT_COUNT - 1 : command.number;
    if (command.text.size() >= sizeof request->task)
        return refusal(chassisSentences[CHASSIS_NO_TASK]);
    command.text.copy(request->task, sizeof request->task);
    request->name = listNameMake(command.name);
    return {};
}

std::string refusalText(uint32_t command, uint32_t status, const json& answer) {
    const std::string why = answer.is_object() ? jsonText(answer, "why") : "";
    if (!why.empty()) return why;
    std::string text = chassisSentences[status];
    if (isPlaceCommand(command) && (status == CHASSIS_NOBODY || status == CHASSIS_SILENT))
        text += KEPT;
    return text;
}

// A LAG of 64 ports is no cell of a table.
json shortenCells(json rows) {
    constexpr size_t CELL_WIDTH = 40;
    for (json& row : rows)
        for (auto& [key, cell] : row.items())
            if (cell.is_string()) cell = shortened(cell.get<std::string>(), CELL_WIDTH);
    return rows;
}

}  // namespace

cliOutcome chassisControl(cliSession* session, const cliCommand& command, cliPipe* pipe) {
    std::string error;
    if (!sessionChassis(session, &error) || !sessionConnect(session, &error)) return refusal(error);
    uint32_t address = 0;
    for (const chassisRp& rp : session->chassis.routeProcessors)
        if (rp.primary) address = rp.address;  // chassisd stays there when the role moves
    std::vector<uint8_t> request;
    const cliOutcome made = isPlaceCommand(command.kind) ? placeRequest(session, command, &request)
                                                         : plainRequest(command, &request);
    if (!made.ok) return made;
    auto* front = wireView<chassisControlReq>(std::span(request));
    requestAddress(&session->channel, &front->ipc, MT_CHASSIS_CONTROL, request.size(), address,
                   CHASSIS_CONTROL_SERVICE);
    front->command = command.kind;
    askResult asked =
        channelAsk(&session->channel, request.data(), request.size(), session->options.timeoutMs);
    if (asked == askResult::noAnswer) return notReached(session, "No answer from chassisd in time");
    if (asked != askResult::answered)
        return notReached(session, "chassisd cannot be reached (is it running?)");
    std::span<const uint8_t> bytes(session->channel.message);
    uint32_t status = wireView<ipcHdr>(bytes)->result;
    if (status >= std::size(chassisSentences) || bytes.size() < CHASSIS_TEXT_OFFSET)
        return refusal("The answer of chassisd is not understood");
    bytes = bytes.subspan(CHASSIS_TEXT_OFFSET);
    json answer = json::parse(bytes.begin(), bytes.end(), nullptr, false);
    if (status != CHASSIS_OK) return refusal(refusalText(command.kind, status, answer));
    if (!answer.is_object()) return refusal("The answer of chassisd is not understood");
    if (answer.contains("rows")) answer = json(answer["rows"]);
    if (command.kind == CHASSIS_INTERFACES && !session->options.json) answer = shortenCells(answer);
    renderAnswer(*session, answer, pipe);
    return {};
}
