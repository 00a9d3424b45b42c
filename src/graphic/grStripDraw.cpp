// Playing a strip stream: the walk over its cells, which knows the form and
// nothing of OpenGL, and the draw, which hands what the walk finds to
// OpenGL, or compiles it into a display list that takes the stream over.
#include <GL/gl.h>

#include <cstdlib>
#include <cstring>

#include "database.h"
#include "dictionary.h"
#include "material.h"
#include "tess_internal.h"

namespace {

constexpr uint16_t MAP_REFLECT_A = 7, MAP_REFLECT_B = 8;  // drawn with sphere mapping

// Reflection mapping off. Unconditional: a display list played may have
// switched it on behind the player's back.
void sphereMapOff() {
    glDisable(GL_TEXTURE_GEN_S);
    glDisable(GL_TEXTURE_GEN_T);
}

StripVertexLayout layoutOf(float token, bool textured) {
    const bool colour = token == STRIP_MAT_CONSTANT_COLOUR || token == STRIP_MAT_SHADED_COLOUR;
    const bool shaded = token == STRIP_MAT_SHADED || token == STRIP_MAT_SHADED_COLOUR;
    StripVertexLayout l;
    int at = 1;  // after the vertex cell
    l.uv = textured ? at : -1;
    at += textured ? 3 : 0;
    l.colour = colour ? at : -1;
    at += colour ? 3 : 0;
    l.normal = shaded ? at : -1;
    at += shaded ? 3 : 0;
    l.pos = at;
    l.stride = at + 3;
    return l;
}

bool materialToken(float c) {
    return c == STRIP_MAT_CONSTANT || c == STRIP_MAT_CONSTANT_COLOUR || c == STRIP_MAT_SHADED ||
           c == STRIP_MAT_SHADED_COLOUR;
}

void materialBindDefault(int materialId, int shaded) {
    (void)materialId;
    static const GLfloat grey[4] = {0.7f, 0.7f, 0.7f, 1.0f};
    glColor4fv(grey);
    if (shaded) glMaterialfv(GL_FRONT, GL_AMBIENT_AND_DIFFUSE, grey);
}

}  // namespace

void (*g_stripMaterialBind)(int materialId, int shaded) = materialBindDefault;

int textureBindList(const Texture2D *t, int id, const BW_GraphicProps *gprops) {
    BW_GlbVar &g = gprops && gprops->glbVar ? *gprops->glbVar : glbVar;
    const bool reflection = t && (t->method == MAP_REFLECT_A || t->method == MAP_REFLECT_B);
    if (id == g.curTxtId) return reflection ? 0 : 1;
    sphereMapOff();
    const bool nothingBound = g.curTxtId <= 0;
    g.curTxtId = id;
    if (t && t->video && gprops && gprops->texture.video) {
        // Live video fills the colour: the picture's alpha must not reach the frame.
        g.curTxtId = 1;
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
    }
    if (reflection) {
        glTexGeni(GL_S, GL_TEXTURE_GEN_MODE, GL_SPHERE_MAP);
        glTexGeni(GL_T, GL_TEXTURE_GEN_MODE, GL_SPHERE_MAP);
        glEnable(GL_TEXTURE_GEN_S);
        glEnable(GL_TEXTURE_GEN_T);
    }
    if (nothingBound) glEnable(GL_TEXTURE_2D);
    glCallList(static_cast<GLuint>(id + TEXTURE_LIST_BASE));
    return reflection ? 0 : 1;
}

void textureUnbind(BW_GlbVar &g) {
    sphereMapOff();
    g.curTxtId = 0;
    glDisable(GL_TEXTURE_2D);
}

namespace {

// A cell that holds a count or an id; false when it holds no whole number
// that an int can take.
bool cellInt(float c, int *out) {
    if (!(c > -2147483648.0f && c < 2147483648.0f) || static_cast<float>(static_cast<int>(c)) != c) return false;
    *out = static_cast<int>(c);
    return true;
}

}  // namespace

int32_t stripVertexIndex(const float *vertexCells) {
    int32_t index;
    memcpy(&index, vertexCells, sizeof index);
    return index;
}

