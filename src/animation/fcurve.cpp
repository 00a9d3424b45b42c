// Function curve records: allocation, keys, the slopes computed from them,
// and the edits that keep a curve ordered.
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tol.h"
#include "animation.h"
#include "bw_env.h"

int fcurveDefaultInterpolation = FCV_SPLINE;
float fcurveFrameRate = 30.0f;
float fcurveMergeFrames = 0.15f;
std::atomic<int> fcurveIntegerVisibility{-1};
FcurveConfirm fcurveConfirm = nullptr;

int fcurveIntegerVisibilityOn() {
    int on = fcurveIntegerVisibility.load(std::memory_order_relaxed);
    if (on < 0) {
        on = envIsSet(ENV_BW_OVERLOAD_HIDDEN);
        fcurveIntegerVisibility.store(on, std::memory_order_relaxed);
    }
    return on;
}

namespace {

constexpr int KEY_BLOCK = 8;           // keys grow in blocks of this many
constexpr double SORT_EPSILON = 1e-5;  // keys nearer in time keep their order
constexpr float FLAT_SLOPE = 100000.0f;  // both slopes after a time scale of 0

// Capacity that holds `count` keys: whole blocks, at least one.
size_t keyCapacity(int count) {
    size_t n = count > 0 ? static_cast<size_t>(count) : 1;
    return (n + KEY_BLOCK - 1) / KEY_BLOCK * KEY_BLOCK;
}

void keyInit(FcurveKey &key, Fcurve *owner) {
    memset(&key, 0, sizeof key);
    key.owner = owner;
    key.splineIndex = 0xFFFF;
    key.spare = 0xFFFF;
}

// Interpolation of new keys by curve type: switches and counters step.
int typeInterpolation(int32_t type) {
    switch (type) {
        case 175: case 176: case 177: case 178: case 182: case 196: case 273: case 371: case 372:
        case 378: case 620: case 625: case 626: case 627: case 628: case 631: case 632: case 633:
        case 676:
            return FCV_CONSTANT;
        case 189: return FCV_LINEAR;
        case 154: case 184: return FCV_SLOPE0;
        default: return fcurveDefaultInterpolation;
    }
}

double framesOf(float time) { return static_cast<double>(time) * fcurveFrameRate; }

// Slope of the chord from key a to key b; flat between keys of one time.
float chord(const FcurveKey &a, const FcurveKey &b) {
    double dt = static_cast<double>(b.time) - a.time;
    if (dt == 0.0) return 0.0f;
    return static_cast<float>((static_cast<double>(b.value) - a.value) / dt);
}

// -1 below -0.0001, 1 above 0.0001, else 0.
int signOf(double v) { return v < -0.0001 ? -1 : v > 0.0001 ? 1 : 0; }

bool inRange(const FcurveKey &k, float from, float to) { return k.time >= from && k.time <= to; }

}  // namespace

Fcurve *fcurveCreate(int32_t type, int32_t subId) {
    Fcurve *c = static_cast<Fcurve *>(calloc(1, sizeof(Fcurve)));
    if (!c) return nullptr;
    c->type = type;
    c->subId = subId;
    c->lastTime = -100000.0f;
    c->interpolation = static_cast<uint16_t>(typeInterpolation(type));
    c->rangeOn = 1;
    c->editable = 1;
    return c;
}

void fcurveFree(Fcurve *curve) {
    // The children form a chain, released without recursion.
    while (curve) {
        Fcurve *child = curve->child;
        free(curve->keys);
        free(curve);
        curve = child;
    }
}

FcurveKey *fcurveKeyNew() {
    FcurveKey *key = static_cast<FcurveKey *>(malloc(sizeof(FcurveKey)));
    if (key) keyInit(*key, nullptr);
    return key;
}

