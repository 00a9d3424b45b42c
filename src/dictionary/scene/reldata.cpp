// Data that relations carry in a scene file: one family of keywords per kind
// of relation. The reader parses every family, even those the viewer never
// evaluates, so that it keeps its place in the file.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "material.h"
#include "model.h"
#include "scene_internal.h"

namespace {

// Vectors are written as three numbers behind their keyword, flags and
// scalars as one.
const RelDataField kLimits[] = {
    {"MIN_LIMIT", 3, 0}, {"MAX_LIMIT", 3, 0}, {"MIN_ACTIVE", 3, 0}, {"MAX_ACTIVE", 3, 0},
    {"DAMPING", 1, 0},   {"IS_AREA_BOX", 1, 0}, {"IS_REF_WORLD", 1, 0}, {"LIMIT_RADIUS", 1, 0},
};
const RelDataField kLimitState[] = {{"LIMIT_REACHED", 1, 0}};
const RelDataField kSplineGen[] = {
    {"CLOSE", 1, 0},    {"NB_SPLINE", 1, 0},      {"SUBDIVISION", 1, 0}, {"IS_PATCH", 1, 0},
    {"SPL_TYPE", 1, 0}, {"NRB_UNIFORMITY", 1, 0}, {"NRB_TYPE", 1, 0},    {"STEP", 1, 0},
};
const RelDataField kRevolution[] = {
    {"CLOSE", 1, 0},    {"DEGREE", 1, 0},   {"STEP", 1, 0},     {"AXIS", 3, 0},
    {"SUBDIVISION", 1, 0}, {"IS_PATCH", 1, 0}, {"SPL_TYPE", 1, 0}, {"REVOL_SUB", 1, 0},
};
const RelDataField kExtrusion[] = {
    {"SIMPLE", 1, 0},     {"CLOSE", 1, 0},    {"DEPTH", 1, 0},       {"STEP", 1, 0},
    {"SUBDIVISION", 1, 0}, {"IS_PATCH", 1, 0}, {"SPL_TYPE", 1, 0},   {"BEVEL", 1, 0},
    {"NB_BEVEL", 1, 0},   {"RADIUS", 1, 0},   {"BEVEL_TOP", 1, 0},   {"BEVEL_SIDE", 1, 0},
    {"BEVEL_BOTTOM", 1, 0}, {"EXTRU_STEP", 1, 0},
};
const RelDataField kFlexible[] = {
    {"MODE", 1, 0},      {"SENSITIVITY", 1, 0}, {"OPTION", 1, 0},     {"CONSTRAINT", 1, 0},
    {"MAXDEFORM", 1, 0}, {"PARENT_OVER", 1, 0}, {"AUTO_SWING", 1, 0}, {"WIND_SENSITIVE", 1, 0},
};
const RelDataField kFirstFrame[] = {{"FIRST_FRAME", 1, 0}};
const RelDataField kChain[] = {
    {"PLANE", 3, 0}, {"HCLEN", 1, 0}, {"FSTRT", 1, 0}, {"FDURN", 1, 0},
    {"INIT_LROT", 3, 0}, {"INIT_GROT", 3, 0}, {"INIT_AROT", 3, 0},
};
const RelDataField kProjection[] = {
    {"PROJ_METHOD", 1, 0},   {"PARA_AXIS", 3, 0},  {"PERSP_AXIS", 3, 0}, {"COORDI", 3, 0},
    {"TRIM_REGION", 1, 0},   {"NB_PROJ_CURVE", 1, 0}, {"PROJ_CURVE", 1, 0},
    {"SURF_OPERATOR", 1, 0},
};
const RelDataField kIsocurve[] = {
    {"IN_U_DIR", 1, 0}, {"IS_ISOCURVE", 1, 0}, {"LOCATION", 1, 0}, {"HOLE_NO", 1, 0},
    {"TRIM_NO", 1, 0},
};
const RelDataField kSubSurface[] = {
    {"INDICE_SUP", 1, 0}, {"INDICE_ZIP", 1, 0}, {"U_SUP", 1, 0}, {"U_ZIP", 1, 0},
    {"PT_DW", 1, 0},      {"PT_UP", 1, 0},      {"RW_DW", 1, 0}, {"RW_UP", 1, 0},
};
const RelDataField kParametrisation[] = {{"PARAMETRIZATION", 1, 0}};
const RelDataField kCustom[] = {
    {"ENAME", 0, 1}, {"MNAME", 0, 1}, {"AOCC", 1, 0}, {"ROCC", 1, 0},
};
const RelDataField kCollision[] = {
    {"OBST", 1, 0}, {"ROOTCPOS", 3, 0}, {"ROOTCORI", 3, 0}, {"COLL", 1, 0},
    {"WIND", 3, 0}, {"GRAV", 3, 0},
};
const RelDataField kChannels[] = {{"SCLE", 3, 0}, {"ROLL", 1, 0}, {"ROTN", 3, 0}, {"TRNS", 3, 0}};
// An expression's data names the parameter it sets; the load takes the
// expression's row of the relation table from it.
const RelDataField kExpression[] = {{"FCURVE", 0, 1}};
const RelDataField kBoolean[] = {
    {"ACTIVE", 1, 0},       {"OPERATION", 0, 1},       {"MATERIAL", 0, 1},
    {"REMOVE_EDGES", 1, 0}, {"REMOVE_VERTICES", 1, 0}, {"MATERIAL_ANIMATED", 1, 0},
};

#define FAMILY(name, fields, shortCount) \
    {name, fields, static_cast<int16_t>(sizeof fields / sizeof fields[0]), shortCount}

enum FamilyId {
    FAM_LIMITS, FAM_LIMIT_STATE, FAM_SPLINE_GEN, FAM_REVOLUTION, FAM_EXTRUSION, FAM_FLEXIBLE,
    FAM_FIRST_FRAME, FAM_CHAIN, FAM_PROJECTION, FAM_ISOCURVE, FAM_SUB_SURFACE,
    FAM_PARAMETRISATION, FAM_CUSTOM, FAM_COLLISION, FAM_CHANNELS, FAM_BOOLEAN, FAM_EXPRESSION,
};

const RelDataFamily kFamilies[] = {
    FAMILY("object limits", kLimits, 5),
    FAMILY("limit state", kLimitState, 0),
    FAMILY("spline generator", kSplineGen, 0),
    FAMILY("revolution", kRevolution, 0),
    FAMILY("extrusion", kExtrusion, 0),
    FAMILY("flexible object", kFlexible, 0),
    FAMILY("first frame", kFirstFrame, 0),
    FAMILY("chain", kChain, 0),
    FAMILY("projection", kProjection, 0),
    FAMILY("isocurve", kIsocurve, 0),
    FAMILY("sub surface", kSubSurface, 0),
    FAMILY("parametrisation", kParametrisation, 0),
    FAMILY("custom effect", kCustom, 0),
    FAMILY("collision", kCollision, 0),
    FAMILY("transform channels", kChannels, 0),
    FAMILY("boolean", kBoolean, 0),
    FAMILY("expression", kExpression, 0),
};

// Relations and the family of their data. Constraints carry limits; the
// deformers of the geometry group carry the data of the generator they are.
struct RelidFamily {
    int32_t relid;
    FamilyId family;
};
const RelidFamily kRelidFamilies[] = {
    {11, FAM_FIRST_FRAME},     {102, FAM_LIMITS},      {103, FAM_LIMITS},
    {104, FAM_LIMIT_STATE},    {111, FAM_LIMITS},      {114, FAM_LIMITS},
    {115, FAM_LIMITS},         {116, FAM_LIMITS},      {117, FAM_COLLISION},
    {118, FAM_COLLISION},      {119, FAM_LIMITS},      {120, FAM_CHAIN},
    {121, FAM_CHAIN},          {124, FAM_LIMITS},      {125, FAM_LIMITS},
    {126, FAM_LIMITS},         {127, FAM_LIMITS},      {128, FAM_LIMITS},
    {129, FAM_LIMITS},         {150, FAM_LIMITS},      {220, FAM_CHANNELS},
    {221, FAM_CHANNELS},       {230, FAM_CHANNELS},    {231, FAM_CHANNELS},
    {238, FAM_LIMITS},         {239, FAM_FLEXIBLE},    {245, FAM_PROJECTION},
    {246, FAM_PROJECTION},     {250, FAM_REVOLUTION},  {251, FAM_EXTRUSION},
    {252, FAM_SPLINE_GEN},     {253, FAM_ISOCURVE},    {255, FAM_SUB_SURFACE},
    {256, FAM_PARAMETRISATION}, {257, FAM_SUB_SURFACE}, {260, FAM_BOOLEAN},
    {800, FAM_FLEXIBLE},       {801, FAM_COLLISION},   {802, FAM_COLLISION},
    {803, FAM_COLLISION},      {804, FAM_COLLISION},   {805, FAM_COLLISION},
    {806, FAM_LIMITS},         {807, FAM_FLEXIBLE},    {1111, FAM_LIMITS},
    {1116, FAM_LIMITS},        {2111, FAM_LIMITS},     {2116, FAM_LIMITS},
    {REL_CUSTOM, FAM_CUSTOM},  {REL_EXPRESSION, FAM_EXPRESSION},
};

int valueCount(const RelDataFamily *f) {
    int n = 0;
    for (int i = 0; i < f->fieldCount; ++i) n += f->fields[i].count;
    return n;
}

int fieldIndex(const RelDataFamily *f, const char *token) {
    for (int i = 0; i < f->fieldCount; ++i)
        if (strcmp(f->fields[i].token, token) == 0) return i;
    return -1;
}

int valueOffset(const RelDataFamily *f, int field) {
    int n = 0;
    for (int i = 0; i < field; ++i) n += f->fields[i].count;
    return n;
}

int wordSlot(const RelDataFamily *f, int field) {
    int n = 0;
    for (int i = 0; i < field; ++i) n += f->fields[i].isWord;
    return n;
}

int wordCount(const RelDataFamily *f) { return wordSlot(f, f->fieldCount); }

bool isNumber(const char *text) {
    if (!*text) return false;
    char *end = nullptr;
    errno = 0;
    strtod(text, &end);
    return end && *end == '\0';
}

// A quoted word loses its quotes; "_UNKNOWN_" stands for none.
char *wordOf(const char *token) {
    std::string w = token;
    if (w.size() >= 2 && w.front() == '\'' && w.back() == '\'') w = w.substr(1, w.size() - 2);
    if (w == "_UNKNOWN_") return nullptr;
    return strdup(w.c_str());
}

}  // namespace

