// Meta clay: the polygonising pass of a meta group (type 7) over its clay
// balls (type 8 models), and the copy of its result into the display form.
//
// Each ball adds a smooth bump to a field: weight x (1 - s^2)^2, where s is
// the distance from the ball's centre in its own frame over twice its radius,
// and nothing beyond. The surface is where the field reaches META_THRESHOLD,
// the bump's value at half its reach, so a ball of weight 1 alone closes at
// its radius, and near balls add up between them and run together. The ball's frame
// is its node's transform, so a scaled ball is an ellipsoid.
//
// The field is sampled on a grid over the balls' reach and cut into six
// tetrahedra per cell around the cell's diagonal; neighbouring cells split
// their common faces alike, and each tetrahedron gives up to two triangles
// whose corners lie where the field crosses the threshold on its edges. Points
// on a grid edge are shared, so the surface is closed.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "dictionary.h"
#include "tess_internal.h"

namespace {

constexpr double META_CELLS_PER_RADIUS = 6.0;  // grid steps across the smallest ball's radius
constexpr int META_MAX_CELLS = 96;             // grid steps along the longest side at most

struct Ball {
    double centre[3];   // in the group's coordinates
    double toBall[3][3];  // group offsets to the ball's frame, row vector times rows
    double reach2;      // (2 x radius)^2, in the ball's frame
    double weight;      // height of the bump; negative takes away
    double lo[3], hi[3];  // box of the reach, group coordinates
};

// Affine matrices (rows, translation in the fourth row) in double.
using Affine = double[4][4];

bool affineInverse(const float m[4][4], Affine out) {
    const double a = m[0][0], b = m[0][1], c = m[0][2], d = m[1][0], e = m[1][1], f = m[1][2], g = m[2][0],
                 h = m[2][1], k = m[2][2];
    const double det = a * (e * k - f * h) - b * (d * k - f * g) + c * (d * h - e * g);
    if (!(std::fabs(det) > 1e-30)) return false;
    const double r = 1.0 / det;
    const double inv[3][3] = {{(e * k - f * h) * r, (c * h - b * k) * r, (b * f - c * e) * r},
                              {(f * g - d * k) * r, (a * k - c * g) * r, (c * d - a * f) * r},
                              {(d * h - e * g) * r, (b * g - a * h) * r, (a * e - b * d) * r}};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) out[i][j] = inv[i][j];
        out[i][3] = 0.0;
    }
    for (int j = 0; j < 3; ++j) out[3][j] = -(m[3][0] * inv[0][j] + m[3][1] * inv[1][j] + m[3][2] * inv[2][j]);
    out[3][3] = 1.0;
    return true;
}

// out = m (float) times n (double), both affine.
void affineMul(const float m[4][4], const Affine n, Affine out) {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double v = 0.0;
            for (int k = 0; k < 4; ++k) v += m[i][k] * n[k][j];
            out[i][j] = v;
        }
}

// The clay balls of a group: its members by name, looked for in the group's
// own tree, then among the scene's models; a group without members takes the
// balls under it.
std::vector<const Model *> metaBalls(const Model *group) {
    std::vector<const Model *> out;
    auto take = [&](const Model *m) {
        if (m && m->type == MODEL_REF && m->geometry.ref) out.push_back(m);
    };
    const MetaGroup *g = group->geometry.meta;
    if (g && g->memberCount > 0) {
        Model *root = const_cast<Model *>(group);
        while (root->parent) root = root->parent;
        Dictionary *dict = tessDictionary();
        Chapter *models = dict ? dictChapter(dict, CHP_MODELS) : nullptr;
        for (int i = 0; i < g->memberCount; ++i) {
            const char *name = g->members[i].name;
            if (!name) continue;
            const Model *found = modelFindByName(nullptr, root, name);
            for (int32_t e = 0; !found && models && e < models->elementCount; ++e) {
                const Model *m = models->elements[e].deleted != ELEM_LIVE ? nullptr : static_cast<const Model *>(models->elements[e].data);
                if (m && m->name && strcmp(m->name, name) == 0) found = m;
            }
            take(found);
        }
        return out;
    }
    std::vector<const Model *> stack;
    for (const Model *c = group->firstChild; c; c = c->nextSibling) stack.push_back(c);
    while (!stack.empty()) {
        const Model *m = stack.back();
        stack.pop_back();
        take(m);
        for (const Model *c = m->firstChild; c; c = c->nextSibling) stack.push_back(c);
    }
    return out;
}

