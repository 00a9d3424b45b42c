// The exporter on the demo database: each scene written, read back with the
// glTF loader and compared with the layer's own numbers: node names and
// hierarchy, vertex counts of the tessellation, and every animation sample
// against the evaluated global matrices. Then bwexport as a program, and the
// glTF validator where Node and its package are installed.
#include <gtest/gtest.h>
#include <tiny_gltf.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "capture.h"
#include "dictionary.h"
#include "export.h"
#include "graphic.h"
#include "model.h"
#include "run_viewer.h"
#include "tol.h"

namespace {

const char *const demoScenes[] = {"demo", "intro", "gallery", "wave", "steer", "rig", "figure", "deform", "facade"};

struct SceneEval {
    TOL_Scene *scene;
    float rate;
};

int evalFrame(void *user, int32_t frame) {
    auto *e = static_cast<SceneEval *>(user);
    return TOL_updatelistEvalScene(e->scene, static_cast<float>(frame) / e->rate) != 0;
}

using Mat = std::array<double, 16>;  // row-vector form, translation in the fourth row

Mat multiply(const Mat &a, const Mat &b) {
    Mat out{};
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k)
            for (int j = 0; j < 4; ++j) out[i * 4 + k] += a[i * 4 + j] * b[j * 4 + k];
    return out;
}

// The row-vector matrix of a glTF translation, rotation and scale.
Mat trs(const double *t, const double *q, const double *s) {
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    // Column form of the quaternion, transposed into rows.
    const double c[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    Mat m{};
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) m[i * 4 + k] = c[k][i] * s[i];
        m[12 + i] = t[i];
    }
    m[15] = 1.0;
    return m;
}

template <typename T>
const T *accessorData(const tinygltf::Model &g, int index) {
    const tinygltf::Accessor &a = g.accessors[static_cast<size_t>(index)];
    const tinygltf::BufferView &v = g.bufferViews[static_cast<size_t>(a.bufferView)];
    return reinterpret_cast<const T *>(g.buffers[static_cast<size_t>(v.buffer)].data.data() + v.byteOffset +
                                       a.byteOffset);
}

class Export : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = new bwtest::TempDir;
        bwtest::RunResult made = bwtest::runProgram(BW_BWDEMO_BIN, {dir->path()}, dir->path());
        ASSERT_EQ(made.status, 0) << made.err;
        ASSERT_EQ(TOL_Init(BW_RSRC_DIR, 0, TOL_SDK_VERSION), 0);
        ASSERT_EQ(TOL_databaseLoad((dir->path() + "/demo").c_str(), &db), 0);
    }
    static void TearDownTestSuite() { delete dir; }

    // Loads a scene, exports it and reads the file back; then loads it
    // afresh, so that the test's frames are evaluated from the same start as
    // the export's (a chain's solve starts from its last pose).
    void exportScene(const char *name, tinygltf::Model *back) {
        load(name);
        exportLoaded(name, back);
        load(name);
    }
    void load(const char *name) {
        ASSERT_EQ(TOL_sceneCreate(&scene), 0);
        ASSERT_EQ(TOL_sceneSetCurrent(&scene), 0);
        ASSERT_EQ(TOL_sceneLoad(&db, name, &scene), 0);
        ASSERT_EQ(TOL_updatelistGet(&scene), 0);
        const TOL_PlayCtrl *play = tol_sidPlayCtrl(&scene);
        eval = {&scene, play->framesPerSecond > 0 ? play->framesPerSecond : 30.0f};
        source.dict = dict = dictGet(static_cast<int>(scene.dict));
        source.firstFrame = play->startFrame;
        source.lastFrame = play->endFrame;
        source.frameRate = eval.rate;
        source.eval = evalFrame;
        source.user = &eval;
    }
    void exportLoaded(const char *name, tinygltf::Model *back) {
        const std::string path = dir->path() + "/" + name + ".glb";
        std::string error;
        bwtest::StreamCapture err(stderr);
        ASSERT_EQ(exportGltf(source, path.c_str(), ExportOptions{}, &summary, &error), 0) << error;
        dropped = err.text();
        tinygltf::TinyGLTF loader;
        std::string warn;
        ASSERT_TRUE(loader.LoadBinaryFromFile(back, &error, &warn, path)) << error;
    }

    static bwtest::TempDir *dir;
    static TOL_Database db;
    TOL_Scene scene{};
    SceneEval eval{};
    ExportSource source;
    ExportSummary summary;
    Dictionary *dict = nullptr;
    std::string dropped;
};

