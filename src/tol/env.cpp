// The environment table: the one place that calls getenv.
#include <cstdlib>
#include <mutex>
#include <string>

#include "bw_env.h"

namespace {

struct EnvRow {
    const char *name;     // variable name
    const char *meaning;  // one line for the README and help
};

constexpr EnvRow envRows[ENV_COUNT] = {
#define ENV_VAR(name, meaning) {#name, meaning},
    BW_ENV_VARS
#undef ENV_VAR
};

struct EnvValue {
    bool set = false;   // present in the environment
    std::string value;  // its text when set
};

// The update and draw threads may ask first at the same time: the first
// question reads every row under the lock.
std::mutex envLock;
bool envRead = false;
EnvValue envValues[ENV_COUNT];

const EnvValue &valueOf(EnvVar var) {
    std::lock_guard<std::mutex> hold(envLock);
    if (!envRead) {
        for (int i = 0; i < ENV_COUNT; ++i) {
            const char *text = getenv(envRows[i].name);
            envValues[i].set = text != nullptr;
            envValues[i].value = text ? text : "";
        }
        envRead = true;
    }
    return envValues[var];
}

bool inTable(EnvVar var) { return static_cast<int>(var) >= 0 && static_cast<int>(var) < ENV_COUNT; }

}  // namespace

const char *envGet(EnvVar var) {
    if (!inTable(var)) return nullptr;
    const EnvValue &v = valueOf(var);
    return v.set ? v.value.c_str() : nullptr;
}

int envIsSet(EnvVar var) { return inTable(var) && valueOf(var).set ? 1 : 0; }

const char *envName(EnvVar var) { return inTable(var) ? envRows[var].name : nullptr; }
const char *envMeaning(EnvVar var) { return inTable(var) ? envRows[var].meaning : nullptr; }

const char *envLookup(const char *name) { return name && *name ? getenv(name) : nullptr; }

void envReset() {
    std::lock_guard<std::mutex> hold(envLock);
    envRead = false;
}
