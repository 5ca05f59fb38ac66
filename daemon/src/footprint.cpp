/*
 * Start-up touches far more of the shared libraries than serving does: the dynamic linker
 * walks the symbol tables of every library to relocate the C++ runtime and the plug-ins, the
 * C library runs its one-time set-up, plug-ins are loaded. The kernel maps library pages in
 * windows of several pages around each page touched, and they stay counted in the daemon's
 * resident set for the rest of its life, although serving needs few of them: on a board,
 * most of the daemon's resident size. Once start-up is over, the daemon drops its mappings
 * of the pages that hold nothing but their file's bytes: private, read-only mappings of a
 * file with no page of their own (no copy made on a write, as in relocated data, and none
 * swapped out). The pages themselves stay in the page cache, shared with every other
 * process; dropping the mapping loses nothing, and a page the daemon uses again is mapped
 * again on its first touch.
 */
#include "footprint.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct mapping_t {
    uintptr_t start;
    uintptr_t end;
    bool droppable; /* only its file's bytes, so far */
};

/* The hexadecimal number at *text, which is moved past it. */
uintptr_t take_hex(const char **text) {
    uintptr_t value = 0;
    for (;; ++*text) {
        const char c = **text;
        if (c >= '0' && c <= '9')
            value = value * 16 + static_cast<uintptr_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            value = value * 16 + static_cast<uintptr_t>(c - 'a' + 10);
        else
            return value;
    }
}

const char *skip_field(const char *text) {
    while (*text != '\0' && *text != ' ')
        ++text;
    while (*text == ' ')
        ++text;
    return text;
}

/* "start-end perms offset dev inode path": a mapping's first line in /proc/self/smaps. The
   lines that follow it name a field with a capital letter, never a hexadecimal digit. */
bool read_mapping_line(const char *line, mapping_t *mapping) {
    const char *at = line;
    const uintptr_t start = take_hex(&at);
    if (at == line || *at != '-')
        return false;
    ++at;
    const uintptr_t end = take_hex(&at);
    if (*at != ' ' || strlen(at) < 5)
        return false;
    const char *perms = at + 1;
    const bool read_only_private = perms[1] == '-' && perms[3] == 'p';
    const char *path = skip_field(skip_field(skip_field(skip_field(perms))));
    *mapping = {start, end, read_only_private && *path == '/'};
    return true;
}

/* A page of the mapping's own (a copy made on a write, or one swapped out) makes it hold
   more than its file: it stays. */
void read_field_line(const char *line, mapping_t *mapping) {
    const char *value = nullptr;
    if (strncmp(line, "Anonymous:", 10) == 0)
        value = line + 10;
    else if (strncmp(line, "Swap:", 5) == 0)
        value = line + 5;
    if (value == nullptr)
        return;
    while (*value == ' ')
        ++value;
    if (*value != '0')
        mapping->droppable = false;
}

void drop(const mapping_t &mapping) {
    if (mapping.droppable && mapping.end > mapping.start)
        madvise(reinterpret_cast<void *>(mapping.start), mapping.end - mapping.start,
                MADV_DONTNEED);
}

void read_line(const char *line, mapping_t *mapping) {
    mapping_t next;
    if (read_mapping_line(line, &next)) {
        drop(*mapping);
        *mapping = next;
    } else {
        read_field_line(line, mapping);
    }
}

} // namespace

/* Read with plain system calls and parsed by hand: nothing here should bring back code that
   only start-up ran. A line longer than the buffer is cut (only its start matters). */
void kerv_release_start_up_pages() {
    const int fd = open("/proc/self/smaps", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    char text[4096];
    size_t held = 0;
    mapping_t mapping = {0, 0, false};
    for (;;) {
        const ssize_t got = read(fd, text + held, sizeof(text) - 1 - held);
        if (got <= 0)
            break;
        held += static_cast<size_t>(got);
        text[held] = '\0';
        char *line = text;
        for (char *end; (end = strchr(line, '\n')) != nullptr; line = end + 1) {
            *end = '\0';
            read_line(line, &mapping);
        }
        held = static_cast<size_t>(text + held - line);
        if (held == sizeof(text) - 1) {
            read_line(text, &mapping);
            held = 0;
        } else {
            memmove(text, line, held);
        }
    }
    drop(mapping);
    close(fd);
}
