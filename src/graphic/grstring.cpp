// Text on the screen: the 8 x 13 font as 256 display lists, one a character
// code, played with glCallLists on a 1000-step screen.
#include <GL/gl.h>

#include <cstring>

#include "graphic.h"

namespace {

GLuint fontBase = 0;  // first of the 256 lists; 0 until they exist

void makeFontLists() {
    GLuint base = glGenLists(256);
    if (!base) return;  // no context: the next call tries again
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    // Characters without a picture still advance by a cell.
    static const GLubyte empty[13] = {};
    for (int code = 0; code < 256; ++code) {
        const GLubyte *rows = empty;
        if (code >= 32 && code < 32 + GR_FONT_GLYPHS) rows = grFont8x13.glyph[code - 32] + 1;
        glNewList(base + static_cast<GLuint>(code), GL_COMPILE);
        glBitmap(8, 13, 0.0f, 2.0f, 10.0f, 0.0f, rows);
        glEndList();
    }
    fontBase = base;
}

}  // namespace

TOL_Status grStringDraw(const char *str, const float *color, int x, int y) {
    if (!fontBase) makeFontLists();
    grLighting(0);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, 1000, 0, 1000, 0, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glPushAttrib(GL_LIST_BIT);
    glDepthFunc(GL_ALWAYS);
    glColor3fv(color);
    glRasterPos3i(x, y, 0);
    glListBase(fontBase);
    glCallLists(static_cast<GLsizei>(strlen(str)), GL_UNSIGNED_BYTE, str);
    glDepthFunc(GL_LEQUAL);
    glPopAttrib();
    grLighting(1);
    return 0;
}
