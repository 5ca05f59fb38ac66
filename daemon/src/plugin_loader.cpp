#include "plugin_loader.h"

#include "daemon_config.h"

#include "validator_registry.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t kLibPathSize = 256;
/* The board's plug-in directory, fixed at build time (KERV_PLUGIN_DIR). */
/* Characters of an entry name before its library name ("lib" in libcgdcont.so). */
constexpr size_t kLibPrefixLen = 3;

/* The plug-in directory in force; a heap copy kept for the life of the process. */
char *lib_path = nullptr;

/*
 * The directory named by KERVD_PLUGIN_DIR (the board's fixed one when it is unset or
 * empty) as a heap string.
 * A relative directory is made absolute: the loader changes into it before opening it.
 */
char *copy_plugin_dir() {
    const char *dir = kerv_plugin_dir_path();
    if (dir[0] == '/')
        return strdup(dir);
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof(cwd)) == nullptr)
        return strdup(dir);
    const size_t size = strlen(cwd) + 1 + strlen(dir) + 1;
    char *absolute = static_cast<char *>(malloc(size));
    if (absolute != nullptr)
        snprintf(absolute, size, "%s/%s", cwd, dir);
    return absolute;
}

/* Closes the directory stream however the scan ends. */
struct DirGuard {
    DIR *dir;
    explicit DirGuard(DIR *stream) : dir(stream) {}
    ~DirGuard() {
        if (dir != nullptr)
            closedir(dir);
    }
    DirGuard(const DirGuard &) = delete;
    DirGuard &operator=(const DirGuard &) = delete;
};

/* A plug-in file mapped for reading its symbol table; unmapped however the check ends. */
struct FileImage {
    const unsigned char *bytes = nullptr;
    size_t size = 0;
    explicit FileImage(const char *path) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        struct stat info;
        if (fstat(fd, &info) == 0 && info.st_size > 0) {
            void *mapped =
                mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
            if (mapped != MAP_FAILED) {
                bytes = static_cast<const unsigned char *>(mapped);
                size = static_cast<size_t>(info.st_size);
            }
        }
        close(fd);
    }
    ~FileImage() {
        if (bytes != nullptr)
            munmap(const_cast<unsigned char *>(bytes), size);
    }
    FileImage(const FileImage &) = delete;
    FileImage &operator=(const FileImage &) = delete;
    bool holds(size_t offset, size_t length) const {
        return offset <= size && length <= size - offset;
    }
};

/* The section headers of a well-formed ELF file of this machine's class, or null. */
const ElfW(Shdr) * section_headers(const FileImage &image) {
    const auto *header = reinterpret_cast<const ElfW(Ehdr) *>(image.bytes);
    constexpr unsigned char kNativeClass = sizeof(void *) == 8 ? ELFCLASS64 : ELFCLASS32;
    if (image.bytes == nullptr || !image.holds(0, sizeof(ElfW(Ehdr))) ||
        memcmp(header->e_ident, ELFMAG, SELFMAG) != 0 ||
        header->e_ident[EI_CLASS] != kNativeClass || header->e_shentsize != sizeof(ElfW(Shdr)) ||
        !image.holds(header->e_shoff, size_t{header->e_shnum} * sizeof(ElfW(Shdr))))
        return nullptr;
    return reinterpret_cast<const ElfW(Shdr) *>(image.bytes + header->e_shoff);
}

bool resolvable(void *handle, const char *name) {
    const bool found = dlsym(handle, name) != nullptr || dlsym(RTLD_DEFAULT, name) != nullptr;
    dlerror();
    return found;
}

/*
 * Lazy binding resolves a plug-in's functions only when they are first called, so a
 * plug-in built against another library version would load fine and end the daemon in
 * the middle of a host's command. Every strong undefined symbol of its dynamic symbol
 * table is therefore looked up now, in the plug-in's own dependencies and in the global
 * scope (the daemon and its libraries), and each missing one is reported.
 */
