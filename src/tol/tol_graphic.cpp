// Graphic calls through the layer.
#include "graphic.h"
#include "tol.h"
#include "tol_internal.h"

TOL_Status TOL_siriusInit(BW_GraphicProps *props) {
    if (!props) return tol_report(16, "TOL_siriusInit(): gprops:");
    tol_report(8, "TOL_siriusInit(): video texturing");
    props->texture.video = 0;
    return 8;
}

TOL_Status TOL_siriusExit(BW_GraphicProps *props) {
    if (!props) return tol_report(16, "TOL_siriusExit(): gprops:");
    return tol_report(8, "TOL_siriusExit(): video texturing");
}

TOL_Status TOL_siriusProcessEvents(BW_GraphicProps *props) {
    if (!props) return tol_report(16, "TOL_siriusProcessEvents(): gprops:");
    props->texture.video = 0;
    return tol_report(8, "TOL_siriusProcessEvents(): video texturing");
}

TOL_Status TOL_grStateInit(TOL_Scene *scene, BW_GraphicProps *props) {
    if (!scene) return tol_report(16, "TOL_grStateInit(): scene:");
    if (!props) return tol_report(16, "TOL_grStateInit(): gprops:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    // Lights, materials and textures of the scene are flagged here once they exist.
    if (status == 0 && !grStateInitGL(props))
        status = tol_report(4, "TOL_grStateInit(): can't init the graphics state properly");
    return frame.finish(status);
}