int fcurveKeysAlloc(Fcurve *curve, int count) {
    if (!curve) return 0;
    free(curve->keys);
    curve->keys = nullptr;
    curve->keyCount = 0;
    curve->currentKey = 0;
    if (count <= 0) return count == 0;
    curve->keys = static_cast<FcurveKey *>(malloc(keyCapacity(count) * sizeof(FcurveKey)));
    if (!curve->keys) return 0;
    for (int i = 0; i < count; ++i) keyInit(curve->keys[i], curve);
    curve->keyCount = count;
    return 1;
}

int fcurveKeysAppend(Fcurve *curve, FcurveKey *key) {
    if (!key) return 0;
    if (!curve || curve->keyCount < 0 || (curve->keyCount > 0 && !curve->keys) || curve->keyCount == INT_MAX) {
        free(key);
        return 0;
    }
    const int n = curve->keyCount;
    if (n % KEY_BLOCK == 0) {
        auto *grown = static_cast<FcurveKey *>(realloc(curve->keys, keyCapacity(n + 1) * sizeof(FcurveKey)));
        if (!grown) {
            free(key);
            return 0;
        }
        curve->keys = grown;
    }
    curve->keys[n] = *key;
    curve->keys[n].owner = curve;
    if (n == 0 || key->value < curve->minValue) curve->minValue = key->value;
    if (n == 0 || key->value > curve->maxValue) curve->maxValue = key->value;
    curve->keyCount = n + 1;
    free(key);
    return 1;
}

FcurveKey *fcurveKey(Fcurve *curve, int index) {
    int count = curve ? curve->keyCount : 0;
    if (!curve || !curve->keys || index < 1 || index > count) {
        msgShowf(TOL_CLASS_ERROR, "Fatal Error: fcurveKey, index out of range %d (1, %d)", index, count);
        return nullptr;
    }
    return &curve->keys[index - 1];
}

int fcurveAddKey(Fcurve *curve, FcurveKey *key, int startIndex, int askIfLocked, int replace) {
    if (!key) return -1;
    if (!curve || curve->keyCount < 0 || (curve->keyCount > 0 && !curve->keys) ||
        curve->keyCount == INT_MAX) {
        free(key);
        return -1;
    }
    const int n = curve->keyCount;
    int start = startIndex < 0 ? 0 : startIndex >= n ? (n > 0 ? n - 1 : 0) : startIndex;
    const double frame = framesOf(key->time), tolerance = fcurveMergeFrames;
    // Recording adds keys in time order: the key found last is a better start.
    if (curve->currentKey > start && curve->currentKey < n &&
        framesOf(curve->keys[curve->currentKey].time) < frame - tolerance)
        start = curve->currentKey;

    int index = -1;
    for (int i = start; i < n; ++i) {
        double at = framesOf(curve->keys[i].time);
        if (std::fabs(at - frame) <= tolerance) {
            index = i;
            break;
        }
        if (at > frame + tolerance) break;
    }

    if (index >= 0) {
        FcurveKey &old = curve->keys[index];
        const bool locked = (old.keyType & FCVKEY_TYPE_MASK) == FCVKEY_KEYFRAME;
        if (askIfLocked && !locked) {
            printf("Overlapping keys, new one replaces old.\n");
        } else if (askIfLocked) {
            const char *question = "Do you want to replace the locked key?";
            int yes = 0;
            if (fcurveConfirm) yes = fcurveConfirm(question);
            else printf("%s\n", question);
            if (!yes) {
                free(key);
                return -1;
            }
        }
        if (replace) old.time = key->time;
        old.value = key->value;
        old.leftSlope = key->leftSlope;
        old.rightSlope = key->rightSlope;
        old.flag = key->flag;
        old.interpolation = key->interpolation;
        old.keyType = locked ? static_cast<uint16_t>((key->keyType & ~FCVKEY_TYPE_MASK) | FCVKEY_KEYFRAME)
                             : key->keyType;
        old.splineIndex = key->splineIndex;
        old.spare = key->spare;
    } else {
        if (n % KEY_BLOCK == 0) {
            auto *grown = static_cast<FcurveKey *>(realloc(curve->keys, keyCapacity(n + 1) * sizeof(FcurveKey)));
            if (!grown) {
                free(key);
                return -1;
            }
            curve->keys = grown;
        }
        index = n;
        while (index > 0 && curve->keys[index - 1].time > key->time) {
            curve->keys[index] = curve->keys[index - 1];
            --index;
        }
        curve->keys[index] = *key;
        curve->keyCount = n + 1;
    }

    FcurveKey &stored = curve->keys[index];
    stored.owner = curve;
    curve->currentKey = index;
    if (n == 0) {
        curve->minValue = curve->maxValue = stored.value;
    } else {
        if (stored.value < curve->minValue) curve->minValue = stored.value;
        if (stored.value > curve->maxValue) curve->maxValue = stored.value;
    }
    fcurveKeySlopes(curve, index - 1);
    fcurveKeySlopes(curve, index);
    fcurveKeySlopes(curve, index + 1);
    free(key);
    return index;
}

