// The scene file's grammar: header and element statements, relation
// statements with their data, and the environment. Nothing here opens files
// or reads element files: the load (scene_load.cpp) drives these readers.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "scene_internal.h"

int loadIsPrimary = 0;
float loadFileVersion = 0.0f;
int (*g_sceneVersionHook)(float version) = nullptr;

namespace {

int32_t s_serial = 0;
// The relations reader met ENVIRONMENT of a file without the end of its
// relations: the environment reader starts there.
bool s_atEnvironment = false;

// Version from which a scene comes from a newer system than this one.
constexpr float kNewerVersion = 4.000001f;
// Version from which relations 246 and 247 are keyed by serial in group 2.
constexpr float kSerialDeformVersion = 2.99913f;

bool is(const char *word) { return strcmp(g_token, word) == 0; }

// Reads until ';' (consumed) or the end of the stream.
void skipStatement(FILE *stream) {
    while (sceneNextToken(stream))
        if (is(";")) return;
}

}  // namespace

int32_t relNewSerial() { return ++s_serial; }

bool sceneNextToken(FILE *stream) {
    readToken(stream);
    return g_token[0] != '\0' && g_tokenEnd != TOKEN_END_BAD;
}

// ---------------------------------------------------------------------------
// Element references

namespace {

SceneRefIndex s_refs;

uint64_t refKey(int chapterId, int sceneIndex, int32_t wrkid) {
    return (static_cast<uint64_t>(chapterId & 0x3F) << 58) ^
           (static_cast<uint64_t>(static_cast<uint32_t>(sceneIndex) & 0x3FFFFFF) << 32) ^
           static_cast<uint32_t>(wrkid);
}

}  // namespace

void sceneRefReset() { s_refs.map.clear(); }

void sceneRefNote(int chapterId, int sceneIndex, int32_t wrkid, int32_t index) {
    s_refs.map[refKey(chapterId, sceneIndex, wrkid)] = index;
}

int sceneElemRef(Dictionary *dict, int chapterId, int sceneIndex, const char *reference,
                 int32_t *index) {
    Chapter *chapter = dictChapter(dict, chapterId);
    if (!chapter || !reference) return 0;
    char *end = nullptr;
    long number = strtol(reference, &end, 10);
    // Text from an '@' on names the element for a reader; the number decides.
    if (end == reference || (*end != '\0' && *end != '@')) return 0;
    int32_t wrkid = static_cast<int32_t>(number);
    auto it = s_refs.map.find(refKey(chapterId, sceneIndex, wrkid));
    if (it != s_refs.map.end()) {
        Element *e = elemGetInChapter(chapter, it->second);
        if (e && e->deleted != ELEM_FREE_SLOT && e->owner == sceneIndex && e->wrkid == wrkid) {
            if (index) *index = it->second;
            return 1;
        }
    }
    for (int i = 0; i < chapter->elementCount; ++i) {
        const Element &e = chapter->elements[i];
        if (e.deleted != ELEM_FREE_SLOT && e.name && e.owner == sceneIndex && e.wrkid == wrkid) {
            if (index) *index = i;
            return 1;
        }
    }
    return 0;
}

// ---------------------------------------------------------------------------
// Header and elements

namespace {

// Chapters whose elements are members of a hierarchy unless marked ROOT.
bool hierarchical(int chapterId) {
    return chapterId == CHP_MODELS || chapterId == CHP_LIGHTS || chapterId == CHP_CAMERAS ||
           chapterId == CHP_EXPRESSIONS;
}

// A picture is named by its full path: the last part is the name, the rest
// the directory it is read from.
ElemName *pictureName(const char *path, const char *alias) {
    char expanded[BW_PATH_MAX];
    std::string text = path;
    for (char &c : text)
        if (c == '\\') c = '/';
    dbExpandPath(text.c_str(), expanded);
    std::string full = expanded;
    size_t slash = full.rfind('/');
    std::string dir = slash == std::string::npos ? "" : full.substr(0, slash + 1);
    std::string last = slash == std::string::npos ? full : full.substr(slash + 1);
    ElemName *name = elemNameParse(last.c_str(), alias, 0);
    if (name) name->subdir = dir;
    return name;
}

}  // namespace

