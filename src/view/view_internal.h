// Inside the scene draw: the records it keeps per scene, beside the scene's
// own elements. Bounds are made once at start-up; the shading records follow
// the state initialisations (g_grStateInit) and what the binds compiled.
#pragma once

#include <cstdint>
#include <vector>

#include "view.h"

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

struct ViewScene {
    const Dictionary *dict;                // the scene's dictionary
    std::vector<ViewModelRecord> models;   // by element index of MODELS
    int32_t shadeSerial;                   // state initialisation the shading records follow
    int32_t texturesSerial;                // the one the texture flags follow
    std::vector<ShadeLight> lights;        // by element index of LIGHTS
    std::vector<ShadeTexture> textures;    // by texture id - 2 (grTextureId): TEXTURES2D index, then inline ones
    int32_t textureWalk;                   // first texture of the next definition run
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
