// The exporter's frame: the nodes of models, cameras and lights, the buffer
// and its accessors, the animation sampled frame by frame as each node's
// translation, rotation and scale relative to its parent, and the writing of
// the file.
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "camera.h"
#include "database.h"
#include "dictionary.h"
#include "export_internal.h"
#include "graphic.h"
#include "model.h"

namespace {

const char *const dropTexts[DROP_COUNT] = {
#define DROP_ROW(code, text) text,
    EXPORT_DROP_ROWS
#undef DROP_ROW
};

// Components of a sample: translation, rotation (x, y, z, w), scale.
constexpr int SAMPLE_SIZE = 10;
// Two samples of one node differ when a component moves by more than this,
// relative to its size: less is the noise of the parent's inverse.
constexpr double STILL = 1e-6;

enum NodeKind { NODE_MODEL, NODE_CAMERA, NODE_LIGHT };

struct NodeEntry {
    NodeKind kind;                 // what the node stands for
    Model *model;                  // NODE_MODEL
    const Camera *camera;          // NODE_CAMERA
    const Light *light;            // NODE_LIGHT
    int parent;                    // node of the parent model; -1 for a root
    float extraScale[3];           // second scale of a mesh model at the first frame
    bool hasExtraScale;            // a mesh model drawn with a second scale
    std::vector<float> samples;    // SAMPLE_SIZE per frame
    bool tessellated;              // a model whose first frame tessellated
    int32_t pointCount;            // vertices of the model's first tessellation
    int32_t triangleCount;         // its triangles
    uint32_t stamp;                // the model's geometryStamp when it was last tessellated
    bool retessellated;            // tessellated again after the first frame
    bool pointsFixed;              // deformations are not written: kept as at the first frame
    bool perCorner;                // points sampled a triangle corner each (the vertex count changed)
    std::vector<uint32_t> corners; // first frame's vertex of each triangle corner
    std::vector<float> points;     // once its points move: per frame, positions then normals, 3 floats each
};

// Beyond this many floats of sampled points a model's deformation is not
// written: a quarter of a gigabyte in memory and as much again in the file.
constexpr size_t POINTS_MOST = size_t{64} << 20;

using Matrix = double[4][4];

std::string elementName(const Element &e) {
    if (!e.name) return "";
    return e.name->prefix.empty() ? e.name->name : e.name->prefix + "-" + e.name->name;
}

// The frame of a light: at its position, looking along -z towards where it
// shines.
void lightWorld(const Light &l, Matrix m) {
    const LightForm &form = lightFormOf(l.type);
    double dir[3];
    for (int k = 0; k < 3; ++k)
        dir[k] = form.w == 0.0f ? -l.position[k] : form.spot ? l.interest[k] - l.position[k] : l.direction[k];
    double len = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
    if (len <= 0.0) {
        dir[0] = dir[1] = 0.0;
        dir[2] = -1.0;
        len = 1.0;
    }
    const double back[3] = {-dir[0] / len, -dir[1] / len, -dir[2] / len};
    const double worldUp[3] = {0.0, std::fabs(back[1]) > 0.999 ? 0.0 : 1.0, std::fabs(back[1]) > 0.999 ? 1.0 : 0.0};
    double side[3] = {worldUp[1] * back[2] - worldUp[2] * back[1], worldUp[2] * back[0] - worldUp[0] * back[2],
                      worldUp[0] * back[1] - worldUp[1] * back[0]};
    const double sl = std::sqrt(side[0] * side[0] + side[1] * side[1] + side[2] * side[2]);
    for (double &c : side) c /= sl;
    const double up[3] = {back[1] * side[2] - back[2] * side[1], back[2] * side[0] - back[0] * side[2],
                          back[0] * side[1] - back[1] * side[0]};
    for (int k = 0; k < 3; ++k) {
        m[0][k] = side[k];
        m[1][k] = up[k];
        m[2][k] = back[k];
        m[3][k] = l.position[k];
        m[k][3] = 0.0;
    }
    m[3][3] = 1.0;
}

void nodeWorld(const NodeEntry &n, Matrix m) {
    const float(*f)[4] = n.kind == NODE_MODEL ? n.model->globalMatrix : n.camera ? n.camera->viewMatrix : nullptr;
    if (!f) {
        lightWorld(*n.light, m);
        return;
    }
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) m[i][k] = f[i][k];
}