const RelDataFamily *relDataFamilyOf(int32_t relid) {
    for (const RelidFamily &rf : kRelidFamilies)
        if (rf.relid == relid) return &kFamilies[rf.family];
    return nullptr;
}

RelData *relDataNew(int32_t relid) {
    const RelDataFamily *f = relDataFamilyOf(relid);
    if (!f) return nullptr;
    RelData *d = static_cast<RelData *>(calloc(1, sizeof(RelData)));
    if (!d) return nullptr;
    d->relid = relid;
    d->family = f;
    d->index = -1;
    int n = valueCount(f);
    d->values = static_cast<float *>(calloc(static_cast<size_t>(n > 0 ? n : 1), sizeof(float)));
    int w = wordCount(f);
    if (w > 0) d->words = static_cast<char **>(calloc(static_cast<size_t>(w), sizeof(char *)));
    // Limits default to the widest range, inactive, as a box: a block in the
    // short form, which stops at DAMPING, then keeps its box.
    if (f == &kFamilies[FAM_LIMITS]) {
        for (int i = 0; i < 3; ++i) {
            d->values[i] = -1.0e6f;
            d->values[3 + i] = 1.0e6f;
        }
        d->values[valueOffset(f, fieldIndex(f, "IS_AREA_BOX"))] = 1;
    }
    if (f == &kFamilies[FAM_CUSTOM]) d->values[valueOffset(f, fieldIndex(f, "AOCC"))] = 1;
    if (f == &kFamilies[FAM_BOOLEAN]) d->values[0] = 1;  // ACTIVE
    return d;
}

