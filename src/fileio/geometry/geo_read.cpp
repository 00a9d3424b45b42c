// Readers of the geometry records. Each follows the token loop of the frame:
// tokens from the record's prototype list or from the stream, known ones read
// into the record, others skipped by their high byte.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>
#include <algorithm>

#include "../binary/bin_internal.h"
#include "geo_internal.h"
#include "model.h"

namespace {

constexpr double DEG_TO_RAD = 3.14159265358979323846 / 180.0;

// Neighbour lists up to this long are scanned when linking; longer ones are searched.
constexpr int kScanNeighbours = 16;

// First token of a record; the loops below also stop once the reader failed,
// since a list would otherwise go on handing out tokens over zeros.
#define FOR_TOKENS(t, r, proto, id, cur) \
    for (uint16_t t = binFirstToken(r, proto, id, cur); t != 0 && !(r).failed; t = binNextToken(r, cur))

uint16_t boolWord(uint16_t value) { return value ? 1 : 0; }

// ---------------------------------------------------------------------------
// Mesh

void readVertex(BinReader &r, const Prototype *proto, MeshVertex &v) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_VERTEX, cur) {
        switch (t) {
        case 1: binReadFloat3(r, v.pos); break;
        case 3: case 4: v.flag = binReadU16(r); break;
        default: binSkip(r, t);
        }
    }
}

void readNode(BinReader &r, const Prototype *proto, int32_t uvDomains, MeshNode &n) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_POLYNODE, cur) {
        switch (t) {
        case 1: n.vrt = binReadU16(r); break;
        case 3: n.vrt = binReadI32(r); break;
        case 2: binReadFloat3(r, n.nrm); break;
        case 4: n.u = binReadF32(r); n.v = binReadF32(r); break;
        case 1029:
            n.colour = binReadU32(r);
            if (r.version < MESH_ALPHA_VERSION) n.colour |= 0xFF000000u;
            break;
        case 0xFF06: {
            int32_t size = binReadI32(r);
            if (size < 0) { binFail(r, "negative size of a polygon node's UV block"); break; }
            if (!binCheckCount(r, size, 1)) break;
            int64_t pairs = uvDomains > 1 ? uvDomains - 1 : 0;
            if (pairs * 8 > size) { binFail(r, "UV block shorter than the node's UV domains"); break; }
            free(n.uvs);
            n.uvs = pairs ? static_cast<float *>(calloc(static_cast<size_t>(pairs) * 2, sizeof(float))) : nullptr;
            int64_t used = 0;
            if (n.uvs) used = static_cast<int64_t>(binReadFloats(r, n.uvs, static_cast<size_t>(pairs) * 2)) * 4;
            geoSkipBytes(r, size - used);
            break;
        }
        default: binSkip(r, t);
        }
    }
}

void readPolygon(BinReader &r, const Prototype *proto, int32_t uvDomains, MeshPolygon &p) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_POLYGON, cur) {
        switch (t) {
        case 1: binReadFloat3(r, p.nrm); break;
        case 2: {
            uint16_t count = binReadU16(r);
            for (int i = 0; i < p.nodeCount; ++i) free(p.nodes[i].uvs);
            free(p.nodes);
            p.nodeCount = 0;
            p.nodes = static_cast<MeshNode *>(
                geoAllocChecked(r, count, geoRecordMinBytes(proto, REC_POLYNODE), sizeof(MeshNode)));
            if (!p.nodes) break;
            p.nodeCount = count;
            for (int i = 0; i < count; ++i) {
                p.nodes[i].edg = -1;
                readNode(r, proto, uvDomains, p.nodes[i]);
            }
            break;
        }
        case 3: p.material = binReadU16(r); break;
        case 4: p.flg = binReadU16(r); break;
        default: binSkip(r, t);
        }
    }
}

void readEdge(BinReader &r, const Prototype *proto, MeshEdge &e) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_EDGE, cur) {
        switch (t) {
        case 1: e.vrt[0] = binReadU16(r); e.vrt[1] = binReadU16(r); break;
        case 4: e.vrt[0] = binReadI32(r); e.vrt[1] = binReadI32(r); break;
        case 3: e.flg = binReadU16(r); break;
        case 2: case 5: break;  // flags of old files without a value
        default: binSkip(r, t);
        }
    }
}

void freeVertices(Mesh &m) {
    for (int32_t i = 0; i < m.vertexCount; ++i)
        if (!meshNeighboursInBlock(&m, m.vertices[i].neighbours)) free(m.vertices[i].neighbours);
    free(m.neighbourBlock);
    free(m.vertices);
    m.vertices = nullptr;
    m.vertexCount = 0;
    m.neighbourBlock = nullptr;
    m.neighbourBlockCount = 0;
}

void freePolygons(Mesh &m) {
    for (int32_t i = 0; i < m.polygonCount; ++i) {
        for (int j = 0; j < m.polygons[i].nodeCount; ++j) free(m.polygons[i].nodes[j].uvs);
        if (!meshNodesInBlock(&m, m.polygons[i].nodes)) free(m.polygons[i].nodes);
    }
    free(m.polygons);
    free(m.nodeBlock);
    m.polygons = nullptr;
    m.polygonCount = 0;
    m.nodeBlock = nullptr;
    m.nodeBlockCount = 0;
}

// ---------------------------------------------------------------------------
// Mesh records from memory
//
// With a prototype list, a record's fields sit at known places, so a large
// mesh is decoded straight from the file's bytes: one bounds check a field on
// a local cursor, no call a value. Whatever is unusual (a cut record, a
// negative size, a UV block too short, no memory) makes the decoder give up on
// that record with nothing consumed; the checked readers above then read it
// and report the fault exactly as they would have alone.

struct Span {
    const uint8_t *at;
    const uint8_t *end;
    bool has(int64_t n) const { return n <= end - at; }
};

// The value of a token the readers do not know, by its high byte.
inline bool spanSkip(Span &s, uint16_t t) {
    int rule = tokenSkip(t);
    if (rule == BIN_SKIP_NONE) return true;
    int64_t n = rule;
    if (rule == BIN_SKIP_SIZED) {
        if (!s.has(4)) return false;
        n = static_cast<int32_t>(binBig32(s.at));
        s.at += 4;
        if (n < 0) return false;
    }
    if (!s.has(n)) return false;
    s.at += n;
    return true;
}

