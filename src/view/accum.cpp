// The frame wrapper of the scene draw: accumulation antialiasing by jittered
// passes, and the two eyes of the above-below stereo layout.
#include <GL/gl.h>

#include "camera.h"
#include "view.h"

namespace {

// Sample offsets in pixels. The sets of 8 and 15 are the published ones; the
// sets of 24 and 66 start with the published rows and go on with a
// best-candidate set within half a pixel (docs/formats.md, "Antialiasing").
const JitterOffset j1[] = {{0.0f, 0.0f}};
const JitterOffset j2[] = {{0.24649f, 0.249999f}, {-0.24649f, -0.249999f}};
const JitterOffset j3[] = {{-0.373411f, -0.25055f}, {0.256263f, 0.368119f}, {0.117148f, -0.11757f}};
const JitterOffset j4[] = {{-0.208147f, 0.35373f}, {0.203849f, -0.35378f},
                           {-0.292626f, -0.149945f}, {0.296924f, 0.149994f}};
const JitterOffset j8[] = {{-0.334818f, 0.435331f}, {0.286438f, -0.393495f}, {0.459462f, 0.14154f},
                           {-0.414498f, -0.192829f}, {-0.18379f, 0.082102f}, {-0.079263f, -0.317383f},
                           {0.102254f, 0.299133f},  {0.164216f, -0.054399f}};
const JitterOffset j15[] = {
    {0.285561f, 0.188437f},   {0.360176f, -0.065688f}, {-0.111751f, 0.275019f},
    {-0.055918f, -0.215197f}, {-0.080231f, -0.470965f}, {0.138721f, 0.409168f},
    {0.38412f, 0.4585f},      {-0.454968f, 0.134088f}, {0.179271f, -0.331196f},
    {-0.307049f, -0.364927f}, {0.105354f, -0.010099f}, {-0.15418f, 0.021794f},
    {-0.370135f, -0.116425f}, {0.451636f, -0.300013f}, {-0.37061f, 0.387504f}};
const JitterOffset j24[] = {
    {0.030245f, 0.136384f},   {0.018865f, -0.348867f},  {-0.470991f, -0.036666f}, {0.412042f, 0.39734f},
    {-0.227709f, 0.398655f},  {0.234459f, -0.129763f},  {-0.378263f, -0.337019f}, {0.130473f, 0.408306f},
    {-0.169178f, -0.122779f}, {0.313084f, 0.154142f},   {0.332253f, -0.369647f},  {-0.26793f, 0.148653f},
    {-0.460586f, 0.216751f},  {0.052254f, -0.066515f},  {-0.183954f, -0.34006f},  {0.462454f, -0.222289f},
    {-0.05774f, 0.315136f},   {-0.403452f, 0.447439f},  {-0.038006f, 0.482608f},  {-0.10957f, 0.032199f},
    {0.161828f, 0.236786f},   {-0.335028f, -0.154166f}, {0.179324f, -0.30486f},   {0.366624f, -0.02474f}};
const JitterOffset j66[] = {
    {0.266377f, -0.218171f},  {-0.170919f, -0.429368f}, {-0.269163f, 0.05546f},   {0.189168f, 0.276881f},
    {0.040546f, -0.012346f},  {-0.46757f, 0.405818f},   {-0.38517f, -0.221208f},  {0.408519f, 0.048177f},
    {-0.155976f, 0.300808f},  {0.096357f, -0.427414f},  {-0.126036f, -0.186975f}, {0.319615f, -0.460086f},
    {0.027662f, 0.385201f},   {-0.386962f, 0.221213f},  {0.067287f, -0.234448f},  {-0.484949f, -0.390774f},
    {0.405626f, 0.250597f},   {0.217309f, 0.079921f},   {-0.086117f, 0.124718f},  {0.427585f, -0.141226f},
    {-0.4267f, -0.043516f},   {-0.299155f, 0.437035f},  {0.202315f, 0.438472f},   {0.074133f, 0.163165f},
    {-0.323907f, -0.387469f}, {-0.12203f, -0.032752f},  {-0.264807f, -0.115008f}, {0.191797f, -0.083067f},
    {0.361728f, 0.4008f},     {-0.039836f, -0.357158f}, {0.403113f, -0.292932f},  {0.213753f, -0.354914f},
    {-0.0928f, 0.457701f},    {-0.234486f, -0.280592f}, {-0.240682f, 0.193778f},  {-0.021996f, 0.255265f},
    {-0.452366f, 0.092812f},  {0.280409f, 0.191316f},   {-0.002373f, -0.130411f}, {0.323124f, -0.053584f},
    {-0.279873f, 0.311961f},  {-0.398634f, -0.477717f}, {-0.48332f, 0.290075f},   {0.435145f, -0.489682f},
    {0.295799f, 0.304363f},   {-0.484716f, -0.275886f}, {-0.007576f, -0.468027f}, {0.114466f, 0.061337f},
    {0.471045f, 0.166723f},   {-0.193748f, 0.428879f},  {-0.349556f, 0.124062f},  {0.07834f, 0.286312f},
    {0.462467f, -0.04363f},   {-0.130071f, -0.304202f}, {-0.378943f, 0.339212f},  {-0.036623f, -0.246615f},
    {0.09017f, 0.467757f},    {0.200118f, -0.454103f},  {-0.469855f, -0.157111f}, {0.166588f, -0.262238f},
    {0.368702f, 0.143143f},   {0.325596f, -0.358991f},  {-0.074689f, 0.35739f},   {0.103628f, -0.128919f},
    {-0.167427f, 0.061253f},  {-0.327138f, -0.032089f}};

// The set of each level, 0 to 7, one row a level.
#define JITTER_LEVELS(X) X(j1) X(j2) X(j3) X(j4) X(j8) X(j15) X(j24) X(j66)

struct JitterSet {
    const JitterOffset *offsets;  // the samples
    int passes;                   // how many
};

const JitterSet levels[] = {
#define JITTER_ROW(set) {set, static_cast<int>(sizeof set / sizeof set[0])},
    JITTER_LEVELS(JITTER_ROW)
#undef JITTER_ROW
};
constexpr int LEVEL_MAX = static_cast<int>(sizeof levels / sizeof levels[0]) - 1;

void accumGL(unsigned op, float value) { glAccum(static_cast<GLenum>(op), value); }
AccumFn accumFn = accumGL;

void cameraLoad(Camera *camera, BW_GraphicProps *gprops, const JitterOffset &jitter) {
    // Parallel rays need no sub-pixel shift to be sampled the same way.
    if (camera->kind == CAMERA_KIND_ORTHO) cameraLoadOrtho(camera, gprops);
    else cameraLoadPerspective(camera, gprops, jitter.x, jitter.y, 0.0f, 0.0f, 1.0f);
}

}  // namespace

