// A chassis of three cards whose interface manager and protocols are in the test's hands, and what
// its cards say that they hold.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>

#include "include/agentState.h"
#include "include/cliMsg.h"
#include "include/ifmMsg.h"
#include "include/protMsg.h"
#include "include/service.h"
#include "platform/api/zekChassis.h"
#include "tests/system/chassis.h"
#include "tests/system/placesModel.h"

using nlohmann::json;

constexpr uint32_t CARDS = 3, PORTS = 4;

uint32_t fromEnvironment(const char* name, uint32_t otherwise);

struct cardReader {
    rawClient& client;
    const chassisDescription& chassis;
    uint32_t sequence = 0x50000000;

    std::optional<json> ask(int slot, const agentStateReq& what);
    // The answers of one kind, in as many pages as it takes. Nothing: no answer.
    std::optional<json> rows(int slot, agentStateReq request, const char* key);
    std::optional<json> entries(int slot, const json& list);
    // What the card holds, in the words of the model, or (raw) whatever the card says of it.
    // Nothing while the card is not in step, or changes between two questions.
    std::optional<cardContents> read(int slot, bool raw = false);

  private:
    std::string name(uint32_t ifindex) const;
    bool addList(int slot, const json& list, bool raw, cardContents* out);
};

struct placesChassis : chassisFixture {
    chassisDescription description{};
    rawClient client{*this};
    cardReader reader{client, description};
    std::vector<uint32_t> ports, members, places;  // ports; with LAGs; with VLANs
    std::vector<uint32_t> lags, vlans;
    uint32_t seed, sequence = 0;
    uint32_t session = 0x10000, number = 0, vrrpNumber = 0;  // of two reliable queues
    std::vector<uint8_t> events;  // records of an event message that is not sent yet
    uint32_t eventCount = 0;
    std::mt19937 random;

    // Starts all but the agents.
    explicit placesChassis(uint32_t seed, uint32_t chassisMode = 1);

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random()) % n; }
    template <class T>
    const T& anyOf(const std::vector<T>& all) {
        return all[below(static_cast<uint32_t>(all.size()))];
    }
    std::string name(uint32_t place) const { return chassisIfName(description, place); }

    // Sends what the manager answers, and waits for that: everything before it has been handled.
    // The result of the answer.
    uint32_t ask(std::vector<uint8_t> message, uint32_t type);
    uint32_t cli(uint32_t code);  // a command without arguments
    void settle();                // a question that changes nothing
    // A message of a reliable queue, which may come twice.
    void post(std::vector<uint8_t> message, uint32_t type, uint32_t ofSession, uint32_t* numbers);

    // Records of the interface manager's event messages, several in a message now and then.
    void addRecord(uint16_t type, ifmSvcHdr* record, size_t size);
    void event(uint16_t type, const std::vector<uint32_t>& words);
    void flush();
    void list(uint32_t type, uint32_t first, const std::vector<uint32_t>& all);
    void tellAddress(uint32_t place, const std::string& address, bool add);
    void tellGroup(uint32_t place, uint32_t group, bool add);
    void tellProtocol(const protRecord& record, bool enable);
};