void sceneReadElements(FILE *stream, Dictionary *dict, int chapterId, int sceneIndex,
                       const char *pathPrefix, int count, int rootsOnly) {
    for (int position = 0; position < count; ++position) {
        if (!sceneNextToken(stream)) return;
        if (is("EndOfCHAPTER")) return;  // fewer statements than NBELEM says
        std::string fileName = g_token;
        int lev = hierarchical(chapterId) ? 1 : 0;
        std::string alias;
        bool hasAlias = false;
        // The file name may carry the ';' glued to it: the token reader splits it off.
        while (sceneNextToken(stream) && !is(";")) {
            if (is("ALIAS")) {
                if (!sceneNextToken(stream)) break;
                alias = g_token;
                hasAlias = true;
            } else if (is("ROOT")) {
                lev = 0;
            }
        }
        if (rootsOnly && lev != 0) continue;  // its position still counts
        std::string prefixed;
        if (hasAlias) prefixed = std::string(pathPrefix ? pathPrefix : "") + alias;
        const char *aliasText = hasAlias ? prefixed.c_str() : nullptr;
        ElemName *name = chapterId == CHP_PICTURES ? pictureName(fileName.c_str(), aliasText)
                                                   : elemNameParse(fileName.c_str(), aliasText, 0);
        if (!name) continue;
        int index = elemAdd(dict, chapterId, name, nullptr, nullptr, sceneIndex, position);
        if (index < 0) continue;
        Element *e = elemGet(dict, chapterId, index);
        e->lev = lev;
        e->level = static_cast<uint16_t>(atoi(name->revision.c_str()));
        e->isNew = 1;
        sceneRefNote(chapterId, sceneIndex, position, index);
    }
}

int sceneReadHeader(FILE *stream, Dictionary *dict, int sceneIndex, const char *pathPrefix,
                    float *version, int rootsOnly) {
    char magic[5] = {};
    if (fread(magic, 1, 4, stream) != 4 || strcmp(magic, "SDSC") != 0) return 0;
    float v = 0.0f;
    if (sceneNextToken(stream)) v = static_cast<float>(atof(g_token));
    if (version) *version = v;
    if (loadInProgress && v >= kNewerVersion) {
        fprintf(stderr, "WARNING: This scene has been saved with version %g of BRACKWOOD 3D.\n",
                static_cast<double>(v));
        if (g_sceneVersionHook && !g_sceneVersionHook(v)) return 0;
    }
    if (!skipToToken(stream, "ELEMENTS", ';')) return 1;  // a scene without elements
    int chapterId = -1;
    while (sceneNextToken(stream)) {
        if (is("EndOfELEMENTS")) break;
        if (is("CHAPTER")) {
            if (!sceneNextToken(stream)) break;
            chapterId = chapterAddByName(dict, g_token);
        } else if (is("NBELEM")) {
            if (!sceneNextToken(stream)) break;
            int count = atoi(g_token);
            if (count > 0 && chapterId >= 0)
                sceneReadElements(stream, dict, chapterId, sceneIndex, pathPrefix, count, rootsOnly);
            else if (!skipToToken(stream, "EndOfCHAPTER", ';'))
                break;
        }
        // Anything else, EndOfCHAPTER included, is passed over.
    }
    return 1;
}

// ---------------------------------------------------------------------------
// Relations

