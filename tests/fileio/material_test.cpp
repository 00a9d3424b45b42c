// Tests of the material and texture records: golden bytes, round trips in
// files and inline in a record stream, and damaged files.
#include <gtest/gtest.h>

#include <filesystem>

#include "bytes.h"
#include "capture.h"
#include "material.h"

using namespace bwtest;

namespace {

Bytes readFile(const std::string &path) {
    Bytes b(std::filesystem::file_size(path));
    FILE *f = fopen(path.c_str(), "rb");
    EXPECT_EQ(fread(b.data(), 1, b.size(), f), b.size());
    fclose(f);
    return b;
}

void writeFile(const std::string &path, const Bytes &b) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!b.empty()) fwrite(b.data(), 1, b.size(), f);
    fclose(f);
}

// A material that sets something in every kind of field.
Material sampleMaterial() {
    Material m;
    m.name = "red";
    m.shadingModel = 1;
    m.newForm[0] = m.newForm[1] = 2;
    m.diffuse[0] = 0.25f;
    m.transparencyColour[2] = 0.9f;
    m.kept15 = 0xDEADBEEF;
    m.kept541 = 5;
    Texture2D t;
    t.pictureName = "wood.pic";
    t.method = 4, t.tiles[1] = 3, t.boxCentre[2] = -1.5f, t.kept563[5] = 9;
    t.shader = {"tint", {1, 2}};
    t.customBlocks = {{"CUSB", 1, {7, 7, 7}}};
    m.textures = {t, Texture2D{}};
    m.hasTexture3D = 1;
    m.texture3D.name = "marble";
    m.texture3D.params[35] = 2.0f;
    m.texture3D.colours[4][1] = 0.5f;
    m.texture3D.extra = {1, 2, 3, 4};
    m.shaders[2] = {"glow", {}};
    m.sizedShader = {"bump", {9}};
    m.customBlocks = {{"CUSA", 0, {1}}, {"CUSD", 2, {}}};
    return m;
}

// The bytes of a record as its writer puts them, with or without a table.
template <typename T, typename Write>
Bytes recordBytes(const T &record, const Prototype *proto, Write write) {
    ByteSink sink;
    write(sink.w, proto, record);
    EXPECT_EQ(binWriterClose(sink.w), 1) << sink.w.error;
    return sink.bytes();
}

}  // namespace

TEST(MaterialRecord, ReadsGoldenTaggedBytes) {
    // Tagged record: name, shading 2, diffuse, transparency colour, the new
    // shading form 7, an unknown sized field, then a list of a reference and
    // an inline reflection-mapped texture, and the end.
    Bytes bytes = be16(1) + text0("red") + be16(2) + be16(2) + be16(4) + f32(1) + f32(0) + f32(0) +
                  be16(9) + f32(0.3f) + f32(0.6f) + f32(0.9f) + be16(536) + be16(7) +
                  be16(0x0399) + Bytes{1, 2, 3} + be16(16) + be16(2) + be16(1) + text0("wood") +
                  be16(0) + be16(1) + text0("env.pic") + be16(3) + be16(7) + be16(32) + f32(2) +
                  f32(2) + f32(2) + be16(0) + be16(0) + be16(0x4242);
    ByteFile file(bytes, "in.mtr", 4.0f);
    Material m;
    ASSERT_EQ(materialRead(file.r, nullptr, m), 1);
    EXPECT_EQ(m.name, "red");
    EXPECT_TRUE(m.shadingModel == 1 && m.newForm[0] + m.newForm[1] == 4 && m.diffuse[0] == 1.0f);
    EXPECT_NEAR(m.transparency, 0.6f, 1e-6);
    ASSERT_EQ(m.textures.size(), 1u);  // the reference is dropped
    EXPECT_EQ(m.textures[0].pictureName, "env.pic");
    EXPECT_EQ(m.textures[0].boxSize[0], 0.0f);  // reflection maps lose their projection
    EXPECT_EQ(binReadU16(file.r), 0x4242);      // and the reader stands behind the record

    // The writer's tagged form starts with the same fields.
    Material red;
    red.name = "red";
    Bytes written = recordBytes(red, nullptr, materialWrite);
    EXPECT_EQ(Bytes(written.begin(), written.begin() + 20),
              be16(1) + text0("red") + be16(2) + be16(4) + be16(3) + f32(0.5f) + f32(0.5f));
    EXPECT_EQ(Bytes(written.end() - 2, written.end()), be16(0));
}

TEST(MaterialRecord, VertexColourModeIsOneUnlessToken540SaysOtherwise) {
    EXPECT_EQ(Material().vertexColourMode, 1);  // the default material's
    Bytes bytes = be16(1) + text0("painted") + be16(540) + be16(3) + be16(0);
    ByteFile file(bytes, "in.mtr", 4.0f);
    Material m;
    ASSERT_EQ(materialRead(file.r, nullptr, m), 1);
    EXPECT_EQ(m.vertexColourMode, 3);
}

TEST(MaterialRecord, RoundTripsInlineWithAndWithoutPrototypes) {
    Prototype proto;
    materialProtoAdd(proto);
    const Material m = sampleMaterial();
    const Prototype *none = nullptr, *table = &proto;
    for (const Prototype *p : {none, table}) {
        Bytes bytes = recordBytes(m, p, materialWrite) + be16(0x4242);
        ByteFile file(bytes, "in.mtr", 4.0f);
        Material back;
        ASSERT_EQ(materialRead(file.r, p, back), 1) << file.r.error;
        EXPECT_EQ(binReadU16(file.r), 0x4242);  // in step behind the record
        ASSERT_EQ(back.textures.size(), 2u);
        EXPECT_EQ(back.kept15, 0xDEADBEEF);
        EXPECT_EQ(back.textures[0].customBlocks[0].data, (Bytes{7, 7, 7}));
        EXPECT_EQ(recordBytes(back, p, materialWrite) + be16(0x4242), bytes);
    }
}

