// Patches: the evaluator that samples the surface of a CV grid on a regular
// grid of parameters, and the tessellation that writes that grid as vertices
// and triangles.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tess_internal.h"

int patchSpans(int32_t basis, int count, int closed) {
    int spans = 0;
    switch (basis) {
    case PATCH_LINEAR: spans = closed ? (count >= 3 ? count : 0) : count - 1; break;
    case PATCH_BEZIER: spans = closed ? count / 3 : (count - 1) / 3; break;
    case PATCH_CARDINAL:
    case PATCH_BSPLINE: spans = closed ? (count >= 3 ? count : 0) : count - 3; break;
    default: break;
    }
    return spans > 0 ? spans : 0;
}

namespace {

// The CVs of one direction that act at a sample, with their weights and the
// weights' derivatives in the span's own parameter.
struct Basis1D {
    int n;          // CVs that act: 2 or 4
    int index[4];   // CV index in the direction
    double w[4];    // weights
    double dw[4];   // derivatives of the weights
};

void basisAt(int32_t basis, int count, int span, double t, Basis1D *b) {
    const double s = 1.0 - t, t2 = t * t, t3 = t2 * t;
    int first = span;
    switch (basis) {
    case PATCH_LINEAR:
        b->n = 2;
        b->w[0] = s; b->w[1] = t;
        b->dw[0] = -1.0; b->dw[1] = 1.0;
        break;
    case PATCH_BEZIER:
        b->n = 4;
        first = 3 * span;
        b->w[0] = s * s * s; b->w[1] = 3 * t * s * s; b->w[2] = 3 * t2 * s; b->w[3] = t3;
        b->dw[0] = -3 * s * s; b->dw[1] = 3 * s * s - 6 * t * s; b->dw[2] = 6 * t * s - 3 * t2; b->dw[3] = 3 * t2;
        break;
    case PATCH_CARDINAL:
        // Tension one half: the curve passes through the inner two CVs.
        b->n = 4;
        b->w[0] = 0.5 * (-t3 + 2 * t2 - t);
        b->w[1] = 0.5 * (3 * t3 - 5 * t2 + 2);
        b->w[2] = 0.5 * (-3 * t3 + 4 * t2 + t);
        b->w[3] = 0.5 * (t3 - t2);
        b->dw[0] = 0.5 * (-3 * t2 + 4 * t - 1);
        b->dw[1] = 0.5 * (9 * t2 - 10 * t);
        b->dw[2] = 0.5 * (-9 * t2 + 8 * t + 1);
        b->dw[3] = 0.5 * (3 * t2 - 2 * t);
        break;
    default:  // PATCH_BSPLINE
        b->n = 4;
        b->w[0] = s * s * s / 6;
        b->w[1] = (3 * t3 - 6 * t2 + 4) / 6;
        b->w[2] = (-3 * t3 + 3 * t2 + 3 * t + 1) / 6;
        b->w[3] = t3 / 6;
        b->dw[0] = -s * s / 2;
        b->dw[1] = (9 * t2 - 12 * t) / 6;
        b->dw[2] = (-9 * t2 + 6 * t + 3) / 6;
        b->dw[3] = t2 / 2;
        break;
    }
    for (int a = 0; a < b->n; ++a) b->index[a] = (first + a) % count;
}

// Samples of one direction in the order the vertices are written: per span
// the steps, the last one written by own-row bases and by the last span of
// an open direction; a closed direction's last sample is its first.
struct Rows {
    int count;     // samples
    int *span;     // span of each sample
    double *t;     // parameter in the span, 0 to 1
    float *param;  // parameter over the whole direction, 0 to 1
};

void rowsMake(int32_t basis, int spans, int step, int closed, Rows *rows) {
    const bool own = patchOwnRows(basis);
    int64_t count = own ? int64_t{spans} * (step + 1) : int64_t{spans} * step + 1;
    if (closed) --count;
    if (count > INT32_MAX) tessFatal();
    rows->count = static_cast<int>(count);
    rows->span = static_cast<int *>(tessAlloc(static_cast<size_t>(count), sizeof(int)));
    rows->t = static_cast<double *>(tessAlloc(static_cast<size_t>(count), sizeof(double)));
    rows->param = static_cast<float *>(tessAlloc(static_cast<size_t>(count), sizeof(float)));
    int r = 0;
    for (int s = 0; s < spans; ++s) {
        int last = own ? step : step - 1;
        if (s == spans - 1) last = closed ? step - 1 : step;
        for (int k = 0; k <= last; ++k, ++r) {
            rows->span[r] = s;
            rows->t[r] = static_cast<double>(k) / step;
            rows->param[r] = static_cast<float>(static_cast<double>(s) / spans + static_cast<double>(k) / spans / step);
        }
    }
}

// Point and derivatives at one sample; false when the derivatives give no
// normal.
bool sampleAt(const Patch *p, const Basis1D &bu, const Basis1D &bv, float pos[3], float normal[3]) {
    double s[4] = {0, 0, 0, 0}, su[4] = {0, 0, 0, 0}, sv[4] = {0, 0, 0, 0};
    for (int b = 0; b < bv.n; ++b)
        for (int a = 0; a < bu.n; ++a) {
            const float *cv = p->cvs[static_cast<size_t>(bv.index[b]) * p->uCount + bu.index[a]];
            const double w = cv[3], h[4] = {cv[0] * w, cv[1] * w, cv[2] * w, w};
            for (int k = 0; k < 4; ++k) {
                s[k] += bu.w[a] * bv.w[b] * h[k];
                su[k] += bu.dw[a] * bv.w[b] * h[k];
                sv[k] += bu.w[a] * bv.dw[b] * h[k];
            }
        }
    if (s[3] == 0.0) s[3] = 1.0;
    double point[3], tu[3], tv[3];
    for (int k = 0; k < 3; ++k) {
        point[k] = s[k] / s[3];
        tu[k] = (su[k] - su[3] * point[k]) / s[3];
        tv[k] = (sv[k] - sv[3] * point[k]) / s[3];
        pos[k] = static_cast<float>(point[k]);
    }
    // The triangles run (i, j), (i, j + 1), (i + 1, j + 1): their front is
    // the side of dv x du.
    const double n[3] = {tv[1] * tu[2] - tv[2] * tu[1], tv[2] * tu[0] - tv[0] * tu[2], tv[0] * tu[1] - tv[1] * tu[0]};
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (len < 1e-12) return false;
    for (int k = 0; k < 3; ++k) normal[k] = static_cast<float>(n[k] / len);
    return true;
}

}  // namespace