namespace {

bool rowFits(const RelationRow &row, int srcChapter, int dstChapter) {
    return (row.chpFrom == REL_ANY_CHAPTER || row.chpFrom == srcChapter) &&
           (row.chpTo == REL_ANY_CHAPTER || row.chpTo == dstChapter);
}

// Instance of the relid whose chapters fit the block's pair, and, when
// `group` is not negative, whose source group is that one; 0 if none fits.
int fittingInstance(const RelationDict *table, int32_t relid, int srcChapter, int dstChapter,
                    int group) {
    int first = relRowFind(table, relid);
    int rows = relRowCount(table, relid);
    for (int n = 1; first >= 0 && n <= rows; ++n) {
        const RelationRow &row = table->rows[first + n - 1];
        if (rowFits(row, srcChapter, dstChapter) && (group < 0 || row.grpFrom == group)) return n;
    }
    return 0;
}

// The instance a statement without SUBREL stands for: the first whose
// chapters fit the block's pair (the row's "*" chapters fit anything), else 1.
int instanceFor(const RelationDict *table, int32_t relid, int srcChapter, int dstChapter) {
    int n = fittingInstance(table, relid, srcChapter, dstChapter, -1);
    return n > 0 ? n : 1;
}

// An expression stands in every group; which of its rows a statement means
// follows from the first word of its data, the name of the parameter it
// sets. A row of that name among the expression's own rows is taken as it
// is; a row of another relation (an animated parameter, named as its curves
// are) gives its group, and the expression's row of that group is taken.
int expressionInstance(const RelationDict *table, const RelData *data, int srcChapter,
                       int dstChapter) {
    const char *word = data && data->words ? data->words[0] : nullptr;
    int named = relRowFindByName(table, word);
    int first = relRowFind(table, REL_EXPRESSION);
    if (named >= 0 && first >= 0) {
        if (table->rows[named].relid == REL_EXPRESSION) return named - first + 1;
        int n = fittingInstance(table, REL_EXPRESSION, srcChapter, dstChapter,
                                table->rows[named].grpFrom);
        if (n > 0) return n;
    }
    return instanceFor(table, REL_EXPRESSION, srcChapter, dstChapter);
}

}  // namespace

int relExpressionInstance(const RelationDict *table, const RelData *data, int srcChapter,
                          int dstChapter) {
    return expressionInstance(table ? table : &g_relationDict, data, srcChapter, dstChapter);
}

int relAddExpression(Dictionary *dict, const RelationDict *table, int srcChapter, int32_t src,
                     int dstChapter, int32_t dst, int instance, int32_t serial, RelData *data) {
    if (!table) table = &g_relationDict;
    if (instance <= 0) instance = expressionInstance(table, data, srcChapter, dstChapter);
    int16_t grpFrom = 0, grpTo = 0, rk = 0;
    if (!relRowInstance(table, REL_EXPRESSION, instance, nullptr, nullptr, &grpFrom, &grpTo, &rk,
                        nullptr))
        return 0;
    if (serial < 0) serial = relNewSerial();
    return relAddFull(dict, table, srcChapter, dstChapter, grpFrom, grpTo, src, dst, REL_EXPRESSION,
                      serial, rk, data);
}