bwtest::TempDir *Export::dir = nullptr;
TOL_Database Export::db = 0;

// Node of each name.
std::map<std::string, int> nodesByName(const tinygltf::Model &g) {
    std::map<std::string, int> out;
    for (size_t i = 0; i < g.nodes.size(); ++i) out[g.nodes[i].name] = static_cast<int>(i);
    return out;
}

}  // namespace

TEST_F(Export, ModelsKeepTheirNamesHierarchyAndTessellation) {
    for (const char *name : demoScenes) {
        SCOPED_TRACE(name);
        tinygltf::Model g;
        load(name);
        exportLoaded(name, &g);  // the models keep the export's tessellation
        const auto byName = nodesByName(g);
        Chapter *models = dictChapter(dict, CHP_MODELS);
        ASSERT_NE(models, nullptr);
        int64_t vertices = 0;
        for (int32_t i = 0; i < models->elementCount; ++i) {
            const Element &e = models->elements[i];
            const Model *m = static_cast<const Model *>(e.data);
            if (e.deleted != ELEM_LIVE || !m) continue;
            const std::string elemName = e.name->prefix.empty() ? e.name->name : e.name->prefix + "-" + e.name->name;
            ASSERT_EQ(byName.count(elemName), 1u) << elemName;
            const tinygltf::Node &node = g.nodes[static_cast<size_t>(byName.at(elemName))];
            // Children by name, in the model's order.
            std::vector<std::string> want, have;
            for (const Model *c = m->firstChild; c; c = c->nextSibling) {
                const Element *ce = elemGet(dict, CHP_MODELS, c->elementIndex);
                want.push_back(ce && ce->name ? (ce->name->prefix.empty() ? ce->name->name
                                                                          : ce->name->prefix + "-" + ce->name->name)
                                              : c->name);
            }
            for (int c : node.children) have.push_back(g.nodes[static_cast<size_t>(c)].name);
            EXPECT_EQ(have, want) << elemName;
            // Every primitive of the mesh carries the tessellation's vertices,
            // or, deformed past a split of its vertices, a vertex a corner.
            if (m->triangleCount > 0) {
                ASSERT_GE(node.mesh, 0) << elemName;
                const tinygltf::Mesh &mesh = g.meshes[static_cast<size_t>(node.mesh)];
                const bool corners = !mesh.weights.empty() &&
                                     g.accessors[static_cast<size_t>(mesh.primitives[0].attributes.at("POSITION"))]
                                             .count == static_cast<size_t>(m->triangleCount) * 3;
                const size_t count = static_cast<size_t>(corners ? m->triangleCount * 3 : m->vertexCount);
                vertices += static_cast<int64_t>(count) - m->vertexCount;
                for (const tinygltf::Primitive &p : mesh.primitives) {
                    EXPECT_EQ(g.accessors[static_cast<size_t>(p.attributes.at("POSITION"))].count, count);
                    EXPECT_EQ(g.accessors[static_cast<size_t>(p.attributes.at("NORMAL"))].count, count);
                }
            } else {
                EXPECT_EQ(node.mesh, -1) << elemName;
            }
        }
        // Over whole trees: nodes without elements of their own are written too.
        for (int32_t i = 0; i < models->elementCount; ++i) {
            const Model *root = static_cast<const Model *>(models->elements[i].data);
            if (models->elements[i].deleted != ELEM_LIVE || !root || root->parent) continue;
            for (const Model *m = root; m; m = modelTreeNext(m, root))
                if (m->triangleCount > 0) vertices += m->vertexCount;
        }
        EXPECT_EQ(summary.vertices, vertices);
    }
}

