// NURBS surfaces: evaluation by de Boor's basis functions and their first
// derivatives, the plain tessellator with creases and the search for a
// tangent where the surface collapses, and the trim tessellator.
//
// Trimming: the tessellation of the untrimmed surface is kept where the
// centroid of a triangle, in the parameter plane, lies inside the trim loops
// (even-odd rule). Edges of the trimmed surface follow the triangles, so the
// finer the steps, the closer the edge; the form stays that of vertices and
// triangles, and the strips need nothing else.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tess_internal.h"

namespace {

constexpr int MAX_DEGREE = 31;
constexpr double NEXT_EQUAL_BACK = 0.001;   // a crease takes the tangent this far to the left
constexpr double TANGENT_MIN2 = 1e-6;       // squared length of a usable tangent
constexpr double SEARCH_STEP = 0.01;        // steps of the tangent search
constexpr int SEARCH_TRIES = 99;
constexpr double AT_END = 0.0001;           // a parameter this close to the end searches backwards

// A knot vector with the count of CVs and the degree it serves.
struct Knots {
    std::vector<double> k;  // cvCount + degree + 1 values
    int degree;
    int cvCount;
    double first, last;     // the domain: k[degree], k[cvCount]
};

// Full vectors, or ones without their two outer knots, are taken.
bool knotsMake(const double *knots, int knotCount, int degree, int cvCount, Knots *out) {
    if (!knots || degree < 1 || degree > MAX_DEGREE || cvCount <= degree) return false;
    const int full = cvCount + degree + 1;
    if (knotCount == full) {
        out->k.assign(knots, knots + full);
    } else if (knotCount == full - 2) {
        out->k.assign(1, knots[0]);
        out->k.insert(out->k.end(), knots, knots + knotCount);
        out->k.push_back(knots[knotCount - 1]);
    } else {
        return false;
    }
    for (int i = 0; i + 1 < full; ++i)
        if (!(out->k[static_cast<size_t>(i)] <= out->k[static_cast<size_t>(i) + 1])) return false;
    out->degree = degree;
    out->cvCount = cvCount;
    out->first = out->k[static_cast<size_t>(degree)];
    out->last = out->k[static_cast<size_t>(cvCount)];
    return out->last > out->first;
}

// The knot span of t: k[span] <= t < k[span + 1], the last span at the end.
int findSpan(const Knots &K, double t) {
    const int p = K.degree, n = K.cvCount;
    if (t >= K.k[static_cast<size_t>(n)]) {
        int span = n - 1;
        while (span > p && K.k[static_cast<size_t>(span)] >= K.k[static_cast<size_t>(span) + 1]) --span;
        return span;
    }
    if (t <= K.k[static_cast<size_t>(p)]) {
        int span = p;
        while (span < n - 1 && K.k[static_cast<size_t>(span)] >= K.k[static_cast<size_t>(span) + 1]) ++span;
        return span;
    }
    auto it = std::upper_bound(K.k.begin() + p, K.k.begin() + n + 1, t);
    return static_cast<int>(it - K.k.begin()) - 1;
}

// Non-zero basis functions N[0..p] of span `span` at t and their first
// derivatives, by the triangular scheme of de Boor and Cox.
void basisDers(const Knots &K, int span, double t, double *N, double *dN) {
    const int p = K.degree;
    const double *U = K.k.data();
    double ndu[MAX_DEGREE + 1][MAX_DEGREE + 1], left[MAX_DEGREE + 1], right[MAX_DEGREE + 1];
    ndu[0][0] = 1.0;
    for (int j = 1; j <= p; ++j) {
        left[j] = t - U[span + 1 - j];
        right[j] = U[span + j] - t;
        double saved = 0.0;
        for (int r = 0; r < j; ++r) {
            ndu[j][r] = right[r + 1] + left[j - r];  // knot difference, lower triangle
            const double temp = ndu[r][j - 1] / ndu[j][r];
            ndu[r][j] = saved + right[r + 1] * temp;
            saved = left[j - r] * temp;
        }
        ndu[j][j] = saved;
    }
    for (int r = 0; r <= p; ++r) {
        N[r] = ndu[r][p];
        double d = 0.0;
        if (r >= 1) d += ndu[r - 1][p - 1] / ndu[p][r - 1];
        if (r <= p - 1) d -= ndu[r][p - 1] / ndu[p][r];
        dN[r] = p * d;
    }
}

// Homogeneous form of a CV given as point and weight.
void homogeneous(const double *cv, double *h) {
    const double w = cv[3];
    h[0] = cv[0] * w;
    h[1] = cv[1] * w;
    h[2] = cv[2] * w;
    h[3] = w;
}

// Parameters of one direction: `step` per non-empty span and the end; the
// start of a span at a crease (a knot of multiplicity at least the degree)
// twice.
std::vector<double> paramsMake(const Knots &K, int step) {
    std::vector<double> out;
    const int p = K.degree;
    for (int i = p; i < K.cvCount; ++i) {
        const double a = K.k[static_cast<size_t>(i)], b = K.k[static_cast<size_t>(i) + 1];
        if (!(b > a)) continue;
        if (i > p) {
            const int mult = static_cast<int>(std::count(K.k.begin(), K.k.end(), a));
            if (mult >= p) out.push_back(a);
        }
        for (int s = 0; s < step; ++s) out.push_back(a + (b - a) * s / step);
    }
    out.push_back(K.last);
    return out;
}

struct Surface {
    const NurbsSurface *s;
    Knots U, V;
};

bool surfaceMake(const NurbsSurface *s, Surface *out) {
    if (!s || s->cvCount[0] <= 0 || !s->knots[0] || s->cvCount[1] < 1 || !s->knots[1] || !s->cvs) return false;
    out->s = s;
    return knotsMake(s->knots[0], s->knotCount[0], s->degree[0], s->cvCount[0], &out->U) &&
           knotsMake(s->knots[1], s->knotCount[1], s->degree[1], s->cvCount[1], &out->V);
}

// The curve in v at a fixed u (Q) and its derivative in u (dQ): one
// homogeneous CV each per CV row in v.
void isoCurve(const Surface &S, double u, std::vector<double> &Q, std::vector<double> &dQ) {
    const int p = S.U.degree, cu = S.U.cvCount, cv = S.V.cvCount;
    const int span = findSpan(S.U, u);
    double N[MAX_DEGREE + 1], dN[MAX_DEGREE + 1];
    basisDers(S.U, span, u, N, dN);
    Q.assign(4 * static_cast<size_t>(cv), 0.0);
    dQ.assign(4 * static_cast<size_t>(cv), 0.0);
    for (int j = 0; j < cv; ++j)
        for (int a = 0; a <= p; ++a) {
            double h[4];
            homogeneous(S.s->cvs[static_cast<size_t>(j) * cu + static_cast<size_t>(span - p + a)], h);
            for (int k = 0; k < 4; ++k) {
                Q[4 * static_cast<size_t>(j) + k] += N[a] * h[k];
                dQ[4 * static_cast<size_t>(j) + k] += dN[a] * h[k];
            }
        }
}

// On the iso-curve at v: the point (homogeneous), its derivative in v, and
// the derivative in u from dQ.
void curveAt(const Surface &S, const std::vector<double> &Q, const std::vector<double> &dQ, double v, double *P,
             double *Pu, double *Pv) {
    const int q = S.V.degree;
    const int span = findSpan(S.V, v);
    double N[MAX_DEGREE + 1], dN[MAX_DEGREE + 1];
    basisDers(S.V, span, v, N, dN);
    for (int k = 0; k < 4; ++k) P[k] = Pu[k] = Pv[k] = 0.0;
    for (int b = 0; b <= q; ++b) {
        const size_t at = 4 * static_cast<size_t>(span - q + b);
        for (int k = 0; k < 4; ++k) {
            P[k] += N[b] * Q[at + static_cast<size_t>(k)];
            Pv[k] += dN[b] * Q[at + static_cast<size_t>(k)];
            Pu[k] += N[b] * dQ[at + static_cast<size_t>(k)];
        }
    }
}

// Tangent of the rational surface from the homogeneous point and derivative.
void tangentOf(const double *P, const double *D, double *t) {
    const double w = P[3] != 0.0 ? P[3] : 1.0;
    for (int k = 0; k < 3; ++k) t[k] = (D[k] - D[3] * P[k] / w) / w;
}

double length2(const double *t) { return t[0] * t[0] + t[1] * t[1] + t[2] * t[2]; }

// A tangent where the surface gives none: walk away from the point, mostly
// in v and every third try in both, until the tangent has length.
void tangentSearch(const Surface &S, double u, double v, double du0, double dv0, int inU, double *t) {
    std::vector<double> Q, dQ;
    double du = du0, dv = dv0;
    for (int attempt = 1; attempt <= SEARCH_TRIES; ++attempt) {
        double eu = u, ev = v + dv;
        if (attempt % 3 == 0) {
            eu = u + du;
            du += du0;
        } else {
            dv += dv0;
        }
        eu = std::clamp(eu, S.U.first, S.U.last);
        ev = std::clamp(ev, S.V.first, S.V.last);
        isoCurve(S, eu, Q, dQ);
        double P[4], Pu[4], Pv[4];
        curveAt(S, Q, dQ, ev, P, Pu, Pv);
        tangentOf(P, inU ? Pu : Pv, t);
        if (length2(t) >= TANGENT_MIN2) return;
    }
}

void pointAt(const Surface &S, double u, double v, float out[3]) {
    std::vector<double> Q, dQ;
    isoCurve(S, std::clamp(u, S.U.first, S.U.last), Q, dQ);
    double P[4], Pu[4], Pv[4];
    curveAt(S, Q, dQ, std::clamp(v, S.V.first, S.V.last), P, Pu, Pv);
    const double w = P[3] != 0.0 ? P[3] : 1.0;
    for (int k = 0; k < 3; ++k) out[k] = static_cast<float>(P[k] / w);
}

}  // namespace

