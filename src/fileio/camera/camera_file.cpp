// Camera files (.cam): the header, then tokens with their values on disk,
// ending with token 0. A file fills the current camera; it makes none.
#include <iterator>
#include <new>
#include <vector>

#include "cam_internal.h"
#include "tol_status.h"

namespace {

enum CameraToken : uint16_t {
    CAM_ROTATION = 6,        // three rotation values, the last being roll
    CAM_DOF_MODE = 13,       // u16 depth of field mode
    CAM_LENS = 20,           // u16 offsetLens, then five values
    CAM_LENS_SIZED = 5652,   // the same with its size in the high byte
    CAM_CUSTOM = 65301,      // i32 size, custom blocks
};

using CameraField = void (*)(BinReader &r, Camera &c);

void readRotation(BinReader &r, Camera &c) {
    float v[3] = {c.rotationKept[0], c.rotationKept[1], c.roll};
    valueRead3(r, v);
    c.rotationKept[0] = v[0], c.rotationKept[1] = v[1], c.roll = v[2];
}

// The lens block's film width is the camera's film back, which the zoom
// works from; the fit of a shifted lens takes it from the block.
void readLens(BinReader &r, Camera &c) {
    camKeep(r, c.offsetLens, binReadU16(r));
    for (int i = 0; i < 5; ++i) valueRead(r, i == 1 ? &c.filmWidth : &c.lens[i]);
    c.lens[1] = c.filmWidth;
}

// Indexed by token.
constexpr CameraField cameraFields[] = {
    nullptr,                                                                                      // 0: end
    [](BinReader &r, Camera &) { binReadU16(r); },                                                // 1: dropped
    [](BinReader &r, Camera &) { binReadU16(r); },                                                // 2: dropped
    [](BinReader &r, Camera &c) { positionRead(r, c.position, &c, PATH_REF_CAMERA_POSITION); },   // 3
    [](BinReader &r, Camera &c) { positionRead(r, c.interest, &c, PATH_REF_CAMERA_INTEREST); },   // 4
    [](BinReader &r, Camera &c) { valueRead(r, &c.roll); },                                       // 5
    readRotation,                                                                                 // 6
    [](BinReader &r, Camera &c) { valueRead(r, &c.nearClip); },                                   // 7
    [](BinReader &r, Camera &c) { valueRead(r, &c.farClip); },                                    // 8
    [](BinReader &r, Camera &c) { valueRead(r, &c.focalLength); },                                // 9
    [](BinReader &r, Camera &c) { valueRead(r, &c.fStop); },                                      // 10
    [](BinReader &r, Camera &c) { valueRead(r, &c.focusDistance); },                              // 11
    [](BinReader &r, Camera &c) { valueRead(r, &c.fieldOfView); },                                // 12
    [](BinReader &r, Camera &c) { camKeep(r, c.dofMode, binReadU16(r)); },                        // 13
    [](BinReader &r, Camera &c) { valueRead(r, &c.nearFocus); },                                  // 14
    [](BinReader &r, Camera &c) { valueRead(r, &c.farFocus); },                                   // 15
    [](BinReader &r, Camera &c) { valueRead(r, &c.dofKept); },                                    // 16
    [](BinReader &r, Camera &c) { valueRead(r, &c.circleOfConfusion); },                          // 17
    [](BinReader &r, Camera &c) { camKeep(r, c.kept18, binReadU16(r)); },                         // 18
    [](BinReader &r, Camera &) { valueRead(r, nullptr); },                                        // 19: dropped
    readLens,                                                                                     // 20
};

// What the writer puts out between the rotation and the kept word, in order;
// the depth of field mode is the one word among them.
struct CameraValue {
    uint16_t token;
    float Camera::*field;  // null for the mode
};
constexpr CameraValue cameraValues[] = {
    {7, &Camera::nearClip},    {8, &Camera::farClip},        {9, &Camera::focalLength},
    {10, &Camera::fStop},      {11, &Camera::focusDistance}, {12, &Camera::fieldOfView},
    {CAM_DOF_MODE, nullptr},   {14, &Camera::nearFocus},     {15, &Camera::farFocus},
    {16, &Camera::dofKept},    {17, &Camera::circleOfConfusion},
};

}  // namespace

int cameraRead(BinReader &r, Camera *into) {
    if (!into) {
        msgShow("CameraBinaryRead: cannot allocate camera, skipping.", TOL_CLASS_ERROR);
        while (binReadU16(r) != BIN_TOKEN_END) continue;
        return 0;
    }
    Camera &c = *into;
    c.linkWords[0] = 1, c.linkWords[1] = 0, c.linkWords[2] = 0;
    if (c.customBlocks) c.customBlocks->clear();  // the file's blocks replace the record's
    for (uint16_t t = binReadU16(r); t != BIN_TOKEN_END; t = binReadU16(r)) {
        if (t == CAM_LENS_SIZED) t = CAM_LENS;
        if (t < std::size(cameraFields)) {
            cameraFields[t](r, c);
        } else if (t == CAM_CUSTOM) {
            if (!c.customBlocks) c.customBlocks = new (std::nothrow) std::vector<CustomBlock>;
            if (c.customBlocks) customBlocksReadSized(r, *c.customBlocks);
            else binSkip(r, t);
        } else {
            binSkip(r, t);
        }
    }
    return 1;
}

Camera *cameraFileRead(const char *path, Camera *into) {
    BinReader r;
    if (!camOpen(r, path, BIN_ID_CAMERA, "camera")) return nullptr;
    int ok = cameraRead(r, into);
    binReaderClose(r);
    return ok ? into : nullptr;
}

int cameraWrite(BinWriter &w, const Camera &c) {
    binWriteU16(w, 3), positionWrite(w, c.position);
    binWriteU16(w, 4), positionWrite(w, c.interest);
    const float rotation[3] = {c.rotationKept[0], c.rotationKept[1], c.roll};
    binWriteU16(w, CAM_ROTATION), valueWrite3(w, rotation);
    for (const CameraValue &v : cameraValues) {
        binWriteU16(w, v.token);
        if (v.token == CAM_DOF_MODE) binWriteU16(w, static_cast<uint16_t>(c.dofMode));
        else valueWrite(w, c.*v.field);
    }
    binWriteU16(w, 18), binWriteU16(w, c.kept18);
    binWriteU16(w, CAM_LENS), binWriteU16(w, static_cast<uint16_t>(c.offsetLens));
    for (int i = 0; i < 5; ++i) valueWrite(w, i == 1 ? c.filmWidth : c.lens[i]);
    if (c.customBlocks && !c.customBlocks->empty())
        binWriteU16(w, CAM_CUSTOM), customBlocksWriteSized(w, *c.customBlocks);
    binWriteU16(w, BIN_TOKEN_END);
    return !w.failed;
}

int cameraFileWrite(const char *path, const Camera &c, const char *comment) {
    return camFileWrite(path, BIN_ID_CAMERA, comment, c, cameraWrite);
}

void cameraFreeData(Camera &c) {
    delete c.customBlocks;
    c.customBlocks = nullptr;
}