TEST_F(Export, EveryAnimationSampleIsTheLayersGlobalMatrixAtItsFrame) {
    int channelsSeen = 0;
    for (const char *name : demoScenes) {
        SCOPED_TRACE(name);
        tinygltf::Model g;
        exportScene(name, &g);
        const int frames = source.lastFrame - source.firstFrame + 1;
        // Each node's local matrix at every frame: the rest pose, replaced
        // by the channels' samples.
        std::vector<std::vector<std::array<double, 10>>> local(g.nodes.size());
        for (size_t i = 0; i < g.nodes.size(); ++i) {
            const tinygltf::Node &n = g.nodes[i];
            std::array<double, 10> rest{};
            for (int k = 0; k < 3; ++k) rest[k] = n.translation[static_cast<size_t>(k)];
            for (int k = 0; k < 4; ++k) rest[3 + k] = n.rotation[static_cast<size_t>(k)];
            for (int k = 0; k < 3; ++k) rest[7 + k] = n.scale[static_cast<size_t>(k)];
            local[i].assign(static_cast<size_t>(frames), rest);
        }
        for (const tinygltf::Animation &a : g.animations)
            for (const tinygltf::AnimationChannel &c : a.channels) {
                if (c.target_path == "weights") continue;  // points, not the node's matrix
                ++channelsSeen;
                const tinygltf::AnimationSampler &s = a.samplers[static_cast<size_t>(c.sampler)];
                ASSERT_EQ(g.accessors[static_cast<size_t>(s.input)].count, static_cast<size_t>(frames));
                const float *times = accessorData<float>(g, s.input);
                EXPECT_NEAR(times[1] - times[0], 1.0 / eval.rate, 1e-6);
                const float *values = accessorData<float>(g, s.output);
                const int at = c.target_path == "translation" ? 0 : c.target_path == "rotation" ? 3 : 7;
                const int count = at == 3 ? 4 : 3;
                for (int f = 0; f < frames; ++f)
                    for (int k = 0; k < count; ++k)
                        local[static_cast<size_t>(c.target_node)][static_cast<size_t>(f)][static_cast<size_t>(at + k)] =
                            values[f * count + k];
            }
        std::vector<int> parent(g.nodes.size(), -1);
        for (size_t i = 0; i < g.nodes.size(); ++i)
            for (int c : g.nodes[i].children) parent[static_cast<size_t>(c)] = static_cast<int>(i);
        const auto byName = nodesByName(g);
        Chapter *models = dictChapter(dict, CHP_MODELS);
        for (int f = 0; f < frames; ++f) {
            ASSERT_EQ(evalFrame(&eval, source.firstFrame + f), 0);
            for (int32_t i = 0; i < models->elementCount; ++i) {
                const Element &e = models->elements[i];
                const Model *m = static_cast<const Model *>(e.data);
                if (e.deleted != ELEM_LIVE || !m) continue;
                const std::string elemName =
                    e.name->prefix.empty() ? e.name->name : e.name->prefix + "-" + e.name->name;
                Mat world{};
                world[0] = world[5] = world[10] = world[15] = 1.0;
                for (int n = byName.at(elemName); n >= 0; n = parent[static_cast<size_t>(n)]) {
                    const auto &s = local[static_cast<size_t>(n)][static_cast<size_t>(f)];
                    world = multiply(world, trs(&s[0], &s[3], &s[7]));
                }
                for (int k = 0; k < 16; ++k)
                    ASSERT_NEAR(world[static_cast<size_t>(k)], m->globalMatrix[k / 4][k % 4], 1e-5)
                        << elemName << " frame " << source.firstFrame + f << " cell " << k;
            }
        }
    }
    // The demo moves: the cube turns, the rig's rider goes round its track.
    EXPECT_GT(channelsSeen, 4);
}

