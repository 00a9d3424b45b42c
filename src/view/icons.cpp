// Icons of lights, lattices, cameras and the models cameras are linked to:
// the icon models when they were read, else plain line shapes, in world space.
#include <GL/gl.h>

#include <cmath>
#include <string>

#include "animation.h"
#include "camera.h"
#include "dictionary.h"
#include "graphic.h"
#include "model.h"
#include "view.h"

namespace {

constexpr float ICON_SIZE = 0.5f;  // half length of an icon's cross
constexpr float TICK = 0.1f;       // tick marks at the cross's ends

const float LIGHT_COLOUR[4] = {0.7f, 0.2f, 0.0f, 1.0f};    // lights not selected
const float LATTICE_COLOUR[4] = {0.0f, 0.3f, 0.0f, 1.0f};  // lattices not selected
const float LINKED_COLOUR[4] = {1.0f, 1.0f, 0.0f, 1.0f};   // models linked to cameras
const float WHITE[4] = {1.0f, 1.0f, 1.0f, 1.0f};           // anything selected
const float BLACK[4] = {0.0f, 0.0f, 0.0f, 1.0f};           // cameras not selected

Model *iconModels[ICON_MODEL_COUNT] = {};
const char *const iconModelFiles[ICON_MODEL_COUNT] = {
#define ICON_MODEL_FILE(tag, file) file,
    ICON_MODEL_LIST(ICON_MODEL_FILE)
#undef ICON_MODEL_FILE
};

// A whole icon tree in wire, under `frame` (row vectors, translation last).
void drawIconModel(const Model *node, const float frame[4][4]) {
    glPushMatrix();
    glMultMatrixf(&frame[0][0]);
    // Children before siblings, with a stack of our own: an icon file is data.
    const Model *stack[64];
    int depth = 0;
    if (node) stack[depth++] = node;
    while (depth > 0) {
        const Model *m = stack[--depth];
        drawWireModel(m);
        if (m->nextSibling && m != node && depth < 64) stack[depth++] = m->nextSibling;
        if (m->firstChild && depth < 64) stack[depth++] = m->firstChild;
    }
    glPopMatrix();
}

// A frame at `origin` whose minus z runs along `along` (y up when it can be).
void frameAlong(const float origin[3], const float along[3], float frame[4][4]) {
    float back[3] = {-along[0], -along[1], -along[2]};
    float length = std::sqrt(back[0] * back[0] + back[1] * back[1] + back[2] * back[2]);
    if (length <= 0.0f) {
        back[0] = back[1] = 0.0f;
        back[2] = length = 1.0f;
    }
    for (float &b : back) b /= length;
    float up[3] = {0.0f, 1.0f, 0.0f};
    if (std::fabs(back[1]) > 0.999f) up[1] = 0.0f, up[2] = 1.0f;
    float side[3] = {up[1] * back[2] - up[2] * back[1], up[2] * back[0] - up[0] * back[2],
                     up[0] * back[1] - up[1] * back[0]};
    float s = std::sqrt(side[0] * side[0] + side[1] * side[1] + side[2] * side[2]);
    for (float &c : side) c /= s;
    const float trueUp[3] = {back[1] * side[2] - back[2] * side[1], back[2] * side[0] - back[0] * side[2],
                             back[0] * side[1] - back[1] * side[0]};
    for (int k = 0; k < 3; ++k) {
        frame[0][k] = side[k];
        frame[1][k] = trueUp[k];
        frame[2][k] = back[k];
        frame[3][k] = origin[k];
    }
    frame[0][3] = frame[1][3] = frame[2][3] = 0.0f;
    frame[3][3] = 1.0f;
}

// The first model an element is linked to by a relation, either way; null
// for none.
const Model *firstLinkedModel(Dictionary *dict, const Element &e) {
    const RelationGroup *sides[2] = {e.childGroups, e.parentGroups};
    const int counts[2] = {e.childGroupCount, e.parentGroupCount};
    for (int side = 0; side < 2; ++side)
        for (int g = 0; sides[side] && g < counts[side]; ++g)
            for (int i = 0; i < sides[side][g].count; ++i) {
                const RelationInst &r = sides[side][g].items[i];
                if (r.chp != CHP_MODELS) continue;
                const Element *m = elemGet(dict, CHP_MODELS, r.elem);
                if (m && m->deleted == ELEM_LIVE && m->data) return static_cast<const Model *>(m->data);
            }
    return nullptr;
}

// Three axes through p with a tick at each end.
void cross(const float p[3], float size) {
    glBegin(GL_LINES);
    for (int a = 0; a < 3; ++a)
        for (int end = -1; end <= 1; end += 2) {
            float q[3] = {p[0], p[1], p[2]};
            q[a] += static_cast<float>(end) * size;
            glVertex3fv(p);
            glVertex3fv(q);
            float t0[3] = {q[0], q[1], q[2]}, t1[3] = {q[0], q[1], q[2]};
            t0[(a + 1) % 3] -= TICK * 0.5f;
            t1[(a + 1) % 3] += TICK * 0.5f;
            glVertex3fv(t0);
            glVertex3fv(t1);
        }
    glEnd();
}

void line(const float a[3], const float b[3]) {
    glBegin(GL_LINES);
    glVertex3fv(a);
    glVertex3fv(b);
    glEnd();
}

// The light's icon model along `along`; false when it was not read.
bool lightModel(const Light &l, int which, const float along[3]) {
    if (!iconModels[which]) return false;
    float frame[4][4];
    frameAlong(l.position, along, frame);
    drawIconModel(iconModels[which], frame);
    return true;
}

void iconPoint(const Light &l) {
    if (!lightModel(l, ICON_MODEL_BULB, l.direction)) cross(l.position, ICON_SIZE);
}

void iconSpot(const Light &l) {
    float along[3];
    for (int k = 0; k < 3; ++k) along[k] = l.interest[k] - l.position[k];
    if (!lightModel(l, ICON_MODEL_LIGHT, along)) cross(l.position, ICON_SIZE * 0.5f);
    line(l.position, l.interest);
    cross(l.interest, TICK);
}

// An arrow along the light's direction.
void iconInfinite(const Light &l) {
    float tip[3];
    for (int k = 0; k < 3; ++k) tip[k] = l.position[k] + l.direction[k];
    line(l.position, tip);
    cross(tip, TICK);
    if (!lightModel(l, ICON_MODEL_LIGHT, l.direction)) cross(l.position, TICK);
}

// A unit square facing the light's direction's dominant axis.
void iconArea(const Light &l) {
    int axis = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(l.direction[k]) > std::fabs(l.direction[axis])) axis = k;
    int u = (axis + 1) % 3, v = (axis + 2) % 3;
    glBegin(GL_LINE_LOOP);
    for (int c = 0; c < 4; ++c) {
        float p[3] = {l.position[0], l.position[1], l.position[2]};
        p[u] += (c == 1 || c == 2) ? ICON_SIZE : -ICON_SIZE;
        p[v] += c >= 2 ? ICON_SIZE : -ICON_SIZE;
        glVertex3fv(p);
    }
    glEnd();
    iconInfinite(l);
}

