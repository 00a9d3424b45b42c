// The configuration file of a channel driver: `<name>.drv`, or the custom
// dialogue `<name>.cus` in its place, beside the executable.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "channel.h"
#include "channel_file_internal.h"
#include "tol_status.h"

namespace {

constexpr int kMaxErrors = 1000;  // rows an ERROR_NUM may ask for

struct DriverReader {
    FILE *f = nullptr;        // the configuration
    const char *path = "";    // its path, for the messages
    int report = 1;           // messages wanted
};

int fail(const DriverReader &r, const char *what) {
    if (r.report) msgShowf(TOL_CLASS_ERROR, "Channel driver configuration file:\n%s\n%s", r.path, what);
    return 0;
}

// The optional common header "SDRV version", then "CHANNEL_DRIVER version".
int readHead(DriverReader &r) {
    char word[CHANNEL_WORD_MAX];
    int got = channelWordRead(r.f, word);
    while (got && channelTokenId(word) == CHN_TOK_COMMENT) {
        channelLineSkip(r.f);
        got = channelWordRead(r.f, word);
    }
    float version = 0;
    if (got && strcmp(word, "SDRV") == 0) {
        if (fscanf(r.f, "%f", &version) != 1) return fail(r, "has a bad version number");
        got = channelWordRead(r.f, word);
    }
    if (!got || channelTokenId(word) != CHN_TOK_CHANNEL_DRIVER) return fail(r, "has an invalid ID");
    if (fscanf(r.f, "%f", &version) != 1 || !(version > 0.0f)) return fail(r, "has a bad version number");
    return 1;
}

// The tokens up to _END or the end of the file. A line that cannot be read
// stops the read.
int readBody(DriverReader &r, ChannelDriver &d) {
    char word[CHANNEL_WORD_MAX];
    for (int id = channelTokenNext(r.f, word); id != CHN_TOK_NONE && id != CHN_TOK_END;
         id = channelTokenNext(r.f, word)) {
        int index = -1;
        switch (id) {
        case CHN_TOK_DOF_NUM:
            if (fscanf(r.f, "%d", &d.dofCount) != 1 || d.dofCount <= 0 || d.dofCount > CHANNEL_SLOT_COUNT)
                return 0;
            d.dofs.assign(d.dofCount, ChannelDof{});
            break;
        case CHN_TOK_DOF_NAME:
            if (fscanf(r.f, "%d %1023s", &index, word) != 2) return 0;
            if (index >= 0 && index < d.dofCount) d.dofs[index].name = word;
            break;
        case CHN_TOK_DOF_TYPE: {
            char letter = 0, onOff[4] = {};
            if (fscanf(r.f, "%d %c %3s", &index, &letter, onOff) != 3 || (letter != 'I' && letter != 'O'))
                return 0;
            if (index < 0 || index >= d.dofCount) break;
            d.dofs[index].direction = letter == 'I' ? CHANNEL_DIR_INPUT : CHANNEL_DIR_OUTPUT;
            d.dofs[index].active = strcmp(onOff, "ON") == 0;
            break;
        }
        case CHN_TOK_ERROR_NUM:
            if (fscanf(r.f, "%d", &d.errorCount) != 1 || d.errorCount <= 0 || d.errorCount > kMaxErrors)
                return 0;
            d.errors.assign(d.errorCount, std::string());
            break;
        case CHN_TOK_ERROR: {
            if (fscanf(r.f, "%d", &index) != 1) return 0;
            char text[CHANNEL_WORD_MAX];
            channelLineRest(r.f, text, sizeof text);
            if (index >= 0 && index < d.errorCount) d.errors[index] = text;
            break;
        }
        default: channelLineSkip(r.f); break;  // PORT lines and tokens of setup files
        }
    }
    return 1;
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }
bool readable(const std::string &path) { return access(path.c_str(), R_OK) == 0; }

}  // namespace

int driverConfigRead(const char *directory, const char *name, ChannelDriver *driver, int report) {
    if (!directory || !name || !driver) return 0;
    const std::string stem = std::string(directory) + "/" + name;
    // Executables carry no suffix here: the driver is `<directory>/<name>`.
    if (!exists(stem)) {
        if (report) msgShowf(TOL_CLASS_ERROR, "Channel driver:\n%s\ndoes not exist", stem.c_str());
        return 0;
    }
    if (access(stem.c_str(), X_OK) != 0) {
        if (report) msgShowf(TOL_CLASS_ERROR, "Channel driver:\n%s\nis not executable", stem.c_str());
        return 0;
    }
    const std::string cus = stem + ".cus", drv = stem + ".drv";
    std::string path = drv;
    if (exists(cus)) {
        if (readable(cus)) path = cus;
        else if (report) msgShowf(TOL_CLASS_ERROR, "Custom dialog:\n%s\nis not readable", cus.c_str());
    }
    if (path == drv && !exists(drv)) {
        if (report && !exists(cus))
            msgShowf(TOL_CLASS_ERROR, "%s.cus\ndoes not exist\n%s.drv\ndoes not exist\nSo %s is not a valid channel driver",
                     stem.c_str(), stem.c_str(), name);
        else if (report)
            msgShowf(TOL_CLASS_ERROR, "Channel driver configuration file:\n%s\nis not readable", drv.c_str());
        return 0;
    }
    DriverReader r;
    r.path = path.c_str();
    r.report = report;
    if (!readable(path)) return fail(r, "is not readable");
    r.f = fopen(path.c_str(), "r");
    if (!r.f) return fail(r, "could not be opened properly");
    ChannelDriver d;
    d.name = name;
    d.directory = directory;
    if (path == cus) d.customFile = cus;
    int ok = readHead(r);
    if (ok && !readBody(r, d)) ok = fail(r, "is not readable");
    if (fclose(r.f) != 0 && ok) ok = fail(r, "could not be closed properly");
    if (!ok) return 0;
    d.slots.assign(d.dofCount, ChannelSlot{});
    d.configRead = 1;
    *driver = d;
    return 1;
}

int driverFileRead(const char *directory, const char *name, ChannelDriver *driver) {
    return driverConfigRead(directory, name, driver, 1);
}