int stripStreamWalk(const float *stream, int32_t length, const StripStreamVisitor *v) {
    if (!stream) return -1;
    float token = 0.0f;
    bool textured = false;
    StripVertexLayout layout = layoutOf(token, textured);
    for (int32_t i = 0; i < length;) {
        const float c = stream[i];
        if (c == STRIP_END) return 0;
        if (materialToken(c) || c == STRIP_TEXTURE) {
            int id;
            if (i + 1 >= length || !cellInt(stream[i + 1], &id)) return -1;
            if (c == STRIP_TEXTURE) {
                if (token == 0.0f) return -1;
                textured = true;
                if (v && v->texture) v->texture(v->user, id);
            } else {
                token = c;
                textured = false;
                if (v && v->material) v->material(v->user, c, id);
            }
            layout = layoutOf(token, textured);
            i += 2;
        } else if (c == 0.0f) {
            ++i;  // empty group
        } else if (c > 0.0f) {
            int n;
            if (token == 0.0f || !cellInt(c, &n) || n % layout.stride != 0 || n > length - i - 1) return -1;
            if (v && v->strip) v->strip(v->user, stream + i + 1, n, &layout);
            i += 1 + n;
        } else {
            return -1;
        }
    }
    return -1;
}

int g_stripArrays = 1;

namespace {

// Client arrays a play has switched on, one bit each.
constexpr unsigned ARRAY_UV = 1, ARRAY_COLOUR = 2, ARRAY_NORMAL = 4, ARRAY_POSITION = 8;

struct ClientArray {
    unsigned bit;  // ARRAY_*
    GLenum array;  // its client state
};
const ClientArray clientArrays[] = {{ARRAY_UV, GL_TEXTURE_COORD_ARRAY},
                                    {ARRAY_COLOUR, GL_COLOR_ARRAY},
                                    {ARRAY_NORMAL, GL_NORMAL_ARRAY},
                                    {ARRAY_POSITION, GL_VERTEX_ARRAY}};

// Switches the client arrays to `wanted`, touching only those that change.
void clientArraysSet(unsigned *enabled, unsigned wanted) {
    for (const ClientArray &a : clientArrays) {
        if ((wanted & a.bit) && !(*enabled & a.bit)) glEnableClientState(a.array);
        if (!(wanted & a.bit) && (*enabled & a.bit)) glDisableClientState(a.array);
    }
    *enabled = wanted;
}

// The state of one play of a stream on OpenGL.
struct Player {
    Dictionary *dict;          // the scene's, for the texture records; may be null
    BW_GraphicProps *gprops;
    BW_GlbVar *g;
    TmeshHeader *header;
    GLboolean litAtEntry;      // lighting before the play
    float token;               // material token in force
    bool textureCell;          // the material had a texture cell
    bool compiling;            // a display list is being made
    GLuint list;               // that list
    unsigned arrays;           // ARRAY_* switched on by this play
};

void playMaterial(void *user, float token, int id) {
    Player &p = *static_cast<Player *>(user);
    p.token = token;
    p.textureCell = false;
    const int shaded = token == STRIP_MAT_SHADED || token == STRIP_MAT_SHADED_COLOUR;
    if (id != p.g->curMatId) {
        p.g->curMatId = id;
        g_stripMaterialBind(id, shaded);
    } else if (token == STRIP_MAT_CONSTANT) {
        g_stripMaterialBind(id, 0);  // the colour carries the model's alpha: every time
    }
    if (token == STRIP_MAT_CONSTANT && p.compiling) {
        // Such models stay out of lists: what was compiled is played and dropped.
        glEndList();
        glCallList(p.list);
        glDeleteLists(p.list, 1);
        p.compiling = false;
        p.header->compileRequest = 0;
    }
    if (shaded) {
        if (p.litAtEntry) glEnable(GL_LIGHTING);
    } else {
        glDisable(GL_LIGHTING);
    }
}

void playTexture(void *user, int id) {
    Player &p = *static_cast<Player *>(user);
    p.textureCell = true;
    if (!p.gprops->texture.active || id == p.g->curTxtId) return;
    textureBindList(grTextureOfId(p.dict, id), id, p.gprops);
}

// One vertex a call: the form that a per-vertex diffuse colour needs, since
// it goes through the material, and the reference the arrays are held to.
void playStripImmediate(const float *cells, int count, const StripVertexLayout *l, bool diffuse) {
    glBegin(GL_TRIANGLE_STRIP);
    for (const float *v = cells; v < cells + count; v += l->stride) {
        if (l->uv >= 0) glTexCoord2fv(v + l->uv + 1);
        if (l->colour >= 0) {
            if (diffuse) {
                const GLfloat rgba[4] = {v[l->colour], v[l->colour + 1], v[l->colour + 2], 1.0f};
                glMaterialfv(GL_FRONT, GL_DIFFUSE, rgba);
            } else {
                glColor3fv(v + l->colour);
            }
        }
        if (l->normal >= 0) glNormal3fv(v + l->normal);
        glVertex3fv(v + l->pos);
    }
    glEnd();
}

// The strip's cells are already interleaved vertices: the arrays point into
// the stream with its stride, and one call draws the strip (or compiles it
// into the list being made).
void playStripArrays(Player &p, const float *cells, int count, const StripVertexLayout *l) {
    const GLsizei stride = static_cast<GLsizei>(l->stride * sizeof(float));
    unsigned wanted = ARRAY_POSITION;
    if (l->uv >= 0) wanted |= ARRAY_UV;
    if (l->colour >= 0) wanted |= ARRAY_COLOUR;
    if (l->normal >= 0) wanted |= ARRAY_NORMAL;
    clientArraysSet(&p.arrays, wanted);
    if (l->uv >= 0) glTexCoordPointer(2, GL_FLOAT, stride, cells + l->uv + 1);
    if (l->colour >= 0) glColorPointer(3, GL_FLOAT, stride, cells + l->colour);
    if (l->normal >= 0) glNormalPointer(GL_FLOAT, stride, cells + l->normal);
    glVertexPointer(3, GL_FLOAT, stride, cells + l->pos);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, count / l->stride);
}

