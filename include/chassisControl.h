// Control of the chassis at run time: requests to chassisd's control endpoint, a dynamic service at
// the address of the route processor that the description calls primary (it stays there when the
// primary role moves).
#pragma once

#include "include/ipc.h"
#include "include/listName.h"

constexpr uint32_t CHASSIS_CONTROL_SERVICE = 0x2F001;
constexpr uint32_t MT_CHASSIS_CONTROL = 30002;

enum chassisCommand : uint32_t {
    CHASSIS_CARD_DOWN = 1,      // argument: slot
    CHASSIS_CARD_SHUTDOWN = 2,  // argument: slot
    CHASSIS_PRIMARY = 3,        // argument: the route processor that is primary from now on
    CHASSIS_STATE = 4,          // what is known
    // Tasks that use lists; requests of the longer record.
    CHASSIS_CLIENT_REGISTER = 5,    // argument: the kind of list, chassisListKind
    CHASSIS_CLIENT_UNREGISTER = 6,  // the same
    CHASSIS_CLIENT_SHOW = 7,
    CHASSIS_CLIENT_BEHAVE = 8,  // argument: chassisClientBehaviour
    // What the interface manager and the protocols' tasks know, and tell the manager; requests of
    // chassisPlaceReq.
    CHASSIS_MEMBERS_JOIN = 9,       // the VLAN or LAG, its members
    CHASSIS_MEMBERS_LEAVE = 10,     // the same
    CHASSIS_INTERFACE_DELETE = 11,  // a VLAN, a LAG, a port
    CHASSIS_GROUP = 12,             // argument: multicast group id of a VLAN or LAG; 0: none
    CHASSIS_ADDRESS_ADD = 13,       // argument: prefix length
    CHASSIS_ADDRESS_DEL = 14,       // the same
    CHASSIS_INTERFACE_STATE = 15,   // argument: 1 up, 0 down
    CHASSIS_INTERFACE_MODE = 16,    // argument: the port's mode
    CHASSIS_PROTOCOL_ENABLE = 17,   // argument: protocolId
    CHASSIS_PROTOCOL_DISABLE = 18,  // the same
    CHASSIS_INTERFACES = 19,        // what is known of them
};

struct chassisControlReq {
    ipcHdr ipc;
    be32 command;   // 60
    be32 argument;  // 64
};
WIRE_SIZE(chassisControlReq, 68);
WIRE_AT(chassisControlReq, command, 60);

// In the order of the client library's kinds.
enum chassisListKind : uint32_t {
    CLIENT_LIST_IP,
    CLIENT_LIST_IPV6,
    CLIENT_LIST_PREFIX,
    CLIENT_LIST_PREFIX6,
    CLIENT_LIST_ASPATH,
    CLIENT_LIST_COMMUNITY,
    CLIENT_LIST_RMAP,
    CLIENT_LIST_MAC,
};
// What a task does with its triggers: answers at once; never; when the next one comes; with another
// sequence number.
enum chassisClientBehaviour : uint32_t {
    CLIENT_ANSWERS,
    CLIENT_SILENT,
    CLIENT_LATE,
    CLIENT_WRONG_SEQUENCE,
};
struct chassisClientReq {
    ipcHdr ipc;
    be32 command;   //  60
    be32 argument;  //  64
    char task[32];  //  68  "BGP", "IPM-2"; NUL-padded
    listName name;  // 100
};
WIRE_SIZE(chassisClientReq, 240);
WIRE_AT(chassisClientReq, name, 100);

struct chassisPlaceReq {
    ipcHdr ipc;
    be32 command;         //  60
    be32 argument;        //  64
    be32 ifindex;         //  68
    be32 family;          //  72  of the address: 4 or 6
    uint8_t address[16];  //  76  an IPv4 address in the first 4 bytes
    uint8_t vmac[6];      //  92  a protocol's virtual MAC address; all 0: none
    uint8_t reserved98[2];
    be32 count;  // 100  of members: their indexes stand behind
};
WIRE_SIZE(chassisPlaceReq, 104);
WIRE_AT(chassisPlaceReq, address, 76);
WIRE_AT(chassisPlaceReq, count, 100);
constexpr uint32_t CHASSIS_MEMBERS_MAX = 1024;  // of one request

// The answer: the request with the triples exchanged, a status in header word 16 and JSON text from
// byte 204 to the length in the header.
constexpr size_t CHASSIS_TEXT_OFFSET = 204;
enum chassisStatus : uint32_t {
    CHASSIS_OK = 0,  // what the manager is to know: it has taken notice
    // No manager is there, or it has not answered in time. Of interfaces and protocols it is told
    // later, of all else never.
    CHASSIS_NOBODY = 1,
    CHASSIS_SILENT = 2,
    CHASSIS_BAD = 3,     // unknown command, slot or route processor
    CHASSIS_FAILED = 4,  // the run folder cannot be written
    CHASSIS_NO_TASK = 5,
    CHASSIS_REFUSED = 6,  // the manager has refused it
    CHASSIS_INVALID = 7,  // cannot be: "why" in the text is a sentence
};

// An event notification (type MT_EVENT_NOTIF).
struct eventNotif {
    ipcHdr ipc;
    be32 reserved60;
    be32 event;  // 64
    be32 slot;   // 68
};
WIRE_SIZE(eventNotif, 72);
WIRE_AT(eventNotif, event, 64);

// RUNDIR/interfaces.json: what the interface manager and the protocols' tasks know.
constexpr const char* CHASSIS_INTERFACES_FILE = "interfaces.json";

// RUNDIR/primary: the number of the primary route processor in decimal. Without the file the
// description's word stands.
constexpr const char* CHASSIS_PRIMARY_FILE = "primary";
