// The walk of an update list at a time: whether a record runs, at which
// time, and the scene update around the walk.
#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "model.h"
#include "updatelist_internal.h"
#include "bw_env.h"

EvalHooks g_evalHooks = {};
int g_updateMode = UPDATE_ALL;

WalkState &walkState() {
    thread_local WalkState state = {nullptr, nullptr, 0};
    return state;
}

// ---------------------------------------------------------------------------
// Environment switches

namespace {

// -1: not read yet. The update and draw threads may ask first at the same time.
std::atomic<int> s_manipulation{-1};
std::atomic<int> s_untold{-1};
std::atomic<int> s_envelope{-1};
std::atomic<int> s_classicalFix{-1};

int presence(std::atomic<int> &cached, EnvVar variable) {
    int value = cached.load(std::memory_order_relaxed);
    if (value < 0) {
        value = envIsSet(variable);
        cached.store(value, std::memory_order_relaxed);
    }
    return value;
}

}  // namespace

int evalManipulationOptim() { return presence(s_manipulation, ENV_BW_MANIPULATION_OPTIM); }
int evalUntoldRelOptim() { return !presence(s_untold, ENV_BW_NO_OPTIM_UNTOLD_REL); }
int evalEnvelopeDeferral() { return !presence(s_envelope, ENV_BW_NO_ENVELOP_OPTIM); }
int evalClassicalScalingFix() { return presence(s_classicalFix, ENV_BW_CLASSICAL_SCL_FIX); }

void evalFlagsReset() {
    s_manipulation = -1;
    s_untold = -1;
    s_envelope = -1;
    s_classicalFix = -1;
    fcurveIntegerVisibility = -1;
    envReset();
}

// ---------------------------------------------------------------------------
// Whether a record runs

namespace {

bool isVisibilityRelation(int32_t relation) {
    return relation == 10 || relation == 12 || relation == 1100 || relation == 2100;
}

// An expression that sets a visibility curve must run on hidden items, or
// they would never show again.
bool setsVisibility(const UpdateRecord *r) {
    if (r->relation != REL_EXPRESSION || !g_evalHooks.expressionTarget) return false;
    int32_t type = g_evalHooks.expressionTarget(r, 0);
    switch (r->chapter) {
        case CHP_MODELS: return type == 175 || type == 273;
        case CHP_LIGHTS: return type == 176;
        case CHP_CAMERAS: return type == 177;
        default: return false;
    }
}

// A hidden model whose results nobody reads: nothing but its parent link
// (and, for an envelope record, the envelope) stands in its forward groups.
bool unread(const UpdateRecord *r) {
    if (r->chapter != CHP_MODELS || !r->data) return false;
    if (r->relation == REL_EXPRESSION || r->relation == 10 || r->relation == 12) return false;
    const Model *m = static_cast<const Model *>(r->data);
    if (m->visible) return false;
    if (m->kind != MODEL_KIND_NONE && m->kind != MODEL_KIND_DYNAMIC) return false;  // chain part
    switch (m->type) {
        case MODEL_TYPE_JOINT: case 4: case 9: case 10: case 11: return false;
        default: break;
    }
    Dictionary *dict = walkState().dict;
    Element *e = dict ? elemGet(dict, CHP_MODELS, r->element) : nullptr;
    if (!e || !e->childGroups) return false;
    for (int g = 0; g < e->childGroupCount; ++g) {
        const RelationGroup &grp = e->childGroups[g];
        for (int i = 0; i < grp.count; ++i) {
            int32_t id = grp.items[i].relid;
            if (g == RELGR_TRANSFO && id == REL_PARENT) continue;
            if (id == 207 && r->relation == 207) continue;
            return false;
        }
    }
    return true;
}

// Relations whose handlers weigh each source's activation themselves.
bool activationPerSource(int32_t relation) {
    switch (relation) {
        case 1111: case 1116: case 2111: case 2116: case REL_EXPRESSION: case 102: case 103:
        case 111: case 114: case 115: case 116: case 117: case 118: case 126:
            return true;
        default:
            return false;
    }
}

}  // namespace

