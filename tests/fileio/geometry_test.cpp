// Tests of the geometry records: golden bytes of a mesh, round trips of every
// written type in both forms, linking, and damaged or lying records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>
#include <cstring>

#include "bytes.h"
#include "capture.h"
#include "geometry.h"

using namespace bwtest;

namespace {

Prototype *v4() {
    Prototype *p = protoNew();
    geometryProtoSet(*p);
    return p;
}

// Writes with `write`, reads back with `read`, in the listed and tokenised forms.
template <class T, class W, class R>
void roundTrip(const T *in, W write, R read, void (*check)(const T *, const T *), void (*release)(T *)) {
    Prototype *proto = v4();
    for (const Prototype *p : {static_cast<const Prototype *>(proto), static_cast<const Prototype *>(nullptr)}) {
        ByteSink s;
        ASSERT_TRUE(write(s.w, p, in));
        ByteFile f(s.bytes(), "geo.bin", 4.0f);
        T *out = read(f.r, p);
        ASSERT_NE(out, nullptr);
        EXPECT_FALSE(f.r.failed) << f.r.error;
        EXPECT_EQ(binRemaining(f.r), 0);
        check(in, out);
        release(out);
    }
    protoFree(proto);
}

// The golden mesh: one vertex, one one-node polygon with an extra UV domain.
Bytes goldenMesh() {
    Buf g;
    g.u16(2).f32(60.0f).i32(2);
    g.i32(1).f32(1).f32(2).f32(3).u16(5);
    g.i32(1).u16(1).i32(0).f32(0).f32(0).f32(1).f32(0.5f).f32(0.25f).i32(0x11223344).i32(8).f32(0.75f).f32(1.0f);
    g.u16(0).u16(7);
    g.i32(0);
    g.u16(1).u16(2).u16(1).f32(0.5f).f32(1.0f).f32(30.0f).u16(1).u16(4).u16(1);
    return g.b;
}

}  // namespace

TEST(GeometryMesh, GoldenBytesBothWays) {
    Mesh m{};
    MeshVertex v{{1, 2, 3}, nullptr, 0, 5};
    float uv[2] = {0.75f, 1.0f};
    MeshNode n{0, -1, {0, 0, 1}, 0.5f, 0.25f, 0x11223344, uv};
    MeshPolygon p{{0, 0, 0}, &n, 1, 0, 7};
    m.vertices = &v; m.vertexCount = 1;
    m.polygons = &p; m.polygonCount = 1;
    m.flags = MESH_FLAG_TOKEN1; m.discontinuity = 60.0f; m.uvDomainCount = 2;
    m.approx = {APPROX_SYSTEM, 0.5f, 1.0f, 30.0f, 1, 4, 1, APPROX_SPACIAL, 1};
    Prototype *proto = v4();
    ByteSink s;
    ASSERT_TRUE(writeMesh(s.w, proto, &m));
    EXPECT_EQ(s.bytes(), goldenMesh());

    ByteFile f(goldenMesh(), "geo.bin", 4.0f);
    Mesh *r = readMesh(f.r, proto, nullptr);
    ASSERT_TRUE(r && r->vertexCount == 1 && r->polygonCount == 1 && r->polygons[0].nodes[0].uvs);
    const MeshNode &rn = r->polygons[0].nodes[0];
    EXPECT_NEAR(r->cosDiscontinuity, 0.5f, 1e-6);
    EXPECT_EQ(std::vector<double>({double(r->flags), double(r->uvDomainCount), r->vertices[0].pos[2],
                                   double(r->vertices[0].flag), double(rn.colour), rn.uvs[0],
                                   double(r->polygons[0].flg), r->approx.spacialAngle, double(r->approx.subdMax)}),
              std::vector<double>({MESH_FLAG_TOKEN1, 2, 3, 5, 0x11223344, 0.75, 7, 30, 4}));
    meshFree(r);
    protoFree(proto);
}

