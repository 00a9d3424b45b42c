// The capture run: the connections of a setup become update lists, drivers
// are started, and each cycle reads the drivers a list needs, evaluates the
// list and writes the outputs back.
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "animation.h"
#include "channel.h"
#include "dictionary.h"
#include "tol_status.h"

int g_channelUseFcurve = 0;
int g_channelUseCached = 0;

namespace {

constexpr const char *kSourceName = "channel/chn_capt";

// One connection as the run evaluates it.
struct Link {
    ChannelConnection *connection;  // the setup's connection
    int driver;                     // driver index in the setup
    int dof;                        // DOF index in the driver
    int chapter;                    // chapter of the element
    int32_t element;                // element index
    int param;                      // paramLookup index, -1: not a parameter we can set
    int group;                      // group of the update list the parameter belongs to
    float scale;                    // factor of the connection
    float offset;                   // added after it
};

// What a run keeps beside its setup.
struct Run {
    std::vector<Link> links;
    std::unordered_multimap<int64_t, int> byElement;  // (chapter, element) -> link
    std::vector<int> mainDrivers;                     // drivers the main list reads or writes
    std::vector<int> hiDrivers;                       // and the high-priority list
};

int64_t elementKey(int chapter, int32_t element) {
    return (int64_t(chapter) << 32) | uint32_t(element);
}

Run *runOf(const ChannelSetup *setup) { return setup ? static_cast<Run *>(setup->run) : nullptr; }

// The turns of the drivers are taken by both sides of the viewer: one at a time.
std::mutex commLock;

// Starts and stops of runs in this capture.
double timeTable[CHANNEL_TIME_TABLE_SIZE];
int timeCount = 0;

void noteTime(int line) {
    if (timeCount >= CHANNEL_TIME_TABLE_SIZE) {
        fprintf(stderr, "%s(%d): Can't start/stop more than %d times.\n", kSourceName, line,
                CHANNEL_TIME_TABLE_SIZE);
        return;
    }
    timeval now;
    gettimeofday(&now, nullptr);
    timeTable[timeCount++] = double(now.tv_sec) + now.tv_usec * 1e-6;
}

// Seconds since the capture's first run started: the time of output slots.
float runClock() {
    static const auto start = std::chrono::steady_clock::now();
    return std::chrono::duration<float>(std::chrono::steady_clock::now() - start).count();
}

void lists(ChannelSetup *setup, Dictionary *dict) {
    updatelistClear(&setup->hiPriorityList);
    updatelistClear(&setup->mainList);
    // What leads to a camera runs on the draw side every frame.
    updatelistUnmark(dict);
    if (Chapter *cameras = dictChapter(dict, CHP_CAMERAS))
        for (int i = 0; i < cameras->elementCount; ++i)
            if (cameras->elements[i].deleted == ELEM_LIVE) cameras->elements[i].marked = 1;
    updatelistClear(&dict->update2);
    if (updatelistBuildFrom(dict, -1, 1, 0)) {
        setup->hiPriorityList = dict->update2;
        dict->update2 = UpdateList{};
    }
    updatelistUnmark(dict);
    // The rest on the update side; what both hold runs in the first only.
    UpdateList saved = dict->update;
    dict->update = UpdateList{};
    if (updatelistBuild(dict, &dict->update, 0, 0)) setup->mainList = dict->update;
    else updatelistClear(&dict->update);
    dict->update = saved;
    updatelistDeactivateShared(&setup->mainList, &setup->hiPriorityList);
    updatelistPruneChannels(&setup->mainList);
    updatelistPruneChannels(&setup->hiPriorityList);
}

// The drivers whose records a list carries.
std::vector<int> listDrivers(const UpdateList &list) {
    std::vector<int> drivers;
    auto add = [&](const void *data) {
        const auto *rec = static_cast<const ChannelDriverRecord *>(data);
        if (rec && std::find(drivers.begin(), drivers.end(), rec->driver) == drivers.end())
            drivers.push_back(rec->driver);
    };
    for (int32_t i = 0; i < list.count; ++i) {
        const UpdateRecord &r = list.records[i];
        if (r.relation != REL_EXPRESSION || !r.active) continue;
        if (r.chapter == CHP_CHANNEL_DRIVERS) add(r.data);
        for (int s = 0; s < r.sourceCount; ++s)
            if (r.sources[s].chapter == CHP_CHANNEL_DRIVERS) add(r.sources[s].data);
    }
    return drivers;
}

Run *compile(ChannelSetup *setup, Dictionary *dict) {
    Run *run = new Run;
    for (ChannelConnection *c = setup->connections; c; c = c->next) {
        if (!c->active || !c->valid || !c->enabled) continue;
        ChannelConnectionTarget target;
        std::string error;
        if (channelConnectionCompile(dict, setup, c, &target, &error) != CHANNEL_COMPILE_OK) continue;
        int kind = 0;
        ChannelConnectionParts parts;
        channelConnectionParse(c->expression.c_str(), &kind, &parts);
        Link link{c, target.driver, target.dof, target.chapter, target.element,
                  paramLookup(target.chapter, target.parameter.c_str()), RELGR_PARAM,
                  float(parts.scale), float(parts.offset)};
        ParamInfo info;
        if (paramInfo(link.param, &info)) link.group = info.group;
        const int key = int(run->links.size());
        run->links.push_back(link);
        // An input is found from the driven element, an output from its driver.
        if (c->kind == CHANNEL_CONN_OUTPUT)
            run->byElement.emplace(elementKey(CHP_CHANNEL_DRIVERS, target.driverElement), key);
        else
            run->byElement.emplace(elementKey(target.chapter, target.element), key);
    }
    return run;
}

// Data of an element, or null.
void *elementData(Dictionary *dict, int chapter, int32_t element) {
    const Element *e = elemGet(dict, chapter, element);
    return e && e->deleted == ELEM_LIVE ? e->data : nullptr;
}

// The connections a record carries: inputs set the record's element, outputs
// read the elements of the record's driver.
void channelRecord(UpdateRecord *record, float time) {
    const ChannelDriverRecord *owner = nullptr;
    if (record->chapter == CHP_CHANNEL_DRIVERS) owner = static_cast<const ChannelDriverRecord *>(record->data);
    for (int s = 0; !owner && s < record->sourceCount; ++s)
        if (record->sources[s].chapter == CHP_CHANNEL_DRIVERS && record->sources[s].active)
            owner = static_cast<const ChannelDriverRecord *>(record->sources[s].data);
    Run *run = owner ? runOf(owner->setup) : nullptr;
    if (!run) return;
    ChannelSetup *setup = owner->setup;
    Dictionary *dict = dictCurrent();
    auto range = run->byElement.equal_range(elementKey(record->chapter, record->element));
    for (auto it = range.first; it != range.second; ++it) {
        const Link &link = run->links[size_t(it->second)];
        ChannelDriver &driver = setup->drivers[size_t(link.driver)];
        if (link.connection->kind == CHANNEL_CONN_OUTPUT) {
            void *data = elementData(dict, link.chapter, link.element);
            if (data && link.param >= 0)
                channelDofSet(&driver, link.dof, paramGet(link.param, data) * link.scale + link.offset);
        } else if (link.group == record->group && link.param >= 0) {
            paramSet(link.param, record->data, channelDofValue(&driver, link.dof, time) * link.scale + link.offset);
            link.connection->lastTime = time;
        }
    }
}

// Takes the driver's slots from the block into its local copy.
bool fetch(ChannelDriver &driver) {
    if (driver.slots.size() < size_t(driver.dofCount)) driver.slots.resize(size_t(driver.dofCount));
    if (!bw_commGetData(&driver, driver.commIndex, driver.startChannel, driver.dofCount, driver.slots.data()))
        return false;
    driver.readFlag = 1;
    return true;
}

bool driverAlive(const ChannelDriver &driver) {
    const ChannelCommDriver *row = commDriver(driver.commIndex);
    return row && row->state.load() == CHANNEL_DRV_RUNNING;
}

// The drivers of the list give their turn, their slots are taken, and the turn goes back.
void channelRead(ChannelSetup *setup, const std::vector<int> &drivers) {
    for (ChannelDriver &d : setup->drivers) d.readFlag = 0;
    std::lock_guard<std::mutex> lock(commLock);
    for (int index : drivers) {
        ChannelDriver &d = setup->drivers[size_t(index)];
        if (!d.selected || !driverAlive(d)) continue;
        if (commGrabDriver(setup, d.commIndex)) fetch(d);
        commReleaseDriver(setup, d.commIndex);
    }
}

void channelWrite(ChannelSetup *setup, const std::vector<int> &drivers) {
    std::lock_guard<std::mutex> lock(commLock);
    for (int index : drivers) {
        ChannelDriver &d = setup->drivers[size_t(index)];
        if (!d.selected || !driverAlive(d) || d.slots.empty()) continue;
        int written = 0;
        bw_commSetData(&d, d.commIndex, d.startChannel, d.dofCount, d.slots.data(), 0, &written);
        for (ChannelSlot &s : d.slots)
            if (s.written == 2) s.written = 0;
        if (written) d.gotData = 1;
    }
}

}  // namespace