inline void spanFloats(Span &s, float *out, int n) {
    for (int i = 0; i < n; ++i) out[i] = binBigFloat(s.at + 4 * i);
    s.at += 4 * n;
}

bool decodeVertex(const uint16_t *list, Span &s, MeshVertex &v) {
    for (; *list; ++list) {
        switch (*list) {
        case 1: if (!s.has(12)) return false; spanFloats(s, v.pos, 3); break;
        case 3: case 4: if (!s.has(2)) return false; v.flag = binBig16(s.at); s.at += 2; break;
        default: if (!spanSkip(s, *list)) return false;
        }
    }
    return true;
}

bool decodeEdge(const uint16_t *list, Span &s, MeshEdge &e) {
    for (; *list; ++list) {
        switch (*list) {
        case 1:
            if (!s.has(4)) return false;
            e.vrt[0] = binBig16(s.at); e.vrt[1] = binBig16(s.at + 2); s.at += 4;
            break;
        case 4:
            if (!s.has(8)) return false;
            e.vrt[0] = static_cast<int32_t>(binBig32(s.at));
            e.vrt[1] = static_cast<int32_t>(binBig32(s.at + 4));
            s.at += 8;
            break;
        case 3: if (!s.has(2)) return false; e.flg = binBig16(s.at); s.at += 2; break;
        case 2: case 5: break;
        default: if (!spanSkip(s, *list)) return false;
        }
    }
    return true;
}

// A node into `n` (zeroed but for edg by the caller). On false n.uvs may hold
// a block the caller frees.
bool decodeNode(const uint16_t *list, Span &s, float version, int32_t uvDomains, MeshNode &n) {
    for (; *list; ++list) {
        switch (*list) {
        case 1: if (!s.has(2)) return false; n.vrt = binBig16(s.at); s.at += 2; break;
        case 3: if (!s.has(4)) return false; n.vrt = static_cast<int32_t>(binBig32(s.at)); s.at += 4; break;
        case 2: if (!s.has(12)) return false; spanFloats(s, n.nrm, 3); break;
        case 4:
            if (!s.has(8)) return false;
            n.u = binBigFloat(s.at); n.v = binBigFloat(s.at + 4); s.at += 8;
            break;
        case 1029:
            if (!s.has(4)) return false;
            n.colour = binBig32(s.at);
            if (version < MESH_ALPHA_VERSION) n.colour |= 0xFF000000u;
            s.at += 4;
            break;
        case 0xFF06: {
            if (!s.has(4)) return false;
            int32_t size = static_cast<int32_t>(binBig32(s.at));
            int64_t pairs = uvDomains > 1 ? uvDomains - 1 : 0;
            if (size < 0 || !s.has(4 + int64_t{size}) || pairs * 8 > size) return false;
            s.at += 4;
            free(n.uvs);
            n.uvs = nullptr;
            if (pairs) {
                n.uvs = static_cast<float *>(malloc(static_cast<size_t>(pairs) * 2 * sizeof(float)));
                if (!n.uvs) return false;
                spanFloats(s, n.uvs, static_cast<int>(pairs * 2));
                s.at += size - pairs * 8;
            } else {
                s.at += size;
            }
            break;
        }
        default: if (!spanSkip(s, *list)) return false;
        }
    }
    return true;
}

// The node block of a mesh being read, grown as polygons come. Polygons keep
// their place in it as an index until the block stops moving.
struct NodeBlock {
    MeshNode *nodes = nullptr;
    int64_t used = 0;
    int64_t room = 0;
    int64_t limit = 0;  // most nodes the rest of the file can hold

    bool reserve(int64_t more) {
        if (used + more <= room) return true;
        if (used + more > limit) return false;
        int64_t want = std::max(room * 2, used + more);
        want = std::min(want, limit);
        size_t bytes = static_cast<size_t>(want) * sizeof(MeshNode);
        auto *grown = static_cast<MeshNode *>(nodes ? realloc(nodes, bytes) : binAllocLarge(bytes));
        if (!grown) return false;
        nodes = grown;
        room = want;
        return true;
    }
    void dropFrom(int64_t from) {
        for (int64_t i = from; i < used; ++i) free(nodes[i].uvs);
        used = from;
    }
};

// A polygon whose node list goes to the end of `block`; its `nodes` field is
// left null, to be pointed into the block once it stops moving.
bool decodePolygon(const uint16_t *list, const uint16_t *nodeList, int64_t nodeMinBytes, Span &s,
                   float version, int32_t uvDomains, NodeBlock &block, MeshPolygon &p) {
    bool haveNodes = false;
    for (; *list; ++list) {
        switch (*list) {
        case 1: if (!s.has(12)) return false; spanFloats(s, p.nrm, 3); break;
        case 2: {
            if (!s.has(2) || haveNodes) return false;
            uint16_t count = binBig16(s.at);
            s.at += 2;
            haveNodes = true;
            if (count == 0) break;
            if (count > (s.end - s.at) / nodeMinBytes || !block.reserve(count)) return false;
            for (int i = 0; i < count; ++i) {
                MeshNode &n = block.nodes[block.used++];
                n = MeshNode{};
                n.edg = -1;
                if (!decodeNode(nodeList, s, version, uvDomains, n)) return false;
            }
            p.nodeCount = count;
            break;
        }
        case 3: if (!s.has(2)) return false; p.material = binBig16(s.at); s.at += 2; break;
        case 4: if (!s.has(2)) return false; p.flg = binBig16(s.at); s.at += 2; break;
        default: if (!spanSkip(s, *list)) return false;
        }
    }
    return true;
}

// Where each field of a record lies when the record's prototype list holds
// only values of known, fixed size: the common case, decoded without a token
// loop. Offsets are from the record's start, -1 for a field the list lacks;
// when a list sets a field twice the later place wins, as in the loop.
struct NodeLayout {
    bool fixed = false;  // false: the token loop decodes the record
    int32_t size = 0;    // bytes of one node
    int32_t vrt = -1, nrm = -1, uv = -1, colour = -1;
    int32_t uvBlock = -1;  // size word of the extra UV block, which must be empty
    bool wideVrt = false;  // vertex index as i32 (token 3), else u16 (token 1)
};

