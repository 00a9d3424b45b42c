// Pictures: writer and reader round trips for both packings, a small file
// computed by hand, and the damaged files the reader must refuse or cut.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "bytes.h"
#include "capture.h"
#include "fileio.h"

using bwtest::OutputCapture;
using bwtest::TempDir;

namespace {

// A width x height picture whose planes hold a pattern with runs and changes.
struct Owned {
    PictureInfo info{};
    std::vector<std::vector<uint8_t>> planes;
    Owned(int w, int h, bool alpha) : planes(alpha ? 4 : 3) {
        info.width = static_cast<uint16_t>(w);
        info.height = static_cast<uint16_t>(h);
        info.ratio = 1.5f;
        for (size_t k = 0; k < planes.size(); ++k) {
            planes[k].resize(static_cast<size_t>(w) * h);
            for (int i = 0; i < w * h; ++i)
                planes[k][i] = static_cast<uint8_t>((i / 7) * (k + 3) + (i % 3 == 0 ? k : 0));
            info.planes[k] = planes[k].data();
        }
    }
};

// Header, "PICT" and the fixed fields of a w x h picture.
std::vector<uint8_t> header(uint16_t w, uint16_t h, float ratio) {
    using namespace bwtest;
    return bwtest::header(BIN_ID_GENERAL, 4.0f) + text("PICT") + be16(w) + be16(h) + f32(ratio) +
           be16(0) + be16(0);
}

std::vector<uint8_t> readFile(const std::string &path) {
    std::vector<uint8_t> out;
    FILE *f = fopen(path.c_str(), "rb");
    for (int c; f && (c = fgetc(f)) != EOF;) out.push_back(static_cast<uint8_t>(c));
    if (f) fclose(f);
    return out;
}

class Pictures : public ::testing::Test {
protected:
    std::string write(const std::string &name, const std::vector<uint8_t> &bytes) {
        return dir.write(name, std::string(bytes.begin(), bytes.end()));
    }
    TempDir dir;
};

}  // namespace

TEST_F(Pictures, BothPackingsReadBackAsWritten) {
    for (int mode : {PIC_WRITE_RUNS, PIC_WRITE_PLANES})
        for (bool alpha : {false, true}) {
            Owned in(300, 17, alpha);
            std::string path = dir / ("p" + std::to_string(mode) + (alpha ? "a" : ""));
            ASSERT_EQ(picWriteImage(path.c_str(), &in.info, mode), 1);
            PictureInfo out{};
            ASSERT_EQ(picRead((path + ".pic").c_str(), &out), 1);
            EXPECT_EQ(out.width, 300);
            EXPECT_EQ(out.height, 17);
            EXPECT_EQ(out.ratio, 1.5f);
            EXPECT_EQ(out.planes[3] != nullptr, alpha);
            for (size_t k = 0; k < in.planes.size(); ++k)
                EXPECT_EQ(memcmp(out.planes[k], in.planes[k].data(), in.planes[k].size()), 0)
                    << "mode " << mode << " plane " << k;
            picFree(&out);
        }
}

TEST_F(Pictures, ASmallFileByteForByte) {
    // Three pixels on one line: a short run of two, then one literal pixel.
    Owned in(3, 1, false);
    const uint8_t rgb[3][3] = {{1, 1, 9}, {2, 2, 9}, {3, 3, 9}};
    for (int k = 0; k < 3; ++k) memcpy(in.planes[k].data(), rgb[k], 3);
    in.info.ratio = 0.0f;
    std::string path = dir / "small.pic";
    ASSERT_EQ(picWriteImage(path.c_str(), &in.info, PIC_WRITE_RUNS), 1);
    std::vector<uint8_t> expected = header(3, 1, 0.0f);
    const uint8_t rest[] = {0, 8, 2, 0xE0, 129, 1, 2, 3, 0, 9, 9, 9};
    expected.insert(expected.end(), rest, rest + sizeof rest);
    EXPECT_EQ(readFile(path), expected);
    // Ratio 0 reads as width over height, in integers.
    PictureInfo out{};
    ASSERT_EQ(picRead(path.c_str(), &out), 1);
    EXPECT_EQ(out.ratio, 3.0f);
    picFree(&out);
}

TEST_F(Pictures, RunsAcrossTheLineAndPacketLayouts) {
    // A long run of exactly the line's width is a whole line.
    std::vector<uint8_t> b = header(1000, 1, 1.0f);
    const uint8_t packet[] = {0, 8, 2, 0xF0, 128, 0x03, 0xE8, 10, 20, 30, 40};
    b.insert(b.end(), packet, packet + sizeof packet);
    PictureInfo out{};
    ASSERT_EQ(picRead(write("long.pic", b).c_str(), &out), 1);
    EXPECT_EQ(out.planes[3][999], 40);
    picFree(&out);

    // One pixel more fails the picture, with a line naming the file.
    b[b.size() - 5] = 0xE9;
    {
        OutputCapture cap;
        std::string past = write("past.pic", b);
        EXPECT_EQ(picRead(past.c_str(), &out), 0);
        EXPECT_EQ(cap.err.text(), "Picture " + past + ": a run goes past the end of line 1\n");
        EXPECT_EQ(out.planes[0], nullptr);
    }

    // Alpha in a packet of its own reads as all four in one.
    std::vector<uint8_t> split = header(2, 1, 1.0f);
    const uint8_t twoPackets[] = {1, 8, 0, 0xE0, 0, 8, 0, 0x10, 1, 2, 3, 4, 5, 6, 7, 8};
    split.insert(split.end(), twoPackets, twoPackets + sizeof twoPackets);
    std::vector<uint8_t> one = header(2, 1, 1.0f);
    const uint8_t onePacket[] = {0, 8, 0, 0xF0, 1, 2, 3, 7, 4, 5, 6, 8};
    one.insert(one.end(), onePacket, onePacket + sizeof onePacket);
    PictureInfo a{}, c{};
    ASSERT_EQ(picRead(write("split.pic", split).c_str(), &a), 1);
    ASSERT_EQ(picRead(write("one.pic", one).c_str(), &c), 1);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(memcmp(a.planes[k], c.planes[k], 2), 0) << k;
    picFree(&a);
    picFree(&c);
}

