// Helpers shared by the geometry and model record code.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "fileio.h"
#include "geometry.h"

// Fewest bytes one record of type `id` can take on disk, at least 1, so that a
// count can be checked against the rest of the file before anything is made.
int64_t geoRecordMinBytes(const Prototype *proto, int id);
// calloc of `count` items after checking that the file can hold `count`
// records of `minBytes`; null for a count of 0, a lying count or no memory.
void *geoAllocChecked(BinReader &r, int64_t count, int64_t minBytes, size_t itemSize);
// The same check, for an array whose every item the caller sets before use:
// the memory is not zeroed.
void *geoAllocCheckedRaw(BinReader &r, int64_t count, int64_t minBytes, size_t itemSize);
// Reads and drops `n` bytes; 0 when the file ends first.
int geoSkipBytes(BinReader &r, int64_t n);

// In-place forms used by records that embed others.
void splineReadInto(BinReader &r, const Prototype *proto, Spline &spline);
void nurbsCurveReadInto(BinReader &r, const Prototype *proto, NurbsCurve &curve);
void splineClear(Spline &spline);
void nurbsCurveClear(NurbsCurve &curve);

// One token of a record being written; 0 once the writer has failed.
inline int geoTok(BinWriter &w, TokenCursor &cur, uint16_t token) {
    return binWriteToken(w, cur, token) && !w.failed;
}
