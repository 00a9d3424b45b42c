// Evaluation of an expression tree: leaves by kind, operators with integer
// to float promotion, string and enum comparisons, the short cuts of && and
// ||, and assignments into the target parameter or channel.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "expr_internal.h"
#include "model.h"
#include "tol_status.h"

namespace {

ExprValue floatValue(double v) { return ExprValue{EXPR_RESULT_FLOAT, 0, 0, v, nullptr}; }
ExprValue intValue(int32_t v) { return ExprValue{EXPR_RESULT_INT, v, 0, 0.0, nullptr}; }

// Component and kind of a model transform parameter by its curve type.
enum TransformKind { TK_NONE, TK_SCALING, TK_ROTATION, TK_TRANSLATION };
TransformKind transformKind(int32_t type, int *component) {
    if (type >= 1 && type <= 3) return *component = type - 1, TK_SCALING;
    if (type >= 4 && type <= 6) return *component = type - 4, TK_ROTATION;
    if (type >= 139 && type <= 141) return *component = type - 139, TK_TRANSLATION;
    *component = 0;
    return TK_NONE;
}

// Scaling, rotation (radians) and translation of a global matrix.
void globalParts(const Model *m, float scaling[3], float angles[3], float translation[3]) {
    float rotation[4][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 1}};
    for (int i = 0; i < 3; ++i) {
        const float *row = m->globalMatrix[i];
        double s = std::sqrt(double(row[0]) * row[0] + double(row[1]) * row[1] + double(row[2]) * row[2]);
        scaling[i] = static_cast<float>(s);
        for (int k = 0; k < 3; ++k) rotation[i][k] = s > 1e-12 ? static_cast<float>(row[k] / s) : 0.0f;
        translation[i] = m->globalMatrix[3][i];
    }
    matrixToEuler(rotation, m->rotation, angles);
}

double globalValue(const ExprParamRef &ref, const Model *m) {
    float s[3], r[3], t[3];
    globalParts(m, s, r, t);
    int c = 0;
    switch (transformKind(ref.curveType, &c)) {
    case TK_SCALING: return s[c];
    case TK_ROTATION: return r[c] / DEG_TO_RAD;
    case TK_TRANSLATION: return t[c];
    case TK_NONE: break;
    }
    return 0.0;
}

void globalSet(const ExprParamRef &ref, Model *m, double value) {
    float s[3], r[3], t[3];
    globalParts(m, s, r, t);
    int c = 0;
    switch (transformKind(ref.curveType, &c)) {
    case TK_SCALING:
        s[c] = static_cast<float>(value);
        modelSetLocalScaling(m, s);
        break;
    case TK_ROTATION: {
        r[c] = static_cast<float>(value * DEG_TO_RAD);
        float matrix[4][4];
        eulerToMatrix(r, matrix);
        modelSetLocalRotation(m, matrix);
        break;
    }
    case TK_TRANSLATION:
        t[c] = static_cast<float>(value);
        modelSetLocalPosition(m, t);
        break;
    case TK_NONE: break;
    }
}

void paramStore(const ExprParamRef &ref, const ExprEvalScene &scene, double value) {
    void *data = exprRefData(ref, scene);
    if (!data || ref.param < 0) return;
    if (ref.axis == 'G' && ref.chapter == CHP_MODELS)
        globalSet(ref, static_cast<Model *>(data), value);
    else
        paramSet(ref.param, data, static_cast<float>(value));
}

// A channel read or written before the channels library has installed its
// hooks reads 0; said once per process.
void channelsMissing(const ExprChannelRef &chan) {
    static bool said = false;
    if (said) return;
    said = true;
    msgShowf(TOL_CLASS_WARNING, "No channels in this process: CHN %s.%s reads 0", chan.driverName.c_str(),
             chan.dofName.c_str());
}

double channelRead(const ExprChannelRef &chan, float time) {
    if (!g_evalHooks.channelDofRead || chan.driver < 0) {
        channelsMissing(chan);
        return 0.0;
    }
    return g_evalHooks.channelDofRead(chan.driver, chan.dof, time);
}

