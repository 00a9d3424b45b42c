// The scene setup file: a header (magic SSET, version), then keyword and
// value groups. The file serves the whole package; the viewer takes a few
// settings and keeps every other group as read, so that writing gives back
// what was read.
//
// Grouping. A keyword is a word of the table below. The values of a group run
// up to the next token that is a keyword, or that is a word in capitals
// (a capital letter, then capitals, digits and '_') which the group's
// keyword does not list as one of its values; that token starts the next
// group. A keyed setting takes its first value whatever its form, unless it
// is a keyword. A token that starts a group and is not a keyword is an
// unknown keyword: its group is passed over and kept.
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "scene_internal.h"

namespace {

// Sections, in the order a written file has them.
#define BW_SETUP_SECTIONS(X)          \
    X(SEC_PLAY, "play control")       \
    X(SEC_SHOW, "show flags")         \
    X(SEC_PREF, "preferences")        \
    X(SEC_DIAL, "dialogs")            \
    X(SEC_AUTOSAVE, "auto save")      \
    X(SEC_INCR, "increments")         \
    X(SEC_WINDOWS, "windows")         \
    X(SEC_VIEWCAM, "view cameras")    \
    X(SEC_VIEWOPT, "view options")    \
    X(SEC_SHADING, "shading")         \
    X(SEC_FORMAT, "format")           \
    X(SEC_DUP, "duplication")         \
    X(SEC_SCHEM, "schematic")         \
    X(SEC_LIGHTING, "scene lighting") \
    X(SEC_TEXTURE, "texture display") \
    X(SEC_RENDER, "render globals")   \
    X(SEC_SHADERS, "shaders")         \
    X(SEC_AUDIO, "audio")

enum Section : int32_t {
#define BW_X(id, name) id,
    BW_SETUP_SECTIONS(BW_X)
#undef BW_X
        SEC_COUNT
};

const char *const kSectionNames[] = {
#define BW_X(id, name) name,
    BW_SETUP_SECTIONS(BW_X)
#undef BW_X
};

// The settings the reader takes; every other keyword is kept as read.
enum Setting : int32_t {
    SET_NONE,
    SET_PLAYCTRL,
    SET_AUTOSAVE_ACTIVE,
    SET_AUTOSAVE_PERIOD,
    SET_AMBIENT,
    SET_TWO_SIDED,
    SET_TWO_SIDED_OVERRIDE,
    SET_TXT_INTERPOLATION,
    SET_TXT_BLENDING,
    SET_TXT_GLOBAL,
    SET_TXT_LOCAL,
    SET_TXT_TILING,
    SET_TXT_MIRROR,
    SET_COUNT
};

// keyword, section, setting, keyed (1: its first value is a word), value words
#define BW_SETUP_KEYWORDS(X)                                                                   \
    X("PLAYCTRL", SEC_PLAY, SET_PLAYCTRL, 0, "FRAME PAUSE RATE")                               \
    X("SHOW_FLAG", SEC_SHOW, SET_NONE, 0, "")                                                  \
    X("SHW_POINTS", SEC_SHOW, SET_NONE, 0, "")                                                 \
    X("SHW_LINES", SEC_SHOW, SET_NONE, 0, "")                                                  \
    X("SHW_CENTER", SEC_SHOW, SET_NONE, 0, "")                                                 \
    X("SHW_NULL", SEC_SHOW, SET_NONE, 0, "")                                                   \
    X("SHW_NORMAL", SEC_SHOW, SET_NONE, 0, "")                                                 \
    X("SHW_TAG", SEC_SHOW, SET_NONE, 0, "")                                                    \
    X("SHW_LINK", SEC_SHOW, SET_NONE, 0, "")                                                   \
    X("SHW_CONE", SEC_SHOW, SET_NONE, 0, "")                                                   \
    X("SHW_LATTICE", SEC_SHOW, SET_NONE, 0, "")                                                \
    X("SHW_POLYGON", SEC_SHOW, SET_NONE, 0, "")                                                \
    X("SHW_SURFACE", SEC_SHOW, SET_NONE, 0, "")                                                \
    X("SHW_EDGE", SEC_SHOW, SET_NONE, 0, "")                                                   \
    X("PREFERENCE", SEC_PREF, SET_NONE, 0, "")                                                 \
    X("PREFERENCE_MOUSE", SEC_PREF, SET_NONE, 0, "")                                           \
    X("PREFERENCE_AUTO_SAVE", SEC_PREF, SET_NONE, 0, "")                                       \
    X("PREFERENCE_INCREMENTATION", SEC_PREF, SET_NONE, 0, "")                                  \
    X("PREFERENCE_PICT_FMT", SEC_PREF, SET_NONE, 0, "")                                        \
    X("PREF_BUSY_CURSOR", SEC_PREF, SET_NONE, 0, "")                                           \
    X("PREF_CLASSICAL_SCALING", SEC_PREF, SET_NONE, 0, "")                                     \
    X("PREF_UNIFORM_SCALING", SEC_PREF, SET_NONE, 0, "")                                       \
    X("PREF_HIERARCHY_COMPENSATION", SEC_PREF, SET_NONE, 0, "")                                \
    X("PREF_MODE", SEC_PREF, SET_NONE, 0, "")                                                  \
    X("PREF_ROTATION", SEC_PREF, SET_NONE, 0, "")                                              \
    X("PREF_TRANSLATION", SEC_PREF, SET_NONE, 0, "")                                           \
    X("DIAL_MOUSE_POS", SEC_DIAL, SET_NONE, 0, "")                                             \
    X("DIAL_MOUSE_WARP", SEC_DIAL, SET_NONE, 0, "")                                            \
    X("DIAL_MOUSE_DISP", SEC_DIAL, SET_NONE, 0, "")                                            \
    X("DIAL_MOUSE_BELL", SEC_DIAL, SET_NONE, 0, "")                                            \
    X("AUTO_SAVE_ACTIVE", SEC_AUTOSAVE, SET_AUTOSAVE_ACTIVE, 1, "ACTIVE INACTIVE")             \
    X("AUTO_SAVE_PERIOD", SEC_AUTOSAVE, SET_AUTOSAVE_PERIOD, 0, "")                            \
    X("PREF_SCALING_INCREMENT", SEC_INCR, SET_NONE, 0, "")                                     \
    X("PREF_ROTATION_INCREMENT", SEC_INCR, SET_NONE, 0, "")                                    \
    X("PREF_TRANSLATION_INCREMENT", SEC_INCR, SET_NONE, 0, "")                                 \
    X("WINDOW_TYPE", SEC_WINDOWS, SET_NONE, 1,                                                 \
      "L0_FRONT L0_RIGHT L0_TOP L0_PERSPECTIVE L1_TOP L1_FRONT L1_RIGHT L1_PERSPECTIVE "       \
      "SCHEMATIC_MODES")                                                                       \
    X("CAMERA_TYPE", SEC_WINDOWS, SET_NONE, 0, "")                                             \
    X("FRONT", SEC_WINDOWS, SET_NONE, 0, "")                                                   \
    X("RIGHT", SEC_WINDOWS, SET_NONE, 0, "")                                                   \
    X("PERSPECTIVE", SEC_WINDOWS, SET_NONE, 0, "")                                             \
    X("FCURVE", SEC_WINDOWS, SET_NONE, 0, "")                                                  \
    X("SPREADSHEET", SEC_WINDOWS, SET_NONE, 0, "")                                             \
    X("DOPESHEET", SEC_WINDOWS, SET_NONE, 0, "")                                               \
    X("SCHEMATIC", SEC_WINDOWS, SET_NONE, 0, "")                                               \
    X("CAMERA_POSITION", SEC_VIEWCAM, SET_NONE, 0, "")                                         \
    X("CAMERA_INTEREST", SEC_VIEWCAM, SET_NONE, 0, "")                                         \
    X("CAMERA_FOV", SEC_VIEWCAM, SET_NONE, 0, "")                                              \
    X("CAMERA_ASPECT", SEC_VIEWCAM, SET_NONE, 0, "")                                           \
    X("CAMERA_NEAR", SEC_VIEWCAM, SET_NONE, 0, "")                                             \
    X("CAMERA_FAR", SEC_VIEWCAM, SET_NONE, 0, "")                                              \
    X("MINIMUM_VIEW", SEC_VIEWCAM, SET_NONE, 0, "")                                            \
    X("MAXIMUM_VIEW", SEC_VIEWCAM, SET_NONE, 0, "")                                            \
    X("ZOOM", SEC_VIEWCAM, SET_NONE, 0, "")                                                    \
    X("WINDOW_SIZE", SEC_VIEWOPT, SET_NONE, 0, "")                                             \
    X("GRID_VISIBLE", SEC_VIEWOPT, SET_NONE, 0, "")                                            \
    X("AXIS_VISIBLE", SEC_VIEWOPT, SET_NONE, 0, "")                                            \
    X("RULER_VISIBLE", SEC_VIEWOPT, SET_NONE, 0, "")                                           \
    X("FIELD_VISIBLE", SEC_VIEWOPT, SET_NONE, 0, "")                                           \
    X("X_AXIS_LOCK", SEC_VIEWOPT, SET_NONE, 0, "")                                             \
    X("Y_AXIS_LOCK", SEC_VIEWOPT, SET_NONE, 0, "")                                             \
    X("Z_AXIS_LOCK", SEC_VIEWOPT, SET_NONE, 0, "")                                             \
    X("DELTA", SEC_VIEWOPT, SET_NONE, 0, "")                                                   \
    X("DISPLAY", SEC_VIEWOPT, SET_NONE, 0, "")                                                 \
    X("MAGNET", SEC_VIEWOPT, SET_NONE, 0, "")                                                  \
    X("MAGNET_TYPE", SEC_VIEWOPT, SET_NONE, 0, "")                                             \
    X("FAST_PLAY", SEC_VIEWOPT, SET_NONE, 0, "")                                               \
    X("DISPLAY_TYPE", SEC_VIEWOPT, SET_NONE, 0, "")                                            \
    X("PICTURE", SEC_VIEWOPT, SET_NONE, 0, "")                                                 \
    X("DEPTH_CUE", SEC_VIEWOPT, SET_NONE, 0, "")                                               \
    X("RENDERING_TYPE", SEC_SHADING, SET_NONE, 1,                                              \
      "WIRE_FRAME HIDDEN_LINE DEPTHCUE SUBREGION GHOST ROTO_WIRE ROTO_SHADE")                  \
    X("AFFECTED_MODEL", SEC_SHADING, SET_NONE, 0, "")                                          \
    X("SELECTED", SEC_SHADING, SET_NONE, 0, "")                                                \
    X("SHOW_ICON", SEC_SHADING, SET_NONE, 0, "")                                               \
    X("SHADED_GHOSTS", SEC_SHADING, SET_NONE, 0, "")                                           \
    X("FORMAT_TYPE", SEC_FORMAT, SET_NONE, 1,                                                  \
      "35MM_137 35MM_166 35MM_185 70MM_PANAVISION 70MM_IMAX NTSC HDTV")                        \
    X("DUP_MATERIAL_DUP", SEC_DUP, SET_NONE, 0, "")                                            \
    X("DUP_MATERIAL_SHR", SEC_DUP, SET_NONE, 0, "")                                            \
    X("DUP_MATERIAL_ANIM", SEC_DUP, SET_NONE, 0, "")                                           \
    X("SCHEM_ORGANIZATION_TYPE", SEC_SCHEM, SET_NONE, 0, "")                                   \
    X("SCHEM_REPARTITION_TYPE", SEC_SCHEM, SET_NONE, 0, "")                                    \
    X("SCHEM_SORT_TYPE", SEC_SCHEM, SET_NONE, 0, "")                                           \
    X("SCHEM_REL_DISPLAY", SEC_SCHEM, SET_NONE, 0, "")                                         \
    X("AMBIENT_COLOR", SEC_LIGHTING, SET_AMBIENT, 0, "")                                       \
    X("TWO_SIDED_LIGHTING", SEC_LIGHTING, SET_TWO_SIDED, 0, "")                                \
    X("TWO_SIDED_OVERRIDE", SEC_LIGHTING, SET_TWO_SIDED_OVERRIDE, 0, "")                       \
    X("TEXTURE_PXL_INTERPOLATION_MODE", SEC_TEXTURE, SET_TXT_INTERPOLATION, 1,                 \
      "RESPECT_TXT_PROPERTY ALWAYS_ON ALWAYS_OFF")                                             \
    X("BLENDING", SEC_TEXTURE, SET_TXT_BLENDING, 0, "")                                        \
    X("TXT_DPY_GLOBAL", SEC_TEXTURE, SET_TXT_GLOBAL, 0, "")                                    \
    X("TXT_DPY_LOCAL", SEC_TEXTURE, SET_TXT_LOCAL, 0, "")                                      \
    X("TXT_DPY_TILING", SEC_TEXTURE, SET_TXT_TILING, 0, "")                                    \
    X("TXT_DPY_MIRROR", SEC_TEXTURE, SET_TXT_MIRROR, 0, "")                                    \
    X("PRW_GLOBALS", SEC_RENDER, SET_NONE, 0, "")                                              \
    X("PREVIEW_TYPE_MR", SEC_RENDER, SET_NONE, 0, "")                                          \
    X("PREVIEW_TYPE_MR_2X", SEC_RENDER, SET_NONE, 0, "")                                       \
    X("UDF_NAME", SEC_SHADERS, SET_NONE, 0, "")                                                \
    X("UDF_ACTIVE", SEC_SHADERS, SET_NONE, 0, "")                                              \
    X("UDF_INTERNAL", SEC_SHADERS, SET_NONE, 0, "")                                            \
    X("AUDIOTRACK", SEC_AUDIO, SET_NONE, 0, "")                                                \
    X("STARTOFFSET", SEC_AUDIO, SET_NONE, 0, "")                                               \
    X("PREPOSTROLL", SEC_AUDIO, SET_NONE, 0, "")

struct Keyword {
    const char *word;    // the keyword
    Section section;     // where it stands
    Setting setting;     // what the reader takes from it; SET_NONE: kept as read
    int keyed;           // 1: the first value is a word, whatever its form
    const char *values;  // words in capitals it takes as values, blank-separated
};

const Keyword kKeywords[] = {
#define BW_X(word, section, setting, keyed, values) {word, section, setting, keyed, values},
    BW_SETUP_KEYWORDS(BW_X)
#undef BW_X
};

const char *const kInterpolationWords[] = {"RESPECT_TXT_PROPERTY", "ALWAYS_ON", "ALWAYS_OFF"};

const Keyword *keywordOf(std::string_view token) {
    static const std::unordered_map<std::string_view, const Keyword *> table = [] {
        std::unordered_map<std::string_view, const Keyword *> made;
        for (const Keyword &k : kKeywords) made.emplace(k.word, &k);
        return made;
    }();
    auto it = table.find(token);
    return it == table.end() ? nullptr : it->second;
}

bool capitalWord(std::string_view token) {
    if (token.size() < 2 || token[0] < 'A' || token[0] > 'Z') return false;
    for (char c : token)
        if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
    return true;
}

bool listedValue(const Keyword *k, std::string_view token) {
    if (!k) return false;
    std::string_view list = k->values;
    while (!list.empty()) {
        size_t blank = list.find(' ');
        if (list.substr(0, blank) == token) return true;
        if (blank == std::string_view::npos) break;
        list.remove_prefix(blank + 1);
    }
    return false;
}

// Whole-token numbers; false for anything else.
bool toInt(const std::string &text, int32_t *out) {
    char *end = nullptr;
    long v = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v < INT32_MIN || v > INT32_MAX) return false;
    *out = static_cast<int32_t>(v);
    return true;
}
bool toFloat(const std::string &text, float *out) {
    char *end = nullptr;
    float v = strtof(text.c_str(), &end);
    if (text.empty() || *end != '\0') return false;
    *out = v;
    return true;
}