using LightIconFn = void (*)(const Light &);
// By light type: 2 spot, 3 and 4 infinite, 5 area, the rest points.
constexpr int LIGHT_ICON_TYPES = 6;
const LightIconFn lightIcons[LIGHT_ICON_TYPES] = {iconPoint, iconPoint, iconSpot,
                                                  iconInfinite, iconInfinite, iconArea};

}  // namespace

void drawLightIcon(const Light &light, int selected) {
    // The light's own selection state counts as the entry's flag does.
    glColor4fv(selected || lightOnSelectList(light) ? WHITE : LIGHT_COLOUR);
    lightIcons[light.type < LIGHT_ICON_TYPES ? light.type : 0](light);
}

void drawLightIcons(Dictionary *dict) {
    Chapter *lights = dictChapter(dict, CHP_LIGHTS);
    for (int32_t i = 0; lights && i < lights->elementCount; ++i) {
        const Element &e = lights->elements[i];
        const Light *l = static_cast<const Light *>(e.data);
        if (e.deleted != ELEM_LIVE || !l || l->visibility == 0) continue;
        drawLightIcon(*l, e.selected);
    }
}

void drawLatticeIcons(Dictionary *dict) {
    Chapter *lattices = dictChapter(dict, CHP_LATTICES);
    for (int32_t i = 0; lattices && i < lattices->elementCount; ++i) {
        const Element &e = lattices->elements[i];
        const Lattice *lattice = static_cast<const Lattice *>(e.data);
        if (e.deleted != ELEM_LIVE || !lattice || lattice->keyCount < 1 || !lattice->keys) continue;
        const LatticeKey &key = lattice->keys[0];
        const int n[3] = {key.divisions[0], key.divisions[1], key.divisions[2]};
        if (!key.points || key.pointCount < n[0] * n[1] * n[2]) continue;
        glColor4fv(e.selected ? WHITE : LATTICE_COLOUR);
        // The cage stands in the space of the model it deforms.
        const Model *owner = firstLinkedModel(dict, e);
        glPushMatrix();
        if (owner) glMultMatrixf(&owner->globalMatrix[0][0]);
        // Points run x fastest, then y, then z; each joins its next
        // neighbour along the three axes.
        glBegin(GL_LINES);
        for (int z = 0; z < n[2]; ++z)
            for (int y = 0; y < n[1]; ++y)
                for (int x = 0; x < n[0]; ++x) {
                    const int at[3] = {x, y, z}, here = x + n[0] * (y + n[1] * z);
                    const int step[3] = {1, n[0], n[0] * n[1]};
                    for (int a = 0; a < 3; ++a) {
                        if (at[a] + 1 >= n[a]) continue;
                        glVertex3fv(key.points[here]);
                        glVertex3fv(key.points[here + step[a]]);
                    }
                }
        glEnd();
        glPopMatrix();
    }
}