void tessellateNurbsPlain(Model *model, const NurbsSurface *shape, const NurbsSurface *reference, float **params) {
    if (params) *params = nullptr;
    Surface S;
    if (!surfaceMake(shape, &S)) return;
    const std::vector<double> pu = paramsMake(S.U, std::max(1, nurbsStepU(shape)));
    const std::vector<double> pv = paramsMake(S.V, std::max(1, nurbsStepV(shape)));
    const double normU = S.U.last - S.U.first < AT_END ? 1.0 : 1.0 / (S.U.last - S.U.first);
    const double normV = S.V.last - S.V.first < AT_END ? 1.0 : 1.0 / (S.V.last - S.V.first);
    const int cu = static_cast<int>(pu.size()), cv = static_cast<int>(pv.size());
    tessArraysNew(model, int64_t{cu} * cv, int64_t{2} * (cu - 1) * (cv - 1));
    if (params) *params = static_cast<float *>(tessAlloc(2 * static_cast<size_t>(cu) * cv, sizeof(float)));
    Surface R;
    const bool ownRef = reference && reference != shape && surfaceMake(reference, &R);

    std::vector<double> Q, dQ, Qt, dQt;
    for (int i = 0; i < cu; ++i) {
        const double u = pu[static_cast<size_t>(i)];
        const bool uNextEqual = i + 1 < cu && pu[static_cast<size_t>(i) + 1] == u;
        // The second of a doubled parameter has the same curve as the first.
        if (i == 0 || pu[static_cast<size_t>(i) - 1] != u) isoCurve(S, u, Q, dQ);
        // At a crease the first of the pair takes the left side's tangent.
        if (uNextEqual) isoCurve(S, std::max(S.U.first, u - NEXT_EQUAL_BACK), Qt, dQt);
        const std::vector<double> &QU = uNextEqual ? Qt : Q, &dQU = uNextEqual ? dQt : dQ;
        for (int j = 0; j < cv; ++j) {
            const double v = pv[static_cast<size_t>(j)];
            const bool vNextEqual = j + 1 < cv && pv[static_cast<size_t>(j) + 1] == v;
            double P[4], Pu[4], Pv[4], tu[3], tv[3];
            curveAt(S, Q, dQ, v, P, Pu, Pv);
            const double w = P[3] != 0.0 ? P[3] : 1.0;
            const float pos[3] = {static_cast<float>(P[0] / w), static_cast<float>(P[1] / w),
                                  static_cast<float>(P[2] / w)};
            double A[4], Au[4], Av[4];
            curveAt(S, QU, dQU, v, A, Au, Av);
            tangentOf(A, Au, tu);
            const double vt = vNextEqual ? std::max(S.V.first, v - NEXT_EQUAL_BACK) : v;
            curveAt(S, Q, dQ, vt, A, Au, Av);
            tangentOf(A, Av, tv);
            const double du0 = (S.U.last - u < AT_END || uNextEqual) ? -SEARCH_STEP : SEARCH_STEP;
            const double dv0 = (S.V.last - v < AT_END || vNextEqual) ? -SEARCH_STEP : SEARCH_STEP;
            if (length2(tu) < TANGENT_MIN2) tangentSearch(S, u, v, du0, dv0, 1, tu);
            if (length2(tv) < TANGENT_MIN2) tangentSearch(S, u, v, du0, dv0, 0, tv);
            double n[3] = {tu[1] * tv[2] - tu[2] * tv[1], tu[2] * tv[0] - tu[0] * tv[2], tu[0] * tv[1] - tu[1] * tv[0]};
            const double len = std::sqrt(length2(n));
            if (len > 0.0001)
                for (double &c : n) c /= len;
            const float normal[3] = {static_cast<float>(n[0]), static_cast<float>(n[1]), static_cast<float>(n[2])};
            const size_t at = static_cast<size_t>(i) * cv + j;
            TessVertex *vx = &model->vertices[at];
            tessVertexSet(vx, static_cast<float>(1.0 - (u - S.U.first) * normU),
                          static_cast<float>((v - S.V.first) * normV), pos, normal);
            if (ownRef) pointAt(R, u, v, vx->refPos);
            if (params) {
                (*params)[2 * at] = static_cast<float>(u);
                (*params)[2 * at + 1] = static_cast<float>(v);
            }
        }
    }
    int32_t count = 0;
    for (int i = 0; i + 1 < cu; ++i) {
        if (pu[static_cast<size_t>(i)] == pu[static_cast<size_t>(i) + 1]) continue;
        for (int j = 0; j + 1 < cv; ++j) {
            if (pv[static_cast<size_t>(j)] == pv[static_cast<size_t>(j) + 1]) continue;
            TessVertex *v00 = &model->vertices[static_cast<size_t>(i) * cv + j];
            TessVertex *v10 = v00 + cv, *v01 = v00 + 1, *v11 = v00 + cv + 1;
            TessTriangle *t = &model->triangles[count++];
            t->v[0] = v00; t->v[1] = v10; t->v[2] = v11;
            t = &model->triangles[count++];
            t->v[0] = v00; t->v[1] = v11; t->v[2] = v01;
        }
    }
    tessTrianglesLink(model, count);
    tessTrianglesMaterial(model, tessFirstMaterial(model), 0);
}

