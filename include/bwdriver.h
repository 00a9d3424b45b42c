/* Driver kit: what a channel driver process links to talk to the viewer.
 *
 * A driver is started by the viewer with the arena's path in BW_CHNL_ARENA_NAME.
 * The kit maps the arena, answers the handshake, takes its turns with the
 * viewer, writes the driver's input channels with their time, reads the output
 * channels the viewer has set, follows the viewer's commands and writes the take
 * file on record on/off. A driver fills a BW_DriverDesc and calls driverMain.
 *
 * The header is plain C so that drivers may be written in C or C++. */
#ifndef BW_DRIVER_H
#define BW_DRIVER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Byte offsets of the shared block at the start of the arena (little-endian words). */
#define BW_COMM_MAGIC_VALUE 0x3510cafeu
#define BW_COMM_VERSION_VALUE 3u
#define BW_COMM_SIZE 28676            /* bytes of the shared block */
#define BW_ARENA_SIZE 0x100000        /* bytes of the arena file */
#define BW_COMM_MAX_CHANNELS 1000     /* slots in the block */
#define BW_COMM_MAX_DRIVERS 32        /* driver rows */
#define BW_COMM_SLOT_SIZE 20          /* bytes of one slot record */
/* The semaphore table: right after the block, aligned to 64 bytes, one sem_t an
 * entry; the handle words hold an index into it. Two entries per driver row. */
#define BW_COMM_SEM_TABLE_OFFSET 28736
#define BW_COMM_SEM_COUNT (2 * BW_COMM_MAX_DRIVERS)

/* Values of the `command` word: the viewer's run state. */
#define BW_DRIVER_COMMANDS(X) \
  X(BW_CMD_NONE, 0)           \
  X(BW_CMD_STARTED, 1)        \
  X(BW_CMD_PAUSE, 3)          \
  X(BW_CMD_RUN, 4)            \
  X(BW_CMD_REFINE, 5)         \
  X(BW_CMD_REFINE_DATA, 6)    \
  X(BW_CMD_DONE, 7)           \
  X(BW_CMD_STOP, 8)           \
  X(BW_CMD_KEYFRAME, 9)       \
  X(BW_CMD_COUNTDOWN, 13)     \
  X(BW_CMD_RECORD_ON, 14)     \
  X(BW_CMD_RECORD_OFF, 15)
#define BW_X_ENUM(name, value) name = value,
typedef enum { BW_DRIVER_COMMANDS(BW_X_ENUM) } BW_DriverCommand;
#undef BW_X_ENUM

/* The common table of driver errors, by number from 0; the viewer prints the text. */
#define BW_DRIVER_COMMON_ERRORS(X)                                                                   \
  X(BW_DERR_MEMORY, "Unable to allocate enough memory")                                            \
  X(BW_DERR_SET_DOF, "driverSetDofValue() - Invalid degree of freedom index")                      \
  X(BW_DERR_COMM_INIT, "Unable to initialise channel communications")                              \
  X(BW_DERR_COMM_CLOSE, "Unable to close down channel communications")                             \
  X(BW_DERR_SEM_ACQUIRE, "Channel communication problem - Unable to acquire write semaphore")      \
  X(BW_DERR_SEM_RELEASE, "Channel communication problem - Unable to release read semaphore")       \
  X(BW_DERR_SEND, "Channel communication problem - Unable to send message to brak")                \
  X(BW_DERR_PORT_INVALID, "Invalid port")                                                          \
  X(BW_DERR_PORT_PERMISSION, "No read or write permissions for port")                              \
  X(BW_DERR_PORT_OPEN, "Cannot open port")                                                         \
  X(BW_DERR_PORT_INIT, "Cannot initialise port")                                                   \
  X(BW_DERR_PORT_READ, "Cannot read port")                                                         \
  X(BW_DERR_PORT_WRITE, "Cannot write port")                                                       \
  X(BW_DERR_BAUD_SET, "Cannot set port baud rate")                                                 \
  X(BW_DERR_BAUD_INVALID, "Invalid port baud rate - using 9600")                                   \
  X(BW_DERR_DRV_PERMISSION, "No read permission for .drv configuration file")                      \
  X(BW_DERR_DRV_OPEN, "Cannot open .drv configuration file")                                       \
  X(BW_DERR_DRV_ID, "Invalid file id for .drv configuration file")                                 \
  X(BW_DERR_DRV_VERSION, "Invalid version number for .drv configuration file")                     \
  X(BW_DERR_AUDIO_OPEN, "Cannot open audio port")                                                  \
  X(BW_DERR_GET_TYPE, "driverGetDofType() - Invalid degree of freedom index")                      \
  X(BW_DERR_GET_ACTIVE, "driverGetDofActive() - Invalid degree of freedom index")                  \
  X(BW_DERR_GET_INFO, "driverGetDofInfo() - invalid degree of freedom index")
