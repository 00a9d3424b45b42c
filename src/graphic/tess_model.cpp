// What the display form of a model needs beside the tessellation itself and
// knows no hardware: the dictionary ids are looked up in, the material and
// texture a model's triangles take, the handedness and second scale of its
// transform, the release of its vertex and triangle arrays, and the file of a
// texture's picture. The strip build and every reader of the display form
// outside the draw (the exporter) share them.
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "database.h"
#include "dictionary.h"
#include "material.h"
#include "tess_internal.h"

namespace {

constexpr const char *PICTURE_SUFFIX = ".pic";
constexpr uint16_t MAP_UV = 4;

// The dictionary whose models are being preprocessed; ids are looked up in
// it, else in the calling thread's.
thread_local Dictionary *s_preprocessDict = nullptr;

bool endsWith(const std::string &text, const char *tail) {
    const std::string t = tail;
    return text.size() >= t.size() && text.compare(text.size() - t.size(), t.size(), t) == 0;
}

}  // namespace

Dictionary *tessDictionary() { return s_preprocessDict ? s_preprocessDict : dictCurrent(); }

void tessDictionarySet(Dictionary *dict) { s_preprocessDict = dict; }

void tessArraysDrop(Model *model) {
    free(model->vertices);  // the UV slots go with it
    free(model->triangles);
    model->vertices = nullptr;
    model->triangles = nullptr;
    model->vertexCount = model->triangleCount = 0;
    // Strips made from the old arrays are rebuilt at the next preprocess.
    model->displayFlags |= MODEL_STRIPS_STALE;
}

const Texture2D *materialTexture(const Material *material) {
    return material && !material->textures.empty() ? &material->textures[0] : nullptr;
}

const Material &materialDefault() {
    static const Material material;  // the record's defaults are the default material's
    return material;
}

bool modelMirrored(const Model *m) {
    return static_cast<double>(m->globalScale[0]) * m->globalScale[1] * m->globalScale[2] < 0.0;
}

int modelExtraScale(const Model *m, float scale[3]) {
    if (m->type != MODEL_MESH || !m->geometry.mesh || (m->geometry.mesh->flags & MESH_FLAG_SCALED)) return 0;
    for (int k = 0; k < 3; ++k) scale[k] = m->scaling[k];
    return 1;
}

Material *modelMaterial(const Model *m) {
    for (const Model *n = m; n; n = n->parent)
        if (n->materials && n->materialCount > 0) return n->materials[0];
    return nullptr;
}

const Texture2D *modelLocalTexture(const Model *m, const BW_GlbVar &g) {
    if (!g.useLocalTexture) return nullptr;
    for (int i = 0; m->textures2D && i < m->texture2DCount; ++i)
        if (m->textures2D[i]) return m->textures2D[i];
    return nullptr;
}

const Texture2D *textureResolve(const Model *model, const Material *material, const Texture2D *local,
                                const BW_GlbVar &g) {
    const Texture2D *own = materialTexture(material);
    if (!own || !g.useMaterialTexture) return local;
    if (local && g.materialOverLocal != 1) return local;
    if (!g.currentMaterialOnly) return own;
    return material == modelMaterial(model) ? own : local;
}

int textureRepeats(const Texture2D *t, int repeatAll) {
    return repeatAll || t->alpha || (t->method == MAP_UV && t->explicitUV == 1);
}

int texturePicturePath(Dictionary *dict, const Texture2D *t, int32_t frame, std::string *path) {
    if (!t || !path) return 0;
    std::string name = t->pictureName;
    if (!t->sequenceName.empty() && frame >= 0) name = t->sequenceName + "." + std::to_string(frame);
    if (name.empty()) return 0;
    if (name.find('/') != std::string::npos || name[0] == '$') {
        char expanded[BW_PATH_MAX];
        dbExpandPath(name.c_str(), expanded);
        for (const std::string &candidate : {std::string(expanded), std::string(expanded) + PICTURE_SUFFIX})
            if (access(candidate.c_str(), R_OK) == 0) {
                *path = candidate;
                return 1;
            }
        return 0;
    }
    Database *db = dict ? dict->database : nullptr;
    if (!db) return 0;
    if (endsWith(name, PICTURE_SUFFIX)) name.resize(name.size() - 4);
    Element probe{};
    probe.name = elemNameParse(name.c_str(), nullptr, 0);
    const int found = probe.name && elemFindFile(db, dict, "PICTURES", CHP_PICTURES, &probe, nullptr, 0);
    if (found) *path = g_elemPath;
    elemNameFree(probe.name);
    return found;
}

namespace {

constexpr LightForm LIGHT_POINT = {1.0f, false};
constexpr LightForm LIGHT_SPOT = {1.0f, true};
constexpr LightForm LIGHT_INFINITE = {0.0f, false};

// By light type: 1 point, 2 spot, 3 and 4 infinite, 5 area (lit as a point).
constexpr int LIGHT_TYPES = 6;
const LightForm lightForms[LIGHT_TYPES] = {LIGHT_POINT,    LIGHT_POINT,    LIGHT_SPOT,
                                           LIGHT_INFINITE, LIGHT_INFINITE, LIGHT_POINT};

}  // namespace

const LightForm &lightFormOf(uint16_t type) { return lightForms[type < LIGHT_TYPES ? type : 1]; }
