// Animation, shape key and cluster files: round trips through our writers,
// the bytes of a small .ani, the older forms the readers take, and files that
// are cut, lie or are of another kind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include "animation.h"
#include "bytes.h"
#include "capture.h"
#include "model.h"

using namespace bwtest;

namespace {

AnimItem *item(int kind, int target, int param, Fcurve *curve, AnimItem *next = nullptr) {
    AnimItem *it = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    it->curve = curve, it->kind = kind, it->target = target, it->param = param, it->active = 1;
    it->next = next;
    return it;
}

Fcurve *curve(int32_t type, int keys) {
    Fcurve *c = fcurveCreate(type, 0);
    fcurveKeysAlloc(c, keys);
    for (int i = 0; i < keys; ++i) c->keys[i].time = static_cast<float>(i), c->keys[i].value = 2.0f * i;
    return c;
}

int countItems(const AnimItem *it) {
    int n = 0;
    for (; it; it = it->next) ++n;
    return n;
}

// The block of one curve of relation 113 on element chapter 8.
Bytes blockTokens(uint16_t form) {
    return Buf().u16(1).u16(113).u16(4).u16(form).u16(5).u16(8).u16(6).u16(0).u16(7).u16(1).u16(10).b;
}

// A curve of type 139 with one spline key at (1, 2), as the writer puts it.
Bytes curveBytes() {
    return Buf().u16(0x0401).i32(139).u16(0x0402).i32(0).u16(0x0203).u16(0).u16(0x0204).u16(0)
               .u16(0x0205).u16(0).u16(0x0206).u16(2).u16(0x0207).u16(1).u16(0x0808).f32(0).f32(0)
               .u16(0xFF09).i32(28).i32(1).f32(1.0f).f32(2.0f).f32(0).f32(0).u16(0).u16(2).u16(0).u16(0xFFFF)
               .u16(0).b;
}

}  // namespace

TEST(AnimFile, BytesOfASmallFileAndTheRoundTrip) {
    TempDir dir;
    Fcurve *c = fcurveCreate(139, 0);
    FcurveKey *k = fcurveKeyNew();
    k->time = 1.0f, k->value = 2.0f, k->interpolation = FCV_SPLINE;
    fcurveAddKey(c, k, 0, 0, 0);
    AnimItem *one = item(113, 8, 0, c);
    ASSERT_EQ(animFileWrite((dir / "ball.1-0.ani").c_str(), one), 1);
    EXPECT_EQ(readBytes(dir / "ball.1-0.ani"), header(BIN_ID_ANIMATION, 4.0f) + blockTokens(0) + curveBytes());
    animItemsFree(one);

    // Three scaling curves of one block go out as a list; the rest one by one.
    Fcurve *x = curve(163, 3), *y = curve(164, 0), *z = curve(165, 17);
    x->preMode = FCV_EXTRA_PERIODIC, x->postMode = FCV_EXTRA_LINEAR, x->flags = 3, x->subId = -2;
    x->rangeOn = 0, x->rangeStart = 1.5f, x->rangeEnd = 4.0f;
    x->keys[1].leftSlope = -1.25f, x->keys[1].rightSlope = 3.5f, x->keys[1].flag = 3;
    x->keys[2].keyType = FCVKEY_KEYPATH, x->keys[2].splineIndex = 7, x->keys[2].interpolation = FCV_PLATEAU;
    AnimItem *items = item(100, 8, 0, x, item(100, 8, 0, y, item(100, 8, 0, z, item(1113, 2, 1, curve(142, 2)))));
    items->next->next->next->active = 0;
    ASSERT_EQ(animFileWrite((dir / "many.ani").c_str(), items), 1);
    AnimItem *back = animFileRead((dir / "many.ani").c_str());
    ASSERT_EQ(countItems(back), 4);
    EXPECT_EQ(back->next->next->next->kind, 1113);
    EXPECT_EQ(back->next->next->next->active, 0);
    EXPECT_EQ(back->curve->keys[2].owner, back->curve);
    // Written again, the items give the same bytes: every field came back.
    ASSERT_EQ(animFileWrite((dir / "again.ani").c_str(), back), 1);
    EXPECT_EQ(readBytes(dir / "again.ani"), readBytes(dir / "many.ani"));
    // 17 keys need a capacity of 24: a key added behind them must fit.
    FcurveKey *late = fcurveKeyNew();
    late->time = 100.0f;
    EXPECT_EQ(fcurveAddKey(back->next->next->curve, late, 0, 0, 0), 17);
    animItemsFree(back);
    animItemsFree(items);
}

