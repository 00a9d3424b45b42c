// The built-in functions of expressions, one table row each, and the
// lattice noise they share with the rest of the system.
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "camera.h"
#include "expr_internal.h"
#include "model.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRadians = kPi / 180.0;
constexpr double kLogFloor = 1.1920929e-07;

double sinRoutine(ExprCall &, int, ExprArg *a) { return std::sin(a[0].value * kRadians); }
double cosRoutine(ExprCall &, int, ExprArg *a) { return std::cos(a[0].value * kRadians); }
double tanRoutine(ExprCall &, int, ExprArg *a) {
    // Odd multiples of 90 degrees have no tangent: 0 there.
    if (std::fabs(std::fmod(a[0].value, 180.0)) == 90.0) return 0.0;
    const double r = a[0].value * kRadians;
    return std::sin(r) / std::cos(r);
}
double asinRoutine(ExprCall &, int, ExprArg *a) {
    return a[0].value < -1.0 || a[0].value > 1.0 ? 0.0 : std::asin(a[0].value) / kRadians;
}
double acosRoutine(ExprCall &, int, ExprArg *a) {
    return a[0].value < -1.0 || a[0].value > 1.0 ? 0.0 : std::acos(a[0].value) / kRadians;
}
double atanRoutine(ExprCall &, int, ExprArg *a) { return std::atan(a[0].value) / kRadians; }
double logRoutine(ExprCall &c, int, ExprArg *a) {
    if (a[0].value <= kLogFloor) {
        *c.status = EXPR_STATUS_LOG;
        return 0.0;
    }
    return std::log(a[0].value);
}
double expRoutine(ExprCall &, int, ExprArg *a) { return std::exp(a[0].value); }
double absRoutine(ExprCall &, int, ExprArg *a) { return std::fabs(a[0].value); }
double sqrtRoutine(ExprCall &c, int, ExprArg *a) {
    if (a[0].value < 0.0) {
        *c.status = EXPR_STATUS_SQRT;
        return 0.0;
    }
    return std::sqrt(a[0].value);
}
double powRoutine(ExprCall &c, int, ExprArg *a) {
    const double x = a[0].value, y = a[1].value;
    if (x == 0.0 && y == 0.0) return 1.0;
    // A negative base with a broken exponent, or 0 to a negative power.
    if ((x < 0.0 && y != std::floor(y)) || (x == 0.0 && y < 0.0)) {
        *c.status = EXPR_STATUS_POW;
        return 0.0;
    }
    const double r = std::pow(x, y);
    if (!std::isfinite(r)) {
        *c.status = EXPR_STATUS_POW;
        return 0.0;
    }
    return r;
}
double minRoutine(ExprCall &, int n, ExprArg *a) {
    double m = FLT_MAX;
    for (int i = 0; i < n; ++i) m = a[i].value < m ? a[i].value : m;
    return m;
}
double maxRoutine(ExprCall &, int n, ExprArg *a) {
    double m = -FLT_MAX;
    for (int i = 0; i < n; ++i) m = a[i].value > m ? a[i].value : m;
    return m;
}
double avRoutine(ExprCall &, int n, ExprArg *a) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += a[i].value;
    return n > 0 ? sum / n : 0.0;
}
// Only the chosen branch is read.
double condRoutine(ExprCall &c, int n, ExprArg *a) {
    if (n < 3) return 0.0;
    return exprNodeNumber(c, exprToInt(a[0].value) ? a[1].node : a[2].node);
}

// The curve that animates a parameter reference, or null.
Fcurve *curveOf(ExprCall &c, const ExprNode *node) {
    if (!node || !node->ref || !c.scene->dict) return nullptr;
    const ExprParamRef &ref = *node->ref;
    Element *e = ref.chapter >= 0 && ref.element >= 0 ? elemGet(c.scene->dict, ref.chapter, ref.element) : nullptr;
    if (!e || !e->childGroups) return nullptr;
    for (int g = 0; g < e->childGroupCount; ++g)
        for (int i = 0; i < e->childGroups[g].count; ++i) {
            const RelationInst &r = e->childGroups[g].items[i];
            if (r.chp != CHP_ANIMATION) continue;
            Element *curve = elemGet(c.scene->dict, CHP_ANIMATION, r.elem);
            Fcurve *f = curve ? static_cast<Fcurve *>(curve->data) : nullptr;
            if (f && f->type == ref.curveType) return f;
        }
    return nullptr;
}

