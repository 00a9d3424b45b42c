// What the plain and the round-joint deformation of a skin share.
#pragma once

#include "model.h"
#include "updatelist_internal.h"

// One deformation of one skin: its rest points, the points being summed, and
// the matrices between the skin's space and the world.
struct EnvelopePass {
    Model *skin;              // the skin being deformed
    const double *rest;       // its rest points (count x width)
    double *out;              // the deformed points, summed into from the rest
    int32_t count;            // points
    int width;                // values per point (geometryPointWidth)
    float toWorld[4][4];      // the skin's globalMatrix
    float fromWorld[4][4];    // its inverse
};

// Walks the deformers from `first` (the skeleton's top at depth 0, with its
// siblings of depth 0) and applies each to the skin, children one deeper.
void envelopeDeform(const EnvelopePass &pass, Model *first, int depth);
// A deformer's composite matrix for the skin: a rest point of the skin goes
// to the world, into the deformer's base pose, out by its present global
// matrix and back into the skin's space.
void envelopeComposite(const EnvelopePass &pass, const Model *bone, float out[4][4]);
// Sums the moves of the list's assignments into pass.out: for each point
// kept (weight at least ENVELOPE_MIN_WEIGHT, index inside the points),
// (moved - rest) x weight / 100, where `move(rest, moved)` gives the moved
// position of a position at rest.
template <class Move>
void envelopeAccumulate(const EnvelopePass &pass, const EnvelopeSkin &list, Move &&move);
// The plain form: every assigned point moves rigidly with the deformer.
void envelopeDeformBone(const EnvelopePass &pass, const Model *bone);
// Round joints: a chain joint's points blend from the half-turned frame of
// the joint at its start to that of the next joint at its end.
void envelopeDeformJoint(const EnvelopePass &pass, const Model *joint);
// Whether a chain joint takes the round form.
bool envelopeJointRounds(const Model *joint);

// Applies the affine `m` (row vectors) to `p`, or only its 3 by 3 part.
inline void envelopePointMul(const double p[3], const float m[4][4], double out[3], bool direction = false) {
    for (int k = 0; k < 3; ++k)
        out[k] = p[0] * m[0][k] + p[1] * m[1][k] + p[2] * m[2][k] + (direction ? 0.0 : m[3][k]);
}

template <class Move>
void envelopeAccumulate(const EnvelopePass &pass, const EnvelopeSkin &list, Move &&move) {
    const int width = pass.width;
    for (int32_t i = 0; i < list.count; ++i) {
        const EnvelopeAssignment &a = list.assignments[i];
        if (a.weight < ENVELOPE_MIN_WEIGHT) continue;
        if (a.vertex < 0 || a.vertex >= pass.count) continue;
        const double w = static_cast<double>(a.weight) / 100.0;
        const double *p = pass.rest + static_cast<size_t>(a.vertex) * static_cast<size_t>(width);
        double *o = pass.out + static_cast<size_t>(a.vertex) * static_cast<size_t>(width);
        double q[3];
        move(p, q, false);
        for (int k = 0; k < 3; ++k) o[k] += (q[k] - p[k]) * w;
        // A spline vertex's tangents turn with it; they are directions.
        for (int at = 3; at + 3 <= width && width == 9; at += 3) {
            move(p + at, q, true);
            for (int k = 0; k < 3; ++k) o[at + k] += (q[k] - p[at + k]) * w;
        }
    }
}
