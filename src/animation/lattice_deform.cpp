// Lattices as deformers: a cage of control points laid over a box around the
// model. Where the cage's points stand away from their rest grid, the model's
// points inside the box move by the piecewise trilinear mix, over the cell
// they lie in, of those moves. The keys of a .lat file are the states of the
// slot: the first is the cage in use, the others the states that keyed
// deformation mixes into it.
#include <cmath>
#include <string>
#include <vector>

#include "animation.h"
#include "camera.h"
#include "dictionary.h"
#include "model.h"
#include "tol_status.h"
#include "updatelist_internal.h"

namespace {

// The rest frame of a key: box coordinates (-0.5 to 0.5 on each axis) scaled
// by the key's first vector, turned by its second (radians, x then y then z)
// and moved by its third.
void restFrame(const LatticeKey &key, float m[4][4]) {
    eulerToMatrix(key.vectors[1], m);
    for (int row = 0; row < 3; ++row) {
        for (int c = 0; c < 3; ++c) m[row][c] *= key.vectors[0][row];
        m[3][row] = key.vectors[2][row];
    }
}

// Box coordinate of grid index i of n along one axis.
float gridCoordinate(int i, int n) { return n > 1 ? static_cast<float>(i) / static_cast<float>(n - 1) - 0.5f : 0.0f; }

// Moves the points of the lattice's slot; the points in one frame, the cage
// in the same frame.
struct LatticeWork {
    float toBox[4][4];     // frame to box coordinates
    int n[3];              // divisions
    int32_t stride[3];     // index step to the next control point along each axis; 0 for a flat axis
    const float *moves;    // per control point: its displacement, 3 floats, already through the block
};

inline void movePoint(const LatticeWork &w, float p[3]) {
    float box[3];
    for (int a = 0; a < 3; ++a) {
        box[a] = p[0] * w.toBox[0][a] + p[1] * w.toBox[1][a] + p[2] * w.toBox[2][a] + w.toBox[3][a];
        if (!(box[a] >= -0.5f && box[a] <= 0.5f)) return;  // outside the box (or not a number): stays
    }
    int32_t base = 0;
    float f[3];
    for (int a = 0; a < 3; ++a) {
        const int cells = w.n[a] - 1;
        if (cells < 1) {
            f[a] = 0.0f;
            continue;
        }
        const float g = (box[a] + 0.5f) * static_cast<float>(cells);
        int cell = static_cast<int>(g);
        if (cell > cells - 1) cell = cells - 1;
        f[a] = g - static_cast<float>(cell);
        base += cell * (a == 0 ? 1 : a == 1 ? w.n[0] : w.n[0] * w.n[1]);
    }
    const float *m = w.moves;
    const int32_t sx = w.stride[0], sy = w.stride[1], sz = w.stride[2];
    const int32_t corner[8] = {base, base + sx, base + sy, base + sx + sy,
                               base + sz, base + sx + sz, base + sy + sz, base + sx + sy + sz};
    const float gx = 1.0f - f[0], gy = 1.0f - f[1], gz = 1.0f - f[2];
    const float weight[8] = {gx * gy * gz, f[0] * gy * gz, gx * f[1] * gz, f[0] * f[1] * gz,
                             gx * gy * f[2], f[0] * gy * f[2], gx * f[1] * f[2], f[0] * f[1] * f[2]};
    float d[3] = {0.0f, 0.0f, 0.0f};
    for (int k = 0; k < 8; ++k) {
        const float *c = m + 3 * corner[k];
        d[0] += weight[k] * c[0];
        d[1] += weight[k] * c[1];
        d[2] += weight[k] * c[2];
    }
    p[0] += d[0], p[1] += d[1], p[2] += d[2];
}

// Gives `fresh` to the model's slot, in place of what it held; elements that
// showed the old lattice show the new one. The slot's lattice, or null.
Lattice *slotReplace(Dictionary *dict, Model *model, int kind, Lattice *fresh) {
    ModelDeformers *deformers = modelDeformersOf(model);
    if (!deformers) {
        latticeFree(fresh);
        return nullptr;
    }
    Lattice *old = deformers->slot[kind].lattice;
    deformers->slot[kind].lattice = fresh;
    if (old && dict) {
        for (int index; (index = elemFindByData(dict, CHP_LATTICES, old)) >= 0;)
            elemGet(dict, CHP_LATTICES, index)->data = fresh;
    }
    latticeFree(old);
    return fresh;
}

// LATTICES elements of a scene: each belongs to the model that names it
// through 210 (local form), or else 215 (global form).
int readLattice(Dictionary *dict, int index, const char *path) {
    int kind = DEFORM_SLOT_LOCAL;
    Model *owner = sceneRelationOwner(dict, CHP_LATTICES, index, 210);
    if (!owner) {
        owner = sceneRelationOwner(dict, CHP_LATTICES, index, 215);
        kind = DEFORM_SLOT_GLOBAL;
    }
    if (!owner) {
        const std::string caller = std::string("sceneLoad(): ") + path + ":";
        tol_report(TOL_ST_LATTICE_WITHOUT_MODEL, caller.c_str());
        return -1;
    }
    Lattice *read = latticeFileLoad(path);
    if (!read) return 0;
    Lattice *lattice = slotReplace(dict, owner, kind, read);
    if (!lattice) return 0;
    elemGet(dict, CHP_LATTICES, index)->data = lattice;  // shown by the element, owned by the model
    return 2;
}

}  // namespace

