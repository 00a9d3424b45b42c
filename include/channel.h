// Channels: the drivers of a scene with their degrees of freedom (DOFs), the
// connections from DOFs to element parameters, and the shared arena through
// which the driver processes and the viewer exchange values.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "animation.h"

// ---------------------------------------------------------------------------
// Channel model

constexpr int CHANNEL_MAX_DRIVERS = 32;    // rows of the driver table of a run
constexpr int CHANNEL_SLOT_COUNT = 1000;   // channel slots of the shared block
constexpr float CHANNEL_DOF_MAXIMUM = 9999.0f;   // default upper bound (bits 0x461C3C00)
constexpr float CHANNEL_DOF_MINIMUM = -9999.0f;  // default lower bound (bits 0xC61C3C00)

enum ChannelDirection : int32_t {
    CHANNEL_DIR_NONE = 0,    // neither
    CHANNEL_DIR_INPUT = 1,   // `I`: written by the driver
    CHANNEL_DIR_OUTPUT = 2,  // `O`: written by the viewer
};

enum ChannelRunMode : int32_t {
    CHANNEL_RUN_SYNCED = 0,     // takes turns with the viewer
    CHANNEL_RUN_FREE = 1,       // runs free
    CHANNEL_RUN_FREQUENCY = 2,  // runs free at a given frequency
};

// One channel slot of the shared block, and the driver's local copy of it.
struct ChannelSlot {
    float value;       // the channel's value
    float time;        // seconds of the record clock when it was written
    uint32_t written;  // 1: new from the driver; 2: new from the viewer; 0: taken
    uint32_t type;     // kind of value, the driver's own
    uint32_t active;   // 1 when the channel is in use
};
static_assert(sizeof(ChannelSlot) == 20);

struct Fcurve;

struct ChannelDof {
    std::string name;                       // empty: the DOF is called "DOF%d"
    int32_t direction = CHANNEL_DIR_NONE;   // ChannelDirection
    uint16_t active = 0;                    // 1 when in use
    float offset = 0.0f;                    // added after the scale
    float scale = 1.0f;                     // factor on the raw value
    Fcurve *curve = nullptr;                // recorded data of the last take, not owned
    float maximum = CHANNEL_DOF_MAXIMUM;    // upper bound of the value
    float minimum = CHANNEL_DOF_MINIMUM;    // lower bound of the value
};

struct ChannelDriver {
    std::string name;                 // executable's base name
    std::string directory;            // directory of the executable and its .drv
    std::string bufferFile;           // data file of the run
    int32_t dofCount = 0;             // rows in `dofs`
    std::vector<ChannelDof> dofs;     // its degrees of freedom
    int32_t errorCount = 0;           // rows in `errors`
    std::vector<std::string> errors;  // its own error texts (ERROR lines of the .drv)
    int32_t remote = 0;               // 1: runs on another machine
    int32_t startChannel = 0;         // first slot in the shared block
    int32_t pid = -1;                 // process id, -1 when not running
    void *custom = nullptr;           // custom dialogue of the driver, not owned
    int32_t runMode = CHANNEL_RUN_SYNCED;  // ChannelRunMode
    float frequency = 0.0f;           // frames per second in frequency mode, 0 default
    uint16_t selected = 0;            // takes part in the run
    uint16_t enabled = 1;             // ON in the setup
    uint16_t configRead = 0;          // its .drv was read
    uint16_t readFlag = 0;            // its slots were read in this cycle
    std::vector<ChannelSlot> slots;   // local copy of its slots, `dofCount` rows
    std::string remoteHost;           // host of a remote driver
    std::string recordFile;           // take file of the run
    std::vector<std::string> arguments;  // its own words, right after the executable on its command line
    int32_t commIndex = -1;           // row in the arena's driver table during a run
    uint16_t gotData = 0;             // output values went to the block in this cycle
    std::string customFile;           // the .cus read in place of its .drv, handed on by the run; empty: none
};

enum ChannelConnectionKind : uint16_t {
    CHANNEL_CONN_FCURVE = 0,  // input driven by a recorded fcurve
    CHANNEL_CONN_INPUT = 1,   // DOF drives a parameter
    CHANNEL_CONN_OUTPUT = 2,  // parameter drives a DOF
    CHANNEL_CONN_BOTH = 3,    // both ways
};