TEST(MaterialFiles, RoundTripEachKindAndRejectOthers) {
    TempDir dir;
    const Material m = sampleMaterial();
    ASSERT_EQ(materialFileWrite((dir / "red").c_str(), m, "a red one"), 1);
    ASSERT_EQ(texture2DFileWrite((dir / "wood").c_str(), m.textures[0], nullptr), 1);
    ASSERT_EQ(texture3DFileWrite((dir / "marble").c_str(), m.texture3D, nullptr), 1);
    Bytes file = readFile(dir / "red.mtr");
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 8), be32(BIN_ID_MATERIAL) + f32(4.0f));
    EXPECT_EQ(Bytes(file.begin() + 88, file.begin() + 96), (Bytes{'P', 'R', 'O', 'T', 0, 13, 0, 28}));

    Material mb;
    Texture2D tb;
    Texture3D t3;
    std::string error;
    ASSERT_EQ(materialFileRead((dir / "red").c_str(), mb, &error), 1) << error;
    ASSERT_EQ(texture2DFileRead((dir / "wood").c_str(), tb, &error), 1) << error;
    ASSERT_EQ(texture3DFileRead((dir / "marble").c_str(), t3, &error), 1) << error;
    Prototype proto;
    materialProtoAdd(proto);
    EXPECT_EQ(recordBytes(mb, &proto, materialWrite), recordBytes(m, &proto, materialWrite));
    EXPECT_TRUE(tb.tiles[1] == 3 && tb.kept563[5] == 9 && t3.colours[4][1] == 0.5f);
    EXPECT_EQ(t3.extra, (Bytes{1, 2, 3, 4}));

    OutputCapture quiet;
    EXPECT_EQ(materialFileRead((dir / "none").c_str(), mb, &error), 0);
    EXPECT_EQ(error, "File " + (dir / "none.mtr") + " was not found");
    std::filesystem::copy_file(dir / "wood.txt", dir / "wood.mtr");
    EXPECT_EQ(materialFileRead((dir / "wood").c_str(), mb, &error), 0);
    EXPECT_EQ(error, (dir / "wood.mtr") + " is not a material file");
    writeFile(dir / "odd.mtr", header(BIN_ID_MATERIAL, 4.0f) + Bytes{'H', 'R', 'C', 'H'});
    EXPECT_EQ(materialFileRead((dir / "odd").c_str(), mb, &error), 0);
    EXPECT_EQ(error, (dir / "odd.mtr") + " has the chunk tag \"HRCH\" instead of \"MTRL\"");
}

TEST(MaterialFiles, CutOrLyingFilesFailWithoutCrashing) {
    TempDir dir;
    ASSERT_EQ(materialFileWrite((dir / "red").c_str(), sampleMaterial(), nullptr), 1);
    const Bytes whole = readFile(dir / "red.mtr");
    OutputCapture quiet;
    for (size_t n = 0; n < whole.size(); ++n) {
        writeFile(dir / "cut.mtr", Bytes(whole.begin(), whole.begin() + long(n)));
        Material m;
        std::string error;
        ASSERT_EQ(materialFileRead((dir / "cut").c_str(), m, &error), 0) << n;
        EXPECT_NE(error.find(dir / "cut.mtr"), std::string::npos) << n << ": " << error;
    }
    // Counts and sizes far beyond the file fail before anything is allocated.
    const Bytes lies[] = {be16(16) + be16(60000) + be16(0),
                          be16(0xFF19) + be32(0x7FFFFFF0),
                          be16(0xFF19) + be32(0xFFFFFFFF),
                          be16(0xFF19) + be32(10) + text0("CUSA") + Bytes{0} + be32(1000000),
                          be16(0xFF1A) + be32(3) + text0("long name") + be32(0)};
    const char *why[] = {"Passed end", "Passed end", "negative size -1", "Passed end", "runs past"};
    for (size_t i = 0; i < std::size(lies); ++i) {
        ByteFile file(lies[i] + be16(0), "in.mtr", 4.0f);
        Material m;
        EXPECT_EQ(materialRead(file.r, nullptr, m), 0) << i;
        EXPECT_NE(file.r.error.find(why[i]), std::string::npos) << i << ": " << file.r.error;
    }
}

TEST(MaterialFiles, OldCustomElementTagsAreTurnedRound) {
    Bytes block = text0("DCBA") + Bytes{1} + be32(4) + Bytes{1, 2, 3, 4};
    ByteFile old(block + text0("CUSC") + Bytes{0} + be32(0), "in.mtr", 4.0f);
    old.r.version = 3.4f;
    CustomBlock a, b;
    ASSERT_EQ(customBlockRead(old.r, a) + customBlockRead(old.r, b), 2);
    EXPECT_EQ(a.tag, "_ABCD");
    EXPECT_EQ(b.tag, "CUSC");
    EXPECT_EQ(a.data, (Bytes{4, 3, 2, 1}));  // one big-endian word before 3.50009
    // Written back, the old element keeps its name without the "_".
    Bytes again = recordBytes(a, nullptr, [](BinWriter &w, const Prototype *, const CustomBlock &c) {
        return customBlockWrite(w, c);
    });
    EXPECT_EQ(again, text0("ABCD") + Bytes{1} + be32(4) + Bytes({4, 3, 2, 1}));
    ByteFile recent(block, "in.mtr", 4.0f);
    ASSERT_EQ(customBlockRead(recent.r, a), 1);
    EXPECT_EQ(a.tag, "DCBA");
    EXPECT_EQ(a.data, (Bytes{1, 2, 3, 4}));
}
