// The manager's neighbours, chassisd as a process: whatever ends, stands still or moves in between,
// a manager knows in the end what chassisd knows, and nothing that was taken back.
//
// The managers are played: they enter what they are told into a set of facts.
#include <atomic>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "include/chassisControl.h"
#include "include/ifmMsg.h"
#include "include/protMsg.h"
#include "include/service.h"
#include "tests/system/chassis.h"

namespace {

constexpr uint32_t RP[] = {0x7F010001, 0x7F010002};
constexpr uint32_t VLAN_10 = 0x0003800A, LAG_1 = 0x00030001;

typedef std::set<std::string> facts;

std::string fact(const char* what, uint32_t a, uint32_t b) {
    return std::string(what) + " " + std::to_string(a) + " " + std::to_string(b);
}

// The manager of a route processor: what it has been told since it was made.
struct playedManager {
    rawEndpoint requests;
    zekSwpSeq ifm{}, vrrp{};
    facts known;
    facts atEnd;  // when it was said that everything had been told
    std::map<uint32_t, uint32_t> ripUsers;
    uint32_t newestRequest = 0;
    size_t ends = 0;
    std::mutex lock;
    std::atomic<bool> silent = false, over = false;
    std::thread thread;

    playedManager(const std::string& dir, uint32_t rp)
        : requests(dir, RP[rp], aclServicePort(APP_ACL, 0, QUEUE_REQUEST)),
          thread([this] { serve(); }) {}
    ~playedManager() {
        over = true;
        thread.join();
    }
    void enter(const std::string& what, bool there) {
        there ? (void)known.insert(what) : (void)known.erase(what);
    }
    void takeWords(const ifmSvcWords& r) {
        const uint32_t a = r.word[0], b = r.word[1];
        switch (uint16_t{r.hdr.type}) {
            case IFM_SVC_ADD_LAG_PORT:
            case IFM_SVC_DEL_LAG_PORT:
                return enter(fact("member", a, b), r.hdr.type == IFM_SVC_ADD_LAG_PORT);
            case IFM_TYP_ADD_VLAN_PORT:
            case IFM_TYP_DEL_VLAN_PORT:
                return enter(fact("member", b, a), r.hdr.type == IFM_TYP_ADD_VLAN_PORT);
            case IFM_SVC_DEL_IP:
                return enter(fact("address", a, b), false);
            case IFM_SVC_DEL_IF:
                std::erase_if(known, [a](const std::string& f) {
                    return has(f + " ", " " + std::to_string(a) + " ");
                });
                ripUsers.erase(a);
                return;
            default:
                ADD_FAILURE() << "type " << r.hdr.type;
        }
    }
    void takeRecord(std::span<uint8_t> bytes) {
        const uint16_t type = wireView<ifmSvcHdr>(bytes)->type;
        if (type == IFM_SVC_ADD_VLAN_PORTS) {
            const auto* many = wireView<ifmSvcVlanPorts>(bytes);
            for (uint32_t i = 0; i < many->count; i++)
                enter(fact("member", many->vlan, *wireView<be32>(bytes, sizeof *many + 4 * i)),
                      true);
        } else if (type == IFM_SVC_ADD_IP) {
            const auto* add = wireView<ifmSvcAddIp>(bytes);
            enter(fact("address", add->ifindex, add->address), true);
        } else {
            ifmSvcWords words{};
            std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof words),
                        reinterpret_cast<uint8_t*>(&words));
            takeWords(words);
        }
    }
    void takeEvents(std::span<uint8_t> message) {
        const uint32_t count = wireView<ifmEventMsg>(message)->count;
        if (count == 0) {
            ends++;
            atEnd = known;
        }
        size_t at = sizeof(ifmEventMsg);
        for (uint32_t i = 0; i < count; i++) {
            const size_t length = wireView<ifmSvcHdr>(message, at)->length;
            takeRecord(message.subspan(at, length));
            at += length;
        }
        EXPECT_EQ(at, message.size());
    }
    void takeProtocol(const protRecord& record, bool enable) {
        bool there = enable;
        if (record.id == PROT_RIP) {
            uint32_t& users = ripUsers[record.ifindex];
            users = enable ? users + 1 : users - (users != 0 ? 1 : 0);
            there = users != 0;
        }
        enter(fact("protocol", record.ifindex, record.id), there);
    }
    void take(std::vector<uint8_t>& message) {
        const uint32_t type = headerOf(message)->mtype;
        const std::lock_guard<std::mutex> held(lock);
        if (type == MT_IFM_EVT_NOTIF) {
            if (zekEndpointSwpAck(requests.e, message.data(), &ifm) == ZEK_SWP_IN_ORDER)
                takeEvents(message);
        } else if (type == MT_PROT_VRRP_FIRST || type == MT_PROT_VRRP_LAST) {
            if (zekEndpointSwpAck(requests.e, message.data(), &vrrp) == ZEK_SWP_IN_ORDER)
                takeProtocol(wireView<protEnableSwpMsg>(std::span(message))->record,
                             type == MT_PROT_VRRP_FIRST);
        } else if (type == MT_PROT_FIRST || type == MT_PROT_LAST) {
            if (headerOf(message)->sequence != newestRequest)
                takeProtocol(wireView<protEnableMsg>(std::span(message))->record,
                             type == MT_PROT_FIRST);
            newestRequest = headerOf(message)->sequence;
            ipcExchangeTriples(headerOf(message));
            requests.send(message);
        }
    }
    void serve() {
        while (!over) {
            if (silent) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                continue;
            }
            std::vector<uint8_t> message = requests.receive(20);
            if (!message.empty() && !silent) take(message);
        }
    }
    void registerWithIfm() {
        std::vector<uint8_t> message(1436);
        ipcHdr* hdr = headerOf(message);
        hdr->length = 1436;
        hdr->mtype = MT_IFM_REGISTER;
        hdr->sequence = 0xFEEDBEEF;
        hdr->target.card = requests.address;
        hdr->target.svce = requests.service;
        hdr->source.card = RP[0];
        hdr->source.svce = aclServicePort(APP_IFM, 0, QUEUE_REQUEST);
        requests.send(message);
    }
    bool hasHeardAll() {
        const std::lock_guard<std::mutex> held(lock);
        return ends != 0;
    }
    facts view() {
        const std::lock_guard<std::mutex> held(lock);
        return known;
    }
};