// Inverse of an affine row-vector matrix; false when singular.
bool affineInverse(const Matrix m, Matrix out) {
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (std::fabs(det) < 1e-30) return false;
    const double d = 1.0 / det;
    out[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) * d;
    out[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) * d;
    out[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) * d;
    out[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) * d;
    out[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) * d;
    out[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) * d;
    out[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) * d;
    out[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) * d;
    out[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) * d;
    for (int k = 0; k < 3; ++k) {
        out[3][k] = -(m[3][0] * out[0][k] + m[3][1] * out[1][k] + m[3][2] * out[2][k]);
        out[k][3] = 0.0;
    }
    out[3][3] = 1.0;
    return true;
}

void multiply(const Matrix a, const Matrix b, Matrix out) {
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k) {
            double s = 0.0;
            for (int j = 0; j < 4; ++j) s += a[i][j] * b[j][k];
            out[i][k] = s;
        }
}

// Translation, rotation and scale of a local matrix into `sample`; false when
// the matrix shears.
bool decompose(const Matrix m, float *sample) {
    double s[3], r[3][3];
    for (int i = 0; i < 3; ++i) s[i] = std::sqrt(m[i][0] * m[i][0] + m[i][1] * m[i][1] + m[i][2] * m[i][2]);
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    // A mirror is a negative scale along x.
    if (det < 0.0) s[0] = -s[0];
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) r[i][k] = s[i] != 0.0 ? m[i][k] / s[i] : (i == k ? 1.0 : 0.0);
    bool sheared = false;
    for (int i = 0; i < 3; ++i)
        for (int j = i + 1; j < 3; ++j)
            if (std::fabs(r[i][0] * r[j][0] + r[i][1] * r[j][1] + r[i][2] * r[j][2]) > 1e-4) sheared = true;
    double q[4];
    exportQuaternion(r, q);
    for (int k = 0; k < 3; ++k) {
        sample[k] = static_cast<float>(m[3][k]);
        sample[7 + k] = static_cast<float>(s[k]);
    }
    for (int k = 0; k < 4; ++k) sample[3 + k] = static_cast<float>(q[k]);
    return !sheared;
}

// Takes one sample of every node at the frame now evaluated.
void sampleNodes(ExportWork &w, std::vector<NodeEntry> &nodes) {
    std::vector<std::array<double, 16>> worlds(nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) {
        NodeEntry &n = nodes[i];
        Matrix world, local;
        nodeWorld(n, world);
        memcpy(worlds[i].data(), world, sizeof world);
        if (n.parent >= 0) {
            Matrix parent, inverse;
            memcpy(parent, worlds[static_cast<size_t>(n.parent)].data(), sizeof parent);
            if (!affineInverse(parent, inverse)) {
                memcpy(local, world, sizeof local);
            } else {
                multiply(world, inverse, local);
            }
        } else {
            memcpy(local, world, sizeof local);
        }
        float sample[SAMPLE_SIZE];
        if (!decompose(local, sample)) exportDrop(w, DROP_SHEAR);
        // Keep the quaternion on the side of the previous one so that the
        // turn between two frames is the short one.
        const size_t have = n.samples.size();
        if (have >= SAMPLE_SIZE) {
            const float *prev = &n.samples[have - SAMPLE_SIZE + 3];
            if (prev[0] * sample[3] + prev[1] * sample[4] + prev[2] * sample[5] + prev[3] * sample[6] < 0.0f)
                for (int k = 3; k < 7; ++k) sample[k] = -sample[k];
        }
        n.samples.insert(n.samples.end(), sample, sample + SAMPLE_SIZE);
        if (n.kind == NODE_MODEL && n.hasExtraScale) {
            float now[3];
            if (modelExtraScale(n.model, now) && memcmp(now, n.extraScale, sizeof now) != 0)
                exportDrop(w, DROP_EXTRA_SCALE);
        }
    }
}

