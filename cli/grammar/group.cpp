// ACL VLAN groups and source guard: the mode of a group, the pairs of an interface, their shows.
#include <algorithm>

#include "cli/grammar/build.h"

namespace {

const char* setPairAddress(cliCommand& c, const cliValue& v, const grammarNode&) {
    c.pair.address = v.address;
    return nullptr;
}
const char* setPairMac(cliCommand& c, const cliValue& v, const grammarNode&) {
    std::ranges::copy(v.mac, c.pair.mac);
    return nullptr;
}

extern const grammarState sGroupIp, sGroupList, sGroupOut, sGroupOptions, sMember, sMemberVlans,
    sGuardMac, sGuardVlan, sGuardVlanId, sShowGroupDetail;

enum : uint32_t { O_IMPLICIT_PERMIT = 1u << 0 };

// --- a group -------------------------------------------------------------------------------------

// Each line names its verb with its first word: a mistyped one leaves the mode as it is.
constexpr grammarNode groupNodes[] = {
    verb("member", "VLANs of the group", sMember, cliVerb::vlanGroupMember),
    verb("ip", "IP lists", sGroupIp, cliVerb::vlanGroupList),
};
constexpr grammarNode memberNodes[] = {
    kw("vlan", "VLANs of the group", sMemberVlans),
};
constexpr grammarState sMember{memberNodes};
constexpr grammarNode memberVlansNodes[] = {
    arg(cliArg::text, "N-M,...", "VLAN ids", sDone, setVlans),
};
constexpr grammarState sMemberVlans{memberVlansNodes};
constexpr grammarNode groupIpNodes[] = {
    kw("access-group", "bind an access list to the group", sGroupList),
};
constexpr grammarState sGroupIp{groupIpNodes, &sIp};
constexpr grammarNode groupListNodes[] = {
    nameArg("list name, at most 140 characters", sGroupOut),
};
constexpr grammarState sGroupList{groupListNodes};
constexpr grammarNode groupOutNodes[] = {
    kw("out", "packets that go out", sGroupOptions, setField<&cliCommand::direction>, 1),
};
constexpr grammarState sGroupOut{groupOutNodes};
constexpr grammarNode groupOptionsNodes[] = {
    kw("implicit-permit", "what no entry matches passes", sGroupOptions,
       setField<&cliCommand::implicitPermit>, 1, F_POSITIVE, O_IMPLICIT_PERMIT),
    fin("bind, or with \"no\" unbind, the list"),
};
constexpr grammarState sGroupOptions{groupOptionsNodes};

constexpr grammarNode showGroupNodes[] = {
    // A group may have this name; abbreviated, the word is the group's.
    whole("detail", "with the cards behind them", sDone, setNumber, 1),
    nameArg("one group", sShowGroupDetail),
    fin("all groups"),
};
constexpr grammarNode showGroupDetailNodes[] = {
    kw("detail", "with the cards behind it", sDone, setNumber, 1),
    fin("its members and its list"),
};
constexpr grammarState sShowGroupDetail{showGroupDetailNodes};

// --- source guard --------------------------------------------------------------------------------

constexpr grammarNode guardNodes[] = {
    arg(cliArg::address, "A.B.C.D", "the address that may send", sGuardMac, setPairAddress),
};
constexpr grammarNode guardMacNodes[] = {
    arg(cliArg::mac, "xx:xx:xx:xx:xx:xx", "and its MAC address", sGuardVlan, setPairMac),
};
constexpr grammarState sGuardMac{guardMacNodes};
constexpr grammarNode guardVlanNodes[] = {
    kw("vlan", "in this VLAN only", sGuardVlanId),
    fin("in any VLAN"),
};
constexpr grammarState sGuardVlan{guardVlanNodes};
constexpr grammarNode guardVlanIdNodes[] = {
    number("id", 1, 4094, sDone, setNumber),
};
constexpr grammarState sGuardVlanId{guardVlanIdNodes};

constexpr grammarNode showGuardNodes[] = {
    fin("of all interfaces"),
};

}  // namespace

constexpr grammarState sVlanGroup{groupNodes, &sDescription};
constexpr grammarState sShowGroups{showGroupNodes};
constexpr grammarState sGuard{guardNodes};
constexpr grammarState sShowGuard{showGuardNodes, &sInterface};