TEST(GeometryMesh, OldColoursGainAlphaAndShortCountsMatchLongOnes) {
    // Tokenised: 16-bit counts (3, 4, 5) then 32-bit counts (7, 8, 9) of the same triangle.
    auto triangle = [](bool wide) {
        Buf b;
        b.u16(wide ? 7 : 3);
        wide ? b.i32(3) : b.u16(3);
        for (int i = 0; i < 3; ++i) b.u16(1).f32(float(i)).f32(float(i * i)).f32(0).u16(0);
        b.u16(wide ? 8 : 4);
        wide ? b.i32(1) : b.u16(1);
        b.u16(2).u16(3);
        for (int i = 0; i < 3; ++i) wide ? b.u16(3).i32(i).u16(1029).i32(0x00102030).u16(0)
                                         : b.u16(1).u16(uint16_t(i)).u16(1029).i32(0x00102030).u16(0);
        b.u16(0);
        b.u16(wide ? 9 : 5);
        wide ? b.i32(3) : b.u16(3);
        for (int i = 0; i < 3; ++i) wide ? b.u16(4).i32(i).i32((i + 1) % 3).u16(0) : b.u16(1).u16(uint16_t(i)).u16(uint16_t((i + 1) % 3)).u16(0);
        b.u16(0);
        return b.b;
    };
    ByteFile a(triangle(false), "geo.bin", 4.0f), b(triangle(true), "geo.bin", 4.0f);
    a.r.version = 2.0f;
    Mesh *ma = readMesh(a.r, nullptr, nullptr), *mb = readMesh(b.r, nullptr, nullptr);
    ASSERT_TRUE(ma->vertexCount == 3 && mb->vertexCount == 3 && ma->edgeCount == 3 && mb->edgeCount == 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mb->vertices[i].pos[1], float(i * i));
        EXPECT_EQ(ma->polygons[0].nodes[i].edg, i);
        EXPECT_EQ(mb->polygons[0].nodes[i].edg, i);
        EXPECT_EQ(meshEdge(ma, i)->pol[0], 0);
    }
    EXPECT_EQ(ma->polygons[0].nodes[0].colour, 0xFF102030u);
    EXPECT_EQ(mb->polygons[0].nodes[0].colour, 0x00102030u);
    meshFree(ma);
    meshFree(mb);
}

TEST(GeometryMesh, CubeLinksAndRoundTrips) {
    Mesh *cube = meshMakeCube(2.0f);
    ASSERT_NE(cube, nullptr);
    for (int e = 0; e < 12; ++e) EXPECT_GE(std::min(meshEdge(cube, e)->pol[0], meshEdge(cube, e)->pol[1]), 0) << e;
    roundTrip<Mesh>(cube, writeMesh, [](BinReader &r, const Prototype *p) { return readMesh(r, p, nullptr); },
        [](const Mesh *a, const Mesh *b) {
            ASSERT_TRUE(b->polygonCount == 6 && b->edgeCount == 12);
            for (int i = 0; i < 8; ++i) EXPECT_EQ(0, memcmp(a->vertices[i].pos, b->vertices[i].pos, 12));
            for (int p = 0; p < 6; ++p)
                for (int k = 0; k < 4; ++k) {
                    EXPECT_EQ(a->polygons[p].nodes[k].vrt, b->polygons[p].nodes[k].vrt);
                    EXPECT_EQ(a->polygons[p].nodes[k].edg, b->polygons[p].nodes[k].edg);
                }
            EXPECT_EQ(b->discontinuity, 60.0f);
        }, meshFree);
    meshFree(cube);
}

TEST(GeometryMesh, BadIndicesStayUnlinkedAndLyingCountsAllocateNothing) {
    // A polygon naming vertex 99 of 1 and an edge of vertex -4.
    Buf b;
    b.u16(7).i32(1).u16(1).f32(0).f32(0).f32(0).u16(0);
    b.u16(8).i32(1).u16(2).u16(2).u16(3).i32(99).u16(0).u16(3).i32(0).u16(0).u16(0);
    b.u16(9).i32(1).u16(4).i32(uint32_t(-4)).i32(0).u16(0).u16(0);
    ByteFile f(b.b, "geo.bin", 4.0f);
    Mesh *m = readMesh(f.r, nullptr, nullptr);
    EXPECT_TRUE(!f.r.failed && m->polygons[0].nodes[0].edg == -1 && m->vertices[0].neighbourCount == 0);
    meshFree(m);

    bwtest::OutputCapture cap;
    for (uint16_t token : {7, 8, 9}) {
        ByteFile lie(Buf().u16(token).i32(0x7FFFFFFF).u16(0).b, "geo.bin", 4.0f);
        Mesh *l = readMesh(lie.r, nullptr, nullptr);
        EXPECT_TRUE(lie.r.failed && l->vertexCount + l->polygonCount + l->edgeCount == 0);
        meshFree(l);
    }
    ByteFile s(Buf().u16(2).i32(0x7FFF0000).i32(0x7FFF0000).u16(0).b, "geo.bin", 4.0f);
    NurbsSurface *ns = readNurbsSurface(s.r, nullptr);
    EXPECT_TRUE(s.r.failed && ns->cvs == nullptr);
    nurbsSurfaceFree(ns);
    EXPECT_NE((cap.out.text() + cap.err.text()).find("Passed end of file geo.bin"), std::string::npos);
}

