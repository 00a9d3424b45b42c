// Tests of model files: hierarchy round trips with and without a table, the
// node fields of older files, and files cut or lying at every place.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "bytes.h"
#include "capture.h"
#include "dictionary.h"
#include "model.h"

using namespace bwtest;

namespace {

// Parent "root" with a cube, two children "left" (with a grandchild) and "right".
Model *makeTree() {
    Model *root = modelNew("root", MODEL_MESH, meshMakeCube(1.0f));
    root->translation[0] = 5.0f;
    root->visibility = 1;
    Model *left = modelNew("left", MODEL_PATCH, patchMakeGrid(3, 2, 1.0f));
    left->rotation[2] = 1.5707964f;
    left->scaling[1] = 2.0f;
    Model *right = modelNew("right", MODEL_NURBS_SURFACE, nurbsSurfaceMakePlane(1.0f));
    right->translation[1] = -1.0f;
    modelAddChild(root, left);
    modelAddChild(root, right);
    modelAddChild(left, modelNew("leaf", MODEL_FACE, faceMakeSquare(1.0f, 1)));
    // Inline materials and textures, a reference, and custom blocks.
    root->materialCount = 2;
    root->materials = static_cast<Material **>(calloc(2, sizeof(Material *)));
    root->materials[1] = new Material;
    root->materials[1]->name = "red";
    root->materials[1]->diffuse[0] = 1.0f;
    root->materials[1]->textures.resize(1);
    root->texture2DCount = 1;
    root->textures2D = static_cast<Texture2D **>(calloc(1, sizeof(Texture2D *)));
    root->textures2D[0] = new Texture2D;
    root->textures2D[0]->pictureName = "wood.pic";
    root->textures2D[0]->method = 4;
    root->texture3D = new Texture3D;
    root->texture3D->name = "marble";
    root->customBlocks = new std::vector<CustomBlock>{{"CUSA", 3, {1, 2}}, {"CUSC", 0, {}}};
    return root;
}

Bytes writeTree(const Model *root, int withTable) {
    ByteSink sink("tree.hrc");
    EXPECT_TRUE(modelFileWriteForm(sink.w, root, withTable));
    return sink.bytes();
}

// Writes bytes to "<dir>/<name>.hrc" and reads them back as a model file.
Model *readBytes(const bwtest::TempDir &dir, const Bytes &bytes, const char *name = "m") {
    std::string path = dir.path() + "/" + name;
    std::ofstream(path + ".hrc", std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()),
                                                          static_cast<std::streamsize>(bytes.size()));
    return modelFileRead(path.c_str(), nullptr, MODEL_READ_NEW);
}

// What the bytes cannot show: the links of the tree and its global transforms.
void expectTree(const Model *root) {
    ASSERT_NE(root, nullptr);
    ASSERT_TRUE(root->type == MODEL_MESH && root->materialCount == 2 && root->materials[1] && root->customBlocks);
    EXPECT_EQ(root->materials[1]->name, "red");
    EXPECT_EQ((*root->customBlocks)[0].data, (Bytes{1, 2}));
    const Model *left = root->firstChild;
    ASSERT_TRUE(left && left->firstChild && left->nextSibling);
    const Model *right = left->nextSibling;
    EXPECT_STREQ(left->firstChild->name, "leaf");
    EXPECT_STREQ(right->name, "right");
    EXPECT_TRUE(left->parent == root && right->parent == root && right->nextSibling == nullptr);
    // The child's translation goes through the parent's; left turns a quarter
    // about Z, so its local X axis points along global Y.
    EXPECT_FLOAT_EQ(right->globalMatrix[3][0], 5.0f);
    EXPECT_FLOAT_EQ(right->globalMatrix[3][1], -1.0f);
    EXPECT_NEAR(left->globalMatrix[0][1], 1.0f, 1e-6);
}

}  // namespace

TEST(ModelFile, HierarchyRoundTripsWithAndWithoutTable) {
    bwtest::TempDir dir;
    Model *tree = makeTree();
    Bytes withTable = writeTree(tree, 1), without = writeTree(tree, 0);
    EXPECT_EQ(0, memcmp(withTable.data(), "\x53\x80\xF6\x34", 4));  // the general id
    EXPECT_EQ(0, memcmp(withTable.data() + BIN_HEADER_SIZE, "PROT", 4));
    EXPECT_EQ(0, memcmp(without.data() + BIN_HEADER_SIZE, "HRCH", 4));
    for (const Bytes *bytes : {&withTable, &without}) {
        Model *back = readBytes(dir, *bytes);
        expectTree(back);
        // Writing what was read gives the same bytes again.
        EXPECT_EQ(writeTree(back, bytes == &withTable), *bytes);
        modelFree(back);
    }
    modelFree(tree);
}

