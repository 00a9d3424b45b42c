// The channel model: setups, drivers, DOFs and connections.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bw_env.h"
#include "channel.h"
#include "dictionary.h"
#include "tol_status.h"

namespace {

const char *const kMouseDriver = "mouse";  // the default driver of every scene

// Copies a connection list; the copy's nodes are new.
ChannelConnection *copyConnections(const ChannelConnection *from) {
    ChannelConnection *head = nullptr, **tail = &head;
    for (const ChannelConnection *c = from; c; c = c->next) {
        *tail = new ChannelConnection(*c);
        (*tail)->next = nullptr;
        (*tail)->fcurve = c->fcurve ? fcurveDuplicate(c->fcurve) : nullptr;
        tail = &(*tail)->next;
    }
    return head;
}

void freeConnections(ChannelConnection *c) {
    while (c) {
        ChannelConnection *next = c->next;
        fcurveFree(c->fcurve);
        delete c;
        c = next;
    }
}

bool sameChannels(const ChannelDriver &a, const ChannelDriver &b) {
    if (a.dofCount != b.dofCount) return false;
    for (int i = 0; i < a.dofCount; ++i)
        if (a.dofs[i].name != b.dofs[i].name || a.dofs[i].direction != b.dofs[i].direction)
            return false;
    return true;
}

// Index among the drivers of the same executable (0 for the first).
int instanceOf(const ChannelSetup *setup, int driver) {
    int n = 0;
    for (int i = 0; i < driver; ++i)
        if (setup->drivers[i].name == setup->drivers[driver].name) ++n;
    return n;
}

// "name" for the first instance, "name_n" for the n-th after it.
std::string instanceName(const ChannelSetup *setup, int driver) {
    const int n = instanceOf(setup, driver);
    std::string name = setup->drivers[driver].name;
    return n == 0 ? name : name + "_" + std::to_string(n);
}

// The channel "driver.dof" of a connection's text with its driver renamed.
std::string renameChannel(const std::string &expression, const std::string &from,
                          const std::string &to) {
    const std::string old = "CHN " + from + ".";
    size_t at = expression.find(old);
    if (at == std::string::npos) return expression;
    return expression.substr(0, at) + "CHN " + to + "." + expression.substr(at + old.size());
}

int driverNamed(const ChannelSetup *setup, const std::string &name) {
    for (int i = 0; i < setup->driverCount; ++i)
        if (instanceName(setup, i) == name) return i;
    return -1;
}

const char *orNone(const std::string &s) { return s.empty() ? "NONE" : s.c_str(); }
std::string fromNone(const char *s) { return strcmp(s, "NONE") == 0 ? std::string() : s; }

}  // namespace

namespace {

// Expressions reach channels by name through the current scene's setup.
ChannelDriver *expressionDriver(int driverIndex) {
    ChannelSetup *setup = sceneStateCurrent().channelSetup;
    if (!setup || driverIndex < 0 || driverIndex >= setup->driverCount) return nullptr;
    return &setup->drivers[static_cast<size_t>(driverIndex)];
}

int expressionDofFind(const char *driver, const char *dof, int *driverIndex, int *dofIndex, int *direction) {
    const ChannelSetup *setup = sceneStateCurrent().channelSetup;
    if (!setup || !channelDofLookup(setup, driver, dof, driverIndex, dofIndex)) return 0;
    *direction = setup->drivers[static_cast<size_t>(*driverIndex)].dofs[static_cast<size_t>(*dofIndex)].direction;
    return 1;
}

float expressionDofRead(int driverIndex, int dofIndex, float time) {
    ChannelDriver *d = expressionDriver(driverIndex);
    return d ? channelDofValue(d, dofIndex, time) : 0.0f;
}

void expressionDofWrite(int driverIndex, int dofIndex, float value) {
    if (ChannelDriver *d = expressionDriver(driverIndex)) channelDofSet(d, dofIndex, value);
}

}  // namespace

ChannelSetup *channelSetupCreate(int maxDrivers) {
    if (maxDrivers < 1) return nullptr;
    g_evalHooks.channelDofFind = expressionDofFind;
    g_evalHooks.channelDofRead = expressionDofRead;
    g_evalHooks.channelDofWrite = expressionDofWrite;
    ChannelSetup *setup = new ChannelSetup;
    setup->driverMax = maxDrivers;
    setup->drivers.reserve(maxDrivers);
    return setup;
}

void channelSetupFree(ChannelSetup *setup) {
    if (!setup) return;
    channelRunUnprepare(setup);
    freeConnections(setup->connections);
    delete setup;
}

