// Wireframe of each model type, and the colour codes of wire colours.
#include <GL/gl.h>

#include <algorithm>
#include <vector>

#include "geometry.h"
#include "model.h"
#include "tess_internal.h"
#include "view.h"

namespace {

constexpr int SEGMENTS_PER_SPAN = 8;  // polyline segments of a curve span

// ---------------------------------------------------------------------------
// Rational B-splines, evaluated for lines only: the basis of every control
// point at a parameter, by the Cox-de Boor recurrence.

struct Knots {
    int degree;           // degree of the basis
    int count;            // control points
    const double *knots;  // count + degree + 1 values
    double lo() const { return knots[degree]; }
    double hi() const { return knots[count]; }
};

bool knotsUsable(int degree, int cvCount, int knotCount, const double *knots) {
    return knots && degree >= 1 && cvCount > degree && knotCount == cvCount + degree + 1 &&
           knots[cvCount] > knots[degree];
}

void basis(const Knots &k, double t, std::vector<double> &n) {
    const int last = k.count + k.degree;  // spans of the full knot vector
    // The end of the domain belongs to the last span.
    t = std::clamp(t, k.lo(), k.hi());
    if (t >= k.hi()) t = k.hi() - 1e-9 * (k.hi() - k.lo());
    std::vector<double> b(static_cast<size_t>(last), 0.0);
    for (int i = 0; i < last; ++i) b[i] = k.knots[i] <= t && t < k.knots[i + 1] ? 1.0 : 0.0;
    for (int p = 1; p <= k.degree; ++p)
        for (int i = 0; i + p < last; ++i) {
            double d1 = k.knots[i + p] - k.knots[i], d2 = k.knots[i + p + 1] - k.knots[i + 1];
            double left = d1 > 0.0 ? (t - k.knots[i]) / d1 * b[i] : 0.0;
            double right = d2 > 0.0 ? (k.knots[i + p + 1] - t) / d2 * b[i + 1] : 0.0;
            b[i] = left + right;
        }
    n.assign(b.begin(), b.begin() + k.count);
}

// A control point is a point and its weight (x, y, z, w): its share of the
// sum is (x w, y w, z w, w), and the sum is divided by its last term.
void addWeighted(double sum[4], const double cv[4], double n) {
    const double w = cv[3] != 0.0 ? cv[3] : 1.0;
    for (int k = 0; k < 3; ++k) sum[k] += n * w * cv[k];
    sum[3] += n * w;
}

void vertexFromSum(const double s[4]) {
    double w = s[3] != 0.0 ? s[3] : 1.0;
    glVertex3d(s[0] / w, s[1] / w, s[2] / w);
}

// Samples per span of a surface's wire: those of its tessellation, the
// global precision before the surface's own, and at least one.
int surfaceSteps(int32_t own) {
    int steps = glbVar.patch_lod > 0 ? static_cast<int16_t>(glbVar.patch_lod) : own;
    return steps > 0 ? steps : 1;
}

// Parameters of a knot domain: the span ends and `per` steps inside each span.
std::vector<double> domainSamples(const Knots &k, int per) {
    std::vector<double> t;
    for (int i = k.degree; i < k.count; ++i) {
        double a = k.knots[i], b = k.knots[i + 1];
        if (b <= a) continue;
        for (int s = 0; s < per; ++s) t.push_back(a + (b - a) * s / per);
    }
    t.push_back(k.hi());
    return t;
}

void curvePolyline(const NurbsCurve &c, GLenum mode) {
    if (!c.cvs || c.cvCount < 1) return;
    glBegin(mode);
    if (!knotsUsable(c.degree, c.cvCount, c.knotCount, c.knots)) {
        for (int i = 0; i < c.cvCount; ++i) glVertex3d(c.cvs[i][0], c.cvs[i][1], c.cvs[i][2]);  // the control polygon
    } else {
        Knots k{c.degree, c.cvCount, c.knots};
        std::vector<double> n;
        for (double t : domainSamples(k, SEGMENTS_PER_SPAN)) {
            basis(k, t, n);
            double s[4] = {0, 0, 0, 0};
            for (int i = 0; i < c.cvCount; ++i) addWeighted(s, c.cvs[i], n[i]);
            vertexFromSum(s);
        }
    }
    glEnd();
}

void splinePolyline(const Spline &s) {
    if (!s.vertices || s.vertexCount < 1) return;
    glBegin(s.closed ? GL_LINE_LOOP : GL_LINE_STRIP);
    for (int i = 0; i < s.vertexCount; ++i) glVertex3fv(s.vertices[i].pos);
    glEnd();
}

// ---------------------------------------------------------------------------
// By type

// A node without geometry: axes of unit length with tick marks at their ends.
void wireNull(const Model *) {
    glBegin(GL_LINES);
    for (int a = 0; a < 3; ++a) {
        float p[3] = {0, 0, 0}, q[3] = {0, 0, 0};
        q[a] = 1.0f;
        glVertex3fv(p);
        glVertex3fv(q);
        float t0[3] = {0, 0, 0}, t1[3] = {0, 0, 0};
        t0[a] = t1[a] = 1.0f;
        t0[(a + 1) % 3] = -0.05f;
        t1[(a + 1) % 3] = 0.05f;
        glVertex3fv(t0);
        glVertex3fv(t1);
    }
    glEnd();
}

void wireNothing(const Model *) {}

// The rows and columns of the surface evaluated as the tessellation samples
// it; a closed direction's last row is its first.
void wirePatch(const Model *m) {
    const Patch *p = m->geometry.patch;
    if (!p) return;
    PatchGrid grid;
    patchEvaluate(p, surfaceSteps(patchStepU(p)), surfaceSteps(patchStepV(p)), &grid);
    for (int i = 0; i < grid.countU; ++i) {
        glBegin(p->vClosed ? GL_LINE_LOOP : GL_LINE_STRIP);
        for (int j = 0; j < grid.countV; ++j) glVertex3fv(grid.pos[i * grid.countV + j]);
        glEnd();
    }
    for (int j = 0; j < grid.countV; ++j) {
        glBegin(p->uClosed ? GL_LINE_LOOP : GL_LINE_STRIP);
        for (int i = 0; i < grid.countU; ++i) glVertex3fv(grid.pos[i * grid.countV + j]);
        glEnd();
    }
    patchGridFree(&grid);
}

void wireFace(const Model *m) {
    const Face *f = m->geometry.face;
    if (!f) return;
    splinePolyline(f->boundary);
    for (int i = 0; i < f->holeCount; ++i) {
        if (f->isSpline && f->holes) splinePolyline(f->holes[i]);
        else if (!f->isSpline && f->curveHoles) curvePolyline(f->curveHoles[i], GL_LINE_LOOP);
    }
}

void wireMesh(const Model *m) {
    const Mesh *mesh = m->geometry.mesh;
    if (!mesh || !mesh->vertices) return;
    auto inRange = [&](int32_t v) { return v >= 0 && v < mesh->vertexCount; };
    if (mesh->edgeCount > 0 && mesh->edgeBlocks) {
        glBegin(GL_LINES);
        for (int32_t e = 0; e < mesh->edgeCount; ++e) {
            const MeshEdge *edge = meshEdge(mesh, e);
            if (!inRange(edge->vrt[0]) || !inRange(edge->vrt[1])) continue;
            glVertex3fv(mesh->vertices[edge->vrt[0]].pos);
            glVertex3fv(mesh->vertices[edge->vrt[1]].pos);
        }
        glEnd();
        return;
    }
    // Without derived edges: each polygon's outline.
    for (int32_t p = 0; mesh->polygons && p < mesh->polygonCount; ++p) {
        const MeshPolygon &poly = mesh->polygons[p];
        glBegin(GL_LINE_LOOP);
        for (int k = 0; poly.nodes && k < poly.nodeCount; ++k)
            if (inRange(poly.nodes[k].vrt)) glVertex3fv(mesh->vertices[poly.nodes[k].vrt].pos);
        glEnd();
    }
}

void wireSpline(const Model *m) {
    if (m->geometry.spline) splinePolyline(*m->geometry.spline);
}

// A polygonised model's lines are those of its triangles.
void wireTriangles(const Model *m) {
    for (const TessTriangle *t = m->triangles; t; t = t->next) {
        if (!t->v[0] || !t->v[1] || !t->v[2]) continue;
        glBegin(GL_LINE_LOOP);
        for (int k = 0; k < 3; ++k) glVertex3fv(t->v[k]->pos);
        glEnd();
    }
}

void wireNurbsCurve(const Model *m) {
    if (m->geometry.curve) curvePolyline(*m->geometry.curve, GL_LINE_STRIP);
}

// Iso-lines at the span ends and at the tessellation's steps inside each span.
void wireNurbsSurface(const Model *m) {
    const NurbsSurface *s = m->geometry.surface;
    if (!s || !s->cvs) return;
    const int nu = s->cvCount[0], nv = s->cvCount[1];
    if (!knotsUsable(s->degree[0], nu, s->knotCount[0], s->knots[0]) ||
        !knotsUsable(s->degree[1], nv, s->knotCount[1], s->knots[1]))
        return;
    const Knots ku{s->degree[0], nu, s->knots[0]}, kv{s->degree[1], nv, s->knots[1]};
    const std::vector<double> isoU = domainSamples(ku, surfaceSteps(nurbsStepU(s))),
                              isoV = domainSamples(kv, surfaceSteps(nurbsStepV(s)));
    const std::vector<double> fineU = domainSamples(ku, SEGMENTS_PER_SPAN),
                              fineV = domainSamples(kv, SEGMENTS_PER_SPAN);
    std::vector<double> bu, bv;
    auto point = [&](double u, double v) {
        basis(ku, u, bu);
        basis(kv, v, bv);
        double sum[4] = {0, 0, 0, 0};
        for (int j = 0; j < nv; ++j)
            for (int i = 0; i < nu; ++i) {
                double n = bu[i] * bv[j];
                if (n != 0.0) addWeighted(sum, s->cvs[j * nu + i], n);
            }
        vertexFromSum(sum);
    };
    for (double u : isoU) {
        glBegin(GL_LINE_STRIP);
        for (double v : fineV) point(u, v);
        glEnd();
    }
    for (double v : isoV) {
        glBegin(GL_LINE_STRIP);
        for (double u : fineU) point(u, v);
        glEnd();
    }
}

using WireFn = void (*)(const Model *);
// By model type 0 to 10: joints and bare nodes draw as axes, a reference has
// nothing of its own.
const WireFn wireByType[MODEL_TYPE_END] = {
    wireNull, wirePatch, wireFace, wireNull, wireMesh, wireNull,
    wireSpline, wireTriangles, wireNothing, wireNurbsCurve, wireNurbsSurface,
};

int lastCode = -1;  // colour code of the last paletteColorSet

}  // namespace