namespace {

struct RelStatement {
    int srcChapter;
    int dstChapter;
    int32_t src;
    int32_t dst;
    int32_t relid;
    int32_t serial;  // -1 unless the file or the kind of relation gives one
    int activ;
    RelData *data;
    int scene;       // SCENES index of the file
    int instance;    // row of the relid given by SUBREL; 0 for none
};

void addRelation(Dictionary *dict, const RelationDict *table, RelStatement &st, float version) {
    const int32_t relid = st.relid;
    int instance = relid == REL_EXPRESSION
                       ? expressionInstance(table, st.data, st.srcChapter, st.dstChapter)
                       : instanceFor(table, relid, st.srcChapter, st.dstChapter);
    if (st.instance > 0) {
        if (st.instance <= relRowCount(table, relid))
            instance = st.instance;
        else if (relRowCount(table, relid) > 0)
            fprintf(stderr, "Relation %d has no instance %d (SUBREL): instance %d taken\n", relid,
                    st.instance, instance);
    }
    int16_t grpFrom = 0, grpTo = 0, rk = 0, fo = 0;
    bool known = relRowInstance(table, relid, instance, nullptr, nullptr, &grpFrom, &grpTo, &rk, &fo);
    if (!known) {
        fprintf(stderr, "Relation %d is not in the relation resources: not connected\n", relid);
        relDataFree(relid, st.data);
        st.data = nullptr;
        return;
    }
    int ok = 0;
    if (relid == REL_EXPRESSION) {
        if (st.serial < 0) st.serial = relNewSerial();
        ok = relAddExpression(dict, table, st.srcChapter, st.src, st.dstChapter, st.dst, instance,
                              st.serial, st.data);
    } else if ((relid == 246 || relid == 247) && version >= kSerialDeformVersion) {
        if (st.serial < 0) st.serial = relNewSerial();
        ok = relAddFull(dict, table, st.srcChapter, st.dstChapter, RELGR_GEOM, RELGR_GEOM, st.src,
                        st.dst, relid, st.serial, 1, st.data);
    } else if (relid == 551) {
        ok = relAddFull(dict, table, st.srcChapter, st.dstChapter, grpFrom, grpTo, st.src, st.dst,
                        relid, st.serial, rk, st.data);
    } else if (relid == REL_CUSTOM && st.data) {
        // The effect's model is the first word of its data once resolved.
        int32_t model = -1;
        const char *modelRef = relDataWord(st.data, "MNAME");
        if (modelRef && sceneElemRef(dict, CHP_MODELS, st.scene, modelRef, &model)) {
            st.data->index = model;
            if (st.serial < 0) st.serial = relNewSerial();
            ok = relAddFull(dict, table, st.srcChapter, st.dstChapter, grpFrom, grpTo, st.src,
                            st.dst, relid, st.serial, rk, st.data);
        } else {
            fprintf(stderr, "Custom icon not found in dictionary\n");
        }
    } else if (relSameChapters(table, relid)) {
        ok = relAddVia(dict, table, st.srcChapter, st.src, st.dstChapter, st.dst, relid, instance,
                       instance, st.data, st.activ);
    } else {
        ok = relAdd(dict, table, st.src, st.dst, relid, instance, instance, st.data, st.activ);
    }
    if (ok && (relid == REL_EXPRESSION || relid == 551 || relid == REL_CUSTOM ||
               relid == 246 || relid == 247) && !st.activ) {
        if (RelationInst *inst = relFind(elemGet(dict, st.srcChapter, st.src), relid,
                                         st.dstChapter, st.dst))
            inst->activ = 0;
    }
    if (!ok) {
        relDataFree(relid, st.data);  // the dictionary did not take it
    }
    st.data = nullptr;
}

// RELDATA ... EndOfRELDATA; on return g_token holds the token behind the block.
RelData *readDataBlock(FILE *stream, int32_t relid) {
    int foreign = 0;
    RelData *data = relDataRead(stream, relid, &foreign);
    if (!foreign) sceneNextToken(stream);
    return data;
}

// Entries of a SUBREL block up to EndOfSUBREL; each is one more source of the run.
void readSubrel(FILE *stream, Dictionary *dict, const RelationDict *table, int sceneIndex,
                const RelStatement &main, float version) {
    int chapterId = CHP_MODELS;
    RelStatement entry = main;
    entry.data = nullptr;
    bool haveElem = false;
    bool pending = false;  // g_token holds the token behind a data block
    while (pending || sceneNextToken(stream)) {
        pending = false;
        if (is("EndOfSUBREL")) break;
        if (is("CHAP")) {
            if (sceneNextToken(stream)) chapterId = dictChapterFind(dict, g_token);
        } else if (is("ELEM")) {
            if (!sceneNextToken(stream)) break;
            haveElem = sceneElemRef(dict, chapterId, sceneIndex, g_token, &entry.dst);
            if (!haveElem) fprintf(stderr, "Element 2 not found ******\n");
            entry.dstChapter = chapterId;
        } else if (is("RELDATA")) {
            relDataFree(main.relid, entry.data);
            entry.data = readDataBlock(stream, main.relid);
            pending = g_token[0] != '\0';
        } else if (is(";")) {
            if (haveElem) addRelation(dict, table, entry, version);
            relDataFree(main.relid, entry.data);
            entry.data = nullptr;
            haveElem = false;
            chapterId = CHP_MODELS;
        }
    }
    relDataFree(main.relid, entry.data);
}

}  // namespace