int latticeApply(Model *model, int slot, float (*points)[3], int32_t count) {
    if (!model || !model->deformers || slot < 0 || slot >= DEFORM_SLOT_COUNT || !points || count <= 0) return 0;
    const DeformSlotData &s = model->deformers->slot[slot];
    const Lattice *lattice = s.lattice;
    if (!lattice || lattice->keyCount < 1 || !lattice->keys) return 0;
    const LatticeKey &key = lattice->keys[0];
    LatticeWork w;
    int64_t total = 1;
    for (int a = 0; a < 3; ++a) {
        w.n[a] = key.divisions[a];
        total *= w.n[a];
    }
    if (total <= 0 || total != key.pointCount || !key.points) return 0;
    const DeformerBlock &block = s.latticeBlock;
    if (!(block.falloff > 0.0f)) return 0;
    float frame[4][4];
    restFrame(key, frame);
    if (!mat4Inverse(frame, w.toBox)) return 0;  // a flat box holds no point
    w.stride[0] = w.n[0] > 1 ? 1 : 0;
    w.stride[1] = w.n[1] > 1 ? w.n[0] : 0;
    w.stride[2] = w.n[2] > 1 ? w.n[0] * w.n[1] : 0;

    // Each control point's move from its rest place, through the block's
    // matrix and strength: done once per call, the points then only mix.
    thread_local std::vector<float> moves;
    if (moves.size() < static_cast<size_t>(3 * total)) moves.resize(static_cast<size_t>(3 * total));
    bool any = false;
    for (int z = 0, at = 0; z < w.n[2]; ++z)
        for (int y = 0; y < w.n[1]; ++y)
            for (int x = 0; x < w.n[0]; ++x, ++at) {
                const float box[3] = {gridCoordinate(x, w.n[0]), gridCoordinate(y, w.n[1]), gridCoordinate(z, w.n[2])};
                float rest[3];
                pointMul(box, frame, rest);
                const float d[3] = {key.points[at][0] - rest[0], key.points[at][1] - rest[1], key.points[at][2] - rest[2]};
                for (int c = 0; c < 3; ++c) {
                    const float v = (d[0] * block.matrix[0][c] + d[1] * block.matrix[1][c] + d[2] * block.matrix[2][c]) *
                                    block.falloff;
                    moves[static_cast<size_t>(3 * at + c)] = v;
                    any = any || v != 0.0f;
                }
            }
    if (!any) return 0;
    w.moves = moves.data();
    for (int32_t i = 0; i < count; ++i) movePoint(w, points[i]);
    return 1;
}

int latticeFileRead(const char *path, Model *model, int kind) {
    if (!path || !model || (kind != DEFORM_SLOT_LOCAL && kind != DEFORM_SLOT_GLOBAL)) return 0;
    Lattice *read = latticeFileLoad(path);
    if (!read) return 0;
    Dictionary *dict = dictCurrent();
    Lattice *lattice = slotReplace(dict, model, kind, read);
    if (!lattice) return 0;
    // The first key makes the lattice's element, named after the model.
    if (dict && lattice->keyCount > 0 && elemFindByData(dict, CHP_LATTICES, lattice) < 0) {
        const std::string name = std::string(model->name ? model->name : "") + '-' + "Lat";
        ElemName *elemName = elemNameParse(name.c_str(), nullptr, 0);
        if (elemName && elemAdd(dict, CHP_LATTICES, elemName, lattice, nullptr, -1, 0) < 0) elemNameFree(elemName);
    }
    return 1;
}

void latticeSceneInstall() { sceneChapterReaderSet(CHP_LATTICES, readLattice, nullptr); }