double randomDraw(const ExprRandom &r) {
    double unit = static_cast<double>(rand()) / RAND_MAX;
    if (!r.isInt) return r.lower + r.width * unit;
    double v = r.lower + std::floor(unit * (r.width + 1));
    return v > r.lower + r.width ? r.lower + r.width : v;
}

ExprValue randomValue(const ExprRandom &r, std::vector<std::vector<double>> *tables, int32_t frameIndex) {
    double v;
    if (tables && r.slot >= 0 && static_cast<size_t>(r.slot) < tables->size() &&
        !(*tables)[static_cast<size_t>(r.slot)].empty()) {
        const std::vector<double> &t = (*tables)[static_cast<size_t>(r.slot)];
        int32_t i = frameIndex < 0 ? 0 : frameIndex;
        if (static_cast<size_t>(i) >= t.size()) i = static_cast<int32_t>(t.size()) - 1;
        v = t[static_cast<size_t>(i)];
    } else {
        v = randomDraw(r);
    }
    return r.isInt ? intValue(exprToInt(v)) : floatValue(v);
}

// Argument frames of calls, one per depth of nesting: a frame is only
// reallocated by a call at its own depth, so outer calls keep their records.
struct ArgFrames {
    std::vector<std::unique_ptr<ExprArg[]>> frames;
    std::vector<int> sizes;
    int depth = 0;
    ExprArg *take(int count) {
        if (static_cast<size_t>(depth) >= frames.size()) {
            frames.emplace_back();
            sizes.push_back(0);
        }
        if (sizes[static_cast<size_t>(depth)] < count) {
            int size = count < 8 ? 8 : count;
            frames[static_cast<size_t>(depth)].reset(new ExprArg[static_cast<size_t>(size)]);
            sizes[static_cast<size_t>(depth)] = size;
        }
        return frames[static_cast<size_t>(depth++)].get();
    }
    void give() { --depth; }
};
thread_local ArgFrames t_args;

void eval(ExprCall &c, const ExprNode *n, ExprValue *out);

ExprValue callFunction(ExprCall &c, const ExprNode *n) {
    const int count = static_cast<int>(n->args.size());
    ExprRoutine routine = exprFunctionRoutine(n->ival);
    if (!routine) return floatValue(0.0);
    const char *kinds = exprFunctionArgs(n->ival);
    const size_t kindCount = strlen(kinds);
    ExprArg *args = t_args.take(count);
    for (int i = 0; i < count; ++i) {
        char kind = kindCount == 0 ? EXPR_ARG_VALUE
                                   : kinds[static_cast<size_t>(i) < kindCount ? static_cast<size_t>(i) : kindCount - 1];
        args[i].node = n->args[static_cast<size_t>(i)];
        args[i].value = 0.0;
        if (kind == EXPR_ARG_VALUE) {
            ExprValue v;
            eval(c, args[i].node, &v);
            args[i].value = exprNumber(v);
        }
    }
    double result = routine(c, count, args);
    t_args.give();
    return floatValue(result);
}