TEST_F(Export, DeformedPointsPlayFrameForFrame) {
    // The skin and shape keys of "figure", the lattice, surface deformation
    // and wave of "deform": at each frame the file's points (the mesh plus
    // its targets at the weights sampled for that frame) are the triangles
    // the tessellation makes of the evaluated scene.
    for (const char *name : {"figure", "deform"}) {
        SCOPED_TRACE(name);
        tinygltf::Model g;
        exportScene(name, &g);
        const int frames = source.lastFrame - source.firstFrame + 1;
        std::map<int, const float *> weightsOf;  // node, its weights channel's samples
        for (const tinygltf::Animation &a : g.animations)
            for (const tinygltf::AnimationChannel &c : a.channels)
                if (c.target_path == "weights")
                    weightsOf[c.target_node] = accessorData<float>(g, a.samplers[static_cast<size_t>(c.sampler)].output);
        EXPECT_EQ(static_cast<int>(weightsOf.size()), summary.morphed);
        ASSERT_GE(weightsOf.size(), 2u);
        const auto byName = nodesByName(g);
        Chapter *models = dictChapter(dict, CHP_MODELS);
        for (int f = 0; f < frames; ++f) {
            ASSERT_EQ(evalFrame(&eval, source.firstFrame + f), 0);
            if (f % 7 != 0 && f != frames - 1) continue;
            tessDictionarySet(dict);
            for (int32_t i = 0; i < models->elementCount; ++i) {
                const Element &e = models->elements[i];
                Model *m = static_cast<Model *>(e.data);
                if (e.deleted != ELEM_LIVE || !m) continue;
                const std::string elemName = e.name->prefix.empty() ? e.name->name : e.name->prefix + "-" + e.name->name;
                const int node = byName.at(elemName);
                if (!weightsOf.count(node)) continue;
                const tinygltf::Mesh &mesh = g.meshes[static_cast<size_t>(g.nodes[static_cast<size_t>(node)].mesh)];
                ASSERT_EQ(mesh.primitives[0].targets.size(), static_cast<size_t>(frames - 1));
                // The file's corners at this frame.
                std::vector<std::array<double, 3>> file;
                for (const tinygltf::Primitive &p : mesh.primitives) {
                    const tinygltf::Accessor &ia = g.accessors[static_cast<size_t>(p.indices)];
                    const uint32_t *idx = accessorData<uint32_t>(g, p.indices);
                    const float *base = accessorData<float>(g, p.attributes.at("POSITION"));
                    for (size_t c = 0; c < ia.count; ++c) {
                        std::array<double, 3> q{};
                        for (int k = 0; k < 3; ++k) q[k] = base[3 * idx[c] + k];
                        for (size_t t = 0; t < p.targets.size(); ++t) {
                            const double wt = weightsOf[node][static_cast<size_t>(f) * p.targets.size() + t];
                            if (wt == 0.0) continue;
                            const float *d = accessorData<float>(g, p.targets[t].at("POSITION"));
                            for (int k = 0; k < 3; ++k) q[k] += wt * d[3 * idx[c] + k];
                        }
                        file.push_back(q);
                    }
                }
                // The tessellation's corners, with the second scale the draw gives a mesh.
                ASSERT_EQ(tessellateModel(m, 2, 0, 0), 0);
                float scale[3] = {1, 1, 1};
                if (!modelExtraScale(m, scale)) scale[0] = scale[1] = scale[2] = 1;
                std::vector<std::array<double, 3>> want;
                for (int32_t t = 0; t < m->triangleCount; ++t)
                    for (int k = 0; k < 3; ++k) {
                        const float *p = m->triangles[t].v[k]->pos;
                        want.push_back({p[0] * scale[0], p[1] * scale[1], p[2] * scale[2]});
                    }
                std::sort(file.begin(), file.end());
                std::sort(want.begin(), want.end());
                ASSERT_EQ(file.size(), want.size()) << elemName;
                for (size_t c = 0; c < file.size(); ++c)
                    for (int k = 0; k < 3; ++k)
                        ASSERT_NEAR(file[c][k], want[c][k], 1e-5) << elemName << " frame " << source.firstFrame + f;
            }
            tessDictionarySet(nullptr);
        }
    }
}

TEST_F(Export, QuaternionsFollowTheEulerOrder) {
    // A turn of 90 degrees about x, then about y (x acts first): the row
    // form's product Rx Ry; the quaternion is qy times qx.
    const double r[3][3] = {{0, 0, -1}, {1, 0, 0}, {0, -1, 0}};
    double q[4];
    exportQuaternion(r, q);
    const double h = std::sqrt(0.5);
    const double qx[4] = {h, 0, 0, h}, qy[4] = {0, h, 0, h};
    // qy * qx
    const double want[4] = {qy[3] * qx[0] + qy[0] * qx[3] + qy[1] * qx[2] - qy[2] * qx[1],
                            qy[3] * qx[1] - qy[0] * qx[2] + qy[1] * qx[3] + qy[2] * qx[0],
                            qy[3] * qx[2] + qy[0] * qx[1] - qy[1] * qx[0] + qy[2] * qx[3],
                            qy[3] * qx[3] - qy[0] * qx[0] - qy[1] * qx[1] - qy[2] * qx[2]};
    const double sign = q[3] * want[3] < 0 ? -1.0 : 1.0;
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(q[k] * sign, want[k], 1e-12) << k;
}

