// Tests of the binary frame: headers, values, tokens, prototypes, and files cut
// or damaged at every place.
#include <gtest/gtest.h>

#include <cfloat>
#include <cstdlib>
#include <optional>

#include "bytes.h"
#include "capture.h"

using namespace bwtest;

namespace {

int32_t magicOf(const char *m) { return int32_t(uint32_t(m[0]) << 24 | m[1] << 16 | m[2] << 8 | m[3]); }

// A record of id 12: an old untagged string, three floats, a u16, a sized block.
struct Sample {
    std::string name;
    std::vector<float> pos = std::vector<float>(3);
    uint16_t flag = 0;
    Bytes blob;
};
const uint16_t sampleList[] = {0x0001, 0x0C02, 0x0203, 0xFF04, 0};

Sample readSample(BinReader &r, const Prototype *proto) {
    Sample s;
    TokenCursor cur;
    for (uint16_t t = binFirstToken(r, proto, 12, cur); t != 0; t = binNextToken(r, cur)) {
        if (t == 0x0001) {
            char *name = binReadStr(r);
            s.name = name ? name : "";
            free(name);
        } else if (t == 0x0C02) {
            binReadFloat3(r, s.pos.data());
        } else if (t == 0x0203) {
            s.flag = binReadU16(r);
        } else if (t == 0xFF04) {
            int32_t size = 0;
            uint8_t *data = binReadBlock(r, &size);
            s.blob.assign(data, data + size);
            free(data);
        } else {
            binSkip(r, t);
        }
    }
    return s;
}

void writeSample(BinWriter &w, const Prototype *proto) {
    TokenCursor cur;
    const float pos[3] = {1, 2, 3};
    const uint8_t blob[3] = {1, 2, 3};
    binWriteBegin(w, proto, 12, cur);
    binWriteToken(w, cur, 0x0001), binWriteStr(w, "ab");
    binWriteToken(w, cur, 0x0C02), binWriteFloats(w, pos, 3);
    binWriteToken(w, cur, 0x0203), binWriteU16(w, 7);
    binWriteToken(w, cur, 0xFF04), binWriteBlock(w, blob, 3);
    binWriteEnd(w, cur);
}

const Bytes sampleValues = text("ab") + Bytes{0, 0x3F, 0x80, 0, 0, 0x40, 0, 0, 0, 0x40, 0x40, 0, 0,
                                              0, 7, 0, 0, 0, 3, 1, 2, 3};
const Bytes sampleTagged = Bytes{0, 1, 'a', 'b', 0, 0x0C, 2, 0x3F, 0x80, 0, 0, 0x40, 0, 0, 0, 0x40,
                                 0x40, 0, 0, 2, 3, 0, 7, 0xFF, 4, 0, 0, 0, 3, 1, 2, 3, 0, 0};
const Bytes sampleProt = text("PROT") + Bytes{0, 12, 0, 5, 0, 1, 0x0C, 2, 2, 3, 0xFF, 4, 0, 0, 0, 0};

void expectSample(const Sample &s) {
    EXPECT_EQ(s.name, "ab");
    EXPECT_EQ(s.pos, (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(s.flag, 7);
    EXPECT_EQ(s.blob, (Bytes{1, 2, 3}));
}

std::string hookCalls;
int hookAnswer = 1;
int versionHook(const char *file, float version) {
    hookCalls += std::string(file) + " " + std::to_string(version) + ";";
    return hookAnswer;
}

}  // namespace

TEST(BinHeader, WritesAndReadsTheGoldenHeader) {
    ByteSink sink;
    EXPECT_EQ(binWriteHeader(sink.w, BIN_ID_MODEL, 4.0f, nullptr), 88);
    EXPECT_EQ(sink.bytes(), (Bytes{0x53, 0x80, 0xF6, 0x41, 0x40, 0x80, 0, 0} + text("No comment...") + Bytes(67, 0)));
    ByteFile file(sink.bytes());
    char comment[81];
    float version = 0;
    EXPECT_EQ(binReadHeader(file.r, &version, comment), BIN_ID_MODEL);
    EXPECT_EQ(version, 4.0f);
    EXPECT_STREQ(comment, "No comment...");
    EXPECT_STREQ(fileTypeName(0x5380F646), "BRACKWOOD Binary Struct Keys");
    EXPECT_STREQ(fileTypeName(0x5380F645), nullptr);
    // An 80-character comment fills the field without a terminator.
    ByteSink longer;
    binWriteHeader(longer.w, BIN_ID_CAMERA, 3.5f, std::string(85, 'c').c_str());
    EXPECT_EQ(longer.bytes(), (Bytes{0x53, 0x80, 0xF6, 0x36, 0x40, 0x60, 0, 0} + Bytes(80, 'c')));
}

TEST(BinHeader, RejectsOtherFilesAndCallsTheHookAboveTheCurrentVersion) {
    OutputCapture out;
    Bytes cut = header(BIN_ID_MODEL, 4.0f);
    cut.pop_back();
    for (const Bytes &bad : {header(0x5380F647, 4.0f), header(0x5380F633, 4.0f), cut}) {
        ByteFile file(bad);
        EXPECT_EQ(binReadHeader(file.r, nullptr, nullptr), -1);
        EXPECT_EQ(ftell(file.f), 0);
        EXPECT_FALSE(file.r.failed);  // a probe is no failure
    }
    EXPECT_EQ(out.out.text(), "");

    BinVersionHook old = binSetVersionHook(versionHook);
    ByteFile current(header(BIN_ID_MODEL, 4.0001f), "now.hrc");
    ByteFile newer(header(BIN_ID_MODEL, 4.5f), "new.hrc");
    EXPECT_EQ(binReadHeader(current.r, nullptr, nullptr), BIN_ID_MODEL);
    EXPECT_EQ(binReadHeader(newer.r, nullptr, nullptr), BIN_ID_MODEL);
    EXPECT_EQ(hookCalls, "new.hrc 4.500000;");
    EXPECT_EQ(g_binFileVersion, 4.5f);
    hookAnswer = 0;  // refused: the read fails and the stream is back at the start
    ByteFile refused(header(BIN_ID_MODEL, 4.5f), "new.hrc");
    EXPECT_EQ(binReadHeader(refused.r, nullptr, nullptr), -1);
    EXPECT_EQ(refused.r.pos, 0);
    hookAnswer = 1;
    binSetVersionHook(old);
}

TEST(AsciiHeader, DetectsEveryMagicOfTheFamily) {
    // Setup and resource kinds, then the shader kinds, which have no display name.
    std::vector<std::pair<std::string, bool>> all;
    for (const char *m = "SDSCSSETSCHNSFLKSWAVSRELSDRVCLUS"; *m; m += 4) all.emplace_back(std::string(m, 4), true);
    for (const char *m = "SHATSHADSHVLSHT2SHT3SHIGSHAMSHUTSHNVSDADSDAMSDATSDIGSDT2SDT3SDUTSDVL"; *m; m += 4)
        all.emplace_back(std::string(m, 4), false);
    int isAscii = 0;
    float version = 0;
    for (const auto &[magicText, named] : all) {
        const char *magic = magicText.c_str();
        ByteFile f(text(std::string(magic) + " 3.5\nCHAPTER"));
        EXPECT_EQ(fileReadMagic(f.r, &isAscii, &version), magicOf(magic)) << magic;
        EXPECT_EQ(isAscii, 1);
        EXPECT_EQ(version, 3.5f);
        EXPECT_EQ(fileTypeName(uint32_t(magicOf(magic))) != nullptr, named) << magic;
        ByteFile a(text(std::string(magic) + " 3.5\n"));
        EXPECT_EQ(asciiReadHeader(a.r, &version), named ? magicOf(magic) : -1) << magic;
        EXPECT_EQ(a.r.pos, named ? 9 : 0);
    }
    ByteFile old(text("SSCN\nCHAPTER"));
    EXPECT_EQ(fileReadMagic(old.r, &isAscii, &version), magicOf("SSCN"));
    EXPECT_EQ(version, 0.0f);
    EXPECT_EQ(old.r.pos, 4);
    EXPECT_STREQ(fileTypeName(uint32_t(magicOf("SSCN"))), "BRACKWOOD Ascii Scene (< 2.6)");
    ByteFile binary(header(BIN_ID_LIGHT, 4.0f));
    EXPECT_EQ(fileReadMagic(binary.r, &isAscii, &version), BIN_ID_LIGHT);
    EXPECT_EQ(isAscii, 0);
    for (const char *bad : {"SREL abc\n", "XXXX 3.5\n", "SRE"}) {
        ByteFile f(text(bad));
        EXPECT_EQ(fileReadMagic(f.r, &isAscii, &version), -1) << bad;
        EXPECT_EQ(ftell(f.f), 0);
    }
}

TEST(BinValues, SwapsEveryWidthFromBigEndian) {
    ByteFile f({0x81, 0xFF, 0xFE, 0xAB, 0xCD, 0xFF, 0xFF, 0xFF, 0xFD, 0x12, 0x34, 0x56, 0x78,
                0x3F, 0x80, 0, 0, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0,
                0x80, 0x01, 0x00, 0x02, 0, 0, 1, 0, 0xC0, 0, 0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0,
                0x7F, 0xC0, 0, 0, 0xFF, 0x80, 0, 0, 0, 0, 0, 1, 7, 8, 9});
    EXPECT_EQ(binReadU8(f.r), 0x81);
    EXPECT_EQ(binReadI16(f.r), -2);
    EXPECT_EQ(binReadU16(f.r), 0xABCD);
    EXPECT_EQ(binReadI32(f.r), -3);
    EXPECT_EQ(binReadU32(f.r), 0x12345678u);
    EXPECT_EQ(binReadF32(f.r), 1.0f);
    EXPECT_EQ(binReadF64(f.r), 1.5);
    int16_t i16[2];
    int32_t i32;
    float f32, unusable[3];  // NaN, -infinity, a subnormal
    double f64;
    uint8_t odd[3];  // items of three bytes are not turned round
    EXPECT_EQ(binReadI16s(f.r, i16, 2) + binReadI32s(f.r, &i32, 1) + binReadFloats(f.r, &f32, 1) +
                  binReadDoubles(f.r, &f64, 1) + binReadFloat3(f.r, unusable) + binRead(f.r, odd, 3, 1),
              9u);
    EXPECT_EQ(std::vector<double>({double(i16[0]), double(i16[1]), double(i32), f32, f64, unusable[0],
                                   unusable[1], unusable[2], double(odd[0]), double(odd[2])}),
              std::vector<double>({-32767, 2, 256, -2, 2, 0, -FLT_MAX, 0, 7, 9}));
    EXPECT_FALSE(f.r.failed);
}

TEST(BinValues, WriteLeavesTheBufferAsItWas) {
    std::vector<uint16_t> u16(700);  // more than one scratch piece
    for (size_t i = 0; i < u16.size(); ++i) u16[i] = uint16_t(0x0102 + i);
    const std::vector<uint16_t> before = u16;
    const uint32_t u32[2] = {0x01020304, 0xA0B0C0D0};
    const double f64[1] = {-2.0};
    ByteSink sink;
    EXPECT_EQ(binWrite(sink.w, u16.data(), 2, u16.size()), 700u);
    binWrite(sink.w, u32, 4, 2), binWriteDoubles(sink.w, f64, 1);
    binWriteI16(sink.w, -2), binWriteF32(sink.w, 1.0f), binWriteU8(sink.w, 9);
    Bytes bytes = sink.bytes();
    EXPECT_EQ(u16, before);
    EXPECT_EQ(u32[0], 0x01020304u);
    ASSERT_EQ(bytes.size(), 1400u + 23);
    EXPECT_EQ(bytes[1], 0x02); EXPECT_EQ(bytes[1398], 0x03);  // 0x03BD, the last item
    EXPECT_EQ(Bytes(bytes.begin() + 1400, bytes.end()),
              (Bytes{1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0, 0xC0, 0, 0, 0, 0, 0, 0, 0,
                     0xFF, 0xFE, 0x3F, 0x80, 0, 0, 9}));
}

TEST(BinRecord, TaggedAndPrototypedFormsRoundTrip) {
    ByteSink tagged;
    writeSample(tagged.w, nullptr);
    EXPECT_EQ(tagged.bytes(), sampleTagged);
    ByteFile t(sampleTagged);
    expectSample(readSample(t.r, nullptr));

    Prototype *proto = protoNew();
    protoSet(*proto, 12, sampleList, 4);  // the final 0 is added
    ByteSink sink;
    binWriteFileStart(sink.w, BIN_ID_GENERAL, 4.0f, nullptr, proto, "HRCH");
    writeSample(sink.w, proto);
    Bytes bytes = sink.bytes();
    EXPECT_EQ(bytes, header(BIN_ID_GENERAL, 4.0f) + sampleProt + text("HRCH") + sampleValues);
    protoFree(proto);

    ByteFile f(bytes);
    Prototype *read = protoNew();
    char tag[5];
    EXPECT_EQ(binReadFileStart(f.r, *read, tag), BIN_ID_GENERAL);
    EXPECT_STREQ(tag, "HRCH");
    expectSample(readSample(f.r, read));
    EXPECT_EQ(f.r.pos, f.r.size);
    protoFree(read);
}

TEST(BinRecord, SkipsUnknownTokens) {
    // 3 plain bytes, an empty sized block, and 2500 bytes (two pieces and a rest).
    ByteFile f(Bytes{0x03, 0x30, 1, 2, 3, 0xFF, 0x06, 0, 0, 0, 0, 0xFF, 0x24, 0, 0, 0x09, 0xC4} +
               Bytes(2500, 0x55) + Bytes{0x02, 0x03, 0, 9, 0, 0});
    EXPECT_EQ(readSample(f.r, nullptr).flag, 9);
    EXPECT_EQ(f.r.pos, f.r.size);
    EXPECT_FALSE(f.r.failed);
    ByteFile old({0, 0, 0, 1});  // an unknown old field cannot be skipped
    EXPECT_EQ(binSkip(old.r, 0x0042), 0);
    EXPECT_EQ(old.r.pos, 0);
}

TEST(Prototype, ReadsDropsAndWritesTables) {
    // Ids 40 and 1 are not in use; record 5's list lacks its 0; record 9's is empty.
    ByteFile f({0, 40, 0, 2, 0, 1, 0, 0, 0, 1, 0, 1, 0, 0, 0, 5, 0, 2, 0, 10, 0, 11, 0, 9, 0, 0, 0, 0});
    Prototype *proto = protoNew();
    EXPECT_EQ(protoRead(f.r, *proto), 1);
    EXPECT_EQ(protoList(proto, 1), nullptr);
    EXPECT_EQ(proto->lists[5], (std::vector<uint16_t>{10, 11, 0}));
    EXPECT_EQ(proto->lists[9], (std::vector<uint16_t>{0}));
    ByteSink sink;
    protoWrite(sink.w, *proto);
    EXPECT_EQ(sink.bytes(), text("PROT") + Bytes({0, 5, 0, 3, 0, 10, 0, 11, 0, 0, 0, 9, 0, 1, 0, 0, 0, 0}));
    protoFree(proto);

    // An empty table reads exactly like none.
    for (const Bytes &table : {text("PROT") + Bytes{0, 0}, Bytes{}}) {
        ByteFile file(header(BIN_ID_MODEL, 4.0f) + table + text("HRCH") + sampleTagged);
        Prototype p;
        char tag[5];
        EXPECT_EQ(binReadFileStart(file.r, p, tag), BIN_ID_MODEL);
        EXPECT_STREQ(tag, "HRCH");
        expectSample(readSample(file.r, &p));
    }
}

TEST(BinDamage, CutAtEveryByteNamesTheFile) {
    const Bytes whole = header(BIN_ID_GENERAL, 4.0f) + sampleProt + text("HRCH") + sampleValues;
    // Read at once, and from a helper thread in blocks that end inside values.
    for (size_t at = 0; at < 2 * whole.size(); ++at) {
        size_t cut = at % whole.size();
        std::optional<BackgroundRead> pieces;
        if (at >= whole.size()) pieces.emplace(3);
        OutputCapture out;
        ByteFile f(Bytes(whole.begin(), whole.begin() + cut), "cut.hrc");
        Prototype proto;
        char tag[5];
        if (binReadFileStart(f.r, proto, tag) >= 0) readSample(f.r, &proto);
        EXPECT_LE(f.r.pos, int64_t(cut));
        // A header too short to be one is no failure: the caller reports it.
        EXPECT_EQ(f.r.error, cut < 88 ? "" : "Passed end of file cut.hrc while reading data") << cut;
        EXPECT_EQ(out.out.text(), cut < 88 ? "" : "BW_ERROR: Passed end of file cut.hrc while reading data\n");
    }
}

TEST(BinDamage, LyingSizesFailWithoutAllocating) {
    OutputCapture out;
    int32_t size = 1;
    ByteFile negative({0xFF, 0xFF, 0xFF, 0xFB}, "bad.hrc");
    EXPECT_EQ(binReadBlock(negative.r, &size), nullptr);
    ByteFile huge({0x7F, 0xFF, 0xFF, 0xFF, 1, 2}, "huge.hrc");  // 2 GB claimed, 2 bytes there
    EXPECT_EQ(binReadBlock(huge.r, &size), nullptr);
    ByteFile table({0, 5, 0xFF, 0xFF, 0, 1}, "table.hrc");      // 65535 tokens claimed
    Prototype proto;
    EXPECT_EQ(protoRead(table.r, proto), 0);
    EXPECT_EQ(protoList(&proto, 5), nullptr);
    ByteFile skip({0xFF, 0xFF, 0xFF, 0xFE}, "skip.hrc");
    EXPECT_EQ(binSkip(skip.r, 0xFF10), 0);
    ByteFile counted({0, 0}, "count.hrc");
    EXPECT_EQ(binCheckCount(counted.r, 3, 1), 0);
    ByteFile cutArray({0x3F, 0x80, 0, 0, 0x40}, "array.hrc");  // kept as far as read
    float pos[3] = {9, 9, 9};
    EXPECT_EQ(binReadFloat3(cutArray.r, pos), 1u);
    EXPECT_EQ(std::vector<float>(pos, pos + 3), (std::vector<float>{1, 0, 0}));
    EXPECT_EQ(out.out.text(),
              "BW_ERROR: Damaged file bad.hrc at offset 4: negative block size -5\n"
              "BW_ERROR: Passed end of file huge.hrc while reading data\n"
              "BW_ERROR: Passed end of file table.hrc while reading data\n"
              "BW_ERROR: Damaged file skip.hrc at offset 4: negative size -2 of token 65296\n"
              "BW_ERROR: Passed end of file count.hrc while reading data\n"
              "BW_ERROR: Passed end of file array.hrc while reading data\n");
    // After a failure every read gives zeros, so a token loop ends.
    EXPECT_EQ(binReadU16(huge.r), 0);
    EXPECT_EQ(binReadStr(huge.r), nullptr);
}

TEST(BinDamage, WriterKeepsRecordsInStepWithTheirList) {
    Prototype proto;
    protoSet(proto, 12, sampleList, 5);
    OutputCapture out;
    ByteSink sink;
    TokenCursor cur;
    binWriteBegin(sink.w, &proto, 12, cur);
    binWriteToken(sink.w, cur, 0x0001);
    EXPECT_EQ(binWriteToken(sink.w, cur, 0x0203), 0);  // 0x0C02 skipped
    EXPECT_EQ(binWriterClose(sink.w), 0);
    EXPECT_EQ(out.out.text(), "BW_ERROR: Cannot write file out.bin at offset 0: token 515 is out of "
                              "step with the list of record 12\n");
}

TEST(BinReader, HelperThreadServesStringsArraysAndWholeReadsAndStopsWhenClosed) {
    // A name longer than many blocks, values, an array that ends the file.
    const std::string name(1000, 'n');
    Bytes bytes = text0(name) + Buf().u16(7).i32(0x01020304).b;
    for (int i = 0; i < 300; ++i) bytes = bytes + Buf().f32(static_cast<float>(i)).b;
    BackgroundRead pieces(16);
    {
        ByteFile f(bytes, "long.bin");
        char *got = binReadStr(f.r);
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(std::string(got), name);
        free(got);
        EXPECT_EQ(binReadU16(f.r), 7);
        EXPECT_EQ(binReadU32(f.r), 0x01020304u);
        std::vector<float> values(301, -1.0f);
        OutputCapture out;
        EXPECT_EQ(binReadFloats(f.r, values.data(), values.size()), 300u);  // one short
        EXPECT_TRUE(values[299] == 299.0f && values[300] == 0.0f);
        EXPECT_EQ(f.r.error, "Passed end of file long.bin while reading data");
    }
    {
        // One read of the whole file waits for all of it; closing with most
        // of a larger file unread leaves the helper to stop on its own.
        ByteFile f(bytes, "long.bin");
        Bytes all(bytes.size());
        EXPECT_EQ(binRead(f.r, all.data(), 1, all.size()), all.size());
        EXPECT_EQ(all, bytes);
        Bytes big(1 << 20, 0xAB);
        ByteFile g(big, "big.bin");
        EXPECT_EQ(binReadU8(g.r), 0xAB);
        BinReader copy = g.r;  // shares the bytes
        binReaderClose(g.r);
        EXPECT_EQ(binReadU8(copy), 0xAB);
    }
}