struct ChannelConnection {
    uint16_t active = 1;        // used in a run
    uint16_t valid = 0;         // its expression compiled
    uint16_t enabled = 1;       // ON in the setup
    uint16_t kind = CHANNEL_CONN_INPUT;  // ChannelConnectionKind
    std::string expression;     // the connection as text (see channelConnectionText)
    void *tree = nullptr;       // the compiled expression, not owned here
    int32_t element = -1;       // element index of the driven item
    void *elementList = nullptr;  // elements the expression reaches
    int32_t relation = 0;       // id of the parameter
    int32_t itemType = 0;       // token id of the item kind (MODEL, CAMERA...)
    Fcurve *fcurve = nullptr;   // recorded data, owned
    float lastTime = 0.0f;      // time of the last evaluation
    int32_t lastKey = 0;        // key found last
    float nextValue = 0.0f;     // value waiting for its time
    float nextTime = 0.0f;      // its time
    void *list = nullptr;       // update list that carries it
    ChannelConnection *next = nullptr;  // next in the setup's list
    uint16_t calibrated = 0;    // CALIBRATE: its calibration is in use
    float calibration[3] = {};  // CALIBRATE: the three values of its calibration
};

struct ChannelSetup {
    int32_t driverCount = 0;          // drivers in the list
    int32_t driverMax = 4;            // rows allocated
    int32_t sync = 2;                 // 2 with DRIVER_SYNC ON, else 1
    uint32_t debug = 0;               // DRIVER_DEBUG
    std::vector<ChannelDriver> drivers;  // `driverCount` rows
    std::string deadList;             // names of dead drivers, comma-separated; empty: none
    ChannelConnection *connections = nullptr;  // first connection, owned
    uint16_t fastInput = 1;           // FAST_INPUT is written inverted
    uint16_t frameRate = 0;           // show the frame rate while running
    uint16_t timeStamp = 1;           // TIMESTAMP
    uint16_t recording = 0;           // 1 while a timed record runs
    uint16_t capture = 1;             // inputs are used
    uint16_t control = 1;             // outputs are used
    uint16_t takeEnable = 0;          // take recording is allowed
    uint16_t takeRecording = 0;       // a take is being written
    int32_t inputCount = 0;           // input connections in use
    int32_t outputCount = 0;          // output connections in use
    char takeDir[256] = "\\temp";     // take directory
    char takeName[256] = "default";   // take name
    int32_t takeNumber = 1;           // number of the next take
    int32_t lastTake = -1;            // last used
    UpdateList mainList;              // main update list of the run, owned
    UpdateList hiPriorityList;        // high-priority update list of the run, owned
    uint16_t cycle = 0;               // 1: the connections close a dependency cycle
    // The run's own words.
    int32_t mode = 0;                 // ChannelRunKind asked for: 1 control, 3 record, 9 keyframe
    int32_t keyframe = 0;             // a keyframe run
    int32_t runState = 0;             // ChannelRunState
    int32_t nextState = 0;            // state pending for the next cycle
    uint16_t running = 0;             // 0 while the run is suspended
    uint16_t refining = 0;            // a refine pass runs
    uint16_t stopped = 0;             // the run is frozen
    uint16_t stopFlag = 0;            // a stop was asked for
    uint16_t recordMode = 0;          // values are recorded into the connections' curves
    uint16_t capturing = 0;           // a take of the run is being recorded
    uint16_t useDrivers = 0;          // the `drivers` flag: this setup starts and owns the drivers
    uint16_t closed = 0;              // the run was aborted or closed
    uint16_t stopButton = 0;          // the channels chapter asks for a 'stop' button
    uint16_t firstFrames = 1;         // the first frames of the run are still to come
    int32_t firstFrameCount = 0;      // frames of the run so far
    int32_t status[7] = {};           // the run's status words
    float recordStartTime = 0.0f;     // wall clock seconds when the take began
    float playTime = 0.0f;            // scene time of the run, seconds
    float endTime = 0.0f;             // last time of the scene, seconds
    float startTime = 0.0f;           // scene time when the run started, seconds
    float framesPerSecond = 30.0f;    // of the scene, for the recorded curves
    std::string label;                // status text of the run
    std::string sceneName;            // scene of the run, told to the drivers
    void *run = nullptr;              // compiled connections of the run, owned
};

// A setup with the defaults and room for `maxDrivers` drivers.
ChannelSetup *channelSetupCreate(int maxDrivers);
// The current scene's setup, made with the default driver "mouse" when the
// scene has none; null when it cannot be made.
ChannelSetup *channelSetupInit();
ChannelSetup *channelSetupCopy(const ChannelSetup *setup);  // deep copy
void channelSetupFree(ChannelSetup *setup);                  // setup and its connections
// Merges `second` into `first`, which it returns. An empty side yields to the
// other; a driver in both keeps the first's copy, or comes in as a further
// instance when its channels differ; a connection of `second` whose destination
// the first already drives is dropped with a warning.
ChannelSetup *channelSetupMerge(ChannelSetup *first, const ChannelSetup *second);
// True for a setup without drivers, or with only "mouse" and no connections.
bool channelSetupIsEmpty(const ChannelSetup *setup);

