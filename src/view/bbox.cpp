// Boxes of models: the local box of each geometry type, the world boxes of the
// hierarchy that culling prunes with, and the scene box of the layer.
#include <cfloat>
#include <cmath>
#include <cstring>
#include <deque>
#include <vector>

#include "dictionary.h"
#include "geometry.h"
#include "model.h"
#include "view_internal.h"

namespace {

// ---------------------------------------------------------------------------
// Local boxes by type

// Control points are points with a weight: the weight does not move them, and
// the curve or surface stays within their hull.
struct BoxAcc {
    float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX};
    float hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    int points = 0;
    void add(double x, double y, double z) {
        const double p[3] = {x, y, z};
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::fmin(lo[k], static_cast<float>(p[k]));
            hi[k] = std::fmax(hi[k], static_cast<float>(p[k]));
        }
        ++points;
    }
};

void boxSpline(const Spline &s, BoxAcc &box) {
    for (int i = 0; s.vertices && i < s.vertexCount; ++i)
        box.add(s.vertices[i].pos[0], s.vertices[i].pos[1], s.vertices[i].pos[2]);
}

void boxCurve(const NurbsCurve &c, BoxAcc &box) {
    for (int i = 0; c.cvs && i < c.cvCount; ++i)
        box.add(c.cvs[i][0], c.cvs[i][1], c.cvs[i][2]);
}

void boxNone(const Model *, BoxAcc &) {}

void boxPatch(const Model *m, BoxAcc &box) {
    const Patch *p = m->geometry.patch;
    int n = p->cvs ? p->uCount * p->vCount : 0;
    for (int i = 0; i < n; ++i) box.add(p->cvs[i][0], p->cvs[i][1], p->cvs[i][2]);
}

void boxFace(const Model *m, BoxAcc &box) {
    const Face *f = m->geometry.face;
    boxSpline(f->boundary, box);
    for (int i = 0; i < f->holeCount; ++i) {
        if (f->isSpline && f->holes) boxSpline(f->holes[i], box);
        else if (!f->isSpline && f->curveHoles) boxCurve(f->curveHoles[i], box);
    }
}

void boxMesh(const Model *m, BoxAcc &box) {
    const Mesh *mesh = m->geometry.mesh;
    for (int i = 0; mesh->vertices && i < mesh->vertexCount; ++i)
        box.add(mesh->vertices[i].pos[0], mesh->vertices[i].pos[1], mesh->vertices[i].pos[2]);
}

void boxSplineModel(const Model *m, BoxAcc &box) { boxSpline(*m->geometry.spline, box); }

// A polygonised model has points only once its generator ran: its tessellation.
void boxTessellated(const Model *m, BoxAcc &box) {
    for (int i = 0; m->vertices && i < m->vertexCount; ++i)
        box.add(m->vertices[i].pos[0], m->vertices[i].pos[1], m->vertices[i].pos[2]);
}

void boxNurbsCurve(const Model *m, BoxAcc &box) { boxCurve(*m->geometry.curve, box); }

void boxNurbsSurface(const Model *m, BoxAcc &box) {
    const NurbsSurface *s = m->geometry.surface;
    int n = s->cvs ? s->cvCount[0] * s->cvCount[1] : 0;
    for (int i = 0; i < n; ++i) box.add(s->cvs[i][0], s->cvs[i][1], s->cvs[i][2]);
}

using BoxFn = void (*)(const Model *, BoxAcc &);
// By model type 0 to 10; a reference (8) has no points of its own.
const BoxFn boxByType[MODEL_TYPE_END] = {
    boxNone, boxPatch, boxFace, boxNone, boxMesh, boxNone,
    boxSplineModel, boxTessellated, boxNone, boxNurbsCurve, boxNurbsSurface,
};

// ---------------------------------------------------------------------------
// Records of each dictionary, by models entry.

std::deque<ViewScene> scenes;

std::vector<ViewModelRecord> &recordsOf(const Dictionary *dict) { return viewSceneOf(dict).models; }

ViewModelRecord *recordOf(std::vector<ViewModelRecord> &records, const Model *m) {
    if (m->elementIndex < 0 || static_cast<size_t>(m->elementIndex) >= records.size()) return nullptr;
    return &records[static_cast<size_t>(m->elementIndex)];
}

