// Shared by the readers and writers of animation, shape and cluster files.
#pragma once

#include "../binary/bin_internal.h"
#include "../geometry/geo_internal.h"
#include "animation.h"
#include "fileio.h"
#include "model.h"

// Tokens of the curve record; the high byte gives the size of the value, so
// that a reader can pass over a field it does not know.
enum FcurveToken : uint16_t {
    FCV_TOKEN_TYPE = 0x0401,      // i32 type
    FCV_TOKEN_SUBID = 0x0402,     // i32 subId
    FCV_TOKEN_PRE = 0x0203,       // i16 preMode
    FCV_TOKEN_POST = 0x0204,      // i16 postMode
    FCV_TOKEN_FLAGS = 0x0205,     // u16 flags
    FCV_TOKEN_INTERP = 0x0206,    // u16 interpolation
    FCV_TOKEN_RANGE_ON = 0x0207,  // u16 rangeOn
    FCV_TOKEN_RANGE = 0x0808,     // f32 rangeStart, f32 rangeEnd
    FCV_TOKEN_KEYS = 0xFF09,      // i32 size, i32 count, the keys
};