struct order {
    uint32_t command, ifindex, argument = 0;
    std::vector<uint32_t> members = {};
    uint32_t address = 0;
};

// A chassis whose managers are played; what they should know is kept beside.
struct neighboursFixture : chassisFixture {
    std::unique_ptr<playedManager> managers[2];
    facts expected;
    uint32_t sequence = 1;
    std::unique_ptr<rawClient> client = std::make_unique<rawClient>(*this);

    void start(uint32_t rp) {
        managers[rp] = std::make_unique<playedManager>(dir, rp);
        managers[rp]->registerWithIfm();
    }
    std::vector<uint8_t> request(const order& o) {
        std::vector<uint8_t> message(sizeof(chassisPlaceReq) + 4 * o.members.size());
        client->fillHeader(message, MT_CHASSIS_CONTROL, ++sequence);
        auto* req = wireView<chassisPlaceReq>(std::span(message));
        req->ipc.source.svce = CHASSIS_CONTROL_SERVICE;
        req->command = o.command;
        req->ifindex = o.ifindex;
        req->argument = o.argument;
        req->family = 4;
        be32 address;
        address = o.address;
        std::copy_n(address.b, 4, req->address);
        req->count = static_cast<uint32_t>(o.members.size());
        for (size_t i = 0; i < o.members.size(); i++)
            *wireView<be32>(std::span(message), sizeof *req + 4 * i) = o.members[i];
        return message;
    }
    // The status of the answer to the newest request.
    uint32_t answered() const {
        for (;;) {
            std::vector<uint8_t> answer = client->receive();
            if (answer.empty()) return 99;
            if (headerOf(answer)->sequence == sequence) return headerOf(answer)->result;
        }
    }
    bool waits = true;  // for answers
    uint32_t ask(const order& o) {
        EXPECT_TRUE(client->send(request(o)));
        return waits ? answered() : uint32_t{CHASSIS_OK};
    }
    // Carries out an order at random that can be carried out, and keeps what follows from it.
    uint32_t askAnything(std::mt19937& engine) {
        auto random = [&engine](uint32_t below) { return static_cast<uint32_t>(engine()) % below; };
        const uint32_t vlan = VLAN_10 + random(3), port = 0x04040001 + (random(6) << 18);
        const uint32_t what = random(20);
        if (what == 0) {
            std::erase_if(expected, [vlan](const std::string& f) {
                return has(f + " ", " " + std::to_string(vlan) + " ");
            });
            return ask({CHASSIS_INTERFACE_DELETE, vlan});
        }
        if (what < 11) {
            const uint32_t place = random(4) == 0 ? LAG_1 : vlan;
            return toggle(fact("member", place, port), CHASSIS_MEMBERS_JOIN, {0, place, 0, {port}});
        }
        if (what < 15) {
            const uint32_t address = 0x0A000001 + random(3);
            return toggle(fact("address", vlan, address), CHASSIS_ADDRESS_ADD,
                          {0, vlan, 24, {}, address});
        }
        const uint32_t id = std::array<uint32_t, 3>{PROT_OSPF, PROT_RIP, PROT_VRRP}[random(3)];
        return toggle(fact("protocol", vlan, id), CHASSIS_PROTOCOL_ENABLE, {0, vlan, id});
    }
    // The command that takes something back follows the one that makes it.
    uint32_t toggle(const std::string& what, uint32_t add, order o) {
        const bool there = expected.erase(what) != 0;
        if (!there) expected.insert(what);
        o.command = there ? add + 1 : add;
        return ask(o);
    }
    void expectKnown(uint32_t rp) {
        EXPECT_TRUE(waitUntil([&] { return managers[rp]->view() == expected; }))
            << ::testing::PrintToString(managers[rp]->view()) << " in place of "
            << ::testing::PrintToString(expected) << show("chassis status");
    }
    void restartNeighbours(int signal) {
        neighbours.stop(signal);
        EXPECT_TRUE(startNeighbours());
    }
};

}  // namespace

