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
    // Evaluated state.
    float viewMatrix[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 10, 1}};
                                   // camera frame: rows side, up, back (it looks along -z), eye
    float planeDistance = 1.0f;    // projection plane distance
    float planeWidth = 0.828427f;  // projection plane width
    float planeHeight = 0.559188f; // projection plane height
    float fStop = 5.6f;            // depth of field: aperture
    float focusDistance = 10.0f;   // depth of field: distance in focus
    float nearFocus = 5.0f;        // depth of field: near limit
    float farFocus = 20.0f;        // depth of field: far limit
    float dofKept = 0.0f;          // depth of field value kept for the renderer
    float circleOfConfusion = 0.0f;  // largest circle of confusion
    int32_t dofMode = 0;           // depth of field: 0 off, 1 f-stop and focus, 2 near and far
    uint16_t visibility = 2;       // display value: 2 visible, 0 hidden
};

// A light of the LIGHTS chapter: the fields its relations drive.
struct Light {
    uint16_t type = 0;                       // kind of light, from its file
    uint16_t on = 1;                         // 1 lights the scene
    uint16_t visibility = 2;                 // display value: 2 visible, 0 hidden
    float colour[3] = {1.0f, 1.0f, 1.0f};    // red, green, blue
    float position[3] = {0.0f, 0.0f, 0.0f};  // world coordinates
    float interest[3] = {0.0f, 0.0f, -1.0f}; // the point lit towards
    float coneAngle = 0.7854f;               // spot cone, radians
    float spreadAngle = 0.0f;                // spot spread, radians
    float factor = 1.0f;                     // intensity factor
    float attenuation[3] = {1.0f, 0.0f, 0.0f};  // constant, linear, quadratic
    float directionAngles[3] = {0.0f, 0.0f, 0.0f};  // Euler angles turning (0, 0, -1), radians
    float direction[3] = {0.0f, 0.0f, -1.0f};       // unit direction from those angles
    float extraColour[3] = {0.0f, 0.0f, 0.0f};      // colour of the extra term, at least 0
    float extraIntensity = 0.0f;             // intensity of the extra term, at least 0
    int32_t extraCount[2] = {0, 0};          // two counts of the extra term, at least 0
    float extraRatio = 1.0f;                 // ratio of the extra term, at most 1
};
