// Names of route-map clauses and of their values, and the configuration line of a clause.
#include <algorithm>

#include "common/debug.h"
#include "include/ipText.h"
#include "platform/api/zekTask.h"
#include "policy/bgp/zekbgp_plcy.h"
#include "policy/rmap/store.h"

namespace {

// Null for a code that the class does not have.
const rmapCodeRow* rowOf(uint32_t code, uint32_t cls) {
    const rmapCodeRow* row = rmapCodeFind(code);
    return row != nullptr && rmapSideHas(row->side, cls) ? row : nullptr;
}

void reportCode(const char* function, uint32_t cls) {
    switch (cls) {
        case RTMAP_MS_MATCH:
        case RTMAP_MS_V6_MATCH:
            aclSysErr(SYSERR_LIST,
                      "Error in MATCH: %s function: Couldn't resolve code to string \n", function);
            return;
        case RTMAP_MS_SET:
        case RTMAP_MS_V6_SET:
            aclSysErr(SYSERR_LIST, "Error in SET: %s function: Couldn't resolve code to string \n",
                      function);
            return;
        default:
            aclSysErr(SYSERR_LIST, "Error in ms:%s function: Couldn't resolve code to string \n",
                      function);
    }
}

const char* wordOrReport(const rmapWordTable& table, uint32_t value, const char* failure) {
    const char* word = rmapWordFind(table, value);
    if (word == nullptr) aclSysErr(SYSERR_LIST, "%s", failure);
    return word != nullptr ? word : "";
}

// The words that have a function of their own report what they do not know, the others do not:
// meant.
const char* wordOf(const rmapEntry& entry, uint32_t value) {
    switch (entry.code) {
        case RTMAP_MATCH_RTYPE:
            return rtmap_rtype_to_str(value);
        case RTMAP_SET_METTYPE:
            return rtmap_mettype_to_str(value);
        case RTMAP_SET_LEVEL:
            return rtmap_level_to_str(value);
    }
    const char* word = rmapWordFind(rmapCodeFind(entry.code)->words, value);
    return word != nullptr ? word : "";
}

// A value without a word shows as nothing; whether its blank stays depends on the clause: meant.
void addWord(std::string& out, rmapStyle style, const char* word) {
    out += word;
    const bool blank =
        style == RMAP_STYLE_ORIGIN ? word[0] != '\0' : style == RMAP_STYLE_WORD_BLANK;
    if (blank) out += ' ';
}

// A number stands alone: the pairs behind it do not count. They are signed: meant.
void addCommunity(std::string& out, const rmapCommunity& c) {
    if (c.number != 0) {
        textNumber(out, c.number);
        out += ' ';
    } else {
        for (uint32_t i = 0; i < c.count; i++) {
            textSigned(out, static_cast<int32_t>(uint32_t{c.high[i]}));
            textWordSigned(out, ":", c.low[i]);
            out += ' ';
        }
    }
    if (c.localAs != 0) out += "local-AS ";
    if (c.noAdvertise != 0) out += "no-advertise ";
    if (c.noExport != 0) out += "no-export ";
    if (c.additive != 0) out += "additive ";
    if (c.none != 0) out += "none ";
}

// The word is the first value's: a clause has values of one sort. It brings its own blank, which
// the clause's name has not: another subtype has neither.
void addExtCommunity(std::string& out, const rmapExtCommunity& c) {
    const uint8_t subtype = c.values[0].b[1];
    out += subtype == EXTCOMM_RT ? " rt " : subtype == EXTCOMM_SOO ? " soo " : "";
    for (uint32_t i = 0; i < c.count; i++) out += aclExtCommToStr(c.values[i]);
    if (c.additive != 0) out += "additive ";
}

void addMetric(std::string& out, const rmapNumberValue& number) {
    constexpr const char* operators[] = {"", "+ ", "- "};
    out += operators[number.subValue];
    textNumber(out, number.value);
}

void addInterface(std::string& out, uint32_t ifindex) {
    char name[64];
    // An index that is no interface's has a text, too.
    (void)ifmIfIndexToLName(ifindex, name, sizeof name);
    out += name;
}

}  // namespace

const char* rtmap_code_to_str(uint32_t code, uint32_t cls) {
    const rmapCodeRow* row = rowOf(code, cls);
    if (row != nullptr && row->name[0] != '\0') return row->name;
    if (cls == RTMAP_CONTINUE)
        aclSysErr(SYSERR_LIST, "%s",
                  "Error in CONTINUE: rtmap_code_to_str function:\n"
                  "                      Couldn't resolve code to string \n");
    else
        reportCode("rtmap_code_to_str", cls);
    return "";
}

const char* rtmap_code_to_str_conf(uint32_t code, uint32_t cls) {
    const rmapCodeRow* row = rowOf(code, cls);
    if (row != nullptr && row->conf[0] != '\0') return row->conf;
    reportCode("rtmap_code_to_str_conf", cls);
    return "";
}

const char* acl_rtmap_code_to_str(uint32_t code) {
    const rmapCodeRow* row = rmapCodeFind(code);
    return row != nullptr ? row->debug : "";
}

const char* acl_rtmap_ms_to_str(uint32_t cls) {
    switch (cls) {
        case RTMAP_MS_MATCH:
            return "RTMAP_MS_MATCH";
        case RTMAP_MS_V6_MATCH:
            return "RTMAP_MS_V6_MATCH";
        case RTMAP_MS_SET:
            return "RTMAP_MS_SET";
        case RTMAP_MS_V6_SET:
            return "RTMAP_MS_V6_SET";
        case RTMAP_CONTINUE:
            return "RTMAP_CONTINUE";
    }
    return "";
}

