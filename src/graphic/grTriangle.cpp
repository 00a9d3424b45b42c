// Triangle strips: the preprocess of a model (tessellate, then build the
// strips), the strip walk over the triangles' edge table, the compile of the
// strips into the float stream that the draw plays, and the release of the
// display form.
//
// Stream cells are 32-bit. The first cell of a strip vertex holds the index
// of its vertex record in the model's array, as the bits of an int32; a
// pointer would not fit.
#include <GL/gl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "database.h"
#include "dictionary.h"
#include "material.h"
#include "tess_internal.h"

int g_keepOrientation = 1;

namespace {

constexpr uint16_t SHADING_CONSTANT = 1;  // drawn unlit
constexpr uint16_t SHADING_SHADOW = 6;    // catches shadows only: no strips
constexpr uint16_t MAP_CYLINDER = 5, MAP_SPHERE = 6;
constexpr int32_t KIND_SKIPPED = 13;  // a model kind without strips, beside instances
constexpr float COLOUR_SCALE = 0.00392156862745098f;  // 1 / 255

Dictionary *lookupDict() { return tessDictionary(); }

int materialIdDefault(const Material *material) { return grMaterialId(lookupDict(), material); }

int textureIdDefault(const Texture2D *texture) { return grTextureId(lookupDict(), texture); }

}  // namespace

int (*g_stripMaterialId)(const Material *material) = materialIdDefault;
int (*g_stripTextureId)(const Texture2D *texture) = textureIdDefault;