using Values = std::vector<std::string>;

// `count` numbers from the values, each whole; reports and gives false otherwise.
bool numbers(const char *keyword, const Values &values, size_t first, size_t count, float *out) {
    if (values.size() < first + count) {
        msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, %s wants %zu values, %zu given.",
                 keyword, count, values.size() > first ? values.size() - first : 0);
        return false;
    }
    for (size_t i = 0; i < count; i++) {
        if (!toFloat(values[first + i], &out[i])) {
            msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, invalid %s value '%s'.", keyword,
                     values[first + i].c_str());
            return false;
        }
    }
    return true;
}

bool flag(const char *keyword, const Values &values, int32_t *out) {
    if (values.empty()) {
        msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, %s wants 1 values, 0 given.", keyword);
        return false;
    }
    int32_t v = 0;
    if (!toInt(values[0], &v)) {
        msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, invalid %s value '%s'.", keyword,
                 values[0].c_str());
        return false;
    }
    *out = v;
    return true;
}

void unknownKeyed(const char *what, const Values &values, const std::string &next) {
    // Without a value the token that ends the group stands in the message.
    msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, unknown %s token '%s'.", what,
             values.empty() ? next.c_str() : values[0].c_str());
}

// ---------------------------------------------------------------------------
// Readers and writers of the settings, indexed by Setting.

