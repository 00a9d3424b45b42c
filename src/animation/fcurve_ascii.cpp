// Text forms of a function curve: the keyword form that setup and effect
// files embed, read with the shared token reader, and the raw .fraw files of
// the curve tools.
//
// Keyword form: keyword and value pairs in any order, `KEYS n` last, then n
// keys; a key is keyword and value pairs in any order ending with its
// `KEYTYPE`. Both ends are fixed by the words read, so a curve embedded in a
// larger file leaves the stream right behind itself.
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "tol.h"
#include "animation.h"
#include "database.h"

namespace {

const char *const INTERP_WORDS[] = {"CONSTANT", "LINEAR", "SPLINE", "SLOPE0", "PLATEAU"};
const char *const KEYTYPE_WORDS[] = {"FREEFORM", "KEYFRAME", "KEYPATH", "RAWDATA"};

template <size_t N>
int wordIndex(const char *const (&words)[N], const char *word) {
    for (size_t i = 0; i < N; ++i)
        if (strcmp(words[i], word) == 0) return static_cast<int>(i);
    return -1;
}

// The next token into g_token; false at the end of the stream or on a bad byte.
bool nextToken(FILE *stream) {
    readToken(stream);
    return g_token[0] != '\0' && g_tokenEnd != TOKEN_END_BAD;
}

bool numberToken(FILE *stream, double *value) {
    if (!nextToken(stream)) return false;
    char *end = nullptr;
    double v = strtod(g_token, &end);
    if (end == g_token || *end != '\0' || !std::isfinite(v)) return false;
    *value = v;
    return true;
}

bool floatToken(FILE *stream, const char *reader, const char *keyword, float *out) {
    double v;
    if (!numberToken(stream, &v) || v > FLT_MAX || v < -FLT_MAX) {
        msgShowf(TOL_CLASS_ERROR, "%s: error, bad value '%s' of %s.", reader, g_token, keyword);
        return false;
    }
    *out = static_cast<float>(v);
    return true;
}

bool intToken(FILE *stream, const char *reader, const char *keyword, double lo, double hi, long *out) {
    double v;
    if (!numberToken(stream, &v) || v != std::trunc(v) || v < lo || v > hi) {
        msgShowf(TOL_CLASS_ERROR, "%s: error, bad value '%s' of %s.", reader, g_token, keyword);
        return false;
    }
    *out = static_cast<long>(v);
    return true;
}

// An interpolation word.
bool interpToken(FILE *stream, int16_t *out) {
    if (!nextToken(stream)) {
        msgShowf(TOL_CLASS_ERROR, "FcurveAsciiRead: error, unknown interp bw_chrToken '%s'.", g_token);
        return false;
    }
    int i = wordIndex(INTERP_WORDS, g_token);
    if (i < 0) {
        msgShowf(TOL_CLASS_ERROR, "FcurveAsciiRead: error, unknown interp bw_chrToken '%s'.", g_token);
        return false;
    }
    *out = static_cast<int16_t>(i);
    return true;
}

// One key, up to and with its KEYTYPE.
bool readKey(FILE *stream, FcurveKey &k) {
    constexpr const char *R = "FcvkeyAsciiRead";
    for (;;) {
        if (!nextToken(stream)) {
            msgShowf(TOL_CLASS_ERROR, "%s: error, the key ends before its KEYTYPE.", R);
            return false;
        }
        char word[BW_TOKEN_MAX];
        snprintf(word, sizeof word, "%s", g_token);
        long n;
        if (strcmp(word, "TIME") == 0) {
            if (!floatToken(stream, R, word, &k.time)) return false;
        } else if (strcmp(word, "VALUE") == 0) {
            if (!floatToken(stream, R, word, &k.value)) return false;
        } else if (strcmp(word, "LEFT_SLOPE") == 0) {
            if (!floatToken(stream, R, word, &k.leftSlope)) return false;
        } else if (strcmp(word, "RIGHT_SLOPE") == 0) {
            if (!floatToken(stream, R, word, &k.rightSlope)) return false;
        } else if (strcmp(word, "INTERPOLATION") == 0) {
            if (!interpToken(stream, &k.interpolation)) return false;
        } else if (strcmp(word, "FLAG") == 0) {
            if (!intToken(stream, R, word, 0, 65535, &n)) return false;
            k.flag = static_cast<uint16_t>(n);
        } else if (strcmp(word, "SPLINE_INDEX") == 0) {
            if (!intToken(stream, R, word, -1, 65535, &n)) return false;
            k.splineIndex = static_cast<uint16_t>(n);
        } else if (strcmp(word, "KEYTYPE") == 0) {
            int type = nextToken(stream) ? wordIndex(KEYTYPE_WORDS, g_token) : -1;
            if (type < 0) {
                msgShowf(TOL_CLASS_ERROR, "FcvkeyAsciiRead: error, unknown keytype bw_chrToken '%s'.", g_token);
                return false;
            }
            k.keyType = static_cast<uint16_t>(type);
            return true;
        } else {
            msgShowf(TOL_CLASS_ERROR, "%s: error, unknown word '%s'.", R, word);
            return false;
        }
    }
}

bool readCurve(FILE *stream, Fcurve *c) {
    constexpr const char *R = "FcurveAsciiRead";
    for (;;) {
        if (!nextToken(stream)) {
            msgShowf(TOL_CLASS_ERROR, "%s: error, the curve ends before its KEYS.", R);
            return false;
        }
        char word[BW_TOKEN_MAX];
        snprintf(word, sizeof word, "%s", g_token);
        long n;
        if (strcmp(word, "CURVE_TYPE") == 0) {
            if (!intToken(stream, R, word, INT_MIN, INT_MAX, &n)) return false;
            c->type = static_cast<int32_t>(n);
        } else if (strcmp(word, "PRE_EXTRAPOLATION") == 0 || strcmp(word, "POST_EXTRAPOLATION") == 0) {
            if (!intToken(stream, R, word, 0, 2, &n)) return false;
            (word[1] == 'R' ? c->preMode : c->postMode) = static_cast<int16_t>(n);
        } else if (strcmp(word, "FLAGS") == 0) {
            if (!intToken(stream, R, word, 0, 65535, &n)) return false;
            c->flags = static_cast<uint16_t>(n);
        } else if (strcmp(word, "INTERPOLATION") == 0) {
            int16_t interp;
            if (!interpToken(stream, &interp)) return false;
            c->interpolation = static_cast<uint16_t>(interp);
        } else if (strcmp(word, "KEYS") == 0) {
            if (!intToken(stream, R, word, 0, INT_MAX, &n)) return false;
            // Keys are added one by one, so a lying count costs no memory.
            for (long i = 0; i < n; ++i) {
                FcurveKey *k = fcurveKeyNew();
                if (!k) {
                    msgShowf(TOL_CLASS_ERROR, "%s: error, out of memory for key %ld.", R, i + 1);
                    return false;
                }
                k->interpolation = static_cast<int16_t>(c->interpolation);
                if (!readKey(stream, *k)) {
                    free(k);
                    return false;
                }
                if (!fcurveKeysAppend(c, k)) return false;
            }
            return true;
        } else {
            msgShowf(TOL_CLASS_ERROR, "%s: error, unknown word '%s'.", R, word);
            return false;
        }
    }
}

}  // namespace

