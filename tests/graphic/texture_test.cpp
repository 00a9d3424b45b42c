// Pictures made ready for the hardware: sizes within the limit, crop, tiles
// and their mirrors, the widening of a wrap, the border and packings, and the
// cache of one definition run.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "capture.h"
#include "graphic.h"
#include "material.h"
#include "testdata.h"

namespace {

// Colours of the four quarters of the pictures below.
constexpr uint8_t BOTTOM_LEFT[3] = {255, 0, 0}, BOTTOM_RIGHT[3] = {0, 255, 0};
constexpr uint8_t TOP_LEFT[3] = {0, 0, 255}, TOP_RIGHT[3] = {255, 255, 255};

class TextureLoad : public ::testing::Test {
protected:
    using Loaded = std::unique_ptr<TexturePicture, void (*)(TexturePicture *)>;
    // A w x h picture in four quarters (bottom row first in memory).
    std::string quarters(int w, int h, const char *name = "q.pic") {
        PictureInfo p = tdPictureNew(static_cast<uint16_t>(w), static_cast<uint16_t>(h), false);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const uint8_t *c = y < h / 2 ? (x < w / 2 ? BOTTOM_LEFT : BOTTOM_RIGHT)
                                             : (x < w / 2 ? TOP_LEFT : TOP_RIGHT);
                for (int k = 0; k < 3; ++k) p.planes[k][static_cast<size_t>(y) * w + x] = c[k];
            }
        std::string path = dir / name;
        EXPECT_EQ(picWriteImage(path.c_str(), &p, PIC_WRITE_RUNS), 1);
        picFree(&p);
        return path;
    }
    static bool colourAt(const Loaded &p, int x, int y, const uint8_t rgb[3]) {
        const uint8_t *px = p->pixels + (static_cast<size_t>(y) * p->width + x) * p->components;
        return px[0] == rgb[0] && px[1] == rgb[1] && px[2] == rgb[2];
    }
    Loaded load(const Texture2D &t, const std::string &path, int alphaFlag = 0, int flip = 0, int tile = 1,
                int noAlpha = 0) {
        return Loaded(textureLoad(&t, path.c_str(), alphaFlag, flip, tile, noAlpha, &gp), texturePictureFree);
    }
    bwtest::TempDir dir;
    BW_GraphicProps gp;
};

}  // namespace

TEST(TextureSize, PowersOfTwoWithinTheLimit) {
    EXPECT_EQ(textureSizeLimitParse(nullptr), 256);
    EXPECT_EQ(textureSizeLimitParse("OFF"), 0);
    EXPECT_EQ(textureSizeLimitParse("300"), 256);
    EXPECT_EQ(textureSizeLimitParse("1024"), 1024);
    EXPECT_EQ(textureSizeLimitParse("0"), 0);
    EXPECT_EQ(textureSizeLimitParse("-8"), 0);
    EXPECT_EQ(textureSizeLimitParse("big"), 256);
    // A 1000 x 300 picture: 256 x 256 by default, 512 x 256 without a limit.
    EXPECT_EQ(textureFitSize(1000, 256), 256);
    EXPECT_EQ(textureFitSize(300, 256), 256);
    EXPECT_EQ(textureFitSize(1000, 0), 512);
    EXPECT_EQ(textureFitSize(300, 0), 256);
    EXPECT_EQ(textureFitSize(3, 256), 2);  // never scaled up
    EXPECT_EQ(textureFitSize(1, 0), 1);
}

