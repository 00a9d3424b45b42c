// bwpic: a picture through PNG and back keeps every plane.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "fileio.h"
#include "run_viewer.h"

TEST(Bwpic, PictureToPngAndBackKeepsThePlanes) {
    bwtest::TempDir dir;
    for (bool alpha : {false, true}) {
        const int w = 37, h = 11;
        std::vector<std::vector<uint8_t>> planes(alpha ? 4 : 3, std::vector<uint8_t>(w * h));
        PictureInfo in{};
        in.width = w;
        in.height = h;
        for (size_t k = 0; k < planes.size(); ++k) {
            for (int i = 0; i < w * h; ++i) planes[k][i] = static_cast<uint8_t>(i * (k + 1) + (i / w) * 3);
            in.planes[k] = planes[k].data();
        }
        std::string pic = dir / "in.pic", png = dir / "mid.png", back = dir / "back.pic";
        ASSERT_EQ(picWriteImage(pic.c_str(), &in, PIC_WRITE_RUNS), 1);
        ASSERT_EQ(bwtest::runProgram(BW_BWPIC_BIN, {pic, png}, dir.path()).status, 0);
        bwtest::RunResult r = bwtest::runProgram(BW_BWPIC_BIN, {"--planes", png, back}, dir.path());
        ASSERT_EQ(r.status, 0) << r.err;
        PictureInfo out{};
        ASSERT_EQ(picRead(back.c_str(), &out), 1);
        ASSERT_TRUE(out.width == w && out.height == h);
        EXPECT_EQ(out.planes[3] != nullptr, alpha);
        for (size_t k = 0; k < planes.size(); ++k)
            EXPECT_EQ(memcmp(out.planes[k], planes[k].data(), planes[k].size()), 0) << k;
        picFree(&out);
    }
    bwtest::RunResult r = bwtest::runProgram(BW_BWPIC_BIN, {"a.txt", "b.png"}, dir.path());
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "bwpic: converts .pic to .png or .png to .pic, not a.txt to b.png\n");
}
