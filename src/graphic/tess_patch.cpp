// Patches: the sampling of the surface of a CV grid on a regular grid of
// parameters, and the tessellation that writes that grid as vertices
// and triangles.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tess_internal.h"

namespace {

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
    for (int i = 0; i < ru.count; ++i)
        for (int j = 0; j < rv.count; ++j) {
            const size_t at = static_cast<size_t>(i) * rv.count + j;
            patchSample(p, ru.span[i], ru.t[i], rv.span[j], rv.t[j], grid->pos[at], grid->normal[at]);
        }
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