void relDataFree(int32_t relid, void *data) {
    if (!data) return;
    RelData *d = static_cast<RelData *>(data);
    // Every record is of this one form, so it is freed whatever the id says;
    // an id without a kind is still reported, as it names no data at all.
    if (!relDataFamilyOf(relid)) fprintf(stderr, "Data of Relid %d needs to be freed\n", relid);
    if (d->family) {
        int w = wordCount(d->family);
        for (int i = 0; d->words && i < w; ++i) free(d->words[i]);
    }
    free(d->words);
    free(d->values);
    free(d);
}

RelData *relDataRead(FILE *stream, int32_t relid, int *foreignToken) {
    if (foreignToken) *foreignToken = 0;
    RelData *d = relDataNew(relid);
    bool pending = false;  // g_token holds a token not yet looked at
    while (pending || sceneNextToken(stream)) {
        pending = false;
        if (strcmp(g_token, "EndOfRELDATA") == 0) return d;
        int field = d ? fieldIndex(d->family, g_token) : -1;
        if (field < 0) {
            if (!d) fprintf(stderr, "ERROR: Invalid Relation Data encountered while reading scene\n");
            if (foreignToken) *foreignToken = 1;
            return d;
        }
        const RelDataField &fd = d->family->fields[field];
        d->present |= 1u << field;
        if (fd.isWord) {
            if (!sceneNextToken(stream)) return d;
            char **slot = &d->words[wordSlot(d->family, field)];
            free(*slot);
            *slot = wordOf(g_token);
            continue;
        }
        float *out = d->values + valueOffset(d->family, field);
        for (int i = 0; i < fd.count; ++i) {
            if (!sceneNextToken(stream)) return d;
            if (!isNumber(g_token)) {  // fewer values than usual: the next keyword
                pending = true;
                break;
            }
            out[i] = static_cast<float>(atof(g_token));
        }
    }
    return d;
}