int fcurveDeleteKey(Fcurve *curve, int index) {
    if (!curve || !curve->keys || index < 1 || index > curve->keyCount) return 0;
    int at = index - 1;
    memmove(&curve->keys[at], &curve->keys[at + 1],
            static_cast<size_t>(curve->keyCount - index) * sizeof(FcurveKey));
    --curve->keyCount;
    if (curve->currentKey > at) --curve->currentKey;
    fcurveKeySlopes(curve, at - 1);
    fcurveKeySlopes(curve, at);
    return 1;
}

int fcurveDeleteKeys(Fcurve *curve, int first, int last, int selectedOnly) {
    if (!curve || !curve->keys) return 0;
    if (first < 1) first = 1;
    if (last > curve->keyCount) last = curve->keyCount;
    int kept = 0;
    for (int i = 0; i < curve->keyCount; ++i) {
        const FcurveKey &k = curve->keys[i];
        bool drop = i + 1 >= first && i + 1 <= last && (!selectedOnly || k.selected);
        if (!drop) curve->keys[kept++] = k;
    }
    int removed = curve->keyCount - kept;
    curve->keyCount = kept;
    if (curve->currentKey >= kept) curve->currentKey = 0;
    if (removed) fcurveSlopes(curve);
    return removed;
}

void fcurveKeySlopes(Fcurve *curve, int index) {
    if (!curve || !curve->keys || index < 0 || index >= curve->keyCount) return;
    FcurveKey &k = curve->keys[index];
    if (k.flag & FCVKEY_USER_SLOPES) {
        if (!(k.flag & FCVKEY_BROKEN)) k.leftSlope = k.rightSlope;
        return;
    }
    const int last = curve->keyCount - 1;
    if (last == 0 || index == 0 || index == last || k.interpolation == FCV_SLOPE0) {
        k.leftSlope = k.rightSlope = 0.0f;
        return;
    }
    const FcurveKey &prev = curve->keys[index - 1], &next = curve->keys[index + 1];
    if (k.interpolation == FCV_PLATEAU) {
        // Flat where the curve turns or levels out, so it never overshoots.
        const double v = k.value, tolerance = std::fabs(v * 0.01);
        if (std::fabs(prev.value - v) <= tolerance || std::fabs(next.value - v) <= tolerance) {
            k.leftSlope = k.rightSlope = 0.0f;
            return;
        }
        int a = signOf(v - prev.value), b = signOf(v - next.value);
        if (a == b && a != 0) {
            k.leftSlope = k.rightSlope = 0.0f;
            return;
        }
    }
    if (!(k.flag & FCVKEY_BROKEN)) {
        k.leftSlope = k.rightSlope = chord(prev, next);
    } else {
        k.leftSlope = chord(prev, k);
        k.rightSlope = chord(k, next);
    }
}

void fcurveSlopes(Fcurve *curve) {
    if (!curve) return;
    for (int i = 0; i < curve->keyCount; ++i) fcurveKeySlopes(curve, i);
}

