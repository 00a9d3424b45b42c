// Picking by the selection mode of the GL: each entry of the models list is
// drawn under its own name into a pick matrix around the cursor, and the hit
// nearest to the eye names the entry. No ray is cast: what is picked is what
// the draw would put under the cursor.
#include <GL/gl.h>
#include <GL/glu.h>

#include "camera.h"
#include "dictionary.h"
#include "model.h"
#include "view.h"

namespace {

constexpr double DEGREES_PER_RADIAN = 57.29578;  // gluPerspective wants the angle in degrees
constexpr int EMPTY_BOX = 10;                     // pixels of a pick box given with no extent
constexpr GLuint NO_DEPTH = 0xFFFFFFFFu;          // the start of the depth search; never kept

// ---------------------------------------------------------------------------
// The pick draw of one entry, by the chapter it is in.

TOL_Status pickDrawModel(TOL_Scene *scene, Element *entry, BW_GraphicProps *gprops) {
    Model *model = static_cast<Model *>(entry->data);
    if (!model || modelDisplay(entry, model).state == VISIBILITY_HIDDEN) return 0;
    return drawModel(scene, model, 0, entry, gprops);
}

// Icons answer only while the wire is drawn, as they are drawn only then;
// each takes the colour its selection gives it in the frame.
TOL_Status pickDrawLight(TOL_Scene *, Element *entry, BW_GraphicProps *gprops) {
    const Light *light = static_cast<const Light *>(entry->data);
    if (!(gprops->dispType & DISP_WIRE) || !light || light->visibility == 0) return 0;
    drawLightIcon(*light, entry->selected);
    return 0;
}

TOL_Status pickDrawCamera(TOL_Scene *, Element *entry, BW_GraphicProps *gprops) {
    const Camera *camera = static_cast<const Camera *>(entry->data);
    if (!(gprops->dispType & DISP_WIRE) || !camera) return 0;
    drawCameraIcon(camera, entry->selected);
    return 0;
}

using PickDrawFn = TOL_Status (*)(TOL_Scene *, Element *, BW_GraphicProps *);

#define PICK_CHAPTERS(X)        \
    X(CHP_MODELS, pickDrawModel) \
    X(CHP_LIGHTS, pickDrawLight) \
    X(CHP_CAMERAS, pickDrawCamera)

struct PickChapter {
    int chapter;      // chapter id
    PickDrawFn draw;  // the pick draw of one of its entries
};

constexpr PickChapter PICK_DRAWS[] = {
#define X(chapter, fn) {chapter, fn},
    PICK_CHAPTERS(X)
#undef X
};

}  // namespace

int pickNearestHit(int hits, const uint32_t *buffer) {
    if (!buffer) return -1;
    GLuint best = NO_DEPTH;
    int32_t name = -1;
    size_t at = 0;
    for (int h = 0; h < hits; ++h) {
        if (at + 3 > PICK_BUFFER_WORDS) break;  // a record cut by the end of the buffer
        const GLuint count = buffer[at], minDepth = buffer[at + 1];
        if (count > PICK_BUFFER_WORDS - at - 3) break;
        // Strictly nearer only: of equal depths the first drawn stays.
        if (minDepth < best) {
            best = minDepth;
            name = count > 0 ? static_cast<int32_t>(buffer[at + 3]) : -1;
        }
        at += 3 + count;
    }
    return name < 0 ? -1 : name;
}

TOL_Status pickDrawElement(TOL_Scene *scene, int chapter, Element *entry, BW_GraphicProps *gprops) {
    gpropsResolveDispType(gprops);
    if (!entry || entry->deleted != ELEM_LIVE) return 0;
    for (const PickChapter &p : PICK_DRAWS)
        if (p.chapter == chapter) return p.draw(scene, entry, gprops);
    return 0;
}

int32_t pickModelEntry(TOL_Scene *scene, const Camera *camera, BW_GraphicProps *gprops, int x1, int y1,
                       int x2, int y2) {
    Dictionary *dict = dictGet(static_cast<int>(scene->dict));
    Chapter *list = dictChapter(dict, CHP_MODELS);
    if (!camera || !list) return -1;
    const GLboolean depthWas = glIsEnabled(GL_DEPTH_TEST);
    int sizeX = x1 > x2 ? x1 - x2 : x2 - x1, sizeY = y1 > y2 ? y1 - y2 : y2 - y1;
    if (sizeX == 0) sizeX = EMPTY_BOX;
    if (sizeY == 0) sizeY = EMPTY_BOX;
    const int centreX = (x1 + x2) / 2, centreY = (y1 + y2) / 2;

    GLint matrixMode = GL_MODELVIEW;
    GLint viewport[4] = {0, 0, 0, 0};
    glGetIntegerv(GL_MATRIX_MODE, &matrixMode);
    glGetIntegerv(GL_VIEWPORT, viewport);
    // The pick always looks through a perspective, whatever the camera's
    // kind, and without its roll.
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glLoadIdentity();
    gluPickMatrix(centreX, centreY, sizeX, sizeY, viewport);
    gluPerspective(camera->fieldOfView * DEGREES_PER_RADIAN, camera->aspect, camera->nearClip,
                   camera->farClip);
    glMatrixMode(GL_MODELVIEW);
    glPushMatrix();
    glLoadIdentity();
    gluLookAt(camera->position[0], camera->position[1], camera->position[2], camera->interest[0],
              camera->interest[1], camera->interest[2], 0.0, 1.0, 0.0);

    GLuint buffer[PICK_BUFFER_WORDS];
    glSelectBuffer(PICK_BUFFER_WORDS, buffer);
    glRenderMode(GL_SELECT);
    glInitNames();
    glPushName(static_cast<GLuint>(-1));
    for (int32_t index = 0; index < list->elementCount; ++index) {
        Element *entry = &list->elements[index];
        const Model *model = static_cast<const Model *>(entry->data);
        if (entry->deleted != ELEM_LIVE || !model || modelDisplay(entry, model).state == VISIBILITY_HIDDEN)
            continue;
        glLoadName(static_cast<GLuint>(index));
        pickDrawElement(scene, CHP_MODELS, entry, gprops);
    }
    const GLint hits = glRenderMode(GL_RENDER);
    int32_t picked = hits > 0 ? pickNearestHit(hits, buffer) : -1;
    if (picked >= list->elementCount) picked = -1;

    glMatrixMode(GL_PROJECTION);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    glPopMatrix();
    glMatrixMode(static_cast<GLenum>(matrixMode));
    glRenderMode(GL_RENDER);
    grDepthTest(depthWas ? 1 : 0);
    return picked;
}