// A ball in the group's frame; false when it adds nothing.
bool ballMake(const Model *m, const Affine groupInverse, Ball *b, double *smallest) {
    const ModelRef *r = m->geometry.ref;
    const double radius = r->value4, weight = r->value5;
    if (!(radius > 0.0) || weight == 0.0 || !std::isfinite(radius) || !std::isfinite(weight)) return false;
    Affine rel;
    affineMul(m->globalMatrix, groupInverse, rel);
    float relF[4][4];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) relF[i][j] = static_cast<float>(rel[i][j]);
    Affine inv;
    if (!affineInverse(relF, inv)) return false;
    const double reach = 2.0 * radius;
    b->reach2 = reach * reach;
    b->weight = weight;
    double shortest = INFINITY;
    for (int i = 0; i < 3; ++i) {
        b->centre[i] = rel[3][i];
        for (int j = 0; j < 3; ++j) b->toBall[i][j] = inv[i][j];
        const double axis = std::sqrt(rel[i][0] * rel[i][0] + rel[i][1] * rel[i][1] + rel[i][2] * rel[i][2]);
        shortest = std::fmin(shortest, axis);
        // Half extent of the reach along group axis i: the ellipsoid's.
        const double half = reach * std::sqrt(rel[0][i] * rel[0][i] + rel[1][i] * rel[1][i] + rel[2][i] * rel[2][i]);
        b->lo[i] = rel[3][i] - half;
        b->hi[i] = rel[3][i] + half;
    }
    if (weight > 0.0) *smallest = std::fmin(*smallest, radius * shortest);
    return true;
}

// The field of the balls at p, and its gradient when asked.
double fieldAt(const std::vector<Ball> &balls, const double p[3], double gradient[3]) {
    double f = 0.0;
    if (gradient) gradient[0] = gradient[1] = gradient[2] = 0.0;
    for (const Ball &b : balls) {
        double q[3];
        const double d[3] = {p[0] - b.centre[0], p[1] - b.centre[1], p[2] - b.centre[2]};
        for (int j = 0; j < 3; ++j) q[j] = d[0] * b.toBall[0][j] + d[1] * b.toBall[1][j] + d[2] * b.toBall[2][j];
        const double s2 = (q[0] * q[0] + q[1] * q[1] + q[2] * q[2]) / b.reach2;
        if (s2 >= 1.0) continue;
        const double rest = 1.0 - s2;
        f += b.weight * rest * rest;
        if (gradient) {
            // d f / d q = weight x 2 (1 - s2) x (-2 q / reach2); back to the group's axes.
            const double k = -4.0 * b.weight * rest / b.reach2;
            for (int i = 0; i < 3; ++i)
                gradient[i] += k * (b.toBall[i][0] * q[0] + b.toBall[i][1] * q[1] + b.toBall[i][2] * q[2]);
        }
    }
    return f;
}

// The six tetrahedra of a cell around its diagonal from corner 0 to corner
// 7; corner bits are x 1, y 2, z 4. Every edge runs from a corner to one with
// more bits, so a point on it is known by its lower corner and the bits added.
constexpr int TETRAHEDRA[6][4] = {{0, 1, 3, 7}, {0, 1, 5, 7}, {0, 2, 3, 7},
                                  {0, 2, 6, 7}, {0, 4, 5, 7}, {0, 4, 6, 7}};

struct Grid {
    int n[3];          // cells per axis
    double lo[3];      // first sample
    double step;       // cell edge
    std::vector<float> value;  // field per sample, x fastest

    int64_t index(int i, int j, int k) const {
        return (int64_t{k} * (n[1] + 1) + j) * (n[0] + 1) + i;
    }
};

struct Builder {
    const std::vector<Ball> *balls;
    const Grid *grid;
    std::unordered_map<int64_t, int32_t> pointOf;  // (sample x 8 + bits) to point
    std::vector<float> points, normals;          // 3 per point
    std::vector<int32_t> triangles;              // 3 per triangle

    void samplePos(int64_t s, double p[3]) const {
        const int64_t nx = grid->n[0] + 1, ny = grid->n[1] + 1;
        const int64_t i = s % nx, j = (s / nx) % ny, k = s / (nx * ny);
        p[0] = grid->lo[0] + static_cast<double>(i) * grid->step;
        p[1] = grid->lo[1] + static_cast<double>(j) * grid->step;
        p[2] = grid->lo[2] + static_cast<double>(k) * grid->step;
    }

