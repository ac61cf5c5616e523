// The rows of compiled configuration lines.
#include "cli/request/compile.h"

#include "include/cfgCompiled.h"

namespace {

// The lengths stand in front, so that a reader can skip what it does not know. A write that fails
// shows in the file's end, which is missing then.
void write(FILE* out, uint32_t mtype, std::string_view text, std::string_view body) {
    cfgCompiledRow row;
    row.mtype = mtype;
    row.textLength = static_cast<uint32_t>(text.size());
    row.bodyLength = static_cast<uint32_t>(body.size());
    fwrite(&row, sizeof row, 1, out);
    fwrite(text.data(), 1, text.size(), out);
    fwrite(body.data(), 1, body.size(), out);
}

}  // namespace

void compileWrite(FILE* out, std::string_view text, const ipcHdr* message) {
    if (message == nullptr) return write(out, 0, text, {});
    // The header is the manager's to make when it takes the row; the body is kept.
    const auto* behind = reinterpret_cast<const char*>(message + 1);
    write(out, message->mtype, text, {behind, message->length - sizeof *message});
}

void compileEnd(FILE* out) {
    write(out, CFG_COMPILED_END, {}, {});
    fflush(out);
}
