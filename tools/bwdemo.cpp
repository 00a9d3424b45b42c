// bwdemo OUTDIR: writes the demo database through our own writers.
//
// OUTDIR/DatabaseDir.rsrc names the database "demo", OUTDIR/demo holds its
// chapters: one model file with a small hierarchy of every surface kind the
// display handles, a second with a row of props, stand-alone materials of
// clearly different colours and finishes, two generated pictures and the
// textures that map them, lights, and five scenes. "intro", the oldest,
// shows the cube alone. "gallery" shows the props: a checkered globe, a
// glass drum with a band round it whose colour drifts from cyan to violet
// and back, a sign and a chrome bead. "demo", the
// newest, the whole hierarchy with a material and a picture on each model,
// animated: the cube turns on a spline and its children turn with it, the
// sheet bobs up and down along a linear curve that repeats, the panel grows
// in steps and eases back. A key light at infinity, a spot on the floor and
// a warm lamp that circles the stage light it. Its camera looks at the cube
// from above and in front. The viewer picks "demo" when no scene is named.
// "wave" and "steer" come with channel setups: in a capture (viewer -c) the
// wave driver moves the cube from side to side, and the pointer (the mouse
// driver) steers the camera. "rig" shows constraints and a path: a cube rides
// a round track at a percentage from a curve, an arrow points at it, the
// camera's interest follows it and a lamp stands at the lantern above it.
// "figure" shows a chain, a skin and shape keys; "deform" a lattice, a curve
// and a surface deformation, a wave and a setup file. "facade" a tower seen
// level through a shifted film back. "matte" is a garbage matte scene for
// -G: a card in front of the stage.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "channel.h"
#include "testdata.h"

namespace {

// A cube at the root; a patch, a NURBS surface and a face around it. The
// ground's surface runs through its inner control points: 8 by 8.
Model *makeWorld() {
    Model *root = modelNew("world", MODEL_MESH, meshMakeCube(2.0f));
    Patch *floor = patchMakeGrid(4, 4, 24.0f);
    // Lights are reckoned at the vertices: fine steps let the spot's cone show.
    floor->step[0] = floor->step[1] = 16;
    Model *ground = modelNew("ground", MODEL_PATCH, floor);
    ground->translation[1] = -1.0f;
    // The sheet and the panel are made facing down: turned to the camera and up.
    Model *sheet = modelNew("sheet", MODEL_NURBS_SURFACE, nurbsSurfaceMakePlane(2.0f));
    sheet->translation[0] = 3.0f;
    sheet->rotation[0] = -1.5707964f;
    Model *panel = modelNew("panel", MODEL_FACE, faceMakeSquare(2.0f, 1));
    panel->translation[0] = -3.0f;
    panel->rotation[0] = 3.1415927f;
    for (Model *child : {ground, sheet, panel}) modelAddChild(root, child);
    return root;
}

// A row of props, behind the stage and above it: a globe, a drum, a sign
// facing +z and a bead.
constexpr float SIGN_HALF[2] = {1.0f, 0.6f};
constexpr float DRUM_HEIGHT = 1.6f;

// The rig: a closed spline track round the stage, a rider that goes round
// it with a lantern above it, and an arrow that keeps pointing at the rider.
// A wheel in front rolls across the stage: an expression turns it by its travel.
Model *makeRig() {
    Model *root = modelNew("set", MODEL_BARE, nullptr);
    Spline *track = static_cast<Spline *>(calloc(1, sizeof(Spline)));
    track->closed = 1;
    track->vertexCount = 4;
    track->vertices = static_cast<SplineVertex *>(calloc(4, sizeof(SplineVertex)));
    // A round loop of radius 3: each vertex's handles lie along the circle.
    const float at[4][3] = {{3, 0, 0}, {0, 0, -3}, {-3, 0, 0}, {0, 0, 3}};
    const float along[4][3] = {{0, 0, -1.66f}, {-1.66f, 0, 0}, {0, 0, 1.66f}, {1.66f, 0, 0}};
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 3; ++k) {
            track->vertices[i].pos[k] = at[i][k];
            track->vertices[i].tanOut[k] = along[i][k];
            track->vertices[i].tanIn[k] = -along[i][k];
        }
    Model *path = modelNew("track", MODEL_SPLINE, track);
    Model *rider = modelNew("rider", MODEL_MESH, meshMakeCube(0.8f));
    Model *lantern = modelNew("lantern", MODEL_MESH, meshMakeCube(0.2f));
    lantern->translation[1] = 1.2f;
    modelAddChild(rider, lantern);
    Model *arrow = modelNew("arrow", MODEL_MESH, meshMakeCube(1.0f));
    const float arrowScale[3] = {1.6f, 0.25f, 0.25f};
    memcpy(arrow->scaling, arrowScale, sizeof arrowScale);
    arrow->translation[1] = 1.5f;
    // A flat square that rolls in front of the track: its curve moves it, an
    // expression turns it by the distance it went.
    Model *wheel = modelNew("wheel", MODEL_MESH, meshMakeCube(0.7f));
    wheel->scaling[2] = 0.2f;
    wheel->translation[1] = 0.35f;
    wheel->translation[2] = 4.0f;
    for (Model *child : {path, rider, arrow, wheel}) modelAddChild(root, child);
    return root;
}

Model *makeProps() {
    Model *root = modelNew("props", MODEL_BARE, nullptr);
    const float quad[4][3] = {{-SIGN_HALF[0], -SIGN_HALF[1], 0}, {SIGN_HALF[0], -SIGN_HALF[1], 0},
                              {SIGN_HALF[0], SIGN_HALF[1], 0}, {-SIGN_HALF[0], SIGN_HALF[1], 0}};
    const float front[4][3] = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}};
    const int32_t halves[2][3] = {{0, 1, 2}, {0, 2, 3}};
    const struct {
        const char *name;
        Mesh *mesh;
        float x;
    } props[] = {{"globe", tdMakeSphereMesh(24, 12, 0.9f), -4.2f},
                 {"drum", tdMakeTubeMesh(24, 0.6f, DRUM_HEIGHT), -1.6f},
                 {"sign", tdMakeMesh(quad, front, 4, halves, 2), 1.6f},
                 {"bead", tdMakeSphereMesh(24, 12, 0.6f), 4.2f}};
    for (const auto &prop : props) {
        Model *m = modelNew(prop.name, MODEL_MESH, prop.mesh);
        m->translation[0] = prop.x;
        m->translation[1] = 1.2f;
        m->translation[2] = -4.5f;
        modelAddChild(root, m);
    }
    return root;
}