namespace {

BW_GlbVar &glbOf(const BW_GraphicProps *gprops) { return gprops && gprops->glbVar ? *gprops->glbVar : glbVar; }

int stopped(const BW_GraphicProps *gprops) { return gprops && gprops->stopFct && gprops->stopFct() ? TOL_ST_STOPPED : 0; }

bool drawnType(int32_t type) {
    return type == MODEL_PATCH || type == MODEL_FACE || type == MODEL_MESH || type == MODEL_META ||
           type == MODEL_NURBS_SURFACE;
}

// What a header depends on besides the triangles.
struct HeaderKey {
    int32_t curMaterialId, curMaterialTexId, defaultMaterialId, localTextureId;
    int32_t policy[4];
    uint32_t revisions;
};

// The revisions of the materials the model draws with and of their textures
// and its own, summed: the stream holds colours, modes and projected UV of
// them, so a change of any after the read (revisions only grow) asks for new
// strips.
uint32_t lookRevisions(const Model *model) {
    uint32_t sum = 0;
    const Model *owner = model;
    while (owner && !(owner->materials && owner->materialCount > 0)) owner = owner->parent;
    for (int i = 0; owner && i < owner->materialCount; ++i) {
        const Material *m = owner->materials[i];
        if (!m) continue;
        sum += m->revision;
        for (const Texture2D &t : m->textures) sum += t.revision;
    }
    for (int i = 0; model->textures2D && i < model->texture2DCount; ++i)
        if (model->textures2D[i]) sum += model->textures2D[i]->revision;
    return sum;
}

void headerKey(const Model *model, const BW_GlbVar &g, HeaderKey *k) {
    const Material *material = modelMaterial(model);
    k->curMaterialId = g_stripMaterialId(material);
    k->curMaterialTexId = materialTexture(material) ? g_stripTextureId(materialTexture(material)) : -1;
    k->defaultMaterialId = k->curMaterialId;
    const Texture2D *local = modelLocalTexture(model, g);
    k->localTextureId = local ? g_stripTextureId(local) : -1;
    k->policy[0] = g.useLocalTexture | (int32_t{g.useMaterialTexture} << 16);
    k->policy[1] = g.materialOverLocal;
    k->policy[2] = g.currentMaterialOnly;
    k->policy[3] = g.texFilter;
    k->revisions = lookRevisions(model);
}

bool headerValid(const TmeshHeader *h, const HeaderKey &k, const BW_GlbVar &g, const BW_GraphicProps *gprops) {
    if (h->curMaterialId != k.curMaterialId || h->curMaterialTexId != k.curMaterialTexId ||
        h->defaultMaterialId != k.defaultMaterialId || h->localTextureId != k.localTextureId)
        return false;
    if (memcmp(h->policy, k.policy, sizeof k.policy) != 0 || h->revisions != k.revisions) return false;
    const uint16_t active = gprops ? gprops->texture.active : 0;
    return h->listId == -1 || (h->textureState == active && g.listEnable);
}

// ---------------------------------------------------------------------------
// Sorting by material

// Orders the triangle array by material id (null first, as -1); triangles of
// different materials with the same id stay apart, in order of appearance.
void trianglesSort(Model *model) {
    const int32_t n = model->triangleCount;
    std::vector<const Material *> distinct;
    std::unordered_map<const Material *, int32_t> slotOf;
    std::vector<int32_t> slot(static_cast<size_t>(n));
    const Material *last = nullptr;
    int32_t lastSlot = -1;
    for (int32_t i = 0; i < n; ++i) {
        const Material *m = model->triangles[i].material;
        if (lastSlot < 0 || m != last) {
            auto found = slotOf.find(m);
            if (found == slotOf.end()) {
                found = slotOf.emplace(m, static_cast<int32_t>(distinct.size())).first;
                distinct.push_back(m);
            }
            last = m;
            lastSlot = found->second;
        }
        slot[static_cast<size_t>(i)] = lastSlot;
    }
    // Rank of each material: by id, then by appearance.
    std::vector<int32_t> order(distinct.size()), rank(distinct.size()), id(distinct.size());
    for (size_t s = 0; s < distinct.size(); ++s) {
        order[s] = static_cast<int32_t>(s);
        id[s] = distinct[s] ? g_stripMaterialId(distinct[s]) : -1;
    }
    std::sort(order.begin(), order.end(), [&](int32_t a, int32_t b) {
        return id[static_cast<size_t>(a)] != id[static_cast<size_t>(b)] ? id[static_cast<size_t>(a)] < id[static_cast<size_t>(b)]
                                                                        : a < b;
    });
    for (size_t r = 0; r < order.size(); ++r) rank[static_cast<size_t>(order[r])] = static_cast<int32_t>(r);
    bool sorted = true;
    for (int32_t i = 1; i < n && sorted; ++i)
        sorted = rank[static_cast<size_t>(slot[static_cast<size_t>(i - 1)])] <= rank[static_cast<size_t>(slot[static_cast<size_t>(i)])];
    if (!sorted) {
        // Counting sort by rank into a fresh array.
        std::vector<int64_t> start(distinct.size() + 1);
        for (int32_t i = 0; i < n; ++i) ++start[static_cast<size_t>(rank[static_cast<size_t>(slot[static_cast<size_t>(i)])]) + 1];
        for (size_t r = 1; r < start.size(); ++r) start[r] += start[r - 1];
        TessTriangle *sortedArray = static_cast<TessTriangle *>(tessAlloc(static_cast<size_t>(n), sizeof(TessTriangle)));
        for (int32_t i = 0; i < n; ++i)
            sortedArray[start[static_cast<size_t>(rank[static_cast<size_t>(slot[static_cast<size_t>(i)])])]++] = model->triangles[i];
        free(model->triangles);
        model->triangles = sortedArray;
    }
    for (int32_t i = 0; i < n; ++i) model->triangles[i].next = i + 1 < n ? &model->triangles[i + 1] : nullptr;
}

// ---------------------------------------------------------------------------
// Strip walk

// Across each edge of each triangle, the triangle that may continue a strip
// there: of the triangles that share the edge's two vertices, the first two
// in triangle order are neighbours of each other (a third one has none), if
// they have the same material; an edge that a seam triangle lies on has
// none. -1 for none.
struct Walk {
    const Model *model;
    std::vector<int32_t> corner;   // 3 vertex indices per triangle; -1 for a null vertex
    std::vector<uint8_t> seam;     // seam triangles
    std::vector<uint8_t> used;
    std::vector<int32_t> across;   // per triangle edge k (corners k, k + 1): the neighbour

