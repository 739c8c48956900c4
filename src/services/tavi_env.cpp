// SPDX-License-Identifier: MIT
// Settings from the environment. A malformed one is reported once, however often it is read.
#include "services/tavi_env.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "os/locks.h"
#include "services/parse_int.h"

#define TAVI_LOG_TAG "tavi-env"
#include "services/log.h"

namespace tavi {
namespace {

struct Variable {
    char name[64];
    const char* text; // null: not set
};

// TAVI_ and the key in capitals, else the key as it stands. A key too long for a name is never set.
Variable find_variable(const char* key) {
    Variable v{"TAVI_", nullptr};
    const size_t length = strlen(key);
    if (length + sizeof("TAVI_") > sizeof(v.name))
        return v;
    for (size_t i = 0; i <= length; ++i) {
        const bool small = key[i] >= 'a' && key[i] <= 'z'; // not toupper(): the locale has no say in names
        v.name[5 + i] = small ? static_cast<char>(key[i] - 'a' + 'A') : key[i];
    }
    v.text = secure_getenv(v.name);
    if (!v.text) {
        memcpy(v.name, key, length + 1);
        v.text = secure_getenv(v.name);
    }
    return v;
}

// True the first time that it is asked about a key. The few keys of a process are never forgotten.
bool first_report(const char* key) {
    struct Reported {
        Reported* next;
        char key[sizeof(Variable::name)];
    };
    static Reported* reported = nullptr;

    const std::lock_guard<std::mutex> lock(g_locks.settings);
    for (const Reported* r = reported; r; r = r->next)
        if (strcmp(r->key, key) == 0)
            return false;
    if (auto* r = static_cast<Reported*>(malloc(sizeof(Reported)))) {
        r->next = reported;
        snprintf(r->key, sizeof(r->key), "%s", key);
        reported = r;
    }
    return true;
}

} // namespace
} // namespace tavi

int tavi_env_get_int(const char* key, int* value, int default_value) {
    if (!key || !value) {
        LOG_ERROR("params error key=%s value=%p, neither may be null", key ? key : "(null)",
                  static_cast<void*>(value));
        return TAVI_RET_PARAM_ERR;
    }
    const tavi::Variable variable = tavi::find_variable(key);
    if (variable.text && tavi::parse_int(variable.text, value))
        return TAVI_RET_SUCCESS;
    *value = default_value;
    if (variable.text && tavi::first_report(key))
        LOG_ERROR("%s=\"%s\" is not a decimal or 0x integer; %d is used", variable.name, variable.text,
                  default_value);
    return TAVI_RET_FAIL;
}
