// Evaluation of AS-path, community and extended-community lists, shared with client tasks.
//
// The caller holds the read lock for as long as it uses a list or an entry. The first entry that
// matches decides; a list in which none does, an empty list and no list at all deny.
//
// Verdicts: 1 denies (the route is dropped), 0 permits.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/lists/bgpList.h"

constexpr int BGP_VERDICT_PERMIT = 0;
constexpr int BGP_VERDICT_DENY = 1;

// --- lists -------------------------------------------------------------------------------------

// By name, null when absent. A placeholder is found too: it has no entries.
bgpList* bgpASPAccessListFind(const listName& name);
bgpList* bgpCommAccessListFind(const listName& name);
bgpList* bgpExtCommListFind(const listName& name);

// --- one list against one attribute --------------------------------------------------------------

// *decided is the entry that decided, null for the implicit deny; may be null. `list` may be null.
//
// The path as aspath_make_str_count writes it.
int aspathListCheck(const bgpList* list, std::string_view path, const bgpEntry** decided);
// Communities in host order, in any order. An entry of values matches when all of its values are
// there; with `exact`, when moreover nothing else is there. An expression is searched for in the
// communities' text (bgpCommunityText), `exact` or not.
int commListCheck(const bgpList* list, std::span<const uint32_t> communities, bool exact,
                  const bgpEntry** decided);
// Entries of values match when all of their values are there; expressions are searched for in the
// text of all communities (bgpExtCommunityText).
int extCommListCheck(const bgpList* list, std::span<const extCommValue> communities,
                     const bgpEntry** decided);

// --- attributes as they are on the wire ---------------------------------------------------------
//
// `attribute` is the whole attribute: flags, type, length (two bytes when the flags say so), value;
// `length` counts all of it. What does not lie in it whole is malformed, and a malformed attribute
// is denied. A list number is looked up as its decimal name.

// How many bytes the numbers of an AS_PATH attribute have: the caller's session has agreed on it.
// Unknown: two where the segments add up with them, else four, which takes some paths of four-byte
// numbers for others (512 alone reads 0). AS4_PATH always has four.
enum bgpAsWidth : uint32_t { AS_WIDTH_UNKNOWN = 0, AS_WIDTH_2 = 2, AS_WIDTH_4 = 4 };
int bgpAccessASPMatchFin(uint32_t listId, const void* attribute, uint32_t length);
int bgpAccessASPMatchWidth(uint32_t listId, bgpAsWidth width, const void* attribute,
                           uint32_t length);
int bgpAccessCommMatchFin(uint32_t listId, const void* attribute, uint32_t length);
// The handle is the list's record, as a registered route map holds it.
int bgpAccessCommMatchFinWithHandle(const bgpList* list, const void* attribute, uint32_t length);
// Whether the community (host order) is in the COMMUNITIES attribute.
bool bgpCommPathMatch(uint32_t community, const void* attribute, uint32_t length);

// The text of an AS_PATH (type 2) or AS4_PATH (type 17) attribute: the numbers of a sequence stand
// between blanks,
// "{1,2}" is a set, "(1 2)" a confederation's sequence, "(1,2)" its set. Writes at most size - 1
// characters and a NUL, and returns the characters of the whole text; -1: malformed.
int aspath_make_str_count(const void* attribute, uint32_t length, char* text, size_t size,
                          bgpAsWidth width = AS_WIDTH_UNKNOWN);

// --- texts --------------------------------------------------------------------------------------

// How AS numbers are shown; expressions always see the plain form.
enum bgpAsNotation : uint32_t {
    AS_NOTATION_PLAIN,   // 65546
    AS_NOTATION_DOT,     // 1.10, but 65535
    AS_NOTATION_DOTPLUS  // 1.10, 0.65535
};
std::string bgpGetAS4Str(uint32_t as, bgpAsNotation notation);

constexpr uint32_t COMMUNITY_NO_EXPORT = 0xFFFFFF01;
constexpr uint32_t COMMUNITY_NO_ADVERTISE = 0xFFFFFF02;
constexpr uint32_t COMMUNITY_LOCAL_AS = 0xFFFFFF03;
// "65000:1 no-export": what expressions of community lists are searched for in.
std::string bgpCommunityText(std::span<const uint32_t> communities);

// "65000:1 ", "192.0.2.1:7 ", "as4 65546:1 ", "... non-trans ", or nothing for other types.
std::string bgpExtCommToStr(const extCommValue& value);
// "rt 65000:1 soo 192.0.2.1:7": what expressions of extended-community lists are searched for in.
std::string bgpExtCommunityText(std::span<const extCommValue> communities);

// The values of a value entry, in host order: number, listed ones, well-known ones. None for an
// expression.
struct commValues {
    uint32_t values[COMM_LIST_VALUES + 4];
    uint32_t count;
};
commValues bgpEntryCommunities(const commEntryBlock& block);

// --- the index beside a list --------------------------------------------------------------------
//
// Its store makes it with the list, and tells it of every change while it holds the write lock;
// readers build the slow parts of it when they pay.

[[nodiscard]] bgpIndex* bgpIndexMake();  // null: no memory
void bgpIndexFree(bgpIndex* index);      // null is allowed
// The entry has been linked at the tail and has its id. False: no memory, nothing has changed.
[[nodiscard]] bool bgpIndexAdd(bgpIndex* index, bgpListKind kind, const bgpEntry* entry);
// The entry is about to be freed.
void bgpIndexRemove(bgpIndex* index, bgpListKind kind, const bgpEntry* entry);
// The entry at a position from 0, null behind the last one.
const bgpEntry* bgpIndexAt(const bgpIndex* index, size_t position);
