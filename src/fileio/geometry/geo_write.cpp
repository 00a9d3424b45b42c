// Writers of the geometry records, in the token order of the version 4.0
// lists, so that a file written with those lists in its table reads back
// through the same readers.
#include <cstring>

#include "geo_internal.h"

namespace {

// The version 4.0 lists; each ends with the 0 the table stores.
const uint16_t LIST_SPLINE[] = {8, 1, 7, 3, 4, 5, 6, 0};
const uint16_t LIST_SPLINE_VERTEX[] = {1, 2, 3, 4, 5, 6, 0};
const uint16_t LIST_PATCH[] = {1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                               17, 18, 19, 20, 21, 22, 23, 24, 25, 0};
const uint16_t LIST_FACE[] = {3, 1, 2, 4, 0};
const uint16_t LIST_MESH[] = {6, 2, 1043, 7, 8, 9, 522, 523, 524, 1037, 1038, 1039, 528, 529, 530, 0};
const uint16_t LIST_EDGE[] = {4, 3, 0};
const uint16_t LIST_POLYGON[] = {2, 3, 4, 0};
const uint16_t LIST_POLYNODE[] = {3, 2, 4, 1029, 0xFF06, 0};
const uint16_t LIST_VERTEX[] = {1, 4, 0};
const uint16_t LIST_MODEL_REF[] = {4, 5, 6, 7, 0};
const uint16_t LIST_META[] = {1, 2, 3, 4, 5, 0};
const uint16_t LIST_META_MEMBER[] = {1, 2, 0};
const uint16_t LIST_META_PAIR[] = {1, 0};
const uint16_t LIST_RESERVED28[] = {1, 2, 3, 4, 0};
const uint16_t LIST_NURBS_CURVE[] = {1, 2, 3, 4, 5, 6, 7, 520, 0};
const uint16_t LIST_NURBS_SURFACE[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                                       17, 18, 19, 20, 21, 22, 23, 24, 25, 0xFF1A, 0};
const uint16_t LIST_TRIM[] = {1, 2, 0};

struct ListRow {
    int id;                 // record id
    const uint16_t *tokens; // list with its 0
    size_t count;           // tokens, the 0 included
};

#define ROW(id, list) {id, list, sizeof list / sizeof list[0]}
const ListRow LISTS[] = {
    ROW(REC_SPLINE, LIST_SPLINE),       ROW(REC_SPLINE_VERTEX, LIST_SPLINE_VERTEX),
    ROW(REC_PATCH, LIST_PATCH),         ROW(REC_FACE, LIST_FACE),
    ROW(REC_MESH, LIST_MESH),           ROW(REC_EDGE, LIST_EDGE),
    ROW(REC_POLYGON, LIST_POLYGON),     ROW(REC_POLYNODE, LIST_POLYNODE),
    ROW(REC_VERTEX, LIST_VERTEX),       ROW(REC_MODEL_REF, LIST_MODEL_REF),
    ROW(REC_META, LIST_META),           ROW(REC_META_MEMBER, LIST_META_MEMBER),
    ROW(REC_META_PAIR, LIST_META_PAIR), ROW(REC_RESERVED28, LIST_RESERVED28),
    ROW(REC_NURBS_CURVE, LIST_NURBS_CURVE), ROW(REC_NURBS_SURFACE, LIST_NURBS_SURFACE),
    ROW(REC_TRIM, LIST_TRIM),
};
#undef ROW

void writeApproxWords(BinWriter &w, TokenCursor &cur, const SurfaceApprox &a) {
    geoTok(w, cur, 522) && binWriteU16(w, a.useApprox);
    geoTok(w, cur, 523) && binWriteU16(w, a.type);
    geoTok(w, cur, 524) && binWriteU16(w, a.units);
    geoTok(w, cur, 1037) && binWriteF32(w, a.spacial);
    geoTok(w, cur, 1038) && binWriteF32(w, a.spacialLength);
    geoTok(w, cur, 1039) && binWriteF32(w, a.spacialAngle);
    geoTok(w, cur, 528) && binWriteU16(w, a.subdMin);
    geoTok(w, cur, 529) && binWriteU16(w, a.subdMax);
    geoTok(w, cur, 530) && binWriteU16(w, a.subdLimits);
}

void writeNode(BinWriter &w, const Prototype *proto, const MeshNode &n, int32_t uvDomains) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_POLYNODE, cur);
    geoTok(w, cur, 3) && binWriteI32(w, n.vrt);
    geoTok(w, cur, 2) && binWriteFloats(w, n.nrm, 3);
    if (geoTok(w, cur, 4)) { binWriteF32(w, n.u); binWriteF32(w, n.v); }
    geoTok(w, cur, 1029) && binWriteU32(w, n.colour);
    if (geoTok(w, cur, 0xFF06)) {
        int32_t pairs = uvDomains > 1 ? uvDomains - 1 : 0;
        binWriteI32(w, pairs * 8);
        for (int32_t i = 0; i < pairs * 2; ++i) binWriteF32(w, n.uvs ? n.uvs[i] : 0.0f);
    }
    binWriteEnd(w, cur);
}

