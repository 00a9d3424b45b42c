// The tokenizer of channel files, and the reader of channel setup files.
#include <strings.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "bw_env.h"
#include "channel.h"
#include "channel_file_internal.h"
#include "tol_status.h"

// ---------------------------------------------------------------------------
// Tokenizer

namespace {

struct TokenRow {
    const char *word;  // the word in a file
    int32_t id;        // its ChannelToken
};
constexpr TokenRow kTokens[] = {
#define CHANNEL_TOKEN(name, word, id) {word, id},
    CHANNEL_TOKEN_ROWS
#undef CHANNEL_TOKEN
};

}  // namespace

int channelTokenId(const char *word) {
    for (const TokenRow &row : kTokens)
        if (strcmp(row.word, word) == 0) return row.id;
    return CHN_TOK_NONE;
}

const char *channelTokenWord(int id) {
    for (const TokenRow &row : kTokens)
        if (row.id == id) return row.word;
    return nullptr;
}

int channelWordRead(FILE *f, char *word) {
    word[0] = '\0';
    return fscanf(f, "%1023s", word) == 1;
}

void channelLineSkip(FILE *f) {
    int c;
    while ((c = getc(f)) != EOF && c != '\n') {}
}

void channelLineRest(FILE *f, char *text, int size) {
    int length = 0, c;
    while ((c = getc(f)) != EOF && c != '\n')
        if (length < size - 1 && (length > 0 || !isspace(c))) text[length++] = static_cast<char>(c);
    while (length > 0 && isspace(static_cast<unsigned char>(text[length - 1]))) --length;
    text[length] = '\0';
}

int channelTokenNext(FILE *f, char *word) {
    while (channelWordRead(f, word)) {
        const int id = channelTokenId(word);
        if (id == CHN_TOK_COMMENT) {
            channelLineSkip(f);
            continue;
        }
        if (id != CHN_TOK_NONE) return id;
    }
    return CHN_TOK_NONE;
}

int channelBoolRead(FILE *f) {
    char word[CHANNEL_WORD_MAX];
    return channelWordRead(f, word) && strcmp(word, "ON") == 0;
}

int channelBoolPeek(FILE *f, int *value) {
    const long at = ftell(f);
    char word[CHANNEL_WORD_MAX];
    if (channelWordRead(f, word) && (strcmp(word, "ON") == 0 || strcmp(word, "OFF") == 0)) {
        *value = word[1] == 'N';
        return 1;
    }
    if (at >= 0) fseek(f, at, SEEK_SET);
    return 0;
}

// ---------------------------------------------------------------------------
// Reading a setup file

namespace {

constexpr const char *kDefaultLocation = "DEFAULT_DRIVER_LOCATION";  // the driver directory
constexpr const char *kEmptyHost = "DRIVER_EMPTY_STRING";           // an empty host

// Versions at which the forms of the lines changed.
constexpr float kVersionDriverCount = 3.0f;     // DRIVER gives its DOF count; ITEM is an expression
constexpr float kVersionChannelNames = 2.6501f; // above: CHANNEL gives direction and name
constexpr float kVersionTakeRec = 3.51f;        // TAKE_REC is read

struct SetupReader {
    FILE *f = nullptr;            // the file
    const char *path = nullptr;   // its path, for the messages
    ChannelSetup *setup = nullptr;
    int loading = 0;              // re-read each driver's configuration
    float version = 0.0f;         // version of the file
    int result = 1;               // 0 after any failure
    int unchecked = -1;           // first driver of the DRIVER block not yet checked, -1: none
};

bool isExe(const std::string &name) {
    return name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".exe") == 0;
}