// How a model stands to its drivers.
enum Motion { STATIC, CHANGING, MOVING };

// A model moves when something drives its transform; it changes (keeps its
// place, loses its box) when something else drives it. The parent link and
// the custom relation 20002 do neither, nor do materials and textures, which
// change no point. Virtual relations (negative ids) only order the update.
Motion modelMotion(const Element *e, int32_t index) {
    if (g_evalHooks.channelConnected && g_evalHooks.channelConnected(CHP_MODELS, index)) return MOVING;
    Motion motion = STATIC;
    for (int g = 0; g < e->childGroupCount; ++g) {
        const RelationGroup &group = e->childGroups[g];
        for (int k = 0; k < group.count; ++k) {
            int32_t relid = group.items[k].relid;
            if (relid < 0 || g == RELGR_RENDER) continue;
            if (g == RELGR_TRANSFO && relid == REL_PARENT) continue;
            if (g == RELGR_OTHER && relid == 20002) continue;
            if (g == RELGR_TRANSFO) return MOVING;
            motion = CHANGING;
        }
    }
    return motion;
}

void ownBox(const Dictionary *dict, Model *m, ViewModelRecord &r, int parentAnimated) {
    BoundsRecord &b = r.bounds;
    memset(&b, 0, sizeof b);
    r.hasBounds = 1;
    r.boxSource = m->geometry.any;
    if (parentAnimated) {
        b.animated = 1;
        return;
    }
    const Element *e = elemGet(const_cast<Dictionary *>(dict), CHP_MODELS, m->elementIndex);
    Motion motion = e ? modelMotion(e, m->elementIndex) : CHANGING;
    // References and instances would need their master's box.
    if (m->type == MODEL_REF || m->kind == MODEL_KIND_INSTANCE) motion = MOVING;
    if (motion == MOVING) b.animated = 1;
    if (motion != STATIC) return;
    float lo[3], hi[3];
    if (!modelLocalBox(m, lo, hi)) {
        b.ownState = BOUNDS_EMPTY;
        return;
    }
    b.ownState = BOUNDS_VALID;
    boxCorners(lo, hi, m->globalMatrix, b.own);
}

void topDown(const Dictionary *dict, std::vector<ViewModelRecord> &records, Model *m,
             int parentAnimated) {
    ViewModelRecord *r = recordOf(records, m);
    int animated = parentAnimated;
    if (r) {
        ownBox(dict, m, *r, parentAnimated);
        animated = r->bounds.animated;
    }
    for (Model *c = m->firstChild; c; c = c->nextSibling) topDown(dict, records, c, animated);
}

// The axis-aligned box around a set of corner sets.
void cornersAround(const std::vector<const float (*)[3]> &sets, float out[8][3]) {
    float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX}, hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    for (const float (*set)[3] : sets)
        for (int i = 0; i < 8; ++i)
            for (int k = 0; k < 3; ++k) {
                lo[k] = std::fmin(lo[k], set[i][k]);
                hi[k] = std::fmax(hi[k], set[i][k]);
            }
    boxCorners(lo, hi, nullptr, out);
}

// Returns the branch state of the model, after those of all its children.
int32_t bottomUp(std::vector<ViewModelRecord> &records, Model *m) {
    ViewModelRecord *r = recordOf(records, m);
    std::vector<const float (*)[3]> boxes;
    int children = 0;
    bool unknown = !r || r->bounds.ownState == BOUNDS_NONE;
    for (Model *c = m->firstChild; c; c = c->nextSibling) {
        ++children;
        int32_t state = bottomUp(records, c);
        ViewModelRecord *cr = recordOf(records, c);
        if (state == BOUNDS_NONE) unknown = true;
        else if (state == BOUNDS_VALID) boxes.push_back(cr->bounds.branch);
    }
    if (!r) return BOUNDS_NONE;
    BoundsRecord &b = r->bounds;
    if (unknown) {
        b.branchState = BOUNDS_NONE;
    } else if (!boxes.empty()) {
        b.branchState = BOUNDS_VALID;
        if (children == 1 && b.ownState == BOUNDS_EMPTY) {
            memcpy(b.branch, boxes[0], sizeof b.branch);  // an empty group keeps its child's box
        } else {
            if (b.ownState == BOUNDS_VALID) boxes.push_back(b.own);
            cornersAround(boxes, b.branch);
        }
    } else if (b.ownState == BOUNDS_VALID) {
        b.branchState = BOUNDS_VALID;
        memcpy(b.branch, b.own, sizeof b.branch);
    } else {
        b.branchState = BOUNDS_EMPTY;
    }
    return b.branchState;
}

}  // namespace

