// Camera, light and lattice files: the bytes of a small camera, round trips
// through our writers, the value and position frames, the light record made
// by its type, lattice keys, and files that are cut or of another kind.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bytes.h"
#include "camera.h"
#include "capture.h"
#include "material.h"

using namespace bwtest;

namespace {

// A token and its plain value.
Bytes value(uint16_t token, float v) { return be16(token) + be16(1) + f32(v); }

Camera sampleCamera() {
    Camera c;
    c.position[0] = 1, c.position[1] = 2, c.position[2] = 3;
    c.interest[0] = 4, c.interest[1] = 5, c.interest[2] = 6;
    c.rotationKept[0] = 10, c.rotationKept[1] = 20, c.roll = 0.5f;
    c.nearClip = 0.25f, c.farClip = 500, c.focalLength = 35, c.fStop = 8, c.focusDistance = 12;
    c.fieldOfView = 0.75f, c.dofMode = 2, c.nearFocus = 3, c.farFocus = 30, c.dofKept = 1.5f;
    c.circleOfConfusion = 0.02f, c.kept18 = 7, c.offsetLens = 1;
    const float lens[5] = {50, 36, 24, 0.5f, -0.5f};
    memcpy(c.lens, lens, sizeof lens);
    return c;
}

// Every float a camera file carries, in a fixed order.
std::vector<float> floatsOf(const Camera &c) {
    std::vector<float> v(c.position, c.position + 3);
    v.insert(v.end(), c.interest, c.interest + 3);
    v.insert(v.end(), c.rotationKept, c.rotationKept + 2);
    for (float f : {c.roll, c.nearClip, c.farClip, c.focalLength, c.fStop, c.focusDistance, c.fieldOfView,
                    c.nearFocus, c.farFocus, c.dofKept, c.circleOfConfusion})
        v.push_back(f);
    v.insert(v.end(), c.lens, c.lens + 5);
    return v;
}

std::vector<float> floatsOf(const Light &l) {
    std::vector<float> v(l.colour, l.colour + 3);
    v.insert(v.end(), l.position, l.position + 3);
    v.insert(v.end(), l.area, l.area + 12);
    v.insert(v.end(), &l.matrix[0][0], &l.matrix[0][0] + 16);
    for (float f : {l.falloff[0], l.falloff[1], l.factor, l.coneAngle, l.kept20[1], l.kept36[2], l.photon[1], l.kept43})
        v.push_back(f);
    return v;
}

Light *sampleLight(int32_t areaShape) {
    Light *l = new Light;
    strcpy(l->name, "key light");
    l->type = 2, l->colour[1] = 0.5f, l->falloff[0] = 5, l->falloff[1] = 50, l->factor = 2;
    l->position[2] = 9, l->interest[0] = -1, l->coneAngle = 0.3f, l->kept17[2] = 65535;
    l->kept20[1] = 4, l->kept23[0] = 3, l->mapName = strdup("shadow.map"), l->linkedWord28 = 0xCAFEF00D;
    l->shaders[1] = new CustomShader{"soft", {1, 2, 3}};
    l->areaShape = areaShape;
    for (int i = 0; i < 12; ++i) l->area[i] = static_cast<float>(i + 1);
    l->matrix[3][0] = 7, l->flag40 = 1, l->photon[1] = 0.25f, l->kept43 = 3, l->count45 = -2, l->flag47 = 1;
    l->customBlocks = new std::vector<CustomBlock>{{"CUSA", 1, {9, 8}}};
    return l;
}

Lattice *sampleLattice() {
    Lattice *l = static_cast<Lattice *>(calloc(1, sizeof(Lattice)));
    l->keyCount = 2;
    l->keys = static_cast<LatticeKey *>(calloc(2, sizeof(LatticeKey)));
    for (int k = 0; k < 2; ++k) {
        LatticeKey &key = l->keys[k];
        key.kind = 3, key.divisions[0] = key.divisions[1] = key.divisions[2] = 2, key.words[1] = 65535;
        key.vectors[k][k] = 1.0f;
        key.pointCount = 8;
        key.points = static_cast<float(*)[3]>(malloc(8 * sizeof *key.points));
        key.pointFlags = static_cast<uint16_t *>(calloc(8, sizeof(uint16_t)));
        for (int i = 0; i < 8; ++i)
            key.points[i][0] = float(i & 1), key.points[i][1] = float(i >> 1 & 1), key.points[i][2] = float(k + i);
    }
    return l;
}

}  // namespace

