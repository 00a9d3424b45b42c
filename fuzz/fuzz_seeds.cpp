// Writes the seed corpus of the fuzz targets with our own writers.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "camera.h"
#include "animation.h"
#include "fileio.h"
#include "model.h"

namespace {

void writeFrame(const std::string &path, const Prototype *proto) {
    BinWriter w;
    if (!binWriterOpen(w, path.c_str())) return;
    binWriteFileStart(w, BIN_ID_GENERAL, 4.0f, "seed", proto, "HRCH");
    TokenCursor cur;
    const float pos[3] = {1, 2, 3};
    binWriteBegin(w, proto, 12, cur);
    binWriteToken(w, cur, 0x0001), binWriteStr(w, "node");
    binWriteToken(w, cur, 0x0C02), binWriteFloats(w, pos, 3);
    binWriteToken(w, cur, 0x0203), binWriteU16(w, 7);
    binWriteEnd(w, cur);
    binWriterClose(w);
}

// A root with one child of every geometry type, so that each record reader
// has a seed to start from.
Model *makeModelTree() {
    Model *root = modelNew("root", MODEL_MESH, meshMakeCube(1.0f));
    root->translation[1] = 2.0f;
    modelAddChild(root, modelNew("patch", MODEL_PATCH, patchMakeGrid(3, 3, 1.0f)));
    modelAddChild(root, modelNew("face", MODEL_FACE, faceMakeSquare(1.0f, 1)));
    modelAddChild(root, modelNew("spline", MODEL_SPLINE, splineMakeSquare(1.0f)));
    modelAddChild(root, modelNew("curve", MODEL_NURBS_CURVE, nurbsCurveMakeLine(2.0f)));
    modelAddChild(root, modelNew("surface", MODEL_NURBS_SURFACE, nurbsSurfaceMakePlane(1.0f)));
    modelAddChild(root, modelNew("meta", MODEL_META, calloc(1, sizeof(MetaGroup))));
    modelAddChild(root, modelNew("ref", MODEL_REF, calloc(1, sizeof(ModelRef))));
    modelAddChild(root->firstChild, modelNew("bare", MODEL_BARE, nullptr));
    return root;
}

void writeModels(const std::string &dir) {
    Model *root = makeModelTree();
    modelFileWritePath((dir + "/model.hrc").c_str(), root);
    // Files of older writers carry every token instead of a table.
    BinWriter w;
    if (binWriterOpen(w, (dir + "/model_tokens.hrc").c_str())) {
        modelFileWriteForm(w, root, 0);
        binWriterClose(w);
    }
    modelFree(root);
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc != 2) {
        fprintf(stderr, "Usage: %s DIR\n", argv[0]);
        return 2;
    }
    std::string dir = argv[1];
    writeFrame(dir + "/tagged.bin", nullptr);
    Prototype *proto = protoNew();
    const uint16_t list[] = {0x0001, 0x0C02, 0x0203};
    protoSet(*proto, 12, list, 3);
    writeFrame(dir + "/prototyped.bin", proto);
    protoFree(proto);
    writeModels(dir);
    if (FILE *f = fopen((dir + "/scene.dsc").c_str(), "wb")) {
        fputs("SDSC 3.6\nCHAPTER SCENES\n", f);
        fclose(f);
    }
    // A scene with every kind of statement, and a relation file of both forms.
    if (FILE *f = fopen((dir + "/full.dsc").c_str(), "wb")) {
        fputs("SDSC 4.0\nELEMENTS\nCHAPTER MODELS NBELEM 3 a.1-0 ROOT ; b.1-0 ALIAS x ; c.1-0 ;\n"
              "EndOfCHAPTER\nCHAPTER MATERIALS NBELEM 1 m.1-0 ; EndOfCHAPTER\nEndOfELEMENTS\n"
              "RELATIONS\nCHAPTER MODELS CHAPTER MODELS\n1 0 110 ;\n2 0 551 4 NOTACT ;\n"
              "0 1 111 RELDATA MIN_LIMIT 1 2 3 DAMPING 0.5 EndOfRELDATA SUBREL 1 ELEM 2 ; "
              "EndOfSUBREL ;\n0 1 20000 RELDATA ENAME 'e' MNAME '1' AOCC 1 EndOfRELDATA ;\n"
              "EndOfCHAPTER\nCHAPTER MODELS CHAPTER MATERIALS 0 0 300 ; EndOfCHAPTER\n"
              "EndOfRELATIONS\nENVIRONMENT\nCHAPTER MODELS 0 SCHEM 1 2 3 SRT 1 1 1 0 0 0 1 2 3 "
              "USR WIRECOL 2 ; EndOfCHAPTER\nPLAYCTRL FRAME 1 50 1 1 PAUSE 0 RATE 24 "
              "EndOfPLAYCTRL\nEndOfENVIRONMENT\n", f);
        fclose(f);
    }
    // A setup file with a group of every section and an unknown keyword.
    if (FILE *f = fopen((dir + "/setup.sts").c_str(), "wb")) {
        fputs("SSET 3.0\nPLAYCTRL FRAME 1 90 1 1 PAUSE 0 RATE 24 EndOfPLAYCTRL\nSHOW_FLAG 1\n"
              "PREFERENCE 2 AUTO_SAVE_ACTIVE ACTIVE AUTO_SAVE_PERIOD 5 WINDOW_TYPE L0_TOP\n"
              "CAMERA_POSITION 1 2 3 RENDERING_TYPE GHOST FORMAT_TYPE NTSC ODD_WORD 'x' 1\n"
              "AMBIENT_COLOR 0.1 0.2 0.3 TWO_SIDED_LIGHTING 1 TEXTURE_PXL_INTERPOLATION_MODE ALWAYS_ON\n"
              "BLENDING 1 TXT_DPY_TILING 1 TXT_DPY_MIRROR 1 PRW_GLOBALS 3 NOT_A_GLOBAL UDF_NAME a\n"
              "AUDIOTRACK t.aiff\n", f);
        fclose(f);
    }
    // Expressions: every operator, leaf form and function once.
    const char *const kExpressions[] = {
        "cube.G.rotz += -Fc * 2 % 3 / (1 + T) - PI * E",
        "= \"abc\" LIKE \"b\" || MOD == CAM && !FALSE != TRUE <= 1 >= 0 < 2 > 1",
        "MOD cube.L.transx = cond(Fs < Fe, rand_0_1(3), RAND(-, -1.5, 2.5)) + randBool() + RAND(2, 1, 9)",
        "= sin(1) + cos(2) + tan(90) + asin(2) + acos(1) + atan(1) + log(0) + exp(1) + abs(-1) + sqrt(-1)",
        "= pow(0, 0) + MIN( + MAX(1, 2) + av(3) + at_time(1, a.transx) + at_frame(2, a.transx)",
        "= ctr_dist(a.transx, b.transx) + ctr_dist_cam(a.transx) + ctr_dist_cam_int(a.transx) + sinus(10, 2)",
        "= oscil(1, 9, 2, 4, 1, 1, 3, 2) + ease_in(1, 9, 1) + ease_out(1, 9, 2) + noise(1.5, 2e-3, .5)",
        "CHN mouse.x -= fmod(7, 2) * has_relation(a.transx, 20011, FORWARD) + LinearInterp + SplineInterp",
    };
    for (size_t i = 0; i < sizeof kExpressions / sizeof kExpressions[0]; ++i)
        if (FILE *f = fopen((dir + "/expr" + std::to_string(i) + ".txt").c_str(), "wb")) {
            fputs(kExpressions[i], f);
            fclose(f);
        }
    // A picture with alpha, both packings.
    {
        uint8_t planes[4][24];
        for (int k = 0; k < 4; ++k)
            for (int i = 0; i < 24; ++i) planes[k][i] = static_cast<uint8_t>(i < 10 ? k : i * k);
        PictureInfo pic{};
        pic.width = 6;
        pic.height = 4;
        for (int k = 0; k < 4; ++k) pic.planes[k] = planes[k];
        picWriteImage((dir + "/runs.pic").c_str(), &pic, PIC_WRITE_RUNS);
        picWriteImage((dir + "/planes.pic").c_str(), &pic, PIC_WRITE_PLANES);
    }
    // A camera, a light and a lattice of two points.
    {
        Camera camera;
        camera.roll = 0.25f;
        cameraFileWrite((dir + "/eye.cam").c_str(), camera, "seed");
        Light light;
        light.type = 2;
        lightFileWrite((dir + "/lamp.lig").c_str(), light, "seed");
        float points[2][3] = {{0, 0, 0}, {1, 1, 1}};
        LatticeKey key{};
        key.divisions[0] = 2;
        key.divisions[1] = key.divisions[2] = 1;
        key.pointCount = 2;
        key.points = points;
        Lattice lattice{};
        lattice.keyCount = 1;
        lattice.keys = &key;
        latticeFileWrite((dir + "/cage.lat").c_str(), lattice, "seed");
    }
    // Shape keys of a cube and a cluster of two of its corners with two keys.
    {
        ShapeKey keys[2] = {{MODEL_MESH, meshMakeCube(1.0f)}, {MODEL_MESH, meshMakeCube(2.0f)}};
        ShapeKeys shapes{2, keys};
        shapeFileWrite((dir + "/cube.shp").c_str(), &shapes);
        for (ShapeKey &k : keys) meshFree(static_cast<Mesh *>(k.geometry));
        int32_t indexes[2] = {1, 5};
        float offsets[12] = {1, 0, 0, 0, 2, 0, 3, 0, 0, 0, 0, 4};
        Cluster cluster{};
        cluster.type = MODEL_MESH;
        cluster.pointCount = 2;
        cluster.indexes = indexes;
        cluster.keyCount = 2;
        cluster.keys = offsets;
        clusterFileWrite((dir + "/corners.cls").c_str(), &cluster);
    }
    // A planar one-shot wave on a turned transform object.
    if (Wave *wave = waveNew("ripple")) {
        wave->value[WAVE_PLANAR] = 1;
        wave->value[WAVE_ONE_SHOT] = 1;
        wave->value[WAVE_DAMPING] = 0.25f;
        wave->value[WAVE_DIRECTION] = 30;
        wave->transfo->rotation[1] = 0.5f;
        wave->transfo->translation[0] = 2;
        waveFileWrite((dir + "/ripple.wav").c_str(), *wave);
        waveFree(wave);
    }
    if (FILE *f = fopen((dir + "/relations.rsrc").c_str(), "wb")) {
        fputs("SREL 3.48\nRELATIONS\n110 parent MODELS MODELS TRANSFO TRANSFO 10 1 0 1 1 0\n"
              "EndOfRELATIONS\n", f);
        fclose(f);
    }
    if (FILE *f = fopen((dir + "/sections.rsrc").c_str(), "wb")) {
        fputs("SREL 3.5\nRELATIONS\n110 parent MODELS MODELS TRANSFO TRANSFO 10 1 0 1 1 0\n"
              "EndOfRELATIONS\n", f);
        fclose(f);
    }
    // A channel setup with every kind of line, and a driver configuration.
    if (FILE *f = fopen((dir + "/setup.chn").c_str(), "wb")) {
        fputs("SCHN 3.51\nCHANNELS   3.51\nBrackwood Studio Environment\n# title\nFAST_INPUT OFF\n"
              "CAPTURE ON\nCONTROL OFF\nTAKE_REC /tmp shot\nFRAMERATE ON\nDRIVER_SYNC ON\n"
              "DRIVER ON wave 2\nREMOTE 0 DRIVER_EMPTY_STRING\tDEFAULT_DRIVER_LOCATION\n"
              "RUNMODE FREQUENCY 60.0000\nCHANNEL 0 0.5 2 1 -1 ON I IN sine\n"
              "CHANNEL 1 0 1 9999 -9999 OFF O OUT\nITEM MODEL \"cube.ty = 2 * CHN wave.sine + 0.5\"\n"
              "CALIBRATE\n   ON OFF 0 0 0\n", f);
        fclose(f);
    }
    if (FILE *f = fopen((dir + "/driver.drv").c_str(), "wb")) {
        fputs("CHANNEL_DRIVER 1.0\nDOF_NUM 2\nDOF_NAME 0 sine\nDOF_TYPE 0 I ON\nDOF_TYPE 1 O OFF\n"
              "ERROR_NUM 1\nERROR 0 no device\n_END\n", f);
        fclose(f);
    }
    return 0;
}
