#include "kervlib.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <search.h>
#include <unistd.h>

namespace {

constexpr int kGroupSlots = 2;
constexpr size_t kLibPathSize = 256;
constexpr const char *kDefaultPluginDir = "/lib/kerv_plugin";
/* Characters of an entry name before its library name ("lib" in libcgdcont.so). */
constexpr size_t kLibPrefixLen = 3;

/*
 * Registry state. Written by the main thread at start-up, read by the request worker
 * afterwards; the records belong to the plug-ins, which are never unloaded.
 */
rmmi_validator_t *validator_lib[kGroupSlots];
struct hsearch_data hash_table;
bool hash_table_exists = false;

/* The plug-in directory in force; a heap copy kept for the life of the process. */
char *lib_path = nullptr;

const char *name_or_null(const char *name) {
    return name != nullptr ? name : "(null)";
}

void destroy_validator_table() {
    if (!hash_table_exists)
        return;
    hdestroy_r(&hash_table);
    memset(&hash_table, 0, sizeof(hash_table));
    hash_table_exists = false;
}

/* The engine calls a record's function without a test: a record without one is refused. */
bool has_function(const rmmi_validator_t *record) {
    if (record->func != nullptr)
        return true;
    KERV_WARN("validator [%s] has no function, not registered", name_or_null(record->at_name));
    return false;
}

size_t count_records() {
    size_t count = 0;
    for (const rmmi_validator_t *group : validator_lib)
        for (const rmmi_validator_t *record = group; record != nullptr && record->at_name; ++record)
            ++count;
    return count;
}

/*
 * The directory named by KERVD_PLUGIN_DIR (or the board's fixed one) as a heap string.
 * A relative directory is made absolute: the loader changes into it before opening it.
 */
char *copy_plugin_dir() {
    const char *dir = getenv("KERVD_PLUGIN_DIR");
    if (dir == nullptr)
        dir = kDefaultPluginDir;
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

} // namespace

void init_validator_group(void) {
    for (rmmi_validator_t *&slot : validator_lib)
        slot = nullptr;
}

void set_validator_group(rmmi_validator_t *_validator_group) {
    if (_validator_group == nullptr)
        return;
    for (rmmi_validator_t *&slot : validator_lib) {
        if (slot == nullptr) {
            slot = _validator_group;
            KERV_DBG("set validator grup. First AT command is [%s]",
                     name_or_null(_validator_group->at_name));
            return;
        }
    }
}

void init_validators(void) {
    destroy_validator_table();
    const size_t count = count_records();
    KERV_DBG("count=[%d]", static_cast<int>(count));
    if (hcreate_r(count, &hash_table) == 0)
        return;
    hash_table_exists = true;
    for (rmmi_validator_t *group : validator_lib) {
        for (rmmi_validator_t *record = group; record != nullptr && record->at_name; ++record) {
            if (!has_function(record))
                continue;
            if (set_validator(record->at_name, record) == KAL_FALSE) {
                KERV_WARN("stop to set validator to hash table");
                return;
            }
        }
    }
}

kal_bool set_validator(char *name, rmmi_validator_t *data) {
    if (!hash_table_exists) {
        KERV_WARN("table is not exist!!!!!");
        return KAL_FALSE;
    }
    if (name == nullptr || data == nullptr || !has_function(data))
        return KAL_FALSE;
    ENTRY item{name, data};
    ENTRY *found = nullptr;
    if (hsearch_r(item, FIND, &found, &hash_table) != 0) {
        found->data = data;
        return KAL_TRUE;
    }
    return hsearch_r(item, ENTER, &found, &hash_table) != 0 ? KAL_TRUE : KAL_FALSE;
}

kal_bool get_validator(char *name, rmmi_validator_t **data) {
    if (!hash_table_exists) {
        KERV_WARN(" validator table is not exist!!!");
        return KAL_FALSE;
    }
    KERV_DBG(" search at name=[%s]", name_or_null(name));
    if (name == nullptr || data == nullptr)
        return KAL_FALSE;
    ENTRY item{name, nullptr};
    ENTRY *found = nullptr;
    if (hsearch_r(item, FIND, &found, &hash_table) == 0)
        return KAL_FALSE;
    *data = static_cast<rmmi_validator_t *>(found->data);
    return KAL_TRUE;
}

kal_bool config_libdir(void) {
    KERV_FUNC(" ENTER");
    /* Loading starts from nothing, so a failure below always leaves no table. */
    destroy_validator_table();
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
    init_validator_group();
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
    for (const dirent *entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
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
    return KAL_FALSE;
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
    void *handle = dlopen(path, RTLD_LAZY);
    if (handle == nullptr) {
        KERV_WARN("KERVLIB[%s]:can't load library!!\n", path);
        KERV_ERR("KERVLIB[%s]:%s", path, dlerror());
        return;
    }
    KERV_DBG("dlsym : rmmi_validators");
    dlerror();
    auto *group = static_cast<rmmi_validator_t *>(dlsym(handle, "rmmi_validators"));
    if (dlerror() != nullptr) {
        KERV_WARN("KERVLIB[%s]:get rmmi_validators symbol error !!\n", path);
        group = nullptr;
    }
    set_validator_group(group);
}
