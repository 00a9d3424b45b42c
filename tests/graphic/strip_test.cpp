// Triangle strips: streams decoded back to triangles (each input triangle
// once, turning the same way), runs per material, seam triangles alone, the
// cells and strides of the stream, and the preprocess steps around them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "capture.h"
#include "graphic.h"
#include "material.h"
#include "model.h"
#include "tess_internal.h"
#include "testdata.h"

namespace {

using Tri = std::array<int32_t, 3>;

struct Strip {
    float token;                    // material cell in force
    int textureId;                  // -1 without a texture cell
    StripVertexLayout layout;
    std::vector<const float *> vertices;  // first cell of each vertex
};

struct Decoded {
    std::vector<std::pair<float, int>> materials;  // token and id, in order
    std::vector<Strip> strips;
    float token = 0;
    int texture = -1;
};

Decoded decode(const TmeshHeader *h) {
    Decoded d;
    StripStreamVisitor v;
    v.user = &d;
    v.material = [](void *u, float token, int id) {
        Decoded &d = *static_cast<Decoded *>(u);
        d.materials.emplace_back(token, id);
        d.token = token;
        d.texture = -1;
    };
    v.texture = [](void *u, int id) { static_cast<Decoded *>(u)->texture = id; };
    v.strip = [](void *u, const float *cells, int count, const StripVertexLayout *l) {
        Decoded &d = *static_cast<Decoded *>(u);
        Strip s{d.token, d.texture, *l, {}};
        for (int i = 0; i < count; i += l->stride) s.vertices.push_back(cells + i);
        d.strips.push_back(s);
    };
    EXPECT_EQ(stripStreamWalk(h->stream, h->streamLength, &v), 0);
    return d;
}

// A triangle up to rotation: smallest index first, turning kept.
Tri canonical(Tri t) {
    while (t[0] != std::min({t[0], t[1], t[2]})) t = {t[1], t[2], t[0]};
    return t;
}

// The triangles a GL_TRIANGLE_STRIP of these vertices draws.
std::vector<Tri> stripTriangles(const Decoded &d) {
    std::vector<Tri> out;
    for (const Strip &s : d.strips)
        for (size_t i = 0; i + 2 < s.vertices.size(); ++i) {
            const int32_t a = stripVertexIndex(s.vertices[i]), b = stripVertexIndex(s.vertices[i + 1]),
                          c = stripVertexIndex(s.vertices[i + 2]);
            out.push_back(canonical(i % 2 ? Tri{b, a, c} : Tri{a, b, c}));
        }
    return out;
}

std::vector<Tri> modelTriangles(const Model *m) {
    std::vector<Tri> out;
    for (int32_t i = 0; i < m->triangleCount; ++i) {
        const TessTriangle &t = m->triangles[i];
        out.push_back(canonical({static_cast<int32_t>(t.v[0] - m->vertices), static_cast<int32_t>(t.v[1] - m->vertices),
                                 static_cast<int32_t>(t.v[2] - m->vertices)}));
    }
    return out;
}

void expectRoundTrip(const Model *m, const Decoded &d) {
    std::vector<Tri> drawn = stripTriangles(d), given = modelTriangles(m);
    std::sort(drawn.begin(), drawn.end());
    std::sort(given.begin(), given.end());
    EXPECT_EQ(drawn, given);
}

// Ids for the test's materials and textures.
std::map<const void *, int> g_ids;
int testMaterialId(const Material *m) { return g_ids.count(m) ? g_ids[m] : 1; }
int testTextureId(const Texture2D *t) { return g_ids.count(t) ? g_ids[t] : -1; }

class Strips : public ::testing::Test {
protected:
    void SetUp() override {
        gpropsInit(&gp);
        g_ids.clear();
        g_stripMaterialId = testMaterialId;
        g_stripTextureId = testTextureId;
    }
    void TearDown() override {
        g_stripMaterialId = savedMaterial;
        g_stripTextureId = savedTexture;
        g_keepOrientation = 1;
        g_tessThreads = 0;
    }
    // Tessellation at the first call, strips at the second.
    void preprocess(Model *m) {
        ASSERT_EQ(modelPreprocess(m, &gp), 0);
        ASSERT_EQ(modelPreprocess(m, &gp), 0);
        ASSERT_NE(m->tmesh, nullptr);
    }
    Decoded rebuild(Model *m) {
        modelDropStrips(m);
        EXPECT_EQ(modelPreprocess(m, &gp), 0);
        return m->tmesh ? decode(m->tmesh) : Decoded{};
    }
    BW_GraphicProps gp;
    int (*savedMaterial)(const Material *) = g_stripMaterialId;
    int (*savedTexture)(const Texture2D *) = g_stripTextureId;
};

Material *addMaterial(Model *m, uint16_t shading) {
    m->materials = static_cast<Material **>(realloc(m->materials, sizeof(Material *) * (m->materialCount + 1u)));
    Material *mat = new Material;
    mat->shadingModel = shading;
    m->materials[m->materialCount++] = mat;
    return mat;
}

Texture2D *addTexture(Model *m, uint16_t method) {
    m->textures2D = static_cast<Texture2D **>(realloc(m->textures2D, sizeof(Texture2D *) * (m->texture2DCount + 1u)));
    Texture2D *t = new Texture2D;
    t->method = method;
    m->textures2D[m->texture2DCount++] = t;
    return t;
}

// One triangle in XY facing +Z, corners coloured.
Mesh *oneTriangle() {
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    m->uvDomainCount = 1;
    m->vertexCount = 3;
    m->vertices = static_cast<MeshVertex *>(calloc(3, sizeof(MeshVertex)));
    const float pos[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (int i = 0; i < 3; ++i) std::copy(pos[i], pos[i] + 3, m->vertices[i].pos);
    m->polygonCount = 1;
    m->polygons = static_cast<MeshPolygon *>(calloc(1, sizeof(MeshPolygon)));
    m->polygons[0].nodeCount = 3;
    m->polygons[0].nodes = static_cast<MeshNode *>(calloc(3, sizeof(MeshNode)));
    for (int k = 0; k < 3; ++k) {
        MeshNode &n = m->polygons[0].nodes[k];
        n.vrt = k;
        n.nrm[2] = 1;
        n.u = 0.1f * k;
        n.v = 0.2f;
        n.colour = 0xFF336699u;
    }
    meshLink(m);
    return m;
}

// A ring of 8 quads around Y, closed in u, with CVs off the +X axis.
Model *ring() {
    Patch *p = patchMakeGrid(8, 2, 1.0f);
    p->uType = p->vType = PATCH_LINEAR;
    p->uClosed = 1;
    p->step[0] = p->step[1] = 1;
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 8; ++i) {
            const double a = (22.5 + 45.0 * i) * M_PI / 180.0;
            float *cv = p->cvs[j * 8 + i];
            cv[0] = static_cast<float>(std::cos(a));
            cv[1] = static_cast<float>(j);
            cv[2] = static_cast<float>(-std::sin(a));
        }
    return modelNew("ring", MODEL_PATCH, p);
}

}  // namespace