// The configuration of a driver named in the file, from where the file says
// it is; when that place has no such executable, from a compatible one: the
// same name in the driver directory, or the name without a ".exe" suffix, whose
// configuration gives the same DOF count. 1 when a configuration was read.
int readDriverOf(const ChannelDriver &named, bool anyCount, ChannelDriver *fresh, std::string *usedDir,
                 std::string *usedName) {
    const char *defaultDir = nullptr;
    auto driverDir = [&]() {
        if (!defaultDir) defaultDir = channelDriverDirectory();
        return defaultDir ? std::string(defaultDir) : std::string();
    };
    const std::string dir = named.directory.empty() ? driverDir() : named.directory;
    const std::string exe = dir + "/" + named.name;
    if (!dir.empty() && access(exe.c_str(), F_OK) == 0) {
        *usedDir = named.directory;
        *usedName = named.name;
        return driverFileRead(dir.c_str(), named.name.c_str(), fresh);
    }
    const std::string bare = isExe(named.name) ? named.name.substr(0, named.name.size() - 4) : named.name;
    const std::string candidates[][2] = {{dir, bare}, {driverDir(), named.name}, {driverDir(), bare}};
    for (const auto &c : candidates) {
        const std::string other = c[0] + "/" + c[1];
        if (c[0].empty() || other == exe || access(other.c_str(), X_OK) != 0) continue;
        ChannelDriver candidate;
        if (!driverConfigRead(c[0].c_str(), c[1].c_str(), &candidate, 0) ||
            (!anyCount && candidate.dofCount != named.dofCount))
            continue;
        msgShowf(TOL_CLASS_WARNING, "Channel driver '%s' replaced by '%s'.", exe.c_str(), other.c_str());
        *fresh = candidate;
        *usedDir = c[0] == driverDir() ? std::string() : c[0];
        *usedName = c[1];
        return 1;
    }
    // Nothing compatible: the read says what is missing.
    return driverFileRead(dir.c_str(), named.name.c_str(), fresh);
}

// The check at the end of a DRIVER block: with `loading`, each driver of the
// block gets its configuration again. A driver whose configuration gives
// another DOF count keeps the scene's DOFs, so that the file's CHANNEL lines
// still land where they were written, and stays out of runs; one whose
// configuration cannot be read is disabled.
void checkDrivers(SetupReader &r) {
    if (r.unchecked < 0) return;
    const int first = r.unchecked;
    r.unchecked = -1;
    if (!r.loading) return;
    for (int i = first; i < r.setup->driverCount; ++i) {
        ChannelDriver &d = r.setup->drivers[i];
        ChannelDriver fresh;
        std::string dir, name;
        // Files before version 3 give no count: the configuration's stands.
        const bool anyCount = r.version < kVersionDriverCount;
        if (!readDriverOf(d, anyCount, &fresh, &dir, &name)) {
            d.enabled = 0;
            continue;
        }
        d.directory = dir;
        d.name = name;
        if (anyCount) d.dofCount = fresh.dofCount;
        if (fresh.dofCount != d.dofCount) {
            msgShowf(TOL_CLASS_WARNING, "Driver '%s' expects %d channels (%d in the scene)", d.name.c_str(),
                     fresh.dofCount, d.dofCount);
            r.result = 0;
            continue;
        }
        d.dofs = fresh.dofs;
        d.slots = fresh.slots;
        d.errorCount = fresh.errorCount;
        d.errors = fresh.errors;
        d.customFile = fresh.customFile;
        d.configRead = 1;
    }
}

int driverShapeError(SetupReader &r, const char *which) {
    if (which) msgShowf(TOL_CLASS_ERROR, which, r.path);
    msgShow("Bad format for DRIVER token in channel setup file.", TOL_CLASS_ERROR);
    r.result = 0;
    return 0;
}

