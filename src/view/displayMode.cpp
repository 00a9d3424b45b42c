// The viewer's display modes: the switches each sets, its console line, and
// the OpenGL state each holds for the length of a scene pass.
#include <GL/gl.h>

#include <cstdio>
#include <cstdlib>

#include "view.h"
#include "bw_env.h"

// Xlib's macros come last.
#include <GL/glx.h>

namespace {

struct DisplayModeRow {
    uint16_t shade;          // material.shade
    uint16_t textureActive;  // texture.active
    int16_t textureSelected; // texture.selected, -1 unchanged
    uint16_t matte;          // material.matte
    const char *line;        // printed when the mode is chosen
};

const DisplayModeRow modes[VIEW_MODE_COUNT] = {
    {0, 0, -1, 0, "Display mode: WIREFRAME\n"},
    {1, 0, -1, 0, "Display mode: SHADED\n"},
    {1, 1, 0, 0, "Display mode: TEXTURED\n"},
    {1, 0, -1, 1, "Display mode: MATTE\n"},
};

// Wireframe draws lines over lines: no depth, no light. Both come back as
// they were at the end of the pass.
void wireBegin(DisplayPassState *state) {
    state->depthWasOn = glIsEnabled(GL_DEPTH_TEST) ? 1 : 0;
    grDepthTest(0);
    grLighting(0);
}
void wireEnd(const DisplayPassState *state) {
    grLighting(1);
    grDepthTest(state->depthWasOn);
}

// Filled modes hide by depth; shading is lit and switched per material.
void shadedBegin(DisplayPassState *state) {
    state->depthWasOn = 1;
    grDepthTest(1);
    grLighting(1);
}
void shadedEnd(const DisplayPassState *) {}

// Matte draws every triangle unlit in its model's alpha; lighting is off for
// each batch, and on again for what follows the pass.
void matteModeBegin(DisplayPassState *state) {
    state->depthWasOn = 1;
    grDepthTest(1);
    glDisable(GL_TEXTURE_2D);
}
void matteModeEnd(const DisplayPassState *) { grLighting(1); }

struct DisplayModeGL {
    void (*begin)(DisplayPassState *state);
    void (*end)(const DisplayPassState *state);
};

const DisplayModeGL modeGL[VIEW_MODE_COUNT] = {
    {wireBegin, wireEnd},
    {shadedBegin, shadedEnd},
    {shadedBegin, shadedEnd},
    {matteModeBegin, matteModeEnd},
};

}  // namespace

TOL_Status displayModeSet(BW_GraphicProps *gprops, int mode) {
    if (!gprops || mode < 0 || mode >= VIEW_MODE_COUNT) return 16;
    const DisplayModeRow &row = modes[mode];
    gprops->material.shade = row.shade;
    gprops->texture.active = row.textureActive;
    if (row.textureSelected >= 0) gprops->texture.selected = static_cast<uint16_t>(row.textureSelected);
    gprops->material.matte = row.matte;
    fputs(row.line, stdout);
    return 0;
}

int displayModeOf(const BW_GraphicProps *gprops) {
    uint16_t type = gprops->dispType;
    if (type & DISP_MATTE) return VIEW_MODE_MATTE;
    if (type & DISP_TEXTURED) return VIEW_MODE_TEXTURED;
    if (type & DISP_SHADED) return VIEW_MODE_SHADED;
    return VIEW_MODE_WIRE;
}

void displayModePassBegin(const BW_GraphicProps *gprops, DisplayPassState *state) {
    modeGL[displayModeOf(gprops)].begin(state);
}

void displayModePassEnd(const BW_GraphicProps *gprops, const DisplayPassState *state) {
    modeGL[displayModeOf(gprops)].end(state);
}

namespace {
GrProcAddressFn procAddress = nullptr;
}

void grSetProcAddress(GrProcAddressFn lookup) { procAddress = lookup; }

PolygonOffsetFn grPolygonOffset() {
    static int looked = 0;
    static PolygonOffsetFn offset = nullptr;
    if (looked) return offset;
    looked = 1;
    auto find = [](const char *name) {
        if (procAddress) return reinterpret_cast<PolygonOffsetFn>(procAddress(name));
        return reinterpret_cast<PolygonOffsetFn>(
            glXGetProcAddressARB(reinterpret_cast<const GLubyte *>(name)));
    };
    PolygonOffsetFn found = find("glPolygonOffset");
    if (!found) found = find("glPolygonOffsetEXT");
    if (envGet(ENV_OGL_PRESENT_TEST))
        fprintf(stderr, "OpenGL polygon offset: %s\n", found ? "present" : "absent");
    offset = envGet(ENV_BW_SHADE_DISABLE_OFFSET) ? nullptr : found;
    return offset;
}