    // The triangle across edge (x, y) of `t` that may continue a strip:
    // unused, same material, not across a seam, and running the edge the
    // other way so that the strip keeps its turning sense. -1 for none.
    int32_t neighbour(int32_t t, int32_t x, int32_t y) const {
        const int32_t *ct = &corner[3 * static_cast<size_t>(t)];
        int edge = -1;
        for (int k = 0; k < 3; ++k)
            if ((ct[k] == x && ct[(k + 1) % 3] == y) || (ct[k] == y && ct[(k + 1) % 3] == x)) edge = k;
        if (edge < 0) return -1;
        const int32_t n = across[3 * static_cast<size_t>(t) + static_cast<size_t>(edge)];
        if (n < 0 || used[static_cast<size_t>(n)]) return -1;
        // t runs from -> to; n must run the other way.
        const int32_t from = ct[edge], to = ct[(edge + 1) % 3];
        const int32_t *cn = &corner[3 * static_cast<size_t>(n)];
        for (int k = 0; k < 3; ++k)
            if (cn[k] == to && cn[(k + 1) % 3] == from) return n;
        return -1;
    }
};

// Seam of one texture: the triangle's corners fall on both sides of it.
bool onSeam(const Model *model, int32_t t, const std::vector<const Texture2D *> &wraps) {
    const TessTriangle &tri = model->triangles[t];
    for (const Texture2D *tex : wraps) {
        int sides = 0;
        for (const TessVertex *v : tri.v) {
            float uv[2];
            sides |= textureProject(tex, v->refPos, uv);
        }
        if (sides == 3) return true;
    }
    return false;
}

// The cylindrical and spherical textures of the model and of its materials.
std::vector<const Texture2D *> wrapTextures(const Model *model) {
    std::vector<const Texture2D *> out;
    auto take = [&](const Texture2D *t) {
        if (t && (t->method == MAP_CYLINDER || t->method == MAP_SPHERE)) out.push_back(t);
    };
    for (int i = 0; model->textures2D && i < model->texture2DCount; ++i) take(model->textures2D[i]);
    std::vector<const Material *> seen;
    auto takeMaterial = [&](const Material *m) {
        if (!m || std::find(seen.begin(), seen.end(), m) != seen.end()) return;
        seen.push_back(m);
        for (const Texture2D &t : m->textures) take(&t);
    };
    for (int i = 0; model->materials && i < model->materialCount; ++i) takeMaterial(model->materials[i]);
    const Material *last = nullptr;
    for (int32_t t = 0; t < model->triangleCount; ++t)
        if (model->triangles[t].material != last) takeMaterial(last = model->triangles[t].material);
    return out;
}

// Fills `across`: the triangle edges grouped by their lower vertex (in
// triangle order within a group), each group ordered by the higher vertex,
// then each run of one vertex pair read as one edge.
void acrossMake(Walk &w) {
    const int32_t n = w.model->triangleCount, nv = w.model->vertexCount;
    struct Record {
        int32_t hi;    // higher vertex of the edge
        int32_t slot;  // 3 x triangle + edge
    };
    std::vector<int64_t> start(static_cast<size_t>(nv) + 1, 0);
    for (int32_t t = 0; t < n; ++t) {
        const int32_t *c = &w.corner[3 * static_cast<size_t>(t)];
        if (c[0] < 0) continue;
        for (int k = 0; k < 3; ++k) ++start[static_cast<size_t>(std::min(c[k], c[(k + 1) % 3])) + 1];
    }
    for (size_t i = 1; i < start.size(); ++i) start[i] += start[i - 1];
    std::vector<Record> records(static_cast<size_t>(start.back()));
    {
        std::vector<int64_t> fill(start.begin(), start.end() - 1);
        for (int32_t t = 0; t < n; ++t) {
            const int32_t *c = &w.corner[3 * static_cast<size_t>(t)];
            if (c[0] < 0) continue;
            for (int k = 0; k < 3; ++k) {
                const int32_t a = c[k], b = c[(k + 1) % 3];
                records[static_cast<size_t>(fill[static_cast<size_t>(std::min(a, b))]++)] =
                    Record{std::max(a, b), 3 * t + k};
            }
        }
    }
    w.across.assign(3 * static_cast<size_t>(n), -1);
    // Groups are mostly a handful of records: each is sorted in place,
    // stably, and each group writes only its own records' slots, so groups
    // run at once.
    tessParallel(nv, TESS_GRAIN, [&](int64_t from, int64_t to) {
        for (int64_t v = from; v < to; ++v) {
            Record *first = records.data() + start[static_cast<size_t>(v)];
            Record *end = records.data() + start[static_cast<size_t>(v) + 1];
            if (end - first > 32) {
                // The hub of a fan: no quadratic sort.
                std::stable_sort(first, end, [](const Record &x, const Record &y) { return x.hi < y.hi; });
            } else {
                for (Record *r = first + 1; r < end; ++r)
                    for (Record *q = r; q > first && q[-1].hi > q->hi; --q) std::swap(q[-1], *q);
            }
            for (Record *run = first; run < end;) {
                Record *stop = run + 1;
                while (stop < end && stop->hi == run->hi) ++stop;
                const int32_t a = run->slot / 3, b = stop - run > 1 ? run[1].slot / 3 : -1;
                const bool seam = w.seam[static_cast<size_t>(a)] || (b >= 0 && w.seam[static_cast<size_t>(b)]);
                const bool same = b >= 0 && w.model->triangles[a].material == w.model->triangles[b].material;
                for (Record *r = run; same && !seam && r < stop; ++r) {
                    const int32_t t = r->slot / 3;
                    w.across[static_cast<size_t>(r->slot)] = t == a ? b : (t == b ? a : -1);
                }
                run = stop;
            }
        }
    });
}

}  // namespace

