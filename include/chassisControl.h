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

// The answer: the request with the triples exchanged, a status in header word 16 and JSON text from
// byte 204 to the length in the header.
constexpr size_t CHASSIS_TEXT_OFFSET = 204;
enum chassisStatus : uint32_t {
    CHASSIS_OK = 0,      // an event: the manager has taken notice
    CHASSIS_NOBODY = 1,  // an event, a registration: no manager is there to be told
    CHASSIS_SILENT = 2,  // the manager has not answered in time
    CHASSIS_BAD = 3,     // unknown command, slot or route processor
    CHASSIS_FAILED = 4,  // the run folder cannot be written
    CHASSIS_NO_TASK = 5,
    CHASSIS_REFUSED = 6,  // the manager has refused the registration
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

// RUNDIR/primary: the number of the primary route processor in decimal. Without the file the
// description's word stands.
constexpr const char* CHASSIS_PRIMARY_FILE = "primary";
