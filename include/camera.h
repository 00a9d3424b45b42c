// The camera record: the working camera of each Scene Context is one of these,
// held as the data of an element of the CAMERAS chapter.
#pragma once

#include <cstdint>

constexpr uint16_t CAMERA_KIND_WORKING = 2003;  // element kind of the working camera

struct Camera {
    uint16_t kind = 0;             // element kind; 2003 for the working camera
    uint16_t active = 1;           // 0: no navigation moves this camera
    float position[3] = {0.0f, 0.0f, 10.0f};  // the eye, world coordinates, y up
    float interest[3] = {0.0f, 0.0f, 0.0f};   // the point looked at
    float roll = 0.0f;             // about the view axis, radians
    float fieldOfView = 0.7854f;   // vertical angle, radians
    float upVector[4] = {0.0f, 0.0f, 0.0f, 1.0f};  // set by the fit
    float aspect = 720.0f / 486.0f;  // width over height of the view
    int32_t offsetLens = 0;        // non-zero: shifted film back, values below
    float lens[5] = {0, 0, 0, 0, 0};  // focal length, film width, film height, two shifts
    float focalLength = 50.0f;     // recomputed from filmWidth and fieldOfView by zoom
    float filmWidth = 36.0f;       // film back width
    float nearClip = 0.1f;         // near clipping distance
    float farClip = 1000.0f;       // far clipping distance
};
