// Ids of the materials and textures of a scene: the numbers of their display
// lists and of their cells in the strip streams.
//
// Elements keep their slot: MATERIALS index + 2, TEXTURES2D index + 2, deleted
// slots included, so that no element's id moves when another goes. Records
// that stand inline in the models (a node's own materials, its first local
// texture, the first texture of each material) come behind the slots of their
// chapter, in the order of the trees in the file: MODELS roots by element
// index, each tree node by node as the file holds them. Both copies of a
// scene read the same files, so the update side that writes ids into streams
// and the draw side that compiles the lists agree without talking.
//
// The numbering is kept in the dictionary, freed with it, and made again when
// a chapter it was made from grew or moved, or when a record it names is no
// longer where it was. A dictionary is worked on by one thread at a time, so
// the numbering needs no lock.
#include <memory>
#include <unordered_map>
#include <vector>

#include "dictionary.h"
#include "graphic.h"
#include "material.h"
#include "model.h"

struct GrMaterialIds {
    // What a numbering was made from: the chapter's array and its length.
    struct ChapterMark {
        const Element *elements;  // the chapter's array then
        int32_t count;            // its elements then
    };
    ChapterMark made[3] = {};                          // by MARKED_CHAPTERS
    bool valid = false;                                // made at least once
    int32_t materialSlots = 0;                         // MATERIALS elements, deleted ones included
    int32_t textureSlots = 0;                          // TEXTURES2D elements, likewise
    std::vector<const Material *> materials;           // by id - 2; null for a slot without data
    std::vector<const Texture2D *> textures;           // by id - 2
    std::unordered_map<const void *, int32_t> idOf;    // id by record; -1 for a record known to be none
};

namespace {

using SceneIds = GrMaterialIds;
using ChapterMark = GrMaterialIds::ChapterMark;

constexpr int MARKED_CHAPTERS[3] = {CHP_MATERIALS, CHP_TEXTURES2D, CHP_MODELS};

ChapterMark markOf(Dictionary *dict, int chapterId) {
    const Chapter *c = dictChapter(dict, chapterId);
    return c ? ChapterMark{c->elements, c->elementCount} : ChapterMark{nullptr, 0};
}

const Texture2D *firstTexture(const Material *m) {
    return m && !m->textures.empty() ? &m->textures[0] : nullptr;
}

// The first local texture of a node, as the draw takes it.
const Texture2D *localTexture(const Model *n) {
    for (int i = 0; n->textures2D && i < n->texture2DCount; ++i)
        if (n->textures2D[i]) return n->textures2D[i];
    return nullptr;
}

void addInline(std::vector<const Material *> &list, SceneIds &ids, const Material *m) {
    if (m && ids.idOf.emplace(m, static_cast<int32_t>(list.size()) + 2).second) list.push_back(m);
}

void addInline(std::vector<const Texture2D *> &list, SceneIds &ids, const Texture2D *t) {
    if (t && ids.idOf.emplace(t, static_cast<int32_t>(list.size()) + 2).second) list.push_back(t);
}

void make(Dictionary *dict, SceneIds &ids) {
    ids = SceneIds{};
    ids.valid = true;
    for (int k = 0; k < 3; ++k) ids.made[k] = markOf(dict, MARKED_CHAPTERS[k]);
    const Chapter *materials = dictChapter(dict, CHP_MATERIALS);
    const Chapter *textures = dictChapter(dict, CHP_TEXTURES2D);
    const Chapter *models = dictChapter(dict, CHP_MODELS);
    ids.materialSlots = materials ? materials->elementCount : 0;
    ids.textureSlots = textures ? textures->elementCount : 0;
    for (int32_t i = 0; i < ids.materialSlots; ++i) {
        const Element &e = materials->elements[i];
        const Material *m = e.deleted != ELEM_LIVE ? nullptr : static_cast<const Material *>(e.data);
        ids.materials.push_back(m);
        if (m) ids.idOf.emplace(m, grSlotId(i));
    }
    for (int32_t i = 0; i < ids.textureSlots; ++i) {
        const Element &e = textures->elements[i];
        const Texture2D *t = e.deleted != ELEM_LIVE ? nullptr : static_cast<const Texture2D *>(e.data);
        ids.textures.push_back(t);
        if (t) ids.idOf.emplace(t, grSlotId(i));
    }
    // The models' own materials and local textures, tree by tree in file order.
    std::vector<const Texture2D *> locals;
    for (int32_t i = 0; models && i < models->elementCount; ++i) {
        const Element &e = models->elements[i];
        const Model *root = e.deleted != ELEM_LIVE ? nullptr : static_cast<const Model *>(e.data);
        if (!root || root->parent) continue;
        for (const Model *n = root; n; n = modelTreeNext(n, root)) {
            for (int k = 0; n->materials && k < n->materialCount; ++k) addInline(ids.materials, ids, n->materials[k]);
            if (const Texture2D *t = localTexture(n); t && !ids.idOf.count(t)) locals.push_back(t);
        }
    }
    // Textures: the first of each material in id order, then the models' own.
    for (const Material *m : ids.materials) addInline(ids.textures, ids, firstTexture(m));
    for (const Texture2D *t : locals) addInline(ids.textures, ids, t);
}

// The numbering of a dictionary, made again when a chapter it was made from
// changed.
SceneIds &idsOf(Dictionary *dict) {
    if (!dict->materialIds) dict->materialIds = std::make_shared<SceneIds>();
    SceneIds &ids = *dict->materialIds;
    bool same = ids.valid;
    for (int k = 0; k < 3 && same; ++k) {
        const ChapterMark now = markOf(dict, MARKED_CHAPTERS[k]);
        same = now.elements == ids.made[k].elements && now.count == ids.made[k].count;
    }
    if (!same) make(dict, ids);
    return ids;
}

// The element slot still holds the record the numbering saw there.
bool slotHolds(Dictionary *dict, int chapterId, int32_t index, const void *record) {
    const Element *e = elemGet(dict, chapterId, index);
    return e && e->deleted == ELEM_LIVE && e->data == record;
}

// Id of a record, looked up; a record that is missing or moved makes the
// numbering again once, and is then remembered as none if still absent.
int32_t idLookUp(Dictionary *dict, const void *record, int chapterId) {
    SceneIds &ids = idsOf(dict);
    const int32_t slots = chapterId == CHP_MATERIALS ? ids.materialSlots : ids.textureSlots;
    auto found = ids.idOf.find(record);
    const bool stale = found == ids.idOf.end() ||
                       (found->second >= 2 && found->second - 2 < slots &&
                        !slotHolds(dict, chapterId, found->second - 2, record));
    if (stale) {
        make(dict, ids);
        found = ids.idOf.emplace(record, -1).first;
    }
    return found->second;
}

}  // namespace