ChannelSetup *channelSetupCopy(const ChannelSetup *setup) {
    if (!setup) return nullptr;
    ChannelSetup *copy = new ChannelSetup(*setup);
    copy->connections = copyConnections(setup->connections);
    // A run's lists and connections belong to the setup that runs.
    copy->mainList = UpdateList{};
    copy->hiPriorityList = UpdateList{};
    copy->run = nullptr;
    return copy;
}

int channelSetupAddDriver(ChannelSetup *setup, const ChannelDriver &driver) {
    if (setup->driverCount >= setup->driverMax) {
        // Rows grow by reallocation, as every array of the core.
        setup->driverMax *= 2;
        setup->drivers.reserve(setup->driverMax);
    }
    setup->drivers.push_back(driver);
    return setup->driverCount++;
}

ChannelConnection *channelSetupAddConnection(ChannelSetup *setup, int kind, const char *expression) {
    ChannelConnection **tail = &setup->connections;
    while (*tail) tail = &(*tail)->next;
    *tail = new ChannelConnection;
    (*tail)->kind = static_cast<uint16_t>(kind);
    (*tail)->expression = expression;
    return *tail;
}

ChannelSetup *channelSetupInit() {
    TOL_SceneState &state = sceneStateCurrent();
    if (state.channelSetup) return state.channelSetup;
    ChannelSetup *setup = channelSetupCreate(4);
    ChannelDriver mouse;
    const char *dir = channelDriverDirectory();
    if (dir && driverFileRead(dir, kMouseDriver, &mouse)) channelSetupAddDriver(setup, mouse);
    state.channelSetup = setup;
    return setup;
}

bool channelSetupIsEmpty(const ChannelSetup *setup) {
    if (!setup || setup->driverCount == 0) return true;
    return setup->driverCount == 1 && setup->drivers[0].name == kMouseDriver && !setup->connections;
}

ChannelSetup *channelSetupMerge(ChannelSetup *first, const ChannelSetup *second) {
    if (!first || !second || channelSetupIsEmpty(second)) return first;
    if (channelSetupIsEmpty(first)) {
        // The empty one yields: the first takes the second's drivers and connections.
        ChannelConnection *old = first->connections;
        channelRunUnprepare(first);
        *first = *second;
        first->connections = copyConnections(second->connections);
        first->mainList = UpdateList{};
        first->hiPriorityList = UpdateList{};
        first->run = nullptr;
        freeConnections(old);
        return first;
    }
    // Second's drivers: a driver in both keeps the first's copy; one whose
    // channels differ comes in as a further instance of its executable.
    std::vector<std::string> from, to;  // renamed drivers: second's name -> name in the merge
    for (int i = 0; i < second->driverCount; ++i) {
        const ChannelDriver &d = second->drivers[i];
        const std::string name = instanceName(second, i);
        const int driver = driverNamed(first, name);
        if (driver >= 0 && sameChannels(first->drivers[driver], d)) continue;
        if (driver >= 0) msgShowf(TOL_CLASS_WARNING, "\"%s\" driver repeated because channels do not match",
                                  d.name.c_str());
        const int added = channelSetupAddDriver(first, d);
        const std::string newName = instanceName(first, added);
        if (newName != name) { from.push_back(name); to.push_back(newName); }
    }
    // Second's connections, unless one of the first already drives the destination.
    for (const ChannelConnection *c = second->connections; c; c = c->next) {
        ChannelConnection moved = *c;
        for (size_t r = 0; r < from.size(); ++r) moved.expression = renameChannel(moved.expression, from[r], to[r]);
        const std::string dest = channelConnectionDestination(moved);
        bool duplicate = false;
        for (const ChannelConnection *f = first->connections; f && !duplicate; f = f->next)
            duplicate = channelConnectionDestination(*f) == dest;
        if (duplicate) {
            if (moved.kind == CHANNEL_CONN_OUTPUT)
                msgShowf(TOL_CLASS_WARNING,
                         "Duplicate channel connection found (discarded) for destination CHN \"%s\".",
                         dest.c_str());
            else
                msgShowf(TOL_CLASS_WARNING,
                         "Duplicate channel connection found (discarded) for destination \"%s\".",
                         dest.c_str());
            continue;
        }
        ChannelConnection *added = channelSetupAddConnection(first, moved.kind, moved.expression.c_str());
        ChannelConnection *next = added->next;
        *added = moved;
        added->next = next;
    }
    return first;
}

int channelDofLookup(const ChannelSetup *setup, const char *driverName, const char *dofName,
                     int *driver, int *dof) {
    *driver = -1;
    *dof = -1;
    if (!setup || !driverName || !dofName) return 0;
    *driver = driverNamed(setup, driverName);
    if (*driver < 0) return 0;
    const ChannelDriver &d = setup->drivers[*driver];
    for (int i = 0; i < d.dofCount; ++i)
        if (!d.dofs[i].name.empty() && d.dofs[i].name == dofName) { *dof = i; return 1; }
    int n = -1;
    char tail = 0;
    if (sscanf(dofName, "DOF%d%c", &n, &tail) == 1 && n >= 0 && n < d.dofCount) { *dof = n; return 1; }
    return 0;
}

