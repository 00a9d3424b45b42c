// Shape and cluster elements of a scene: each file belongs to the model that
// names it through its relation (200 for shapes, 700 for clusters), and what
// it holds is given to that model, which owns it from then on.
#include <cstdio>

#include "animation.h"
#include "dictionary.h"
#include "model.h"

namespace {

int readShapes(Dictionary *dict, int index, const char *path) {
    Model *owner = sceneRelationOwner(dict, CHP_SHAPES, index, 200);
    if (!owner) {
        fprintf(stderr, "Shape keys %s: no model names them through relation 200\n", path);
        return -1;
    }
    ShapeKeys *keys = shapeFileRead(path, owner);
    if (!keys || !shapeAnimAttach(owner, keys)) return 0;
    elemGet(dict, CHP_SHAPES, index)->data = owner->shapeAnim;
    return 2;  // the model owns the keys
}

int readClusters(Dictionary *dict, int index, const char *path) {
    Model *owner = sceneRelationOwner(dict, CHP_CLUSTERS, index, 700);
    if (!owner) {
        fprintf(stderr, " READ CLUSTER: model not found !!!\n");
        return -1;
    }
    Cluster *chain = clusterFileRead(path, owner);
    if (!chain || !clusterAttach(owner, chain)) return 0;
    elemGet(dict, CHP_CLUSTERS, index)->data = chain;
    return 2;  // the model owns its clusters
}

}  // namespace

Model *sceneRelationOwner(Dictionary *dict, int chapterId, int index, int32_t relid) {
    Element *e = elemGet(dict, chapterId, index);
    for (int g = 0; e && e->parentGroups && g < e->parentGroupCount; ++g) {
        const RelationGroup &group = e->parentGroups[g];
        for (int k = 0; k < group.count; ++k) {
            const RelationInst &r = group.items[k];
            if (r.relid != relid || r.chp != CHP_MODELS) continue;
            if (Element *m = elemGet(dict, CHP_MODELS, r.elem))
                if (m->data) return static_cast<Model *>(m->data);
        }
    }
    return nullptr;
}

void shapeSceneInstall() {
    sceneChapterReaderSet(CHP_SHAPES, readShapes, nullptr);
    sceneChapterReaderSet(CHP_CLUSTERS, readClusters, nullptr);
}
