// What each message id carries, and splitting lists into messages.
//
// A body of at most AGENT_BODY_MAX_SINGLE bytes goes as one message. A longer one goes as chunks of
// a fixed number of entries, each behind a copy of the list header: the first under the list's own
// id, the others under its continuation id. All headers state the whole list's count but the last
// one, which states its own.
#include <algorithm>
#include <iterator>

#include "common/debug.h"
#include "download/sendPath.h"

namespace {

constexpr agentBody IP = agentBody::ip, IP6 = agentBody::ip6, MAC = agentBody::mac;
constexpr agentCarries LIST = agentCarries::list, HEADER = agentCarries::header,
                       ENTRY = agentCarries::entry, EITHER = agentCarries::entryOrHeader;
constexpr zekRadix* aclTrees::*LISTS = &aclTrees::acl_tree;
constexpr zekRadix* aclTrees::*SYSTEM = &aclTrees::aclSys_tree;
constexpr zekRadix* aclTrees::*DOS = &aclTrees::dos_tree;
constexpr zekRadix* aclTrees::*LISTS6 = &aclTrees::v6acl_tree;
constexpr zekRadix* aclTrees::*LISTS2 = &aclTrees::l2acl_tree;

// clang-format off
constexpr agentMsgRow msgTable[] = {
    {MT_ACL_ADDLIST,         MT_ACL_ADDENT,         IP,  LIST,   LISTS,  nullptr},
    {MT_ACL_ADDENT,          MT_ACL_ADDENT,         IP,  ENTRY,  LISTS,  nullptr},
    {MT_ACL_DELENT,          MT_ACL_DELENT,         IP,  ENTRY,  LISTS,  nullptr},
    {MT_ACL_DELLIST,         MT_ACL_DELLIST,        IP,  HEADER, LISTS,  "MT_ACL_DELLIST"},
    {MT_ACL_SYS_ADDLIST,     MT_ACL_SYS_ADDENT,     IP,  LIST,   SYSTEM, nullptr},
    {MT_ACL_SYS_ADDENT,      MT_ACL_SYS_ADDENT,     IP,  ENTRY,  SYSTEM, nullptr},
    {MT_ACL_SYS_DEL,         MT_ACL_SYS_DEL,        IP,  EITHER, SYSTEM, nullptr},
    {MT_ACL_EGR_ADDLIST,     MT_ACL_EGR_ADDENT,     IP,  LIST,   LISTS,  nullptr},
    {MT_ACL_EGR_ADDENT,      MT_ACL_EGR_ADDENT,     IP,  ENTRY,  LISTS,  nullptr},
    {MT_ACL_EGR_DELENT,      MT_ACL_EGR_DELENT,     IP,  ENTRY,  LISTS,  nullptr},
    {MT_ACL_EGR_DELLIST,     MT_ACL_EGR_DELLIST,    IP,  HEADER, LISTS,  nullptr},
    {MT_DOS_ADDLIST,         MT_DOS_ADDENT,         IP,  LIST,   DOS,    nullptr},
    {MT_DOS_ADDENT,          MT_DOS_ADDENT,         IP,  ENTRY,  DOS,    nullptr},
    {MT_DOS_DELLIST,         MT_DOS_DELLIST,        IP,  HEADER, DOS,    nullptr},
    {MT_DOS_DELENT,          MT_DOS_DELENT,         IP,  ENTRY,  DOS,    nullptr},
    {MT_L2ACL_ADDLIST,       MT_L2ACL_ADDENT,       MAC, LIST,   LISTS2, nullptr},
    {MT_L2ACL_ADDENT,        MT_L2ACL_ADDENT,       MAC, ENTRY,  LISTS2, nullptr},
    {MT_L2ACL_DELLIST,       MT_L2ACL_DELLIST,      MAC, HEADER, LISTS2, "MT_L2ACL_DELLIST"},
    {MT_L2ACL_DELENT,        MT_L2ACL_DELENT,       MAC, ENTRY,  LISTS2, nullptr},
    {14488,                  14488,                 MAC, ENTRY,  LISTS2, nullptr},
    {14489,                  14489,                 MAC, ENTRY,  LISTS2, nullptr},
    {14490,                  14490,                 MAC, HEADER, LISTS2, "MT_ACLMAC_NEW"},
    {14491,                  14491,                 MAC, LIST,   LISTS2, nullptr},
    {14492,                  14492,                 MAC, LIST,   LISTS2, nullptr},
    {14493,                  14493,                 MAC, LIST,   LISTS2, nullptr},
    {14494,                  14494,                 MAC, LIST,   LISTS2, nullptr},
    {MT_L2ACL_EGR_ADDLIST,   MT_L2ACL_EGR_ADDENT,   MAC, LIST,   LISTS2, nullptr},
    {MT_L2ACL_EGR_ADDENT,    MT_L2ACL_EGR_ADDENT,   MAC, ENTRY,  LISTS2, nullptr},
    {MT_L2ACL_EGR_DELLIST,   MT_L2ACL_EGR_DELLIST,  MAC, HEADER, LISTS2, nullptr},
    {MT_L2ACL_EGR_DELENT,    MT_L2ACL_EGR_DELENT,   MAC, ENTRY,  LISTS2, nullptr},
    {MT_ACL_V6_SYS_ADDLIST,  MT_ACL_V6_SYS_ADDENT,  IP6, LIST,   LISTS6, nullptr},
    {MT_ACL_V6_SYS_ADDENT,   MT_ACL_V6_SYS_ADDENT,  IP6, ENTRY,  LISTS6, nullptr},
    {MT_ACL_V6_SYS_DEL,      MT_ACL_V6_SYS_DEL,     IP6, EITHER, LISTS6, nullptr},
    {MT_ACL_V6_ADDLIST,      MT_ACL_V6_ADDENT,      IP6, LIST,   LISTS6, nullptr},
    {MT_ACL_V6_ADDENT,       MT_ACL_V6_ADDENT,      IP6, ENTRY,  LISTS6, nullptr},
    {MT_ACL_V6_DELENT,       MT_ACL_V6_DELENT,      IP6, ENTRY,  LISTS6, nullptr},
    {MT_ACL_V6_DELLIST,      MT_ACL_V6_DELLIST,     IP6, HEADER, LISTS6, nullptr},
    {MT_ACL_V6_EGR_ADDLIST,  MT_ACL_V6_EGR_ADDENT,  IP6, LIST,   LISTS6, nullptr},
    {MT_ACL_V6_EGR_ADDENT,   MT_ACL_V6_EGR_ADDENT,  IP6, ENTRY,  LISTS6, nullptr},
    {MT_ACL_V6_EGR_DELENT,   MT_ACL_V6_EGR_DELENT,  IP6, ENTRY,  LISTS6, nullptr},
    {MT_ACL_V6_EGR_DELLIST,  MT_ACL_V6_EGR_DELLIST, IP6, HEADER, LISTS6, nullptr},
};
// clang-format on
static_assert(std::ranges::is_sorted(msgTable, {}, &agentMsgRow::id));

template <class Body>
constexpr size_t bodySize(size_t entries) {
    return sizeof(typename Body::header) + sizeof(typename Body::image) * entries;
}
// Whatever is staged fits one message with its header.
template <class Body>
constexpr bool fitsMessage = std::max(bodySize<Body>(Body::chunk),
                                      AGENT_BODY_MAX_SINGLE) <= IPC_BUFFER_SIZE - sizeof(agentHdr);
static_assert(fitsMessage<ipBody> && fitsMessage<ip6Body> && fitsMessage<macBody>);

// Sends what stands in the staging buffer behind the list header, chunk by chunk.
template <class Body>
int sendChunks(typename Body::header* list, const typename Body::entry* first, uint32_t count,
               uint32_t target, const agentMsgRow& row, uint32_t area) {
    const size_t size = bodySize<Body>(count);
    const bool split = size > AGENT_BODY_MAX_SINGLE;
    auto* images = reinterpret_cast<typename Body::image*>(list + 1);
    agentHdr header;
    vAclBuildIpcHdr(&header, target, size, row.id);
    for (uint32_t number = 1;; number++) {
        bool last = !split || count <= Body::chunk;
        uint32_t copied = 0;
        const uint32_t wanted = last ? count : uint32_t{Body::chunk};
        first = vAclMapMgrToClient(images, first, wanted, &copied);
        last = last || copied < wanted;  // a chain shorter than its count ends the list
        if (last && (split || copied < wanted)) list->count = copied;
        if (split)
            aclDebug(area,
                     last ? "Sending Last message chunk %d\r\n" : "Sending message chunk %d\r\n",
                     static_cast<int>(number));
        if (iAclIPCSendAclList(list, bodySize<Body>(copied), target, header, !last) != 0) {
            if (split)
                aclDebug(area, "Error Sending message chunk %d\r\n", static_cast<int>(number));
            return -1;
        }
        if (last) return 0;
        count -= copied;
        header.ipc.mtype = row.more;
    }
}

// The debug lines of both families, and the deletions, which carry no entries whatever the list
// has.
template <class Body>
int checkList(typename Body::header* list, const typename Body::entry* first, uint32_t count,
              uint32_t target, const agentMsgRow& row, uint32_t area, const char* sizeFormat) {
    aclDebug(area, "Sending list " LIST_NAME_FMT " with %d entries to agent %s \r\n",
             listNameArg(list->name), static_cast<int>(count), agentIfName(target).text);
    if (first == nullptr || row.carries == HEADER) {
        if (row.name != nullptr) aclDebug(area, "Message is a %s\r\n", row.name);
        count = 0;
        first = nullptr;
        list->count = 0;
    }
    aclDebug(area, sizeFormat, static_cast<int>(bodySize<Body>(count)),
             static_cast<int>(IPC_BUFFER_SIZE));
    return sendChunks<Body>(list, first, count, target, row, area);
}

constexpr char L3_SIZE[] = "Total Message size = %d : IPC_BUFFER_SIZE = %d \r\n";
// No blank behind the colon: it is meant.
constexpr char L2_SIZE[] = "Total Message size = %d :IPC_BUFFER_SIZE = %d \r\n";

}  // namespace

agentMsgRow agentMsgRowOf(uint32_t messageId) {
    const agentMsgRow* row = std::ranges::lower_bound(msgTable, messageId, {}, &agentMsgRow::id);
    if (row != std::ranges::end(msgTable) && row->id == messageId) return *row;
    return {messageId, messageId, IP, ENTRY, LISTS, nullptr};
}

int iAclIPCCheckAclList(agentListHdr* header, const aclEntry* first, uint32_t count,
                        uint32_t target, const agentMsgRow& row) {
    return checkList<ipBody>(header, first, count, target, row, DEBUG_ACL_IPC, L3_SIZE);
}
int iAclIPCCheckAclList(agentListHdr* header, const acl6Entry* first, uint32_t count,
                        uint32_t target, const agentMsgRow& row) {
    return checkList<ip6Body>(header, first, count, target, row, DEBUG_ACL_IPC, L3_SIZE);
}
int vL2AclIPCCheckAclList(agentMacListHdr* header, const l2AclEntry* first, uint32_t count,
                          uint32_t target, const agentMsgRow& row) {
    return checkList<macBody>(header, first, count, target, row, DEBUG_ACL_L2IPC, L2_SIZE);
}
