// The OpenGL state the display starts from, the frame clear, the thin state
// wrappers and the alignment cross.
#include <GL/gl.h>

#include "graphic.h"

int grStateInitGL(BW_GraphicProps *props) {
    if (!props) return 0;
    glDepthFunc(GL_LEQUAL);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_NORMALIZE);
    return 1;
}

TOL_Status TOL_grClear(BW_GraphicProps *props) {
    if (!props) return tol_report(16, "TOL_grClear(): gprops:");
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

void grDrawCross() {
    grDepthTest(0);
    grLighting(0);
    GLint mode = GL_MODELVIEW;
    glGetIntegerv(GL_MATRIX_MODE, &mode);
    glMatrixMode(GL_MODELVIEW);
    glPushMatrix();
    glLoadIdentity();
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glLoadIdentity();
    glOrtho(0, 1, 0, 1, -1, 1);
    glColor4f(1.0f, 0.0f, 0.0f, 1.0f);
    glBegin(GL_LINES);
    glVertex2f(0.0f, 0.0f);
    glVertex2f(1.0f, 1.0f);
    glVertex2f(0.0f, 1.0f);
    glVertex2f(1.0f, 0.0f);
    glEnd();
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    glPopMatrix();
    glMatrixMode(static_cast<GLenum>(mode));
    grDepthTest(1);
    grLighting(1);
}