// The figure's sizes: the arm's two bones, the sleeve round them, the ball
// the hand reaches for and the circle it goes round, relative to the shoulder.
constexpr float BONE = 1.5f;
constexpr float SLEEVE_RADIUS = 0.22f;
constexpr int SLEEVE_RINGS = 13;     // rings along the arm
constexpr int SLEEVE_SEGMENTS = 12;  // points round each ring
constexpr float BALL_CENTRE[2] = {1.8f, 0.6f};
constexpr float BALL_RADIUS = 0.9f;
constexpr float SHOULDER[3] = {-2.5f, 0.5f, 0.0f};

// A tube along x from 0 to `length`, open at both ends: a ring of points
// every length / (rings - 1), normals out from the axis.
Mesh *makeSleeve(float length) {
    const int32_t count = SLEEVE_RINGS * SLEEVE_SEGMENTS;
    std::vector<float> points(3 * static_cast<size_t>(count)), normals(points.size());
    for (int r = 0; r < SLEEVE_RINGS; ++r)
        for (int k = 0; k < SLEEVE_SEGMENTS; ++k) {
            const size_t at = 3 * static_cast<size_t>(r * SLEEVE_SEGMENTS + k);
            const double a = 2.0 * M_PI * k / SLEEVE_SEGMENTS;
            normals[at + 1] = static_cast<float>(std::cos(a));
            normals[at + 2] = static_cast<float>(std::sin(a));
            points[at] = length * static_cast<float>(r) / (SLEEVE_RINGS - 1);
            points[at + 1] = SLEEVE_RADIUS * normals[at + 1];
            points[at + 2] = SLEEVE_RADIUS * normals[at + 2];
        }
    std::vector<int32_t> triangles;
    for (int r = 0; r + 1 < SLEEVE_RINGS; ++r)
        for (int k = 0; k < SLEEVE_SEGMENTS; ++k) {
            const int32_t a = r * SLEEVE_SEGMENTS + k, b = r * SLEEVE_SEGMENTS + (k + 1) % SLEEVE_SEGMENTS;
            const int32_t c = a + SLEEVE_SEGMENTS, d = b + SLEEVE_SEGMENTS;
            // Counter-clockwise seen from outside.
            for (int32_t v : {a, b, d, a, d, c}) triangles.push_back(v);
        }
    return tdMakeMesh(reinterpret_cast<const float (*)[3]>(points.data()),
                      reinterpret_cast<const float (*)[3]>(normals.data()), count,
                      reinterpret_cast<const int32_t (*)[3]>(triangles.data()),
                      static_cast<int32_t>(triangles.size() / 3));
}

// A sphere drawn out along y by `stretch`, the other axes shrunk to keep
// its bulk: one key of the blob.
Mesh *makeBlobKey(float stretch) {
    Mesh *m = tdMakeSphereMesh(20, 14, 0.7f);
    const float side = 1.0f / std::sqrt(stretch);
    for (int32_t i = 0; m && i < m->vertexCount; ++i) {
        m->vertices[i].pos[0] *= side;
        m->vertices[i].pos[1] *= stretch;
        m->vertices[i].pos[2] *= side;
    }
    return m;
}

// Binds the sleeve to the arm as it stands straight: the rings round the
// upper arm follow the shoulder, those round the forearm the elbow, and the
// four rings about the elbow pass from one to the other in quarters, so the
// sleeve bends smoothly there.
void bindSleeve(Model *arm, Model *shoulder, Model *elbow, Model *sleeve) {
    arm->envelopeRole = ENVELOPE_ROLE_ROOT;
    shoulder->envelopeRole = elbow->envelopeRole = ENVELOPE_ROLE_CHAIN_DEFORMER;
    sleeve->envelopeRole = ENVELOPE_ROLE_SKIN;
    // The root is bound where it stands, at the shoulder.
    if (EnvelopeData *top = envelopeDataGet(arm)) {
        top->reference[0] = top->reference[1] = top->reference[2] = 1.0f;
        for (int k = 0; k < 3; ++k) {
            top->reference[6 + k] = SHOULDER[k];
            top->basePose[3][k] = -SHOULDER[k];
        }
    }
    const float along[2] = {0.0f, BONE};  // each deformer's place on its parent at binding
    Model *bones[2] = {shoulder, elbow};
    for (int b = 0; b < 2; ++b) {
        EnvelopeData *data = envelopeDataGet(bones[b]);
        if (!data) return;
        data->reference[0] = data->reference[1] = data->reference[2] = 1.0f;
        data->reference[6] = along[b];
        // The inverse of the bind pose: the bone's start, straight along x.
        data->basePose[3][0] = -(SHOULDER[0] + along[b]);
        data->basePose[3][1] = -SHOULDER[1];
        data->basePose[3][2] = -SHOULDER[2];
        const int32_t count = SLEEVE_RINGS * SLEEVE_SEGMENTS;
        EnvelopeSkin *list = envelopeSkinAdd(data, nullptr, sleeve->name, count);
        if (!list) return;
        for (int32_t v = 0; v < count; ++v) {
            const int ring = v / SLEEVE_SEGMENTS;  // the elbow's ring is the middle one, 6
            const float toElbow = std::clamp((ring - 4) / 4.0f, 0.0f, 1.0f);
            list->assignments[v] = EnvelopeAssignment{v, 100.0f * (b == 0 ? 1.0f - toElbow : toElbow)};
        }
    }
}

// The figure: an arm of two bones (a chain whose hand reaches for a ball
// going round in front of it), the sleeve that the arm's bones bend, and a
// blob beside them whose shape cycles through three keys.
// The deform scene's sizes: a lattice round a ball, a tube that slides
// along an S-shaped spline, a sheet over a hill and a pond a wave crosses.
constexpr float BLOCK_AT[3] = {-5.0f, 1.0f, 0.0f};
constexpr float POND_SCALE = 0.25f;  // the pond's grid of 24 x 24 unit quads, made 6 x 6
constexpr int POND_QUADS = 24;
constexpr float POND_AT[3] = {-3.0f, 0.0f, -9.0f};