const JitterOffset *jitterSet(int antialias, int level, int *passes) {
    // A negative level is no antialiasing; a level past the last takes the last.
    int row = antialias == 0 || level < 0 ? 0 : level > LEVEL_MAX ? LEVEL_MAX : level;
    *passes = levels[row].passes;
    return levels[row].offsets;
}

AccumFn accumHookSet(AccumFn fn) {
    AccumFn previous = accumFn;
    accumFn = fn ? fn : accumGL;
    return previous;
}

TOL_Status drawAccumulated(TOL_Scene *scene, Camera *camera, Camera *current,
                           BW_GraphicProps *gprops) {
    gpropsResolveDispType(gprops);
    if (!camera) camera = current;
    if (!camera) return tol_report(TOL_ST_FREE_ERROR_99, "drawAccumulated(): no camera");
    gprops->curCamera = camera;
    int passes = 1;
    const JitterOffset *jitter = jitterSet(gprops->antialias, gprops->anti_lev, &passes);
    const float weight = 1.0f / static_cast<float>(passes);
    TOL_Status status = 0;
    for (int i = 0; i < passes; ++i) {
        // The caller cleared for the first pass.
        if (i > 0) grClear(gprops);
        const bool stereo = gprops->stereoEye != 0;
        if (stereo) {
            gprops->stereoEye = 1;
            glPushAttrib(GL_VIEWPORT_BIT);
        }
        cameraLoad(camera, gprops, jitter[i]);
        status = sceneDrawPass(scene, current, 0, gprops);
        if (stereo) {
            gprops->stereoEye = 2;
            cameraLoad(camera, gprops, jitter[i]);
            status = sceneDrawPass(scene, current, 0, gprops);
            glPopAttrib();
        }
        if (passes > 1) accumFn(i == 0 ? GL_LOAD : GL_ACCUM, weight);
    }
    if (passes > 1) accumFn(GL_RETURN, 1.0f);
    return status;
}