struct PolygonLayout {
    bool fixed = false;
    int32_t head = 0;  // bytes up to and with the node count
    int32_t tail = 0;  // bytes after the nodes
    // Offsets into the head, or (with the tail flag) into the tail.
    int32_t nrm = -1, material = -1, flg = -1;
    bool nrmTail = false, materialTail = false, flgTail = false;
};

// Bytes of a token's value when the reader would step over it, -1 when not fixed.
int32_t fixedSkip(uint16_t t) {
    int rule = tokenSkip(t);
    return rule == BIN_SKIP_SIZED ? -1 : rule;
}

// With one UV domain the extra UV block of a node is empty, so the node keeps
// a fixed size; with more the token loop reads the blocks.
NodeLayout nodeLayout(const uint16_t *list, int32_t uvDomains) {
    NodeLayout L;
    int32_t at = 0;
    for (; list && *list; ++list) {
        switch (*list) {
        case 1: L.vrt = at; L.wideVrt = false; at += 2; break;
        case 3: L.vrt = at; L.wideVrt = true; at += 4; break;
        case 2: L.nrm = at; at += 12; break;
        case 4: L.uv = at; at += 8; break;
        case 1029: L.colour = at; at += 4; break;
        case 0xFF06:
            if (uvDomains > 1 || L.uvBlock >= 0) return NodeLayout{};
            L.uvBlock = at;
            at += 4;
            break;
        default: {
            int32_t n = fixedSkip(*list);
            if (n < 0) return NodeLayout{};
            at += n;
        }
        }
    }
    L.fixed = list != nullptr && at > 0;
    L.size = at;
    return L;
}

PolygonLayout polygonLayout(const uint16_t *list) {
    PolygonLayout L;
    int32_t at = 0;
    bool tail = false;
    for (; list && *list; ++list) {
        switch (*list) {
        case 1: L.nrm = at; L.nrmTail = tail; at += 12; break;
        case 2:
            if (tail) return PolygonLayout{};  // a second node list goes through the loop
            L.head = at + 2;
            at = 0;
            tail = true;
            break;
        case 3: L.material = at; L.materialTail = tail; at += 2; break;
        case 4: L.flg = at; L.flgTail = tail; at += 2; break;
        default: {
            int32_t n = fixedSkip(*list);
            if (n < 0) return PolygonLayout{};
            at += n;
        }
        }
    }
    L.fixed = tail;
    L.tail = at;
    return L;
}

inline void bigFloats(const uint8_t *b, float *out, int n) {
    for (int i = 0; i < n; ++i) out[i] = binBigFloat(b + 4 * i);
}

// A polygon of fixed layouts: its nodes go to the end of `block` as in
// decodePolygon; false, with nothing taken, when the record runs past the end
// or the block cannot hold its nodes.
bool decodePolygonFixed(const PolygonLayout &P, const NodeLayout &N, Span &s, bool noAlpha,
                        NodeBlock &block, MeshPolygon &p) {
    if (!s.has(P.head)) return false;
    const uint8_t *head = s.at;
    uint16_t count = binBig16(head + P.head - 2);
    int64_t body = int64_t{count} * N.size;
    if (!s.has(P.head + body + P.tail)) return false;
    if (count && !block.reserve(count)) return false;
    const uint8_t *b = head + P.head;
    const uint8_t *tail = b + body;
    MeshNode *n = block.nodes + block.used;
    for (int i = 0; i < count; ++i, b += N.size, ++n) {
        if (N.uvBlock >= 0 && binBig32(b + N.uvBlock) != 0) return false;
        n->vrt = N.vrt < 0 ? 0 : N.wideVrt ? static_cast<int32_t>(binBig32(b + N.vrt)) : binBig16(b + N.vrt);
        n->edg = -1;
        if (N.nrm >= 0) bigFloats(b + N.nrm, n->nrm, 3);
        else n->nrm[0] = n->nrm[1] = n->nrm[2] = 0.0f;
        if (N.uv >= 0) {
            n->u = binBigFloat(b + N.uv);
            n->v = binBigFloat(b + N.uv + 4);
        } else {
            n->u = n->v = 0.0f;
        }
        n->colour = N.colour < 0 ? 0 : binBig32(b + N.colour) | (noAlpha ? 0xFF000000u : 0u);
        n->uvs = nullptr;
    }
    block.used += count;
    p = MeshPolygon{};
    if (P.nrm >= 0) bigFloats((P.nrmTail ? tail : head) + P.nrm, p.nrm, 3);
    if (P.material >= 0) p.material = binBig16((P.materialTail ? tail : head) + P.material);
    if (P.flg >= 0) p.flg = binBig16((P.flgTail ? tail : head) + P.flg);
    p.nodeCount = count;
    s.at = tail + P.tail;
    return true;
}