// A 3 x 3 x 3 cage over the box from -0.6 to 0.6 (the unit box scaled by
// 1.2, in the ball's frame): key 0 is the
// cage in use, key 1 the rest grid, key 2 the top layer spread and raised.
Lattice *makeCage() {
    Lattice *l = static_cast<Lattice *>(calloc(1, sizeof(Lattice)));
    l->keyCount = 3;
    l->keys = static_cast<LatticeKey *>(calloc(3, sizeof(LatticeKey)));
    for (int k = 0; k < 3; ++k) {
        LatticeKey &key = l->keys[k];
        key.kind = 1;
        key.divisions[0] = key.divisions[1] = key.divisions[2] = 3;
        key.pointCount = 27;
        key.points = static_cast<float (*)[3]>(calloc(27, sizeof(float[3])));
        key.pointFlags = static_cast<uint16_t *>(calloc(27, sizeof(uint16_t)));
        for (int a = 0; a < 3; ++a) key.vectors[0][a] = 1.2f;  // scaling; rotation and translation 0
        for (int i = 0; i < 27; ++i) {
            const int x = i % 3, y = (i / 3) % 3, z = i / 9;
            float p[3] = {-0.5f + 0.5f * x, -0.5f + 0.5f * y, -0.5f + 0.5f * z};
            if (k == 2 && y == 2) p[0] *= 1.8f, p[2] *= 1.8f, p[1] += 0.35f;
            if (k == 2 && y == 0) p[0] *= 0.6f, p[2] *= 0.6f;
            for (float &c : p) c *= 1.2f;  // the cage stands in the ball's frame, as its scaling says
            memcpy(key.points[i], p, sizeof p);
        }
    }
    return l;
}

Model *makeDeformStage() {
    Model *root = modelNew("stage", MODEL_BARE, nullptr);
    Model *block = modelNew("block", MODEL_MESH, tdMakeSphereMesh(24, 16, 0.5f));
    memcpy(block->translation, BLOCK_AT, sizeof BLOCK_AT);
    // The S the tube runs along, open, through four points.
    Spline *s = static_cast<Spline *>(calloc(1, sizeof(Spline)));
    s->vertexCount = 4;
    s->vertices = static_cast<SplineVertex *>(calloc(4, sizeof(SplineVertex)));
    const float at[4][3] = {{-3.0f, 0.5f, 0}, {-1.5f, 2.5f, 0}, {0.0f, 0.5f, 0}, {1.5f, 2.5f, 0}};
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 3; ++k) {
            const float next = at[i < 3 ? i + 1 : 3][k] - at[i > 0 ? i - 1 : 0][k];
            s->vertices[i].pos[k] = at[i][k];
            s->vertices[i].tanOut[k] = next / 3;
            s->vertices[i].tanIn[k] = -next / 3;
        }
    Model *path = modelNew("path", MODEL_SPLINE, s);
    Model *tube = modelNew("tube", MODEL_MESH, makeSleeve(2.0f));
    // A hill: a 5 x 5 patch in XZ with its middle raised; the sheet lies on it.
    Patch *hill = patchMakeGrid(5, 5, 3.0f);
    for (int i = 0; i < 25; ++i) {
        const int u = i % 5, v = i / 5;
        hill->cvs[i][1] += (u > 0 && u < 4 && v > 0 && v < 4) ? (u == 2 && v == 2 ? 1.6f : 0.7f) : 0.0f;
    }
    Model *hillNode = modelNew("hill", MODEL_PATCH, hill);
    const float hillAt[3] = {4.0f, 0.0f, 0.0f};
    memcpy(hillNode->translation, hillAt, sizeof hillAt);
    Mesh *flat = tdMakeGridMesh(12, 12);
    for (int i = 0; i < flat->vertexCount; ++i) {  // into XY, just above the surface
        float *p = flat->vertices[i].pos;
        p[1] = p[2], p[2] = 0.05f;
    }
    Model *sheet = modelNew("sheet", MODEL_MESH, flat);
    Model *pond = modelNew("pond", MODEL_MESH, tdMakeGridMesh(POND_QUADS, POND_QUADS));
    memcpy(pond->translation, POND_AT, sizeof POND_AT);
    for (int k = 0; k < 3; ++k) pond->scaling[k] = POND_SCALE;
    for (Model *child : {block, path, tube, hillNode, sheet, pond}) modelAddChild(root, child);
    return root;
}

Model *makeFigure() {
    Model *root = modelNew("stage", MODEL_BARE, nullptr);
    Model *arm = modelNew("arm", MODEL_BARE, nullptr);
    arm->kind = MODEL_KIND_CHAIN;
    memcpy(arm->translation, SHOULDER, sizeof SHOULDER);
    Model *shoulder = modelNew("shoulder", MODEL_TYPE_JOINT, nullptr);
    Model *elbow = modelNew("elbow", MODEL_TYPE_JOINT, nullptr);
    shoulder->kind = elbow->kind = MODEL_KIND_CHAIN;
    elbow->translation[0] = BONE;
    // The elbow bends down by preference, as an arm reaching forward does.
    if (ChainData *bend = chainDataOf(elbow)) bend->prefRotationZ = -0.6f;
    Model *hand = modelNew("hand", MODEL_BARE, nullptr);
    hand->kind = MODEL_KIND_EFFECTOR;
    hand->translation[0] = BONE;
    modelAddChild(arm, shoulder);
    modelAddChild(shoulder, elbow);
    modelAddChild(elbow, hand);
    Model *ball = modelNew("ball", MODEL_MESH, tdMakeSphereMesh(16, 10, 0.25f));
    Model *sleeve = modelNew("sleeve", MODEL_MESH, makeSleeve(2 * BONE));
    memcpy(sleeve->translation, SHOULDER, sizeof SHOULDER);
    Model *blob = modelNew("blob", MODEL_MESH, makeBlobKey(1.0f));
    blob->translation[0] = 2.8f;
    blob->translation[1] = 0.7f;
    for (Model *child : {arm, ball, sleeve, blob}) modelAddChild(root, child);
    bindSleeve(arm, shoulder, elbow, sleeve);
    return root;
}

// Pictures with plain corners: a checker of eight by eight in two colours,
// and a gradient from red on the left to blue on the right, dark at the
// bottom and bright at the top.
PictureInfo checkerPicture() {
    PictureInfo p = tdPictureNew(128, 128, false);
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x) {
            const bool light = ((x / 16) + (y / 16)) % 2 == 0;
            const size_t at = static_cast<size_t>(y) * 128 + x;
            p.planes[0][at] = light ? 240 : 30;
            p.planes[1][at] = light ? 230 : 40;
            p.planes[2][at] = light ? 200 : 90;
        }
    return p;
}

PictureInfo gradientPicture() {
    PictureInfo p = tdPictureNew(200, 100, false);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 200; ++x) {
            const float across = x / 199.0f, up = 0.3f + 0.7f * y / 99.0f;
            const size_t at = static_cast<size_t>(y) * 200 + x;
            p.planes[0][at] = static_cast<uint8_t>(255 * up * (1.0f - across));
            p.planes[1][at] = static_cast<uint8_t>(255 * up * 0.5f);
            p.planes[2][at] = static_cast<uint8_t>(255 * up * across);
        }
    return p;
}

