// What stands in for an element whose file is missing or unreadable: a
// default record where the scene can go on without the original, removal
// where it cannot, and nothing but the report in chapters that have no
// stand-in at all.
#include <cstring>
#include <string>

#include "animation.h"
#include "camera.h"
#include "material.h"
#include "model.h"
#include "scene_internal.h"

namespace {

std::string chapterLabel(Dictionary *dict, int chapterId) {
    Chapter *chapter = dictChapter(dict, chapterId);
    return chapter ? chapter->name : std::string("?");
}

void report(const char *format, const std::string &chapter, const std::string &name) {
    char text[BW_PATH_MAX + 128];
    snprintf(text, sizeof text, format, chapter.c_str(), name.c_str());
    msgShow(text, TOL_CLASS_WARNING);
}

const char kReplaced[] = "Missing %s [%s] has been replaced by a default element";
const char kRemoved[] = "Missing %s [%s] could not be replaced: removed from scene";

constexpr int CHP_SPREADSHEET_SETUP = 32;
constexpr int32_t REL_LIGHT_HIERARCHY = 2110;  // a light and its interest

// A cube of edge 1 at the element's schematic place, relative to its parent.
void *defaultModel(Dictionary *dict, Element *elem, int index) {
    // Paths and chains would drive a node that is not the one they were made for.
    relRemove(dict, CHP_MODELS, index, 1, 112, -1, -1, -1);
    relRemove(dict, CHP_MODELS, index, 1, 120, -1, -1, -1);
    elem = elemGet(dict, CHP_MODELS, index);
    Model *cube = modelNew(elem->name->name.c_str(), MODEL_MESH, meshMakeCube(1.0f));
    if (!cube) return nullptr;
    float x = elem->schemX, y = elem->schemY;
    int16_t group = RELGR_TRANSFO;
    relGroups(&g_relationDict, 110, &group, nullptr);
    int32_t chp = -1, parent = -1;
    if (Element *p = relFirst(dict, elem, 1, group, 110, CHP_MODELS, &chp, &parent)) {
        x -= p->schemX;
        y -= p->schemY;
    }
    cube->translation[0] = x;
    cube->translation[1] = y;
    cube->elementIndex = index;
    modelUpdateTransform(cube);
    return cube;
}

void *defaultMaterial(Dictionary *, Element *elem, int) {
    Material *m = new Material;
    m->name = elem->name->name;
    return m;
}

void *defaultTexture2D(Dictionary *, Element *elem, int) {
    Texture2D *t = new Texture2D;
    t->pictureName = elem->name->name;
    return t;
}

void *defaultTexture3D(Dictionary *, Element *elem, int) {
    Texture3D *t = new Texture3D;
    t->name = elem->name->name;
    return t;
}

Light *lightNamed(const std::string &name) {
    Light *l = new Light;
    strncpy(l->name, name.c_str(), sizeof l->name - 1);
    return l;
}

// A white point light at the origin. The interest that a relation 2110 ties
// to it gets a light of its own, switched off: it marks where the light
// looks and must not light the scene a second time.
void *defaultLight(Dictionary *dict, Element *elem, int) {
    for (int side = 0; side < 2; ++side) {
        RelationGroup *groups = side ? elem->childGroups : elem->parentGroups;
        int count = side ? elem->childGroupCount : elem->parentGroupCount;
        for (int g = 0; groups && g < count; ++g)
            for (int k = 0; k < groups[g].count; ++k) {
                const RelationInst &r = groups[g].items[k];
                if (r.relid != REL_LIGHT_HIERARCHY || r.chp != CHP_LIGHTS) continue;
                Element *interest = elemGet(dict, CHP_LIGHTS, r.elem);
                if (!interest || interest == elem || interest->data || !interest->name) continue;
                Light *second = lightNamed(interest->name->name);
                second->on = 0;
                interest->data = second;
                interest->loaded = 1;
                side = 2;  // one interest per light
                break;
            }
    }
    return lightNamed(elem->name->name);
}

// A missing cluster file is replaced by the cluster of its name that the
// model owning the element (relation 700) already holds; null for none.
void *ownersCluster(Dictionary *dict, Element *elem) {
    for (int g = 0; elem->parentGroups && g < elem->parentGroupCount; ++g) {
        const RelationGroup &group = elem->parentGroups[g];
        for (int k = 0; k < group.count; ++k) {
            const RelationInst &r = group.items[k];
            Element *owner = r.relid == 700 && r.chp == CHP_MODELS ? elemGet(dict, CHP_MODELS, r.elem) : nullptr;
            const Model *m = owner ? static_cast<const Model *>(owner->data) : nullptr;
            for (Cluster *c = m ? m->clusterList : nullptr; c; c = c->next)
                if (c->name && elem->name->name == c->name) return c;
        }
    }
    return nullptr;
}

enum SubstituteKind {
    SUBST_KEEP,      // only the report: the element stays as it is
    SUBST_REMOVE,    // removed from the scene
    SUBST_DROP,      // removed, reported as replaced
    SUBST_DEFAULT,   // a default record made by `make`
    SUBST_CLUSTER,   // a cluster of the owning model, else removed; no read report
};

using MakeDefault = void *(*)(Dictionary *dict, Element *elem, int index);

struct Substitution {
    SubstituteKind kind;
    MakeDefault make;  // SUBST_DEFAULT only
};

#define BW_SUBSTITUTIONS(X)                            \
    X(CHP_CAMERAS, SUBST_REMOVE, nullptr)              \
    X(CHP_LATTICES, SUBST_REMOVE, nullptr)             \
    X(CHP_SHAPES, SUBST_REMOVE, nullptr)               \
    X(CHP_WAVES, SUBST_REMOVE, nullptr)                \
    X(CHP_ANIMATION, SUBST_REMOVE, nullptr)            \
    X(CHP_SPREADSHEET_SETUP, SUBST_DROP, nullptr)      \
    X(CHP_MODELS, SUBST_DEFAULT, defaultModel)         \
    X(CHP_MATERIALS, SUBST_DEFAULT, defaultMaterial)   \
    X(CHP_TEXTURES2D, SUBST_DEFAULT, defaultTexture2D) \
    X(CHP_TEXTURES3D, SUBST_DEFAULT, defaultTexture3D) \
    X(CHP_LIGHTS, SUBST_DEFAULT, defaultLight)         \
    X(CHP_CLUSTERS, SUBST_CLUSTER, nullptr)

struct SubstitutionTable {
    Substitution rows[CHAPTER_COUNT] = {};  // SUBST_KEEP where no row stands
    SubstitutionTable() {
#define BW_SUBSTITUTION_ROW(chapter, kind, make) rows[chapter] = {kind, make};
        BW_SUBSTITUTIONS(BW_SUBSTITUTION_ROW)
#undef BW_SUBSTITUTION_ROW
    }
};

const Substitution &substitutionOf(int chapterId) {
    static const SubstitutionTable table;
    static const Substitution keep = {SUBST_KEEP, nullptr};
    return chapterId >= 0 && chapterId < CHAPTER_COUNT ? table.rows[chapterId] : keep;
}

}  // namespace