int sceneReadRelations(FILE *stream, Dictionary *dict, const RelationDict *table, int sceneIndex,
                       float version) {
    if (!table) table = &g_relationDict;
    // The records of scene files have parts of their own to release.
    g_relDataFree = relDataFree;
    s_atEnvironment = false;
    int chapters[2] = {-1, -1};
    int chapterCount = 0;
    while (sceneNextToken(stream)) {
        if (is("EndOfRELATIONS")) return 1;
        if (is("ENVIRONMENT")) {  // relations without their end
            s_atEnvironment = true;
            return 1;
        }
        if (is("RELATIONS")) continue;
        if (is("CHAPTER")) {
            if (!sceneNextToken(stream)) return 1;
            if (chapterCount >= 2) chapterCount = 0;  // a new block
            chapters[chapterCount++] = dictChapterFind(dict, g_token);
            continue;
        }
        if (is("EndOfCHAPTER")) {
            chapterCount = 0;
            continue;
        }
        if (is(";")) continue;

        // A statement: two references, the relation id, the rest up to ';'.
        RelStatement st{chapters[0], chapters[1], -1, -1, 0, -1, 1, nullptr, sceneIndex, 0};
        bool found1 = sceneElemRef(dict, st.srcChapter, sceneIndex, g_token, &st.src);
        if (!sceneNextToken(stream)) return 1;
        bool found2 = !is(";") && sceneElemRef(dict, st.dstChapter, sceneIndex, g_token, &st.dst);
        if (!found1 || !found2) {
            fprintf(stderr, !found1 ? "Element 1 not found ******\n" : "Element 2 not found ******\n");
            if (!is(";")) skipStatement(stream);
            continue;
        }
        if (!sceneNextToken(stream) || is(";")) continue;
        st.relid = atoi(g_token);
        if (st.relid == 551) {
            if (!sceneNextToken(stream) || is(";")) continue;
            st.serial = atoi(g_token);
        }
        bool more = sceneNextToken(stream);
        if (more && is("NOTACT")) {
            st.activ = 0;
            more = sceneNextToken(stream);
        }
        if (more && is("RELDATA")) {
            st.data = readDataBlock(stream, st.relid);
            more = g_token[0] != '\0';
        }
        bool subrel = false;
        if (more && is("SUBREL")) {
            subrel = true;
            // The count is the instance of the relation that the statement
            // and its entries stand for. A custom effect takes it so only
            // with data behind it; without, it counts the effect's fan-out,
            // which the table fixes already.
            int count = sceneNextToken(stream) ? atoi(g_token) : 0;
            if (st.relid == REL_CUSTOM) {
                long pos = ftell(stream);
                if (sceneNextToken(stream) && is("RELDATA")) {
                    relDataFree(st.relid, st.data);
                    st.data = relDataRead(stream, st.relid, nullptr);
                    st.instance = count;
                } else if (pos >= 0) {
                    fseek(stream, pos, SEEK_SET);
                }
            } else {
                st.instance = count;
            }
        }
        // Hierarchy chains and envelopes are made again by the system itself.
        if (st.relid == 120 || st.relid == 121 || st.relid == 207 || st.relid == 208) {
            relDataFree(st.relid, st.data);
            st.data = nullptr;
        } else {
            addRelation(dict, table, st, version);
        }
        if (subrel) readSubrel(stream, dict, table, sceneIndex, st, version);
        if (!subrel && more && !is(";")) skipStatement(stream);
        else if (subrel) skipStatement(stream);
    }
    return 1;
}

// ---------------------------------------------------------------------------
// Environment