void patchEvaluate(const Patch *p, int stepU, int stepV, PatchGrid *grid) {
    memset(grid, 0, sizeof *grid);
    const int spansU = patchSpans(p->uType, p->uCount, p->uClosed);
    const int spansV = patchSpans(p->vType, p->vCount, p->vClosed);
    if (!p->cvs || spansU == 0 || spansV == 0 || stepU <= 0 || stepV <= 0) return;
    Rows ru, rv;
    rowsMake(p->uType, spansU, stepU, p->uClosed, &ru);
    rowsMake(p->vType, spansV, stepV, p->vClosed, &rv);
    const size_t n = static_cast<size_t>(ru.count) * rv.count;
    grid->countU = ru.count;
    grid->countV = rv.count;
    grid->pos = static_cast<float (*)[3]>(tessAlloc(n, sizeof(float[3])));
    grid->normal = static_cast<float (*)[3]>(tessAlloc(n, sizeof(float[3])));
    grid->paramU = ru.param;
    grid->paramV = rv.param;
    Basis1D *bv = static_cast<Basis1D *>(tessAlloc(static_cast<size_t>(rv.count), sizeof(Basis1D)));
    for (int j = 0; j < rv.count; ++j) basisAt(p->vType, p->vCount, rv.span[j], rv.t[j], &bv[j]);
    for (int i = 0; i < ru.count; ++i) {
        Basis1D bu;
        basisAt(p->uType, p->uCount, ru.span[i], ru.t[i], &bu);
        for (int j = 0; j < rv.count; ++j) {
            const size_t at = static_cast<size_t>(i) * rv.count + j;
            if (sampleAt(p, bu, bv[j], grid->pos[at], grid->normal[at])) continue;
            // A collapsed edge or pole: take the normal a little inside the span.
            float ignored[3];
            bool found = false;
            for (int tries = 0; tries < 3 && !found; ++tries) {
                const double du = tries != 1 ? (ru.t[i] < 0.5 ? 1e-3 : -1e-3) : 0.0;
                const double dv = tries != 0 ? (rv.t[j] < 0.5 ? 1e-3 : -1e-3) : 0.0;
                Basis1D nu, nv;
                basisAt(p->uType, p->uCount, ru.span[i], ru.t[i] + du, &nu);
                basisAt(p->vType, p->vCount, rv.span[j], rv.t[j] + dv, &nv);
                found = sampleAt(p, nu, nv, ignored, grid->normal[at]);
            }
            if (!found) grid->normal[at][0] = grid->normal[at][1] = 0.0f, grid->normal[at][2] = 1.0f;
        }
    }
    free(bv);
    free(ru.span); free(ru.t);
    free(rv.span); free(rv.t);
}