TEST(ModelFile, OldNodeFields) {
    // Version 3.4, no table: visibility 65535, material index out of range,
    // an old custom tag, two 3D textures, a sibling-less child, token 548.
    Buf b;
    b.header(3.4f).raw("HRCH", 4);
    b.u16(1).raw("n", 2).u16(548).u16(1).u16(2).i32(MODEL_MESH);
    b.u16(3).u16(7).i32(1).u16(1).f32(0).f32(0).f32(0).u16(0);
    b.u16(8).i32(1).u16(2).u16(1).u16(3).i32(0).u16(0).u16(3).u16(9).u16(0).u16(0);
    b.u16(7).u16(3).u16(1).raw("a", 2).u16(1).raw("b", 2).u16(1).raw("c", 2);
    b.u16(9).u16(2).u16(0).u16(2).u16(5).u16(0).u16(0).u16(2).u16(6).u16(0);
    b.u16(12).u16(65535);
    b.u16(22).u16(2).raw("DCBA", 5).raw("\x01", 1).i32(2).raw("xy", 2).raw("CUSB", 5).raw("\0", 1).i32(0);
    b.u16(10).u16(1).u16(1).raw("kid", 4).u16(0).u16(11).u16(0).u16(0);
    bwtest::TempDir dir;
    Model *m = readBytes(dir, b.b);
    ASSERT_NE(m, nullptr);
    EXPECT_TRUE(m->flags & MODEL_FLAG_FILE1);
    EXPECT_TRUE(m->visibility == 0 && m->geometry.mesh->polygons[0].material == 0);
    ASSERT_TRUE(m->texture3D && m->customBlocks && m->customBlocks->size() == 2 && m->firstChild);
    EXPECT_EQ(m->texture3D->type, 5);  // the first one; the second was read and dropped
    EXPECT_EQ((*m->customBlocks)[0].tag + (*m->customBlocks)[1].tag, "_ABCDCUSB");
    EXPECT_EQ((*m->customBlocks)[0].flag, 1);
    EXPECT_EQ(modelFindByName(nullptr, m, "kid"), m->firstChild);
    modelFree(m);
}

TEST(ModelFile, DamagedFilesNeverCrashAndNameTheFile) {
    bwtest::TempDir dir;
    Model *tree = makeTree();
    for (int withTable : {1, 0}) {
        Bytes full = writeTree(tree, withTable);
        for (size_t cut = 0; cut < full.size(); cut += 3) {
            bwtest::OutputCapture cap;
            modelFree(readBytes(dir, Bytes(full.begin(), full.begin() + long(cut)), "cut"));
            std::string said = cap.err.text() + cap.out.text();
            if (cut > size_t(BIN_HEADER_SIZE) + 4) {
                EXPECT_NE(said.find("cut.hrc"), std::string::npos) << cut;
            }
        }
    }
    modelFree(tree);
    // Another chunk than HRCH gives no model.
    bwtest::OutputCapture cap;
    EXPECT_EQ(readBytes(dir, Buf().header(4.0f).raw("XXXX", 4).u16(0).b), nullptr);
}

TEST(ModelFile, LyingCountsAndDeepTrees) {
    bwtest::TempDir dir;
    {
        bwtest::OutputCapture cap;
        for (uint16_t token : {7, 8, 21}) {
            Buf b;
            b.header(4.0f).raw("HRCH", 4).u16(token);
            token == 21 ? b.i32(0x7FFFFFFF) : b.u16(65535);
            b.u16(0);
            Model *m = readBytes(dir, b.b);
            ASSERT_NE(m, nullptr);
            EXPECT_EQ(m->materialCount + m->texture2DCount + m->clusterCount, 0);
            modelFree(m);
        }
    }
    // A chain of 200000 nested children and one of as many siblings.
    for (uint16_t token : {10, 11}) {
        Buf b;
        b.header(4.0f).raw("HRCH", 4);
        if (token == 11) b.u16(10).u16(1);
        for (int i = 0; i < 200000; ++i) b.u16(token).u16(1);
        b.b.resize(b.b.size() + 2 * 200002, 0);
        Model *m = readBytes(dir, b.b);
        ASSERT_NE(m, nullptr);
        int depth = 0;
        for (Model *n = m->firstChild; n; n = token == 10 ? n->firstChild : n->nextSibling) ++depth;
        EXPECT_EQ(depth, token == 10 ? 200000 : 200001);
        modelFree(m);
    }
}