using ReadFn = void (*)(SceneSetup &s, const char *kw, const Values &v, const std::string &next);
using WriteFn = void (*)(FILE *f, const SceneSetup &s, const char *kw);

void readPlay(SceneSetup &s, const char *kw, const Values &v, const std::string &) {
    for (size_t i = 0; i < v.size(); i++) {
        float n[4];
        if (v[i] == "FRAME") {
            if (!numbers(kw, v, i + 1, 4, n)) return;
            int32_t frames[4];
            for (int k = 0; k < 4; k++)
                if (!toInt(v[i + 1 + k], &frames[k])) {
                    msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, invalid %s value '%s'.",
                             kw, v[i + 1 + k].c_str());
                    return;
                }
            s.firstFrame = frames[0];
            s.lastFrame = frames[1];
            s.currentFrame = frames[2];
            s.frameStep = frames[3];
            s.playGiven = 1;
            i += 4;
        } else if (v[i] == "PAUSE") {
            Values rest(v.begin() + static_cast<long>(i) + 1, v.end());
            if (!flag(kw, rest, &s.pause)) return;
            i += 1;
        } else if (v[i] == "RATE") {
            if (!numbers(kw, v, i + 1, 1, n)) return;
            s.frameRate = n[0];
            i += 1;
        } else if (v[i] == "EndOfPLAYCTRL") {
            return;
        } else {
            msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, invalid %s value '%s'.", kw,
                     v[i].c_str());
            return;
        }
    }
}
void writePlay(FILE *f, const SceneSetup &s, const char *kw) {
    if (!s.playGiven) return;  // the scene file's play control stands: write back what was read
    fprintf(f, "%s FRAME %d %d %d %d PAUSE %d RATE %.9g EndOfPLAYCTRL\n", kw, s.firstFrame,
            s.lastFrame, s.currentFrame, s.frameStep, s.pause, static_cast<double>(s.frameRate));
}