int channelDofNames(const ChannelSetup *setup, int driver, int dof, char *driverName, char *dofName) {
    if (!setup || driver < 0 || driver >= setup->driverCount) return 0;
    const ChannelDriver &d = setup->drivers[driver];
    if (dof < 0 || dof >= d.dofCount) return 0;
    snprintf(driverName, 1024, "%s", instanceName(setup, driver).c_str());
    if (d.dofs[dof].name.empty()) snprintf(dofName, 1024, "DOF%d", dof);
    else snprintf(dofName, 1024, "%s", d.dofs[dof].name.c_str());
    return 1;
}

const char *channelBuildDriverDirectory() {
    // A build installs its drivers in bin/drivers beside its programs.
    static const std::string beside = [] {
        char self[4096];
        const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
        if (n <= 0) return std::string();
        self[n] = 0;
        std::string path(self);
        path = path.substr(0, path.rfind('/'));
        if (path.size() < 4 || path.compare(path.size() - 4, 4, "/bin") != 0) return std::string();
        path += "/drivers";
        struct stat st;
        return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? path : std::string();
    }();
    return beside.empty() ? nullptr : beside.c_str();
}

const char *channelDriverDirectory() {
    const char *dir = envGet(ENV_BW_CHNLDRIVER);
    if (dir && *dir) return dir;
    // Drivers found beside the program need no setting.
    if (const char *beside = channelBuildDriverDirectory()) return beside;
    msgShow("Channels environment variable, BW_CHNLDRIVER, has not been set.", TOL_CLASS_WARNING);
    return access(CHANNEL_DEFAULT_DRIVER_DIR, R_OK) == 0 ? CHANNEL_DEFAULT_DRIVER_DIR : nullptr;
}

std::string channelConnectionText(int kind, const ChannelConnectionParts &p) {
    char text[4096];
    if (kind == CHANNEL_CONN_OUTPUT)
        snprintf(text, sizeof text, "CHN %s = %.12g * %s%s.%s + %.12g", orNone(p.channel), p.scale,
                 p.prefix.c_str(), orNone(p.element), orNone(p.parameter), p.offset);
    else
        snprintf(text, sizeof text, "%s%s.%s = %.12g * CHN %s + %.12g", p.prefix.c_str(),
                 orNone(p.element), orNone(p.parameter), p.scale, orNone(p.channel), p.offset);
    return text;
}

int channelConnectionParse(const char *text, int *kind, ChannelConnectionParts *parts) {
    char left[1024], right[1024];
    double scale = 0, offset = 0;
    int used = 0;
    ChannelConnectionParts p;
    auto splitItem = [&](const char *item) {
        // The element's name has no dot: the parameter is all behind the first.
        const char *dot = strchr(item, '.');
        if (!dot) return false;
        p.element = fromNone(std::string(item, dot - item).c_str());
        p.parameter = fromNone(dot + 1);
        return true;
    };
    if (sscanf(text, "CHN %1023s = %lf * %1023s + %lf%n", left, &scale, right, &offset, &used) == 4 &&
        text[used] == 0) {
        p.channel = fromNone(left);
        if (!splitItem(right)) return 0;
        *kind = CHANNEL_CONN_OUTPUT;
    } else if (sscanf(text, "%1023s = %lf * CHN %1023s + %lf%n", left, &scale, right, &offset, &used) == 4 &&
               text[used] == 0) {
        p.channel = fromNone(right);
        if (!splitItem(left)) return 0;
        *kind = CHANNEL_CONN_INPUT;
    } else {
        return 0;
    }
    p.scale = scale;
    p.offset = offset;
    *parts = p;
    return 1;
}

std::string channelConnectionDestination(const ChannelConnection &c) {
    // The destination is the left side of the text: "CHN driver.dof" for an
    // output, the element's parameter for an input; the output's is given
    // without its "CHN " word.
    const std::string &e = c.expression;
    std::string left = e.substr(0, e.find(" = "));
    if (left.rfind("CHN ", 0) == 0) left = left.substr(4);
    return left;
}

int channelSetupSelectDrivers(ChannelSetup *setup) {
    int count = 0;
    for (ChannelDriver &d : setup->drivers) {
        bool wanted = false;
        for (const ChannelDof &dof : d.dofs)
            wanted = wanted || (dof.direction == CHANNEL_DIR_INPUT && setup->capture) ||
                     (dof.direction == CHANNEL_DIR_OUTPUT && setup->control);
        d.selected = d.enabled && d.configRead && wanted;
        count += d.selected;
    }
    return count;
}
