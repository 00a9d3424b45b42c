// Patches as surfaces: the point and normal of a CV grid at a parameter, for
// the tessellation and for the deformations that lay points on a patch.
#include <cmath>

#include "geometry.h"

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
    // The tessellation's triangles run (i, j), (i, j + 1), (i + 1, j + 1):
    // their front is the side of dv x du.
    const double n[3] = {tv[1] * tu[2] - tv[2] * tu[1], tv[2] * tu[0] - tv[0] * tu[2], tv[0] * tu[1] - tv[1] * tu[0]};
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (len < 1e-12) return false;
    for (int k = 0; k < 3; ++k) normal[k] = static_cast<float>(n[k] / len);
    return true;
}

// Span and parameter in it of `u` from 0 to 1 over `spans` spans.
void spanOf(double u, int spans, int *span, double *t) {
    if (!(u > 0.0)) u = 0.0;
    if (u > 1.0) u = 1.0;
    const double x = u * spans;
    int s = static_cast<int>(std::floor(x));
    if (s > spans - 1) s = spans - 1;
    *span = s;
    *t = x - s;
}

}  // namespace

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

void patchSample(const Patch *p, int spanU, double tU, int spanV, double tV, float pos[3], float normal[3]) {
    Basis1D bu, bv;
    basisAt(p->uType, p->uCount, spanU, tU, &bu);
    basisAt(p->vType, p->vCount, spanV, tV, &bv);
    if (sampleAt(p, bu, bv, pos, normal)) return;
    // A collapsed edge or pole: the normal a little inside the span.
    float ignored[3];
    for (int tries = 0; tries < 3; ++tries) {
        const double du = tries != 1 ? (tU < 0.5 ? 1e-3 : -1e-3) : 0.0;
        const double dv = tries != 0 ? (tV < 0.5 ? 1e-3 : -1e-3) : 0.0;
        Basis1D nu, nv;
        basisAt(p->uType, p->uCount, spanU, tU + du, &nu);
        basisAt(p->vType, p->vCount, spanV, tV + dv, &nv);
        if (sampleAt(p, nu, nv, ignored, normal)) return;
    }
    normal[0] = normal[1] = 0.0f;
    normal[2] = 1.0f;
}

int patchPointAt(const Patch *p, double u, double v, float pos[3], float normal[3]) {
    if (!p || !p->cvs) return 0;
    const int spansU = patchSpans(p->uType, p->uCount, p->uClosed);
    const int spansV = patchSpans(p->vType, p->vCount, p->vClosed);
    if (spansU == 0 || spansV == 0) return 0;
    int su, sv;
    double tu, tv;
    spanOf(u, spansU, &su, &tu);
    spanOf(v, spansV, &sv, &tv);
    patchSample(p, su, tu, sv, tv, pos, normal);
    return 1;
}
