// Graphic calls through the layer.
#include "graphic.h"
#include "tol.h"
#include "tol_internal.h"

namespace {

// The video input of the graphics board, which this platform does not have.
// Each operation says so and fails; the record is left as it is.
TOL_Status siriusUnsupported() { return tol_report(TOL_ST_NOT_SUPPORTED, "OpenGL sirius functions"); }

}  // namespace

TOL_Status TOL_siriusInit(BW_GraphicProps *props) {
    if (!props) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_siriusInit(): gprops:");
    TOL_Status status = siriusUnsupported();
    tol_report(TOL_ST_ERROR_TEXT, "TOL_siriusInit(): can't initialize SIRIUS properly");
    return status;
}

TOL_Status TOL_siriusExit(BW_GraphicProps *props) {
    if (!props) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_siriusExit(): gprops:");
    TOL_Status status = siriusUnsupported();
    tol_report(TOL_ST_ERROR_TEXT, "TOL_siriusExit(): can't exit SIRIUS mode properly");
    return status;
}

TOL_Status TOL_siriusProcessEvents(BW_GraphicProps *props) {
    if (!props) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_siriusProcessEvents(): gprops:");
    TOL_Status status = siriusUnsupported();
    tol_report(TOL_ST_ERROR_TEXT, "TOL_siriusProcessEvents(): can't process SIRIUS events properly");
    return status;
}

TOL_Status TOL_grStateInit(TOL_Scene *scene, BW_GraphicProps *props) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_grStateInit(): scene:");
    if (!props) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_grStateInit(): gprops:");
    TolSceneFrame frame(scene);
    TOL_Status status = frame.status();
    // Lights, materials and textures of the scene are flagged here once they exist.
    if (status == 0 && !grStateInitGL(props))
        status = tol_report(TOL_ST_ERROR_TEXT, "TOL_grStateInit(): can't init the graphics state properly");
    return frame.finish(status);
}

// Forwarders with no scene: the argument checks, then the graphic side.

TOL_Status TOL_gpropsSetSurfacePrecision(BW_GraphicProps *props, int level) {
    if (!props) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_gpropsSetSurfacePrecision(): gprops:");
    return gpropsSetSurfacePrecision(props, level);
}

TOL_Status TOL_grClear(BW_GraphicProps *props) {
    if (!props) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_grClear(): gprops:");
    return grClear(props);
}

TOL_Status TOL_grStringDraw(const char *str, const float *color, int x, int y) {
    if (!str) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_grStringDraw(): str:");
    if (!color) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_grStringDraw(): color:");
    return grStringDraw(str, color, x, y);
}

TOL_Status TOL_preprocessALL(TOL_Scene *scene, BW_GraphicProps *gprops) {
    if (!scene) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_preprocessALL(): scene:");
    if (!gprops) return tol_report(TOL_ST_NULL_ARGUMENT, "TOL_preprocessALL(): gprops:");
    return grPreprocessAll(scene, gprops);
}