namespace {

bool readFloats(FILE *stream, float *out, int count) {
    for (int i = 0; i < count; ++i) {
        if (!sceneNextToken(stream) || is(";")) return false;
        out[i] = static_cast<float>(atof(g_token));
    }
    return true;
}

// A number of the file as an int: out-of-range values are held at the ends,
// not-a-number is 0.
int32_t toInt(float v) {
    if (!(v == v)) return 0;
    if (v >= 2147483520.0f) return INT32_MAX;
    if (v <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(v);
}

void readPlayCtrl(FILE *stream) {
    // A merge keeps the present play control; its range can only grow.
    TOL_PlayCtrl &play = sceneStateCurrent().playCtrl;
    while (sceneNextToken(stream) && !is("EndOfPLAYCTRL")) {
        if (is("FRAME")) {
            float v[4] = {};
            if (!readFloats(stream, v, 4)) return;
            int first = toInt(v[0]), last = toInt(v[1]);
            if (loadIsPrimary) {
                play.startFrame = first;
                play.endFrame = last;
                play.currentFrame = toInt(v[2]);
                play.frameStep = toInt(v[3]);
            } else {
                if (first < play.startFrame) play.startFrame = first;
                if (last > play.endFrame) play.endFrame = last;
            }
        } else if (is("PAUSE")) {
            float v = 0;
            if (!readFloats(stream, &v, 1)) return;
            if (loadIsPrimary) play.pause = toInt(v);
        } else if (is("RATE")) {
            float v = 0;
            if (!readFloats(stream, &v, 1)) return;
            if (loadIsPrimary && v > 0) play.framesPerSecond = v;
        }
    }
}

// SCHEM, SRT, USR, WIRECOL, DISPLAY, MPRFLG of one element, up to ';'.
void readElementSettings(FILE *stream, Element *e) {
    while (sceneNextToken(stream) && !is(";")) {
        if (is("SCHEM")) {
            float v[3] = {};
            if (!readFloats(stream, v, 3)) return;
            if (e) {
                e->schemX = v[0];
                e->schemY = v[1];
                e->schemMark = toInt(v[2]);
            }
        } else if (is("SRT")) {
            float v[9] = {};
            if (!readFloats(stream, v, 9)) return;
            if (e) elemSetSrt(e, v);
        } else if (is("USR")) {
            if (e) e->browserBits |= 1;
        } else if (is("WIRECOL") || is("DISPLAY") || is("MPRFLG")) {
            int which = is("WIRECOL") ? 0 : is("DISPLAY") ? 1 : 2;
            float v = 0;
            if (!readFloats(stream, &v, 1)) return;
            if (e) {
                e->envSet |= static_cast<uint16_t>(1u << which);
                e->envValues[which] = toInt(v);
            }
        }
    }
}

}  // namespace

int sceneReadEnvironment(FILE *stream, Dictionary *dict, int sceneIndex) {
    bool there = s_atEnvironment;
    s_atEnvironment = false;
    if (!there && !skipToToken(stream, "ENVIRONMENT", ';')) return 1;
    int chapterId = -1;
    while (sceneNextToken(stream)) {
        if (is("EndOfENVIRONMENT")) break;
        if (is("CHAPTER")) {
            if (!sceneNextToken(stream)) break;
            chapterId = dictChapterFind(dict, g_token);
            continue;
        }
        if (is("EndOfCHAPTER")) {
            chapterId = -1;
            continue;
        }
        if (is("PLAYCTRL")) {
            readPlayCtrl(stream);
            continue;
        }
        if (is("RENDER_SETUP") || is(";")) continue;
        if (is("SETUP")) {
            if (!sceneNextToken(stream)) break;
            // A setup belongs to its own chapter; named anywhere else it is not taken.
            if (chapterId != CHP_SETUP_BRAK) {
                fprintf(stderr, "SETUP %s outside chapter SETUP_BRAK: not taken\n", g_token);
                continue;
            }
            Chapter *setup = dictChapter(dict, CHP_SETUP_BRAK);
            if (setup && elemCountLive(setup) == 0) {
                ElemName *name = elemNameParse(g_token, nullptr, 1);
                int index = elemAdd(dict, CHP_SETUP_BRAK, name, nullptr, nullptr, sceneIndex, 0);
                if (Element *e = elemGet(dict, CHP_SETUP_BRAK, index)) e->isNew = 1;
            }
            continue;
        }
        if (chapterId < 0) continue;
        int32_t index = -1;
        Element *e = nullptr;
        if (sceneElemRef(dict, chapterId, sceneIndex, g_token, &index))
            e = elemGet(dict, chapterId, index);
        readElementSettings(stream, e);
    }
    return 1;
}