bool moves(const std::vector<float> &samples, int first, int count) {
    const size_t frames = samples.size() / SAMPLE_SIZE;
    for (size_t f = 1; f < frames; ++f)
        for (int k = first; k < first + count; ++k) {
            const double a = samples[k], b = samples[f * SAMPLE_SIZE + static_cast<size_t>(k)];
            if (std::fabs(a - b) > STILL * std::max(1.0, std::fabs(a))) return true;
        }
    return false;
}

// Positions (then normals) of the tessellation now standing, a vertex each,
// or a triangle corner each.
void pointsOf(const NodeEntry &n, std::vector<float> *out) {
    const Model *m = n.model;
    const float *scale = n.hasExtraScale ? n.extraScale : nullptr;
    const size_t count = static_cast<size_t>(m->vertexCount);
    std::vector<float> welded(count * 6);
    exportPoints(m, scale, welded.data(), welded.data() + count * 3);
    if (!n.perCorner) {
        out->insert(out->end(), welded.begin(), welded.end());
        return;
    }
    const size_t corners = static_cast<size_t>(m->triangleCount) * 3, at = out->size();
    out->resize(at + corners * 6);
    for (size_t c = 0; c < corners; ++c) {
        const size_t v = static_cast<size_t>(m->triangles[c / 3].v[c % 3] - m->vertices);
        for (size_t k = 0; k < 3; ++k) {
            (*out)[at + 3 * c + k] = welded[3 * v + k];
            (*out)[at + corners * 3 + 3 * c + k] = welded[count * 3 + 3 * v + k];
        }
    }
}

// Gives up the model's deformation with the reason: it stays as at the first
// frame.
void pointsGiveUp(ExportWork &w, NodeEntry &n, ExportDrop why) {
    exportDrop(w, why);
    n.pointsFixed = true;
    std::vector<float>().swap(n.points);
}

// The positions and normals of a model's tessellation at the frame now
// evaluated, appended to its samples. Nothing is kept until its points
// first move (a deformation rewrites them, or the draw would tessellate it
// again); the frames before then repeat the first frame's. Samples are a
// vertex each while the tessellation keeps its vertex count, and a triangle
// corner each (the first frame's corners standing for the frames before)
// once a frame splits or joins vertices but keeps the triangles.
void samplePoints(ExportWork &w, NodeEntry &n, size_t frame, size_t frames) {
    Model *m = n.model;
    if (n.kind != NODE_MODEL || !n.tessellated || n.pointsFixed) return;
    const bool rewritten = m->geometryStamp != n.stamp || (m->displayFlags & MODEL_GEOMETRY_STALE);
    if (!rewritten && n.points.empty()) return;
    if (n.points.empty()) {
        const size_t block = static_cast<size_t>(n.pointCount) * 6;
        if (frames * block > POINTS_MOST) return pointsGiveUp(w, n, DROP_DEFORM_SIZE);
        // The tessellation still standing is the first frame's.
        n.corners.resize(static_cast<size_t>(n.triangleCount) * 3);
        for (size_t c = 0; c < n.corners.size(); ++c)
            n.corners[c] = static_cast<uint32_t>(m->triangles[c / 3].v[c % 3] - m->vertices);
        n.points.reserve(frames * block);
        pointsOf(n, &n.points);
        const std::vector<float> first(n.points);
        for (size_t f = 1; f < frame; ++f) n.points.insert(n.points.end(), first.begin(), first.end());
    }
    if (rewritten) {
        n.stamp = m->geometryStamp;
        n.retessellated = true;
        if (tessellateModel(m, 2, 0, w.options.precision) != 0 || m->triangleCount != n.triangleCount)
            return pointsGiveUp(w, n, DROP_DEFORM_COUNT);
        m->displayFlags &= static_cast<uint8_t>(~MODEL_GEOMETRY_STALE);
        if (!n.perCorner && m->vertexCount != n.pointCount) {
            // Vertices split or joined: the frames so far, a corner each.
            const size_t count = static_cast<size_t>(n.pointCount), corners = n.corners.size();
            if (frames * corners * 6 > POINTS_MOST) return pointsGiveUp(w, n, DROP_DEFORM_SIZE);
            std::vector<float> spread;
            spread.reserve(frames * corners * 6);
            for (size_t f = 0; f < frame; ++f) {
                const float *p = &n.points[f * count * 6];
                for (int run = 0; run < 2; ++run)
                    for (size_t c = 0; c < corners; ++c)
                        spread.insert(spread.end(), p + run * count * 3 + 3 * n.corners[c],
                                      p + run * count * 3 + 3 * n.corners[c] + 3);
            }
            n.points.swap(spread);
            n.perCorner = true;
        }
    }
    pointsOf(n, &n.points);
}

