// What the shell's "test" says of access lists: the words of a packet or a frame on their way to
// the list, and the answer.
#include "match/zekPolicy.h"
#include "tests/policy/policyTest.h"

namespace {

struct FilterChecks : PolicyTest {
    void SetUp() override {
        PolicyTest::SetUp();
        configure(
            "ip access-list extended L\n seq 5 permit tcp host 10.0.0.1 any eq 80 established\n"
            " seq 10 deny icmp any any 3 1\n seq 15 permit udp any any\n"
            "ipv6 access-list L\n seq 5 permit tcp 2001:db8::/32 any eq 80 ack\n"
            " seq 10 deny icmp any any 3 1\n seq 15 permit 1 any any\n seq 20 permit udp any any\n"
            "mac access-list extended L\n seq 5 deny host 02:00:00:00:00:01 any\n"
            " seq 10 permit any any ev2 eq 800\n seq 15 permit any any llc neq 4242\n"
            " seq 20 deny any 01:00:00:00:00:00 fe:ff:ff:ff:ff:ff snap gt 600\n"
            "mac access-list standard S\n seq 5 permit 02:00:00:00:00:00 00:00:00:00:00:ff\n");
    }
};

TEST_F(FilterChecks, NameTheEntryThatDecided) {
    constexpr const char* implicit = "deny: no entry matches (implicit deny)\n";
    const std::pair<const char*, const char*> rows[] = {
        {"ip access-list L tcp 10.0.0.1 1.2.3.4 dst-port 80 flags syn,ack",
         "permit: seq 5 permit tcp host 10.0.0.1 any eq 80 established\n"},
        {"ip access-list L tcp 10.0.0.1 1.2.3.4 dst-port 80 flags syn", implicit},
        {"ip access-list L icmp 10.0.0.1 1.2.3.4 icmp-type 3 icmp-code 1", "deny: seq 10 "},
        {"ipv6 access-list L tcp 2001:db8::9 ::1 dst-port 80 flags syn,ack",
         "permit: seq 5 permit tcp 2001:db8::/32 any eq 80 ack\n"},
        {"ipv6 access-list L tcp 2001:db8::9 ::1 dst-port 80 flags ack fragment", implicit},
        {"ipv6 access-list L icmp 2001:db8::9 ::1 icmp-type 3 icmp-code 1", "deny: seq 10 "},
        {"ipv6 access-list L 58 2001:db8::9 ::1 icmp-type 3 icmp-code 2", implicit},
        {"ipv6 access-list L 1 ::ffff:1.2.3.4 ::1", "permit: seq 15 permit 1 any any\n"},
        {"mac access-list L 02:00:00:00:00:01 ff:ff:ff:ff:ff:ff", "deny: seq 5 "},
        {"mac access-list L 02:00:00:00:00:02 ff:ff:ff:ff:ff:ff ev2 0800", "permit: seq 10 "},
        {"mac access-list L 02:00:00:00:00:02 ff:ff:ff:ff:ff:ff ev2 806", implicit},
        {"mac access-list L 02:00:00:00:00:02 02:00:00:00:00:09 llc 0", "permit: seq 15 "},
        {"mac access-list L 02:00:00:00:00:02 01:80:c2:00:00:00 snap 601", "deny: seq 20 "},
        {"mac access-list L 02:00:00:00:00:02 01:80:c2:00:00:00", implicit},
        {"mac access-list S 02:00:00:00:00:99 01:80:c2:00:00:00", "permit: seq 5 "},
        {"ipv6 access-list NONE tcp ::1 ::2", "No such access list"},
        {"mac access-list NONE 02:00:00:00:00:99 01:80:c2:00:00:00", "No such access list"},
    };
    for (auto [question, answer] : rows) {
        const std::string said = say(std::string("do test ") + question);
        EXPECT_NE(said.find(answer), said.npos) << question << "\n" << said;
    }
    for (const aclFamily* family : aclFamilies)
        for (const listEntry* e = aclListFind(*family, listNameMake("L"))->head; e != nullptr;
             e = e->next)
            EXPECT_EQ(e->matchCount, 0u) << "a question counts nothing";
}

// What the shell does not let through, another caller may say.
TEST_F(FilterChecks, SayWhatIsWrongWithTheWords) {
    const char* const rows[][3] = {
        {"test-ip-filter", "L tcp 1.1.1 2.2.2.2", "not an address: 1.1.1"},
        {"test-ip-filter", "L tcp 1.1.1.1 2.2.2.2 dst-port 65536",
         "not understood: dst-port 65536"},
        {"test-ip-filter", "L tcp 1.1.1.1 2.2.2.2 flags established",
         "not understood: flags established"},
        {"test-ip6-filter", "L tcp ::1 ::2 tos 4", "not understood: tos 4"},
        {"test-ip6-filter", "L tcp ::1 ::2 dst-port", "a value is missing after dst-port"},
        {"test-mac-filter", "L 02:00:00:00:00:1 02:00:00:00:00:02",
         "not an address: 02:00:00:00:00:1"},
        {"test-mac-filter", "L 02:00:00:00:00:01 02:00:00:00:00:02 arpa 800",
         "not an encapsulation: arpa"},
        {"test-mac-filter", "L 02:00:00:00:00:01 02:00:00:00:00:02 ev2 10000",
         "not an ether-type: 10000"},
        {"test-mac-filter", "L 02:00:00:00:00:01 02:00:00:00:00:02 ev2 800 7", "not understood: 7"},
    };
    for (auto [function, words, wrong] : rows)
        EXPECT_EQ(debug(function, words).find(std::string(R"({"error":")") + wrong), 0u) << words;
    EXPECT_EQ(
        debug("test-mac-filter", "L 02:00:00:00:00:02 02:00:00:00:00:03 ev2 800"),
        R"({"verdict":"permit","entry":{"seq":10,"text":" seq 10 permit any any  ev2 eq 800 "}})");
    EXPECT_EQ(debug("test-ip6-filter", "L 47 ::1 ::2"), R"({"verdict":"deny","entry":null})");
}

}  // namespace