namespace {

bool insideLoops(const TessTrimLoop *loops, int loopCount, float u, float v) {
    bool inside = false;
    for (int l = 0; l < loopCount; ++l) {
        const TessTrimLoop &loop = loops[l];
        for (int32_t i = 0, j = loop.count - 1; loop.uv && i < loop.count; j = i++) {
            const float *a = loop.uv[i], *b = loop.uv[j];
            if ((a[1] > v) != (b[1] > v) && u < (b[0] - a[0]) * (v - a[1]) / (b[1] - a[1]) + a[0]) inside = !inside;
        }
    }
    return inside;
}

// Keeps the triangles whose parameter centroid is inside the loops and the
// vertices they use.
void trimTessellate(Model *model, const NurbsSurface *shape, const NurbsSurface *reference,
                    const TessTrimLoop *loops, int loopCount) {
    if (!loops || loopCount <= 0) {
        // Trim records carry no curves of their own: the whole surface.
        tessellateNurbsPlain(model, shape, reference, nullptr);
        return;
    }
    float *params = nullptr;
    tessellateNurbsPlain(model, shape, reference, &params);
    if (!model->vertices) {
        free(params);
        return;
    }
    TessVertex *oldVertices = model->vertices;
    TessTriangle *oldTriangles = model->triangles;
    const int32_t oldVertexCount = model->vertexCount, oldTriangleCount = model->triangleCount;
    std::vector<int32_t> newIndex(static_cast<size_t>(oldVertexCount), -1);
    std::vector<uint8_t> keep(static_cast<size_t>(oldTriangleCount));
    int32_t vertices = 0, triangles = 0;
    for (int32_t t = 0; t < oldTriangleCount; ++t) {
        float cu = 0.0f, cv = 0.0f;
        for (TessVertex *v : oldTriangles[t].v) {
            const size_t at = static_cast<size_t>(v - oldVertices);
            cu += params[2 * at] / 3.0f;
            cv += params[2 * at + 1] / 3.0f;
        }
        if (!insideLoops(loops, loopCount, cu, cv)) continue;
        keep[static_cast<size_t>(t)] = 1;
        ++triangles;
        for (TessVertex *v : oldTriangles[t].v) {
            int32_t &slot = newIndex[static_cast<size_t>(v - oldVertices)];
            if (slot < 0) slot = vertices++;
        }
    }
    free(params);
    model->vertices = nullptr;
    model->triangles = nullptr;
    model->vertexCount = model->triangleCount = 0;
    if (triangles > 0) {
        tessArraysNew(model, vertices, triangles);
        for (int32_t i = 0; i < oldVertexCount; ++i)
            if (newIndex[static_cast<size_t>(i)] >= 0) model->vertices[newIndex[static_cast<size_t>(i)]] = oldVertices[i];
        int32_t at = 0;
        for (int32_t t = 0; t < oldTriangleCount; ++t) {
            if (!keep[static_cast<size_t>(t)]) continue;
            TessTriangle &nt = model->triangles[at++];
            nt = oldTriangles[t];
            for (TessVertex *&v : nt.v) v = &model->vertices[newIndex[static_cast<size_t>(v - oldVertices)]];
        }
        tessTrianglesLink(model, triangles);
    }
    free(oldVertices);
    free(oldTriangles);
}

// The global precision stands in for the steps of the surface and of its
// reference for the time of the tessellation.
int nurbsRun(Model *model, NurbsSurface *shape, NurbsSurface *reference, int precision, const TessTrimLoop *loops,
             int loopCount) {
    Surface S;
    if (!surfaceMake(shape, &S)) return 0;
    if (!reference) reference = shape;
    const int32_t savedShape[2] = {shape->values[0], shape->values[1]};
    const int32_t savedRef[2] = {reference->values[0], reference->values[1]};
    if (precision > 0) {
        shape->values[0] = shape->values[1] = precision;
        reference->values[0] = reference->values[1] = precision;
    }
    if (nurbsTrimmed(shape) || loops) trimTessellate(model, shape, reference, loops, loopCount);
    else tessellateNurbsPlain(model, shape, reference, nullptr);
    reference->values[0] = savedRef[0];
    reference->values[1] = savedRef[1];
    shape->values[0] = savedShape[0];
    shape->values[1] = savedShape[1];
    return 0;
}

}  // namespace

