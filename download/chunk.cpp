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

constexpr const agentForm *IP = &agentForm4, *IP6 = &agentForm6, *MAC = &agentFormMac;
constexpr agentCarries LIST = agentCarries::list, HEADER = agentCarries::header,
                       ENTRY = agentCarries::entry, EITHER = agentCarries::entryOrHeader;

// clang-format off
constexpr agentMsgRow msgTable[] = {
    {MT_ACL_ADDLIST,         MT_ACL_ADDENT,         IP,  LIST, nullptr},
    {MT_ACL_ADDENT,          MT_ACL_ADDENT,         IP,  ENTRY, nullptr},
    {MT_ACL_DELENT,          MT_ACL_DELENT,         IP,  ENTRY, nullptr},
    {MT_ACL_DELLIST,         MT_ACL_DELLIST,        IP,  HEADER, "MT_ACL_DELLIST"},
    {MT_ACL_SYS_ADDLIST,     MT_ACL_SYS_ADDENT,     IP,  LIST, nullptr},
    {MT_ACL_SYS_ADDENT,      MT_ACL_SYS_ADDENT,     IP,  ENTRY, nullptr},
    {MT_ACL_SYS_DEL,         MT_ACL_SYS_DEL,        IP,  EITHER, nullptr},
    {MT_ACL_EGR_ADDLIST,     MT_ACL_EGR_ADDENT,     IP,  LIST, nullptr},
    {MT_ACL_EGR_ADDENT,      MT_ACL_EGR_ADDENT,     IP,  ENTRY, nullptr},
    {MT_ACL_EGR_DELENT,      MT_ACL_EGR_DELENT,     IP,  ENTRY, nullptr},
    {MT_ACL_EGR_DELLIST,     MT_ACL_EGR_DELLIST,    IP,  HEADER, nullptr},
    {MT_DOS_ADDLIST,         MT_DOS_ADDENT,         IP,  LIST, nullptr},
    {MT_DOS_ADDENT,          MT_DOS_ADDENT,         IP,  ENTRY, nullptr},
    {MT_DOS_DELLIST,         MT_DOS_DELLIST,        IP,  HEADER, nullptr},
    {MT_DOS_DELENT,          MT_DOS_DELENT,         IP,  ENTRY, nullptr},
    {MT_L2ACL_ADDLIST,       MT_L2ACL_ADDENT,       MAC, LIST, nullptr},
    {MT_L2ACL_ADDENT,        MT_L2ACL_ADDENT,       MAC, ENTRY, nullptr},
    {MT_L2ACL_DELLIST,       MT_L2ACL_DELLIST,      MAC, HEADER, "MT_L2ACL_DELLIST"},
    {MT_L2ACL_DELENT,        MT_L2ACL_DELENT,       MAC, ENTRY, nullptr},
    {14488,                  14488,                 MAC, ENTRY, nullptr},
    {14489,                  14489,                 MAC, ENTRY, nullptr},
    {MT_ACLMAC_NEW,          MT_ACLMAC_NEW,         MAC, HEADER, "MT_ACLMAC_NEW"},
    {MT_ACLMAC_ADD,          MT_ACLMAC_ADD,         MAC, LIST, nullptr},
    {MT_ACLMAC_DELENTRY,     MT_ACLMAC_DELENTRY,    MAC, LIST, nullptr},
    {MT_ACLMAC_DELALLENTRY,  MT_ACLMAC_DELALLENTRY, MAC, LIST, nullptr},
    {MT_ACLMAC_DELLIST,      MT_ACLMAC_DELLIST,     MAC, LIST, nullptr},
    {MT_L2ACL_EGR_ADDLIST,   MT_L2ACL_EGR_ADDENT,   MAC, LIST, nullptr},
    {MT_L2ACL_EGR_ADDENT,    MT_L2ACL_EGR_ADDENT,   MAC, ENTRY, nullptr},
    {MT_L2ACL_EGR_DELLIST,   MT_L2ACL_EGR_DELLIST,  MAC, HEADER, nullptr},
    {MT_L2ACL_EGR_DELENT,    MT_L2ACL_EGR_DELENT,   MAC, ENTRY, nullptr},
    {MT_ACL_V6_SYS_ADDLIST,  MT_ACL_V6_SYS_ADDENT,  IP6, LIST, nullptr},
    {MT_ACL_V6_SYS_ADDENT,   MT_ACL_V6_SYS_ADDENT,  IP6, ENTRY, nullptr},
    {MT_ACL_V6_SYS_DEL,      MT_ACL_V6_SYS_DEL,     IP6, EITHER, nullptr},
    {MT_ACL_V6_ADDLIST,      MT_ACL_V6_ADDENT,      IP6, LIST, nullptr},
    {MT_ACL_V6_ADDENT,       MT_ACL_V6_ADDENT,      IP6, ENTRY, nullptr},
    {MT_ACL_V6_DELENT,       MT_ACL_V6_DELENT,      IP6, ENTRY, nullptr},
    {MT_ACL_V6_DELLIST,      MT_ACL_V6_DELLIST,     IP6, HEADER, nullptr},
    {MT_ACL_V6_EGR_ADDLIST,  MT_ACL_V6_EGR_ADDENT,  IP6, LIST, nullptr},
    {MT_ACL_V6_EGR_ADDENT,   MT_ACL_V6_EGR_ADDENT,  IP6, ENTRY, nullptr},
    {MT_ACL_V6_EGR_DELENT,   MT_ACL_V6_EGR_DELENT,  IP6, ENTRY, nullptr},
    {MT_ACL_V6_EGR_DELLIST,  MT_ACL_V6_EGR_DELLIST, IP6, HEADER, nullptr},
    {MT_IPMAC_ACL_NEWLIST,   MT_IPMAC_ACL_ADDENTRIES, IP, LIST, nullptr},
    {MT_IPMAC_ACL_DELIST,    MT_IPMAC_ACL_DELIST,   IP,  HEADER, nullptr},
    {MT_IPMAC_ACL_ADDENTRIES, MT_IPMAC_ACL_ADDENTRIES, IP, ENTRY, nullptr},
    {MT_IPMAC_ACL_DELENTRIES, MT_IPMAC_ACL_DELENTRIES, IP, ENTRY, nullptr},
};
// clang-format on
static_assert(std::ranges::is_sorted(msgTable, {}, &agentMsgRow::id));

}  // namespace

