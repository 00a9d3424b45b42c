// The status table, the reporter and the verification word of the TOL layer.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "bw_env.h"
#include "tol_status.h"

char TOL_SCRATCH[1024];

namespace {

#define TOL_STATUS_ROW(code, cls, name, fmt) {code, TOL_CLASS_##cls, fmt},
#include "tol_status_table.inc"
constexpr TOL_StatusRow statusTable[TOL_STATUS_COUNT] = {TOL_STATUS_ROWS};
#undef TOL_STATUS_ROW

constexpr bool rowsAreIndexed() {
    for (int i = 0; i < TOL_STATUS_COUNT; ++i)
        if (statusTable[i].code != static_cast<uint32_t>(i)) return false;
    return true;
}
static_assert(rowsAreIndexed(), "every status row must stand at the index of its code");

const char *const classWords[] = {"STATUS", "MESSAGE", "WARNING", "ERROR", "MODE"};

uint32_t minimumClass = TOL_CLASS_STATUS;
uint32_t reportRoute = TOL_ROUTE_STDOUT;
TOL_ReportCallback reportCallback = nullptr;
uint32_t verifyWord = 0;

bool inTable(TOL_Status code) { return code >= 0 && code < TOL_STATUS_COUNT; }

}  // namespace

const char *tol_statusFormat(TOL_Status code) {
    return inTable(code) ? statusTable[code].format : nullptr;
}

uint32_t tol_statusClass(TOL_Status code) {
    return inTable(code) ? statusTable[code].messageClass : TOL_CLASS_ERROR;
}

const char *tol_classWord(uint32_t messageClass) {
    return messageClass < 5 ? classWords[messageClass] : "ERROR";
}

uint32_t tol_setMinimumClass(uint32_t messageClass) {
    uint32_t old = minimumClass;
    minimumClass = messageClass;
    return old;
}

uint32_t tol_getMinimumClass() { return minimumClass; }

uint32_t tol_setReportRoute(uint32_t route, TOL_ReportCallback callback) {
    uint32_t old = reportRoute;
    reportRoute = route;
    reportCallback = callback;
    return old;
}

TOL_Status tol_report(TOL_Status code, ...) {
    uint32_t cls = tol_statusClass(code);
    if (cls < minimumClass) return code;

    char text[2048];
    if (!inTable(code)) {
        snprintf(text, sizeof text, "Unknown status code %d", code);
    } else if (code == TOL_ST_SCRATCH_TEXT) {
        snprintf(text, sizeof text, "%s", TOL_SCRATCH);
    } else {
        va_list args;
        va_start(args, code);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        vsnprintf(text, sizeof text, statusTable[code].format, args);
#pragma GCC diagnostic pop
        va_end(args);
    }

    if (reportRoute == TOL_ROUTE_CALLBACK) {
        if (reportCallback) reportCallback(code, cls, text);
    } else {
        FILE *out = reportRoute == TOL_ROUTE_STDERR ? stderr : stdout;
        fprintf(out, "BW_%s: %s\n", tol_classWord(cls), text);
    }
    return code;
}

int tol_verifyEnabled(uint32_t bit) { return (verifyWord & bit) != 0; }
void tol_verifySet(uint32_t bits) { verifyWord |= bits; }
void tol_verifyClear(uint32_t bits) { verifyWord &= ~bits; }
uint32_t tol_verifyWord() { return verifyWord; }

void tol_verifyInit() {
    const char *value = envGet(ENV_TOL_VERIFY_OPTIONS);
    if (!value) return;
    int bits = 0;
    if (sscanf(value, "%d", &bits) != 1) {
        tol_report(TOL_ST_ERROR_TEXT, "Bad value for verification environment variable");
        return;
    }
    verifyWord |= static_cast<uint32_t>(bits);
}

int noInterface = 0;

void msgShow(const char *text, uint32_t messageClass) {
    (void)messageClass;  // without an interface every class goes to the same stream
    fprintf(stderr, "%s\n", text);
}

void msgStatus(const char *text) { msgShow(text, TOL_CLASS_STATUS); }
void msgMessage(const char *text) { msgShow(text, TOL_CLASS_MESSAGE); }
void msgError(const char *text) { msgShow(text, TOL_CLASS_ERROR); }

void msgShowf(uint32_t messageClass, const char *format, ...) {
    char text[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    msgShow(text, messageClass);
}
