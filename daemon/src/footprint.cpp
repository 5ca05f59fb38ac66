/*
 * Start-up touches far more of the shared libraries than serving does: the dynamic linker
 * walks the symbol tables of every library to relocate the C++ runtime and the plug-ins, the
 * C library runs its one-time set-up, plug-ins are loaded. The kernel maps library pages in
 * windows of several pages around each page touched, and they stay counted in the daemon's
 * resident set for the rest of its life, although serving needs few of them: most of the
 * daemon's resident size, on a board. Once start-up is over, the daemon drops its mappings
 * of the read-only segments of every program and library it has loaded: their pages hold
 * nothing but their file's bytes (relocated data lives in the writable segment, made
 * read-only later, which stays). The pages themselves stay in the page cache, shared with
 * every other process; dropping the mapping loses nothing, and a page the daemon uses again
 * is mapped again on its first touch.
 *
 * The segments come from the program headers the dynamic linker itself used, not from the
 * kernel's account of the mappings, which an emulator may not give truthfully.
 */
#include "footprint.h"

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/* An object whose text is patched by its relocations holds more than its file. */
bool has_text_relocations(const struct dl_phdr_info *object) {
    for (int i = 0; i < object->dlpi_phnum; i++) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_DYNAMIC)
            continue;
        const auto *entry =
            reinterpret_cast<const ElfW(Dyn) *>(object->dlpi_addr + segment.p_vaddr);
        for (; entry->d_tag != DT_NULL; entry++) {
            if (entry->d_tag == DT_TEXTREL ||
                (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0))
                return true;
        }
    }
    return false;
}

struct page_range_t {
    uintptr_t start;
    uintptr_t end;
};

/* The pages a segment is mapped on. */
page_range_t pages_of(ElfW(Addr) base, const ElfW(Phdr) & segment, uintptr_t page) {
    const uintptr_t start = base + segment.p_vaddr;
    return {start & ~(page - 1), (start + segment.p_memsz + page - 1) & ~(page - 1)};
}

/* The segment's pages, less any page a writable segment of the object shares with it. */
page_range_t droppable_pages(const struct dl_phdr_info *object, const ElfW(Phdr) & segment,
                             uintptr_t page) {
    page_range_t range = pages_of(object->dlpi_addr, segment, page);
    for (int i = 0; i < object->dlpi_phnum; i++) {
        const ElfW(Phdr) &other = object->dlpi_phdr[i];
        if (other.p_type != PT_LOAD || (other.p_flags & PF_W) == 0)
            continue;
        const page_range_t written = pages_of(object->dlpi_addr, other, page);
        if (written.start < range.end && written.end > range.start) {
            if (written.start > range.start)
                range.end = written.start;
            else
                range.start = written.end;
        }
    }
    return range;
}

int drop_read_only_segments(struct dl_phdr_info *object, size_t, void *) {
    /* The kernel's own page of code, not a file. */
    if (object->dlpi_addr == getauxval(AT_SYSINFO_EHDR) || has_text_relocations(object))
        return 0;
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; i++) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0)
            continue;
        const page_range_t range = droppable_pages(object, segment, page);
        if (range.end > range.start)
            madvise(reinterpret_cast<void *>(range.start), range.end - range.start, MADV_DONTNEED);
    }
    return 0;
}

} // namespace

void kerv_release_start_up_pages() {
    dl_iterate_phdr(drop_read_only_segments, nullptr);
}