void sceneSubstitute(Database *db, Dictionary *dict, int chapterId, Element *elem, int index) {
    (void)db;
    if (!dict || !elem || !elem->name || elem->data) return;
    const Substitution &s = substitutionOf(chapterId);
    std::string name = elem->name->fullName;
    if (s.kind != SUBST_CLUSTER) {
        char text[BW_PATH_MAX + 64];
        snprintf(text, sizeof text, "Couldn't read file %s", g_elemPath[0] ? g_elemPath : name.c_str());
        msgShow(text, TOL_CLASS_ERROR);
    }
    std::string label = chapterLabel(dict, chapterId);
    switch (s.kind) {
    case SUBST_KEEP:
        return;
    case SUBST_CLUSTER:
        if (void *kept = ownersCluster(dict, elem)) {
            elem->data = kept;
            elem->loaded = 0;  // the model's
            report(kReplaced, label, name);
            return;
        }
        [[fallthrough]];
    case SUBST_REMOVE:
        elemRemove(dict, chapterId, nullptr, index, -1, 0, 1);
        report(kRemoved, label, name);
        return;
    case SUBST_DROP:
        elemRemove(dict, chapterId, nullptr, index, -1, 0, 1);
        report(kReplaced, label, name);
        return;
    case SUBST_DEFAULT: {
        void *made = s.make(dict, elem, index);
        elem = elemGet(dict, chapterId, index);
        elem->data = made;
        elem->loaded = 1;
        report(kReplaced, label, name);
        return;
    }
    }
}
