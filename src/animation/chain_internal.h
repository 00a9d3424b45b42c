// Helpers shared by the files of the chain solver; not part of the public
// interface.
#pragma once

#include <cmath>

#include "animation.h"
#include "model.h"
#include "updatelist_internal.h"

constexpr double CHAIN_BOUND = 0.0001;          // shorter lengths and smaller offsets count as none
constexpr double CHAIN_REACH_TOLERANCE = 0.0008; // times the chain length: close enough to the goal
constexpr double CHAIN_TWO_PI = 6.283185307179586;
constexpr double CHAIN_PI = 3.141592653589793;

inline bool chainIsRoot(const Model *m) {
    return m && m->type == MODEL_TYPE_NULL && (m->kind == MODEL_KIND_CHAIN || m->kind == MODEL_KIND_CHAIN_DYNAMIC);
}
inline bool chainIsJoint(const Model *m) { return m && m->type == MODEL_TYPE_JOINT; }
inline bool chainIsEffector(const Model *m) {
    return m && m->type == MODEL_TYPE_NULL && (m->kind == MODEL_KIND_EFFECTOR || m->kind == MODEL_KIND_EFFECTOR_2);
}
inline bool chainIs3D(const ChainStretch &s) { return s.root->chainType == CHAIN_TYPE_3D; }

struct ChainVec {
    double x, y, z;  // world units
};
inline ChainVec chainVec(const float v[3]) { return {v[0], v[1], v[2]}; }
inline ChainVec operator-(ChainVec a, ChainVec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline ChainVec operator+(ChainVec a, ChainVec b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline ChainVec operator*(ChainVec a, double k) { return {a.x * k, a.y * k, a.z * k}; }
inline double dot(ChainVec a, ChainVec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline double length(ChainVec a) { return std::sqrt(dot(a, a)); }
inline ChainVec cross(ChainVec a, ChainVec b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline ChainVec chainRow(const float m[4][4], int r) { return {m[r][0], m[r][1], m[r][2]}; }

// Distance from the stretch's tip to `goal`.
double chainTipDistance(const ChainStretch &s, const float goal[3]);
// Recomputes the strip from the first joint down.
void chainStripUpdate(ChainStretch &s);
// Sets a joint's local rotation so that its global rotation becomes the 3 by
// 3 part of `world`; the present angles are the hint of the extraction.
void chainSetGlobalRotation(Model *joint, const float world[4][4]);
// The end of every closed form: z near the preferred turn on the joints
// named by `turnAll` (else the first), each angle wrapped, the strip updated.
void chainFinish(ChainStretch &s, int turnAll);
// `angle` moved by whole turns near `preferred`.
double chainNearPreferred(double angle, double preferred);
// The product Rz(angle) times `m` (rows: X acts first), into `out`.
void chainTurnZ(double angle, const float m[4][4], float out[4][4]);
// The start of the long-chain steps, 2D and 3D: each joint's rotation saved,
// then, when the goal is far enough from the first joint (or the root asks
// for the last solution again), the goal clamped into `goal` and the plane
// of code 30 made. 0 when there is nothing to do; else `clampCase` is the
// clamp's case, `L` the chain length.
int chainLongStart(ChainStretch &s, const float goalIn[3], float goal[3], int *clampCase, double *L,
                   float plane[4][4]);
// Puts back the rotations saved before the solve and updates the strip.
void chainRestore(ChainStretch &s);