void readAutoActive(SceneSetup &s, const char *, const Values &v, const std::string &next) {
    if (!v.empty() && v[0] == "ACTIVE") s.autoSaveActive = 1;
    else if (!v.empty() && v[0] == "INACTIVE") s.autoSaveActive = 0;
    else unknownKeyed("auto save", v, next);
}
void writeAutoActive(FILE *f, const SceneSetup &s, const char *kw) {
    fprintf(f, "%s %s\n", kw, s.autoSaveActive ? "ACTIVE" : "INACTIVE");
}

void readAutoPeriod(SceneSetup &s, const char *, const Values &v, const std::string &) {
    int32_t minutes = 0;
    if (v.empty() || !toInt(v[0], &minutes) || minutes < 1) {
        msgShowf(TOL_CLASS_ERROR, "AutoSave : invalid time period. Using default value of 1 minute.");
        minutes = 1;
    }
    s.autoSavePeriod = minutes;
}
void writeAutoPeriod(FILE *f, const SceneSetup &s, const char *kw) {
    fprintf(f, "%s %d\n", kw, s.autoSavePeriod);
}

void readAmbient(SceneSetup &s, const char *kw, const Values &v, const std::string &) {
    float c[3];
    if (numbers(kw, v, 0, 3, c)) std::memcpy(s.ambient, c, sizeof c);
}
void writeAmbient(FILE *f, const SceneSetup &s, const char *kw) {
    fprintf(f, "%s %.9g %.9g %.9g\n", kw, static_cast<double>(s.ambient[0]),
            static_cast<double>(s.ambient[1]), static_cast<double>(s.ambient[2]));
}

