// bwicons and the resource directory it fills: the shipped icon files are the
// generator's output, the layer's start reads them, and their shapes face the
// way the icon draw turns them.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "capture.h"
#include "fileio/bytes.h"
#include "fileio.h"
#include "model.h"
#include "run_viewer.h"
#include "tol.h"
#include "view.h"

namespace {

const char *const SHIPPED[] = {"LIGHT_ICON.hrc", "BULB_ICON.hrc", "CAMERA_ICON.hrc", "noIcon"};

// Bounds of every spline point of the tree, in the icon's frame; false when a
// node is anything but a spline.
bool splineBounds(const Model *root, float low[3], float high[3]) {
    std::fill(low, low + 3, 1e9f);
    std::fill(high, high + 3, -1e9f);
    std::vector<const Model *> stack{root};
    while (!stack.empty()) {
        const Model *m = stack.back();
        stack.pop_back();
        if (m->firstChild) stack.push_back(m->firstChild);
        if (m != root && m->nextSibling) stack.push_back(m->nextSibling);
        if (m->type != MODEL_SPLINE || !m->geometry.spline) return false;
        const Spline &s = *m->geometry.spline;
        for (int i = 0; i < s.vertexCount; ++i)
            for (int k = 0; k < 3; ++k) {
                float v = m->globalMatrix[3][k];
                for (int j = 0; j < 3; ++j) v += s.vertices[i].pos[j] * m->globalMatrix[j][k];
                low[k] = std::min(low[k], v);
                high[k] = std::max(high[k], v);
            }
    }
    return true;
}

}  // namespace

TEST(Bwicons, ShippedResourcesAreWhatTheGeneratorWrites) {
    bwtest::TempDir dir;
    bwtest::RunResult r = bwtest::runProgram(BW_BWICONS_BIN, {dir / "out"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out + r.err, "");
    for (const char *file : SHIPPED) {
        const bwtest::Bytes made = bwtest::readBytes(dir / "out/" + file);
        EXPECT_FALSE(made.empty()) << file;
        EXPECT_TRUE(made == bwtest::readBytes(std::string(BW_RSRC_DIR) + "/" + file))
            << file << " differs from bwicons' output: run build/bin/bwicons rsrc";
    }
    // No stray picture under the writer's own suffix.
    EXPECT_NE(access((dir / "out/noIcon.pic").c_str(), F_OK), 0);

    bwtest::RunResult usage = bwtest::runProgram(BW_BWICONS_BIN, {}, dir.path());
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(usage.err, std::string("Usage: ") + BW_BWICONS_BIN + " OUTDIR\n");
}

TEST(Bwicons, StartReadsTheShippedIconsFacingMinusZ) {
    bwtest::TempDir dir;
    bwtest::ScopedEnv noDbdir{"BW_DBDIR", nullptr};
    char saved[4096];
    ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    bwtest::OutputCapture cap;
    const TOL_Status status = TOL_Init(BW_RSRC_DIR, 0, TOL_SDK_VERSION);
    const std::string said = cap.out.text() + cap.err.text();
    ASSERT_EQ(chdir(saved), 0);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(said, "");

    float low[ICON_MODEL_COUNT][3], high[ICON_MODEL_COUNT][3];
    for (int i = 0; i < ICON_MODEL_COUNT; ++i) {
        const Model *icon = iconModel(i);
        ASSERT_NE(icon, nullptr) << i;
        // Nothing but lines: a filled node would draw as a solid in the icon pass.
        ASSERT_TRUE(splineBounds(icon, low[i], high[i])) << icon->name;
        // About unit size, around the light or the eye.
        for (int k = 0; k < 3; ++k) {
            EXPECT_GE(low[i][k], -0.6f) << icon->name << " axis " << k;
            EXPECT_LE(high[i][k], 0.6f) << icon->name << " axis " << k;
            EXPECT_GE(high[i][k] - low[i][k], 0.2f) << icon->name << " axis " << k;
        }
    }
    // The light's shade opens away from the light, along -z, where the icon
    // draw puts the light's direction.
    EXPECT_LT(low[ICON_MODEL_LIGHT][2], -0.4f);
    EXPECT_LE(high[ICON_MODEL_LIGHT][2], 0.0f);
    // The camera's lens reaches ahead of the eye (-z), its body stands behind.
    EXPECT_LT(low[ICON_MODEL_CAMERA][2], -0.1f);
    EXPECT_GT(high[ICON_MODEL_CAMERA][2], 0.3f);
    // The bulb sits on the light, its neck below.
    EXPECT_LT(low[ICON_MODEL_BULB][1], -0.3f);

    // The stand-in texture reads under its bare name, at a size a texture
    // takes without resampling.
    PictureInfo picture{};
    ASSERT_EQ(picRead(BW_RSRC_DIR "/noIcon", &picture), 1);
    EXPECT_TRUE(picture.width == 64 && picture.height == 64);
    EXPECT_EQ(picture.planes[3], nullptr);
    picFree(&picture);
}
