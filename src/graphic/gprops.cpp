// BW_GraphicProps: defaults, copy, dump and the display type.
#include <cstdio>
#include <cstdlib>

#include "graphic.h"
#include "bw_env.h"

BW_GlbVar glbVar;

// Presence of BW_SHADE_OPTIMIZE_EDITING keeps textures from being re-flagged at
// state init; read by the graphic state initialiser.
int g_optimizeEditing = 0;

void gpropsInit(BW_GraphicProps *props) {
    if (!props) return;
    *props = BW_GraphicProps{};
    props->glbVar = &glbVar;
    props->useHiddenForMatte = envIsSet(ENV_BW_OVERLOAD_HIDDEN);
    if (const char *width = envGet(ENV_BW_SHADE_HIGHLIGHT_WIDTH))
        props->highlightWidth = static_cast<float>(atof(width));
    g_optimizeEditing = envIsSet(ENV_BW_SHADE_OPTIMIZE_EDITING);
}

void gpropsCopy(const BW_GraphicProps *from, BW_GraphicProps *to) {
    if (from && to) *to = *from;
}

void gpropsDump(const BW_GraphicProps *p) {
    printf("BW_GraphicProps Dump:\n");
    if (!p) {
        printf("   NULL\n");
        return;
    }
    printf("   icons:              %d \n", p->icons);
    printf("   seeThroughGhost:    %d \n", p->seeThroughGhost);
    printf("   followSel:          %d \n", p->followSel);
    printf("   flatshade      :    %d \n", p->flatshade);
    printf("   antialias:          %d \n", p->antialias);
    printf("   dispType:           %d \n", p->dispType);
    printf("   anti_lev:           %d \n", p->anti_lev);
    printf("   optimize:           %d \n", p->optimize);
    printf("   texture.active:     %d \n", p->texture.active);
    printf("   texture.selected:   %d \n", p->texture.selected);
    printf("   texture.video:      %d \n", p->texture.video);
    printf("   material.shade:     %d \n", p->material.shade);
    printf("   material.matte:     %d \n", p->material.matte);
    // Pointers print as the low word in hex, as the dump always has.
    printf("   stopFct:            %x \n",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(p->stopFct)));
    printf("   useHiddenForMatte:  %x \n", p->useHiddenForMatte);
    printf("   inViewer:           %x \n", p->inViewer);
    printf("   glbVar:             %x \n",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(p->glbVar)));
    if (p->glbVar) {
        printf("   glbVar->blending    %d \n", p->glbVar->blending);
        printf("   glbVar->tiling      %d \n", p->glbVar->tiling);
        printf("   glbVar->patch_lod   %d \n", p->glbVar->patch_lod);
        printf("   glbVar->curMatId    %d \n", p->glbVar->curMatId);
        printf("   glbVar->curTxtId    %d \n", p->glbVar->curTxtId);
        printf("   glbVar->do_optimize:           %d \n", p->glbVar->do_optimize);
    }
}

TOL_Status gpropsSetDisplayType(BW_GraphicProps *p, int code) {
    if (!p) return TOL_ST_NULL_ARGUMENT;
    switch (code) {
    case DISP_WIRE:
        p->dispType = DISP_WIRE;
        p->material.shade = 0; p->texture.active = 0; p->material.matte = 0;
        break;
    case DISP_SHADED:
    case DISP_SHADED | DISP_WIRE:
        p->dispType = static_cast<uint16_t>(code);
        p->material.shade = 1; p->texture.active = 0; p->material.matte = 0;
        break;
    case DISP_TEXTURED:
        p->dispType = DISP_TEXTURED;
        p->material.shade = 1; p->texture.active = 1; p->material.matte = 0;
        break;
    case DISP_MATTE | DISP_SHADED:
        p->material.matte = 1;
        break;
    case DISP_PER_MODEL:
        p->dispType = DISP_PER_MODEL;
        p->material.matte = 0;
        break;
    default:
        return TOL_ST_NULL_ARGUMENT;
    }
    return 0;
}

void gpropsResolveDispType(BW_GraphicProps *p) {
    if (!p) return;
    if (!p->material.shade) {
        p->dispType = DISP_WIRE;
        return;
    }
    uint16_t type = p->material.matte == 1 ? DISP_MATTE | DISP_SHADED
                    : p->texture.active    ? DISP_TEXTURED | DISP_SHADED
                                           : DISP_SHADED;
    if (p->icons) type |= DISP_WIRE;
    p->dispType = type;
}

TOL_Status gpropsSetSurfacePrecision(BW_GraphicProps *props, int level) {
    if (props->glbVar) props->glbVar->patch_lod = level;
    return 0;
}