TEST(Neighbours, AManagerKnowsInTheEndWhateverHappens) {
    neighboursFixture chassis;
    ASSERT_TRUE(chassis.startNeighbours());
    std::mt19937 engine(20261122);
    uint32_t primary = 0;
    chassis.start(0);
    for (int round = 0; round < 40; round++) {
        SCOPED_TRACE(round);
        // Commands, told or not; then something happens, and commands again.
        for (int i = 0; i < 6; i++) EXPECT_EQ(chassis.askAnything(engine), CHASSIS_OK);
        chassis.expectKnown(primary);
        switch (engine() % 5) {
            case 0:  // the manager is gone, and comes back knowing nothing
                chassis.managers[primary].reset();
                for (int i = 0; i < 4; i++) EXPECT_EQ(chassis.askAnything(engine), CHASSIS_NOBODY);
                if (engine() % 2 == 0) chassis.restartNeighbours(SIGKILL);
                chassis.start(primary);
                EXPECT_TRUE(waitUntil([&] { return chassis.managers[primary]->hasHeardAll(); }));
                EXPECT_EQ(chassis.managers[primary]->atEnd, chassis.expected);
                break;
            case 1:  // the manager stands still while chassisd is killed
                chassis.managers[primary]->silent = true;
                chassis.waits = false;
                for (int i = 0; i < 4; i++) (void)chassis.askAnything(engine);
                chassis.waits = true;
                (void)chassis.ask({CHASSIS_STATE, 0});  // behind them
                chassis.restartNeighbours(SIGKILL);
                chassis.managers[primary]->silent = false;
                break;
            case 2:  // the other route processor's manager is the primary one, and knows old things
                primary = 1 - primary;
                if (chassis.managers[primary] == nullptr) chassis.start(primary);
                chassis.show("chassis primary " + std::to_string(primary));
                break;
            case 3:
                chassis.restartNeighbours(SIGTERM);
                break;
            default:  // registers again, though it knows everything
                chassis.managers[primary]->registerWithIfm();
        }
        chassis.expectKnown(primary);
    }
}

