// Cluster key files (.cls): binary, the header, an optional "PROT" table and
// one tagged record per cluster to the end of the file; or the ascii form
// behind the magic CLUS. A cluster's points take the form of its model's
// geometry: a CV of four floats, a position with two tangents, or a vertex.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tol.h"
#include "anim_internal.h"
#include "database.h"

namespace {

// Tokens of a cluster record.
enum ClusterToken : uint16_t {
    CLS_TOKEN_GEOMETRY = 1,  // u16 type, then the cluster's own point in the type's form
    CLS_TOKEN_NAME = 2,      // string
    CLS_TOKEN_POINTS = 3,    // i32 points, i32 indexes, i32 keys, keys x points points
    CLS_TOKEN_WORD5 = 5,     // 4 bytes, kept
    CLS_TOKEN_WORD6 = 6,     // u16, kept
};

Cluster *clusterNew(int32_t type) {
    Cluster *c = static_cast<Cluster *>(calloc(1, sizeof(Cluster)));
    if (c) c->type = type;
    return c;
}

void readPoints(BinReader &r, Cluster *c) {
    const int pf = clusterPointFloats(c->type);
    if (!pf) {
        binFail(r, "cluster points before the cluster's type");
        return;
    }
    int32_t points = binReadI32(r);
    free(c->indexes);
    free(c->keys);
    c->indexes = nullptr, c->keys = nullptr;
    c->pointCount = c->keyCount = 0;
    if (points > 0) {
        c->indexes = static_cast<int32_t *>(geoAllocCheckedRaw(r, points, 4, sizeof(int32_t)));
        if (!c->indexes) return;
        c->pointCount = points;
        binReadI32s(r, c->indexes, static_cast<size_t>(points));
    } else if (points < 0) {
        binCheckCount(r, points, 4);  // fails for the negative count
        return;
    }
    int32_t keys = binReadI32(r);
    const int64_t values = static_cast<int64_t>(keys) * points * pf;
    if (keys <= 0 || points == 0) {
        if (keys < 0) binCheckCount(r, keys, 4);
        return;
    }
    c->keys = static_cast<float *>(geoAllocCheckedRaw(r, values, 4, sizeof(float)));
    if (!c->keys) return;
    c->keyCount = keys;
    binReadFloats(r, c->keys, static_cast<size_t>(values));
}

// One cluster record into `c`; `modelType` -1 takes the record's own type.
void readCluster(BinReader &r, Cluster *c, int32_t modelType) {
    for (uint16_t t = binReadU16(r); t != BIN_TOKEN_END && !r.failed; t = binReadU16(r)) {
        switch (t) {
            case CLS_TOKEN_GEOMETRY: {
                int32_t type = binReadU16(r);
                if (!clusterPointFloats(type) || (modelType >= 0 && type != modelType)) {
                    std::string what = "cluster of type " + std::to_string(type) + " for a model of type " +
                                       std::to_string(modelType);
                    binFail(r, what.c_str());
                    break;
                }
                c->type = type;
                binReadFloats(r, c->centre, static_cast<size_t>(clusterPointFloats(type)));
                break;
            }
            case CLS_TOKEN_NAME: free(c->name); c->name = binReadStr(r); break;
            case CLS_TOKEN_POINTS: readPoints(r, c); break;
            case CLS_TOKEN_WORD5: c->word5 = binReadU32(r); break;
            case CLS_TOKEN_WORD6: c->word6 = binReadU16(r); break;
            default:
                if (!binSkip(r, t)) {
                    std::string what = "unknown token " + std::to_string(t) + " in a cluster";
                    binFail(r, what.c_str());
                }
        }
    }
}

// ---------------------------------------------------------------------------
// Ascii form

struct AsciiIn {
    FILE *f;            // the stream, behind the version token
    const char *file;   // its name, for messages
    int64_t size;       // bytes of the file
};

bool word(AsciiIn &in) {
    readToken(in.f);
    return g_token[0] != '\0' && g_tokenEnd != TOKEN_END_BAD;
}

// Each value takes at least two bytes of the file: a count beyond that is refused.
bool fits(AsciiIn &in, int64_t values) {
    long at = ftell(in.f);
    return at >= 0 && values <= (in.size - at) / 2;
}

bool badToken() {
    msgShowf(TOL_CLASS_ERROR, "ClusterAnimNodeAsciiRead: Error, unknown token %s", g_token);
    return false;
}

bool number(AsciiIn &in, double *out) {
    if (!word(in)) return badToken();
    char *end = nullptr;
    double v = strtod(g_token, &end);
    if (end == g_token || *end != '\0' || !std::isfinite(v)) return badToken();
    *out = v;
    return true;
}

bool count(AsciiIn &in, int32_t *out) {
    double v;
    if (!number(in, &v)) return false;
    if (v < 0 || v > INT32_MAX || v != std::trunc(v)) return badToken();
    *out = static_cast<int32_t>(v);
    return true;
}

// One word of a cluster node and its values.
bool readNodeWord(AsciiIn &in, Cluster *c, int32_t *expectedKeys) {
    const int pf = clusterPointFloats(c->type);
    if (strcmp(g_token, "name") == 0) {
        if (!word(in)) return badToken();
        free(c->name);
        c->name = strdup(g_token);
        return c->name != nullptr;
    }
    if (strcmp(g_token, "numCVs") == 0) {
        if (c->indexes || c->keys) return badToken();  // the points are fixed once used
        int32_t n;
        if (!count(in, &n)) return false;
        c->pointCount = n;
        return true;
    }
    if (strcmp(g_token, "numKeys") == 0) return count(in, expectedKeys);
    if (strcmp(g_token, "indexes") == 0) {
        if (c->indexes || !fits(in, c->pointCount)) return badToken();
        c->indexes = static_cast<int32_t *>(calloc(c->pointCount > 0 ? c->pointCount : 1, sizeof(int32_t)));
        if (!c->indexes) return false;
        for (int32_t i = 0; i < c->pointCount; ++i)
            if (!count(in, &c->indexes[i])) return false;
        return true;
    }
    if (strcmp(g_token, "Cluster_key") == 0) {
        const int64_t values = static_cast<int64_t>(c->pointCount) * pf;
        if (c->keyCount >= *expectedKeys || !fits(in, values)) return badToken();
        auto *grown = static_cast<float *>(
            realloc(c->keys, static_cast<size_t>((c->keyCount + 1) * values + 1) * sizeof(float)));
        if (!grown) return false;
        c->keys = grown;
        float *at = c->keys + c->keyCount * values;
        for (int64_t i = 0; i < values; ++i) {
            double v;
            if (!number(in, &v)) return false;
            at[i] = static_cast<float>(v);
        }
        ++c->keyCount;
        return true;
    }
    return badToken();
}

Cluster *readAscii(AsciiIn &in, int32_t type) {
    Cluster *head = nullptr, **tail = &head, *node = nullptr;
    int32_t expectedKeys = 0;
    bool ok = true;
    while (ok && word(in)) {
        if (strcmp(g_token, "Cluster_node") == 0) {
            node = clusterNew(type);
            if (!node) {
                ok = false;
                break;
            }
            *tail = node;
            tail = &node->next;
            expectedKeys = 0;
        } else if (!node) {
            msgShowf(TOL_CLASS_ERROR, "ClusterAsciiRead: Error file %s is not a cluster file", in.file);
            ok = false;
        } else {
            ok = readNodeWord(in, node, &expectedKeys);
        }
    }
    if (ok && g_tokenEnd == TOKEN_END_BAD) ok = badToken();
    if (!ok) {
        clusterFree(head);
        return nullptr;
    }
    return head;
}

}  // namespace

