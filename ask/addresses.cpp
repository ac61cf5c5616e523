// What the manager knows of the router's own addresses, as text: `debug interface-addresses` and
// `debug agent-addresses`.
#include "ask/prefixWords.h"
#include "include/ipText.h"
#include "match/zekPolicy.h"
#include "platform/api/zekTask.h"
#include "protocol/AclIpAdd.h"
#include "task/task.h"
#include "task/zekacl_lib.h"

namespace {

std::string interfaceAddresses(std::string_view args) {
    const auto words = splitWords(args);
    aclLockHeld<aclLock::read> held;
    if (words.empty()) return aclPrintIPAddInterfaceDB();
    uint8_t bytes[16];
    if (words.size() == 1) {
        if (const auto v4 = parseDotted(words[0])) return aclDumpIp(aclAddressOf(*v4));
        if (parseAddressBytes(AF_IPV6, words[0], bytes)) return aclDumpIp(aclAddressOf(bytes, 0));
    }
    return "usage: interface-addresses [ADDRESS]\n";
}

std::string agentAddresses(std::string_view) {
    aclLockHeld<aclLock::read> held;
    std::string out = "agents send from ";
    textDotted(out, aclAgentSourceAddress());
    return out + "\r\n" + aclPrintLinecardDB();
}

}  // namespace

void aclRegisterAddressFunctions() {
    zekDebugRegister("interface-addresses",
                     "[ADDRESS] the addresses of every interface, or who has one (text)",
                     interfaceAddresses);
    zekDebugRegister("agent-addresses",
                     "every address in the order added, and the one that agents use (text)",
                     agentAddresses);
}