int grMaterialId(Dictionary *dict, const Material *material) {
    if (!material || !dict) return DEFAULT_MATERIAL_ID;
    const int32_t id = idLookUp(dict, material, CHP_MATERIALS);
    return id >= 2 ? id : DEFAULT_MATERIAL_ID;
}

const Material *grMaterialOfId(Dictionary *dict, int id) {
    if (id == DEFAULT_MATERIAL_ID) return &materialDefault();
    if (!dict || id < 2) return nullptr;
    SceneIds &ids = idsOf(dict);
    const size_t at = static_cast<size_t>(id - 2);
    if (at >= ids.materials.size()) return nullptr;
    // An element's slot is read afresh: its data may have been set since.
    if (id - 2 < ids.materialSlots) {
        const Element *e = elemGet(dict, CHP_MATERIALS, id - 2);
        return e && e->deleted == ELEM_LIVE ? static_cast<const Material *>(e->data) : nullptr;
    }
    return ids.materials[at];
}

int grMaterialIdEnd(Dictionary *dict) {
    if (!dict) return 2;
    return static_cast<int>(idsOf(dict).materials.size()) + 2;
}

int grTextureId(Dictionary *dict, const Texture2D *texture) {
    if (!texture || !dict) return -1;
    const int32_t id = idLookUp(dict, texture, CHP_TEXTURES2D);
    // A texture merged with an earlier one of the same picture draws through its list.
    if (id >= 2 && texture->listId >= 2) return texture->listId;
    return id >= 2 ? id : -1;
}

const Texture2D *grTextureOfId(Dictionary *dict, int id) {
    if (!dict || id < 2) return nullptr;
    SceneIds &ids = idsOf(dict);
    const size_t at = static_cast<size_t>(id - 2);
    if (at >= ids.textures.size()) return nullptr;
    if (id - 2 < ids.textureSlots) {
        const Element *e = elemGet(dict, CHP_TEXTURES2D, id - 2);
        return e && e->deleted == ELEM_LIVE ? static_cast<const Texture2D *>(e->data) : nullptr;
    }
    return ids.textures[at];
}

int grTextureIdEnd(Dictionary *dict) {
    if (!dict) return 2;
    return static_cast<int>(idsOf(dict).textures.size()) + 2;
}
