// What stands in for an element whose file is missing or unreadable: a
// default record where the scene can go on without the original, removal
// where it cannot.
#include <string>

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

// A cube of edge 1 at the element's schematic place, relative to its parent.
Model *defaultModel(Dictionary *dict, Element *elem, int index) {
    Model *cube = modelNew(elem->name->name.c_str(), 4, meshMakeCube(1.0f));
    if (!cube) return nullptr;
    float x = elem->schemX, y = elem->schemY;
    int32_t chp = -1, parent = -1;
    if (Element *p = relFirst(dict, elem, 1, RELGR_TRANSFO, 110, CHP_MODELS, &chp, &parent)) {
        x -= p->schemX;
        y -= p->schemY;
    }
    cube->translation[0] = x;
    cube->translation[1] = y;
    cube->elementIndex = index;
    modelUpdateTransform(cube);
    return cube;
}

}  // namespace

void sceneSubstitute(Database *db, Dictionary *dict, int chapterId, Element *elem, int index) {
    (void)db;
    if (!dict || !elem || !elem->name || elem->data) return;
    std::string name = elem->name->fullName;
    {
        char text[BW_PATH_MAX + 64];
        snprintf(text, sizeof text, "Couldn't read file %s", g_elemPath[0] ? g_elemPath : name.c_str());
        msgShow(text, TOL_CLASS_ERROR);
    }
    std::string label = chapterLabel(dict, chapterId);
    switch (chapterId) {
    case CHP_MODELS: {
        // Paths and chains would drive a node that is not the one they were made for.
        relRemove(dict, chapterId, index, 1, 112, -1, -1, -1);
        relRemove(dict, chapterId, index, 1, 120, -1, -1, -1);
        elem = elemGet(dict, chapterId, index);
        elem->data = defaultModel(dict, elem, index);
        break;
    }
    case CHP_MATERIALS: {
        Material *m = new Material;
        m->name = elem->name->name;
        elem->data = m;
        break;
    }
    case CHP_TEXTURES2D: {
        Texture2D *t = new Texture2D;
        t->pictureName = elem->name->name;
        elem->data = t;
        break;
    }
    case CHP_TEXTURES3D: {
        Texture3D *t = new Texture3D;
        t->name = elem->name->name;
        elem->data = t;
        break;
    }
    case CHP_CLUSTERS:
        // A cluster is read from its model; without one of its name there is nothing to keep.
        elemRemove(dict, chapterId, nullptr, index, -1, 0, 1);
        report(kRemoved, label, name);
        return;
    case 32:  // SPREADSHEET_SETUP
        elemRemove(dict, chapterId, nullptr, index, -1, 0, 1);
        report(kReplaced, label, name);
        return;
    default:
        // Cameras, lattices, shapes, waves and curves (and lights until
        // their records exist) cannot be made up.
        elemRemove(dict, chapterId, nullptr, index, -1, 0, 1);
        report(kRemoved, label, name);
        return;
    }
    elem->loaded = 1;
    report(kReplaced, label, name);
}