TEST_F(Pictures, AnEndOfFileKeepsTheLinesARunPastALineFailsThePicture) {
    // Three lines of two pixels, one plane: a whole first line, then a second
    // cut by the end of the file after one pixel.
    using namespace bwtest;
    std::vector<uint8_t> cut = header(2, 3, 1.0f) + Bytes{0, 8, 2, 0x80} + Bytes{1, 7, 8} + Bytes{1, 9};
    PictureInfo out{};
    ASSERT_EQ(picRead(write("cut.pic", cut).c_str(), &out), 1);
    // The bottom row is row 0: the top line is row 2.
    EXPECT_TRUE(out.planes[0][4] == 7 && out.planes[0][5] == 8);
    EXPECT_TRUE(out.planes[0][2] == 9 && out.planes[0][3] == 0);  // what the cut line had
    EXPECT_TRUE(out.planes[0][0] == 0 && out.planes[0][1] == 0);
    picFree(&out);

    // The same second line coded as a run of three: the picture fails, and
    // the line reader alone keeps what came before the run.
    std::vector<uint8_t> past = header(2, 3, 1.0f) + Bytes{0, 8, 2, 0x80} + Bytes{1, 7, 8} + Bytes{130, 9} +
                                Bytes{129, 5};
    OutputCapture cap;
    std::string path = write("past.pic", past);
    EXPECT_EQ(picRead(path.c_str(), &out), 0);
    EXPECT_EQ(cap.err.text(), "Picture " + path + ": a run goes past the end of line 2\n");
    FILE *stream = nullptr;
    PicturePacket *packets = nullptr;
    PictureInfo lines{};
    ASSERT_EQ(picOpenRead(path.c_str(), &stream, &lines, nullptr, nullptr, &packets), 1);
    std::vector<uint8_t> plane(6, 0);
    lines.planes[0] = plane.data();
    EXPECT_EQ(picReadScanline(stream, packets, &lines, 2), 1);
    EXPECT_EQ(picReadScanline(stream, packets, &lines, 1), 0);
    EXPECT_EQ(picReadScanline(stream, packets, &lines, 0), 0);  // the stream was sent to its end
    EXPECT_EQ(plane, (std::vector<uint8_t>{0, 0, 0, 0, 7, 8}));
    picPacketsFree(packets);
    fclose(stream);
}

TEST_F(Pictures, DamagedFilesAreRefusedWithTheirMessage) {
    PictureInfo out{};
    std::vector<uint8_t> zero = header(0, 5, 1.0f);
    std::string path = write("zero.pic", zero);
    {
        OutputCapture cap;
        EXPECT_EQ(picRead(path.c_str(), &out), 0);
        EXPECT_EQ(cap.err.text(), "Picture " + path + " has invalid size 0 x 5\n");
    }
    std::vector<uint8_t> notPict = header(1, 1, 1.0f);
    memcpy(notPict.data() + 88, "PICS", 4);
    path = write("pics.pic", notPict);
    {
        OutputCapture cap;
        EXPECT_EQ(picRead(path.c_str(), &out), 0);
        EXPECT_EQ(cap.err.text(), "File " + path + " is not a BRACKWOOD Picture file.\n");
    }
    std::vector<uint8_t> notOurs = header(1, 1, 1.0f);
    notOurs[3] = 0x40;
    path = write("other.pic", notOurs);
    {
        OutputCapture cap;
        EXPECT_EQ(picRead(path.c_str(), &out), 0);
        EXPECT_EQ(cap.err.text(), "The file " + path + " is not a BRACKWOOD file.\n");
    }
    // A huge picture from a few bytes is refused before any allocation.
    std::vector<uint8_t> huge = header(65535, 65535, 1.0f);
    const uint8_t packet[] = {0, 8, 2, 0xF0};
    huge.insert(huge.end(), packet, packet + sizeof packet);
    path = write("huge.pic", huge);
    {
        OutputCapture cap;
        EXPECT_EQ(picRead(path.c_str(), &out), 0);
        EXPECT_EQ(cap.err.text(), "image too big, memory insufficient\n");
    }
    // Cut anywhere, a valid file never crashes; cut in the lines it keeps the rows read.
    Owned in(40, 6, true);
    std::string whole = dir / "whole";
    ASSERT_EQ(picWriteImage(whole.c_str(), &in.info, PIC_WRITE_RUNS), 1);
    std::vector<uint8_t> bytes = readFile(whole + ".pic");
    OutputCapture quiet;
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        path = write("cut.pic", std::vector<uint8_t>(bytes.begin(), bytes.begin() + cut));
        PictureInfo part{};
        if (picRead(path.c_str(), &part)) {
            EXPECT_GE(cut, 88u + 16u + 8u);
            picFree(&part);
        }
    }
}