// Floats a frame of a model's sampled points takes.
size_t pointsBlock(const NodeEntry &n) {
    return (n.perCorner ? static_cast<size_t>(n.triangleCount) * 3 : static_cast<size_t>(n.pointCount)) * 6;
}

// Whether the sampled points of a model move away from its first frame's.
bool pointsMove(const NodeEntry &n, size_t frames) {
    const size_t block = pointsBlock(n);
    if (n.points.empty() || n.points.size() != frames * block) return false;
    const float *base = n.points.data();
    for (size_t i = block; i < n.points.size(); ++i)
        if (std::fabs(n.points[i] - base[i % block]) > STILL * std::max(1.0f, std::fabs(base[i % block])))
            return true;
    return false;
}

// A model whose points moved: one morph target a frame after the first (the
// mesh itself), and a weights channel that turns frame k's target fully on at
// frame k, so that the file plays the sampled points frame for frame.
void writeMorphs(ExportWork &w, const NodeEntry &n, int meshIndex, size_t frames, int timeAccessor, int node,
                 tinygltf::Animation *animation) {
    const size_t block = pointsBlock(n), half = block / 2;
    const float *base = n.points.data();
    tinygltf::Mesh &mesh = w.gltf.meshes[static_cast<size_t>(meshIndex)];
    std::vector<float> delta(half);
    for (size_t f = 1; f < frames; ++f) {
        const float *now = base + f * block;
        std::map<std::string, int> target;
        for (int run = 0; run < 2; ++run) {  // positions, then normals
            for (size_t i = 0; i < half; ++i) delta[i] = now[run * half + i] - base[run * half + i];
            std::vector<double> lo, hi;
            if (run == 0) exportBounds(delta.data(), half / 3, &lo, &hi);
            target[run == 0 ? "POSITION" : "NORMAL"] =
                exportAccessor(w, delta.data(), half / 3, TINYGLTF_TYPE_VEC3, TINYGLTF_COMPONENT_TYPE_FLOAT,
                               TINYGLTF_TARGET_ARRAY_BUFFER, lo, hi);
        }
        for (tinygltf::Primitive &prim : mesh.primitives) prim.targets.push_back(target);
    }
    const size_t targets = frames - 1;
    mesh.weights.assign(targets, 0.0);
    std::vector<float> weights(frames * targets, 0.0f);
    for (size_t f = 1; f < frames; ++f) weights[f * targets + (f - 1)] = 1.0f;
    tinygltf::AnimationSampler sampler;
    sampler.input = timeAccessor;
    sampler.output = exportAccessor(w, weights.data(), weights.size(), TINYGLTF_TYPE_SCALAR,
                                    TINYGLTF_COMPONENT_TYPE_FLOAT, 0);
    sampler.interpolation = "LINEAR";
    tinygltf::AnimationChannel channel;
    channel.sampler = static_cast<int>(animation->samplers.size());
    channel.target_node = node;
    channel.target_path = "weights";
    animation->samplers.push_back(sampler);
    animation->channels.push_back(channel);
}

// The model nodes of the tree under `model`, parents before children.
void addModelTree(std::vector<NodeEntry> &nodes, Model *model, int parent) {
    for (Model *m = model; m; m = m->nextSibling) {
        NodeEntry n{};
        n.kind = NODE_MODEL;
        n.model = m;
        n.parent = parent;
        n.hasExtraScale = modelExtraScale(m, n.extraScale) != 0;
        nodes.push_back(n);
        addModelTree(nodes, m->firstChild, static_cast<int>(nodes.size()) - 1);
        if (parent < 0) break;  // a root's siblings are roots of their own
    }
}

}  // namespace