TEST(GeometryPatch, GridRoundTripsAndReadsWAndClosedFlags) {
    Patch *p = patchMakeGrid(4, 4, 3.0f);
    p->uClosed = 1;
    p->step[0] = 3; p->step[1] = 5;
    p->approxValues[1] = 2.5f;
    p->cvFlags[7] = 9;
    roundTrip<Patch>(p, writePatch, readPatch, [](const Patch *a, const Patch *b) {
        ASSERT_EQ(b->uCount * b->vCount, 16);
        for (int i = 0; i < 16; ++i) {
            EXPECT_EQ(0, memcmp(a->cvs[i], b->cvs[i], 12));
            EXPECT_EQ(b->cvs[i][3], 1.0f);
            EXPECT_EQ(a->cvFlags[i], b->cvFlags[i]);
        }
        EXPECT_TRUE(b->uClosed == 1 && b->step[1] == 5u && b->approxValues[1] == 2.5f);
    }, patchFree);
    patchFree(p);

    // Closed stored as 7; a grid whose CVs lie about their number.
    ByteFile f(Buf().u16(3).u16(1).u16(1).u16(4).u16(7).u16(7).u16(5).f32(1).f32(2).f32(3).u16(0).b, "geo.bin", 4.0f);
    Patch *r = readPatch(f.r, nullptr);
    EXPECT_TRUE(r->uClosed == 1 && r->vClosed == 1 && r->cvs[0][3] == 1.0f);
    patchFree(r);
    bwtest::OutputCapture cap;
    ByteFile lie(Buf().u16(3).u16(65535).u16(65535).u16(5).u16(0).b, "geo.bin", 4.0f);
    Patch *l = readPatch(lie.r, nullptr);
    EXPECT_TRUE(lie.r.failed && l->uCount == 0 && l->cvs == nullptr);
    patchFree(l);
}