void freeEdges(Mesh &m) {
    int32_t blocks = (m.edgeCount + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    for (int32_t b = 0; b < blocks && m.edgeBlocks; ++b) free(m.edgeBlocks[b]);
    free(m.edgeBlocks);
    m.edgeBlocks = nullptr;
    m.edgeCount = 0;
}

void readVertices(BinReader &r, const Prototype *proto, Mesh &m, int64_t count) {
    freeVertices(m);
    m.vertices = static_cast<MeshVertex *>(
        geoAllocCheckedRaw(r, count, geoRecordMinBytes(proto, REC_VERTEX), sizeof(MeshVertex)));
    if (!m.vertices) return;
    m.vertexCount = static_cast<int32_t>(count);
    int32_t i = 0;
    const uint16_t *list = protoList(proto, REC_VERTEX);
    Span s;
    if (list && binUnread(r, &s.at, &s.end)) {
        while (i < m.vertexCount) {
            Span at = s;
            MeshVertex v{};
            if (!decodeVertex(list, at, v)) {
                if (binMore(r, &s.end)) continue;  // cut by what has been read so far
                break;
            }
            m.vertices[i++] = v;
            s = at;
        }
        binAdvanceTo(r, s.at);
    }
    for (; i < m.vertexCount; ++i) {
        m.vertices[i] = MeshVertex{};
        readVertex(r, proto, m.vertices[i]);
    }
}

void readPolygons(BinReader &r, const Prototype *proto, Mesh &m, int64_t count) {
    freePolygons(m);
    m.polygons = static_cast<MeshPolygon *>(
        geoAllocCheckedRaw(r, count, geoRecordMinBytes(proto, REC_POLYGON), sizeof(MeshPolygon)));
    if (!m.polygons) return;
    m.polygonCount = static_cast<int32_t>(count);
    int32_t i = 0;
    const uint16_t *list = protoList(proto, REC_POLYGON);
    const uint16_t *nodeList = protoList(proto, REC_POLYNODE);
    Span s;
    if (list && nodeList && binUnread(r, &s.at, &s.end)) {
        // Each node takes at least nodeMinBytes of the file, which bounds the block.
        int64_t nodeMinBytes = geoRecordMinBytes(proto, REC_POLYNODE);
        NodeBlock block;
        block.limit = binRemaining(r) / nodeMinBytes;
        block.reserve(std::min<int64_t>(block.limit, count * 4));
        // The block may move while it grows, so lists are pointed into it at
        // the end: polygons from the block took their nodes in order, those
        // read by the checked reader (listed in `own`) have lists of their own.
        std::vector<int32_t> own;
        const PolygonLayout polyLayout = polygonLayout(list);
        const NodeLayout layout = nodeLayout(nodeList, m.uvDomainCount);
        const bool fixed = polyLayout.fixed && layout.fixed;
        const bool noAlpha = r.version < MESH_ALPHA_VERSION;
        for (; i < m.polygonCount && !r.failed; ++i) {
            if (fixed && decodePolygonFixed(polyLayout, layout, s, noAlpha, block, m.polygons[i])) continue;
            Span at = s;
            MeshPolygon p{};
            int64_t mark = block.used;
            if (decodePolygon(list, nodeList, nodeMinBytes, at, r.version, m.uvDomainCount, block, p)) {
                m.polygons[i] = p;
                s = at;
                continue;
            }
            block.dropFrom(mark);
            if (binMore(r, &s.end)) {  // cut by what has been read so far
                --i;
                continue;
            }
            own.push_back(i);
            binAdvanceTo(r, s.at);
            m.polygons[i] = MeshPolygon{};
            readPolygon(r, proto, m.uvDomainCount, m.polygons[i]);
            if (!binUnread(r, &s.at, &s.end)) {
                ++i;
                s.at = nullptr;  // the reader's place is already right
                break;
            }
        }
        if (s.at) binAdvanceTo(r, s.at);
        m.nodeBlock = block.used ? block.nodes : nullptr;
        m.nodeBlockCount = block.used;
        if (!block.used) free(block.nodes);
        int64_t next = 0;
        size_t o = 0;
        for (int32_t k = 0; k < i; ++k) {
            if (o < own.size() && own[o] == k) {
                ++o;
                continue;
            }
            MeshPolygon &p = m.polygons[k];
            if (p.nodeCount) p.nodes = m.nodeBlock + next;
            next += p.nodeCount;
        }
    }
    for (; i < m.polygonCount; ++i) {
        m.polygons[i] = MeshPolygon{};
        readPolygon(r, proto, m.uvDomainCount, m.polygons[i]);
    }
}

void readEdges(BinReader &r, const Prototype *proto, Mesh &m, int64_t count) {
    freeEdges(m);
    if (count <= 0 || !binCheckCount(r, count, geoRecordMinBytes(proto, REC_EDGE))) return;
    int64_t blocks = (count + MESH_EDGE_BLOCK - 1) / MESH_EDGE_BLOCK;
    m.edgeBlocks = static_cast<MeshEdge **>(calloc(static_cast<size_t>(blocks), sizeof(MeshEdge *)));
    if (!m.edgeBlocks) return;
    for (int64_t b = 0; b < blocks; ++b) {
        m.edgeBlocks[b] = static_cast<MeshEdge *>(calloc(MESH_EDGE_BLOCK, sizeof(MeshEdge)));
        if (!m.edgeBlocks[b]) return;  // edgeCount covers only the full blocks made
        int64_t n = count - b * MESH_EDGE_BLOCK;
        if (n > MESH_EDGE_BLOCK) n = MESH_EDGE_BLOCK;
        m.edgeCount = static_cast<int32_t>(b * MESH_EDGE_BLOCK + n);
        int64_t i = 0;
        const uint16_t *list = protoList(proto, REC_EDGE);
        Span s;
        if (list && binUnread(r, &s.at, &s.end)) {
            while (i < n) {
                MeshEdge &e = m.edgeBlocks[b][i];
                e.pol[0] = e.pol[1] = -1;
                Span at = s;
                if (!decodeEdge(list, at, e)) {
                    e = MeshEdge{};
                    e.pol[0] = e.pol[1] = -1;
                    if (binMore(r, &s.end)) continue;  // cut by what has been read so far
                    break;
                }
                ++i;
                s = at;
            }
            binAdvanceTo(r, s.at);
        }
        for (; i < n; ++i) {
            MeshEdge &e = m.edgeBlocks[b][i];
            e.pol[0] = e.pol[1] = -1;
            readEdge(r, proto, e);
        }
    }
}

void readSplineVertex(BinReader &r, const Prototype *proto, SplineVertex &v) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_SPLINE_VERTEX, cur) {
        switch (t) {
        case 1: binReadFloat3(r, v.pos); break;
        case 2: binReadFloat3(r, v.tanIn); break;
        case 3: binReadFloat3(r, v.tanOut); break;
        case 4: case 5: case 6: v.flags[t - 4] = binReadU16(r); break;
        default: binSkip(r, t);
        }
    }
}

void readKnots(BinReader &r, int32_t &parametrisation, int32_t &count, double *&knots) {
    parametrisation = binReadI32(r);
    int32_t n = binReadI32(r);
    free(knots);
    knots = static_cast<double *>(geoAllocChecked(r, n, 8, sizeof(double)));
    count = knots ? n : 0;
    if (knots) binReadDoubles(r, knots, static_cast<size_t>(n));
}

