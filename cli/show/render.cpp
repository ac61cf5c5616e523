// JSON as the operator reads it.
#include "cli/show/render.h"

#include "cli/lexer.h"

namespace {

// As an operator says it; only --json shows JSON's own words.
std::string scalarText(const json& v) {
    if (v.is_string()) return v.get<std::string>();
    if (v.is_boolean()) return v.get<bool>() ? "yes" : "no";
    return v.is_null() ? "-" : jsonDump(v);
}
// Records without anything nested, whatever their keys: what one lacks stays empty in its column.
bool isTable(const json& v) {
    if (!v.is_array() || v.empty()) return false;
    for (const json& row : v) {
        if (!row.is_object()) return false;
        for (const json& cell : row)
            if (cell.is_structured()) return false;
    }
    return true;
}
// What fits behind its key on one line: a value, or a list of values.
bool isPlain(const json& v) {
    if (!v.is_array()) return !v.is_object();
    for (const json& item : v)
        if (item.is_structured()) return false;
    return true;
}
std::string plainText(const json& v) {
    if (!v.is_array()) return scalarText(v);
    std::string text;
    for (const json& item : v) text += (text.empty() ? "" : ", ") + scalarText(item);
    return text.empty() ? "-" : text;
}

// Widths count from where the text begins, not from the margin.
void pad(std::string& line, size_t from, size_t width) {
    line.append(width > line.size() - from ? width - (line.size() - from) : 0, ' ');
}

// Records of the same shape: one line each below a line of the keys.
void renderTable(const json& rows, size_t indent, cliPipe* pipe) {
    std::vector<std::string> keys;
    std::vector<size_t> widths;
    // Columns in the order in which their keys turn up first.
    for (const json& row : rows)
        for (const auto& [key, cell] : row.items()) {
            size_t at = static_cast<size_t>(std::ranges::find(keys, key) - keys.begin());
            if (at == keys.size()) {
                keys.push_back(key);
                widths.push_back(key.size());
            }
            widths[at] = std::max(widths[at], scalarText(cell).size());
        }
    auto print = [&](auto cellText) {
        std::string line(indent, ' ');
        for (size_t i = 0; i < keys.size(); i++) {
            size_t from = line.size();
            line += cellText(keys[i]);
            if (i + 1 < keys.size()) pad(line, from, widths[i] + 2);
        }
        pipeLine(pipe, lexTrimEnd(line));
    };
    print([](const std::string& key) { return key; });
    for (const json& row : rows)
        print(
            [&](const std::string& key) { return row.contains(key) ? scalarText(row[key]) : ""; });
}

constexpr size_t DEPTH_MAX = 16;

void render(const json& value, size_t indent, size_t depth, cliPipe* pipe) {
    std::string margin(indent, ' ');
    if (depth > DEPTH_MAX || isPlain(value)) return pipeLine(pipe, margin + plainText(value));
    if (isTable(value)) return renderTable(value, indent, pipe);
    if (value.is_array()) {
        for (const json& item : value) render(item, indent + 2, depth + 1, pipe);
        return;
    }
    // The values of one object stand below each other; what is nested does not widen the column.
    size_t width = 0;
    for (const auto& [key, item] : value.items())
        if (isPlain(item)) width = std::max(width, key.size());
    for (const auto& [key, item] : value.items()) {
        std::string line = margin + key;
        if (isPlain(item)) {
            pad(line, indent, width + 2);
            pipeLine(pipe, lexTrimEnd(line += plainText(item)));
        } else {
            pipeLine(pipe, line += ":");
            render(item, indent + 2, depth + 1, pipe);
        }
    }
}

}  // namespace

std::string jsonDump(const json& value, int indent) {
    // Replaced, because dump would throw at bytes that are no UTF-8, and names may be any bytes.
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

uint64_t jsonNumber(const json& object, const char* key) {
    auto at = object.is_object() ? object.find(key) : object.end();
    return at != object.end() && at->is_number_unsigned() ? at->get<uint64_t>() : 0;
}
std::string jsonText(const json& object, const char* key) {
    auto at = object.is_object() ? object.find(key) : object.end();
    return at != object.end() && at->is_string() ? at->get<std::string>() : "";
}
const json& jsonArray(const json& object, const char* key) {
    static const json none = json::array();
    auto at = object.is_object() ? object.find(key) : object.end();
    return at != object.end() && at->is_array() ? *at : none;
}

std::string shortened(std::string text, size_t width) {
    if (text.size() <= width) return text;
    // Not inside an item: a part of a number is another number.
    const size_t comma = text.rfind(',', width - 3);
    text.resize(comma != text.npos ? comma + 1 : width - 3);
    return text + "...";
}

void renderAnswer(const cliSession& session, const json& value, cliPipe* pipe) {
    if (session.options.json)
        pipeText(pipe, jsonDump(value, 2) + "\n");
    else if (value.is_string())
        pipeText(pipe, value.get<std::string>());
    else if (!value.is_array() || !value.empty())
        render(value, 0, 0, pipe);
}

cliOutcome debugJson(cliSession* session, std::string_view function, std::string_view args,
                     json* value) {
    std::string text;
    if (cliOutcome outcome = sessionDebug(session, function, args, &text); !outcome.ok)
        return outcome;
    // Many functions answer with text by design; it is shown as it is.
    *value = json::parse(text, nullptr, false);
    if (value->is_discarded()) *value = text;
    std::string refused = jsonText(*value, "error");
    return refused.empty() ? cliOutcome{} : refusal(refused);
}