void fcurveSortKeys(Fcurve *curve) {
    if (!curve || !curve->keys || curve->keyCount < 2) return;
    // Bubble passes: keys are nearly in order after an edit, and keys nearer
    // than the tolerance keep the order they had.
    for (bool swapped = true; swapped;) {
        swapped = false;
        for (int i = 0; i + 1 < curve->keyCount; ++i) {
            FcurveKey &a = curve->keys[i], &b = curve->keys[i + 1];
            if (static_cast<double>(b.time) + SORT_EPSILON < a.time) {
                FcurveKey t = a;
                a = b;
                b = t;
                swapped = true;
            }
        }
    }
    fcurveSlopes(curve);
}

Fcurve *fcurveDuplicate(const Fcurve *curve) {
    if (!curve) return nullptr;
    Fcurve *copy = static_cast<Fcurve *>(malloc(sizeof(Fcurve)));
    if (!copy) return nullptr;
    *copy = *curve;
    copy->child = nullptr;
    copy->keys = nullptr;
    if (curve->keyCount > 0 && curve->keys) {
        copy->keys = static_cast<FcurveKey *>(malloc(keyCapacity(curve->keyCount) * sizeof(FcurveKey)));
        if (!copy->keys) {
            free(copy);
            return nullptr;
        }
        memcpy(copy->keys, curve->keys, static_cast<size_t>(curve->keyCount) * sizeof(FcurveKey));
        for (int i = 0; i < curve->keyCount; ++i) copy->keys[i].owner = copy;
    } else {
        copy->keyCount = 0;
    }
    return copy;
}

int fcurveMoveKeys(Fcurve *curve, float from, float to, float offset) {
    if (!curve || !curve->keys) return 0;
    int changed = 0;
    for (int i = 0; i < curve->keyCount; ++i) {
        FcurveKey &k = curve->keys[i];
        if (!inRange(k, from, to) || (k.keyType & FCVKEY_TYPE_MASK) == FCVKEY_KEYFRAME) continue;
        k.time = static_cast<float>(static_cast<double>(k.time) + offset);
        ++changed;
    }
    fcurveSortKeys(curve);
    return changed;
}

int fcurveScaleTime(Fcurve *curve, float from, float to, float pivot, float scale) {
    if (!curve || !curve->keys) return 0;
    int changed = 0;
    for (int i = 0; i < curve->keyCount; ++i) {
        FcurveKey &k = curve->keys[i];
        if (!inRange(k, from, to) || (k.keyType & FCVKEY_TYPE_MASK) == FCVKEY_KEYFRAME) continue;
        k.time = static_cast<float>(pivot + (static_cast<double>(k.time) - pivot) * scale);
        if (scale == 0.0f) {
            k.leftSlope = k.rightSlope = FLAT_SLOPE;
        } else {
            k.leftSlope = static_cast<float>(k.leftSlope / static_cast<double>(scale));
            k.rightSlope = static_cast<float>(k.rightSlope / static_cast<double>(scale));
        }
        ++changed;
    }
    fcurveSortKeys(curve);
    return changed;
}

int fcurveScaleValue(Fcurve *curve, float from, float to, float pivot, float scale) {
    if (!curve || !curve->keys) return 0;
    int changed = 0;
    for (int i = 0; i < curve->keyCount; ++i) {
        FcurveKey &k = curve->keys[i];
        if (!inRange(k, from, to) || (k.keyType & FCVKEY_TYPE_MASK) == FCVKEY_KEYPATH) continue;
        k.value = static_cast<float>(pivot + (static_cast<double>(k.value) - pivot) * scale);
        k.leftSlope = static_cast<float>(k.leftSlope * static_cast<double>(scale));
        k.rightSlope = static_cast<float>(k.rightSlope * static_cast<double>(scale));
        ++changed;
    }
    fcurveSortKeys(curve);
    return changed;
}
