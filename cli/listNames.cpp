// Reading ahead: which lists a file defines, before its first line is sent. A clause may name a
// list that only comes further down, and its bare name has to be read right.
#include "cli/listNames.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace {

bool writeAll(int fd, const char* bytes, size_t length) {
    while (length > 0) {
        const ssize_t n = write(fd, bytes, length);
        if (n < 0 && errno != EINTR) return false;
        bytes += std::max<ssize_t>(n, 0);
        length -= static_cast<size_t>(std::max<ssize_t>(n, 0));
    }
    return true;
}

// What comes through the pipe until its end, in a file of its own, which has no name and is held in
// memory: a pipe cannot be read twice.
int keepPipe(int fd) {
    const int kept = memfd_create("load", MFD_CLOEXEC);
    std::array<char, 65536> piece;
    size_t total = 0;
    ssize_t n = 0;
    while (kept >= 0 && (n = read(fd, piece.data(), piece.size())) != 0) {
        if (n < 0 && errno == EINTR) continue;
        if (n > 0 && (total += static_cast<size_t>(n)) > LOAD_PIPE_MAX) errno = EFBIG;
        if (n > 0 && total <= LOAD_PIPE_MAX && writeAll(kept, piece.data(), static_cast<size_t>(n)))
            continue;
        const int why = errno;
        close(kept);
        errno = why;
        return -1;
    }
    if (kept >= 0) lseek(kept, 0, SEEK_SET);
    return kept;
}

}  // namespace

int listNamesReadAhead(listNames* names, int fd) {
    // A descriptor that cannot seek is a pipe or a terminal.
    const off_t start = lseek(fd, 0, SEEK_CUR);
    const int kept = start < 0 ? keepPipe(fd) : fd;
    if (kept < 0) return -1;
    off_t at = std::max<off_t>(start, 0);
    std::string line;
    std::array<char, 65536> piece;
    // Read beside the descriptor's own position, which stays where the load begins.
    for (ssize_t n; (n = pread(kept, piece.data(), piece.size(), at)) > 0; at += n) {
        std::string_view rest(piece.data(), static_cast<size_t>(n));
        for (size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1)) {
            line += rest.substr(0, end);
            listNamesNote(names, line);
            line.clear();
        }
        // The line that the next piece goes on with.
        line += rest;
    }
    listNamesNote(names, line);
    return kept;
}