// A texture of `picture` by `method`, in a box of `size` about the model's origin.
Texture2D texture(const std::string &picture, uint16_t method, float sx, float sy, float sz) {
    Texture2D t;
    t.pictureName = picture;
    t.method = method;
    t.boxSize[0] = sx;
    t.boxSize[1] = sy;
    t.boxSize[2] = sz;
    return t;
}

struct Key {
    float frame;
    float value;
};

// A curve of `type` through keys given in frames of the demo's 30 frames a
// second, for an element of `chapter`.
AnimItem *curve(int32_t relid, int32_t type, int16_t interpolation, std::initializer_list<Key> keys,
                int16_t post = FCV_EXTRA_CONSTANT, int32_t chapter = CHP_MODELS) {
    Fcurve *c = fcurveCreate(type, 0);
    c->interpolation = static_cast<uint16_t>(interpolation);
    c->postMode = post;
    for (const Key &k : keys) {
        FcurveKey *key = fcurveKeyNew();
        key->time = k.frame / 30.0f;  // frame f plays at f / rate
        key->value = k.value;
        key->interpolation = interpolation;
        fcurveAddKey(c, key, 0, 0, 0);
    }
    AnimItem *item = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    *item = AnimItem{c, relid, chapter, 0, 1, nullptr};
    return item;
}

// The items in the order given, as one file's list.
AnimItem *chain(std::initializer_list<AnimItem *> items) {
    AnimItem *head = nullptr, **tail = &head;
    for (AnimItem *item : items) {
        *tail = item;
        tail = &item->next;
    }
    return head;
}

// A material with a highlight; `decay` sharpens it.
Material colouredMaterial(const char *name, float r, float g, float b, float decay = 50.0f) {
    Material m;
    m.name = name;
    const float diffuse[3] = {r, g, b};
    for (int k = 0; k < 3; ++k) {
        m.diffuse[k] = diffuse[k];
        m.ambient[k] = diffuse[k] * 0.3f;
    }
    m.specularDecay = decay;
    return m;
}

// White without a highlight, for pictures in their own colours.
Material paperMaterial() {
    Material m = colouredMaterial("paper", 0.95f, 0.95f, 0.95f);
    m.shadingModel = 3;
    return m;
}

// Half transparent: the renderer shows it so, the viewer draws its colour.
Material glassMaterial() {
    Material m = colouredMaterial("glass", 0.6f, 0.9f, 1.0f, 100.0f);
    for (float &c : m.transparencyColour) c = 0.5f;
    m.transparency = 0.5f;
    return m;
}

Light light(uint16_t type, float r, float g, float b, std::initializer_list<float> at,
            std::initializer_list<float> aim = {0, 0, 0}) {
    Light l;
    l.type = type;
    const float colour[3] = {r, g, b};
    memcpy(l.colour, colour, sizeof colour);
    std::copy(at.begin(), at.end(), l.position);
    std::copy(aim.begin(), aim.end(), l.interest);
    return l;
}

}  // namespace

// The channel setup of scene `scene`: one driver of the driver directory and
// its connections. False, with the reason on stderr, when it cannot be written.
bool writeChannelSetup(Database *db, const char *scene, const char *driverName,
                       std::initializer_list<const char *> connections) {
    const char *dir = channelDriverDirectory();
    ChannelSetup *setup = channelSetupCreate(4);
    ChannelDriver driver;
    bool ok = dir && driverFileRead(dir, driverName, &driver);
    if (ok) {
        channelSetupAddDriver(setup, driver);
        for (const char *c : connections) channelSetupAddConnection(setup, CHANNEL_CONN_INPUT, c);
        ok = !channelSetupWriteForScene(db, scene, setup).empty();
    }
    if (!ok) fprintf(stderr, "bwdemo: cannot write the channel setup of \"%s\" (driver %s)\n", scene, driverName);
    channelSetupFree(setup);
    return ok;
}

// "matte": a garbage matte scene for the viewer's -G, a thin card standing
// between the demo's camera and the left half of its stage. Older than
// "demo", so that "demo" stays the scene taken when none is named.
bool writeMatteScene(Database *db, time_t when) {
    Model *card = modelNew("matte-card", MODEL_MESH, meshMakeCube(1.0f));
    const float size[3] = {2.5f, 1.5f, 0.05f}, at[3] = {-1.5f, 1.0f, 2.0f};
    memcpy(card->scaling, size, sizeof size);
    memcpy(card->translation, at, sizeof at);
    const std::string cardFile = tdFullName(tdWriteModel(db, "matte-card", card));
    modelFree(card);
    if (cardFile.empty()) return false;
    TdScene scene;
    scene.add(CHP_MODELS, cardFile);
    return !tdWriteScene(db, "matte", scene, when).empty();
}

