// Inside the exporter: the glTF model being built, the buffer its accessors
// point into, and the once-only reports of what glTF cannot carry.
#pragma once

#include <tiny_gltf.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "export.h"

struct Model;
struct Material;
struct Texture2D;

// Kinds of things the file cannot carry, each reported once per export with
// its text.
#define EXPORT_DROP_ROWS                                                                                    \
    DROP_ROW(DROP_SHADOW, "shadow-only materials: their triangles are left out")                            \
    DROP_ROW(DROP_TEXTURE3D, "3D textures: not written")                                                    \
    DROP_ROW(DROP_REFLECTION, "reflection maps: not written")                                               \
    DROP_ROW(DROP_PICTURE, "textures whose picture cannot be read: not written")                            \
    DROP_ROW(DROP_SEQUENCE, "picture sequences and live video: the first picture stands for them")          \
    DROP_ROW(DROP_CROP, "texture crops, tiles and mirrors: the whole picture is mapped")                    \
    DROP_ROW(DROP_SHADERS, "custom shaders: not written")                                                   \
    DROP_ROW(DROP_DEFORM_COUNT, "deformed surfaces whose vertex count changes: kept as at the first frame")  \
    DROP_ROW(DROP_DEFORM_SIZE, "deformations over 64 million values: kept as at the first frame")            \
    DROP_ROW(DROP_SHEAR, "sheared transforms: the shear is lost")                                           \
    DROP_ROW(DROP_HIDDEN, "hidden models: written as shown")                                                \
    DROP_ROW(DROP_EXTRA_SCALE, "animated second scale of mesh models: kept at the first frame")             \
    DROP_ROW(DROP_LIGHT_EXTRA, "light attenuation, falloff, area and shadows: not written")

enum ExportDrop {
#define DROP_ROW(code, text) code,
    EXPORT_DROP_ROWS
#undef DROP_ROW
    DROP_COUNT
};

struct ExportWork {
    tinygltf::Model gltf;                              // what is written
    std::vector<unsigned char> *bytes;                 // the one buffer's data
    Dictionary *dict;                                  // the scene
    ExportOptions options;                             // as given
    bool dropped[DROP_COUNT] = {};                     // kinds reported so far
    std::map<const Material *, int> materials;         // glTF material of each record (null: default)
    std::map<const Texture2D *, int> textures;         // glTF texture of each record; -1 unwritable
    std::map<std::string, int> images;                 // glTF image of each picture file
};

// Reports a kind of loss on standard error the first time it happens.
void exportDrop(ExportWork &w, ExportDrop kind);

// Appends `size` bytes to the buffer, 4-aligned, as a buffer view of
// `target` (0 for none); returns the view.
int exportView(ExportWork &w, const void *data, size_t size, int target);
// An accessor of `count` elements of `type` (TINYGLTF_TYPE_*) and component
// type over a new view; min and max given for positions and times.
int exportAccessor(ExportWork &w, const void *data, size_t count, int type, int componentType, int target,
                   const std::vector<double> &minValues = {}, const std::vector<double> &maxValues = {});

// The tessellated model's positions and normals (3 floats a vertex each, as
// many as its vertices), `extraScale` (may be null) baked in.
void exportPoints(const Model *model, const float *extraScale, float *pos, float *normal);
// The least and greatest x, y and z of `count` points (zeros for none).
void exportBounds(const float *values, size_t count, std::vector<double> *lo, std::vector<double> *hi);

// Positions and normals a mesh is written with instead of its model's
// tessellation (3 floats each): a vertex each, or a triangle corner each.
struct ExportBase {
    bool perCorner;       // one vertex a triangle corner, in triangle order
    const float *pos;     // positions
    const float *normal;  // normals
};

// The mesh of a tessellated model, -1 when it has no triangles to write.
// `extraScale` (may be null) is baked into the positions and normals; `base`
// (may be null) gives them instead.
int exportMesh(ExportWork &w, Model *model, const float *extraScale, const ExportBase *base, int64_t *vertices,
               int64_t *triangles);
