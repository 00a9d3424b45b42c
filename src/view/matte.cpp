// Garbage mattes: models of a matte scene, drawn before everything else, mark
// the frame in the stencil buffer (or, without one, in the depth buffer); after
// the main pass the frame outside them takes the key signal in its alpha, or
// red for the operator.
#include <GL/gl.h>

#include <cstring>

#include "view.h"

namespace {

GLboolean depthWasOn = GL_TRUE;  // depth test before matteBegin, for matteEnd
bool stencilPath = false;        // matteBegin found stencil bits: End and Fill of the frame follow it
const float RED[4] = {1.0f, 0.0f, 0.0f, 1.0f};    // the operator's view of the area outside
const float WHITE[4] = {1.0f, 1.0f, 1.0f, 1.0f};  // the key signal

int stencilBits() {
    GLint bits = 0;
    glGetIntegerv(GL_STENCIL_BITS, &bits);
    return bits;
}

bool hasExtension(const char *name) {
    const char *list = reinterpret_cast<const char *>(glGetString(GL_EXTENSIONS));
    const size_t n = strlen(name);
    for (const char *p = list; p && (p = strstr(p, name)) != nullptr; p += n)
        if ((p == list || p[-1] == ' ') && (p[n] == ' ' || p[n] == '\0')) return true;
    return false;
}

}  // namespace

int matteBegin(const BW_GraphicProps *gprops) {
    depthWasOn = glIsEnabled(GL_DEPTH_TEST);
    stencilPath = stencilBits() > 0;
    if (stencilPath) {
        glStencilFunc(GL_ALWAYS, 1, 1);
        glStencilOp(GL_REPLACE, GL_REPLACE, GL_REPLACE);
        glEnable(GL_STENCIL_TEST);
        glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        grDepthTest(0);
        return 1;
    }
    if (!gprops->showGarbage && !gprops->material.matte) return 0;
    // The frame is cleared to the near value and the mattes write the far one:
    // what the main pass draws later passes the depth test only over them.
    glClearDepth(0.0);
    const float *clear = gprops->material.matte ? WHITE : RED;
    glClearColor(clear[0], clear[1], clear[2], clear[3]);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDepthRange(1.0, 1.0);
    glDepthFunc(GL_ALWAYS);
    return 1;
}

void matteEnd(const BW_GraphicProps *gprops) {
    if (stencilPath) {
        glDisable(GL_STENCIL_TEST);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        grDepthTest(depthWasOn);
        return;
    }
    if (gprops->showGarbage || gprops->material.matte) {
        glDepthRange(0.0, 1.0);
        glDepthFunc(GL_LESS);
    }
}

void matteFill(const BW_GraphicProps *gprops) {
    if (!stencilPath || !gprops->material.shade) return;
    const GLboolean depthOn = glIsEnabled(GL_DEPTH_TEST);
    const GLboolean lit = glIsEnabled(GL_LIGHTING);
    const GLboolean textured = glIsEnabled(GL_TEXTURE_2D);
    glEnable(GL_STENCIL_TEST);
    glStencilFunc(GL_EQUAL, 0, 1);
    glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
    grDepthTest(0);
    glColor4fv(WHITE);
    bool blend = false;
    if (!gprops->material.matte) {
        // The context's extensions do not change while it lives.
        static const bool blendColour = hasExtension("GL_EXT_blend_color");
        if (gprops->showGarbage && blendColour) {
            glColorMask(GL_TRUE, GL_FALSE, GL_FALSE, GL_TRUE);
            glEnable(GL_BLEND);
            blend = true;
        } else if (gprops->showGarbage) {
            glColor4fv(RED);
        } else {
            // Only the alpha: the picture stays, the key goes to video.
            glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
        }
    }
    grLighting(0);
    glDisable(GL_TEXTURE_2D);
    const int mode = grOverlayBegin();
    glBegin(GL_POLYGON);
    glVertex2f(0.0f, 0.0f);
    glVertex2f(1.0f, 0.0f);
    glVertex2f(1.0f, 1.0f);
    glVertex2f(0.0f, 1.0f);
    glEnd();
    grOverlayEnd(mode);
    if (blend) glDisable(GL_BLEND);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    if (textured) glEnable(GL_TEXTURE_2D);
    grLighting(lit ? 1 : 0);
    grDepthTest(depthOn);
    glDisable(GL_STENCIL_TEST);
    glClear(GL_STENCIL_BUFFER_BIT);
}
