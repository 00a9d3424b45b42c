// bwdemo OUTDIR: writes the demo database through our own writers.
//
// OUTDIR/DatabaseDir.rsrc names the database "demo", OUTDIR/demo holds its
// chapters: one model file with a small hierarchy of every surface kind the
// display handles, a few stand-alone materials of clearly different colours,
// and two scenes: "intro", the older, shows the cube alone; "demo", the
// newest, the whole hierarchy with a material on each model. The viewer picks
// "demo" when no scene is named.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
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
        ok = ok && !tdWriteScene(db, "demo", demo, now).empty();
    }
    if (!ok) return 1;
    printf("Demo database written to %s\n", dbPath.c_str());
    return 0;
}