TEST(GeometryCurves, SplineCurveFaceSurfaceRoundTrip) {
    Spline *s = splineMakeSquare(2.0f);
    s->vertices[2].tanOut[1] = 4.0f;
    s->vertices[3].flags[2] = 6;
    roundTrip<Spline>(s, writeSpline, readSpline, [](const Spline *a, const Spline *b) {
        EXPECT_STREQ(b->name, "square");
        ASSERT_EQ(b->vertexCount, 4);
        EXPECT_EQ(0, memcmp(a->vertices, b->vertices, 4 * sizeof(SplineVertex)));
        EXPECT_TRUE(b->closed == 1 && b->degree == 1u);
    }, splineFree);
    splineFree(s);

    NurbsCurve *c = nurbsCurveMakeLine(5.0f);
    c->cvFlags[1] = 3;
    c->flag = 2;
    roundTrip<NurbsCurve>(c, writeNurbsCurve, readNurbsCurve, [](const NurbsCurve *a, const NurbsCurve *b) {
        ASSERT_TRUE(b->cvCount == 2 && b->knotCount == 4);
        EXPECT_EQ(0, memcmp(a->cvs, b->cvs, 2 * sizeof(double[4])));
        EXPECT_TRUE(b->cvFlags[1] == 3 && b->knots[3] == 1.0 && b->flag == 2);
    }, nurbsCurveFree);

    Face *f = faceMakeSquare(4.0f, 2);
    roundTrip<Face>(f, writeFace, readFace, [](const Face *, const Face *b) {
        EXPECT_STREQ(b->boundary.name, "boundary");
        ASSERT_TRUE(b->isSpline == 1 && b->holeCount == 2 && b->curveHoles == nullptr);
        EXPECT_FLOAT_EQ(b->holes[1].vertices[1].pos[0], 1.0f / 3.0f);
    }, faceFree);
    // A face bounded by curves keeps its curve holes.
    f->isSpline = 0;
    f->curveHoles = static_cast<NurbsCurve *>(calloc(2, sizeof(NurbsCurve)));
    f->curveHoles[1] = *c;
    roundTrip<Face>(f, writeFace, readFace, [](const Face *, const Face *b) {
        ASSERT_TRUE(b->holeCount == 2 && b->holes == nullptr);
        EXPECT_EQ(b->curveHoles[1].cvs[1][0], 5.0);
    }, faceFree);
    free(f->curveHoles);
    f->curveHoles = nullptr;
    f->isSpline = 1;
    faceFree(f);
    nurbsCurveFree(c);

    NurbsSurface *ns = nurbsSurfaceMakePlane(2.0f);
    NurbsTrim trim{3, -8};
    uint8_t custom[3] = {1, 2, 3};
    ns->trims = &trim; ns->trimCount = 1;
    ns->customData = custom; ns->customSize = 3;
    ns->extra[2] = 77;
    roundTrip<NurbsSurface>(ns, writeNurbsSurface, readNurbsSurface, [](const NurbsSurface *a, const NurbsSurface *b) {
        EXPECT_EQ(0, memcmp(a->cvs, b->cvs, 4 * sizeof(double[4])));
        ASSERT_EQ(b->customSize, 3);
        EXPECT_TRUE(b->knotCount[1] == 4 && b->trims[0].value == -8 && b->customData[2] == 3 &&
                    b->approx.subdMax == 8 && b->extra[2] == 77);
    }, nurbsSurfaceFree);
    ns->trims = nullptr; ns->customData = nullptr;
    nurbsSurfaceFree(ns);
}

TEST(GeometryCurves, SurfaceOldTokenNumbersAndCurveCvFlagsByVersion) {
    // Fields of old surface files are numbered from 231.
    ByteFile f(Buf().u16(231).i32(3).i32(2).u16(233).u16(5).u16(0).u16(0).b, "geo.bin", 4.0f);
    NurbsSurface *s = readNurbsSurface(f.r, nullptr);
    EXPECT_TRUE(s->degree[0] == 3 && s->closed[0] == 1);
    nurbsSurfaceFree(s);
    // Before the CV flag version a CV is four doubles only.
    Buf b;
    b.u16(2).i32(1);
    for (int i = 0; i < 4; ++i) b.i32(0).i32(0);
    b.u16(0);
    ByteFile old(b.b, "geo.bin", 4.0f);
    old.r.version = 2.5f;
    NurbsCurve *c = readNurbsCurve(old.r, nullptr);
    EXPECT_TRUE(!old.r.failed && c->cvCount == 1 && c->cvFlags == nullptr);
    nurbsCurveFree(c);
}

