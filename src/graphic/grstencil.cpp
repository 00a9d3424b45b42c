#include <GL/gl.h>

#include "graphic.h"

void grClearStencil() {
    glClearStencil(0);
    glClear(GL_STENCIL_BUFFER_BIT);
}