// Appends a driver and returns its index, or -1 when the setup is full.
int channelSetupAddDriver(ChannelSetup *setup, const ChannelDriver &driver);
// Appends a connection at the end of the list and returns it.
ChannelConnection *channelSetupAddConnection(ChannelSetup *setup, int kind, const char *expression);

// Driver and DOF of the names "name" or "name_n" (n-th instance of the same
// executable, counted from 1 after the first) and "dofname" or "DOF%d".
// 1 on success, 0 otherwise.
int channelDofLookup(const ChannelSetup *setup, const char *driverName, const char *dofName,
                     int *driver, int *dof);
// The reverse: names of a driver's DOF, each up to 1024 bytes.
int channelDofNames(const ChannelSetup *setup, int driver, int dof, char *driverName,
                    char *dofName);

// Directory of the driver executables: BW_CHNLDRIVER, else the build's beside
// the program, else the installed one when it can be read (with a warning),
// else null.
const char *channelDriverDirectory();
// The drivers a build installs beside its programs (bin/drivers), or null.
const char *channelBuildDriverDirectory();
constexpr const char *CHANNEL_DEFAULT_DRIVER_DIR = "/usr/brackwood/chnlDriver/bin";

// Reads the driver's configuration into its DOFs and errors, after checking
// that the executable `<directory>/<name>` is there: `<name>.cus` beside it
// when readable (its path kept in `customFile`), else `<name>.drv`. Every
// failure is reported and gives 0, leaving `driver` as it was; 1 on success.
int driverFileRead(const char *directory, const char *name, ChannelDriver *driver);

// Connections as text. Empty items are written "NONE"; `channel` is driver.dof.
// Input: "%s%s.%s = %.12g * CHN %s + %.12g"; output: "CHN %s = %.12g * %s%s.%s + %.12g".
struct ChannelConnectionParts {
    std::string prefix;     // element prefix
    std::string element;    // element name
    std::string parameter;  // parameter name
    std::string channel;    // driver.dof
    double scale = 1.0;     // factor
    double offset = 0.0;    // added
};
std::string channelConnectionText(int kind, const ChannelConnectionParts &parts);
// Parses either form; the prefix stays empty (it cannot be told from the name).
// 1 on success.
int channelConnectionParse(const char *text, int *kind, ChannelConnectionParts *parts);
// The destination of a connection: the parameter of an input, the channel of an output.
std::string channelConnectionDestination(const ChannelConnection &connection);

// How a driver is reached: the `remote` word of ChannelDriver.
enum ChannelRemoteMode : int32_t {
    CHANNEL_DRIVER_LOCAL = 0,   // runs here (broadcast form when its .brd says so)
    CHANNEL_DRIVER_REMOTE = 1,  // its local part serves the one on `remoteHost`
    CHANNEL_DRIVER_LISTEN = 2,  // listens to the host and port of its .brd
};

// ---------------------------------------------------------------------------
// The channels chapter and the dependency check

struct Dictionary;

// Data record of a driver's element in the channels chapter.
struct ChannelDriverRecord {
    ChannelSetup *setup;  // setup that holds the driver
    int32_t driver;       // its index in the setup
};
// Element name of a driver in the channels chapter: "CHN %.80s".
std::string channelDriverElementName(const char *driverName);
// Gives every driver of `setup` an element of the channels chapter, after
// letting the chapter's old elements go. Number of elements made.
int channelChapterMake(Dictionary *dict, ChannelSetup *setup);
// Removes the elements of the channels chapter with their relations and records.
void channelChapterFree(Dictionary *dict);

// What a compiled connection joins.
struct ChannelConnectionTarget {
    int chapter = -1;         // chapter of the element
    int32_t element = -1;     // the element
    std::string parameter;    // its parameter
    int driver = -1;          // driver index in the setup
    int dof = -1;             // DOF index in the driver
    int32_t driverElement = -1;  // the driver's element in the channels chapter
};
enum ChannelCompileResult {
    CHANNEL_COMPILE_OK = 0,       // compiled
    CHANNEL_COMPILE_BAD = 1,      // the expression cannot be compiled: `error` says why
    CHANNEL_COMPILE_GONE = 2,     // its element is no longer in the scene
};
// Compiles the connection's expression against the scene and the setup's
// channels chapter. The place where connection expressions are compiled.
int channelConnectionCompile(Dictionary *dict, const ChannelSetup *setup,
                             ChannelConnection *connection, ChannelConnectionTarget *target,
                             std::string *error);