double curveAt(ExprCall &c, const ExprNode *node, float time) {
    if (Fcurve *f = curveOf(c, node)) return fcurveValue(f, time, 1);
    return node && node->ref ? exprParamValue(*node->ref, *c.scene) : 0.0;
}
double atTimeRoutine(ExprCall &c, int, ExprArg *a) { return curveAt(c, a[1].node, static_cast<float>(a[0].value)); }
double atFrameRoutine(ExprCall &c, int, ExprArg *a) {
    return curveAt(c, a[1].node, static_cast<float>(a[0].value / c.scene->frameRate));
}

// The element an argument names: a parameter reference's element, or a
// string holding the name.
Element *elementOf(ExprCall &c, const ExprNode *node, int *chapter) {
    Dictionary *dict = c.scene->dict;
    if (!node || !dict) return nullptr;
    if (node->ref && node->ref->chapter >= 0 && node->ref->element >= 0) {
        *chapter = node->ref->chapter;
        return elemGet(dict, node->ref->chapter, node->ref->element);
    }
    if (node->isLeaf && node->op == EXPR_LEAF_STRING)
        for (int ch : {CHP_MODELS, CHP_CAMERAS, CHP_LIGHTS}) {
            int index = elemFindByName(dict, ch, -1, nullptr, node->text.c_str(), -1, -1, 0);
            if (index >= 0) {
                *chapter = ch;
                return elemGet(dict, ch, index);
            }
        }
    return nullptr;
}

// The global centre of an element; false when it has none.
bool centreOf(ExprCall &c, const ExprNode *node, double p[3]) {
    int chapter = -1;
    Element *e = elementOf(c, node, &chapter);
    if (!e || !e->data) return false;
    const float *v = nullptr;
    if (chapter == CHP_MODELS) v = static_cast<Model *>(e->data)->globalMatrix[3];
    if (chapter == CHP_CAMERAS) v = static_cast<Camera *>(e->data)->position;
    if (chapter == CHP_LIGHTS) v = static_cast<Light *>(e->data)->position;
    if (!v) return false;
    for (int i = 0; i < 3; ++i) p[i] = v[i];
    return true;
}