TEST(ModelFile, PatchRootOfBasisOneIsSpread) {
    bwtest::TempDir dir;
    Model *root = modelNew("p", MODEL_PATCH, patchMakeGrid(2, 4, 3.0f));
    Patch *p = root->geometry.patch;
    p->uType = p->vType = 1;
    p->cvFlags[0] = 5, p->cvFlags[1] = 7;  // the points at u 0 and 1, v 0
    Model *child = modelNew("c", MODEL_PATCH, patchMakeGrid(2, 2, 1.0f));
    child->geometry.patch->uType = child->geometry.patch->vType = 1;
    modelAddChild(root, child);
    Model *back = readBytes(dir, writeTree(root, 1));
    ASSERT_NE(back, nullptr);
    const Patch *q = back->geometry.patch;
    // One span in u becomes three; three spans in v are whole already.
    ASSERT_TRUE(q->uCount == 4 && q->vCount == 4);
    EXPECT_FLOAT_EQ(q->cvs[0][0], -1.5f);
    EXPECT_FLOAT_EQ(q->cvs[1][0], -0.5f);
    EXPECT_FLOAT_EQ(q->cvs[3][0], 1.5f);
    EXPECT_TRUE(q->cvFlags[0] == 5 && q->cvFlags[3] == 7 && q->cvFlags[1] == 0);  // only old points keep flags
    EXPECT_FLOAT_EQ(q->cvs[3 * 4 + 2][2], 1.5f);
    EXPECT_EQ(back->firstChild->geometry.patch->uCount, 2);  // only the root is repaired
    // A spread grid is not spread again.
    Model *again = readBytes(dir, writeTree(back, 1));
    EXPECT_EQ(again->geometry.patch->uCount, 4);
    modelFree(again);
    modelFree(back);
    modelFree(root);
}

TEST(ModelFile, ElemLinkTiesNodesToElementsByName) {
    RelationDict table;
    RelationRow row;
    row.relid = 110, row.name = "parent", row.chpFrom = row.chpTo = CHP_MODELS, row.grpFrom = row.grpTo = 1;
    relDictAddRow(&table, row);
    Dictionary dict;
    dictCreateChapters(&dict, nullptr, 1);
    auto add = [&](const char *name) {
        return elemAdd(&dict, CHP_MODELS, elemNameParse(name, nullptr, 0), nullptr, nullptr, 0, 0);
    };
    int root = add("root"), right = add("right"), leaf = add("leaf"), ghost = add("ghost");
    relAdd(&dict, &table, right, root, 110, 1, 1, nullptr, 1);
    relAdd(&dict, &table, leaf, right, 110, 1, 1, nullptr, 1);
    relAdd(&dict, &table, ghost, root, 110, 1, 1, nullptr, 1);
    Model *tree = makeTree();
    bwtest::StreamCapture err(stderr);
    EXPECT_EQ(modelElemLink(&dict, root, tree), 1);
    EXPECT_EQ(err.text(), "A model node named [ghost] was expected under root [root]: it couldn't be found\n");
    EXPECT_EQ(elemGet(&dict, CHP_MODELS, root)->data, tree);
    const Model *rightNode = tree->firstChild->nextSibling;
    EXPECT_EQ(elemGet(&dict, CHP_MODELS, right)->data, rightNode);
    EXPECT_EQ(rightNode->elementIndex, right);
    EXPECT_EQ(elemGet(&dict, CHP_MODELS, leaf)->data, tree->firstChild->firstChild);
    EXPECT_EQ(elemGet(&dict, CHP_MODELS, ghost)->data, nullptr);
    dictFree(&dict, 0);
    relDictClear(&table);
    modelFree(tree);
}

TEST(ModelFile, ChainBlockGivesKindTypePreferredAngleAndRoll) {
    // Version 4.0 without a table: a root of kind 1 and chain type 40, a
    // joint below with its preferred angle and roll; a block with two bytes
    // past the fields, and an empty block on a third node.
    Buf b;
    b.header(4.0f).raw("HRCH", 4);
    b.u16(1).raw("root", 5).u16(26).i32(18).i32(1).i32(40).f32(0).f32(0).u16(0);
    b.u16(10).u16(1);
    b.u16(1).raw("j1", 3).u16(2).i32(5).u16(26).i32(16).i32(1).i32(0).f32(0.5f).f32(-0.25f);
    b.u16(10).u16(0).u16(11).u16(1);
    b.u16(1).raw("plain", 6).u16(26).i32(0).u16(10).u16(0).u16(11).u16(0).u16(0);
    b.u16(0).u16(11).u16(0).u16(0);
    bwtest::TempDir dir;
    Model *m = readBytes(dir, b.b);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->kind, 1);
    EXPECT_EQ(m->chainType, 40);
    EXPECT_EQ(m->chain, nullptr);  // nothing but zeros to keep
    Model *j = m->firstChild;
    ASSERT_TRUE(j && j->nextSibling);
    EXPECT_EQ(j->type, 5);
    EXPECT_EQ(j->kind, 1);
    ASSERT_NE(j->chain, nullptr);
    EXPECT_FLOAT_EQ(j->chain->prefRotationZ, 0.5f);
    EXPECT_FLOAT_EQ(j->chain->jointRollOffset, -0.25f);
    EXPECT_EQ(j->nextSibling->kind, 0);
    // Written back with a table, every node carries the field; read again,
    // the values stay.
    Bytes again = writeTree(m, 1);
    modelFree(m);
    Model *back = readBytes(dir, again, "again");
    ASSERT_TRUE(back && back->firstChild && back->firstChild->chain);
    EXPECT_EQ(back->chainType, 40);
    EXPECT_FLOAT_EQ(back->firstChild->chain->jointRollOffset, -0.25f);
    modelFree(back);
}