TEST(CameraFile, GoldenBytesWrittenAndRead) {
    TempDir dir;
    Camera c = sampleCamera();
    ASSERT_EQ(cameraFileWrite((dir / "c.cam").c_str(), c, nullptr), 1);
    Bytes golden = header(BIN_ID_CAMERA, 4.0f) + be16(3) + be16(1) + f32(1) + f32(2) + f32(3) + be16(0) + be16(4) +
                   be16(1) + f32(4) + f32(5) + f32(6) + be16(0) + be16(6) + be16(1) + f32(10) + f32(20) + f32(0.5f) +
                   value(7, 0.25f) +
                   value(8, 500) + value(9, 35) + value(10, 8) + value(11, 12) + value(12, 0.75f) + be16(13) +
                   be16(2) + value(14, 3) + value(15, 30) + value(16, 1.5f) + value(17, 0.02f) + be16(18) + be16(7) +
                   be16(20) + be16(1) + be16(1) + f32(50) + be16(1) + f32(36) + be16(1) + f32(24) + be16(1) +
                   f32(0.5f) + be16(1) + f32(-0.5f) + be16(0);
    EXPECT_EQ(readBytes(dir / "c.cam"), golden);

    // Read into a camera that already holds other values: the file fills it.
    Camera back;
    back.linkWords[0] = 0, back.linkWords[1] = 5;
    ASSERT_EQ(cameraFileRead((dir / "c.cam").c_str(), &back), &back);
    EXPECT_EQ(floatsOf(back), floatsOf(c));
    EXPECT_TRUE(back.dofMode == 2 && back.kept18 == 7 && back.offsetLens == 1);
    EXPECT_TRUE(back.linkWords[0] == 1 && back.linkWords[1] == 0 && back.linkWords[2] == 0);
    EXPECT_EQ(pathRefsTake(), nullptr);
}