// DRIVER: "ON name count", then from above version 3 "REMOTE mode host
// location" and "RUNMODE FREE | SYNCED | FREQUENCY value". Before version 3
// only "ON name": the count comes from the driver's configuration.
int readDriver(SetupReader &r) {
    char onOff[CHANNEL_WORD_MAX], name[CHANNEL_WORD_MAX], word[CHANNEL_WORD_MAX];
    ChannelDriver d;
    int count = 0;
    if (r.version >= kVersionDriverCount) {
        if (fscanf(r.f, "%1023s %1023s %d", onOff, name, &count) != 3 || count < 0 ||
            count > CHANNEL_SLOT_COUNT)
            return driverShapeError(r, nullptr);
    } else if (fscanf(r.f, "%1023s %1023s", onOff, name) != 2) {
        return driverShapeError(r, nullptr);
    }
    d.name = name;
    d.enabled = strcmp(onOff, "ON") == 0;
    d.dofCount = count;
    d.dofs.assign(count, ChannelDof{});
    d.slots.assign(count, ChannelSlot{});
    if (r.version > kVersionDriverCount) {
        char host[CHANNEL_WORD_MAX], location[CHANNEL_WORD_MAX];
        if (!channelWordRead(r.f, word) || channelTokenId(word) != CHN_TOK_REMOTE ||
            fscanf(r.f, "%d %1023s %1023s", &d.remote, host, location) != 3 || d.remote < 0 ||
            d.remote > CHANNEL_DRIVER_LISTEN)
            return driverShapeError(r, "File '%s' has an invalid remote entry in file");
        d.remoteHost = strcmp(host, kEmptyHost) == 0 ? "" : host;
        d.directory = strcmp(location, kDefaultLocation) == 0 ? "" : location;
        const char *freerun = "File '%s' has an invalid freerun entry in file";
        if (!channelWordRead(r.f, word) || channelTokenId(word) != CHN_TOK_RUNMODE ||
            !channelWordRead(r.f, word))
            return driverShapeError(r, freerun);
        switch (channelTokenId(word)) {
        case CHN_TOK_FREE: d.runMode = CHANNEL_RUN_FREE; break;
        case CHN_TOK_SYNCED: d.runMode = CHANNEL_RUN_SYNCED; break;
        case CHN_TOK_FREQUENCY:
            d.runMode = CHANNEL_RUN_FREQUENCY;
            if (!channelWordRead(r.f, word)) return driverShapeError(r, freerun);
            if (strcmp(word, "DEFAULT") != 0) {
                char tail = 0;
                if (sscanf(word, "%f%c", &d.frequency, &tail) != 1 || !(d.frequency >= 0.0f))
                    return driverShapeError(r, freerun);
            }
            break;
        default: return driverShapeError(r, freerun);
        }
    }
    if (r.unchecked < 0) r.unchecked = r.setup->driverCount;
    channelSetupAddDriver(r.setup, d);
    return 1;
}

// The driver and DOF of a DOF number counted over the whole setup.
ChannelDof *dofNumbered(ChannelSetup *setup, int number) {
    if (number < 0) return nullptr;
    for (ChannelDriver &d : setup->drivers) {
        if (number < static_cast<int>(d.dofs.size())) return &d.dofs[number];
        number -= static_cast<int>(d.dofs.size());
    }
    return nullptr;
}

// CHANNEL: "number offset scale maximum minimum ON|OFF", then above version
// 2.6501 the direction as a letter and a word, and the DOF's name to the end
// of the line.
void readChannel(SetupReader &r) {
    int number = -1;
    float offset, scale, maximum, minimum;
    char onOff[4] = {};
    if (fscanf(r.f, "%d %f %f %f %f %3s", &number, &offset, &scale, &maximum, &minimum, onOff) != 6) {
        channelLineSkip(r.f);
        return;
    }
    ChannelDof *dof = dofNumbered(r.setup, number);
    if (!dof) {
        channelLineSkip(r.f);
        return;
    }
    dof->offset = offset;
    dof->scale = scale;
    dof->minimum = minimum;
    dof->maximum = maximum < minimum ? minimum : maximum;
    dof->active = strcmp(onOff, "ON") == 0;
    if (r.version <= kVersionChannelNames) {
        channelLineSkip(r.f);
        return;
    }
    char letter[2] = {}, second[4] = {};
    if (fscanf(r.f, "%1s %3s", letter, second) != 2) {
        channelLineSkip(r.f);
        return;
    }
    dof->direction = letter[0] == 'I' ? CHANNEL_DIR_INPUT : letter[0] == 'O' ? CHANNEL_DIR_OUTPUT
                                                                            : CHANNEL_DIR_NONE;
    char name[CHANNEL_WORD_MAX];
    channelLineRest(r.f, name, sizeof name);
    if (name[0]) dof->name = name;
}

