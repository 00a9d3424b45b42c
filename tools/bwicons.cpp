// bwicons OUTDIR: the icon models and the stand-in picture of the resource
// directory, written through the model and picture writers:
//   OUTDIR/LIGHT_ICON.hrc   a lamp shade opening along -z (spot, infinite and area lights)
//   OUTDIR/BULB_ICON.hrc    a bulb of three crossed rings on a neck (point lights)
//   OUTDIR/CAMERA_ICON.hrc  a box body with a lens looking along -z and two reels on top
//   OUTDIR/noIcon           a grey picture crossed out in red (textures whose picture is the icon)
// Each model is a tree of linear splines only: icons are drawn as wire, and a
// spline is nothing but its lines. The viewer sets a light's icon with -z along
// the light and y up, and a camera's with its own frame (eye at the origin,
// looking along -z), so the shapes are built in that frame, about unit size.
// The rsrc directory of the source tree holds what this writes; run it there
// after changing a shape.
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fileio.h"
#include "model.h"
#include "testdata.h"

namespace {

using Point = std::vector<float>;  // x, y, z
using Points = std::vector<Point>;

constexpr int RING_SEGMENTS = 12;  // corners of a ring
constexpr uint16_t PICTURE_SIZE = 64;  // noIcon's width and height, a power of two for textures

// A linear spline through `points` as a model node named `name`.
Model *polyline(const char *name, const Points &points, bool closed) {
    Spline *s = static_cast<Spline *>(calloc(1, sizeof(Spline)));
    s->name = strdup(name);
    s->closed = closed ? 1 : 0;
    s->degree = 1;
    s->vertexCount = static_cast<uint16_t>(points.size());
    s->vertices = static_cast<SplineVertex *>(calloc(points.size(), sizeof(SplineVertex)));
    for (size_t i = 0; i < points.size(); ++i)
        for (int k = 0; k < 3; ++k) s->vertices[i].pos[k] = points[i][static_cast<size_t>(k)];
    return modelNew(name, MODEL_SPLINE, s);
}

// A circle of `radius` about `centre`, in the plane of axes `u` and `v`.
Points ring(const Point &centre, float radius, int u, int v) {
    Points points;
    for (int i = 0; i < RING_SEGMENTS; ++i) {
        const double a = 2.0 * M_PI * i / RING_SEGMENTS;
        Point p = centre;
        p[static_cast<size_t>(u)] += radius * static_cast<float>(std::cos(a));
        p[static_cast<size_t>(v)] += radius * static_cast<float>(std::sin(a));
        points.push_back(p);
    }
    return points;
}

// A rectangle of half sizes `hx`, `hy` about `centre`, square to z.
Points rectangle(const Point &centre, float hx, float hy) {
    Points points;
    for (int c = 0; c < 4; ++c)
        points.push_back({centre[0] + ((c == 1 || c == 2) ? hx : -hx), centre[1] + (c >= 2 ? hy : -hy),
                          centre[2]});
    return points;
}

// The corners of `near` joined to those of `far` (rings or rectangles of the
// same count), every `step`th corner.
void joinCorners(Model *root, const char *name, const Points &near, const Points &far, size_t step) {
    for (size_t i = 0; i < near.size() && i < far.size(); i += step)
        modelAddChild(root, polyline(name, {near[i], far[i]}, false));
}

// Two rings, a small one at the light and a wide one half a unit along -z,
// joined by four lines: a shade that shows which way the light goes.
Model *lightIcon() {
    const Points back = ring({0.0f, 0.0f, 0.0f}, 0.08f, 0, 1);
    const Points front = ring({0.0f, 0.0f, -0.5f}, 0.25f, 0, 1);
    Model *root = polyline("LIGHT_ICON", front, true);
    modelAddChild(root, polyline("back", back, true));
    joinCorners(root, "side", back, front, RING_SEGMENTS / 4);
    return root;
}

// Three crossed rings about a centre above the light, on a neck of two small
// rings below it.
Model *bulbIcon() {
    const Point centre = {0.0f, 0.1f, 0.0f};
    Model *root = polyline("BULB_ICON", ring(centre, 0.25f, 0, 2), true);
    modelAddChild(root, polyline("ring", ring(centre, 0.25f, 0, 1), true));
    modelAddChild(root, polyline("ring", ring(centre, 0.25f, 1, 2), true));
    const Points top = ring({0.0f, -0.2f, 0.0f}, 0.1f, 0, 2);
    const Points bottom = ring({0.0f, -0.35f, 0.0f}, 0.1f, 0, 2);
    modelAddChild(root, polyline("neck", top, true));
    modelAddChild(root, polyline("neck", bottom, true));
    joinCorners(root, "neck", top, bottom, RING_SEGMENTS / 4);
    return root;
}

// A box behind the eye, a lens widening from the box's front along -z to
// just ahead of the eye, and two reels on top.
Model *cameraIcon() {
    const Points bodyFront = rectangle({0.0f, 0.0f, 0.05f}, 0.12f, 0.16f);
    const Points bodyBack = rectangle({0.0f, 0.0f, 0.5f}, 0.12f, 0.16f);
    const Points lensBack = rectangle({0.0f, 0.0f, 0.05f}, 0.05f, 0.05f);
    const Points lensFront = rectangle({0.0f, 0.0f, -0.15f}, 0.1f, 0.1f);
    Model *root = polyline("CAMERA_ICON", bodyFront, true);
    modelAddChild(root, polyline("body", bodyBack, true));
    joinCorners(root, "body", bodyFront, bodyBack, 1);
    modelAddChild(root, polyline("lens", lensBack, true));
    modelAddChild(root, polyline("lens", lensFront, true));
    joinCorners(root, "lens", lensBack, lensFront, 1);
    modelAddChild(root, polyline("reel", ring({0.0f, 0.28f, 0.15f}, 0.11f, 1, 2), true));
    modelAddChild(root, polyline("reel", ring({0.0f, 0.28f, 0.4f}, 0.11f, 1, 2), true));
    return root;
}

// Light grey with a dark frame, crossed out corner to corner in red.
PictureInfo noIconPicture() {
    const uint16_t n = PICTURE_SIZE;
    PictureInfo p = tdPictureNew(n, n, false);
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const bool frame = x < 2 || y < 2 || x >= n - 2 || y >= n - 2;
            const bool crossed = std::abs(x - y) <= 2 || std::abs(x + y - (n - 1)) <= 2;
            const uint8_t grey = frame ? 64 : 192;
            const size_t at = static_cast<size_t>(y) * n + static_cast<size_t>(x);
            p.planes[0][at] = crossed && !frame ? 200 : grey;
            p.planes[1][at] = crossed && !frame ? 30 : grey;
            p.planes[2][at] = crossed && !frame ? 30 : grey;
        }
    return p;
}