void playStrip(void *user, const float *cells, int count, const StripVertexLayout *l) {
    Player &p = *static_cast<Player *>(user);
    if (!p.textureCell && p.g->curTxtId > 0) textureUnbind(*p.g);
    const bool diffuse = p.token == STRIP_MAT_SHADED_COLOUR;
    if (g_stripArrays && !diffuse) playStripArrays(p, cells, count, l);
    else playStripImmediate(cells, count, l, diffuse);
}

}  // namespace

int drawStripStream(const TOL_Scene *scene, Model *model, BW_GraphicProps *gprops) {
    const GLboolean lit = glIsEnabled(GL_LIGHTING);
    if (!model || !gprops || !model->tmesh) return 0;
    TmeshHeader *h = model->tmesh;
    if (h->listId < 0 && (!h->stream || h->streamLength == 0)) return 0;
    if (gprops->stopFct && gprops->stopFct()) return TOL_ST_STOPPED;
    BW_GlbVar *g = gprops->glbVar ? gprops->glbVar : &glbVar;
    if (!gprops->texture.active && g->curTxtId != 0) {
        g->curTxtId = 0;
        glDisable(GL_TEXTURE_2D);
    }
    glPushMatrix();
    glMultMatrixf(&model->globalMatrix[0][0]);
    float scale[3];
    const int scaled = modelExtraScale(model, scale);
    if (scaled) {
        glPushMatrix();
        glScalef(scale[0], scale[1], scale[2]);
    }
    Player p{};
    p.dict = scene ? dictGet(static_cast<int>(scene->dict)) : nullptr;
    p.gprops = gprops;
    p.g = g;
    p.header = h;
    p.litAtEntry = lit;
    if (h->listId >= 0) {
        glCallList(static_cast<GLuint>(h->listId));
        g->curMatId = h->lastMaterial;
        g->curTxtId = h->lastTexture;
    } else {
        if (h->compileRequest && g->listEnable) {
            p.list = glGenLists(1);
            p.compiling = p.list != 0;
            if (p.compiling) glNewList(p.list, GL_COMPILE);
        }
        const StripStreamVisitor visitor = {&p, playMaterial, playTexture, playStrip};
        stripStreamWalk(h->stream, h->streamLength, &visitor);
        clientArraysSet(&p.arrays, 0);
        if (p.compiling) {
            // The list takes the stream over.
            glEndList();
            glCallList(p.list);
            h->listId = static_cast<int32_t>(p.list);
            free(h->stream);
            h->stream = nullptr;
            h->streamLength = 0;
            h->compileRequest = 0;
            h->lastMaterial = g->curMatId;
            h->lastTexture = g->curTxtId;
            h->textureState = gprops->texture.active;
        }
    }
    textureUnbind(*g);
    if (lit) glEnable(GL_LIGHTING);
    else glDisable(GL_LIGHTING);
    if (scaled) glPopMatrix();
    glPopMatrix();
    return 0;
}
