// Export of an evaluated scene to glTF 2.0: the model hierarchy with its
// names, the tessellated surfaces, materials, textures, cameras, lights and
// the animation sampled per frame. The exporter reads the dictionary and the
// display form the tessellation leaves on the models; it evaluates nothing
// itself but asks its caller for each frame, so it stands below the layer
// and knows no hardware.
#pragma once

#include <cstdint>
#include <string>

struct Dictionary;

// Evaluates the scene at `frame`: every model's global matrix, every camera
// and light then stand as at that frame. 0 on success.
using ExportEvalFn = int (*)(void *user, int32_t frame);

// What to export: the scene's dictionary, the frames to sample and how to
// evaluate one.
struct ExportSource {
    Dictionary *dict = nullptr;   // the scene, loaded
    int32_t firstFrame = 1;       // first frame sampled; its values are the file's rest pose
    int32_t lastFrame = 1;        // last frame sampled, at least firstFrame
    float frameRate = 30.0f;      // frames per second; sample times are (frame - first) / rate
    ExportEvalFn eval = nullptr;  // evaluation of one frame; null exports the scene as it stands
    void *user = nullptr;         // handed to eval
};

struct ExportOptions {
    int binary = 1;       // 1: one .glb file; 0: .gltf with its buffer in a .bin beside it
    int precision = 0;    // surface precision of the tessellation; 0: each surface's own
    int progress = 0;     // 1: a progress line on standard error while frames are sampled
    int repeatAll = 0;    // every texture repeats (BW_SHADE_TEXTURE_REPEAT of the draw)
};

// Counts of what was written, for callers and tests.
struct ExportSummary {
    int32_t nodes = 0;        // nodes of models, cameras and lights
    int32_t meshes = 0;       // glTF meshes (models with triangles)
    int64_t vertices = 0;     // vertices over all meshes, as the tessellation made them
    int64_t triangles = 0;    // triangles written
    int32_t materials = 0;    // glTF materials
    int32_t textures = 0;     // glTF textures
    int32_t channels = 0;     // animation channels
    int32_t morphed = 0;      // meshes whose points move, written with a morph target a frame
};

// Writes the scene to `path`. 0 on success; 1 with `error` set to a line
// naming the file and what is wrong. Each kind of thing that glTF cannot
// carry is reported once on standard error ("bwexport: ..."). The models are
// left tessellated at `precision` and evaluated at the last frame.
int exportGltf(const ExportSource &source, const char *path, const ExportOptions &options,
               ExportSummary *summary, std::string *error);

// The quaternion (x, y, z, w) of a pure rotation given as a row-vector matrix
// (rows are the images of the axes); the glTF rotation of the same turn.
void exportQuaternion(const double rotation[3][3], double q[4]);