void readTrim(BinReader &r, const Prototype *proto, NurbsTrim &trim) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_TRIM, cur) {
        switch (t) {
        case 1: trim.word = binReadU16(r); break;
        case 2: trim.value = binReadI32(r); break;
        default: binSkip(r, t);
        }
    }
}

char **readStrings(BinReader &r, uint16_t count) {
    char **list = static_cast<char **>(geoAllocChecked(r, count, 1, sizeof(char *)));
    for (int i = 0; list && i < count; ++i) list[i] = binReadStr(r);
    return list;
}

}  // namespace

// ---------------------------------------------------------------------------
// Shared helpers

int64_t geoRecordMinBytes(const Prototype *proto, int id) {
    const uint16_t *list = protoList(proto, id);
    if (!list) return 2;  // at least the ending token
    int64_t bytes = 0;
    for (; *list; ++list) {
        int rule = tokenSkip(*list);
        bytes += rule == BIN_SKIP_NONE ? 1 : rule == BIN_SKIP_SIZED ? 4 : rule;
    }
    return bytes > 0 ? bytes : 1;
}

void *geoAllocChecked(BinReader &r, int64_t count, int64_t minBytes, size_t itemSize) {
    if (count <= 0 || !binCheckCount(r, count, minBytes)) return nullptr;
    return calloc(static_cast<size_t>(count), itemSize);
}

void *geoAllocCheckedRaw(BinReader &r, int64_t count, int64_t minBytes, size_t itemSize) {
    if (count <= 0 || !binCheckCount(r, count, minBytes)) return nullptr;
    if (static_cast<uint64_t>(count) > SIZE_MAX / itemSize) return nullptr;
    return binAllocLarge(static_cast<size_t>(count) * itemSize);
}

int geoSkipBytes(BinReader &r, int64_t n) {
    uint8_t scratch[1024];
    while (n > 0 && !r.failed) {
        size_t piece = n > static_cast<int64_t>(sizeof scratch) ? sizeof scratch : static_cast<size_t>(n);
        if (binRead(r, scratch, 1, piece) != piece) return 0;
        n -= static_cast<int64_t>(piece);
    }
    return !r.failed;
}

// ---------------------------------------------------------------------------
// Mesh

Mesh *readMesh(BinReader &r, const Prototype *proto, Model *node) {
    Mesh *m = static_cast<Mesh *>(calloc(1, sizeof(Mesh)));
    if (!m) return nullptr;
    m->uvDomainCount = node && node->uvDomainCount > 0 ? node->uvDomainCount : 1;
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_MESH, cur) {
        switch (t) {
        case 1: if (binReadU16(r)) m->flags |= MESH_FLAG_TOKEN1; break;
        case 2:
            m->discontinuity = binReadF32(r);
            m->cosDiscontinuity = static_cast<float>(std::cos(m->discontinuity * DEG_TO_RAD));
            break;
        case 3: readVertices(r, proto, *m, binReadU16(r)); break;
        case 7: readVertices(r, proto, *m, binReadI32(r)); break;
        case 4: readPolygons(r, proto, *m, binReadU16(r)); break;
        case 8: readPolygons(r, proto, *m, binReadI32(r)); break;
        case 5: readEdges(r, proto, *m, binReadU16(r)); break;
        case 9: readEdges(r, proto, *m, binReadI32(r)); break;
        case 6: m->flags = binReadU16(r); break;
        case 522: m->approx.useApprox = binReadU16(r); break;
        case 523: m->approx.type = binReadU16(r); break;
        case 524: m->approx.units = binReadU16(r); break;
        case 528: m->approx.subdMin = binReadU16(r); break;
        case 529: m->approx.subdMax = binReadU16(r); break;
        case 530: m->approx.subdLimits = binReadU16(r); break;
        case 1037: m->approx.spacial = binReadF32(r); break;
        case 1038: m->approx.spacialLength = binReadF32(r); break;
        case 1039: m->approx.spacialAngle = binReadF32(r); break;
        case 1043: {
            int32_t domains = binReadI32(r);
            m->uvDomainCount = domains > 0 ? domains : 1;
            break;
        }
        default: binSkip(r, t);
        }
    }
    if (node) node->uvDomainCount = m->uvDomainCount;
    if (!meshLink(m)) binFail(r, "out of memory linking a mesh");
    return m;
}

