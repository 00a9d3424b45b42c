// Polygon triangulation by ear clipping: an outer loop and holes in a plane,
// the holes joined to the outer loop by bridges first, then ears cut off one
// by one. Degenerate input (no area, loops that leave no ear) is refused.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "tess_internal.h"

namespace {

struct Ring {
    std::vector<int> point;  // point index of each node
    std::vector<int> prev, next;
};

double cross(const double *a, const double *b, const double *c) {
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

double loopArea(const double (*p)[2], int first, int count) {
    double area = 0.0;
    for (int i = 0; i < count; ++i) {
        const double *a = p[first + i], *b = p[first + (i + 1) % count];
        area += a[0] * b[1] - b[0] * a[1];
    }
    return 0.5 * area;
}

// Inside or on the triangle (a, b, c), turning counter-clockwise.
bool inTriangle(const double *a, const double *b, const double *c, const double *p, double eps) {
    return cross(a, b, p) >= -eps && cross(b, c, p) >= -eps && cross(c, a, p) >= -eps;
}

// Appends a loop as a closed chain of nodes; returns its first node.
int ringAddLoop(Ring &r, const std::vector<int> &points) {
    const int first = static_cast<int>(r.point.size()), n = static_cast<int>(points.size());
    for (int i = 0; i < n; ++i) {
        r.point.push_back(points[static_cast<size_t>(i)]);
        r.prev.push_back(first + (i + n - 1) % n);
        r.next.push_back(first + (i + 1) % n);
    }
    return first;
}

// Joins a hole chain (starting at its right-most node `m`) to the outer ring
// through a visible node of the ring; false when none is visible.
bool bridgeHole(Ring &r, const double (*p)[2], int outerStart, int m, double eps) {
    const double *mp = p[r.point[static_cast<size_t>(m)]];
    // Nearest crossing of the ray from m towards +x with an edge of the ring.
    double bestX = INFINITY;
    int bridge = -1;
    int node = outerStart;
    do {
        const int nx = r.next[static_cast<size_t>(node)];
        const double *a = p[r.point[static_cast<size_t>(node)]], *b = p[r.point[static_cast<size_t>(nx)]];
        if ((a[1] <= mp[1] && b[1] >= mp[1]) || (b[1] <= mp[1] && a[1] >= mp[1])) {
            const double dy = b[1] - a[1];
            const double x = std::fabs(dy) < eps ? std::max(a[0], b[0]) : a[0] + (mp[1] - a[1]) * (b[0] - a[0]) / dy;
            if (x >= mp[0] - eps && x < bestX) {
                bestX = x;
                bridge = a[0] > b[0] ? node : nx;
            }
        }
        node = nx;
    } while (node != outerStart);
    if (bridge < 0) return false;
    // A ring node inside the triangle (m, crossing, bridge) hides the bridge
    // end: take the one of them closest in angle to the ray.
    const double hit[2] = {bestX, mp[1]};
    const double *bp = p[r.point[static_cast<size_t>(bridge)]];
    double bestTan = INFINITY;
    node = outerStart;
    do {
        const double *q = p[r.point[static_cast<size_t>(node)]];
        if (node != bridge && q[0] >= mp[0] - eps) {
            const bool inside = cross(mp, hit, bp) >= 0 ? inTriangle(mp, hit, bp, q, eps) : inTriangle(mp, bp, hit, q, eps);
            if (inside) {
                const double tangent = std::fabs(q[1] - mp[1]) / std::max(q[0] - mp[0], eps);
                if (tangent < bestTan) {
                    bestTan = tangent;
                    bridge = node;
                }
            }
        }
        node = r.next[static_cast<size_t>(node)];
    } while (node != outerStart);
    // Splice: ... bridge -> m -> (hole) -> m' -> bridge' -> next of bridge ...
    const int after = r.next[static_cast<size_t>(bridge)], beforeM = r.prev[static_cast<size_t>(m)];
    const int b2 = static_cast<int>(r.point.size());
    r.point.push_back(r.point[static_cast<size_t>(bridge)]);
    r.prev.push_back(0);
    r.next.push_back(0);
    const int m2 = static_cast<int>(r.point.size());
    r.point.push_back(r.point[static_cast<size_t>(m)]);
    r.prev.push_back(0);
    r.next.push_back(0);
    r.next[static_cast<size_t>(bridge)] = m;
    r.prev[static_cast<size_t>(m)] = bridge;
    r.next[static_cast<size_t>(beforeM)] = m2;
    r.prev[static_cast<size_t>(m2)] = beforeM;
    r.next[static_cast<size_t>(m2)] = b2;
    r.prev[static_cast<size_t>(b2)] = m2;
    r.next[static_cast<size_t>(b2)] = after;
    r.prev[static_cast<size_t>(after)] = b2;
    return true;
}

}  // namespace

int polygonTriangulate(const double (*input)[2], const int *counts, int loopCount, int *out) {
    if (!input || !counts || loopCount < 1 || counts[0] < 3) return -1;
    int total = 0;
    for (int l = 0; l < loopCount; ++l) {
        if (counts[l] < 0) return -1;
        total += counts[l];
    }
    // Work on a copy turned so that the outer loop runs counter-clockwise: a
    // mirror keeps the index order, so the triangles keep the input's sense.
    std::vector<double> copy(static_cast<size_t>(total) * 2);
    double (*p)[2] = reinterpret_cast<double (*)[2]>(copy.data());
    const double mirror = loopArea(input, 0, counts[0]) < 0 ? -1.0 : 1.0;
    double lo[2] = {INFINITY, INFINITY}, hi[2] = {-INFINITY, -INFINITY};
    for (int i = 0; i < total; ++i) {
        p[i][0] = input[i][0] * mirror;
        p[i][1] = input[i][1];
        for (int k = 0; k < 2; ++k) {
            lo[k] = std::min(lo[k], p[i][k]);
            hi[k] = std::max(hi[k], p[i][k]);
        }
    }
    const double size = std::max(hi[0] - lo[0], hi[1] - lo[1]);
    if (!(size > 0) || !std::isfinite(size)) return -1;
    const double eps = 1e-12 * size * size;
    if (std::fabs(loopArea(p, 0, counts[0])) <= eps) return -1;

    Ring ring;
    std::vector<int> loop;
    for (int i = 0; i < counts[0]; ++i) loop.push_back(i);
    const int outerStart = ringAddLoop(ring, loop);
    // Holes run clockwise; the right-most ones are joined first.
    struct Hole { int start; double maxX; };
    std::vector<Hole> holes;
    for (int l = 1, first = counts[0]; l < loopCount; first += counts[l], ++l) {
        const double area = loopArea(p, first, counts[l]);
        if (counts[l] < 3 || std::fabs(area) <= eps) continue;
        loop.clear();
        for (int i = 0; i < counts[l]; ++i) loop.push_back(area > 0 ? first + counts[l] - 1 - i : first + i);
        const int start = ringAddLoop(ring, loop);
        int right = start;
        for (int i = 0; i < counts[l]; ++i)
            if (p[ring.point[static_cast<size_t>(start + i)]][0] > p[ring.point[static_cast<size_t>(right)]][0])
                right = start + i;
        holes.push_back({right, p[ring.point[static_cast<size_t>(right)]][0]});
    }
    std::sort(holes.begin(), holes.end(), [](const Hole &a, const Hole &b) { return a.maxX > b.maxX; });
    for (const Hole &h : holes)
        if (!bridgeHole(ring, p, outerStart, h.start, eps)) return -1;

    int remaining = 0;  // nodes on the ring: holes left out are not
    for (int node = outerStart;;) {
        ++remaining;
        node = ring.next[static_cast<size_t>(node)];
        if (node == outerStart) break;
    }

    int triangles = 0, node = outerStart, sinceCut = 0;
    auto at = [&](int n) { return p[ring.point[static_cast<size_t>(n)]]; };
    auto emit = [&](int a, int b, int c) {
        out[3 * triangles] = ring.point[static_cast<size_t>(a)];
        out[3 * triangles + 1] = ring.point[static_cast<size_t>(b)];
        out[3 * triangles + 2] = ring.point[static_cast<size_t>(c)];
        ++triangles;
    };
    while (remaining > 3) {
        const int a = ring.prev[static_cast<size_t>(node)], c = ring.next[static_cast<size_t>(node)];
        const double turn = cross(at(a), at(node), at(c));
        bool ear = turn > eps;
        for (int q = ring.next[static_cast<size_t>(c)]; ear && q != a; q = ring.next[static_cast<size_t>(q)]) {
            const int pq = ring.point[static_cast<size_t>(q)];
            if (pq == ring.point[static_cast<size_t>(a)] || pq == ring.point[static_cast<size_t>(node)] ||
                pq == ring.point[static_cast<size_t>(c)])
                continue;
            if (inTriangle(at(a), at(node), at(c), at(q), eps)) ear = false;
        }
        // Cut an ear; after a whole round without one, a node without area
        // (collinear, or a spike) goes without a triangle.
        if (ear || (sinceCut >= remaining && std::fabs(turn) <= eps)) {
            if (ear) emit(a, node, c);
            ring.next[static_cast<size_t>(a)] = c;
            ring.prev[static_cast<size_t>(c)] = a;
            --remaining;
            node = c;
            sinceCut = 0;
            continue;
        }
        node = c;
        if (++sinceCut > 2 * remaining) return -1;
    }
    const int a = ring.prev[static_cast<size_t>(node)], c = ring.next[static_cast<size_t>(node)];
    if (cross(at(a), at(node), at(c)) > eps) emit(a, node, c);
    if (triangles == 0) return -1;
    return triangles;
}

int polygonTriangulate3D(const float (*points)[3], const int *counts, int loopCount, int *out) {
    if (!points || !counts || loopCount < 1 || counts[0] < 3) return -1;
    // The plane's normal by Newell's sums over the outer loop.
    double n[3] = {0, 0, 0};
    for (int i = 0; i < counts[0]; ++i) {
        const float *a = points[i], *b = points[(i + 1) % counts[0]];
        n[0] += (static_cast<double>(a[1]) - b[1]) * (static_cast<double>(a[2]) + b[2]);
        n[1] += (static_cast<double>(a[2]) - b[2]) * (static_cast<double>(a[0]) + b[0]);
        n[2] += (static_cast<double>(a[0]) - b[0]) * (static_cast<double>(a[1]) + b[1]);
    }
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (!(len > 1e-30)) return -1;
    for (double &c : n) c /= len;
    // Axes of the plane with t1 x t2 = n, so that a loop turning
    // counter-clockwise about n turns so in the plane too.
    const int smallest = std::fabs(n[0]) <= std::fabs(n[1]) && std::fabs(n[0]) <= std::fabs(n[2]) ? 0
                         : std::fabs(n[1]) <= std::fabs(n[2])                                    ? 1
                                                                                                 : 2;
    double axis[3] = {0, 0, 0}, t1[3], t2[3];
    axis[smallest] = 1.0;
    t1[0] = axis[1] * n[2] - axis[2] * n[1];
    t1[1] = axis[2] * n[0] - axis[0] * n[2];
    t1[2] = axis[0] * n[1] - axis[1] * n[0];
    const double l1 = std::sqrt(t1[0] * t1[0] + t1[1] * t1[1] + t1[2] * t1[2]);
    for (double &c : t1) c /= l1;
    t2[0] = n[1] * t1[2] - n[2] * t1[1];
    t2[1] = n[2] * t1[0] - n[0] * t1[2];
    t2[2] = n[0] * t1[1] - n[1] * t1[0];
    int total = 0;
    for (int l = 0; l < loopCount; ++l) total += std::max(counts[l], 0);
    std::vector<double> flat(static_cast<size_t>(total) * 2);
    for (int i = 0; i < total; ++i) {
        const float *q = points[i];
        flat[2 * static_cast<size_t>(i)] = q[0] * t1[0] + q[1] * t1[1] + q[2] * t1[2];
        flat[2 * static_cast<size_t>(i) + 1] = q[0] * t2[0] + q[1] * t2[1] + q[2] * t2[2];
    }
    return polygonTriangulate(reinterpret_cast<const double (*)[2]>(flat.data()), counts, loopCount, out);
}