const char* rtmap_rtype_to_str(uint32_t value) {
    return wordOrReport(rmapWordsOf(rmapRouteTypes), value,
                        "Error in routetype number: rtmap_rtype_to_str function: "
                        "Couldn't resolve number to string \n");
}
const char* rtmap_mettype_to_str(uint32_t value) {
    return wordOrReport(rmapWordsOf(rmapMetricTypes), value,
                        "Error in mettype number: rtmap_mettype_to_str function: "
                        "Couldn't resolve number to string \n");
}
const char* rtmap_level_to_str(uint32_t value) {
    return wordOrReport(rmapWordsOf(rmapLevels), value,
                        "Error in level number: rtmap_level_to_str function: "
                        "Couldn't resolve number to string \n");
}

const char* rmapClauseName(const rmapEntry& entry) {
    // The exact community match has no name of its own.
    const uint32_t code =
        entry.code == RTMAP_MATCH_COMM_EXACT ? uint32_t{RTMAP_MATCH_COMM} : entry.code;
    return rtmap_code_to_str(code, entry.cls);
}

rmapStyle rmapClauseStyle(const rmapEntry& entry) {
    const rmapCodeRow& row = *rmapCodeFind(entry.code);
    // Words stand in the lines of their own class only; the class of the other family has lists and
    // numbers as they are: meant.
    if (entry.cls == row.cls) return row.style;
    switch (row.style) {
        case RMAP_STYLE_LIST_DELETE:
            return RMAP_STYLE_LIST;
        case RMAP_STYLE_ADDRESS:
        case RMAP_STYLE_METRIC:
        case RMAP_STYLE_WORD:
        case RMAP_STYLE_WORD_BLANK:
        case RMAP_STYLE_ORIGIN:
            return RMAP_STYLE_NUMBER;
        default:
            return row.style;
    }
}

// The blanks at the end of some lines, and the two in a row, are meant.
std::string rmapClauseLine(const rmapEntry* entry, const rmapNameValue* nameValue,
                           const rmapNumberValue* number) {
    const rmapStyle style = rmapClauseStyle(*entry);
    if (style == RMAP_STYLE_METRIC && number->subValue > RMAP_METRIC_SUBTRACT) return {};
    std::string line = " ";
    line += rmapClauseName(*entry);
    // A continue without a target ends here; the extended communities bring a blank of their own.
    const bool bare = style == RMAP_STYLE_CONTINUE && number->value == 0;
    if (!bare && style != RMAP_STYLE_EXTCOMMUNITY) line += ' ';
    rmapValueText(line, *entry, nameValue, number);
    return line;
}

void rmapValueText(std::string& out, const rmapEntry& entry, const rmapNameValue* name,
                   const rmapNumberValue* number) {
    const rmapStyle style = rmapClauseStyle(entry);
    switch (style) {
        case RMAP_STYLE_NONE:
        case RMAP_STYLE_FLAG:
            break;
        case RMAP_STYLE_PREFIX_LIST:
        case RMAP_STYLE_LIST:
        case RMAP_STYLE_LIST_EXACT:
        case RMAP_STYLE_LIST_DELETE:
            out += listNameView(name->name);
            if (style == RMAP_STYLE_LIST_EXACT) out += " exact";
            if (style == RMAP_STYLE_LIST_DELETE) out += " delete";
            break;
        case RMAP_STYLE_NUMBER:
            textNumber(out, number->value);
            break;
        case RMAP_STYLE_ADDRESS:
            textDotted(out, number->value);
            break;
        case RMAP_STYLE_METRIC:
            if (number->subValue <= RMAP_METRIC_SUBTRACT) addMetric(out, *number);
            break;
        case RMAP_STYLE_WORD:
        case RMAP_STYLE_WORD_BLANK:
        case RMAP_STYLE_ORIGIN:
            addWord(out, style, wordOf(entry, number->value));
            break;
        case RMAP_STYLE_INTERFACE:
            addInterface(out, number->value);
            break;
        case RMAP_STYLE_CONTINUE:
            if (number->value != 0) textNumber(out, number->value);
            break;
        case RMAP_STYLE_COMMUNITY:
            addCommunity(out, entry.payload->community);
            break;
        case RMAP_STYLE_EXTCOMMUNITY:
            addExtCommunity(out, entry.payload->extCommunity);
            break;
        case RMAP_STYLE_PREPEND:
            for (uint32_t i = 0; i < entry.payload->prepend.count; i++) {
                out += bgpGetAS4Str(entry.payload->prepend.as[i], rmapAsNotation);
                out += ' ';
            }
            break;
        case RMAP_STYLE_DAMPENING:
            for (size_t i = 0; i < std::size(entry.payload->dampening); i++)
                textWordSigned(out, i == 0 ? "" : " ", entry.payload->dampening[i]);
            break;
        case RMAP_STYLE_IPV6:
            textAddress6(out, entry.payload->ipv6NextHop);
            break;
    }
}

std::string rmapInstanceText(const listName& name, uint32_t action, int32_t seq) {
    std::string text = "route-map ";
    text += listNameView(name);
    text += action == RMAP_DENY ? " deny " : " permit ";
    textSigned(text, seq);
    return text;
}