namespace {

// A cube whose nodes differ in every field (colours from `colourBase` on, and
// with more than one UV domain extra pairs from 100 on), so that a field taken
// from the wrong place shows and a node's bytes can be found in the file.
Mesh *markedCube(int32_t uvDomains, uint32_t colourBase) {
    Mesh *m = meshMakeCube(2.0f);
    if (!m) return nullptr;
    m->uvDomainCount = uvDomains;
    for (int p = 0; p < m->polygonCount; ++p) {
        m->polygons[p].material = static_cast<uint16_t>(p + 1);
        m->polygons[p].flg = static_cast<uint16_t>(10 + p);
        m->polygons[p].nrm[2] = static_cast<float>(p) - 0.5f;
        for (int k = 0; k < m->polygons[p].nodeCount; ++k) {
            MeshNode &n = m->polygons[p].nodes[k];
            float base = static_cast<float>(p * 4 + k);
            n.nrm[0] = base; n.nrm[1] = -base; n.nrm[2] = 0.5f;
            n.u = base / 32.0f; n.v = 1.0f - base / 32.0f;
            n.colour = colourBase + static_cast<uint32_t>(p * 4 + k);
            if (uvDomains < 2) continue;
            n.uvs = static_cast<float *>(malloc(4 * sizeof(float)));
            for (int i = 0; i < 4; ++i) n.uvs[i] = 100.0f + base + 0.125f * static_cast<float>(i);
        }
    }
    return m;
}
Mesh *uvCube() { return markedCube(3, 0xA0000000u); }

Bytes written(const Mesh *m, const Prototype *proto) {
    ByteSink s;
    EXPECT_TRUE(writeMesh(s.w, proto, m));
    return s.bytes();
}

// Offset of the first occurrence of `what` in `in`; in.size() when absent.
size_t find(const Bytes &in, const Bytes &what) {
    return static_cast<size_t>(std::search(in.begin(), in.end(), what.begin(), what.end()) - in.begin());
}

// What a read left: the tree in a comparable form and the first failure.
struct ReadResult {
    std::vector<float> values;
    std::vector<int32_t> links;
    bool failed = false;
    std::string error;
    bool operator==(const ReadResult &) const = default;
};

ReadResult readBack(const Bytes &bytes, const Prototype *proto, float version = 4.0f) {
    ByteFile f(bytes, "geo.bin", version);
    Mesh *m = readMesh(f.r, proto, nullptr);
    ReadResult out;
    out.failed = f.r.failed;
    out.error = f.r.error;
    if (!m) return out;
    out.links = {m->vertexCount, m->polygonCount, m->edgeCount, m->uvDomainCount};
    for (int v = 0; v < m->vertexCount; ++v) {
        out.values.insert(out.values.end(), m->vertices[v].pos, m->vertices[v].pos + 3);
        out.links.push_back(m->vertices[v].neighbourCount);
    }
    for (int p = 0; p < m->polygonCount; ++p) {
        const MeshPolygon &poly = m->polygons[p];
        out.links.insert(out.links.end(), {poly.nodeCount, poly.material, poly.flg});
        for (int k = 0; k < poly.nodeCount; ++k) {
            const MeshNode &n = poly.nodes[k];
            out.links.insert(out.links.end(), {n.vrt, n.edg, static_cast<int32_t>(n.colour), n.uvs ? 1 : 0});
            out.values.insert(out.values.end(), {n.nrm[0], n.nrm[1], n.nrm[2], n.u, n.v});
            if (n.uvs) out.values.insert(out.values.end(), n.uvs, n.uvs + 2 * (m->uvDomainCount - 1));
        }
    }
    for (int e = 0; e < m->edgeCount; ++e) {
        const MeshEdge *edge = meshEdge(m, e);
        out.links.insert(out.links.end(), {edge->vrt[0], edge->vrt[1], edge->pol[0], edge->pol[1], edge->flg});
    }
    meshFree(m);
    return out;
}

// A mesh written with the lists of `proto` (`listed`) and tokenised
// (`tokens`) reads back alike; what it read.
ReadResult readsAlike(const Bytes &listed, const Bytes &tokens, const Prototype *proto, float version = 4.0f) {
    ReadResult a = readBack(listed, proto, version), b = readBack(tokens, nullptr, version);
    EXPECT_FALSE(a.failed) << a.error;
    EXPECT_EQ(a, b) << version;
    return a;
}

}  // namespace