#define BW_X_ERR_ENUM(name, text) name,
typedef enum { BW_DRIVER_COMMON_ERRORS(BW_X_ERR_ENUM) BW_DERR_COUNT } BW_DriverCommonError;
#undef BW_X_ERR_ENUM

/* Bits of the `errorFlags` word. */
#define BW_DRVERR_SET 1u    /* an error is there (always set with the others) */
#define BW_DRVERR_FATAL 2u  /* the run ends */
#define BW_DRVERR_COMMON 4u /* the number indexes the common table */

/* Direction of a DOF, as in the .drv file. */
#define BW_DOF_NONE 0
#define BW_DOF_INPUT 1  /* written by the driver */
#define BW_DOF_OUTPUT 2 /* written by the viewer */

/* Turn modes, the `syncMode` word with `frequency`. */
typedef enum {
  BW_SYNC_SYNCED = 0,    /* one turn each viewer cycle, through the semaphore pair */
  BW_SYNC_FREE = 1,      /* no turn; the kit paces at BW_DRIVER_FREE_RATE */
  BW_SYNC_FREQUENCY = 2  /* no turn; `frequency` samples a second */
} BW_SyncMode;
#define BW_DRIVER_FREE_RATE 1000 /* samples a second of a free running driver */

/* Types of a take file, the FILE_TYPE word of its header, with their indices. The
 * kit writes ASCII or BINARY; the two COMPRESS types are read as ASCII. */
#define BW_TAKE_FILE_TYPES(X)        \
  X(BW_TAKE_FILE_ASCII, 0, "ASCII")   \
  X(BW_TAKE_FILE_BINARY, 1, "BINARY") \
  X(BW_TAKE_FILE_COMPRESS1, 2, "COMPRESS1") \
  X(BW_TAKE_FILE_COMPRESS2, 3, "COMPRESS2")
#define BW_X_TAKE_ENUM(name, value, word) name = value,
typedef enum { BW_TAKE_FILE_TYPES(BW_X_TAKE_ENUM) } BW_TakeFileType;
#undef BW_X_TAKE_ENUM
#define BW_TAKE_BINARY_RECORD_SIZE 16 /* bytes of one BINARY record */
#define BW_TAKE_LINE_MAX 256          /* characters of a line of a take file, its end not counted */

typedef struct BW_Driver BW_Driver;

/* What the kit learnt from the driver's command line. */
typedef struct BW_DriverArgs {
  int run;                 /* "-BW_RUN" was given */
  const char *recordFile;  /* "-record" file, or null */
  const char *mode;        /* "-mode" word (BROAD_LOCAL, LOCAL_SERVER, LISTEN), or null */
  int restCount;           /* the words the kit did not take, in order: the driver's own */
  char **rest;             /* points into argv */
  int modeCount;           /* words after the "-mode" word: host, port... */
  char **modeWords;        /* points into argv */
  int takeType;            /* "-take_type ASCII|BINARY": BW_TAKE_FILE_ASCII unless given */
} BW_DriverArgs;