void readInterpolation(SceneSetup &s, const char *, const Values &v, const std::string &next) {
    for (int i = 0; i < 3; i++)
        if (!v.empty() && v[0] == kInterpolationWords[i]) {
            s.texInterpolation = static_cast<SetupTexInterpolation>(i);
            return;
        }
    unknownKeyed("texture interpolation", v, next);
}
void writeInterpolation(FILE *f, const SceneSetup &s, const char *kw) {
    int mode = s.texInterpolation >= 0 && s.texInterpolation < 3 ? s.texInterpolation : 0;
    fprintf(f, "%s %s\n", kw, kInterpolationWords[mode]);
}

// The flags are one number each, 0 off.
int32_t SceneSetup::*flagField(Setting setting) {
    switch (setting) {
    case SET_TWO_SIDED: return &SceneSetup::twoSided;
    case SET_TWO_SIDED_OVERRIDE: return &SceneSetup::twoSidedOverride;
    case SET_TXT_BLENDING: return &SceneSetup::texBlending;
    case SET_TXT_GLOBAL: return &SceneSetup::texGlobal;
    case SET_TXT_LOCAL: return &SceneSetup::texLocal;
    case SET_TXT_TILING: return &SceneSetup::texTiling;
    case SET_TXT_MIRROR: return &SceneSetup::texMirror;
    default: return nullptr;
    }
}
Setting settingOf(const char *kw) {
    const Keyword *k = keywordOf(kw);
    return k ? k->setting : SET_NONE;
}
void readFlag(SceneSetup &s, const char *kw, const Values &v, const std::string &) {
    if (int32_t SceneSetup::*field = flagField(settingOf(kw))) flag(kw, v, &(s.*field));
}
void writeFlag(FILE *f, const SceneSetup &s, const char *kw) {
    if (int32_t SceneSetup::*field = flagField(settingOf(kw))) fprintf(f, "%s %d\n", kw, s.*field);
}