void writeSplineVertex(BinWriter &w, const Prototype *proto, const SplineVertex &v) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_SPLINE_VERTEX, cur);
    geoTok(w, cur, 1) && binWriteFloats(w, v.pos, 3);
    geoTok(w, cur, 2) && binWriteFloats(w, v.tanIn, 3);
    geoTok(w, cur, 3) && binWriteFloats(w, v.tanOut, 3);
    for (uint16_t t = 4; t <= 6; ++t) geoTok(w, cur, t) && binWriteU16(w, v.flags[t - 4]);
    binWriteEnd(w, cur);
}

void writeKnots(BinWriter &w, int32_t parametrisation, int32_t count, const double *knots) {
    binWriteI32(w, parametrisation);
    binWriteI32(w, knots ? count : 0);
    if (knots) binWriteDoubles(w, knots, static_cast<size_t>(count));
}

}  // namespace

void geometryProtoSet(Prototype &proto) {
    for (const ListRow &row : LISTS) protoSet(proto, row.id, row.tokens, row.count);
}

int writeMesh(BinWriter &w, const Prototype *proto, const Mesh *m) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_MESH, cur);
    geoTok(w, cur, 6) && binWriteU16(w, m->flags);
    geoTok(w, cur, 2) && binWriteF32(w, m->discontinuity);
    geoTok(w, cur, 1043) && binWriteI32(w, m->uvDomainCount > 0 ? m->uvDomainCount : 1);
    if (geoTok(w, cur, 7)) {
        binWriteI32(w, m->vertexCount);
        for (int32_t i = 0; i < m->vertexCount && !w.failed; ++i) {
            TokenCursor vc;
            binWriteBegin(w, proto, REC_VERTEX, vc);
            geoTok(w, vc, 1) && binWriteFloats(w, m->vertices[i].pos, 3);
            geoTok(w, vc, 4) && binWriteU16(w, m->vertices[i].flag);
            binWriteEnd(w, vc);
        }
    }
    if (geoTok(w, cur, 8)) {
        binWriteI32(w, m->polygonCount);
        for (int32_t i = 0; i < m->polygonCount && !w.failed; ++i) {
            const MeshPolygon &p = m->polygons[i];
            TokenCursor pc;
            binWriteBegin(w, proto, REC_POLYGON, pc);
            if (geoTok(w, pc, 2)) {
                binWriteU16(w, p.nodeCount);
                for (int k = 0; k < p.nodeCount; ++k) writeNode(w, proto, p.nodes[k], m->uvDomainCount);
            }
            geoTok(w, pc, 3) && binWriteU16(w, p.material);
            geoTok(w, pc, 4) && binWriteU16(w, p.flg);
            binWriteEnd(w, pc);
        }
    }
    if (geoTok(w, cur, 9)) {
        binWriteI32(w, m->edgeCount);
        for (int32_t i = 0; i < m->edgeCount && !w.failed; ++i) {
            const MeshEdge *e = meshEdge(m, i);
            TokenCursor ec;
            binWriteBegin(w, proto, REC_EDGE, ec);
            if (geoTok(w, ec, 4)) { binWriteI32(w, e->vrt[0]); binWriteI32(w, e->vrt[1]); }
            geoTok(w, ec, 3) && binWriteU16(w, e->flg);
            binWriteEnd(w, ec);
        }
    }
    writeApproxWords(w, cur, m->approx);
    binWriteEnd(w, cur);
    return !w.failed;
}