double distance(const double a[3], const double b[3]) {
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

double ctrDistRoutine(ExprCall &c, int, ExprArg *a) {
    double p[3], q[3];
    return centreOf(c, a[0].node, p) && centreOf(c, a[1].node, q) ? distance(p, q) : 0.0;
}

// The scene's camera: the first of its chapter.
const Camera *sceneCamera(ExprCall &c) {
    Chapter *cameras = c.scene->dict ? dictChapter(c.scene->dict, CHP_CAMERAS) : nullptr;
    for (int i = 0; cameras && i < cameras->elementCount; ++i)
        if (cameras->elements[i].deleted == ELEM_LIVE && cameras->elements[i].data)
            return static_cast<const Camera *>(cameras->elements[i].data);
    return nullptr;
}
double cameraDistance(ExprCall &c, const ExprNode *node, bool interest) {
    double p[3], q[3];
    const Camera *camera = sceneCamera(c);
    if (!camera || !centreOf(c, node, p)) return 0.0;
    for (int i = 0; i < 3; ++i) q[i] = interest ? camera->interest[i] : camera->position[i];
    return distance(p, q);
}
double ctrDistCamRoutine(ExprCall &c, int, ExprArg *a) { return cameraDistance(c, a[0].node, false); }
double ctrDistCamIntRoutine(ExprCall &c, int, ExprArg *a) { return cameraDistance(c, a[0].node, true); }

double sinusRoutine(ExprCall &c, int n, ExprArg *a) {
    const double period = a[0].value, amplitude = a[1].value;
    const int32_t offset = n >= 3 ? exprToInt(a[2].value) : 0;
    if (period == 0.0) return 0.0;
    return amplitude * std::sin((static_cast<double>(c.frame) + offset) * 2.0 * kPi / period);
}

// From 0 to 1 over [start, end]: linear for interp 1, else the cubic with
// zero slopes at both ends.
double ramp(double frame, double start, double end, double interp) {
    if (frame <= start) return 0.0;
    if (frame >= end) return 1.0;
    const double t = (frame - start) / (end - start);
    return interp == 1.0 ? t : t * t * (3.0 - 2.0 * t);
}

double oscilRoutine(ExprCall &c, int, ExprArg *a) {
    const double sf = a[0].value, ef = a[1].value, frame = c.frame;
    if (ef <= sf || frame < sf || frame > ef) return 0.0;
    const double p = a[2].value + (a[3].value - a[2].value) * ramp(frame, sf, ef, a[4].value);
    const double amp = a[5].value + (a[6].value - a[5].value) * ramp(frame, sf, ef, a[7].value);
    if (p == 0.0) return 0.0;
    return amp * std::sin(frame * 2.0 * kPi / p);
}
double easeInRoutine(ExprCall &c, int, ExprArg *a) { return ramp(c.frame, a[0].value, a[1].value, a[2].value); }
double easeOutRoutine(ExprCall &c, int, ExprArg *a) { return 1.0 - ramp(c.frame, a[0].value, a[1].value, a[2].value); }
double noiseRoutine(ExprCall &, int, ExprArg *a) { return noise3(a[0].value, a[1].value, a[2].value); }
double fmodRoutine(ExprCall &, int, ExprArg *a) { return a[1].value == 0.0 ? 0.0 : std::fmod(a[0].value, a[1].value); }

// Pseudo-relations 20011 and on ask the element's kind; others look for the
// relation among the element's instances in the direction given.
double hasRelationRoutine(ExprCall &c, int, ExprArg *a) {
    int chapter = -1;
    Element *e = elementOf(c, a[0].node, &chapter);
    if (!e) return 0.0;
    const int32_t relid = exprToInt(a[1].value);
    const bool forward = exprToInt(a[2].value) != 0;
    static const int kKinds[] = {CHP_CAMERAS, CHP_LIGHTS, CHP_MATERIALS, CHP_TEXTURES2D, CHP_TEXTURES3D,
                                 CHP_WAVES, CHP_EXPRESSIONS, CHP_LATTICES};
    if (relid == 20011) return chapter == CHP_MODELS;
    if (relid == 20013) return chapter == CHP_ANIMATION && e->lev == 0 && e->data;
    if (relid >= 20014 && relid <= 20030) {
        size_t k = static_cast<size_t>(relid - 20014);
        return k < sizeof kKinds / sizeof kKinds[0] && chapter == kKinds[k];
    }
    const RelationGroup *groups = forward ? e->childGroups : e->parentGroups;
    const int count = forward ? e->childGroupCount : e->parentGroupCount;
    for (int g = 0; groups && g < count; ++g)
        for (int i = 0; i < groups[g].count; ++i) {
            const int32_t id = groups[g].items[i].relid;
            if (relid == 20012 ? id < 14999 : id == relid) return 1.0;
        }
    return 0.0;
}

struct FunctionRow {
    ExprFunctionInfo info;
    ExprRoutine routine;
    const char *args;  // description list: EXPR_ARG_* per place, the last repeating
};

#define FN(keyword, display, argTemplate, routine, count, args) \
    {{keyword, display, argTemplate, count}, routine, args}
const FunctionRow kFunctions[] = {
    FN("sin", "Sine", "( <degrees> )", sinRoutine, 1, "v"),
    FN("cos", "Cosine", "( <degrees> )", cosRoutine, 1, "v"),
    FN("tan", "Tangent", "( <degrees> )", tanRoutine, 1, "v"),
    FN("asin", "ArcSine", "( <val> )", asinRoutine, 1, "v"),
    FN("acos", "ArcCosine", "( <val> )", acosRoutine, 1, "v"),
    FN("atan", "ArcTangent", "( <val> )", atanRoutine, 1, "v"),
    FN("log", "Logarithm", "( <val> )", logRoutine, 1, "v"),
    FN("exp", "Exponential", "( <val> )", expRoutine, 1, "v"),
    FN("abs", "Absolute", "( <val> )", absRoutine, 1, "v"),
    FN("sqrt", "Square root", "( <val> )", sqrtRoutine, 1, "v"),
    FN("pow", "Power", "( <x> , <y> )", powRoutine, 2, "v"),
    FN("MIN", "Minimum value", "( <val1> , <val2> )", minRoutine, -1, "v"),
    FN("MAX", "Maximum value", "( <val1> , <val2> )", maxRoutine, -1, "v"),
    FN("av", "Average", "( <val1> , <val2> )", avRoutine, -1, "v"),
    FN("cond", "Condition", "( <cond> , <true_expr> , <false_expr> )", condRoutine, 3, "vnn"),
    FN("at_time", "Time Offset", "( <T-1.0> , <elm.fcv> )", atTimeRoutine, 2, "vn"),
    FN("at_frame", "Frame Offset", "( <Fc-30> , <elm.fcv> )", atFrameRoutine, 2, "vn"),
    FN("ctr_dist", "Center Distance", "( <elem1> , <elm2> )", ctrDistRoutine, 2, "nn"),
    FN("ctr_dist_cam", "Dist. to Camera", "( <elem1> )", ctrDistCamRoutine, 1, "n"),
    FN("ctr_dist_cam_int", "Dist. to Cam. Int.", "( <elem1> )", ctrDistCamIntRoutine, 1, "n"),
    FN("sinus", "Sinus", "( <period> , <amplitude>, [<offset>] )", sinusRoutine, 3, "v"),
    FN("oscil", "Oscillation", "(<sf>, <ef>, <sp>, <ep>, <interp>, <sa>, <ea>, <interp>)", oscilRoutine, 8, "v"),
    FN("ease_in", "Ease In", "( <start frame> , <end frame>, <interp> )", easeInRoutine, 3, "v"),
    FN("ease_out", "Ease Out", "( <start frame> , <end frame>, <interp> )", easeOutRoutine, 3, "v"),
    FN("noise", "Noise", "( <x>, <y>, <z> )", noiseRoutine, 3, "v"),
    FN("fmod", "Fmod", "( <val1>, <val2> )", fmodRoutine, 2, "v"),
    FN("has_relation", "Has Relation", "( <elem>, <relation name>, <direction> )", hasRelationRoutine, 3, "nvv"),
};
#undef FN
constexpr int kFunctionCount = sizeof kFunctions / sizeof kFunctions[0];
static_assert(kFunctionCount == 27);

constexpr int kNoiseSize = 65536;

}  // namespace