Fcurve *fcurveAsciiRead(FILE *stream) {
    Fcurve *c = fcurveCreate(0, 0);
    if (!c) return nullptr;
    if (!readCurve(stream, c)) {
        fcurveFree(c);
        return nullptr;
    }
    return c;
}

int fcurveAsciiWrite(FILE *stream, const Fcurve *c) {
    if (!stream || !c) return 0;
    auto interpWord = [](int i) { return i >= 0 && i < 5 ? INTERP_WORDS[i] : INTERP_WORDS[FCV_SPLINE]; };
    fprintf(stream, "CURVE_TYPE %d\nPRE_EXTRAPOLATION %d\nPOST_EXTRAPOLATION %d\nFLAGS %u\nINTERPOLATION %s\n",
            c->type, c->preMode, c->postMode, c->flags, interpWord(c->interpolation));
    int n = c->keys ? c->keyCount : 0;
    fprintf(stream, "KEYS %d\n", n);
    for (int i = 0; i < n; ++i) {
        const FcurveKey &k = c->keys[i];
        // %.9g gives every float back exactly.
        fprintf(stream, "  TIME %.9g VALUE %.9g LEFT_SLOPE %.9g RIGHT_SLOPE %.9g INTERPOLATION %s FLAG %u",
                k.time, k.value, k.leftSlope, k.rightSlope, interpWord(k.interpolation), k.flag);
        int type = k.keyType & FCVKEY_TYPE_MASK;
        if (type == FCVKEY_KEYPATH) fprintf(stream, " SPLINE_INDEX %u", k.splineIndex);
        fprintf(stream, " KEYTYPE %s\n", KEYTYPE_WORDS[type < 4 ? type : 0]);
    }
    return !ferror(stream);
}