void channelTimesReset() { timeCount = 0; }
int channelTimesCount() { return timeCount; }

void channelRunInit(ChannelSetup *setup, int mode, int keyframe) {
    if (!setup) return;
    setup->mode = mode;
    setup->keyframe = keyframe;
    setup->nextState = 0;
    setup->running = 1;
    std::fill(std::begin(setup->status), std::end(setup->status), 0);
    setup->firstFrames = 1;
    setup->firstFrameCount = 0;
    setup->useDrivers = 1;
    setup->closed = 0;
}

void channelRunUnprepare(ChannelSetup *setup) {
    if (!setup) return;
    updatelistClear(&setup->mainList);
    updatelistClear(&setup->hiPriorityList);
    delete runOf(setup);
    setup->run = nullptr;
}

int channelRunPrepare(ChannelSetup *setup) {
    if (!setup) {
        msgShow("No valid channel items to update", TOL_CLASS_ERROR);
        return 0;
    }
    setup->recordMode = setup->capture && (setup->keyframe || !setup->takeEnable);
    Dictionary *dict = dictCurrent();
    channelRunUnprepare(setup);
    int start = 0;
    for (int i = 0; i < setup->driverCount; ++i) {
        ChannelDriver &d = setup->drivers[size_t(i)];
        d.pid = -1;
        d.readFlag = 0;
        d.commIndex = i;
    }
    channelChapterMake(dict, setup);
    if (!channelDependencyCheck(dict, setup, 1)) {
        channelRunAbort(setup, 0);
        return 0;
    }
    if (setup->inputCount + setup->outputCount == 0) {
        msgShow("No valid channel items to update", TOL_CLASS_ERROR);
        channelRunAbort(setup, 0);
        return 0;
    }
    channelSetupSelectDrivers(setup);
    // Slots of the block in the order of the drivers that run.
    for (ChannelDriver &d : setup->drivers) {
        if (!d.selected) continue;
        if (start + d.dofCount > CHANNEL_SLOT_COUNT) {
            msgShowf(TOL_CLASS_ERROR, "Driver '%s' does not fit in the %d channels", d.name.c_str(),
                     CHANNEL_SLOT_COUNT);
            channelRunAbort(setup, 0);
            return 0;
        }
        d.startChannel = start;
        d.slots.assign(size_t(d.dofCount), ChannelSlot{});
        start += d.dofCount;
    }
    Run *run = compile(setup, dict);
    setup->run = run;
    lists(setup, dict);
    run->mainDrivers = listDrivers(setup->mainList);
    run->hiDrivers = listDrivers(setup->hiPriorityList);
    for (ChannelConnection *c = setup->connections; c; c = c->next) c->list = nullptr;
    for (const Link &l : run->links) {
        // The list that carries a connection: the one that holds its driver.
        const bool hi = std::find(run->hiDrivers.begin(), run->hiDrivers.end(), l.driver) != run->hiDrivers.end();
        l.connection->list = hi ? &setup->hiPriorityList : &setup->mainList;
    }
    g_evalHooks.channelRecord = channelRecord;
    setup->runState = setup->mode == CHANNEL_MODE_KEYFRAME ? CHANNEL_STATE_KEYFRAME
                      : setup->mode == CHANNEL_MODE_RECORD  ? CHANNEL_STATE_RUNNING
                                                            : CHANNEL_STATE_STARTED;
    return 1;
}