int exprFunctionCount() { return kFunctionCount; }

int exprFunctionFind(const char *keyword) {
    if (!keyword) return -1;
    for (int i = 0; i < kFunctionCount; ++i)
        if (strcmp(kFunctions[i].info.keyword, keyword) == 0) return i;
    return -1;
}

const ExprFunctionInfo *exprFunctionInfo(int number) {
    return number >= 0 && number < kFunctionCount ? &kFunctions[number].info : nullptr;
}

const char *exprFunctionArgs(int number) {
    return number >= 0 && number < kFunctionCount ? kFunctions[number].args : "";
}

ExprRoutine exprFunctionRoutine(int number) {
    return number >= 0 && number < kFunctionCount ? kFunctions[number].routine : nullptr;
}

bool exprFunctionCountOk(int number, int count) {
    const ExprFunctionInfo *info = exprFunctionInfo(number);
    if (!info) return false;
    if (info->count == -1) return true;
    // sinus stands with 3 in its row; its routine does without the offset.
    if (kFunctions[number].routine == sinusRoutine) return count == 2 || count == 3;
    return count == info->count;
}

double noise3(double x, double y, double z) {
    // The table of drand48 seeded with 1: state high words 1, low word 0x330E.
    static const float *table = [] {
        static float values[kNoiseSize];
        unsigned short state[3] = {0x330E, 1, 0};
        for (float &v : values) v = static_cast<float>(erand48(state));
        return values;
    }();
    const double p[3] = {x + 39999.5, y + 39999.5, z + 39999.5};
    int32_t cell[3];
    double w[3][3];
    for (int k = 0; k < 3; ++k) {
        const double fl = std::floor(p[k]);
        cell[k] = exprToInt(fl);
        const double f = p[k] - fl;
        w[k][2] = f * f / 2.0;
        w[k][0] = 0.5 - f + w[k][2];
        w[k][1] = 1.0 - w[k][0] - w[k][2];
    }
    const uint32_t h = static_cast<uint32_t>(cell[0]) * 1341u + static_cast<uint32_t>(cell[1]) * 719u +
                       static_cast<uint32_t>(cell[2]) * 2031u;
    double sum = 0.0;
    for (uint32_t a = 0; a < 3; ++a)
        for (uint32_t b = 0; b < 3; ++b)
            for (uint32_t c = 0; c < 3; ++c)
                sum += table[(h + a * 1341u + b * 719u + c * 2031u) & 0xFFFFu] * w[0][a] * w[1][b] * w[2][c];
    return sum;
}