int clusterPointFloats(int32_t type) {
    switch (type) {
        case MODEL_PATCH: case MODEL_NURBS_CURVE: case MODEL_NURBS_SURFACE: return 4;
        case MODEL_FACE: case MODEL_SPLINE: return 9;
        case MODEL_MESH: return 3;
        default: return 0;
    }
}

Cluster *clusterChainRead(BinReader &r, int32_t type) {
    Cluster *head = nullptr, **tail = &head;
    while (!r.failed && binRemaining(r) > 0) {
        Cluster *c = clusterNew(type);
        if (!c) {
            binFail(r, "out of memory for a cluster");
            break;
        }
        *tail = c;
        tail = &c->next;
        readCluster(r, c, type);
    }
    return head;
}

Cluster *clusterFileRead(const char *path, Model *model) {
    if (!model || !clusterPointFloats(model->type)) return nullptr;  // no model to read for
    BinReader r;
    if (!path || !binReaderOpen(r, path)) {
        fprintf(stderr, "ERROR: Cannot open file %s\n", path ? path : "");
        return nullptr;
    }
    Cluster *chain = nullptr;
    int isAscii = 0;
    float version = 0.0f;
    int32_t magic = fileReadMagic(r, &isAscii, &version);
    if (magic >= 0 && isAscii) {
        if (static_cast<uint32_t>(magic) == MAGIC_CLUS) {
            AsciiIn in{r.file, path, r.size};
            chain = readAscii(in, model->type);
        } else {
            msgShowf(TOL_CLASS_ERROR, "ClusterAsciiRead: Error file %s is not a cluster file", path);
        }
    } else if (magic >= 0) {
        Prototype proto;
        if (static_cast<uint32_t>(magic) != BIN_ID_CLUSTER_KEYS) binFail(r, "not a cluster key file");
        else if (animReadProto(r, proto)) chain = clusterChainRead(r, model->type);
    }
    binReaderClose(r);
    return chain;
}

int clusterFileWrite(const char *path, const Cluster *chain) {
    BinWriter w;
    if (!binWriterOpen(w, path)) return 0;
    binWriteHeader(w, BIN_ID_CLUSTER_KEYS, BIN_VERSION, nullptr);
    for (const Cluster *c = chain; c && !w.failed; c = c->next) {
        const int pf = clusterPointFloats(c->type);
        if (!pf) {
            std::string what = "cluster of type " + std::to_string(c->type) + " has no points";
            binWriteFail(w, what.c_str());
            break;
        }
        binWriteU16(w, CLS_TOKEN_GEOMETRY), binWriteU16(w, static_cast<uint16_t>(c->type));
        binWriteFloats(w, c->centre, static_cast<size_t>(pf));
        if (c->name) binWriteU16(w, CLS_TOKEN_NAME), binWriteStr(w, c->name);
        const int32_t points = c->indexes ? c->pointCount : 0, keys = c->keys && points ? c->keyCount : 0;
        binWriteU16(w, CLS_TOKEN_POINTS), binWriteI32(w, points);
        if (points) binWrite(w, c->indexes, sizeof(int32_t), static_cast<size_t>(points));
        binWriteI32(w, keys);
        if (keys) binWriteFloats(w, c->keys, static_cast<size_t>(keys) * points * pf);
        binWriteU16(w, CLS_TOKEN_WORD5), binWriteU32(w, c->word5);
        binWriteU16(w, CLS_TOKEN_WORD6), binWriteU16(w, c->word6);
        binWriteU16(w, BIN_TOKEN_END);
    }
    return binWriterClose(w);
}

void clusterFree(Cluster *chain) {
    while (chain) {
        Cluster *next = chain->next;
        free(chain->name);
        free(chain->indexes);
        free(chain->keys);
        free(chain);
        chain = next;
    }
}