TEST(AnimFile, OlderFormsListsAndTheEndOfTheBlocks) {
    TempDir dir;
    // Tokens 2 and 3 are dropped, 99 ends the tokens, a sized unknown token is
    // passed over, in the block and in a curve; keys may carry more than we read.
    Bytes block = Buf().u16(2).raw("name", 5).u16(3).u16(7).u16(1).u16(100).u16(4).u16(1).u16(5).u16(8)
                      .u16(6).u16(2).u16(0x0201).u16(0xABCD).u16(99).b;
    Bytes list = Buf().i32(2).u16(0x0401).i32(1).u16(0x040F).i32(5).u16(0).b +
                 Buf().u16(0x0401).i32(2).u16(0xFF09).i32(32).i32(1).f32(3).f32(4).f32(0).f32(0)
                     .u16(0).u16(1).u16(0).u16(0).i32(77).u16(0).b;
    // A block without its kind ends the file, whatever follows.
    Bytes end = Buf().u16(5).u16(1).u16(10).raw("junk", 4).b;
    writeBytes(dir / "old.key", header(BIN_ID_STRUCT_KEYS, 3.5f) + block + list + end);
    OutputCapture out;
    AnimItem *items = animFileRead((dir / "old.key").c_str());
    ASSERT_EQ(countItems(items), 2);
    EXPECT_EQ(std::tuple(items->kind, items->target, items->param, items->active, items->curve->type,
                         items->curve->keyCount),
              std::tuple(100, 8, 2, 1, 1, 0));
    const Fcurve *second = items->next->curve;
    EXPECT_EQ(second->type, 2);
    ASSERT_EQ(second->keyCount, 1);
    EXPECT_EQ(second->keys[0].value, 4.0f);
    EXPECT_EQ(second->keys[0].interpolation, FCV_LINEAR);
    EXPECT_EQ(fcurveFloatValue(items->next->curve, 9.0f, 0), 4.0);
    animItemsFree(items);
    EXPECT_EQ(out.out.text() + out.err.text(), "");
}

