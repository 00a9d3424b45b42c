// bwdemo OUTDIR: writes the demo database through our own writers.
//
// OUTDIR/DatabaseDir.rsrc names the database "demo", OUTDIR/demo holds its
// chapters: one model file with a small hierarchy of every surface kind the
// display handles, a few stand-alone materials of clearly different colours,
// and two scenes: "intro", the older, shows the cube alone; "demo", the
// newest, the whole hierarchy with a material on each model, animated: the
// cube turns on a spline and its children turn with it, the sheet bobs up and
// down along a linear curve that repeats, the panel grows in steps and
// eases back; its camera looks at the cube from above and in front. The viewer picks "demo" when no scene is named.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>

#include "testdata.h"

namespace {

// A cube at the root; a patch, a NURBS surface and a face around it.
Model *makeWorld() {
    Model *root = modelNew("world", MODEL_MESH, meshMakeCube(2.0f));
    Model *ground = modelNew("ground", MODEL_PATCH, patchMakeGrid(4, 4, 8.0f));
    ground->translation[1] = -1.0f;
    Model *sheet = modelNew("sheet", MODEL_NURBS_SURFACE, nurbsSurfaceMakePlane(2.0f));
    sheet->translation[0] = 3.0f;
    sheet->rotation[0] = 1.5707964f;
    Model *panel = modelNew("panel", MODEL_FACE, faceMakeSquare(2.0f, 1));
    panel->translation[0] = -3.0f;
    for (Model *child : {ground, sheet, panel}) modelAddChild(root, child);
    return root;
}

struct Key {
    float frame;
    float value;
};

// A curve of `type` through keys given in frames of the demo's 30 frames a second.
AnimItem *curve(int32_t relid, int32_t type, int16_t interpolation, std::initializer_list<Key> keys,
                int16_t post = FCV_EXTRA_CONSTANT) {
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
    *item = AnimItem{c, relid, CHP_MODELS, 0, 1, nullptr};
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

Material colouredMaterial(const char *name, float r, float g, float b) {
    Material m;
    m.name = name;
    const float diffuse[3] = {r, g, b};
    for (int k = 0; k < 3; ++k) {
        m.diffuse[k] = diffuse[k];
        m.ambient[k] = diffuse[k] * 0.3f;
    }
    return m;
}

}  // namespace

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

    Model *world = makeWorld();
    std::string worldFile = tdFullName(tdWriteModel(db, "demo-world", world));
    modelFree(world);
    bool ok = !worldFile.empty();
    const Material materials[] = {colouredMaterial("red", 0.9f, 0.1f, 0.1f),
                                  colouredMaterial("green", 0.1f, 0.8f, 0.2f),
                                  colouredMaterial("blue", 0.1f, 0.2f, 0.9f),
                                  colouredMaterial("gold", 0.9f, 0.7f, 0.1f)};
    std::string materialFile[4];
    for (int i = 0; i < 4; ++i) {
        materialFile[i] = tdFullName(tdWriteMaterial(db, "demo-" + materials[i].name, materials[i]));
        ok = ok && !materialFile[i].empty();
    }
    if (!ok) return 1;

    time_t now = time(nullptr);
    {
        TdScene intro;
        int cube = intro.add(CHP_MODELS, worldFile);
        int gold = intro.add(CHP_MATERIALS, materialFile[3]);
        ok = intro.relate(CHP_MODELS, cube, CHP_MATERIALS, gold, 300) &&
             !tdWriteScene(db, "intro", intro, now - 3600).empty();
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
        int material[4];
        for (int i = 0; i < 4; ++i) material[i] = demo.add(CHP_MATERIALS, materialFile[i]);
        ok = ok && demo.relate(CHP_MODELS, root, CHP_MATERIALS, material[0], 300);
        for (int i = 0; i < 3; ++i)
            ok = ok && demo.relate(CHP_MODELS, members[i], CHP_MATERIALS, material[i + 1], 300);

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
        const std::pair<const char *, AnimItem *> files[] = {
            {"demo-world", turn}, {"demo-sheet", bob}, {"demo-panel", grow}};
        for (const auto &[name, items] : files) {
            std::string file = tdFullName(tdWriteAnimation(db, name, items));
            animItemsFree(items);
            ok = ok && !file.empty();
            if (ok) demo.add(CHP_ANIMATION, file);
        }
        // The camera the viewer looks through: above and in front of the cube.
        Camera eye;
        const float position[3] = {0.0f, 4.0f, 9.0f};
        memcpy(eye.position, position, sizeof position);
        eye.fieldOfView = 0.7854f;
        std::string eyeFile = tdFullName(tdWriteCamera(db, "demo-eye", eye));
        ok = ok && !eyeFile.empty();
        if (ok) demo.add(CHP_CAMERAS, eyeFile);
        ok = ok && !tdWriteScene(db, "demo", demo, now).empty();
    }
    if (!ok) return 1;
    printf("Demo database written to %s\n", dbPath.c_str());
    return 0;
}
