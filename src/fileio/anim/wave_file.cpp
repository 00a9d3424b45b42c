// Wave files (.wav): ascii, the magic SWAV and a version token, then keyword
// and value groups read with the shared token reader. NAME takes one word,
// SRT nine numbers (the transform object's scale, rotation in degrees and
// translation), and each parameter of the wave table one number. Any other
// word is an unknown keyword: it is passed over with the tokens behind it up
// to the next word of the table, so a later writer may add groups.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "animation.h"
#include "database.h"
#include "fileio.h"
#include "model.h"
#include "tol_status.h"

const WaveParamInfo g_waveParams[WAVE_PARAM_COUNT] = {
#define BW_WAVE_PARAM_ROW(name, type, keyword, fallback, kind) {type, keyword, fallback, kind},
    BW_WAVE_PARAMS(BW_WAVE_PARAM_ROW)
#undef BW_WAVE_PARAM_ROW
};

int waveParamIndex(int32_t type) {
    const int32_t index = type - WAVE_CURVE_FIRST;
    return index >= 0 && index < WAVE_PARAM_COUNT ? index : -1;
}

float waveParamTake(int param, double value) {
    if (param < 0 || param >= WAVE_PARAM_COUNT || !std::isfinite(value)) return 0.0f;
    switch (g_waveParams[param].kind) {
        case WAVE_KIND_SWITCH: return value > 0.0 ? 1.0f : 0.0f;
        // Rounded as the step curves round: add a half, cut toward zero.
        case WAVE_KIND_COUNT: return value > 0.0 ? static_cast<float>(std::trunc(value + 0.5)) : 0.0f;
        case WAVE_KIND_SIZE: return value > 0.0 ? static_cast<float>(value) : 0.0f;
        case WAVE_KIND_REAL: break;
    }
    return static_cast<float>(value);
}

Wave *waveNew(const char *name) {
    auto *wave = static_cast<Wave *>(calloc(1, sizeof(Wave)));
    if (!wave) return nullptr;
    wave->transfo = modelNew(name ? name : "wave", MODEL_TYPE_NULL, nullptr);
    if (!wave->transfo || (name && !(wave->name = strdup(name)))) {
        waveFree(wave);
        return nullptr;
    }
    for (int i = 0; i < WAVE_PARAM_COUNT; ++i) wave->value[i] = wave->current[i] = g_waveParams[i].fallback;
    wave->currentTime = -100000.0f;
    return wave;
}

void waveFree(Wave *wave) {
    if (!wave) return;
    modelFree(wave->transfo);
    free(wave->name);
    free(wave);
}

namespace {

constexpr double kDegToRad = 0.0174532925;  // degrees on disk, radians in the node
constexpr int kSrtValues = 9;

const char *const kName = "NAME";
const char *const kSrt = "SRT";

bool knownKeyword(const char *token) {
    if (strcmp(token, kName) == 0 || strcmp(token, kSrt) == 0) return true;
    for (const WaveParamInfo &p : g_waveParams)
        if (strcmp(token, p.keyword) == 0) return true;
    return false;
}

struct In {
    FILE *f;           // the stream, behind the version token
    const char *path;  // for messages
};

// The next token; false at the end of the file. A token cut by a character
// the reader refuses, or longer than the buffer, fails the file.
enum class Got { Token, End, Bad };
Got next(In &in) {
    readToken(in.f);
    if (g_tokenEnd == TOKEN_END_BAD || g_tokenTruncated) return Got::Bad;
    return g_token[0] ? Got::Token : Got::End;
}

bool badCharacter(In &in) {
    msgShowf(TOL_CLASS_ERROR, "WaveAsciiRead: Error file %s: unreadable character after '%.40s'", in.path,
             g_token);
    return false;
}

// `count` numbers behind `keyword`.
bool numbers(In &in, const char *keyword, double *out, int count) {
    for (int i = 0; i < count; ++i) {
        Got got = next(in);
        if (got == Got::Bad) return badCharacter(in);
        if (got == Got::End) {
            msgShowf(TOL_CLASS_ERROR, "WaveAsciiRead: Error file %s: %s wants %d values, %d given",
                     in.path, keyword, count, i);
            return false;
        }
        char *end = nullptr;
        double v = strtod(g_token, &end);
        if (end == g_token || *end != '\0' || !std::isfinite(v)) {
            msgShowf(TOL_CLASS_ERROR, "WaveAsciiRead: Error file %s: invalid %s value '%.40s'", in.path,
                     keyword, g_token);
            return false;
        }
        out[i] = v;
    }
    return true;
}

bool readName(In &in, Wave *wave) {
    Got got = next(in);
    if (got == Got::Bad) return badCharacter(in);
    if (got == Got::End) {
        msgShowf(TOL_CLASS_ERROR, "WaveAsciiRead: Error file %s: %s wants 1 values, 0 given", in.path, kName);
        return false;
    }
    char *name = strdup(g_token);
    if (!name) return false;
    free(wave->name);
    wave->name = name;
    return true;
}

bool readSrt(In &in, Wave *wave) {
    double v[kSrtValues];
    if (!numbers(in, kSrt, v, kSrtValues)) return false;
    Model *t = wave->transfo;
    for (int k = 0; k < 3; ++k) {
        t->scaling[k] = static_cast<float>(v[k]);
        t->rotation[k] = static_cast<float>(v[3 + k] * kDegToRad);
        t->translation[k] = static_cast<float>(v[6 + k]);
    }
    return true;
}

// Reads the groups to the end of the file; false when it is damaged. The
// word that ends an unknown group is the next group's keyword.
bool readGroups(In &in, Wave *wave) {
    Got got = next(in);
    while (got == Got::Token) {
        const std::string keyword = g_token;
        bool ok = true;
        if (keyword == kName) {
            ok = readName(in, wave);
        } else if (keyword == kSrt) {
            ok = readSrt(in, wave);
        } else {
            int param = -1;
            for (int i = 0; i < WAVE_PARAM_COUNT && param < 0; ++i)
                if (keyword == g_waveParams[i].keyword) param = i;
            if (param < 0) {
                // Unknown: its values run to the next word of the table.
                while ((got = next(in)) == Got::Token && !knownKeyword(g_token)) {
                }
                if (got == Got::Bad) return badCharacter(in);
                continue;
            }
            double v;
            ok = numbers(in, g_waveParams[param].keyword, &v, 1);
            if (ok) wave->value[param] = waveParamTake(param, v);
        }
        if (!ok) return false;
        got = next(in);
    }
    return got == Got::End || badCharacter(in);
}

}  // namespace