struct SettingIo {
    ReadFn read;
    WriteFn write;
};
const SettingIo kSettingIo[SET_COUNT] = {
    {nullptr, nullptr},                       // SET_NONE
    {readPlay, writePlay},                    // SET_PLAYCTRL
    {readAutoActive, writeAutoActive},        // SET_AUTOSAVE_ACTIVE
    {readAutoPeriod, writeAutoPeriod},        // SET_AUTOSAVE_PERIOD
    {readAmbient, writeAmbient},              // SET_AMBIENT
    {readFlag, writeFlag},                    // SET_TWO_SIDED
    {readFlag, writeFlag},                    // SET_TWO_SIDED_OVERRIDE
    {readInterpolation, writeInterpolation},  // SET_TXT_INTERPOLATION
    {readFlag, writeFlag},                    // SET_TXT_BLENDING
    {readFlag, writeFlag},                    // SET_TXT_GLOBAL
    {readFlag, writeFlag},                    // SET_TXT_LOCAL
    {readFlag, writeFlag},                    // SET_TXT_TILING
    {readFlag, writeFlag},                    // SET_TXT_MIRROR
};

// The token just read. A carriage return is a line end of a file written
// elsewhere, never part of a word: left on, it would make a keyword look like
// a value here and read back as a keyword once written with our line ends.
std::string_view word() {
    std::string_view token = g_token;
    while (!token.empty() && token.back() == '\r') token.remove_suffix(1);
    return token;
}