TEST_F(Export, MaterialsTexturesCamerasAndLightsOfTheDemo) {
    tinygltf::Model g;
    exportScene("gallery", &g);
    EXPECT_FALSE(g.textures.empty());
    for (const tinygltf::Texture &t : g.textures) {
        const tinygltf::Image &image = g.images[static_cast<size_t>(t.source)];
        EXPECT_EQ(image.mimeType, "image/png");
        EXPECT_GT(image.width, 0);  // decoded by the loader from the embedded PNG
        const tinygltf::Sampler &s = g.samplers[static_cast<size_t>(t.sampler)];
        EXPECT_TRUE(s.wrapS == TINYGLTF_TEXTURE_WRAP_REPEAT || s.wrapS == TINYGLTF_TEXTURE_WRAP_CLAMP_TO_EDGE);
        EXPECT_TRUE(s.magFilter == TINYGLTF_TEXTURE_FILTER_LINEAR || s.magFilter == TINYGLTF_TEXTURE_FILTER_NEAREST);
    }
    // The gallery crops and reflects: each kind said once.
    EXPECT_EQ(dropped,
              "bwexport: texture crops, tiles and mirrors: the whole picture is mapped\n"
              "bwexport: reflection maps: not written\n");
    EXPECT_FALSE(g.cameras.empty());
    tinygltf::Model rig;
    exportScene("rig", &rig);
    // The lamp at the rider's lantern and the stage's sun.
    ASSERT_EQ(rig.lights.size(), 2u);
    EXPECT_EQ(rig.lights[0].name, "rig-lamp");
    EXPECT_EQ(rig.lights[0].type, "point");
    EXPECT_EQ(rig.lights[1].type, "directional");
    EXPECT_NE(std::find(rig.extensionsUsed.begin(), rig.extensionsUsed.end(), "KHR_lights_punctual"),
              rig.extensionsUsed.end());
}

TEST_F(Export, BwexportWritesGltfWithItsBufferBeside) {
    const std::string out = dir->path() + "/demo.gltf";
    bwtest::RunResult r = bwtest::runProgram(
        BW_BWEXPORT_BIN, {"-R", BW_RSRC_DIR, dir->path() + "/demo", "demo", out, "--frames", "1:10", "--gltf"},
        dir->path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::filesystem::exists(dir->path() + "/demo.bin"));
    tinygltf::Model g;
    tinygltf::TinyGLTF loader;
    std::string error, warn;
    ASSERT_TRUE(loader.LoadASCIIFromFile(&g, &error, &warn, out)) << error;
    ASSERT_EQ(g.animations.size(), 1u);
    EXPECT_EQ(g.accessors[static_cast<size_t>(g.animations[0].samplers[0].input)].count, 10u);
    bwtest::RunResult bad = bwtest::runProgram(
        BW_BWEXPORT_BIN, {"-R", BW_RSRC_DIR, dir->path() + "/demo", "demo", out, "--frames", "9:1"}, dir->path());
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.err, "bwexport: --frames wants FIRST:LAST with FIRST not above LAST, not 9:1\n");
}

TEST_F(Export, TheValidatorFindsNoErrorInAnyDemoScene) {
    // Node and the validator's package are looked for, never fetched.
    if (system("command -v node >/dev/null 2>&1") != 0) GTEST_SKIP() << "node is not installed";
    if (system("node -e \"require.resolve('gltf-validator')\" >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "the npm package gltf-validator is not installed (npm install gltf-validator, "
                        "or NODE_PATH naming its node_modules)";
    for (const char *name : demoScenes) {
        SCOPED_TRACE(name);
        tinygltf::Model g;
        exportScene(name, &g);
        const std::string path = dir->path() + "/" + name + ".glb";
        const std::string script = "const v=require('gltf-validator');const fs=require('fs');"
                                   "v.validateBytes(new Uint8Array(fs.readFileSync('" + path + "')))"
                                   ".then(r=>{for(const m of r.issues.messages)if(m.severity==0)"
                                   "console.log(m.code,m.pointer,m.message);process.exit(r.issues.numErrors?1:0)})"
                                   ".catch(e=>{console.log(String(e));process.exit(1)})";
        bwtest::RunResult r = bwtest::runProgram("/usr/bin/env", {"node", "-e", script}, dir->path());
        EXPECT_EQ(r.status, 0) << r.out << r.err;
    }
}
