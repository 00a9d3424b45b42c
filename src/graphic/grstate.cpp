// The OpenGL state the display starts from, the light model, the frame
// clear, the thin state wrappers and the alignment cross.
#include <GL/gl.h>

#include <cstdlib>

#include "dictionary.h"
#include "graphic.h"
#include "bw_env.h"

BW_SceneLighting g_sceneLighting;
GrStateInitMark g_grStateInit = {0, 0};

void grDefaultLightSet() {
    const BW_DefaultLight &d = g_sceneLighting.defaultLight;
    const GLfloat colour[4] = {d.colour[0], d.colour[1], d.colour[2], 1.0f};
    const GLfloat position[4] = {d.direction[0], d.direction[1], d.direction[2], d.type == 3 ? 0.0f : 1.0f};
    glLightfv(GL_LIGHT0, GL_DIFFUSE, colour);
    glLightfv(GL_LIGHT0, GL_POSITION, position);
    glLightf(GL_LIGHT0, GL_SPOT_EXPONENT, 0.0f);
    glLightf(GL_LIGHT0, GL_SPOT_CUTOFF, 180.0f);
}

void grLightModelSet(const SceneGlobals &scene) {
    static const int viewerInfinite = envIsSet(ENV_BW_OGL_LIGHT_VIEWER_INFINITE);
    const GLfloat ambient[4] = {scene.ambient[0], scene.ambient[1], scene.ambient[2], 1.0f};
    glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, viewerInfinite ? 0 : 1);
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, scene.twoSided && !scene.twoSidedOverride ? 1 : 0);
    glEnable(GL_LIGHTING);
}

int grStateInitGL(BW_GraphicProps *props) {
    if (!props) return 0;
    // The scenes' records see the new serial at their next bind and flag
    // their lights, materials and textures for compilation.
    ++g_grStateInit.serial;
    if (!g_optimizeEditing) g_grStateInit.texturesSerial = g_grStateInit.serial;
    for (int i = 0; i < GR_MAX_LIGHTS; ++i) glDisable(static_cast<GLenum>(GL_LIGHT0 + i));
    BW_GlbVar &g = props->glbVar ? *props->glbVar : glbVar;
    g.curMatId = -1;
    g.curTxtId = -1;
    glDepthFunc(GL_LEQUAL);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_NORMALIZE);
    grDefaultLightSet();
    grLightModelSet(SceneGlobals{});
    return 1;
}

TOL_Status grClear(BW_GraphicProps *props) {
    glClearDepth(1.0);
    if (props->fogEnable == 1) {
        glClearColor(props->fogColor[0], props->fogColor[1], props->fogColor[2], props->fogColor[3]);
    } else if (props->icons && props->glbVar && props->glbVar->useEditBack && !props->inViewer) {
        const float *edit = props->glbVar->editBack;
        glClearColor(edit[0], edit[1], edit[2], props->backColor[3]);
    } else {
        glClearColor(props->backColor[0], props->backColor[1], props->backColor[2], props->backColor[3]);
    }
    GLbitfield mask = GL_COLOR_BUFFER_BIT;
    if (props->material.shade) mask |= GL_DEPTH_BUFFER_BIT;
    glClear(mask);
    return 0;
}

void grLighting(int on) {
    if (on == 1) glEnable(GL_LIGHTING);
    else glDisable(GL_LIGHTING);
}

void grDepthTest(int on) {
    if (on) glEnable(GL_DEPTH_TEST);
    else glDisable(GL_DEPTH_TEST);
}

void grViewport(int x, int y, int width, int height) { glViewport(x, y, width, height); }

int grOverlayBegin() {
    GLint mode = GL_MODELVIEW;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glLoadIdentity();
    glOrtho(0, 1, 0, 1, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glPushMatrix();
    glLoadIdentity();
    return mode;
}

void grOverlayEnd(int matrixMode) {
    glMatrixMode(GL_MODELVIEW);
    glPopMatrix();
    glMatrixMode(GL_PROJECTION);
    glPopMatrix();
    glMatrixMode(static_cast<GLenum>(matrixMode));
}

void viewportCross() {
    grDepthTest(0);
    grLighting(0);
    const int mode = grOverlayBegin();
    glColor4f(1.0f, 0.0f, 0.0f, 1.0f);
    glBegin(GL_LINES);
    glVertex2f(0.0f, 0.0f);
    glVertex2f(1.0f, 1.0f);
    glVertex2f(0.0f, 1.0f);
    glVertex2f(1.0f, 0.0f);
    glEnd();
    grOverlayEnd(mode);
    grDepthTest(1);
    grLighting(1);
}

namespace {

// A percentage of 1 to 100, else the default.
int percentOr(const char *text, int fallback) {
    const int value = text ? atoi(text) : 0;
    return value >= 1 && value <= 100 ? value : fallback;
}

float marginOf(int percent) { return static_cast<float>(100 - percent) * 0.005f; }

void frameRectangle(float margin) {
    glBegin(GL_LINE_LOOP);
    glVertex2f(margin, margin);
    glVertex2f(1.0f - margin, margin);
    glVertex2f(1.0f - margin, 1.0f - margin);
    glVertex2f(margin, 1.0f - margin);
    glEnd();
}

}  // namespace

SafeFrameMargins safeFrameMargins(const char *showField, const char *title, const char *action) {
    SafeFrameMargins m;
    m.shown = showField ? 1 : 0;
    m.outer = SAFE_FRAME_OUTER;
    m.title = marginOf(percentOr(title, SAFE_TITLE_DEFAULT));
    m.action = marginOf(percentOr(action, SAFE_ACTION_DEFAULT));
    return m;
}

void safeFrameDraw(const BW_GraphicProps *props) {
    // An editing overlay: the viewer never shows it.
    if (!props || !props->safeFrame || !props->icons || props->inViewer) return;
    static const SafeFrameMargins m = safeFrameMargins(
        envGet(ENV_BW_SHADE_SHOW_FIELD), envGet(ENV_BW_SAFETITLE), envGet(ENV_BW_SAFEACTION));
    if (!m.shown) return;
    const GLboolean lit = glIsEnabled(GL_LIGHTING), depth = glIsEnabled(GL_DEPTH_TEST);
    grLighting(0);
    grDepthTest(0);
    const int mode = grOverlayBegin();
    glColor4f(0.0f, 0.0f, 0.0f, 1.0f);
    frameRectangle(m.outer);
    frameRectangle(m.action);
    frameRectangle(m.title);
    grOverlayEnd(mode);
    grLighting(lit ? 1 : 0);
    grDepthTest(depth);
}