int meshLink(Mesh *m) {
    if (!m) return 0;
    const int32_t vc = m->vertexCount;
    for (int32_t i = 0; i < vc; ++i) {
        MeshVertex &v = m->vertices[i];
        if (v.neighbours && !meshNeighboursInBlock(m, v.neighbours)) free(v.neighbours);
        v.neighbours = nullptr;
        v.neighbourCount = 0;
    }
    free(m->neighbourBlock);
    m->neighbourBlock = nullptr;
    m->neighbourBlockCount = 0;
    auto valid = [vc](int32_t v) { return v >= 0 && v < vc; };

    // Two passes over the edges, on a table of where each vertex's list starts
    // (small beside the vertices, so the passes stay in the cache): the
    // counts, at most UINT16_MAX a vertex, summed into starts; then the
    // entries, in edge order, into one block.
    std::unique_ptr<uint32_t[]> first(new (std::nothrow) uint32_t[static_cast<size_t>(vc) + 1]());
    std::unique_ptr<uint32_t[]> next(new (std::nothrow) uint32_t[static_cast<size_t>(vc) + 1]);
    if (vc > 0 && (!first || !next)) return 0;
    for (int32_t e = 0; e < m->edgeCount; ++e) {
        MeshEdge *edge = meshEdge(m, e);
        edge->pol[0] = edge->pol[1] = -1;
        if (!valid(edge->vrt[0]) || !valid(edge->vrt[1])) continue;
        for (int32_t v : edge->vrt)
            if (first[v + 1] < UINT16_MAX) ++first[v + 1];
    }
    bool anyLong = false;
    for (int32_t i = 0; i < vc; ++i) {
        anyLong |= first[i + 1] > kScanNeighbours;
        first[i + 1] += first[i];  // edges < 2^31, so entries < 2^32
    }
    const int64_t total = vc > 0 ? first[vc] : 0;
    if (total == 0) {
        for (int32_t p = 0; p < m->polygonCount; ++p)
            for (int i = 0; i < m->polygons[p].nodeCount; ++i) m->polygons[p].nodes[i].edg = -1;
        return 1;
    }
    // Every entry is set below, so the block need not be zeroed.
    auto *block = static_cast<MeshNeighbour *>(binAllocLarge(static_cast<size_t>(total) * sizeof(MeshNeighbour)));
    if (!block) return 0;
    m->neighbourBlock = block;
    m->neighbourBlockCount = total;
    std::copy(first.get(), first.get() + vc, next.get());
    for (int32_t e = 0; e < m->edgeCount; ++e) {
        MeshEdge *edge = meshEdge(m, e);
        if (!valid(edge->vrt[0]) || !valid(edge->vrt[1])) continue;
        for (int side = 0; side < 2; ++side) {
            int32_t v = edge->vrt[side];
            if (next[v] == first[v + 1]) continue;  // its list was capped while counting
            block[next[v]++] = {edge->vrt[1 - side], e, -1};
        }
    }
    for (int32_t i = 0; i < vc; ++i) {
        MeshVertex &v = m->vertices[i];
        v.neighbourCount = static_cast<uint16_t>(first[i + 1] - first[i]);
        v.neighbours = v.neighbourCount ? block + first[i] : nullptr;
    }

    // A short list is scanned. A long one gets an index beside it, at the
    // same place as the list: its entries' positions sorted by far vertex and
    // then by position, so a binary search finds the first entry to a vertex
    // in at most 16 steps (lists hold at most UINT16_MAX entries). A fan of
    // many polygons round one vertex thus costs no more than its size.
    uint16_t *order = nullptr;
    if (anyLong) {
        order = static_cast<uint16_t *>(binAllocLarge(static_cast<size_t>(total) * sizeof(uint16_t)));
        if (!order) return 0;
        for (int32_t i = 0; i < vc; ++i) {
            const MeshVertex &v = m->vertices[i];
            if (v.neighbourCount <= kScanNeighbours) continue;
            uint16_t *idx = order + (v.neighbours - block);
            for (int k = 0; k < v.neighbourCount; ++k) idx[k] = static_cast<uint16_t>(k);
            const MeshNeighbour *nb = v.neighbours;
            std::sort(idx, idx + v.neighbourCount, [nb](uint16_t x, uint16_t y) {
                return nb[x].vrt != nb[y].vrt ? nb[x].vrt < nb[y].vrt : x < y;
            });
        }
    }
    const uint32_t *starts = first.get();
    auto find = [order, block, starts](int32_t a, int32_t b) -> MeshNeighbour * {
        MeshNeighbour *nb = block + starts[a];
        const uint32_t count = starts[a + 1] - starts[a];
        if (count <= kScanNeighbours) {
            for (uint32_t k = 0; k < count; ++k)
                if (nb[k].vrt == b) return &nb[k];
            return nullptr;
        }
        const uint16_t *idx = order + starts[a];
        const uint16_t *hit = std::lower_bound(idx, idx + count, b,
                                               [nb](uint16_t k, int32_t want) { return nb[k].vrt < want; });
        return hit != idx + count && nb[*hit].vrt == b ? &nb[*hit] : nullptr;
    };

    for (int32_t p = 0; p < m->polygonCount; ++p) {
        MeshPolygon &poly = m->polygons[p];
        for (int i = 0; i < poly.nodeCount; ++i) {
            MeshNode &node = poly.nodes[i];
            int32_t a = node.vrt, b = poly.nodes[i + 1 < poly.nodeCount ? i + 1 : 0].vrt;
            node.edg = -1;
            if (!valid(a) || !valid(b)) continue;
            MeshNeighbour *nb = find(a, b);
            if (!nb) continue;
            nb->pol = p;
            node.edg = nb->edg;
            MeshEdge *edge = meshEdge(m, node.edg);
            edge->pol[edge->vrt[0] == a ? 0 : 1] = p;
        }
    }
    free(order);
    return 1;
}

// ---------------------------------------------------------------------------
// Patch

Patch *readPatch(BinReader &r, const Prototype *proto) {
    Patch *p = static_cast<Patch *>(calloc(1, sizeof(Patch)));
    if (!p) return nullptr;
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_PATCH, cur) {
        int64_t n = static_cast<int64_t>(p->uCount) * p->vCount;
        switch (t) {
        case 1: p->uType = binReadI32(r); break;
        case 2: p->vType = binReadI32(r); break;
        case 3:
            // A new grid size drops CVs read for the old one.
            p->uCount = binReadU16(r);
            p->vCount = binReadU16(r);
            free(p->cvs); free(p->cvFlags);
            p->cvs = nullptr; p->cvFlags = nullptr;
            break;
        case 4: p->uClosed = boolWord(binReadU16(r)); p->vClosed = boolWord(binReadU16(r)); break;
        case 5:
            free(p->cvs);
            p->cvs = static_cast<float (*)[4]>(geoAllocChecked(r, n, 12, sizeof(float[4])));
            for (int64_t i = 0; p->cvs && i < n; ++i) {
                binReadFloat3(r, p->cvs[i]);
                p->cvs[i][3] = 1.0f;
            }
            break;
        case 6: p->step[0] = p->step[1] = binReadU32(r); break;
        case 7: p->step[0] = binReadU32(r); p->step[1] = binReadU32(r); break;
        case 8: case 9: case 10: case 11: p->extra[t - 8] = binReadU16(r); break;
        case 12: case 13: case 14: case 15: case 16: case 17: case 18:
            p->approxWords[t - 12] = binReadU16(r);
            break;
        case 19: case 20: case 21: p->approxValues[t - 19] = binReadF32(r); break;
        case 22: case 23: case 24: p->approxFlags[t - 22] = binReadU16(r); break;
        case 25:
            free(p->cvFlags);
            p->cvFlags = static_cast<uint16_t *>(geoAllocChecked(r, n, 2, sizeof(uint16_t)));
            if (p->cvFlags) binReadU16s(r, p->cvFlags, static_cast<size_t>(n));
            break;
        default: binSkip(r, t);
        }
    }
    // A grid without its CVs is empty, so that users never index a null array.
    if (!p->cvs) {
        p->uCount = p->vCount = 0;
        free(p->cvFlags);
        p->cvFlags = nullptr;
    } else if (!p->cvFlags) {
        p->cvFlags = static_cast<uint16_t *>(calloc(static_cast<size_t>(p->uCount) * p->vCount, sizeof(uint16_t)));
    }
    return p;
}