void relDataWrite(FILE *stream, int32_t relid, const RelData *data) {
    if (!stream || !data || !data->family) return;
    (void)relid;
    const RelDataFamily *f = data->family;
    // The short form when the fields behind it hold their defaults: a reader
    // makes the same record of it.
    int fields = f->fieldCount;
    if (f->shortCount > 0) {
        RelData *fresh = relDataNew(data->relid);
        bool defaults = fresh != nullptr;
        for (int i = f->shortCount; defaults && i < f->fieldCount; ++i) {
            if (f->fields[i].isWord) continue;
            const int at = valueOffset(f, i);
            for (int k = 0; k < f->fields[i].count; ++k)
                if (data->values[at + k] != fresh->values[at + k]) defaults = false;
        }
        relDataFree(data->relid, fresh);
        if (defaults) fields = f->shortCount;
    }
    fprintf(stream, "RELDATA ");
    for (int i = 0; i < fields; ++i) {
        const RelDataField &fd = f->fields[i];
        fprintf(stream, "%s ", fd.token);
        if (fd.isWord) {
            const char *w = data->words ? data->words[wordSlot(f, i)] : nullptr;
            fprintf(stream, "'%s' ", w ? w : "_UNKNOWN_");
            continue;
        }
        const float *v = data->values + valueOffset(f, i);
        for (int k = 0; k < fd.count; ++k) fprintf(stream, "%.7g ", static_cast<double>(v[k]));
    }
    fprintf(stream, "EndOfRELDATA ");
}

float *relDataValues(RelData *data, const char *token) {
    if (!data || !data->family) return nullptr;
    int field = fieldIndex(data->family, token);
    if (field < 0 || data->family->fields[field].isWord) return nullptr;
    return data->values + valueOffset(data->family, field);
}

const char *relDataWord(const RelData *data, const char *token) {
    if (!data || !data->family || !data->words) return nullptr;
    int field = fieldIndex(data->family, token);
    if (field < 0 || !data->family->fields[field].isWord) return nullptr;
    return data->words[wordSlot(data->family, field)];
}

void relDataFixup(Dictionary *dict, int chapterId, int32_t index, RelationInst *inst) {
    (void)chapterId;
    (void)index;
    if (!inst || inst->relid == REL_EXPRESSION || inst->relid == 247) return;
    if (inst->data) return;  // the file's data stands
    RelData *d = relDataNew(inst->relid);
    if (!d) return;  // a relation without a kind of data
    inst->data = d;
    Element *other = elemGet(dict, inst->chp, inst->elem);
    if (!other || !other->data) return;
    if (inst->relid == 807 && inst->chp == CHP_MATERIALS) {
        // The one value a material gives a flexible object: its transparency.
        const Material *m = static_cast<const Material *>(other->data);
        if (float *v = relDataValues(d, "SENSITIVITY")) v[0] = m->transparency;
    } else if (inst->relid == 800 && inst->chp == CHP_MODELS) {
        // The one value the node's geometry gives: its type.
        const Model *m = static_cast<const Model *>(other->data);
        if (float *v = relDataValues(d, "MODE")) v[0] = static_cast<float>(m->type);
    }
}

void relDataFixupModels(Dictionary *dict) {
    Chapter *models = dictChapter(dict, CHP_MODELS);
    for (int i = 0; models && i < models->elementCount; ++i) {
        Element &e = models->elements[i];
        if (e.deleted == ELEM_FREE_SLOT || !e.childGroups) continue;
        for (int g = 0; g < e.childGroupCount; ++g)
            for (int k = 0; k < e.childGroups[g].count; ++k)
                relDataFixup(dict, CHP_MODELS, i, &e.childGroups[g].items[k]);
    }
}
