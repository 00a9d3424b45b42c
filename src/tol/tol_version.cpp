// Version texts of the core and the layer, and their comparison.
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "tol.h"
#include "tol_internal.h"

namespace {

// Skips to the next digit; reads its decimal number, or -1 at the end of the text.
long nextNumber(const char *&p) {
    while (*p && !isdigit(static_cast<unsigned char>(*p))) ++p;
    if (!*p) return -1;
    return strtol(p, nullptr, 10);
}

void skipDigits(const char *&p) {
    while (isdigit(static_cast<unsigned char>(*p))) ++p;
}

}  // namespace

int versionCompare(const char *a, const char *b) {
    if (!a || !b) return a ? 1 : b ? -1 : 0;
    for (;;) {
        long na = nextNumber(a), nb = nextNumber(b);
        if (na == -1 || nb == -1 || na != nb) return na > nb ? 1 : na < nb ? -1 : 0;
        skipDigits(a);
        skipDigits(b);
    }
}

TOL_Status TOL_sceneInitInternal(const char *sdkVersion) {
    // A core whose text does not even begin like ours counts as older.
    int core = strncmp(TOL_CORE_VERSION, "3Dv", 3) != 0
                   ? -1
                   : versionCompare(TOL_CORE_VERSION, TOL_CORE_VERSION);
    if (core < 0) return tol_report(TOL_ST_CORE_TOO_OLD, "TOL_sceneInitInternal:");
    if (core > 0) {
        tol_report(TOL_ST_ENABLER_TOO_OLD, "TOL_sceneInitInternal:");
        if (!noInterface) msgError("TOL_sceneInitInternal: TOLMIERE enabler version too old for BRACKWOOD|3D");
        return TOL_ST_ENABLER_TOO_OLD;
    }
    if (versionCompare(sdkVersion, TOL_SDK_VERSION) > 0)
        return tol_report(TOL_ST_ENABLER_TOO_OLD_FOR_EFFECT, "TOL_sceneInitInternal:");

    if (!tol_sidGet()) {
        TOL_Status status = tol_sidCreate();
        if (status) return status;
        tol_verifyInit();
    }
    return 0;
}