TEST(GeometryMesh, ExtraUvDomainsReadAlikeListedOrTokenised) {
    Mesh *cube = uvCube();
    ASSERT_NE(cube, nullptr);
    Prototype *proto = v4();
    Bytes listed = written(cube, proto), tokens = written(cube, nullptr);
    ReadResult a = readsAlike(listed, tokens, proto);
    // The last node's second extra pair came through whole.
    ASSERT_GE(a.values.size(), 2u);
    EXPECT_EQ(a.values[a.values.size() - 1], 100.0f + 23.0f + 0.375f);

    // The UV block of node 9 (polygon 2, node 1) given the size `size`, and
    // with room to spare a pad after its four values.
    const Bytes nodeUv = Buf().f32(109.0f).b;
    auto resize = [&](Bytes in, uint32_t size) {
        size_t at = find(in, nodeUv);
        EXPECT_LT(at, in.size());
        if (at >= in.size()) return in;
        Bytes field = Buf().i32(size).b, pad = Buf().f32(-1.0f).b;
        std::copy(field.begin(), field.end(), in.begin() + static_cast<std::ptrdiff_t>(at - 4));
        if (size == 20) in.insert(in.begin() + static_cast<std::ptrdiff_t>(at + 16), pad.begin(), pad.end());
        return in;
    };
    EXPECT_EQ(readBack(resize(listed, 20), proto), a);
    EXPECT_EQ(readBack(resize(tokens, 20), nullptr), a);

    // Too short for the node's domains, or negative: the listed read gives up
    // where the checked reader does, each naming the offset past the bad size.
    for (uint32_t bad : {8u, 0xFFFFFFF0u}) {
        auto damage = [&](const Bytes &in) { return resize(in, bad); };
        ReadResult da, db;
        {
            bwtest::OutputCapture cap;  // the reports of the damage, not the test's own
            da = readBack(damage(listed), proto);
            db = readBack(damage(tokens), nullptr);
        }
        EXPECT_TRUE(da.failed);
        EXPECT_TRUE(da.values == db.values && da.links == db.links);
        ASSERT_GE(da.links.size(), 2u);
        EXPECT_EQ(da.links[1], 6);  // the polygon count was read before the damage
        std::string where = "offset " + std::to_string(find(listed, nodeUv)) + ":";
        EXPECT_NE(da.error.find(where), std::string::npos) << da.error;
        where = "offset " + std::to_string(find(tokens, nodeUv)) + ":";
        EXPECT_NE(db.error.find(where), std::string::npos) << db.error;
        EXPECT_EQ(da.error.substr(da.error.find(':')), db.error.substr(db.error.find(':')));
    }
    protoFree(proto);
    meshFree(cube);
}

TEST(GeometryMesh, CutInAPolygonReadsAlikeListedOrTokenised) {
    Mesh *cube = uvCube();
    ASSERT_NE(cube, nullptr);
    Prototype *proto = v4();
    // Cut inside the colour of node 14 (polygon 3, node 2), half of it kept.
    auto cut = [](Bytes in) {
        in.resize(std::min(in.size(), find(in, Buf().i32(0xA0000000u + 14).b) + 2));
        return in;
    };
    ReadResult a, b;
    {
        bwtest::OutputCapture cap;  // the reports of the cut, not the test's own
        a = readBack(cut(written(cube, proto)), proto);
        b = readBack(cut(written(cube, nullptr)), nullptr);
    }
    EXPECT_TRUE(a.failed);
    EXPECT_NE(a.error.find("geo.bin"), std::string::npos) << a.error;
    EXPECT_EQ(a, b) << a.error << " / " << b.error;
    // The three polygons before the cut are whole; nothing of the edges was read.
    ASSERT_GE(a.links.size(), 4u);
    EXPECT_TRUE(a.links[1] == 6 && a.links[2] == 0);
    ASSERT_GE(a.values.size(), 24u + 3 * 4 * 9);
    EXPECT_EQ(a.values[24 + 2 * 4 * 9 + 5], 108.0f);  // polygon 2, node 0, first extra u
    protoFree(proto);
    meshFree(cube);
}

namespace {

Mesh *plainCube() { return markedCube(1, 0x00B00000u); }

}  // namespace