void exportDrop(ExportWork &w, ExportDrop kind) {
    if (w.dropped[kind]) return;
    w.dropped[kind] = true;
    fprintf(stderr, "bwexport: %s\n", dropTexts[kind]);
}

int exportView(ExportWork &w, const void *data, size_t size, int target) {
    std::vector<unsigned char> &bytes = *w.bytes;
    while (bytes.size() % 4) bytes.push_back(0);
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = bytes.size();
    view.byteLength = size;
    view.target = target;
    const auto *from = static_cast<const unsigned char *>(data);
    bytes.insert(bytes.end(), from, from + size);
    w.gltf.bufferViews.push_back(view);
    return static_cast<int>(w.gltf.bufferViews.size()) - 1;
}

int exportAccessor(ExportWork &w, const void *data, size_t count, int type, int componentType, int target,
                   const std::vector<double> &minValues, const std::vector<double> &maxValues) {
    const size_t size = count * static_cast<size_t>(tinygltf::GetNumComponentsInType(type)) *
                        static_cast<size_t>(tinygltf::GetComponentSizeInBytes(componentType));
    tinygltf::Accessor a;
    a.bufferView = exportView(w, data, size, target);
    a.byteOffset = 0;
    a.count = count;
    a.type = type;
    a.componentType = componentType;
    a.minValues = minValues;
    a.maxValues = maxValues;
    w.gltf.accessors.push_back(std::move(a));
    return static_cast<int>(w.gltf.accessors.size()) - 1;
}

void exportQuaternion(const double r[3][3], double q[4]) {
    // The column form of the turn is the transpose of the row form.
    auto m = [&](int i, int j) { return r[j][i]; };
    const double trace = m(0, 0) + m(1, 1) + m(2, 2);
    double x, y, z, w;
    if (trace > 0.0) {
        const double s = std::sqrt(trace + 1.0) * 2.0;
        w = 0.25 * s;
        x = (m(2, 1) - m(1, 2)) / s;
        y = (m(0, 2) - m(2, 0)) / s;
        z = (m(1, 0) - m(0, 1)) / s;
    } else if (m(0, 0) > m(1, 1) && m(0, 0) > m(2, 2)) {
        const double s = std::sqrt(1.0 + m(0, 0) - m(1, 1) - m(2, 2)) * 2.0;
        w = (m(2, 1) - m(1, 2)) / s;
        x = 0.25 * s;
        y = (m(0, 1) + m(1, 0)) / s;
        z = (m(0, 2) + m(2, 0)) / s;
    } else if (m(1, 1) > m(2, 2)) {
        const double s = std::sqrt(1.0 + m(1, 1) - m(0, 0) - m(2, 2)) * 2.0;
        w = (m(0, 2) - m(2, 0)) / s;
        x = (m(0, 1) + m(1, 0)) / s;
        y = 0.25 * s;
        z = (m(1, 2) + m(2, 1)) / s;
    } else {
        const double s = std::sqrt(1.0 + m(2, 2) - m(0, 0) - m(1, 1)) * 2.0;
        w = (m(1, 0) - m(0, 1)) / s;
        x = (m(0, 2) + m(2, 0)) / s;
        y = (m(1, 2) + m(2, 1)) / s;
        z = 0.25 * s;
    }
    const double len = std::sqrt(x * x + y * y + z * z + w * w);
    q[0] = x / len;
    q[1] = y / len;
    q[2] = z / len;
    q[3] = w / len;
}