TEST(CameraFiles, RoundTripEachKind) {
    TempDir dir;
    Camera c = sampleCamera();
    c.customBlocks = new std::vector<CustomBlock>{{"CUSB", 0, {1, 2, 3}}, {"CUSC", 2, {}}};
    ASSERT_EQ(cameraFileWrite((dir / "a.cam").c_str(), c, "a camera"), 1);
    Camera back;
    ASSERT_EQ(cameraFileRead((dir / "a.cam").c_str(), &back), &back);
    ASSERT_TRUE(back.customBlocks && back.customBlocks->size() == 2);
    EXPECT_EQ((*back.customBlocks)[0].data, (Bytes{1, 2, 3}));
    // A second read of the same file replaces the blocks rather than adding to them.
    ASSERT_EQ(cameraFileRead((dir / "a.cam").c_str(), &back), &back);
    EXPECT_EQ(back.customBlocks->size(), 2u);
    ASSERT_EQ(cameraFileWrite((dir / "b.cam").c_str(), back, "a camera"), 1);
    EXPECT_EQ(readBytes(dir / "b.cam"), readBytes(dir / "a.cam"));
    cameraFreeData(c), cameraFreeData(back);

    for (int32_t shape : {0, 1, 2, 9}) {
        Light *l = sampleLight(shape);
        ASSERT_EQ(lightFileWrite((dir / "a.lig").c_str(), *l, nullptr), 1);
        Light *lb = lightFileRead((dir / "a.lig").c_str());
        ASSERT_NE(lb, nullptr) << shape;
        ASSERT_EQ(lightFileWrite((dir / "b.lig").c_str(), *lb, nullptr), 1);
        EXPECT_EQ(readBytes(dir / "b.lig"), readBytes(dir / "a.lig")) << shape;
        EXPECT_STREQ(lb->name, "key light");
        EXPECT_TRUE(lb->falloffOn == 1 && lb->kept17[2] == 65535 && lb->linkedWord28 == 0xCAFEF00D);
        EXPECT_TRUE(lb->shaders[0] == nullptr && lb->shaders[1] && lb->shaders[1]->name == "soft");
        EXPECT_EQ(lb->area[3], shape == 0 || shape == 2 ? 4.0f : 0.0f) << shape;
        EXPECT_EQ(floatsOf(*lb) == floatsOf(*l), shape == 0) << shape;  // other shapes carry fewer values
        lightFree(l), lightFree(lb);
    }

    Lattice *lat = sampleLattice();
    ASSERT_EQ(latticeFileWrite((dir / "a.lat").c_str(), *lat, nullptr), 1);
    Lattice *lb = latticeFileLoad((dir / "a.lat").c_str());
    ASSERT_TRUE(lb && lb->keyCount == 2);
    EXPECT_EQ(memcmp(lb->keys[1].points, lat->keys[1].points, 8 * sizeof *lat->keys[1].points), 0);
    EXPECT_TRUE(lb->keys[1].vectors[1][1] == 1.0f && lb->keys[1].words[1] == 65535);
    ASSERT_EQ(latticeFileWrite((dir / "b.lat").c_str(), *lb, nullptr), 1);
    EXPECT_EQ(readBytes(dir / "b.lat"), readBytes(dir / "a.lat"));
    latticeFree(lat), latticeFree(lb);
    EXPECT_EQ(pathRefsTake(), nullptr);
}

TEST(CameraValues, EveryKindOfValue) {
    // Kind 1 stores; kind 2 keeps the field and takes two bytes; a kind with a
    // size in its high byte is passed over; another kind stands alone; a null
    // field drops the value.
    Bytes bytes = be16(1) + f32(2.5f) + be16(2) + be16(0x0404) + be32(0xFFFFFFFF) + be16(7) + be16(1) + f32(9) +
                  be16(1) + f32(1) + f32(2) + f32(3) + be16(2) + be16(0x0303) + Bytes{1, 2, 3} + f32(4) + f32(5) +
                  f32(6) + be16(0x4242);
    ByteFile file(bytes, "v.cam", 4.0f);
    float a = -1, b = -1, c = -1, d = -1, v[3] = {-1, -1, -1}, w[3] = {-2, -2, -2};
    EXPECT_EQ(valueRead(file.r, &a) + valueRead(file.r, &b) + valueRead(file.r, &c) + valueRead(file.r, &d), 4);
    EXPECT_TRUE(a == 2.5f && b == -1 && c == -1 && d == -1);
    EXPECT_EQ(file.r.pos, 16);
    valueRead(file.r, nullptr);
    valueRead3(file.r, v);
    valueRead3(file.r, w);
    EXPECT_TRUE(v[0] == 1 && v[1] == 2 && v[2] == 3 && w[0] == -2);
    valueRead3(file.r, w);  // the sized kind is passed over
    vectorRead(file.r, w);
    EXPECT_TRUE(w[0] == 4 && w[1] == 5 && w[2] == 6);
    EXPECT_EQ(binReadU16(file.r), 0x4242);
    EXPECT_FALSE(file.r.failed);
}

