// The status codes of the TOL layer and their reporter: the numbered table of
// codes with their message classes, the reporter that prints a row, the
// run-time verification word, and the core's messages that are not codes.
// Everything from the database up reports through this header, so it stands
// on nothing of the core.
#pragma once

#include <cstdint>

#include "tol_codes.h"

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
// msgShow of a printf-formatted text (without its newline).
void msgShowf(uint32_t messageClass, const char *format, ...) __attribute__((format(printf, 2, 3)));