// ---------------------------------------------------------------------------
// Splines, curves, faces

void splineReadInto(BinReader &r, const Prototype *proto, Spline &s) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_SPLINE, cur) {
        switch (t) {
        case 8: free(s.name); s.name = binReadStr(r); break;
        case 3: s.nextFields = binReadU16(r); break;
        case 1: s.type = binReadU16(r); break;
        case 6: s.closed = boolWord(binReadU16(r)); break;
        case 2: case 7: {
            uint16_t count = binReadU16(r);
            free(s.vertices);
            s.vertexCount = 0;
            int64_t minBytes = t == 2 ? 12 : geoRecordMinBytes(proto, REC_SPLINE_VERTEX);
            s.vertices = static_cast<SplineVertex *>(geoAllocChecked(r, count, minBytes, sizeof(SplineVertex)));
            if (!s.vertices) break;
            s.vertexCount = count;
            for (int i = 0; i < count; ++i) {
                if (t == 2) binReadFloat3(r, s.vertices[i].pos);  // old form: a position only
                else readSplineVertex(r, proto, s.vertices[i]);
            }
            break;
        }
        case 4: s.degree = binReadU32(r); break;
        case 5: s.step = binReadU16(r); break;
        default: binSkip(r, t);
        }
    }
    // Type 1 and closed splines are turned into the drawing form by the
    // tessellation code; the record keeps them as stored.
}

Spline *readSpline(BinReader &r, const Prototype *proto) {
    Spline *s = static_cast<Spline *>(calloc(1, sizeof(Spline)));
    if (s) splineReadInto(r, proto, *s);
    return s;
}

void nurbsCurveReadInto(BinReader &r, const Prototype *proto, NurbsCurve &c) {
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_NURBS_CURVE, cur) {
        switch (t) {
        case 1: c.degree = binReadI32(r); break;
        case 2: {
            int32_t n = binReadI32(r);
            int withFlags = r.version >= NURBS_CV_FLAG_VERSION;
            free(c.cvs); free(c.cvFlags);
            c.cvFlags = nullptr;
            c.cvCount = 0;
            c.cvs = static_cast<double (*)[4]>(geoAllocChecked(r, n, withFlags ? 36 : 32, sizeof(double[4])));
            if (!c.cvs) break;
            if (withFlags) c.cvFlags = static_cast<int32_t *>(calloc(static_cast<size_t>(n), sizeof(int32_t)));
            c.cvCount = n;
            for (int32_t i = 0; i < n; ++i) {
                binReadDoubles(r, c.cvs[i], 4);
                if (withFlags) {
                    int32_t flag = binReadI32(r);
                    if (c.cvFlags) c.cvFlags[i] = flag;
                }
            }
            break;
        }
        case 3: c.closed = boolWord(binReadU16(r)); break;
        case 4: readKnots(r, c.parametrisation, c.knotCount, c.knots); break;
        case 5: binReadDoubles(r, c.range, 2); break;
        case 6: c.step = binReadI32(r); break;
        case 7: c.kind = binReadI32(r); break;
        case 8: case 520: c.flag = binReadU16(r); break;
        default: binSkip(r, t);
        }
    }
}

NurbsCurve *readNurbsCurve(BinReader &r, const Prototype *proto) {
    NurbsCurve *c = static_cast<NurbsCurve *>(calloc(1, sizeof(NurbsCurve)));
    if (c) nurbsCurveReadInto(r, proto, *c);
    return c;
}

Face *readFace(BinReader &r, const Prototype *proto) {
    Face *f = static_cast<Face *>(calloc(1, sizeof(Face)));
    if (!f) return nullptr;
    uint16_t splineHoles = 0, curveHoles = 0;
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_FACE, cur) {
        switch (t) {
        case 3: f->isSpline = boolWord(binReadU16(r)); break;
        case 1: splineClear(f->boundary); splineReadInto(r, proto, f->boundary); break;
        case 2: {
            uint16_t n = binReadU16(r);
            for (int i = 0; i < splineHoles; ++i) splineClear(f->holes[i]);
            free(f->holes);
            f->holes = static_cast<Spline *>(geoAllocChecked(r, n, geoRecordMinBytes(proto, REC_SPLINE), sizeof(Spline)));
            splineHoles = f->holes ? n : 0;
            for (int i = 0; i < splineHoles; ++i) splineReadInto(r, proto, f->holes[i]);
            break;
        }
        case 4: {
            uint16_t n = binReadU16(r);
            for (int i = 0; i < curveHoles; ++i) nurbsCurveClear(f->curveHoles[i]);
            free(f->curveHoles);
            f->curveHoles = static_cast<NurbsCurve *>(
                geoAllocChecked(r, n, geoRecordMinBytes(proto, REC_NURBS_CURVE), sizeof(NurbsCurve)));
            curveHoles = f->curveHoles ? n : 0;
            for (int i = 0; i < curveHoles; ++i) nurbsCurveReadInto(r, proto, f->curveHoles[i]);
            break;
        }
        default: binSkip(r, t);
        }
    }
    // Only the holes of the face's boundary kind count.
    if (f->isSpline) {
        for (int i = 0; i < curveHoles; ++i) nurbsCurveClear(f->curveHoles[i]);
        free(f->curveHoles);
        f->curveHoles = nullptr;
        f->holeCount = splineHoles;
    } else {
        for (int i = 0; i < splineHoles; ++i) splineClear(f->holes[i]);
        free(f->holes);
        f->holes = nullptr;
        f->holeCount = curveHoles;
    }
    return f;
}

// ---------------------------------------------------------------------------
// NURBS surface

