/*
 * Development stand-in for the board's configuration store: a text file of KEY=VALUE
 * lines, read afresh at every call because values may change while the daemon runs.
 * Path from SNCFG_FILE, default /etc/sncfg.conf. Only the line end (\n or \r\n) is
 * trimmed; blank lines and lines starting with '#' are ignored; "KEY=" is a key present
 * without a value; the last line for a key wins.
 */
#include "sncfg.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *kDefaultStorePath = "/etc/sncfg.conf";

struct FileCloser {
    FILE *file;
    ~FileCloser() {
        if (file != nullptr)
            fclose(file);
    }
};

const char *store_path() {
    const char *path = getenv("SNCFG_FILE");
    return (path != nullptr && path[0] != '\0') ? path : kDefaultStorePath;
}

void trim_line_end(char *line, size_t *len) {
    if (*len > 0 && line[*len - 1] == '\n')
        line[--*len] = '\0';
    if (*len > 0 && line[*len - 1] == '\r')
        line[--*len] = '\0';
}

/* The value part of "KEY=VALUE" when the line is for key, else null. */
const char *value_for_key(const char *line, const char *key, size_t key_len) {
    if (line[0] == '#' || strncmp(line, key, key_len) != 0 || line[key_len] != '=')
        return nullptr;
    return line + key_len + 1;
}

} // namespace

extern "C" int sncfg_get(const char *key, char **value) {
    /* The first '=' of a line ends its key, so a key containing '=' can never be stored. */
    if (key == nullptr || value == nullptr || key[0] == '\0' || strchr(key, '=') != nullptr)
        return -1;
    FileCloser store{fopen(store_path(), "r")};
    if (store.file == nullptr)
        return -1;

    const size_t key_len = strlen(key);
    char *line = nullptr;
    size_t line_cap = 0;
    ssize_t line_len;
    bool found = false;
    char *found_value = nullptr;
    while ((line_len = getline(&line, &line_cap, store.file)) >= 0) {
        size_t len = static_cast<size_t>(line_len);
        trim_line_end(line, &len);
        const char *text = value_for_key(line, key, key_len);
        if (text == nullptr)
            continue;
        free(found_value);
        found_value = text[0] != '\0' ? strdup(text) : nullptr;
        found = found_value != nullptr || text[0] == '\0';
    }
    free(line);
    if (!found) /* missing key, or no memory for its value */
        return -1;
    *value = found_value;
    return 0;
}
