// Helpers shared by the camera, light and lattice files.
#pragma once

#include <cstdint>

#include "../binary/bin_internal.h"
#include "camera.h"
#include "material.h"

// Kinds of an animatable value.
constexpr uint16_t VALUE_PLAIN = 1;       // the value follows
constexpr uint16_t VALUE_FROM_CURVE = 2;  // nothing follows: a curve of the old file form gave it

// Forms of a position block; a word outside 1 to 5 ends the block.
constexpr uint16_t POSITION_END = 0;      // what the writers put to end a block
constexpr uint16_t POSITION_VECTOR = 1;   // three f32
constexpr uint16_t POSITION_PATH = 3;     // u16 word, then the path's element name

// Stores a value only when the reader is still whole, so that a value cut by
// the end of the file leaves its field as it was.
template <typename T, typename V>
inline void camKeep(const BinReader &r, T &field, V value) {
    if (!r.failed) field = static_cast<T>(value);
}

// Opens `path` and reads its header: 1 with the reader at the first token when
// the file has `id`. Otherwise 0 and the reader closed: a file of another
// element is reported as damage ("not a <what> file"); a file that does not
// open or is no element file is left for the caller to report.
int camOpen(BinReader &r, const char *path, uint32_t id, const char *what);

// The plain forms the writers use.
void valueWrite(BinWriter &w, float value);
void valueWrite3(BinWriter &w, const float *values);
void positionWrite(BinWriter &w, const float *point);

// Header with `id`, then the record by `write`.
template <typename T>
int camFileWrite(const char *path, uint32_t id, const char *comment, const T &record,
                 int (*write)(BinWriter &, const T &)) {
    BinWriter w;
    if (!binWriterOpen(w, path)) return 0;
    binWriteHeader(w, id, BIN_VERSION, comment);
    write(w, record);
    return binWriterClose(w);
}