Wave *waveFileRead(const char *path) {
    BinReader r;
    if (!path || !binReaderOpen(r, path)) {
        fprintf(stderr, "ERROR: Cannot open file %s\n", path ? path : "");
        return nullptr;
    }
    float version = 0.0f;
    if (asciiReadHeader(r, &version) != static_cast<int32_t>(MAGIC_SWAV)) {
        msgShowf(TOL_CLASS_ERROR, "WaveAsciiRead: Error file %s is not a wave file", path);
        binReaderClose(r);
        return nullptr;
    }
    Wave *wave = waveNew(nullptr);
    In in{r.file, path};
    if (wave && !readGroups(in, wave)) {
        waveFree(wave);
        wave = nullptr;
    }
    binReaderClose(r);
    if (wave) {
        for (int i = 0; i < WAVE_PARAM_COUNT; ++i) wave->current[i] = wave->value[i];
        if (wave->name) {
            // The transform object goes by the wave's name.
            char *copy = strdup(wave->name);
            if (copy) {
                free(wave->transfo->name);
                wave->transfo->name = copy;
            }
        }
    }
    return wave;
}

int waveFileWrite(const char *path, const Wave &wave) {
    // A name the token reader would cut in two cannot be written.
    if (wave.name && (!wave.name[0] || strpbrk(wave.name, " \t\r\n;"))) {
        msgShowf(TOL_CLASS_ERROR, "WaveAsciiWrite: Error file %s: the name '%s' is not one word", path ? path : "",
                 wave.name);
        return 0;
    }
    FILE *f = path ? fopen(path, "wb") : nullptr;
    if (!f) {
        fprintf(stderr, "ERROR: Cannot open file %s\n", path ? path : "");
        return 0;
    }
    fprintf(f, "SWAV 1.0\n");
    if (wave.name) fprintf(f, "%s %s\n", kName, wave.name);
    if (const Model *t = wave.transfo) {
        fprintf(f, "%s", kSrt);
        for (float s : t->scaling) fprintf(f, " %.9g", static_cast<double>(s));
        for (float a : t->rotation) fprintf(f, " %.9g", a / kDegToRad);
        for (float p : t->translation) fprintf(f, " %.9g", static_cast<double>(p));
        fputc('\n', f);
    }
    for (int i = 0; i < WAVE_PARAM_COUNT; ++i) {
        const WaveParamInfo &p = g_waveParams[i];
        if (p.kind == WAVE_KIND_SWITCH || p.kind == WAVE_KIND_COUNT)
            fprintf(f, "%s %.0f\n", p.keyword, static_cast<double>(waveParamTake(i, wave.value[i])));
        else
            fprintf(f, "%s %.9g\n", p.keyword, static_cast<double>(wave.value[i]));
    }
    const bool written = !ferror(f);
    return fclose(f) == 0 && written ? 1 : 0;
}