// ---------------------------------------------------------------------------
// Raw curve files

namespace {

// The curve of a raw file; null after a message when it cannot be read.
Fcurve *readRaw(FILE *f, int64_t fileSize) {
    int count = 0;
    unsigned short interp = 0;
    if (fscanf(f, "%d %hud", &count, &interp) < 2 || count < 0 || interp > FCV_PLATEAU) return nullptr;
    Fcurve *c = fcurveCreate(0, 0);
    if (!c) {
        msgShowf(TOL_CLASS_ERROR, "Cannot allocate raw fcurve");
        return nullptr;
    }
    c->interpolation = interp;
    // Every key line holds at least "0 0 0 0": a count the file cannot
    // hold is refused before anything is allocated.
    if (count > fileSize / 8 || !fcurveKeysAlloc(c, count)) {
        msgShowf(TOL_CLASS_ERROR, "Cannot allocate raw fcurve keys");
        fcurveFree(c);
        return nullptr;
    }
    for (int i = 0; i < count; ++i) {
        FcurveKey &k = c->keys[i];
        if (fscanf(f, "%f %f %f %f", &k.time, &k.value, &k.leftSlope, &k.rightSlope) != 4) {
            fcurveFree(c);
            return nullptr;
        }
        k.interpolation = static_cast<int16_t>(interp);
        if (i == 0 || k.value < c->minValue) c->minValue = k.value;
        if (i == 0 || k.value > c->maxValue) c->maxValue = k.value;
    }
    return c;
}

}  // namespace

Fcurve *fcurveRawRead(const char *path) {
    FILE *f = path ? fopen(path, "r") : nullptr;
    struct stat st;
    Fcurve *c = f && fstat(fileno(f), &st) == 0 ? readRaw(f, st.st_size) : nullptr;
    if (f) fclose(f);
    if (!c) msgShowf(TOL_CLASS_ERROR, "Unable to read raw fcurve %s", path ? path : "");
    return c;
}

int fcurveRawWrite(const char *path, const Fcurve *curve) {
    FILE *f = path && curve ? fopen(path, "w") : nullptr;
    bool ok = f != nullptr;
    if (f) {
        int n = curve->keys ? curve->keyCount : 0;
        fprintf(f, "%d %hu\n", n, static_cast<unsigned short>(curve->interpolation));
        for (int i = 0; i < n; ++i) {
            const FcurveKey &k = curve->keys[i];
            fprintf(f, "%f %f %f %f\n", k.time, k.value, k.leftSlope, k.rightSlope);
        }
        ok = !ferror(f);
        ok = fclose(f) == 0 && ok;
    }
    if (!ok) msgShowf(TOL_CLASS_ERROR, "Unable to write raw fcurve file %s", path ? path : "");
    return ok;
}