int writePatch(BinWriter &w, const Prototype *proto, const Patch *p) {
    const int64_t n = p->cvs ? static_cast<int64_t>(p->uCount) * p->vCount : 0;
    TokenCursor cur;
    binWriteBegin(w, proto, REC_PATCH, cur);
    geoTok(w, cur, 1) && binWriteI32(w, p->uType);
    geoTok(w, cur, 2) && binWriteI32(w, p->vType);
    if (geoTok(w, cur, 3)) {
        binWriteU16(w, n ? p->uCount : 0);
        binWriteU16(w, n ? p->vCount : 0);
    }
    if (geoTok(w, cur, 4)) { binWriteU16(w, p->uClosed); binWriteU16(w, p->vClosed); }
    if (geoTok(w, cur, 5))
        for (int64_t i = 0; i < n; ++i) binWriteFloats(w, p->cvs[i], 3);
    if (geoTok(w, cur, 7)) { binWriteU32(w, p->step[0]); binWriteU32(w, p->step[1]); }
    for (uint16_t t = 8; t <= 11; ++t) geoTok(w, cur, t) && binWriteU16(w, p->extra[t - 8]);
    for (uint16_t t = 12; t <= 18; ++t) geoTok(w, cur, t) && binWriteU16(w, p->approxWords[t - 12]);
    for (uint16_t t = 19; t <= 21; ++t) geoTok(w, cur, t) && binWriteF32(w, p->approxValues[t - 19]);
    for (uint16_t t = 22; t <= 24; ++t) geoTok(w, cur, t) && binWriteU16(w, p->approxFlags[t - 22]);
    if (geoTok(w, cur, 25))
        for (int64_t i = 0; i < n; ++i) binWriteU16(w, p->cvFlags ? p->cvFlags[i] : 0);
    binWriteEnd(w, cur);
    return !w.failed;
}

int writeSpline(BinWriter &w, const Prototype *proto, const Spline *s) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_SPLINE, cur);
    geoTok(w, cur, 8) && binWriteStr(w, s->name);
    geoTok(w, cur, 1) && binWriteU16(w, static_cast<uint16_t>(s->type));
    if (geoTok(w, cur, 7)) {
        uint16_t count = s->vertices ? s->vertexCount : 0;
        binWriteU16(w, count);
        for (int i = 0; i < count; ++i) writeSplineVertex(w, proto, s->vertices[i]);
    }
    geoTok(w, cur, 3) && binWriteU16(w, s->nextFields);
    geoTok(w, cur, 4) && binWriteU32(w, s->degree);
    geoTok(w, cur, 5) && binWriteU16(w, s->step);
    geoTok(w, cur, 6) && binWriteU16(w, s->closed);
    binWriteEnd(w, cur);
    return !w.failed;
}

int writeNurbsCurve(BinWriter &w, const Prototype *proto, const NurbsCurve *c) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_NURBS_CURVE, cur);
    geoTok(w, cur, 1) && binWriteI32(w, c->degree);
    if (geoTok(w, cur, 2)) {
        int32_t n = c->cvs ? c->cvCount : 0;
        binWriteI32(w, n);
        for (int32_t i = 0; i < n; ++i) {
            binWriteDoubles(w, c->cvs[i], 4);
            binWriteI32(w, c->cvFlags ? c->cvFlags[i] : 0);  // the writer's version stores them
        }
    }
    geoTok(w, cur, 3) && binWriteU16(w, c->closed);
    if (geoTok(w, cur, 4)) writeKnots(w, c->parametrisation, c->knotCount, c->knots);
    geoTok(w, cur, 5) && binWriteDoubles(w, c->range, 2);
    geoTok(w, cur, 6) && binWriteI32(w, c->step);
    geoTok(w, cur, 7) && binWriteI32(w, c->kind);
    geoTok(w, cur, 520) && binWriteU16(w, c->flag);
    binWriteEnd(w, cur);
    return !w.failed;
}

int writeFace(BinWriter &w, const Prototype *proto, const Face *f) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_FACE, cur);
    geoTok(w, cur, 3) && binWriteU16(w, f->isSpline);
    if (geoTok(w, cur, 1)) writeSpline(w, proto, &f->boundary);
    // Both hole lists stand in the list; the one of the other kind is empty.
    uint16_t splineHoles = f->isSpline && f->holes ? f->holeCount : 0;
    uint16_t curveHoles = !f->isSpline && f->curveHoles ? f->holeCount : 0;
    if (geoTok(w, cur, 2)) {
        binWriteU16(w, splineHoles);
        for (int i = 0; i < splineHoles; ++i) writeSpline(w, proto, &f->holes[i]);
    }
    if (geoTok(w, cur, 4)) {
        binWriteU16(w, curveHoles);
        for (int i = 0; i < curveHoles; ++i) writeNurbsCurve(w, proto, &f->curveHoles[i]);
    }
    binWriteEnd(w, cur);
    return !w.failed;
}