// Joins each active connection to its driver's element with relation 20010
// (old ones dropped), disables a connection whose element has gone, drops one
// that cannot be compiled, then asks the main list's build about cycles; a
// cycle sets `cycle` and is reported as the editor (inRun 0) or the run words
// it. 1 without a cycle.
int channelDependencyCheck(Dictionary *dict, ChannelSetup *setup, int inRun);

// Marks the drivers that take part in a run; returns their count.
int channelSetupSelectDrivers(ChannelSetup *setup);

// ---------------------------------------------------------------------------
// Shared arena and driver protocol

constexpr uint32_t CHANNEL_COMM_MAGIC = 0x3510cafe;  // written by a driver
constexpr uint32_t CHANNEL_COMM_VERSION = 3;         // protocol version
constexpr size_t CHANNEL_ARENA_SIZE = 0x100000;      // bytes of the arena file
constexpr size_t CHANNEL_SEMA_TABLE_OFFSET = 28736;  // first semaphore: the block's end rounded up to 64
constexpr size_t CHANNEL_SEMA_SIZE = 32;              // bytes of one semaphore
constexpr int CHANNEL_SEMA_COUNT = 2 * CHANNEL_MAX_DRIVERS;  // rows of the semaphore table

// Values of `command`.
enum ChannelCommand : uint32_t {
    COMM_CMD_NONE = 0,
    COMM_CMD_PAUSE = 3,
    COMM_CMD_RUN = 4,
    COMM_CMD_REFINE = 5,
    COMM_CMD_REFINE_DATA = 6,
    COMM_CMD_STOP = 8,
    COMM_CMD_RECORD_ON = 14,
    COMM_CMD_RECORD_OFF = 15,
};

// The block shared with the drivers, at offset 0 of the arena file; little-endian.
struct ChannelComm {
    uint32_t magic;                   // 0: written by a driver, 0x3510cafe
    uint32_t version;                 // 4: written by a driver, must be 3
    char driverVersionText[256];      // 8: the driver's version text
    uint32_t command;                 // 264: ChannelCommand
    uint32_t errorFlags;              // 268: 2 fatal, 4 text from the common table
    uint32_t errorNumber;             // 272: number of the error
    uint32_t errorDriver;             // 276: driver index of the error
    uint16_t clockRunning;            // 280: 1 after the record clock starts
    uint16_t pad0;                    // 282
    uint32_t startSeconds;            // 284: wall clock at start, seconds
    uint32_t startMicroseconds;       // 288: and microseconds
    float recordTime;                 // 292: seconds since the start, kept by the drivers
    float startTime;                  // 296: scene time at the start
    char sceneName[256];              // 300: name of the scene
    uint32_t takeNumber;              // 556: take number
    uint32_t takeExtra;               // 560: further take word, 0
    uint32_t driverCount;             // 564: started drivers
    uint32_t syncFlag;                // 568: 1
    uint16_t debug;                   // 572: DRIVER_DEBUG of the setup
    uint16_t pad1;                    // 574
    uint32_t driverPid;               // 576: written by the starting driver, its pid
    uint32_t semaphoreA;              // 580: semaphore table index of the driver's first
    uint32_t semaphoreB;              // 584: and of its second
    uint16_t syncMode;                // 588: 0 synced, 1 free or frequency
    uint16_t pad2;                    // 590
    uint32_t driverIndex;             // 592: driver being started
    uint32_t firstChannel;            // 596: its first slot
    uint32_t channelCount;            // 600: its slot count
    ChannelSlot values[CHANNEL_SLOT_COUNT];       // 604: the channel slots
    uint32_t channelState[CHANNEL_SLOT_COUNT];    // 20604: 0 idle, 1 asked for, 2 held
    int32_t channelCounter[CHANNEL_SLOT_COUNT];   // 24604: points ready
    uint16_t abort;                   // 28604: set: the viewer no longer takes the lock
    uint16_t pad3;                    // 28606
    uint32_t frequency;               // 28608: frames per second in frequency mode
    uint16_t commandPending[CHANNEL_MAX_DRIVERS];  // 28612: per driver, a new command waits
};