// Reads the values of the group of `k` (null: an unknown keyword). The token
// that ends the group is left in `next`; false at the end of the file.
bool readValues(FILE *stream, const Keyword *k, Values *values, std::string *next) {
    while (sceneNextToken(stream)) {
        std::string_view token = word();
        if (token.empty()) continue;
        bool keyword = keywordOf(token) != nullptr;
        bool value = !keyword && ((k && k->keyed && values->empty()) || !capitalWord(token) ||
                                  listedValue(k, token));
        if (!value) {
            *next = token;
            return true;
        }
        values->emplace_back(token);
    }
    next->clear();
    return false;
}

}  // namespace

int sceneSetupSectionCount() { return SEC_COUNT; }

const char *sceneSetupSectionName(int section) {
    return section >= 0 && section < SEC_COUNT ? kSectionNames[section] : nullptr;
}

int sceneSetupRead(const char *path, SceneSetup *setup) {
    if (!path || !setup) return 0;
    FILE *stream = fopen(path, "rb");
    if (!stream) return 0;  // no setup: the defaults stand
    if (!sceneNextToken(stream) || word() != "SSET") {
        msgShowf(TOL_CLASS_ERROR, "SceneAsciiRead: error, %s is not a setup file.", path);
        fclose(stream);
        return 0;
    }
    float version = 0;
    if (sceneNextToken(stream) && toFloat(std::string(word()), &version)) setup->version = version;
    setup->lines.clear();

    int32_t section = -1;
    std::string keyword;
    bool more = sceneNextToken(stream);
    while (more && word().empty()) more = sceneNextToken(stream);
    if (more) keyword = word();
    while (more) {
        const Keyword *k = keywordOf(keyword);
        if (k) section = k->section;
        else if (section == SEC_RENDER)
            msgShowf(TOL_CLASS_ERROR, "renderGlobalsAsciiRead: error, token '%s' unknown.",
                     keyword.c_str());
        Values values;
        std::string next;
        more = readValues(stream, k, &values, &next);
        if (k && k->setting != SET_NONE) {
            kSettingIo[k->setting].read(*setup, k->word, values, next);
        } else {
            SetupLine line;
            line.section = section;
            line.tokens.push_back(keyword);
            for (std::string &v : values) line.tokens.push_back(std::move(v));
            setup->lines.push_back(std::move(line));
        }
        keyword = next;
    }
    fclose(stream);
    return 1;
}

int sceneSetupWrite(const char *path, const SceneSetup &setup) {
    if (!path) return 0;
    FILE *f = fopen(path, "wb");
    if (!f) return 0;
    fprintf(f, "SSET %.9g\n", static_cast<double>(setup.version));
    auto writeLines = [&](int32_t section) {
        for (const SetupLine &line : setup.lines) {
            if (line.section != section) continue;
            for (size_t i = 0; i < line.tokens.size(); i++)
                fprintf(f, i ? " %s" : "%s", line.tokens[i].c_str());
            fputc('\n', f);
        }
    };
    // Lines read before any keyword of the table stand first; each section's
    // settings come before its kept lines, so that an unknown keyword read
    // in a section is read back in the same one.
    writeLines(-1);
    for (int32_t section = 0; section < SEC_COUNT; section++) {
        for (const Keyword &k : kKeywords)
            if (k.section == section && k.setting != SET_NONE)
                kSettingIo[k.setting].write(f, setup, k.word);
        writeLines(section);
    }
    return fclose(f) == 0 ? 1 : 0;
}