int tessellateNurbs(Model *model, NurbsSurface *shape, NurbsSurface *reference, int precision) {
    return nurbsRun(model, shape, reference, precision, nullptr, 0);
}

int tessellateNurbsTrimmed(Model *model, const TessTrimLoop *loops, int loopCount, int precision) {
    if (!model || model->type != MODEL_NURBS_SURFACE) return 9;
    tessArraysDrop(model);
    if (!model->geometry.surface) return 0;
    return nurbsRun(model, model->geometry.surface, model->geometry.surface, precision, loops, loopCount);
}

int nurbsCurveSample(const NurbsCurve *curve, int step, float (**out)[3]) {
    *out = nullptr;
    Knots K;
    if (!curve || !curve->cvs || !knotsMake(curve->knots, curve->knotCount, curve->degree, curve->cvCount, &K))
        return 0;
    const std::vector<double> params = paramsMake(K, std::max(1, step));
    *out = static_cast<float (*)[3]>(tessAlloc(params.size(), sizeof(float[3])));
    int count = 0;
    for (size_t i = 0; i < params.size(); ++i) {
        if (i > 0 && params[i] == params[i - 1]) continue;
        const int span = findSpan(K, params[i]);
        double N[MAX_DEGREE + 1], dN[MAX_DEGREE + 1], P[4] = {0, 0, 0, 0};
        basisDers(K, span, params[i], N, dN);
        for (int a = 0; a <= K.degree; ++a) {
            double h[4];
            homogeneous(curve->cvs[span - K.degree + a], h);
            for (int k = 0; k < 4; ++k) P[k] += N[a] * h[k];
        }
        const double w = P[3] != 0.0 ? P[3] : 1.0;
        for (int k = 0; k < 3; ++k) (*out)[count][k] = static_cast<float>(P[k] / w);
        ++count;
    }
    return count;
}