// Viewer-side row of a started driver.
struct ChannelCommDriver {
    std::atomic<int32_t> semaphoreIndex{-1};  // pair in the semaphore table, -1: not started
    std::atomic<uint32_t> holdsLock{0};       // 1: the viewer has the driver's turn
    std::atomic<uint32_t> inSync{1};          // 1: takes turns
    std::atomic<uint32_t> state{1};           // 0 running, 1 not started, 2 dead
    std::atomic<int32_t> pidfd{-1};           // process descriptor, -1 none
    std::atomic<int32_t> pid{-1};             // process id, -1 none
};
enum ChannelDriverState : uint32_t { CHANNEL_DRV_RUNNING = 0, CHANNEL_DRV_NOT_STARTED = 1,
                                     CHANNEL_DRV_DEAD = 2 };

// Creates the arena file, the block and, with `syncWanted`, a semaphore pair for
// each of `driverCount` drivers. 1 on success.
int commInit(int syncWanted, int driverCount, int debug);
// Destroys the semaphores, unmaps and deletes the arena file. 1 on success.
int commClose();
ChannelComm *commBlock();                  // the mapped block, null outside a run
const char *commArenaPath();               // path of the arena file, empty outside a run
ChannelCommDriver *commDriver(int index);  // row of the driver table, null out of range

// The turn. Each returns 1 when it holds (or gave up) the lock, 0 when it was refused.
int commGrabDriver(ChannelSetup *setup, int index);
int commReleaseDriver(ChannelSetup *setup, int index);
int commLockAll(ChannelSetup *setup);
int commUnlockAll(ChannelSetup *setup);

// Takes the new input slots of driver `index` into `slots` (count rows from slot `first`).
int bw_commGetData(ChannelDriver *driver, int index, int first, int count, ChannelSlot *slots);
// Puts the slots marked 2 (all with `force`) into the block; `written` tells whether any was 2.
int bw_commSetData(ChannelDriver *driver, int index, int first, int count,
                   const ChannelSlot *slots, int force, int *written);
// Sets `command` and the pending word of every started driver.
void commSetCommand(uint32_t command);

// Starts `executable` as driver `index` on the semaphore pair `semaphoreIndex`
// and waits for its handshake. 1 on success with `pid` set; `timedOut` tells a
// driver that did not answer in time. A failed driver is stopped.
int commStartDriver(int index, int semaphoreIndex, const char *executable, int firstChannel,
                    int channelCount, int *pid, void *custom, ChannelDriver *driver, int *timedOut);
// Watches the started drivers of `setup` from a thread of its own until
// commMonitorStop; a driver that ends is reported by channelDriverDied.
int commMonitorStart(ChannelSetup *setup);
void commMonitorStop();
bool commAllDriversDead();  // every started driver has ended
// Marks driver `index` dead: "Driver %s died - channel run will continue".
void channelDriverDied(ChannelSetup *setup, int index);
// Stops every started driver that is not dead: SIGTERM, then SIGKILL after a
// second. The monitor is stopped first: both reap the processes.
void commStopDrivers();

// Driver errors. Text of error `number` of the table common to all drivers, or
// null out of range.
const char *channelCommonErrorText(int number);
// Prints the error a driver has put in the block, if any, as "from %s driver: %s"
// (its text from the common table or the driver's own ERROR list) or "from %s
// driver: error number %d", and clears it. A fatal one is an ERROR and returns 1
// (the run ends); otherwise a WARNING and 0.
int commCheckDriverError(ChannelSetup *setup);

// ---------------------------------------------------------------------------
// Takes: a take set is the directory "<takeDir>/<takeName>.CHD", a take one
// directory "TAKE.%04d" in it, holding one file "<driver>.%02d.chd" per driver.

std::string takeSetPath(const char *takeDir, const char *takeName);  // "<dir>/<name>.CHD"

enum TakeScanMode : int32_t {
    TAKE_SCAN_NEWEST = 0,  // the take directory with the latest time stamp
    TAKE_SCAN_LAST = 1,    // the last take from `first` on, in the order of names
};
enum TakeScanResult : int32_t { TAKE_SCAN_FOUND = 0, TAKE_SCAN_NONE = 1, TAKE_SCAN_BAD_ARGUMENT = 2 };
struct TakeDirQuery {
    int32_t mode = TAKE_SCAN_LAST;  // TakeScanMode
    int32_t first = 0;              // lowest number looked at in TAKE_SCAN_LAST
    int32_t number = -1;            // out: number of the take found
    char name[64] = "";             // out: its entry name
};
// Looks through the take set `path` for entries "TAKE.%04d" (four digits),
// sorted by name with case ignored. TakeScanResult.
int takeDirScan(const char *path, TakeDirQuery *query);
// The number after the last take of `path` from `startNumber` on, or
// `startNumber` when there is none; -1 when the path does not exist.
int takeNextNumber(const char *path, int startNumber);

