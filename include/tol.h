// The TOL layer: the thin call layer through which the viewer reaches the core.
// Status codes, the reporter, run-time verification, handles and the start of
// the layer.
#pragma once

#include <cstdint>

using TOL_Status = int32_t;  // 0 for no error; an index into the status table

constexpr int TOL_STATUS_COUNT = 150;  // rows of the status table

// Message classes; also the index of the class word in the reporter's prefix.
enum TOL_MessageClass : uint32_t {
    TOL_CLASS_STATUS = 0,
    TOL_CLASS_MESSAGE = 1,
    TOL_CLASS_WARNING = 2,
    TOL_CLASS_ERROR = 3,
    TOL_CLASS_MODE = 4,
};

// Where reports go.
enum TOL_ReportRoute : uint32_t {
    TOL_ROUTE_STDOUT = 0,
    TOL_ROUTE_STDERR = 1,
    TOL_ROUTE_CALLBACK = 2,
};

using TOL_ReportCallback = void (*)(TOL_Status code, uint32_t messageClass, const char *text);

// One row of the status table.
struct TOL_StatusRow {
    uint32_t code;          // equal to the row's index
    uint32_t messageClass;  // TOL_MessageClass
    const char *format;     // printf format; for code 124 the scratch buffer
};

extern char TOL_SCRATCH[1024];  // scratch buffer that code 124 prints

// Reporter: prints "BW_<CLASS>: " and the formatted row, returns `code`.
TOL_Status tol_report(TOL_Status code, ...);
const char *tol_statusFormat(TOL_Status code);    // null for a code outside the table
uint32_t tol_statusClass(TOL_Status code);        // TOL_CLASS_ERROR outside the table
const char *tol_classWord(uint32_t messageClass);  // "STATUS" ... "MODE"
uint32_t tol_setMinimumClass(uint32_t messageClass);  // returns the old value
uint32_t tol_getMinimumClass();
uint32_t tol_setReportRoute(uint32_t route, TOL_ReportCallback callback);  // returns the old route

// Run-time verification word.
enum TOL_VerifyBit : uint32_t {
    TOL_VERIFY_MODEL = 1,       // tol_modelVerify: element of a model chapter
    TOL_VERIFY_ELEMENT = 32,    // tol_elementVerify: element, scene and dictionary agree
    TOL_VERIFY_DATABASE = 128,  // database handle range check
    TOL_VERIFY_CAMERA = 256,    // camera check: element of the camera chapter
};
int tol_verifyEnabled(uint32_t bit);
void tol_verifySet(uint32_t bits);
void tol_verifyClear(uint32_t bits);
uint32_t tol_verifyWord();
void tol_verifyInit();  // reads TOL_VERIFY_OPTIONS

// Messages of the core that are not status codes. With `noInterface` set (always
// in the viewer) each goes to standard error with a newline, whatever its class.
extern int noInterface;  // the core runs without a user interface
void msgShow(const char *text, uint32_t messageClass);
void msgStatus(const char *text);
void msgMessage(const char *text);
void msgError(const char *text);

// Handles that cross the layer.
using TOL_Database = int32_t;  // one-based index into the table of databases; 0 for none

struct TOL_Scene {
    uint32_t dict;          // index of the scene's Dictionary; -1 before creation
    uint32_t selectList;    // index of the scene's select list
    uint32_t tagList;       // index of the second select list
    uint32_t chapters[33];  // chapter ids of the scene's dictionary
};

struct TOL_Elem {
    uint32_t dict;     // dictionary of the element
    uint32_t chapter;  // chapter id
    uint32_t index;    // place in the chapter's list
    int32_t group;     // -1 for none
    uint32_t reserved; // always 0
};

struct TOL_Vector {
    float x, y, z;
};

constexpr const char *TOL_CORE_VERSION = "3Dv4.00.1";  // version of the core
constexpr const char *TOL_SDK_VERSION = "SDKv4.00.1";  // newest SDK the layer serves

// Compares the numbers in two version texts in turn: 1, 0 or -1. Null is lower
// than any text; "3Dv4.00.1" and "4.0.1" are equal.
int versionCompare(const char *a, const char *b);
// Checks the core's and the caller's versions and reads TOL_VERIFY_OPTIONS once.
TOL_Status TOL_sceneInitInternal(const char *sdkVersion);

// Start of the layer: finds Relations.rsrc (working directory, then
// `resourcePath`) and, with `readDatabases` set, reads the database directory.
TOL_Status TOL_Init(const char *resourcePath, int readDatabases, const char *sdkVersion);