/* The driver: its name, its DOFs and its callbacks. */
typedef struct BW_DriverDesc {
  const char *name;        /* driver name (DRIVER_NAME in the take file) */
  const char *versionText; /* shown by the viewer when versions differ */
  int dofCount;            /* DOFs of the driver */
  const int *directions;   /* per DOF: BW_DOF_INPUT, BW_DOF_OUTPUT or BW_DOF_NONE */
  /* Called once a sample, in the driver's turn, unless paused: set the input DOFs
   * with driverSetDofValue for `time` (seconds of the run). Return 0 to stop. */
  int (*sample)(BW_Driver *drv, double time, void *user);
  void *user;              /* passed to `sample` */
} BW_DriverDesc;

/* Takes "-BW_RUN", "-record file", "-take_type word", "-mode ..." out of argv; other words go to `rest`.
 * The driver's own words are moved to the front of argv, after argv[0], so parse
 * once and pass the result to driverRun.
 * Returns 1, or 0 with a message on standard error when a word lacks its argument. */
int driverParseArgs(int argc, char **argv, BW_DriverArgs *args);

/* Maps the arena named by BW_CHNL_ARENA_NAME and answers the handshake. Null, with
 * a message on standard error naming the arena, when that fails. */
BW_Driver *driverInit(const BW_DriverDesc *desc, const BW_DriverArgs *args);
/* Maps the given arena file instead of the one in the environment. */
BW_Driver *driverInitArena(const BW_DriverDesc *desc, const BW_DriverArgs *args, const char *path);

/* One sample: waits for the turn (synced) or the next tick (free, frequency),
 * follows a pending command, calls `sample`, writes the inputs, reads the
 * outputs, gives the turn back. Returns 1 to go on, 0 when the run is over. */
int driverTurn(BW_Driver *drv);

/* The driver's loop: init, turn until stopped (command stop, SIGTERM, the viewer
 * gone, abort), close. Returns the process exit code: 0, or 1 when it cannot attach. */
int driverRun(const BW_DriverDesc *desc, const BW_DriverArgs *args);
/* driverParseArgs then driverRun; 2 on a bad command line. */
int driverMain(int argc, char **argv, const BW_DriverDesc *desc);

/* Writes the take if one is open and unmaps the arena. */
void driverClose(BW_Driver *drv);

/* Input DOF value of this sample. Reports BW_DERR_SET_DOF for a bad index; 0 then. */
int driverSetDofValue(BW_Driver *drv, int dof, float value);
/* Last value the viewer wrote to an output DOF; 1 if it came in this turn, else 0. */
int driverGetDofValue(BW_Driver *drv, int dof, float *value);
/* Direction of a DOF, or -1 (and BW_DERR_GET_TYPE) for a bad index. */
int driverGetDofType(BW_Driver *drv, int dof);
/* The slot's `active` word, or -1 (and BW_DERR_GET_ACTIVE) for a bad index. */
int driverGetDofActive(BW_Driver *drv, int dof);
/* Slot record of a DOF as it stands in the arena; 0 (and BW_DERR_GET_INFO) for a bad index. */
int driverGetDofInfo(BW_Driver *drv, int dof, float *value, float *time, uint32_t *written);

/* Reports an error of the driver's own .drv ERROR list. */
void driverError(BW_Driver *drv, int number, int fatal);
/* Reports an error of the common table. */
void driverCommonError(BW_Driver *drv, BW_DriverCommonError number, int fatal);
/* Text of a common error, or null out of range. */
const char *driverCommonErrorText(int number);

/* What the kit read at the handshake and follows during the run. */
int driverIndex(const BW_Driver *drv);        /* the viewer's index of this driver */
int driverChannelCount(const BW_Driver *drv); /* slots given, at most dofCount are used */
BW_SyncMode driverSyncMode(const BW_Driver *drv);
uint32_t driverCommand(const BW_Driver *drv); /* last command followed */
int driverRecording(const BW_Driver *drv);    /* a take is being recorded */

/* Asks the loop to end at the next turn; safe from a signal handler. */
void driverRequestStop(void);

#ifdef __cplusplus
}
#endif

#endif