TEST(GeometryMesh, FixedRecordLayoutsReadAsTheTokenLoop) {
    Mesh *cube = plainCube();
    ASSERT_NE(cube, nullptr);
    Prototype *proto = v4();
    Bytes listed = written(cube, proto), tokens = written(cube, nullptr);
    // Old files force the colours' alpha on either way.
    for (float version : {4.0f, 2.0f}) {
        ReadResult a = readsAlike(listed, tokens, proto, version);
        ASSERT_GE(a.links.size(), 4u + 8 + 3 + 4);
        EXPECT_EQ(static_cast<uint32_t>(a.links[4 + 8 + 3 + 2]), version < 3.0f ? 0xFFB00000u : 0x00B00000u);
    }

    // A node whose UV block is not empty (a pad of 4 bytes) is read by the
    // token loop, and the nodes after it by the fixed layout again.
    Bytes padded = listed;
    size_t at = find(padded, Buf().i32(0x00B00000u + 9).b);
    ASSERT_LT(at, padded.size());
    Bytes size4 = Buf().i32(4).f32(-1.0f).b;
    std::copy(size4.begin(), size4.begin() + 4, padded.begin() + static_cast<std::ptrdiff_t>(at + 4));
    padded.insert(padded.begin() + static_cast<std::ptrdiff_t>(at + 8), size4.begin() + 4, size4.end());
    EXPECT_EQ(readBack(padded, proto), readBack(listed, proto));

    // Lists of another order: the polygon's flag and normal before its nodes,
    // an unknown 2-byte value and the material after them; nodes with an old
    // u16 vertex number after an unknown 1-byte value, the colour before the
    // normal and no UV. One triangle over vertices 0, 1, 2.
    Prototype *other = v4();
    const uint16_t polygon[] = {4, 1, 2, 0x0203, 3, 0};
    const uint16_t node[] = {0x0107, 1, 1029, 2, 0};
    protoSet(*other, REC_POLYGON, polygon, 6);
    protoSet(*other, REC_POLYNODE, node, 5);
    Buf g;
    g.u16(0).f32(0.0f).i32(0);                                  // flags, discontinuity, one domain
    g.i32(3);                                                   // vertices
    for (int v = 0; v < 3; ++v) g.f32(static_cast<float>(v)).f32(0).f32(0).u16(0);
    g.i32(1).u16(6).f32(0).f32(0).f32(1).u16(3);                // flag 6, normal +z, three nodes
    for (int k = 0; k < 3; ++k)
        g.b.push_back(0xEE), g.u16(static_cast<uint16_t>(k)).i32(0x01020300u + k).f32(0).f32(static_cast<float>(k)).f32(0);
    g.u16(0xBEEF).u16(9);                                       // unknown value, material 9
    g.i32(3);                                                   // edges
    for (int e = 0; e < 3; ++e) g.i32(e).i32((e + 1) % 3).u16(0);
    g.u16(0).u16(0).u16(0).f32(0).f32(0).f32(0).u16(0).u16(0).u16(0);  // approximation
    ByteFile f(g.b, "geo.bin", 4.0f);
    Mesh *m = readMesh(f.r, other, nullptr);
    ASSERT_NE(m, nullptr);
    EXPECT_FALSE(f.r.failed) << f.r.error;
    EXPECT_EQ(binRemaining(f.r), 0);
    ASSERT_TRUE(m->polygonCount == 1 && m->polygons[0].nodeCount == 3);
    const MeshPolygon &poly = m->polygons[0];
    EXPECT_TRUE(poly.flg == 6 && poly.material == 9 && poly.nrm[2] == 1.0f);
    for (int k = 0; k < 3; ++k) {
        const MeshNode &n = poly.nodes[k];
        EXPECT_TRUE(n.vrt == k && n.edg == k && n.colour == 0x01020300u + static_cast<uint32_t>(k) &&
                    n.nrm[1] == static_cast<float>(k) && n.u == 0.0f && n.uvs == nullptr) << k;
    }
    meshFree(m);
    protoFree(other);
    protoFree(proto);
    meshFree(cube);
}

TEST(GeometryMesh, HelperThreadReadsAlikeWholeCutOrInPieces) {
    Mesh *cube = plainCube();
    ASSERT_NE(cube, nullptr);
    Prototype *proto = v4();
    Bytes listed = written(cube, proto), tokens = written(cube, nullptr);
    ReadResult a = readsAlike(listed, tokens, proto), b = readBack(tokens, nullptr);
    {
        // Blocks of 7 bytes put block ends inside every kind of record.
        BackgroundRead pieces(7);
        EXPECT_EQ(readBack(listed, proto), a);
        EXPECT_EQ(readBack(tokens, nullptr), b);
    }
    // A file cut anywhere reads the same, up to the same failure, at once and
    // in pieces.
    bwtest::OutputCapture cap;  // the reports of the cuts
    for (size_t cut = 0; cut < listed.size(); cut += 3) {
        Bytes in(listed.begin(), listed.begin() + static_cast<std::ptrdiff_t>(cut));
        ReadResult whole = readBack(in, proto);
        BackgroundRead pieces(5);
        EXPECT_EQ(readBack(in, proto), whole) << cut;
    }
    protoFree(proto);
    meshFree(cube);
}