void evalLeaf(ExprCall &c, const ExprNode *n, ExprValue *out) {
    switch (n->op) {
    case EXPR_LEAF_INT: *out = intValue(n->ival); return;
    case EXPR_LEAF_REAL:
    case EXPR_LEAF_PI:
    case EXPR_LEAF_E: *out = floatValue(n->rval); return;
    case EXPR_LEAF_STRING: *out = ExprValue{EXPR_RESULT_STRING, 0, 0, 0.0, n->text.c_str()}; return;
    case EXPR_LEAF_ENUM: *out = ExprValue{EXPR_RESULT_ENUM, n->ival, n->ival2, 0.0, nullptr}; return;
    case EXPR_LEAF_FRAME_START: *out = intValue(c.scene->startFrame); return;
    case EXPR_LEAF_FRAME_END: *out = intValue(c.scene->endFrame); return;
    case EXPR_LEAF_FRAME_CURRENT: *out = intValue(c.frame); return;
    case EXPR_LEAF_TIME: *out = floatValue(c.time); return;
    case EXPR_LEAF_RANDOM: *out = randomValue(*n->random, c.tables, c.frameIndex); return;
    case EXPR_LEAF_PARAM:
    case EXPR_LEAF_CUSTOM_PARAM: *out = floatValue(exprParamValue(*n->ref, *c.scene)); return;
    case EXPR_LEAF_FUNCTION: *out = callFunction(c, n); return;
    case EXPR_LEAF_VARIABLE: {
        const Expression *v = n->variable;
        const ExprNode *body = v && v->root ? (v->bodyOnly ? v->root : v->root->right) : nullptr;
        if (!body) {
            *out = floatValue(0.0);
            return;
        }
        eval(c, body, out);
        return;
    }
    case EXPR_LEAF_RESERVED:
        printf("Not yet implemented...\n");
        *out = floatValue(0.0);
        return;
    case EXPR_LEAF_CHANNEL: *out = floatValue(channelRead(*n->chan, c.time)); return;
    case EXPR_LEAF_TRUE: *out = intValue(1); return;
    case EXPR_LEAF_FALSE: *out = intValue(0); return;
    case EXPR_LEAF_LINEAR_INTERP: *out = intValue(1); return;
    case EXPR_LEAF_SPLINE_INTERP: *out = intValue(2); return;
    case EXPR_LEAF_RELID: *out = intValue(n->ival); return;
    case EXPR_LEAF_FORWARD: *out = intValue(1); return;
    case EXPR_LEAF_BACKWARD: *out = intValue(0); return;
    }
    printf("Unknown object type...\n");
    *out = floatValue(0.0);
}

bool enumEqual(const ExprValue &a, const ExprValue &b) {
    if (a.ival == b.ival && a.ival2 == b.ival2) return true;
    return (a.ival == -1 && a.ival2 == -1) || (b.ival == -1 && b.ival2 == -1);
}

bool isComparison(int op) { return op == EXPR_OP_LIKE || (op >= EXPR_OP_EQ && op <= EXPR_OP_GE); }

bool ordered(int op, int order) {
    switch (op) {
    case EXPR_OP_EQ: return order == 0;
    case EXPR_OP_NE: return order != 0;
    case EXPR_OP_LT: return order < 0;
    case EXPR_OP_LE: return order <= 0;
    case EXPR_OP_GT: return order > 0;
    case EXPR_OP_GE: return order >= 0;
    }
    return false;
}

// Strings and enums: both sides must have the same tag, else the left
// value comes back.
void evalWords(int op, const ExprValue &l, const ExprValue &r, ExprValue *out) {
    if (l.tag != r.tag) {
        *out = l;
        return;
    }
    if (l.tag == EXPR_RESULT_ENUM) {
        bool equal = enumEqual(l, r);
        *out = floatValue((op == EXPR_OP_NE ? !equal : equal) ? 1.0 : 0.0);
        return;
    }
    if (op == EXPR_OP_LIKE) {
        *out = floatValue(l.sval && r.sval && strstr(l.sval, r.sval) ? 1.0 : 0.0);
        return;
    }
    if (!isComparison(op)) {
        *out = l;
        return;
    }
    int order = !l.sval ? (r.sval ? -1 : 0) : !r.sval ? 1 : strcmp(l.sval, r.sval);
    *out = floatValue(ordered(op, order) ? 1.0 : 0.0);
}

