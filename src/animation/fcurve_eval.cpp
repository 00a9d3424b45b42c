// Evaluation of function curves: the time prepared by the range and the
// extrapolation modes, the key search from the hint of the last evaluation,
// and the segment between two keys. Arithmetic is in double on the float data.
//
// The search walks forward from the key found last, so a forward play costs
// a step or two per evaluation. It stays a walk, not a bisection: keys read
// from files need not be in order, and the walk's answer on such keys is the
// one the curve is defined by.
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>

#include "tol.h"
#include "animation.h"

namespace {

constexpr double EPSILON = 1e-5;  // time tolerance of the search and the seams

// What the time preparation settled: a value, or a time inside the keys.
struct Prepared {
    bool done;     // true: `value` is the answer
    bool store;    // with done: the value goes into lastValue
    double value;  // the answer when done
    double t;      // otherwise the time to search
};

// Smallest n >= 1 with t + n * period >= first (pre) or t - n * period <= last
// (post), as a walk over n would find it, without walking from a far time.
double periods(double distance, double period, double t, double bound, bool pre) {
    double n = std::ceil(distance / period);
    if (!(n >= 1.0)) n = 1.0;
    auto reached = [&](double k) { return pre ? t + k * period >= bound : t - k * period <= bound; };
    for (int guard = 0; guard < 4 && n > 1.0 && reached(n - 1.0); ++guard) n -= 1.0;
    for (int guard = 0; guard < 4 && !reached(n); ++guard) n += 1.0;
    return n;
}

template <bool STEP>
Prepared prepare(Fcurve *c, float time, int useRange) {
    double t = time;
    if (std::isnan(t)) t = 0.0;
    if (useRange) {
        if (!c->rangeOn) {
            t = 0.0;
        } else if (std::fabs(static_cast<double>(c->rangeEnd) - c->rangeStart) > EPSILON) {
            double lo = std::fmin(c->rangeStart, c->rangeEnd), hi = std::fmax(c->rangeStart, c->rangeEnd);
            t = t < lo ? lo : t > hi ? hi : t;
        }
    }
    c->lastTime = static_cast<float>(t);

    const FcurveKey *k = c->keys;
    const int n = c->keyCount, last = n - 1;
    const double firstTime = k[0].time, lastTime = k[last].time;
    if (t < firstTime) {
        switch (c->preMode) {
            case FCV_EXTRA_CONSTANT: return {true, true, k[0].value, t};
            case FCV_EXTRA_LINEAR: {
                if (STEP || n == 1) return {true, true, k[0].value, t};
                double slope = k[0].leftSlope;
                if (c->interpolation == FCV_LINEAR && k[1].time != k[0].time)
                    slope = (static_cast<double>(k[1].value) - k[0].value) / (static_cast<double>(k[1].time) - firstTime);
                return {true, true, k[0].value - slope * (firstTime - t), t};
            }
            case FCV_EXTRA_PERIODIC: {
                if (n == 1) return {true, true, k[0].value, t};
                double period = lastTime - firstTime;
                if (std::fabs(period) <= EPSILON || period < 0.0 || std::isinf(t))
                    return {true, true, k[0].value, t};
                t = t + periods(firstTime - t, period, t, firstTime, true) * period;
                if (t < firstTime) t = firstTime;  // far times lose the fraction of a period
                // On the seam the curve shows its last key.
                if (std::fabs(t - firstTime) < EPSILON || t >= lastTime) {
                    t = lastTime;
                    c->currentKey = last;
                }
                return {false, false, 0.0, t};
            }
            default:
                msgShowf(TOL_CLASS_ERROR, "Error - fcurvePreValue: illegal extrapolation mode.");
                return {true, false, 0.0, t};
        }
    }
    if (t >= lastTime) {
        switch (c->postMode) {
            case FCV_EXTRA_CONSTANT: return {true, true, k[last].value, t};
            case FCV_EXTRA_LINEAR: {
                if (STEP) return {true, true, k[last].value, t};
                if (n == 1) return {true, false, k[0].value, t};
                double slope = k[last].rightSlope;
                const FcurveKey &before = k[last - 1];
                if (c->interpolation == FCV_LINEAR && before.time != k[last].time)
                    slope = (static_cast<double>(k[last].value) - before.value) / (lastTime - before.time);
                return {true, true, k[last].value + slope * (t - lastTime), t};
            }
            case FCV_EXTRA_PERIODIC: {
                if (n == 1) return {true, true, k[0].value, t};
                if (t == lastTime) return {false, false, 0.0, t};  // found by the search
                double period = lastTime - firstTime;
                if (std::fabs(period) <= EPSILON || period < 0.0 || std::isinf(t))
                    return {true, true, k[last].value, t};
                t = t - periods(t - lastTime, period, t, lastTime, false) * period;
                if (t < firstTime) t = firstTime;
                if (t > lastTime) t = lastTime;
                if (std::fabs(t - firstTime) < EPSILON) {
                    t = lastTime;
                    c->currentKey = last;
                }
                return {false, false, 0.0, t};
            }
            default:
                msgShowf(TOL_CLASS_ERROR, "Error - fcurvePostValue: illegal extrapolation mode");
                return {true, false, 0.0, t};
        }
    }
    return {false, false, 0.0, t};
}

// The walk from the hint. Returns the index of A (the key at or before t), or
// of the key hit; *hit tells which. Needs t inside [first, last] key time.
template <bool STEP>
inline int search(Fcurve *c, double t, bool *hit) {
    const FcurveKey *k = c->keys;
    const int n = c->keyCount;
    const double upper = t + EPSILON;
    int i = c->currentKey;
    if (i < 0 || i >= n || k[i].time > upper) i = 0;
    const int start = i;
    for (; i < n && k[i].time <= upper; ++i) {
        if (STEP ? k[i].time == t : std::fabs(k[i].time - t) < EPSILON) {
            *hit = true;
            c->currentKey = i;
            return i;
        }
    }
    // A walk that took no key or ran off the end has no segment: the key
    // where it stopped stands.
    *hit = i == start || i == n;
    int a = i == start ? start : i - 1;
    c->currentKey = a;
    return a;
}

int stepInteger(double value, int asBoolean) {
    if (asBoolean) return value > 0.0 ? 1 : 0;
    double rounded = value + 0.5;
    if (rounded >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (rounded <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(rounded);  // cut toward zero
}

}  // namespace

double fcurveFloatValue(Fcurve *curve, float time, int useRange) {
    if (!curve || curve->keyCount <= 0 || !curve->keys) return 0.0;
    Prepared p = prepare<false>(curve, time, useRange);
    if (p.done) {
        if (p.store) curve->lastValue = static_cast<float>(p.value);
        return p.value;
    }
    bool hit = false;
    const int at = search<false>(curve, p.t, &hit);
    const FcurveKey &a = curve->keys[at];
    double value;
    if (hit) {
        value = a.value;
    } else {
        const FcurveKey &b = curve->keys[at + 1];
        const double u = p.t - a.time;
        switch (a.interpolation) {
            case FCV_CONSTANT: value = a.value; break;
            case FCV_LINEAR:
                value = a.value + (static_cast<double>(b.value) - a.value) * u / (static_cast<double>(b.time) - a.time);
                break;
            case FCV_SPLINE:
            case FCV_SLOPE0:
            case FCV_PLATEAU: {
                // Cubic Hermite between the two keys with A's outgoing and B's
                // incoming slope; u squared is rounded to float as the curves
                // were always computed.
                const double d = 1.0 / (static_cast<double>(b.time) - a.time);
                const double dd = d * d;
                const double p2 = static_cast<float>(u * u);
                const double p3 = p2 * u * dd;
                const double uu = u * u;
                value = a.value * (2.0 * d * p3 - 3.0 * dd * p2 + 1.0) + b.value * (3.0 * dd * p2 - 2.0 * d * p3) +
                        a.rightSlope * (p3 - 2.0 * d * uu + u) + b.leftSlope * (p3 - d * uu);
                break;
            }
            default: return 0.0;
        }
    }
    curve->lastValue = static_cast<float>(value);
    return value;
}

int fcurveStepValue(Fcurve *curve, float time, int useRange, int asBoolean) {
    if (!curve || curve->keyCount <= 0 || !curve->keys) return 0;
    Prepared p = prepare<true>(curve, time, useRange);
    double value = p.value;
    if (!p.done) {
        bool hit = false;
        value = curve->keys[search<true>(curve, p.t, &hit)].value;
    }
    if (!p.done || p.store) curve->lastValue = static_cast<float>(value);
    return stepInteger(value, asBoolean);
}

double fcurveValue(Fcurve *curve, float time, int useRange) {
    if (!curve) return 0.0;
    switch (curve->type) {
        case 175:
            if (fcurveIntegerVisibilityOn()) return fcurveStepValue(curve, time, useRange, 0);
            return fcurveStepValue(curve, time, useRange, 1);
        case 176: case 177: case 178: case 182: case 196: case 273: case 378: case 620: case 627:
        case 628: case 631: case 632: case 633:
            return fcurveStepValue(curve, time, useRange, 1);
        case 625: case 626: {
            int v = fcurveStepValue(curve, time, useRange, 0);
            return v < 0 ? 0 : v;
        }
        default: {
            double v = fcurveFloatValue(curve, time, useRange);
            if (curve->type >= 621 && curve->type <= 624 && v < 0.0) v = 0.0;
            return v;
        }
    }
}

int fcurveFreezeTime(Fcurve *curve, float time, float *freezeTime) {
    if (!curve || curve->keyCount <= 0 || !curve->keys) {
        if (freezeTime) *freezeTime = time;
        return 0;
    }
    const FcurveKey *k = curve->keys;
    const int last = curve->keyCount - 1;
    int at;
    if (time <= k[0].time) {
        at = 0;
    } else if (time >= k[last].time) {
        at = last;
    } else {
        int i = 1;
        while (i < last && k[i].time <= time) ++i;
        // Back over a run of equal values below 1: the curve went off where
        // the run starts.
        while (k[i].value < 1.0f && i >= 2 && k[i - 1].value == k[i].value) --i;
        at = i - 1;
    }
    if (freezeTime) *freezeTime = k[at].time;
    return k[at].value > 0.0001f;
}