    // The point where the field crosses the threshold between samples a
    // (lower) and b, b being a's corner plus `bits`.
    int32_t crossing(int64_t a, int64_t b, int bits) {
        const int64_t key = a * 8 + bits;
        auto found = pointOf.find(key);
        if (found != pointOf.end()) return found->second;
        double pa[3], pb[3], p[3], gradient[3];
        samplePos(a, pa);
        samplePos(b, pb);
        const double fa = grid->value[static_cast<size_t>(a)], fb = grid->value[static_cast<size_t>(b)];
        const double t = fb != fa ? (META_THRESHOLD - fa) / (fb - fa) : 0.5;
        for (int k = 0; k < 3; ++k) p[k] = pa[k] + t * (pb[k] - pa[k]);
        fieldAt(*balls, p, gradient);
        double len = std::sqrt(gradient[0] * gradient[0] + gradient[1] * gradient[1] + gradient[2] * gradient[2]);
        double outward[3] = {-gradient[0], -gradient[1], -gradient[2]};
        if (!(len > 1e-12)) {
            // A flat field: outwards is from the inside sample to the outside one.
            const double sign = fa > META_THRESHOLD ? 1.0 : -1.0;
            for (int k = 0; k < 3; ++k) outward[k] = sign * (pb[k] - pa[k]);
            len = grid->step;
        }
        const int32_t id = static_cast<int32_t>(points.size() / 3);
        for (int k = 0; k < 3; ++k) {
            points.push_back(static_cast<float>(p[k]));
            normals.push_back(static_cast<float>(outward[k] / len));
        }
        pointOf.emplace(key, id);
        return id;
    }

    // Appends triangle (a, b, c) turning clockwise seen from the outside:
    // reversed when `counter` says it turns the other way.
    void triangle(int32_t a, int32_t b, int32_t c, bool counter) {
        triangles.push_back(a);
        triangles.push_back(counter ? c : b);
        triangles.push_back(counter ? b : c);
    }

    // The turning of the crossing points is fixed by the corners alone, so
    // it is taken from the sign of the tetrahedron on its whole corners:
    // thin triangles near a sample keep their sense.
    static bool positive(int c0, int c1, int c2, int c3) {
        int e[3][3];
        for (int k = 0; k < 3; ++k) {
            e[0][k] = ((c1 >> k) & 1) - ((c0 >> k) & 1);
            e[1][k] = ((c2 >> k) & 1) - ((c0 >> k) & 1);
            e[2][k] = ((c3 >> k) & 1) - ((c0 >> k) & 1);
        }
        return e[0][0] * (e[1][1] * e[2][2] - e[1][2] * e[2][1]) - e[0][1] * (e[1][0] * e[2][2] - e[1][2] * e[2][0]) +
                   e[0][2] * (e[1][0] * e[2][1] - e[1][1] * e[2][0]) > 0;
    }

    void tetrahedron(const int64_t sample[8], const int corner[4]) {
        int inside[4], outside[4], ni = 0, no = 0;
        for (int c = 0; c < 4; ++c) {
            if (grid->value[static_cast<size_t>(sample[corner[c]])] > META_THRESHOLD) inside[ni++] = corner[c];
            else outside[no++] = corner[c];
        }
        if (ni == 0 || no == 0) return;
        auto cross = [&](int x, int y) {
            const int lo = x < y ? x : y, hi = x < y ? y : x;
            return crossing(sample[lo], sample[hi], hi - lo);
        };
        if (ni == 1 || no == 1) {
            // Points on the edges from the lone corner turn as the opposite
            // face does seen from it: away from it on a positive corner order.
            const int apex = ni == 1 ? inside[0] : outside[0];
            const int *o = ni == 1 ? outside : inside;
            const bool away = positive(apex, o[0], o[1], o[2]);
            triangle(cross(apex, o[0]), cross(apex, o[1]), cross(apex, o[2]), ni == 1 ? away : !away);
            return;
        }
        // Two and two: a quad around the tetrahedron, in two triangles.
        const int32_t q[4] = {cross(inside[0], outside[0]), cross(inside[0], outside[1]),
                              cross(inside[1], outside[1]), cross(inside[1], outside[0])};
        const bool counter = positive(inside[0], inside[1], outside[0], outside[1]);
        triangle(q[0], q[1], q[2], counter);
        triangle(q[0], q[2], q[3], counter);
    }
};

}  // namespace

void metaSurfaceFree(MetaSurface *s) {
    free(s->points);
    free(s->normals);
    free(s->triangles);
    memset(s, 0, sizeof *s);
}