void tmeshBuildFree(TmeshBuild *build) {
    if (build->header) free(build->header->stream);
    free(build->header);
    free(build->cells);
    free(build->materials);
    memset(build, 0, sizeof *build);
}

int modelCreateTmesh(Model *model, TmeshBuild *build) {
    memset(build, 0, sizeof *build);
    build->header = static_cast<TmeshHeader *>(calloc(1, sizeof(TmeshHeader)));
    if (!build->header) {
        fprintf(stderr, "No tmesh structure: %s %d\n", GR_TRIANGLE_SOURCE, __LINE__);
        return 0;
    }
    build->header->listId = -1;
    const int32_t n = model->triangleCount;
    if (!model->triangles || n <= 0) {
        fprintf(stderr, "modelCreateTmesh: No triangles!! %s %d\n", GR_TRIANGLE_SOURCE, __LINE__);
        return 0;
    }
    build->cells = static_cast<int32_t *>(malloc(6 * static_cast<size_t>(n) * sizeof(int32_t)));
    build->materials = static_cast<Material **>(malloc(sizeof(Material *)));
    if (!build->cells || !build->materials) {
        fprintf(stderr, "No array of tmesh: %s %d\n", GR_TRIANGLE_SOURCE, __LINE__);
        return 0;
    }
    int32_t materialRoom = 1;

    Walk w;
    w.model = model;
    w.corner.resize(3 * static_cast<size_t>(n));
    w.seam.assign(static_cast<size_t>(n), 0);
    w.used.assign(static_cast<size_t>(n), 0);
    const std::vector<const Texture2D *> wraps = wrapTextures(model);
    tessParallel(n, TESS_GRAIN, [&](int64_t from, int64_t to) {
        for (int32_t t = static_cast<int32_t>(from); t < to; ++t) {
            const TessTriangle &tri = model->triangles[t];
            const bool whole = tri.v[0] && tri.v[1] && tri.v[2];
            for (int k = 0; k < 3; ++k)
                w.corner[3 * static_cast<size_t>(t) + static_cast<size_t>(k)] =
                    whole ? static_cast<int32_t>(tri.v[k] - model->vertices) : -1;
            if (!whole) w.used[static_cast<size_t>(t)] = 1;
            else if (!wraps.empty()) w.seam[static_cast<size_t>(t)] = onSeam(model, t, wraps);
        }
    });
    acrossMake(w);

    Material *modelDefault = modelMaterial(model);
    int32_t *out = build->cells;
    int64_t at = 0;
    bool first = true;
    const Material *current = nullptr;
    for (int32_t start = 0; start < n; ++start) {
        if (w.used[static_cast<size_t>(start)]) continue;
        const TessTriangle &tri = model->triangles[start];
        const bool seam = w.seam[static_cast<size_t>(start)];
        if (first || tri.material != current || seam) {
            Material *m = tri.material ? tri.material : modelDefault;
            int32_t slot = build->materialCount;
            if (slot > 0 && build->materials[slot - 1] == m) {
                slot -= 1;
            } else {
                if (slot == materialRoom) {
                    materialRoom *= 2;
                    Material **grown = static_cast<Material **>(realloc(build->materials, sizeof(Material *) * static_cast<size_t>(materialRoom)));
                    if (!grown) {
                        fprintf(stderr, "Can't allocate memory: %s %d\n", GR_TRIANGLE_SOURCE, __LINE__);
                        return 0;
                    }
                    build->materials = grown;
                }
                build->materials[build->materialCount++] = m;
            }
            out[at++] = TMESH_MATERIAL;
            out[at++] = slot;
            current = tri.material;
            first = false;
        }
        // Start on the side that has somewhere to go.
        const int32_t *c = &w.corner[3 * static_cast<size_t>(start)];
        int rot = 2;
        if (w.neighbour(start, c[1], c[2]) >= 0) rot = 0;
        else if (w.neighbour(start, c[2], c[0]) >= 0) rot = 1;
        int32_t b = c[(rot + 1) % 3], next = c[(rot + 2) % 3];
        out[at++] = c[rot];
        out[at++] = b;
        int32_t t = start;
        for (;;) {
            out[at++] = next;
            w.used[static_cast<size_t>(t)] = 1;
            if (w.seam[static_cast<size_t>(t)]) break;
            const int32_t nb = w.neighbour(t, b, next);
            if (nb < 0 || w.seam[static_cast<size_t>(nb)]) break;
            const int32_t *cn = &w.corner[3 * static_cast<size_t>(nb)];
            int32_t third = cn[0];
            for (int k = 0; k < 3; ++k)
                if (cn[k] != b && cn[k] != next) third = cn[k];
            b = next;
            next = third;
            t = nb;
        }
        out[at++] = TMESH_STRIP_END;
    }
    build->count = at;
    return 1;
}