NurbsSurface *readNurbsSurface(BinReader &r, const Prototype *proto) {
    NurbsSurface *s = static_cast<NurbsSurface *>(calloc(1, sizeof(NurbsSurface)));
    if (!s) return nullptr;
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_NURBS_SURFACE, cur) {
        // Old files number the first twelve fields from 231.
        uint16_t field = t >= 231 && t <= 242 ? static_cast<uint16_t>(t - 230) : t;
        switch (field) {
        case 1: s->degree[0] = binReadI32(r); s->degree[1] = binReadI32(r); break;
        case 2: {
            int32_t cu = binReadI32(r), cv = binReadI32(r);
            free(s->cvs);
            s->cvCount[0] = s->cvCount[1] = 0;
            int64_t n = cu < 0 || cv < 0 ? -1 : static_cast<int64_t>(cu) * cv;
            s->cvs = static_cast<double (*)[4]>(geoAllocChecked(r, n, 32, sizeof(double[4])));
            if (!s->cvs) break;
            s->cvCount[0] = cu;
            s->cvCount[1] = cv;
            binReadDoubles(r, &s->cvs[0][0], static_cast<size_t>(n) * 4);
            break;
        }
        case 3: s->closed[0] = boolWord(binReadU16(r)); s->closed[1] = boolWord(binReadU16(r)); break;
        case 4:
            for (int d = 0; d < 2; ++d) readKnots(r, s->parametrisation[d], s->knotCount[d], s->knots[d]);
            break;
        case 5: binReadDoubles(r, s->range, 4); break;
        case 6: s->word6 = binReadU16(r); break;
        case 7: {
            int32_t n = binReadI32(r);
            free(s->trims);
            s->trims = static_cast<NurbsTrim *>(geoAllocChecked(r, n, geoRecordMinBytes(proto, REC_TRIM), sizeof(NurbsTrim)));
            s->trimCount = s->trims ? n : 0;
            for (int32_t i = 0; i < s->trimCount; ++i) readTrim(r, proto, s->trims[i]);
            break;
        }
        case 8: case 9: case 10: case 11: s->values[field - 8] = binReadI32(r); break;
        case 12: s->word12 = binReadU16(r); break;
        case 13: s->word13 = binReadU16(r); break;
        case 14: s->approx.units = binReadU16(r); break;
        case 15: s->approx.spacial = binReadF32(r); break;
        case 16: s->approx.spacialLength = binReadF32(r); break;
        case 17: s->approx.spacialAngle = binReadF32(r); break;
        case 18: s->approx.subdMin = binReadU16(r); break;
        case 19: s->approx.subdMax = binReadU16(r); break;
        case 20: s->approx.subdLimits = binReadU16(r); break;
        case 21: s->approx.type = binReadU16(r); break;
        case 22: s->approx.useApprox = binReadU16(r); break;
        case 23: case 24: case 25: s->extra[field - 23] = binReadI32(r); break;
        case 0xFF1A:
            free(s->customData);
            s->customData = binReadBlock(r, &s->customSize);
            if (!s->customData) s->customSize = 0;
            break;
        default: binSkip(r, t);
        }
    }
    return s;
}

// ---------------------------------------------------------------------------
// Meta group and model reference

MetaGroup *readMetaGroup(BinReader &r, const Prototype *proto) {
    MetaGroup *g = static_cast<MetaGroup *>(calloc(1, sizeof(MetaGroup)));
    if (!g) return nullptr;
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_META, cur) {
        switch (t) {
        case 1: g->value1 = binReadI32(r); break;
        case 2: g->value2 = binReadI32(r); break;
        case 3: g->word3 = binReadU16(r); break;
        case 4: {
            uint16_t n = binReadU16(r);
            if (g->members) break;  // a second list would only repeat the first; it is dropped
            g->members = static_cast<MetaMember *>(
                geoAllocChecked(r, n, geoRecordMinBytes(proto, REC_META_MEMBER), sizeof(MetaMember)));
            g->memberCount = g->members ? n : 0;
            for (int i = 0; i < g->memberCount; ++i) {
                MetaMember &m = g->members[i];
                TokenCursor mc;
                FOR_TOKENS(mt, r, proto, REC_META_MEMBER, mc) {
                    if (mt == 1) { free(m.name); m.name = binReadStr(r); }
                    else if (mt == 2 && !m.refs) {
                        uint16_t k = binReadU16(r);
                        m.refs = readStrings(r, k);
                        m.refCount = m.refs ? k : 0;
                    } else binSkip(r, mt);
                }
            }
            break;
        }
        case 5: {
            uint16_t n = binReadU16(r);
            if (g->pairs) break;
            g->pairs = static_cast<MetaPair *>(
                geoAllocChecked(r, n, geoRecordMinBytes(proto, REC_META_PAIR), sizeof(MetaPair)));
            g->pairCount = g->pairs ? n : 0;
            for (int i = 0; i < g->pairCount; ++i) {
                TokenCursor pc;
                FOR_TOKENS(pt, r, proto, REC_META_PAIR, pc) {
                    if (pt == 1 && !g->pairs[i].first) {
                        g->pairs[i].first = binReadStr(r);
                        g->pairs[i].second = binReadStr(r);
                    } else binSkip(r, pt);
                }
            }
            break;
        }
        default: binSkip(r, t);
        }
    }
    return g;
}

ModelRef *readModelRef(BinReader &r, const Prototype *proto, Model *node) {
    ModelRef *ref = static_cast<ModelRef *>(calloc(1, sizeof(ModelRef)));
    if (!ref) return nullptr;
    ref->node = node;
    TokenCursor cur;
    FOR_TOKENS(t, r, proto, REC_MODEL_REF, cur) {
        switch (t) {
        case 1: case 2: case 3: binReadI32(r); break;  // stale run-time values
        case 4: ref->value4 = binReadF64(r); break;
        case 5: ref->value5 = binReadF64(r); break;
        case 6: binReadDoubles(r, ref->vector, 3); break;
        case 7: binReadDoubles(r, &ref->matrix[0][0], 16); break;
        default: binSkip(r, t);
        }
    }
    return ref;
}