TEST_F(Strips, StreamsDecodeToEveryTriangleOnceTurningTheSameWay) {
    Model *grid = modelNew("grid", MODEL_MESH, tdMakeGridMesh(20, 10));
    preprocess(grid);
    ASSERT_EQ(grid->triangleCount, 400);
    Decoded d = decode(grid->tmesh);
    expectRoundTrip(grid, d);
    ASSERT_EQ(d.materials.size(), 1u);
    EXPECT_EQ(d.materials[0], std::make_pair(STRIP_MAT_SHADED, 1));
    // Long strips on a regular grid: a row of quads at a time at worst.
    EXPECT_LE(d.strips.size(), 20u);

    // A cube: hard edges everywhere, so strips stay within a side.
    Model *cube = modelNew("cube", MODEL_MESH, meshMakeCube(1.0f));
    preprocess(cube);
    EXPECT_EQ(cube->vertexCount, 24);
    expectRoundTrip(cube, decode(cube->tmesh));

    // A closed patch.
    Model *tube = ring();
    preprocess(tube);
    expectRoundTrip(tube, decode(tube->tmesh));

    // A sphere: its poles are hubs of 48 triangles each.
    Model *ball = modelNew("ball", MODEL_MESH, tdMakeSphereMesh(48, 12, 1.0f));
    preprocess(ball);
    expectRoundTrip(ball, decode(ball->tmesh));

    // Two triangles running a shared edge the same way: no strip through both.
    Model *both = modelNew("both", MODEL_MESH, nullptr);
    tessArraysNew(both, 4, 2);
    const float pos[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, up[3] = {0, 0, 1};
    for (int i = 0; i < 4; ++i) tessVertexSet(&both->vertices[i], 0, 0, pos[i], up);
    const int corners[2][3] = {{0, 1, 2}, {1, 2, 3}};
    for (int t = 0; t < 2; ++t)
        for (int k = 0; k < 3; ++k) both->triangles[t].v[k] = &both->vertices[corners[t][k]];
    tessTrianglesLink(both, 2);
    ASSERT_EQ(modelPreprocess(both, &gp), 0);
    ASSERT_NE(both->tmesh, nullptr);
    expectRoundTrip(both, decode(both->tmesh));
    for (Model *m : {grid, cube, tube, ball, both}) modelFree(m);
}

TEST_F(Strips, OneRunPerMaterialInIdOrder) {
    Mesh *mesh = tdMakeGridMesh(10, 10);
    for (int32_t p = 0; p < mesh->polygonCount; ++p) mesh->polygons[p].material = static_cast<uint16_t>(p % 2);
    Model *m = modelNew("checker", MODEL_MESH, mesh);
    Material *a = addMaterial(m, 4), *b = addMaterial(m, 1);
    g_ids[a] = 5;
    g_ids[b] = 3;
    preprocess(m);
    const Decoded d = decode(m->tmesh);
    ASSERT_EQ(d.materials.size(), 2u);
    EXPECT_EQ(d.materials[0], std::make_pair(STRIP_MAT_CONSTANT, 3));
    EXPECT_EQ(d.materials[1], std::make_pair(STRIP_MAT_SHADED, 5));
    expectRoundTrip(m, d);
    // The triangle list is in the same order, and still linked.
    for (int32_t i = 0; i < m->triangleCount; ++i) {
        EXPECT_EQ(m->triangles[i].material, i < m->triangleCount / 2 ? b : a);
        EXPECT_EQ(m->triangles[i].next, i + 1 < m->triangleCount ? &m->triangles[i + 1] : nullptr);
    }
    modelFree(m);
}

TEST_F(Strips, SeamTrianglesStandAloneAndTheirWrapIsMended) {
    Model *m = ring();
    Texture2D *t = addTexture(m, 5);  // cylinder around the origin
    t->boxCentre[1] = 0.5f;
    g_ids[t] = 7;
    preprocess(m);
    const Decoded d = decode(m->tmesh);
    expectRoundTrip(m, d);
    int seams = 0;
    for (const Strip &s : d.strips) {
        EXPECT_EQ(s.textureId, 7);
        EXPECT_EQ(s.layout.stride, 10);
        bool ahead = false, behind = false;
        for (const float *v : s.vertices) {
            const float *pos = v + s.layout.pos;
            if (pos[0] > 0 && pos[2] > 0) ahead = true;
            if (pos[0] > 0 && pos[2] < 0) behind = true;
        }
        if (!(ahead && behind)) continue;
        // Across the +X axis, where u wraps from 1 to 0: alone, and mended
        // so that its u values lie together.
        ++seams;
        EXPECT_EQ(s.vertices.size(), 3u);
        float lo = 10, hi = -10;
        for (const float *v : s.vertices) {
            EXPECT_EQ(v[s.layout.uv], 0.0f);  // projected
            lo = std::min(lo, v[s.layout.uv + 1]);
            hi = std::max(hi, v[s.layout.uv + 1]);
        }
        EXPECT_LT(hi - lo, 0.25f);
    }
    EXPECT_EQ(seams, 2);
    // Every seam strip opens with its material cells.
    EXPECT_GE(d.materials.size(), 2u);
    modelFree(m);
}

TEST_F(Strips, CellsAndStridesOfOneTriangle) {
    Model *m = modelNew("one", MODEL_MESH, oneTriangle());
    preprocess(m);
    const TmeshHeader *h = m->tmesh;
    // Shaded, no colour, no texture: stride 7.
    ASSERT_EQ(h->streamLength, 2 + 1 + 21 + 1);
    EXPECT_EQ(h->stream[0], STRIP_MAT_SHADED);
    EXPECT_EQ(h->stream[1], 1.0f);
    EXPECT_EQ(h->stream[2], 21.0f);
    EXPECT_EQ(h->stream[24], STRIP_END);
    for (int k = 0; k < 3; ++k) {
        const float *v = &h->stream[3 + 7 * k];
        const TessVertex &vx = m->vertices[stripVertexIndex(v)];
        EXPECT_EQ(v[3], 1.0f);  // normal z
        EXPECT_EQ(std::memcmp(v + 4, vx.pos, sizeof vx.pos), 0);
    }
    // Vertex colours: -9, stride 10, bytes over 255.
    gp.vertexColors = 1;
    Decoded d = rebuild(m);
    EXPECT_EQ(d.materials.at(0).first, STRIP_MAT_SHADED_COLOUR);
    ASSERT_EQ(d.strips.at(0).layout.stride, 10);
    const float *c = d.strips[0].vertices[0] + d.strips[0].layout.colour;
    for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(c[k], (0x99 - 0x33 * k) / 255.0f);
    gp.vertexColors = 0;

    // A constant material: -3, stride 4, n = 12.
    Material *mat = addMaterial(m, 1);
    g_ids[mat] = 4;
    for (int32_t i = 0; i < m->triangleCount; ++i) m->triangles[i].material = mat;
    d = rebuild(m);
    EXPECT_EQ(d.materials.at(0), std::make_pair(STRIP_MAT_CONSTANT, 4));
    EXPECT_EQ(m->tmesh->stream[2], 12.0f);

    // A UV texture: the texture pair follows the material pair, stride 7,
    // UV from the surface (kind 1) turned back.
    Texture2D *t = addTexture(m, 4);
    g_ids[t] = 9;
    d = rebuild(m);
    EXPECT_EQ(m->tmesh->stream[2], STRIP_TEXTURE);
    EXPECT_EQ(m->tmesh->stream[3], 9.0f);
    EXPECT_EQ(m->tmesh->stream[4], 21.0f);
    const float *v = d.strips.at(0).vertices[0];
    EXPECT_EQ(v[1], 1.0f);
    EXPECT_FLOAT_EQ(v[2], 1.0f - m->vertices[stripVertexIndex(v)].u);

    // A shadow material: its cells, no strips.
    mat->shadingModel = 6;
    d = rebuild(m);
    EXPECT_TRUE(d.strips.empty());
    EXPECT_EQ(m->tmesh->streamLength, 5);
    modelFree(m);
}

TEST_F(Strips, PreprocessTessellatesThenBuildsAndKeepsValidStrips) {
    EXPECT_EQ(modelPreprocess(nullptr, &gp), 23);
    Model *m = modelNew("grid", MODEL_MESH, tdMakeGridMesh(4, 4));
    m->kind = 13;
    EXPECT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(m->vertices, nullptr);
    m->kind = 0;

    m->displayFlags = 64 | 16;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_NE(m->vertices, nullptr);
    EXPECT_EQ(m->tmesh, nullptr);
    EXPECT_EQ(m->displayFlags, 16);
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    ASSERT_NE(m->tmesh, nullptr);
    EXPECT_EQ(m->displayFlags, 0);
    const float *stream = m->tmesh->stream;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(m->tmesh->stream, stream);  // nothing changed: kept

    // A texture policy change makes the header out of date.
    glbVar.texFilter = 2;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(m->tmesh->policy[3], 2);
    glbVar.texFilter = 0;

    // Stale geometry: dropped with its strips and tessellated again.
    m->displayFlags = 64;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(m->tmesh, nullptr);
    EXPECT_NE(m->vertices, nullptr);

    // A stop request ends the work with 97.
    gp.stopFct = [] { return 1; };
    EXPECT_EQ(modelPreprocess(m, &gp), 97);
    gp.stopFct = nullptr;

    // With the orientation switch off the first and third corners change places.
    const Tri first = {static_cast<int32_t>(m->triangles[0].v[0] - m->vertices),
                       static_cast<int32_t>(m->triangles[0].v[1] - m->vertices),
                       static_cast<int32_t>(m->triangles[0].v[2] - m->vertices)};
    g_keepOrientation = 0;
    m->displayFlags = 64;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(m->triangles[0].v[0] - m->vertices, first[2]);
    EXPECT_EQ(m->triangles[0].v[2] - m->vertices, first[0]);
    modelFree(m);

    // A model with nothing to draw asked for strips.
    Model *empty = modelNew("empty", MODEL_MESH, nullptr);
    TmeshBuild build;
    bwtest::OutputCapture cap;
    EXPECT_EQ(modelCreateTmesh(empty, &build), 0);
    tmeshBuildFree(&build);
    EXPECT_EQ(cap.err.text().rfind("modelCreateTmesh: No triangles!! graphic/grTriangle ", 0), 0u);
    modelFree(empty);
}

TEST(StripStream, WalkRefusesBrokenStreams) {
    std::vector<float> good = {STRIP_MAT_CONSTANT, 2, 0.0f, 12};  // an empty group, then a strip
    good.resize(good.size() + 12, 0.0f);
    good.push_back(STRIP_END);
    EXPECT_EQ(stripStreamWalk(good.data(), static_cast<int32_t>(good.size()), nullptr), 0);
    EXPECT_EQ(stripStreamWalk(good.data(), static_cast<int32_t>(good.size()) - 1, nullptr), -1);  // no end
    std::vector<float> bad = good;
    bad[3] = 11;  // no multiple of the stride
    EXPECT_EQ(stripStreamWalk(bad.data(), static_cast<int32_t>(bad.size()), nullptr), -1);
    EXPECT_EQ(stripStreamWalk(good.data() + 2, static_cast<int32_t>(good.size()) - 2, nullptr), -1);  // no material
}

TEST_F(Strips, AMaterialAsksForVertexColoursByItsMode) {
    Model *m = modelNew("painted", MODEL_MESH, oneTriangle());
    Material *mat = addMaterial(m, 4);
    g_ids[mat] = 5;
    const float red = 0x99 / 255.0f;  // byte 0 of the corners' colour

    // Shaded, colours drawn as they are: -9, colour and normal cells.
    mat->vertexColourMode = 2;
    preprocess(m);
    Decoded d = decode(m->tmesh);
    EXPECT_EQ(d.materials.at(0), std::make_pair(STRIP_MAT_SHADED_COLOUR, 5));
    ASSERT_EQ(d.strips.at(0).layout.stride, 10);
    EXPECT_FLOAT_EQ(d.strips[0].vertices[0][d.strips[0].layout.colour], red);

    // Mode 3 adds the material's diffuse colour.
    mat->vertexColourMode = 3;
    mat->diffuse[0] = 0.25f;
    d = rebuild(m);
    EXPECT_EQ(d.materials.at(0).first, STRIP_MAT_SHADED_COLOUR);
    EXPECT_FLOAT_EQ(d.strips.at(0).vertices[0][d.strips[0].layout.colour], red + 0.25f);

    // A constant material with vertex colours: -7, colour but no normal.
    mat->shadingModel = 1;
    d = rebuild(m);
    expectRoundTrip(m, d);
    EXPECT_EQ(d.materials.at(0), std::make_pair(STRIP_MAT_CONSTANT_COLOUR, 5));
    ASSERT_EQ(d.strips.at(0).layout.stride, 7);
    EXPECT_EQ(d.strips[0].layout.normal, -1);

    // Mode 1 leaves the colours to the draw's switch.
    mat->vertexColourMode = 1;
    EXPECT_EQ(rebuild(m).materials.at(0).first, STRIP_MAT_CONSTANT);
    gp.vertexColors = 1;
    EXPECT_EQ(rebuild(m).materials.at(0).first, STRIP_MAT_CONSTANT_COLOUR);
    gp.vertexColors = 0;
    modelFree(m);
}

TEST_F(Strips, AGlobalScaleThatMirrorsTurnsTheNormalsAtTheNextPreprocess) {
    Model *m = modelNew("one", MODEL_MESH, oneTriangle());
    preprocess(m);
    auto normalZ = [&] { return decode(m->tmesh).strips.at(0).vertices[0][3]; };
    EXPECT_EQ(normalZ(), 1.0f);

    // The model's own scale alone decides nothing: the global one does.
    m->scaling[2] = -1;
    EXPECT_EQ(rebuild(m).strips.at(0).vertices[0][3], 1.0f);
    m->scaling[2] = 1;

    // One axis flipped and marked: rebuilt though nothing else changed.
    m->globalScale[1] = -2;
    m->transfoDirtyDraw |= TRANSFO_MIRRORED;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(normalZ(), -1.0f);
    EXPECT_EQ(m->transfoDirtyDraw & TRANSFO_MIRRORED, 0);

    // Two axes flipped keep the handedness.
    m->globalScale[0] = -1;
    m->transfoDirtyDraw |= TRANSFO_MIRRORED;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    EXPECT_EQ(normalZ(), 1.0f);
    modelFree(m);
}

TEST_F(Strips, ATurnedTextureRotationBringsNewUvAtTheNextPreprocess) {
    Model *m = modelNew("one", MODEL_MESH, oneTriangle());
    Texture2D *t = addTexture(m, 1);  // XY plane over a box of 2 about the origin
    g_ids[t] = 7;
    t->boxSize[0] = t->boxSize[1] = 2;
    preprocess(m);
    // u is (x' + 1) / 2, x' the first coordinate of the turned point.
    auto expectU = [&](int turned) {
        const Decoded d = decode(m->tmesh);
        for (const Strip &s : d.strips)
            for (const float *v : s.vertices) {
                const float *p = m->vertices[stripVertexIndex(v)].refPos;
                EXPECT_FLOAT_EQ(v[s.layout.uv + 1], ((turned ? -p[1] : p[0]) + 1) / 2);
            }
    };
    expectU(0);
    // A quarter turn about z with its revision bumped: the stream follows.
    const float turn[3][3] = {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}};
    std::memcpy(t->matrix, turn, sizeof turn);
    t->revision += 1;
    ASSERT_EQ(modelPreprocess(m, &gp), 0);
    expectU(1);
    modelFree(m);
}

