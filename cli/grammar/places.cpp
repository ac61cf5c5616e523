// "show" of places: interfaces, VLANs, LAGs, and the protocols on them.
#include "cli/grammar/build.h"

namespace {

extern const grammarState sInterfaceOrAll, sIdOrAll;

constexpr grammarNode placesNodes[] = {
    verb("interfaces", "interfaces and what is on them", sInterfaceOrAll, cliVerb::showInterfaces),
    verb("vlan", "VLANs, their members and what is on them", sIdOrAll, cliVerb::showVlans),
    verb("port-channel", "LAGs, their members and what is on them", sIdOrAll,
         cliVerb::showPortChannels),
    verb("protocols", "protocols whose packets the cards trap", sInterfaceOrAll,
         cliVerb::showProtocols),
};
constexpr grammarNode allNodes[] = {
    fin("all of them"),
};
constexpr grammarState sInterfaceOrAll{allNodes, &sInterface};
constexpr grammarNode idNodes[] = {
    number("id", 1, 4094, sDone, addText),
    fin("all of them"),
};
constexpr grammarState sIdOrAll{idNodes};

}  // namespace

constexpr grammarState sShowPlaces{placesNodes};