int main(int argc, char *argv[]) {
    if (argc != 2) {
        fprintf(stderr, "Usage: %s OUTDIR\n", argv[0]);
        return 2;
    }
    std::string out = argv[1];
    mkdir(out.c_str(), 0755);
    std::string dbPath = out + "/demo";
    std::string dirFile = out + "/DatabaseDir.rsrc";
    if (access(dbPath.c_str(), F_OK) == 0) {
        fprintf(stderr, "bwdemo: %s exists already; remove it to write a fresh demo\n",
                dbPath.c_str());
        return 1;
    }
    remove(dirFile.c_str());

    Database *db = tdDatabaseCreate(dbPath, "demo", dirFile);
    if (!db) return 1;

    if (!tdLoadRelations()) {
        fprintf(stderr, "bwdemo: cannot read the relation resources (set BW_RSRC)\n");
        return 1;
    }

    Model *world = makeWorld(), *props = makeProps();
    std::string worldFile = tdFullName(tdWriteModel(db, "demo-world", world));
    std::string propsFile = tdFullName(tdWriteModel(db, "demo-props", props));
    modelFree(world);
    modelFree(props);
    bool ok = !worldFile.empty() && !propsFile.empty();
    // The first four dress the world's models; the red cube shines.
    const Material materials[] = {colouredMaterial("red", 0.9f, 0.1f, 0.1f, 90.0f),
                                  colouredMaterial("green", 0.1f, 0.8f, 0.2f),
                                  colouredMaterial("blue", 0.1f, 0.2f, 0.9f),
                                  colouredMaterial("gold", 0.9f, 0.7f, 0.1f),
                                  paperMaterial(),
                                  glassMaterial(),
                                  colouredMaterial("chrome", 0.5f, 0.5f, 0.55f, 128.0f)};
    constexpr int MATERIALS = 7;
    std::string materialFile[MATERIALS];
    for (int i = 0; i < MATERIALS; ++i) {
        materialFile[i] = tdFullName(tdWriteMaterial(db, "demo-" + materials[i].name, materials[i]));
        ok = ok && !materialFile[i].empty();
    }
    PictureInfo pictures[2] = {checkerPicture(), gradientPicture()};
    const std::string checker = tdFullName(tdWritePicture(db, "demo-checker", pictures[0]));
    const std::string gradient = tdFullName(tdWritePicture(db, "demo-gradient", pictures[1]));
    for (PictureInfo &p : pictures) picFree(&p);
    ok = ok && !checker.empty() && !gradient.empty();
    if (!ok) return 1;

    // Pictures on the models, a way of mapping each. On the stage: the
    // floor's checker from above, the sheet's gradient by the surface's own
    // parameters, the panel's gradient round it as round a sphere, a colour
    // wheel; the cube keeps its shine. In the gallery: the globe's
    // checker round a sphere, the drum's checker round a cylinder, the sign's
    // gradient cropped to its left half and turned by the swap, the bead's
    // reflection.
    Texture2D floor = texture(checker, 2, 8.0f, 1.0f, 8.0f);
    floor.interpolate = 0;  // crisp squares
    Texture2D sign = texture(gradient, 1, 2 * SIGN_HALF[0], 2 * SIGN_HALF[1], 1);
    sign.cropOn = 1;
    const float leftHalf[4] = {0, 100, 0, 100};
    memcpy(sign.crop, leftHalf, sizeof leftHalf);
    sign.swap = 1;
    const std::pair<const char *, Texture2D> textures[] = {
        {"demo-floor", floor},
        {"demo-sky", texture(gradient, 4, 1, 1, 1)},
        {"demo-pinwheel", texture(gradient, 6, 1, 1, 1)},
        {"demo-globe-map", texture(checker, 6, 1, 1, 1)},
        {"demo-band", texture(checker, 5, 1, DRUM_HEIGHT, 1)},
        {"demo-sign-map", sign},
        {"demo-bead-map", texture(gradient, 8, 1, 1, 1)}};
    constexpr int TEXTURES = 7;
    std::string textureFile[TEXTURES];
    for (int i = 0; i < TEXTURES; ++i) {
        textureFile[i] = tdFullName(tdWriteTexture2D(db, textures[i].first, textures[i].second));
        ok = ok && !textureFile[i].empty();
    }

    // A key light at infinity from the upper left, a spot on the floor that
    // lights nothing else, and a warm lamp circling the stage.
    Light spot = light(2, 0.9f, 0.9f, 1.0f, {2.0f, 5.0f, 2.5f}, {2.0f, -1.0f, 2.5f});
    spot.coneAngle = 0.3f;
    const std::pair<const char *, Light> lights[] = {
        {"demo-sun", light(3, 0.75f, 0.75f, 0.7f, {-0.4f, 0.8f, 0.6f})},
        {"demo-spot", spot},
        {"demo-lamp", light(1, 0.8f, 0.55f, 0.3f, {3.0f, 2.5f, 0.0f})}};
    std::string lightFile[3];
    for (int i = 0; i < 3; ++i) {
        lightFile[i] = tdFullName(tdWriteLight(db, lights[i].first, lights[i].second));
        ok = ok && !lightFile[i].empty();
    }

    // Rotation in degrees about y, a full turn over the play range.
    AnimItem *turn = chain({curve(101, 4, FCV_SPLINE, {{1, 0}}),
                            curve(101, 5, FCV_SPLINE, {{1, 0}, {50, 200}, {100, 360}}),
                            curve(101, 6, FCV_SPLINE, {{1, 0}})});
    // Up and down twice a second-and-a-half, repeating past its last key.
    AnimItem *bob = chain({curve(113, 139, FCV_LINEAR, {{1, 3}}),
                           curve(113, 140, FCV_LINEAR, {{1, 0}, {13, 1.5f}, {25, 0}},
                                 FCV_EXTRA_PERIODIC),
                           curve(113, 141, FCV_LINEAR, {{1, 0}})});
    // Steps up, then a flat-tangent ease back down.
    AnimItem *grow = chain({curve(100, 1, FCV_CONSTANT, {{1, 1}, {25, 1.5f}, {50, 2}}),
                            curve(100, 2, FCV_SLOPE0, {{1, 1}, {50, 2}, {100, 1}}),
                            curve(100, 3, FCV_PLATEAU, {{1, 1}, {50, 2}, {75, 2}, {100, 1}})});
    // Round the stage once every hundred frames, at the height of the cube's top.
    AnimItem *circle = chain({curve(2113, 148, FCV_SPLINE, {{1, 3}, {26, 0}, {51, -3}, {76, 0}, {101, 3}},
                                    FCV_EXTRA_PERIODIC, CHP_LIGHTS),
                              curve(2113, 149, FCV_SPLINE, {{1, 2.5f}}, FCV_EXTRA_CONSTANT, CHP_LIGHTS),
                              curve(2113, 150, FCV_SPLINE, {{1, 0}, {26, -3}, {51, 0}, {76, 3}, {101, 0}},
                                    FCV_EXTRA_PERIODIC, CHP_LIGHTS)});
    const std::pair<const char *, AnimItem *> curves[] = {
        {"demo-world", turn}, {"demo-sheet", bob}, {"demo-panel", grow}, {"demo-lamp", circle}};
    std::string curveFile[4];
    for (int i = 0; i < 4; ++i) {
        curveFile[i] = tdFullName(tdWriteAnimation(db, curves[i].first, curves[i].second));
        animItemsFree(curves[i].second);
        ok = ok && !curveFile[i].empty();
    }

    // The glass's diffuse colour: cyan, violet at frame 51, cyan again, over
    // and over; blue stays.
    AnimItem *drift = chain({curve(302, 48, FCV_SPLINE, {{1, 0.6f}, {51, 0.8f}, {101, 0.6f}}, FCV_EXTRA_PERIODIC,
                                   CHP_MATERIALS),
                             curve(302, 49, FCV_SPLINE, {{1, 0.9f}, {51, 0.4f}, {101, 0.9f}}, FCV_EXTRA_PERIODIC,
                                   CHP_MATERIALS),
                             curve(302, 50, FCV_SPLINE, {{1, 1.0f}}, FCV_EXTRA_CONSTANT, CHP_MATERIALS)});
    const std::string glassCurves = tdFullName(tdWriteAnimation(db, "demo-glass", drift));
    animItemsFree(drift);
    ok = ok && !glassCurves.empty();

    // The cameras the viewer looks through: above and in front of the cube,
    // and in front of the gallery.
    Camera eye, visitor;
    const float position[3] = {0.0f, 4.0f, 9.0f}, gallery[3] = {0.0f, 3.0f, 6.0f}, row[3] = {0.0f, 1.2f, -4.5f};
    memcpy(eye.position, position, sizeof position);
    memcpy(visitor.position, gallery, sizeof gallery);
    memcpy(visitor.interest, row, sizeof row);
    eye.fieldOfView = visitor.fieldOfView = 0.7854f;
    const std::string eyeFile = tdFullName(tdWriteCamera(db, "demo-eye", eye));
    const std::string visitorFile = tdFullName(tdWriteCamera(db, "demo-visitor", visitor));
    ok = ok && !eyeFile.empty() && !visitorFile.empty();
    if (!ok) return 1;

    // A model with its material and, when it has one, its texture.
    auto dress = [&](TdScene &scene, int model, int materialIndex, int textureIndex) {
        ok = ok && scene.relate(CHP_MODELS, model, CHP_MATERIALS, scene.add(CHP_MATERIALS, materialFile[materialIndex]), 300);
        if (textureIndex >= 0)
            ok = ok && scene.relate(CHP_MODELS, model, CHP_TEXTURES2D,
                                    scene.add(CHP_TEXTURES2D, textureFile[textureIndex]), 500);
    };
    time_t now = time(nullptr);
    {
        TdScene intro;
        int cube = intro.add(CHP_MODELS, worldFile);
        dress(intro, cube, 3, -1);
        ok = ok && !tdWriteScene(db, "intro", intro, now - 3600).empty();
    }
    {
        // The props in their materials and pictures, by the sun and the lamp.
        // Globe and sign wear paper from two elements, which merge at start-up.
        TdScene shelf;
        int root = shelf.add(CHP_MODELS, propsFile);
        const char *nodes[4] = {"demo-globe.1-0", "demo-drum.1-0", "demo-sign.1-0", "demo-bead.1-0"};
        const int dressing[4][2] = {{4, 3}, {5, 4}, {4, 5}, {6, 6}};  // paper, glass, paper, chrome
        for (int i = 0; i < 4; ++i) {
            int prop = shelf.add(CHP_MODELS, nodes[i], false);
            ok = ok && shelf.relate(CHP_MODELS, prop, CHP_MODELS, root, 110);
            dress(shelf, prop, dressing[i][0], dressing[i][1]);
        }
        for (int i : {0, 2}) shelf.add(CHP_LIGHTS, lightFile[i]);
        shelf.add(CHP_ANIMATION, curveFile[3]);
        shelf.add(CHP_ANIMATION, glassCurves);
        shelf.add(CHP_CAMERAS, visitorFile);
        ok = ok && !tdWriteScene(db, "gallery", shelf, now - 1800).empty();
    }
    {
        // The root names the file; each member names its node.
        TdScene demo;
        int root = demo.add(CHP_MODELS, worldFile);
        int members[3];
        const char *nodes[3] = {"demo-ground.1-0", "demo-sheet.1-0", "demo-panel.1-0"};
        for (int i = 0; i < 3; ++i) {
            members[i] = demo.add(CHP_MODELS, nodes[i], false);
            ok = ok && demo.relate(CHP_MODELS, members[i], CHP_MODELS, root, 110);
        }
        dress(demo, root, 0, -1);
        for (int i = 0; i < 3; ++i) dress(demo, members[i], i + 1, i);
        int light[3];
        for (int i = 0; i < 3; ++i) light[i] = demo.add(CHP_LIGHTS, lightFile[i]);
        ok = ok && demo.relate(CHP_LIGHTS, light[1], CHP_MODELS, members[0], 2200);
        for (const std::string &file : curveFile) demo.add(CHP_ANIMATION, file);
        demo.add(CHP_CAMERAS, eyeFile);
        ok = ok && !tdWriteScene(db, "demo", demo, now).empty();
    }
    {
        // Scenes driven by devices: the cube rides the wave driver's sine
        // from side to side; the pointer steers the camera over the stage.
        TdScene wave;
        int cube = wave.add(CHP_MODELS, worldFile);
        dress(wave, cube, 3, -1);
        wave.add(CHP_CAMERAS, eyeFile);
        ok = ok && !tdWriteScene(db, "wave", wave, now - 1200).empty();
        TdScene steer;
        int root = steer.add(CHP_MODELS, worldFile);
        dress(steer, root, 0, -1);
        steer.add(CHP_CAMERAS, eyeFile);
        ok = ok && !tdWriteScene(db, "steer", steer, now - 600).empty();
        ok = ok && writeChannelSetup(db, "wave", "wave", {"demo-world.transx = 2 * CHN wave.sine + 0"}) &&
             writeChannelSetup(db, "steer", "mouse",
                               {"demo-eye.posx = 8 * CHN mouse.x + -4", "demo-eye.posy = -6 * CHN mouse.y + 7"});
    }
    {
        // The rig: the rider goes round its track at a percentage from a
        // curve, the camera's interest and the arrow follow it, the lamp
        // stands at its lantern.
        Model *rig = makeRig();
        const std::string rigFile = tdFullName(tdWriteModel(db, "rig-set", rig));
        modelFree(rig);
        AnimItem *lap = chain({curve(112, 113, FCV_LINEAR, {{1, 0}, {101, 100}}, FCV_EXTRA_PERIODIC)});
        const std::string lapFile = tdFullName(tdWriteAnimation(db, "rig-rider", lap));
        animItemsFree(lap);
        AnimItem *roll = chain({curve(113, 139, FCV_LINEAR, {{1, -4}, {101, 4}}),
                                curve(113, 140, FCV_LINEAR, {{1, 0.35f}}),
                                curve(113, 141, FCV_LINEAR, {{1, 4}})});
        const std::string rollFile = tdFullName(tdWriteAnimation(db, "rig-wheel", roll));
        animItemsFree(roll);
        // A roll without slip: the turn in degrees is the travel over the radius.
        const std::string spinFile = tdFullName(
            tdWriteExpressions(db, "rig-spin", {{"spin", "wheel.rotz = -this.transx * 180 / (PI * 0.35)"}}));
        ok = ok && !rollFile.empty() && !spinFile.empty();
        Camera watcher;
        const float from[3] = {0.0f, 7.0f, 9.0f};
        memcpy(watcher.position, from, sizeof from);
        const std::string watcherFile = tdFullName(tdWriteCamera(db, "rig-eye", watcher));
        const std::string lampFile =
            tdFullName(tdWriteLight(db, "rig-lamp", light(1, 1.0f, 0.85f, 0.5f, {0.0f, 2.0f, 0.0f})));
        ok = ok && !rigFile.empty() && !lapFile.empty() && !watcherFile.empty() && !lampFile.empty();
        TdScene rigScene;
        int root = rigScene.add(CHP_MODELS, rigFile);
        const char *nodes[5] = {"rig-track.1-0", "rig-rider.1-0", "rig-lantern.1-0", "rig-arrow.1-0", "rig-wheel.1-0"};
        int node[5];
        for (int i = 0; i < 5; ++i) node[i] = rigScene.add(CHP_MODELS, nodes[i], false);
        ok = ok && rigScene.relate(CHP_MODELS, node[0], CHP_MODELS, root, 110) &&
             rigScene.relate(CHP_MODELS, node[1], CHP_MODELS, root, 110) &&
             rigScene.relate(CHP_MODELS, node[2], CHP_MODELS, node[1], 110) &&
             rigScene.relate(CHP_MODELS, node[3], CHP_MODELS, root, 110) &&
             rigScene.relate(CHP_MODELS, node[1], CHP_MODELS, node[0], 112) &&
             rigScene.relate(CHP_MODELS, node[3], CHP_MODELS, node[1], 116) &&
             rigScene.relate(CHP_MODELS, node[4], CHP_MODELS, root, 110);
        dress(rigScene, node[4], 1, -1);
        dress(rigScene, node[1], 0, -1);
        dress(rigScene, node[2], 3, -1);
        dress(rigScene, node[3], 2, -1);
        rigScene.add(CHP_ANIMATION, lapFile);
        rigScene.add(CHP_ANIMATION, rollFile);
        rigScene.add(CHP_EXPRESSIONS, spinFile);
        int eye = rigScene.add(CHP_CAMERAS, watcherFile);
        int lamp = rigScene.add(CHP_LIGHTS, lampFile);
        rigScene.add(CHP_LIGHTS, lightFile[0]);
        ok = ok && rigScene.relate(CHP_CAMERAS, eye, CHP_MODELS, node[1], 1116) &&
             rigScene.relate(CHP_LIGHTS, lamp, CHP_MODELS, node[2], 2111);
        ok = ok && !tdWriteScene(db, "rig", rigScene, now - 300).empty();
    }
    {
        // The figure: the ball goes round a circle in front of the shoulder,
        // the hand is held to it (a position constraint hands the chain its
        // goal), and the blob's key index runs 0, 1, 2 and back each 4 seconds.
        Model *figure = makeFigure();
        const std::string figureFile = tdFullName(tdWriteModel(db, "figure-stage", figure));
        modelFree(figure);
        const float cx = SHOULDER[0] + BALL_CENTRE[0], cy = SHOULDER[1] + BALL_CENTRE[1], r = BALL_RADIUS;
        AnimItem *round = chain({curve(113, 139, FCV_SPLINE, {{1, cx + r}, {31, cx}, {61, cx - r}, {91, cx}, {121, cx + r}},
                                       FCV_EXTRA_PERIODIC),
                                 curve(113, 140, FCV_SPLINE, {{1, cy}, {31, cy + r}, {61, cy}, {91, cy - r}, {121, cy}},
                                       FCV_EXTRA_PERIODIC),
                                 curve(113, 141, FCV_LINEAR, {{1, 0.3f}})});
        const std::string roundFile = tdFullName(tdWriteAnimation(db, "figure-ball", round));
        animItemsFree(round);
        AnimItem *cycle = chain({curve(200, 201, FCV_LINEAR, {{1, 0}, {31, 1}, {61, 2}, {91, 1}, {121, 0}},
                                       FCV_EXTRA_PERIODIC)});
        const std::string cycleFile = tdFullName(tdWriteAnimation(db, "figure-blob", cycle));
        animItemsFree(cycle);
        ShapeKey keys[3] = {{MODEL_MESH, makeBlobKey(1.0f)}, {MODEL_MESH, makeBlobKey(1.7f)},
                            {MODEL_MESH, makeBlobKey(0.6f)}};
        ShapeKeys blobKeys{3, keys};
        const std::string keysFile = tdFullName(tdWriteShapes(db, "figure-blobkeys", blobKeys));
        for (ShapeKey &k : keys) meshFree(static_cast<Mesh *>(k.geometry));
        Camera front;
        const float from[3] = {0.0f, 1.5f, 8.0f};
        memcpy(front.position, from, sizeof from);
        const std::string frontFile = tdFullName(tdWriteCamera(db, "figure-eye", front));
        ok = ok && !figureFile.empty() && !roundFile.empty() && !cycleFile.empty() && !keysFile.empty() &&
             !frontFile.empty();
        TdScene scene;
        const int stage = scene.add(CHP_MODELS, figureFile);
        const char *names[] = {"figure-arm.1-0",  "figure-shoulder.1-0", "figure-elbow.1-0", "figure-hand.1-0",
                               "figure-ball.1-0", "figure-sleeve.1-0",   "figure-blob.1-0"};
        enum { ARM, SHOULDER_NODE, ELBOW, HAND, BALL, SLEEVE, BLOB, NODES };
        int node[NODES];
        for (int i = 0; i < NODES; ++i) node[i] = scene.add(CHP_MODELS, names[i], false);
        const int parent[NODES] = {stage, node[ARM], node[SHOULDER_NODE], node[ELBOW], stage, stage, stage};
        for (int i = 0; i < NODES; ++i) ok = ok && scene.relate(CHP_MODELS, node[i], CHP_MODELS, parent[i], 110);
        ok = ok && scene.relate(CHP_MODELS, node[HAND], CHP_MODELS, node[BALL], 111) &&
             scene.relate(CHP_MODELS, node[SLEEVE], CHP_MODELS, node[ARM], 206);
        const int blobKeysElement = scene.add(CHP_SHAPES, keysFile);
        ok = ok && scene.relate(CHP_MODELS, node[BLOB], CHP_SHAPES, blobKeysElement, 200);
        dress(scene, node[BALL], 0, -1);
        dress(scene, node[SLEEVE], 3, -1);
        dress(scene, node[BLOB], 1, -1);
        scene.add(CHP_ANIMATION, roundFile);
        scene.add(CHP_ANIMATION, cycleFile);
        scene.add(CHP_CAMERAS, frontFile);
        scene.add(CHP_LIGHTS, lightFile[0]);
        ok = ok && !tdWriteScene(db, "figure", scene, now - 150).empty();
    }
    {
        // Deformers: the ball's lattice swings between its rest cage and a
        // spread one (keyed deformation, 2 seconds a cycle), the tube slides
        // along the S, the sheet lies over the hill and a wave crosses the
        // pond from its middle. The setup file gives the play range, a violet
        // ambient and two-sided lighting.
        Model *stage = makeDeformStage();
        const std::string stageFile = tdFullName(tdWriteModel(db, "deform-stage", stage));
        modelFree(stage);
        Lattice *cage = makeCage();
        const std::string cageFile = tdFullName(tdWriteLattice(db, "deform-cage", *cage));
        latticeFree(cage);
        AnimItem *swing = chain({curve(211, 211, FCV_LINEAR, {{1, 0}, {31, 1}, {61, 0}}, FCV_EXTRA_PERIODIC)});
        const std::string swingFile = tdFullName(tdWriteAnimation(db, "deform-block", swing));
        animItemsFree(swing);
        AnimItem *slide = chain({curve(230, 112, FCV_LINEAR, {{1, 0.0f}, {61, 0.6f}, {121, 0.0f}}, FCV_EXTRA_PERIODIC),
                                 curve(230, 113, FCV_LINEAR, {{1, 0.4f}})});
        const std::string slideFile = tdFullName(tdWriteAnimation(db, "deform-tube", slide));
        animItemsFree(slide);
        Wave *ripple = waveNew("ripple");
        ripple->value[WAVE_AMPLITUDE] = 0.25f;
        ripple->value[WAVE_WAVELENGTH] = 2.0f;
        ripple->value[WAVE_SPEED] = 1.5f;
        ripple->value[WAVE_DAMPING] = 0.15f;
        ripple->transfo->translation[0] = POND_AT[0] + POND_SCALE * POND_QUADS / 2;
        ripple->transfo->translation[2] = POND_AT[2] + POND_SCALE * POND_QUADS / 2;
        const std::string rippleFile = tdFullName(tdWriteWave(db, "deform-ripple", *ripple));
        waveFree(ripple);
        SceneSetup settings;
        settings.firstFrame = 1;
        settings.lastFrame = 120;
        settings.frameRate = 30.0f;
        settings.playGiven = 1;
        const float violet[3] = {0.35f, 0.3f, 0.45f};
        memcpy(settings.ambient, violet, sizeof violet);
        settings.twoSided = 1;
        const std::string settingsFile = tdFullName(tdWriteSetup(db, "deform-look", settings));
        Camera wide;
        const float from[3] = {0.0f, 5.0f, 13.0f}, to[3] = {0.0f, 0.5f, -2.0f};
        memcpy(wide.position, from, sizeof from);
        memcpy(wide.interest, to, sizeof to);
        const std::string wideFile = tdFullName(tdWriteCamera(db, "deform-eye", wide));
        ok = ok && !stageFile.empty() && !cageFile.empty() && !swingFile.empty() && !slideFile.empty() &&
             !rippleFile.empty() && !settingsFile.empty() && !wideFile.empty();
        TdScene scene;
        const int top = scene.add(CHP_MODELS, stageFile);
        const char *names[] = {"deform-block.1-0", "deform-path.1-0",  "deform-tube.1-0",
                               "deform-hill.1-0",  "deform-sheet.1-0", "deform-pond.1-0"};
        enum { BLOCK, PATH, TUBE, HILL, SHEET, POND, NODES };
        int node[NODES];
        for (int i = 0; i < NODES; ++i) {
            node[i] = scene.add(CHP_MODELS, names[i], false);
            ok = ok && scene.relate(CHP_MODELS, node[i], CHP_MODELS, top, 110);
        }
        ok = ok && scene.relate(CHP_MODELS, node[BLOCK], CHP_LATTICES, scene.add(CHP_LATTICES, cageFile), 210) &&
             scene.relate(CHP_MODELS, node[TUBE], CHP_MODELS, node[PATH], 245) &&
             scene.relate(CHP_MODELS, node[SHEET], CHP_MODELS, node[HILL], 245) &&
             scene.relate(CHP_MODELS, node[POND], CHP_WAVES, scene.add(CHP_WAVES, rippleFile), 600);
        dress(scene, node[BLOCK], 0, -1);
        dress(scene, node[TUBE], 3, -1);
        dress(scene, node[HILL], 1, -1);
        dress(scene, node[SHEET], 2, -1);
        dress(scene, node[POND], 1, -1);
        scene.add(CHP_ANIMATION, swingFile);
        scene.add(CHP_ANIMATION, slideFile);
        scene.add(CHP_CAMERAS, wideFile);
        scene.add(CHP_LIGHTS, lightFile[0]);
        scene.add(CHP_SETUP_BRAK, settingsFile);
        ok = ok && !tdWriteScene(db, "deform", scene, now - 120).empty();
    }
    {
        // "facade": a tower seen level from eye height through a shifted
        // film back, as an architect's camera sees it: the film slides up
        // instead of the camera tilting, so the top shows and the sides stay
        // upright. A plain lens level at the same place cuts the top off.
        // The shape is in the mesh itself: a mesh's scaling is drawn on top
        // of its global matrix once more.
        Mesh *block = meshMakeCube(1.0f);
        const float size[3] = {1.5f, 5.0f, 1.5f}, at[3] = {0.0f, 2.5f, 0.0f};
        for (int i = 0; i < block->vertexCount; ++i)
            for (int k = 0; k < 3; ++k) block->vertices[i].pos[k] *= size[k];
        Model *tower = modelNew("facade-tower", MODEL_MESH, block);
        memcpy(tower->translation, at, sizeof at);
        const std::string towerFile = tdFullName(tdWriteModel(db, "facade-tower", tower));
        modelFree(tower);
        Camera level;
        const float from[3] = {0.0f, 1.5f, 9.0f}, to[3] = {0.0f, 1.5f, 0.0f};
        memcpy(level.position, from, sizeof from);
        memcpy(level.interest, to, sizeof to);
        const float lens[5] = {35.0f, 36.0f, 24.0f, 0.0f, 8.0f};  // focal length, film width and height, shifts (mm)
        memcpy(level.lens, lens, sizeof lens);
        level.filmWidth = lens[1];
        level.offsetLens = 1;
        const std::string levelFile = tdFullName(tdWriteCamera(db, "facade-eye", level));
        ok = ok && !towerFile.empty() && !levelFile.empty();
        TdScene scene;
        dress(scene, scene.add(CHP_MODELS, towerFile), 3, -1);
        scene.add(CHP_CAMERAS, levelFile);
        scene.add(CHP_LIGHTS, lightFile[0]);
        ok = ok && !tdWriteScene(db, "facade", scene, now - 100).empty();
    }
    ok = ok && writeMatteScene(db, now - 90);
    if (!ok) return 1;
    printf("Demo database written to %s\n", dbPath.c_str());
    return 0;
}