TEST(ModelFile, ShortChainBlockFailsTheFileByName) {
    Buf b;
    b.header(4.0f).raw("HRCH", 4);
    b.u16(1).raw("root", 5).u16(26).i32(8).i32(1).i32(40).u16(0);
    bwtest::TempDir dir;
    bwtest::OutputCapture cap;
    modelFree(readBytes(dir, b.b, "short"));
    std::string said = cap.err.text() + cap.out.text();
    EXPECT_NE(said.find("short.hrc"), std::string::npos) << said;
    EXPECT_NE(said.find("chain block shorter than its four fields"), std::string::npos) << said;
}

TEST(ModelFile, EachTypeNumberReadsItsOwnGeometryRecord) {
    // Version 4.0 without a table: a node of type n, its geometry (token 3)
    // with one field only that record kind has, then a translation that is
    // read right only if the geometry took exactly its own bytes.
    struct Case {
        int32_t type;
        Buf geometry;  // the record's tokens, without the closing 0
    };
    Buf ref;
    ref.u16(4).i32(0x40080000).i32(0);  // f64 3.0
    const Case cases[] = {
        {MODEL_PATCH, Buf().u16(1).i32(3)},                // u basis
        {MODEL_FACE, Buf().u16(3).u16(1)},                 // spline boundaries
        {MODEL_MESH, Buf().u16(6).u16(3)},                 // mesh flags
        {MODEL_SPLINE, Buf().u16(1).u16(3)},               // spline basis
        {MODEL_META, Buf().u16(1).i32(3)},                 // meta value 1
        {MODEL_REF, ref},                                  // reference value 4
        {MODEL_NURBS_CURVE, Buf().u16(1).i32(3)},          // degree
        {MODEL_NURBS_SURFACE, Buf().u16(1).i32(3).i32(2)}, // u and v degrees
    };
    bwtest::TempDir dir;
    auto read = [&](int32_t type, const Buf &geometry, bool sized) {
        Buf b;
        b.header(4.0f).raw("HRCH", 4).u16(1).raw("n", 2).u16(2).i32(uint32_t(type)).u16(3);
        b.b = b.b + geometry.b;
        if (!sized) b.u16(0);
        b.u16(6).f32(1).f32(2).f32(7).u16(0);
        return readBytes(dir, b.b);
    };
    for (const Case &c : cases) {
        Model *m = read(c.type, c.geometry, false);
        ASSERT_TRUE(m && m->geometry.any) << c.type;
        EXPECT_EQ(m->type, c.type);
        EXPECT_FLOAT_EQ(m->translation[2], 7.0f) << c.type;
        switch (c.type) {
        case MODEL_PATCH: EXPECT_EQ(m->geometry.patch->uType, 3); break;
        case MODEL_FACE: EXPECT_EQ(m->geometry.face->isSpline, 1); break;
        case MODEL_MESH: EXPECT_EQ(m->geometry.mesh->flags, 3); break;
        case MODEL_SPLINE: EXPECT_EQ(m->geometry.spline->type, 3); break;
        case MODEL_META: EXPECT_EQ(m->geometry.meta->value1, 3); break;
        case MODEL_REF: EXPECT_EQ(m->geometry.ref->value4, 3.0); break;
        case MODEL_NURBS_CURVE: EXPECT_EQ(m->geometry.curve->degree, 3); break;
        default: EXPECT_TRUE(m->geometry.surface->degree[0] == 3 && m->geometry.surface->degree[1] == 2);
        }
        modelFree(m);
    }
    // Types 0, 3 and 5 carry no geometry: their token 3 is a sized block.
    for (int32_t bare : {MODEL_BARE, MODEL_BARE3, MODEL_BARE5}) {
        Model *m = read(bare, Buf().i32(4).i32(0x01020304), true);
        ASSERT_NE(m, nullptr);
        EXPECT_TRUE(m->type == bare && m->geometry.any == nullptr) << bare;
        EXPECT_FLOAT_EQ(m->translation[2], 7.0f) << bare;
        modelFree(m);
    }
}