TEST(CameraValues, PositionBlocks) {
    // One block of a vector, a path and a second vector ended by 0; then
    // blocks of the old curve form (2, 4, 5) and one ended by 7 at once, each
    // of two bytes; then paths without and with an owner.
    Camera owner;
    Bytes bytes = be16(1) + f32(7) + f32(8) + f32(9) + be16(3) + be16(12) + text0("path1") + be16(1) + f32(10) +
                  f32(11) + f32(12) + be16(0) + be16(2) + be16(4) + be16(5) + be16(7) + be16(3) + be16(13) +
                  text0("dropped") + be16(0) + be16(3) + be16(14) + text0("path2") + be16(9) + be16(0x4242);
    ByteFile file(bytes, "p.cam", 4.0f);
    float p[3] = {0, 0, 0};
    OutputCapture out;
    positionRead(file.r, p, &owner, PATH_REF_CAMERA_INTEREST);
    EXPECT_TRUE(p[0] == 10 && p[1] == 11 && p[2] == 12);  // the last vector of the block
    EXPECT_EQ(file.r.pos, 2 + 12 + 2 + 2 + 6 + 2 + 12 + 2);
    for (int i = 0; i < 4; ++i) positionRead(file.r, p, &owner, PATH_REF_CAMERA_POSITION);  // 2, 4, 5, 7
    EXPECT_EQ(file.r.pos, 40 + 8);  // two bytes each
    const char *old = " oldpositionBinaryRead - token BW_B_POS_FCV_TOKEN - shouldn't be called anymore\n";
    EXPECT_EQ(out.out.text(), std::string(old) + old + old);
    EXPECT_EQ(out.err.text(), "");

    positionRead(file.r, p, nullptr, PATH_REF_LIGHT_POSITION);  // no owner: read and dropped
    positionRead(file.r, p, &owner, PATH_REF_LIGHT_INTEREST);
    EXPECT_EQ(binReadU16(file.r), 0x4242);
    PathRef *refs = pathRefsTake();
    ASSERT_TRUE(refs && refs->next && !refs->next->next);
    EXPECT_TRUE(refs->owner == &owner && refs->kind == PATH_REF_LIGHT_INTEREST && refs->word == 14);
    EXPECT_STREQ(refs->pathName, "path2");  // newest first
    EXPECT_TRUE(refs->next->kind == PATH_REF_CAMERA_INTEREST && refs->next->word == 12);
    EXPECT_STREQ(refs->next->pathName, "path1");
    EXPECT_EQ(pathRefsTake(), nullptr);  // taking empties the list
    pathRefsFree(refs);
}

TEST(CameraFile, EveryTokenBehindTwoPositionBlocksArrives) {
    // Position ended by 0, interest by 7 with a path in it, then field of
    // view, near, far and a lens block: the file of another writer.
    TempDir dir;
    Bytes body = be16(3) + be16(1) + f32(1) + f32(2) + f32(3) + be16(0) + be16(4) + be16(3) + be16(5) +
                 text0("s-track") + be16(1) + f32(4) + f32(5) + f32(6) + be16(7) + value(12, 0.5f) + value(7, 0.125f) +
                 value(8, 800) + be16(20) + be16(1) + be16(1) + f32(40) + be16(1) + f32(24) + be16(1) + f32(16) +
                 be16(1) + f32(0.25f) + be16(1) + f32(-0.25f) + be16(0);
    writeBytes(dir / "two.cam", header(BIN_ID_CAMERA, 4.0f) + body);
    Camera c;  // the current camera, holding values of its own
    c.roll = 0.3f, c.focalLength = 77, c.fStop = 11, c.dofMode = 1;
    OutputCapture out;
    ASSERT_EQ(cameraFileRead((dir / "two.cam").c_str(), &c), &c);
    EXPECT_TRUE(c.position[0] == 1 && c.position[1] == 2 && c.position[2] == 3);
    EXPECT_TRUE(c.interest[0] == 4 && c.interest[1] == 5 && c.interest[2] == 6);
    EXPECT_TRUE(c.fieldOfView == 0.5f && c.nearClip == 0.125f && c.farClip == 800);
    // The lens block: its film width is the camera's film back.
    EXPECT_TRUE(c.offsetLens == 1 && c.lens[0] == 40 && c.filmWidth == 24 && c.lens[1] == 24 && c.lens[4] == -0.25f);
    // What the file does not carry stays as the camera held it.
    EXPECT_TRUE(c.roll == 0.3f && c.focalLength == 77 && c.fStop == 11 && c.dofMode == 1);
    EXPECT_EQ(out.out.text(), "");
    PathRef *refs = pathRefsTake();
    ASSERT_TRUE(refs && !refs->next);
    EXPECT_TRUE(refs->owner == &c && refs->kind == PATH_REF_CAMERA_INTEREST && refs->word == 5);
    EXPECT_STREQ(refs->pathName, "s-track");
    pathRefsFree(refs);

    // The old curve form prints its line and ends the block: the next word is
    // a token again.
    for (uint16_t form : {2, 4, 5}) {
        writeBytes(dir / "old.cam", header(BIN_ID_CAMERA, 4.0f) + be16(3) + be16(form) + value(12, 0.25f) + be16(0));
        OutputCapture old;
        ASSERT_EQ(cameraFileRead((dir / "old.cam").c_str(), &c), &c);
        EXPECT_EQ(old.out.text(), " oldpositionBinaryRead - token BW_B_POS_FCV_TOKEN - shouldn't be called anymore\n");
        EXPECT_TRUE(c.fieldOfView == 0.25f && c.position[0] == 1) << form;
    }
}

