// Round joints: the points of a chain joint bend smoothly through the joints
// at both ends of the bone instead of breaking there. At a joint both bones
// meet in one frame, the earlier bone's turned by half the joint's angle
// about the joint; along the bone a point's frame goes from the frame at its
// start to the frame at its end by its place on the bone. So the skin is
// continuous across every rounded joint, and a bone whose neighbours keep
// their bind angles moves rigidly.
#include <cmath>

#include "bw_env.h"
#include "envelope_internal.h"

namespace {

bool hasRounding(const Model *m) {
    return m && m->envelope && m->envelope->rounding != 0.0f;
}

bool isJointDeformer(const Model *m) {
    return m && m->type == MODEL_TYPE_JOINT && m->envelope && envelopeIsDeformer(m->envelopeRole);
}

// The first joint of a chain is rounded at its start only with the switch,
// and never under classical scaling or below a skeleton's model.
bool firstJointRounded(const Model *parent) {
    return envIsSet(ENV_BW_ENV_RND_FST_JNT) && g_scalingType != 1 && parent->envelopeRole != ENVELOPE_ROLE_SKELETON;
}

// The rotation half way from the identity to the 3 by 3 part of `d`.
void halfRotation(const float d[4][4], double h[3][3]) {
    double r[3][3];
    for (int i = 0; i < 3; ++i) {
        double len = std::sqrt(double(d[i][0]) * d[i][0] + double(d[i][1]) * d[i][1] + double(d[i][2]) * d[i][2]);
        for (int k = 0; k < 3; ++k) r[i][k] = len > 0.0 ? d[i][k] / len : (i == k ? 1.0 : 0.0);
    }
    // Quaternion of r, then its square root: (1 + q) normalised.
    double w = std::sqrt(std::fmax(0.0, 1.0 + r[0][0] + r[1][1] + r[2][2])) / 2.0;
    double x = std::copysign(std::sqrt(std::fmax(0.0, 1.0 + r[0][0] - r[1][1] - r[2][2])) / 2.0, r[1][2] - r[2][1]);
    double y = std::copysign(std::sqrt(std::fmax(0.0, 1.0 - r[0][0] + r[1][1] - r[2][2])) / 2.0, r[2][0] - r[0][2]);
    double z = std::copysign(std::sqrt(std::fmax(0.0, 1.0 - r[0][0] - r[1][1] + r[2][2])) / 2.0, r[0][1] - r[1][0]);
    w += 1.0;
    double n = std::sqrt(w * w + x * x + y * y + z * z);
    w /= n, x /= n, y /= n, z /= n;
    // The same convention back (row vectors: p' = p h).
    h[0][0] = 1 - 2 * (y * y + z * z); h[0][1] = 2 * (x * y + w * z);     h[0][2] = 2 * (x * z - w * y);
    h[1][0] = 2 * (x * y - w * z);     h[1][1] = 1 - 2 * (x * x + z * z); h[1][2] = 2 * (y * z + w * x);
    h[2][0] = 2 * (x * z + w * y);     h[2][1] = 2 * (y * z - w * x);     h[2][2] = 1 - 2 * (x * x + y * y);
}

// The frame both bones share at a joint: `before`'s composite turned about
// the joint (`pivot`, in the skin's space) by half the way to `after`'s.
void jointFrame(const float before[4][4], const float after[4][4], const float pivot[3], float out[4][4]) {
    float inverse[4][4], d[4][4];
    if (!mat4Inverse(before, inverse)) {
        mat4Copy(out, after);
        return;
    }
    mat4Mul(inverse, after, d);
    double h[3][3];
    halfRotation(d, h);
    // About the pivot: p -> (p - pivot) h + pivot.
    float half[4][4];
    mat4Identity(half);
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) half[i][k] = static_cast<float>(h[i][k]);
    for (int k = 0; k < 3; ++k)
        half[3][k] = static_cast<float>(pivot[k] - (pivot[0] * h[0][k] + pivot[1] * h[1][k] + pivot[2] * h[2][k]));
    mat4Mul(before, half, out);
}

// The joint's origin now, in the skin's space.
void pivotOf(const EnvelopePass &pass, const Model *joint, float pivot[3]) {
    pointMul(joint->globalPosition, pass.fromWorld, pivot);
}

}  // namespace

bool envelopeJointRounds(const Model *joint) {
    if (!evalEnvelopeDeferral() || hasRounding(joint)) return true;
    if (isJointDeformer(joint->parent) && hasRounding(joint->parent)) return true;
    for (const Model *c = joint->firstChild; c; c = c->nextSibling)
        if (isJointDeformer(c) && hasRounding(c)) return true;
    return false;
}

void envelopeDeformJoint(const EnvelopePass &pass, const Model *joint) {
    const EnvelopeSkin *list = envelopeSkinFind(joint->envelope, pass.skin);
    if (!list) return;
    const Model *before = joint->parent;
    if (!(before && before->envelope && envelopeIsDeformer(before->envelopeRole) &&
          (before->type == MODEL_TYPE_JOINT || firstJointRounded(before))))
        before = nullptr;
    const Model *after = nullptr;
    for (const Model *c = joint->firstChild; c && !after; c = c->nextSibling)
        if (isJointDeformer(c) && envelopeJointRounds(c)) after = c;
    // The bone runs from the joint to the next one, in the joint's bind frame.
    const float *bone = nullptr;
    if (after)
        bone = after->envelope->reference + 6;
    else if (joint->firstChild)
        bone = joint->firstChild->translation;
    const double length2 = bone ? double(bone[0]) * bone[0] + double(bone[1]) * bone[1] + double(bone[2]) * bone[2] : 0.0;
    if (length2 <= 0.0 || (!before && !after)) {
        envelopeDeformBone(pass, joint);
        return;
    }
    float own[4][4], start[4][4], end[4][4], pivot[3];
    envelopeComposite(pass, joint, own);
    mat4Copy(start, own);
    mat4Copy(end, own);
    if (before) {
        float c[4][4];
        envelopeComposite(pass, before, c);
        pivotOf(pass, joint, pivot);
        jointFrame(c, own, pivot, start);
    }
    if (after) {
        float c[4][4];
        envelopeComposite(pass, after, c);
        pivotOf(pass, after, pivot);
        jointFrame(own, c, pivot, end);
    }
    float toBind[4][4];
    mat4Mul(pass.toWorld, joint->envelope->basePose, toBind);
    envelopeAccumulate(pass, *list, [&](const double *p, double q[3], bool direction) {
        double local[3], a[3], b[3];
        // Tangents take the place of the vertex they belong to.
        const double *place = direction ? p - 3 * ((p - pass.rest) % pass.width / 3) : p;
        envelopePointMul(place, toBind, local);
        double t = (local[0] * bone[0] + local[1] * bone[1] + local[2] * bone[2]) / length2;
        t = t < 0.0 ? 0.0 : t > 1.0 ? 1.0 : t;
        envelopePointMul(p, start, a, direction);
        envelopePointMul(p, end, b, direction);
        for (int k = 0; k < 3; ++k) q[k] = (1.0 - t) * a[k] + t * b[k];
    });
}