int itemTypeOf(const char *word) {
    const int id = channelTokenId(word);
    return id >= CHN_TOK_MODEL && id <= CHN_TOK_TEXTURE_3D ? id : 0;
}

// ITEM: from version 3 "TYPE \"expression\""; before, seven fields "scale
// offset IN|OUT TYPE element parameter driver.dof", made into the expression.
void readItem(SetupReader &r) {
    char type[CHANNEL_WORD_MAX] = {};
    std::string expression;
    bool ok = false;
    if (r.version >= kVersionDriverCount) {
        char text[4096];
        ok = fscanf(r.f, "%1023s \"%4095[^\"]\"", type, text) == 2;
        if (ok) expression = text;
    } else {
        char direction[CHANNEL_WORD_MAX], element[CHANNEL_WORD_MAX], parameter[CHANNEL_WORD_MAX],
            channel[CHANNEL_WORD_MAX];
        ChannelConnectionParts parts;
        ok = fscanf(r.f, "%lf %lf %1023s %1023s %1023s %1023s %1023s", &parts.scale, &parts.offset,
                    direction, type, element, parameter, channel) == 7 &&
             (strcmp(direction, "IN") == 0 || strcmp(direction, "OUT") == 0);
        if (ok) {
            parts.element = strcmp(element, "NONE") == 0 ? "" : element;
            parts.parameter = strcmp(parameter, "NONE") == 0 ? "" : parameter;
            parts.channel = strcmp(channel, "NONE") == 0 ? "" : channel;
            expression = channelConnectionText(
                strcmp(direction, "OUT") == 0 ? CHANNEL_CONN_OUTPUT : CHANNEL_CONN_INPUT, parts);
        }
    }
    channelLineSkip(r.f);
    int kind = 0;
    ChannelConnectionParts parts;
    if (!ok || !channelConnectionParse(expression.c_str(), &kind, &parts)) {
        msgShowf(TOL_CLASS_WARNING, "Bad connection in channel setup file '%s'.", r.path);
        r.result = 0;
        return;
    }
    ChannelConnection *c = channelSetupAddConnection(r.setup, kind, expression.c_str());
    c->itemType = itemTypeOf(type);
}

// CALIBRATE: one line for each connection, in order: enabled and calibrated
// as booleans, then three values. A line that does not start with ON or OFF
// ends the block.
void readCalibrate(SetupReader &r) {
    for (ChannelConnection *c = r.setup->connections; c; c = c->next) {
        int enabled = 0, calibrated = 0;
        if (!channelBoolPeek(r.f, &enabled)) return;
        if (!channelBoolPeek(r.f, &calibrated)) return;
        float values[3];
        const int got = fscanf(r.f, "%g %g %g", &values[0], &values[1], &values[2]);
        channelLineSkip(r.f);
        if (got != 3) return;
        c->enabled = static_cast<uint16_t>(enabled);
        c->calibrated = static_cast<uint16_t>(calibrated);
        memcpy(c->calibration, values, sizeof values);
    }
}

// TAKE_REC: directory and name. Paths are taken as they stand: on this
// system file names need no translation.
void readTakeRec(SetupReader &r) {
    char dir[256], name[256];
    if (fscanf(r.f, "%255s %255s", dir, name) != 2) {
        channelLineSkip(r.f);
        return;
    }
    snprintf(r.setup->takeDir, sizeof r.setup->takeDir, "%s", dir);
    snprintf(r.setup->takeName, sizeof r.setup->takeName, "%s", name);
    const int next = takeNextNumber(takeSetPath(dir, name).c_str(), r.setup->takeNumber);
    if (next >= 0) r.setup->takeNumber = next;
}