TEST(LightFile, SelectionStateOneOrThreePutsTheLightOnTheSelectList) {
    TempDir dir;
    for (uint16_t state : {0, 1, 2, 3}) {
        // The position block stands before the state: it must end where the
        // file ends it for token 14 to be read as a token.
        Bytes body = be16(1) + text0("lamp") + be16(2) + be16(1) + be16(7) + be16(1) + f32(1) + f32(2) + f32(3) +
                     be16(0) + be16(12) + be16(4) + be16(14) + be16(state) + value(6, 2) + be16(0);
        writeBytes(dir / "s.lig", header(BIN_ID_LIGHT, 4.0f) + body);
        Light *l = lightFileRead((dir / "s.lig").c_str());
        ASSERT_NE(l, nullptr);
        EXPECT_EQ(l->display.selection, state);
        EXPECT_EQ(l->display.colour, 4);
        EXPECT_EQ(lightOnSelectList(*l), state == 1 || state == 3) << state;
        EXPECT_TRUE(l->position[2] == 3 && l->factor == 2) << state;
        lightFree(l);
    }
}

TEST(CameraFile, UnknownTokensAndNoCamera) {
    // Unknown tokens: a sized one, one with its size in the high byte, one
    // that stands alone; the field of view is not in the file and stays.
    TempDir dir;
    Bytes body = be16(0xFF77) + be32(3) + Bytes{1, 2, 3} + be16(0x0263) + Bytes{0, 0} + be16(99) + be16(1) +
                 be16(5) + value(7, 2.0f) + be16(19) + be16(1) + f32(5) + be16(0);
    writeBytes(dir / "u.cam", header(BIN_ID_CAMERA, 4.0f) + body);
    Camera c;
    c.fieldOfView = 1.25f;
    ASSERT_EQ(cameraFileRead((dir / "u.cam").c_str(), &c), &c);
    EXPECT_TRUE(c.nearClip == 2.0f && c.fieldOfView == 1.25f);

    // Without a camera the tokens are read as words up to the first 0.
    ByteFile file(be16(5) + be16(1) + be16(0) + be16(0x4242), "n.cam", 4.0f);
    OutputCapture out;
    EXPECT_EQ(cameraRead(file.r, nullptr), 0);
    EXPECT_EQ(binReadU16(file.r), 0x4242);
    EXPECT_EQ(cameraFileRead((dir / "u.cam").c_str(), nullptr), nullptr);
    const std::string line = "CameraBinaryRead: cannot allocate camera, skipping.\n";
    EXPECT_EQ(out.err.text(), line + line);
}