// ---------------------------------------------------------------------------
// Stream compile

namespace {

// How the vertices of one material run are written.
struct RunForm {
    float token;               // material cell
    int32_t id;                // material id
    const Material *material;  // the material, or the default one
    const Texture2D *texture;  // null: no UV cells
    int32_t textureId;         // texture cell id
    bool shadow;               // tokens but no strips
    bool colour;               // r, g, b cells
    bool shaded;               // normal cells
    int colourMode;            // vertex colour mode of the material
    int stride;                // cells per vertex
};

void runFormMake(const Model *model, Material *material, const Texture2D *local, const BW_GlbVar &g,
                 const BW_GraphicProps *gprops, RunForm *f) {
    const Material &mat = material ? *material : materialDefault();
    f->material = &mat;
    f->id = g_stripMaterialId(material);
    f->shadow = mat.shadingModel == SHADING_SHADOW;
    f->colourMode = mat.vertexColourMode;
    f->colour = f->colourMode != 1 || (gprops && gprops->vertexColors == 1);
    f->shaded = mat.shadingModel != SHADING_CONSTANT;
    f->token = f->shaded ? (f->colour ? STRIP_MAT_SHADED_COLOUR : STRIP_MAT_SHADED)
                         : (f->colour ? STRIP_MAT_CONSTANT_COLOUR : STRIP_MAT_CONSTANT);
    f->texture = textureResolve(model, material, local, g);
    f->textureId = f->texture ? g_stripTextureId(f->texture) : -1;
    if (f->textureId < 0) f->texture = nullptr;
    f->stride = 4 + (f->texture ? 3 : 0) + (f->colour ? 3 : 0) + (f->shaded ? 3 : 0);
}

// Writes one strip vertex; returns the seam side code of its UV.
int vertexWrite(float *cell, const TessVertex *v, int32_t index, const RunForm &f, bool mirrored) {
    memcpy(cell++, &index, sizeof index);
    int side = 0;
    if (f.texture) {
        float uv[2];
        int fromSurface = 0;
        side = stripVertexUv(f.texture, v, uv, &fromSurface);
        *cell++ = static_cast<float>(fromSurface);
        *cell++ = uv[0];
        *cell++ = uv[1];
    }
    if (f.colour) {
        for (int k = 0; k < 3; ++k) {
            cell[k] = static_cast<float>((v->colour >> (8 * k)) & 0xFF) * COLOUR_SCALE;
            if (f.colourMode == 3) cell[k] += f.material->diffuse[k];
        }
        cell += 3;
    }
    if (f.shaded) {
        for (int k = 0; k < 3; ++k) cell[k] = mirrored ? -v->normal[k] : v->normal[k];
        cell += 3;
    }
    memcpy(cell, v->pos, sizeof v->pos);
    return side;
}

// Three vertices of a strip around the wrap of a cylindrical or spherical
// texture: their coordinates on the wrap axis are brought to one side.
void wrapMend(const Texture2D *t, float *uv[3]) {
    const float coverage = t->uScale;
    const int axis = t->swap ? 1 : 0;
    if (coverage <= 0.5f) {
        for (int i = 0; i < 3; ++i)
            if (uv[i][axis] > 0.5f) uv[i][axis] = -uv[i][axis];
        return;
    }
    const float d = (2.0f - coverage) / (3.0f - coverage);
    for (int i = 0; i < 3; ++i) {
        if (axis == 1 && uv[i][1] > 0.75f) uv[i][1] -= d;
        if (axis == 0 && uv[i][0] < 0.25f) uv[i][0] += d;
    }
}

int streamCompile(Model *model, TmeshBuild *build, const BW_GlbVar &g, const BW_GraphicProps *gprops) {
    std::vector<RunForm> forms(static_cast<size_t>(build->materialCount));
    const Texture2D *local = modelLocalTexture(model, g);
    for (int32_t s = 0; s < build->materialCount; ++s)
        runFormMake(model, build->materials[s], local, g, gprops, &forms[static_cast<size_t>(s)]);
    const int32_t *cells = build->cells;

    // Sizing pass. It also cuts the cells into pieces at strip starts, with
    // each piece's place in the stream and the form in force there, so that
    // the pieces are filled at once.
    struct Piece {
        int64_t cell;        // first cell of the piece
        int64_t at;          // its first float in the stream
        const RunForm *form; // the form in force at its start
    };
    constexpr int64_t PIECE_CELLS = int64_t{1} << 15;
    std::vector<Piece> pieces{{0, 0, nullptr}};
    int64_t size = 1;
    const RunForm *f = nullptr;
    bool open = false;
    for (int64_t i = 0; i < build->count; ++i) {
        if (!open && i >= pieces.back().cell + PIECE_CELLS && cells[i] != TMESH_STRIP_END)
            pieces.push_back(Piece{i, size - 1, f});
        if (cells[i] == TMESH_MATERIAL) {
            f = &forms[static_cast<size_t>(cells[++i])];
            size += f->texture ? 4 : 2;
            open = false;
        } else if (cells[i] == TMESH_STRIP_END) {
            open = false;
        } else if (!f->shadow) {
            if (!open) ++size;
            open = true;
            size += f->stride;
        }
    }
    float *stream = size <= INT32_MAX ? static_cast<float *>(malloc(static_cast<size_t>(size) * sizeof(float))) : nullptr;
    if (!stream) {
        fprintf(stderr, "Can't allocate memory: %s %d\n", GR_TRIANGLE_SOURCE, __LINE__);
        return 0;
    }

    // Filling pass, piece by piece.
    const bool mirrored = modelMirrored(model);
    auto fill = [&](const Piece &piece, int64_t endCell) {
        const RunForm *f = piece.form;
        int64_t at = piece.at, countAt = -1;
        int64_t window[3];   // UV cells of the strip's last three vertices
        int sides[3] = {0, 0, 0}, inWindow = 0;
        for (int64_t i = piece.cell; i < endCell; ++i) {
            const int32_t c = cells[i];
            if (c == TMESH_MATERIAL) {
                f = &forms[static_cast<size_t>(cells[++i])];
                stream[at++] = f->token;
                stream[at++] = static_cast<float>(f->id);
                if (f->texture) {
                    stream[at++] = STRIP_TEXTURE;
                    stream[at++] = static_cast<float>(f->textureId);
                }
                countAt = -1;
            } else if (c == TMESH_STRIP_END) {
                if (countAt >= 0) stream[countAt] = static_cast<float>(at - countAt - 1);
                countAt = -1;
            } else if (!f->shadow) {
                if (countAt < 0) {
                    countAt = at;
                    stream[at++] = STRIP_PLACEHOLDER;
                    inWindow = 0;
                }
                const int side = vertexWrite(&stream[at], &model->vertices[c], c, *f, mirrored);
                const bool wraps = f->texture && (f->texture->method == MAP_CYLINDER || f->texture->method == MAP_SPHERE);
                if (wraps && !stripOldUvConversion()) {
                    window[inWindow % 3] = at + 2;
                    sides[inWindow % 3] = side;
                    if (++inWindow >= 3 && (sides[0] | sides[1] | sides[2]) == 3) {
                        float *uv[3] = {&stream[window[0]], &stream[window[1]], &stream[window[2]]};
                        wrapMend(f->texture, uv);
                    }
                }
                at += f->stride;
            }
        }
    };
    tessParallel(static_cast<int64_t>(pieces.size()), 1, [&](int64_t from, int64_t to) {
        for (int64_t p = from; p < to; ++p)
            fill(pieces[static_cast<size_t>(p)],
                 p + 1 < static_cast<int64_t>(pieces.size()) ? pieces[static_cast<size_t>(p) + 1].cell : build->count);
    });
    int64_t at = size - 1;
    stream[at++] = STRIP_END;

    TmeshHeader *h = build->header;
    h->stream = stream;
    h->streamLength = static_cast<int32_t>(at);
    h->listId = -1;
    h->compileRequest = 1;
    h->lastMaterial = -1;
    h->lastTexture = -1;
    return 1;
}

}  // namespace