// ---------------------------------------------------------------------------
// The capture run: drivers started, connections turned into update lists,
// values through the lists every frame, takes recorded on request.

enum ChannelRunKind : int32_t { CHANNEL_MODE_CONTROL = 1, CHANNEL_MODE_RECORD = 3, CHANNEL_MODE_KEYFRAME = 9 };

#define CHANNEL_RUN_STATES(X) \
    X(STARTED, 1)             \
    X(PAUSED, 3)              \
    X(RUNNING, 4)             \
    X(REFINE, 5)              \
    X(REFINE_DATA, 6)         \
    X(DONE, 7)                \
    X(FINISH, 8)              \
    X(KEYFRAME, 9)            \
    X(COUNTDOWN, 13)          \
    X(RECORD_ON, 14)          \
    X(RECORD_OFF, 15)
enum ChannelRunState : int32_t {
#define CHANNEL_X_STATE(name, value) CHANNEL_STATE_##name = value,
    CHANNEL_RUN_STATES(CHANNEL_X_STATE)
#undef CHANNEL_X_STATE
};

constexpr int CHANNEL_TIME_TABLE_SIZE = 1000;  // starts and stops of runs kept in one capture

// mode and keyframe stored, the run's words reset.
void channelRunInit(ChannelSetup *setup, int mode, int keyframe);
// Lists and values of a run without drivers (the second scene). 1 on success.
int channelRunPrepare(ChannelSetup *setup);
// Prepares, makes the arena, starts the selected drivers and the monitor. 1 on success.
int channelRunStart(ChannelSetup *setup);
// One cycle: read the drivers of the list, evaluate it at `playTime`, write
// the outputs. 0 when the run can no longer go on (it is aborted).
int channelRunList(ChannelSetup *setup, Dictionary *dict, UpdateList *list);
void channelRunClose(ChannelSetup *setup);      // lets the channels chapter go
void channelRunUnprepare(ChannelSetup *setup);  // frees the run's lists and connections
void channelRunStop(ChannelSetup *setup);       // stops the drivers and closes the arena
void channelRunAbort(ChannelSetup *setup, int reportIt);

// Value of input DOF `dof` of the driver at `time`, scaled, offset and bounded; 0 otherwise.
float channelDofValue(ChannelDriver *driver, int dof, float time);
// Puts a value into output DOF `dof`, scaled, offset and bounded.
void channelDofSet(ChannelDriver *driver, int dof, float value);
// Adds the connections' present values to their recorded curves.
void channelStoreKeys(ChannelSetup *setup, UpdateList *list);
// Where channelDofValue takes a value from instead of the block.
extern int g_channelUseFcurve;  // the DOF's recorded curve
extern int g_channelUseCached;  // the slot as it stands

// Starts and stops of runs: the time table of the capture.
void channelTimesReset();
int channelTimesCount();
// Status label of the run, as the status line shows it.
std::string channelRunLabel(const ChannelSetup *setup);

// Takes: the drivers are told to record to "<takeDir>/<takeName>.CHD/TAKE.%04d".
// The start makes the take's directory and numbers it; `wallClock` is the
// viewer's clock in seconds. 1 when a take is now being recorded.
int takeRecordStart(ChannelSetup *setup, const char *sceneName, double wallClock);
void takeRecordStop(ChannelSetup *setup);
// Channel setup files and driver configuration files. Both are blank-separated
// words read by one tokenizer; a word of the table below is a token, any other
// word is passed over, and the token "#" passes over the rest of its line.