void drawLinkedModels(Dictionary *dict) {
    Chapter *cameras = dictChapter(dict, CHP_CAMERAS);
    glColor4fv(LINKED_COLOUR);
    for (int32_t i = 0; cameras && i < cameras->elementCount; ++i) {
        const Element &e = cameras->elements[i];
        if (e.deleted != ELEM_LIVE || !e.data || !e.childGroups) continue;
        for (int g = 0; g < e.childGroupCount; ++g)
            for (int k = 0; k < e.childGroups[g].count; ++k) {
                const RelationInst &r = e.childGroups[g].items[k];
                if (r.chp != CHP_MODELS) continue;
                const Element *m = elemGet(dict, CHP_MODELS, r.elem);
                if (m && m->deleted == ELEM_LIVE && m->data) drawWireModel(static_cast<const Model *>(m->data), 1);
            }
    }
}

int g_linkIcons = 1;

const int iconChapters[ICON_CHAPTER_COUNT] = {CHP_LIGHTS, CHP_LATTICES, CHP_CAMERAS};

namespace {

using IconChapterFn = void (*)(Dictionary *);
// By position in iconChapters.
const IconChapterFn iconChapterDraw[ICON_CHAPTER_COUNT] = {drawLightIcons, drawLatticeIcons,
                                                           drawLinkedModels};

// The selected flag of the CAMERAS entry that holds `camera`.
int cameraSelected(Dictionary *dict, const Camera *camera) {
    Chapter *cameras = dictChapter(dict, CHP_CAMERAS);
    for (int32_t i = 0; cameras && i < cameras->elementCount; ++i)
        if (cameras->elements[i].data == camera && cameras->elements[i].deleted == ELEM_LIVE)
            return cameras->elements[i].selected ? 1 : 0;
    return 0;
}

}  // namespace

void drawIcons(Dictionary *dict, const Camera *current, const BW_GraphicProps *gprops) {
    grLighting(0);
    glColor4fv(WHITE);
    for (int c = 0; c < ICON_CHAPTER_COUNT; ++c) {
        if (iconChapters[c] == CHP_CAMERAS && !g_linkIcons) continue;
        iconChapterDraw[c](dict);
    }
    if (current && current != gprops->curCamera) drawCameraIcon(current, cameraSelected(dict, current));
    grLighting(1);
}

Model *iconModel(int which) { return which >= 0 && which < ICON_MODEL_COUNT ? iconModels[which] : nullptr; }

int iconModelsLoad(const char *resourcePath) {
    int read = 0;
    for (int i = 0; i < ICON_MODEL_COUNT; ++i) {
        if (iconModels[i]) {
            ++read;
            continue;
        }
        const std::string path = std::string(resourcePath ? resourcePath : "") + iconModelFiles[i];
        iconModels[i] = modelFileRead(path.c_str(), nullptr, MODEL_READ_NEW);
        if (!iconModels[i]) continue;
        // The tree is drawn in its own frame: its matrices are made once.
        modelGlobalUpdate(nullptr, iconModels[i], 1);
        ++read;
    }
    return read;
}

void iconModelsFree() {
    for (Model *&m : iconModels) {
        modelFree(m);
        m = nullptr;
    }
}

void drawCameraIcon(const Camera *camera, int selected) {
    if (!camera) return;
    glColor4fv(selected ? WHITE : BLACK);
    cross(camera->interest, TICK);
    line(camera->position, camera->interest);
    if (iconModels[ICON_MODEL_CAMERA]) {
        drawIconModel(iconModels[ICON_MODEL_CAMERA], camera->viewMatrix);
        return;
    }
    // The body: a pyramid from the eye along the view, in the camera's frame.
    const float (*f)[4] = camera->viewMatrix;
    float corner[4][3];
    for (int c = 0; c < 4; ++c) {
        float sx = (c == 1 || c == 2) ? 0.3f : -0.3f, sy = c >= 2 ? 0.2f : -0.2f;
        for (int k = 0; k < 3; ++k)
            corner[c][k] = camera->position[k] + sx * f[0][k] + sy * f[1][k] - 0.6f * f[2][k];
    }
    glBegin(GL_LINES);
    for (int c = 0; c < 4; ++c) {
        glVertex3fv(camera->position);
        glVertex3fv(corner[c]);
        glVertex3fv(corner[c]);
        glVertex3fv(corner[(c + 1) % 4]);
    }
    glEnd();
}