// ---------------------------------------------------------------------------
// Preprocess and release

int modelPreprocess(Model *model, BW_GraphicProps *gprops) {
    if (!model) return 23;
    if (model->kind == KIND_SKIPPED || model->kind == MODEL_KIND_INSTANCE || !drawnType(model->type)) return 0;
    const BW_GlbVar &g = glbOf(gprops);
    if (model->displayFlags & MODEL_GEOMETRY_STALE) modelDropGeometry(model, 0);

    if (model->vertices && model->triangles) {
        // Strips: kept while nothing they depend on changed.
        HeaderKey key;
        headerKey(model, g, &key);
        // The normals in the stream follow the handedness of the global
        // scale: a model turned inside out by its scale rebuilds them.
        const bool turned = model->transfoDirtyDraw & TRANSFO_MIRRORED;
        if (model->tmesh) {
            const bool valid = headerValid(model->tmesh, key, g, gprops);
            if (valid && !turned && !(model->displayFlags & (MODEL_STRIPS_STALE | MODEL_STRIPS_STALE_2))) return 0;
            if (!valid) modelDropStrips(model);
        }
        trianglesSort(model);
        if (stopped(gprops)) return TOL_ST_STOPPED;
        TmeshBuild build;
        if (modelCreateTmesh(model, &build) && streamCompile(model, &build, g, gprops)) {
            TmeshHeader *h = build.header;
            h->curMaterialId = key.curMaterialId;
            h->curMaterialTexId = key.curMaterialTexId;
            h->defaultMaterialId = key.defaultMaterialId;
            h->localTextureId = key.localTextureId;
            memcpy(h->policy, key.policy, sizeof h->policy);
            h->revisions = key.revisions;
            h->textureState = gprops ? gprops->texture.active : 0;
            // Swapped in whole: the draw never sees a half-built header.
            modelDropStrips(model);
            model->tmesh = h;
            build.header = nullptr;
            model->displayFlags &= static_cast<uint8_t>(~(MODEL_STRIPS_STALE | MODEL_STRIPS_STALE_2));
            model->transfoDirtyDraw &= static_cast<uint16_t>(~TRANSFO_MIRRORED);
            tmeshBuildFree(&build);
            return stopped(gprops);
        }
        tmeshBuildFree(&build);
        fprintf(stderr, "Model %s has an error in tmesher. \n", model->name ? model->name : "");
        return 0;
    }

    // Geometry first; the strips follow at the next call.
    if (stopped(gprops)) return TOL_ST_STOPPED;
    modelDropStrips(model);
    const int status = tessellateModel(model, 2, 0, static_cast<int16_t>(g.patch_lod));
    if (status != 0) {
        fprintf(stderr, "%s: tessellation of %s failed with status %d\n", GR_TRIANGLE_SOURCE,
                model->name ? model->name : "", status);
        return 0;
    }
    model->displayFlags &= static_cast<uint8_t>(~MODEL_GEOMETRY_STALE);
    if (!g_keepOrientation)
        for (int32_t t = 0; t < model->triangleCount; ++t) std::swap(model->triangles[t].v[0], model->triangles[t].v[2]);
    return 0;
}

