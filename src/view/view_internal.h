// Inside the scene draw: the records it keeps per scene, beside the scene's
// own elements. Bounds are made once at start-up; the shading records follow
// the state initialisations (g_grStateInit) and what the binds compiled.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "view.h"

// What a material's list holds on the hardware.
struct ShadeMaterial {
    uint16_t recompile;  // compile the list before its next use
    float alpha;         // alpha of the colours in the list
};

// Light linking of one light: which models it lights.
struct ShadeLight {
    int32_t mode;                // 0 lights every model; else the value its linked models hold
    std::vector<int32_t> table;  // by models entry: `mode` for a linked model, 0 for the others
};

// What a texture's list holds on the hardware.
struct ShadeTexture {
    uint16_t flags;  // TEXTURE_FLAG_* still to do
    int32_t frame;   // frame of the picture of a sequence; -1 before any evaluation
};

// Element index of a chapter's records, -1 for records known to be none.
struct ShadeEntries {
    int32_t count = -1;                             // elements of the chapter when it was made
    std::unordered_map<const void *, int32_t> of;  // index by data
};

struct ViewScene {
    const Dictionary *dict;                // the scene's dictionary
    std::vector<ViewModelRecord> models;   // by element index of MODELS
    int32_t shadeSerial;                   // state initialisation the shading records follow
    int32_t texturesSerial;                // the one the texture flags follow
    std::vector<ShadeMaterial> materials;  // by element index of MATERIALS
    std::vector<ShadeLight> lights;        // by element index of LIGHTS
    std::vector<ShadeTexture> textures;    // by element index of TEXTURES2D
    int32_t textureWalk;                   // first texture of the next definition run
    ShadeEntries materialEntries;          // MATERIALS index by record
    ShadeEntries textureEntries;           // TEXTURES2D index by record
};

// The records of a dictionary, made empty at the first call. Records of
// other scenes stay where they are when one is added.
ViewScene &viewSceneOf(const Dictionary *dict);
// Sized to the scene's chapters and flagged after a state initialisation.
ViewScene &shadeSceneOf(const Dictionary *dict);

// The strip stream's material hook for the scene being drawn: shaded
// materials call their list, constant ones take their colour with the
// model's alpha `alpha`.
void shadeStripsBegin(Dictionary *dict, float alpha);
// The live entry of MATERIALS or TEXTURES2D whose data is `data`; -1 for
// none. The draw keeps its own index: the dictionary's search shares its
// one-entry cache with the update side.
int32_t shadeEntryOf(Dictionary *dict, int chapterId, const void *data);
// The id of a material in the scene: its MATERIALS index + 2, 1 for the
// default material and for a material that is no entry.
int shadeMaterialId(Dictionary *dict, const Material *material);