int exportGltf(const ExportSource &source, const char *path, const ExportOptions &options, ExportSummary *summary,
               std::string *error) {
    auto fail = [&](const std::string &text) {
        if (error) *error = text;
        return 1;
    };
    Dictionary *dict = source.dict;
    if (!dict || !path) return fail("bwexport: no scene to export");
    const int32_t first = source.firstFrame;
    const int32_t last = source.eval ? std::max(source.firstFrame, source.lastFrame) : first;
    const float rate = source.frameRate > 0.0f ? source.frameRate : 30.0f;
    if (source.eval && source.eval(source.user, first) != 0)
        return fail("bwexport: the scene cannot be evaluated at frame " + std::to_string(first));

    ExportWork w{};
    w.dict = dict;
    w.options = options;
    w.gltf.buffers.resize(1);
    w.bytes = &w.gltf.buffers[0].data;
    w.gltf.asset.version = "2.0";
    w.gltf.asset.generator = "bwexport";

    // Nodes: every tree of models, then the cameras, then the lights that are on.
    std::vector<NodeEntry> nodes;
    std::map<const Model *, std::string> names;
    if (Chapter *models = dictChapter(dict, CHP_MODELS)) {
        for (int32_t i = 0; i < models->elementCount; ++i) {
            const Element &e = models->elements[i];
            if (e.deleted != ELEM_LIVE || !e.data) continue;
            names[static_cast<const Model *>(e.data)] = elementName(e);
        }
        for (int32_t i = 0; i < models->elementCount; ++i) {
            const Element &e = models->elements[i];
            Model *m = static_cast<Model *>(e.data);
            if (e.deleted == ELEM_LIVE && m && !m->parent) addModelTree(nodes, m, -1);
        }
    }
    std::vector<std::string> otherNames;
    if (Chapter *cameras = dictChapter(dict, CHP_CAMERAS))
        for (int32_t i = 0; i < cameras->elementCount; ++i) {
            const Element &e = cameras->elements[i];
            if (e.deleted != ELEM_LIVE || !e.data) continue;
            NodeEntry n{};
            n.kind = NODE_CAMERA;
            n.camera = static_cast<const Camera *>(e.data);
            n.parent = -1;
            nodes.push_back(n);
            otherNames.push_back(elementName(e));
        }
    if (Chapter *lights = dictChapter(dict, CHP_LIGHTS))
        for (int32_t i = 0; i < lights->elementCount; ++i) {
            const Element &e = lights->elements[i];
            const Light *l = static_cast<const Light *>(e.data);
            if (e.deleted != ELEM_LIVE || !l || !l->on) continue;
            NodeEntry n{};
            n.kind = NODE_LIGHT;
            n.light = l;
            n.parent = -1;
            nodes.push_back(n);
            otherNames.push_back(elementName(e));
        }

    // Geometry, materials and textures, as the draw tessellates them.
    ExportSummary sum{};
    tessDictionarySet(dict);
    size_t other = 0;
    for (NodeEntry &n : nodes) {
        tinygltf::Node node;
        if (n.kind == NODE_MODEL) {
            Model *m = n.model;
            auto named = names.find(m);
            node.name = named != names.end() ? named->second : m->name ? m->name : "";
            if (!m->visible) exportDrop(w, DROP_HIDDEN);
            // Meshes are written once the frames are sampled and it is known
            // whose points move.
            if (tessellateModel(m, 2, 0, options.precision) == 0) {
                n.tessellated = true;
                n.pointCount = m->vertexCount;
                n.triangleCount = m->triangleCount;
                n.stamp = m->geometryStamp;
                m->displayFlags &= static_cast<uint8_t>(~MODEL_GEOMETRY_STALE);
            }
        } else if (n.kind == NODE_CAMERA) {
            const Camera &c = *n.camera;
            tinygltf::Camera camera;
            camera.type = "perspective";
            camera.name = otherNames[other];
            camera.perspective.yfov = c.fieldOfView;
            camera.perspective.aspectRatio = c.aspect > 0.0f ? c.aspect : 1.0;
            camera.perspective.znear = c.nearClip > 0.0f ? c.nearClip : 0.001;
            camera.perspective.zfar = c.farClip > camera.perspective.znear ? c.farClip : camera.perspective.znear * 1e6;
            node.camera = static_cast<int>(w.gltf.cameras.size());
            w.gltf.cameras.push_back(camera);
            node.name = otherNames[other++];
        } else {
            const Light &l = *n.light;
            const LightForm &form = lightFormOf(l.type);
            tinygltf::Light light;
            light.name = otherNames[other];
            light.color = {l.colour[0], l.colour[1], l.colour[2]};
            light.intensity = 1.0;
            light.type = form.w == 0.0f ? "directional" : form.spot ? "spot" : "point";
            if (form.spot) {
                // The draw's cone ends sharply at its angle.
                light.spot.outerConeAngle = std::min(static_cast<double>(l.coneAngle), M_PI / 2);
                light.spot.innerConeAngle = light.spot.outerConeAngle * 0.999;
            }
            if (l.falloffOn || l.shadow || l.attenuation[1] != 0.0f || l.attenuation[2] != 0.0f ||
                l.attenuation[0] != 1.0f || l.type == 5)
                exportDrop(w, DROP_LIGHT_EXTRA);
            tinygltf::Value::Object ext;
            ext["light"] = tinygltf::Value(static_cast<int>(w.gltf.lights.size()));
            node.extensions["KHR_lights_punctual"] = tinygltf::Value(ext);
            w.gltf.lights.push_back(light);
            node.name = otherNames[other++];
        }
        w.gltf.nodes.push_back(std::move(node));
    }
    tessDictionarySet(nullptr);
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (nodes[i].parent >= 0) w.gltf.nodes[static_cast<size_t>(nodes[i].parent)].children.push_back(static_cast<int>(i));
    }

    // Samples at every frame.
    const bool progress = options.progress && isatty(fileno(stderr));
    const int32_t frames = last - first + 1;
    for (int32_t f = first; f <= last; ++f) {
        if (f != first && source.eval(source.user, f) != 0)
            return fail("bwexport: the scene cannot be evaluated at frame " + std::to_string(f));
        sampleNodes(w, nodes);
        tessDictionarySet(dict);
        for (NodeEntry &n : nodes) samplePoints(w, n, static_cast<size_t>(f - first), static_cast<size_t>(frames));
        tessDictionarySet(nullptr);
        if (progress && ((f - first) % 10 == 0 || f == last))
            fprintf(stderr, "\rbwexport: frame %d, %d of %d", f, f - first + 1, frames);
    }
    if (progress) fprintf(stderr, "\n");

    // The first frame is the rest pose; what moves gets a channel.
    std::vector<float> times(static_cast<size_t>(frames));
    for (int32_t f = 0; f < frames; ++f) times[static_cast<size_t>(f)] = static_cast<float>(f) / rate;
    tinygltf::Animation animation;
    animation.name = "play";
    int timeAccessor = -1;
    static const struct {
        const char *path;  // glTF target path
        int first, count;  // components of a sample
        int type;          // accessor type
    } channels[3] = {{"translation", 0, 3, TINYGLTF_TYPE_VEC3},
                     {"rotation", 3, 4, TINYGLTF_TYPE_VEC4},
                     {"scale", 7, 3, TINYGLTF_TYPE_VEC3}};
    for (size_t i = 0; i < nodes.size(); ++i) {
        const std::vector<float> &s = nodes[i].samples;
        tinygltf::Node &node = w.gltf.nodes[i];
        node.translation = {s[0], s[1], s[2]};
        node.rotation = {s[3], s[4], s[5], s[6]};
        node.scale = {s[7], s[8], s[9]};
        for (const auto &c : channels) {
            if (!moves(s, c.first, c.count)) continue;
            if (timeAccessor < 0)
                timeAccessor = exportAccessor(w, times.data(), times.size(), TINYGLTF_TYPE_SCALAR,
                                              TINYGLTF_COMPONENT_TYPE_FLOAT, 0, {times.front()}, {times.back()});
            std::vector<float> values(static_cast<size_t>(frames) * static_cast<size_t>(c.count));
            for (int32_t f = 0; f < frames; ++f)
                for (int k = 0; k < c.count; ++k)
                    values[static_cast<size_t>(f * c.count + k)] = s[static_cast<size_t>(f) * SAMPLE_SIZE + static_cast<size_t>(c.first + k)];
            tinygltf::AnimationSampler sampler;
            sampler.input = timeAccessor;
            sampler.output = exportAccessor(w, values.data(), static_cast<size_t>(frames), c.type,
                                            TINYGLTF_COMPONENT_TYPE_FLOAT, 0);
            sampler.interpolation = "LINEAR";
            tinygltf::AnimationChannel channel;
            channel.sampler = static_cast<int>(animation.samplers.size());
            channel.target_node = static_cast<int>(i);
            channel.target_path = c.path;
            animation.samplers.push_back(sampler);
            animation.channels.push_back(channel);
        }
    }
    // Meshes: a model whose tessellation was given up after the first frame
    // is tessellated again at the first frame; one whose points move is
    // written from its first frame's samples, with its morph targets.
    tessDictionarySet(dict);
    bool again = false;
    for (const NodeEntry &n : nodes) again = again || (n.retessellated && !pointsMove(n, static_cast<size_t>(frames)));
    if (again && source.eval && source.eval(source.user, first) != 0)
        return fail("bwexport: the scene cannot be evaluated at frame " + std::to_string(first));
    for (size_t i = 0; i < nodes.size(); ++i) {
        NodeEntry &n = nodes[i];
        if (n.kind != NODE_MODEL || !n.tessellated) continue;
        const float *scale = n.hasExtraScale ? n.extraScale : nullptr;
        const bool morphs = pointsMove(n, static_cast<size_t>(frames));
        if (!morphs && n.retessellated && tessellateModel(n.model, 2, 0, options.precision) != 0) continue;
        ExportBase base{n.perCorner, nullptr, nullptr};
        if (morphs) base.pos = n.points.data(), base.normal = base.pos + pointsBlock(n) / 2;
        const int mesh = exportMesh(w, n.model, scale, morphs ? &base : nullptr, &sum.vertices, &sum.triangles);
        if (mesh < 0) continue;
        w.gltf.nodes[i].mesh = mesh;
        ++sum.meshes;
        if (morphs) {
            if (timeAccessor < 0)
                timeAccessor = exportAccessor(w, times.data(), times.size(), TINYGLTF_TYPE_SCALAR,
                                              TINYGLTF_COMPONENT_TYPE_FLOAT, 0, {times.front()}, {times.back()});
            writeMorphs(w, n, mesh, static_cast<size_t>(frames), timeAccessor, static_cast<int>(i), &animation);
            ++sum.morphed;
        }
        std::vector<float>().swap(n.points);
    }
    tessDictionarySet(nullptr);
    if (again && source.eval && last != first && source.eval(source.user, last) != 0)
        return fail("bwexport: the scene cannot be evaluated at frame " + std::to_string(last));
    sum.channels = static_cast<int32_t>(animation.channels.size());
    if (!animation.channels.empty()) w.gltf.animations.push_back(std::move(animation));

    tinygltf::Scene scene;
    scene.name = "scene";
    for (size_t i = 0; i < nodes.size(); ++i)
        if (nodes[i].parent < 0) scene.nodes.push_back(static_cast<int>(i));
    w.gltf.scenes.push_back(scene);
    w.gltf.defaultScene = 0;
    for (const tinygltf::Material &m : w.gltf.materials)
        if (m.extensions.count("KHR_materials_unlit")) {
            w.gltf.extensionsUsed.push_back("KHR_materials_unlit");
            break;
        }
    if (!w.gltf.lights.empty()) w.gltf.extensionsUsed.push_back("KHR_lights_punctual");

    // A .gltf names its buffer file after itself.
    std::string file = path;
    if (!options.binary) {
        std::string stem = file;
        const size_t slash = stem.find_last_of('/');
        if (slash != std::string::npos) stem = stem.substr(slash + 1);
        const size_t dot = stem.find_last_of('.');
        if (dot != std::string::npos && dot > 0) stem.resize(dot);
        w.gltf.buffers[0].uri = stem + ".bin";
    }
    if (w.bytes->empty()) w.gltf.buffers.clear();
    sum.nodes = static_cast<int32_t>(w.gltf.nodes.size());
    sum.materials = static_cast<int32_t>(w.gltf.materials.size());
    sum.textures = static_cast<int32_t>(w.gltf.textures.size());
    tinygltf::TinyGLTF writer;
    if (!writer.WriteGltfSceneToFile(&w.gltf, file, false, options.binary != 0, options.binary == 0,
                                     options.binary != 0))
        return fail("bwexport: cannot write " + file);
    if (summary) *summary = sum;
    return 0;
}