void evalNumbers(ExprCall &c, int op, const ExprValue &l, const ExprValue &r, ExprValue *out) {
    const double a = exprNumber(l), b = exprNumber(r);
    switch (op) {
    case EXPR_OP_ADD: *out = floatValue(a + b); return;
    case EXPR_OP_SUB: *out = floatValue(a - b); return;
    case EXPR_OP_MUL: *out = floatValue(a * b); return;
    case EXPR_OP_DIV:
        if (b == 0.0) {
            *out = l;
            *c.status = EXPR_STATUS_DIVIDE;
            return;
        }
        *out = floatValue(a / b);
        return;
    case EXPR_OP_MODULO: {
        const int32_t ia = exprToInt(a), ib = exprToInt(b);
        if (ib == 0) {
            *out = l;
            *c.status = EXPR_STATUS_DIVIDE;
            return;
        }
        *out = intValue(ib == -1 ? 0 : ia % ib);
        return;
    }
    case EXPR_OP_NEGATE: *out = floatValue(-b); return;
    case EXPR_OP_NOT: *out = floatValue(b == 0.0 ? 1.0 : 0.0); return;
    case EXPR_OP_EQ: *out = floatValue(a == b); return;
    case EXPR_OP_NE: *out = floatValue(a != b); return;
    case EXPR_OP_LT: *out = floatValue(a < b); return;
    case EXPR_OP_LE: *out = floatValue(a <= b); return;
    case EXPR_OP_GT: *out = floatValue(a > b); return;
    case EXPR_OP_GE: *out = floatValue(a >= b); return;
    case EXPR_OP_AND: *out = floatValue(a != 0.0 && b != 0.0); return;
    case EXPR_OP_OR: *out = floatValue(a != 0.0 || b != 0.0); return;
    }
    printf("Unknown oper...\n");
    *out = l;
}

// The present value of an assignment's target.
double targetValue(ExprCall &c, const ExprNode *target) {
    if (!target) return 0.0;
    if (target->op == EXPR_LEAF_CHANNEL) return channelRead(*target->chan, c.time);
    if (target->ref) return exprParamValue(*target->ref, *c.scene);
    return 0.0;
}

void assign(ExprCall &c, const ExprNode *n, ExprValue *out) {
    const ExprNode *target = n->left;
    if (!n->right) {
        *out = floatValue(0.0);
        return;
    }
    ExprValue r;
    eval(c, n->right, &r);
    if (r.tag != EXPR_RESULT_FLOAT && r.tag != EXPR_RESULT_INT) {
        *out = r;
        return;
    }
    double value = exprNumber(r);
    if (n->op != EXPR_OP_ASSIGN) {
        const double present = targetValue(c, target);
        switch (n->op) {
        case EXPR_OP_ASSIGN_ADD: value = present + value; break;
        case EXPR_OP_ASSIGN_SUB: value = present - value; break;
        case EXPR_OP_ASSIGN_MUL: value = present * value; break;
        case EXPR_OP_ASSIGN_DIV:
            if (value == 0.0) {
                *c.status = EXPR_STATUS_DIVIDE;
                value = present;
            } else {
                value = present / value;
            }
            break;
        }
    }
    *out = floatValue(value);
    if (!target) return;
    if (target->op == EXPR_LEAF_CHANNEL) {
        if (g_evalHooks.channelDofWrite && target->chan->driver >= 0)
            g_evalHooks.channelDofWrite(target->chan->driver, target->chan->dof, static_cast<float>(value));
        else
            channelsMissing(*target->chan);
    } else if (target->ref) {
        paramStore(*target->ref, *c.scene, value);
    }
}

void eval(ExprCall &c, const ExprNode *n, ExprValue *out) {
    if (!n) {
        *out = floatValue(0.0);
        return;
    }
    if (n->isLeaf) {
        evalLeaf(c, n, out);
        return;
    }
    const int op = n->op;
    if (op >= EXPR_OP_ASSIGN && op <= EXPR_OP_ASSIGN_DIV) {
        assign(c, n, out);
        return;
    }
    ExprValue l{EXPR_RESULT_FLOAT, 0, 0, 0.0, nullptr};
    if (n->left) eval(c, n->left, &l);
    if (op == EXPR_OP_AND && exprNumber(l) == 0.0 && l.tag != EXPR_RESULT_STRING && l.tag != EXPR_RESULT_ENUM) {
        *out = floatValue(0.0);
        return;
    }
    if (op == EXPR_OP_OR && exprNumber(l) != 0.0) {
        *out = floatValue(1.0);
        return;
    }
    ExprValue r;
    eval(c, n->right, &r);
    const bool words = (n->left && (l.tag == EXPR_RESULT_STRING || l.tag == EXPR_RESULT_ENUM)) ||
                       r.tag == EXPR_RESULT_STRING || r.tag == EXPR_RESULT_ENUM;
    if (words) {
        evalWords(op, n->left ? l : r, r, out);
        return;
    }
    if (op == EXPR_OP_LIKE) {
        printf("Unknown oper...\n");
        *out = l;
        return;
    }
    evalNumbers(c, op, l, r, out);
}

}  // namespace