int channelRunStart(ChannelSetup *setup) {
    if (!setup) return 0;
    if (setup->takeEnable) {
        setup->takeRecording = 0;
        setup->label.clear();
        struct stat st;
        if (stat(setup->takeDir, &st) != 0 || !S_ISDIR(st.st_mode)) {
            msgShowf(TOL_CLASS_ERROR, "Take directory '%s' is not a directory", setup->takeDir);
            channelRunAbort(setup, 1);
            return 0;
        }
        const std::string set = takeSetPath(setup->takeDir, setup->takeName);
        if (stat(set.c_str(), &st) != 0 && mkdir(set.c_str(), 0777) != 0) {
            msgShowf(TOL_CLASS_ERROR, "Can't create directory '%s'", set.c_str());
            channelRunAbort(setup, 1);
            return 0;
        }
        const int next = takeNextNumber(set.c_str(), setup->takeNumber);
        if (next >= 0 && next != setup->takeNumber) {
            msgShowf(TOL_CLASS_MESSAGE, "New Start Take Number is now %d", next);
            setup->takeNumber = next;
        }
    }
    if (!channelRunPrepare(setup)) return 0;
    int count = 0;
    for (const ChannelDriver &d : setup->drivers) count += d.selected;
    if (!commInit(setup->sync != 0, setup->driverCount, int(setup->debug))) {
        msgShow("Cannot initialise channel communications", TOL_CLASS_ERROR);
        channelRunAbort(setup, 1);
        return 0;
    }
    ChannelComm *comm = commBlock();
    snprintf(comm->sceneName, sizeof comm->sceneName, "%s", setup->sceneName.c_str());
    comm->takeNumber = uint32_t(setup->takeNumber);
    setup->closed = 0;
    setup->deadList.clear();
    msgShow("Please wait - starting drivers...", TOL_CLASS_STATUS);
    for (int i = 0; i < setup->driverCount; ++i) {
        ChannelDriver &d = setup->drivers[size_t(i)];
        if (!d.selected) continue;
        const char *directory = d.directory.empty() ? channelDriverDirectory() : nullptr;
        const std::string dir = !d.directory.empty() ? d.directory : directory ? directory : ".";
        const std::string exe = dir + "/" + d.name;
        if (setup->takeEnable) {
            char file[64];
            snprintf(file, sizeof file, "/TAKE.%04d/%s.%02d.chd", setup->takeNumber, d.name.c_str(), i);
            d.recordFile = takeSetPath(setup->takeDir, setup->takeName) + file;
        } else {
            d.recordFile.clear();
        }
        int pid = -1, timedOut = 0;
        if (!commStartDriver(i, i, exe.c_str(), d.startChannel, d.dofCount, &pid, d.custom, &d, &timedOut)) {
            channelRunAbort(setup, 1);
            return 0;
        }
    }
    comm->driverCount = uint32_t(count);
    if (!commMonitorStart(setup)) {
        fprintf(stderr, "%s: Error setting up monitoring thread.\n", kSourceName);
        channelRunAbort(setup, 1);
        return 0;
    }
    {
        std::lock_guard<std::mutex> lock(commLock);
        commLockAll(setup);
        commSetCommand(uint32_t(setup->runState == CHANNEL_STATE_STARTED ? CHANNEL_STATE_RUNNING : setup->runState));
        commUnlockAll(setup);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    {
        std::lock_guard<std::mutex> lock(commLock);
        commLockAll(setup);
        setup->stopButton = 0;  // the channels chapter of this viewer has no buttons
        commUnlockAll(setup);
    }
    channelTimesReset();
    noteTime(__LINE__);
    setup->label = channelRunLabel(setup);
    return 1;
}

int channelRunList(ChannelSetup *setup, Dictionary *dict, UpdateList *list) {
    Run *run = runOf(setup);
    if (!setup || !run || !list) return 0;
    if (!setup->running || setup->stopped) return 1;
    const std::vector<int> &drivers = list == &setup->hiPriorityList ? run->hiDrivers : run->mainDrivers;
    // Read.
    if (setup->capture) {
        channelRead(setup, drivers);
        if (commAllDriversDead() || commCheckDriverError(setup)) {
            channelRunAbort(setup, 1);
            return 0;
        }
        const ChannelComm *comm = commBlock();
        if (setup->takeRecording && comm && comm->clockRunning)
            setup->playTime = setup->startTime + comm->recordTime;
    }
    // Update.
    updatelistEval(dict, list, setup->playTime);
    channelStoreKeys(setup, list);
    // Waves driven through this list read their parameters again at the
    // run's time, so the points they move next follow the channels.
    for (ChannelConnection *c = setup->connections; c; c = c->next)
        if (c->active && c->list == list && c->itemType == CHN_TOK_WAVE)
            if (Element *e = elemGet(dict, CHP_WAVES, c->element))
                waveUpdate(static_cast<Wave *>(e->data), setup->playTime);
    // Write.
    if (setup->control) channelWrite(setup, drivers);
    ++setup->firstFrameCount;
    return 1;
}

float channelDofValue(ChannelDriver *driver, int dof, float time) {
    if (!driver || dof < 0 || dof >= driver->dofCount || size_t(dof) >= driver->dofs.size()) return 0.0f;
    const ChannelDof &d = driver->dofs[size_t(dof)];
    if (d.direction != CHANNEL_DIR_INPUT) return 0.0f;
    float value = 0.0f;
    if (g_channelUseFcurve && d.curve) {
        value = float(fcurveValue(d.curve, time, 1));
    } else {
        if (!g_channelUseCached && !driver->readFlag) {
            std::lock_guard<std::mutex> lock(commLock);
            fetch(*driver);
        }
        if (size_t(dof) < driver->slots.size()) value = driver->slots[size_t(dof)].value;
    }
    value = value * d.scale + d.offset;
    return std::clamp(value, std::min(d.minimum, d.maximum), d.maximum);
}

void channelDofSet(ChannelDriver *driver, int dof, float value) {
    if (g_channelUseCached || !driver || dof < 0 || dof >= driver->dofCount || size_t(dof) >= driver->dofs.size())
        return;
    const ChannelDof &d = driver->dofs[size_t(dof)];
    if (d.direction != CHANNEL_DIR_OUTPUT) return;
    if (driver->slots.size() < size_t(driver->dofCount)) driver->slots.resize(size_t(driver->dofCount));
    ChannelSlot &slot = driver->slots[size_t(dof)];
    slot.value = std::clamp(value * d.scale + d.offset, std::min(d.minimum, d.maximum), d.maximum);
    slot.time = runClock();
    slot.written = 2;  // new from the viewer: what the write step hands to the block
    slot.active = 1;
}

void channelStoreKeys(ChannelSetup *setup, UpdateList *list) {
    Run *run = runOf(setup);
    if (!run) return;
    Dictionary *dict = dictCurrent();
    const float frame = setup->framesPerSecond > 0 ? 1.0f / setup->framesPerSecond : 1.0f / 30.0f;
    for (const Link &l : run->links) {
        ChannelConnection *c = l.connection;
        if (!c->active || c->list != list || l.param < 0 ||
            (c->kind != CHANNEL_CONN_FCURVE && c->kind != CHANNEL_CONN_INPUT))
            continue;
        void *data = elementData(dict, l.chapter, l.element);
        if (!data) continue;
        const float time = std::min(setup->playTime, setup->endTime > 0 ? setup->endTime : setup->playTime);
        const float value = paramGet(l.param, data);
        if (!c->fcurve) {
            ParamInfo info;
            paramInfo(l.param, &info);
            c->fcurve = fcurveCreate(info.curveType, -1);
            if (!c->fcurve) continue;
        }
        Fcurve *curve = c->fcurve;
        if (setup->recordMode && setup->capturing) {
            // A key within a frame of the last one is skipped; within half a
            // frame it takes the new value.
            if (curve->keyCount > 0) {
                FcurveKey &last = curve->keys[curve->keyCount - 1];
                const float gap = time - last.time;
                if (gap < frame * 0.5f) {
                    last.value = value;
                    continue;
                }
                if (gap < frame) continue;
            }
            FcurveKey *key = fcurveKeyNew();
            key->time = time;
            key->value = value;
            key->interpolation = 1;
            fcurveKeysAppend(curve, key);
        } else {
            // Outside a recording the curve holds the present value only.
            fcurveDeleteKeys(curve, 1, curve->keyCount, 0);
            FcurveKey *key = fcurveKeyNew();
            key->time = time;
            key->value = value;
            fcurveKeysAppend(curve, key);
        }
        c->nextValue = value;
        c->nextTime = time;
    }
}

void channelRunClose(ChannelSetup *setup) {
    if (!setup) return;
    Dictionary *dict = dictCurrent();
    // The connections' relations go with the chapter's elements.
    Chapter *chapter = dictChapter(dict, CHP_CHANNEL_DRIVERS);
    for (int i = 0; chapter && i < chapter->elementCount; ++i) {
        if (chapter->elements[i].deleted != ELEM_LIVE) continue;
        relRemove(dict, CHP_CHANNEL_DRIVERS, i, 1, REL_EXPRESSION, -1, -1, -1);
        relRemove(dict, CHP_CHANNEL_DRIVERS, i, 0, REL_EXPRESSION, -1, -1, -1);
    }
    channelChapterFree(dict);
    dict->update.dirty = 1;
    noteTime(__LINE__);
}

void channelRunStop(ChannelSetup *setup) {
    if (!setup) return;
    {
        std::lock_guard<std::mutex> lock(commLock);
        commLockAll(setup);
        commSetCommand(COMM_CMD_STOP);
        for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i)
            if (ChannelCommDriver *row = commDriver(i)) row->holdsLock = 0;
        commMonitorStop();
        commUnlockAll(setup);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    commStopDrivers();
    commClose();
    if (setup->takeRecording) {
        setup->takeRecording = 0;
        setup->capturing = 0;
        ++setup->takeNumber;
    }
    for (ChannelDriver &d : setup->drivers) {
        d.pid = -1;
        d.readFlag = 0;
    }
    channelRunUnprepare(setup);
}

void channelRunAbort(ChannelSetup *setup, int reportIt) {
    if (!setup || setup->closed) return;
    setup->closed = 1;
    // The monitor writes the list of dead drivers: it ends before that is read.
    commMonitorStop();
    if (setup->useDrivers) {
        if (reportIt) {
            if (commAllDriversDead() && !setup->deadList.empty())
                msgShowf(TOL_CLASS_ERROR, "All drivers died (%s)", setup->deadList.c_str());
            else
                msgShow("Driver communication failed", TOL_CLASS_ERROR);
        }
    }
    for (int i = 0; i < CHANNEL_MAX_DRIVERS; ++i)
        if (ChannelCommDriver *row = commDriver(i)) row->holdsLock = 0;
    if (setup->useDrivers) {
        commStopDrivers();
        commClose();
    }
    setup->running = 0;
}

std::string channelRunLabel(const ChannelSetup *setup) {
    if (!setup) return "";
    const bool in = setup->inputCount > 0, out = setup->outputCount > 0;
    const bool countdown = setup->runState == CHANNEL_STATE_COUNTDOWN;
    if (!in && !out) return "Channel I/O Paused - No channel connections to update";
    std::string label = in && out ? "Record/Control" : in ? "Record" : "Control";
    if (countdown) label += "(countdown)";
    return label;
}

int takeRecordStart(ChannelSetup *setup, const char *sceneName, double wallClock) {
    if (!setup || !setup->takeEnable || setup->takeRecording) return 0;
    char take[16];
    snprintf(take, sizeof take, "TAKE.%04d", setup->takeNumber);
    const std::string dir = takeSetPath(setup->takeDir, setup->takeName) + "/" + take;
    if (mkdir(dir.c_str(), 0777) != 0) {
        ++setup->takeNumber;
        return 0;
    }
    printf("Recording to... '%s/%s.CHD/%s'\n", setup->takeDir, setup->takeName, take);
    setup->takeRecording = 1;
    setup->capturing = 1;
    std::lock_guard<std::mutex> lock(commLock);
    commLockAll(setup);
    commSetCommand(COMM_CMD_RECORD_ON);
    if (ChannelComm *comm = commBlock()) {
        if (setup->timeStamp) {
            timeval now;
            gettimeofday(&now, nullptr);
            comm->startSeconds = uint32_t(now.tv_sec);
            comm->startMicroseconds = uint32_t(now.tv_usec);
            comm->recordTime = 0.0f;
            comm->clockRunning = 1;
        }
        comm->takeNumber = uint32_t(setup->takeNumber);
        snprintf(comm->sceneName, sizeof comm->sceneName, "%s", sceneName ? sceneName : "");
        comm->takeExtra = 0;
    }
    commUnlockAll(setup);
    setup->recordStartTime = float(wallClock);
    setup->startTime = setup->playTime;
    return 1;
}

void takeRecordStop(ChannelSetup *setup) {
    if (!setup || !setup->takeEnable || !setup->takeRecording) return;
    printf("'%s/%s.CHD/TAKE.%04d' ...take recording completed !\n", setup->takeDir, setup->takeName,
           setup->takeNumber);
    setup->takeRecording = 0;
    setup->capturing = 0;
    ++setup->takeNumber;
    std::lock_guard<std::mutex> lock(commLock);
    commLockAll(setup);
    commSetCommand(COMM_CMD_RECORD_OFF);
    if (ChannelComm *comm = commBlock()) comm->clockRunning = 0;
    commUnlockAll(setup);
}
