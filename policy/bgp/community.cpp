// Community and extended-community lists: their entries, each some values or an expression.
#include <cstring>
#include <string>

#include "policy/bgp/store.h"
#include "policy/bgp/zekbgp_plcy.h"

namespace {

template <size_t N>
std::string_view bounded(const char (&text)[N]) {
    return {text, strnlen(text, N)};
}

// Clears what stands behind the text's NUL, so that equal texts are equal bodies.
template <size_t N>
void bound(char (&text)[N]) {
    const size_t length = bounded(text).size();
    std::memset(text + length, 0, N - length);
}

// Bounds a count; false when it is negative.
bool boundCount(be32& count, size_t limit) {
    if (static_cast<int32_t>(uint32_t{count}) < 0) return false;
    if (count > limit) count = static_cast<uint32_t>(limit);
    return true;
}

// The body of a request's entry; false when it can be none.
bool commBody(const commEntryBlock& request, commEntryBlock* body) {
    *body = request;
    body->handle = 0;
    bound(body->text);
    if (body->kind != COMM_VALUES && body->kind != COMM_REGEXP) return false;
    return boundCount(body->count, COMM_LIST_VALUES);
}
bool extCommBodyOf(const extCommEntryBlock& request, extCommRule* body) {
    body->action = request.action;
    body->body = request.body;
    if (request.kind == COMM_REGEXP) {
        bound(body->body.text);
        return true;
    }
    if (request.kind != COMM_VALUES) return false;
    if (request.body.selector != EXTCOMM_RT && request.body.selector != EXTCOMM_SOO) return false;
    return boundCount(body->body.count, EXTCOMM_LIST_VALUES);
}

}  // namespace

// --- community lists ----------------------------------------------------------------------------

bgpList* bgpCommListFindFirst() {
    return bgpListFirst(BGP_COMM);
}
bgpList* bgpCommListFindNext(const listName& name) {
    return bgpListNext(BGP_COMM, name);
}
bgpList* bgpCommListFindPrev(const listName& name) {
    return bgpListPrev(BGP_COMM, name);
}

commEntry* bgpCommAccessEntFind(const listName& name, const commEntryBlock& block) {
    commEntryBlock body;
    if (!commBody(block, &body)) return nullptr;
    return static_cast<commEntry*>(bgpEntryFind(bgpListFind(BGP_COMM, name), bgpBody(body)));
}

commEntry* bgpCommAccessEntFindIndex(const listName& name, uint32_t index) {
    const bgpList* list = bgpListFind(BGP_COMM, name);
    if (list == nullptr || index == 0) return nullptr;
    return static_cast<commEntry*>(const_cast<bgpEntry*>(bgpIndexAt(list->index, index - 1)));
}

bgpList* bgpCommAccessListCreate(const listName& name, uint32_t placeholder, uint32_t* status) {
    return bgpListCreate(BGP_COMM, name, placeholder, status);
}
uint32_t bgpCommAccessListDelete(const listName& name) {
    return bgpListDelete(BGP_COMM, name);
}

uint32_t bgpAddCommAccessEntry(const listName& name, const commEntryBlock& block) {
    commEntryBlock body;
    if (!commBody(block, &body)) return ACL_E_SYSTEM;
    return bgpEntryAdd(BGP_COMM, name, {body.action, body.kind, bgpBody(body), bounded(body.text)});
}

uint32_t bgpDelCommAccessEntry(const listName& name, const commEntryBlock& block) {
    commEntryBlock body;
    if (!commBody(block, &body)) return ACL_E_SYSTEM;
    return bgpEntryDelete(BGP_COMM, name, bgpBody(body), 1);
}

int bgpAccessCommListDelCheckForSubSet(const commEntry& entry, const void* attribute,
                                       uint32_t length) {
    if (entry.kind != COMM_VALUES) return -1;
    const commValues listed = bgpEntryCommunities(entry.block);
    for (uint32_t i = 0; i < listed.count; i++)
        if (!bgpCommPathMatch(listed.values[i], attribute, length)) return -1;
    return 0;
}

void comm_sent_to_cfg(const bgpList* list, uint32_t remove) {
    bgpListToCfg(list, remove);
}
void comm_ent_sent_to_cfg(const commEntry* entry, uint32_t remove, const listName& name) {
    bgpEntryToCfg(BGP_COMM, entry, remove, name);
}

// --- extended-community lists -------------------------------------------------------------------

bgpList* bgpExtCommListFindFirst() {
    return bgpListFirst(BGP_EXTCOMM);
}
bgpList* bgpExtCommListFindNext(const listName& name) {
    return bgpListNext(BGP_EXTCOMM, name);
}
bgpList* bgpExtCommListFindPrev(const listName& name) {
    return bgpListPrev(BGP_EXTCOMM, name);
}

extCommEntry* bgpExtCommListEntFind(const listName& name, const extCommEntryBlock& block) {
    extCommRule body;
    if (!extCommBodyOf(block, &body)) return nullptr;
    return static_cast<extCommEntry*>(bgpEntryFind(bgpListFind(BGP_EXTCOMM, name), bgpBody(body)));
}

bgpList* bgpExtCommListCreate(const listName& name, uint32_t placeholder, uint32_t* status) {
    return bgpListCreate(BGP_EXTCOMM, name, placeholder, status);
}
uint32_t bgpExtCommListDelete(const listName& name) {
    return bgpListDelete(BGP_EXTCOMM, name);
}

uint32_t bgpAddExtCommListEntry(const listName& name, const extCommEntryBlock& block) {
    extCommRule body;
    if (!extCommBodyOf(block, &body)) return ACL_E_SYSTEM;
    return bgpEntryAdd(BGP_EXTCOMM, name,
                       {body.action, block.kind, bgpBody(body), bounded(body.body.text)});
}

uint32_t bgpDelExtCommListEntry(const listName& name, const extCommEntryBlock& block) {
    extCommRule body;
    if (!extCommBodyOf(block, &body)) return ACL_E_SYSTEM;
    return bgpEntryDelete(BGP_EXTCOMM, name, bgpBody(body), 1);
}

std::string aclExtCommToStr(const extCommValue& value) {
    return bgpExtCommToStr(value);
}

void ext_comm_sent_to_cfg(const bgpList* list, uint32_t remove) {
    bgpListToCfg(list, remove);
}
void ext_comm_ent_sent_to_cfg(const extCommEntry* entry, uint32_t remove, const listName& name) {
    bgpEntryToCfg(BGP_EXTCOMM, entry, remove, name);
}