// The optional common header "SCHN version", then "CHANNELS version".
int readHead(SetupReader &r) {
    char word[CHANNEL_WORD_MAX];
    int got = channelWordRead(r.f, word);
    while (got && channelTokenId(word) == CHN_TOK_COMMENT) {
        channelLineSkip(r.f);
        got = channelWordRead(r.f, word);
    }
    if (got && strcmp(word, "SCHN") == 0) {
        float headerVersion = 0;
        if (fscanf(r.f, "%f", &headerVersion) != 1) {
            msgShowf(TOL_CLASS_ERROR, "Channel setup file '%s' has a bad version number.", r.path);
            return 0;
        }
        got = channelWordRead(r.f, word);
    }
    if (!got || channelTokenId(word) != CHN_TOK_CHANNELS) {
        msgShowf(TOL_CLASS_ERROR, "File '%s' has an invalid id for a channel setup file.", r.path);
        return 0;
    }
    if (fscanf(r.f, "%f", &r.version) != 1 || !(r.version > 0.0f)) {
        msgShowf(TOL_CLASS_ERROR, "Channel setup file '%s' has a bad version number.", r.path);
        return 0;
    }
    return 1;
}

}  // namespace

int channelFileRead(const char *path, ChannelSetup *setup, int loading) {
    if (!path || !setup) return 0;
    SetupReader r;
    r.path = path;
    r.setup = setup;
    r.loading = loading;
    r.f = fopen(path, "r");
    if (!r.f) {
        msgShowf(TOL_CLASS_WARNING, "Can not open channel setup file '%s' for reading.", path);
        return 0;
    }
    if (!readHead(r)) {
        fclose(r.f);
        return 0;
    }
    char word[CHANNEL_WORD_MAX];
    for (int id = channelTokenNext(r.f, word); id != CHN_TOK_NONE; id = channelTokenNext(r.f, word)) {
        if (id != CHN_TOK_DRIVER) checkDrivers(r);
        switch (id) {
        case CHN_TOK_DRIVER:
            if (!readDriver(r)) {
                fclose(r.f);
                return 0;
            }
            break;
        case CHN_TOK_DRIVER_SYNC: setup->sync = channelBoolRead(r.f) ? 2 : 1; break;
        case CHN_TOK_DRIVER_DEBUG: setup->debug = static_cast<uint32_t>(channelBoolRead(r.f)); break;
        case CHN_TOK_CHANNEL: readChannel(r); break;
        case CHN_TOK_ITEM: readItem(r); break;
        case CHN_TOK_FRAMERATE: setup->frameRate = static_cast<uint16_t>(channelBoolRead(r.f)); break;
        case CHN_TOK_TIMESTAMP: setup->timeStamp = static_cast<uint16_t>(channelBoolRead(r.f)); break;
        case CHN_TOK_REFRESH: setup->fastInput = static_cast<uint16_t>(channelBoolRead(r.f)); break;
        case CHN_TOK_FAST_INPUT: setup->fastInput = static_cast<uint16_t>(!channelBoolRead(r.f)); break;
        case CHN_TOK_CALIBRATE: readCalibrate(r); break;
        case CHN_TOK_CAPTURE: setup->capture = static_cast<uint16_t>(channelBoolRead(r.f)); break;
        case CHN_TOK_CONTROL: setup->control = static_cast<uint16_t>(channelBoolRead(r.f)); break;
        case CHN_TOK_TAKE_REC:
            if (r.version >= kVersionTakeRec) readTakeRec(r);
            else channelLineSkip(r.f);
            break;
        default: channelLineSkip(r.f); break;  // the product line and tokens of other files
        }
    }
    checkDrivers(r);
    if (!setup->capture && !setup->control) setup->capture = 1;
    fclose(r.f);
    return r.result;
}