TEST_F(TextureLoad, SizedCroppedAndPackedAsAsked) {
    const std::string path = quarters(1000, 300);
    Texture2D t;
    Loaded p = load(t, path);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->width, 256);
    EXPECT_EQ(p->height, 256);
    EXPECT_EQ(p->components, 4);
    // Resampled, each quarter keeps its colour well inside it.
    EXPECT_TRUE(colourAt(p, 10, 10, BOTTOM_LEFT));
    EXPECT_TRUE(colourAt(p, 245, 10, BOTTOM_RIGHT));
    EXPECT_TRUE(colourAt(p, 10, 245, TOP_LEFT));
    EXPECT_TRUE(colourAt(p, 245, 245, TOP_RIGHT));
    EXPECT_EQ(p->pixels[3], 255);  // no alpha plane: opaque

    // The crop takes the top left quarter: x from the left, y from the top.
    t.cropOn = 1;
    const float topLeft[4] = {0, 500, 0, 150};
    memcpy(t.crop, topLeft, sizeof topLeft);
    p = load(t, path);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->width, 256);
    EXPECT_EQ(p->height, 128);
    EXPECT_TRUE(colourAt(p, 0, 0, TOP_LEFT));
    EXPECT_TRUE(colourAt(p, 255, 127, TOP_LEFT));
    // A crop of the whole picture, or of nothing, leaves it whole.
    const float whole[4] = {0, 1000, 0, 300}, nothing[4] = {10, 10, 0, 300};
    for (const float *bounds : {whole, nothing}) {
        memcpy(t.crop, bounds, sizeof whole);
        p = load(t, path);
        ASSERT_TRUE(p);
        EXPECT_TRUE(colourAt(p, 255, 0, BOTTOM_RIGHT));
    }
    t.cropOn = 0;

    // Packed to RGB, bytes of each pixel reversed, the border made clear.
    p = load(t, path, 1, 0, 1, 0);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->pixels[3], 0);                           // corner: border
    EXPECT_EQ(p->pixels[(257 * 1) * 4 + 3], 255);         // one in: opaque
    p = load(t, path, 0, 1, 1, 1);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->components, 3);
    EXPECT_EQ(p->flipped, 1);
    const uint8_t reversed[3] = {BOTTOM_LEFT[2], BOTTOM_LEFT[1], BOTTOM_LEFT[0]};
    EXPECT_TRUE(colourAt(p, 0, 0, reversed));

    // No picture, no texture.
    bwtest::OutputCapture quiet;
    EXPECT_FALSE(load(t, dir / "missing.pic"));
    EXPECT_FALSE(load(t, ""));
}

TEST_F(TextureLoad, TilesMirrorAndTheWrapWidens) {
    const std::string path = quarters(16, 16);
    Texture2D t;
    t.tiles[0] = 2;
    t.tiles[1] = 2;
    t.mirror[0] = 1;
    Loaded p = load(t, path);
    ASSERT_TRUE(p);
    ASSERT_EQ(p->width, 32);
    ASSERT_EQ(p->height, 32);
    // The second tile across is mirrored, the second up is not.
    EXPECT_TRUE(colourAt(p, 0, 0, BOTTOM_LEFT));
    EXPECT_TRUE(colourAt(p, 31, 0, BOTTOM_LEFT));
    EXPECT_TRUE(colourAt(p, 16, 0, BOTTOM_RIGHT));
    EXPECT_TRUE(colourAt(p, 31, 31, TOP_LEFT));
    EXPECT_TRUE(colourAt(p, 0, 16, BOTTOM_LEFT));
    // Both mirrors; and without the tiling switch the picture is one tile.
    t.mirror[1] = 1;
    p = load(t, path);
    ASSERT_TRUE(p);
    EXPECT_TRUE(colourAt(p, 31, 31, BOTTOM_LEFT));
    p = load(t, path, 0, 0, 0, 0);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->width, 16);

    // A sphere all the way round: the picture twice across, then resized.
    Texture2D globe;
    globe.method = 6;
    p = load(globe, path);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->width, 32);
    EXPECT_TRUE(colourAt(p, 16, 0, BOTTOM_LEFT));
    // Three quarters round: twice and a quarter more (36 pixels, to 32);
    // swapped, along the height.
    globe.uScale = 0.75f;
    globe.swap = 1;
    p = load(globe, path);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->width, 16);
    EXPECT_EQ(p->height, 32);
    // Half round or less: no widening.
    globe.uScale = 0.5f;
    p = load(globe, path);
    ASSERT_TRUE(p);
    EXPECT_EQ(p->height, 16);
}

TEST_F(TextureLoad, OneRunReadsAPictureOnce) {
    const std::string path = quarters(16, 16);
    Texture2D t;
    textureCacheBegin(&gp);
    Loaded first = load(t, path);
    ASSERT_TRUE(first);
    EXPECT_EQ(gp.pictureCacheCount, 1);
    // Gone from the disk: the same settings come from the cache, others do not.
    ASSERT_EQ(remove(path.c_str()), 0);
    Loaded second = load(t, path);
    ASSERT_TRUE(second);
    EXPECT_NE(second->pixels, first->pixels);
    EXPECT_EQ(memcmp(second->pixels, first->pixels, 16 * 16 * 4), 0);
    {
        bwtest::OutputCapture quiet;
        EXPECT_FALSE(load(t, path, 0, 0, 1, 1));
    }
    textureCacheEnd(&gp);
    EXPECT_EQ(gp.pictureCache, nullptr);
    EXPECT_EQ(gp.pictureCacheCount, 0);
}