TEST(AnimFile, DamagedAndForeignFiles) {
    TempDir dir;
    const Bytes whole = header(BIN_ID_ANIMATION, 4.0f) + blockTokens(0) + curveBytes();
    // Cut at every byte: what was read whole stays, the cut is reported once.
    for (size_t size = BIN_HEADER_SIZE; size < whole.size(); ++size) {
        writeBytes(dir / "cut.ani", Bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
        OutputCapture out;
        AnimItem *items = animFileRead((dir / "cut.ani").c_str());
        EXPECT_LE(countItems(items), 1);
        animItemsFree(items);
        std::string text = out.out.text();
        if (size == BIN_HEADER_SIZE) EXPECT_EQ(text, "");
        else EXPECT_EQ(text, "BW_ERROR: Passed end of file " + dir / "cut.ani" + " while reading data\n") << size;
    }

    const struct {
        Bytes bytes;
        const char *what;
    } cases[] = {
        // A key count beyond the field's size, and a field beyond the file.
        {blockTokens(0) + Buf().u16(0xFF09).i32(28).i32(100000000).b + Bytes(24, 0), "key count runs past its size"},
        {blockTokens(0) + Buf().u16(0xFF09).i32(0x7FFFFFF0).i32(1).b, "Passed end of file"},
        {blockTokens(1) + Buf().i32(50000000).u16(0).b, "Passed end of file"},
        {Buf().u16(1).u16(113).u16(17).u16(0).b, "unknown token 17 in an animation block"},
        {blockTokens(0) + Buf().u16(0x0011).b, "unknown token 17 in a curve"},
        {blockTokens(3), "unknown form 3 of an animation block"},
        {Buf().u16(1).u16(113).u16(0xFF20).i32(-4).b, "negative size -4 of token 65312"},
    };
    for (const auto &row : cases) {
        writeBytes(dir / "bad.ani", header(BIN_ID_ANIMATION, 4.0f) + row.bytes);
        OutputCapture out;
        animItemsFree(animFileRead((dir / "bad.ani").c_str()));
        EXPECT_TRUE(contains(out.out.text(), row.what)) << row.what << ": " << out.out.text();
    }

    writeBytes(dir / "camera.ani", header(BIN_ID_CAMERA, 4.0f) + blockTokens(0) + curveBytes());
    writeBytes(dir / "text.ani", text("SDSC 3.6\n"));
    OutputCapture out;
    EXPECT_EQ(animFileRead((dir / "camera.ani").c_str()), nullptr);
    EXPECT_EQ(animFileRead((dir / "text.ani").c_str()), nullptr);
    EXPECT_EQ(animFileRead((dir / "none.ani").c_str()), nullptr);
    EXPECT_EQ(out.out.text(), "BW_ERROR: Damaged file " + dir / "camera.ani" + " at offset 88: not an animation file\n");
    EXPECT_EQ(out.err.text(), "ERROR: Cannot open file " + dir / "none.ani" + "\n");
}

TEST(ShapeFile, KeysOfTheNodesTypeAndTheCountForms) {
    TempDir dir;
    Mesh *cubes[2] = {meshMakeCube(1.0f), meshMakeCube(3.0f)};
    ShapeKey written[2] = {{MODEL_MESH, cubes[0]}, {MODEL_MESH, cubes[1]}};
    ShapeKeys keys{2, written};
    ASSERT_EQ(shapeFileWrite((dir / "cube.shp").c_str(), &keys), 1);
    // For a mesh node the keys come back; for a patch node they are read past, not kept.
    Model *node = modelNew("cube", MODEL_MESH, nullptr), *patch = modelNew("sheet", MODEL_PATCH, nullptr);
    ShapeKeys *back = shapeFileRead((dir / "cube.shp").c_str(), node);
    ShapeKeys *skipped = shapeFileRead((dir / "cube.shp").c_str(), patch);
    ASSERT_TRUE(back && skipped);
    EXPECT_EQ(node->shapeCount, 2);
    const Mesh *big = static_cast<const Mesh *>(back->keys[1].geometry);
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(big->polygonCount, 6);
    EXPECT_EQ(big->vertices[6].pos[0], cubes[1]->vertices[6].pos[0]);
    EXPECT_EQ(skipped->count, 2);
    EXPECT_EQ(skipped->keys[1].geometry, nullptr);
    shapeKeysFree(back);
    shapeKeysFree(skipped);
    meshFree(cubes[0]);
    meshFree(cubes[1]);

    // 65534 announces the count in the next word; older files give it alone.
    // These records carry their tokens (no table): an empty curve is its end token.
    Model *curveNode = modelNew("c", MODEL_NURBS_CURVE, nullptr);
    const Bytes ncrv = Buf().raw("NCRV", 4).u16(0).b;
    writeBytes(dir / "new.shp", header(BIN_ID_SHAPE_KEYS, 4.0f) + Buf().u16(65534).u16(3).b + ncrv + ncrv + ncrv);
    writeBytes(dir / "old.shp", header(BIN_ID_SHAPE_KEYS, 2.7f) + Buf().u16(1).b + ncrv);
    for (auto [file, count] : {std::pair{"new.shp", 3}, std::pair{"old.shp", 1}}) {
        back = shapeFileRead((dir / file).c_str(), curveNode);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(curveNode->shapeCount, count);
        EXPECT_NE(back->keys[count - 1].geometry, nullptr);
        shapeKeysFree(back);
    }

    // Unknown tags and counts the file cannot hold fail with a message.
    writeBytes(dir / "tag.shp", header(BIN_ID_SHAPE_KEYS, 4.0f) + Buf().u16(1).raw("LATT", 4).u16(0).b);
    writeBytes(dir / "lying.shp", header(BIN_ID_SHAPE_KEYS, 4.0f) + Buf().u16(65534).u16(60000).b + ncrv);
    OutputCapture out;
    shapeKeysFree(shapeFileRead((dir / "tag.shp").c_str(), curveNode));
    shapeKeysFree(shapeFileRead((dir / "lying.shp").c_str(), curveNode));
    EXPECT_EQ(out.out.text(), "BW_ERROR: Damaged file " + dir / "tag.shp" + " at offset 94: unknown shape tag \"LATT\"\n" +
                                  "BW_ERROR: Passed end of file " + dir / "lying.shp" + " while reading data\n");
    modelFree(node);
    modelFree(patch);
    modelFree(curveNode);
}

TEST(ClusterFile, BinaryAndAsciiForms) {
    TempDir dir;
    Cluster *second = static_cast<Cluster *>(calloc(1, sizeof(Cluster)));
    second->type = MODEL_MESH;
    Cluster *first = static_cast<Cluster *>(calloc(1, sizeof(Cluster)));
    *first = Cluster{strdup("lid"), MODEL_MESH, {1, 2, 3}, 2, static_cast<int32_t *>(malloc(8)), 3,
                     static_cast<float *>(malloc(18 * sizeof(float))), 0xDEADBEEF, 9, second};
    first->indexes[0] = 4, first->indexes[1] = 7;
    for (int i = 0; i < 18; ++i) first->keys[i] = 0.5f * i;
    ASSERT_EQ(clusterFileWrite((dir / "lid.cls").c_str(), first), 1);

    // Read back and written again, the bytes are the same: every field came back.
    Model *mesh = modelNew("box", MODEL_MESH, nullptr);
    Cluster *back = clusterFileRead((dir / "lid.cls").c_str(), mesh);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->keys[17], 8.5f);
    ASSERT_EQ(clusterFileWrite((dir / "again.cls").c_str(), back), 1);
    EXPECT_EQ(readBytes(dir / "again.cls"), readBytes(dir / "lid.cls"));
    clusterFree(back);

    // The model's type must be the clusters'; without a model nothing is read.
    Model *patch = modelNew("sheet", MODEL_PATCH, nullptr);
    {
        OutputCapture out;
        clusterFree(clusterFileRead((dir / "lid.cls").c_str(), patch));
        EXPECT_TRUE(contains(out.out.text(), "cluster of type 4 for a model of type 1")) << out.out.text();
    }
    EXPECT_EQ(clusterFileRead((dir / "lid.cls").c_str(), nullptr), nullptr);
    clusterFree(first);

    // The ascii form: points of a patch are CVs of four values.
    dir.write("arm.cls", "CLUS 4.0\nCluster_node\nname arm\nnumCVs 2\nnumKeys 2\nindexes 3 5\n"
                         "Cluster_key\n1 2 3 1\n4 5 6 1\nCluster_key\n0 0 0 1\n0 0 1 1\n"
                         "Cluster_node\nname hand\nnumCVs 0\n");
    back = clusterFileRead((dir / "arm.cls").c_str(), patch);
    ASSERT_TRUE(back && back->next);
    EXPECT_STREQ(back->name, "arm");
    EXPECT_EQ(back->indexes[1], 5);
    EXPECT_EQ(back->keyCount, 2);
    EXPECT_EQ(back->keys[5], 5.0f);
    EXPECT_EQ(back->keys[14], 1.0f);
    EXPECT_STREQ(back->next->name, "hand");
    clusterFree(back);

    const struct {
        const char *text, *message;
    } cases[] = {
        {"CLUS 4.0\nname arm\n", "ClusterAsciiRead: Error file %s is not a cluster file\n"},
        {"CLUS 4.0\nCluster_node\nweight 2\n", "ClusterAnimNodeAsciiRead: Error, unknown token weight\n"},
        {"CLUS 4.0\nCluster_node\nnumCVs 1\nnumKeys 1\nCluster_key\n1 2 x 4\n",
         "ClusterAnimNodeAsciiRead: Error, unknown token x\n"},
        {"CLUS 4.0\nCluster_node\nnumCVs 90000000\nindexes 1\n", "ClusterAnimNodeAsciiRead: Error, unknown token indexes\n"},
    };
    for (const auto &row : cases) {
        const std::string path = dir.write("bad.cls", row.text);
        OutputCapture out;
        EXPECT_EQ(clusterFileRead(path.c_str(), patch), nullptr) << row.text;
        std::string message = row.message;
        if (size_t at = message.find("%s"); at != std::string::npos) message.replace(at, 2, path);
        EXPECT_EQ(out.err.text(), message) << row.text;
    }
    modelFree(mesh);
    modelFree(patch);
}
