// Scene optimisation at start-up: textures that show one picture share one
// display list, and materials that look the same become one. Each texture and
// each material is a list, and each change of material cuts a strip, so a
// scene drawn from fewer of both draws faster. Nothing here touches OpenGL or
// the files on disk: only the dictionary of the scene in memory changes.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "animation.h"
#include "dictionary.h"
#include "fileio.h"
#include "geometry.h"
#include "graphic.h"
#include "material.h"
#include "model.h"
#include "tol_status.h"
#include "view.h"

namespace {

constexpr float COLOUR_TOLERANCE = 1e-4f;  // colours and transparency closer than this are one
constexpr int32_t REL_MODEL_MATERIAL = 300;
constexpr int32_t REL_MATERIAL_CURVE_FIRST = 301, REL_MATERIAL_CURVE_LAST = 312;
constexpr int32_t REL_MATERIAL_TEXTURE3D = 401;
constexpr int32_t REL_TEXTURE3D_CURVE_FIRST = 411, REL_TEXTURE3D_CURVE_LAST = 423;
constexpr int32_t REL_MATERIAL_TEXTURE2D = 501;
constexpr int32_t REL_TEXTURE2D_CURVE_FIRST = 511, REL_TEXTURE2D_CURVE_LAST = 532;

// ---------------------------------------------------------------------------
// Relations read straight from the element's source side, in instance order:
// the iterators keep a cursor in the group and cannot be nested, and the pair
// test walks two elements at once.

void relTargets(const Element *e, int32_t relid, int chapter, std::vector<int32_t> &out) {
    out.clear();
    for (int g = 0; e && e->childGroups && g < e->childGroupCount; ++g) {
        const RelationGroup &group = e->childGroups[g];
        for (int i = 0; i < group.count; ++i)
            if (group.items[i].relid == relid && group.items[i].chp == chapter) out.push_back(group.items[i].elem);
    }
}

// An element is animated when an expression drives one of its values.
bool elemAnimated(const Element *e) { return e && relCount(e, 1, 0, REL_EXPRESSION, -1) > 0; }

bool near(const float *a, const float *b, int count) {
    for (int k = 0; k < count; ++k)
        if (!(std::fabs(a[k] - b[k]) <= COLOUR_TOLERANCE)) return false;
    return true;
}

template <typename T, size_t N>
bool same(const T (&a)[N], const T (&b)[N]) {
    return memcmp(a, b, sizeof a) == 0;
}

bool sameShader(const CustomShader &a, const CustomShader &b) { return a.name == b.name && a.data == b.data; }

bool sameBlocks(const std::vector<CustomBlock> &a, const std::vector<CustomBlock> &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i].tag != b[i].tag || a[i].flag != b[i].flag || a[i].data != b[i].data) return false;
    return true;
}

// Two 2D texture records that draw alike: every field from the file and what
// curves have set, the revision counter and the shared list left out.
bool sameTexture2D(const Texture2D &a, const Texture2D &b) {
    return a.pictureName == b.pictureName && a.sourceKind == b.sourceKind && a.method == b.method &&
           a.swap == b.swap && same(a.crop, b.crop) && a.cropOn == b.cropOn && a.interpolate == b.interpolate &&
           a.uScale == b.uScale && a.vScale == b.vScale && a.uOffset == b.uOffset && a.vOffset == b.vOffset &&
           same(a.effects, b.effects) && a.kept20 == b.kept20 && a.kept21 == b.kept21 && same(a.tiles, b.tiles) &&
           same(a.mirror, b.mirror) && same(a.kept24, b.kept24) && same(a.kept25, b.kept25) && a.video == b.video &&
           a.alpha == b.alpha && a.explicitUV == b.explicitUV && a.kept29 == b.kept29 && a.kept30 == b.kept30 &&
           a.kept31 == b.kept31 && same(a.boxSize, b.boxSize) && same(a.boxCentre, b.boxCentre) &&
           same(a.sphereCentre, b.sphereCentre) && a.kept35 == b.kept35 && sameShader(a.shader, b.shader) &&
           a.kept37 == b.kept37 && a.sequenceName == b.sequenceName && same(a.kept563, b.kept563) &&
           sameBlocks(a.customBlocks, b.customBlocks) && same(a.rotation, b.rotation) && same(a.factors, b.factors);
}

bool sameTexture3D(const Texture3D &a, const Texture3D &b) {
    return a.name == b.name && a.type == b.type && same(a.scaling, b.scaling) && same(a.rotation, b.rotation) &&
           same(a.translation, b.translation) && memcmp(a.colours, b.colours, sizeof a.colours) == 0 &&
           same(a.params, b.params) && a.extra == b.extra;
}