// The big loops of the build run on several threads: the display form of a
// big model must not depend on how many. A grid of 90,000 triangles with
// creases (bent corner normals), two materials in bands, a polygon that
// names no vertex, and a cylindrical texture with its seam.
TEST_F(Strips, ABigModelBuildsTheSameDisplayFormOnOneThreadAsOnFour) {
    struct Form {
        std::vector<float> vertices;   // position, normal, u, v of each vertex record
        std::vector<int32_t> triangles;  // vertex indices and material index
        std::vector<float> stream;
    };
    auto build = [&](int threads) {
        g_tessThreads = threads;
        Mesh *mesh = tdMakeGridMesh(300, 150);
        for (int32_t p = 0; p < mesh->polygonCount; ++p) {
            MeshPolygon &poly = mesh->polygons[p];
            poly.material = static_cast<uint16_t>((p / 5000) % 2);
            if (p % 7 == 0) poly.nodes[0].nrm[0] = 0.5f;
        }
        mesh->polygons[3].nodes[1].vrt = -1;
        Model *m = modelNew("big", MODEL_MESH, mesh);
        Material *a = addMaterial(m, 4), *b = addMaterial(m, 4);
        g_ids[a] = 5;
        g_ids[b] = 6;
        Texture2D *t = addTexture(m, 5);
        t->boxCentre[0] = 150.0f;
        t->boxCentre[2] = 75.0f;
        g_ids[t] = 7;
        Form f;
        preprocess(m);
        for (int32_t i = 0; i < m->vertexCount; ++i) {
            const TessVertex &v = m->vertices[i];
            f.vertices.insert(f.vertices.end(), {v.pos[0], v.pos[1], v.pos[2], v.normal[0], v.normal[1], v.normal[2], v.u, v.v});
        }
        for (int32_t i = 0; i < m->triangleCount; ++i) {
            const TessTriangle &tri = m->triangles[i];
            for (const TessVertex *v : tri.v) f.triangles.push_back(static_cast<int32_t>(v - m->vertices));
            f.triangles.push_back(tri.materialIndex);
            EXPECT_EQ(tri.next, i + 1 < m->triangleCount ? &m->triangles[i + 1] : nullptr);
        }
        f.stream.assign(m->tmesh->stream, m->tmesh->stream + m->tmesh->streamLength);
        expectRoundTrip(m, decode(m->tmesh));
        modelFree(m);
        return f;
    };
    const Form one = build(1), four = build(4);
    EXPECT_EQ(one.triangles.size(), 4u * (2 * 300 * 150 - 1));
    EXPECT_GT(one.vertices.size(), 8u * 301 * 151);  // creases split vertices
    EXPECT_EQ(one.vertices, four.vertices);
    EXPECT_EQ(one.triangles, four.triangles);
    ASSERT_EQ(one.stream.size(), four.stream.size());
    EXPECT_EQ(memcmp(one.stream.data(), four.stream.data(), one.stream.size() * sizeof(float)), 0);
}
