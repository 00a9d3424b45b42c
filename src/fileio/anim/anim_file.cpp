// Animation files (.ani, and .key of the struct keys): the header, then blocks
// of u16 tokens each followed by one curve or a list of curves, to the end of
// the file. The curve record is tagged like every other record of the frame,
// so a later field can be passed over by an older reader.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "anim_internal.h"

namespace {

// Bytes of one key inside the keys field: time, value, left and right slope
// (f32 each), flag, interpolation, key type, spline index (u16 each).
constexpr int32_t KEY_BYTES = 24;

void appendItem(AnimItem **&tail, const AnimBlock &b, Fcurve *curve) {
    AnimItem *item = static_cast<AnimItem *>(calloc(1, sizeof(AnimItem)));
    if (!item) {
        fcurveFree(curve);
        return;
    }
    item->curve = curve;
    item->kind = b.kind;
    item->target = b.target;
    item->param = b.param;
    item->active = b.active;
    *tail = item;
    tail = &item->next;
}

// The keys field: i32 count, then the keys, within `size` bytes.
void readKeys(BinReader &r, Fcurve *c, int32_t size) {
    const int64_t end = r.pos + size;
    int32_t count = binReadI32(r);
    if (r.failed) return;
    if (count < 0 || static_cast<int64_t>(count) * KEY_BYTES > static_cast<int64_t>(size) - 4) {
        binFail(r, "key count runs past its size");
        return;
    }
    if (!fcurveKeysAlloc(c, count)) {
        binFail(r, "out of memory for the keys of a curve");
        return;
    }
    for (int32_t i = 0; i < count && !r.failed; ++i) {
        FcurveKey &k = c->keys[i];
        k.time = binReadF32(r);
        k.value = binReadF32(r);
        k.leftSlope = binReadF32(r);
        k.rightSlope = binReadF32(r);
        k.flag = binReadU16(r);
        k.interpolation = binReadI16(r);
        k.keyType = binReadU16(r);
        k.splineIndex = binReadU16(r);
        if (i == 0 || k.value < c->minValue) c->minValue = k.value;
        if (i == 0 || k.value > c->maxValue) c->maxValue = k.value;
    }
    // A later version may add to the keys: the rest of the field is passed over.
    if (!r.failed && r.pos < end) geoSkipBytes(r, end - r.pos);
}

}  // namespace

Fcurve *fcurveBinRead(BinReader &r) {
    Fcurve *c = fcurveCreate(0, 0);
    if (!c) {
        binFail(r, "out of memory for a curve");
        return nullptr;
    }
    for (uint16_t t = binReadU16(r); t != BIN_TOKEN_END && !r.failed; t = binReadU16(r)) {
        switch (t) {
            case FCV_TOKEN_TYPE: c->type = binReadI32(r); break;
            case FCV_TOKEN_SUBID: c->subId = binReadI32(r); break;
            case FCV_TOKEN_PRE: c->preMode = binReadI16(r); break;
            case FCV_TOKEN_POST: c->postMode = binReadI16(r); break;
            case FCV_TOKEN_FLAGS: c->flags = binReadU16(r); break;
            case FCV_TOKEN_INTERP: c->interpolation = binReadU16(r); break;
            case FCV_TOKEN_RANGE_ON: c->rangeOn = binReadU16(r); break;
            case FCV_TOKEN_RANGE:
                c->rangeStart = binReadF32(r);
                c->rangeEnd = binReadF32(r);
                break;
            case FCV_TOKEN_KEYS: {
                int32_t size = binReadI32(r);
                if (r.failed) break;
                if (size < 4) {
                    binFail(r, "keys field shorter than its count");
                } else if (size > binRemaining(r)) {
                    binCheckCount(r, size, 1);  // fails as a read past the end
                } else {
                    readKeys(r, c, size);
                }
                break;
            }
            default:
                if (!binSkip(r, t)) {
                    std::string what = "unknown token " + std::to_string(t) + " in a curve";
                    binFail(r, what.c_str());
                }
        }
    }
    c->currentKey = 0;
    return c;
}

int fcurveBinWrite(BinWriter &w, const Fcurve *c) {
    if (!c) return binWriteFail(w, "no curve to write");
    binWriteU16(w, FCV_TOKEN_TYPE), binWriteI32(w, c->type);
    binWriteU16(w, FCV_TOKEN_SUBID), binWriteI32(w, c->subId);
    binWriteU16(w, FCV_TOKEN_PRE), binWriteI16(w, c->preMode);
    binWriteU16(w, FCV_TOKEN_POST), binWriteI16(w, c->postMode);
    binWriteU16(w, FCV_TOKEN_FLAGS), binWriteU16(w, c->flags);
    binWriteU16(w, FCV_TOKEN_INTERP), binWriteU16(w, c->interpolation);
    binWriteU16(w, FCV_TOKEN_RANGE_ON), binWriteU16(w, c->rangeOn);
    binWriteU16(w, FCV_TOKEN_RANGE), binWriteF32(w, c->rangeStart), binWriteF32(w, c->rangeEnd);
    const int32_t count = c->keys && c->keyCount > 0 ? c->keyCount : 0;
    if (count > (INT32_MAX - 4) / KEY_BYTES) return binWriteFail(w, "too many keys for one curve");
    binWriteU16(w, FCV_TOKEN_KEYS), binWriteI32(w, 4 + count * KEY_BYTES), binWriteI32(w, count);
    for (int32_t i = 0; i < count; ++i) {
        const FcurveKey &k = c->keys[i];
        const float f[4] = {k.time, k.value, k.leftSlope, k.rightSlope};
        binWriteFloats(w, f, 4);
        binWriteU16(w, k.flag), binWriteI16(w, k.interpolation), binWriteU16(w, k.keyType);
        binWriteU16(w, k.splineIndex);
    }
    binWriteU16(w, BIN_TOKEN_END);
    return !w.failed;
}