agentMsgRow agentMsgRowOf(uint32_t messageId) {
    const agentMsgRow* row = std::ranges::lower_bound(msgTable, messageId, {}, &agentMsgRow::id);
    if (row != std::ranges::end(msgTable) && row->id == messageId) return *row;
    return {messageId, messageId, IP, ENTRY, nullptr};
}

int iAclIPCCheckAclList(std::span<uint8_t> staging, const listName& name, const listEntry* first,
                        uint32_t count, const agentRoute& route, const agentMsgRow& row) {
    const agentForm& form = *row.form;
    aclDebug(form.debugArea, "Sending list " LIST_NAME_FMT " with %d entries to agent %s \r\n",
             listNameArg(name), static_cast<int>(count), agentIfName(route.ifindex).text);
    if (first == nullptr) {
        if (row.name != nullptr) aclDebug(form.debugArea, "Message is a %s\r\n", row.name);
        count = 0;
    }
    const size_t size = form.bodyBytes(count);
    aclDebug(form.debugArea, form.sizeFormat, static_cast<int>(size),
             static_cast<int>(IPC_BUFFER_SIZE));
    const bool split = size > AGENT_BODY_MAX_SINGLE;
    agentHdr header;
    vAclBuildIpcHdr(&header, route, size, row.id);
    form.setCount(staging.data(), count);
    const auto images = staging.subspan(form.headerBytes);
    for (uint32_t number = 1;; number++) {
        bool last = !split || count <= form.chunk;
        const uint32_t wanted = last ? count : form.chunk;
        const uint32_t carried = form.images(images.first(wanted * form.imageBytes), &first);
        last = last || carried < wanted;  // a chain shorter than its count ends the list
        if (last) form.setCount(staging.data(), carried);
        if (split)
            aclDebug(form.debugArea,
                     last ? "Sending Last message chunk %d\r\n" : "Sending message chunk %d\r\n",
                     static_cast<int>(number));
        if (iAclIPCSendAclList(staging.data(), form.bodyBytes(carried), route, header, !last) !=
            0) {
            if (split)
                aclDebug(form.debugArea, "Error Sending message chunk %d\r\n",
                         static_cast<int>(number));
            return -1;
        }
        if (last) return 0;
        count -= carried;
        header.ipc.mtype = row.more;
    }
}