bool writeModel(const std::string &out, const char *file, Model *root) {
    const std::string path = out + "/" + file + ".hrc";
    const int written = modelFileWritePath(path.c_str(), root);
    modelFree(root);
    if (!written) fprintf(stderr, "bwicons: cannot write %s\n", path.c_str());
    return written != 0;
}

// The picture writer puts ".pic" behind a name; the resource has none.
bool writeNoIcon(const std::string &out) {
    const std::string written = out + "/noIcon.pic", path = out + "/noIcon";
    PictureInfo p = noIconPicture();
    const bool ok = picWriteImage(written.c_str(), &p, PIC_WRITE_RUNS) == 1 &&
                    rename(written.c_str(), path.c_str()) == 0;
    picFree(&p);
    if (!ok) fprintf(stderr, "bwicons: cannot write %s\n", path.c_str());
    return ok;
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc != 2) {
        fprintf(stderr, "Usage: %s OUTDIR\n", argv[0]);
        return 2;
    }
    const std::string out = argv[1];
    if (mkdir(out.c_str(), 0755) != 0 && errno != EEXIST) {
        fprintf(stderr, "bwicons: cannot make %s: %s\n", out.c_str(), strerror(errno));
        return 1;
    }
    bool ok = writeModel(out, "LIGHT_ICON", lightIcon());
    ok = writeModel(out, "BULB_ICON", bulbIcon()) && ok;
    ok = writeModel(out, "CAMERA_ICON", cameraIcon()) && ok;
    ok = writeNoIcon(out) && ok;
    return ok ? 0 : 1;
}