int animBlockRead(BinReader &r, AnimBlock &b) {
    b = AnimBlock{-1, ANIM_FORM_CURVE, 0, 0, 1, nullptr};
    if (r.failed || binRemaining(r) == 0) return 0;
    for (bool open = true; open && !r.failed;) {
        uint16_t t = binReadU16(r);
        switch (t) {
            case ANIM_TOKEN_KIND: b.kind = binReadU16(r); break;
            case ANIM_TOKEN_NAME: free(binReadStr(r)); break;
            case ANIM_TOKEN_WORD3: binReadU16(r); break;
            case ANIM_TOKEN_FORM: b.form = binReadU16(r); break;
            case ANIM_TOKEN_TARGET: b.target = binReadU16(r); break;
            case ANIM_TOKEN_PARAM: b.param = binReadU16(r); break;
            case ANIM_TOKEN_ACTIVE: b.active = binReadU16(r); break;
            case ANIM_TOKEN_END: case ANIM_TOKEN_END_OLD: open = false; break;
            default:
                if (!binSkip(r, t)) {
                    std::string what = "unknown token " + std::to_string(t) + " in an animation block";
                    binFail(r, what.c_str());
                }
        }
    }
    if (r.failed || b.kind < 0) return 0;  // a block without its kind ends the file

    AnimItem **tail = &b.items;
    if (b.form == ANIM_FORM_CURVE) {
        Fcurve *c = fcurveBinRead(r);
        if (c) appendItem(tail, b, c);
    } else if (b.form == ANIM_FORM_LIST) {
        int32_t count = binReadI32(r);
        // Each curve takes at least its end token: a lying count fails here.
        if (binCheckCount(r, count, 2))
            for (int32_t i = 0; i < count && !r.failed; ++i)
                if (Fcurve *c = fcurveBinRead(r)) appendItem(tail, b, c);
    } else {
        std::string what = "unknown form " + std::to_string(b.form) + " of an animation block";
        binFail(r, what.c_str());
    }
    return !r.failed;
}

AnimItem *animFileRead(const char *path) {
    BinReader r;
    if (!path || !binReaderOpen(r, path)) {
        fprintf(stderr, "ERROR: Cannot open file %s\n", path ? path : "");
        return nullptr;
    }
    AnimItem *head = nullptr, **tail = &head;
    int32_t id = binReadHeader(r, nullptr, nullptr);
    if (id == BIN_ID_ANIMATION || id == BIN_ID_STRUCT_KEYS) {
        AnimBlock b;
        for (int more = 1; more;) {
            more = animBlockRead(r, b);
            *tail = b.items;
            while (*tail) tail = &(*tail)->next;
        }
    } else if (id >= 0) {
        binFail(r, "not an animation file");
    }
    binReaderClose(r);
    return head;
}

int animFileWrite(const char *path, const AnimItem *items) {
    BinWriter w;
    if (!binWriterOpen(w, path)) return 0;
    binWriteHeader(w, BIN_ID_ANIMATION, BIN_VERSION, nullptr);
    for (const AnimItem *it = items; it && !w.failed;) {
        // A run of items of one block goes out as a list.
        const AnimItem *end = it->next;
        int32_t count = 1;
        for (; end && end->kind == it->kind && end->target == it->target && end->param == it->param &&
               end->active == it->active;
             end = end->next)
            ++count;
        binWriteU16(w, ANIM_TOKEN_KIND), binWriteU16(w, static_cast<uint16_t>(it->kind));
        binWriteU16(w, ANIM_TOKEN_FORM), binWriteU16(w, count > 1 ? ANIM_FORM_LIST : ANIM_FORM_CURVE);
        binWriteU16(w, ANIM_TOKEN_TARGET), binWriteU16(w, static_cast<uint16_t>(it->target));
        binWriteU16(w, ANIM_TOKEN_PARAM), binWriteU16(w, static_cast<uint16_t>(it->param));
        binWriteU16(w, ANIM_TOKEN_ACTIVE), binWriteU16(w, static_cast<uint16_t>(it->active));
        binWriteU16(w, ANIM_TOKEN_END);
        if (count > 1) binWriteI32(w, count);
        for (; it != end; it = it->next) fcurveBinWrite(w, it->curve);
    }
    return binWriterClose(w);
}

void animItemsFree(AnimItem *items) {
    while (items) {
        AnimItem *next = items->next;
        fcurveFree(items->curve);
        free(items);
        items = next;
    }
}

int animReadProto(BinReader &r, Prototype &proto) {
    int64_t at = r.pos;
    char tag[4];
    if (binProbe(r, tag, 4) && memcmp(tag, "PROT", 4) == 0) return protoRead(r, proto);
    binSeekTo(r, at);
    return 1;
}