int updatelistRecordNeeded(UpdateRecord *record, float time, float *effectiveTime) {
    *effectiveTime = time;
    if (g_updateMode != UPDATE_ALL && g_evalHooks.displayItem) {
        uint32_t item = g_evalHooks.displayItem(record);
        if (item & DISPLAY_ITEM_PRESENT) {
            if (g_updateMode == UPDATE_SELECTED &&
                !(item & (DISPLAY_ITEM_SELECTED | DISPLAY_ITEM_HIGHLIGHTED)))
                return 0;
            if (g_updateMode == UPDATE_VISIBLE && (item & DISPLAY_ITEM_HIDDEN) &&
                !isVisibilityRelation(record->relation) && !setsVisibility(record))
                return 0;
        }
    }
    if (evalUntoldRelOptim() && unread(record)) return 0;
    if (!record->active) return 0;
    if (activationPerSource(record->relation)) return 1;
    int inactive = 0;
    for (int i = 0; i < record->sourceCount; ++i) {
        const UpdateSource &s = record->sources[i];
        if (!s.active) {
            ++inactive;
        } else if (s.fcurve && fcurveStepValue(s.fcurve, time, 0, 1) <= 0) {
            // Switched off: the relation holds the pose of the moment it went off.
            float frozen = time;
            fcurveFreezeTime(s.fcurve, time, &frozen);
            if (frozen < *effectiveTime) *effectiveTime = frozen;
        }
    }
    if (inactive == 0) return 1;
    if (inactive == record->sourceCount) return 0;
    intptr_t foSum = record->foSum;
    return inactive < foSum ? 1 : 0;
}

void updatelistEvalRecord(UpdateRecord *record, float time, int *flags) {
    if (!record->handler) return;
    float at;
    if (!updatelistRecordNeeded(record, time, &at)) return;
    record->handler(record, at, flags);
}

namespace {

// The records of a big scene, their sources and curves are far more than the
// caches hold, and every pointer of the walk leads somewhere new. The walk
// fetches ahead in three steps, each reading only what the step before
// brought in: the record's sources, data and extra, then the curves they name,
// then their end keys and the keys around each curve's last position.
constexpr int32_t AHEAD_SOURCES = 8;
constexpr int32_t AHEAD_CURVES = 4;
constexpr int32_t AHEAD_KEYS = 2;

// The transform part of a model: the fields a hierarchy step reads and writes.
void fetchTransfo(const Model *m) {
    const char *from = reinterpret_cast<const char *>(m);
    for (size_t at = 0; at < offsetof(Model, relativeMatrix); at += 64) __builtin_prefetch(from + at);
}

void fetchSources(const UpdateRecord &r) {
    __builtin_prefetch(r.sources);
    __builtin_prefetch(r.extra);
    // Only the hierarchy step goes through a model's whole transform.
    if (r.relation == REL_HIERARCHY_STEP && r.data)
        fetchTransfo(static_cast<const Model *>(r.data));
    else
        __builtin_prefetch(r.data);
}

void fetchCurves(const UpdateRecord &r) {
    for (int s = 0; s < r.sourceCount; ++s)
        if (r.sources[s].chapter == CHP_ANIMATION) __builtin_prefetch(r.sources[s].data);
}

void fetchKeys(const UpdateRecord &r) {
    for (int s = 0; s < r.sourceCount; ++s) {
        const Fcurve *c = static_cast<const Fcurve *>(r.sources[s].data);
        if (r.sources[s].chapter != CHP_ANIMATION || !c || !c->keys || c->keyCount <= 0) continue;
        // The first and last keys bound the curve; the search starts at the last key found.
        int32_t k = c->currentKey >= 0 && c->currentKey < c->keyCount ? c->currentKey : 0;
        __builtin_prefetch(c->keys);
        __builtin_prefetch(c->keys + c->keyCount - 1);
        __builtin_prefetch(c->keys + k);
        __builtin_prefetch(c->keys + k + 1);
    }
}

}  // namespace

void updatelistEval(Dictionary *dict, UpdateList *list, float time) {
    if (!list) return;
    WalkState &walk = walkState();
    WalkState saved = walk;
    walk.dict = dict;
    walk.list = list;
    walk.deferred = evalEnvelopeDeferral();
    // The helpers of interactive tools belong to editing; the viewer has none.
    int flags = 0;
    UpdateRecord *records = list->records;
    const int32_t count = list->count;
    for (int32_t i = 0; i < count; ++i) {
        if (i + AHEAD_SOURCES < count) fetchSources(records[i + AHEAD_SOURCES]);
        if (i + AHEAD_CURVES < count) fetchCurves(records[i + AHEAD_CURVES]);
        if (i + AHEAD_KEYS < count) fetchKeys(records[i + AHEAD_KEYS]);
        updatelistEvalRecord(&records[i], time, &flags);
    }
    // Rigid bodies and dynamics are evaluated by their own modules, which
    // this viewer does not carry: the after-pass has nothing to do. The
    // deformers keep this walk's pose for the next one's comparison.
    if (walk.deferred) envelopeWalkEnd(dict);
    walk = saved;
}

void updatelistSceneUpdate(Dictionary *dict, float time) {
    if (!dict) return;
    if (Chapter *models = dictChapter(dict, CHP_MODELS))
        for (int i = 0; i < models->elementCount; ++i) {
            Element &e = models->elements[i];
            Model *m = static_cast<Model *>(e.data);
            if (e.deleted == ELEM_LIVE && m && !m->parent) modelGlobalUpdate(nullptr, m, 1);
        }
    updatelistEval(dict, &dict->update, time);
}