// Points keep one numbering across kinds: a face counts its boundary, then its
// holes; writing back what was read changes nothing, and positions move only
// the first three values of a point.
TEST(GeometryPoints, NumberingWidthsAndRoundTrips) {
    Face *face = faceMakeSquare(2.0f, 2);
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(geometryPointWidth(MODEL_FACE), 9);
    ASSERT_EQ(geometryPointCount(MODEL_FACE, face), 12);
    face->holes[1].vertices[2].tanOut[1] = 7.0f;
    std::vector<double> values(12 * 9);
    ASSERT_EQ(geometryPointsRead(MODEL_FACE, face, values.data()), 12);
    EXPECT_EQ(values[(4 + 4 + 2) * 9 + 7], 7.0);  // hole 2, vertex 3, outgoing y
    std::vector<float> xyz(12 * 3);
    geometryPositionsRead(MODEL_FACE, face, xyz.data());
    xyz[3 * 5 + 1] = 4.0f;  // hole 1, vertex 2
    geometryPositionsWrite(MODEL_FACE, face, xyz.data());
    EXPECT_EQ(face->holes[0].vertices[1].pos[1], 4.0f);
    EXPECT_EQ(face->holes[1].vertices[2].tanOut[1], 7.0f);
    geometryPointsWrite(MODEL_FACE, face, values.data());
    EXPECT_EQ(face->holes[0].vertices[1].pos[1], 0.0f);
    faceFree(face);

    NurbsSurface *surface = nurbsSurfaceMakePlane(1.0f);
    ASSERT_EQ(geometryPointCount(MODEL_NURBS_SURFACE, surface), 4);
    double cv[16];
    geometryPointsRead(MODEL_NURBS_SURFACE, surface, cv);
    EXPECT_EQ(cv[3 * 4 + 3], surface->cvs[3][3]);
    cv[3 * 4 + 0] = 0.1234567890123;  // doubles stay doubles
    geometryPointsWrite(MODEL_NURBS_SURFACE, surface, cv);
    EXPECT_EQ(surface->cvs[3][0], 0.1234567890123);
    nurbsSurfaceFree(surface);
    EXPECT_EQ(geometryPointCount(MODEL_META, nullptr), 0);
    EXPECT_EQ(geometryPointWidth(MODEL_REF), 0);
}

// A cube with one corner pulled out: the polygons at that corner tilt, and a
// corner normal is the mean of its vertex's polygons within the smoothing
// angle only (a cube's faces meet at 90 degrees, beyond 60).
TEST(GeometryPoints, RefreshRemakesMeshNormals) {
    Mesh *cube = meshMakeCube(2.0f);
    ASSERT_NE(cube, nullptr);
    cube->discontinuity = 60.0f;
    cube->cosDiscontinuity = 0.5f;
    for (int32_t p = 0; p < cube->polygonCount; ++p)
        for (int k = 0; k < cube->polygons[p].nodeCount; ++k) cube->polygons[p].nodes[k].nrm[1] = 1.0f;
    geometryRefresh(MODEL_MESH, cube);
    for (int32_t p = 0; p < cube->polygonCount; ++p) {
        const MeshPolygon &poly = cube->polygons[p];
        float len = std::sqrt(poly.nrm[0] * poly.nrm[0] + poly.nrm[1] * poly.nrm[1] + poly.nrm[2] * poly.nrm[2]);
        EXPECT_NEAR(len, 1.0f, 1e-6f);
        // Every face of the unit cube points along one axis, away from the centre.
        const float *v = cube->vertices[poly.nodes[0].vrt].pos;
        EXPECT_GT(poly.nrm[0] * v[0] + poly.nrm[1] * v[1] + poly.nrm[2] * v[2], 0.0f);
        for (int k = 0; k < poly.nodeCount; ++k)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(poly.nodes[k].nrm[c], poly.nrm[c], 1e-6f);
    }
    // Smooth everything: a corner's normal leans towards the diagonal.
    cube->cosDiscontinuity = -1.0f;
    geometryRefresh(MODEL_MESH, cube);
    const MeshNode &corner = cube->polygons[0].nodes[0];
    const float *v = cube->vertices[corner.vrt].pos;
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(std::fabs(corner.nrm[c]), 1.0f / std::sqrt(3.0f), 1e-5f) << c;
    EXPECT_GT(corner.nrm[0] * v[0], 0.0f);
    meshFree(cube);
}
