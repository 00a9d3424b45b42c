// bweval on the demo database: the animated scene's numbers frame by frame,
// checked against what its curves give by hand.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "capture.h"
#include "run_viewer.h"

namespace {

struct Pose {
    double t[3], r[3], s[3];
};

// frame -> model -> pose, from bweval's lines.
std::map<int, std::map<std::string, Pose>> parse(const std::string &out) {
    std::map<int, std::map<std::string, Pose>> frames;
    std::istringstream in(out);
    std::string line;
    int frame = -1;
    while (std::getline(in, line)) {
        if (sscanf(line.c_str(), "frame %d", &frame) == 1) continue;
        char name[64];
        Pose p;
        if (sscanf(line.c_str(), " %63s T %lf %lf %lf R %lf %lf %lf S %lf %lf %lf", name, &p.t[0],
                   &p.t[1], &p.t[2], &p.r[0], &p.r[1], &p.r[2], &p.s[0], &p.s[1], &p.s[2]) == 10)
            frames[frame][name] = p;
    }
    return frames;
}

class Bweval : public ::testing::Test {
protected:
    void SetUp() override {
        bwtest::RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir.path()}, dir.path());
        ASSERT_EQ(made.status, 0) << made.err;
    }
    bwtest::TempDir dir;
};

}  // namespace