int32_t exprToInt(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return 2147483647;
    if (v <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int32_t>(v);
}

double exprNumber(const ExprValue &v) {
    if (v.tag == EXPR_RESULT_FLOAT) return v.fval;
    if (v.tag == EXPR_RESULT_INT) return v.ival;
    return 0.0;
}

const char *exprStatusMessage(int status) {
    switch (status) {
#define X(code, text) \
    case code: return text;
        EXPR_STATUSES
#undef X
    }
    return "";
}

void *exprRefData(const ExprParamRef &ref, const ExprEvalScene &scene) {
    if (!scene.dict || ref.chapter < 0 || ref.element < 0) return nullptr;
    Element *e = elemGet(scene.dict, ref.chapter, ref.element);
    return e && e->deleted == ELEM_LIVE ? e->data : nullptr;
}

double exprParamValue(const ExprParamRef &ref, const ExprEvalScene &scene) {
    void *data = exprRefData(ref, scene);
    if (!data || ref.param < 0) return 0.0;
    if (ref.axis == 'G' && ref.chapter == CHP_MODELS) return globalValue(ref, static_cast<Model *>(data));
    return paramGet(ref.param, data);
}

double exprNodeNumber(ExprCall &call, const ExprNode *node) {
    ExprValue v;
    eval(call, node, &v);
    return exprNumber(v);
}

ExprEvalScene exprEvalSceneOf(Dictionary *dict) {
    const TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
    return ExprEvalScene{dict, play.startFrame, play.endFrame,
                         play.framesPerSecond > 0 ? play.framesPerSecond : 30.0f};
}

void expressionEval(Expression *expression, const ExprNode *node, ExprValue *out,
                    std::vector<std::vector<double>> *randomTables, int32_t frameIndex,
                    int32_t frame, float time, int *status, const ExprEvalScene &scene) {
    ExprCall c{expression, randomTables, frameIndex, frame, time, status, &scene};
    eval(c, node, out);
}

void expressionRandomTables(Expression *expression, int32_t start, int32_t frames) {
    if (!expression) return;
    if (frames < 1) frames = 1;
    expression->tables.assign(expression->randoms.size(), std::vector<double>());
    for (size_t slot = 0; slot < expression->randoms.size(); ++slot) {
        const ExprRandom &r = *expression->randoms[slot]->random;
        srand(static_cast<unsigned>(r.seed));
        std::vector<double> &t = expression->tables[slot];
        t.reserve(static_cast<size_t>(frames));
        for (int32_t f = 0; f < frames; ++f) t.push_back(randomDraw(r));
    }
    expression->tableStart = start;
    expression->tableFrames = frames;
}

ExprValue expressionRun(Expression *expression, const ExprEvalScene &scene, float time, int *status) {
    *status = 0;
    ExprValue out = floatValue(0.0);
    if (!expression || !expression->compiled || !expression->root) return out;
    const int32_t frames = scene.endFrame - scene.startFrame + 1;
    if (!expression->randoms.empty() &&
        (expression->tableFrames < frames || expression->tableStart != scene.startFrame))
        expressionRandomTables(expression, scene.startFrame, frames);
    // Frame of the time, rounded half away from zero.
    const int32_t frame = static_cast<int32_t>(std::lround(static_cast<double>(time) * scene.frameRate));
    const ExprNode *node = expression->root;
    expressionEval(expression, node, &out, &expression->tables, frame - scene.startFrame, frame, time,
                   status, scene);
    return out;
}