TEST(LightFile, TokenTwoMakesTheRecord) {
    TempDir dir;
    std::string longName(40, 'n');
    Bytes body = be16(3) + be16(1) + f32(0.1f) + f32(0.2f) + f32(0.3f) + be16(7) + be16(3) + be16(1) +
                 text0("early") + be16(0) + be16(0xFF28) + be32(10) + text0("CUSA") + Bytes{0} + be32(0) + be16(1) +
                 text0(longName) + be16(2) + be16(3) + be16(8) + be16(3) + be16(2) + text0("late") + be16(0) +
                 value(4, 10000.005f) + value(5, 20) + be16(4138) + be16(2) + be16(1067) + be16(1) + f32(6) + be16(0);
    writeBytes(dir / "l.lig", header(BIN_ID_LIGHT, 4.0f) + body);
    Light *l = lightFileRead((dir / "l.lig").c_str());
    ASSERT_NE(l, nullptr);
    EXPECT_EQ(l->type, 3);
    EXPECT_EQ(std::string(l->name), longName.substr(0, 30));
    EXPECT_EQ(l->colour[0], 1.0f);  // read before the record: lost
    EXPECT_EQ(l->customBlocks, nullptr);
    EXPECT_TRUE(l->falloffOn == 0 && l->falloff[1] == 20 && l->kept43 == 6);
    PathRef *refs = pathRefsTake();  // the early path had no light to follow it
    ASSERT_TRUE(refs && !refs->next);
    EXPECT_TRUE(refs->owner == l && refs->kind == PATH_REF_LIGHT_INTEREST);
    EXPECT_STREQ(refs->pathName, "late");
    pathRefsFree(refs);
    lightFree(l);

    // Without token 2 there is no light.
    writeBytes(dir / "none.lig", header(BIN_ID_LIGHT, 4.0f) + be16(1) + text0("x") + value(6, 2) + be16(0));
    EXPECT_EQ(lightFileRead((dir / "none.lig").c_str()), nullptr);
}

TEST(LatticeFile, KeysTakeTheVectorsAsTheyStand) {
    TempDir dir;
    Bytes points;
    for (int i = 0; i < 8; ++i) points = points + f32(float(i)) + f32(0) + f32(1);
    Bytes body = be16(1) + be16(4) + be16(2) + be16(2) + be16(2) + be16(2) + be16(3) + be16(1) + be16(2) +
                 be16(65535) + be16(6) + f32(1) + f32(2) + f32(3) + be16(4) + points + be16(5) + be16(9) +
                 be16(0x0277) + be16(0) + be16(8) + f32(7) + f32(8) + f32(9) + be16(4) + points + be16(0);
    writeBytes(dir / "k.lat", header(BIN_ID_LATTICE, 4.0f) + body);
    Lattice *l = latticeFileLoad((dir / "k.lat").c_str());
    ASSERT_TRUE(l && l->keyCount == 2);
    for (int k = 0; k < 2; ++k) {
        const LatticeKey &key = l->keys[k];
        EXPECT_TRUE(key.kind == 4 && key.pointCount == 8 && key.words[2] == 65535);
        EXPECT_TRUE(key.points[7][0] == 7.0f && key.points[7][2] == 1.0f && key.pointFlags[7] == 0);
        EXPECT_EQ(key.vectors[0][1], 2.0f);
    }
    EXPECT_TRUE(l->keys[0].vectors[2][2] == 0.0f && l->keys[1].vectors[2][2] == 9.0f);
    latticeFree(l);

    // Divisions whose points the file cannot hold fail before any allocation.
    writeBytes(dir / "big.lat", header(BIN_ID_LATTICE, 4.0f) + be16(2) + be16(65535) + be16(65535) + be16(65535) +
                                    be16(4) + f32(1) + be16(0));
    OutputCapture out;
    l = latticeFileLoad((dir / "big.lat").c_str());
    ASSERT_TRUE(l && l->keyCount == 0);
    EXPECT_TRUE(contains(out.out.text(), "Passed end of file " + (dir / "big.lat")));
    latticeFree(l);
}