// clang-format off
// name in the code, word in the file, id
#define CHANNEL_TOKEN_ROWS \
    CHANNEL_TOKEN(COMMENT, "#", 1) \
    CHANNEL_TOKEN(CHANNELS, "CHANNELS", 2) \
    CHANNEL_TOKEN(ON, "ON", 3) \
    CHANNEL_TOKEN(OFF, "OFF", 4) \
    CHANNEL_TOKEN(DRIVER, "DRIVER", 5) \
    CHANNEL_TOKEN(DRIVER_SYNC, "DRIVER_SYNC", 6) \
    CHANNEL_TOKEN(DRIVER_DEBUG, "DRIVER_DEBUG", 7) \
    CHANNEL_TOKEN(CHANNEL, "CHANNEL", 8) \
    CHANNEL_TOKEN(ITEM, "ITEM", 9) \
    CHANNEL_TOKEN(MODEL, "MODEL", 10) \
    CHANNEL_TOKEN(WAVE, "WAVE", 11) \
    CHANNEL_TOKEN(CAMERA, "CAMERA", 12) \
    CHANNEL_TOKEN(LIGHT, "LIGHT", 13) \
    CHANNEL_TOKEN(LIGHT_POINT, "LIGHT_POINT", 14) \
    CHANNEL_TOKEN(LIGHT_SPOT, "LIGHT_SPOT", 15) \
    CHANNEL_TOKEN(LIGHT_INFINITE, "LIGHT_INFINITE", 16) \
    CHANNEL_TOKEN(LIGHT_SUN, "LIGHT_SUN", 17) \
    CHANNEL_TOKEN(MATERIAL, "MATERIAL", 18) \
    CHANNEL_TOKEN(TEXTURE_2D, "TEXTURE_2D", 19) \
    CHANNEL_TOKEN(TEXTURE_3D, "TEXTURE_3D", 20) \
    CHANNEL_TOKEN(PRODUCT, "Brackwood", 21) \
    CHANNEL_TOKEN(FRAMERATE, "FRAMERATE", 22) \
    CHANNEL_TOKEN(TIMESTAMP, "TIMESTAMP", 23) \
    CHANNEL_TOKEN(REFRESH, "REFRESH", 24) \
    CHANNEL_TOKEN(FAST_INPUT, "FAST_INPUT", 25) \
    CHANNEL_TOKEN(CALIBRATE, "CALIBRATE", 26) \
    CHANNEL_TOKEN(CHANNEL_DRIVER, "CHANNEL_DRIVER", 27) \
    CHANNEL_TOKEN(DOF_NUM, "DOF_NUM", 28) \
    CHANNEL_TOKEN(DOF_NAME, "DOF_NAME", 29) \
    CHANNEL_TOKEN(DOF_TYPE, "DOF_TYPE", 30) \
    CHANNEL_TOKEN(PORT_NUM, "PORT_NUM", 31) \
    CHANNEL_TOKEN(PORT, "PORT", 32) \
    CHANNEL_TOKEN(ERROR_NUM, "ERROR_NUM", 33) \
    CHANNEL_TOKEN(ERROR, "ERROR", 34) \
    CHANNEL_TOKEN(RUNMODE, "RUNMODE", 35) \
    CHANNEL_TOKEN(FREERUN, "FREERUN", 35) \
    CHANNEL_TOKEN(SYNCED, "SYNCED", 36) \
    CHANNEL_TOKEN(FREE, "FREE", 37) \
    CHANNEL_TOKEN(FREQUENCY, "FREQUENCY", 38) \
    CHANNEL_TOKEN(REMOTE, "REMOTE", 39) \
    CHANNEL_TOKEN(CAPTURE, "CAPTURE", 40) \
    CHANNEL_TOKEN(CONTROL, "CONTROL", 41) \
    CHANNEL_TOKEN(TAKE_REC, "TAKE_REC", 42) \
    CHANNEL_TOKEN(END, "_END", 43)
// clang-format on

enum ChannelToken : int32_t {
    CHN_TOK_NONE = 0,  // not a token: the word is passed over
#define CHANNEL_TOKEN(name, word, id) CHN_TOK_##name = id,
    CHANNEL_TOKEN_ROWS
#undef CHANNEL_TOKEN
};

int channelTokenId(const char *word);  // id of a word, CHN_TOK_NONE for any other
const char *channelTokenWord(int id);  // first word with that id, null for none

constexpr float CHANNEL_FILE_VERSION = 3.51f;  // version a setup file is written with

// Reads a channel setup file into `setup`, adding its drivers and connections
// to those it holds. With `loading`, the .drv of each driver is read again and
// checked against the file. 1 when the file read cleanly; 0 after any failure
// (reported), with what was read kept.
int channelFileRead(const char *path, ChannelSetup *setup, int loading);
// Writes the setup as a channel setup file of version 3.51. 1 on success.
int channelFileWrite(const char *path, const ChannelSetup *setup);