// Removals that nobody has acknowledged survive chassisd; a thousand commands for a manager that
// stands still are all answered, in bounded memory and time, and told when it goes on.
TEST(Neighbours, AManagerThatStandsStillHearsOfEverythingLater) {
    neighboursFixture chassis;
    ASSERT_TRUE(chassis.startNeighbours());
    chassis.start(0);
    std::vector<uint32_t> ports;
    for (uint32_t i = 0; i < 20; i++) ports.push_back(0x04040001 + (i << 18));
    for (uint32_t port : ports) chassis.expected.insert(fact("member", VLAN_10, port));
    ASSERT_EQ(chassis.ask({CHASSIS_MEMBERS_JOIN, VLAN_10, 0, ports}), CHASSIS_OK);
    ASSERT_EQ(chassis.ask({CHASSIS_PROTOCOL_ENABLE, VLAN_10, PROT_OSPF}), CHASSIS_OK);
    chassis.expected.insert(fact("protocol", VLAN_10, PROT_OSPF));

    chassis.managers[0]->silent = true;
    std::set<uint32_t> open;
    const auto takeAnswers = [&](int waitMs) {
        std::vector<uint8_t> answer = chassis.client->receive(waitMs);
        for (; !answer.empty(); answer = chassis.client->receive(0)) {
            EXPECT_EQ(uint32_t{headerOf(answer)->result}, CHASSIS_SILENT);
            open.erase(headerOf(answer)->sequence);
        }
    };
    const auto send = [&](const order& o) {
        ASSERT_TRUE(chassis.client->send(chassis.request(o)));
        open.insert(chassis.sequence);
        takeAnswers(0);
    };
    for (int i = 0; i < 1000; i++) {
        const uint32_t command = i % 200 < 100 ? CHASSIS_MEMBERS_JOIN : CHASSIS_MEMBERS_LEAVE;
        const order o = {command, 0x00038100 + static_cast<uint32_t>(i % 100), 0, {ports[0]}};
        send(o);
        // A requester that asks again is not served twice: the second leave would be refused.
        if (i % 50 != 0) continue;
        chassis.sequence--;
        send(o);
    }
    send({CHASSIS_MEMBERS_LEAVE, VLAN_10, 0, {ports[3]}});
    send({CHASSIS_PROTOCOL_DISABLE, VLAN_10, PROT_OSPF});
    EXPECT_TRUE(waitUntil([&] { return takeAnswers(5), open.empty(); })) << open.size();
    chassis.neighbours.stop(SIGKILL);
    chassis.expected.erase(fact("member", VLAN_10, ports[3]));
    chassis.expected.erase(fact("protocol", VLAN_10, PROT_OSPF));
    ASSERT_TRUE(chassis.startNeighbours());
    chassis.managers[0]->silent = false;
    chassis.expectKnown(0);
    // Nothing is owed any more, and the file says so.
    EXPECT_TRUE(waitUntil([&] {
        return !has(contentOf(chassis.dir + "/interfaces.json"), "record");
    })) << contentOf(chassis.dir + "/interfaces.json");
}

TEST(Neighbours, WithoutRoomOrWithADamagedFileTheyGoOnAndSaySo) {
    neighboursFixture chassis;
    ASSERT_TRUE(chassis.startNeighbours());
    chassis.start(0);
    ASSERT_EQ(chassis.ask({CHASSIS_MEMBERS_JOIN, VLAN_10, 0, {0x04040001}}), CHASSIS_OK);
    chassis.expected.insert(fact("member", VLAN_10, 0x04040001));
    // A folder stands where the file's successor would be written.
    const std::string fresh = chassis.dir + "/interfaces.json.new";
    std::filesystem::create_directory(fresh);
    const commandResult refused = chassis.shell({"-c", "chassis vlan 10 leave 1/0"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(has(refused.err, "interfaces.json cannot be written: ")) << refused.err;
    EXPECT_TRUE(has(chassis.show("chassis interfaces"), "1/0"));
    std::filesystem::remove(fresh);
    chassis.expectKnown(0);

    chassis.neighbours.stop(SIGKILL);
    std::ofstream(chassis.dir + "/interfaces.json") << "{\"version\":1,";
    ASSERT_TRUE(chassis.startNeighbours());
    EXPECT_TRUE(has(contentOf(chassis.neighbours.log), "goes on without it"));
    EXPECT_FALSE(has(chassis.show("chassis interfaces"), "1/0"));
    chassis.show("chassis vlan 10 join 1/1 port-channel 1");
    EXPECT_TRUE(has(chassis.show("chassis interfaces"), "1/1, port-channel 1"));
}