void report_unresolved_symbols(void *handle, const char *path) {
    FileImage image(path);
    const ElfW(Shdr) *sections = section_headers(image);
    if (sections == nullptr)
        return;
    const auto *header = reinterpret_cast<const ElfW(Ehdr) *>(image.bytes);
    for (size_t i = 0; i < header->e_shnum; i++) {
        const ElfW(Shdr) &symtab = sections[i];
        if (symtab.sh_type != SHT_DYNSYM || symtab.sh_link >= header->e_shnum ||
            !image.holds(symtab.sh_offset, symtab.sh_size))
            continue;
        const ElfW(Shdr) &strtab = sections[symtab.sh_link];
        if (!image.holds(strtab.sh_offset, strtab.sh_size))
            continue;
        const char *names = reinterpret_cast<const char *>(image.bytes + strtab.sh_offset);
        const auto *symbols = reinterpret_cast<const ElfW(Sym) *>(image.bytes + symtab.sh_offset);
        for (size_t n = 0; n < symtab.sh_size / sizeof(ElfW(Sym)); n++) {
            const ElfW(Sym) &symbol = symbols[n];
            /* Both ELF classes encode the binding alike: ELF32_ST_BIND serves either. */
            if (symbol.st_shndx != SHN_UNDEF || ELF32_ST_BIND(symbol.st_info) != STB_GLOBAL ||
                symbol.st_name == 0 || symbol.st_name >= strtab.sh_size ||
                memchr(names + symbol.st_name, '\0', strtab.sh_size - symbol.st_name) == nullptr)
                continue;
            if (!resolvable(handle, names + symbol.st_name))
                KERV_WARN("KERVLIB[%s]:unresolved symbol %s", path, names + symbol.st_name);
        }
    }
}

} // namespace

kal_bool config_libdir(void) {
    KERV_FUNC(" ENTER");
    /* Loading starts from nothing, so a failure below always leaves no table. */
    reset_validators();
    free(lib_path);
    lib_path = copy_plugin_dir();
    if (lib_path == nullptr) {
        KERV_WARN("plugin directory is not configured");
        return KAL_TRUE;
    }
    if (chdir(lib_path) != 0) {
        KERV_WARN("plugin directory is not exist (%s)", lib_path);
        return KAL_FALSE;
    }
    DirGuard dir(opendir(lib_path));
    if (dir.dir == nullptr) {
        KERV_WARN("mini_httpd:opendir() failed: %s\n", lib_path);
        return KAL_FALSE;
    }
    char lib_name[4096];
    while (get_lib_name(dir.dir, lib_name, sizeof(lib_name)) == KAL_TRUE)
        plugin_httpd_lib(lib_name);
    init_validators();
    KERV_FUNC(" EXIT");
    return KAL_TRUE;
}

kal_bool get_lib_name(DIR *dir, char *buf, int size) {
    KERV_FUNC("get_lib_name()");
    for (;;) {
        /* readdir() ends both at the directory's end and on failure; only errno tells. */
        errno = 0;
        const dirent *entry = readdir(dir);
        if (entry == nullptr) {
            if (errno != 0)
                KERV_WARN("Can't read the plugin directory : %s !!", strerror(errno));
            return KAL_FALSE;
        }
        const char *suffix = strstr(entry->d_name, ".so");
        if (suffix == nullptr)
            continue;
        const size_t suffix_at = static_cast<size_t>(suffix - entry->d_name);
        if (suffix_at < kLibPrefixLen) {
            KERV_WARN("skip [%s]: no library name before .so", entry->d_name);
            continue;
        }
        const size_t name_len = suffix_at - kLibPrefixLen;
        if (size <= 0 || name_len >= static_cast<size_t>(size))
            continue;
        memcpy(buf, entry->d_name + kLibPrefixLen, name_len);
        buf[name_len] = '\0';
        return KAL_TRUE;
    }
}

void plugin_httpd_lib(char *lib_name) {
    KERV_FUNC("plugin_httpd_lib()");
    if (lib_path == nullptr) {
        KERV_WARN("plugin directory is not configured");
        return;
    }
    char path[kLibPathSize];
    memset(path, 0, sizeof(path));
    const int path_len = snprintf(path, sizeof(path), "%s/lib%s.so", lib_path, lib_name);
    if (path_len < 0 || static_cast<size_t>(path_len) >= sizeof(path)) {
        KERV_WARN("KERVLIB[%s/lib%s.so]:path longer than %d bytes, not loaded", lib_path, lib_name,
                  static_cast<int>(sizeof(path) - 1));
        return;
    }
    KERV_WARN("KERV Plug-in = %s\n", path);
    /* Bound now when it can be, so that serving never runs the dynamic linker for it; a
       plug-in with a missing symbol is still loaded, lazily, and the symbol named. */
    void *handle = dlopen(path, RTLD_NOW);
    if (handle == nullptr)
        handle = dlopen(path, RTLD_LAZY);
    if (handle == nullptr) {
        KERV_WARN("KERVLIB[%s]:can't load library!!\n", path);
        KERV_ERR("KERVLIB[%s]:%s", path, dlerror());
        return;
    }
    report_unresolved_symbols(handle, path);
    KERV_DBG("dlsym : rmmi_validators");
    dlerror();
    auto *group = static_cast<rmmi_validator_t *>(dlsym(handle, "rmmi_validators"));
    if (dlerror() != nullptr) {
        KERV_WARN("KERVLIB[%s]:get rmmi_validators symbol error !!\n", path);
        group = nullptr;
    }
    set_validator_group(group);
}