TEST(CameraFiles, CutAtEveryByteOrOfAnotherKind) {
    TempDir dir;
    Camera cam = sampleCamera();
    Light *light = sampleLight(0);
    Lattice *lat = sampleLattice();
    cameraFileWrite((dir / "w.cam").c_str(), cam, nullptr);
    lightFileWrite((dir / "w.lig").c_str(), *light, nullptr);
    latticeFileWrite((dir / "w.lat").c_str(), *lat, nullptr);
    const std::string cut = dir / "cut";
    const Camera fresh;
    const Light freshLight;
    for (std::string kind : {"cam", "lig", "lat"}) {
        Bytes whole = readBytes(dir / ("w." + kind));
        for (size_t n = 0; n < whole.size(); ++n) {
            writeBytes(cut, Bytes(whole.begin(), whole.begin() + long(n)));
            OutputCapture out;
            if (kind == "cam") {
                Camera c;
                bool read = cameraFileRead(cut.c_str(), &c) != nullptr;
                EXPECT_EQ(read, n >= BIN_HEADER_SIZE) << n;
                // Each value is the file's or the one the record had.
                std::vector<float> got = floatsOf(c), was = floatsOf(fresh), full = floatsOf(cam);
                for (size_t i = 0; i < got.size(); ++i) EXPECT_TRUE(got[i] == was[i] || got[i] == full[i]) << n;
                cameraFreeData(c);
            } else if (kind == "lig") {
                Light *l = lightFileRead(cut.c_str());
                EXPECT_EQ(l != nullptr, n >= BIN_HEADER_SIZE + 2 + 10 + 2 + 2) << n;  // name and type read
                std::vector<float> got = l ? floatsOf(*l) : floatsOf(freshLight), was = floatsOf(freshLight),
                                   full = floatsOf(*light);
                for (size_t i = 0; i < got.size(); ++i) EXPECT_TRUE(got[i] == was[i] || got[i] == full[i]) << n;
                lightFree(l);
            } else {
                Lattice *l = latticeFileLoad(cut.c_str());
                ASSERT_EQ(l != nullptr, n >= BIN_HEADER_SIZE) << n;
                for (int32_t k = 0; l && k < l->keyCount; ++k)
                    EXPECT_EQ(memcmp(l->keys[k].points, lat->keys[k].points, 8 * sizeof *lat->keys[k].points), 0);
                latticeFree(l);
            }
            pathRefsFree(pathRefsTake());
            std::string text = out.out.text();
            if (n < BIN_HEADER_SIZE) EXPECT_EQ(text, "") << n;  // no element file: the caller reports it
            else EXPECT_TRUE(contains(text, "Passed end of file " + cut)) << n << ": " << text;
        }
    }
    // A file of another element is refused, naming the file.
    OutputCapture out;
    EXPECT_EQ(cameraFileRead((dir / "w.lig").c_str(), &cam), nullptr);
    EXPECT_EQ(lightFileRead((dir / "w.lat").c_str()), nullptr);
    EXPECT_EQ(latticeFileLoad((dir / "w.cam").c_str()), nullptr);
    EXPECT_EQ(lightFileRead((dir / "missing.lig").c_str()), nullptr);
    std::string text = out.out.text();
    EXPECT_TRUE(contains(text, (dir / "w.lig") + " at offset 88: not a camera file"));
    EXPECT_TRUE(contains(text, (dir / "w.lat") + " at offset 88: not a light file"));
    EXPECT_TRUE(contains(text, (dir / "w.cam") + " at offset 88: not a lattice file"));
    EXPECT_FALSE(contains(text, "missing"));
    lightFree(light), latticeFree(lat);
}