int modelLocalBox(const Model *model, float bmin[3], float bmax[3]) {
    BoxAcc box;
    if (model && model->type == MODEL_META)
        boxTessellated(model, box);
    else if (model && model->geometry.any && model->type >= 0 && model->type < MODEL_TYPE_END)
        boxByType[model->type](model, box);
    bool zero = true;
    for (int k = 0; k < 3; ++k) {
        bmin[k] = box.points ? box.lo[k] : 0.0f;
        bmax[k] = box.points ? box.hi[k] : 0.0f;
        if (bmin[k] != 0.0f || bmax[k] != 0.0f) zero = false;
    }
    return zero ? 0 : 1;
}

void boxCorners(const float bmin[3], const float bmax[3], const float matrix[4][4],
                float corners[8][3]) {
    for (int i = 0; i < 8; ++i) {
        const float p[3] = {(i & 1) ? bmax[0] : bmin[0], (i & 2) ? bmax[1] : bmin[1],
                            (i & 4) ? bmax[2] : bmin[2]};
        for (int k = 0; k < 3; ++k) {
            if (!matrix) {
                corners[i][k] = p[k];
                continue;
            }
            double v = matrix[3][k];
            for (int j = 0; j < 3; ++j) v += static_cast<double>(p[j]) * matrix[j][k];
            corners[i][k] = static_cast<float>(v);
        }
    }
}

int boundsBuild(Dictionary *dict) {
    Chapter *list = dictChapter(dict, CHP_MODELS);
    if (!list) return 0;
    std::vector<ViewModelRecord> &records = recordsOf(dict);
    ViewModelRecord fresh{};
    fresh.alpha = 1.0f;
    records.assign(static_cast<size_t>(list->elementCount), fresh);
    for (int32_t i = 0; i < list->elementCount; ++i)
        if (const Model *m = static_cast<const Model *>(list->elements[i].data))
            records[static_cast<size_t>(i)].garbageMatte = m->garbageMatte;
    for (int32_t i = 0; i < list->elementCount; ++i) {
        const Element &e = list->elements[i];
        Model *m = static_cast<Model *>(e.data);
        if (e.deleted != ELEM_LIVE || !m || m->parent || m->elementIndex != i) continue;
        topDown(dict, records, m, 0);
        bottomUp(records, m);
    }
    int count = 0;
    for (const ViewModelRecord &r : records) count += r.hasBounds;
    return count;
}

int instancesExpand(Dictionary *dict) {
    Chapter *list = dictChapter(dict, CHP_MODELS);
    int count = 0;
    for (int32_t i = 0; list && i < list->elementCount; ++i) {
        const Element &e = list->elements[i];
        Model *m = static_cast<Model *>(e.data);
        if (e.deleted != ELEM_LIVE || !m || m->kind != MODEL_KIND_INSTANCE) continue;
        m->kind = MODEL_KIND_NONE;
        m->displayFlags |= MODEL_GEOMETRY_STALE;
        ++count;
    }
    return count;
}

ViewScene &viewSceneOf(const Dictionary *dict) {
    for (ViewScene &s : scenes)
        if (s.dict == dict) return s;
    scenes.push_back(ViewScene{});
    ViewScene &s = scenes.back();
    s.dict = dict;
    s.shadeSerial = s.texturesSerial = -1;  // flagged at the first bind, initialised or not
    return s;
}

ViewModelRecord *viewModelRecord(const Dictionary *dict, int32_t index) {
    for (ViewScene &s : scenes)
        if (s.dict == dict) {
            if (index < 0 || static_cast<size_t>(index) >= s.models.size()) return nullptr;
            return &s.models[static_cast<size_t>(index)];
        }
    return nullptr;
}
