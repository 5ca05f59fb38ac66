#include "validator_registry.h"

#include <cstring>
#include <search.h>

namespace {

constexpr int kGroupSlots = 2;

/*
 * Registry state. Written by the main thread at start-up, read by the request worker
 * afterwards; the records belong to the plug-ins, which are never unloaded.
 */
rmmi_validator_t *validator_lib[kGroupSlots];
struct hsearch_data hash_table;
bool hash_table_exists = false;

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
} // namespace

void init_validator_group(void) {
    for (rmmi_validator_t *&slot : validator_lib)
        slot = nullptr;
}

void reset_validators(void) {
    destroy_validator_table();
    init_validator_group();
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