bool sameKeys(const Fcurve *a, const Fcurve *b) {
    if (a == b) return true;
    if (!a || !b || a->keyCount != b->keyCount || a->preMode != b->preMode || a->postMode != b->postMode) return false;
    for (int32_t k = 0; k < a->keyCount; ++k) {
        const FcurveKey &x = a->keys[k], &y = b->keys[k];
        if (x.time != y.time || x.value != y.value || x.leftSlope != y.leftSlope || x.rightSlope != y.rightSlope ||
            x.interpolation != y.interpolation || x.flag != y.flag)
            return false;
    }
    return true;
}

// The curves of each relation id of the range: as many, and alike one by one.
bool sameCurves(Dictionary *dict, const Element *a, const Element *b, int32_t low, int32_t high) {
    std::vector<int32_t> ta, tb;
    for (int32_t relid = low; relid <= high; ++relid) {
        relTargets(a, relid, CHP_ANIMATION, ta);
        relTargets(b, relid, CHP_ANIMATION, tb);
        if (ta.size() != tb.size()) return false;
        for (size_t i = 0; i < ta.size(); ++i) {
            const Element *ca = elemGet(dict, CHP_ANIMATION, ta[i]);
            const Element *cb = elemGet(dict, CHP_ANIMATION, tb[i]);
            if (!ca || !cb) return false;
            if (ta[i] != tb[i] && !sameKeys(static_cast<const Fcurve *>(ca->data), static_cast<const Fcurve *>(cb->data)))
                return false;
        }
    }
    return true;
}