void patchGridFree(PatchGrid *grid) {
    free(grid->pos);
    free(grid->normal);
    free(grid->paramU);
    free(grid->paramV);
    memset(grid, 0, sizeof *grid);
}

int tessellatePatch(Model *model, Patch *shape, Patch *reference, int precision) {
    if (!shape) return 0;
    if (!reference) reference = shape;
    // A global precision stands in for the surfaces' own steps for the time
    // of the tessellation only: the records keep theirs.
    uint32_t savedShape[2], savedRef[2];
    memcpy(savedShape, shape->step, sizeof savedShape);
    memcpy(savedRef, reference->step, sizeof savedRef);
    if (precision > 0) {
        const uint32_t level = static_cast<uint16_t>(precision);
        shape->step[0] = shape->step[1] = level;
        reference->step[0] = reference->step[1] = level;
    }
    const int stepU = patchStepU(shape), stepV = patchStepV(shape);
    const int spansU = patchSpans(shape->uType, shape->uCount, shape->uClosed);
    const int spansV = patchSpans(shape->vType, shape->vCount, shape->vClosed);
    if (stepU && stepV && spansU && spansV && shape->cvs) {
        PatchGrid grid, refGrid;
        patchEvaluate(shape, stepU, stepV, &grid);
        const bool ownRef = reference != shape;
        if (ownRef) patchEvaluate(reference, patchStepU(reference), patchStepV(reference), &refGrid);
        const PatchGrid &ref = ownRef && refGrid.countU ? refGrid : grid;
        const int64_t nv = int64_t{grid.countU} * grid.countV;
        const int64_t nt = int64_t{stepU} * stepV * spansU * spansV * 2;
        tessArraysNew(model, nv, nt);
        const int64_t refCount = int64_t{ref.countU} * ref.countV;
        for (int i = 0; i < grid.countU; ++i)
            for (int j = 0; j < grid.countV; ++j) {
                const int64_t at = int64_t{i} * grid.countV + j;
                TessVertex *v = &model->vertices[at];
                tessVertexSet(v, grid.paramU[i], grid.paramV[j], grid.pos[at], grid.normal[at]);
                memcpy(v->refPos, ref.pos[at % refCount], sizeof v->refPos);
            }
        // Cells in the vertex order; an index past the grid wraps, which is
        // how a closed direction shares its seam.
        const bool ownU = patchOwnRows(shape->uType), ownV = patchOwnRows(shape->vType);
        TessTriangle *t = model->triangles;
        auto vertexAt = [&](int i, int j) {
            if (i >= grid.countU) i -= grid.countU;
            if (j >= grid.countV) j -= grid.countV;
            return &model->vertices[int64_t{i} * grid.countV + j];
        };
        for (int su = 0; su < spansU; ++su)
            for (int ku = 0; ku < stepU; ++ku) {
                const int i = su * (ownU ? stepU + 1 : stepU) + ku;
                for (int sv = 0; sv < spansV; ++sv)
                    for (int kv = 0; kv < stepV; ++kv) {
                        const int j = sv * (ownV ? stepV + 1 : stepV) + kv;
                        t->v[0] = vertexAt(i, j); t->v[1] = vertexAt(i, j + 1); t->v[2] = vertexAt(i + 1, j + 1);
                        ++t;
                        t->v[0] = vertexAt(i, j); t->v[1] = vertexAt(i + 1, j + 1); t->v[2] = vertexAt(i + 1, j);
                        ++t;
                    }
            }
        tessTrianglesLink(model, static_cast<int32_t>(nt));
        tessTrianglesMaterial(model, tessFirstMaterial(model), 0);
        patchGridFree(&grid);
        if (ownRef) patchGridFree(&refGrid);
    }
    memcpy(shape->step, savedShape, sizeof savedShape);
    memcpy(reference->step, savedRef, sizeof savedRef);
    return 0;
}