struct Database;
// The channel setup file of the scene in `dict`: the element of SETUP_CHANNELS
// that the scene names, else the newest version of the element named after
// the scene in SETUP_CHANNELS; "" when there is none.
std::string channelSetupFileForScene(Dictionary *dict);
// The current scene's setup: the one it has, else the one its setup file
// gives (channelSetupFileForScene), else channelSetupInit's default.
ChannelSetup *channelSetupLoadForScene();
// Writes `setup` as the channel setup of the scene `sceneName` in `db`: the
// next version of the element named after the scene in SETUP_CHANNELS, where
// channelSetupFileForScene finds it. The path written, or "" on failure.
std::string channelSetupWriteForScene(Database *db, const char *sceneName, const ChannelSetup *setup);
// Take files: a driver's data of one take, a text header, then its records
// (lines "time DOF status value", or 16-byte records in network order) and a
// line "END-OF-DATA". The reader stands in a library of its own (channel_take)
// that needs nothing but the C and C++ libraries, so that drivers and tools
// link it without the rest of the channel code.

#include <cstdio>

#include "bwdriver.h"  // BW_TAKE_FILE_TYPES: the table of file types

constexpr int TAKE_LINE_MAX = BW_TAKE_LINE_MAX;     // characters of a line, its end not counted
constexpr float TAKE_VERSION_TYPED = 1.1f;          // from this version on the header has FILE_TYPE
constexpr const char *TAKE_END_OF_DATA = "END-OF-DATA";

struct TakeFile {
    FILE *stream = nullptr;            // the open file, owned; null when none
    std::string path;                  // its name, for messages
    int32_t line = 0;                  // lines read so far, comments and empty ones counted
    float version = 0.0f;              // of the first line, "%s V%f"
    int32_t type = BW_TAKE_FILE_ASCII; // BW_TakeFileType: FILE_TYPE, ASCII before version 1.1
    std::string takeFile;              // TAKE_FILE: name of the take
    std::string sceneName;             // SCENE_NAME
    std::string driverName;            // DRIVER_NAME
    int32_t dofCount = 0;              // NUM_DOFS
    float minTime = 0.0f;              // MIN_TIME, seconds
    float maxTime = 0.0f;              // MAX_TIME, seconds
    std::string startTc;               // START_TC, time code of the first record
    std::string endTc;                 // END_TC, time code of the last record
    int32_t dofGrouped = 0;            // DOF_GROUPED: 1 "TRUE", 0 "FALSE"
    int32_t dofCounted = 0;            // DOF_COUNTED: 1 "TRUE", 0 "FALSE"
};

// Reads the header up to and with "START-OF-DATA", opening `fileName` when the
// take has no stream yet (`fileName` names the file in messages either way).
// 1, or 0 after "<file> (line N): Error -- expecting ..." on standard error.
int takeFileReadHeader(TakeFile *take, const char *fileName);
// The next record: BINARY records for a BINARY file, lines for every other type.
// 1, or 0 at "END-OF-DATA", at the end of the file or at anything that is not a
// whole record; the stream then stands at the end of the last record read.
int takeFileReadRecord(TakeFile *take, void *reserved, int32_t *dof, int32_t *status, float *value,
                       float *time);
// Reads a line from where the records stopped: 1 when it is "END-OF-DATA".
int takeFileIsComplete(FILE *stream);
void takeFileClose(TakeFile *take);    // closes the stream; the fields stay
const char *takeFileTypeName(int type);  // FILE_TYPE word of a type, null out of the table

// Where a take lies: "<dir>/<name>.CHD/TAKE.%04d", and in it the data of the
// driver of index `driver`: "<driverName>.%02d.chd".
std::string takeDirPath(const char *takeDir, const char *takeName, int takeNumber);
std::string takeDataPath(const char *takeDir, const char *takeName, int takeNumber,
                         const char *driverName, int driver);

// Loading a take into the DOFs' curves (the editor's use; tools may call it).
struct TakeLoadRange {
    float start = 0.0f;      // in: first second of the setup's range
    float end = -1.0f;       // in: its last second; below `start`: the take's own range
    float takeStart = 0.0f;  // out: smallest MIN_TIME of the files read
    float takeEnd = 0.0f;    // out: largest MAX_TIME of the files read
    int32_t files = 0;       // out: driver files read
    int32_t points = 0;      // out: points put into curves
    int32_t clipped = 0;     // out: records outside the range, left out
};
// Reads take `takeNumber` of the setup's take set: every DOF of each driver
// whose file is read gets its curve (made when it has none) emptied and one
// linear key per record inside the range. 1 when at least one file was read.
int takeLoad(ChannelSetup *setup, int takeNumber, TakeLoadRange *range);
// Frees the curves of the setup's DOFs and sets them to null.
void takeCurvesFree(ChannelSetup *setup);