// The texture elements of one relation of both materials, walked in
// parallel: each pair is the same element or two that draw alike, neither is
// animated, and their curves match.
bool sameLinkedTextures(Dictionary *dict, const Element *a, const Element *b, int32_t relid, int chapter,
                        int32_t curveLow, int32_t curveHigh) {
    std::vector<int32_t> ta, tb;
    relTargets(a, relid, chapter, ta);
    relTargets(b, relid, chapter, tb);
    if (ta.size() != tb.size()) return false;
    for (size_t i = 0; i < ta.size(); ++i) {
        const Element *x = elemGet(dict, chapter, ta[i]);
        const Element *y = elemGet(dict, chapter, tb[i]);
        if (!x || !y || !x->data || !y->data) return false;
        // The first of the pair is asked twice, as it always was: the second
        // one's expression does not keep the pair apart.
        if (elemAnimated(x) || elemAnimated(x)) return false;
        if (ta[i] == tb[i]) continue;
        const bool alike = chapter == CHP_TEXTURES2D
                               ? sameTexture2D(*static_cast<const Texture2D *>(x->data), *static_cast<const Texture2D *>(y->data))
                               : sameTexture3D(*static_cast<const Texture3D *>(x->data), *static_cast<const Texture3D *>(y->data));
        if (!alike || !sameCurves(dict, x, y, curveLow, curveHigh)) return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Material merge

// The slot of each model's material array is rewritten through `remap`
// (old slot -> new slot) in every polygon of a mesh record.
void remapMeshMaterials(Mesh *mesh, const std::vector<uint16_t> &remap) {
    for (int32_t p = 0; mesh && mesh->polygons && p < mesh->polygonCount; ++p) {
        uint16_t &slot = mesh->polygons[p].material;
        if (slot < remap.size()) slot = remap[slot];
    }
}

// The materials of a model that hold one record twice are made one slot each;
// polygons of the model's mesh and of its mesh shape keys follow. 0 when the
// new array could not be made (the model keeps its old one).
int compactMaterials(Model *m) {
    if (!m->materials || m->materialCount < 2) return 1;
    std::vector<uint16_t> remap(m->materialCount);
    std::vector<Material *> kept;
    for (uint16_t k = 0; k < m->materialCount; ++k) {
        auto at = std::find(kept.begin(), kept.end(), m->materials[k]);
        if (m->materials[k] == nullptr || at == kept.end()) {
            remap[k] = static_cast<uint16_t>(kept.size());
            kept.push_back(m->materials[k]);
        } else {
            remap[k] = static_cast<uint16_t>(at - kept.begin());
        }
    }
    if (kept.size() == m->materialCount) return 1;
    auto **array = static_cast<Material **>(realloc(m->materials, sizeof(Material *) * kept.size()));
    if (!array) return 0;
    std::copy(kept.begin(), kept.end(), array);
    m->materials = array;
    m->materialCount = static_cast<uint16_t>(kept.size());
    if (m->type == MODEL_MESH) remapMeshMaterials(m->geometry.mesh, remap);
    // Shape keys hold whole mesh records, each with its polygons' materials.
    if (m->shapeAnim && m->shapeAnim->keys)
        for (int32_t k = 0; k < m->shapeAnim->keys->count; ++k) {
            const ShapeKey &key = m->shapeAnim->keys->keys[k];
            if (key.type == MODEL_MESH) remapMeshMaterials(static_cast<Mesh *>(key.geometry), remap);
        }
    return 1;
}

// The model's relations to its materials follow its array again: all removed
// from the last to the first, then one per element in the array's order.
void relinkMaterials(Dictionary *dict, int32_t modelIndex, Model *m) {
    Element *e = elemGet(dict, CHP_MODELS, modelIndex);
    std::vector<int32_t> old;
    relTargets(e, REL_MODEL_MATERIAL, CHP_MATERIALS, old);
    for (size_t i = old.size(); i-- > 0;)
        relRemove(dict, CHP_MODELS, modelIndex, 1, REL_MODEL_MATERIAL, CHP_MATERIALS, old[i], -1);
    std::vector<int32_t> added;
    for (uint16_t k = 0; m->materials && k < m->materialCount; ++k) {
        const int32_t j = m->materials[k] ? elemFindByData(dict, CHP_MATERIALS, m->materials[k]) : -1;
        if (j < 0 || std::find(added.begin(), added.end(), j) != added.end()) continue;
        relAddVia(dict, nullptr, CHP_MODELS, modelIndex, CHP_MATERIALS, j, REL_MODEL_MATERIAL, 1, 1, nullptr, 1);
        added.push_back(j);
    }
}

}  // namespace

int materialsEqual(Dictionary *dict, int32_t a, int32_t b) {
    if (a == b) return 0;  // a record is never merged with itself
    const Element *ea = elemGet(dict, CHP_MATERIALS, a), *eb = elemGet(dict, CHP_MATERIALS, b);
    if (!ea || !eb || !ea->data || !eb->data) return 0;
    const Material &x = *static_cast<const Material *>(ea->data);
    const Material &y = *static_cast<const Material *>(eb->data);
    if (!near(x.ambient, y.ambient, 3) || !near(x.diffuse, y.diffuse, 3) || !near(x.specular, y.specular, 3)) return 0;
    if (x.shadingModel != y.shadingModel || !same(x.newForm, y.newForm)) return 0;
    if (!near(x.transparencyColour, y.transparencyColour, 3)) return 0;
    if (x.specularDecay != y.specularDecay) return 0;
    if (x.textures.size() != y.textures.size()) return 0;
    for (size_t k = 0; k < x.textures.size(); ++k)
        if (!sameTexture2D(x.textures[k], y.textures[k])) return 0;
    if (x.hasTexture3D != y.hasTexture3D || (x.hasTexture3D && !sameTexture3D(x.texture3D, y.texture3D))) return 0;
    for (int k = 0; k < 3; ++k)
        if (!sameShader(x.shaders[k], y.shaders[k])) return 0;
    if (!sameShader(x.sizedShader, y.sizedShader)) return 0;
    if (x.kept7 != y.kept7 || x.kept8 != y.kept8 || x.kept10 != y.kept10 || x.kept11 != y.kept11 ||
        x.kept13 != y.kept13 || x.kept14 != y.kept14 || x.kept15 != y.kept15 || x.kept18 != y.kept18 ||
        x.kept19 != y.kept19 || x.kept20 != y.kept20 || x.kept541 != y.kept541 ||
        x.vertexColourMode != y.vertexColourMode || !sameBlocks(x.customBlocks, y.customBlocks))
        return 0;
    if (!sameCurves(dict, ea, eb, REL_MATERIAL_CURVE_FIRST, REL_MATERIAL_CURVE_LAST)) return 0;
    if (!sameLinkedTextures(dict, ea, eb, REL_MATERIAL_TEXTURE3D, CHP_TEXTURES3D, REL_TEXTURE3D_CURVE_FIRST,
                            REL_TEXTURE3D_CURVE_LAST))
        return 0;
    return sameLinkedTextures(dict, ea, eb, REL_MATERIAL_TEXTURE2D, CHP_TEXTURES2D, REL_TEXTURE2D_CURVE_FIRST,
                              REL_TEXTURE2D_CURVE_LAST)
               ? 1
               : 0;
}

int mergeMaterials(Dictionary *dict, int selectedOnly) {
    Chapter *materials = dict ? dictChapter(dict, CHP_MATERIALS) : nullptr;
    Chapter *models = dictChapter(dict, CHP_MODELS);
    if (!materials || materials->elementCount < 2) return 0;
    const int32_t n = materials->elementCount;
    // 1. Scratch words: each material its own representative, or -1 out of the merge.
    std::vector<int32_t> scratch(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i) {
        const Element &e = materials->elements[i];
        const bool out = e.deleted != ELEM_LIVE || !e.data || elemAnimated(&e) || (selectedOnly && !e.selected);
        scratch[static_cast<size_t>(i)] = out ? -1 : i;
    }
    // 2. Pairs. Two materials whose first diffuse components lie apart fail the
    // colour test, so each one is only tried against its neighbours in that order.
    std::vector<int32_t> byDiffuse;
    for (int32_t i = 0; i < n; ++i)
        if (scratch[static_cast<size_t>(i)] >= 0) byDiffuse.push_back(i);
    auto diffuseOf = [&](int32_t i) { return static_cast<const Material *>(materials->elements[i].data)->diffuse[0]; };
    std::stable_sort(byDiffuse.begin(), byDiffuse.end(), [&](int32_t p, int32_t q) { return diffuseOf(p) < diffuseOf(q); });
    std::vector<size_t> rank(static_cast<size_t>(n));
    for (size_t r = 0; r < byDiffuse.size(); ++r) rank[static_cast<size_t>(byDiffuse[r])] = r;
    auto tryPair = [&](int32_t i, int32_t j) {
        if (scratch[static_cast<size_t>(j)] == j && materialsEqual(dict, i, j)) scratch[static_cast<size_t>(j)] = i;
    };
    for (int32_t i = 0; i < n; ++i) {
        if (scratch[static_cast<size_t>(i)] != i) continue;
        const float d = diffuseOf(i);
        const size_t at = rank[static_cast<size_t>(i)];
        for (size_t r = at; r-- > 0 && std::fabs(diffuseOf(byDiffuse[r]) - d) <= COLOUR_TOLERANCE;) tryPair(i, byDiffuse[r]);
        for (size_t r = at + 1; r < byDiffuse.size() && std::fabs(diffuseOf(byDiffuse[r]) - d) <= COLOUR_TOLERANCE; ++r)
            tryPair(i, byDiffuse[r]);
    }
    // A representative merged later into another hands its group on.
    auto representative = [&](int32_t j) {
        int32_t r = scratch[static_cast<size_t>(j)];
        for (int guard = 0; r >= 0 && scratch[static_cast<size_t>(r)] != r && guard < n; ++guard)
            r = scratch[static_cast<size_t>(r)];
        return r;
    };
    // 3. Each merged material's models take its representative instead.
    std::vector<uint8_t> marked(static_cast<size_t>(models ? models->elementCount : 0));
    std::vector<int32_t> gone;
    std::vector<int32_t> users;
    for (int32_t j = 0; j < n; ++j) {
        if (scratch[static_cast<size_t>(j)] < 0 || scratch[static_cast<size_t>(j)] == j) continue;
        const int32_t rep = representative(j);
        if (rep < 0 || rep == j) continue;
        gone.push_back(j);
        Material *from = static_cast<Material *>(materials->elements[j].data);
        Material *to = static_cast<Material *>(materials->elements[rep].data);
        // The models name their materials: the relation stands on the model's side.
        users.clear();
        const Element &ej = materials->elements[j];
        for (int g = 0; ej.parentGroups && g < ej.parentGroupCount; ++g)
            for (int k = 0; k < ej.parentGroups[g].count; ++k) {
                const RelationInst &inst = ej.parentGroups[g].items[k];
                if (inst.relid == REL_MODEL_MATERIAL && inst.chp == CHP_MODELS) users.push_back(inst.elem);
            }
        for (int32_t model : users) {
            Element *em = elemGet(dict, CHP_MODELS, model);
            Model *m = em ? static_cast<Model *>(em->data) : nullptr;
            if (m)
                for (uint16_t k = 0; m->materials && k < m->materialCount; ++k)
                    if (m->materials[k] == from) m->materials[k] = to;
            if (model < static_cast<int32_t>(marked.size())) marked[static_cast<size_t>(model)] = 1;
            relRemove(dict, CHP_MODELS, model, 1, REL_MODEL_MATERIAL, CHP_MATERIALS, j, -1);
            relAddVia(dict, nullptr, CHP_MODELS, model, CHP_MATERIALS, rep, REL_MODEL_MATERIAL, 1, 1, nullptr, 1);
        }
    }
    // 4 and 6. Marked models rebuild their geometry, share one slot per
    // material and name their materials in their array's order.
    int status = 1;
    for (size_t i = 0; i < marked.size(); ++i) {
        if (!marked[i]) continue;
        Model *m = static_cast<Model *>(models->elements[i].data);
        if (!m) continue;
        m->displayFlags |= MODEL_GEOMETRY_STALE;
        if (status) status = compactMaterials(m);
        relinkMaterials(dict, static_cast<int32_t>(i), m);
    }
    // 5. The merged-away materials go, with the records they own.
    for (int32_t j : gone) {
        Element &e = materials->elements[j];
        Material *record = static_cast<Material *>(e.data);
        const uint16_t loaded = e.loaded;
        elemRemove(dict, CHP_MATERIALS, nullptr, j, -1, 0, 1);
        if (loaded) delete record;
    }
    return static_cast<int>(gone.size());
}

// ---------------------------------------------------------------------------
// Picture merge

namespace {

// One picture of the scene: what makes two textures show the same pixels.
struct PictureEntry {
    std::string name;        // picture name (and sequence) of the texture
    int32_t listId;          // display list of the first texture that showed it
    uint16_t crop[5];        // crop switch and the four bounds, whole pixels
    int32_t bytes;           // memory of the picture at power-of-two size, RGBA
    uint16_t alpha;          // alpha switch
    uint16_t video;          // video switch
};

void keyOf(const Texture2D &t, PictureEntry &e) {
    e.name = t.pictureName;
    if (!t.sequenceName.empty()) e.name += "\n" + t.sequenceName;
    if (t.sourceKind == 2) e.name += "\nicon";  // an element's icon is no file of that name
    e.crop[0] = t.cropOn;
    for (int k = 0; k < 4; ++k) e.crop[k + 1] = static_cast<uint16_t>(t.crop[k]);
    e.alpha = t.alpha;
    e.video = t.video;
}

bool sameKey(const PictureEntry &a, const PictureEntry &b) {
    return a.name == b.name && same(a.crop, b.crop) && a.alpha == b.alpha && a.video == b.video;
}

int32_t floorPowerOfTwo(int32_t v) {
    int32_t p = 1;
    while (p <= v / 2) p *= 2;
    return v > 0 ? p : 0;
}

}  // namespace

int32_t pictureMemory(int32_t width, int32_t height) { return floorPowerOfTwo(width) * floorPowerOfTwo(height) * 4; }

TOL_Status texturesMerge(Dictionary *dict, int *pictures, int *merged, int *memory) {
    *pictures = *merged = *memory = 0;
    Chapter *textures = dict ? dictChapter(dict, CHP_TEXTURES2D) : nullptr;
    std::vector<PictureEntry> table;
    int32_t entries = 0;
    for (int32_t i = 0; textures && i < textures->elementCount; ++i) {
        Element &e = textures->elements[i];
        if (e.deleted == ELEM_FREE_SLOT) continue;
        ++entries;  // hidden ones count as entries, though they are not looked at
        Texture2D *t = static_cast<Texture2D *>(e.data);
        if (e.deleted != ELEM_LIVE || !t) continue;
        PictureEntry key;
        keyOf(*t, key);
        auto found = std::find_if(table.begin(), table.end(), [&](const PictureEntry &p) { return sameKey(p, key); });
        if (found != table.end()) {
            t->listId = found->listId;
            continue;
        }
        key.listId = grSlotId(i);
        key.bytes = 0;
        if (t->sourceKind != 2) {
            // The icon of an element is drawn from the element, not read here.
            std::string path;
            PictureInfo info{};
            // A sequence is measured on the picture of the play range's first frame.
            const int32_t frame = t->sequenceName.empty() ? -1 : sceneStateCurrent().playCtrl.startFrame;
            if (!texturePicturePath(dict, t, frame, &path) || !picRead(path.c_str(), &info))
                return tol_report(TOL_ST_INVALID_GRAPHIC_DATA, "Invalid Pic name");
            key.bytes = pictureMemory(info.width, info.height);
            picFree(&info);
        }
        t->listId = 0;  // its own list
        *memory += key.bytes;
        table.push_back(std::move(key));
    }
    *pictures = static_cast<int>(table.size());
    *merged = entries - static_cast<int>(table.size());
    return 0;
}