int modelTypeFilled(int32_t type) {
    return type == MODEL_PATCH || type == MODEL_FACE || type == MODEL_MESH || type == MODEL_META ||
           type == MODEL_NURBS_SURFACE;
}

void drawWireModel(const Model *model, int iconsOnly) {
    if (!model) return;
    if (iconsOnly && modelTypeFilled(model->type)) return;
    glPushMatrix();
    glMultMatrixf(&model->globalMatrix[0][0]);
    if (model->type >= 0 && model->type < MODEL_TYPE_END) wireByType[model->type](model);
    else wireNull(model);
    glPopMatrix();
}

int paletteColorSet(int code, int force) {
    if (code == lastCode && !force) return 0;
    lastCode = code;
    if (code == 8) return 0;
    float c[4] = {0.5f, 0.5f, 0.5f, 1.0f};
    // Codes below 8 share the palette's spare entry; the wire colours proper
    // start at code 9. A code past the palette keeps the grey.
    const int entry = code < 8 ? PALETTE_SPARE : code - 9;
    if (code == 3) {
        c[0] = c[1] = c[2] = 0.0f;
    } else if (glbVar.palette && code >= 0 && entry <= PALETTE_SPARE) {
        for (int k = 0; k < 3; ++k) c[k] = glbVar.palette[entry][k] / 255.0f;
    }
    glColor4fv(c);
    return 1;
}