int writeNurbsSurface(BinWriter &w, const Prototype *proto, const NurbsSurface *s) {
    const int64_t n = s->cvs ? static_cast<int64_t>(s->cvCount[0]) * s->cvCount[1] : 0;
    TokenCursor cur;
    binWriteBegin(w, proto, REC_NURBS_SURFACE, cur);
    if (geoTok(w, cur, 1)) { binWriteI32(w, s->degree[0]); binWriteI32(w, s->degree[1]); }
    if (geoTok(w, cur, 2)) {
        binWriteI32(w, n ? s->cvCount[0] : 0);
        binWriteI32(w, n ? s->cvCount[1] : 0);
        if (n) binWriteDoubles(w, &s->cvs[0][0], static_cast<size_t>(n) * 4);
    }
    if (geoTok(w, cur, 3)) { binWriteU16(w, s->closed[0]); binWriteU16(w, s->closed[1]); }
    if (geoTok(w, cur, 4))
        for (int d = 0; d < 2; ++d) writeKnots(w, s->parametrisation[d], s->knotCount[d], s->knots[d]);
    geoTok(w, cur, 5) && binWriteDoubles(w, s->range, 4);
    geoTok(w, cur, 6) && binWriteU16(w, s->word6);
    if (geoTok(w, cur, 7)) {
        int32_t count = s->trims ? s->trimCount : 0;
        binWriteI32(w, count);
        for (int32_t i = 0; i < count; ++i) {
            TokenCursor tc;
            binWriteBegin(w, proto, REC_TRIM, tc);
            geoTok(w, tc, 1) && binWriteU16(w, s->trims[i].word);
            geoTok(w, tc, 2) && binWriteI32(w, s->trims[i].value);
            binWriteEnd(w, tc);
        }
    }
    for (uint16_t t = 8; t <= 11; ++t) geoTok(w, cur, t) && binWriteI32(w, s->values[t - 8]);
    geoTok(w, cur, 12) && binWriteU16(w, s->word12);
    geoTok(w, cur, 13) && binWriteU16(w, s->word13);
    const SurfaceApprox &a = s->approx;
    geoTok(w, cur, 14) && binWriteU16(w, a.units);
    geoTok(w, cur, 15) && binWriteF32(w, a.spacial);
    geoTok(w, cur, 16) && binWriteF32(w, a.spacialLength);
    geoTok(w, cur, 17) && binWriteF32(w, a.spacialAngle);
    geoTok(w, cur, 18) && binWriteU16(w, a.subdMin);
    geoTok(w, cur, 19) && binWriteU16(w, a.subdMax);
    geoTok(w, cur, 20) && binWriteU16(w, a.subdLimits);
    geoTok(w, cur, 21) && binWriteU16(w, a.type);
    geoTok(w, cur, 22) && binWriteU16(w, a.useApprox);
    for (uint16_t t = 23; t <= 25; ++t) geoTok(w, cur, t) && binWriteI32(w, s->extra[t - 23]);
    geoTok(w, cur, 0xFF1A) && binWriteBlock(w, s->customData, s->customData ? s->customSize : 0);
    binWriteEnd(w, cur);
    return !w.failed;
}

int writeMetaGroup(BinWriter &w, const Prototype *proto, const MetaGroup *g) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_META, cur);
    geoTok(w, cur, 1) && binWriteI32(w, g->value1);
    geoTok(w, cur, 2) && binWriteI32(w, g->value2);
    geoTok(w, cur, 3) && binWriteU16(w, g->word3);
    if (geoTok(w, cur, 4)) {
        binWriteU16(w, g->members ? g->memberCount : 0);
        for (int i = 0; g->members && i < g->memberCount; ++i) {
            const MetaMember &m = g->members[i];
            TokenCursor mc;
            binWriteBegin(w, proto, REC_META_MEMBER, mc);
            geoTok(w, mc, 1) && binWriteStr(w, m.name);
            if (geoTok(w, mc, 2)) {
                binWriteU16(w, m.refs ? m.refCount : 0);
                for (int k = 0; m.refs && k < m.refCount; ++k) binWriteStr(w, m.refs[k]);
            }
            binWriteEnd(w, mc);
        }
    }
    if (geoTok(w, cur, 5)) {
        binWriteU16(w, g->pairs ? g->pairCount : 0);
        for (int i = 0; g->pairs && i < g->pairCount; ++i) {
            TokenCursor pc;
            binWriteBegin(w, proto, REC_META_PAIR, pc);
            if (geoTok(w, pc, 1)) { binWriteStr(w, g->pairs[i].first); binWriteStr(w, g->pairs[i].second); }
            binWriteEnd(w, pc);
        }
    }
    binWriteEnd(w, cur);
    return !w.failed;
}

int writeModelRef(BinWriter &w, const Prototype *proto, const ModelRef *ref) {
    TokenCursor cur;
    binWriteBegin(w, proto, REC_MODEL_REF, cur);
    geoTok(w, cur, 4) && binWriteF64(w, ref->value4);
    geoTok(w, cur, 5) && binWriteF64(w, ref->value5);
    geoTok(w, cur, 6) && binWriteDoubles(w, ref->vector, 3);
    geoTok(w, cur, 7) && binWriteDoubles(w, &ref->matrix[0][0], 16);
    binWriteEnd(w, cur);
    return !w.failed;
}