void metaPolygonise(const Model *group, MetaSurface *out) {
    memset(out, 0, sizeof *out);
    Affine groupInverse;
    if (!group || !affineInverse(group->globalMatrix, groupInverse)) return;
    std::vector<Ball> balls;
    double smallest = INFINITY;
    double lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
    for (const Model *m : metaBalls(group)) {
        Ball b;
        if (!ballMake(m, groupInverse, &b, &smallest)) continue;
        balls.push_back(b);
        if (b.weight > 0.0)
            for (int k = 0; k < 3; ++k) {
                lo[k] = std::fmin(lo[k], b.lo[k]);
                hi[k] = std::fmax(hi[k], b.hi[k]);
            }
    }
    // Only positive balls raise the field to the threshold, and the field is
    // 0 on the border of their reach: a grid over it closes every surface.
    if (!std::isfinite(smallest) || !(lo[0] < hi[0])) return;
    Grid grid;
    const double longest = std::fmax(hi[0] - lo[0], std::fmax(hi[1] - lo[1], hi[2] - lo[2]));
    grid.step = std::fmax(smallest / META_CELLS_PER_RADIUS, longest / META_MAX_CELLS);
    for (int k = 0; k < 3; ++k) {
        grid.n[k] = static_cast<int>(std::ceil((hi[k] - lo[k]) / grid.step));
        if (grid.n[k] < 1) grid.n[k] = 1;
        grid.lo[k] = lo[k];
    }
    grid.value.assign(static_cast<size_t>(grid.index(grid.n[0], grid.n[1], grid.n[2]) + 1), 0.0f);
    // Each ball adds to the samples within its reach only.
    for (const Ball &b : balls) {
        int from[3], to[3];
        for (int k = 0; k < 3; ++k) {
            from[k] = static_cast<int>(std::floor((b.lo[k] - grid.lo[k]) / grid.step));
            to[k] = static_cast<int>(std::ceil((b.hi[k] - grid.lo[k]) / grid.step));
            from[k] = from[k] < 0 ? 0 : from[k];
            to[k] = to[k] > grid.n[k] ? grid.n[k] : to[k];
        }
        const std::vector<Ball> one{b};
        for (int k = from[2]; k <= to[2]; ++k)
            for (int j = from[1]; j <= to[1]; ++j)
                for (int i = from[0]; i <= to[0]; ++i) {
                    const double p[3] = {grid.lo[0] + i * grid.step, grid.lo[1] + j * grid.step,
                                         grid.lo[2] + k * grid.step};
                    grid.value[static_cast<size_t>(grid.index(i, j, k))] += static_cast<float>(fieldAt(one, p, nullptr));
                }
    }
    Builder build;
    build.balls = &balls;
    build.grid = &grid;
    for (int k = 0; k < grid.n[2]; ++k)
        for (int j = 0; j < grid.n[1]; ++j)
            for (int i = 0; i < grid.n[0]; ++i) {
                int64_t sample[8];
                for (int c = 0; c < 8; ++c) sample[c] = grid.index(i + (c & 1), j + ((c >> 1) & 1), k + ((c >> 2) & 1));
                for (const int *t : TETRAHEDRA) build.tetrahedron(sample, t);
            }
    const size_t np = build.points.size() / 3, nt = build.triangles.size() / 3;
    if (np > INT32_MAX || nt > INT32_MAX) tessFatal();
    out->pointCount = static_cast<int32_t>(np);
    out->triangleCount = static_cast<int32_t>(nt);
    out->points = static_cast<float(*)[3]>(tessAlloc(np, 3 * sizeof(float)));
    out->normals = static_cast<float(*)[3]>(tessAlloc(np, 3 * sizeof(float)));
    out->triangles = static_cast<int32_t(*)[3]>(tessAlloc(nt, 3 * sizeof(int32_t)));
    if (np) {
        memcpy(out->points, build.points.data(), np * 3 * sizeof(float));
        memcpy(out->normals, build.normals.data(), np * 3 * sizeof(float));
    }
    if (nt) memcpy(out->triangles, build.triangles.data(), nt * 3 * sizeof(int32_t));
}

int tessellateMeta(Model *model) {
    // The generator polygonises the group for the frame; its triangles turn
    // the other way from the display's, so their corners are taken in
    // reverse.
    MetaSurface s;
    metaPolygonise(model, &s);
    if (s.triangleCount > 0) {
        tessArraysNew(model, s.pointCount, s.triangleCount);
        for (int32_t i = 0; i < s.pointCount; ++i) tessVertexSet(&model->vertices[i], 0.0f, 0.0f, s.points[i], s.normals[i]);
        for (int32_t t = 0; t < s.triangleCount; ++t)
            for (int c = 0; c < 3; ++c) model->triangles[t].v[c] = &model->vertices[s.triangles[t][2 - c]];
        tessTrianglesLink(model, s.triangleCount);
        tessTrianglesMaterial(model, tessFirstMaterial(model), 0);
    }
    metaSurfaceFree(&s);
    return 0;
}