TEST_F(Bweval, TheDemoSceneMovesAsItsCurvesSay) {
    bwtest::RunResult r = bwtest::runProgram(BW_BWEVAL_BIN, {"-R", BW_RSRC_DIR, "demo", "--frames", "1:100:1"},
                                             dir.path(), {"BW_DBDIR"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto frames = parse(r.out);
    ASSERT_EQ(frames.size(), 100u) << r.out;
    for (auto &[frame, models] : frames) {
        ASSERT_EQ(models.size(), 4u) << frame;
        // The cube turns in place about y; the ground, a child without curves, follows at y -1.
        const Pose &world = models["demo-world"], &ground = models["demo-ground"];
        EXPECT_NEAR(std::hypot(world.t[0], world.t[1], world.t[2]), 0.0, 1e-4);
        EXPECT_NEAR(ground.t[1], -1.0, 1e-4);
        // The sheet keeps its distance of 3 from the axis the cube turns about.
        const Pose &sheet = models["demo-sheet"];
        EXPECT_NEAR(std::hypot(sheet.t[0], sheet.t[2]), 3.0, 1e-3) << frame;
    }
    // The sheet's height is linear from 0 (frame 1) to 1.5 (frame 13) and back to 0 (frame 25), repeating.
    EXPECT_NEAR(frames[13]["demo-sheet"].t[1], 1.5, 1e-4);
    EXPECT_NEAR(frames[7]["demo-sheet"].t[1], 0.75, 1e-4);
    EXPECT_NEAR(frames[25]["demo-sheet"].t[1], 0.0, 1e-4);
    EXPECT_NEAR(frames[37]["demo-sheet"].t[1], 1.5, 1e-4);
    // The panel's x scale steps: 1 until frame 25, 1.5 until 50, then 2.
    EXPECT_NEAR(frames[24]["demo-panel"].s[0], 1.0, 1e-4);
    EXPECT_NEAR(frames[25]["demo-panel"].s[0], 1.5, 1e-4);
    EXPECT_NEAR(frames[60]["demo-panel"].s[0], 2.0, 1e-4);
    // Its z scale holds 2 between its two equal keys (frames 50 and 75).
    EXPECT_NEAR(frames[60]["demo-panel"].s[2], 2.0, 1e-4);
    // Half way to its key of 200 degrees the cube has turned, and at rest it has not.
    EXPECT_NEAR(frames[1]["demo-world"].r[1], 0.0, 1e-3);
    EXPECT_GT(std::fabs(frames[26]["demo-world"].r[1]), 10.0);
}

TEST_F(Bweval, TheRigRiderGoesRoundItsTrackTheArrowFollowsItAndTheWheelRolls) {
    bwtest::RunResult r = bwtest::runProgram(BW_BWEVAL_BIN, {"-R", BW_RSRC_DIR, "demo", "rig", "--frames", "1:100:3"},
                                             dir.path(), {"BW_DBDIR"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto frames = parse(r.out);
    ASSERT_EQ(frames.size(), 34u) << r.out;
    double travelled = 0;
    const Pose *last = nullptr;
    for (auto &[frame, models] : frames) {
        const Pose &rider = models["rig-rider"], &lantern = models["rig-lantern"], &arrow = models["rig-arrow"];
        // Round the loop of radius 3 (four cubic arcs: within 1 %), the lantern above it.
        EXPECT_NEAR(std::hypot(rider.t[0], rider.t[2]), 3.0, 0.03) << frame;
        EXPECT_NEAR(rider.t[1], 0.0, 1e-4);
        EXPECT_NEAR(lantern.t[1] - rider.t[1], 1.2, 1e-4);
        EXPECT_NEAR(lantern.t[0], rider.t[0], 1e-4);
        // The arrow's X axis, from its Euler angles, points from it at the rider.
        double rx = arrow.r[0] * M_PI / 180, ry = arrow.r[1] * M_PI / 180, rz = arrow.r[2] * M_PI / 180;
        (void)rx;
        double axis[3] = {cos(rz) * cos(ry), sin(rz) * cos(ry), -sin(ry)};
        double to[3] = {rider.t[0] - arrow.t[0], rider.t[1] - arrow.t[1], rider.t[2] - arrow.t[2]};
        double len = std::hypot(to[0], to[1], to[2]);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(axis[k], to[k] / len, 1e-3) << frame;
        if (last) travelled += std::hypot(rider.t[0] - last->t[0], rider.t[2] - last->t[2]);
        last = &rider;
        // The wheel rolls without slip: its turn about z, in degrees, is its
        // travel over its radius of 0.35, against the direction it goes.
        const Pose &wheel = models["rig-wheel"];
        const double turn = -wheel.t[0] * 180 / (M_PI * 0.35);
        EXPECT_NEAR(std::remainder(wheel.r[2] - turn, 360.0), 0.0, 1e-2) << frame;
    }
    EXPECT_GT(travelled, 15.0);  // most of one lap of 18.85
    EXPECT_NEAR(frames[1]["rig-wheel"].t[0], -4.0, 1e-4);
    EXPECT_NEAR(frames[100]["rig-wheel"].t[0], 3.92, 1e-4);
}

// Points of named models follow each frame's transform lines; an unknown name
// is reported once and the rest goes on.
TEST_F(Bweval, PointsOfNamedModelsFollowEachFrame) {
    bwtest::RunResult r = bwtest::runProgram(
        BW_BWEVAL_BIN, {"-R", BW_RSRC_DIR, "demo", "--frames", "1:2:1", "--points", "demo-world", "--points", "nothere"},
        dir.path(), {"BW_DBDIR"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("bweval: no model nothere in the scene\n"), std::string::npos) << r.err;
    std::istringstream in(r.out);
    std::string line;
    int blocks = 0;
    while (std::getline(in, line)) {
        char name[64];
        int count = 0;
        if (sscanf(line.c_str(), "  points %63s %d", name, &count) != 2) continue;
        ++blocks;
        EXPECT_STREQ(name, "demo-world");
        ASSERT_EQ(count, 8);  // the cube's corners, in its own frame
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(std::getline(in, line));
            double p[3];
            ASSERT_EQ(sscanf(line.c_str(), "%lf %lf %lf", &p[0], &p[1], &p[2]), 3) << line;
            for (double v : p) EXPECT_NEAR(std::fabs(v), 1.0, 1e-6);
            EXPECT_NE(line.find(".000000"), std::string::npos);
        }
    }
    EXPECT_EQ(blocks, 2);
    bwtest::RunResult plain = bwtest::runProgram(BW_BWEVAL_BIN, {"-R", BW_RSRC_DIR, "demo", "--frames", "1:2:1"},
                                                 dir.path(), {"BW_DBDIR"});
    EXPECT_EQ(plain.out.find("points"), std::string::npos);
}

namespace {

// frame -> model -> its points, from bweval's point blocks.
std::map<int, std::map<std::string, std::vector<std::array<double, 3>>>> parsePoints(const std::string &out) {
    std::map<int, std::map<std::string, std::vector<std::array<double, 3>>>> frames;
    std::istringstream in(out);
    std::string line;
    int frame = -1;
    while (std::getline(in, line)) {
        char name[64];
        int count = 0;
        if (sscanf(line.c_str(), "frame %d", &frame) == 1) continue;
        if (sscanf(line.c_str(), "  points %63s %d", name, &count) != 2) continue;
        auto &points = frames[frame][name];
        for (int i = 0; i < count && std::getline(in, line); ++i) {
            std::array<double, 3> p{};
            sscanf(line.c_str(), "%lf %lf %lf", &p[0], &p[1], &p[2]);
            points.push_back(p);
        }
    }
    return frames;
}

}  // namespace

// The figure: the hand holds the ball wherever it goes while the bones keep
// their length, and the blob's points are its keys at whole key indices and
// their mean half way. The keys are the sphere of frame 1 drawn out along y
// by 1.7 and by 0.6 (the other axes by one over the root of that).
TEST_F(Bweval, TheFiguresHandHoldsTheBallAndTheBlobBlendsItsKeys) {
    bwtest::RunResult r = bwtest::runProgram(
        BW_BWEVAL_BIN,
        {"-R", BW_RSRC_DIR, "demo", "figure", "--frames", "1:121:5", "--points", "figure-blob", "--points", "figure-sleeve"},
        dir.path(), {"BW_DBDIR"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto frames = parse(r.out);
    ASSERT_EQ(frames.size(), 25u);
    for (auto &[frame, models] : frames) {
        const Pose &hand = models["figure-hand"], &ball = models["figure-ball"];
        const Pose &shoulder = models["figure-shoulder"], &elbow = models["figure-elbow"];
        EXPECT_NEAR(std::hypot(hand.t[0] - ball.t[0], hand.t[1] - ball.t[1], hand.t[2] - ball.t[2]), 0.0, 1e-3)
            << frame;
        EXPECT_NEAR(std::hypot(elbow.t[0] - shoulder.t[0], elbow.t[1] - shoulder.t[1], elbow.t[2] - shoulder.t[2]),
                    1.5, 1e-4);
        EXPECT_NEAR(std::hypot(hand.t[0] - elbow.t[0], hand.t[1] - elbow.t[1], hand.t[2] - elbow.t[2]), 1.5, 1e-3);
    }
    auto points = parsePoints(r.out);
    // The sleeve (rings of 12 points, 0.25 apart along x, radius 0.22, its
    // origin at the shoulder) follows the bones: rings bound wholly to one
    // bone keep their distance from that bone's start, wherever it turned.
    for (auto &[frame, models] : frames) {
        const auto &sleeve = points[frame]["figure-sleeve"];
        ASSERT_EQ(sleeve.size(), 13u * 12u) << frame;
        const Pose &shoulder = models["figure-shoulder"], &elbow = models["figure-elbow"];
        for (int ring : {0, 2, 9, 12})
            for (int k = 0; k < 12; ++k) {
                const auto &p = sleeve[static_cast<size_t>(12 * ring + k)];
                const Pose &bone = ring < 4 ? shoulder : elbow;
                const double along = ring < 4 ? 0.25 * ring : 0.25 * ring - 1.5;
                double d[3];
                for (int c = 0; c < 3; ++c) d[c] = p[c] - (bone.t[c] - shoulder.t[c]);
                EXPECT_NEAR(std::hypot(d[0], d[1], d[2]), std::hypot(along, 0.22), 1e-3) << frame << " ring " << ring;
            }
    }
    // The elbow bends: the forearm's rings leave the line of the upper arm.
    EXPECT_GT(std::fabs(points[31]["figure-sleeve"][12 * 12][1] - points[1]["figure-sleeve"][12 * 12][1]), 0.5);
    const auto &sphere = points[1]["figure-blob"];
    ASSERT_GT(sphere.size(), 100u);
    auto key = [&](size_t i, double stretch) {
        const double side = 1.0 / std::sqrt(stretch);
        return std::array<double, 3>{sphere[i][0] * side, sphere[i][1] * stretch, sphere[i][2] * side};
    };
    // Key index 0 at frame 1, 1 at 31, 2 at 61, linear between: frame 16 is 0.5, frame 51 is 1.667.
    const struct { int frame; double first, second, f; } at[] = {
        {31, 1.7, 1.7, 0.0}, {61, 0.6, 0.6, 0.0}, {16, 1.0, 1.7, 0.5}, {51, 1.7, 0.6, 2.0 / 3.0}};
    for (const auto &a : at) {
        const auto &got = points[a.frame]["figure-blob"];
        ASSERT_EQ(got.size(), sphere.size()) << a.frame;
        for (size_t i = 0; i < got.size(); i += 17) {
            const auto p = key(i, a.first), q = key(i, a.second);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[i][k], p[k] + (q[k] - p[k]) * a.f, 2e-5) << a.frame << " " << i;
        }
    }
}

// The deform scene, by the arithmetic of its deformers. The ball (a sphere of
// radius 0.5, its top pole the first point) sits in a 3 x 3 x 3 cage over the
// box from -0.6 to 0.6; the key curve swings from the rest cage (key 1) at
// frame 1 to key 2 at frame 31, whose top layer stands 0.35 x 1.2 higher, so
// the pole, 0.8333 of the way from the middle layer to the top one, rises by
// that weight of the top layer's move. A wave of amplitude 0.25, wavelength 2
// and speed 1.5 leaves the pond's middle at frame 0: the middle point moves
// by 0.25 sin(-2 pi 1.5 t / 2), four times that in the pond's own frame
// (scaled by 0.25). The tube slides along its path: it moves.
TEST_F(Bweval, TheDeformScenesLatticeAndWaveMoveByTheirArithmetic) {
    bwtest::RunResult r = bwtest::runProgram(
        BW_BWEVAL_BIN,
        {"-R", BW_RSRC_DIR, "demo", "deform", "--frames", "1:31:15", "--points", "deform-block", "--points",
         "deform-pond", "--points", "deform-tube", "--points", "deform-sheet"},
        dir.path(), {"BW_DBDIR"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto points = parsePoints(r.out);
    ASSERT_EQ(points.size(), 3u);
    const double weight = ((0.5 / 1.2) + 0.5) / 0.5 - 1.0;  // place between the middle and the top layer
    const double rise = 0.35 * 1.2;
    const std::map<int, double> keyPosition = {{1, 0.0}, {16, 0.5}, {31, 1.0}};
    for (const auto &[frame, position] : keyPosition) {
        const auto &pole = points[frame]["deform-block"].at(0);
        EXPECT_NEAR(pole[0], 0.0, 1e-5) << frame;
        EXPECT_NEAR(pole[1], 0.5 + position * weight * rise, 1e-4) << frame;
        EXPECT_NEAR(pole[2], 0.0, 1e-5) << frame;
    }
    for (int frame : {16, 31}) {
        const double t = frame / 30.0;
        const double height = 4 * 0.25 * std::sin(2 * M_PI * (0.0 - 1.5 * t) / 2.0);
        bool found = false;
        for (const auto &p : points[frame]["deform-pond"])
            if (std::fabs(p[0] - 12) < 1e-5 && std::fabs(p[2] - 12) < 1e-5) {
                EXPECT_NEAR(p[1], height, 1e-3) << frame;
                found = true;
            }
        EXPECT_TRUE(found) << frame;
    }
    EXPECT_GT(std::fabs(points[31]["deform-tube"].at(0)[0] - points[1]["deform-tube"].at(0)[0]), 0.5);
    // The sheet lies on the hill: above the ground everywhere, highest over its middle.
    double top = -1;
    for (const auto &p : points[31]["deform-sheet"]) {
        EXPECT_GE(p[1], 0.0);
        top = std::max(top, p[1]);
    }
    EXPECT_GT(top, 1.0);
}