void modelDropStrips(Model *model) {
    if (!model || !model->tmesh) return;
    if (model->tmesh->listId >= 0) grListRetire(model->tmesh->listId);
    free(model->tmesh->stream);
    free(model->tmesh);
    model->tmesh = nullptr;
}

void modelDropGeometry(Model *model, int recurse) {
    if (!model) return;
    std::vector<Model *> stack{model};
    while (!stack.empty()) {
        Model *m = stack.back();
        stack.pop_back();
        tessArraysDrop(m);
        modelDropStrips(m);
        if (!recurse) break;
        for (Model *c = m->firstChild; c; c = c->nextSibling) stack.push_back(c);
    }
}

TOL_Status grPreprocessAll(TOL_Scene *scene, BW_GraphicProps *gprops) {
    if (!gprops->material.shade) return 0;
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    Chapter *models = dict ? dictChapter(dict, CHP_MODELS) : nullptr;
    if (!models) return 0;
    tessDictionarySet(dict);
    TOL_Status status = 0;
    for (int32_t i = 0; i < models->elementCount && status == 0; ++i) {
        const Element &e = models->elements[i];
        Model *m = static_cast<Model *>(e.data);
        if (e.deleted != ELEM_LIVE || !m || !m->visible) continue;
        status = modelPreprocess(m, gprops);
    }
    tessDictionarySet(nullptr);
    return status == TOL_ST_STOPPED ? TOL_ST_STOPPED : 0;
}
